// SPDX-License-Identifier: MIT
#include "writeprobe.h"

#include <QtCore/QFileInfo>
#include <QtCore/QTemporaryFile>

namespace Brix {

using namespace Qt::StringLiterals;

QString whyNotWritable(const QString &file)
{
    constexpr qint64 kProbeBytes = 4096;
    QTemporaryFile probe(QFileInfo(file).path() + u"/.brix-XXXXXX"_s);
    const bool isWritten =
        probe.open() && probe.write(QByteArray(kProbeBytes, ' ')) == kProbeBytes && probe.flush();
    return isWritten ? QString() : probe.errorString();
}

} // namespace Brix
