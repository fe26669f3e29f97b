// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/sfileentry.h>

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace Brix {

//! Bytes of the storage that holds the server's current folder.
struct Storage
{
    qint64 available = 0;
    qint64 total = 0;
    qint64 free = 0;
    QByteArray type;
};

//! What came back from one command; each fills what it has.
struct Answer
{
    bool result = false;
    QString text;
    QStringList names;
    QByteArray bytes;
    QList<Talverine::SFileEntry> entries;
    Storage storage;
    //! Of a link test, in bytes per second.
    double uploadRate = 0;
    double downloadRate = 0;
    //! Of a file's transfer: it has begun, and all its bytes have moved.
    bool isStarted = false;
    bool isMoved = false;
    //! The exchange failed by the server's own word.
    bool isRefused = false;
    //! The exchange failed because its reply was larger than allowed, or than the memory.
    bool isTooLarge = false;
    //! Why a file of this machine ended the exchange; empty when it did not.
    QString localError;
    qint64 moved = 0; //!< bytes so far
    qint64 size = 0;  //!< bytes that there are, as the sender says
};

} // namespace Brix
