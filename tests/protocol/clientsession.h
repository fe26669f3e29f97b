// SPDX-License-Identifier: MIT
#pragma once

#include <shared/rawserver.h>
#include <shared/signallog.h>

#include <brixlib/protocol/client/sclientbase.h>
#include <brixlib/protocol/client/sclientcontroller.h>
#include <brixlib/protocol/sconcretecommand.h>
#include <brixlib/protocol/socket/stcpsocket.h>
#include <brixlib/protocol/wire.h>
#include <brixlib/workers/ssimplebackgroundrunner.h>

#include <QtCore/QPointer>

#include <memory>

//! A command that writes the stream version it is written at, and whose life can be watched.
class ProbeCommand final : public Talverine::SConcreteCommand<ProbeCommand>
{
public:
    explicit ProbeCommand(std::shared_ptr<int> lifeToken = {})
        : SConcreteCommand(Talverine::Wire::word("prob"), 0x00010100)
        , token(std::move(lifeToken))
    {
    }
    bool operator==(const ProbeCommand &) const = default;

    std::shared_ptr<int> token;

private:
    friend SConcreteCommand;
    void readFields(QDataStream &stream) { stream >> m_streamVersion; }
    void writeFields(QDataStream &stream) const { stream << qint32(stream.version()); }

    qint32 m_streamVersion = 0;
};

//! A client that lets a test see and do what derived classes can.
class TestClient final : public Talverine::SClientBase
{
public:
    explicit TestClient(quint16 port)
        : SClientBase(QHostAddress(QHostAddress::LocalHost), port)
    {
        registerCommand(new ProbeCommand);
    }
    using SClientBase::authenticationStatus;
    using SClientBase::commandVersion;
    using SClientBase::enqueueCommand;
    using SClientBase::receivers;
    using SClientBase::setAddress;
    using SClientBase::setHost;
    using SClientBase::setPort;
    using SClientBase::setPreferIPv4;
    using SClientBase::socket;
    using SClientBase::supportedCommands;
    using SClientBase::uuid;

protected:
    bool executeCommand(Talverine::SCommand *command) override
    {
        return command->id() == ProbeCommand().id() || SClientBase::executeCommand(command);
    }
};

//! A client in its thread, with a record of how its commands and its life ended.
class ClientSession final
{
public:
    explicit ClientSession(quint16 port)
        : ClientSession(new TestClient(port))
    {
    }

    //! Connects; the thread runs on after a failure until the worker has ended.
    [[nodiscard]] bool open()
    {
        runner = controller.connectClient(client, false);
        return runner;
    }

    //! Waits until the worker has finished and is gone, and takes the last of its signals.
    [[nodiscard]] bool ends()
    {
        const bool ended =
            finished.waitForCount(1) && QTest::qWaitFor([this] { return client.isNull(); }, 10000);
        QCoreApplication::processEvents();
        return ended;
    }

    //! Runs \a work in the client's thread and waits for it.
    template<typename Work>
    void inThread(Work work)
    {
        QMetaObject::invokeMethod(client, work, Qt::BlockingQueuedConnection);
    }

    //! The commands whose exchange has ended, as four letters with "+" or "-"; empty runs left out.
    QList<QByteArray> exchanges() const
    {
        QList<QByteArray> list;
        for (const auto &[id, success] : results.entries()) {
            if (!id.isNull())
                list.append(QByteArray::fromHex(QByteArray::number(id.id(), 16)) +
                            (success ? '+' : '-'));
        }
        return list;
    }

    [[nodiscard]] bool waitForExchanges(qsizetype count)
    {
        return QTest::qWaitFor([this, count] { return exchanges().size() >= count; }, 10000);
    }

    QPointer<TestClient> client;
    SignalLog<Talverine::SCommandId, bool> results;
    SignalLog<Talverine::SimpleWorkerError> finished;
    Talverine::SClientController controller; // ends first, and the client with it
    QPointer<Talverine::SSimpleBackgroundRunner> runner;

private:
    explicit ClientSession(TestClient *made)
        : client(made)
        , results(made, &TestClient::commandResult)
        , finished(made, &TestClient::finished)
    {
    }
};
