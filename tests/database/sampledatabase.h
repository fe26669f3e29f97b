// SPDX-License-Identifier: MIT
// Small databases in a folder of their own, and a look at their files.
#pragma once

#include <brixlib/database/sdbtext.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QTemporaryDir>
#include <QtTest/QTest>

#include <filesystem>

namespace Talverine::Sample {

using namespace Qt::StringLiterals;

inline const QString kUser = u"ada"_s;
inline const QString kPassword = u"secret"_s;

//! A folder with the path of a database that is not made yet.
struct Place
{
    QTemporaryDir folder;
    QString file = folder.filePath(u"inks.db"_s);

    QString beside(const QString &suffix) const { return file + suffix; }
};

inline QByteArray bytesOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline bool setBytes(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush();
}

inline bool hardLink(const QString &file, const QString &link)
{
    std::error_code error;
    std::filesystem::create_hard_link(QFileInfo(file).filesystemFilePath(),
                                      QFileInfo(link).filesystemFilePath(), error);
    return !error;
}

//! A record of the key field "name".
inline SDBRecord ink(const QString &name, const QVariant &level = 1)
{
    SDBRecord record;
    record.insert(u"name"_s, name);
    record.insert(u"level"_s, level);
    return record;
}

//! Creates an empty database for ada, and opens it.
template<typename Where>
bool create(SDBText &database, const Where &where, DBAuthGrants grants = DBAuthGrants::ReadOnly,
            const QString &key = u"name"_s)
{
    database.authenticate(kUser, kPassword);
    return database.create(where, key, grants, QLocale(QLocale::English, QLocale::UnitedStates),
                           u"1"_s);
}

inline bool insertAll(SDBText &database, const QStringList &names)
{
    for (const QString &name : names) {
        if (!database.insert(ink(name)))
            return false;
    }
    return true;
}

//! The keys in the order of a walk by first() and next().
inline QStringList walk(SDBText &database)
{
    QStringList names;
    SDBRecord record;
    for (bool more = database.first(record); more;) {
        const QString name = record.value(database.key()).toString();
        names.append(name);
        more = database.next(name, record);
    }
    return names;
}

//! Takes the debug lines of one thread while it lives, so that their absence can be told too.
class DebugLines
{
public:
    DebugLines()
        : m_before(qInstallMessageHandler(&DebugLines::take))
    {
        s_lines.clear();
    }
    ~DebugLines() { qInstallMessageHandler(m_before); }
    Q_DISABLE_COPY_MOVE(DebugLines)

    QStringList all() const { return s_lines; }

private:
    static void take(QtMsgType, const QMessageLogContext &, const QString &line)
    {
        s_lines.append(line);
    }

    static inline QStringList s_lines;
    QtMessageHandler m_before;
};

//! Expects the debug line of an operation that fails.
inline void expectError(const char *name)
{
    QTest::ignoreMessage(QtDebugMsg, (QByteArray("SDBText::returnBool: ") + name).constData());
}

} // namespace Talverine::Sample
