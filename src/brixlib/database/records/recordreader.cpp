// SPDX-License-Identifier: MIT
#include "recordreader_p.h"

#include <brixlib/database/records/sdbrecord.h>

#include <brixrt/sconvert.h>

#include <limits>
#include <new>

namespace Talverine {

RecordReader::RecordReader(QIODevice *device, const QString &keyName, qint64 position,
                           qsizetype blockBytes)
    : m_keyLines(device, keyName, position, blockBytes)
    , m_keyName(keyName)
    , m_recordLimit(std::numeric_limits<qint64>::max())
{
}

bool RecordReader::next(SDBRecord *record)
{
    record->clear();
    m_isEndedByKeyLine = false;
    try {
        if (!findBegin(record))
            return false;
        readRest(record);
        return true;
    } catch (const std::bad_alloc &) {
        record->clear();
        m_isOutOfMemory = true;
        return false;
    }
}

bool RecordReader::findBegin(SDBRecord *record)
{
    std::optional<KeyLine> line;
    do {
        line = m_keyLines.next();
    } while (line && line->field.isDeletedKey());
    if (!line)
        return false;
    m_key = line->field.value.toString();
    m_position = line->position;
    record->insert(m_keyName, SConvert::toVariant(m_key, QString(), m_locale));
    return true;
}

void RecordReader::readRest(SDBRecord *record)
{
    LineReader &lines = m_keyLines.lines();
    QByteArrayView line;
    qint64 bytes = 0;
    while (lines.next(&line)) {
        const std::optional<FieldLine> field = parseFieldLine(line);
        if (!field)
            continue;
        if (field->name == m_keyName) {
            lines.unread();
            m_isEndedByKeyLine = true;
            return;
        }
        bytes += line.size();
        if (bytes > m_recordLimit)
            return;
        record->append(field->name.toString(),
                       SConvert::toVariant(field->value.toString(), QString(), m_locale));
    }
}

} // namespace Talverine
