// SPDX-License-Identifier: MIT
// A folder with a database for the tool, and what the library says of it.
#pragma once

#include <brixlib/database/sdbtext.h>

#include <shared/toolprocess.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QLoggingCategory>
#include <QtCore/QTemporaryDir>
#include <QtTest/QTest>

#include <memory>

//! The database "inks.db" belongs to ada, whose password is "secret", and anyone may read it.
class ToolDatabase
{
public:
    const QString user = QStringLiteral("ada");
    ToolProcess tool;

    ToolDatabase()
    {
        tool.password = QStringLiteral("secret");
        tool.workingDirectory = m_dir.path();
    }

    QString path(const QString &name = QStringLiteral("inks.db")) const
    {
        return m_dir.filePath(name);
    }
    QStringList files() const
    {
        return QDir(m_dir.path())
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }
    //! The databases alone, without what lies beside them when they have been opened.
    QStringList databases() const
    {
        QStringList names;
        for (const QString &name : files()) {
            if (!name.endsWith(QLatin1String(".idx")) && !name.endsWith(QLatin1String(".srec")))
                names.append(name);
        }
        return names;
    }

    QByteArray read(const QString &name = QStringLiteral("inks.db")) const
    {
        QFile file(path(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArrayLiteral("unreadable");
    }
    bool write(const QString &name, const QByteArray &bytes) const
    {
        QFile file(path(name));
        return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
    }

    //! Runs "brix db SUBCOMMAND ...".
    ToolResult db(const QStringList &arguments) const
    {
        return tool.run(QStringList{QStringLiteral("db")} + arguments);
    }
    //! The same as ada.
    ToolResult asOwner(const QStringList &arguments) const
    {
        return db(arguments + QStringList{QStringLiteral("--user"), user});
    }

    bool create(const QString &name = QStringLiteral("inks.db"),
                Talverine::DBAuthGrants grants = Talverine::DBAuthGrants::ReadOnly,
                const QString &key = QStringLiteral("name")) const
    {
        Talverine::SDBText database;
        database.authenticate(user, tool.password);
        return database.create(path(name), key, grants, QLocale(QStringLiteral("en_US")),
                               QStringLiteral("2"));
    }
    //! Adds a record for each key, in this order, with "level" and "maker".
    bool fill(const QStringList &keys, const QString &name = QStringLiteral("inks.db")) const
    {
        Talverine::SDBText database;
        database.authenticate(user, tool.password);
        bool isDone = database.open(path(name));
        for (const QString &key : keys) {
            Talverine::SDBRecord record;
            record.insert(database.key(), key);
            record.insert(QStringLiteral("level"), key.size());
            record.insert(QStringLiteral("maker"), QStringLiteral("Ann"));
            isDone = isDone && database.insert(record);
        }
        return isDone;
    }
    //! The keys in their order.
    QStringList keys(const QString &name = QStringLiteral("inks.db")) const
    {
        QStringList keys;
        Talverine::SDBText database;
        database.authenticate(user, tool.password);
        if (!database.open(path(name)))
            return {QStringLiteral("cannot be opened")};
        for (const Talverine::SDBField &key : database.values(QString()))
            keys.append(key.value().toString());
        return keys;
    }
    Talverine::SDBRecord record(const QString &key,
                                const QString &name = QStringLiteral("inks.db")) const
    {
        Talverine::SDBText database;
        database.authenticate(user, tool.password);
        Talverine::SDBRecord record;
        if (database.open(path(name)))
            database.value(key, record);
        return record;
    }

    static QJsonObject object(const QByteArray &line)
    {
        return QJsonDocument::fromJson(line).object();
    }

private:
    QTemporaryDir m_dir;
};
