// SPDX-License-Identifier: MIT
// Fetches one file from a server: fetch HOST PORT USER PASSWORD REMOTE LOCAL
#include <brixlib/fileservice.h>
#include <brixlib/protocol.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QFileInfo>
#include <QtCore/QTextStream>

using namespace Talverine;

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    if (arguments.size() != 7) {
        QTextStream(stderr) << "usage: fetch HOST PORT USER PASSWORD REMOTE LOCAL\n";
        return 2;
    }

    // The client moves to a thread of its own and deletes itself when that ends.
    auto *client = new SClientFtp(arguments[1], arguments[2].toUShort(), true);
    QObject::connect(client, &SClientFtp::getFileTransferredSize, &app,
                     [](qint64 done, qint64 total) {
                         QTextStream(stderr) << done << " of " << total << " bytes\n";
                     });
    QObject::connect(client, &SClientFtp::authenticationResult, &app,
                     [&](AuthenticationStatus status) {
                         if (status != AuthenticationStatus::Authenticated)
                             app.exit(1);
                     });
    QObject::connect(client, &SClientFtp::commandResult, &app, [&](SCommandId id, bool success) {
        if (!success || id == SCommandGetFile().id())
            app.exit(success ? 0 : 1);
    });

    SClientController controller;
    if (!controller.connectClient(client, true))
        return 3;
    client->authenticate(arguments[3], arguments[4]);
    // A client has a current folder of its own, which is not that of the program.
    client->getFile(arguments[5], QFileInfo(arguments[6]).absoluteFilePath(), false);
    return app.exec();
}
