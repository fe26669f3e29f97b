// SPDX-License-Identifier: MIT
#include "scpuinfo_p.h"

#include <array>
#include <cstddef>

#ifdef _MSC_VER
#include <intrin.h>
#else
#include <cpuid.h>
#endif

namespace Talverine::CpuPlatform {

namespace {

using namespace CpuFeatureBits;

enum Register : std::size_t { Eax, Ebx, Ecx, Edx };
using Registers = std::array<quint32, 4>;

// All zero for a leaf that the processor does not have.
Registers cpuid(quint32 leaf)
{
    Registers values{};
#ifdef _MSC_VER
    std::array<int, 4> signedValues{};
    __cpuid(signedValues.data(), static_cast<int>(leaf & 0x80000000));
    if (static_cast<quint32>(signedValues[Eax]) < leaf)
        return values;
    __cpuidex(signedValues.data(), static_cast<int>(leaf), 0);
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = static_cast<quint32>(signedValues[i]);
#else
    __get_cpuid_count(leaf, 0, &values[Eax], &values[Ebx], &values[Ecx], &values[Edx]);
#endif
    return values;
}

// Which registers the operating system keeps for each thread; 0 when it cannot be asked.
quint64 keptRegisters(quint32 featuresEcx)
{
    constexpr quint32 kOsXsave = 1u << 27;
    if ((featuresEcx & kOsXsave) == 0)
        return 0;
#ifdef _MSC_VER
    return _xgetbv(0);
#else
    quint32 low = 0;
    quint32 high = 0;
    __asm__ volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return quint64{high} << 32 | low;
#endif
}

constexpr quint64 kNoRegisters = 0;
constexpr quint64 kAvxRegisters = 0x06;    // XMM, YMM
constexpr quint64 kAvx512Registers = 0xE6; // the same, masks, both halves of ZMM

enum Leaf : std::size_t { Basic, Structured, Extended };
constexpr std::array<quint32, 3> kLeaves{1, 7, 0x80000001};

struct Feature
{
    quint64 flag;
    Leaf leaf;
    Register where;
    int bit;
    quint64 registers; // a feature is of use only where the system keeps these
};

constexpr Feature kFeatures[] = {
    {MMX, Basic, Edx, 23, kNoRegisters},
    {SSE, Basic, Edx, 25, kNoRegisters},
    {SSE2, Basic, Edx, 26, kNoRegisters},
    {SSE3, Basic, Ecx, 0, kNoRegisters},
    {PCLMULQDQ, Basic, Ecx, 1, kNoRegisters},
    {SSSE3, Basic, Ecx, 9, kNoRegisters},
    {FMA, Basic, Ecx, 12, kAvxRegisters},
    {SSE41, Basic, Ecx, 19, kNoRegisters},
    {SSE42, Basic, Ecx, 20, kNoRegisters},
    {MOVBE, Basic, Ecx, 22, kNoRegisters},
    {POPCNT, Basic, Ecx, 23, kNoRegisters},
    {AES, Basic, Ecx, 25, kNoRegisters},
    {AVX, Basic, Ecx, 28, kAvxRegisters},
    {F16C, Basic, Ecx, 29, kAvxRegisters},
    {RDRAND, Basic, Ecx, 30, kNoRegisters},
    {BMI1, Structured, Ebx, 3, kNoRegisters},
    {AVX2, Structured, Ebx, 5, kAvxRegisters},
    {BMI2, Structured, Ebx, 8, kNoRegisters},
    {AVX512F, Structured, Ebx, 16, kAvx512Registers},
    {AVX512DQ, Structured, Ebx, 17, kAvx512Registers},
    {RDSEED, Structured, Ebx, 18, kNoRegisters},
    {ADX, Structured, Ebx, 19, kNoRegisters},
    {AVX512IFMA, Structured, Ebx, 21, kAvx512Registers},
    {AVX512CD, Structured, Ebx, 28, kAvx512Registers},
    {SHA, Structured, Ebx, 29, kNoRegisters},
    {AVX512BW, Structured, Ebx, 30, kAvx512Registers},
    {AVX512VL, Structured, Ebx, 31, kAvx512Registers},
    {AVX512VBMI, Structured, Ecx, 1, kAvx512Registers},
    {AVX512VBMI2, Structured, Ecx, 6, kAvx512Registers},
    {GFNI, Structured, Ecx, 8, kNoRegisters},
    {VAES, Structured, Ecx, 9, kAvxRegisters},
    {VPCLMULQDQ, Structured, Ecx, 10, kAvxRegisters},
    {AVX512VNNI, Structured, Ecx, 11, kAvx512Registers},
    {AVX512BITALG, Structured, Ecx, 12, kAvx512Registers},
    {AVX512VPOPCNTDQ, Structured, Ecx, 14, kAvx512Registers},
    {LZCNT, Extended, Ecx, 5, kNoRegisters},
};

} // namespace

quint64 features()
{
    std::array<Registers, kLeaves.size()> leaves{};
    for (std::size_t i = 0; i < kLeaves.size(); ++i)
        leaves[i] = cpuid(kLeaves[i]);
    const quint64 kept = keptRegisters(leaves[Basic][Ecx]);

    quint64 found = 0;
    for (const Feature &feature : kFeatures) {
        const bool present = (leaves[feature.leaf][feature.where] >> feature.bit & 1) != 0;
        if (present && (kept & feature.registers) == feature.registers)
            found |= feature.flag;
    }
    return found;
}

} // namespace Talverine::CpuPlatform
