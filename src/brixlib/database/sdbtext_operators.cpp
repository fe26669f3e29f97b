// SPDX-License-Identifier: MIT
// What is done with two databases.
#include <brixlib/database/sdbtext.h>

#include "sdbtext_p.h"

#include <QtCore/QBuffer>

namespace Talverine {

namespace {

constexpr int kSecondLockMs = 10;

/*!
 * Holds the mutexes of two databases, the first one's before the other's. Two threads that take
 * them the other way around would wait for each other for ever, so the first one is let go while
 * the second is not to be had.
 */
class BothLocked
{
public:
    BothLocked(QRecursiveMutex *first, QRecursiveMutex *second)
        : m_first(first)
        , m_second(second)
    {
        m_first->lock();
        while (!m_second->tryLock(kSecondLockMs)) {
            m_first->unlock();
            m_first->lock();
        }
    }
    ~BothLocked()
    {
        m_second->unlock();
        m_first->unlock();
    }
    Q_DISABLE_COPY_MOVE(BothLocked)

private:
    QRecursiveMutex *m_first;
    QRecursiveMutex *m_second;
};

} // namespace

bool SDBText::operator==(const SDBText &other) const
{
    if (this == &other)
        return true;
    const BothLocked guard(&d->mutex, &other.d->mutex);
    if (!areFollowed(other))
        return false;
    if (!d->mayRead() || !other.d->mayRead() || d->keys.count() != other.d->keys.count() ||
        d->head != other.d->head)
        return false;
    SDBRecord own;
    bool isEqual = true;
    int seen = 0;
    const DBError read = other.d->forEachRecord([&](const QString &key, const SDBRecord &record) {
        ++seen;
        isEqual = d->search(key, &own) == DBError::NoError && own == record;
        return isEqual;
    });
    return isEqual && read == DBError::NoError && seen == d->keys.count();
}

SDBText &SDBText::operator=(const SDBText &other)
{
    if (this != &other)
        assign(other);
    return *this;
}

SDBText SDBText::operator+(const SDBText &other) const
{
    SDBText result(*this);
    // A copy that failed is null, and would become the other one alone.
    if (isNull() || !result.isNull())
        result += other;
    return result;
}

SDBText SDBText::operator-(const SDBText &other) const
{
    SDBText result(*this);
    result -= other;
    return result;
}

SDBText &SDBText::operator+=(const SDBText &other)
{
    add(other);
    return *this;
}

SDBText &SDBText::operator-=(const SDBText &other)
{
    subtract(other);
    return *this;
}

bool SDBText::assign(const SDBText &other)
{
    const BothLocked guard(&d->mutex, &other.d->mutex);
    d->isOldContentGone = false;
    if (!areFollowed(other))
        return false;
    if (!d->mayWrite() || !other.d->mayWrite())
        return returnBool(DBError::AuthError);
    if (d->isForeign())
        return returnBool(DBError::KeyIsNull);
    // Emptying it would empty the other.
    if (d->device && other.d->isOwnDevice(d->device))
        return returnBool(DBError::OpenError);
    if (!other.d->hasOpenDevice() || !other.d->device->seek(0))
        return returnBool(DBError::SeekError);
    if (!d->device) {
        d->ownDevice = std::make_unique<QBuffer>();
        d->device = d->ownDevice.get();
    }
    if (const DBError fault = d->prepareReplacing(); fault != DBError::NoError)
        return returnBool(fault);
    const DBError result =
        d->replaceContent([&other](QIODevice *target) { return other.d->copyTo(target); });
    if (result != DBError::NoError)
        return returnBool(result);
    d->setUser(other.d->user, other.d->password);
    d->fields = other.d->fields;
    const bool opened = init(d->device);
    Q_EMIT databaseModified();
    return opened;
}

bool SDBText::areFollowed(const SDBText &other) const
{
    DBError result = d->followFile();
    if (result == DBError::NoError)
        result = other.d->followFile();
    if (result != DBError::NoError)
        d->error = result;
    return result == DBError::NoError;
}

bool SDBText::isReplaceable()
{
    const QMutexLocker guard(&d->mutex);
    if (!d->hasOpenDevice())
        return returnBool(DBError::SeekError);
    return returnBool(d->prepareReplacing());
}

bool SDBText::stageCopy(StagedFile *staged)
{
    const QMutexLocker guard(&d->mutex);
    return returnBool(d->stageCopy(staged));
}

bool SDBText::isOldContentGone() const
{
    const QMutexLocker guard(&d->mutex);
    return d->isOldContentGone;
}

bool SDBText::add(const SDBText &other)
{
    const BothLocked guard(&d->mutex, &other.d->mutex);
    if (!d->device)
        return assign(other);
    if (!areFollowed(other))
        return false;
    if (!d->mayWrite() || !other.d->mayRead())
        return returnBool(DBError::AuthError);
    if (d->head.key != other.d->head.key)
        return returnBool(DBError::KeyIsNull);
    DBError result = d->seekEnd();
    if (result != DBError::NoError)
        return returnBool(result);
    const DBError read = other.d->forEachRecord([&](const QString &key, const SDBRecord &record) {
        if (!d->keys.contains(key) && d->append(record, true) != DBError::NoError)
            result = DBError::WriteError;
        return result == DBError::NoError;
    });
    if (read != DBError::NoError)
        result = read;
    // They know nothing of what has come.
    d->fields.clear(d->head.key);
    Q_EMIT databaseModified();
    return returnBool(result);
}

bool SDBText::subtract(const SDBText &other)
{
    const BothLocked guard(&d->mutex, &other.d->mutex);
    if (!d->device)
        return true;
    if (!areFollowed(other))
        return false;
    if (!d->mayWrite() || !other.d->mayRead())
        return returnBool(DBError::AuthError);
    if (d->head.key != other.d->head.key)
        return returnBool(DBError::KeyIsNull);
    DBError result = DBError::NoError;
    const KeyIndex &keys = other.d->keys;
    for (QString key = keys.first(); !key.isEmpty(); key = keys.above(key)) {
        if (!d->keys.contains(key))
            continue;
        if (!remove(key)) {
            result = d->error;
            break;
        }
    }
    Q_EMIT databaseModified();
    d->error = result;
    return result == DBError::NoError;
}

} // namespace Talverine
