// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/fileservice/commands/filefilterflags.h>
#include <brixlib/protocol/scommand.h>

#include <QtCore/QString>

namespace Talverine {

//! What a command that searches files on the server holds.
class BRIXLIB_EXPORT SCommandFileFilter : public SCommand
{
public:
    bool operator==(const SCommandFileFilter &other) const = default;

    //! The directory that is searched.
    QString path() const { return m_path; }
    void setPath(const QString &path) { m_path = path; }
    //! Wildcard patterns divided by ";", blanks in them ignored; empty for all files.
    QString filters() const { return m_filters; }
    void setFilters(const QString &filters) { m_filters = filters; }
    //! The client's directory that the files go to.
    QString targetPath() const { return m_targetPath; }
    void setTargetPath(const QString &targetPath) { m_targetPath = targetPath; }
    FileFilterFlags flags() const { return m_flags; }
    void setFlags(const FileFilterFlags &flags) { m_flags = flags; }
    //! Sets all fields back; id and version stay.
    void clear();

protected:
    SCommandFileFilter() = default;

    void init(const SCommandId &id, const QString &path, const QString &filters,
              const QString &targetPath, const FileFilterFlags &flags, int version);

    void readFields(QDataStream &stream);
    void writeFields(QDataStream &stream) const;

private:
    QString m_path;
    QString m_filters;
    QString m_targetPath;
    FileFilterFlags m_flags = FileFilterFlags::None;
};

} // namespace Talverine
