// SPDX-License-Identifier: MIT
#include <brixlib/database/records/ssignature.h>

#include "signaturechain_p.h"

namespace Talverine {

QString SSignature::generate(const QString &text, QCryptographicHash::Algorithm algorithm)
{
    return generate(text.toUtf8(), algorithm);
}

QString SSignature::generate(const QByteArray &data, QCryptographicHash::Algorithm algorithm)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, algorithm).toHex());
}

QString SSignature::generateLegacy(const QString &text, QCryptographicHash::Algorithm algorithm)
{
    LowBytes lowBytes;
    const QByteArrayView bytes = lowBytes.of(text);
    return generate(QByteArray::fromRawData(bytes.data(), bytes.size()), algorithm);
}

} // namespace Talverine
