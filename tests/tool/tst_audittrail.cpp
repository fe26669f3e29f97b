// SPDX-License-Identifier: MIT
#include <serve/audittrail.h>

#include <brixsec/ssecurestring.h>

#include <shared/filesizelimit.h>

#include <QtCore/QFileInfo>
#include <QtCore/QTemporaryDir>
#include <QtTest/QTest>

#include <memory>
#include <optional>

using namespace Brix;
using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_AuditTrail : public QObject
{
    Q_OBJECT

private:
    static constexpr int kEvents = 100;

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<AuditTrail> m_trail;

    QString file() const { return m_dir->filePath(u"audit.log"_s); }
    qint64 size() const { return QFileInfo(file()).size(); }
    void start()
    {
        m_trail = std::make_unique<AuditTrail>(
            file(), DatabaseLogin{u"op"_s, Security::SSecureString(u"password"_s)},
            SLogger::RotateParameters{});
    }
    void write(int number)
    {
        SessionEvent event{u"Command"_s, QDateTime::currentDateTimeUtc(), {}};
        event.add(u"number"_s, QString::number(number));
        m_trail->write(event);
    }
    // Numbers of the commands in the order of the log, and -N for a gap of N.
    QList<int> numbers() const
    {
        SLogger log(file());
        if (!log.open(u"op"_s, u"password"_s))
            return {};
        QList<int> numbers;
        for (SDBIterator it = log.begin(); it != log.end(); ++it) {
            const SDBRecord entry = *it;
            if (!entry.checkSignature())
                return {};
            if (entry.value(SLogger::logId()).toString() == u"AuditGap"_s)
                numbers.append(-entry.value(u"lost"_s).toInt());
            else
                numbers.append(entry.value(u"number"_s).toInt());
        }
        return numbers;
    }

private Q_SLOTS:
    void init() { m_dir = std::make_unique<QTemporaryDir>(); }
    void cleanup()
    {
        m_trail.reset();
        m_dir.reset();
    }

    void entriesHaveTheOrderOfTheEvents()
    {
        QList<int> expected;
        start();
        for (int i = 1; i <= kEvents; ++i) {
            write(i);
            expected.append(i);
        }
        m_trail.reset();
        QCOMPARE(numbers(), expected);
    }

    // Nothing more can be written once the limit of the process is reached.
    void gapOfAFullDiskIsRecordedOnceThereIsRoom()
    {
        start();
        const qint64 before = size();
        write(1);
        QTRY_VERIFY_WITH_TIMEOUT(size() > before, 20'000);
        std::optional<FileSizeLimit> full(std::in_place, rlim_t(size() + 1000));
        const qint64 limit = size() + 1000;
        for (int i = 2; i <= kEvents; ++i)
            write(i);
        QTRY_COMPARE_WITH_TIMEOUT(size(), limit, 20'000);
        full.reset();
        write(kEvents + 1);
        m_trail.reset();
        const QList<int> all = numbers();
        QVERIFY(all.size() > 2);
        QCOMPARE(all.first(), 1);
        QVERIFY(all.contains(kEvents + 1));
        int lost = 0;
        int written = 0;
        int newest = 0;
        for (const int number : all) {
            if (number < 0) {
                lost -= number;
                continue;
            }
            QVERIFY(number > newest);
            newest = number;
            ++written;
        }
        QVERIFY(lost > 0);
        QCOMPARE(written + lost, kEvents + 1);
    }
};

QTEST_GUILESS_MAIN(tst_AuditTrail)
#include "tst_audittrail.moc"
