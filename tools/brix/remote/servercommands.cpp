// SPDX-License-Identifier: MIT
// brix whoami, name, commands, calls, call, linktest: asks a server about itself and calls its
// pluggables.
#include "commandname.h"
#include "remotecommand.h"
#include <cli/progressbar.h>

#include <brixlib/protocol/pluggables/spluggablejson.h>
#include <brixlib/protocol/pluggables/spluggablestring.h>
#include <brixlib/protocol/pluggables/spluggablestringlist.h>
#include <brixlib/protocol/wire.h>

#include <QtCore/QJsonArray>

#include <algorithm>

namespace Brix {

using namespace Qt::StringLiterals;
using namespace Talverine;

namespace {

using Server = Session::Requester;

ExitCode whoAmI(const Output &output, const RemoteOptions &options)
{
    return withSession(options, [&](Session &session, const RemoteUrl &) {
        const QString user =
            session.ask(CommandIds::kWhoAmI, [](Server &server) { server.whoAmI(); }).text;
        output.result(user, {{u"user"_s, user}});
        return ExitCode::Done;
    });
}

ExitCode serverName(const Output &output, const RemoteOptions &options)
{
    return withSession(options, [&](Session &session, const RemoteUrl &) {
        const QString name =
            session.ask(CommandIds::kServerName, [](Server &server) { server.serverName(); }).text;
        output.result(name, {{u"name"_s, name}});
        return ExitCode::Done;
    });
}

ExitCode commands(const Output &output, const RemoteOptions &options)
{
    return withSession(options, [&](Session &session, const RemoteUrl &) {
        QList<QPair<QString, QString>> sorted;
        for (auto it = session.commands().cbegin(); it != session.commands().cend(); ++it)
            sorted.append({commandName(it.key()), versionText(it.value())});
        std::sort(sorted.begin(), sorted.end());
        for (const auto &[id, version] : std::as_const(sorted))
            output.result(id + u"  "_s + version, {{u"id"_s, id}, {u"version"_s, version}});
        return ExitCode::Done;
    });
}

ExitCode calls(const Output &output, const RemoteOptions &options)
{
    return withSession(options, [&](Session &session, const RemoteUrl &) {
        QStringList names =
            session.ask(CommandIds::kPluggableList, [](Server &server) { server.pluggableList(); })
                .names;
        names.sort();
        for (const auto &name : std::as_const(names))
            output.result(name, {{u"name"_s, name}});
        return ExitCode::Done;
    });
}

struct CallOptions
{
    RemoteOptions remote;
    QString name;
    QString params;
};

void declareCall(Command *command, CallOptions *options)
{
    declareRemote(command, &options->remote);
    command->addText("NAME", &options->name, "Name of the pluggable").setRequired();
    command->addText("PARAMS", &options->params, "Text to call it with, sent in UTF-8");
}

// What a pluggable gave, by the tag that its bytes begin with.
QJsonValue decoded(const QByteArray &bytes)
{
    if (bytes.startsWith("STRG"))
        return SPluggableString::byteArrayToString(bytes);
    if (bytes.startsWith("STRL"))
        return QJsonArray::fromStringList(SPluggableStringList::byteArrayToStringList(bytes));
    const QJsonDocument document = SPluggableJson::byteArrayToDocument(bytes);
    if (document.isObject())
        return document.object();
    if (document.isArray())
        return document.array();
    return {};
}

void writeDecoded(const Output &output, const QByteArray &bytes)
{
    if (bytes.startsWith("STRG")) {
        output.line(SPluggableString::byteArrayToString(bytes));
    } else if (bytes.startsWith("STRL")) {
        for (const auto &line : SPluggableStringList::byteArrayToStringList(bytes))
            output.line(line);
    } else if (const auto document = SPluggableJson::byteArrayToDocument(bytes);
               !document.isNull()) {
        for (const auto &line : document.toJson().trimmed().split('\n'))
            output.line(QString::fromUtf8(line));
    } else if (!bytes.isEmpty()) {
        output.foreignBytes(bytes);
    }
}

ExitCode call(const Output &output, const CallOptions &options)
{
    return withSession(options.remote, [&](Session &session, const RemoteUrl &) {
        const Answer answer = session.ask(CommandIds::kPluggable, [&](Server &server) {
            server.pluggable(options.name, options.params.toUtf8());
        });
        if (output.json) {
            output.object({{u"result"_s, answer.result},
                           {u"value"_s, decoded(answer.bytes)},
                           {u"base64"_s, QString::fromLatin1(answer.bytes.toBase64())}});
        } else {
            writeDecoded(output, answer.bytes);
        }
        if (answer.result)
            return ExitCode::Done;
        throw Failure{ExitCode::Refused,
                      u"the server has no pluggable %1, or it failed"_s.arg(options.name)};
    });
}

struct LinkTestOptions
{
    RemoteOptions remote;
    int up = 5;
    int down = 5;
};

void declareLinkTest(Command *command, LinkTestOptions *options)
{
    declareRemote(command, &options->remote);
    command->addNumber("--up", &options->up, "Seconds to send for", 0, 3600);
    command->addNumber("--down", &options->down, "Seconds to receive for", 0, 3600);
}

ExitCode linkTest(const Output &output, const LinkTestOptions &options)
{
    return withSession(options.remote, [&](Session &session, const RemoteUrl &) {
        Answer answer;
        {
            ProgressBar progress(output.quiet);
            QObject::connect(&session, &Session::transferred, &session,
                             [&](qint64 done, qint64 total) {
                                 progress.setTotal(total);
                                 progress.show(done);
                             });
            answer = session.ask(CommandIds::kLinkTest, [&](Server &server) {
                server.linkTest(options.up, options.down);
            });
        }
        if (output.json) {
            output.object({{u"up"_s, answer.uploadRate}, {u"down"_s, answer.downloadRate}});
        } else {
            output.table({{u"up"_s, Output::bytes(qint64(answer.uploadRate)) + u"/s"_s},
                          {u"down"_s, Output::bytes(qint64(answer.downloadRate)) + u"/s"_s}});
        }
        return ExitCode::Done;
    });
}

} // namespace

void addServerCommands(Command *root)
{
    addCommand<RemoteOptions>(root, "whoami", "Show who is logged in",
                              "brix whoami brix://ann@press:7000", declareRemote, whoAmI);
    addCommand<RemoteOptions>(root, "name", "Show the server's name",
                              "brix name brix://ann@press:7000", declareRemote, serverName);
    addCommand<RemoteOptions>(root, "commands", "List the server's commands and their versions",
                              "brix commands brix://ann@press:7000", declareRemote, commands);
    addCommand<RemoteOptions>(root, "calls", "List the server's pluggables",
                              "brix calls brix://ann@press:7000", declareRemote, calls);
    addCommand<CallOptions>(root, "call", "Call one of the server's pluggables",
                            "brix call brix://ann@press:7000 version", declareCall, call);
    addCommand<LinkTestOptions>(root, "linktest", "Measure the connection in both directions",
                                "brix linktest brix://ann@press:7000 --up 3 --down 3",
                                declareLinkTest, linkTest);
}

} // namespace Brix
