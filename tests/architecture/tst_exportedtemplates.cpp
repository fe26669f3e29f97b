// SPDX-License-Identifier: MIT
// Checks that no public header exports a template. On Windows a template that is marked for export
// cannot be instantiated for a class in an anonymous namespace, such as an application's command.
#include <QtCore/QDirIterator>
#include <QtCore/QFile>
#include <QtCore/QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

//! Returns the names of the templates that \a text marks for export.
QList<QString> exportedTemplates(const QString &text)
{
    static const QRegularExpression declaration(
        uR"(\btemplate\s*<[^;{]*>\s*(?:class|struct|union)?[^;{()]*)"
        uR"(\b(?:\w*_EXPORT|__declspec\s*\(\s*dllexport\s*\))\s+([^;{(]*))"_s);
    QList<QString> names;
    auto matches = declaration.globalMatch(text);
    while (matches.hasNext())
        names.append(matches.next().captured(1).simplified());
    return names;
}

QList<QString> publicHeaders()
{
    QList<QString> files;
    QDirIterator walk(QStringLiteral(BRIX_PROJECT "/src"), {u"*.h"_s, u"*.h.in"_s}, QDir::Files,
                      QDirIterator::Subdirectories);
    while (walk.hasNext()) {
        const QString file = walk.next();
        if (!file.endsWith(u"_p.h"))
            files.append(file);
    }
    return files;
}

} // namespace

class tst_ExportedTemplates : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void findsExportedTemplates_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("library's macro")
            << u"template<class T>\nclass BRIXLIB_EXPORT A : public T\n{"_s;
        QTest::newRow("Qt's macro")
            << u"template<class T, class B = C>\nclass Q_DECL_EXPORT A\n{"_s;
        QTest::newRow("struct in one line") << u"template <typename T> struct BRIXRT_EXPORT A {"_s;
        QTest::newRow("nested parameters")
            << u"template<template<class> class T>\nclass BRIXLIB_EXPORT A\n{"_s;
        QTest::newRow("function") << u"template<typename T>\nBRIXRT_EXPORT T *make(int size);"_s;
        QTest::newRow("attribute") << u"template<class T>\nclass __declspec(dllexport) A\n{"_s;
    }

    void findsExportedTemplates()
    {
        QFETCH(QString, text);
        QCOMPARE(exportedTemplates(text).size(), 1);
    }

    void acceptsOtherDeclarations_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("plain template")
            << u"template<class T>\nclass A\n{\n};\nclass BRIXLIB_EXPORT B\n{"_s;
        QTest::newRow("exported class") << u"class BRIXLIB_EXPORT A : public B<A>\n{"_s;
        QTest::newRow("template member")
            << u"class BRIXLIB_EXPORT A\n{\n    template<typename T>\n    T get() const;\n};"_s;
        QTest::newRow("forward declaration")
            << u"template<class T> class A;\nclass BRIXLIB_EXPORT B\n{"_s;
    }

    void acceptsOtherDeclarations()
    {
        QFETCH(QString, text);
        QCOMPARE(exportedTemplates(text), QList<QString>());
    }

    void noPublicHeaderExportsATemplate()
    {
        const QList<QString> headers = publicHeaders();
        QVERIFY(headers.size() > 50);
        QList<QString> found;
        for (const QString &name : headers) {
            QFile file(name);
            QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(name));
            for (const QString &exported : exportedTemplates(QString::fromUtf8(file.readAll())))
                found.append(name + u": "_s + exported);
        }
        QVERIFY2(found.isEmpty(), qPrintable(u'\n' + found.join(u'\n')));
    }
};

QTEST_APPLESS_MAIN(tst_ExportedTemplates)
#include "tst_exportedtemplates.moc"
