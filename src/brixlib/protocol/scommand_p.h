// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/scommand.h>

namespace Talverine {

//! The words that every command starts with, as they stand in a stream.
struct SCommandHeader
{
    quint32 magic = 0;
    qint32 version = 0;
    SCommandId id;

    //! Reads all of them; false when the magic is wrong or the stream fails.
    [[nodiscard]] bool read(QDataStream &stream);
    void write(QDataStream &stream) const;
};

/*!
 * The header alone: tells which command waits in a stream while its class is not known yet. Takes
 * any id and keeps its own version.
 */
class SCommandPrivate final : public SCommand
{
public:
    SCommandPrivate *clone() const override;
    bool equalsTo(const Interfaces::IEquatable *other) const override;
    [[nodiscard]] bool deserialize(QDataStream &stream) override;
    [[nodiscard]] bool serialize(QDataStream &stream) const override;
};

} // namespace Talverine
