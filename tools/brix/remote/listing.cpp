// SPDX-License-Identifier: MIT
#include "listing.h"

namespace Brix::Listing {

using namespace Talverine;

const SFileEntry *find(const QList<SFileEntry> &entries, const QString &name)
{
    const SFileEntry *similar = nullptr;
    for (const SFileEntry &entry : entries) {
        if (entry.fileName() == name)
            return &entry;
        if (entry.fileName().compare(name, Qt::CaseInsensitive) == 0)
            similar = &entry;
    }
    return similar;
}

} // namespace Brix::Listing
