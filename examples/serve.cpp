// SPDX-License-Identifier: MIT
// Serves a folder to one user on a free port of this machine: serve FOLDER USER PASSWORD
#include <brixlib/fileservice.h>
#include <brixlib/protocol.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QTextStream>

using namespace Talverine;

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    if (arguments.size() != 4) {
        QTextStream(stderr) << "usage: serve FOLDER USER PASSWORD\n";
        return 2;
    }

    SAuthenticationDb users;
    users.insert(
        new SUserData(arguments[2], arguments[3], arguments[1], QString(), QString(), false));

    SServerController controller;
    QObject::connect(&controller, &SServerController::newConnection, &app, [&](qint64 descriptor) {
        auto *server = new SServerFtp(descriptor);
        server->setAuthenticationDb(&users);
        controller.serveNewConnection(server, true);
    });
    if (!controller.listen(QHostAddress::LocalHost, 0))
        return 4;
    QTextStream(stdout) << "port " << controller.serverPort() << Qt::endl;
    return app.exec();
}
