// SPDX-License-Identifier: MIT
#include "answercollector.h"

#include <brixlib/fileservice/sclientftp.h>

#include <algorithm>

namespace Brix {

using namespace Talverine;

namespace {

// Half of the commands that a transfer keeps waiting, so that the line does not stand still while
// the batch is handled.
constexpr std::size_t batchSize = 16;
constexpr qint64 oldestMilliseconds = 50;
constexpr qint64 progressMilliseconds = 100;

} // namespace

bool EndedCommands::add(EndedCommand ended)
{
    const QMutexLocker locker(&m_mutex);
    m_ended.push_back(std::move(ended));
    return m_ended.size() % batchSize == 0 || !m_sinceTaken.isValid() ||
           m_sinceTaken.hasExpired(oldestMilliseconds);
}

std::vector<EndedCommand> EndedCommands::take()
{
    const QMutexLocker locker(&m_mutex);
    m_sinceTaken.start();
    return std::exchange(m_ended, {});
}

AnswerCollector::AnswerCollector(SClientFtp *client, std::shared_ptr<EndedCommands> ended)
    : QObject(client)
    , m_ended(std::move(ended))
{
    listenToResults(client);
    listenToTransfers(client);
    listen(client, &SClientFtp::commandResult, [this, client](SCommandId id, bool succeeded) {
        m_answer.isRefused = client->wasRefused();
        m_answer.isTooLarge = client->wasReplyTooLarge();
        m_answer.localError = client->localError();
        onEnded(id, succeeded);
    });
    listen(client, &SClientFtp::commandQueueEmpty, [this] { Q_EMIT ready(); });
}

template<typename Signal, typename Slot>
void AnswerCollector::listen(SClientFtp *client, Signal signal, Slot slot)
{
    connect(client, signal, this, slot, Qt::DirectConnection);
}

void AnswerCollector::listenToResults(SClientFtp *client)
{
    const auto takeResult = [this](bool result) { m_answer.result = result; };
    for (const auto signal :
         {&SClientFtp::changeDirResult, &SClientFtp::makeDirResult, &SClientFtp::removeDirResult,
          &SClientFtp::removeFileResult, &SClientFtp::renameDirResult,
          &SClientFtp::renameFileResult, &SClientFtp::copyDirResult, &SClientFtp::copyFileResult,
          qOverload<bool>(&SClientFtp::exists), &SClientFtp::setSetFilePermissionsResult})
        listen(client, signal, takeResult);

    const auto takeText = [this](const QString &text) { m_answer.text = text; };
    listen(client, &SClientFtp::pwdResult, takeText);
    listen(client, &SClientFtp::serverNameResult, takeText);
    listen(client, &SClientFtp::whoAmIResult, takeText);

    listen(client, &SClientFtp::authenticationResult, [this](AuthenticationStatus status) {
        m_answer.result = status == AuthenticationStatus::Authenticated;
    });
    listen(client, &SClientFtp::listDirResult,
           [this](const QList<SFileEntry> &entries) { m_answer.entries = entries; });
    listen(client, &SClientFtp::storageInfoResult,
           [this](qint64 available, qint64 total, qint64 free, const QByteArray &type) {
               m_answer.storage = {available, total, free, type};
           });
    listen(client, &SClientFtp::pluggableListResult,
           [this](const QList<QString> &names) { m_answer.names = names; });
    listen(client, &SClientFtp::pluggableResult,
           [this](const QString &, bool result, const QByteArray &, const QByteArray &output) {
               m_answer.result = result;
               m_answer.bytes = output;
           });
}

void AnswerCollector::listenToTransfers(SClientFtp *client)
{
    const auto started = [this](const QString &) { m_answer.isStarted = true; };
    listen(client, &SClientFtp::transferredBytes,
           [this](qint64 done, qint64 total) { onTransferred(done, total); });
    listen(client, &SClientFtp::getFileStarted, started);
    listen(client, &SClientFtp::getFileFinished,
           [this](const QString &) { m_answer.isMoved = true; });
    listen(client, &SClientFtp::sendFileStarted, started);
    listen(client, &SClientFtp::sendFileFinished,
           [this](const QString &, bool) { m_answer.isMoved = true; });
    listen(client, &SClientFtp::linkTestFinished, [this](double upload, double download) {
        m_answer.uploadRate = upload;
        m_answer.downloadRate = download;
    });
}

void AnswerCollector::onTransferred(qint64 done, qint64 total)
{
    // A peer may claim a negative size.
    m_answer.moved = std::max<qint64>(done, 0);
    m_answer.size = std::max<qint64>(total, 0);
    if (m_sinceTransferred.isValid() && !m_sinceTransferred.hasExpired(progressMilliseconds))
        return;
    m_sinceTransferred.start();
    Q_EMIT transferred(done, total);
}

void AnswerCollector::onEnded(SCommandId id, bool succeeded)
{
    Answer answer = std::exchange(m_answer, {});
    // A step without a command ends so too.
    if (id.isNull())
        return;
    if (m_ended->add({id, succeeded, std::move(answer)}) || !succeeded)
        Q_EMIT ready();
}

} // namespace Brix

#include "moc_answercollector.cpp"
