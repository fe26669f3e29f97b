// SPDX-License-Identifier: MIT
#include <brixlib/database/isdatabase.h>

namespace Talverine::Interfaces {

ISDatabase::ISDatabase(QObject *parent)
    : QObject(parent)
{
}

ISDatabase::~ISDatabase() = default;

} // namespace Talverine::Interfaces

#include "moc_isdatabase.cpp"
