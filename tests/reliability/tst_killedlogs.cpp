// SPDX-License-Identifier: MIT
// A program that is killed while it appends to its log or rotates it: every entry that it was told
// of is in the log or in a backup beside it.
#include <database/samplelog.h>
#include <shared/killedprocess.h>
#include <shared/seededrandom.h>

#include <brixlib/database/log/slogger.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QSet>

#include <cstdio>
#include <cstring>

using namespace Talverine;
using namespace Talverine::Sample;
using namespace Qt::StringLiterals;

namespace {

constexpr int kKills = 12;
// Fewer openings than there are backups: none goes.
constexpr int kOpenings = 8;
constexpr int kEntries = 60;
// An entry large enough that the files are copied in several pieces.
constexpr int kPaddingCharacters = 3000;
constexpr RotateParameters kLimits{.maxLogs = 50, .keepLogs = 10, .maxBytes = 1 << 30};

void tell(const QByteArray &line)
{
    std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stdout);
    std::fflush(stdout);
}

//! Opens a log again and again, which rotates it, and appends to it; tells what it has appended.
int keepLogging(const QString &fileName)
{
    SLogger log(fileName, kLimits);
    SDBRecord details;
    details.insert(u"padding"_s, QString(kPaddingCharacters, u'x'));
    for (int opening = 0; opening < kOpenings; ++opening) {
        tell("open " + QByteArray::number(opening) + '\n');
        if (!log.open(kUser, kPassword))
            return 1;
        for (int i = 0; i < kEntries; ++i) {
            const QString id = u"%1.%2"_s.arg(QString::number(opening), QString::number(i));
            if (!log.append(id, details))
                return 1;
            tell('+' + id.toLatin1() + '\n');
        }
        log.close();
    }
    tell("done\n");
    std::fgetc(stdin); // until the kill
    return 0;
}

QStringList appendedIn(const QByteArray &output)
{
    QStringList ids;
    // A line without an end was not told.
    for (const QByteArray &line : output.first(output.lastIndexOf('\n') + 1).split('\n')) {
        if (line.startsWith('+'))
            ids.append(QString::fromLatin1(line.mid(1)));
    }
    return ids;
}

//! The identifiers of the entries in a database file whose signatures fit.
QSet<QString> signedIdsIn(const QString &fileName)
{
    SDBText database;
    QSet<QString> ids;
    if (!database.open(fileName))
        return ids;
    SDBRecord record;
    for (bool more = database.first(record); more;) {
        if (record.checkSignature())
            ids.insert(record.value(SLogger::logId()).toString());
        more = database.next(record.value(database.key()).toString(), record);
    }
    return ids;
}

} // namespace

class tst_KilledLogs : public QObject
{
    Q_OBJECT

private:
    void start(KilledProcess *child, const LogPlace &place)
    {
        child->process().setProgram(QCoreApplication::applicationFilePath());
        child->process().setArguments({u"--log"_s, place.file});
        QVERIFY(child->start());
    }

    void checkWhatIsLeft(const LogPlace &place, const QStringList &appended)
    {
        QSet<QString> found = signedIdsIn(place.file);
        for (const int number : place.backups())
            found += signedIdsIn(place.backup(number));
        for (const QString &id : appended)
            QVERIFY2(found.contains(id), qPrintable(id));

        SLogger log(place.file, kLimits);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(log.append(u"next"_s));
    }

private Q_SLOTS:
    void unharmedProgramLosesNothing()
    {
        const LogPlace place;
        KilledProcess child;
        start(&child, place);
        QCOMPARE(child.killAtOutput("done\n"), KilledProcess::End::Killed);
        const QStringList appended = appendedIn(child.output());
        QCOMPARE(appended.size(), kOpenings * kEntries);
        QCOMPARE(place.backups().size(), kOpenings - 1);
        checkWhatIsLeft(place, appended);
    }

    void entriesSurviveAKillAtAnyMoment()
    {
        SeededRandom random;
        int openingsHit = 0;
        for (int kill = 0; kill < kKills; ++kill) {
            const LogPlace place;
            KilledProcess child;
            start(&child, place);
            const auto opening =
                "open " + QByteArray::number(random.between(1, kOpenings - 1)) + '\n';
            const qint64 delayMs = random.between(0, 80);
            QElapsedTimer sinceOpening;
            const KilledProcess::End end = child.killWhen([&] {
                if (!sinceOpening.isValid() && child.output().contains(opening))
                    sinceOpening.start();
                return sinceOpening.isValid() && sinceOpening.elapsed() >= delayMs;
            });
            QVERIFY(end != KilledProcess::End::MomentNotCome);
            openingsHit += child.output().endsWith(opening) ? 1 : 0;
            checkWhatIsLeft(place, appendedIn(child.output()));
        }
        qInfo("%d of %d kills came while the log was being opened", openingsHit, kKills);
    }

    void newLogKilledBeforeItIsCopiedLeavesTheOldOne()
    {
        // What a kill leaves during the copy of the backup: a part of it beside the whole log.
        const LogPlace place;
        SLogger log(place.file, kSmall);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 11));
        QVERIFY(log.close());
        const QByteArray whole = bytesOf(place.file);
        QVERIFY(setBytes(place.backup(0), whole.first(whole.size() / 2)));
        QVERIFY(log.open(kUser, kPassword));
        QCOMPARE(bytesOf(place.backup(1)), whole);
        QCOMPARE(idsOf(log), QStringList{u"LogRotate"_s} + numbered(9, 11));
    }
};

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    if (argc == 3 && std::strcmp(argv[1], "--log") == 0)
        return keepLogging(QString::fromLocal8Bit(argv[2]));
    tst_KilledLogs test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_killedlogs.moc"
