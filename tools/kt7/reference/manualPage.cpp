#include "tools/kt7/reference/reference.h"

#include <sstream>
#include <utility>

namespace kt7::tool {
namespace {

/// Words as roff prints them unchanged. A line must not begin with a control character.
std::string plain(const std::string& text) {
    std::string out = text.empty() || (text[0] != '.' && text[0] != '\'') ? "" : "\\&";
    for (const char c : text)
        out += c == '\\' ? "\\e" : c == '-' ? "\\-" : std::string(1, c);
    return out;
}

std::string headOf(const OptionText& option) {
    std::string head;
    for (const std::string& name : option.names)
        head += (head.empty() ? "\\fB" : ", \\fB") + plain(name) + "\\fR";
    if (!option.value.empty())
        head += (head.empty() ? "\\fI" : " \\fI") + plain(option.value) + "\\fR";
    return head;
}

void addOption(std::ostream& page, const OptionText& option) {
    page << ".TP\n" << headOf(option) << "\n" << plain(option.description) << ".\n";
    if (!option.range.empty())
        page << "From " << plain(option.range) << ".\n";
    for (std::size_t i = 0; i < option.choices.size(); ++i)
        page << (i == 0 ? "One of " : ", ") << plain(option.choices[i])
             << (i + 1 == option.choices.size() ? ".\n" : "");
    if (!option.defaultText.empty())
        page << "Default: " << plain(option.defaultText) << ".\n";
    if (option.required && !option.names.empty())
        page << "Must be given.\n";
}

void addFooter(std::ostream& page, const std::string& footer) {
    if (footer.empty())
        return;
    page << ".SH NOTES\n";
    std::istringstream lines(footer);
    const char* paragraph = ""; // none before the first
    for (std::string line; std::getline(lines, line);) {
        // An indented line is a row of a table: a name, then what it means.
        const std::size_t name = line.find_first_not_of(' ');
        const std::size_t gap = line.find("  ", name);
        if (name == 0 || gap == std::string::npos)
            page << std::exchange(paragraph, ".PP\n") << plain(line) << "\n";
        else
            page << ".TP\n\\fB" << plain(line.substr(name, gap - name)) << "\\fR\n"
                 << plain(line.substr(line.find_first_not_of(' ', gap))) << "\n";
    }
}

} // namespace

std::string manualPage(const std::vector<CommandText>& texts, const CommandText& command,
                       const std::string& date) {
    const bool whole = command.name.empty();
    const std::string name = whole ? "kt7" : "kt7-" + command.name;
    const std::string summary = command.description.substr(0, command.description.find(". "));
    std::ostringstream page;
    page << ".TH \"" << plain(name) << "\" 1 \"" << date << "\" kt7 \"User Commands\"\n"
         << ".SH NAME\n"
         << plain(name) << " \\- " << plain(summary) << "\n.SH SYNOPSIS\n\\fB"
         << plain(command.usage.substr(command.usage.find(' ') + 1)) << "\\fR\n"
         << ".SH DESCRIPTION\n"
         << plain(command.description) << (command.description.ends_with('.') ? "\n" : ".\n");
    if (whole) {
        page << ".SH COMMANDS\n";
        for (const CommandText& each : texts)
            if (!each.name.empty())
                page << ".TP\n\\fB" << plain(each.name) << "\\fR\n"
                     << plain(each.description) << ".\n";
    }
    page << ".SH OPTIONS\n";
    for (const OptionText& option : command.options)
        addOption(page, option);
    addFooter(page, command.footer);
    page << ".SH \"EXIT STATUS\"\n0 when all went well, 1 when a photo failed, 2 when the command "
            "was not understood.\n.SH \"SEE ALSO\"\n";
    std::string separator;
    for (const CommandText& each : texts)
        if (each.name != command.name) {
            page << separator << ".BR " << plain(each.name.empty() ? "kt7" : "kt7-" + each.name)
                 << " (1)";
            separator = ",\n";
        }
    page << "\n";
    return page.str();
}

} // namespace kt7::tool
