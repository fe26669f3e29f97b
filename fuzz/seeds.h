// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QList>

namespace Fuzz {

//! An input that its target accepts, for the search to begin with.
struct Seed
{
    QByteArray target;
    QByteArray name; //!< of its file
    QByteArray bytes;
};

//! All of them, made of the bytes that the tests compare with.
QList<Seed> seeds();

} // namespace Fuzz
