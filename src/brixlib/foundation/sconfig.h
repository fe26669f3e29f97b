// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>

#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QString>

class QIODevice;

namespace Talverine {

/*!
 * The content of a simple configuration file: a version and named texts.
 *
 * The file is UTF-8 text with a statement a line; lines that fit no statement are passed over:
 *
 *     # a comment
 *     $VERSION 3
 *     %NAME% = value
 *
 * A value that is fixed once made. Const calls may come from any thread; the calls that take a
 * device use it in the calling thread, open it for the time of the call unless it is open, and
 * leave it the caller's.
 *
 *     const SConfig config(QStringLiteral("/etc/printer.cfg"));
 *     if (config.version() != SConfig::NoVersion)
 *         qDebug() << config.variable(QStringLiteral("NAME"));
 */
class BRIXLIB_EXPORT SConfig
{
public:
    //! What version() gives where no version was read.
    static constexpr quint32 NoVersion = 0xFFFFFFFF;

    SConfig() = default;
    //! Reads all of a file; one that cannot be read leaves the configuration empty.
    explicit SConfig(const QString &fileName);
    //! Reads all of \a device; one that cannot be opened leaves the configuration empty.
    explicit SConfig(QIODevice *device);

    //! The version of the last version line, 0 if what stands there is no number.
    quint32 version() const { return m_version; }
    //! The value of a variable; empty if there is none of that name.
    QString variable(const QString &name) const { return m_variables.value(name); }
    //! The names of the variables, in no particular order.
    QList<QString> variables() const { return m_variables.keys(); }

    //! Reads all of \a device for one value; empty if it is not there.
    static QString variable(QIODevice *device, const QString &name);
    /*!
     * Reads \a device no further than the block that holds its first version line, and gives that
     * version; NoVersion if there is no such line.
     */
    static quint32 version(QIODevice *device);

private:
    static bool readAll(QIODevice *device, quint32 *version, QHash<QString, QString> *variables);

    quint32 m_version = NoVersion;
    QHash<QString, QString> m_variables;
};

} // namespace Talverine
