// SPDX-License-Identifier: MIT
#include <brixrt/senumruntimeloader.h>

#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QMutex>

namespace Talverine {

namespace {

struct Registry
{
    QMutex mutex;
    QHash<QString, ISEnumRuntimeLoader *> loaders;
    QList<ISEnumRuntimeLoader *> replaced; // someone may still hold one that find() gave
    QMultiHash<QString, ISEnum *> tables;
};

// Leaked on purpose: companion objects of other files may still die after this file's statics.
Registry &registry()
{
    static auto *instance = new Registry;
    return *instance;
}

} // namespace

ISEnumRuntimeLoader::~ISEnumRuntimeLoader() = default;

// The lock is never held while load() runs: a loader may build other tables, which come back here.
void SEnumRuntimeLoader::loaderRegister(const QString &enumName, ISEnumRuntimeLoader *loader)
{
    QList<ISEnum *> existing;
    {
        const QMutexLocker lock(&registry().mutex);
        ISEnumRuntimeLoader *&place = registry().loaders[enumName];
        if (place && place != loader)
            registry().replaced.append(place);
        place = loader;
        existing = registry().tables.values(enumName);
    }
    if (!loader)
        return;
    for (ISEnum *table : std::as_const(existing))
        loader->load(table);
}

void SEnumRuntimeLoader::loader(const QString &enumName, ISEnum *table)
{
    ISEnumRuntimeLoader *loader = nullptr;
    {
        const QMutexLocker lock(&registry().mutex);
        registry().tables.insert(enumName, table);
        loader = registry().loaders.value(enumName);
    }
    if (loader)
        loader->load(table);
}

ISEnumRuntimeLoader *SEnumRuntimeLoader::find(const QString &enumName)
{
    const QMutexLocker lock(&registry().mutex);
    return registry().loaders.value(enumName);
}

void SEnumRuntimeLoader::forget(ISEnum *table)
{
    const QMutexLocker lock(&registry().mutex);
    registry().tables.removeIf([table](const auto &entry) { return entry.value() == table; });
}

} // namespace Talverine
