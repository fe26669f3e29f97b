// SPDX-License-Identifier: MIT
#include "strictjail_p.h"

#include "systempath_p.h"

#include <system_error>

namespace Talverine {

namespace {

using std::filesystem::path;

// The longest beginning of a path that exists; a link counts as existing wherever it leads.
path existingBeginning(path name)
{
    std::error_code error;
    while (!std::filesystem::exists(std::filesystem::symlink_status(name, error)) &&
           name != name.parent_path())
        name = name.parent_path();
    return name;
}

} // namespace

bool isInsideJail(const QString &path, const QString &jail)
{
    std::error_code error;
    const auto top = std::filesystem::canonical(systemPath(jail), error);
    if (error)
        return false;
    auto name = std::filesystem::canonical(existingBeginning(systemPath(path)), error);
    if (error)
        return false;
    // Equal names need no look at the directories, and differ where case does not count.
    while (name != top && !std::filesystem::equivalent(name, top, error)) {
        if (name == name.parent_path())
            return false;
        name = name.parent_path();
    }
    return true;
}

} // namespace Talverine
