// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/sconcretecommand.h>

#include <QtCore/QString>

namespace Talverine {

//! Turns the connection into a device over one remote file. Reply: raw requests and answers until
//! the client closes the device.
class BRIXLIB_EXPORT SCommandClientDevice : public SConcreteCommand<SCommandClientDevice>
{
public:
    SCommandClientDevice();
    explicit SCommandClientDevice(const QString &fileName);

    bool operator==(const SCommandClientDevice &other) const = default;

    //! The remote file's path.
    QString fileName() const { return m_fileName; }
    void setFileName(const QString &fileName) { m_fileName = fileName; }

private:
    friend SConcreteCommand;
    void readFields(QDataStream &stream);
    void writeFields(QDataStream &stream) const;

    QString m_fileName;
};

} // namespace Talverine
