// SPDX-License-Identifier: MIT
#include <brixlib/enums.h>
#include <brixlib/foundation/sbrixlibinfo.h>

#include <brixrt/svariantconvert.h>

#include <shared/enumtable.h>

#include <QtCore/QStandardPaths>

using namespace Talverine;
using namespace Talverine::Test;
using namespace Qt::StringLiterals;

namespace {

//! One enumeration: what its companion holds, what it should hold, and its values as variants.
struct Enumeration
{
    QString name;
    QMetaType type;
    QList<EnumPair> actual;
    QList<EnumPair> expected;
    QList<QVariant> variants;
    QList<QString> texts;
};

template<typename Companion>
Enumeration enumeration(QList<EnumPair> expected)
{
    using Enum = typename Companion::Enum;
    const Companion &table = Companion::instance();
    Enumeration result{table.name(),
                       QMetaType::fromType<Enum>(),
                       declaredPairs<Companion>(),
                       std::move(expected),
                       {},
                       {}};
    for (const auto value : table.values()) {
        result.variants.append(QVariant::fromValue(static_cast<Enum>(value)));
        result.texts.append(table.toString(static_cast<Enum>(value)));
    }
    return result;
}

QList<Enumeration> enumerations()
{
    return {
        enumeration<BinaryUnit_T>({{u"Byte"_s, 0},
                                   {u"KiB"_s, 10},
                                   {u"MiB"_s, 20},
                                   {u"GiB"_s, 30},
                                   {u"TiB"_s, 40},
                                   {u"PiB"_s, 50},
                                   {u"EiB"_s, 60},
                                   {u"ZiB"_s, 70},
                                   {u"YiB"_s, 80}}),
        enumeration<Bool_T>({{u"False"_s, 0}, {u"True"_s, 1}}),
        enumeration<ByteOrder_T>({{u"BigEndian"_s, 0}, {u"LittleEndian"_s, 1}}),
        enumeration<ConcurrenceMode_T>({{u"None"_s, 0},
                                        {u"Default"_s, 1},
                                        {u"Half"_s, 2},
                                        {u"MoreThanHalf"_s, 3},
                                        {u"AlmostFull"_s, 4},
                                        {u"Full"_s, 5}}),
        enumeration<MetadataFlags_T>({{u"None"_s, 0},
                                      {u"KillOnCopy"_s, 1},
                                      {u"KillOnSave"_s, 2},
                                      {u"KillOnSpaceTransform"_s, 4},
                                      {u"KillOnChanges"_s, 8},
                                      {u"KillOnPhysicalChange"_s, 16},
                                      {u"Volatile"_s, 31}}),
        enumeration<OperatingSystemType_T>({{u"Mac_OS"_s, 0},
                                            {u"macOS"_s, 1},
                                            {u"OSX"_s, 1},
                                            {u"iOS"_s, 2},
                                            {u"Windows"_s, 3},
                                            {u"Linux"_s, 4},
                                            {u"BSD_"_s, 5},
                                            {u"Unix"_s, 6},
                                            {u"Android"_s, 7},
                                            {u"Symbian"_s, 8},
                                            {u"OS_400"_s, 9},
                                            {u"OS_2"_s, 10},
                                            {u"BeOS"_s, 11},
                                            {u"watchOS"_s, 12},
                                            {u"tvOS"_s, 13},
                                            {u"iPadOS"_s, 14},
                                            {u"ChromeOS"_s, 15},
                                            {u"WearOS"_s, 16},
                                            {u"Unknown"_s, 17}}),
        enumeration<PasswordType_T>(
            {{u"None"_s, 0}, {u"Plain"_s, 1}, {u"Hash"_s, 2}, {u"Aes"_s, 3}}),
        enumeration<SCSLengthUnit_T>({{u"Inch"_s, 1},
                                      {u"Foot"_s, 12},
                                      {u"Yard"_s, 36},
                                      {u"Rod"_s, 198},
                                      {u"Furlong"_s, 7920},
                                      {u"Mile"_s, 63360}}),
        enumeration<SILengthUnit_T>(
            {{u"YoctoMeter"_s, -24}, {u"ZeptoMeter"_s, -21}, {u"AttoMeter"_s, -18},
             {u"FemtoMeter"_s, -15}, {u"PicoMeter"_s, -12},  {u"NanoMeter"_s, -9},
             {u"MicroMeter"_s, -6},  {u"MilliMeter"_s, -3},  {u"CentiMeter"_s, -2},
             {u"DeciMeter"_s, -1},   {u"Meter"_s, 0},        {u"DecaMeter"_s, 1},
             {u"HectoMeter"_s, 2},   {u"KiloMeter"_s, 3},    {u"MegaMeter"_s, 6},
             {u"GigaMeter"_s, 9},    {u"TeraMeter"_s, 12},   {u"PetaMeter"_s, 15},
             {u"ExaMeter"_s, 18},    {u"ZettaMeter"_s, 21},  {u"YottaMeter"_s, 24}}),
        enumeration<SIPrefix_T>({{u"Yocto"_s, -24}, {u"Zepto"_s, -21}, {u"Atto"_s, -18},
                                 {u"Femto"_s, -15}, {u"Pico"_s, -12},  {u"Nano"_s, -9},
                                 {u"Micro"_s, -6},  {u"Milli"_s, -3},  {u"Centi"_s, -2},
                                 {u"Deci"_s, -1},   {u"Base"_s, 0},    {u"Deca"_s, 1},
                                 {u"Hecto"_s, 2},   {u"Kilo"_s, 3},    {u"Mega"_s, 6},
                                 {u"Giga"_s, 9},    {u"Tera"_s, 12},   {u"Peta"_s, 15},
                                 {u"Exa"_s, 18},    {u"Zetta"_s, 21},  {u"Yotta"_s, 24}}),
        enumeration<SpecialFolder_T>(
            {{u"DesktopLocation"_s, 0},       {u"DocumentsLocation"_s, 1},
             {u"FontsLocation"_s, 2},         {u"ApplicationsLocation"_s, 3},
             {u"MusicLocation"_s, 4},         {u"MoviesLocation"_s, 5},
             {u"PicturesLocation"_s, 6},      {u"TempLocation"_s, 7},
             {u"HomeLocation"_s, 8},          {u"DataLocation"_s, 9},
             {u"AppLocalDataLocation"_s, 9},  {u"CacheLocation"_s, 10},
             {u"GenericDataLocation"_s, 11},  {u"RuntimeLocation"_s, 12},
             {u"ConfigLocation"_s, 13},       {u"DownloadLocation"_s, 14},
             {u"GenericCacheLocation"_s, 15}, {u"GenericConfigLocation"_s, 16},
             {u"AppDataLocation"_s, 17},      {u"AppConfigLocation"_s, 18},
             {u"RootLocation"_s, 100},        {u"CommonDataLocation"_s, 101},
             {u"ColorFolder"_s, 102}}),
        enumeration<StringCase_T>({{u"AsIs"_s, 0}, {u"Lower"_s, 1}, {u"Upper"_s, 2}}),
    };
}

void addEnumerations()
{
    QTest::addColumn<Enumeration>("enumeration");
    for (const Enumeration &row : enumerations())
        QTest::newRow(qPrintable(row.name)) << row;
}

} // namespace

class tst_SharedEnumerations : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // The enumerations stand in headers: only a call into the library keeps the linker from
    // dropping it, and what it registers at load with it.
    void initTestCase() { QCOMPARE(SBrixlibInfo::build(), 1); }

    void keysAndValues_data() { addEnumerations(); }

    void keysAndValues()
    {
        QFETCH(Enumeration, enumeration);
        QCOMPARE(enumeration.actual, enumeration.expected);
    }

    void firstNameIsTheText_data() { addEnumerations(); }

    void firstNameIsTheText()
    {
        QFETCH(Enumeration, enumeration);
        QHash<qint64, QString> first;
        for (const auto &[name, value] : enumeration.expected) {
            if (!first.contains(value))
                first.insert(value, name);
        }
        for (qsizetype i = 0; i < enumeration.expected.size(); ++i)
            QCOMPARE(enumeration.texts.at(i), first.value(enumeration.expected.at(i).second));
    }

    void typeIsKnownByBothSpellings_data() { addEnumerations(); }

    void typeIsKnownByBothSpellings()
    {
        QFETCH(Enumeration, enumeration);
        QCOMPARE(QMetaType::fromName(enumeration.name.toLatin1()), enumeration.type);
        QCOMPARE(QMetaType::fromName("Talverine::" + enumeration.name.toLatin1()),
                 enumeration.type);
    }

    void variantTurnsToText_data() { addEnumerations(); }

    void variantTurnsToText()
    {
        QFETCH(Enumeration, enumeration);
        for (qsizetype i = 0; i < enumeration.variants.size(); ++i) {
            QString text;
            QVERIFY(SVariantConvert::toString(enumeration.variants.at(i), QLocale::c(), &text));
            QCOMPARE(text, enumeration.texts.at(i));
            QCOMPARE(enumeration.variants.at(i).toString(), enumeration.texts.at(i));
        }
    }

    void variantOfAnUndeclaredValueTurnsToTheNumberOfTheLocale()
    {
        const auto value = QVariant::fromValue(static_cast<SCSLengthUnit>(1234567));
        QString text;
        QVERIFY(
            SVariantConvert::toString(value, QLocale(QLocale::German, QLocale::Germany), &text));
        QCOMPARE(text, u"1.234.567"_s);
    }

    void authenticationStatusHasTheNumbersOfTheWire()
    {
        QCOMPARE(quint32(AuthenticationStatus::NotAuthenticated), 0u);
        QCOMPARE(quint32(AuthenticationStatus::Authenticated), 1u);
        QCOMPARE(QMetaType::fromName("AuthenticationStatus"),
                 QMetaType::fromType<AuthenticationStatus>());
        QCOMPARE(QMetaType::fromName("Talverine::AuthenticationStatus"),
                 QMetaType::fromType<AuthenticationStatus>());
    }

    void specialFoldersRunParallelToTheStandardPaths_data()
    {
        QTest::addColumn<SpecialFolder>("folder");
        QTest::addColumn<QStandardPaths::StandardLocation>("location");
#define ROW(name) QTest::newRow(#name) << SpecialFolder::name << QStandardPaths::name
        ROW(DesktopLocation);
        ROW(DocumentsLocation);
        ROW(FontsLocation);
        ROW(ApplicationsLocation);
        ROW(MusicLocation);
        ROW(MoviesLocation);
        ROW(PicturesLocation);
        ROW(TempLocation);
        ROW(HomeLocation);
        ROW(AppLocalDataLocation);
        ROW(CacheLocation);
        ROW(GenericDataLocation);
        ROW(RuntimeLocation);
        ROW(ConfigLocation);
        ROW(DownloadLocation);
        ROW(GenericCacheLocation);
        ROW(GenericConfigLocation);
        ROW(AppDataLocation);
        ROW(AppConfigLocation);
#undef ROW
    }

    void specialFoldersRunParallelToTheStandardPaths()
    {
        QFETCH(SpecialFolder, folder);
        QFETCH(QStandardPaths::StandardLocation, location);
        QCOMPARE(int(folder), int(location));
    }

    void companionsStandOnTheTypeOfTheirEnumeration()
    {
        QVERIFY((std::is_base_of_v<SEnumBase<PasswordType, int>, PasswordType_T>));
        QVERIFY((std::is_same_v<std::underlying_type_t<PasswordType>, int>));
        QVERIFY((std::is_base_of_v<SEnumBase<Bool, bool>, Bool_T>));
        QVERIFY((std::is_same_v<std::underlying_type_t<Bool>, bool>));
        QVERIFY((std::is_base_of_v<SEnumBaseFlags<MetadataFlags, int>, MetadataFlags_T>));
        QVERIFY((std::is_base_of_v<SEnumBaseFlags<CpuFeatureFlags, quint64>, CpuFeatureFlags_T>));
        QVERIFY((std::is_same_v<std::underlying_type_t<CpuFeatureFlags>, quint64>));
    }

    void processorFeaturesAreRegisteredToo()
    {
        const auto type = QMetaType::fromType<CpuFeatureFlags>();
        QCOMPARE(QMetaType::fromName("CpuFeatureFlags"), type);
        QCOMPARE(QMetaType::fromName("Talverine::CpuFeatureFlags"), type);
        const auto value = QVariant::fromValue(CpuFeatureFlags::SSE2 | CpuFeatureFlags::NEON);
        QString text;
        QVERIFY(SVariantConvert::toString(value, QLocale::c(), &text));
        QCOMPARE(text, u"SSE2, NEON"_s);
        QCOMPARE(value.toString(), text);
    }

    void macOSHasAnAlias()
    {
        const auto &table = OperatingSystemType_T::instance();
        QCOMPARE(table.toString(1), u"macOS"_s);
        QCOMPARE(table.fromString(u"OSX"_s, OperatingSystemType::Unknown),
                 OperatingSystemType::macOS);
        QCOMPARE(OperatingSystemType::OSX, OperatingSystemType::macOS);
    }

    void metadataFlags_data()
    {
        QTest::addColumn<int>("value");
        QTest::addColumn<QString>("text");
        QTest::newRow("two flags") << 3 << u"KillOnCopy, KillOnSave"_s;
        QTest::newRow("all flags have a name") << 31 << u"Volatile"_s;
        QTest::newRow("undeclared bit") << 33 << u"33"_s;
        QTest::newRow("only undeclared bits") << 64 << u"64"_s;
        QTest::newRow("none") << 0 << u"None"_s;
    }

    void metadataFlags()
    {
        QFETCH(int, value);
        QFETCH(QString, text);
        QCOMPARE(MetadataFlags_T::instance().toString(value, QLocale::c()), text);
    }
};

QTEST_APPLESS_MAIN(tst_SharedEnumerations)
#include "tst_sharedenumerations.moc"
