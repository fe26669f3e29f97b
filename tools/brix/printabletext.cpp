// SPDX-License-Identifier: MIT
#include "printabletext.h"

#include <QtCore/QStringList>

namespace Brix {

using namespace Qt::StringLiterals;

namespace {

bool isPrintable(char32_t character)
{
    switch (QChar::category(character)) {
    case QChar::Other_Control:
    case QChar::Other_Format:    // the direction of text and characters without a width
    case QChar::Other_Surrogate: // one without its other half
    case QChar::Other_NotAssigned:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return false;
    default:
        return true;
    }
}

QString escaped(char32_t character)
{
    switch (character) {
    case U'\n':
        return u"\\n"_s;
    case U'\r':
        return u"\\r"_s;
    case U'\t':
        return u"\\t"_s;
    default:
        return u"\\u{%1}"_s.arg(QString::number(uint(character), 16).toUpper());
    }
}

char32_t characterAt(QStringView text, qsizetype i)
{
    const bool isPair =
        text[i].isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate();
    return isPair ? QChar::surrogateToUcs4(text[i], text[i + 1]) : char32_t(text[i].unicode());
}

} // namespace

QString printableText(QStringView text)
{
    QString result;
    result.reserve(text.size());
    for (qsizetype i = 0; i < text.size();) {
        const char32_t character = characterAt(text, i);
        const qsizetype units = QChar::requiresSurrogates(character) ? 2 : 1;
        if (character == U'\\')
            result += "\\\\"_L1;
        else if (isPrintable(character))
            result += text.mid(i, units);
        else
            result += escaped(character);
        i += units;
    }
    return result;
}

} // namespace Brix
