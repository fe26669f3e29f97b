// SPDX-License-Identifier: MIT
#pragma once

#include <utility>

#include <sys/socket.h>
#include <unistd.h>

//! Owns a descriptor of the system; -1 for none.
class Descriptor final
{
public:
    explicit Descriptor(int value = -1)
        : m_value(value)
    {
    }
    Descriptor(Descriptor &&other) noexcept
        : m_value(std::exchange(other.m_value, -1))
    {
    }
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        std::swap(m_value, other.m_value);
        return *this;
    }
    ~Descriptor() { close(); }

    int value() const { return m_value; }
    bool isOpen() const { return m_value >= 0; }

    void close()
    {
        if (isOpen())
            ::close(std::exchange(m_value, -1));
    }

    //! Closes a socket so that its peer finds the connection broken off.
    void reset()
    {
        const linger atOnce{1, 0};
        setsockopt(m_value, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        close();
    }

private:
    int m_value;
};
