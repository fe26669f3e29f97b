// SPDX-License-Identifier: MIT
// For benchmarks that start themselves again as a server and as a client.
#pragma once

#include "localserver.h"
#include "procfs.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QProcess>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace ChildPair {

[[noreturn]] inline void fail(const char *what)
{
    std::perror(what);
    std::_Exit(1);
}

//! Tells the parent where this process listens.
inline void printPort(int port)
{
    std::printf("%d\n", port);
    std::fflush(stdout);
}

//! A plain socket that listens on a free port of the loopback interface, which is printed.
inline int listenBare()
{
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(listener, reinterpret_cast<sockaddr *>(&address), length) != 0 ||
        ::listen(listener, 1) != 0 ||
        ::getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length) != 0)
        fail("bare server");
    printPort(ntohs(address.sin_port));
    return listener;
}

//! A plain socket that is connected to the port.
inline int connectBare(unsigned short port)
{
    const int peer = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(peer, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        fail("bare connect");
    return peer;
}

//! Serves files of the folder until the process is ended.
inline int serve(const QString &home)
{
    LocalServer server(home);
    const unsigned short port = server.listen();
    if (port == 0)
        fail("listen");
    printPort(port);
    return QCoreApplication::exec();
}

//! What a run of both ends has brought.
struct Run
{
    QJsonObject said;          //!< the client's only line
    qint64 serverGrownKiB = 0; //!< resident memory
};

//! Starts the program again with \a serverArguments, which prints its port, and once more with
//! \a clientMode, that port and \a clientArguments, which prints one JSON object.
inline Run run(const QList<QString> &serverArguments, const QString &clientMode,
               const QList<QString> &clientArguments = {})
{
    QProcess server;
    server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    server.start(QCoreApplication::applicationFilePath(), serverArguments);
    while (!server.canReadLine()) {
        if (!server.waitForReadyRead(60000))
            fail("child says nothing");
    }
    const QString port = QString::fromLatin1(server.readLine().trimmed());
    const qint64 before = ProcFs::memoryKiB(server.processId(), "VmRSS");

    QProcess client;
    client.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    client.start(QCoreApplication::applicationFilePath(),
                 QList<QString>{clientMode, port} + clientArguments);
    if (!client.waitForFinished(-1) || client.exitCode() != 0)
        fail("client");
    Run run;
    run.said = QJsonDocument::fromJson(client.readAllStandardOutput()).object();
    run.serverGrownKiB = ProcFs::memoryKiB(server.processId(), "VmHWM") - before;
    server.terminate();
    server.waitForFinished(10000);
    return run;
}

//! Prints a client's only line.
inline int say(const QJsonObject &object)
{
    std::printf("%s\n", QJsonDocument(object).toJson(QJsonDocument::Compact).constData());
    return 0;
}

template<typename Value>
Value median(QList<Value> values)
{
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

//! Fills a file with bytes that are the same in each run.
inline void makeFile(const QString &path, qint64 size)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        fail("source");
    QByteArray block(qsizetype(1) << 20, Qt::Uninitialized);
    quint32 state = 1;
    for (char &byte : block) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<char>(state >> 24);
    }
    for (qint64 done = 0; done < size; done += block.size()) {
        const qint64 count = std::min<qint64>(block.size(), size - done);
        if (file.write(block.constData(), count) != count)
            fail("source");
    }
}

} // namespace ChildPair
