// SPDX-License-Identifier: MIT
#pragma once

#include <brixrt/brixrt_export.h>

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayView>
#include <QtCore/QString>

class QFileDevice;
class QIODevice;

namespace Talverine {

/*!
 * What is done with whole files and devices.
 *
 * Thread: a device belongs to its own thread; deleteFileOnExit() is fully shared.
 */
class BRIXRT_EXPORT SFileHelper
{
public:
    SFileHelper() = default;

    /*!
     * Copies \a source from where it stands to its end onto \a target where that stands, in pieces
     * of \a bufferSize bytes, or smaller ones if a device limits its speed; each piece read is one
     * write unless the target takes less at once.
     *
     * A closed target is opened write-only and a closed source read-only, and what was opened here
     * is closed again. False when a device is null or can't be opened, when reading or writing
     * fails, or when \a target takes no more; what was written stays. A source that has nothing to
     * give is at its end.
     */
    [[nodiscard]] static bool copyDevice(QIODevice *target, QIODevice *source, int bufferSize);

    /*!
     * Writes \a bytes to an open device in as many calls as it takes. False when one fails or takes
     * nothing; what was written stays.
     */
    [[nodiscard]] static bool writeAll(QIODevice *target, QByteArrayView bytes);

    /*!
     * Up to \a size bytes of \a device, fewer at its end, when reading fails or memory runs out.
     * The memory grows with what has been read, by \a bufferSize bytes at first, so a \a size that
     * some file merely claims costs nothing.
     */
    static QByteArray readAllBuffer(QIODevice *device, qint64 size, int bufferSize);
    //! The same in place of what \a data held, whose memory serves again.
    static void readAllBuffer(QIODevice *device, qint64 size, int bufferSize, QByteArray *data);

    /*!
     * Returns whether both paths lead to the same file: by the same name, through symbolic links,
     * or as hard links. False when either file does not exist or cannot be examined.
     */
    [[nodiscard]] static bool isSameFile(const QString &a, const QString &b);
    /*!
     * The same for two file devices. An open QFile counts as the file that it has open, also when
     * it was opened by handle or its name leads to another file by now. Any other device counts as
     * the file that its name leads to.
     */
    [[nodiscard]] static bool isSameFile(const QFileDevice &a, const QFileDevice &b);

    /*!
     * Removes the file \a fileName when the program ends: when its QCoreApplication is destroyed,
     * or when main() has returned or exit() is called. A relative path is resolved at once. What
     * ends the program otherwise leaves the file.
     */
    static void deleteFileOnExit(const QString &fileName);
};

} // namespace Talverine
