// SPDX-License-Identifier: MIT
#include <brixrt/s3rdparty.h>

#include <thread>
#include <vector>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

// Modules of other libraries in the process stand in the same list.
QList<S3rdParty::Module> modulesNamed(const QString &prefix)
{
    QList<S3rdParty::Module> modules = S3rdParty::modules();
    modules.removeIf(
        [&prefix](const S3rdParty::Module &entry) { return !entry.name.startsWith(prefix); });
    return modules;
}

// Registered before main(), as libraries do.
const bool registeredAtLoad = [] {
    S3rdParty::registerModule(QStringLiteral("load"), QStringLiteral(":/notices/load.txt"),
                              QStringLiteral("https://example.org/load"), 0x00010903);
    return true;
}();

} // namespace

class tst_S3rdParty : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void keepsWhatWasRegisteredAtLoad()
    {
        QVERIFY(registeredAtLoad);
        const QList<S3rdParty::Module> expected{
            {u"load"_s, u":/notices/load.txt"_s, u"https://example.org/load"_s, SVersion(1, 9, 3)}};
        QCOMPARE(modulesNamed(u"load"_s), expected);
    }

    void listsInOrderOfFirstRegistration()
    {
        S3rdParty::registerModule(u"order-b"_s);
        S3rdParty::registerModule(u"order-a"_s);
        S3rdParty::registerModule(u"order-c"_s);
        S3rdParty::registerModule(u"order-a"_s, u"notice"_s, u"address"_s, SVersion(2, 0, 0));

        const QList<S3rdParty::Module> expected{
            {u"order-b"_s, {}, {}, {}},
            {u"order-a"_s, u"notice"_s, u"address"_s, SVersion(2, 0, 0)},
            {u"order-c"_s, {}, {}, {}}};
        QCOMPARE(modulesNamed(u"order-"_s), expected);
    }

    void namesDifferInCase()
    {
        S3rdParty::registerModule(u"case-x"_s);
        S3rdParty::registerModule(u"case-X"_s);
        QCOMPARE(modulesNamed(u"case-"_s).size(), 2);
    }

    void emptyNameIsIgnored()
    {
        const QList<S3rdParty::Module> before = S3rdParty::modules();
        S3rdParty::registerModule(QString(), u"notice"_s);
        S3rdParty::registerModule(u""_s, u"notice"_s);
        QCOMPARE(S3rdParty::modules(), before);
    }

    void threadsRegisterAtOnce()
    {
        constexpr int kThreads = 8;
        constexpr int kModules = 100;
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([] {
                for (int module = 0; module < kModules; ++module) {
                    S3rdParty::registerModule(u"thread-%1"_s.arg(module));
                    if (modulesNamed(u"thread-"_s).size() < module)
                        qFatal("a registered module is missing");
                }
            });
        }
        for (std::thread &thread : threads)
            thread.join();
        const QList<S3rdParty::Module> modules = modulesNamed(u"thread-"_s);
        QCOMPARE(modules.size(), kModules);
        for (int module = 0; module < kModules; ++module)
            QCOMPARE(modules[module].name, u"thread-%1"_s.arg(module));
    }
};

QTEST_APPLESS_MAIN(tst_S3rdParty)
#include "tst_s3rdparty.moc"
