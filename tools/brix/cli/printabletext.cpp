// SPDX-License-Identifier: MIT
#include "printabletext.h"

#include <algorithm>

#include <algorithm>

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

QString jsonUnit(char16_t unit)
{
    return u"\\u%1"_s.arg(QString::number(unit, 16).rightJustified(4, u'0'));
}

// JSON has no longer escape: a character beyond U+FFFF is two of them.
QString jsonEscaped(char32_t character)
{
    if (!QChar::requiresSurrogates(character))
        return jsonUnit(char16_t(character));
    return jsonUnit(QChar::highSurrogate(character)) + jsonUnit(QChar::lowSurrogate(character));
}

//! Returns the number of bytes of the character that \a bytes begin with; 0 if it is invalid.
qsizetype validBytes(QByteArrayView bytes)
{
    for (qsizetype size = 1; size <= std::min<qsizetype>(4, bytes.size()); ++size) {
        if (bytes.first(size).isValidUtf8())
            return size;
    }
    return 0;
}

bool isPlainAscii(QStringView text)
{
    return std::all_of(text.begin(), text.end(),
                       [](QChar c) { return c >= u' ' && c <= u'~' && c != u'\\'; });
}

} // namespace

QString printableText(QStringView text)
{
    // Nearly all texts, and much faster.
    if (isPlainAscii(text))
        return text.toString();
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

QString printableUtf8(QByteArrayView bytes)
{
    QString result;
    qsizetype begin = 0; // of the valid bytes that are not in the result yet
    for (qsizetype end = 0; end < bytes.size();) {
        if (const qsizetype size = validBytes(bytes.sliced(end)); size > 0) {
            end += size;
            continue;
        }
        result += printableText(QString::fromUtf8(bytes.sliced(begin, end - begin)));
        result += u"\\x%1"_s.arg(QString::number(uchar(bytes[end]), 16).toUpper());
        begin = ++end;
    }
    return result + printableText(QString::fromUtf8(bytes.sliced(begin)));
}

QByteArray printableJson(const QByteArray &json)
{
    // What JSON has outside of its texts is printable, and in them control characters are escaped.
    const auto isHarmless = [](char byte) { return uchar(byte) < 0x7F; };
    if (std::all_of(json.begin(), json.end(), isHarmless))
        return json;
    const QString text = QString::fromUtf8(json);
    QString result;
    result.reserve(text.size());
    for (qsizetype i = 0; i < text.size();) {
        const char32_t character = characterAt(text, i);
        const qsizetype units = QChar::requiresSurrogates(character) ? 2 : 1;
        result += character < 0x7F || isPrintable(character) ? text.mid(i, units)
                                                             : jsonEscaped(character);
        i += units;
    }
    return result.toUtf8();
}

} // namespace Brix
