// SPDX-License-Identifier: MIT
#pragma once

#include "fieldline_p.h"
#include "linereader_p.h"

namespace Talverine {

//! A key line, and where it begins.
struct KeyLine
{
    FieldLine field;
    qint64 position = 0;
};

/*!
 * Finds the key lines of a database, those of deleted records too, from a position to the end.
 * Other lines are passed over without being decoded or held, however long they are.
 */
class KeyLineScanner
{
public:
    KeyLineScanner(QIODevice *device, const QString &keyName, qint64 position,
                   qsizetype blockBytes = LineReader::kScanBytes);

    std::optional<KeyLine> next();

    //! The reader behind the last key line.
    LineReader &lines() { return m_lines; }
    bool hasFailed() const { return m_lines.hasFailed() || m_isOutOfMemory; }

private:
    std::optional<KeyLine> findNext();

    LineReader m_lines;
    QString m_keyName;
    FieldLineFilter m_filter;
    bool m_isOutOfMemory = false;
};

} // namespace Talverine
