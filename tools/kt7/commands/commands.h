// The commands of kt7. A new one is a file of its own, a line here and one in application.cpp.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace kt7::tool {

/// Adds the command with its options to the application and returns what runs it. The result is the
/// exit code; failures that end the command are raised (errors.h). Option values live in the
/// result.
using CommandBody = std::function<int()>;
struct Command {
    CLI::App* options;
    CommandBody run;
};

Command addDenoiseCommand(CLI::App& application);
Command addEstimateCommand(CLI::App& application);
Command addCompareCommand(CLI::App& application);
Command addDemoCommand(CLI::App& application);
Command addPreviewCommand(CLI::App& application);
Command addLevelsCommand(CLI::App& application);

enum ExitCode : int { exitOk = 0, exitFailed = 1, exitUsage = 2 };

} // namespace kt7::tool
