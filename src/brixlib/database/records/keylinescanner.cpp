// SPDX-License-Identifier: MIT
#include "keylinescanner_p.h"

#include <new>

namespace Talverine {

KeyLineScanner::KeyLineScanner(QIODevice *device, const QString &keyName, qint64 position,
                               qsizetype blockBytes)
    : m_lines(device, position, blockBytes)
    , m_keyName(keyName)
    , m_filter(keyName)
{
}

std::optional<KeyLine> KeyLineScanner::next()
{
    try {
        return findNext();
    } catch (const std::bad_alloc &) {
        m_isOutOfMemory = true;
        return std::nullopt;
    }
}

std::optional<KeyLine> KeyLineScanner::findNext()
{
    const auto wanted = [this](QByteArrayView line, bool isWhole) {
        return isWhole ? m_filter.mayMatch(line) : m_filter.mayMatchBeginning(line);
    };
    QByteArrayView line;
    while (m_lines.next(&line, wanted)) {
        std::optional<FieldLine> field = parseFieldLine(line);
        if (field && field->name == m_keyName)
            return KeyLine{std::move(*field), m_lines.position()};
    }
    return std::nullopt;
}

} // namespace Talverine
