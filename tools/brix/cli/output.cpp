// SPDX-License-Identifier: MIT
#include "output.h"

#include "printabletext.h"
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

bool Output::isEscaped() const
{
    return !raw && Terminal::isOutput();
}

void Output::line(const QString &text) const
{
    write(stdout, (isEscaped() ? printableText(text) : text).toLocal8Bit());
}

void Output::object(const QJsonObject &object) const
{
    write(stdout, printableJson(QJsonDocument(object).toJson(QJsonDocument::Compact)));
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

void Output::foreignBytes(const QByteArray &bytes) const
{
    if (isEscaped())
        write(stdout, printableUtf8(bytes).toLocal8Bit());
    else
        bytesAsTheyAre(bytes);
}

void Output::table(QList<QStringList> rows) const
{
    QList<qsizetype> widths;
    const bool isForTerminal = isEscaped();
    for (auto &row : rows) {
        if (isForTerminal)
            std::transform(row.begin(), row.end(), row.begin(),
                           [](const QString &cell) { return printableText(cell); });
        while (!row.isEmpty() && row.last().isEmpty())
            row.removeLast();
        widths.resize(std::max(widths.size(), row.size()));
        for (qsizetype column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], row[column].size());
    }
    // Escaped already, if at all.
    for (const auto &row : std::as_const(rows)) {
        QString text;
        for (qsizetype column = 0; column + 1 < row.size(); ++column)
            text += row[column].leftJustified(widths[column] + 2);
        write(stdout, (text + row.value(row.size() - 1)).toLocal8Bit());
    }
}

void Output::note(const QString &text) const
{
    if (!quiet)
        diagnostic(text);
}

void Output::diagnostic(const QString &text) const
{
    write(stderr, printableText(text).toLocal8Bit());
}

void Output::error(const QString &text) const
{
    diagnostic(u"brix: "_s + text);
}

QString Output::bytes(qint64 count)
{
    return QLocale::c().formattedDataSize(count, 1);
}

} // namespace Brix
