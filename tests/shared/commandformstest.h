// SPDX-License-Identifier: MIT
// What holds for the serialised form of every command. The source of a test program that includes
// this ends with "shared/moc_commandformstest.cpp" too.
#pragma once

#include <shared/commandforms.h>

namespace TestShared {

//! The slots of this class are tests of each class that is derived from it.
class CommandFormsTest : public QObject
{
    Q_OBJECT

protected:
    //! Adds the forms of the derived class's commands to the table of a test.
    virtual void addRows() const = 0;
    //! Of these only those that do not change with the version in their head.
    virtual void addRowsOfAnyVersion() const { addRows(); }

private Q_SLOTS:
    void writes_data() { addForms(); }
    void writes()
    {
        QFETCH(const CommandForm, form);
        verifyWritten(form);
    }

    void reads_data() { addForms(); }
    void reads()
    {
        QFETCH(const CommandForm, form);
        verifyRead(form, form.bytes);
    }

    void headerVersionIsTakenAndChangesNoOtherByte_data()
    {
        CommandForms::addColumn();
        addRowsOfAnyVersion();
    }
    void headerVersionIsTakenAndChangesNoOtherByte()
    {
        QFETCH(const CommandForm, form);
        for (const int version : versionsFromPeers())
            verifyVersion(form, version);
    }

    void truncationAtEveryByteIsRefused_data() { addForms(); }
    void truncationAtEveryByteIsRefused()
    {
        QFETCH(const CommandForm, form);
        verifyRefusedAtEveryTruncation(form);
    }

    void everyWrongMagicAndIdIsRefused_data() { addForms(); }
    void everyWrongMagicAndIdIsRefused()
    {
        QFETCH(const CommandForm, form);
        verifyRefusedForEveryWrongMagic(form);
    }

    void wordAtIdRecordVersionMayBeAnything_data() { addForms(); }
    void wordAtIdRecordVersionMayBeAnything()
    {
        QFETCH(const CommandForm, form);
        verifyIdRecordVersionIgnored(form);
    }

    void spareBytesAreAccepted_data() { addForms(); }
    void spareBytesAreAccepted()
    {
        QFETCH(const CommandForm, form);
        verifySpareBytesAccepted(form);
    }

    void claimedLengthsCostNoMemory_data() { addForms(); }
    void claimedLengthsCostNoMemory()
    {
        QFETCH(const CommandForm, form);
        verifyClaimsCostNoMemory(form);
    }

private:
    void addForms()
    {
        CommandForms::addColumn();
        addRows();
    }
};

} // namespace TestShared
