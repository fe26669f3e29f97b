// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/scommand.h>

#include <QtCore/QString>

namespace Talverine {

/*!
 * What the commands that move one file, or a directory in the old form, share. Which fields travel
 * depends on the command's version: the size below 2.0.0, the name always, the target above 1.1.0,
 * the removal above 1.0.0. What does not travel keeps its default at the reader.
 */
class BRIXLIB_EXPORT SCommandFile : public SCommand
{
public:
    bool operator==(const SCommandFile &other) const = default;

    /*!
     * In bytes: the size of the local file of the name fileName() when the command was built, 0 if
     * there is none. From a peer it is whatever the peer says, negative included.
     */
    qint64 fileSize() const { return m_fileSize; }
    //! The path that the transfer reads from.
    QString fileName() const { return m_fileName; }
    //! With \a updateSize, fileSize() is taken anew from the local file of that name.
    void setFileName(const QString &fileName, bool updateSize);
    //! The path that the transfer writes to; when none is set, the name part of fileName().
    QString targetFileName() const;
    void setTargetFileName(const QString &targetFileName) { m_targetFileName = targetFileName; }
    //! Whether the source is deleted when the transfer is done.
    bool removeFile() const { return m_removeFile; }
    void setRemoveFile(bool removeFile) { m_removeFile = removeFile; }
    //! Sets all fields back; id and version stay.
    void clear();

protected:
    SCommandFile() = default;

    //! Sets everything, fileSize() from the local file of that name.
    void init(const SCommandId &id, const QString &fileName, const QString &targetFileName,
              bool removeFile, int version);
    void setFileSize(qint64 bytes) { m_fileSize = bytes; }

    void readFields(QDataStream &stream);
    void writeFields(QDataStream &stream) const;

private:
    qint64 m_fileSize = 0;
    QString m_fileName;
    QString m_targetFileName;
    bool m_removeFile = false;
};

} // namespace Talverine
