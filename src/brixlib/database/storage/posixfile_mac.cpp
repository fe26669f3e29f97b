// SPDX-License-Identifier: MIT
#include "posixfile_p.h"

#include <fcntl.h>
#include <unistd.h>

namespace Talverine {

// fsync() leaves the bytes in the cache of the drive. Not every file system knows the other call.
int PosixFile::flush(int descriptor)
{
    return ::fcntl(descriptor, F_FULLFSYNC) == 0 ? 0 : ::fsync(descriptor);
}

// The lists of macOS only add to the permissions that are copied.
bool PosixFile::copyAccessList(int, const char *)
{
    return true;
}

} // namespace Talverine
