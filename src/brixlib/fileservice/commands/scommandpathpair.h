// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/scommand.h>

#include <QtCore/QString>

namespace Talverine {

//! What the commands that copy or rename on the server share: a source and a target.
class BRIXLIB_EXPORT SCommandPathPair : public SCommand
{
public:
    bool operator==(const SCommandPathPair &other) const = default;

    //! The source.
    QString first() const { return m_first; }
    void setFirst(const QString &first) { m_first = first; }
    //! The target.
    QString second() const { return m_second; }
    void setSecond(const QString &second) { m_second = second; }
    //! Empties both paths; id and version stay.
    void clear();

protected:
    SCommandPathPair() = default;
    SCommandPathPair(const SCommandId &id, const QString &first, const QString &second,
                     int version);

    void readFields(QDataStream &stream);
    void writeFields(QDataStream &stream) const;

private:
    QString m_first;
    QString m_second;
};

} // namespace Talverine
