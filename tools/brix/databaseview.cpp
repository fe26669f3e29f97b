// SPDX-License-Identifier: MIT
#include "databaseview.h"

#include "opendatabase.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <algorithm>

namespace Brix {

using namespace Qt::StringLiterals;
using Talverine::DBError;
using Talverine::SDBText;

namespace {

/*!
 * Reads a text and a file behind it, whatever mode it is opened in. It is no QFileDevice, so the
 * database takes it for one without a lock and companions.
 */
class ReadOnlyDevice final : public QIODevice
{
public:
    ReadOnlyDevice(const QString &file, const QByteArray &head)
        : m_head(head)
        , m_file(file)
    {
    }

    bool open(OpenMode) override
    {
        return m_file.open(ReadOnly | Unbuffered) && QIODevice::open(ReadOnly | Unbuffered);
    }
    void close() override
    {
        QIODevice::close();
        m_file.close();
    }
    qint64 size() const override { return m_head.size() + m_file.size(); }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        const qint64 position = pos();
        if (position < m_head.size()) {
            const qint64 count = std::min(maxSize, m_head.size() - position);
            std::copy_n(m_head.constData() + position, count, data);
            return count;
        }
        return m_file.seek(position - m_head.size()) ? m_file.read(data, maxSize) : -1;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    QByteArray m_head;
    QFile m_file;
};

} // namespace

DatabaseView::DatabaseView(const QString &file)
    : m_file(file)
{
}

DatabaseView::~DatabaseView()
{
    m_database.close();
}

SDBText &DatabaseView::open()
{
    m_device = std::make_unique<ReadOnlyDevice>(m_file, QByteArray());
    bool isOpen = m_database.open(m_device.get());
    const DBError error = m_database.error();
    // An empty file is no database that has lost its head.
    if (!isOpen && error == DBError::WrongDB && QFileInfo(m_file).size() > 0)
        isOpen = m_isHeadFromCopy = openWithCopy();
    if (isOpen)
        return m_database;
    if (error == DBError::OpenError)
        throw Failure{ExitCode::LocalIo,
                      u"cannot read %1: %2"_s.arg(m_file, QFile(m_file).errorString())};
    throw OpenDatabase::failure(m_file, error);
}

bool DatabaseView::openWithCopy()
{
    QFile copy(QFileInfo(m_file).canonicalFilePath() + u".srec"_s);
    if (!copy.open(QIODevice::ReadOnly))
        return false;
    auto device = std::make_unique<ReadOnlyDevice>(m_file, copy.readAll());
    const bool isOpen = m_database.open(device.get());
    m_device = std::move(device);
    return isOpen;
}

} // namespace Brix
