// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace Talverine {

/*!
 * The backups by rotation that lie beside a log: a ring of ten names of which one stays free, and
 * the oldest goes with each new one.
 */
class LogBackups
{
public:
    explicit LogBackups(const QString &logFile);

    //! Whether \a fileName is there and one of the ten.
    bool holds(const QString &fileName) const;
    //! The name of the next backup: the lowest that is free, or the last one if none is.
    QString nextName() const;
    //! The name that becomes free by the next backup.
    QString oldestName() const;
    //! The ten names in the order of their numbers.
    QStringList names() const;
    //! The number of one of the ten names.
    int numberOf(const QString &name) const;

private:
    int firstFree() const;
    QString nameOf(int number) const;

    QString m_logFile;
};

} // namespace Talverine
