// SPDX-License-Identifier: MIT
// Walks what each class offers to the meta-object system, its signals above all, and looks the
// argument types up by name, as a queued call by name does.
#include <brixlib/brixlib.h>

#include <brixrt/brixrt.h>

#include <QtCore/QDirIterator>
#include <QtCore/QMetaMethod>
#include <QtCore/QRegularExpression>
#include <QtCore/QSet>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

//! The classes that none other here derives from.
const QList<const QMetaObject *> &leaves()
{
    static const QList<const QMetaObject *> list{
        &SAuthenticationDb::staticMetaObject,
        &SBandwidthDevice::staticMetaObject,
        &SBufferedDevice::staticMetaObject,
        &SClientController::staticMetaObject,
        &SClientDevice::staticMetaObject,
        &SClientFtp::staticMetaObject,
        &SClientFtpRequester::staticMetaObject,
        &SCommandQueue::staticMetaObject,
        &SDBText::staticMetaObject,
        &SEndiannessDevice::staticMetaObject,
        &SGenericQueue::staticMetaObject,
        &SLogger::staticMetaObject,
        &SPluggableServerVersion::staticMetaObject,
        &SPluggableJson::staticMetaObject,
        &SPluggableString::staticMetaObject,
        &SPluggableStringList::staticMetaObject,
        &Compression::SLz4Device::staticMetaObject,
        &Compression::SPackBitsDevice::staticMetaObject,
        &Compression::STiffLZWDevice::staticMetaObject,
        &Compression::SZipDevice::staticMetaObject,
        &SProgress::staticMetaObject,
        &SServerController::staticMetaObject,
        &SServerFtp::staticMetaObject,
        &SServerFtpRequester::staticMetaObject,
        &SSignalResult::staticMetaObject,
        &SSimpleBackgroundRunner::staticMetaObject,
        &SSimpleProgress::staticMetaObject,
        &STcpServer::staticMetaObject,
        &STcpSocket::staticMetaObject,
        &STcpSocketSpeedController::staticMetaObject,
    };
    return list;
}

//! Every class of ours above the leaves, and the leaves, by its name without namespaces.
QMap<QString, const QMetaObject *> classes()
{
    QMap<QString, const QMetaObject *> result;
    for (const QMetaObject *type : leaves()) {
        for (; type; type = type->superClass()) {
            const QString name = QString::fromLatin1(type->className());
            if (name.startsWith("Talverine::"_L1))
                result.insert(name.section(u"::"_s, -1), type);
        }
    }
    return result;
}

//! The exported classes that the headers declare with Q_OBJECT, without namespaces.
QList<QString> declaredClasses()
{
    static const QRegularExpression declaration(
        u"^class BRIX\\w+_EXPORT (\\w+)[^;{]*\\{\\s*Q_OBJECT"_s,
        QRegularExpression::MultilineOption);
    QSet<QString> names;
    QDirIterator files(QStringLiteral(BRIX_PROJECT "/src"), {u"*.h"_s}, QDir::Files,
                       QDirIterator::Subdirectories);
    while (files.hasNext()) {
        QFile file(files.next());
        if (!file.open(QIODevice::ReadOnly))
            return {};
        auto matches = declaration.globalMatch(QString::fromUtf8(file.readAll()));
        while (matches.hasNext())
            names.insert(matches.next().captured(1));
    }
    QList<QString> sorted = names.values();
    sorted.sort();
    return sorted;
}

} // namespace

class tst_SignalTypes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void noClassIsLeftOut() { QCOMPARE(classes().keys().join(u' '), declaredClasses().join(u' ')); }

    void everyArgumentIsKnownByItsName_data()
    {
        QTest::addColumn<const QMetaObject *>("type");
        const QMap<QString, const QMetaObject *> rows = classes();
        for (auto row = rows.begin(); row != rows.end(); ++row)
            QTest::newRow(qPrintable(row.key())) << row.value();
    }

    void everyArgumentIsKnownByItsName()
    {
        QFETCH(const QMetaObject *, type);
        QStringList unknown;
        for (int i = type->methodOffset(); i < type->methodCount(); ++i) {
            const QMetaMethod method = type->method(i);
            for (const QByteArray &name : method.parameterTypes()) {
                if (!QMetaType::fromName(name).isValid())
                    unknown.append(QString::fromLatin1(method.methodSignature() + ": " + name));
            }
        }
        QCOMPARE(unknown.join("; "_L1), QString());
    }
};

QTEST_APPLESS_MAIN(tst_SignalTypes)
#include "tst_signaltypes.moc"
