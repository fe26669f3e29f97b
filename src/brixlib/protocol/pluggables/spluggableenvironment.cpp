// SPDX-License-Identifier: MIT
#include <brixlib/protocol/pluggables/spluggableenvironment.h>

#include <memory>

namespace Talverine {

using namespace Qt::StringLiterals;

namespace {

using UserPointer = std::shared_ptr<const Interfaces::ISUser>;

const auto userKey = u"user"_s;
const auto documentRootEnabledKey = u"documentRootEnabled"_s;

} // namespace

void SPluggableEnvironment::setValue(const QString &name, const QVariant &value)
{
    m_values.insert(name, value);
}

QVariant SPluggableEnvironment::value(const QString &name) const
{
    return m_values.value(name);
}

QList<QString> SPluggableEnvironment::keys() const
{
    return m_values.keys();
}

bool SPluggableEnvironment::isEmpty() const
{
    return m_values.isEmpty();
}

void SPluggableEnvironment::setUser(const Interfaces::ISUser *user)
{
    const auto keep = [](const Interfaces::ISUser *) {};
    setValue(userKey, QVariant::fromValue(UserPointer(user, keep)));
}

const Interfaces::ISUser *SPluggableEnvironment::user() const
{
    return value(userKey).value<UserPointer>().get();
}

void SPluggableEnvironment::setDocumentRootEnabled(bool enabled)
{
    setValue(documentRootEnabledKey, enabled);
}

bool SPluggableEnvironment::documentRootEnabled() const
{
    return value(documentRootEnabledKey).toBool();
}

bool SPluggableEnvironment::operator==(const SPluggableEnvironment &other) const
{
    return m_values == other.m_values;
}

bool SPluggableEnvironment::operator!=(const SPluggableEnvironment &other) const
{
    return !(*this == other);
}

} // namespace Talverine
