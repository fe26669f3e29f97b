// SPDX-License-Identifier: MIT
#include "soakplayer.h"

#include <fileservice/filetree.h>

#include <brixlib/fileservice/device/sclientdevice.h>
#include <brixlib/protocol/wire.h>
#include <brixsec/ssecurestring.h>

#include <QtCore/QBuffer>
#include <QtCore/QCryptographicHash>
#include <QtCore/QSet>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr int kHandshakeExchanges = 3;
constexpr qsizetype kMostFiles = 8;
constexpr int kLargestPower = 21; // files of up to 2 MiB
constexpr qsizetype kMostProblems = 20;
constexpr int kTimeoutMs = 5000;
constexpr qint64 kDevicePieceBytes = 100'000;

const QString kGot = u"got"_s;
const QString kSent = u"sent"_s;

QByteArray hashOf(const QByteArray &content)
{
    return QCryptographicHash::hash(content, QCryptographicHash::Sha256);
}

// Null when there is no such file.
QByteArray hashOfFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? hashOf(file.readAll()) : QByteArray();
}

// Random bytes are dear, so all contents are cut out of the same.
const QByteArray &pool()
{
    static const QByteArray bytes = SeededRandom(1).bytes(qint64(4) << 20);
    return bytes;
}

} // namespace

void SoakScore::addProblem(const QString &problem)
{
    const std::lock_guard lock(m_mutex);
    if (m_problems.size() < kMostProblems)
        m_problems.append(problem);
}

QStringList SoakScore::problems() const
{
    const std::lock_guard lock(m_mutex);
    return m_problems;
}

SoakPlayer::SoakPlayer(SoakScore *score, Places places, quint32 seed)
    : m_score(score)
    , m_places(std::move(places))
    , m_random(seed)
{
    QDir().mkpath(m_places.local);
}

void SoakPlayer::attach(SClientFtp *client)
{
    m_handshake = 0;
    m_left = static_cast<int>(m_random.between(1, 60));
    m_operation.reset();
    client->setTimeout(kTimeoutMs);

    // All of it in the client's thread.
    QObject::connect(client, &SClientFtp::connected, client,
                     [client] { client->authenticate(u"ann"_s, u"secret"_s); });
    QObject::connect(client, &SClientFtp::commandResult, client,
                     [this, client](const SCommandId &id, bool success) {
                         if (!id.isNull())
                             onResult(*client, id, success);
                     });
    QObject::connect(client, qOverload<bool>(&SClientFtp::exists), client,
                     [this](bool exists) { m_answer = exists; });
    for (const auto result : {&SClientFtp::copyFileResult, &SClientFtp::renameFileResult,
                              &SClientFtp::removeFileResult})
        QObject::connect(client, result, client, [this](bool done) { m_answer = done; });
    QObject::connect(client, &SClientFtp::listDirResult, client,
                     [this](const QList<SFileEntry> &entries) {
                         m_listed.clear();
                         for (const SFileEntry &entry : entries)
                             m_listed.append(entry.fileName());
                     });
    ++m_score->sessions;
}

void SoakPlayer::onResult(SClientFtp &client, const SCommandId &id, bool success)
{
    if (!success)
        return; // the session is over; detach() takes care of what is in doubt
    if (m_handshake < kHandshakeExchanges) {
        if (++m_handshake == kHandshakeExchanges)
            next(client);
        return;
    }
    if (!m_operation || m_operation->id != id)
        return report(u"a result that nobody waits for"_s);
    if (m_operation->check) {
        const QString problem = m_operation->check();
        if (!problem.isEmpty())
            report(problem);
    }
    m_files = m_operation->after;
    m_got = m_operation->got;
    m_operation.reset();
    ++m_score->operations;
    next(client);
}

void SoakPlayer::next(SClientFtp &client)
{
    if (m_score->stop || m_left-- == 0)
        return client.disconnect();
    m_operation = chooseOperation();
    m_answer = false;
    m_operation->start(client);
}

void SoakPlayer::detach()
{
    const bool isBroken = m_operation || m_handshake < kHandshakeExchanges;
    m_score->broken += isBroken ? 1 : 0;
    checkLocal(m_operation ? m_operation->got : m_got);
    if (!m_operation)
        return;
    m_leftovers.append({m_places.folder + u'-' + QString::number(m_generation), m_files,
                        m_operation->after, std::chrono::steady_clock::now()});
    m_operation.reset();
    m_files.clear();
    ++m_generation;
}

// The file that was fetched is as it was or as it is to be.
void SoakPlayer::checkLocal(const QByteArray &hash)
{
    const QByteArray found = hashOfFile(m_places.local + u'/' + kGot);
    if (found != m_got && found != hash)
        report(u"a broken session has left a wrong local file"_s);
    m_got = found;
    for (const QString &name : FileTree::below(m_places.local)) {
        if (name != kGot && name != kSent)
            report(u"left with the client: "_s + name);
    }
}

void SoakPlayer::checkLeftovers(std::chrono::milliseconds age)
{
    const auto now = std::chrono::steady_clock::now();
    while (!m_leftovers.isEmpty() && now - m_leftovers.first().since >= age) {
        const Leftover leftover = m_leftovers.takeFirst();
        const QString folder = m_places.home + u'/' + leftover.folder;
        const QStringList names =
            leftover.before.keys() + leftover.after.keys() + FileTree::below(folder);
        for (const QString &name : QSet<QString>(names.begin(), names.end())) {
            const QByteArray found = hashOfFile(folder + u'/' + name);
            if (found != leftover.before.value(name) && found != leftover.after.value(name))
                report(
                    u"a broken session has left a wrong file: %1/%2"_s.arg(leftover.folder, name));
        }
        QDir(folder).removeRecursively();
    }
    if (age.count() > 0)
        return;
    for (auto it = m_files.cbegin(); it != m_files.cend(); ++it)
        compareFile(onServer(it.key()), it.value());
}

SoakPlayer::Operation SoakPlayer::chooseOperation()
{
    if (m_files.isEmpty())
        return put();
    if (m_files.size() >= kMostFiles)
        return remove(someName());
    switch (m_random.between(0, 19)) {
    case 0:
    case 1:
    case 2:
    case 3:
        return put();
    case 4:
    case 5:
        return putDevice();
    case 6:
    case 7:
    case 8:
    case 9:
        return get(someName());
    case 10:
    case 11:
        return getDevice(someName());
    case 12:
        return copy(someName());
    case 13:
        return rename(someName());
    case 14:
        return remove(someName());
    case 15:
    case 16:
        return ask(someName());
    case 17:
        return list();
    case 18:
        return readDevice(someName());
    default:
        return smallTalk();
    }
}

SoakPlayer::Operation SoakPlayer::put()
{
    const QByteArray content = newContent();
    const QString source = m_places.local + u'/' + kSent;
    if (!FileTree::write(source, content))
        report(u"cannot write a local file"_s);
    // A new file, or over one that is there.
    const QString name = m_files.isEmpty() || m_random.chance(50) ? newName() : someName();
    Operation operation{
        CommandIds::kSendFile,
        [source, to = remote(name)](SClientFtp &client) { client.sendFile(source, to, false); },
        m_files, m_got};
    operation.after.insert(name, hashOf(content));
    operation.check = [this, name, hash = hashOf(content)] {
        return compareFile(onServer(name), hash);
    };
    return operation;
}

SoakPlayer::Operation SoakPlayer::putDevice()
{
    const QByteArray content = newContent();
    const QString name = newName();
    Operation operation{CommandIds::kSendDev,
                        [content, to = remote(name)](SClientFtp &client) {
                            auto *device = new QBuffer(&client);
                            device->setData(content);
                            client.sendDevice(device, to);
                        },
                        m_files, m_got};
    operation.after.insert(name, hashOf(content));
    operation.check = [this, name, hash = hashOf(content)] {
        return compareFile(onServer(name), hash);
    };
    return operation;
}

SoakPlayer::Operation SoakPlayer::get(const QString &name)
{
    const QString target = m_places.local + u'/' + kGot;
    Operation operation{
        CommandIds::kGetFile,
        [target, from = remote(name)](SClientFtp &client) { client.getFile(from, target, false); },
        m_files, m_files.value(name)};
    operation.check = [this, target, hash = m_files.value(name)] {
        return compareFile(target, hash);
    };
    return operation;
}

SoakPlayer::Operation SoakPlayer::getDevice(const QString &name)
{
    const auto content = std::make_shared<QByteArray>();
    Operation operation{CommandIds::kGetDev,
                        [content, from = remote(name)](SClientFtp &client) {
                            client.getDevice(from, new QBuffer(content.get(), &client));
                        },
                        m_files, m_got};
    operation.check = [this, content, hash = m_files.value(name)] {
        ++m_score->files;
        m_score->fileBytes += content->size();
        return hashOf(*content) == hash ? QString() : u"a device has got wrong bytes"_s;
    };
    return operation;
}

SoakPlayer::Operation SoakPlayer::copy(const QString &name)
{
    const QString target = newName();
    Operation operation{CommandIds::kCopyFile,
                        [from = remote(name), to = remote(target)](SClientFtp &client) {
                            client.copyFile(from, to);
                        },
                        m_files, m_got};
    operation.after.insert(target, m_files.value(name));
    operation.check = [this, target, hash = m_files.value(name)] {
        return m_answer ? compareFile(onServer(target), hash) : u"a copy was refused"_s;
    };
    return operation;
}

SoakPlayer::Operation SoakPlayer::rename(const QString &name)
{
    const QString target = newName();
    Operation operation{CommandIds::kRenameFile,
                        [from = remote(name), to = remote(target)](SClientFtp &client) {
                            client.renameFile(from, to);
                        },
                        m_files, m_got};
    operation.after.insert(target, operation.after.take(name));
    operation.check = [this, target, hash = m_files.value(name)] {
        return m_answer ? compareFile(onServer(target), hash) : u"a new name was refused"_s;
    };
    return operation;
}

SoakPlayer::Operation SoakPlayer::remove(const QString &name)
{
    Operation operation{CommandIds::kRemoveFile,
                        [path = remote(name)](SClientFtp &client) { client.removeFile(path); },
                        m_files, m_got};
    operation.after.remove(name);
    operation.check = [this, path = onServer(name)] {
        return m_answer && !QFile::exists(path) ? QString() : u"a file was not removed"_s;
    };
    return operation;
}

SoakPlayer::Operation SoakPlayer::ask(const QString &name)
{
    const bool isThere = m_random.chance(50);
    const QString path = remote(isThere ? name : u"nothing"_s);
    return {CommandIds::kExists, [path](SClientFtp &client) { client.exists(path); }, m_files,
            m_got,
            [this, isThere] { return m_answer == isThere ? QString() : u"a wrong exists"_s; }};
}

SoakPlayer::Operation SoakPlayer::list()
{
    return {CommandIds::kListDir,
            [folder = remote(QString())](SClientFtp &client) { client.listDir(folder); }, m_files,
            m_got,
            [this] {
                m_listed.removeOne(u".."_s);
                m_listed.sort();
                return m_listed == m_files.keys() ? QString() : u"a wrong list"_s;
            }};
}

// On a connection of its own, which may break too.
SoakPlayer::Operation SoakPlayer::readDevice(const QString &name)
{
    Operation operation{CommandIds::kServerName, [](SClientFtp &client) { client.serverName(); },
                        m_files, m_got};
    operation.check = [this, path = remote(name), hash = m_files.value(name)] {
        SClientDevice device(u"127.0.0.1"_s, path, m_places.port, u"ann"_s,
                             Security::SSecureString(u"secret"_s));
        device.setTimeout(kTimeoutMs);
        if (!device.open(QIODevice::ReadOnly))
            return QString();
        QByteArray content;
        QByteArray piece;
        while (!(piece = device.read(kDevicePieceBytes)).isEmpty())
            content += piece;
        if (device.error() != SClientDevice::Error::None)
            return QString();
        ++m_score->files;
        m_score->fileBytes += content.size();
        return hashOf(content) == hash ? QString() : u"wrong bytes of a remote device"_s;
    };
    return operation;
}

SoakPlayer::Operation SoakPlayer::smallTalk()
{
    switch (m_random.between(0, 4)) {
    case 0:
        return {CommandIds::kPwd, [](SClientFtp &client) { client.pwd(); }, m_files, m_got};
    case 1:
        return {CommandIds::kWhoAmI, [](SClientFtp &client) { client.whoAmI(); }, m_files, m_got};
    case 2:
        return {CommandIds::kServerName, [](SClientFtp &client) { client.serverName(); }, m_files,
                m_got};
    case 3:
        return {CommandIds::kStorageInfo, [](SClientFtp &client) { client.storageInfo(); }, m_files,
                m_got};
    default:
        return {CommandIds::kLinkTest, [](SClientFtp &client) { client.linkTest(0, 0); }, m_files,
                m_got};
    }
}

QString SoakPlayer::remote(const QString &name) const
{
    return u"%1-%2/%3"_s.arg(m_places.folder, QString::number(m_generation), name);
}

QString SoakPlayer::onServer(const QString &name) const
{
    return m_places.home + u'/' + remote(name);
}

QString SoakPlayer::someName()
{
    return m_files.keys().at(m_random.between(0, m_files.size() - 1));
}

QString SoakPlayer::newName()
{
    return u"file%1"_s.arg(++m_names);
}

// Small ones come as often as large ones.
QByteArray SoakPlayer::newContent()
{
    const qint64 size = m_random.between(0, qint64(1) << m_random.between(0, kLargestPower));
    return pool().mid(m_random.between(0, pool().size() - size), size);
}

QString SoakPlayer::compareFile(const QString &path, const QByteArray &hash)
{
    ++m_score->files;
    m_score->fileBytes += QFile(path).size();
    return hashOfFile(path) == hash ? QString() : u"wrong bytes in "_s + path;
}

void SoakPlayer::report(const QString &problem)
{
    m_score->addProblem(m_places.folder + u": "_s + problem);
}
