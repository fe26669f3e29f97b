// SPDX-License-Identifier: MIT
#include <brixlib/compression/icompressor.h>

#include <QtCore/QThread>

#include <algorithm>

namespace Talverine::Compression::Interfaces {

ICompressor::~ICompressor() = default;

bool ICompressor::isNull() const
{
    return false;
}

void ICompressor::setConcurrence(int threads)
{
    const int ideal = std::max(QThread::idealThreadCount(), 1);
    m_concurrence = std::clamp(threads == 0 ? ideal / 2 : threads, 1, ideal);
}

int ICompressor::concurrence() const
{
    return m_concurrence;
}

} // namespace Talverine::Compression::Interfaces
