// SPDX-License-Identifier: MIT
#include "logbackups_p.h"

#include <brixrt/sconvert.h>
#include <brixrt/sfilehelper.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

using namespace Qt::StringLiterals;

namespace Talverine {

namespace {

constexpr int kSlots = 10;

} // namespace

LogBackups::LogBackups(const QString &logFile)
    : m_logFile(logFile)
{
}

bool LogBackups::holds(const QString &fileName) const
{
    for (int number = 0; number < kSlots; ++number) {
        if (SFileHelper::isSameFile(nameOf(number), fileName))
            return true;
    }
    return false;
}

QString LogBackups::nextName() const
{
    return nameOf(qMin(firstFree(), kSlots - 1));
}

QString LogBackups::oldestName() const
{
    return nameOf((firstFree() + 1) % kSlots);
}

QStringList LogBackups::names() const
{
    QStringList names;
    for (int number = 0; number < kSlots; ++number)
        names.append(nameOf(number));
    return names;
}

int LogBackups::numberOf(const QString &name) const
{
    return static_cast<int>(names().indexOf(name));
}

int LogBackups::firstFree() const
{
    int number = 0;
    while (number < kSlots && QFile::exists(nameOf(number)))
        ++number;
    return number;
}

QString LogBackups::nameOf(int number) const
{
    const QFileInfo file(m_logFile);
    return u"%1/%2.B%3"_s.arg(file.path(), file.baseName(), SConvert::toString(number, u"D2"_s));
}

} // namespace Talverine
