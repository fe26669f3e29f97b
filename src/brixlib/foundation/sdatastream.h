// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>

#include <QtCore/QDataStream>

namespace Talverine {

/*!
 * A QDataStream that starts at the stream version of the thread that makes it.
 *
 * Each end of a connection lives in a thread of its own, so the version the two ends have agreed on
 * reaches every record they write without being passed along. A stream lives in one thread; the
 * static calls may come from any.
 *
 *     SDataStream::setDefaultVersion(QDataStream::Qt_6_0); // for this thread
 *     QByteArray bytes;
 *     SDataStream stream(&bytes, QIODevice::WriteOnly);
 */
class BRIXLIB_EXPORT SDataStream : public QDataStream
{
public:
    SDataStream();
    //! Reads \a bytes.
    explicit SDataStream(const QByteArray &bytes);
    //! Works on \a bytes, which must outlive the stream.
    SDataStream(QByteArray *bytes, QIODeviceBase::OpenMode mode);
    //! Works on \a device, which stays the caller's and must be open.
    explicit SDataStream(QIODevice *device);

    //! The calling thread's version: what it has set, else QDataStream::Qt_5_6 (17).
    static QDataStream::Version defaultVersion();
    //! Sets the calling thread's version; it is forgotten when that thread ends.
    static void setDefaultVersion(const QDataStream::Version &version);
};

} // namespace Talverine
