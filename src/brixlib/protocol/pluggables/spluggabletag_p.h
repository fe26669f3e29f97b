// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayView>

#include <optional>

namespace Talverine {

//! What follows the four letters of \a tag in \a bytes; nothing when they do not begin with it.
inline std::optional<QByteArrayView> afterTag(const QByteArray &bytes, QByteArrayView tag)
{
    if (!bytes.startsWith(tag))
        return std::nullopt;
    return QByteArrayView(bytes).sliced(tag.size());
}

} // namespace Talverine
