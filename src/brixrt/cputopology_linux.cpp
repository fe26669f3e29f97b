// SPDX-License-Identifier: MIT
#include "cputopology_linux_p.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <algorithm>

namespace Talverine::CpuPlatform {

using namespace Qt::StringLiterals;

namespace {

// Files of the kernel are short; the bound only keeps a wrong one from being read for long.
QByteArray content(const QString &fileName)
{
    constexpr qint64 kLimitBytes = 4096;
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.read(kLimitBytes).trimmed() : QByteArray();
}

// The number of values from "first" to "last", or of "single"; 0 when it is damaged.
int countOfRange(const QByteArray &range)
{
    const QList<QByteArray> ends = range.split('-');
    if (ends.size() > 2)
        return 0;
    constexpr int kLargestNumber = 1 << 20;
    bool firstOk = false;
    bool lastOk = false;
    const int first = ends.first().toInt(&firstOk);
    const int last = ends.last().toInt(&lastOk);
    const bool ok = firstOk && lastOk && first >= 0 && first <= last && last <= kLargestNumber;
    return ok ? last - first + 1 : 0;
}

} // namespace

int countOfList(QByteArrayView list)
{
    int count = 0;
    const QList<QByteArray> ranges = list.toByteArray().split(',');
    for (const QByteArray &range : ranges) {
        const int numbers = countOfRange(range);
        if (numbers == 0)
            return 0;
        count += numbers;
    }
    return count;
}

int threadsPerCore(const QString &root)
{
    if (content(root + u"/smt/active"_s) == "0")
        return 1;
    int threads = 1;
    const QStringList processors = QDir(root).entryList({u"cpu[0-9]*"_s}, QDir::Dirs);
    for (const QString &processor : processors) {
        const QString list = u"%1/%2/topology/thread_siblings_list"_s.arg(root, processor);
        threads = std::max(threads, countOfList(content(list)));
    }
    return threads;
}

} // namespace Talverine::CpuPlatform
