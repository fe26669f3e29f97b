// SPDX-License-Identifier: MIT
#include "placeoptions.h"

namespace Brix {

Argument &declarePlace(Command *command, const std::string &names, PlaceOptions *options,
                       const std::string &description)
{
    Argument &argument = command->addPath(names, &options->path, description);
    return argument.addStore([options](const std::vector<std::string> &texts) {
        options->isStandardStream = texts.front() == "-";
    });
}

} // namespace Brix
