// SPDX-License-Identifier: MIT
#include <brixrt/sfilehelper.h>

#include <shared/memorypeak.h>
#include <shared/recordingdevice.h>
#include <shared/seededrandom.h>

#include <QtCore/QProcess>
#include <QtCore/QSaveFile>

#include <filesystem>
#include <limits>

#ifdef Q_OS_UNIX
#include <unistd.h>
#endif

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

//! Has a size, and fails where it is read beyond.
class StrictDevice : public RecordingDevice
{
public:
    using RecordingDevice::RecordingDevice;

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        return at == bytes.size() ? -1 : RecordingDevice::readData(data, maxSize);
    }
};

//! Gives its bytes, then fails.
class BreakingDevice : public RecordingDevice
{
public:
    using RecordingDevice::RecordingDevice;
    qint64 size() const override { return bytes.size() + 1; }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        return at == bytes.size() ? -1 : RecordingDevice::readData(data, maxSize);
    }
};

bool hardLink(const QString &file, const QString &link)
{
    std::error_code error;
    std::filesystem::create_hard_link(QFileInfo(file).filesystemFilePath(),
                                      QFileInfo(link).filesystemFilePath(), error);
    return !error;
}

bool setBytes(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush();
}

//! Two files of equal content, a hard link and a symbolic link to the first, and a missing one.
struct Names
{
    Names()
    {
        if (!setBytes(file, "ink") || !setBytes(other, "ink") || !hardLink(file, hard) ||
            !QFile::link(file, symbolic))
            qFatal("no files");
    }

    QTemporaryDir folder;
    QString file = folder.filePath(u"inks"_s);
    QString other = folder.filePath(u"other"_s);
    QString hard = folder.filePath(u"hard"_s);
    QString symbolic = folder.filePath(u"symbolic.lnk"_s);
    QString missing = folder.filePath(u"missing"_s);
};

// What this program does as a child, by the name of the ending: it registers `file`.
int endAsTold(const QString &ending, const QString &file, int argc, char **argv)
{
    if (ending == u"application") {
        const QCoreApplication application(argc, argv);
        SFileHelper::deleteFileOnExit(file);
    } else if (ending == u"after application") {
        {
            const QCoreApplication application(argc, argv);
        }
        SFileHelper::deleteFileOnExit(file);
    } else if (ending == u"between applications") {
        {
            const QCoreApplication application(argc, argv);
            SFileHelper::deleteFileOnExit(u"nothing"_s);
        }
        SFileHelper::deleteFileOnExit(file);
    } else if (ending == u"other folder") {
        SFileHelper::deleteFileOnExit(file);
        QDir::setCurrent(QDir::rootPath());
    } else {
        SFileHelper::deleteFileOnExit(file);
        if (ending == u"exit")
            std::exit(0);
        if (ending == u"kill")
            std::_Exit(0);
    }
    return 0;
}

} // namespace

class tst_SFileHelper : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void copyOpensAndClosesBoth()
    {
        RecordingDevice source("some bytes"_ba);
        RecordingDevice target;
        QSignalSpy closing(&target, &QIODevice::aboutToClose);
        QVERIFY(SFileHelper::copyDevice(&target, &source, 4096));
        QCOMPARE(target.bytes, "some bytes"_ba);
        QVERIFY(!source.isOpen());
        QVERIFY(!target.isOpen());
        QCOMPARE(closing.size(), 1);
    }

    void copyOpensOneWay()
    {
        QBuffer source;
        QBuffer target;
        QIODevice::OpenMode sourceMode;
        QIODevice::OpenMode targetMode;
        connect(&source, &QIODevice::aboutToClose, this, [&] { sourceMode = source.openMode(); });
        connect(&target, &QIODevice::aboutToClose, this, [&] { targetMode = target.openMode(); });
        QVERIFY(SFileHelper::copyDevice(&target, &source, 4096));
        QCOMPARE(sourceMode & ~QIODevice::Unbuffered, QIODevice::ReadOnly);
        QVERIFY(targetMode.testFlag(QIODevice::WriteOnly));
        QVERIFY(!targetMode.testFlag(QIODevice::ReadOnly));
    }

    void copyLeavesOpenWhatWasOpen()
    {
        RecordingDevice source("some bytes"_ba);
        RecordingDevice target;
        QVERIFY(source.open(QIODevice::ReadOnly));
        QVERIFY(target.open(QIODevice::WriteOnly));
        QVERIFY(SFileHelper::copyDevice(&target, &source, 4096));
        QVERIFY(source.isOpen());
        QVERIFY(target.isOpen());
        QCOMPARE(target.bytes, "some bytes"_ba);
    }

    void copyStartsWhereBothStand()
    {
        QBuffer source;
        source.setData("0123456789"_ba);
        QBuffer target;
        target.setData("abcdefghij"_ba);
        QVERIFY(source.open(QIODevice::ReadOnly));
        QVERIFY(target.open(QIODevice::ReadWrite));
        QVERIFY(source.seek(7));
        QVERIFY(target.seek(2));
        QVERIFY(SFileHelper::copyDevice(&target, &source, 2));
        QCOMPARE(target.data(), "ab789fghij"_ba);
    }

    void eachPieceIsOneWrite_data()
    {
        QTest::addColumn<int>("size");
        QTest::addColumn<int>("piece");
        QTest::addColumn<QList<int>>("writes");
        QTest::newRow("nothing") << 0 << 4 << QList<int>{};
        QTest::newRow("less than a piece") << 3 << 4 << QList<int>{3};
        QTest::newRow("one piece") << 4 << 4 << QList<int>{4};
        QTest::newRow("one more byte") << 5 << 4 << QList<int>{4, 1};
        QTest::newRow("three pieces") << 12 << 4 << QList<int>{4, 4, 4};
        QTest::newRow("no size of a piece") << 2 << 0 << QList<int>{1, 1};
        QTest::newRow("a negative size") << 2 << -7 << QList<int>{1, 1};
    }

    void eachPieceIsOneWrite()
    {
        QFETCH(int, size);
        QFETCH(int, piece);
        RecordingDevice source(QByteArray(size, 'x'));
        RecordingDevice target;
        QVERIFY(SFileHelper::copyDevice(&target, &source, piece));
        QList<int> writes;
        for (const QByteArray &write : std::as_const(target.writes))
            writes.append(static_cast<int>(write.size()));
        QTEST(writes, "writes");
    }

    void targetMayTakeLittleAtOnce()
    {
        RecordingDevice source(SeededRandom().bytes(1000));
        RecordingDevice target;
        target.pieceBytes = 7;
        QVERIFY(SFileHelper::copyDevice(&target, &source, 64));
        QCOMPARE(target.bytes, source.bytes);
    }

    void sourceMayGiveLittleAtOnce()
    {
        RecordingDevice source(SeededRandom().bytes(1000));
        source.pieceBytes = 7;
        source.sequential = true;
        RecordingDevice target;
        QVERIFY(SFileHelper::copyDevice(&target, &source, 64));
        QCOMPARE(target.bytes, source.bytes);
    }

    void copyOfNoDeviceFails()
    {
        RecordingDevice device("bytes"_ba);
        QVERIFY(!SFileHelper::copyDevice(nullptr, &device, 64));
        QVERIFY(!SFileHelper::copyDevice(&device, nullptr, 64));
        QVERIFY(!SFileHelper::copyDevice(nullptr, nullptr, 64));
        QCOMPARE(device.bytes, "bytes"_ba);
        QVERIFY(!device.isOpen());
    }

    void sourceThatDoesNotOpenLeavesTheTarget()
    {
        RecordingDevice source;
        source.opens = false;
        QBuffer target;
        target.setData("old bytes"_ba);
        QVERIFY(!SFileHelper::copyDevice(&target, &source, 64));
        QCOMPARE(target.data(), "old bytes"_ba);
        QVERIFY(!target.isOpen());
    }

    void targetThatDoesNotOpenIsAFailure()
    {
        RecordingDevice source("bytes"_ba);
        RecordingDevice target;
        target.opens = false;
        QVERIFY(!SFileHelper::copyDevice(&target, &source, 64));
        QVERIFY(!source.isOpen());
    }

    void failedReadIsAFailure_data()
    {
        QTest::addColumn<int>("piece");
        QTest::addColumn<bool>("sequential");
        QTest::newRow("behind a short piece") << 64 << false;
        QTest::newRow("behind a whole piece") << 5 << false;
        QTest::newRow("of a stream") << 64 << true;
    }

    void failedReadIsAFailure()
    {
        QFETCH(int, piece);
        BreakingDevice source("bytes"_ba);
        QFETCH(bool, sequential);
        source.sequential = sequential;
        RecordingDevice target;
        QVERIFY(!SFileHelper::copyDevice(&target, &source, piece));
        QCOMPARE(target.bytes, "bytes"_ba);
        QVERIFY(!source.isOpen());
        QVERIFY(!target.isOpen());
    }

    void failedWriteIsAFailure()
    {
        RecordingDevice source("bytes"_ba);
        RecordingDevice target;
        target.failsToWrite = true;
        QVERIFY(!SFileHelper::copyDevice(&target, &source, 64));
        QVERIFY(!target.isOpen());
    }

    void targetThatTakesNoMoreIsAFailure()
    {
        RecordingDevice source("many bytes"_ba);
        RecordingDevice target;
        target.room = 4;
        QVERIFY(!SFileHelper::copyDevice(&target, &source, 64));
        QCOMPARE(target.bytes, "many"_ba);
    }

    void deviceIsNotReadBeyondItsEnd_data()
    {
        QTest::addColumn<int>("piece");
        QTest::newRow("a short piece last") << 4;
        QTest::newRow("a whole piece last") << 5;
        QTest::newRow("one piece") << 10;
        QTest::newRow("less than a piece") << 11;
    }

    void deviceIsNotReadBeyondItsEnd()
    {
        QFETCH(int, piece);
        StrictDevice source("some bytes"_ba);
        RecordingDevice target;
        QVERIFY(SFileHelper::copyDevice(&target, &source, piece));
        QCOMPARE(target.bytes, "some bytes"_ba);
    }

    void readOfNothingIsTheEnd()
    {
        // Never at its end, as a stream of blocks may be.
        class Endless : public RecordingDevice
        {
        public:
            using RecordingDevice::RecordingDevice;
            bool atEnd() const override { return false; }
        } source("some bytes"_ba);
        source.sequential = true;
        RecordingDevice target;
        QVERIFY(SFileHelper::copyDevice(&target, &source, 4));
        QCOMPARE(target.bytes, "some bytes"_ba);
    }

#ifdef Q_OS_LINUX
    void fileOfSize0MayHaveContent_data()
    {
        QTest::addColumn<int>("piece");
        QTest::newRow("in one piece") << 65536;
        QTest::newRow("in many pieces") << 16;
    }

    void fileOfSize0MayHaveContent()
    {
        QFETCH(int, piece);
        QFile source(u"/proc/self/mounts"_s);
        QCOMPARE(source.size(), 0);
        QBuffer target;
        QVERIFY(SFileHelper::copyDevice(&target, &source, piece));
        QVERIFY(source.open(QIODevice::ReadOnly));
        QCOMPARE(target.data(), source.readAll());
        QVERIFY(target.data().size() > 16);
    }

    void fullDiskIsAFailure_data()
    {
        QTest::addColumn<int>("size");
        QTest::newRow("a byte") << 1;
        QTest::newRow("more than a file buffers") << 100'000;
    }

    void fullDiskIsAFailure()
    {
        QFETCH(int, size);
        RecordingDevice source(QByteArray(size, 'x'));
        QFile target(u"/dev/full"_s);
        QVERIFY(!SFileHelper::copyDevice(&target, &source, 4096));
        QVERIFY(!target.isOpen());
    }
#endif

#ifdef Q_OS_UNIX
    void pipeIsReadUntilItsWriterCloses()
    {
        int ends[2];
        QCOMPARE(::pipe(ends), 0);
        const QByteArray bytes = SeededRandom().bytes(20'000);
        QCOMPARE(::write(ends[1], bytes.constData(), static_cast<size_t>(bytes.size())),
                 ssize_t(bytes.size()));
        ::close(ends[1]);
        QFile source;
        QVERIFY(source.open(ends[0], QIODevice::ReadOnly, QFileDevice::AutoCloseHandle));
        RecordingDevice target;
        QVERIFY(SFileHelper::copyDevice(&target, &source, 1000));
        QCOMPARE(target.bytes, bytes);
    }
#endif

    void readsUpToTheSize_data()
    {
        QTest::addColumn<qint64>("size");
        QTest::addColumn<int>("step");
        QTest::addColumn<QByteArray>("read");
        QTest::newRow("nothing") << qint64(0) << 4 << QByteArray();
        QTest::newRow("a negative size") << qint64(-1) << 4 << QByteArray();
        QTest::newRow("less than a step") << qint64(3) << 4 << "som"_ba;
        QTest::newRow("a step") << qint64(4) << 4 << "some"_ba;
        QTest::newRow("more than a step") << qint64(5) << 4 << "some "_ba;
        QTest::newRow("all") << qint64(10) << 4 << "some bytes"_ba;
        QTest::newRow("more than all") << qint64(11) << 4 << "some bytes"_ba;
        QTest::newRow("4 GiB") << qint64(0xFFFFFFFF) << 4096 << "some bytes"_ba;
        QTest::newRow("as much as can be asked for")
            << std::numeric_limits<qint64>::max() << 4096 << "some bytes"_ba;
        QTest::newRow("no step") << qint64(10) << 0 << "some bytes"_ba;
    }

    void readsUpToTheSize()
    {
        QFETCH(qint64, size);
        QFETCH(int, step);
        for (const qint64 piece : {0, 3}) {
            RecordingDevice device("some bytes"_ba);
            device.pieceBytes = piece;
            QVERIFY(device.open(QIODevice::ReadOnly));
            QTEST(SFileHelper::readAllBuffer(&device, size, step), "read");
        }
    }

    void readsNoMoreThanTheSize()
    {
        RecordingDevice device("some bytes"_ba);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(SFileHelper::readAllBuffer(&device, 4, 4096), "some"_ba);
        QCOMPARE(device.at, 4);
    }

    void failedReadEndsTheBytes()
    {
        BreakingDevice device("some bytes"_ba);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(SFileHelper::readAllBuffer(&device, 100, 4), "some bytes"_ba);
        device.failsToRead = true;
        QCOMPARE(SFileHelper::readAllBuffer(&device, 100, 4), QByteArray());
        QCOMPARE(SFileHelper::readAllBuffer(nullptr, 100, 4), QByteArray());
    }

    void falseSizeTakesNoMemory()
    {
        const TestShared::MemoryPeak addresses;
        const TestShared::HeldMemoryPeak held;
        RecordingDevice device("some bytes"_ba);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(SFileHelper::readAllBuffer(&device, qint64(1) << 40, 65536).size(), 10);
        QVERIFY(held.growth() < 1024 * 1024);
        QVERIFY(addresses.isValid());
        QVERIFY(addresses.growth() < 4 * 1024 * 1024);
    }

    void fileIsDeletedAtTheEnd_data()
    {
        QTest::addColumn<QString>("ending");
        QTest::addColumn<bool>("deleted");
        QTest::newRow("main() returns") << u"return"_s << true;
        QTest::newRow("exit() is called") << u"exit"_s << true;
        QTest::newRow("the application object goes") << u"application"_s << true;
        QTest::newRow("registered behind it") << u"after application"_s << true;
        QTest::newRow("registered before and behind it") << u"between applications"_s << true;
        QTest::newRow("in another folder") << u"other folder"_s << true;
        QTest::newRow("ended at once") << u"kill"_s << false;
    }

    void fileIsDeletedAtTheEnd()
    {
        QFETCH(QString, ending);
        const QTemporaryDir folder;
        QFile file(folder.filePath(u"file"_s));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.close();
        QProcess child;
        child.setWorkingDirectory(folder.path());
        child.start(QCoreApplication::applicationFilePath(), {u"--end"_s, ending, u"file"_s});
        QVERIFY(child.waitForFinished());
        QCOMPARE(child.exitStatus(), QProcess::NormalExit);
        QCOMPARE(child.exitCode(), 0);
        QTEST(!file.exists(), "deleted");
    }

    void fileWithoutANameIsNoFile()
    {
        SFileHelper::deleteFileOnExit(QString());
    }

    void sameFileUnderTwoNames()
    {
        const Names names;
        QVERIFY(SFileHelper::isSameFile(names.file, names.file));
        QVERIFY(SFileHelper::isSameFile(names.file, names.folder.filePath(u"./inks"_s)));
        QVERIFY(SFileHelper::isSameFile(names.file, names.hard));
        QVERIFY(SFileHelper::isSameFile(names.symbolic, names.hard));
        QVERIFY(SFileHelper::isSameFile(names.folder.path(), names.folder.filePath(u"."_s)));
    }

    void twoFilesAreNotTheSame()
    {
        const Names names;
        QVERIFY(!SFileHelper::isSameFile(names.file, names.other));
        QVERIFY(!SFileHelper::isSameFile(names.file, names.missing));
        QVERIFY(!SFileHelper::isSameFile(names.missing, names.missing));
        QVERIFY(!SFileHelper::isSameFile(QString(), QString()));
        QVERIFY(!SFileHelper::isSameFile(names.file, names.file + QChar(QChar::Null) + u"x"_s));
    }

    void openFileIsTheOneThatItHasOpen()
    {
        const Names names;
        QFile file(names.file);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QFile byHandle;
        QVERIFY(byHandle.open(file.handle(), QIODevice::ReadOnly));
        QVERIFY(SFileHelper::isSameFile(byHandle, QFile(names.hard)));
        QVERIFY(SFileHelper::isSameFile(QFile(names.symbolic), byHandle));
        QVERIFY(!SFileHelper::isSameFile(byHandle, QFile(names.other)));
#ifdef Q_OS_UNIX
        // Its name now leads to another file.
        QVERIFY(QFile::rename(names.file, names.missing));
        QVERIFY(QFile::rename(names.other, names.file));
        QVERIFY(SFileHelper::isSameFile(file, QFile(names.hard)));
        QVERIFY(!SFileHelper::isSameFile(file, QFile(names.file)));
#endif
    }

    void fileToBeReplacedIsTheOneOfItsName()
    {
        const Names names;
        QSaveFile file(names.file);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(SFileHelper::isSameFile(file, QFile(names.hard)));
        QVERIFY(!SFileHelper::isSameFile(QFile(names.other), file));
        file.cancelWriting();
    }
};

int main(int argc, char **argv)
{
    if (argc == 4 && QByteArrayView(argv[1]) == "--end")
        return endAsTold(QString::fromLocal8Bit(argv[2]), QString::fromLocal8Bit(argv[3]), argc,
                         argv);
    QCoreApplication application(argc, argv);
    tst_SFileHelper test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_sfilehelper.moc"
