// SPDX-License-Identifier: MIT
#include <brixsec/saesstring.h>

#include <QtCore/QRegularExpression>
#include <QtCore/QUrl>

#include <atomic>
#include <thread>
#include <type_traits>
#include <vector>

using namespace Talverine::Security;
using namespace Qt::StringLiterals;

static_assert(!std::is_convertible_v<SSecureString, SAesString>);

namespace {

// Version 1, nonce 00 to 0b, made by another program from the secret below.
const QByteArray kSecret = "secret of this installation";
const QString kGreeting = u"AQABAgMEBQYHCAkKCzeqwNm5P0tGbYKiNcB1EIE7idXdykhg"_s;
const QString kEmpty = u"AQABAgMEBQYHCAkKC6g4JDd8CH4n-mG0ZRk_gFo"_s;

} // namespace

class tst_SAesString : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { SAesString::setKey(QByteArray()); }

    void freshTextIsNull()
    {
        const SAesString text;
        QVERIFY(text.isNull());
        QVERIFY(text.toString().isNull());
        QVERIFY(text.toSecureString().isNull());
        QVERIFY(SAesString(SSecureString()).isNull());
    }

    void givesBackTheSecret_data()
    {
        QTest::addColumn<QByteArray>("secret");
        QTest::newRow("empty") << ""_ba;
        QTest::newRow("one byte") << "x"_ba;
        QTest::newRow("several scripts") << u"grüße 日本語"_s.toUtf8();
        QTest::newRow("bytes that are no text") << QByteArray::fromHex("00ff80c3");
        QTest::newRow("brackets and commas") << "(Aes,(Plain,x))"_ba;
        QTest::newRow("long") << QByteArray(100000, 's');
    }
    void givesBackTheSecret()
    {
        QFETCH(QByteArray, secret);
        const SAesString text{SSecureString(secret)};
        QVERIFY(!text.isNull());
        QCOMPARE(text.toSecureString().toInsecureUtf8(), secret);
        const SAesString read = SAesString::fromString(text.toString());
        QCOMPARE(read, text);
        QVERIFY(!read.toSecureString().isNull());
        QCOMPARE(read.toSecureString().toInsecureUtf8(), secret);
    }

    void textFormNeedsNoEscapes()
    {
        static const QRegularExpression letters(u"^[A-Za-z0-9_-]+$"_s);
        for (int size = 0; size < 50; ++size) {
            const QString form = SAesString(SSecureString(QByteArray(size, 's'))).toString();
            QVERIFY2(letters.match(form).hasMatch(), qPrintable(form));
            QCOMPARE(form.size(), ((1 + 12 + 16 + size) * 4 + 2) / 3);
            QUrl url;
            url.setPassword(form, QUrl::DecodedMode);
            QCOMPARE(url.password(QUrl::FullyEncoded), form);
        }
    }

    void readsTextsOfAnotherProgram()
    {
        SAesString::setKey(kSecret);
        QCOMPARE(SAesString::fromString(kGreeting).toSecureString().toInsecureString(), u"grüße"_s);
        const SAesString empty = SAesString::fromString(kEmpty);
        QVERIFY(!empty.isNull());
        QVERIFY(!empty.toSecureString().isNull());
        QVERIFY(empty.toSecureString().isEmpty());
    }

    void oneSecretGetsManyForms()
    {
        const SSecureString secret(u"secret"_s);
        const SAesString first(secret);
        const SAesString second(secret);
        QVERIFY(first != second);
        QVERIFY(first.toString() != second.toString());
        QCOMPARE(first.toSecureString(), second.toSecureString());
        QCOMPARE(SAesString(first), first);
    }

    void textFormDoesNotShowTheSecret()
    {
        const QString form = SAesString(SSecureString(u"secret"_s)).toString();
        const QByteArray bytes =
            QByteArray::fromBase64(form.toLatin1(), QByteArray::Base64UrlEncoding);
        QVERIFY(!bytes.contains("secret"));
        QCOMPARE(bytes[0], '\x01');
    }

    void otherKeyIsRecognised()
    {
        const SAesString builtIn{SSecureString(u"secret"_s)};
        SAesString::setKey("one"_ba);
        const SAesString one{SSecureString(u"secret"_s)};
        QVERIFY(builtIn.toSecureString().isNull());
        QVERIFY(SAesString::fromString(builtIn.toString()).isNull());
        SAesString::setKey("two"_ba);
        QVERIFY(one.toSecureString().isNull());
        QVERIFY(!one.isNull());
        SAesString::setKey("one"_ba);
        QCOMPARE(one.toSecureString().toInsecureString(), u"secret"_s);
        SAesString::setKey(QByteArray());
        QCOMPARE(builtIn.toSecureString().toInsecureString(), u"secret"_s);
    }

    void secretOfAnyLengthMakesAKey_data()
    {
        QTest::addColumn<QByteArray>("secret");
        QTest::newRow("one byte") << "k"_ba;
        QTest::newRow("a zero byte") << "\0"_ba;
        QTest::newRow("large") << QByteArray(1 << 20, 'k');
    }
    void secretOfAnyLengthMakesAKey()
    {
        QFETCH(QByteArray, secret);
        SAesString::setKey(secret);
        const SAesString text{SSecureString(u"secret"_s)};
        QCOMPARE(text.toSecureString().toInsecureString(), u"secret"_s);
        SAesString::setKey(QByteArray());
        QVERIFY(text.toSecureString().isNull());
    }

    void changedLetterIsRecognised_data()
    {
        QTest::addColumn<qsizetype>("place");
        for (qsizetype place = 0; place < kGreeting.size(); ++place)
            QTest::addRow("letter %d", int(place)) << place;
    }
    void changedLetterIsRecognised()
    {
        QFETCH(qsizetype, place);
        SAesString::setKey(kSecret);
        const QString letters =
            u"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_"_s;
        for (const QChar letter : letters) {
            QString form = kGreeting;
            form[place] = letter;
            QCOMPARE(SAesString::fromString(form).isNull(), letter != kGreeting[place]);
        }
    }

    void cutTextIsRecognised_data()
    {
        QTest::addColumn<qsizetype>("size");
        for (qsizetype size = 0; size < kGreeting.size(); ++size)
            QTest::addRow("%d letters", int(size)) << size;
    }
    void cutTextIsRecognised()
    {
        QFETCH(qsizetype, size);
        SAesString::setKey(kSecret);
        QVERIFY(SAesString::fromString(kGreeting.first(size)).isNull());
    }

    void unusedBitsOfTheLastLetterAreRecognised()
    {
        SAesString::setKey(kSecret);
        QVERIFY(!SAesString::fromString(kEmpty).isNull());
        for (const QChar letter : u"pqr"_s) {
            QString form = kEmpty;
            form.back() = letter;
            QVERIFY(SAesString::fromString(form).isNull());
        }
    }

    void otherTextIsRefused_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("null") << QString();
        QTest::newRow("empty") << u""_s;
        QTest::newRow("word") << u"secret"_s;
        QTest::newRow("padding") << kEmpty + u'=';
        QTest::newRow("blank before") << u' ' + kGreeting;
        QTest::newRow("line end behind") << kGreeting + u'\n';
        QTest::newRow("letter behind") << kGreeting + u'A';
        QTest::newRow("twice") << kGreeting + kGreeting;
        QTest::newRow("plain base64 letters") << QString(kEmpty).replace(u'-', u'+');
        QTest::newRow("letter of another script") << kGreeting + QChar(0x0410);
        QTest::newRow("letter that is cut to the right one") << QChar(0x0141) + kGreeting.sliced(1);
        QTest::newRow("nothing but zeros") << u"A"_s.repeated(39);
        QTest::newRow("long") << u"A"_s.repeated(1 << 20);
    }
    void otherTextIsRefused()
    {
        QFETCH(QString, text);
        SAesString::setKey(kSecret);
        const SAesString read = SAesString::fromString(text);
        QVERIFY(read.isNull());
        QVERIFY(read.toSecureString().isNull());
    }

    void bothSpellingsAreRegistered()
    {
        const QMetaType type = QMetaType::fromType<SAesString>();
        QCOMPARE(QMetaType::fromName("Security::SAesString"), type);
        QCOMPARE(QMetaType::fromName("Talverine::Security::SAesString"), type);
    }

    void threadsEncipherWhileTheKeyChanges()
    {
        std::atomic_bool stop = false;
        std::atomic_int wrong = 0;
        std::atomic_int done = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i) {
            threads.emplace_back([&] {
                const SSecureString secret(u"secret"_s);
                while (!stop) {
                    const SAesString text(secret);
                    const SSecureString read = text.toSecureString();
                    // The key may have changed in between: the secret or nothing, never else.
                    wrong += text.isNull() || !(read.isNull() || read == secret);
                    ++done;
                }
            });
        }
        for (int round = 0; round < 300 || done < 300; ++round)
            SAesString::setKey(round % 2 == 0 ? "one"_ba : "two"_ba);
        stop = true;
        for (std::thread &thread : threads)
            thread.join();
        QCOMPARE(wrong.load(), 0);
    }
};

QTEST_APPLESS_MAIN(tst_SAesString)
#include "tst_saesstring.moc"
