// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/sconcretecommand.h>

#include <QtCore/QByteArray>
#include <QtCore/QString>

namespace Talverine {

/*!
 * Runs the pluggable that the server has under a name. Reply: a frame with its output and its
 * result. Parameters that make the whole command longer than Wire::kBodyLimitBytes cost the
 * session.
 */
class BRIXLIB_EXPORT SCommandPluggable : public SConcreteCommand<SCommandPluggable>
{
public:
    SCommandPluggable(const QString &command, const QByteArray &params);

    bool operator==(const SCommandPluggable &other) const = default;

    QString command() const { return m_command; }
    void setCommand(const QString &command) { m_command = command; }
    QByteArray params() const { return m_params; }
    void setParams(const QByteArray &params) { m_params = params; }

private:
    friend SConcreteCommand;
    SCommandPluggable();
    void readFields(QDataStream &stream);
    void writeFields(QDataStream &stream) const;

    QString m_command;
    QByteArray m_params;
};

} // namespace Talverine
