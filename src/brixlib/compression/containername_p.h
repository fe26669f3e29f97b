// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/compression/icompressor.h>

#include <QtCore/QByteArray>
#include <QtCore/QCryptographicHash>

namespace Talverine::Compression {

//! Bytes of a containerName().
inline constexpr qint64 kContainerNameBytes = 20;

//! The bytes that a compressed file starts with: the SHA-1 hash of the name of its compressor.
inline QByteArray containerName(Interfaces::ICompressor *compressor)
{
    return QCryptographicHash::hash(compressor->name().toUtf8(), QCryptographicHash::Sha1);
}

} // namespace Talverine::Compression
