// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/devices/siobuffer.h>
#include <brixlib/enums/authenticationstatus.h>
#include <brixlib/fileservice/device/sclientdevice.h>
#include <brixlib/protocol/blockingio_p.h>
#include <brixlib/protocol/clientdevicecommands.h>
#include <brixlib/protocol/socket/stcpsocket.h>
#include <brixlib/protocol/socket/stcpsocketspeedcontroller.h>

#include <QtCore/QPointer>
#include <QtCore/QScopedValueRollback>
#include <QtCore/QUuid>

namespace Talverine {

class SCommand;

/*!
 * The client's end of a device session: the steps that begin it, in this order, and its requests.
 *
 * After an exchange that broke off midway, bytes of one reply could pass for those of another, so
 * nothing is asked any more.
 */
class SClientDevice::Session
{
public:
    static constexpr qint64 kUnknownSize = -1;

    Session();

    //! Reads the greeting from \a newSocket and takes it for the session's.
    bool begin(STcpSocket *newSocket);
    //! Stays true for good: another server would know nothing of this session.
    bool hasBegun() const { return !m_uuid.isNull(); }
    bool authenticate(const QString &user, const QByteArray &hashedPassword);
    //! Names the file; from here on requests are answered.
    bool clientDevice(const QString &fileName);
    bool openFile(OpenMode mode);

    //! Reads at most \a size bytes; their number, or -1.
    qint64 read(char *data, qint64 size);
    //! Sends all of \a data, with \a wait until it has left; its size, or -1.
    qint64 write(const char *data, qint64 size, bool wait);
    bool seek(qint64 position);
    //! kUnknownSize when the server does not tell.
    qint64 askSize();
    //! Ends the device; true when the server has confirmed it.
    bool finish();
    //! Closes the connection.
    void hangUp();

    void setSpeedController(STcpSocketSpeedController *newController);

    BlockingIo io;
    QPointer<STcpSocket> socket;
    qint64 sizeCache = kUnknownSize;
    SIOBuffer readBuffer{1};
    SIOBuffer writeBuffer{1};
    Error error = Error::None;
    bool isClosing = false; // the end has been told, or is being told

private:
    template<class Steps>
    bool exchange(Steps steps);
    bool fail(Error why);
    bool sendCommand(const SCommand &command);
    bool command(ClientDeviceCommands request, const QByteArray &argument = {}, int timeout = -1);
    bool readCount(qint64 wanted, quint64 *count);
    bool ask(ClientDeviceCommands request, const QByteArray &argument);

    QUuid m_uuid;
    AuthenticationStatus m_authenticationStatus = AuthenticationStatus::NotAuthenticated;
    QPointer<STcpSocketSpeedController> m_speedController;
    bool m_isStarted = false;    // the server answers requests
    bool m_isInStep = true;      // every reply so far has come whole
    bool m_isExchanging = false; // a reply is being waited for
};

} // namespace Talverine
