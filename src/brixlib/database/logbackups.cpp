// SPDX-License-Identifier: MIT
#include <brixlib/database/logbackups_p.h>

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

QString LogBackups::makeRoom() const
{
    int number = 0;
    while (number < kSlots && QFile::exists(nameOf(number)))
        ++number;
    const QString behind = nameOf((number + 1) % kSlots);
    // A backup that was opened as a log has a name of its own ring.
    if (!SFileHelper::isSameFile(behind, m_logFile))
        QFile::remove(behind);
    // With all of the names taken, the last one is written over.
    return nameOf(qMin(number, kSlots - 1));
}

QString LogBackups::nameOf(int number) const
{
    const QFileInfo file(m_logFile);
    return u"%1/%2.B%3"_s.arg(file.path(), file.baseName(), SConvert::toString(number, u"D2"_s));
}

} // namespace Talverine
