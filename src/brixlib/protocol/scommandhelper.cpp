// SPDX-License-Identifier: MIT
#include <brixlib/protocol/scommandhelper.h>

#include "scommand_p.h"
#include <brixlib/protocol/scommand.h>

#include <brixlib/foundation/sdatastream.h>

#include <QtCore/QMutex>

#include <memory>
#include <unordered_map>
#include <vector>

namespace Talverine {

namespace {

using Prototypes = std::vector<std::unique_ptr<SCommand>>;

struct Registry
{
    QMutex mutex;
    std::unordered_map<unsigned int, Prototypes> contexts;
    const Prototypes none{};

    // The lock must be held while the result is used.
    const Prototypes &prototypes(unsigned int context) const
    {
        const auto found = contexts.find(context);
        return found == contexts.end() ? none : found->second;
    }
};

// Never deleted: communicators may live and die after main().
Registry &registry()
{
    static auto *const instance = new Registry;
    return *instance;
}

// The id that waits in the stream, which ends up where it was. Null when there is none to be read.
SCommandId peekId(QDataStream &stream)
{
    QIODevice *const device = stream.device();
    if (!device || device->isSequential())
        return {};
    const qint64 start = device->pos();
    SCommandPrivate header;
    const bool isWhole = header.deserialize(stream);
    return device->seek(start) && isWhole ? header.id() : SCommandId();
}

const SCommand *findPrototype(const Prototypes &prototypes, const SCommandId &id)
{
    for (const auto &prototype : prototypes) {
        if (prototype->id() == id)
            return prototype.get();
    }
    return nullptr;
}

} // namespace

void SCommandHelper::registerCommand(SCommand *prototype, unsigned int context)
{
    if (!prototype)
        return;
    std::unique_ptr<SCommand> owned(prototype);
    const QMutexLocker locker(&registry().mutex);
    registry().contexts[context].push_back(std::move(owned));
}

void SCommandHelper::deregisterCommands(unsigned int context)
{
    const QMutexLocker locker(&registry().mutex);
    registry().contexts.erase(context);
}

QList<SCommandId> SCommandHelper::registeredCommands(unsigned int context)
{
    const QMutexLocker locker(&registry().mutex);
    QList<SCommandId> ids;
    for (const auto &prototype : registry().prototypes(context))
        ids.append(prototype->id());
    return ids;
}

QHash<SCommandId, int> SCommandHelper::registeredCommandVersions(unsigned int context)
{
    const QMutexLocker locker(&registry().mutex);
    QHash<SCommandId, int> versions;
    for (const auto &prototype : registry().prototypes(context)) {
        if (!versions.contains(prototype->id()))
            versions.insert(prototype->id(), prototype->version());
    }
    return versions;
}

SCommand *SCommandHelper::createCommand(QDataStream &stream, unsigned int context)
{
    const QMutexLocker locker(&registry().mutex);
    const SCommandId id = peekId(stream);
    const SCommand *prototype = findPrototype(registry().prototypes(context), id);
    if (!prototype)
        return nullptr;
    std::unique_ptr<SCommand> command(static_cast<SCommand *>(prototype->clone()));
    return command->deserialize(stream) ? command.release() : nullptr;
}

SCommand *SCommandHelper::createCommand(const QByteArray &bytes, unsigned int context)
{
    SDataStream stream(bytes);
    return createCommand(stream, context);
}

} // namespace Talverine
