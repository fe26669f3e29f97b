// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

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
    //! The name for the next backup. Removes the one that comes behind it.
    QString makeRoom() const;

private:
    QString nameOf(int number) const;

    QString m_logFile;
};

} // namespace Talverine
