// SPDX-License-Identifier: MIT
// What libFuzzer calls. FUZZ_TARGET is the target's name.
#include "fuzztarget.h"

#include <QtCore/QCoreApplication>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

// Qt warns of what a program should not have done, so a warning is an error here.
void endAtWarning(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    if (type == QtDebugMsg || type == QtInfoMsg)
        return;
    std::fprintf(stderr, "%s\n", qPrintable(text));
    std::abort();
}

Fuzz::Run s_run = nullptr;

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    // Never deleted: it would end before the statics of the targets.
    new QCoreApplication(*argc, *argv);
    qInstallMessageHandler(endAtWarning);
    Fuzz::prepareProcess();
    s_run = Fuzz::findTarget(FUZZ_TARGET);
    Fuzz::require(s_run, "no such target: " FUZZ_TARGET);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    s_run(QByteArray::fromRawData(reinterpret_cast<const char *>(data),
                                  static_cast<qsizetype>(size)));
    return 0;
}
