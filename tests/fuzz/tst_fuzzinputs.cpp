// SPDX-License-Identifier: MIT
// Runs the inputs that the targets in fuzz/ begin with, and those that have found an error once.
#include <fuzztarget.h>
#include <seeds.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

QDir folder(const QString &kind)
{
    return QDir(QStringLiteral(BRIX_FUZZ) + u'/' + kind);
}

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArrayLiteral("cannot be read");
}

QStringList folders(const QDir &dir)
{
    return dir.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
}

QStringList files(const QDir &dir)
{
    return dir.entryList(QDir::Files | QDir::Hidden, QDir::Name);
}

void addInputs(const QDir &kind)
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<QString>("path");
    for (const QString &target : folders(kind)) {
        const QDir dir(kind.filePath(target));
        for (const QString &name : files(dir))
            QTest::addRow("%s/%s", qPrintable(target), qPrintable(name))
                << target << dir.filePath(name);
    }
}

QStringList targetNames()
{
    QStringList names;
    for (const Fuzz::Target &target : Fuzz::targets())
        names.append(QString::fromLatin1(target.name));
    return names;
}

} // namespace

class tst_FuzzInputs : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { Fuzz::prepareProcess(); }

    void init() { QTest::failOnWarning(QRegularExpression(u"."_s)); }

    void everyTargetHasSeedsAndEveryFolderATarget()
    {
        QCOMPARE(folders(folder(u"corpus"_s)), targetNames());
        for (const QString &target : folders(folder(u"regressions"_s)))
            QVERIFY2(targetNames().contains(target), qPrintable(target));
    }

    // If not, fuzz_makeseeds writes them anew.
    void seedsAreThoseMadeOfTheGoldenBytes()
    {
        QStringList made;
        for (const Fuzz::Seed &seed : Fuzz::seeds()) {
            made.append(QString::fromLatin1(seed.target + '/' + seed.name));
            QCOMPARE(contents(folder(u"corpus"_s).filePath(made.last())).toHex(' '),
                     seed.bytes.toHex(' '));
        }
        QStringList stored;
        for (const QString &target : folders(folder(u"corpus"_s))) {
            for (const QString &name : files(QDir(folder(u"corpus"_s).filePath(target))))
                stored.append(target + u'/' + name);
        }
        made.sort();
        stored.sort();
        QCOMPARE(stored, made);
    }

    void seedIsAccepted_data() { addInputs(folder(u"corpus"_s)); }
    void seedIsAccepted()
    {
        QFETCH(const QString, target);
        QFETCH(const QString, path);
        QVERIFY(Fuzz::findTarget(target.toLatin1())(contents(path)));
    }

    // A well-formed input that ends early is an input as well, at every byte.
    void seedMayEndAnywhere_data() { addInputs(folder(u"corpus"_s)); }
    void seedMayEndAnywhere()
    {
        QFETCH(const QString, target);
        QFETCH(const QString, path);
        const Fuzz::Run run = Fuzz::findTarget(target.toLatin1());
        const QByteArray whole = contents(path);
        for (qsizetype size = 0; size < whole.size(); ++size)
            run(whole.first(size));
    }

    void whatHasFoundAnErrorFindsItNoMore_data() { addInputs(folder(u"regressions"_s)); }
    void whatHasFoundAnErrorFindsItNoMore()
    {
        QFETCH(const QString, target);
        QFETCH(const QString, path);
        Fuzz::findTarget(target.toLatin1())(contents(path));
    }

    void targetsAreFoundByTheirNames()
    {
        for (const Fuzz::Target &target : Fuzz::targets())
            QVERIFY(Fuzz::findTarget(target.name) == target.run);
        QVERIFY(!Fuzz::findTarget("no such target"));
    }

    void inputGivesItsBytesFromTheFront()
    {
        Fuzz::Input input("abcdef"_ba);
        QCOMPARE(input.byte(), quint8('a'));
        QCOMPARE(input.bytes(2).toByteArray(), "bc"_ba);
        QCOMPARE(input.rest(), "def"_ba);
        QCOMPARE(input.bytes(9).toByteArray(), "def"_ba);
        QCOMPARE(input.byte(), quint8(0));
        QVERIFY(input.rest().isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_FuzzInputs)
#include "tst_fuzzinputs.moc"
