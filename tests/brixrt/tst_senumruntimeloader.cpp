// SPDX-License-Identifier: MIT
#include <brixrt/senumruntimeloader.h>

#include <brixlib/foundation/senum.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

// clang-format off
S_ENUM(Fruit,
    Apple = 0,
    Pear = 1
)
S_ENUM(Tree,
    Oak = 0
)
S_ENUM(Herb,
    Mint = 0
)
S_ENUM(Root,
    Carrot = 0
)
// clang-format on

// Adds one pair, and counts the tables it was given.
class Loader : public ISEnumRuntimeLoader
{
public:
    Loader(qint64 value, const QString &name)
        : m_value(value)
        , m_name(name)
    {
    }
    ~Loader() override { ++destroyed; }

    bool translate(const QString &text, QString *source, QString *translated) override
    {
        if (text != m_name && text != QString::number(m_value))
            return false;
        *source = m_name;
        *translated = m_name.toUpper();
        return true;
    }
    void load(ISEnum *table) override
    {
        ++loads;
        table->insert(m_value, m_name);
    }

    std::atomic_int loads = 0;
    static inline std::atomic_int destroyed = 0;

private:
    qint64 m_value;
    QString m_name;
};

// A loader that needs another enumeration's table, which is built by that, and one of its own.
class NestingLoader : public ISEnumRuntimeLoader
{
public:
    bool translate(const QString &, QString *, QString *) override { return false; }
    void load(ISEnum *table) override
    {
        table->insert(Herb_T::instance().values().size(), u"Nested"_s);
        SEnumRuntimeLoader::loaderRegister(u"Herb"_s, new Loader(5, u"Thyme"_s));
    }
};

// Registered before main(), as libraries do.
auto *const appleLoader = [] {
    auto *loader = new Loader(7, QStringLiteral("Fig"));
    SEnumRuntimeLoader::loaderRegister(QStringLiteral("Fruit"), loader);
    return loader;
}();

} // namespace

class tst_SEnumRuntimeLoader : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void loaderOfLoadTimeExtendsTheTable()
    {
        const Fruit_T table;
        QCOMPARE(appleLoader->loads.load(), 1);
        QCOMPARE(table.toString(7), u"Fig"_s);
        QCOMPARE(table.fromString(u"fig"_s, Fruit::Apple), static_cast<Fruit>(7));
        QCOMPARE(table.values(), QList<int>({0, 1, 7}));
    }

    void staticTableIsExtended() { QCOMPARE(Fruit_T::instance().toString(7), u"Fig"_s); }

    void lateLoaderExtendsTablesThatExist()
    {
        const Tree_T first;
        const Tree_T second;
        QCOMPARE(first.toString(3, QLocale::c()), u"3"_s);
        auto *loader = new Loader(3, u"Elm"_s);
        SEnumRuntimeLoader::loaderRegister(u"Tree"_s, loader);
        QCOMPARE(loader->loads.load(), 2);
        QCOMPARE(first.toString(3), u"Elm"_s);
        QCOMPARE(second.toString(3), u"Elm"_s);
        const Tree_T third;
        QCOMPARE(third.toString(3), u"Elm"_s);
    }

    void replacedLoaderIsAskedNoMoreButLives()
    {
        auto *first = new Loader(8, u"Ash"_s);
        auto *second = new Loader(9, u"Yew"_s);
        SEnumRuntimeLoader::loaderRegister(u"Tree"_s, first);
        const int loads = first->loads;
        SEnumRuntimeLoader::loaderRegister(u"Tree"_s, second);
        const Tree_T table;
        QCOMPARE(first->loads.load(), loads);
        QCOMPARE(table.toString(8, QLocale::c()), u"8"_s);
        QCOMPARE(table.toString(9), u"Yew"_s);
        QCOMPARE(SEnumRuntimeLoader::find(u"Tree"_s), second);
        QCOMPARE(Loader::destroyed.load(), 0);
    }

    void nullTakesTheLoaderAway()
    {
        SEnumRuntimeLoader::loaderRegister(u"Tree"_s, nullptr);
        QVERIFY(!SEnumRuntimeLoader::find(u"Tree"_s));
        const Tree_T table;
        QCOMPARE(table.values(), QList<int>({0}));
    }

    void deadTableIsForgotten()
    {
        {
            const Tree_T table;
        }
        auto *loader = new Loader(3, u"Elm"_s);
        SEnumRuntimeLoader::loaderRegister(u"Tree"_s, loader);
        QCOMPARE(loader->loads.load(), 0);
    }

    void loaderOfAnotherNameIsNotAsked()
    {
        QVERIFY(!SEnumRuntimeLoader::find(u"fruit"_s));
        QVERIFY(!SEnumRuntimeLoader::find(u"Unknown"_s));
        QCOMPARE(SEnumRuntimeLoader::find(u"Fruit"_s), appleLoader);
    }

    void translatorIsFoundByName()
    {
        ISEnumRuntimeLoader *loader = SEnumRuntimeLoader::find(u"Fruit"_s);
        QString source = u"s"_s;
        QString translated = u"t"_s;
        QVERIFY(!loader->translate(u"Pear"_s, &source, &translated));
        QCOMPARE(source, u"s"_s);
        QCOMPARE(translated, u"t"_s);
        QVERIFY(loader->translate(u"7"_s, &source, &translated));
        QCOMPARE(source, u"Fig"_s);
        QCOMPARE(translated, u"FIG"_s);
    }

    void loaderMayBuildAnotherTableAndRegister()
    {
        SEnumRuntimeLoader::loaderRegister(u"Root"_s, new NestingLoader);
        QCOMPARE(Root_T::instance().toString(1), u"Nested"_s);
        QCOMPARE(Herb_T::instance().toString(5), u"Thyme"_s);
    }

    void threadsBuildTablesWhileLoadersCome()
    {
        std::vector<std::thread> threads;
        std::atomic_int wrong = 0;
        for (int i = 0; i < 3; ++i) {
            threads.emplace_back([&wrong] {
                for (int round = 0; round < 500; ++round) {
                    const Fruit_T table;
                    wrong += table.toString(7, QLocale::c()) != u"Fig"_s;
                }
            });
        }
        threads.emplace_back([] {
            for (int round = 0; round < 500; ++round) {
                SEnumRuntimeLoader::loaderRegister(u"Other"_s, new Loader(1, u"One"_s));
                SEnumRuntimeLoader::find(u"Fruit"_s);
            }
        });
        for (std::thread &thread : threads)
            thread.join();
        QCOMPARE(wrong.load(), 0);
    }
};

QTEST_APPLESS_MAIN(tst_SEnumRuntimeLoader)
#include "tst_senumruntimeloader.moc"
