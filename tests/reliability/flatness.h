// SPDX-License-Identifier: MIT
#pragma once

#include "processwatch.h"

#include <QtCore/QString>

#include <algorithm>

//! What "flat" means for one of the fields of a sample, once the first minutes are over.
struct Flatness
{
    const char *name;
    ProcessWatch::Field field;
    qint64 rise;    //!< how far the last third's median may lie above that of the first third
    qint64 highest; //!< what no sample is above

    //! Empty when the field stays flat between the two times, in milliseconds.
    QString check(const ProcessWatch &watch, qint64 first, qint64 last) const
    {
        const QList<qint64> values = watch.between(first, last, field);
        if (values.isEmpty())
            return QStringLiteral("no sample of ") + QLatin1StringView(name);
        const qint64 risen = ProcessWatch::rise(values);
        const auto [lowest, most] = std::minmax_element(values.begin(), values.end());
        qInfo("%s: median %lld, from %lld to %lld (at most %lld), rise %lld (at most %lld)", name,
              qlonglong(ProcessWatch::median(values)), qlonglong(*lowest), qlonglong(*most),
              qlonglong(highest), qlonglong(risen), qlonglong(rise));
        return risen <= rise && *most <= highest
                   ? QString()
                   : QLatin1StringView(name) + QStringLiteral(" not flat");
    }
};
