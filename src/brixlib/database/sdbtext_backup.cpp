// SPDX-License-Identifier: MIT
#include <brixlib/database/sdbtext.h>

#include <brixlib/compression/slz4.h>
#include <brixlib/compression/szip.h>
#include <brixlib/database/sdbtext_p.h>

#include <QtCore/QFile>
#include <QtCore/QTemporaryFile>

namespace Talverine {

using Compression::CompressionAlgorithm;
using Compression::SCompressorDevice;
using Compression::SLz4;
using Compression::SZip;

namespace {

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

// A database of its own for a while. Nothing else removes what an open database puts beside it.
class TemporaryDatabaseFile : public QTemporaryFile
{
public:
    ~TemporaryDatabaseFile() override
    {
        for (const QLatin1String suffix : {QLatin1String(".idx"), QLatin1String(".srec")}) {
            const QString name = companionFile(this, suffix);
            if (!name.isEmpty())
                QFile::remove(name);
        }
    }
};

// Nothing in a backup tells what it was compressed with, so each is tried.
bool decompress(QIODevice *source, QTemporaryFile *target)
{
    for (const CompressionAlgorithm algorithm :
         {CompressionAlgorithm::Lz4, CompressionAlgorithm::Zip}) {
        // Opened for writing, it keeps what the attempt before has left.
        if (!target->open() || !target->resize(0))
            return false;
        target->close();
        if (SCompressorDevice::decompress(source, target, makeCompressor(algorithm).release()))
            return true;
    }
    return false;
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
    if (const DBError fault = d->faultOfBackup(device); fault != DBError::NoError)
        return returnBool(fault);
    const CompressionAlgorithm algorithm = backupCompressor();
    QTemporaryFile plain;
    const bool isPlain = algorithm == CompressionAlgorithm::Uncompressed;
    const DBError copied = d->copyToClosed(isPlain ? device : &plain);
    if (copied != DBError::NoError)
        return returnBool(copied);
    if (!isPlain && !compress(&plain, device, algorithm))
        return returnBool(DBError::WriteError);
    return clearAfter ? clear() : returnBool(DBError::NoError);
}

bool SDBText::restore(const QString &fileName, bool merge)
{
    QFile file(fileName);
    return restore(&file, merge);
}

bool SDBText::restore(QIODevice *device, bool merge)
{
    const QMutexLocker guard(&d->mutex);
    if (!d->mayWrite())
        return returnBool(DBError::AuthError);
    if (!device || d->isOwnDevice(device))
        return returnBool(DBError::OpenError);
    // Opening it would make it.
    if (const auto *file = qobject_cast<const QFile *>(device); file && !file->exists())
        return returnBool(DBError::FileNotFound);
    if (device->isOpen())
        device->close();
    TemporaryDatabaseFile plain;
    const bool isPacked = decompress(device, &plain);
    SDBText other;
    if (!other.init(isPacked ? &plain : device)) {
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
        const bool isKnown = !isUnique && d->keys.contains(key);
        isMerged = (!isKnown || _remove(key, false)) && _insert(record, false);
        return isMerged;
    });
    return isMerged && returnBool(read);
}

bool SDBText::replaceBy(const SDBText &other)
{
    DBError result = d->truncate();
    if (result == DBError::NoError)
        result = other.d->copyTo(d->device);
    return result == DBError::NoError ? init(d->device) : returnBool(result);
}

} // namespace Talverine
