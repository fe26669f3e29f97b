// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/scommand.h>

#include <utility>

// With hidden symbols, all shared objects must still share the type information of an
// instantiation. Windows has no such visibility, and cannot export a template for a class without
// linkage.
#ifdef Q_OS_WIN
#define BRIXLIB_SHARED_TYPE
#else
#define BRIXLIB_SHARED_TYPE __attribute__((visibility("default")))
#endif

namespace Talverine {

/*!
 * Everything about the class \a Command that follows from its type: copying, comparing, reading and
 * writing. \a Base holds the fields that several classes share.
 *
 * A deriving class sets its id, is default-constructible (in private, if it likes), and names this
 * class a friend. If it has fields of its own it also declares operator==() and the two steps that
 * hide those of \a Base:
 *
 *     class Greet : public SConcreteCommand<Greet>
 *     {
 *     public:
 *         Greet() : SConcreteCommand(Wire::word("gret")) {}
 *         bool operator==(const Greet &) const = default;
 *         QString name;
 *
 *     private:
 *         friend SConcreteCommand;
 *         void readFields(QDataStream &stream) { stream >> name; }
 *         void writeFields(QDataStream &stream) const { stream << name; }
 *     };
 *
 * readFields() runs on a fresh object that already has the version of the bytes, need not look at
 * the stream's status, and leaves what that version omits as it is.
 */
template<class Command, class Base = SCommand>
class BRIXLIB_SHARED_TYPE SConcreteCommand : public Base
{
public:
    using Base::Base;

    SCommand *clone() const override { return new Command(self()); }

    bool equalsTo(const Interfaces::IEquatable *other) const override
    {
        return this->isSameType(other) && self() == static_cast<const Command &>(*other);
    }

    [[nodiscard]] bool deserialize(QDataStream &stream) override
    {
        Command fresh;
        if (!fresh.readHeader(stream))
            return false;
        fresh.readFields(stream);
        if (stream.status() != QDataStream::Ok)
            return false;
        static_cast<Command &>(*this) = std::move(fresh);
        return true;
    }

    [[nodiscard]] bool serialize(QDataStream &stream) const override
    {
        this->writeHeader(stream);
        self().writeFields(stream);
        return stream.status() == QDataStream::Ok;
    }

private:
    const Command &self() const { return static_cast<const Command &>(*this); }
};

} // namespace Talverine
