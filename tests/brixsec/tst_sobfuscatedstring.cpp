// SPDX-License-Identifier: MIT
#include <brixsec/sobfuscatedstring.h>

using namespace Talverine::Security;
using namespace Qt::StringLiterals;

namespace {

// Only the reverse of this text stands in the program, and in no other place of this source either.
constexpr SObfuscatedString kMarker("marker of an obfuscated text");
const QString kReversedMarker = u"txet detacsufbo na fo rekram"_s;

constexpr SObfuscatedString kShort("qzxj");
const QString kReversedShort = u"jxzq"_s;

QString reversed(const QString &text)
{
    QString result = text;
    std::reverse(result.begin(), result.end());
    return result;
}

QByteArray program()
{
    QFile file(QCoreApplication::applicationFilePath());
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class tst_SObfuscatedString : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void givesBackTheLiteral()
    {
        QCOMPARE(kMarker.toString(), reversed(kReversedMarker));
        QCOMPARE(kMarker.toUtf8(), reversed(kReversedMarker).toUtf8());
        QCOMPARE(kShort.toString(), reversed(kReversedShort));
    }

    void keepsOtherScriptsAndZeros()
    {
        static constexpr SObfuscatedString text("grüße 日本語");
        QCOMPARE(text.toString(), u"grüße 日本語"_s);
        static constexpr SObfuscatedString zeros("a\0b");
        QCOMPARE(zeros.toUtf8(), "a\0b"_ba);
    }

    void emptyLiteralIsEmpty()
    {
        static constexpr SObfuscatedString empty("");
        QVERIFY(empty.toString().isEmpty());
        QVERIFY(empty.toUtf8().isEmpty());
    }

    void longLiteralOutrunsTheKey()
    {
        static constexpr SObfuscatedString text(
            "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef"
            "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef"
            "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef"
            "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef"
            "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef");
        QCOMPARE(text.toUtf8(), "0123456789abcdef"_ba.repeated(20));
    }

    void textsGivenOutAreIndependent()
    {
        QByteArray bytes = kShort.toUtf8();
        bytes.fill('x');
        QCOMPARE(kShort.toString(), reversed(kReversedShort));
    }

    void programDoesNotShowTheLiteral()
    {
        const QByteArray bytes = program();
        // The search finds what does stand there, in the two widths of a literal.
        QVERIFY(bytes.contains(QByteArray("tst_SObfuscatedString")));
        const auto wide = [](const QString &text) {
            return QByteArray(reinterpret_cast<const char *>(text.utf16()), text.size() * 2);
        };
        QVERIFY(bytes.contains(wide(kReversedMarker)));
        QVERIFY(bytes.contains(wide(kReversedShort)));

        QVERIFY(!bytes.contains(reversed(kReversedMarker).toUtf8()));
        QVERIFY(!bytes.contains(wide(reversed(kReversedMarker))));
        QVERIFY(!bytes.contains(reversed(kReversedMarker).first(8).toUtf8()));
        QVERIFY(!bytes.contains(reversed(kReversedShort).toUtf8()));
    }
};

QTEST_GUILESS_MAIN(tst_SObfuscatedString)
#include "tst_sobfuscatedstring.moc"
