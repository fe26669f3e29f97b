// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/foundation/interfaces.h>
#include <brixlib/protocol/scommandid.h>
#include <brixlib/protocol/wire.h>

namespace Talverine {

/*!
 * One request of a client to a server: an id that names its class, the version of its serialised
 * form, and the fields of the deriving class.
 *
 * A command is made by a caller, queued, sent and deleted by the worker; on the server it is built
 * from bytes by SCommandHelper::createCommand(). It belongs to one thread at a time.
 *
 * Commands of one's own derive from SConcreteCommand, which does all but reading and writing the
 * fields.
 */
class BRIXLIB_EXPORT SCommand : public Interfaces::ICloneable,
                                public Interfaces::IEquatable,
                                public Interfaces::ISerializable
{
public:
    SCommand() = default;
    SCommand(const SCommand &) = default;
    ~SCommand() override;
    SCommand &operator=(const SCommand &) = default;

    //! Compares id and version.
    bool operator==(const SCommand &other) const;

    SCommandId id() const { return m_id; }
    //! Major << 16 | minor << 8 | patch, compared as one integer. Any value may come from a peer.
    int version() const { return m_version; }
    void setVersion(int version) { m_version = version; }

    //! True when the id is null.
    bool isNull() const override;

    //! Replaces \a array by the serialised form at the calling thread's stream version.
    [[nodiscard]] bool serializeArray(QByteArray &array) const;
    //! Reads the form that serializeArray() writes; on false the command is as it was before.
    //! Bytes behind the fields are ignored.
    [[nodiscard]] bool deserializeArray(const QByteArray &array);

protected:
    explicit SCommand(const SCommandId &id, int version = Wire::kDefaultCommandVersion)
        : m_id(id)
        , m_version(version)
    {
    }

    void setId(const SCommandId &id) { m_id = id; }

    //! Writes the words that every command starts with.
    void writeHeader(QDataStream &stream) const;
    /*!
     * Reads them and takes over the version. False, with nothing changed, when the magic is wrong,
     * the id is not this command's own, or the stream fails.
     */
    [[nodiscard]] bool readHeader(QDataStream &stream);

    // A deriving class with fields hides these two; see SConcreteCommand.
    void readFields(QDataStream &) {}
    void writeFields(QDataStream &) const {}

private:
    SCommandId m_id;
    qint32 m_version = Wire::kDefaultCommandVersion;
};

} // namespace Talverine
