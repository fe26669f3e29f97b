// SPDX-License-Identifier: MIT
#include "compressors.h"

#include <brixlib/compression/slz4.h>
#include <brixlib/compression/snullcompressor.h>
#include <brixlib/compression/spackbits.h>
#include <brixlib/compression/stifflzw.h>
#include <brixlib/compression/szip.h>

#include <QtCore/QCryptographicHash>
#include <QtCore/QList>

#include <algorithm>

namespace Brix::Compressors {

using namespace Qt::StringLiterals;
using namespace Talverine::Compression;

namespace {

const QList<Algorithm> &algorithms()
{
    static const QList<Algorithm> list{
        {u"lz4"_s, true, 0, 12,
         [](int level) -> std::unique_ptr<ICompressor> { return std::make_unique<SLz4>(level); }},
        {u"zip"_s, true, 0, 9,
         [](int level) -> std::unique_ptr<ICompressor> { return std::make_unique<SZip>(level); }},
        {u"packbits"_s, true, 0, 0,
         [](int) -> std::unique_ptr<ICompressor> {
             return std::make_unique<SPackBits>(PackBitsMode::PackBitsFramed);
         }},
        {u"lzw"_s, false, 0, 0,
         [](int) -> std::unique_ptr<ICompressor> { return std::make_unique<STiffLZW>(); }},
        {u"none"_s, false, 0, 0,
         [](int) -> std::unique_ptr<ICompressor> { return std::make_unique<SNullCompressor>(); }},
    };
    return list;
}

template<typename Predicate>
std::optional<Algorithm> firstThat(Predicate fits)
{
    const auto found = std::find_if(algorithms().begin(), algorithms().end(), fits);
    return found == algorithms().end() ? std::nullopt : std::optional(*found);
}

} // namespace

QStringList names()
{
    QStringList names;
    for (const Algorithm &algorithm : algorithms())
        names.append(algorithm.name);
    return names;
}

std::optional<Algorithm> byName(const QString &name)
{
    return firstThat([&name](const Algorithm &algorithm) { return algorithm.name == name; });
}

std::optional<Algorithm> byHead(const QByteArray &head)
{
    return firstThat([&head](const Algorithm &algorithm) {
        const QByteArray name = algorithm.make(algorithm.lowestLevel)->name().toUtf8();
        return head.startsWith(QCryptographicHash::hash(name, QCryptographicHash::Sha1));
    });
}

} // namespace Brix::Compressors
