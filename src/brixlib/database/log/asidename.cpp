// SPDX-License-Identifier: MIT
#include "asidename_p.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QRegularExpression>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace Talverine {

namespace {

constexpr QLatin1String kSuffix(".brixaside");

} // namespace

AsideName::AsideName(const QString &logFile, int number, int next, const QString &stamp)
    : m_logFile(logFile)
    , m_number(number)
    , m_next(next)
    , m_stamp(stamp)
{
}

QList<AsideName> AsideName::findAll(const QString &logFile)
{
    const QFileInfo log(logFile);
    const QString prefix = log.fileName() + kSuffix;
    QList<AsideName> found;
    // Not by a filter: the name of a log may have its special characters.
    const QStringList names = QDir(log.path()).entryList(QDir::Files | QDir::System | QDir::Hidden);
    for (const QString &name : names) {
        if (!name.startsWith(prefix))
            continue;
        if (const auto aside = parse(logFile, name.mid(prefix.size())))
            found.append(*aside);
    }
    std::stable_partition(found.begin(), found.end(),
                          [](const AsideName &aside) { return aside.number() != aside.next(); });
    return found;
}

QString AsideName::path() const
{
    return u"%1%2.0%3.0%4.%5"_s.arg(m_logFile, kSuffix, QString::number(m_number),
                                    QString::number(m_next), m_stamp);
}

std::optional<AsideName> AsideName::parse(const QString &logFile, const QString &suffix)
{
    static const QRegularExpression pattern(u"\\A\\.0([0-9])\\.0([0-9])\\.([0-9]{1,20})\\z"_s);
    const QRegularExpressionMatch match = pattern.match(suffix);
    if (!match.hasMatch())
        return std::nullopt;
    return AsideName(logFile, match.captured(1).toInt(), match.captured(2).toInt(),
                     match.captured(3));
}

} // namespace Talverine
