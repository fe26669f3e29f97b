// SPDX-License-Identifier: MIT
#include "remoteurl.h"

#include <QtCore/QRegularExpression>
#include <QtCore/QUrl>

namespace Brix {

using namespace Qt::StringLiterals;

namespace {

// What is wrong with the text before it is taken apart; empty when it may be.
QString problemOfText(const QString &text)
{
    static const QRegularExpression brokenEscape(u"%(?![0-9A-Fa-f]{2})"_s);
    if (!text.startsWith(u"brix://"_s, Qt::CaseInsensitive))
        return u"it does not begin with brix://"_s;
    if (text.contains(brokenEscape))
        return u"a percent sign is not followed by two hexadecimal digits (write %25 for the sign)"_s;
    return {};
}

// What is wrong with the parts; empty when they are a place.
QString problemOfParts(const QUrl &url, const RemoteUrl &remote)
{
    if (!url.isValid())
        return url.errorString();
    if (!url.password(QUrl::FullyEncoded).isEmpty())
        return u"a password does not belong there, where others can read it"_s;
    if (remote.user.isEmpty())
        return u"the user is missing"_s;
    if (remote.host.isEmpty())
        return u"the host is missing"_s;
    if (url.port() < 1)
        return u"the port is missing"_s;
    if (url.hasQuery())
        return u"a question mark in a path is written %3F"_s;
    if (url.hasFragment())
        return u"a number sign in a path is written %23"_s;
    if (remote.path.contains(QChar::Null) || remote.user.contains(QChar::Null))
        return u"%00 cannot be part of a name"_s;
    if (remote.path.contains(QChar::ReplacementCharacter))
        return u"its percent-encoded bytes are not UTF-8"_s;
    return {};
}

} // namespace

std::optional<RemoteUrl> RemoteUrl::parse(const QString &text, QString *error)
{
    QString problem = problemOfText(text);
    RemoteUrl remote;
    if (problem.isEmpty()) {
        const QUrl url(text, QUrl::TolerantMode);
        remote.user = url.userName(QUrl::FullyDecoded);
        remote.host = url.host(QUrl::FullyDecoded);
        remote.port = quint16(std::max(url.port(), 0));
        remote.path = url.path(QUrl::FullyDecoded).mid(1);
        problem = problemOfParts(url, remote);
    }
    if (problem.isEmpty())
        return remote;
    // The text itself is not repeated: it may hold a password.
    *error = u"wrong URL: %1 (the form is brix://USER@HOST:PORT/PATH)"_s.arg(problem);
    return std::nullopt;
}

QString RemoteUrl::authority() const
{
    const auto form = host.contains(u':') ? u"[%1]:%2"_s : u"%1:%2"_s;
    return form.arg(host, QString::number(port));
}

} // namespace Brix
