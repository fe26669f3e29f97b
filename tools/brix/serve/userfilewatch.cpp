// SPDX-License-Identifier: MIT
#include "userfilewatch.h"

#include <cli/failure.h>

#include <QtCore/QFileInfo>

#include <chrono>

namespace Brix {

using namespace std::chrono_literals;
using Talverine::SAuthenticationDb;

namespace {

// Looking costs one call of the system, works on every kind of file system, and misses no file that
// is put in the place of another, as a watch of the system does.
constexpr auto kInterval = 500ms;

} // namespace

UserFileWatch::UserFileWatch(const QString &fileName, SAuthenticationDb *users)
    : m_fileName(fileName)
    , m_users(users)
    , m_read(currentState())
    , m_seen(m_read)
{
    *users = UserFile(fileName).read();
    connect(&m_timer, &QTimer::timeout, this, &UserFileWatch::look);
    m_timer.start(kInterval);
}

UserFileWatch::State UserFileWatch::currentState() const
{
    const QFileInfo info(m_fileName);
    if (!info.exists())
        return {};
    return {true, info.size(), info.lastModified(), info.metadataChangeTime()};
}

// A file that is still being written is left until it rests.
void UserFileWatch::look()
{
    const State before = std::exchange(m_seen, currentState());
    if (m_seen != m_read && m_seen == before)
        reload();
}

// The state is taken first: what is written while the file is read counts as a change.
void UserFileWatch::reload()
{
    m_read = currentState();
    m_seen = m_read;
    try {
        m_users->replaceBy(UserFile(m_fileName).read());
    } catch (const Failure &failure) {
        Q_EMIT refused(failure.text);
        return;
    }
    Q_EMIT reloaded();
}

} // namespace Brix

#include "moc_userfilewatch.cpp"
