// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/database/records/sdbrecord.h>

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QString>

#include <functional>

namespace Brix {

/*!
 * Follows a log that other programs write, without locking it. What a rotation took away before it
 * was told comes from the backup. A log that was rotated, restored or purged is a new file, or the
 * old one written anew: its entries that are younger than those that came before are told then.
 *
 * Lives in one thread.
 */
class LogTail final
{
public:
    using Use = std::function<void(const Talverine::SDBRecord &entry)>;

    explicit LogTail(const QString &file);

    /*!
     * Calls \a use with each entry that is whole and has come since the last call; with all of them
     * in the first one. A log that is missing has none. Throws Failure, and what \a use throws.
     */
    void read(const Use &use);

private:
    void readRestOfBackup(const Use &use);
    void readFrom(const QString &file, qint64 position, const Use &use);
    bool goesOnIn(const QString &file) const;
    QByteArray bytesBeforeEnd(const QString &file) const;

    QString m_file;
    qint64 m_end = 0;       // behind the last entry that was told
    QByteArray m_lastBytes; // those before that
    QDateTime m_youngest;
    QDateTime m_youngerThan; // in a new file: what is not younger was told already
};

} // namespace Brix
