// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QDateTime>
#include <QtCore/QTimeZone>

//! A time in UTC; how it is asked for changed in Qt 6.5.
inline QDateTime utcTime(QDate date, QTime time)
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 5, 0)
    return QDateTime(date, time, QTimeZone(QTimeZone::UTC));
#else
    return QDateTime(date, time, Qt::UTC);
#endif
}
