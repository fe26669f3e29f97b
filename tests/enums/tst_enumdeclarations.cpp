// SPDX-License-Identifier: MIT
// Reads the sources of the library line by line, as a scanner for texts to translate does, and
// compares the enumerations it sees with the tables that the compiler made of them.
#include <brixlib/brixlib.h>

#include <shared/enumtable.h>

#include <QtCore/QDirIterator>
#include <QtCore/QMap>
#include <QtCore/QRegularExpression>

using namespace Talverine;
using namespace Talverine::Test;
using namespace Qt::StringLiterals;

namespace {

const QRegularExpression &macroPattern()
{
    static const QRegularExpression pattern(u"^S_ENUM_?T?(FLAGS)?_?T?(SIUNIT)?"_s);
    return pattern;
}

//! The name of the enumeration that a line begins to declare, or an empty text.
QString declaredName(const QString &line)
{
    const QRegularExpressionMatch match = macroPattern().match(line);
    if (!match.hasMatch())
        return QString();
    const QString simple = line.simplified();
    if (!simple.startsWith(match.captured() + u'('))
        return QString();
    const qsizetype open = simple.indexOf(u'(');
    return simple.sliced(open + 1, simple.indexOf(u',', open) - open - 1).simplified();
}

//! The name that a line marks for translation, or an empty text.
QString markedName(const QString &line)
{
    const auto word = "S_ENUM_TRANSLATION"_L1;
    QString text = line.simplified();
    if (!text.startsWith(word))
        return QString();
    text = text.sliced(word.size());
    text.chop(1);
    return text.sliced(1).simplified();
}

//! The keys of a declaration that stands in one line; \a text has the outer parentheses.
QList<QString> keysOfRow(const QString &text)
{
    const qsizetype comma = text.indexOf(u',');
    const QString list = text.sliced(comma + 1, text.size() - comma - 2);
    QList<QString> keys;
    for (QString piece : list.split(u',')) {
        piece = piece.simplified();
        if (piece.startsWith(u'('))
            piece.remove(0, 1);
        if (piece.endsWith(u')'))
            piece.chop(1);
        keys.append(piece.section(u'=', 0, 0).simplified());
    }
    return keys;
}

QString cutAt(const QString &text, QLatin1StringView mark)
{
    const qsizetype at = text.indexOf(mark);
    return at < 0 ? text : text.first(at);
}

//! The keys of a declaration with one key a line, read from \a lines behind the macro's line.
QList<QString> keysOfColumn(QStringList::const_iterator line, QStringList::const_iterator end)
{
    QList<QString> keys;
    bool comment = false;
    for (; line != end; ++line) {
        QString text = line->simplified();
        if (text.contains("*/"_L1)) {
            comment = false;
            continue;
        }
        if (text.startsWith("/*"_L1))
            comment = true;
        if (comment || text.startsWith("//"_L1))
            continue;
        if (text.startsWith(u')'))
            break;
        if (text.startsWith(u'('))
            text.remove(0, 1);
        text = cutAt(cutAt(text, "="_L1), ","_L1);
        const bool last = text.endsWith(u')');
        if (last)
            text.chop(1);
        text = cutAt(cutAt(text, "//"_L1), "/*"_L1).simplified();
        if (!text.isEmpty())
            keys.append(text);
        if (last)
            break;
    }
    return keys;
}

struct Declarations
{
    QMap<QString, QList<QString>> keys; //!< by the name of the enumeration
    QList<QString> marked;
};

void scan(const QStringList &lines, Declarations *found)
{
    static const QRegularExpression balanced(u"(\\(([^()]|(?R))*\\))"_s);
    for (auto line = lines.cbegin(); line != lines.cend(); ++line) {
        if (const QString name = markedName(*line); !name.isEmpty())
            found->marked.append(name);
        const QString name = declaredName(*line);
        if (name.isEmpty())
            continue;
        const auto row = balanced.match(*line, line->indexOf(u'('));
        found->keys.insert(name, row.hasMatch() ? keysOfRow(row.captured())
                                                : keysOfColumn(std::next(line), lines.cend()));
    }
}

Declarations scanText(const char *text)
{
    Declarations found;
    scan(QString::fromUtf8(text).split(u'\n'), &found);
    return found;
}

Declarations scanFolder(const QString &folder)
{
    Declarations found;
    QDirIterator files(folder, {u"*.h"_s, u"*.cpp"_s}, QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        QFile file(files.next());
        if (file.open(QIODevice::ReadOnly | QIODevice::Text))
            scan(QString::fromUtf8(file.readAll()).split(u'\n'), &found);
    }
    return found;
}

template<typename Companion>
void addTable(QMap<QString, QList<QString>> *tables)
{
    QList<QString> keys;
    for (const EnumPair &pair : declaredPairs<Companion>())
        keys.append(pair.first);
    tables->insert(Companion::instance().name(), keys);
}

//! The keys of every enumeration of the library as the compiler saw them.
QMap<QString, QList<QString>> compiledTables()
{
    QMap<QString, QList<QString>> tables;
    addTable<BinaryUnit_T>(&tables);
    addTable<Bool_T>(&tables);
    addTable<ByteOrder_T>(&tables);
    addTable<Compression::CompressionAlgorithm_T>(&tables);
    addTable<ConcurrenceMode_T>(&tables);
    addTable<CpuFeatureFlags_T>(&tables);
    addTable<DatabaseSpecialRecordField_T>(&tables);
    addTable<DBAuthGrants_T>(&tables);
    addTable<DBError_T>(&tables);
    addTable<DBRecordSpecialField_T>(&tables);
    addTable<MetadataFlags_T>(&tables);
    addTable<OperatingSystemType_T>(&tables);
    addTable<PasswordType_T>(&tables);
    addTable<SCSLengthUnit_T>(&tables);
    addTable<SILengthUnit_T>(&tables);
    addTable<SIPrefix_T>(&tables);
    addTable<SimpleWorkerError_T>(&tables);
    addTable<SpecialFolder_T>(&tables);
    addTable<StringCase_T>(&tables);
    return tables;
}

} // namespace

class tst_EnumDeclarations : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void scannerReadsEveryLayout_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("keys");
        QTest::newRow("one line") << QByteArray("S_ENUM(E, A, B = 5, C)") << u"A B C"_s;
        QTest::newRow("a key a line") << QByteArray("S_ENUM(E,\n    A = 0,\n    B\n)") << u"A B"_s;
        QTest::newRow("comments")
            << QByteArray("S_ENUM(E,\n  // first, = )\n  A = 0, // a\n  /* long\n x\n */\n  B\n)")
            << u"A B"_s;
        QTest::newRow("closed behind the last key")
            << QByteArray("S_ENUM(E,\n    A,\n    B)\nint x;") << u"A B"_s;
        QTest::newRow("flags") << QByteArray("S_ENUM_FLAGS(E,\n A = 1\n)") << u"A"_s;
        QTest::newRow("with a type")
            << QByteArray("S_ENUM_T(E,\n(\n    A = 0,\n    B = 1\n), bool)") << u"A B"_s;
        QTest::newRow("flags with a type")
            << QByteArray("S_ENUM_FLAGS_T(E,\n(A = 0,\nB = 1\n), quint64)") << u"A B"_s;
        QTest::newRow("indented is not seen") << QByteArray(" S_ENUM(E, A)") << QString();
        QTest::newRow("defined macro is not seen")
            << QByteArray("#define S_ENUM(E, A)") << QString();
    }

    void scannerReadsEveryLayout()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, keys);
        const Declarations found = scanText(text.constData());
        QCOMPARE(found.keys.value(u"E"_s).join(u' '), keys);
        QCOMPARE(found.keys.size(), keys.isEmpty() ? 0 : 1);
    }

    void scannerReadsTranslationMarks()
    {
        const Declarations found = scanText("S_ENUM_TRANSLATION(E)\n  S_ENUM_TRANSLATION( F )\n");
        QCOMPARE(found.marked, QList<QString>({u"E"_s, u"F"_s}));
        QVERIFY(found.keys.isEmpty());
    }

    void sourcesAndTablesAgree()
    {
        const QMap<QString, QList<QString>> scanned = scanFolder(QStringLiteral(BRIX_SOURCES)).keys;
        const QMap<QString, QList<QString>> compiled = compiledTables();
        QCOMPARE(scanned.keys(), compiled.keys());
        for (const QString &name : compiled.keys())
            QCOMPARE(scanned.value(name), compiled.value(name));
    }

    void everyMarkedEnumerationIsDeclared()
    {
        const Declarations found = scanFolder(QStringLiteral(BRIX_SOURCES));
        QVERIFY(found.marked.size() > 10);
        for (const QString &name : found.marked)
            QVERIFY2(found.keys.contains(name), qPrintable(name));
    }
};

QTEST_APPLESS_MAIN(tst_EnumDeclarations)
#include "tst_enumdeclarations.moc"
