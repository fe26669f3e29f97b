// SPDX-License-Identifier: MIT
#include <brixlib/database/databasespecialrecordfield.h>
#include <brixlib/database/dbauthgrants.h>
#include <brixlib/database/dberror.h>
#include <brixlib/database/records/dbrecordspecialfield.h>
#include <brixlib/database/records/sdbrecord.h>

#include <shared/enumtable.h>

#include <brixrt/sconvert.h>

using namespace Talverine;
using namespace Talverine::Test;
using namespace Qt::StringLiterals;

class tst_DatabaseEnumerations : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Numbers and names stand in files, or in what programs have stored.
    void specialFieldsOfRecordsAreFixed()
    {
        compare<DBRecordSpecialField_T>({{u"_Signature"_s, 0},
                                         {u"_RecOwner"_s, 1},
                                         {u"_CultureInfo"_s, 2},
                                         {u"_UniqueIncKey"_s, 3},
                                         {u"_DateTime"_s, 4}});
    }

    void fieldsOfTheSpecialRecordAreFixed()
    {
        compare<DatabaseSpecialRecordField_T>({{u"dbKey"_s, 0},
                                               {u"dbOwner"_s, 1},
                                               {u"dbPasswd"_s, 2},
                                               {u"dbGrants"_s, 3},
                                               {u"dbVersion"_s, 4},
                                               {u"dbCultureInfo"_s, 5}});
    }

    void grantsAreFixed()
    {
        compare<DBAuthGrants_T>({{u"None"_s, 0},
                                 {u"ReadOnly"_s, 1},
                                 {u"ReadWrite"_s, 2},
                                 {u"ReadOwnWrite"_s, 3},
                                 {u"All"_s, 4}});
    }

    void errorsAreFixed()
    {
        compare<DBError_T>({{u"NoError"_s, 0},
                            {u"AuthError"_s, 1},
                            {u"SignError"_s, 2},
                            {u"WrongDB"_s, 3},
                            {u"KeyIsNull"_s, 4},
                            {u"RecNotFound"_s, 5},
                            {u"RecExist"_s, 6},
                            {u"FileNotFound"_s, 7},
                            {u"OpenError"_s, 8},
                            {u"CreateError"_s, 9},
                            {u"ResetError"_s, 10},
                            {u"EndOfFile"_s, 11},
                            {u"ReadError"_s, 12},
                            {u"WriteError"_s, 13},
                            {u"SeekError"_s, 14},
                            {u"FieldIndexError"_s, 15},
                            {u"FileLockError"_s, 16},
                            {u"APINotImplemented"_s, 17},
                            {u"UnknownError"_s, 18}});
    }

    void grantsAreReadInAnyCase()
    {
        bool ok = false;
        QCOMPARE(DBAuthGrants_T::instance().fromString(u"readownwrite"_s, DBAuthGrants::None,
                                                       Qt::CaseInsensitive, &ok),
                 DBAuthGrants::ReadOwnWrite);
        QVERIFY(ok);
    }

    void variantsTurnToText()
    {
        // Keeps the linker from leaving out the library, which registers them at load.
        QCOMPARE(SDBRecord::signatureKey(), u"_signature"_s);
        QCOMPARE(SConvert::toString(QVariant::fromValue(DBError::RecExist)), u"RecExist"_s);
        QCOMPARE(SConvert::toString(QVariant::fromValue(DBAuthGrants::All)), u"All"_s);
        QCOMPARE(SConvert::toString(QVariant::fromValue(DBRecordSpecialField::_DateTime)),
                 u"_DateTime"_s);
        QCOMPARE(SConvert::toString(QVariant::fromValue(DatabaseSpecialRecordField::dbKey)),
                 u"dbKey"_s);
    }

    void typesAreKnownByBothSpellings_data()
    {
        QTest::addColumn<QByteArray>("name");
        for (const auto name : {"DBError", "DBAuthGrants", "DBRecordSpecialField",
                                "DatabaseSpecialRecordField", "SDBField", "SDBRecord"})
            QTest::newRow(name) << QByteArray(name);
    }

    void typesAreKnownByBothSpellings()
    {
        QFETCH(QByteArray, name);
        QVERIFY(QMetaType::fromName(name).isValid());
        QCOMPARE(QMetaType::fromName(name), QMetaType::fromName("Talverine::" + name));
    }

private:
    template<typename Companion>
    static void compare(const QList<EnumPair> &expected)
    {
        QCOMPARE(declaredPairs<Companion>(), expected);
    }
};

QTEST_APPLESS_MAIN(tst_DatabaseEnumerations)
#include "tst_databaseenumerations.moc"
