// SPDX-License-Identifier: MIT
#include <brixsec/ssecurestring.h>

#include <shared/signallog.h>

#include <array>
#include <cstdio>
#include <thread>
#include <type_traits>
#include <vector>

using namespace Talverine::Security;
using namespace Qt::StringLiterals;

static_assert(!std::is_convertible_v<QString, SSecureString>);
static_assert(!std::is_convertible_v<QByteArray, SSecureString>);
static_assert(std::is_nothrow_move_constructible_v<SSecureString>);
static_assert(std::is_nothrow_move_assignable_v<SSecureString>);

namespace Talverine {

// Takes secrets by calls that name the argument's type.
class Receiver : public QObject
{
    Q_OBJECT

public:
    Q_INVOKABLE void take(const Security::SSecureString &text)
    {
        m_texts.append(text.toInsecureString());
        Q_EMIT taken();
    }
    QStringList texts() const { return m_texts; }

Q_SIGNALS:
    void taken();

private:
    QStringList m_texts;
};

} // namespace Talverine

namespace {

#ifdef Q_OS_LINUX
// A secret that stands nowhere in the program as it is.
constexpr int kSecretBytes = 24;
constexpr char kMask = 0x5A;

char secretByte(int i)
{
    static constexpr std::array<char, kSecretBytes> kMasked{
        0x2B, 0x0D, 0x3F, 0x28, 0x0E, 0x23, 0x6D, 0x69, 0x6B, 0x33, 0x15, 0x2A,
        0x0A, 0x3B, 0x29, 0x1E, 0x3C, 0x1D, 0x32, 0x10, 0x31, 0x16, 0x20, 0x02};
    return static_cast<char>(kMasked[static_cast<std::size_t>(i)] ^ kMask);
}

QByteArray makeSecret()
{
    QByteArray secret(kSecretBytes, Qt::Uninitialized);
    for (int i = 0; i < kSecretBytes; ++i)
        secret[i] = secretByte(i);
    return secret;
}

void overwrite(QByteArray &bytes)
{
    volatile char *data = bytes.data();
    for (qsizetype i = 0; i < bytes.size(); ++i)
        data[i] = 0;
}

// Looks at bytes of any owner, which a sanitizer would report.
__attribute__((no_sanitize("address", "thread"))) bool secretStandsAt(const char *place, int step)
{
    for (int i = 0; i < kSecretBytes; ++i) {
        if (place[i * step] != secretByte(i))
            return false;
    }
    return true;
}

// How often the secret stands in this process's writable memory, step bytes from one to the next.
int copiesInMemory(int step)
{
    QFile maps(u"/proc/self/maps"_s);
    if (!maps.open(QIODevice::ReadOnly))
        return -1;
    constexpr quint64 kLargestAreaBytes = 256 << 20;
    int copies = 0;
    const QList<QByteArray> lines = maps.readAll().split('\n');
    for (const QByteArray &line : lines) {
        quint64 first = 0;
        quint64 end = 0;
        std::array<char, 5> access{};
        if (std::sscanf(line.constData(), "%llx-%llx %4s", &first, &end, access.data()) != 3 ||
            access[0] != 'r' || access[1] != 'w' || end - first > kLargestAreaBytes)
            continue;
        // Looked at in place: a buffer of its own would be one more copy.
        const char *const bytes = reinterpret_cast<const char *>(first);
        const auto size = static_cast<qint64>(end - first);
        for (qint64 at = 0; at + kSecretBytes * step <= size; ++at)
            copies += secretStandsAt(bytes + at, step);
    }
    return copies;
}
#endif

} // namespace

class tst_SSecureString : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshTextIsNull()
    {
        const SSecureString text;
        QVERIFY(text.isNull());
        QVERIFY(text.isEmpty());
        QVERIFY(text.toInsecureString().isNull());
        QVERIFY(text.toInsecureUtf8().isNull());
    }

    void nullAndEmptyDiffer()
    {
        for (const SSecureString &text : {SSecureString(QString()), SSecureString(QByteArray())}) {
            QVERIFY(text.isNull());
            QVERIFY(text.isEmpty());
        }
        for (const SSecureString &text : {SSecureString(u""_s), SSecureString(""_ba)}) {
            QVERIFY(!text.isNull());
            QVERIFY(text.isEmpty());
            QVERIFY(!text.toInsecureUtf8().isNull());
            QCOMPARE(text.toInsecureUtf8(), ""_ba);
        }
    }

    void givesBackItsText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("one letter") << u"x"_s;
        QTest::newRow("word") << u"password"_s;
        QTest::newRow("several scripts") << u"grüße 日本語 \U0001F600"_s;
        QTest::newRow("zero inside") << QString(u"a\0b"_s);
        QTest::newRow("longer than a page") << u"p"_s.repeated(10000);
    }
    void givesBackItsText()
    {
        QFETCH(QString, text);
        const SSecureString fromText(text);
        const SSecureString fromBytes(text.toUtf8());
        QVERIFY(!fromText.isNull());
        QVERIFY(!fromText.isEmpty());
        QCOMPARE(fromText.toInsecureString(), text);
        QCOMPARE(fromText.toInsecureUtf8(), text.toUtf8());
        QCOMPARE(fromBytes.toInsecureString(), text);
        QCOMPARE(fromText, fromBytes);
    }

    void bytesThatAreNoTextAreKept()
    {
        const QByteArray bytes = QByteArray::fromHex("00ff80c3");
        QCOMPARE(SSecureString(bytes).toInsecureUtf8(), bytes);
    }

    void bytesGivenOutAreSharedWithNobody()
    {
        const SSecureString text(u"secret"_s);
        QByteArray bytes = text.toInsecureUtf8();
        QVERIFY(bytes.isDetached());
        bytes.fill('\0');
        QCOMPARE(text.toInsecureUtf8(), "secret"_ba);
    }

    void argumentIsNotShared()
    {
        QByteArray bytes("secret");
        const SSecureString text(bytes);
        QVERIFY(bytes.isDetached());
        bytes[0] = 'x';
        QCOMPARE(text.toInsecureUtf8(), "secret"_ba);
    }

    void copiesAreIndependent()
    {
        SSecureString first(u"secret"_s);
        SSecureString second(first);
        SSecureString third;
        third = first;
        first.clear();
        QVERIFY(first.isNull());
        QCOMPARE(second.toInsecureString(), u"secret"_s);
        second = SSecureString(u"other"_s);
        QCOMPARE(third.toInsecureString(), u"secret"_s);
        third = SSecureString();
        QVERIFY(third.isNull());
    }

    void assignmentToItselfKeepsTheText()
    {
        SSecureString text(u"secret"_s);
        const SSecureString &same = text;
        text = same;
        QCOMPARE(text.toInsecureString(), u"secret"_s);
    }

    void movedTextIsNull()
    {
        SSecureString first(u"secret"_s);
        SSecureString second(std::move(first));
        QVERIFY(first.isNull());
        QCOMPARE(second.toInsecureString(), u"secret"_s);
        first = std::move(second);
        QVERIFY(second.isNull());
        QCOMPARE(first.toInsecureString(), u"secret"_s);
    }

    void clearMakesNull()
    {
        SSecureString text(u"secret"_s);
        text.clear();
        QVERIFY(text.isNull());
        text.clear();
        QVERIFY(text.isNull());
    }

    void comparesContents_data()
    {
        QTest::addColumn<SSecureString>("a");
        QTest::addColumn<SSecureString>("b");
        QTest::addColumn<bool>("equal");
        const SSecureString null;
        const SSecureString empty(u""_s);
        const SSecureString secret(u"secret"_s);
        QTest::newRow("both null") << null << null << true;
        QTest::newRow("null and empty") << null << empty << true;
        QTest::newRow("null and text") << null << secret << false;
        QTest::newRow("empty and text") << empty << secret << false;
        QTest::newRow("same text") << secret << SSecureString("secret"_ba) << true;
        QTest::newRow("other case") << secret << SSecureString(u"Secret"_s) << false;
        QTest::newRow("last letter") << secret << SSecureString(u"secreT"_s) << false;
        QTest::newRow("prefix") << secret << SSecureString(u"secre"_s) << false;
    }
    void comparesContents()
    {
        QFETCH(SSecureString, a);
        QFETCH(SSecureString, b);
        QFETCH(bool, equal);
        QCOMPARE(a == b, equal);
        QCOMPARE(b == a, equal);
        QCOMPARE(a != b, !equal);
    }

    void bothSpellingsAreRegistered_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::newRow("in the library") << "Security::SSecureString"_ba;
        QTest::newRow("in full") << "Talverine::Security::SSecureString"_ba;
    }
    void bothSpellingsAreRegistered()
    {
        QFETCH(QByteArray, name);
        QCOMPARE(QMetaType::fromName(name), QMetaType::fromType<SSecureString>());
    }

    void travelsToAnotherThreadByName_data()
    {
        QTest::addColumn<QByteArray>("type");
        QTest::addColumn<Qt::ConnectionType>("connection");
        QTest::newRow("queued") << "Security::SSecureString"_ba << Qt::QueuedConnection;
        QTest::newRow("blocking") << "Security::SSecureString"_ba << Qt::BlockingQueuedConnection;
    }
    void travelsToAnotherThreadByName()
    {
        QFETCH(QByteArray, type);
        QFETCH(Qt::ConnectionType, connection);
        QThread thread;
        auto *receiver = new Talverine::Receiver;
        receiver->moveToThread(&thread);
        connect(&thread, &QThread::finished, receiver, &QObject::deleteLater);
        SignalLog taken(receiver, &Talverine::Receiver::taken);
        thread.start();
        {
            const SSecureString text(u"secret"_s);
            QVERIFY(QMetaObject::invokeMethod(receiver, "take", connection,
                                              QArgument<SSecureString>(type.constData(), text)));
        }
        QVERIFY(taken.waitForCount(1));
        QStringList texts;
        QMetaObject::invokeMethod(
            receiver, [&] { texts = receiver->texts(); }, Qt::BlockingQueuedConnection);
        QCOMPARE(texts, QStringList(u"secret"_s));
        thread.quit();
        QVERIFY(thread.wait());
    }

    void travelsInVariants()
    {
        const QVariant variant = QVariant::fromValue(SSecureString(u"secret"_s));
        QCOMPARE(variant.value<SSecureString>().toInsecureString(), u"secret"_s);
    }

    void constCallsComeFromManyThreads()
    {
        const SSecureString text(u"secret"_s);
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&text] {
                for (int round = 0; round < 1000; ++round) {
                    const SSecureString copy(text);
                    if (copy.toInsecureUtf8() != "secret" || !(copy == text))
                        qFatal("a copy differs");
                }
            });
        }
        for (std::thread &thread : threads)
            thread.join();
    }

    void thousandsLiveAtOnce()
    {
        std::vector<SSecureString> texts(3000, SSecureString(u"secret"_s));
        for (const SSecureString &text : texts)
            QCOMPARE(text.toInsecureUtf8(), "secret"_ba);
    }

    void leavesNoCopyBehind()
    {
#ifdef Q_OS_LINUX
        QCOMPARE(copiesInMemory(1), 0);
        QByteArray bytes = makeSecret();
        QString string = QString::fromLatin1(bytes);
        {
            const SSecureString fromBytes(bytes);
            SSecureString fromString(string);
            SSecureString copy(fromString);
            copy = fromBytes;
            const SSecureString moved(std::move(copy));
            QByteArray insecure = moved.toInsecureUtf8();
            QVERIFY(moved == fromString);
            overwrite(insecure);
            overwrite(bytes);
            string.fill(u' ');
            // Three texts hold it still, and the search finds them.
            QCOMPARE(copiesInMemory(1), 3);
            fromString.clear();
            QCOMPARE(copiesInMemory(1), 2);
        }
        QCOMPARE(copiesInMemory(1), 0);
        QCOMPARE(copiesInMemory(2), 0);
#else
        const SSecureString text(u"secret"_s);
        QCOMPARE(text.toInsecureUtf8(), "secret"_ba);
#endif
    }
};

QTEST_GUILESS_MAIN(tst_SSecureString)
#include "tst_ssecurestring.moc"
