// SPDX-License-Identifier: MIT
#include <brixrt/slocale.h>

namespace Talverine {

namespace {

QLocale namedLocale(const QString &name)
{
    return QLocale(QString(name).replace(u'-', u'_'));
}

bool isSame(const QLocale &a, const QLocale &b)
{
    return a.language() == b.language() && a.script() == b.script() &&
           a.territory() == b.territory();
}

QString nameWithScript(const QLocale &locale)
{
    return QLocale::languageToCode(locale.language()) + u'_' +
           QLocale::scriptToCode(locale.script()) + u'_' +
           QLocale::territoryToCode(locale.territory());
}

} // namespace

SLocale::SLocale(const QString &name, NumberOptions options)
    : QLocale(namedLocale(name))
{
    // The C locale has an option of its own, without which it would group digits.
    if (options != DefaultNumberOptions)
        setNumberOptions(options);
}

QString SLocale::lcName(const QLocale &locale, bool underscores)
{
    QString name = locale.name();
    if (!isSame(QLocale(name), locale))
        name = nameWithScript(locale);
    return underscores ? name : name.replace(u'_', u'-');
}

QString SLocale::name(const QLocale &locale, bool region)
{
    const QString name = locale.name();
    return region ? name : name.section(u'_', 0, 0);
}

} // namespace Talverine
