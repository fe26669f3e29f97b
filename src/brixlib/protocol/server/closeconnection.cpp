// SPDX-License-Identifier: MIT
#include "closeconnection_p.h"

#include <QtNetwork/QTcpSocket>

namespace Talverine {

void closeConnection(qint64 socketDescriptor)
{
    QTcpSocket socket;
    socket.setSocketDescriptor(static_cast<qintptr>(socketDescriptor),
                               QAbstractSocket::ConnectedState, QIODevice::ReadWrite);
    socket.close();
}

} // namespace Talverine
