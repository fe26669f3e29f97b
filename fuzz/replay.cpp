// SPDX-License-Identifier: MIT
// Runs inputs through a target without libFuzzer, under a debugger for example:
//   fuzz_replay TARGET FILE…
#include "fuzztarget.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>

#include <cstdio>

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const Fuzz::Run run = argc > 2 ? Fuzz::findTarget(argv[1]) : nullptr;
    if (!run) {
        std::fprintf(stderr, "usage: fuzz_replay TARGET FILE…\ntargets:");
        for (const Fuzz::Target &target : Fuzz::targets())
            std::fprintf(stderr, " %s", target.name);
        std::fprintf(stderr, "\n");
        return 2;
    }

    Fuzz::prepareProcess();
    for (int i = 2; i < argc; ++i) {
        QFile file(QFile::decodeName(argv[i]));
        if (!file.open(QIODevice::ReadOnly)) {
            std::fprintf(stderr, "%s: %s\n", argv[i], qPrintable(file.errorString()));
            return 1;
        }
        std::printf("%s: %s\n", argv[i], run(file.readAll()) ? "accepted" : "refused");
        std::fflush(stdout);
    }
    return 0;
}
