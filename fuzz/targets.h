// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>

//! The targets; the form of its input stands at each one's definition.
namespace Fuzz {

bool clientDevice(const QByteArray &input);
bool clientReplies(const QByteArray &input);
bool commands(const QByteArray &input);
bool compressedFile(const QByteArray &input);
bool credentials(const QByteArray &input);
bool databaseFiles(const QByteArray &input);
bool databaseHead(const QByteArray &input);
bool databaseRecords(const QByteArray &input);
bool entryList(const QByteArray &input);
bool fieldText(const QByteArray &input);
bool indexFile(const QByteArray &input);
bool ioBuffer(const QByteArray &input);
bool lz4(const QByteArray &input);
bool lzw(const QByteArray &input);
bool packBits(const QByteArray &input);
bool pluggables(const QByteArray &input);
bool replies(const QByteArray &input);
bool serverSession(const QByteArray &input);
bool userFile(const QByteArray &input);
bool zip(const QByteArray &input);

} // namespace Fuzz
