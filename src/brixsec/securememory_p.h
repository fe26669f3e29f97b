// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

#include <cstddef>

namespace Talverine::Security {

/*!
 * Memory for a secret: pages of its own, kept out of the swap space and of crash dumps where the
 * system allows it. Null when there is no memory. Pages, since a lock on memory does not count: two
 * secrets in one page would lose it together.
 */
void *allocateSecure(std::size_t bytes);

//! Gives memory of allocateSecure() back; its content must have been wiped.
void releaseSecure(void *memory, std::size_t bytes);

/*!
 * A block of bytes that is wiped when it dies. It never moves, so no copy of a secret stays behind.
 */
class SecureBlock final
{
public:
    //! A copy of the bytes. Ends the program when there is no memory, as Qt's containers do.
    SecureBlock(const char *data, std::size_t size);
    //! As many zero bytes.
    explicit SecureBlock(std::size_t size);
    ~SecureBlock();
    Q_DISABLE_COPY_MOVE(SecureBlock)

    char *data() { return m_data; }
    const char *data() const { return m_data; }
    std::size_t size() const { return m_size; }

private:
    std::size_t m_size;
    char *m_data;
};

//! Overwrites the bytes in a way that no compiler leaves out.
void wipe(void *data, std::size_t bytes);

//! True when both are the same bytes; the time it takes depends on the sizes alone.
bool equalInConstantTime(const char *a, std::size_t sizeA, const char *b, std::size_t sizeB);

} // namespace Talverine::Security
