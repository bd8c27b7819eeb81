#include "tools/kt7/usage.h"

#include "tools/kt7/errors.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <numeric>
#include <vector>

namespace kt7::tool {
namespace {

class Formatter : public CLI::Formatter {
  public:
    std::string make_usage(const CLI::App* command, std::string) const override {
        return usageOf(*command) + "\n";
    }
};

/// Letters to insert, leave out or exchange that lead from one word to the other (Levenshtein 1966).
std::size_t distance(const std::string& from, const std::string& to) {
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < from.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < to.size(); ++j) {
            const std::size_t changed = diagonal + (from[i] == to[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

} // namespace

std::string usageOf(const CLI::App& command) {
    if (command.get_parent() == nullptr)
        return "usage: kt7 COMMAND [OPTIONS] ...";
    std::string usage = "usage: kt7 " + command.get_name() + " [OPTIONS]";
    for (const CLI::Option* option : command.get_options())
        if (option->get_positional())
            usage += " " + option->get_type_name();
    return usage;
}

std::shared_ptr<CLI::FormatterBase> usageFormatter() {
    return std::make_shared<Formatter>();
}

void requireCommand(const CLI::App& application, const std::string& name) {
    std::string nearest, known;
    std::size_t nearestDistance = std::max<std::size_t>(name.size() / 2, 1) + 1;
    for (const CLI::App* command : application.get_subcommands({})) {
        const std::string& each = command->get_name();
        if (each == name)
            return;
        known += (known.empty() ? "" : ", ") + each;
        const std::size_t changes = each.starts_with(name) ? 0 : distance(name, each);
        if (changes < nearestDistance) {
            nearest = each;
            nearestDistance = changes;
        }
    }
    throw UsageError("\"" + name + "\" is no command; " +
                     (nearest.empty() ? "there are " + known : "did you mean " + nearest + "?"));
}

} // namespace kt7::tool
