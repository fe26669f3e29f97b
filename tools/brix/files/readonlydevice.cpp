// SPDX-License-Identifier: MIT
#include "readonlydevice.h"

#include <algorithm>

namespace Brix {

ReadOnlyDevice::ReadOnlyDevice(const QString &file, const QByteArray &inFront)
    : m_inFront(inFront)
    , m_file(file)
{
}

bool ReadOnlyDevice::open(OpenMode)
{
    return m_file.open(ReadOnly | Unbuffered) && QIODevice::open(ReadOnly | Unbuffered);
}

void ReadOnlyDevice::close()
{
    QIODevice::close();
    m_file.close();
}

qint64 ReadOnlyDevice::readData(char *data, qint64 maxSize)
{
    const qint64 position = pos();
    if (position < m_inFront.size()) {
        const qint64 count = std::min<qint64>(maxSize, m_inFront.size() - position);
        std::copy_n(m_inFront.constData() + position, count, data);
        return count;
    }
    return m_file.seek(position - m_inFront.size()) ? m_file.read(data, maxSize) : -1;
}

qint64 ReadOnlyDevice::writeData(const char *, qint64)
{
    return -1;
}

} // namespace Brix
