// SPDX-License-Identifier: MIT
#include "signaturecheck.h"

#include "databasescan.h"
#include <cli/failure.h>

namespace Brix {

using namespace Qt::StringLiterals;
using Talverine::SDBRecord;

namespace {

// The first record of a key is the one in use. 0 if there is none.
qint64 lineOf(const QString &file, const QString &keyName, const QString &key)
{
    DatabaseScan scan(file, keyName);
    ScannedRecord record;
    while (scan.next(&record)) {
        if (!record.isDeleted && record.key == key)
            return record.line;
    }
    return 0;
}

} // namespace

void requireSignature(const QString &file, const QString &keyName, const QString &key,
                      const SDBRecord &record)
{
    if (record.checkSignature())
        return;
    const QString problem = record.signature().isEmpty()
                                ? u"\"%1\" has no signature"_s.arg(key)
                                : u"the signature of \"%1\" does not match"_s.arg(key);
    throw Failure{ExitCode::Refused,
                  u"%1:%2: %3; --accept-changed signs the record as it is"_s.arg(
                      file, QString::number(lineOf(file, keyName, key)), problem)};
}

} // namespace Brix
