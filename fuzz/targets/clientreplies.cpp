// SPDX-License-Identifier: MIT
// A client's session under a server that answers anything: the login, and what handles the answer
// to each command.
//
// The first byte of an input is a ClientStage, the second the size of the pieces in which the
// server's answers arrive (0: all at once). Then come the count of operations, a ClientOperation
// for each, and the answers.
#include "../fuzztarget.h"
#include "../inputforms.h"
#include "../memorysocket.h"
#include "../scratchfolder.h"
#include "../sessionbytes.h"
#include "../targets.h"

#include <brixlib/fileservice/sclientftp.h>

#include <shared/streamversionscope.h>

#include <QtCore/QBuffer>

#include <array>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace Fuzz {

namespace {

constexpr int kCommandLimit = 16;
// A list of files leads to as many further commands.
constexpr int kExchangeLimit = 64;

class Session final : public SClientFtp
{
public:
    Session(MemorySocket *socket, const QString &home)
        : SClientFtp(QHostAddress(), 0)
        , m_socket(socket)
    {
        setRootPath(home);
        connect(this, &Session::commandResult, this, [this](SCommandId id, bool succeeded) {
            m_isIdle = id.isNull();
            m_hasFailed |= !succeeded;
        });
    }

    //! Sends what is queued, until that is done or one has failed. True when all went well.
    bool exchangeAll()
    {
        m_isIdle = false;
        for (int i = 0; i < kExchangeLimit && !m_isIdle && !m_hasFailed; ++i)
            doWork();
        return m_isIdle && !m_hasFailed;
    }

    QBuffer device;

protected:
    bool workerInit() override { return beginSession(m_socket); }

private:
    MemorySocket *const m_socket;
    bool m_isIdle = false;
    bool m_hasFailed = false;
};

// In the order of ClientOperation.
constexpr std::array<void (*)(Session &), kClientOperations> kOperations{
    [](Session &s) { s.commandList(); },
    [](Session &s) { s.serverName(); },
    [](Session &s) { s.whoAmI(); },
    [](Session &s) { s.pluggable(u"echo"_s, "params"); },
    [](Session &s) { s.pluggableList(); },
    [](Session &s) { s.linkTest(0, 0); },
    [](Session &s) { s.changeDir(u"folder"_s); },
    [](Session &s) { s.pwd(); },
    [](Session &s) { s.listDir(u"folder"_s); },
    [](Session &s) { s.makeDir(u"new"_s); },
    [](Session &s) { s.removeDir(u"folder"_s); },
    [](Session &s) { s.removeFile(u"a.txt"_s); },
    [](Session &s) { s.exists(u"a.txt"_s); },
    [](Session &s) { s.renameDir(u"folder"_s, u"new"_s); },
    [](Session &s) { s.renameFile(u"a.txt"_s, u"b.txt"_s); },
    [](Session &s) { s.copyDir(u"folder"_s, u"new"_s); },
    [](Session &s) { s.copyFile(u"a.txt"_s, u"b.txt"_s); },
    [](Session &s) { s.setFilePermissions(u"a.txt"_s, FileEntryFlags(0x66440000)); },
    [](Session &s) { s.storageInfo(); },
    [](Session &s) { s.fileSystemSensitivity(); },
    [](Session &s) { s.getFile(u"remote.bin"_s, u"folder/got.bin"_s); },
    [](Session &s) { s.getFiles(u"remote"_s, u"*.bin"_s, u"folder"_s, true); },
    [](Session &s) { s.getDir(u"remote"_s, u"folder"_s, true); },
    [](Session &s) { s.getDevice(u"remote.bin"_s, &s.device); },
    [](Session &s) { s.sendFile(u"a.txt"_s, u"remote.txt"_s); },
    [](Session &s) { s.sendDir(u"folder"_s, u"remote"_s); },
    [](Session &s) { s.sendDevice(&s.device, u"remote.bin"_s); },
    [](Session &s) { s.authenticate(u"alice"_s, u"secret"_s); },
};

} // namespace

bool clientReplies(const QByteArray &input)
{
    static ScratchFolder folder;
    const TestShared::StreamVersionScope scope(QDataStream::Qt_5_6);
    Input bytes(input);
    const auto stage = ClientStage(bytes.byte());
    const quint8 pieceBytes = bytes.byte();
    const QByteArrayView operations = bytes.bytes(bytes.byte() % (kCommandLimit + 1));
    const QByteArray welcome =
        stage == ClientStage::LoggedIn ? SessionBytes::welcome() : QByteArray();
    MemorySocket socket(SessionBytes::greeting() + welcome + bytes.rest(), pieceBytes);

    Session session(&socket, folder.home());
    session.init();
    if (stage != ClientStage::Connected)
        session.authenticate(u"alice"_s, u"secret"_s);
    if (stage == ClientStage::LoggedIn)
        session.exchangeAll();
    for (const char operation : operations)
        kOperations[static_cast<quint8>(operation) % kOperations.size()](session);
    const bool succeeded = session.exchangeAll();

    folder.restore();
    return succeeded && socket.isReadToEnd();
}

} // namespace Fuzz
