// SPDX-License-Identifier: MIT
// brix log show, tail, search and backups. They read beside a program that has the log open.
#include "logbackups.h"
#include "logcommands.h"
#include "logentry.h"
#include "logtail.h"
#include <database/databaseview.h>
#include <process/interruption.h>
#include <process/standardstreams.h>

#include <QtCore/QEventLoop>
#include <QtCore/QFileInfo>
#include <QtCore/QTimer>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <deque>
#include <optional>

namespace Brix {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using Talverine::SDBRecord;

namespace {

// How soon a new entry is told.
constexpr auto kFollowInterval = 200ms;

//! Throws unless the file is a log that the user may read.
void requireReadableLog(const DatabaseOptions &options)
{
    const DatabaseLogin login = loginOf(options.user);
    OpenDatabase::requireFile(options.file);
    DatabaseView view(options.file);
    view.open();
    if (view->key() != SDBRecord::uniqueIncKey())
        throw Failure{ExitCode::Refused, u"%1 is a database, but not a log"_s.arg(options.file)};
    OpenDatabase::authenticate(&*view, options.file, login);
    OpenDatabase::requireReading(&*view, options.file);
}

// Calls use with each entry, or only with the last so many.
void readEntries(LogTail *tail, std::optional<qint64> last, const LogTail::Use &use)
{
    std::deque<SDBRecord> entries;
    tail->read([&](const SDBRecord &entry) {
        if (!last)
            return use(entry);
        entries.push_back(entry);
        if (qint64(entries.size()) > *last)
            entries.pop_front();
    });
    std::for_each(entries.begin(), entries.end(), use);
}

// show

struct ShowOptions
{
    DatabaseOptions log;
    std::optional<qint64> last;
};

void declareLast(Command *command, std::optional<qint64> *last, const std::string &description)
{
    command->addNumber("-n,--last", last, description);
}

void declareShow(Command *command, ShowOptions *options)
{
    declareDatabase(command, &options->log);
    declareLast(command, &options->last, "Only the last so many entries");
}

ExitCode show(const Output &output, const ShowOptions &options)
{
    requireReadableLog(options.log);
    LogTail tail(options.log.file);
    readEntries(&tail, options.last,
                [&](const SDBRecord &entry) { LogEntry::write(output, entry); });
    return ExitCode::Done;
}

// tail

struct TailOptions
{
    DatabaseOptions log;
    std::optional<qint64> last = 10;
    bool follow = false;
};

void declareTail(Command *command, TailOptions *options)
{
    declareDatabase(command, &options->log);
    declareLast(command, &options->last, "How many entries to begin with. Default: 10");
    command->addFlag("-f,--follow", &options->follow,
                     "Go on with new entries until Ctrl-C, also when the log is rotated");
}

// Until an interruption, or until the reader of stdout has gone.
void follow(LogTail *tail, const LogTail::Use &use)
{
    const Interruption interruption;
    std::optional<Failure> failure;
    QEventLoop loop;
    QTimer timer;
    QObject::connect(&interruption, &Interruption::requested, &loop, &QEventLoop::quit);
    QObject::connect(&timer, &QTimer::timeout, &loop, [&] {
        // Nothing may be thrown through the event loop.
        try {
            tail->read(use);
        } catch (const Failure &thrown) {
            failure = thrown;
        }
        if (failure || std::ferror(stdout) || !StandardStreams::hasReader())
            loop.quit();
    });
    timer.start(kFollowInterval);
    loop.exec();
    if (failure)
        throw *failure;
}

ExitCode tailLog(const Output &output, const TailOptions &options)
{
    requireReadableLog(options.log);
    LogTail tail(options.log.file);
    const auto write = [&](const SDBRecord &entry) { LogEntry::write(output, entry); };
    readEntries(&tail, options.last, write);
    if (options.follow)
        follow(&tail, write);
    return ExitCode::Done;
}

// search

struct SearchOptions
{
    DatabaseOptions log;
    QString field;
    QString value;
};

void declareSearch(Command *command, SearchOptions *options)
{
    declareDatabase(command, &options->log);
    command
        ->addText("FIELD", &options->field,
                  "Name of the field; \"logid\" is what an entry says has happened")
        .setRequired();
    command->addText("VALUE", &options->value, "What it holds, all of it and in this case")
        .setRequired();
}

ExitCode search(const Output &output, const SearchOptions &options)
{
    requireReadableLog(options.log);
    bool isFound = false;
    LogTail tail(options.log.file);
    tail.read([&](const SDBRecord &entry) {
        if (!entry.contains(options.field) ||
            entry.field(options.field).toString(true, QLocale::c()) != options.value)
            return;
        isFound = true;
        LogEntry::write(output, entry);
    });
    return isFound ? ExitCode::Done : ExitCode::Refused;
}

// backups

struct BackupsOptions
{
    QString file;
};

void declareBackups(Command *command, BackupsOptions *options)
{
    command->addPath("FILE", &options->file, "The log, there or not").setRequired();
}

ExitCode backups(const Output &output, const BackupsOptions &options)
{
    QFileInfoList backups = LogBackups::of(options.file);
    std::stable_sort(backups.begin(), backups.end(), [](const QFileInfo &a, const QFileInfo &b) {
        return a.lastModified() < b.lastModified();
    });
    QList<QStringList> rows;
    for (const QFileInfo &backup : backups) {
        const QString modified = backup.lastModified().toUTC().toString(Qt::ISODateWithMs);
        if (output.json)
            output.object({{u"file"_s, backup.filePath()},
                           {u"bytes"_s, backup.size()},
                           {u"modified"_s, modified}});
        rows.append({backup.filePath(), Output::bytes(backup.size()), modified});
    }
    if (!output.json)
        output.table(rows);
    return ExitCode::Done;
}

} // namespace

void addLogReadCommands(Command *family)
{
    addCommand<ShowOptions>(family, "show", "Show the entries, the oldest first",
                            "brix log show machine.log --last 100", declareShow, show);
    addCommand<TailOptions>(family, "tail", "Show the last entries, and wait for new ones",
                            "brix log tail -f machine.log", declareTail, tailLog);
    addCommand<SearchOptions>(family, "search", "Show the entries in which a field holds a value",
                              "brix log search machine.log logid HeadCleaned", declareSearch,
                              search);
    addCommand<BackupsOptions>(family, "backups", "List the backups by rotation, the oldest first",
                               "brix log backups machine.log", declareBackups, backups);
}

} // namespace Brix
