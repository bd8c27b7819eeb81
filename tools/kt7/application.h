// The command line of kt7: its commands with their options, for the program itself and for what is
// made from them, manual pages and completions.
#pragma once

#include "tools/kt7/commands/commands.h"

#include <memory>
#include <vector>

namespace kt7::tool {

struct Application {
    Application();
    ~Application();

    std::unique_ptr<CLI::App> options;
    std::vector<Command> commands; ///< in the order that help lists them
};

} // namespace kt7::tool
