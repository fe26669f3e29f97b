// SPDX-License-Identifier: MIT
#include <brixrt/scpuinfo.h>

#include <brixlib/enums/cpufeatureflags.h>

#include <brixrt/scpuinfo_p.h>

#include <array>
#include <string_view>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

struct Flag
{
    CpuFeatureFlags flag;
    quint64 bits;
    std::string_view name; // as the kernel spells it
};

#define FLAG(name, kernelName)                                                                     \
    Flag                                                                                           \
    {                                                                                              \
        CpuFeatureFlags::name, CpuFeatureBits::name, kernelName                                    \
    }
constexpr std::array kFlags{
    FLAG(MMX, "mmx"),
    FLAG(SSE, "sse"),
    FLAG(SSE2, "sse2"),
    FLAG(SSE3, "pni"),
    FLAG(SSSE3, "ssse3"),
    FLAG(SSE41, "sse4_1"),
    FLAG(SSE42, "sse4_2"),
    FLAG(POPCNT, "popcnt"),
    FLAG(AES, "aes"),
    FLAG(PCLMULQDQ, "pclmulqdq"),
    FLAG(AVX, "avx"),
    FLAG(F16C, "f16c"),
    FLAG(FMA, "fma"),
    FLAG(BMI1, "bmi1"),
    FLAG(BMI2, "bmi2"),
    FLAG(AVX2, "avx2"),
    FLAG(LZCNT, "abm"),
    FLAG(MOVBE, "movbe"),
    FLAG(RDRAND, "rdrand"),
    FLAG(RDSEED, "rdseed"),
    FLAG(ADX, "adx"),
    FLAG(SHA, "sha_ni"),
    FLAG(GFNI, "gfni"),
    FLAG(VAES, "vaes"),
    FLAG(VPCLMULQDQ, "vpclmulqdq"),
    FLAG(AVX512F, "avx512f"),
    FLAG(AVX512DQ, "avx512dq"),
    FLAG(AVX512CD, "avx512cd"),
    FLAG(AVX512BW, "avx512bw"),
    FLAG(AVX512VL, "avx512vl"),
    FLAG(AVX512IFMA, "avx512ifma"),
    FLAG(AVX512VBMI, "avx512vbmi"),
    FLAG(AVX512VBMI2, "avx512_vbmi2"),
    FLAG(AVX512VNNI, "avx512_vnni"),
    FLAG(AVX512BITALG, "avx512_bitalg"),
    FLAG(AVX512VPOPCNTDQ, "avx512_vpopcntdq"),
    FLAG(NEON, "asimd"),
};
#undef FLAG

// Words of the first line of that name in the kernel's own list; empty elsewhere.
QList<QByteArray> kernelFlags()
{
    QFile file(u"/proc/cpuinfo"_s);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith("flags") || line.startsWith("Features"))
            return line.mid(line.indexOf(':') + 1).simplified().split(' ');
    }
    return {};
}

} // namespace

class tst_SCpuInfo : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void countsAreAtLeastOne()
    {
        QVERIFY(SCpuInfo::idealThreadCount() >= 1);
        QVERIFY(SCpuInfo::threadsPerCore() >= 1);
        QCOMPARE(SCpuInfo::idealThreadCount(), std::max(1, QThread::idealThreadCount()));
    }

    void multiThreadingMeansSeveralThreadsPerCore()
    {
        QCOMPARE(SCpuInfo::isMultiThreadingEnabled(), SCpuInfo::threadsPerCore() > 1);
    }

    void enumerationNamesTheBitsThatAreFound_data()
    {
        QTest::addColumn<quint64>("flag");
        QTest::addColumn<quint64>("bits");
        for (const Flag &entry : kFlags) {
            QTest::newRow(entry.name.data())
                << static_cast<quint64>(entry.flag) << quint64{entry.bits};
        }
    }
    void enumerationNamesTheBitsThatAreFound()
    {
        QFETCH(quint64, flag);
        QFETCH(quint64, bits);
        QCOMPARE(flag, bits);
        QCOMPARE(qPopulationCount(flag), 1u);
    }

    void everyDeclaredFlagIsListedHere()
    {
        QCOMPARE(CpuFeatureFlags_T::instance().values().size(), qsizetype(kFlags.size()) + 1);
    }

    // The kernel leaves out what it has reason not to trust, so the other way round is not tested.
    void everyFeatureThatTheKernelTellsIsFound()
    {
        const QList<QByteArray> told = kernelFlags();
        QStringList missing;
        for (const Flag &entry : kFlags) {
            const QByteArray name(entry.name.data(), static_cast<qsizetype>(entry.name.size()));
            if (told.contains(name) && !hasFlag(SCpuInfo::features(), entry.flag))
                missing.append(CpuFeatureFlags_T::instance().toString(entry.flag));
        }
        QVERIFY2(missing.isEmpty(), qPrintable(missing.join(u", "_s)));
    }

    void featuresAreThoseThatTheCompilerFinds()
    {
        QStringList wrong;
        const auto compare = [&wrong](CpuFeatureFlags flag, bool expected) {
            if (hasFlag(SCpuInfo::features(), flag) != expected)
                wrong.append(CpuFeatureFlags_T::instance().toString(flag));
        };
#if defined(Q_PROCESSOR_X86) && defined(Q_CC_GNU_ONLY)
#define COMPARE(flag, name) compare(CpuFeatureFlags::flag, __builtin_cpu_supports(name) != 0)
        COMPARE(MMX, "mmx");
        COMPARE(SSE, "sse");
        COMPARE(SSE2, "sse2");
        COMPARE(SSE3, "sse3");
        COMPARE(SSSE3, "ssse3");
        COMPARE(SSE41, "sse4.1");
        COMPARE(SSE42, "sse4.2");
        COMPARE(POPCNT, "popcnt");
        COMPARE(AES, "aes");
        COMPARE(PCLMULQDQ, "pclmul");
        COMPARE(AVX, "avx");
        COMPARE(F16C, "f16c");
        COMPARE(FMA, "fma");
        COMPARE(BMI1, "bmi");
        COMPARE(BMI2, "bmi2");
        COMPARE(AVX2, "avx2");
        COMPARE(LZCNT, "lzcnt");
        COMPARE(MOVBE, "movbe");
        COMPARE(RDRAND, "rdrnd");
        COMPARE(RDSEED, "rdseed");
        COMPARE(ADX, "adx");
        COMPARE(SHA, "sha");
        COMPARE(GFNI, "gfni");
        COMPARE(VAES, "vaes");
        COMPARE(VPCLMULQDQ, "vpclmulqdq");
        COMPARE(AVX512F, "avx512f");
        COMPARE(AVX512DQ, "avx512dq");
        COMPARE(AVX512CD, "avx512cd");
        COMPARE(AVX512BW, "avx512bw");
        COMPARE(AVX512VL, "avx512vl");
        COMPARE(AVX512IFMA, "avx512ifma");
        COMPARE(AVX512VBMI, "avx512vbmi");
        COMPARE(AVX512VBMI2, "avx512vbmi2");
        COMPARE(AVX512VNNI, "avx512vnni");
        COMPARE(AVX512BITALG, "avx512bitalg");
        COMPARE(AVX512VPOPCNTDQ, "avx512vpopcntdq");
#undef COMPARE
#elif defined(Q_PROCESSOR_ARM_64)
        compare(CpuFeatureFlags::NEON, true);
#else
        compare(CpuFeatureFlags::NEON, false);
#endif
        QVERIFY2(wrong.isEmpty(), qPrintable(wrong.join(u", "_s)));
    }

    void featuresOfTheBuildAreThere()
    {
#ifdef Q_PROCESSOR_X86_64
        QVERIFY(hasFlag(SCpuInfo::features(),
                        CpuFeatureFlags::MMX | CpuFeatureFlags::SSE | CpuFeatureFlags::SSE2));
        QVERIFY(!hasFlag(SCpuInfo::features(), CpuFeatureFlags::NEON));
#elif defined(Q_PROCESSOR_ARM_64)
        QCOMPARE(SCpuInfo::features(), CpuFeatureFlags::NEON);
#else
        QCOMPARE(SCpuInfo::features(), CpuFeatureFlags::None);
#endif
    }

    void namesReadBackAsTheSet()
    {
        const auto &table = CpuFeatureFlags_T::instance();
        const CpuFeatureFlags set = CpuFeatureFlags::SSE2 | CpuFeatureFlags::AVX512F;
        QCOMPARE(table.toString(set), u"SSE2, AVX512F"_s);
        bool ok = false;
        QCOMPARE(
            table.fromString(u"SSE2, AVX512F"_s, CpuFeatureFlags::None, Qt::CaseInsensitive, &ok),
            set);
        QVERIFY(ok);
        QCOMPARE(table.toString(CpuFeatureFlags::None), u"None"_s);
        QCOMPARE(table.name(), u"CpuFeatureFlags"_s);
    }
};

QTEST_APPLESS_MAIN(tst_SCpuInfo)
#include "tst_scpuinfo.moc"
