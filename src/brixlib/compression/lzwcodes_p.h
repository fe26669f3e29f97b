// SPDX-License-Identifier: MIT
// The codes of the LZW variant of TIFF 6.0. Codes below 256 stand for one byte each, those from
// kLzwFirstCode on for the strings that both ends add to their tables as they go.
#pragma once

#include <QtCore/QtGlobal>

namespace Talverine::Compression {

constexpr quint32 kLzwClearCode = 256;
constexpr quint32 kLzwEndCode = 257;
constexpr quint32 kLzwFirstCode = 258;
constexpr quint32 kLzwTableSize = 4096;
// Bits of a code.
constexpr int kLzwNarrowest = 9;
constexpr int kLzwWidest = 12;

} // namespace Talverine::Compression
