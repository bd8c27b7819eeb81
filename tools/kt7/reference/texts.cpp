#include "tools/kt7/reference/reference.h"
#include "tools/kt7/usage.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <sstream>

namespace kt7::tool {
namespace {

std::string replaced(std::string text, const std::string& what, const std::string& by) {
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size())
        text.replace(at, what.size(), by);
    return text;
}

std::string between(const std::string& text, char open, char close) {
    const std::size_t begin = text.find(open), end = text.rfind(close);
    return begin < end && end != std::string::npos ? text.substr(begin + 1, end - begin - 1) : "";
}

OptionText textOf(const CLI::Option& option) {
    OptionText text;
    for (const std::string& name : option.get_snames())
        text.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        text.names.push_back("--" + name);
    // "N:INT in [1 - 100]" or "NAME:{fast,full,best}": the name, then what is checked.
    const std::string type = option.get_type_name();
    const std::size_t colon = std::min(type.find(':'), type.size());
    if (option.get_items_expected_max() > 0)
        text.value = type.substr(0, colon);
    const std::string check = type.substr(colon);
    text.range = replaced(between(check, '[', ']'), " - ", " to ");
    std::istringstream choices(between(check, '{', '}'));
    for (std::string choice; std::getline(choices, choice, ',');)
        text.choices.push_back(choice);
    text.description = option.get_description();
    if (!text.value.empty())
        text.defaultText = option.get_default_str();
    text.required = option.get_required();
    return text;
}

CommandText textOf(const CLI::App& command) {
    CommandText text{command.get_parent() == nullptr ? "" : command.get_name(),
                     command.get_description(),
                     usageOf(command),
                     command.get_footer(),
                     {}};
    for (const CLI::Option* option : command.get_options())
        if (!option->get_group().empty()) // hidden ones have none
            text.options.push_back(textOf(*option));
    return text;
}

} // namespace

std::string OptionText::summary() const {
    return description.substr(0, description.find(". "));
}

std::vector<CommandText> textsOf(const CLI::App& application) {
    std::vector<CommandText> texts{textOf(application)};
    for (const CLI::App* command : application.get_subcommands({}))
        texts.push_back(textOf(*command));
    return texts;
}

} // namespace kt7::tool
