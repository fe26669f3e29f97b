// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/scommand.h>

#include <QtCore/QString>

namespace Talverine {

//! What the commands about one path on the server share.
class BRIXLIB_EXPORT SCommandPath : public SCommand
{
public:
    bool operator==(const SCommandPath &other) const = default;

    QString value() const { return m_value; }
    void setValue(const QString &value) { m_value = value; }
    //! Empties the path; id and version stay.
    void clear();

protected:
    SCommandPath() = default;
    SCommandPath(const SCommandId &id, const QString &value, int version);

    void readFields(QDataStream &stream);
    void writeFields(QDataStream &stream) const;

private:
    QString m_value;
};

} // namespace Talverine
