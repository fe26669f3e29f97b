// SPDX-License-Identifier: MIT
// A server's session: its reader of frames and all that a client can have it do. The first byte of
// an input is a ServerStage, the second the size of the pieces in which the rest arrives (0: all at
// once).
#include "../fuzztarget.h"
#include "../inputforms.h"
#include "../memorysocket.h"
#include "../scratchfolder.h"
#include "../sessionbytes.h"
#include "../targets.h"

#include <brixlib/fileservice/sserverftp.h>
#include <brixlib/protocol/pluggables/spluggablestringlist.h>
#include <brixlib/protocol/scommand.h>
#include <brixlib/protocol/users/sauthenticationdb.h>
#include <brixlib/protocol/users/suserdata.h>

#include <shared/streamversionscope.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace Fuzz {

namespace {

// A logged-in client may copy a folder into itself again and again, and all that doubles each time.
constexpr int kCommandLimit = 8;

class EchoPluggable final : public SPluggable
{
public:
    bool execute(const QByteArray &params, QByteArray &output,
                 const SPluggableEnvironment &environment) override
    {
        output = params;
        return environment.user();
    }
};

class Session final : public SServerFtp
{
public:
    Session(MemorySocket *socket, Interfaces::ISAuthenticationDb *users)
        : m_socket(socket)
    {
        setUuid(SessionBytes::uuid());
        setAuthenticationDb(users);
        // Paths that mean the same whatever the folder's name is.
        enableDocumentRoot(true);
        addPluggable(u"echo"_s, new EchoPluggable);
        addPluggable(u"list"_s, new SPluggableStringList({u"a"_s, u"b"_s}));
        connect(this, &Session::commandResult, this, [this](SCommandId id, bool succeeded) {
            m_hasFailed |= !id.isNull() && !succeeded;
        });
    }

    //! False when a command has failed. A frame that is no command does not count.
    bool allSucceeded() const { return !m_hasFailed; }
    bool hasExecuted() const { return m_commands > 0; }

protected:
    bool workerInit() override
    {
        setSocket(m_socket);
        return true;
    }

    bool executeCommand(SCommand *command) override
    {
        return ++m_commands <= kCommandLimit && SServerFtp::executeCommand(command);
    }

private:
    MemorySocket *const m_socket;
    int m_commands = 0;
    bool m_hasFailed = false;
};

QByteArray openingOf(ServerStage stage)
{
    switch (stage) {
    case ServerStage::Connected:
        return {};
    case ServerStage::InDevice:
        return SessionBytes::login() + SessionBytes::deviceCommand();
    default:
        return SessionBytes::login();
    }
}

// The disk on which the sessions work, and who may log in.
struct Server
{
    Server() { users.insert(new SUserData(u"alice"_s, u"secret"_s, folder.home())); }

    ScratchFolder folder;
    SAuthenticationDb users;
};

} // namespace

bool serverSession(const QByteArray &input)
{
    static Server server;
    const TestShared::StreamVersionScope scope(QDataStream::Qt_5_6);
    Input bytes(input);
    const QByteArray opening = openingOf(ServerStage(bytes.byte()));
    const quint8 pieceBytes = bytes.byte();
    MemorySocket socket(opening + bytes.rest(), pieceBytes);

    Session session(&socket, &server.users);
    session.init();
    bool goesOn = true;
    while (goesOn && socket.waitForReadyRead(0))
        goesOn = session.doWork();

    if (session.hasExecuted())
        server.folder.restore();
    return goesOn && session.allSucceeded() && socket.isReadToEnd();
}

} // namespace Fuzz
