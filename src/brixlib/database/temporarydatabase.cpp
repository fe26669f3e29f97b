// SPDX-License-Identifier: MIT
#include "temporarydatabase_p.h"

#include <brixrt/senvironment.h>
#include <brixrt/sfilehelper.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QMutex>
#include <QtCore/QStringList>
#include <QtCore/QUuid>

namespace Talverine {

namespace {

constexpr QLatin1String kSuffixes[] = {QLatin1String(), QLatin1String(".srec"),
                                       QLatin1String(".idx"), QLatin1String(".lck")};
constexpr qint64 kLongestPath = 4096;

QStringList filesOf(const QString &path)
{
    QStringList names;
    // Without a path these would be files of the current directory.
    if (path.isEmpty())
        return names;
    for (const QLatin1String suffix : kSuffixes)
        names.append(path + suffix);
    return names;
}

bool isUuid(const QString &text)
{
    return !QUuid::fromString(text).isNull();
}

// A note is believed only where it names a place as SEnvironment makes them, with two random names.
bool isPlace(const QString &path)
{
    const QFileInfo file(path);
    const QString folder = file.dir().dirName();
    return file.isAbsolute() && isUuid(file.fileName()) && folder.startsWith(u"brix-") &&
           isUuid(folder.mid(5));
}

// The databases that this program has in use: a slot may open the log that is being rotated.
class UsedPlaces
{
public:
    static void insert(const QString &path)
    {
        const QMutexLocker guard(&s_mutex);
        s_paths.append(path);
    }
    static void remove(const QString &path)
    {
        const QMutexLocker guard(&s_mutex);
        s_paths.removeOne(path);
    }
    static bool contains(const QString &path)
    {
        const QMutexLocker guard(&s_mutex);
        return s_paths.contains(path);
    }

private:
    inline static QMutex s_mutex;
    inline static QStringList s_paths;
};

} // namespace

// The note comes before the directory, so that it names whatever is left.
TemporaryDatabase::TemporaryDatabase(const QString &note)
    : m_note(note)
    , m_path(SEnvironment::tempFolder() + u'/' + QUuid::createUuid().toString(QUuid::WithoutBraces))
    , m_usedPath(m_path)
{
    UsedPlaces::insert(m_usedPath);
    writeNote();
    if (SEnvironment::tempFolder(true).isEmpty())
        m_path.clear();
    for (const QString &file : filesOf(m_path))
        SFileHelper::deleteFileOnExit(file);
}

TemporaryDatabase::~TemporaryDatabase()
{
    for (const QString &file : filesOf(m_path))
        QFile::remove(file);
    if (m_hasNote)
        QFile::remove(m_note);
    UsedPlaces::remove(m_usedPath);
}

// What cannot be noted is left only if this program is killed.
void TemporaryDatabase::writeNote()
{
    if (m_note.isEmpty())
        return;
    QFile note(m_note);
    m_hasNote = note.open(QIODevice::WriteOnly | QIODevice::Unbuffered);
    if (m_hasNote)
        note.write(m_path.toUtf8());
}

void TemporaryDatabase::removeRemains(const QString &note)
{
    QFile file(note);
    if (!file.exists() || !file.open(QIODevice::ReadOnly))
        return;
    const QString path = QString::fromUtf8(file.read(kLongestPath));
    file.close();
    if (UsedPlaces::contains(path))
        return;
    if (isPlace(path)) {
        for (const QString &name : filesOf(path))
            QFile::remove(name);
        // Fails if the program that was killed had other files there.
        QDir().rmdir(QFileInfo(path).path());
    }
    QFile::remove(note);
}

} // namespace Talverine
