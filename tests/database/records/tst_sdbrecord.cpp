// SPDX-License-Identifier: MIT
#include <brixlib/database/records/dbrecordspecialfield.h>
#include <brixlib/database/records/sdbrecord.h>

#include <QtCore/QBitArray>
#include <QtCore/QCryptographicHash>
#include <QtCore/QDateTime>

#include <limits>
#include <utility>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

//! Asked for by another static's value, which may come before the data has its own.
const QString earlyKey = SDBRecord::signatureKey();

QByteArray lowBytes(const QString &text)
{
    QByteArray bytes;
    for (const QChar unit : text)
        bytes += static_cast<char>(unit.unicode() & 0xFF);
    return bytes;
}

//! The signature step by step, with Qt's hash.
QString chainOf(const QList<QString> &texts, const QString &seed = QString())
{
    const auto hash = [](const QByteArray &bytes) {
        return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex();
    };
    QByteArray state = hash(lowBytes(seed));
    for (const QString &text : texts)
        state = hash(state + lowBytes(text));
    return QString::fromLatin1(state);
}

QString legacyOf(const QList<QString> &texts, const QString &seed = QString())
{
    const QByteArray joined = lowBytes((QList<QString>{seed} + texts).join(u';'));
    return QString::fromLatin1(QCryptographicHash::hash(joined, QCryptographicHash::Sha1).toHex());
}

QString signatureOf(SDBRecord record)
{
    record.updateSignature();
    return record.signature();
}

//! With the texts "cyan", "12", "a", "b", "1.5", "true".
SDBRecord mixedRecord()
{
    SDBRecord record;
    record.insert(u"name"_s, u" cyan "_s);
    record.insert(u"level"_s, 12);
    record.insert(u"tags"_s, QStringList{u"a"_s, u"b"_s});
    record.insert(u"factor"_s, 1.5);
    record.insert(u"on"_s, true);
    return record;
}

QString names(const SDBRecord &record)
{
    return record.names().join(u' ');
}

SDBRecord recordOf(const QList<QString> &fieldNames)
{
    SDBRecord record;
    for (const QString &name : fieldNames)
        record.insert(name, name);
    return record;
}

//! \a record as a file would give it.
SDBRecord readBack(const SDBRecord &record)
{
    const QLocale locale = record.locale(QLocale::c());
    SDBRecord read;
    for (const SDBField &field : record.fields()) {
        const QByteArray bytes = field.toString(locale).toUtf8();
        read.insert(SDBField::fromString(QString::fromUtf8(bytes)));
    }
    return read;
}

} // namespace

class tst_SDBRecord : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshRecordIsEmpty()
    {
        const SDBRecord record;
        QVERIFY(record.isEmpty());
        QCOMPARE(record.count(), 0);
        QVERIFY(record.fields().isEmpty());
        QVERIFY(record.signature().isEmpty());
        QVERIFY(!record.checkSignature());
        QCOMPARE(record, SDBRecord());
    }

    void reservedNamesAreTheLowerCasedEnumerators()
    {
        QCOMPARE(SDBRecord::SignatureKey, u"_signature"_s);
        QCOMPARE(SDBRecord::OwnerKey, u"_recowner"_s);
        QCOMPARE(SDBRecord::CultureKey, u"_cultureinfo"_s);
        QCOMPARE(SDBRecord::UniqueIncKey, u"_uniqueinckey"_s);
        QCOMPARE(SDBRecord::DateTimeKey, u"_datetime"_s);
        QCOMPARE(SDBRecord::signatureKey(), SDBRecord::SignatureKey);
        QCOMPARE(SDBRecord::ownerKey(), SDBRecord::OwnerKey);
        QCOMPARE(SDBRecord::cultureKey(), SDBRecord::CultureKey);
        QCOMPARE(SDBRecord::uniqueIncKey(), SDBRecord::UniqueIncKey);
        QCOMPARE(SDBRecord::dateTimeKey(), SDBRecord::DateTimeKey);
    }

    void reservedNamesAreThereBeforeMain() { QCOMPARE(earlyKey, u"_signature"_s); }

    void insertWithoutANameLeavesTheRecordAlone()
    {
        SDBRecord record = recordOf({u"a"_s});
        QVERIFY(!record.insert(QString(), 1));
        QVERIFY(!record.insert(SDBField(u""_s, 1)));
        QVERIFY(!record.replace(QString(), 1));
        QVERIFY(!record.append(QString(), 1));
        QVERIFY(!record.insert(SDBField()));
        QCOMPARE(record, recordOf({u"a"_s}));
    }

    void insertedAgainANameKeepsItsPlace()
    {
        SDBRecord record = recordOf({u"a"_s, u"b"_s, u"c"_s});
        QVERIFY(record.insert(u"a"_s, 5));
        QVERIFY(record.insert(SDBField(u"b"_s, 6)));
        QVERIFY(record.replace(u"c"_s, 7));
        QVERIFY(record.replace(SDBField(u"d"_s, 8)));
        QCOMPARE(names(record), u"a b c d"_s);
        QCOMPARE(record.value(u"a"_s), QVariant(5));
        QCOMPARE(record.value(u"b"_s), QVariant(6));
        QCOMPARE(record.value(u"c"_s), QVariant(7));
        QCOMPARE(record.value(u"d"_s), QVariant(8));
    }

    void namesDifferByCase() { QCOMPARE(recordOf({u"a"_s, u"A"_s}).count(), 2); }

    void fieldWithoutAValueIsInserted()
    {
        SDBRecord record;
        QVERIFY(record.insert(u"a"_s, QVariant()));
        QCOMPARE(record.count(), 1);
        QVERIFY(record.contains(u"a"_s));
    }

    void fieldsAreListedInTheirOrder()
    {
        const SDBRecord record = recordOf({u"z"_s, u"a"_s, u"m"_s});
        const QList<SDBField> fields = record.fields();
        QCOMPARE(fields.size(), 3);
        for (int i = 0; i < 3; ++i)
            QCOMPARE(fields.at(i), record.at(i));
        QCOMPARE(names(record), u"z a m"_s);
    }

    void fieldOfAnAbsentNameIsEmpty()
    {
        SDBRecord record = recordOf({u"a"_s});
        const SDBRecord &constant = record;
        QCOMPARE(constant.field(u"x"_s), SDBField::empty);
        QCOMPARE(record.field(u"x"_s), SDBField::empty);
        QCOMPARE(record.field(QString()), SDBField::empty);
        QVERIFY(!record.value(u"x"_s).isValid());
        QCOMPARE(record.count(), 1);
        QVERIFY(!record.contains(u"x"_s));
        QVERIFY(!record.contains(QString()));
    }

    // What a caller writes to it must not be found by the next one.
    void emptyFieldIsEmptyEachTime()
    {
        SDBRecord record;
        record.field(u"x"_s).setKey(u"x"_s);
        record.field(u"x"_s).setValue(5);
        QCOMPARE(record.field(u"y"_s), SDBField::empty);
        record.at(0).setValue(5);
        QCOMPARE(record.at(7), SDBField::empty);
        QCOMPARE(record, SDBRecord());
        QVERIFY(SDBField::empty.value().isNull());
    }

    void positionsOutOfRangeAreEmpty()
    {
        SDBRecord record = recordOf({u"a"_s});
        const SDBRecord &constant = record;
        for (const int index :
             {-1, 1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
            QCOMPARE(constant.at(index), SDBField::empty);
            QCOMPARE(record.at(index), SDBField::empty);
        }
        QCOMPARE(record.at(0).key(), u"a"_s);
    }

    void referencesChangeTheRecordAlone()
    {
        SDBRecord record = recordOf({u"a"_s, u"b"_s});
        const SDBRecord copy = record;
        record.at(0).setValue(5);
        record.field(u"b"_s).setValue(6);
        QCOMPARE(record.value(u"a"_s), QVariant(5));
        QCOMPARE(record.value(u"b"_s), QVariant(6));
        QCOMPARE(copy, recordOf({u"a"_s, u"b"_s}));
    }

    void fieldsAreContainedByName()
    {
        const SDBRecord record = recordOf({u"a"_s});
        QVERIFY(record.contains(SDBField(u"a"_s, 999)));
        QVERIFY(!record.contains(SDBField(u"b"_s, u"a"_s)));
        QVERIFY(!record.contains(SDBField()));
    }

    void recordsAreInserted()
    {
        SDBRecord record = recordOf({u"a"_s, u"b"_s});
        SDBRecord other = recordOf({u"c"_s, u"a"_s});
        other.replace(u"a"_s, 5);
        QVERIFY(record.insert(other));
        QCOMPARE(names(record), u"a b c"_s);
        QCOMPARE(record.value(u"a"_s), QVariant(5));
        QVERIFY(record.insert(SDBRecord()));
        QVERIFY(record.insert(record));
        QCOMPARE(names(record), u"a b c"_s);
    }

    void insertionStopsAtAFieldWithoutAName()
    {
        SDBRecord other = recordOf({u"a"_s, u"b"_s, u"c"_s});
        other.at(1).setKey(QString());
        SDBRecord record;
        QVERIFY(!record.insert(other));
        QCOMPARE(names(record), u"a"_s);
    }

    void furtherValuesOfANameMakeAnArray()
    {
        SDBRecord record;
        QVERIFY(record.append(u"a"_s, u"1"_s));
        QCOMPARE(record.value(u"a"_s), QVariant(u"1"_s));
        QVERIFY(record.append(u"b"_s, u"x"_s));
        QVERIFY(record.append(u"a"_s, u"2"_s));
        QVERIFY(record.append(u"a"_s, u"3"_s));
        QCOMPARE(names(record), u"a b"_s);
        QCOMPARE(record.value(u"a"_s), QVariant(QVariantList{u"1"_s, u"2"_s, u"3"_s}));
    }

    void fieldsAreRemoved()
    {
        SDBRecord record = recordOf({u"a"_s, u"b"_s, u"c"_s});
        QVERIFY(record.remove(u"b"_s));
        QCOMPARE(names(record), u"a c"_s);
        QVERIFY(!record.contains(u"b"_s));
        QVERIFY(record.remove(SDBField(u"a"_s, 999)));
        QVERIFY(!record.remove(u"a"_s));
        QVERIFY(!record.remove(u"x"_s));
        QVERIFY(!record.remove(QString()));
        QVERIFY(!record.remove(SDBField()));
        QCOMPARE(names(record), u"c"_s);
        QVERIFY(!SDBRecord().remove(u"c"_s));
        record.insert(u"a"_s, 1);
        QCOMPARE(names(record), u"c a"_s);
    }

    void fieldsAreMoved_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("index");
        QTest::addColumn<QString>("order");
        QTest::newRow("to the front") << u"c"_s << 0 << u"c a b d"_s;
        QTest::newRow("to the end") << u"a"_s << 3 << u"b c d a"_s;
        QTest::newRow("on") << u"b"_s << 2 << u"a c b d"_s;
        QTest::newRow("to its place") << u"b"_s << 1 << u"a b c d"_s;
        QTest::newRow("behind the end") << u"a"_s << 99 << u"b c d a"_s;
        QTest::newRow("before the front") << u"d"_s << -5 << u"d a b c"_s;
    }

    void fieldsAreMoved()
    {
        QFETCH(QString, name);
        QFETCH(int, index);
        SDBRecord record = recordOf({u"a"_s, u"b"_s, u"c"_s, u"d"_s});
        QVERIFY(record.move(record.field(name), index));
        QTEST(names(record), "order");
        QCOMPARE(record.value(name), QVariant(name));
    }

    void emptyAndAbsentFieldsAreNotMoved()
    {
        SDBRecord record = recordOf({u"a"_s, u"b"_s});
        QVERIFY(!record.move(SDBField(), 0));
        QVERIFY(!record.move(SDBField(u"b"_s, QVariant()), 0));
        QVERIFY(!record.move(SDBField(QString(), 1), 0));
        QVERIFY(!record.move(SDBField(u"x"_s, 1), 0));
        QVERIFY(!SDBRecord().move(SDBField(u"a"_s, 1), 0));
        QCOMPARE(names(record), u"a b"_s);
    }

    void clearTakesFieldsAndSeed()
    {
        SDBRecord record = recordOf({u"a"_s});
        record.setSignatureSeed(u"seed"_s);
        record.clear();
        QVERIFY(record.isEmpty());
        QCOMPARE(record, SDBRecord());
    }

    void recordsAreComparedWithTheirOrder()
    {
        const SDBRecord record = recordOf({u"a"_s, u"b"_s});
        QCOMPARE(record, record);
        QCOMPARE(recordOf({u"a"_s, u"b"_s}), record);
        QVERIFY(recordOf({u"b"_s, u"a"_s}) != record);
        QVERIFY(recordOf({u"a"_s}) != record);
        SDBRecord other = record;
        other.replace(u"b"_s, 1);
        QVERIFY(other != record);
        other = record;
        other.setSignatureSeed(u"seed"_s);
        QVERIFY(other != record);
    }

    void movedFromRecordCanBeUsed()
    {
        SDBRecord record = recordOf({u"a"_s});
        const SDBRecord moved = std::move(record);
        QCOMPARE(names(moved), u"a"_s);
        record = recordOf({u"b"_s});
        QCOMPARE(names(record), u"b"_s);
    }

    void localeIsThatOfTheCulture_data()
    {
        QTest::addColumn<QVariant>("culture");
        QTest::addColumn<QString>("number");
        QTest::newRow("Italian") << QVariant(u"it-IT"_s) << u"1234,5"_s;
        QTest::newRow("with an underscore") << QVariant(u"it_IT"_s) << u"1234,5"_s;
        QTest::newRow("a locale") << QVariant(QLocale(u"it_IT"_s)) << u"1234,5"_s;
        QTest::newRow("nonsense") << QVariant(u"no such culture"_s) << u"1234.5"_s;
        QTest::newRow("empty text") << QVariant(u""_s) << u"1234.5"_s;
    }

    void localeIsThatOfTheCulture()
    {
        QFETCH(QVariant, culture);
        SDBRecord record;
        record.insert(SDBRecord::CultureKey, culture);
        const QLocale locale = record.locale(QLocale(u"ar_EG"_s));
        QTEST(locale.toString(1234.5, 'f', 1), "number");
        QVERIFY(locale.numberOptions() & QLocale::OmitGroupSeparator);
    }

    void withoutACultureTheFallbackIsTheLocale()
    {
        const QLocale fallback(u"de_DE"_s);
        SDBRecord record;
        QCOMPARE(record.locale(fallback), fallback);
        record.insert(SDBRecord::CultureKey, QVariant());
        QCOMPARE(record.locale(fallback), fallback);
    }

    void signatureIsTheChainOfHashes()
    {
        SDBRecord record = mixedRecord();
        QVERIFY(record.updateSignature());
        QCOMPARE(record.signature(),
                 u"00277d48ed2933a5a72beb345a38181af855ef89a2a90e51028eff648803d2cf"_s);
        QVERIFY(record.checkSignature());
        record.setSignatureSeed(u"s\u20AC"_s);
        QVERIFY(!record.checkSignature());
        QVERIFY(record.updateSignature());
        QCOMPARE(record.signature(),
                 u"bc7c2228ea980f6aa6a169cc09400d8585a6fd7cbd450f942c2248c190880888"_s);
        QVERIFY(record.checkSignature());
    }

    // docs/formats/record-signature.md has it step by step.
    void exampleOfTheFormatPageIsRight()
    {
        SDBRecord record;
        record.insert(u"name"_s, u"cyan"_s);
        record.insert(u"level"_s, 12);
        QCOMPARE(signatureOf(record),
                 u"2475c870fab95406241f25b3aa145db0d87256238166e9684c11e8bf5024c99f"_s);
        record.insert(SDBRecord::SignatureKey, u"0ec4da175b2aa4090880d6dda4c86586357966d8"_s);
        QVERIFY(record.checkSignature());
    }

    void recordWithoutFieldsHasTheSignatureOfItsSeed()
    {
        QCOMPARE(signatureOf(SDBRecord()),
                 u"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"_s);
    }

    void charactersBeyondLatinLoseTheirHighByte()
    {
        SDBRecord record;
        record.insert(u"a"_s, u"\u00E9\u20AC\U0001F600"_s);
        QCOMPARE(signatureOf(record),
                 u"fbf083e9e9532dc0fcabc4484cd70f868334e95560359e3fcfa682a4afa427d0"_s);
    }

    void signatureDependsOnTheOrder()
    {
        SDBRecord record = recordOf({u"a"_s, u"b"_s});
        record.updateSignature();
        QVERIFY(record.move(record.field(u"b"_s), 0));
        QVERIFY(!record.checkSignature());
        record = SDBRecord();
        record.insert(u"a"_s, QStringList{u"1"_s, u"2"_s});
        const QString signature = signatureOf(record);
        record.insert(u"a"_s, QStringList{u"2"_s, u"1"_s});
        QVERIFY(signatureOf(record) != signature);
    }

    void anyChangeOfAValueBreaksTheSignature()
    {
        SDBRecord record = mixedRecord();
        record.updateSignature();
        for (const QString &name : record.names()) {
            if (name == SDBRecord::SignatureKey)
                continue;
            SDBRecord changed = record;
            changed.insert(name, u"x"_s);
            QVERIFY2(!changed.checkSignature(), qPrintable(name));
            changed = record;
            QVERIFY(changed.remove(name));
            QVERIFY2(!changed.checkSignature(), qPrintable(name));
        }
        record.insert(u"more"_s, u""_s);
        QVERIFY(!record.checkSignature());
    }

    // Only texts are signed: names are not, nor where one field ends and an array goes on.
    void namesAreNotSigned()
    {
        QCOMPARE(signatureOf(recordOf({u"a"_s})), chainOf({u"a"_s}));
        SDBRecord array;
        array.insert(u"x"_s, QStringList{u"1"_s, u"2"_s});
        SDBRecord two;
        two.insert(u"y"_s, 1);
        two.insert(u"z"_s, 2);
        QCOMPARE(signatureOf(array), signatureOf(two));
    }

    void fieldsWithoutAValueAreNotSigned()
    {
        SDBRecord record = mixedRecord();
        const QString signature = signatureOf(record);
        record.insert(u"null"_s, QVariant());
        record.insert(u"bits"_s, QBitArray(3));
        record.insert(u"none"_s, QVariantList());
        QCOMPARE(signatureOf(record), signature);
        record.insert(u"text"_s, u""_s);
        QVERIFY(signatureOf(record) != signature);
    }

    void fieldsWithoutANameAreNotSigned()
    {
        SDBRecord record = mixedRecord();
        record.at(1).setKey(QString());
        QCOMPARE(signatureOf(record), chainOf({u"cyan"_s, u"a"_s, u"b"_s, u"1.5"_s, u"true"_s}));
    }

    void listInAListIsFlattenedOnce()
    {
        SDBRecord record;
        record.insert(u"a"_s, QVariantList{1, QVariantList{2, QVariantList{3, 4}}, 5});
        QCOMPARE(signatureOf(record), chainOf({u"1"_s, u"2"_s, u"3, 4"_s, u"5"_s}));
    }

    void bytesAreSignedAsNumbers()
    {
        SDBRecord record;
        record.insert(u"a"_s, QByteArray("\n\xC8"));
        QCOMPARE(signatureOf(record), chainOf({u"10"_s, u"200"_s}));
    }

    void valuesAreSignedInTheirCulture()
    {
        SDBRecord record;
        record.insert(u"a"_s, 1234567);
        record.insert(u"b"_s, 1.5);
        QCOMPARE(signatureOf(record), chainOf({u"1234567"_s, u"1.5"_s}));
        record.insert(SDBRecord::CultureKey, u"it-IT"_s);
        QCOMPARE(signatureOf(record), chainOf({u"1234567"_s, u"1,5"_s, u"it-IT"_s}));
    }

    // The C locale has another letter for the exponent.
    void withoutACultureValuesAreSignedAsAmericansWriteThem()
    {
        SDBRecord record;
        record.insert(u"a"_s, 1e20);
        QCOMPARE(signatureOf(record), chainOf({u"1E+20"_s}));
        record.insert(SDBRecord::CultureKey, QVariant());
        QCOMPARE(signatureOf(record), chainOf({u"1E+20"_s}));
    }

    void signatureDoesNotDependOnTheDefaultLocale()
    {
        const QString signature = signatureOf(mixedRecord());
        for (const auto name : {"it_IT", "sv_SE", "ar_EG"}) {
            QLocale::setDefault(QLocale(QString::fromLatin1(name)));
            const QString there = signatureOf(mixedRecord());
            QLocale::setDefault(QLocale::c());
            QCOMPARE(there, signature);
        }
    }

    void readArrayHasTheSameSignature()
    {
        SDBRecord record;
        record.insert(u"a"_s, QStringList{u"x"_s, u"y"_s});
        record.updateSignature();
        const SDBRecord read = readBack(record);
        QCOMPARE(read.field(u"a"_s).type(), QMetaType::QVariantList);
        QVERIFY(read.checkSignature());
    }

    void listInAListIsNotReadWithItsSignature()
    {
        SDBRecord record;
        record.insert(u"a"_s, QVariantList{1, QVariantList{2, 3}});
        record.updateSignature();
        QVERIFY(record.checkSignature());
        QVERIFY(!readBack(record).checkSignature());
    }

    void halfOfACharacterIsNotReadWithItsSignature()
    {
        SDBRecord record = recordOf({u"a"_s});
        record.insert(u"b"_s, u"\U0001F600"_s);
        record.updateSignature();
        QVERIFY(readBack(record).checkSignature());
        record.insert(u"b"_s, QString(QChar(0xD83D)));
        record.updateSignature();
        QVERIFY(!readBack(record).checkSignature());
    }

    void readRecordHasTheSameSignature_data()
    {
        QTest::addColumn<QString>("culture");
        for (const auto name : {"en-US", "it-IT", "sv-SE", "ar-EG", "C", "sr-Latn-RS"})
            QTest::newRow(name) << QString::fromLatin1(name);
    }

    void readRecordHasTheSameSignature()
    {
        QFETCH(QString, culture);
        SDBRecord record = mixedRecord();
        record.insert(u"minus"_s, -1234567.25);
        record.insert(u"bytes"_s, QByteArray("\r\n "));
        record.insert(u"text"_s, u"Ünïcödé \U0001F600 = 007"_s);
        record.insert(SDBRecord::CultureKey, culture);
        record.insert(SDBRecord::DateTimeKey, QDateTime::currentDateTimeUtc());
        record.updateSignature();
        const SDBRecord read = readBack(record);
        QVERIFY(read.checkSignature());
        QCOMPARE(read.signature(), record.signature());
    }

    void recordSignedTheOldWayVerifies()
    {
        SDBRecord record = mixedRecord();
        record.insert(SDBRecord::SignatureKey, u"705efd7b903ed54ecb5f3a63ddce851958bcff75"_s);
        QVERIFY(record.checkSignature());
        record.setSignatureSeed(u"s\u20AC"_s);
        QVERIFY(!record.checkSignature());
        record.insert(SDBRecord::SignatureKey, u"346490bfa12f5bafb65fe73a5b676e62afb9ad9d"_s);
        QVERIFY(record.checkSignature());
        record.insert(u"level"_s, 13);
        QVERIFY(!record.checkSignature());
    }

    void oldSignatureOfAnEmptySeedBeginsWithASemicolon()
    {
        SDBRecord record = recordOf({u"x"_s});
        const QByteArray hash = QCryptographicHash::hash(";x", QCryptographicHash::Sha1);
        record.insert(SDBRecord::SignatureKey, QString::fromLatin1(hash.toHex()));
        QVERIFY(record.checkSignature());
    }

    void oldSignatureIsOfTheSameTexts()
    {
        SDBRecord record;
        record.insert(u"a"_s, 1.5);
        record.insert(u"b"_s, QVariantList{QVariantList{2, 3}, u" x "_s});
        record.insert(u"null"_s, QVariant());
        record.insert(u"empty"_s, u""_s);
        record.insert(SDBRecord::CultureKey, u"it-IT"_s);
        const QList<QString> texts{u"1,5"_s, u"2"_s, u"3"_s, u"x"_s, u""_s, u"it-IT"_s};
        record.insert(SDBRecord::SignatureKey, legacyOf(texts));
        QVERIFY(record.checkSignature());
        QCOMPARE(signatureOf(record), chainOf(texts));
    }

    void oldSignatureWithoutFieldsIsThatOfTheSeed()
    {
        SDBRecord record;
        record.setSignatureSeed(u"seed"_s);
        record.insert(SDBRecord::SignatureKey, legacyOf({}, u"seed"_s));
        QVERIFY(record.checkSignature());
    }

    void lengthAloneTellsTheFormsApart()
    {
        SDBRecord record = recordOf({u"x"_s});
        const QString old = legacyOf({u"x"_s});
        QCOMPARE(old.size(), 40);
        record.insert(SDBRecord::SignatureKey, old);
        QVERIFY(record.checkSignature());
        // Of 41 characters it is looked at as the chain's, and shorter ones as the old one's.
        record.insert(SDBRecord::SignatureKey, QString(old + u'0'));
        QVERIFY(!record.checkSignature());
        record.insert(SDBRecord::SignatureKey, old.chopped(1));
        QVERIFY(!record.checkSignature());
        record.insert(SDBRecord::SignatureKey, chainOf({u"x"_s}));
        QVERIFY(record.checkSignature());
        record.insert(SDBRecord::SignatureKey, chainOf({u"x"_s}).first(40));
        QVERIFY(!record.checkSignature());
    }

    void upperCaseSignatureIsAnother()
    {
        SDBRecord record = recordOf({u"x"_s});
        record.insert(SDBRecord::SignatureKey, chainOf({u"x"_s}).toUpper());
        QVERIFY(!record.checkSignature());
    }

    void recordWithoutASignatureIsNotSigned_data()
    {
        QTest::addColumn<QVariant>("signature");
        QTest::newRow("no value") << QVariant();
        QTest::newRow("empty text") << QVariant(u""_s);
        QTest::newRow("null text") << QVariant(QString());
        QTest::newRow("empty list") << QVariant(QVariantList());
    }

    void recordWithoutASignatureIsNotSigned()
    {
        QFETCH(QVariant, signature);
        SDBRecord record = recordOf({u"x"_s});
        QVERIFY(!record.checkSignature());
        record.insert(SDBRecord::SignatureKey, signature);
        QVERIFY(!record.checkSignature());
        QCOMPARE(record.signature(), QString());
    }

    // A second line with that name in a file.
    void signatureOfSeveralLinesIsWrong()
    {
        SDBRecord record = recordOf({u"x"_s});
        record.updateSignature();
        const QString signature = record.signature();
        record.append(SDBRecord::SignatureKey, signature);
        QVERIFY(!record.checkSignature());
        QCOMPARE(record.signature(), QString(signature + u"\r\n"_s + signature));
    }

    void signatureIsNotComputedWhenAsked()
    {
        SDBRecord record = recordOf({u"x"_s});
        QCOMPARE(record.signature(), QString());
        record.insert(SDBRecord::SignatureKey, 12);
        QCOMPARE(record.signature(), u"12"_s);
    }

    void signingAppendsTheSignatureOrKeepsItsPlace()
    {
        SDBRecord record = recordOf({u"a"_s, u"b"_s});
        QVERIFY(record.updateSignature());
        QCOMPARE(names(record), u"a b _signature"_s);
        record.insert(u"c"_s, 1);
        QVERIFY(record.updateSignature());
        QCOMPARE(names(record), u"a b _signature c"_s);
        QVERIFY(record.checkSignature());
    }

    void signingAgainTakesTheNewForm()
    {
        SDBRecord record = mixedRecord();
        record.insert(SDBRecord::SignatureKey, u"705efd7b903ed54ecb5f3a63ddce851958bcff75"_s);
        QVERIFY(record.checkSignature());
        QVERIFY(record.updateSignature());
        QCOMPARE(record.signature().size(), 64);
        QVERIFY(record.checkSignature());
    }

    // Few names are compared one by one, many are found by a hash.
    void anyNumberOfFieldsIsFoundByName_data()
    {
        QTest::addColumn<int>("count");
        for (const int count : {1, 23, 24, 25, 26, 60})
            QTest::newRow(qPrintable(QString::number(count))) << count;
    }

    void anyNumberOfFieldsIsFoundByName()
    {
        QFETCH(int, count);
        SDBRecord record;
        QStringList names;
        for (int i = 0; i < count; ++i) {
            names.append(QString::number(i));
            QVERIFY(record.insert(names.last(), i));
        }
        const auto verify = [&] {
            QCOMPARE(record.names(), names);
            for (qsizetype i = 0; i < names.size(); ++i) {
                QCOMPARE(record.value(names.at(i)), QVariant(names.at(i).toInt()));
                QCOMPARE(record.at(int(i)).key(), names.at(i));
                QCOMPARE(record.fields().at(i).key(), names.at(i));
            }
        };
        verify();
        QVERIFY(record.move(record.at(count - 1), 0));
        names.move(count - 1, 0);
        verify();
        QVERIFY(record.move(record.at(0), count / 2));
        names.move(0, count / 2);
        verify();
        const SDBRecord before = record;
        while (!names.isEmpty()) {
            const qsizetype middle = names.size() / 2;
            const QString name = names.takeAt(middle);
            // The record's own text of the name goes with it.
            QVERIFY(record.remove(record.names().at(middle)));
            QVERIFY(!record.contains(name));
            QVERIFY(!record.remove(name));
            verify();
        }
        QVERIFY(record.isEmpty());
        QCOMPARE(before.count(), count);
        QVERIFY(before.contains(QString::number(count - 1)));
    }

    void manyFieldsTakeTimeInProportion()
    {
        SDBRecord record;
        for (int i = 0; i < 30'000; ++i)
            record.insert(QString::number(i), i);
        QCOMPARE(record.count(), 30'000);
        QVERIFY(record.updateSignature());
        QVERIFY(record.checkSignature());
        QCOMPARE(record.fields().last().key(), SDBRecord::SignatureKey);
    }
};

QTEST_APPLESS_MAIN(tst_SDBRecord)
#include "tst_sdbrecord.moc"
