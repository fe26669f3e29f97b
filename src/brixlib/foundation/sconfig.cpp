// SPDX-License-Identifier: MIT
#include <brixlib/foundation/sconfig.h>

#include <QtCore/QFile>
#include <QtCore/QScopeGuard>
#include <QtCore/QTextStream>

#include <optional>

namespace Talverine {

using namespace Qt::StringLiterals;

namespace {

//! Lines with this mark spoke to an earlier reader and say nothing today.
constexpr auto kBackwardCompatibilityMark = "%BackwardCompatibility%"_L1;

//! The version of a trimmed line, if it is a version line.
std::optional<quint32> versionOf(const QString &line)
{
    if (!line.startsWith(u'$'))
        return std::nullopt;
    const QList<QString> parts = line.split(u' ', Qt::SkipEmptyParts);
    if (parts.size() < 2)
        return std::nullopt;
    return parts.at(1).toUInt();
}

struct Variable
{
    QString name;
    QString value;
};

//! The variable of a trimmed line, if it is a variable line.
std::optional<Variable> variableOf(const QString &line)
{
    const qsizetype assign = line.indexOf(u'=');
    if (!line.startsWith(u'%') || assign < 0)
        return std::nullopt;
    return Variable{line.first(assign).remove(u'%').trimmed(), line.sliced(assign + 1).trimmed()};
}

} // namespace

SConfig::SConfig(const QString &fileName)
{
    QFile file(fileName);
    readAll(&file, &m_version, &m_variables);
}

SConfig::SConfig(QIODevice *device)
{
    readAll(device, &m_version, &m_variables);
}

QString SConfig::variable(QIODevice *device, const QString &name)
{
    QHash<QString, QString> variables;
    readAll(device, nullptr, &variables);
    return variables.value(name);
}

quint32 SConfig::version(QIODevice *device)
{
    quint32 version = NoVersion;
    readAll(device, &version, nullptr);
    return version;
}

// Either result may be null; without variables the first version line ends the reading.
bool SConfig::readAll(QIODevice *device, quint32 *version, QHash<QString, QString> *variables)
{
    if (version)
        *version = NoVersion;
    if (!device)
        return false;
    const bool openedHere = !device->isOpen();
    if (openedHere && !device->open(QIODevice::ReadOnly))
        return false;
    const auto closeAgain = qScopeGuard([&] {
        if (openedHere)
            device->close();
    });

    QTextStream stream(device);
    stream.setEncoding(QStringConverter::Utf8);
    QString line;
    while (stream.readLineInto(&line)) {
        if (line.contains(kBackwardCompatibilityMark))
            continue;
        line = line.trimmed();
        if (const auto found = versionOf(line)) {
            if (version)
                *version = *found;
            if (!variables)
                break;
        } else if (const auto pair = variableOf(line); pair && variables) {
            variables->insert(pair->name, pair->value);
        }
    }
    return true;
}

} // namespace Talverine
