// SPDX-License-Identifier: MIT
// brix db check, as a process.
#include "limitedprocess.h"
#include "tooldatabase.h"

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

// The number of the line that begins with this text, counted from 1.
qint64 lineOf(const QByteArray &bytes, const QByteArray &text, int which = 0)
{
    qsizetype at = bytes.indexOf('\n' + text);
    for (int i = 0; i < which; ++i)
        at = bytes.indexOf('\n' + text, at + 1);
    return bytes.first(at + 1).count('\n') + 1;
}

qint64 lines(const QByteArray &bytes)
{
    return bytes.count('\n') + (bytes.endsWith('\n') ? 0 : 1);
}

} // namespace

class tst_ToolDbCommandsCheck : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<ToolDatabase> m_place;

    // "LINE PROBLEM KEY" of each, and the exit code at the end.
    QStringList check(const QString &name = u"inks.db"_s) const
    {
        const auto result = m_place->db({u"check"_s, name, u"--json"_s});
        QStringList problems;
        for (const QByteArray &line : result.lines()) {
            const auto object = ToolDatabase::object(line);
            if (object.contains("problem"_L1))
                problems.append(u"%1 %2 %3"_s.arg(
                    QString::number(object.value("line"_L1).toInteger()),
                    object.value("problem"_L1).toString(), object.value("key"_L1).toString()));
        }
        return problems << QString::number(result.exitCode);
    }
    static QString problem(qint64 line, const QString &rest)
    {
        return QString::number(line) + u' ' + rest;
    }
    void replace(const QByteArray &bytes) const { QVERIFY(m_place->write(u"inks.db"_s, bytes)); }

private Q_SLOTS:
    void initTestCase() { QLoggingCategory::setFilterRules(u"default.debug=false"_s); }
    void init()
    {
        m_place = std::make_unique<ToolDatabase>();
        QVERIFY(m_place->create());
        QVERIFY(m_place->fill({u"cyan"_s, u"größe"_s, u"yellow"_s}));
    }

    void soundFileHasNoProblem()
    {
        QCOMPARE(m_place->asOwner({u"rm"_s, u"inks.db"_s, u"größe"_s}).exitCode, 0);
        const auto result = m_place->db({u"check"_s, u"inks.db"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, "2 records, 1 removed, 0 problems\n"_ba);
        const auto json = m_place->db({u"check"_s, u"inks.db"_s, u"--json"_s});
        QCOMPARE(ToolDatabase::object(json.out),
                 (QJsonObject{{u"records"_s, 2}, {u"deleted"_s, 1}, {u"problems"_s, 0}}));
        QVERIFY(m_place->db({u"check"_s, u"inks.db"_s, u"--quiet"_s}).out.isEmpty());
    }

    void emptyDatabaseHasNoProblem()
    {
        QVERIFY(m_place->create());
        QCOMPARE(check(), QStringList{u"0"_s});
    }

    void checkTouchesNothing()
    {
        QVERIFY(QFile::remove(m_place->path(u"inks.db.srec"_s)));
        QVERIFY(QFile::remove(m_place->path(u"inks.db.idx"_s)));
        const QByteArray before = m_place->read();
        QCOMPARE(check(), QStringList{u"0"_s});
        QCOMPARE(m_place->files(), QStringList{u"inks.db"_s});
        QCOMPARE(m_place->read(), before);
    }

    void changedValueIsFoundAtItsRecord()
    {
        const QByteArray bytes = m_place->read().replace("level = 5", "level = 6");
        replace(bytes);
        QCOMPARE(check(), (QStringList{problem(lineOf(bytes, "name = größe"), u"signature größe"_s),
                                       u"1"_s}));
        const auto text = m_place->db({u"check"_s, u"inks.db"_s});
        QVERIFY2(text.out.startsWith(m_place->path().toLocal8Bit() + ':' +
                                     QByteArray::number(lineOf(bytes, "name = größe")) +
                                     ": the signature of \"größe\" does not match\n"),
                 text.out.constData());
    }

    void changedLastRecordIsNotTorn()
    {
        const QByteArray bytes = m_place->read().replace("level = 6", "level = 7");
        replace(bytes);
        QCOMPARE(
            check(),
            (QStringList{problem(lineOf(bytes, "name = yellow"), u"signature yellow"_s), u"1"_s}));
    }

    void missingSignatureIsFound()
    {
        QByteArray bytes = m_place->read();
        const qsizetype begin = bytes.indexOf("_signature", bytes.indexOf("name = cyan"));
        bytes.remove(begin, bytes.indexOf('\n', begin) + 1 - begin);
        replace(bytes);
        QCOMPARE(check(),
                 (QStringList{problem(lineOf(bytes, "name = cyan"), u"unsigned cyan"_s), u"1"_s}));
    }

    void tornTailIsFoundWhereverItIsCut()
    {
        const QByteArray whole = m_place->read();
        const qsizetype begin = whole.indexOf("name = yellow");
        // Without its line end, the record is whole still.
        const QByteArray sound = whole.chopped(2);
        for (qsizetype size = begin + 1; size < sound.size(); ++size) {
            const QByteArray bytes = whole.first(size);
            replace(bytes);
            const QStringList found = check();
            QVERIFY2(found.size() == 2 && found[0].contains("torn"_L1) && found[1] == u"1"_s,
                     qPrintable(u"%1: %2"_s.arg(size).arg(found.join(u", "_s))));
            QVERIFY(found[0].startsWith(QString::number(lines(bytes)) + u' '));
            size += size < begin + 20 ? 0 : 12;
        }
        replace(sound);
        QCOMPARE(check(), QStringList{u"0"_s});
        replace(whole.first(begin - 2));
        QCOMPARE(check(), QStringList{u"0"_s});
    }

    void doubleKeyIsFound()
    {
        QByteArray bytes = m_place->read();
        const qsizetype begin = bytes.indexOf("name = cyan");
        bytes += "\r\n\r\n" + bytes.mid(begin, bytes.indexOf("\r\n\r\n", begin) - begin);
        replace(bytes + "\r\n");
        QCOMPARE(check(),
                 (QStringList{problem(lineOf(bytes, "name = cyan", 1), u"double cyan"_s), u"1"_s}));
    }

    void emptyKeyIsFound()
    {
        const QByteArray bytes = m_place->read().replace("name = cyan", "name = ");
        replace(bytes);
        const qint64 line = lineOf(bytes, "name = \r");
        QCOMPARE(check(), (QStringList{problem(line, u"keyless "_s), problem(line, u"signature "_s),
                                       u"1"_s}));
    }

    void destroyedHeadIsFound()
    {
        QByteArray bytes = m_place->read();
        bytes = "# nothing\r\n" + bytes.mid(bytes.indexOf("# --- Data"));
        replace(bytes);
        QCOMPARE(check(), (QStringList{u"1 head-from-copy "_s, u"1"_s}));
        QVERIFY(QFile::remove(m_place->path(u"inks.db.srec"_s)));
        const auto without = m_place->db({u"check"_s, u"inks.db"_s});
        QCOMPARE(without.exitCode, 1);
        QVERIFY2(without.err.contains("is not a database"), without.err.constData());
    }

    void forgedHeadIsFound()
    {
        const QByteArray bytes = m_place->read().replace("dbowner = ada", "dbowner = eve");
        replace(bytes);
        QCOMPARE(check(), (QStringList{problem(lineOf(bytes, "dbkey"), u"head "_s), u"1"_s}));
    }

    void oldSignaturesAreSound()
    {
        QByteArray bytes = m_place->read();
        bytes += "\r\n\r\nname = cyan2\r\nlevel = 12\r\n_signature = ";
        bytes += QCryptographicHash::hash(";cyan2;12", QCryptographicHash::Sha1).toHex() + "\r\n";
        replace(bytes);
        QCOMPARE(check(), QStringList{u"0"_s});
    }

    void manyProblemsComeInTheOrderOfTheFile()
    {
        QByteArray bytes = m_place->read();
        bytes.replace("level = 4", "level = 1").replace("level = 5", "level = 1");
        bytes.chop(10);
        replace(bytes);
        QCOMPARE(check(), (QStringList{problem(lineOf(bytes, "name = cyan"), u"signature cyan"_s),
                                       problem(lineOf(bytes, "name = größe"), u"signature größe"_s),
                                       problem(lines(bytes), u"torn yellow"_s), u"1"_s}));
    }

    void checkNeedsTheRightToRead()
    {
        QVERIFY(m_place->create(u"own.db"_s, DBAuthGrants::None));
        const auto refused = m_place->db({u"check"_s, u"own.db"_s});
        QCOMPARE(refused.exitCode, 1);
        QVERIFY2(refused.err.contains("does not grant this"), refused.err.constData());
        QCOMPARE(m_place->asOwner({u"check"_s, u"own.db"_s}).exitCode, 0);
    }

    void lockedDatabaseIsNotChecked()
    {
        SDBText holder;
        QVERIFY(holder.open(m_place->path()));
        const auto result = m_place->db({u"check"_s, u"inks.db"_s});
        QCOMPARE(result.exitCode, 4);
        QVERIFY2(result.err.contains("is in use by"), result.err.constData());
    }

    void longLineIsNoTrouble()
    {
        QByteArray bytes = m_place->read();
        bytes.insert(bytes.indexOf("name = cyan"), QByteArray(30'000'000, 'x') + "\r\n");
        replace(bytes);
        QCOMPARE(check(), QStringList{u"0"_s});
    }
};

QTEST_GUILESS_MAIN(tst_ToolDbCommandsCheck)
#include "tst_tooldbcommands_check.moc"
