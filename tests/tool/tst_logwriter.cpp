// SPDX-License-Identifier: MIT
#include <process/logwriter.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QTemporaryDir>
#include <QtTest/QTest>

#include <csignal>
#include <thread>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

using namespace Brix;
using namespace Qt::StringLiterals;

namespace {

//! A pipe that nobody reads until readAll().
class Pipe
{
public:
    Pipe() { m_isOpen = pipe(m_ends) == 0; }
    ~Pipe()
    {
        closeEnd(0);
        closeEnd(1);
    }
    Q_DISABLE_COPY_MOVE(Pipe)

    bool isOpen() const { return m_isOpen; }

    //! Takes over the end for writing.
    std::unique_ptr<QFile> writeEnd()
    {
        auto file = std::make_unique<QFile>();
        if (!file->open(std::exchange(m_ends[1], -1), QIODevice::WriteOnly | QIODevice::Unbuffered,
                        QFileDevice::AutoCloseHandle))
            file.reset();
        return file;
    }

    //! Reads until no writer has the pipe open.
    QByteArray readAll() const
    {
        QByteArray bytes;
        char buffer[65536];
        for (ssize_t count = 0; (count = read(m_ends[0], buffer, sizeof buffer)) > 0;)
            bytes.append(buffer, count);
        return bytes;
    }

    void closeEnd(int end)
    {
        if (m_ends[end] >= 0)
            close(std::exchange(m_ends[end], -1));
    }

private:
    int m_ends[2] = {-1, -1};
    bool m_isOpen = false;
};

} // namespace

class tst_LogWriter : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;

    std::unique_ptr<QFile> file(const QString &name) const
    {
        auto file = std::make_unique<QFile>(m_dir.filePath(name));
        return file->open(QIODevice::WriteOnly | QIODevice::Unbuffered) ? std::move(file) : nullptr;
    }
    QByteArray content(const QString &name) const
    {
        QFile file(m_dir.filePath(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : "unreadable"_ba;
    }

private Q_SLOTS:
    void writesLinesInTheirOrder()
    {
        QByteArray expected;
        {
            LogWriter writer(file(u"order"_s));
            for (int i = 0; i < 1000; ++i) {
                writer.write(u"line %1"_s.arg(i));
                expected += "line " + QByteArray::number(i) + '\n';
            }
        }
        QCOMPARE(content(u"order"_s), expected);
    }

    void lineFromOutsideStaysOneLine()
    {
        LogWriter(file(u"one"_s)).write(u"login of a\n[1] login of root\u202e\x1b[31m"_s);
        QCOMPARE(content(u"one"_s), "login of a\\n[1] login of root\\u{202E}\\u{1B}[31m\n"_ba);
    }

    void longLineIsCut()
    {
        LogWriter(file(u"long"_s)).write(QString(1'000'000, u'\n'));
        QCOMPARE(content(u"long"_s), "\\n"_ba.repeated(2048) + "...\n");
    }

    void linesOfSeveralThreadsStayWhole()
    {
        {
            LogWriter writer(file(u"threads"_s));
            std::vector<std::thread> threads;
            for (int i = 0; i < 4; ++i)
                threads.emplace_back([&writer, i] {
                    for (int j = 0; j < 500; ++j)
                        writer.write(QString(20, QChar(u'a' + i)));
                });
            for (auto &thread : threads)
                thread.join();
        }
        auto lines = content(u"threads"_s).split('\n');
        QCOMPARE(lines.takeLast(), QByteArray());
        QCOMPARE(lines.size(), 2000);
        for (const QByteArray &line : lines)
            QCOMPARE(line, QByteArray(20, line.at(0)));
    }

    void stalledReaderStopsNobodyAndLostLinesAreCounted()
    {
        constexpr int count = 20'000;
        Pipe pipe;
        QVERIFY(pipe.isOpen());
        QByteArray read;
        std::thread reader;
        {
            LogWriter writer(pipe.writeEnd());
            QElapsedTimer timer;
            timer.start();
            for (int i = 0; i < count; ++i)
                writer.write(QString(200, u'x'));
            QVERIFY2(timer.elapsed() < 5'000, qPrintable(QString::number(timer.elapsed())));
            reader = std::thread([&] { read = pipe.readAll(); });
        }
        reader.join();
        auto lines = read.split('\n');
        QCOMPARE(lines.takeLast(), QByteArray());
        qint64 whole = 0;
        qint64 lost = 0;
        for (const QByteArray &line : lines) {
            if (line == QByteArray(200, 'x'))
                ++whole;
            else
                lost += line.split(' ').value(1).toLongLong();
        }
        QVERIFY(lost > 0);
        QCOMPARE(whole + lost, count);
    }

    void endDoesNotWaitForAStalledReader()
    {
        Pipe pipe;
        QVERIFY(pipe.isOpen());
        QElapsedTimer timer;
        {
            LogWriter writer(pipe.writeEnd());
            for (int i = 0; i < 2'000; ++i)
                writer.write(QString(200, u'x'));
            timer.start();
        }
        QVERIFY2(timer.elapsed() < 10'000, qPrintable(QString::number(timer.elapsed())));
        // Lets the thread end that is stuck in its write.
        pipe.readAll();
    }

    void readerThatHasGoneStopsNobody()
    {
        std::signal(SIGPIPE, SIG_IGN);
        Pipe pipe;
        QVERIFY(pipe.isOpen());
        LogWriter writer(pipe.writeEnd());
        pipe.closeEnd(0);
        for (int i = 0; i < 100; ++i)
            writer.write(u"line"_s);
    }

    void fileThatIsFullIsToldOnceThereIsRoom()
    {
        // Nothing more can be written once the limit of the process is reached.
        std::signal(SIGXFSZ, SIG_IGN);
        {
            LogWriter writer(file(u"full"_s));
            rlimit before{};
            getrlimit(RLIMIT_FSIZE, &before);
            const rlimit limit{1000, before.rlim_max};
            setrlimit(RLIMIT_FSIZE, &limit);
            for (int i = 0; i < 100; ++i)
                writer.write(QString(99, u'x'));
            const bool isFull =
                QTest::qWaitFor([&] { return content(u"full"_s).size() == 1000; }, 20'000);
            setrlimit(RLIMIT_FSIZE, &before);
            QVERIFY(isFull);
            writer.write(u"room again"_s);
        }
        const QByteArray text = content(u"full"_s);
        QVERIFY2(text.contains("\nroom again\n"), text.constData());
        qint64 lost = 0;
        for (const QByteArray &line : text.split('\n'))
            lost += line.endsWith(" lines of the log were lost") ? line.split(' ')[1].toInt() : 0;
        QVERIFY(lost > 0);
        QCOMPARE(text.count(QByteArray(99, 'x') + '\n') + lost, 100);
    }
};

QTEST_GUILESS_MAIN(tst_LogWriter)
#include "tst_logwriter.moc"
