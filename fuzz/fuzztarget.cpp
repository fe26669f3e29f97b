// SPDX-License-Identifier: MIT
#include "fuzztarget.h"

#include "targets.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QHashFunctions>
#include <QtCore/QLoggingCategory>

#include <algorithm>
#include <csignal>

#include <sys/resource.h>

using namespace Qt::StringLiterals;

namespace Fuzz {

namespace {

constexpr rlim_t kLargestFileBytes = 4 * 1024 * 1024;

constexpr Target kTargets[] = {
    {"clientdevice", clientDevice},
    {"clientreplies", clientReplies},
    {"commands", commands},
    {"compressedfile", compressedFile},
    {"credentials", credentials},
    {"databasefiles", databaseFiles},
    {"databasehead", databaseHead},
    {"databaserecords", databaseRecords},
    {"entrylist", entryList},
    {"fieldtext", fieldText},
    {"indexfile", indexFile},
    {"iobuffer", ioBuffer},
    {"lz4", lz4},
    {"lzw", lzw},
    {"packbits", packBits},
    {"pluggables", pluggables},
    {"replies", replies},
    {"serversession", serverSession},
    {"userfile", userFile},
    {"zip", zip},
};

// A peer may write one byte far behind the end of a file and have the file copied.
void limitFiles()
{
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = std::min(kLargestFileBytes, limit.rlim_max);
    setrlimit(RLIMIT_FSIZE, &limit);
}

} // namespace

std::span<const Target> targets()
{
    return kTargets;
}

Run findTarget(QByteArrayView name)
{
    const auto *const found =
        std::find_if(std::begin(kTargets), std::end(kTargets),
                     [&](const Target &target) { return name == QByteArrayView(target.name); });
    return found == std::end(kTargets) ? nullptr : found->run;
}

void prepareProcess()
{
    limitFiles();
    // The same input takes the same way each time.
    QHashSeed::setDeterministicGlobalSeed();
    QLoggingCategory::setFilterRules(u"default.debug=false"_s);
    // A server waits a second after each login that fails. Loops do not begin in a thread that is
    // about to quit.
    QCoreApplication::exit();
}

void require(bool holds, const char *what)
{
    if (!holds)
        qFatal("%s", what);
}

} // namespace Fuzz
