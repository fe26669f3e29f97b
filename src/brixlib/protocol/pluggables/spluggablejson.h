// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/protocol/pluggables/spluggable.h>

#include <QtCore/QByteArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QString>

namespace Talverine {

/*!
 * Publishes a JSON document. On the wire it is the tag "JSON" and the document's indented text; a
 * null document is an empty array.
 *
 * Thread: lives in the thread of the server that it was given to.
 */
class BRIXLIB_EXPORT SPluggableJson : public SPluggable
{
    Q_OBJECT

public:
    explicit SPluggableJson(QObject *parent = nullptr);
    explicit SPluggableJson(const QJsonDocument &value, QObject *parent = nullptr);

    //! Gives the document's bytes in \a output, and true; the rest is ignored.
    bool execute(const QByteArray &params, QByteArray &output,
                 const SPluggableEnvironment &environment) override;

    QJsonDocument value() const;
    void setValue(const QJsonDocument &value);
    //! Parses the text; the document is null when it is not JSON.
    void setValue(const QString &text);

    static QByteArray documentToByteArray(const QJsonDocument &document);
    //! Null for an empty array, another tag, and a text that is not JSON.
    static QJsonDocument byteArrayToDocument(const QByteArray &bytes);

private:
    QJsonDocument m_value;
};

} // namespace Talverine
