// SPDX-License-Identifier: MIT
#include "databaseview.h"

#include "opendatabase.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

namespace Brix {

using namespace Qt::StringLiterals;
using Talverine::DBError;

DatabaseView::DatabaseView(const QString &file)
    : m_file(file)
{
}

DatabaseView::~DatabaseView()
{
    m_database.close();
}

DBError DatabaseView::tryOpen()
{
    const DBError error = openWithHead({});
    // An empty file is no database that has lost its head.
    if (error != DBError::WrongDB || QFileInfo(m_file).size() == 0)
        return error;
    QFile copy(QFileInfo(m_file).canonicalFilePath() + u".srec"_s);
    m_isHeadFromCopy = copy.open(QIODevice::ReadOnly);
    return m_isHeadFromCopy ? openWithHead(copy.readAll()) : error;
}

void DatabaseView::open()
{
    const DBError error = tryOpen();
    if (error != DBError::NoError)
        throw OpenDatabase::failure(m_file, error);
}

DBError DatabaseView::openWithHead(const QByteArray &head)
{
    auto device = std::make_unique<ReadOnlyDevice>(m_file, head);
    const bool isOpen = m_database.open(device.get());
    const DBError error = isOpen ? DBError::NoError : m_database.error();
    m_device = std::move(device);
    if (error == DBError::OpenError)
        throw Failure{ExitCode::LocalIo,
                      u"cannot read %1: %2"_s.arg(m_file, m_device->fileError())};
    return error;
}

} // namespace Brix
