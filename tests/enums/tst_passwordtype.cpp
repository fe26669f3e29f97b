// SPDX-License-Identifier: MIT
#include <brixlib/enums/passwordtype.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_PasswordType : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void undeclaredValueIsTheNumber()
    {
        const QLocale egypt(QLocale::Arabic, QLocale::Egypt);
        QCOMPARE(PasswordType_T::instance().toString(9, QLocale::c()), u"9"_s);
        QCOMPARE(PasswordType_T::instance().toString(9, egypt), u"\u0669"_s);
    }

    void declaredValueIsItsName()
    {
        QCOMPARE(PasswordType_T::instance().toString(PasswordType::Aes), u"Aes"_s);
    }

    void textIsTrimmedAndComparedAsAsked()
    {
        const auto &table = PasswordType_T::instance();
        bool ok = false;
        QCOMPARE(table.fromString(u"  plain "_s, PasswordType::None, Qt::CaseInsensitive, &ok),
                 PasswordType::Plain);
        QVERIFY(ok);
        QCOMPARE(table.fromString(u"  plain "_s, PasswordType::None, Qt::CaseSensitive, &ok),
                 PasswordType::None);
        QVERIFY(!ok);
    }
};

QTEST_APPLESS_MAIN(tst_PasswordType)
#include "tst_passwordtype.moc"
