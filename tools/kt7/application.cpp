#include "tools/kt7/application.h"

#include "kt7lib/kt7lib.h"
#include "tools/kt7/usage.h"

#include <CLI/CLI.hpp>

namespace kt7::tool {

Application::Application()
    : options(std::make_unique<CLI::App>("Removes noise from photographs.", "kt7")) {
    options->formatter(usageFormatter());
    options->set_version_flag("--version", "kt7 " KT7LIB_VERSION_TEXT);
    options->require_subcommand(1);
    options->footer("kt7 help COMMAND tells the options of a command.");
    for (const auto add : {addDenoiseCommand, addEstimateCommand, addCompareCommand,
                           addPreviewCommand, addLevelsCommand, addDemoCommand})
        commands.push_back(add(*options));
}

Application::~Application() = default;

} // namespace kt7::tool
