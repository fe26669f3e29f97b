// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QFile>
#include <QtCore/QIODevice>
#include <QtCore/QString>

namespace Brix {

/*!
 * A file, with other bytes in front of it, that is only read, whatever mode it is opened in. It is
 * no QFileDevice, so a database on it takes no lock and makes no files beside it.
 *
 * Lives in one thread.
 */
class ReadOnlyDevice final : public QIODevice
{
public:
    explicit ReadOnlyDevice(const QString &file, const QByteArray &inFront = {});

    bool open(OpenMode mode) override;
    void close() override;
    qint64 size() const override { return m_inFront.size() + m_file.size(); }
    //! Why the file could not be opened or read.
    QString fileError() const { return m_file.errorString(); }

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *data, qint64 size) override;

private:
    QByteArray m_inFront;
    QFile m_file;
};

} // namespace Brix
