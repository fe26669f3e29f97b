// SPDX-License-Identifier: MIT
#include "recordwriter_p.h"

#include <brixlib/database/records/sdbrecord.h>

#include <brixrt/senvironment.h>

#include <QtCore/QIODevice>

namespace Talverine {

const QByteArray &recordSeparator()
{
    static const QByteArray lines = SEnvironment::rawWindowsNewLine().toUtf8().repeated(2);
    return lines;
}

bool signForWriting(SDBRecord *record, const QString &keyName)
{
    return record->move(record->field(keyName), 0) && record->updateSignature();
}

QByteArray recordLines(const SDBRecord &record, const QLocale &culture)
{
    const QLocale locale = record.locale(culture);
    QString text;
    for (const SDBField &field : record.fields()) {
        if (!field.isEmpty())
            text += field.toString(QString(), locale) + SEnvironment::rawWindowsNewLine();
    }
    return text.toUtf8();
}

bool writeAll(QIODevice *device, const QByteArray &bytes)
{
    qint64 done = 0;
    while (done < bytes.size()) {
        const qint64 count = device->write(bytes.constData() + done, bytes.size() - done);
        if (count < 0)
            return false;
        if (count == 0)
            break;
        done += count;
    }
    return true;
}

} // namespace Talverine
