// kt7: denoises photographs from the command line.
#include "tools/kt7/application.h"
#include "tools/kt7/errors.h"
#include "tools/kt7/say.h"
#include "tools/kt7/signals.h"
#include "tools/kt7/usage.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <new>
#include <unistd.h>
#include <vector>

namespace {

using namespace kt7::tool;
using Arguments = std::vector<std::string>;

/// A file that is opened later must not become a standard stream by its number. What was closed
/// stays useless: reading from it and writing to it fail.
void occupyStandardStreams() {
    while (true) {
        const int lowest = open("/dev/null", O_RDWR | O_CLOEXEC);
        if (lowest < 0 || lowest > STDERR_FILENO) {
            close(lowest);
            return;
        }
        close(lowest);
        if (open("/dev/null", lowest == STDIN_FILENO ? O_WRONLY : O_RDONLY) != lowest)
            return;
    }
}

/// A summary that didn't reach its file is a failure, too.
int finish(int result) {
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
        throw UserError("cannot write to standard output");
    return result;
}

int refuse(const CLI::App& used, const std::string& why) {
    say(why);
    std::fprintf(stderr, "%s\n", usageOf(used).c_str());
    return exitUsage;
}

/// The command that the arguments name; "kt7 help denoise" becomes "kt7 denoise --help". Raises
/// UsageError.
void resolveCommand(const CLI::App& application, Arguments& arguments) {
    if (!arguments.empty() && arguments.front() == "help") {
        arguments.erase(arguments.begin());
        arguments.resize(std::min<std::size_t>(arguments.size(), 1));
        arguments.emplace_back("--help");
    }
    if (!arguments.empty() && !arguments.front().starts_with('-'))
        requireCommand(application, arguments.front());
}

int run(Arguments arguments) {
    Application program;
    CLI::App& application = *program.options;
    const CLI::App* used = &application;
    try {
        resolveCommand(application, arguments);
        std::reverse(arguments.begin(), arguments.end()); // as the parser takes them
        application.parse(std::move(arguments));
        for (const Command& command : program.commands)
            if (command.options->parsed()) {
                used = command.options;
                return finish(command.run());
            }
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) // --help and --version arrive here, too
            return finish(application.exit(error));
        const auto parsed = application.get_subcommands();
        return refuse(parsed.empty() ? application : *parsed.front(), error.what());
    } catch (const UsageError& error) {
        return refuse(*used, error.what());
    }
    return exitUsage;
}

} // namespace

int main(int argc, char** argv) {
    occupyStandardStreams();
    installSignalHandlers();
    try {
        return run(Arguments(argv + std::min(argc, 1), argv + argc));
    } catch (const std::bad_alloc&) {
        say("not enough memory");
    } catch (const std::exception& error) {
        say(error.what());
    }
    return exitFailed;
}
