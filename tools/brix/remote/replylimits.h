// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

#include <optional>

namespace Talverine {
class SClientBase;
}

namespace Brix {

//! Largest reply that has one name or a list of commands.
constexpr qint64 kShortReplyBytes = qint64(1) << 20;
//! Largest listing, list of names or output of a pluggable: a listing of a million files.
constexpr qint64 kLongReplyBytes = qint64(256) << 20;

//! Bounds each kind of reply that \a client reads, by \a bytes if set; 0 sets no limit. Must be
//! called before the client connects.
void limitReplies(Talverine::SClientBase *client, std::optional<qint64> bytes);

} // namespace Brix
