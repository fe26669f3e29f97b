// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/protocol/pluggables/spluggable.h>

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>

namespace Talverine {

/*!
 * Publishes a list of texts. On the wire it is the tag "STRL", an int32 count, and for each text an
 * int32 length in bytes and the text in UTF-8, numbers big-endian; an empty list is an empty array.
 *
 * Thread: lives in the thread of the server that it was given to.
 */
class BRIXLIB_EXPORT SPluggableStringList : public SPluggable
{
    Q_OBJECT

public:
    explicit SPluggableStringList(QObject *parent = nullptr);
    explicit SPluggableStringList(const QList<QString> &values, QObject *parent = nullptr);

    //! Gives the list's bytes in \a output, and true; the rest is ignored.
    bool execute(const QByteArray &params, QByteArray &output,
                 const SPluggableEnvironment &environment) override;

    QList<QString> values() const;
    void setValues(const QList<QString> &values);

    static QByteArray stringListToByteArray(const QList<QString> &values);
    /*!
     * Empty for an empty array, another tag, and a count below 1. A length that is negative or
     * above what is left ends the list; what was read before it stays.
     */
    static QList<QString> byteArrayToStringList(const QByteArray &bytes);

private:
    QList<QString> m_values;
};

} // namespace Talverine
