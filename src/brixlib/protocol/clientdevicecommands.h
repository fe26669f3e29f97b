// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

namespace Talverine {

//! The requests by which a client drives a file of the server as a device. The numbers travel as
//! big-endian words and stay fixed.
enum class ClientDeviceCommands : quint32 {
    Open = 1,  //!< with a word, the open mode; reply: one byte, the result
    Close = 2, //!< no reply but the completion word: the session goes on without the device
    Seek = 3,  //!< with a 64-bit position; reply: one byte, the result
    Size = 4,  //!< reply: a 64-bit size
    Read = 5,  //!< with a 64-bit count; reply: a 64-bit count and so many bytes
    Write = 6, //!< with a 64-bit count and so many bytes; no reply
    AtEnd = 7, //!< reply: one byte, the result
};

} // namespace Talverine
