// SPDX-License-Identifier: MIT
#include <brixlib/protocol/client/sclientbaserequester.h>

#include <brixsec/ssecurecredential.h>
#include <brixsec/ssecurestring.h>

namespace Talverine {

SClientBaseRequester::SClientBaseRequester(SClientBase *worker, QObject *parent)
    : SCommunicatorBaseRequester(worker, parent)
{
}

SClientBaseRequester::~SClientBaseRequester() = default;

QHostAddress SClientBaseRequester::address() const
{
    QHostAddress result;
    query("address", Q_RETURN_ARG(QHostAddress, result));
    return result;
}

QString SClientBaseRequester::host(bool lookup) const
{
    QString result;
    query("host", Q_RETURN_ARG(QString, result), Q_ARG(bool, lookup));
    return result;
}

bool SClientBaseRequester::isCommandAvailable(const SCommandId &id) const
{
    bool result = false;
    query("isCommandAvailable", Q_RETURN_ARG(bool, result), Q_ARG(SCommandId, id));
    return result;
}

unsigned short SClientBaseRequester::port() const
{
    unsigned short result = 0;
    query("port", Q_RETURN_ARG(unsigned short, result));
    return result;
}

bool SClientBaseRequester::preferIPv4() const
{
    bool result = false;
    query("preferIPv4", Q_RETURN_ARG(bool, result));
    return result;
}

QAbstractSocket::SocketState SClientBaseRequester::state() const
{
    auto result = QAbstractSocket::UnconnectedState;
    query("state", Q_RETURN_ARG(QAbstractSocket::SocketState, result));
    return result;
}

void SClientBaseRequester::authenticate(const QString &username, const QString &password)
{
    post("authenticate", Q_ARG(QString, username), Q_ARG(QString, password));
}

void SClientBaseRequester::authenticate(const QString &username,
                                        const Security::SSecureString &password)
{
    post("authenticate", Q_ARG(QString, username), Q_ARG(Security::SSecureString, password));
}

void SClientBaseRequester::authenticate(const Security::SSecureCredential &credential)
{
    post("authenticate", Q_ARG(Security::SSecureCredential, credential));
}

void SClientBaseRequester::clearPendingCommands()
{
    post("clearPendingCommands");
}

void SClientBaseRequester::commandList()
{
    post("commandList");
}

void SClientBaseRequester::disconnect()
{
    post("disconnect");
}

void SClientBaseRequester::linkTest(int uploadSeconds, int downloadSeconds)
{
    post("linkTest", Q_ARG(int, uploadSeconds), Q_ARG(int, downloadSeconds));
}

void SClientBaseRequester::pluggable(const QString &command, const QByteArray &params)
{
    post("pluggable", Q_ARG(QString, command), Q_ARG(QByteArray, params));
}

void SClientBaseRequester::pluggableList()
{
    post("pluggableList");
}

void SClientBaseRequester::serverName()
{
    post("serverName");
}

void SClientBaseRequester::whoAmI()
{
    post("whoAmI");
}

} // namespace Talverine

#include "moc_sclientbaserequester.cpp"
