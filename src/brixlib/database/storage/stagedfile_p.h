// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QFile>
#include <QtCore/QString>

namespace Talverine {

/*!
 * The next content of a file. It is written to another file in the same directory, flushed to the
 * disk, and put in the place of the old content in one step: whatever stops the program or the
 * machine, the file has the whole old content or the whole new one.
 *
 *     StagedFile staged(fileName);
 *     if (!staged.open() || !write(staged.device()) || !staged.sync() || !staged.putInPlace())
 *         return false;
 *
 * A link is followed unless the staged file has a name of its own: the file that it leads to gets
 * the new content. Of a file with several names (hard links) the others keep the old content.
 *
 * Whoever uses one holds a lock for the file: the name of the staged file is always the same, so
 * that removeRemains() finds what a killed program has left.
 */
class StagedFile final
{
public:
    //! For \a target, which need not exist. With \a stagedName the staged file has that name, which
    //! must be one of the same directory, and a link at the target is replaced, not followed.
    explicit StagedFile(const QString &target, const QString &stagedName = QString());
    //! Removes the staged file unless it was put in place.
    ~StagedFile();
    Q_DISABLE_COPY_MOVE(StagedFile)

    //! Creates the staged file, empty and for its owner alone.
    [[nodiscard]] bool open();
    QFile *device() { return &m_file; }
    /*!
     * Flushes the staged file to the disk and closes it. It has the owner and the permissions of
     * \a model by then, or of the target without a \a model. It stays a file for its owner alone if
     * that file isn't there.
     */
    [[nodiscard]] bool sync(const QString &model = QString());
    //! Replaces the target. Follows sync().
    [[nodiscard]] bool putInPlace();

    //! Removes the staged file that a killed program has left beside \a target.
    static void removeRemains(const QString &target);

private:
    const QString m_target;
    QFile m_file;
    bool m_isOurs = false; //!< the staged file was created here and is still there
};

} // namespace Talverine
