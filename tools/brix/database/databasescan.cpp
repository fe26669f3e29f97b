// SPDX-License-Identifier: MIT
#include "databasescan.h"

#include <cli/failure.h>

namespace Brix {

using namespace Qt::StringLiterals;
using Talverine::SDBField;

namespace {

SDBField fieldOf(const QByteArray &line)
{
    const QString text = QString::fromUtf8(line).trimmed();
    return text.startsWith(u'#') ? SDBField() : SDBField::fromString(text);
}

} // namespace

DatabaseScan::DatabaseScan(const QString &file, const QString &keyName, qint64 position)
    : m_file(file)
    , m_keyName(keyName)
    , m_begin(position)
    , m_end(position)
    , m_wholeEnd(position)
{
    if (!m_file.open(QIODevice::ReadOnly) || !m_file.seek(position))
        throw Failure{ExitCode::LocalIo, u"cannot read %1: %2"_s.arg(file, m_file.errorString())};
}

bool DatabaseScan::next(ScannedRecord *record)
{
    *record = {};
    if (!m_isKeyLine && !readKeyLine())
        return false;
    record->position = m_begin;
    record->key = m_field.value().toString();
    record->line = m_line;
    record->isDeleted = record->key.startsWith(u'$');
    do {
        if (!record->isDeleted && !m_field.isEmpty())
            record->record.append(m_field.key(), m_field.value());
        if (!readLine()) {
            m_begin = m_end;
            break;
        }
    } while (!m_isKeyLine);
    record->bytes = m_begin - record->position;
    return true;
}

bool DatabaseScan::readKeyLine()
{
    while (readLine()) {
        if (m_isKeyLine)
            return true;
    }
    return false;
}

bool DatabaseScan::readLine()
{
    const QByteArray line = m_file.readLine();
    m_isKeyLine = false;
    if (line.isEmpty()) {
        if (m_file.error() != QFileDevice::NoError)
            throw Failure{ExitCode::LocalIo,
                          u"cannot read %1: %2"_s.arg(m_file.fileName(), m_file.errorString())};
        return false;
    }
    ++m_line;
    m_begin = m_end;
    m_end += line.size();
    m_isLineWhole = line.endsWith('\n');
    if (m_isLineWhole)
        m_wholeEnd = m_end;
    m_field = fieldOf(line);
    if (!line.trimmed().isEmpty())
        m_lastName = m_field.key();
    m_isKeyLine = !m_field.isEmpty() && m_field.key() == m_keyName;
    return true;
}

} // namespace Brix
