// SPDX-License-Identifier: MIT
#pragma once

#include <brixrt/brixrt_export.h>

#include <QtCore/QString>

namespace Talverine {

enum class SpecialFolder : int;

/*!
 * What the machine and the process offer: folders, temporary names, the version of Qt.
 *
 * Fully shared: all calls may come from any thread.
 */
class BRIXRT_EXPORT SEnvironment
{
public:
    SEnvironment() = default;

    //! Carriage return and line feed on every system: what ends the lines of our text files.
    static const QString &rawWindowsNewLine();

    /*!
     * Path of the process's own temporary folder, which lies below the system's and which no other
     * user may enter. It exists once someone has asked with \a create, until the program ends, when
     * it is removed with all that is in it; what ends the program otherwise leaves it. Empty when
     * it can't be made.
     *
     * Where the system's temporary folder is in memory, so is this one.
     */
    static QString tempFolder(bool create = false);
    /*!
     * A path that nothing has in \a folder; an empty one stands for tempFolder(true), and the path
     * is empty when that can't be made.
     */
    static QString tempUniqueFileName(const QString &folder = QString());

    //! The user's folder for downloads.
    static QString downloadFolder();
    /*!
     * A standard folder, without a slash at its end; it need not exist. Where the system has none,
     * the user's home, or else the system's temporary folder.
     */
    static QString specialFolder(SpecialFolder folder);

    //! The version of Qt that the program runs with: major << 16 | minor << 8 | patch.
    static quint32 qtRuntimeVersion();
};

} // namespace Talverine
