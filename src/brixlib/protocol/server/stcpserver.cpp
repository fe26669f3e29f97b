// SPDX-License-Identifier: MIT
#include <brixlib/protocol/server/stcpserver.h>

namespace Talverine {

namespace {

// The usual 50 places lose connections when some hundred clients come at once.
constexpr int kBacklog = 1024;

} // namespace

STcpServer::STcpServer(QObject *parent)
    : QTcpServer(parent)
{
    setListenBacklogSize(kBacklog);
}

STcpServer::~STcpServer() = default;

void STcpServer::incomingConnection(qintptr socketDescriptor)
{
    Q_EMIT newConnection(static_cast<qint64>(socketDescriptor));
}

} // namespace Talverine

#include "moc_stcpserver.cpp"
