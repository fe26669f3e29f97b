// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/scommand.h>

#include <QtCore/QIODevice>
#include <QtCore/QPointer>
#include <QtCore/QString>

namespace Talverine {

/*!
 * What the commands that move a remote file from or to a device of the client share. Only the name
 * travels; a command that was read from bytes has no device.
 *
 * The destructor alone deletes a device that the command owns; setDevice() and assignments just let
 * go of it. Copies of an owning command all own the device, and the first that ends deletes it.
 */
class BRIXLIB_EXPORT SCommandIODevice : public SCommand
{
public:
    SCommandIODevice(const SCommandIODevice &) = default;
    ~SCommandIODevice() override;
    SCommandIODevice &operator=(const SCommandIODevice &) = default;

    bool operator==(const SCommandIODevice &other) const = default;

    //! The remote file's path.
    QString fileName() const { return m_fileName; }
    void setFileName(const QString &fileName) { m_fileName = fileName; }
    //! Null when none is set and once the device is gone.
    QIODevice *device() const { return m_device; }
    void setDevice(QIODevice *device) { m_device = device; }
    bool deviceOwnership() const { return m_deviceOwnership; }
    void setDeviceOwnership(bool owned) { m_deviceOwnership = owned; }
    //! Sets all fields back, without deleting the device; id and version stay.
    void clear();

protected:
    SCommandIODevice() = default;

    void init(const SCommandId &id, const QString &fileName, QIODevice *device,
              bool deviceOwnership, int version);

    void readFields(QDataStream &stream);
    void writeFields(QDataStream &stream) const;

private:
    QString m_fileName;
    QPointer<QIODevice> m_device;
    bool m_deviceOwnership = false;
};

} // namespace Talverine
