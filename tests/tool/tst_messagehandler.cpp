// SPDX-License-Identifier: MIT
#include <process/logwriter.h>
#include <process/messagehandler.h>

#include <QtCore/QDir>
#include <QtCore/QTemporaryDir>
#include <QtTest/QTest>

using namespace Brix;
using namespace Qt::StringLiterals;

class tst_MessageHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void messageWithForeignBytesIsOneLineOfTheLog()
    {
        const QTemporaryDir dir;
        const QString name = dir.filePath(u"log"_s);
        auto file = std::make_unique<QFile>(name);
        QVERIFY(file->open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        const QtMessageHandler before = qInstallMessageHandler(nullptr);
        installMessageHandler();
        {
            LogWriter writer(std::move(file));
            const MessageRedirection redirection(&writer);
            // Qt warns of the bytes that it was given, as they are.
            QDir().mkpath(QString());
            qWarning().noquote() << u"name\n[1] login of root\x1b[31m\u202e"_s;
        }
        qInstallMessageHandler(before);
        QFile log(name);
        QVERIFY(log.open(QIODevice::ReadOnly));
        const QByteArray text = log.readAll();
        QVERIFY2(text.endsWith("name\\n[1] login of root\\u{1B}[31m\\u{202E}\n"), text.constData());
        QCOMPARE(text.count('\n'), 2);
        QVERIFY2(text.startsWith("QDir::mkpath: Empty or null file name\n"), text.constData());
    }
};

QTEST_GUILESS_MAIN(tst_MessageHandler)
#include "tst_messagehandler.moc"
