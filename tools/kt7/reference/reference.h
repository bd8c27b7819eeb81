// What is made from the command line of kt7 so that it cannot drift from it: manual pages and
// completions.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace kt7::tool {

struct OptionText {
    std::vector<std::string> names; ///< "-f", "--force"; empty for what is given without a name
    std::string value;              ///< "N", "DIR"; empty for a flag
    std::string range;              ///< "1 to 100"; empty where any value is taken
    std::vector<std::string> choices;
    std::string description, defaultText;
    bool required = false;

    std::string summary() const; ///< the description's first sentence
};

struct CommandText {
    std::string name, description, usage, footer;
    std::vector<OptionText> options;
};

/// The program itself, then its commands, in the order of the help.
std::vector<CommandText> textsOf(const CLI::App& application);

/// In roff with the macros of man(7). date: "2026-01-31".
std::string manualPage(const std::vector<CommandText>& texts, const CommandText& command,
                       const std::string& date);

std::string bashCompletion(const std::vector<CommandText>& texts);
std::string zshCompletion(const std::vector<CommandText>& texts);
std::string fishCompletion(const std::vector<CommandText>& texts);

} // namespace kt7::tool
