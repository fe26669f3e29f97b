// SPDX-License-Identifier: MIT
// Checks that hold for the serialised form of every command, over rows of bytes written by hand.
#pragma once

#include <shared/memorypeak.h>
#include <shared/streamversionscope.h>

#include <brixlib/protocol/scommand.h>

#include <QtCore/QtEndian>
#include <QtTest/QTest>

#include <limits>
#include <memory>

namespace TestShared {

using Command = std::shared_ptr<const Talverine::SCommand>;

//! Offsets in the body of a command.
enum HeaderOffset { MagicAt = 0, VersionAt = 4, IdMagicAt = 8, IdVersionAt = 12, IdAt = 16 };
constexpr int kHeaderBytes = 20;

struct CommandForm
{
    QByteArray bytes; //!< what stands on the wire
    Command written;  //!< what is written as these bytes
    Command read;     //!< what these bytes are read as
    Command other;    //!< the same class with other values, to read into
};

} // namespace TestShared

Q_DECLARE_METATYPE(TestShared::CommandForm)

namespace TestShared {

//! A table of forms, each under a name.
class CommandForms
{
public:
    struct Row
    {
        QByteArray name;
        CommandForm form;
    };

    const QList<Row> &rows() const { return m_rows; }

    //! Begins the data of a test with the column "form".
    static void addColumn() { QTest::addColumn<CommandForm>("form"); }
    //! Makes each form a row of the data.
    void addRows() const
    {
        for (const Row &row : m_rows)
            QTest::newRow(row.name.constData()) << row.form;
    }

protected:
    void add(const QByteArray &name, const CommandForm &form) { m_rows.append({name, form}); }

private:
    QList<Row> m_rows;
};

inline QByteArray hex(const QByteArray &digits)
{
    return QByteArray::fromHex(digits);
}

template<class C>
Command made(const C &command, int version)
{
    auto copy = std::make_shared<C>(command);
    copy->setVersion(version);
    return copy;
}

inline std::unique_ptr<Talverine::SCommand> cloned(const Command &command)
{
    return std::unique_ptr<Talverine::SCommand>(
        static_cast<Talverine::SCommand *>(command->clone()));
}

inline QByteArray withWord(QByteArray bytes, qsizetype offset, quint32 word)
{
    qToBigEndian(word, bytes.data() + offset);
    return bytes;
}

inline constexpr QDataStream::Version kStreamVersions[] = {QDataStream::Qt_5_6,
                                                           QDataStream::Qt_6_0};

inline void verifyWritten(const CommandForm &form)
{
    for (const auto version : kStreamVersions) {
        const StreamVersionScope scope(version);
        QByteArray bytes;
        QVERIFY(form.written->serializeArray(bytes));
        QCOMPARE(bytes.toHex(' '), form.bytes.toHex(' '));
    }
}

//! Reads \a bytes at both stream versions, which must give \a form.read.
inline void verifyRead(const CommandForm &form, const QByteArray &bytes)
{
    for (const auto version : kStreamVersions) {
        const StreamVersionScope scope(version);
        const auto target = cloned(form.other);
        QVERIFY(!target->equalsTo(form.read.get()));
        QVERIFY(target->deserializeArray(bytes));
        QVERIFY(target->equalsTo(form.read.get()));
        QCOMPARE(target->version(), form.read->version());
    }
}

//! Reads \a bytes at both stream versions, which must fail and leave the target as it was.
inline void verifyRefused(const CommandForm &form, const QByteArray &bytes)
{
    for (const auto version : kStreamVersions) {
        const StreamVersionScope scope(version);
        const auto target = cloned(form.other);
        QVERIFY(!target->deserializeArray(bytes));
        QVERIFY(target->equalsTo(form.other.get()));
    }
}

//! The same command at another version: only that word of the header differs, and it is taken over.
inline void verifyVersion(const CommandForm &form, int version)
{
    auto versioned = cloned(form.read);
    versioned->setVersion(version);
    const Command command(std::move(versioned));
    const QByteArray bytes = withWord(form.bytes, VersionAt, static_cast<quint32>(version));
    const CommandForm other{bytes, command, command, form.other};
    verifyWritten(other);
    verifyRead(other, bytes);
}

//! The versions that any command may have on the wire: those in use, and the extremes.
inline QList<int> versionsFromPeers()
{
    constexpr auto lowest = std::numeric_limits<int>::min();
    constexpr auto highest = std::numeric_limits<int>::max();
    return {0x00010000, 0x00010100, 0x00010200, 0x00020000, 0, -1, lowest, highest};
}

inline void verifyRefusedAtEveryTruncation(const CommandForm &form)
{
    for (qsizetype size = 0; size < form.bytes.size(); ++size) {
        verifyRefused(form, form.bytes.first(size));
        if (QTest::currentTestFailed())
            QFAIL(qPrintable(QStringLiteral("cut to %1 bytes").arg(size)));
    }
}

inline void verifyRefusedForEveryWrongMagic(const CommandForm &form)
{
    for (const int word : {MagicAt, IdMagicAt, IdAt}) {
        for (int bit = 0; bit < 32; ++bit) {
            QByteArray bytes = form.bytes;
            const qsizetype at = word + bit / 8;
            bytes[at] = static_cast<char>(bytes.at(at) ^ (1 << bit % 8));
            verifyRefused(form, bytes);
            if (QTest::currentTestFailed())
                QFAIL(qPrintable(QStringLiteral("bit %1 of word at %2").arg(bit).arg(word)));
        }
    }
}

inline void verifyIdRecordVersionIgnored(const CommandForm &form)
{
    for (const quint32 word : {0u, 1u, 0x00020000u, 0xFFFFFFFFu})
        verifyRead(form, withWord(form.bytes, IdVersionAt, word));
}

inline void verifySpareBytesAccepted(const CommandForm &form)
{
    verifyRead(form, form.bytes + '\0');
    verifyRead(form, form.bytes + form.bytes);
    verifyRead(form, form.bytes + QByteArray(64, '\xFF'));
}

/*!
 * Puts lengths that the bytes do not have at every place of the fields: whatever the result, the
 * memory for the claim must not be spent. Each claim is looked at by itself, since a sanitizer
 * keeps what all of them together have freed.
 */
inline void verifyClaimsCostNoMemory(const CommandForm &form)
{
    constexpr qint64 limitBytes = 16 * 1024 * 1024;
    const MemoryPeak peak;
    QVERIFY(peak.isValid());
    qint64 before = 0;
    for (qsizetype at = kHeaderBytes; at + 4 <= form.bytes.size(); ++at) {
        for (const quint32 claim : {0x7FFFFFFEu, 0x80000000u, 0xFFFFFFFEu, 0x7FFFFFFFu}) {
            const auto target = cloned(form.other);
            if (!target->deserializeArray(withWord(form.bytes, at, claim)))
                QVERIFY(target->equalsTo(form.other.get()));
            const qint64 growth = peak.growth();
            QVERIFY2(growth - before < limitBytes, qPrintable(QString::number(growth - before)));
            before = growth;
        }
    }
}

} // namespace TestShared
