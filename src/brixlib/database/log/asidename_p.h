// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QList>
#include <QtCore/QString>

#include <optional>

namespace Talverine {

//! The name "LOG.brixaside.NN.MM.STAMP" of a backup NN that made room for the new backup MM.
class AsideName
{
public:
    AsideName(const QString &logFile, int number, int next, const QString &stamp);

    //! The renamed backups of \a logFile that are there, in the order in which they come back: the
    //! one that has the number of the new backup is the last.
    static QList<AsideName> findAll(const QString &logFile);

    QString path() const;
    int number() const { return m_number; }
    int next() const { return m_next; }
    QString stamp() const { return m_stamp; }

private:
    static std::optional<AsideName> parse(const QString &logFile, const QString &suffix);

    QString m_logFile;
    int m_number = 0;
    int m_next = 0;
    QString m_stamp;
};

} // namespace Talverine
