// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/users/sauthenticationdb.h>
#include <brixlib/protocol/users/suserdata.h>

#include <shared/toolprocess.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>
#include <QtTest/QTest>

/*!
 * "brix serve" as a child process on a free port of this machine, for the user "ann" with the
 * password "secret", whose home is a folder of its own.
 */
class ToolServer
{
public:
    ToolServer()
    {
        QDir(m_dir.path()).mkdir(QStringLiteral("home"));
        users.insert(
            new Talverine::SUserData(QStringLiteral("ann"), QStringLiteral("secret"), home()));
    }
    ~ToolServer()
    {
        m_process.kill();
        m_process.waitForFinished();
    }
    Q_DISABLE_COPY_MOVE(ToolServer)

    //! The server's BRIX_PASSWORD; null leaves the variable unset.
    QString serverPassword;
    //! Written to the user file by start().
    Talverine::SAuthenticationDb users;

    QString home() const { return m_dir.filePath(QStringLiteral("home")); }
    QString homePath(const QString &name) const { return home() + u'/' + name; }
    //! A place for other files, beside the home folder.
    QString path(const QString &name) const { return m_dir.filePath(name); }

    //! Starts the server and waits for its first line.
    [[nodiscard]] bool start(const QStringList &arguments = {})
    {
        QFile file(path(QStringLiteral("users.json")));
        if (!users.save(&file) ||
            !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner))
            return false;
        ToolProcess tool;
        tool.password = serverPassword;
        tool.prepare(&m_process, QStringList{QStringLiteral("serve"), QStringLiteral("--users"),
                                             file.fileName()} +
                                     arguments);
        m_process.start();
        while (!m_process.canReadLine() && m_process.waitForReadyRead(20'000))
            continue;
        m_firstLine = m_process.readLine();
        return m_firstLine.startsWith("listening on ");
    }

    QByteArray firstLine() const { return m_firstLine; }
    QString authority() const { return QString::fromLatin1(m_firstLine.mid(13).trimmed()); }
    quint16 port() const { return authority().section(u':', -1).toUShort(); }
    QString url(const QString &path = {}, const QString &user = QStringLiteral("ann")) const
    {
        return QStringLiteral("brix://%1@%2/%3").arg(user, authority(), path);
    }

    //! Runs the tool with the user's password.
    ToolResult run(const QStringList &arguments) const { return client().run(arguments); }
    ToolProcess client() const
    {
        ToolProcess tool;
        tool.password = QStringLiteral("secret");
        return tool;
    }

    QProcess &process() { return m_process; }

    //! What the server wrote to stderr, once it contains \a text.
    QByteArray logShowing(const QByteArray &text)
    {
        const auto shows = [&] {
            m_log += m_process.readAllStandardError();
            return m_log.contains(text);
        };
        (void)QTest::qWaitFor(shows, 20'000);
        return m_log;
    }

private:
    QTemporaryDir m_dir;
    QProcess m_process;
    QByteArray m_firstLine;
    QByteArray m_log;
};

inline bool writeFile(const QString &fileName, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(fileName).path());
    QFile file(fileName);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

inline QByteArray readFile(const QString &fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("unreadable");
}

//! The names in a folder, hidden ones included.
inline QStringList namesIn(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System |
                                  QDir::NoDotAndDotDot);
}
