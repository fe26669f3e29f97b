// SPDX-License-Identifier: MIT
// The fields of each command. The first byte of an input picks the command, the second its version
// (and, by the lowest bit, that of the stream); then come the bytes behind its header.
#include "../fuzztarget.h"
#include "../inputforms.h"
#include "../targets.h"

#include <brixlib/fileservice/commands/scommandfile.h>
#include <brixlib/fileservice/sserverftp.h>
#include <brixlib/protocol/commands/scommandauthentication.h>
#include <brixlib/protocol/scommand.h>
#include <brixlib/protocol/scommandhelper.h>
#include <brixlib/protocol/wire.h>

#include <shared/rawbytes.h>
#include <shared/streamversionscope.h>

#include <algorithm>
#include <memory>

using namespace Talverine;

namespace Fuzz {

namespace {

// A session that lends its prototypes.
class Prototypes final : public SServerFtp
{
public:
    Prototypes()
    {
        const auto ids = SCommandHelper::registeredCommands(contextId());
        for (const SCommandId &id : ids)
            require(std::ranges::count(kCommandsOfInputs, id) == 1, "no input picks this command");
    }

    //! The command in \a fields at \a version; null when they can't be read.
    std::unique_ptr<SCommand> read(SCommandId id, qint32 version, const QByteArray &fields) const
    {
        const auto body = RawBytes::body(RawBytes::u32(id.id()), fields, quint32(version));
        return std::unique_ptr<SCommand>(SCommandHelper::createCommand(body, contextId()));
    }
};

template<class Table>
auto picked(const Table &table, int number)
{
    return table[static_cast<size_t>(number) % std::size(table)];
}

std::unique_ptr<SCommand> cloned(const SCommand &command)
{
    return std::unique_ptr<SCommand>(static_cast<SCommand *>(command.clone()));
}

// An empty target travels as the base name that it stands for.
void spellOutTarget(SCommand &command)
{
    auto *const file = dynamic_cast<SCommandFile *>(&command);
    if (file && file->version() > Wire::version(1, 1, 0))
        file->setTargetFileName(file->targetFileName());
}

// A hash travels as text, which loses a byte order mark at its front: no hash has one.
void dropByteOrderMarks(SCommand &command)
{
    auto *const login = dynamic_cast<SCommandAuthentication *>(&command);
    while (login && login->hashedPassword().startsWith("\xEF\xBB\xBF"))
        login->setHashedPassword(login->hashedPassword().mid(3));
}

// What was read can be written, and reads back as the same.
void requireRoundTrip(const SCommand &command)
{
    QByteArray bytes;
    require(command.serializeArray(bytes), "a command that was read cannot be written");
    const auto target = cloned(command);
    require(target->deserializeArray(bytes), "a command that was written cannot be read");
    require(target->equalsTo(&command), "a command changes on its way");
    require(!target->deserializeArray(bytes.chopped(1)), "a command is read without its last byte");
    require(target->equalsTo(&command), "a command that could not be read has changed its target");
}

} // namespace

bool commands(const QByteArray &input)
{
    static const Prototypes prototypes;
    Input bytes(input);
    const SCommandId id = picked(kCommandsOfInputs, bytes.byte());
    const quint8 versions = bytes.byte();
    const qint32 version = picked(kVersionsOfInputs, versions / 2);
    const TestShared::StreamVersionScope scope(versions % 2 == 0 ? QDataStream::Qt_5_6
                                                                 : QDataStream::Qt_6_0);

    const auto command = prototypes.read(id, version, bytes.rest());
    if (!command)
        return false;
    require(command->version() == version, "a command is read at another version");
    spellOutTarget(*command);
    dropByteOrderMarks(*command);
    requireRoundTrip(*command);
    return true;
}

} // namespace Fuzz
