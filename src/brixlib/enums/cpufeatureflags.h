// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/senum.h>

#include <QtCore/QMetaType>

namespace Talverine {

/*!
 * Features of a processor; SCpuInfo::features() gives those of this machine. The low half holds
 * those of x86 up to 256 bits, from bit 32 on stands AVX-512, from bit 48 on what other processors
 * have.
 */
// clang-format off
S_ENUM_FLAGS_T(CpuFeatureFlags,
(
    None = 0,
    MMX = 0x1,
    SSE = 0x2,
    SSE2 = 0x4,
    SSE3 = 0x8,
    SSSE3 = 0x10,
    SSE41 = 0x20,
    SSE42 = 0x40,
    POPCNT = 0x80,
    AES = 0x100,
    PCLMULQDQ = 0x200,
    AVX = 0x400,
    F16C = 0x800,
    FMA = 0x1000,
    BMI1 = 0x2000,
    BMI2 = 0x4000,
    AVX2 = 0x8000,
    LZCNT = 0x10000,
    MOVBE = 0x20000,
    RDRAND = 0x40000,
    RDSEED = 0x80000,
    ADX = 0x100000,
    SHA = 0x200000,
    GFNI = 0x400000,
    VAES = 0x800000,
    VPCLMULQDQ = 0x1000000,
    AVX512F = 0x100000000,
    AVX512DQ = 0x200000000,
    AVX512CD = 0x400000000,
    AVX512BW = 0x800000000,
    AVX512VL = 0x1000000000,
    AVX512IFMA = 0x2000000000,
    AVX512VBMI = 0x4000000000,
    AVX512VBMI2 = 0x8000000000,
    AVX512VNNI = 0x10000000000,
    AVX512BITALG = 0x20000000000,
    AVX512VPOPCNTDQ = 0x40000000000,
    NEON = 0x1000000000000
), quint64)
// clang-format on

} // namespace Talverine

Q_DECLARE_METATYPE(Talverine::CpuFeatureFlags)
