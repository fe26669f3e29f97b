// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/compression/icompressor.h>

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <memory>
#include <optional>

//! The library's compressors by the names that the command line has for them.
namespace Brix::Compressors {

using Talverine::Compression::Interfaces::ICompressor;

struct Algorithm
{
    QString name;
    //! Whether a compressed stream of it is a row of blocks.
    bool hasBlocks = false;
    //! Lowest and highest level; equal where there is no choice.
    int lowestLevel = 0;
    int highestLevel = 0;
    std::unique_ptr<ICompressor> (*make)(int level) = nullptr;
};

//! All names, the default first.
QStringList names();
//! Nothing for a name that is none.
std::optional<Algorithm> byName(const QString &name);
//! The algorithm of a compressed file that begins with these bytes; nothing when it is none.
std::optional<Algorithm> byHead(const QByteArray &head);

} // namespace Brix::Compressors
