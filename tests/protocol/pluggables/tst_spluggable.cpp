// SPDX-License-Identifier: MIT
#include <brixlib/protocol/pluggables/spluggable.h>

#include <QtCore/QPluginLoader>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

class Reverse final : public SPluggable
{
public:
    using SPluggable::SPluggable;

    bool execute(const QByteArray &params, QByteArray &output,
                 const SPluggableEnvironment &environment) override
    {
        output = environment.value(u"serverName"_s).toString().toUtf8() + params;
        std::reverse(output.begin(), output.end());
        return !environment.isEmpty();
    }
};

} // namespace

class tst_SPluggable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshPluggableIsNull()
    {
        QObject parent;
        const Reverse pluggable(&parent);
        QVERIFY(pluggable.isNull());
        QVERIFY(pluggable.command().isEmpty());
        QCOMPARE(pluggable.parent(), &parent);
    }

    void pluggableWithACommandIsNotNull()
    {
        Reverse pluggable;
        pluggable.setCommand(u"reverse"_s);
        QVERIFY(!pluggable.isNull());
        QCOMPARE(pluggable.command(), u"reverse"_s);
        pluggable.setCommand(QString());
        QVERIFY(pluggable.isNull());
    }

    void executeIsGivenParametersAndEnvironment()
    {
        Reverse reverse;
        SPluggable &pluggable = reverse;
        SPluggableEnvironment environment;
        QByteArray output;
        QVERIFY(!pluggable.execute("abc"_ba, output, environment));
        QCOMPARE(output, "cba"_ba);
        environment.setValue(u"serverName"_s, u"xy"_s);
        QVERIFY(pluggable.execute("abc"_ba, output, environment));
        QCOMPARE(output, "cbayx"_ba);
    }

    void interfaceIdIsFixed()
    {
        QCOMPARE(qobject_interface_iid<SPluggable *>(), "Talverine.SPluggable/1.1");
        Reverse reverse;
        QObject *object = &reverse;
        QCOMPARE(qobject_cast<SPluggable *>(object), &reverse);
        QVERIFY(!qobject_cast<SPluggable *>(this));
    }

    void isLoadedFromAPlugIn()
    {
        QPluginLoader loader(QStringLiteral(ECHO_PLUGIN));
        QCOMPARE(loader.metaData().value("IID"_L1).toString(), u"Talverine.SPluggable/1.1"_s);
        auto *pluggable = qobject_cast<SPluggable *>(loader.instance());
        QVERIFY2(pluggable, qPrintable(loader.errorString()));
        QByteArray output;
        QVERIFY(pluggable->execute("ping"_ba, output, {}));
        QCOMPARE(output, "ping"_ba);
    }
};

QTEST_APPLESS_MAIN(tst_SPluggable)
#include "tst_spluggable.moc"
