// SPDX-License-Identifier: MIT
// The remote device: every request and answer byte for byte, and clients that misuse it.
#include <shared/rawclient.h>
#include <shared/sessionhost.h>

#include <QtCore/QRegularExpression>

#include <sys/stat.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr qint64 kBufferBytes = 1048576;

enum OpenMode : quint32 { ReadOnly = 1, WriteOnly = 2, ReadWrite = 3 };

namespace Request {

QByteArray open(quint32 mode)
{
    return RawBytes::u32(1) + RawBytes::u32(mode);
}

QByteArray close()
{
    return RawBytes::u32(2);
}

QByteArray seek(qint64 position)
{
    return RawBytes::u32(3) + RawBytes::i64(position);
}

QByteArray size()
{
    return RawBytes::u32(4);
}

QByteArray read(qint64 count)
{
    return RawBytes::u32(5) + RawBytes::i64(count);
}

QByteArray write(const QByteArray &bytes)
{
    return RawBytes::u32(6) + RawBytes::i64(bytes.size()) + bytes;
}

QByteArray atEnd()
{
    return RawBytes::u32(7);
}

} // namespace Request

QByteArray yes()
{
    return QByteArray(1, '\1');
}

QByteArray no()
{
    return QByteArray(1, '\0');
}

// The answer to a read that gives \a bytes.
QByteArray got(const QByteArray &bytes)
{
    return RawBytes::i64(bytes.size()) + bytes;
}

bool writeFile(const QString &name, const QByteArray &bytes)
{
    QFile file(name);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QByteArray readFile(const QString &name)
{
    QFile file(name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("cannot be opened");
}

} // namespace

class tst_SServerBase_device : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyRequestIsAnswered()
    {
        SessionHost host;
        const QString path = host.homeOf(u"alice"_s) + u"/file"_s;
        QVERIFY(writeFile(path, "0123456789"));
        RawClient client;
        QVERIFY(start(client, host, u"file"_s));
        exchange(client, Request::size(), RawBytes::i64(10));
        exchange(client, Request::atEnd(), yes());
        exchange(client, Request::open(ReadWrite), yes());
        exchange(client, Request::atEnd(), no());
        exchange(client, Request::read(4), got("0123"));
        exchange(client, Request::seek(8), yes());
        exchange(client, Request::read(100), got("89"));
        exchange(client, Request::atEnd(), yes());
        exchange(client, Request::read(100), got(""));
        exchange(client, Request::seek(2), yes());
        exchange(client, Request::write("ab") + Request::size(), RawBytes::i64(10));
        exchange(client, Request::read(2), got("45"));
        exchange(client, Request::close(), RawBytes::ack());
        QCOMPARE(readFile(path), QByteArray("01ab456789"));
        sessionGoesOn(client);
    }

    void aRequestNobodyKnowsIsIgnored()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(start(client, host, u"file"_s));
        client.send(RawBytes::u32(99) + RawBytes::u32(8) + RawBytes::u32(0xFFFFFFFF));
        exchange(client, Request::atEnd(), yes());
        exchange(client, Request::close(), RawBytes::ack());
        sessionGoesOn(client);
    }

    void requestZeroEndsTheSession()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(start(client, host, u"file"_s));
        exchange(client, RawBytes::u32(0), RawBytes::nack());
        QVERIFY(client.endsHere());
    }

    void requestsMayBePipelined()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(start(client, host, u"file"_s));
        exchange(
            client,
            Request::open(ReadWrite) + Request::write("abc") + Request::seek(1) + Request::read(9) +
                Request::size() + Request::atEnd() + Request::close() + RawBytes::command("wami"),
            yes() + yes() + got("bc") + RawBytes::i64(3) + yes() + RawBytes::ack() + iAmAlice());
    }

    void startAndFinishAreTold()
    {
        SessionHost host;
        QList<QString> told;
        host.prepare = [&](SServerBase *server) {
            connect(server, &SServerBase::clientDeviceStarted, this,
                    [&](const QString &name) { told += u"started "_s + name; });
            connect(server, &SServerBase::clientDeviceFinished, this,
                    [&](const QString &name) { told += u"finished "_s + name; });
        };
        const QString path = host.homeOf(u"alice"_s) + u"/file"_s;
        RawClient client;
        QVERIFY(start(client, host, u"file"_s));
        QTRY_COMPARE(told, QList<QString>{u"started "_s + path});
        exchange(client, Request::close(), RawBytes::ack());
        QTRY_COMPARE(told, (QList<QString>{u"started "_s + path, u"finished "_s + path}));
    }

    void bytesThatMovedAreTold()
    {
        SessionHost host;
        QList<QList<qint64>> told;
        host.prepare = [&](SServerBase *server) {
            connect(server, &SServerBase::clientDeviceTransferred, this,
                    [&](qint64 read, qint64 written) {
                        told += QList<qint64>{read, written};
                    });
        };
        QVERIFY(writeFile(host.homeOf(u"alice"_s) + u"/file"_s, "0123456789"));
        RawClient client;
        QVERIFY(start(client, host, u"file"_s));
        exchange(client, Request::open(ReadWrite), yes());
        exchange(client,
                 Request::read(4) + Request::write("ab") + Request::write("c") + Request::read(100),
                 got("0123") + got("789"));
        QVERIFY(told.isEmpty());
        client.vanish();
        QTRY_COMPARE(told, (QList<QList<qint64>>{{7, 3}}));
    }

    void theParentFolderIsMade()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(start(client, host, u"new/folder/file"_s));
        exchange(client, Request::open(WriteOnly), yes());
        exchange(client, Request::write("x") + Request::close(), RawBytes::ack());
        QCOMPARE(readFile(host.homeOf(u"alice"_s) + u"/new/folder/file"_s), QByteArray("x"));
    }

    void aParentThatCannotBeMadeIsRefused()
    {
        SessionHost host;
        QVERIFY(writeFile(host.homeOf(u"alice"_s) + u"/file"_s, "content"));
        RawClient client;
        QVERIFY(start(client, host, u"file/below"_s));
        QCOMPARE(client.read(4), RawBytes::nack());
        QVERIFY(client.endsHere());
    }

    void theDocumentRootCounts()
    {
        SessionHost host;
        host.prepare = [](SServerBase *server) { server->enableDocumentRoot(true); };
        QVERIFY(writeFile(host.homeOf(u"alice"_s) + u"/file"_s, "x"));
        RawClient client;
        QVERIFY(start(client, host, u"/file"_s));
        exchange(client, Request::size(), RawBytes::i64(1));
    }

    void aPathOutsideTheJailIsRefused_data()
    {
        QTest::addColumn<bool>("documentRoot");
        QTest::addColumn<QString>("path");
        QTest::newRow("absolute") << false << u"/etc/hostname"_s;
        QTest::newRow("upwards") << false << u"../bob/file"_s;
        QTest::newRow("document root, upwards") << true << u"../../file"_s;
        QTest::newRow("document root, absolute upwards") << true << u"/../bob/file"_s;
        QTest::newRow("the jail itself, whose parent is outside") << false << QString();
    }

    void aPathOutsideTheJailIsRefused()
    {
        QFETCH(bool, documentRoot);
        QFETCH(QString, path);
        SessionHost host;
        host.prepare = [&](SServerBase *server) { server->enableDocumentRoot(documentRoot); };
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        exchange(client, RawBytes::command("cldv", RawBytes::text(path)),
                 RawBytes::ack() + RawBytes::nack());
        QVERIFY(client.endsHere());
        QVERIFY(QDir(host.homeOf(u"alice"_s)).isEmpty());
        QVERIFY(QDir(host.homeOf(u"bob"_s)).isEmpty());
    }

    void aFolderCannotBeOpened()
    {
        SessionHost host;
        QVERIFY(QDir(host.homeOf(u"alice"_s)).mkdir(u"folder"_s));
        RawClient client;
        QVERIFY(start(client, host, u"folder"_s));
        exchange(client, Request::open(ReadOnly), no());
        exchange(client, Request::close(), RawBytes::ack());
    }

    void aNamedPipeCannotBeOpened_data()
    {
        QTest::addColumn<quint32>("mode");
        QTest::newRow("for reading") << quint32(ReadOnly);
        QTest::newRow("for writing") << quint32(WriteOnly);
        QTest::newRow("for both") << quint32(ReadWrite);
    }

    // The wait for its other end could not be broken off.
    void aNamedPipeCannotBeOpened()
    {
        QFETCH(quint32, mode);
        SessionHost host;
        const QString pipe = host.homeOf(u"alice"_s) + u"/pipe"_s;
        QCOMPARE(mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
        QVERIFY(QFile::link(pipe, host.homeOf(u"alice"_s) + u"/link"_s));
        for (const QString &name : {u"pipe"_s, u"link"_s}) {
            RawClient client;
            QVERIFY(start(client, host, name));
            exchange(client, Request::open(mode), no());
            exchange(client, Request::size(), RawBytes::i64(0));
            exchange(client, Request::close(), RawBytes::ack());
            sessionGoesOn(client);
        }
    }

    // A peer may send text that is no valid UTF-16.
    void aNameThatIsNoTextIsAnswered_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("half a surrogate pair") << QString(QChar(0xD800));
        QTest::newRow("pair the wrong way round") << QString(QChar(0xDC00)) + QChar(0xD800);
        QTest::newRow("too long") << QString(5000, u'x');
    }

    void aNameThatIsNoTextIsAnswered()
    {
        QFETCH(QString, name);
        SessionHost host;
        RawClient client;
        QVERIFY(start(client, host, name));
        client.send(Request::open(ReadWrite));
        QCOMPARE(client.read(1).size(), 1);
        exchange(client, Request::close(), RawBytes::ack());
        sessionGoesOn(client);
    }

    void aClosedFileAnswersWithFailures()
    {
        SessionHost host;
        QVERIFY(writeFile(host.homeOf(u"alice"_s) + u"/file"_s, "old"));
        RawClient client;
        QVERIFY(start(client, host, u"file"_s));
        exchange(client, Request::seek(1), no());
        exchange(client, Request::read(3), RawBytes::i64(-1));
        exchange(client, Request::write("new") + Request::atEnd(), yes());
        exchange(client, Request::size(), RawBytes::i64(3));
        exchange(client, Request::close(), RawBytes::ack());
        QCOMPARE(readFile(host.homeOf(u"alice"_s) + u"/file"_s), QByteArray("old"));
    }

    void aMissingFileHasNoSizeAndDoesNotOpenForReading()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(start(client, host, u"file"_s));
        exchange(client, Request::size(), RawBytes::i64(0));
        exchange(client, Request::open(ReadOnly), no());
    }

    void odd_data()
    {
        QTest::addColumn<QByteArray>("request");
        QTest::addColumn<QByteArray>("answer");
        const qint64 largest = std::numeric_limits<qint64>::max();
        const qint64 smallest = std::numeric_limits<qint64>::min();
        QTest::newRow("opened twice") << Request::open(ReadWrite) << no();
        QTest::newRow("seek before the start") << Request::seek(-1) << no();
        QTest::newRow("seek far before the start") << Request::seek(smallest) << no();
        QTest::newRow("read a negative count") << Request::read(-1) << RawBytes::i64(-1);
        QTest::newRow("read the smallest count") << Request::read(smallest) << RawBytes::i64(-1);
        QTest::newRow("read nothing") << Request::read(0) << RawBytes::i64(0);
        QTest::newRow("read the largest count") << Request::read(largest) << got("content");
        QTest::newRow("write nothing") << Request::write("") + Request::size() << RawBytes::i64(7);
        QTest::newRow("write a negative count")
            << RawBytes::u32(6) + RawBytes::i64(-5) + Request::size() << RawBytes::i64(7);
        QTest::newRow("write the smallest count")
            << RawBytes::u32(6) + RawBytes::i64(smallest) + Request::size() << RawBytes::i64(7);
    }

    // And nothing in the log, which a peer could fill otherwise.
    void odd()
    {
        QTest::failOnWarning(QRegularExpression(u"."_s));
        QFETCH(QByteArray, request);
        QFETCH(QByteArray, answer);
        SessionHost host;
        QVERIFY(writeFile(host.homeOf(u"alice"_s) + u"/file"_s, "content"));
        RawClient client;
        QVERIFY(start(client, host, u"file"_s));
        exchange(client, Request::open(ReadWrite), yes());
        exchange(client, request, answer);
        exchange(client, Request::close(), RawBytes::ack());
        QCOMPARE(readFile(host.homeOf(u"alice"_s) + u"/file"_s), QByteArray("content"));
        sessionGoesOn(client);
    }

    void strangeOpenModesGiveAnAnswer_data()
    {
        QTest::addColumn<quint32>("mode");
        QTest::newRow("none") << 0u;
        QTest::newRow("all bits") << 0xFFFFFFFFu;
        QTest::newRow("unknown bits") << 0xFFFF0000u;
        QTest::newRow("new and existing") << 0xC3u;
        QTest::newRow("existing alone") << 0x80u;
        QTest::newRow("text alone") << 0x10u;
    }

    // And nothing in the log, which a peer could fill otherwise.
    void strangeOpenModesGiveAnAnswer()
    {
        QFETCH(quint32, mode);
        QTest::failOnWarning(QRegularExpression(u"."_s));
        SessionHost host;
        RawClient client;
        QVERIFY(start(client, host, u"file"_s));
        client.send(Request::open(mode));
        QCOMPARE(client.read(1).size(), 1);
        exchange(client, Request::close(), RawBytes::ack());
    }

    void aFileWithoutPositionsCannotSeek()
    {
        QTest::failOnWarning(QRegularExpression(u"."_s));
        SessionHost host;
        QVERIFY(QFile::link(u"/dev/null"_s, host.homeOf(u"alice"_s) + u"/null"_s));
        RawClient client;
        QVERIFY(start(client, host, u"null"_s));
        exchange(client, Request::open(ReadWrite), yes());
        exchange(client, Request::seek(0), no());
        exchange(client, Request::write("x") + Request::close(), RawBytes::ack());
        sessionGoesOn(client);
    }

    // What was written is there, without waiting for the end.
    void whatWasWrittenIsInTheFileAtOnce()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(start(client, host, u"file"_s));
        exchange(client, Request::open(WriteOnly), yes());
        exchange(client, Request::write("x") + Request::atEnd(), yes());
        QCOMPARE(readFile(host.homeOf(u"alice"_s) + u"/file"_s), QByteArray("x"));
    }

    void oneReadGivesAtMostTheBuffer()
    {
        SessionHost host;
        const QByteArray content = pattern(kBufferBytes + 5);
        QVERIFY(writeFile(host.homeOf(u"alice"_s) + u"/file"_s, content));
        RawClient client;
        QVERIFY(start(client, host, u"file"_s));
        exchange(client, Request::open(ReadOnly), yes());
        exchange(client, Request::read(kBufferBytes + 5), got(content.left(kBufferBytes)));
        exchange(client, Request::read(kBufferBytes), got(content.mid(kBufferBytes)));
    }

    void aLongWriteIsTakenInPieces()
    {
        SessionHost host;
        const QByteArray content = pattern(3 * kBufferBytes + 7);
        RawClient client;
        QVERIFY(start(client, host, u"file"_s));
        exchange(client, Request::open(WriteOnly), yes());
        exchange(client, Request::write(content) + Request::close(), RawBytes::ack());
        QCOMPARE(readFile(host.homeOf(u"alice"_s) + u"/file"_s), content);
    }

    // A disk that takes nothing costs the client its bytes and nothing else.
    void aFileThatTakesNothingIsDrained()
    {
        SessionHost host;
        QVERIFY(QFile::link(u"/dev/full"_s, host.homeOf(u"alice"_s) + u"/full"_s));
        QVERIFY(writeFile(host.homeOf(u"alice"_s) + u"/read"_s, "content"));
        for (const QString &name : {u"full"_s, u"read"_s}) {
            RawClient client;
            QVERIFY(start(client, host, name));
            exchange(client, Request::open(name == u"full" ? WriteOnly : ReadOnly), yes());
            exchange(client, Request::write(pattern(2 * kBufferBytes + 3)) + Request::close(),
                     RawBytes::ack());
            sessionGoesOn(client);
        }
        QCOMPARE(readFile(host.homeOf(u"alice"_s) + u"/read"_s), QByteArray("content"));
    }

    void aSilentClientKeepsItsDevice()
    {
        SessionHost host;
        host.timeoutMs = 200;
        RawClient client;
        QVERIFY(start(client, host, u"file"_s));
        QVERIFY(client.staysQuiet(600));
        exchange(client, Request::atEnd(), yes());
    }

    void aRequestCutOffEndsTheSession_data()
    {
        QTest::addColumn<QByteArray>("request");
        const QByteArray whole[] = {Request::open(ReadOnly), Request::seek(1), Request::read(1),
                                    Request::write("abc")};
        for (const QByteArray &request : whole) {
            for (qsizetype size = 1; size < request.size(); ++size)
                QTest::addRow("request %d, %d bytes", request.at(3), int(size))
                    << request.left(size);
        }
    }

    // With a word cut off the server waits for the rest, and gives the client up after the
    // time-out.
    void aRequestCutOffEndsTheSession()
    {
        QFETCH(QByteArray, request);
        SessionHost host;
        host.timeoutMs = 20;
        RawClient client;
        QVERIFY(start(client, host, u"file"_s));
        if (request.size() == 4)
            request += QByteArray(1, '\0');
        exchange(client, request, RawBytes::nack());
        QVERIFY(client.endsHere());
    }

    void aClientThatVanishesLeavesNothingOpen_data()
    {
        QTest::addColumn<QByteArray>("lastWords");
        QTest::newRow("idle") << QByteArray();
        QTest::newRow("in a word") << QByteArray(2, '\0');
        QTest::newRow("in a write")
            << Request::open(WriteOnly) + RawBytes::u32(6) + RawBytes::i64(1000) + "abc";
        QTest::newRow("with a read on its way")
            << Request::open(ReadOnly) + Request::read(kBufferBytes);
    }

    void aClientThatVanishesLeavesNothingOpen()
    {
        QFETCH(QByteArray, lastWords);
        SessionHost host;
        const QString path = host.homeOf(u"alice"_s) + u"/file"_s;
        QVERIFY(writeFile(path, pattern(kBufferBytes)));
        RawClient client;
        QVERIFY(start(client, host, u"file"_s));
        client.send(lastWords);
        QTRY_COMPARE(client.socket().bytesToWrite(), 0);
        client.vanish();
        QTRY_COMPARE(host.controller.count(), 0);
        const QDir descriptors(u"/proc/self/fd"_s);
        for (const QFileInfo &info :
             descriptors.entryInfoList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot))
            QVERIFY2(info.symLinkTarget() != path, "the file is still open");
    }

    void aUserWhoIsChangedLosesTheDeviceAtTheNextRequest_data()
    {
        QTest::addColumn<QString>("change");
        for (const auto *change : {"removed", "disabled", "another password", "another home"})
            QTest::newRow(change) << QString::fromLatin1(change);
    }

    void aUserWhoIsChangedLosesTheDeviceAtTheNextRequest()
    {
        QFETCH(QString, change);
        SessionHost host;
        RawClient client;
        QVERIFY(start(client, host, u"file"_s));
        exchange(client, Request::open(WriteOnly), yes());
        SAuthenticationDb users(host.users);
        SUserData alice(users.sharedUser(u"alice"_s).get());
        if (change == u"disabled")
            alice.setEnabled(false);
        if (change == u"another password")
            alice.setPassword(u"other"_s);
        if (change == u"another home")
            alice.setHomeFolder(host.homeOf(u"bob"_s));
        users.insert(alice.clone());
        if (change == u"removed")
            users.remove(u"alice"_s);
        host.users.replaceBy(users);
        exchange(client, Request::write("x"), RawBytes::nack());
        QVERIFY(client.endsHere());
        QCOMPARE(readFile(host.homeOf(u"alice"_s) + u"/file"_s), QByteArray());
    }

    void aUserWhoIsTheSameKeepsTheDevice()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(start(client, host, u"file"_s));
        SAuthenticationDb users(host.users);
        SUserData alice(users.sharedUser(u"alice"_s).get());
        alice.setEmail(u"alice@example.com"_s);
        users.insert(alice.clone());
        users.insert(new SUserData(u"carol"_s, u"secret"_s, host.homeOf(u"alice"_s)));
        host.users.replaceBy(users);
        exchange(client, Request::atEnd(), yes());
        exchange(client, Request::close(), RawBytes::ack());
        sessionGoesOn(client);
    }

    void aStopEndsADevice_data()
    {
        QTest::addColumn<QByteArray>("lastWords");
        QTest::newRow("idle") << QByteArray();
        QTest::newRow("in a write") << RawBytes::u32(6) + RawBytes::i64(1000) + "abc";
    }

    void aStopEndsADevice()
    {
        QFETCH(QByteArray, lastWords);
        SessionHost host;
        host.timeoutMs = 500;
        RawClient client;
        QVERIFY(start(client, host, u"file"_s));
        client.send(lastWords);
        QVERIFY(client.staysQuiet(50));
        host.controller.interruptWorkers();
        exchange(client, {}, RawBytes::nack());
        QVERIFY(client.endsHere(1500));
        QTRY_COMPARE_WITH_TIMEOUT(host.controller.count(), 0, 1500);
    }

private:
    static QByteArray pattern(qint64 size)
    {
        QByteArray bytes(size, Qt::Uninitialized);
        for (qint64 i = 0; i < size; ++i)
            bytes[i] = static_cast<char>(i * 31 + i / 251);
        return bytes;
    }

    static QByteArray iAmAlice()
    {
        return RawBytes::ack() + RawBytes::frame(RawBytes::text(u"alice")) + RawBytes::ack();
    }

    // Logs in and starts a device on the file.
    [[nodiscard]] static bool start(RawClient &client, SessionHost &host, const QString &path)
    {
        if (!client.openAndLogin(host.port(), u"alice"_s, u"secret"_s))
            return false;
        client.send(RawBytes::command("cldv", RawBytes::text(path)));
        return client.read(4) == RawBytes::ack();
    }

    static void exchange(RawClient &client, const QByteArray &request, const QByteArray &answer)
    {
        client.send(request);
        // Long answers make no readable message.
        const QByteArray came = client.readLike(answer);
        if (answer.size() > 100)
            QVERIFY(came == answer);
        else
            QCOMPARE(came.toHex(), answer.toHex());
    }

    static void sessionGoesOn(RawClient &client)
    {
        exchange(client, RawBytes::command("wami"), iAmAlice());
    }
};

QTEST_GUILESS_MAIN(tst_SServerBase_device)
#include "tst_sserverbase_device.moc"
