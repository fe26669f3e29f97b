// SPDX-License-Identifier: MIT
// Holds every #include of the libraries and the tool to the layers of the project.
#include <QtCore/QDirIterator>
#include <QtCore/QMap>
#include <QtCore/QRegularExpression>
#include <QtCore/QSet>

using namespace Qt::StringLiterals;

namespace {

using Modules = QList<QString>;

/*!
 * The layers from the bottom up, and what each module may include beside itself. A new folder is
 * entered here with the lower modules that it builds on.
 */
struct Layer
{
    QMap<QString, Modules> allowed; //!< by the module of the layer
};

const QList<Layer> &layers()
{
    static const Modules base{u"brixrt"_s, u"enums"_s, u"foundation"_s};
    static const QList<Layer> list{
        {{{u"brixrt"_s, {}}}},
        {{{u"brixsec"_s, {u"brixrt"_s}}}},
        {{{u"enums"_s, {u"brixrt"_s, u"foundation"_s}},
          {u"foundation"_s, {u"brixrt"_s, u"enums"_s}}}},
        {{{u"compression"_s, base},
          {u"devices"_s, base},
          {u"values"_s, base},
          {u"workers"_s, base}}},
        {{{u"database"_s, base + Modules{u"brixsec"_s, u"compression"_s}},
          {u"hardware"_s, base},
          {u"protocol"_s, base + Modules{u"brixsec"_s, u"devices"_s, u"workers"_s}},
          {u"translation"_s, base}}},
        {{{u"fileservice"_s,
           base + Modules{u"brixsec"_s, u"devices"_s, u"workers"_s, u"protocol"_s}},
          {u"web"_s, base + Modules{u"brixsec"_s}}}},
        {{{u"tools"_s, base + Modules{u"brixlib"_s, u"brixsec"_s, u"compression"_s, u"database"_s,
                                      u"devices"_s, u"fileservice"_s, u"hardware"_s, u"protocol"_s,
                                      u"translation"_s, u"values"_s, u"web"_s, u"workers"_s}}}},
    };
    return list;
}

//! What every module may include, by its name.
QMap<QString, Modules> allowedArrows()
{
    QMap<QString, Modules> arrows;
    for (const Layer &layer : layers())
        arrows.insert(layer.allowed);
    return arrows;
}

/*!
 * The module of a path below the project or the include folders: "protocol" of
 * "src/brixlib/protocol/x.h" and of "src/brixlib/protocol.h". The header over all folders is the
 * module "brixlib"; an empty text stands for what a library generates for itself.
 */
QString moduleOf(const QString &path)
{
    const QList<QString> parts = path.split(u'/');
    if (parts.first() != u"src")
        return parts.first();
    if (parts.value(1) != u"brixlib")
        return parts.value(1);
    if (parts.size() > 3)
        return parts.at(2);
    if (parts.value(2) == u"brixlib_export.h" || parts.value(2) == u"brixlib_version.h")
        return QString();
    return parts.value(2).section(u'.', 0, 0);
}

//! The path that \a file means by an include line, relative to the project; empty for foreign ones.
QString includedPath(const QString &file, const QRegularExpressionMatch &include)
{
    const QString target = include.captured(2);
    if (include.captured(1) == u"\"")
        return QDir::cleanPath(file.section(u'/', 0, -2) + u'/' + target);
    static const QRegularExpression ours(u"^(brixlib|brixrt|brixsec)/"_s);
    return ours.match(target).hasMatch() ? u"src/"_s + target : QString();
}

//! One line for each include of \a file that breaks the layers.
QList<QString> violations(const QString &file, const QString &content)
{
    static const QRegularExpression includeLine(
        u"^[ \\t]*#[ \\t]*include[ \\t]*([<\"])([^>\"\\n]+)[>\"]"_s,
        QRegularExpression::MultilineOption);
    static const QMap<QString, Modules> arrows = allowedArrows();

    const QString module = moduleOf(file);
    if (!arrows.contains(module))
        return {u"%1: the folder %2 has no layer yet"_s.arg(file, module)};
    QList<QString> found;
    for (const QRegularExpressionMatch &include : includeLine.globalMatch(content)) {
        const QString path = includedPath(file, include);
        const QString target = path.isEmpty() ? QString() : moduleOf(path);
        if (target.isEmpty() || target == module || arrows.value(module).contains(target))
            continue;
        found.append(
            u"%1: %2 must not include %3 (%4)"_s.arg(file, module, target, include.captured(2)));
    }
    return found;
}

QList<QString> sourceFiles()
{
    const QDir project(QStringLiteral(BRIX_PROJECT));
    QList<QString> files;
    for (const QString &folder : {u"src"_s, u"tools"_s}) {
        QDirIterator walk(project.filePath(folder), {u"*.h"_s, u"*.cpp"_s, u"*.h.in"_s},
                          QDir::Files, QDirIterator::Subdirectories);
        while (walk.hasNext())
            files.append(project.relativeFilePath(walk.next()));
    }
    return files;
}

} // namespace

class tst_IncludeGraph : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void arrowsOfTheTablePointDownwards()
    {
        QSet<QString> lower;
        for (const Layer &layer : layers()) {
            for (const QString &module : layer.allowed.keys()) {
                for (const QString &target : layer.allowed.value(module)) {
                    // The enumerations are declared by a macro of the foundation, whose interfaces
                    // name some of them. The header over all folders is for the top only.
                    const bool known = lower.contains(target) ||
                                       (module == u"enums" && target == u"foundation") ||
                                       (module == u"foundation" && target == u"enums") ||
                                       (module == u"tools" && target == u"brixlib");
                    QVERIFY2(known, qPrintable(module + u" -> "_s + target));
                }
            }
            for (const QString &module : layer.allowed.keys())
                lower.insert(module);
        }
    }

    void checkerReportsWhatIsForbidden_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("line");
        QTest::newRow("upwards") << u"src/brixlib/foundation/a.h"_s
                                 << u"#include <brixlib/protocol/scommand.h>"_s;
        QTest::newRow("beside") << u"src/brixlib/devices/a.cpp"_s
                                << u"#include <brixlib/workers/ssimpleworker.h>"_s;
        QTest::newRow("umbrella of a higher folder")
            << u"src/brixlib/devices/a.h"_s << u"#include <brixlib/protocol.h>"_s;
        QTest::newRow("everything at once")
            << u"src/brixlib/web/a.h"_s << u"#include <brixlib/brixlib.h>"_s;
        QTest::newRow("service on the library")
            << u"src/brixrt/a.h"_s << u"#include <brixlib/enums/bool.h>"_s;
        QTest::newRow("service on the secure values")
            << u"src/brixrt/a.h"_s << u"#include <brixsec/ssecurestring.h>"_s;
        QTest::newRow("library on the tool")
            << u"src/brixlib/web/a.cpp"_s << u"#include \"../../../tools/brix/main.h\""_s;
        QTest::newRow("relative path")
            << u"src/brixlib/workers/a.cpp"_s << u"#include \"../protocol/scommand_p.h\""_s;
        QTest::newRow("relative path out of a sub-folder")
            << u"src/brixlib/database/io/a.cpp"_s << u"#include \"../../web/a_p.h\""_s;
        QTest::newRow("blanks") << u"src/brixlib/foundation/a.h"_s
                                << u"  #  include  <brixlib/web/a.h>"_s;
        QTest::newRow("behind other lines")
            << u"src/brixlib/foundation/a.h"_s
            << u"#pragma once\n#include <QtCore/QString>\n#include <brixlib/web/a.h>\n"_s;
        QTest::newRow("folder without a layer")
            << u"src/brixlib/misc/a.h"_s << u"#include <QtCore/QString>"_s;
    }

    void checkerReportsWhatIsForbidden()
    {
        QFETCH(QString, file);
        QFETCH(QString, line);
        QCOMPARE(violations(file, line).size(), 1);
    }

    void checkerAcceptsWhatIsAllowed_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("line");
        QTest::newRow("downwards")
            << u"src/brixlib/protocol/a.h"_s << u"#include <brixlib/workers/ssimpleworker.h>"_s;
        QTest::newRow("own folder")
            << u"src/brixlib/protocol/a.h"_s << u"#include <brixlib/protocol/scommand.h>"_s;
        QTest::newRow("own sub-folder")
            << u"src/brixlib/protocol/a.h"_s << u"#include <brixlib/protocol/commands/x.h>"_s;
        QTest::newRow("private neighbour")
            << u"src/brixlib/protocol/a.cpp"_s << u"#include \"a_p.h\""_s;
        QTest::newRow("out of the own sub-folder")
            << u"src/brixlib/protocol/commands/a.cpp"_s << u"#include \"../a_p.h\""_s;
        QTest::newRow("meta-object code")
            << u"src/brixlib/protocol/a.cpp"_s << u"#include \"moc_a.cpp\""_s;
        QTest::newRow("export macro")
            << u"src/brixlib/enums/a.h"_s << u"#include <brixlib/brixlib_export.h>"_s;
        QTest::newRow("Qt") << u"src/brixrt/a.h"_s << u"#include <QtCore/QString>"_s;
        QTest::newRow("standard") << u"src/brixrt/a.h"_s << u"#include <vector>"_s;
        QTest::newRow("commented out") << u"src/brixrt/a.h"_s << u"// #include <brixlib/web/a.h>"_s;
        QTest::newRow("tool on everything")
            << u"tools/brix/a.cpp"_s << u"#include <brixlib/brixlib.h>"_s;
    }

    void checkerAcceptsWhatIsAllowed()
    {
        QFETCH(QString, file);
        QFETCH(QString, line);
        QCOMPARE(violations(file, line), QList<QString>());
    }

    void everyIncludeKeepsToTheLayers()
    {
        const QList<QString> files = sourceFiles();
        QVERIFY(files.size() > 50);
        QList<QString> found;
        for (const QString &name : files) {
            QFile file(QStringLiteral(BRIX_PROJECT) + u'/' + name);
            QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(name));
            found += violations(name, QString::fromUtf8(file.readAll()));
        }
        QVERIFY2(found.isEmpty(), qPrintable(u'\n' + found.join(u'\n')));
    }
};

QTEST_APPLESS_MAIN(tst_IncludeGraph)
#include "tst_includegraph.moc"
