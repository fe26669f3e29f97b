// SPDX-License-Identifier: MIT
#include "copycheck.h"

#include "listing.h"
#include "remotepath.h"

#include <algorithm>

namespace Brix {

using namespace Qt::StringLiterals;
using namespace Talverine;

namespace {

// A server that lists directories in directories without end is not followed further.
constexpr int kDeepestDirectory = 200;

[[noreturn]] void refuse(const QString &text)
{
    throw Failure{ExitCode::Refused, text};
}

QString below(const QString &directory, const QString &path)
{
    return path.isEmpty() ? directory : RemotePath::join(directory, path);
}

} // namespace

CopyCheck::CopyCheck(Session &session, const QString &from, const QString &to)
    : m_session(session)
    , m_from(from)
    , m_to(to)
{
}

void CopyCheck::noteFile()
{
    const auto source = listed(m_from);
    if (!source)
        refuse(u"the server does not list %1, so a copy could not be checked"_s.arg(m_from));
    m_size = source->size;
}

void CopyCheck::compareFile()
{
    compare(m_from, m_size, listed(m_to));
}

void CopyCheck::noteTree()
{
    noteDirectory(QString(), 0);
}

void CopyCheck::compareTree()
{
    if (!m_session.isFolder(m_to))
        refuse(u"the server says that it has copied %1, but there is no directory %2"_s.arg(m_from,
                                                                                            m_to));
    for (const Directory &directory : std::as_const(m_directories))
        compareDirectory(directory);
}

void CopyCheck::noteDirectory(const QString &path, int depth)
{
    if (depth > kDeepestDirectory)
        refuse(u"%1 is nested too deep"_s.arg(below(m_from, path)));
    Directory directory{path, {}};
    QStringList inner;
    for (const SFileEntry &entry : m_session.list(below(m_from, path))) {
        if (entry.isFile())
            directory.files.append({entry.fileName(), entry.size()});
        else if (!entry.isSymbolic() && RemotePath::isSafeName(entry.fileName()))
            inner.append(RemotePath::join(path, entry.fileName()));
    }
    if (!directory.files.isEmpty())
        m_directories.append(directory);
    for (const QString &name : std::as_const(inner))
        noteDirectory(name, depth + 1);
}

void CopyCheck::compareDirectory(const Directory &directory)
{
    const auto copies = m_session.list(below(m_to, directory.path));
    for (const File &file : directory.files) {
        const QString source = RemotePath::join(below(m_from, directory.path), file.name);
        const SFileEntry *const copy = Listing::find(copies, file.name);
        // Pipes and links that lead nowhere are listed like files, but are not copied.
        if (!copy && !m_session.exists(source))
            continue;
        compare(source, file.size,
                copy ? std::optional(File{copy->fileName(), copy->size()}) : std::nullopt);
    }
}

std::optional<CopyCheck::File> CopyCheck::listed(const QString &path)
{
    const auto entries = m_session.list(RemotePath::parent(path));
    const SFileEntry *const entry = Listing::find(entries, RemotePath::name(path));
    return entry ? std::optional(File{entry->fileName(), entry->size()}) : std::nullopt;
}

// A source that grows or shrinks meanwhile may be copied at any of its sizes.
void CopyCheck::compare(const QString &source, qint64 sizeBefore, const std::optional<File> &copy)
{
    if (!copy)
        refuse(u"the server says that it has copied %1, but its copy is not there"_s.arg(source));
    if (copy->size == sizeBefore)
        return;
    const auto now = listed(source);
    const qint64 sizeNow = now ? now->size : sizeBefore;
    if (copy->size < std::min(sizeBefore, sizeNow) || copy->size > std::max(sizeBefore, sizeNow))
        refuse(u"the server says that it has copied %1, but its copy has %2 of %3 bytes"_s.arg(
            source, QString::number(copy->size), QString::number(sizeNow)));
}

} // namespace Brix
