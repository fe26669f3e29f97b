// SPDX-License-Identifier: MIT
#pragma once

#include <brixrt/isenum.h>

#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QPair>
#include <QtCore/QString>

namespace Talverine::Test {

//! A declared key with its value.
using EnumPair = QPair<QString, qint64>;

//! The pairs that the companion class of an enumeration holds, in order of declaration.
template<typename Companion>
QList<EnumPair> declaredPairs()
{
    using Value = typename Companion::Value;
    const Companion &table = Companion::instance();
    QList<EnumPair> pairs;
    QHash<Value, qsizetype> used;
    for (const Value value : table.values()) {
        // The names of a value come latest first.
        const QList<QString> names = table.names(static_cast<typename Companion::Enum>(value));
        pairs.append({names.at(names.size() - 1 - used[value]++), static_cast<qint64>(value)});
    }
    return pairs;
}

} // namespace Talverine::Test
