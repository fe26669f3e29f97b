// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>

#include <QtCore/QString>
#include <QtCore/QUuid>

namespace Talverine {

/*!
 * Gives a file that is being received a temporary name beside its final place, and moves it there
 * once it is whole, so that nobody sees half a file.
 *
 *     SPartialFileManager partial(u"/srv/ann/report.pdf"_s, true);
 *     QFile file(partial.fileName(false)); // /srv/ann/<uuid>.part
 *     … receive into file, close it …
 *     if (!partial.complete())
 *         return false; // the destructor removes what was received
 *
 * A copy names the same partial file: the first of the two to be destroyed deletes it for both, and
 * after the complete() of one that of the other fails. Pass it by reference.
 * The final name is taken through the character rule of the constructor as a whole,
 * folders included.
 *
 * Thread: a value; one thread at a time.
 */
class BRIXLIB_EXPORT SPartialFileManager final
{
public:
    /*!
     * Nothing on disk is touched. Each of the characters ? < > * | " in \a fileName becomes "_",
     * which the debug log tells. With \a deleteIncompleteFile the destructor removes the partial
     * file unless it was completed.
     */
    SPartialFileManager(const QString &fileName, bool deleteIncompleteFile);
    SPartialFileManager(const SPartialFileManager &other);
    //! Copies the four values; the partial file that this object named before is left alone.
    SPartialFileManager &operator=(const SPartialFileManager &other);
    ~SPartialFileManager();

    //! Compares all four values.
    bool operator==(const SPartialFileManager &other) const;
    bool operator!=(const SPartialFileManager &other) const;

    //! The final name if \a final or once completed, else the partial one.
    QString fileName(bool final) const;
    bool deleteIncompleteFile() const;

    /*!
     * Moves the partial file to the final name. An older file of that name is replaced in one step;
     * a link of that name is replaced as well, not what it leads to. Returns false when the move
     * fails; the older file stays then. Once completed, returns whether the final file still
     * exists.
     */
    [[nodiscard]] bool complete();
    bool isCompleted() const;

private:
    QString m_fileName;
    QUuid m_uuid;
    bool m_deleteIncompleteFile;
    bool m_completed = false;
};

} // namespace Talverine
