// SPDX-License-Identifier: MIT
#include "stageddatabase.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QUuid>

#include <filesystem>
#include <system_error>

namespace Brix {

using namespace Qt::StringLiterals;

namespace {

QString existingFile(const QString &name)
{
    OpenDatabase::requireFile(name);
    return QFileInfo(name).canonicalFilePath();
}

QString copyOf(const QString &file)
{
    return u"%1/.brix-%2"_s.arg(QFileInfo(file).path(),
                                QUuid::createUuid().toString(QUuid::WithoutBraces));
}

QString headOf(const QString &file)
{
    return file + u".srec"_s;
}

QString indexOf(const QString &file)
{
    return file + u".idx"_s;
}

// Unlike QFile's, this renaming replaces an older file in one step.
std::error_code replace(const QString &target, const QString &source)
{
    std::error_code error;
    std::filesystem::rename(QFileInfo(source).filesystemFilePath(),
                            QFileInfo(target).filesystemFilePath(), error);
    return error;
}

} // namespace

StagedDatabase::StagedDatabase(const QString &file, const DatabaseLogin &login)
    : m_name(file)
    , m_file(existingFile(file))
    , m_copy(copyOf(m_file))
    , m_lock(m_file)
{
    m_lock.require();
    // It stands in for a head that is destroyed.
    QFile::copy(headOf(m_file), headOf(m_copy));
    QFile source(m_file);
    try {
        if (!source.copy(m_copy))
            throw Failure{ExitCode::LocalIo,
                          u"cannot copy %1: %2"_s.arg(m_name, source.errorString())};
        m_database.emplace(m_copy, login, m_name);
    } catch (const Failure &) {
        removeCopy();
        throw;
    }
}

StagedDatabase::~StagedDatabase()
{
    m_database.reset();
    removeCopy();
}

void StagedDatabase::commit()
{
    m_database.reset();
    const std::error_code error = replace(m_file, m_copy);
    if (error)
        throw Failure{ExitCode::LocalIo,
                      u"cannot replace %1: %2"_s.arg(
                          m_name, QString::fromLocal8Bit(error.message().c_str()))};
    // The settings may have changed with the file. The old index would be found out, at the cost of
    // reading it.
    replace(headOf(m_file), headOf(m_copy));
    QFile::remove(indexOf(m_file));
}

void StagedDatabase::removeCopy()
{
    for (const QString &name : {m_copy, headOf(m_copy), indexOf(m_copy)})
        QFile::remove(name);
}

} // namespace Brix
