// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/protocol/pluggables/spluggable.h>

#include <QtCore/QByteArray>
#include <QtCore/QString>

namespace Talverine {

/*!
 * Publishes one text. On the wire it is the tag "STRG" and the text in UTF-8; an empty text is an
 * empty array.
 *
 * Thread: lives in the thread of the server that it was given to.
 */
class BRIXLIB_EXPORT SPluggableString : public SPluggable
{
    Q_OBJECT

public:
    explicit SPluggableString(QObject *parent = nullptr);
    explicit SPluggableString(const QString &value, QObject *parent = nullptr);

    //! Gives the value's bytes in \a output, and true; the rest is ignored.
    bool execute(const QByteArray &params, QByteArray &output,
                 const SPluggableEnvironment &environment) override;

    QString value() const;
    void setValue(const QString &value);

    static QByteArray stringToByteArray(const QString &value);
    //! Empty for an empty array and for another tag.
    static QString byteArrayToString(const QByteArray &bytes);

private:
    QString m_value;
};

} // namespace Talverine
