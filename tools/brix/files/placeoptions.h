// SPDX-License-Identifier: MIT
#pragma once

#include "localstreams.h"
#include <cli/command.h>

namespace Brix {

//! A file of this machine or a standard stream, as named on the command line.
struct PlaceOptions
{
    QString path;
    bool isStandardStream = false;

    bool isNamed() const { return isStandardStream || !path.isEmpty(); }
    LocalPlace place() const { return {isStandardStream ? QString() : path}; }
};

//! Adds an argument whose value is the path of a file, or "-" for the standard stream.
Argument &declarePlace(Command *command, const std::string &names, PlaceOptions *options,
                       const std::string &description);

} // namespace Brix
