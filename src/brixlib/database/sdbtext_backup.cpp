// SPDX-License-Identifier: MIT
#include <brixlib/database/sdbtext.h>

#include "sdbtext_p.h"
#include <brixlib/compression/containername_p.h>
#include <brixlib/compression/slz4.h>
#include <brixlib/compression/szip.h>
#include <brixlib/database/storage/diskfile_p.h>

#include <brixrt/sfilehelper.h>

#include <QtCore/QFile>
#include <QtCore/QTemporaryFile>

#include <algorithm>
#include <iterator>

namespace Talverine {

using Compression::CompressionAlgorithm;
using Compression::SCompressorDevice;
using Compression::SLz4;
using Compression::SZip;

namespace {

constexpr CompressionAlgorithm kPackings[] = {CompressionAlgorithm::Lz4, CompressionAlgorithm::Zip};

std::unique_ptr<Compression::Interfaces::ICompressor> makeCompressor(CompressionAlgorithm algorithm)
{
    if (algorithm == CompressionAlgorithm::Zip)
        return std::make_unique<SZip>();
    return std::make_unique<SLz4>();
}

// Not every device refuses to be opened twice.
bool compress(QIODevice *source, QIODevice *target, CompressionAlgorithm algorithm)
{
    return target && !target->isOpen() &&
           SCompressorDevice::compress(source, target, makeCompressor(algorithm).release());
}

// Flushes a closed backup to the disk. Any other device than a file is left to its owner.
bool isOnDisk(const QIODevice *backup)
{
    const QString name = companionFile(backup, QLatin1String());
    return name.isEmpty() || (DiskFile::sync(name) && DiskFile::syncEntry(name));
}

// The text of a packed backup, opened as a database for the time of a restore. Also removes the
// files that an open database puts beside it.
class TemporaryDatabaseFile : public QTemporaryFile
{
public:
    // Unbuffered, a failed write is an error at once.
    bool openEmpty() { return open(ReadWrite | Unbuffered) && resize(0); }

    ~TemporaryDatabaseFile() override
    {
        for (const QLatin1String suffix : {QLatin1String(".idx"), QLatin1String(".srec")}) {
            const QString name = companionFile(this, suffix);
            if (!name.isEmpty())
                QFile::remove(name);
        }
    }
};

// Whether \a source starts as a backup packed with any of the compressors does.
bool isPacked(QIODevice *source)
{
    if (!source->open(QIODevice::ReadOnly))
        return false;
    const QByteArray start = SFileHelper::readAllBuffer(source, Compression::kContainerNameBytes,
                                                        Compression::kContainerNameBytes);
    source->close();
    return std::any_of(std::begin(kPackings), std::end(kPackings), [&](auto algorithm) {
        return start == Compression::containerName(makeCompressor(algorithm).get());
    });
}

enum class Unpacking { Done, NotPacked, Damaged, NoSpace };

// The compressor is found by trying each. A source that is marked as packed and cannot be unpacked
// must not be read as plain text.
Unpacking unpack(QIODevice *source, TemporaryDatabaseFile *target)
{
    bool hasSpace = true;
    for (const CompressionAlgorithm algorithm : kPackings) {
        // Discards what the previous attempt has written.
        hasSpace = target->openEmpty();
        if (!hasSpace)
            break;
        if (SCompressorDevice::decompress(source, target, makeCompressor(algorithm).release()))
            return Unpacking::Done;
        hasSpace = target->error() == QFileDevice::NoError;
        target->close();
        if (!hasSpace)
            break;
    }
    if (!isPacked(source))
        return Unpacking::NotPacked;
    return hasSpace ? Unpacking::Damaged : Unpacking::NoSpace;
}

} // namespace

CompressionAlgorithm SDBText::backupCompressor() const
{
    const QMutexLocker guard(&d->mutex);
    const CompressionAlgorithm algorithm = d->backupCompressor;
    const bool isKnown =
        algorithm == CompressionAlgorithm::Zip || algorithm == CompressionAlgorithm::Lz4;
    return isKnown ? algorithm : CompressionAlgorithm::Uncompressed;
}

void SDBText::setBackupCompressor(CompressionAlgorithm algorithm)
{
    const QMutexLocker guard(&d->mutex);
    d->backupCompressor = algorithm;
}

bool SDBText::backup(const QString &fileName, bool clearAfter)
{
    const QMutexLocker guard(&d->mutex);
    if (!followFile())
        return false;
    QFile file(fileName);
    if (d->faultOfBackup(&file) == DBError::NoError && !file.exists()) {
        // The same people may read it, from its first byte on.
        static_cast<void>(openCompanion(&file, d->device));
        file.close();
    }
    return backup(&file, clearAfter);
}

bool SDBText::backup(QIODevice *device, bool clearAfter)
{
    const QMutexLocker guard(&d->mutex);
    if (!followFile())
        return false;
    if (const DBError fault = d->faultOfBackup(device); fault != DBError::NoError)
        return returnBool(fault);
    // What another program inserts between the copy and the clearing would be lost.
    const bool mayClear = clearAfter && d->mayWrite();
    if (const DBError fault = mayClear ? d->prepareReplacing() : DBError::NoError;
        fault != DBError::NoError)
        return returnBool(fault);
    const CompressionAlgorithm algorithm = backupCompressor();
    QTemporaryFile plain;
    const bool isPlain = algorithm == CompressionAlgorithm::Uncompressed;
    const DBError copied = d->copyToClosed(isPlain ? device : &plain, clearAfter);
    if (copied != DBError::NoError)
        return returnBool(copied);
    if (!isPlain && !compress(&plain, device, algorithm))
        return returnBool(DBError::WriteError);
    if (!clearAfter)
        return returnBool(DBError::NoError);
    return isOnDisk(device) ? clear() : returnBool(DBError::WriteError);
}

bool SDBText::restore(const QString &fileName, bool merge)
{
    QFile file(fileName);
    return restore(&file, merge);
}

bool SDBText::restore(QIODevice *device, bool merge)
{
    const QMutexLocker guard(&d->mutex);
    if (!followFile())
        return false;
    if (const DBError fault = d->faultOfSource(device); fault != DBError::NoError)
        return returnBool(fault);
    if (const DBError fault = merge ? DBError::NoError : d->prepareReplacing();
        fault != DBError::NoError)
        return returnBool(fault);
    if (device->isOpen())
        device->close();
    TemporaryDatabaseFile plain;
    const Unpacking unpacked = unpack(device, &plain);
    if (unpacked == Unpacking::NoSpace)
        return returnBool(DBError::WriteError);
    if (unpacked == Unpacking::Damaged)
        return returnBool(DBError::WrongDB);
    SDBText other;
    // A copy of some head beside a damaged backup would turn it into an empty one.
    other.d->mayReadHeadCopy = false;
    if (!other.init(unpacked == Unpacking::Done ? &plain : device)) {
        d->error = other.d->error;
        return false;
    }
    if (!other.authenticate(d->user, d->password))
        return returnBool(DBError::AuthError);
    if (other.d->head.key != d->head.key)
        return returnBool(DBError::KeyIsNull);
    const bool result = merge ? mergeFrom(other) : replaceBy(other);
    Q_EMIT databaseRestored(result);
    Q_EMIT databaseModified();
    return result;
}

bool SDBText::mergeFrom(const SDBText &other)
{
    const bool isUnique = d->head.key == SDBRecord::uniqueIncKey();
    bool isMerged = true;
    const DBError read = other.d->forEachRecord([&](const QString &key, const SDBRecord &record) {
        isMerged = followFile();
        if (!isMerged)
            return false;
        const bool isKnown = !isUnique && d->keys.contains(key);
        isMerged = isKnown ? _replace(record, false) : _insert(record, false);
        return isMerged;
    });
    return isMerged && returnBool(read);
}

bool SDBText::replaceBy(const SDBText &other)
{
    const DBError result =
        d->replaceContent([&other](QIODevice *target) { return other.d->copyTo(target); });
    return result == DBError::NoError ? init(d->device) : returnBool(result);
}

} // namespace Talverine
