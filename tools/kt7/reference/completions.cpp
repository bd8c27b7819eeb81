#include "tools/kt7/reference/reference.h"

#include <sstream>

namespace kt7::tool {
namespace {

std::string joined(const std::vector<std::string>& words, const std::string& separator) {
    std::string out;
    for (const std::string& word : words)
        out += (out.empty() ? "" : separator) + word;
    return out;
}

std::string commandNames(const std::vector<CommandText>& texts) {
    std::vector<std::string> names;
    for (const CommandText& text : texts)
        if (!text.name.empty())
            names.push_back(text.name);
    return joined(names, " ");
}

/// The text with a backslash before each of the characters.
std::string escaped(const std::string& text, const std::string& characters) {
    std::string out;
    for (const char c : text) {
        if (characters.find(c) != std::string::npos)
            out += '\\';
        out += c;
    }
    return out;
}

/// Within single quotes a shell takes everything as it is but the quote itself.
std::string quoted(const std::string& text) {
    std::string out = "'";
    for (const char c : text)
        out += c == '\'' ? "'\\''" : std::string(1, c);
    return out + "'";
}

bool isFolder(const OptionText& option) {
    return option.value == "DIR" || option.value == "OUTDIR";
}

/// What goes for one option of the command line after another, each with what takes its value.
void addBashValues(std::ostream& out, const CommandText& command) {
    for (const OptionText& option : command.options) {
        if (option.value.empty() || option.names.empty())
            continue;
        std::vector<std::string> patterns;
        for (const std::string& name : option.names)
            patterns.push_back(quoted(command.name + " " + name));
        out << "    " << joined(patterns, " | ") << ")\n        ";
        if (isFolder(option))
            out << "mapfile -t COMPREPLY < <(compgen -d -- \"$current\")\n        ";
        else if (!option.choices.empty())
            out << "mapfile -t COMPREPLY < <(compgen -W " << quoted(joined(option.choices, " "))
                << " -- \"$current\")\n        ";
        out << "return ;;\n";
    }
}

std::string zshValue(const OptionText& option) {
    std::string value = ":";
    value += escaped(option.value, ":") + ":";
    if (isFolder(option))
        return value + "_files -/";
    return option.choices.empty() ? value : value + "(" + joined(option.choices, " ") + ")";
}

void addZshOption(std::ostream& out, const OptionText& option) {
    if (option.names.empty())
        return;
    std::string text = "[";
    text += escaped(option.summary(), "[]:\\") + "]";
    if (!option.value.empty())
        text += zshValue(option);
    out << " \\\n            ";
    if (option.names.size() == 1)
        out << quoted(option.names.front() + text);
    else // each keeps the other from being offered again
        out << "'(" << joined(option.names, " ") << ")'{" << joined(option.names, ",") << "}"
            << quoted(text);
}

void addFishOption(std::ostream& out, const std::string& condition, const OptionText& option) {
    if (option.names.empty())
        return;
    out << "complete -c kt7 -n " << quoted(condition);
    for (const std::string& name : option.names)
        out << (name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1));
    if (isFolder(option))
        out << " -x -a '(__fish_complete_directories)'";
    else if (!option.value.empty())
        out << " -x"
            << (option.choices.empty() ? "" : " -a " + quoted(joined(option.choices, " ")));
    // fish has no way to leave its quotes but a backslash.
    out << " -d '" << escaped(option.summary(), "'\\") << "'\n";
}

} // namespace

std::string bashCompletion(const std::vector<CommandText>& texts) {
    std::ostringstream out;
    out << "# bash completion for kt7, made from its own help\n"
           "_kt7() {\n"
           "    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}\n"
           "    local command=${COMP_WORDS[1]} options=\n"
           "    COMPREPLY=()\n"
           "    # The shell takes --option=value for three words.\n"
           "    [[ $previous != = ]] || previous=${COMP_WORDS[COMP_CWORD-2]}\n"
           "    [[ $current != = ]] || { previous=${COMP_WORDS[COMP_CWORD-1]}; current=; }\n"
           "    [[ $COMP_CWORD -gt 1 ]] || command=\n"
           "    case \"$command $previous\" in\n";
    for (const CommandText& text : texts)
        if (!text.name.empty())
            addBashValues(out, text);
    out << "    esac\n"
           "    case $command in\n";
    for (const CommandText& text : texts) {
        std::vector<std::string> names;
        for (const OptionText& option : text.options)
            names.insert(names.end(), option.names.begin(), option.names.end());
        if (text.name.empty())
            names.insert(names.begin(), commandNames(texts) + " help");
        out << "    " << (text.name.empty() ? "''" : text.name)
            << ") options=" << quoted(joined(names, " ")) << " ;;\n";
    }
    out << "    help) options=" << quoted(commandNames(texts))
        << " ;;\n"
           "    esac\n"
           "    if [[ $current == -* || -z $command || $command == help ]]; then\n"
           "        mapfile -t COMPREPLY < <(compgen -W \"$options\" -- \"$current\")\n"
           "    else\n"
           "        mapfile -t COMPREPLY < <(compgen -f -- \"$current\")\n"
           "        compopt -o filenames 2>/dev/null\n"
           "    fi\n"
           "}\n"
           "complete -F _kt7 kt7\n";
    return out.str();
}

std::string zshCompletion(const std::vector<CommandText>& texts) {
    std::ostringstream out;
    out << "#compdef kt7\n"
           "# zsh completion for kt7, made from its own help\n"
           "_kt7() {\n"
           "    local context state line\n"
           "    typeset -A opt_args\n"
           "    local -a commands=(";
    for (const CommandText& text : texts)
        if (!text.name.empty())
            out << "\n        " << quoted(text.name + ":" + escaped(text.description, ":\\"));
    out << "\n        'help:tell the options of a command'\n"
           "    )\n"
           "    _arguments -C";
    for (const OptionText& option : texts.front().options)
        addZshOption(out, option);
    out << " \\\n            '1: :->command' '*:: :->rest'\n"
           "    case $state in\n"
           "    command) _describe command commands ;;\n"
           "    rest)\n"
           "        case $words[1] in\n";
    for (const CommandText& text : texts) {
        if (text.name.empty())
            continue;
        out << "        " << text.name << ")\n        _arguments";
        for (const OptionText& option : text.options)
            addZshOption(out, option);
        out << " \\\n            '*:file:_files' ;;\n";
    }
    out << "        help) _describe command commands ;;\n"
           "        esac ;;\n"
           "    esac\n"
           "}\n"
           "_kt7 \"$@\"\n";
    return out.str();
}

std::string fishCompletion(const std::vector<CommandText>& texts) {
    std::ostringstream out;
    out << "# fish completion for kt7, made from its own help\n";
    for (const CommandText& text : texts) {
        if (!text.name.empty())
            out << "complete -c kt7 -n __fish_use_subcommand -f -a " << text.name << " -d '"
                << escaped(text.description, "'\\") << "'\n";
        for (const OptionText& option : text.options)
            addFishOption(out,
                          text.name.empty() ? "__fish_use_subcommand"
                                            : "__fish_seen_subcommand_from " + text.name,
                          option);
    }
    out << "complete -c kt7 -n __fish_use_subcommand -f -a help -d "
           "'tell the options of a command'\n"
           "complete -c kt7 -n '__fish_seen_subcommand_from help' -f -a "
        << quoted(commandNames(texts)) << "\n";
    return out.str();
}

} // namespace kt7::tool
