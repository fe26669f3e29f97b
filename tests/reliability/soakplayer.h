// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/fileservice/sclientftp.h>

#include <shared/seededrandom.h>

#include <QtCore/QMap>
#include <QtCore/QStringList>

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>

//! What all players of a soak share. Every member may be used from any thread.
class SoakScore final
{
public:
    std::atomic<qint64> operations = 0; //!< that were reported as done
    std::atomic<qint64> files = 0;      //!< among them, whole files whose content was compared
    std::atomic<qint64> fileBytes = 0;
    std::atomic<qint64> sessions = 0;
    std::atomic<qint64> broken = 0; //!< sessions that a failed exchange or a lost connection ended
    std::atomic_bool stop = false;  //!< no player begins another operation

    void addProblem(const QString &problem);
    QStringList problems() const;

private:
    mutable std::mutex m_mutex;
    QStringList m_problems;
};

/*!
 * One client that does random operations in a folder of its own, session after session, and knows
 * what must lie in that folder. What a broken session leaves in doubt is not used any more: the
 * next session begins in a new folder, and the old one waits for checkLeftovers().
 *
 * attach() is called in the owner's thread and lets the player live on in that of the client, until
 * the client's thread has ended; detach() is called in the owner's thread then.
 */
class SoakPlayer final
{
public:
    struct Places
    {
        QString home;   //!< the user's home on the server's disk
        QString folder; //!< of this player: below home, and the same name for network paths
        QString local;  //!< where files are fetched to and sent from
        quint16 port;   //!< of the server, or what stands before it
    };

    SoakPlayer(SoakScore *score, Places places, quint32 seed);

    //! Plays on \a client as soon as that is connected.
    void attach(Talverine::SClientFtp *client);
    //! The client has ended.
    void detach();

    //! Looks at the folders that broken sessions have left more than \a age ago, and removes them.
    void checkLeftovers(std::chrono::milliseconds age);

private:
    using SClientFtp = Talverine::SClientFtp;
    //! The hashes of the contents by name.
    using Files = QMap<QString, QByteArray>;

    struct Operation
    {
        Talverine::SCommandId id;
        std::function<void(SClientFtp &client)> start;
        Files after;                         //!< what lies in the folder after a success
        QByteArray got;                      //!< the hash of the fetched file after a success
        std::function<QString()> check = {}; //!< what is wrong after a success
    };

    struct Leftover
    {
        QString folder;
        Files before;
        Files after;
        std::chrono::steady_clock::time_point since;
    };

    void onResult(SClientFtp &client, const Talverine::SCommandId &id, bool success);
    void next(SClientFtp &client);

    Operation chooseOperation();
    Operation put();
    Operation putDevice();
    Operation get(const QString &name);
    Operation getDevice(const QString &name);
    Operation copy(const QString &name);
    Operation rename(const QString &name);
    Operation remove(const QString &name);
    Operation ask(const QString &name);
    Operation list();
    Operation readDevice(const QString &name);
    Operation smallTalk();

    QString remote(const QString &name) const;
    QString onServer(const QString &name) const;
    QString someName();
    QString newName();
    QByteArray newContent();
    QString compareFile(const QString &path, const QByteArray &hash);
    void checkLocal(const QByteArray &hash);
    void report(const QString &problem);

    SoakScore *m_score;
    const Places m_places;
    SeededRandom m_random;
    int m_generation = 0;
    int m_names = 0;
    Files m_files;    // that lie on the server for sure
    QByteArray m_got; // the hash of the file that was fetched last
    int m_handshake = 0;
    int m_left = 0; // operations of this session
    std::optional<Operation> m_operation;
    bool m_answer = false;
    QStringList m_listed;
    QList<Leftover> m_leftovers;
};
