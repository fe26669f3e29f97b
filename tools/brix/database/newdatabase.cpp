// SPDX-License-Identifier: MIT
#include "newdatabase.h"

#include "databaselock.h"

#include <QtCore/QBuffer>
#include <QtCore/QFileInfo>
#include <QtCore/QSaveFile>

namespace Brix {

using namespace Qt::StringLiterals;
using Talverine::SDBText;

namespace {

QByteArray headOf(const NewDatabase &database, const DatabaseLogin &owner)
{
    QBuffer buffer;
    SDBText head;
    head.authenticate(owner.user, owner.password.toInsecureString());
    if (!head.create(&buffer, database.key, database.grants, database.culture, database.version))
        throw OpenDatabase::failure(database.file, head.error());
    return buffer.data();
}

} // namespace

bool writeNewDatabase(const NewDatabase &database, const DatabaseLogin &owner)
{
    const QByteArray bytes = headOf(database, owner);
    const DatabaseLock lock(database.file);
    lock.require();
    if (QFileInfo::exists(database.file) || QFileInfo(database.file).isSymLink())
        return false;
    QSaveFile file(database.file);
    // Whoever reads the hash of the password can try passwords.
    const bool isWritten = file.open(QIODevice::WriteOnly) &&
                           file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner) &&
                           file.write(bytes) == bytes.size() &&
                           // commit() would not tell that the last bytes could not be written.
                           file.flush() && file.commit();
    if (!isWritten)
        throw Failure{ExitCode::LocalIo,
                      u"cannot write %1: %2"_s.arg(database.file, file.errorString())};
    return true;
}

} // namespace Brix
