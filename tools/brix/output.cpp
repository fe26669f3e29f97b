// SPDX-License-Identifier: MIT
#include "output.h"

#include "terminal.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QLocale>

#include <algorithm>
#include <cstdio>

namespace Brix {

using namespace Qt::StringLiterals;

namespace {

void write(std::FILE *file, const QByteArray &line)
{
    std::fwrite(line.constData(), 1, size_t(line.size()), file);
    std::fputc('\n', file);
    std::fflush(file);
}

} // namespace

void Output::line(const QString &text) const
{
    write(stdout, (Terminal::isOutput() ? printable(text) : text).toLocal8Bit());
}

void Output::object(const QJsonObject &object) const
{
    write(stdout, QJsonDocument(object).toJson(QJsonDocument::Compact));
}

void Output::result(const QString &text, const QJsonObject &object) const
{
    if (json)
        this->object(object);
    else
        line(text);
}

void Output::bytesAsTheyAre(const QByteArray &bytes) const
{
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
}

void Output::table(QList<QStringList> rows) const
{
    QList<qsizetype> widths;
    for (auto &row : rows) {
        while (!row.isEmpty() && row.last().isEmpty())
            row.removeLast();
        widths.resize(std::max(widths.size(), row.size()));
        for (qsizetype column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], row[column].size());
    }
    for (const auto &row : std::as_const(rows)) {
        QString text;
        for (qsizetype column = 0; column + 1 < row.size(); ++column)
            text += row[column].leftJustified(widths[column] + 2);
        line(text + row.value(row.size() - 1));
    }
}

void Output::note(const QString &text) const
{
    if (!quiet)
        diagnostic(text);
}

void Output::diagnostic(const QString &text) const
{
    write(stderr, printable(text).toLocal8Bit());
}

void Output::error(const QString &text) const
{
    diagnostic(u"brix: "_s + text);
}

QString Output::printable(QString text)
{
    std::replace_if(
        text.begin(), text.end(),
        [](QChar c) { return c.category() == QChar::Other_Control && c != u'\n'; }, u'?');
    return text;
}

QString Output::bytes(qint64 count)
{
    return QLocale::c().formattedDataSize(count, 1);
}

} // namespace Brix
