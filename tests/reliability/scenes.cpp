// SPDX-License-Identifier: MIT
#include "scenes.h"

#include <fileservice/filetree.h>

#include <brixlib/fileservice/commands/scommandgetdir.h>
#include <brixlib/fileservice/device/sclientdevice.h>
#include <brixlib/protocol/pluggables/spluggablestring.h>
#include <brixsec/ssecurestring.h>

#include <QtCore/QBuffer>

using namespace Talverine;
using namespace Qt::StringLiterals;

using Scene = FaultStage::Scene;
using Client = JailedClient;
using Commands = std::function<void(Client &)>;

namespace {

const QByteArray kContent = "the content of a small file";
const QByteArray kOlder = "what was there before";

Scene act(Commands commands, int exchanges = 1)
{
    return {.act = std::move(commands), .exchanges = exchanges};
}

Scene withFile(Commands commands)
{
    Scene scene = act(std::move(commands));
    scene.prepare = [](const QString &home, const QString &) {
        FileTree::write(home + u"/file"_s, kContent);
    };
    return scene;
}

Scene withFolder(Commands commands, int exchanges = 1)
{
    Scene scene = act(std::move(commands), exchanges);
    scene.prepare = [](const QString &home, const QString &) {
        FileTree::write(home + u"/folder/one"_s, kContent);
        FileTree::write(home + u"/folder/deep/two"_s, kContent);
    };
    return scene;
}

// Devices belong to the client, and so last as long as it needs them.
Scene getDevice()
{
    return withFile([](Client &c) { c.getDevice(u"file"_s, new QBuffer(&c)); });
}

Scene sendDevice()
{
    return act([](Client &c) {
        auto *buffer = new QBuffer(&c);
        buffer->setData(kContent);
        c.sendDevice(buffer, u"file"_s);
    });
}

// A server of long ago is asked so.
Scene getDirInOldForm()
{
    const Commands commands = [](Client &c) {
        c.enqueueCommand(new SCommandGetDir(u"folder"_s, u"got"_s, false));
    };
    return withFolder(commands, 3);
}

Scene getFiles()
{
    const Commands commands = [](Client &c) { c.getFiles(u"folder"_s, u""_s, u"got"_s, true); };
    return withFolder(commands, 3);
}

QStringList driveDevice(quint16 port, int timeoutMs)
{
    SClientDevice device(u"127.0.0.1"_s, u"file"_s, port, u"alice"_s,
                         Security::SSecureString(u"secret"_s));
    device.setTimeout(timeoutMs);
    QStringList results;
    const auto note = [&results](const QString &name, bool success) {
        results.append(name + u' ' + word(success));
        return success;
    };
    if (!note(u"open"_s, device.open(QIODevice::ReadWrite)) ||
        !note(u"write"_s, device.write("THE") == 3) || !note(u"seek"_s, device.seek(2)) ||
        !note(u"read"_s, device.read(9) == "E content") ||
        !note(u"size"_s, device.size() == kContent.size()))
        return results;
    bool closed = false;
    device.close(&closed);
    note(u"close"_s, closed);
    return results;
}

} // namespace

QMap<QByteArray, Scene> Scenes::baseCommands()
{
    return {
        {"authentication", act([](Client &c) { c.authenticate(u"alice"_s, u"secret"_s); })},
        // It is followed by one for the stream version.
        {"command list", act([](Client &c) { c.commandList(); }, 2)},
        {"server name", act([](Client &c) { c.serverName(); })},
        {"who am I", act([](Client &c) { c.whoAmI(); })},
        {"pluggable", act([](Client &c) { c.pluggable(u"motto"_s, "params"); })},
        {"list of pluggables", act([](Client &c) { c.pluggableList(); })},
        {"link test", act([](Client &c) { c.linkTest(0, 0); })},
    };
}

QMap<QByteArray, Scene> Scenes::fileCommands()
{
    static constexpr auto kAll = FileEntryFlags::Permissions;
    return {
        {"change dir", withFolder([](Client &c) { c.changeDir(u"folder"_s); })},
        {"copy dir", withFolder([](Client &c) { c.copyDir(u"folder"_s, u"copy"_s); })},
        {"copy file", withFile([](Client &c) { c.copyFile(u"file"_s, u"copy"_s); })},
        {"exists", withFile([](Client &c) { c.exists(u"file"_s); })},
        {"get device", getDevice()},
        {"get dir, old form", getDirInOldForm()},
        {"get file", getFile()},
        {"get files", getFiles()},
        {"home dir", act([](Client &c) { c.homeDir(); })},
        {"list dir", withFolder([](Client &c) { c.listDir(u"folder"_s); })},
        {"make dir", act([](Client &c) { c.makeDir(u"new/folder"_s); })},
        {"pwd", act([](Client &c) { c.pwd(); })},
        {"remove dir", withFolder([](Client &c) { c.removeDir(u"folder"_s); })},
        {"remove file", withFile([](Client &c) { c.removeFile(u"file"_s); })},
        {"rename dir", withFolder([](Client &c) { c.renameDir(u"folder"_s, u"other"_s); })},
        {"rename file", withFile([](Client &c) { c.renameFile(u"file"_s, u"other"_s); })},
        {"send device", sendDevice()},
        {"send file", sendFile()},
        {"sensitivity", act([](Client &c) { c.fileSystemSensitivity(); })},
        {"set permissions", withFile([](Client &c) { c.setFilePermissions(u"file"_s, kAll); })},
        {"storage info", act([](Client &c) { c.storageInfo(); })},
    };
}

Scene Scenes::getFile()
{
    Scene scene = act([](Client &c) { c.getFile(u"file"_s, u"file"_s, false); });
    scene.prepare = [](const QString &home, const QString &folder) {
        FileTree::write(home + u"/file"_s, kContent);
        FileTree::write(folder + u"/file"_s, kOlder);
    };
    return scene;
}

Scene Scenes::sendFile()
{
    Scene scene = act([](Client &c) { c.sendFile(u"file"_s, u"file"_s, false); });
    scene.prepare = [](const QString &home, const QString &folder) {
        FileTree::write(folder + u"/file"_s, kContent);
        FileTree::write(home + u"/file"_s, kOlder);
    };
    return scene;
}

Scene Scenes::device()
{
    Scene scene = withFile({});
    scene.drive = driveDevice;
    scene.exchanges = 6;
    return scene;
}

void Scenes::addPluggable(FileServer &server)
{
    server.configure = [](SServerFtp &session) {
        session.addPluggable(u"motto"_s, new SPluggableString(u"press on"_s));
    };
}
