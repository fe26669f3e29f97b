// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QList>
#include <QtCore/QString>

namespace Talverine {

class SCommand;

//! A new prototype of each file command, in the order in which both ends register them; the caller
//! owns them.
QList<SCommand *> newFileCommandPrototypes();

//! The patterns of a filter text such as "*.txt; *.csv"; none stands for all names.
QList<QString> filterPatterns(QString filters);

} // namespace Talverine
