// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandgetdev.h>
#include <brixlib/fileservice/commands/scommandsenddev.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_SCommandIODevice : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshCommandHasNoDevice()
    {
        const SCommandGetDev command(u"/a"_s);
        QCOMPARE(command.fileName(), u"/a"_s);
        QVERIFY(!command.device());
        QVERIFY(!command.deviceOwnership());
    }

    void deviceStaysTheCallers()
    {
        auto device = std::make_unique<QBuffer>();
        const QPointer<QBuffer> watch(device.get());
        {
            const SCommandSendDev command(u"/a"_s, device.get());
            QCOMPARE(command.device(), device.get());
            QVERIFY(!command.deviceOwnership());
        }
        QVERIFY(watch);
    }

    void ownedDeviceEndsWithTheCommand()
    {
        const QPointer<QBuffer> watch(new QBuffer);
        {
            SCommandGetDev command(u"/a"_s, watch);
            command.setDeviceOwnership(true);
            QVERIFY(command.deviceOwnership());
        }
        QVERIFY(!watch);
    }

    void deviceThatIsGoneIsNull()
    {
        auto device = std::make_unique<QBuffer>();
        SCommandGetDev command(u"/a"_s, device.get());
        command.setDeviceOwnership(true);
        device.reset();
        QVERIFY(!command.device());
    }

    void copiesOfAnOwnerAllOwnAndTheFirstDeletes()
    {
        const QPointer<QBuffer> watch(new QBuffer);
        auto owner = std::make_unique<SCommandGetDev>(u"/a"_s, watch);
        owner->setDeviceOwnership(true);
        const std::unique_ptr<SCommand> copy(owner->clone());
        QVERIFY(copy->equalsTo(owner.get()));
        owner.reset();
        QVERIFY(!watch);
        QVERIFY(!static_cast<const SCommandGetDev &>(*copy).device());
    }

    void letGoOfDeviceLives()
    {
        QBuffer first;
        QBuffer second;
        SCommandGetDev command(u"/a"_s, &first);
        command.setDeviceOwnership(true);
        command.setDevice(&second);
        QCOMPARE(command.device(), &second);
        command.clear();
        QVERIFY(!command.device());
        QVERIFY(!command.deviceOwnership());
        QVERIFY(command.fileName().isEmpty());
        QCOMPARE(command.id(), CommandIds::kGetDev);
    }

    void readingIntoAnOwnerLetsGoOfItsDevice()
    {
        QBuffer device;
        SCommandGetDev command(u"/a"_s, &device);
        command.setDeviceOwnership(true);
        QByteArray bytes;
        QVERIFY(command.serializeArray(bytes));
        QVERIFY(!command.deserializeArray(bytes.chopped(1)));
        QCOMPARE(command.device(), &device);
        QVERIFY(command.deviceOwnership());
        QVERIFY(command.deserializeArray(bytes));
        QVERIFY(!command.device());
        QVERIFY(!command.deviceOwnership());
    }

    void onlyTheNameTravels()
    {
        QBuffer device;
        const SCommandGetDev command(u"/a"_s, &device);
        QByteArray bytes;
        QVERIFY(command.serializeArray(bytes));
        SCommandGetDev read(u"/b"_s, &device);
        QVERIFY(read.deserializeArray(bytes));
        QVERIFY(read == SCommandGetDev(u"/a"_s));
        QVERIFY(!read.device());
    }

    void everyFieldCounts()
    {
        QBuffer device;
        const SCommandGetDev command(u"/a"_s, &device);
        SCommandGetDev other = command;
        QVERIFY(command == other);
        other.setFileName(u"/b"_s);
        QVERIFY(command != other);
        QVERIFY(command != SCommandGetDev(u"/a"_s));
        QVERIFY(command == SCommandGetDev(u"/a"_s, &device));
        const SCommandSendDev otherClass(u"/a"_s, &device);
        QVERIFY(!command.equalsTo(&otherClass));
    }
};

QTEST_APPLESS_MAIN(tst_SCommandIODevice)
#include "tst_scommandiodevice.moc"
