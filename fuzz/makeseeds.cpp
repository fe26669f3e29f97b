// SPDX-License-Identifier: MIT
// Writes the seeds to the corpora of the targets; a test tells when that is due:
//   fuzz_makeseeds FOLDER      FOLDER: fuzz/corpus
#include "seeds.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

bool write(const QString &folder, const Fuzz::Seed &seed)
{
    const QString target = folder + u'/' + QString::fromLatin1(seed.target);
    QFile file(target + u'/' + QString::fromLatin1(seed.name));
    return QDir().mkpath(target) && file.open(QIODevice::WriteOnly) &&
           file.write(seed.bytes) == seed.bytes.size() && file.flush();
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: fuzz_makeseeds FOLDER\n");
        return 2;
    }
    for (const Fuzz::Seed &seed : Fuzz::seeds()) {
        if (!write(QFile::decodeName(argv[1]), seed)) {
            std::fprintf(stderr, "cannot write %s/%s\n", seed.target.constData(),
                         seed.name.constData());
            return 1;
        }
    }
    return 0;
}
