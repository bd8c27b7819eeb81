// How the commands are called, and what was probably meant.
#pragma once

#include <memory>
#include <string>

namespace CLI {
class App;
class FormatterBase;
} // namespace CLI

namespace kt7::tool {

/// "usage: kt7 denoise [OPTIONS] IN... [OUT]"
std::string usageOf(const CLI::App& command);

/// Puts that line into --help.
std::shared_ptr<CLI::FormatterBase> usageFormatter();

/// Raises UsageError, with a suggestion where one is near, when there is no command of the name.
void requireCommand(const CLI::App& application, const std::string& name);

} // namespace kt7::tool
