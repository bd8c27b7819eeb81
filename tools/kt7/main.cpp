// kt7: denoises photographs from the command line.
#include "kt7lib/kt7lib.h"
#include "tools/kt7/commands/commands.h"
#include "tools/kt7/errors.h"
#include "tools/kt7/signals.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <new>
#include <vector>

namespace {

using namespace kt7::tool;

/// A summary that didn't reach its file is a failure, too.
int finish(int result) {
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
        throw UserError("cannot write to standard output");
    return result;
}

int run(int argc, char** argv) {
    CLI::App application("Removes noise from photographs.", "kt7");
    application.set_version_flag("--version", "kt7 " KT7LIB_VERSION_TEXT);
    application.require_subcommand(1);
    application.footer("kt7 COMMAND --help tells the options of a command.");
    std::vector<Command> commands;
    for (const auto add : {addDenoiseCommand, addEstimateCommand, addPreviewCommand,
                           addLevelsCommand, addDemoCommand})
        commands.push_back(add(application));
    try {
        application.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) // --help and --version arrive here, too
            return application.exit(error);
        std::fprintf(stderr, "kt7: %s\n", error.what());
        return exitUsage;
    }
    for (const Command& command : commands)
        if (command.options->parsed())
            return finish(command.run());
    return exitUsage;
}

} // namespace

int main(int argc, char** argv) {
    installSignalHandlers();
    try {
        return run(argc, argv);
    } catch (const Cancelled&) {
        return 128 + pendingSignal();
    } catch (const std::bad_alloc&) {
        std::fputs("kt7: not enough memory\n", stderr);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kt7: %s\n", error.what());
    }
    return exitFailed;
}
