// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QTemporaryDir>

namespace Fuzz {

//! The folder for the folders of targets that need files: in memory, where file operations are much
//! faster, unless TMPDIR says otherwise.
QString scratchPlace();

/*!
 * A home folder on the disk with a few files in it, for targets that carry out file operations:
 *
 *     a.txt  empty.txt  folder/b.bin  folder/deeper/c.txt
 *
 * The name of the folder that it stands in is not to be guessed, so no path of an input leads
 * there by chance.
 */
class ScratchFolder
{
public:
    ScratchFolder();

    QString home() const;
    /*!
     * Makes the contents as told above again, if they are not. Ends the program before when
     * something stands beside the home folder; what begins like its name is let through, as the
     * jail does.
     */
    void restore();

private:
    void fill();
    void requireNothingOutside() const;
    QByteArray state() const;

    QTemporaryDir m_outside;
    QByteArray m_stateWhenFilled;
};

} // namespace Fuzz
