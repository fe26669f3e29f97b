// SPDX-License-Identifier: MIT
#pragma once

#include "keylinescanner_p.h"

#include <QtCore/QLocale>

namespace Talverine {

class SDBRecord;

/*!
 * Reads the records of a database one after the other from a position on, those that are not
 * deleted. A record begins with its key line and ends before the next one, whosever that is.
 */
class RecordReader
{
public:
    RecordReader(QIODevice *device, const QString &keyName, qint64 position,
                 qsizetype blockBytes = LineReader::kScanBytes);

    //! Ends a record whose lines would be longer together, blanks and comments not counted; no
    //! limit unless this is called.
    void setRecordLimit(qint64 bytes) { m_recordLimit = bytes; }

    //! The next record; cleared, with false, when there is none.
    bool next(SDBRecord *record);

    //! The key of the last record as it is read, and the offset of its key line.
    const QString &key() const { return m_key; }
    qint64 position() const { return m_position; }
    //! Whether the next key line ended the last record, and not the file or the limit.
    bool isEndedByKeyLine() const { return m_isEndedByKeyLine; }
    //! Whether seeking or reading failed, so that the last record may lack its end, or memory ran
    //! out, so that there is none.
    bool hasFailed() const { return m_keyLines.hasFailed() || m_isOutOfMemory; }

private:
    bool findBegin(SDBRecord *record);
    void readRest(SDBRecord *record);

    KeyLineScanner m_keyLines;
    QString m_keyName;
    QLocale m_locale;
    qint64 m_recordLimit;
    QString m_key;
    qint64 m_position = -1;
    bool m_isEndedByKeyLine = false;
    bool m_isOutOfMemory = false;
};

} // namespace Talverine
