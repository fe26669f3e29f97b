// SPDX-License-Identifier: MIT
// A jail that resolves links and compares whole names.
#include <brixlib/protocol/scommunicatorbase.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>
#include <QtTest/QTest>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

class Communicator : public SCommunicatorBase
{
public:
    using SCommunicatorBase::absoluteChildPath;
    using SCommunicatorBase::setRootPath;

protected:
    bool doWork() override { return true; }
};

bool writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(cannot be read)");
}

} // namespace

class tst_StrictJail : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Communicator> m_communicator;

    QString path(const QString &name) const
    {
        return QDir(m_dir->path()).canonicalPath() + u'/' + name;
    }
    void link(const QString &target, const QString &name) const
    {
        QVERIFY(QFile::link(target, path(name)));
    }

private Q_SLOTS:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        for (const QString &name : {u"home"_s, u"home/sub"_s, u"home2"_s, u"HOME"_s, u"outside"_s})
            QVERIFY(QDir().mkpath(path(name)));
        QVERIFY(writeFile(path(u"home/file"_s), "mine"));
        QVERIFY(writeFile(path(u"home2/file"_s), "a neighbour's"));
        QVERIFY(writeFile(path(u"outside/file"_s), "another's"));
        m_communicator = std::make_unique<Communicator>();
        m_communicator->setStrictJail(true);
        QVERIFY(m_communicator->setRootPath(path(u"home"_s)));
    }

    void isOffByDefault()
    {
        Communicator communicator;
        QVERIFY(!communicator.isJailStrict());
        QVERIFY(communicator.setRootPath(path(u"home"_s)));
        link(path(u"outside"_s), u"home/out"_s);
        QCOMPARE(communicator.absoluteChildPath(u"out/file"_s, path(u"home"_s)),
                 path(u"home/out/file"_s));
        QVERIFY(communicator.existsLocal(path(u"home2/file"_s)));
    }

    void pathInsideStaysAsItIs_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("the home") << u"."_s;
        QTest::newRow("a file") << u"file"_s;
        QTest::newRow("a directory") << u"sub"_s;
        QTest::newRow("what does not exist") << u"new"_s;
        QTest::newRow("far below what exists") << u"new/newer/newest"_s;
        QTest::newRow("by way of the parent") << u"sub/../file"_s;
        QTest::newRow("below a file") << u"file/below"_s;
        QTest::newRow("a link inside") << u"in"_s;
        QTest::newRow("below a link inside") << u"in/new"_s;
    }

    void pathInsideStaysAsItIs()
    {
        QFETCH(QString, name);
        link(path(u"home/sub"_s), u"home/in"_s);
        QCOMPARE(m_communicator->absoluteChildPath(name, path(u"home"_s)),
                 QDir::cleanPath(path(u"home/"_s + name)));
    }

    void pathOutsideIsRefused_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("a neighbour whose name begins alike") << u"../home2"_s;
        QTest::newRow("a neighbour's file") << u"../home2/file"_s;
        QTest::newRow("a neighbour's new file") << u"../home2/new"_s;
        QTest::newRow("a neighbour to be made") << u"../home3/new"_s;
        QTest::newRow("a neighbour of another case") << u"../HOME/new"_s;
        QTest::newRow("the parent") << u".."_s;
        QTest::newRow("a link to a directory outside") << u"out"_s;
        QTest::newRow("a file below it") << u"out/file"_s;
        QTest::newRow("a new file below it") << u"out/new/newer"_s;
        QTest::newRow("a link to a file outside") << u"outfile"_s;
        QTest::newRow("a link to nothing outside") << u"dangling"_s;
        QTest::newRow("below a link to nothing") << u"dangling/new"_s;
        QTest::newRow("a link to the neighbour") << u"sub/neighbour"_s;
        QTest::newRow("a link to a link") << u"chain/file"_s;
        QTest::newRow("a circle") << u"circle"_s;
    }

    void pathOutsideIsRefused()
    {
        QFETCH(QString, name);
        link(path(u"outside"_s), u"home/out"_s);
        link(path(u"outside/file"_s), u"home/outfile"_s);
        link(path(u"outside/missing"_s), u"home/dangling"_s);
        link(u"../../home2"_s, u"home/sub/neighbour"_s);
        link(u"sub/neighbour"_s, u"home/chain"_s);
        link(u"circle"_s, u"home/circle"_s);
        QCOMPARE(m_communicator->absoluteChildPath(name, path(u"home"_s)), QString());
        QVERIFY(!m_communicator->makeDirLocal(name));
        QVERIFY(!m_communicator->existsLocal(name));
        QVERIFY(!m_communicator->changeDirLocal(name));
        QVERIFY(!m_communicator->removeLocal(name, true));
        QVERIFY(!m_communicator->renameLocal(name, u"mine"_s));
        QVERIFY(!m_communicator->renameFileLocal(u"file"_s, name));
        QVERIFY(!m_communicator->copyFileLocal(name, u"mine"_s));
        QVERIFY(!m_communicator->copyFileLocal(u"file"_s, name));
        QVERIFY(!m_communicator->copyDirLocal(name, u"mine"_s));
        QVERIFY(!m_communicator->changePermissionsLocal(name, {}));
        QVERIFY(m_communicator->listDirLocal(name).isEmpty());
        QCOMPARE(readFile(path(u"outside/file"_s)), "another's"_ba);
        QCOMPARE(readFile(path(u"home2/file"_s)), "a neighbour's"_ba);
        QCOMPARE(readFile(path(u"home/file"_s)), "mine"_ba);
        QVERIFY(!QFileInfo::exists(path(u"home3"_s)));
        QVERIFY(!QFileInfo::exists(path(u"home/mine"_s)));
        QVERIFY(!QFileInfo::exists(path(u"outside/missing"_s)));
    }

    void homeThatIsALinkIsResolvedToo()
    {
        link(path(u"home"_s), u"alias"_s);
        QVERIFY(m_communicator->setRootPath(path(u"alias"_s)));
        QVERIFY(m_communicator->existsLocal(u"file"_s));
        QVERIFY(m_communicator->makeDirLocal(u"new/newer"_s));
        QVERIFY(QFileInfo::exists(path(u"home/new/newer"_s)));
        QVERIFY(!m_communicator->existsLocal(u"../home2/file"_s));
    }

    void homeThatIsGoneRefusesAll()
    {
        QVERIFY(QDir(path(u"home"_s)).removeRecursively());
        QVERIFY(!m_communicator->makeDirLocal(u"new"_s));
        QVERIFY(!QFileInfo::exists(path(u"home"_s)));
    }

    void linkThatLeadsOutsideIsNotListed()
    {
        link(path(u"outside/file"_s), u"home/sub/outfile"_s);
        link(path(u"home/file"_s), u"home/sub/infile"_s);
        QStringList names;
        for (const SFileEntry &entry : m_communicator->listDirLocal(u"sub"_s))
            names.append(QFileInfo(entry.fileName()).fileName());
        QCOMPARE(names, (QStringList{u".."_s, u"infile"_s}));
    }

    void copyOfADirectoryBringsNothingIn()
    {
        link(path(u"outside/file"_s), u"home/sub/outfile"_s);
        QVERIFY(!m_communicator->copyDirLocal(u"sub"_s, u"copy"_s));
        QVERIFY(!QFileInfo::exists(path(u"home/copy/outfile"_s)));
    }

    void removalOfADirectoryLeavesWhatItsLinksLeadTo()
    {
        link(path(u"outside"_s), u"home/sub/out"_s);
        QVERIFY(m_communicator->removeDirLocal(u"sub"_s, true));
        QVERIFY(!QFileInfo::exists(path(u"home/sub"_s)));
        QCOMPARE(readFile(path(u"outside/file"_s)), "another's"_ba);
    }
};

QTEST_GUILESS_MAIN(tst_StrictJail)
#include "tst_strictjail.moc"
