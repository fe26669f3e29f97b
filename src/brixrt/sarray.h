// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <type_traits>
#include <utility>

namespace Talverine {

/*!
 * An array of plain elements whose size may be more than the machine can give: an allocation that
 * fails is a result, never an exception or the end of the program.
 *
 *     SArray<char> block(size);
 *     if (block.size() != size)
 *         return false;
 *
 * A value with deep copies; a copy that could not be allocated is null. Const calls may come from
 * any thread.
 */
template<typename T>
class SArray
{
    static_assert(std::is_trivially_copyable_v<T>, "elements are moved as bytes");
    static_assert(alignof(T) <= alignof(std::max_align_t), "storage is aligned as malloc() aligns");

public:
    //! A null array.
    SArray() noexcept = default;
    //! \a size elements, of zero bytes if \a init and else of any; null when they can't be had.
    explicit SArray(quint64 size, bool init = true) { static_cast<void>(resize(size, init)); }
    SArray(const SArray &other)
    {
        if (resize(other.m_size, false) && m_size > 0)
            std::memcpy(m_data.get(), other.m_data.get(), m_size * sizeof(T));
    }
    SArray(SArray &&other) noexcept
        : m_data(std::move(other.m_data))
        , m_size(std::exchange(other.m_size, 0))
    {
    }
    ~SArray() = default;

    SArray &operator=(const SArray &other)
    {
        if (this != &other)
            *this = SArray(other);
        return *this;
    }
    SArray &operator=(SArray &&other) noexcept
    {
        m_data = std::move(other.m_data);
        m_size = std::exchange(other.m_size, 0);
        return *this;
    }

    //! The first element, null when there is none; good until the size changes.
    T *data() noexcept { return m_data.get(); }
    const T *data() const noexcept { return m_data.get(); }
    //! Count of elements.
    quint64 size() const noexcept { return m_size; }
    //! Count of bytes.
    quint64 byteSize() const noexcept { return m_size * sizeof(T); }
    //! True when there is no element.
    bool isNull() const noexcept { return m_size == 0; }

    //! The element \a index of size(), which is not checked.
    T &operator[](quint64 index) noexcept { return m_data[index]; }
    const T &operator[](quint64 index) const noexcept { return m_data[index]; }

    /*!
     * Changes the count of elements and keeps those that fit. New ones are of zero bytes if \a init
     * and else of any. False when they can't be had, and nothing has changed then.
     */
    [[nodiscard]] bool resize(quint64 size, bool init = true)
    {
        if (size > kLargestSize)
            return false;
        if (size == 0) {
            m_data.reset();
        } else if (size != m_size) {
            T *block = reallocate(size, init);
            if (!block)
                return false;
            static_cast<void>(m_data.release());
            m_data.reset(block);
        }
        m_size = size;
        return true;
    }

    //! Sets each element to \a value.
    void fill(const T &value) { std::fill_n(m_data.get(), m_size, value); }

private:
    struct Free
    {
        void operator()(T *block) const noexcept { std::free(block); }
    };

    // No pointer difference within the array may overflow.
    static constexpr quint64 kLargestSize =
        static_cast<quint64>(std::numeric_limits<std::ptrdiff_t>::max()) / sizeof(T);

    T *reallocate(quint64 size, bool init)
    {
        // calloc() gets large blocks from the system already zeroed.
        if (!m_data && init)
            return static_cast<T *>(std::calloc(size, sizeof(T)));
        T *block = static_cast<T *>(std::realloc(m_data.get(), size * sizeof(T)));
        if (block && init && size > m_size)
            std::memset(static_cast<void *>(block + m_size), 0, (size - m_size) * sizeof(T));
        return block;
    }

    std::unique_ptr<T[], Free> m_data;
    quint64 m_size = 0;
};

} // namespace Talverine
