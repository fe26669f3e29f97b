// SPDX-License-Identifier: MIT
#include <brixrt/s3rdparty.h>

#include "unshared_p.h"

#include <QtCore/QMutex>

#include <algorithm>

namespace Talverine {

namespace {

struct Registry
{
    QMutex mutex;
    QList<S3rdParty::Module> modules;
};

// Leaked on purpose: code that runs after this file's statics are gone may still ask.
Registry &registry()
{
    static auto *instance = new Registry;
    return *instance;
}

} // namespace

void S3rdParty::registerModule(const QString &name, const QString &notice, const QString &address,
                               SVersion version)
{
    if (name.isEmpty())
        return;
    const Module module{name, notice, address, version};
    const QMutexLocker lock(&registry().mutex);
    QList<Module> &modules = registry().modules;
    const auto known = std::find_if(modules.begin(), modules.end(),
                                    [&name](const Module &entry) { return entry.name == name; });
    if (known == modules.end())
        modules.append(module);
    else
        *known = module;
}

QList<S3rdParty::Module> S3rdParty::modules()
{
    const QMutexLocker lock(&registry().mutex);
    return unshared(registry().modules);
}

} // namespace Talverine
