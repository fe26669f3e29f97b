// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

// What each platform and each kind of processor answers in a file of its own.
namespace Talverine::CpuPlatform {

//! The features as the bits of CpuFeatureBits.
quint64 features();

//! Threads that one core runs at a time; 1 or less when the system does not tell.
int threadsPerCore();

} // namespace Talverine::CpuPlatform

//! The values behind CpuFeatureFlags; they stay fixed.
namespace Talverine::CpuFeatureBits {

inline constexpr quint64 MMX = quint64{1} << 0;
inline constexpr quint64 SSE = quint64{1} << 1;
inline constexpr quint64 SSE2 = quint64{1} << 2;
inline constexpr quint64 SSE3 = quint64{1} << 3;
inline constexpr quint64 SSSE3 = quint64{1} << 4;
inline constexpr quint64 SSE41 = quint64{1} << 5;
inline constexpr quint64 SSE42 = quint64{1} << 6;
inline constexpr quint64 POPCNT = quint64{1} << 7;
inline constexpr quint64 AES = quint64{1} << 8;
inline constexpr quint64 PCLMULQDQ = quint64{1} << 9;
inline constexpr quint64 AVX = quint64{1} << 10;
inline constexpr quint64 F16C = quint64{1} << 11;
inline constexpr quint64 FMA = quint64{1} << 12;
inline constexpr quint64 BMI1 = quint64{1} << 13;
inline constexpr quint64 BMI2 = quint64{1} << 14;
inline constexpr quint64 AVX2 = quint64{1} << 15;
inline constexpr quint64 LZCNT = quint64{1} << 16;
inline constexpr quint64 MOVBE = quint64{1} << 17;
inline constexpr quint64 RDRAND = quint64{1} << 18;
inline constexpr quint64 RDSEED = quint64{1} << 19;
inline constexpr quint64 ADX = quint64{1} << 20;
inline constexpr quint64 SHA = quint64{1} << 21;
inline constexpr quint64 GFNI = quint64{1} << 22;
inline constexpr quint64 VAES = quint64{1} << 23;
inline constexpr quint64 VPCLMULQDQ = quint64{1} << 24;
inline constexpr quint64 AVX512F = quint64{1} << 32;
inline constexpr quint64 AVX512DQ = quint64{1} << 33;
inline constexpr quint64 AVX512CD = quint64{1} << 34;
inline constexpr quint64 AVX512BW = quint64{1} << 35;
inline constexpr quint64 AVX512VL = quint64{1} << 36;
inline constexpr quint64 AVX512IFMA = quint64{1} << 37;
inline constexpr quint64 AVX512VBMI = quint64{1} << 38;
inline constexpr quint64 AVX512VBMI2 = quint64{1} << 39;
inline constexpr quint64 AVX512VNNI = quint64{1} << 40;
inline constexpr quint64 AVX512BITALG = quint64{1} << 41;
inline constexpr quint64 AVX512VPOPCNTDQ = quint64{1} << 42;
inline constexpr quint64 NEON = quint64{1} << 48;

} // namespace Talverine::CpuFeatureBits
