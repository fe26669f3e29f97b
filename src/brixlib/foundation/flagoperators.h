// SPDX-License-Identifier: MIT
#pragma once

#include <type_traits>

/*!
 * Gives the scoped enumeration \a Enum the bit operators of a set of flags, and hasFlag(), which is
 * true when every bit of the second argument is set in the first. Stands in the namespace of the
 * enumeration, right behind it.
 */
#define BRIX_FLAG_OPERATORS(Enum)                                                                  \
    constexpr Enum operator|(Enum a, Enum b)                                                       \
    {                                                                                              \
        using Bits = std::underlying_type_t<Enum>;                                                 \
        return static_cast<Enum>(static_cast<Bits>(a) | static_cast<Bits>(b));                     \
    }                                                                                              \
    constexpr Enum operator&(Enum a, Enum b)                                                       \
    {                                                                                              \
        using Bits = std::underlying_type_t<Enum>;                                                 \
        return static_cast<Enum>(static_cast<Bits>(a) & static_cast<Bits>(b));                     \
    }                                                                                              \
    constexpr Enum operator~(Enum a)                                                               \
    {                                                                                              \
        using Bits = std::underlying_type_t<Enum>;                                                 \
        return static_cast<Enum>(~static_cast<Bits>(a));                                           \
    }                                                                                              \
    constexpr Enum &operator|=(Enum &a, Enum b)                                                    \
    {                                                                                              \
        return a = a | b;                                                                          \
    }                                                                                              \
    constexpr Enum &operator&=(Enum &a, Enum b)                                                    \
    {                                                                                              \
        return a = a & b;                                                                          \
    }                                                                                              \
    constexpr bool hasFlag(Enum set, Enum flags)                                                   \
    {                                                                                              \
        return (set & flags) == flags;                                                             \
    }
