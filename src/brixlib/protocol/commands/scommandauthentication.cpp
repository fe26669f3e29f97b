// SPDX-License-Identifier: MIT
#include <brixlib/protocol/commands/scommandauthentication.h>

namespace Talverine {

SCommandAuthentication::SCommandAuthentication()
    : SConcreteCommand(CommandIds::kAuthentication)
{
}

SCommandAuthentication::SCommandAuthentication(const QString &username,
                                               const QByteArray &hashedPassword)
    : SConcreteCommand(CommandIds::kAuthentication)
    , m_username(username.toLower())
    , m_hashedPassword(hashedPassword)
{
}

// The hash is bytes in memory but a text on the wire.
void SCommandAuthentication::readFields(QDataStream &stream)
{
    QString hash;
    stream >> m_username >> hash;
    m_username = m_username.toLower();
    m_hashedPassword = hash.toUtf8();
}

void SCommandAuthentication::writeFields(QDataStream &stream) const
{
    stream << m_username << QString::fromUtf8(m_hashedPassword);
}

} // namespace Talverine
