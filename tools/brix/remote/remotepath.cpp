// SPDX-License-Identifier: MIT
#include "remotepath.h"

#include <algorithm>

namespace Brix::RemotePath {

using namespace Qt::StringLiterals;

QString join(const QString &folder, const QString &name)
{
    if (folder.isEmpty() || folder.endsWith(u'/'))
        return folder + name;
    return folder + u'/' + name;
}

QString parent(const QString &path)
{
    const QString plain = withoutSlash(path);
    const qsizetype slash = plain.lastIndexOf(u'/');
    return slash == 0 ? u"/"_s : plain.left(std::max<qsizetype>(slash, 0));
}

QString name(const QString &path)
{
    const QString last = path.mid(path.lastIndexOf(u'/') + 1);
    return last == u"."_s || last == u".."_s ? QString() : last;
}

QString withoutSlash(const QString &path)
{
    qsizetype size = path.size();
    while (size > 1 && path[size - 1] == u'/')
        --size;
    return path.left(size);
}

bool isSafeName(const QString &name)
{
    if (name.isEmpty() || name == u"."_s || name == u".."_s)
        return false;
#ifdef Q_OS_WIN
    // A backslash divides there too, and a colon names a drive or a stream.
    if (name.contains(u'\\') || name.contains(u':'))
        return false;
#endif
    return !name.contains(u'/') && !name.contains(QChar::Null);
}

bool isChangedOnArrival(const QString &path)
{
    constexpr QStringView changed = u"?<>*|\"";
    return std::any_of(path.begin(), path.end(), [&](QChar c) { return changed.contains(c); });
}

} // namespace Brix::RemotePath
