// SPDX-License-Identifier: MIT
#include <brixlib/protocol/server/sserverbaserequester.h>

#include <QtCore/QThread>

namespace Talverine {

SServerBaseRequester::SServerBaseRequester(SServerBase *worker, QObject *parent)
    : SCommunicatorBaseRequester(worker, parent)
{
}

SServerBaseRequester::~SServerBaseRequester() = default;

Interfaces::ISAuthenticationDb *SServerBaseRequester::authenticationDb() const
{
    Interfaces::ISAuthenticationDb *result = nullptr;
    query("authenticationDb", Q_RETURN_ARG(Interfaces::ISAuthenticationDb *, result));
    return result;
}

QString SServerBaseRequester::currentUser() const
{
    QString result;
    query("currentUser", Q_RETURN_ARG(QString, result));
    return result;
}

bool SServerBaseRequester::isDocumentRootEnabled() const
{
    bool result = false;
    query("isDocumentRootEnabled", Q_RETURN_ARG(bool, result));
    return result;
}

QHostAddress SServerBaseRequester::peerAddress() const
{
    QHostAddress result;
    query("peerAddress", Q_RETURN_ARG(QHostAddress, result));
    return result;
}

QList<QString> SServerBaseRequester::pluggableList() const
{
    QList<QString> result;
    query("pluggableList", Q_RETURN_ARG(QList<QString>, result));
    return result;
}

QString SServerBaseRequester::serverName() const
{
    QString result;
    query("serverName", Q_RETURN_ARG(QString, result));
    return result;
}

void SServerBaseRequester::addPluggable(const QString &name, SPluggable *pluggable)
{
    SCommunicatorBase *target = worker();
    if (!target)
        return;
    // A parent can only be set in the thread of both.
    if (pluggable && !pluggable->parent() && pluggable->thread() == QThread::currentThread()) {
        pluggable->moveToThread(target->thread());
        // A session that ends before it has run the call takes the pluggable along all the same.
        connect(
            target, &QObject::destroyed, pluggable, [pluggable] { delete pluggable; },
            Qt::DirectConnection);
    }
    post("addPluggable", Q_ARG(QString, name), Q_ARG(SPluggable *, pluggable));
}

void SServerBaseRequester::delPluggable(const QString &name)
{
    post("delPluggable", Q_ARG(QString, name));
}

void SServerBaseRequester::enableDocumentRoot(bool enabled)
{
    post("enableDocumentRoot", Q_ARG(bool, enabled));
}

void SServerBaseRequester::setAuthenticationDb(Interfaces::ISAuthenticationDb *db)
{
    post("setAuthenticationDb", Q_ARG(Interfaces::ISAuthenticationDb *, db));
}

void SServerBaseRequester::setServerName(const QString &name)
{
    post("setServerName", Q_ARG(QString, name));
}

} // namespace Talverine

#include "moc_sserverbaserequester.cpp"
