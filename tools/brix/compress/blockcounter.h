// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArrayView>

namespace Brix {

//! Counts the blocks of a framed stream as its bytes pass, in pieces of any size.
class BlockCounter final
{
public:
    void add(QByteArrayView bytes);
    //! Blocks that have begun.
    qint64 blocks() const { return m_blocks; }

private:
    void addLengthByte(char byte);

    qint64 m_blocks = 0;
    qint64 m_left = 0;    // of the block that passes
    quint32 m_length = 0; // as far as its bytes have come
    int m_lengthBytes = 0;
};

} // namespace Brix
