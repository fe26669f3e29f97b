// SPDX-License-Identifier: MIT
#include "stormuser.h"

#include <QtCore/QElapsedTimer>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr int kLargestPower = 21; // files of up to 2 MiB

} // namespace

StormUser::StormUser(const ToolServer &server, const QString &name, quint32 seed)
    : m_server(server)
    , m_name(name)
    , m_random(seed)
    , m_thread(QThread::create([this] { work(); }))
{
    m_thread->start();
}

void StormUser::stop()
{
    m_stop = true;
    m_thread->wait();
}

void StormUser::work()
{
    while (!m_stop && m_problem.isEmpty()) {
        m_problem = logIn();
        if (m_problem.isEmpty())
            m_problem = moveFile();
    }
    m_isWorking = false;
}

// The time of the whole process, which is more than that of the login.
QString StormUser::logIn()
{
    QElapsedTimer timer;
    timer.start();
    QByteArray out;
    const QString problem = run({u"whoami"_s, m_server.url()}, &out);
    m_slowestLoginMs = std::max(m_slowestLoginMs, timer.elapsed());
    return problem.isEmpty() && out != "ann\n" ? u"somebody else"_s : problem;
}

QString StormUser::moveFile()
{
    const QByteArray content = m_random.bytes(qint64(1) << m_random.between(4, kLargestPower));
    const QString sent = m_server.path(m_name + u"-sent"_s);
    const QString got = m_server.path(m_name + u"-got"_s);
    if (!writeFile(sent, content))
        return u"no file to send"_s;
    QString problem = run({u"put"_s, sent, m_server.url(m_name)});
    if (problem.isEmpty() && readFile(m_server.homePath(m_name)) != content)
        problem = u"the server has another file"_s;
    if (problem.isEmpty())
        problem = run({u"get"_s, m_server.url(m_name), got});
    if (problem.isEmpty() && readFile(got) != content)
        problem = u"another file came back"_s;
    if (problem.isEmpty()) {
        ++m_files;
        m_bytes += content.size();
    }
    return problem;
}

QString StormUser::run(const QStringList &arguments, QByteArray *out) const
{
    const ToolResult result = m_server.run(arguments);
    if (out)
        *out = result.out;
    return result.exitCode == 0 ? QString()
                                : u"%1: exit status %2, %3"_s.arg(arguments.first())
                                      .arg(result.exitCode)
                                      .arg(QString::fromUtf8(result.err));
}
