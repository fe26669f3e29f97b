// SPDX-License-Identifier: MIT
#include <brixlib/database/isdatabase.h>

#include <QtCore/QMetaMethod>

using namespace Talverine::Interfaces;
using namespace Qt::StringLiterals;

namespace {

//! The signatures of what the class itself declares of a kind, in order.
QList<QByteArray> methods(QMetaMethod::MethodType type)
{
    const QMetaObject &object = ISDatabase::staticMetaObject;
    QList<QByteArray> list;
    for (int i = object.methodOffset(); i < object.methodCount(); ++i) {
        if (object.method(i).methodType() == type)
            list.append(object.method(i).methodSignature());
    }
    return list;
}

} // namespace

class tst_ISDatabase : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void interfaceHasItsIdentifier()
    {
        QCOMPARE(QByteArray(qobject_interface_iid<ISDatabase *>()),
                 QByteArray("Talverine.ISDatabase/1.4"));
    }

    void signalsKeepTheirNamesAndOrder()
    {
        QCOMPARE(
            methods(QMetaMethod::Signal),
            QList<QByteArray>({"databaseOpened(bool)", "databaseClosed()", "databaseRestored(bool)",
                               "databaseModified()", "databasePurged()", "databaseReindexed(bool)",
                               "userAutenticated(bool)", "recordRemoved(QString)",
                               "recordInserted(QString)"}));
    }

    void slotsCanBeCalledByName()
    {
        QCOMPARE(methods(QMetaMethod::Slot), QList<QByteArray>({"close()", "reindex()"}));
    }
};

QTEST_APPLESS_MAIN(tst_ISDatabase)
#include "tst_isdatabase.moc"
