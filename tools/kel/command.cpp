#include "command.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <optional>

#include "text.h"

namespace tool {

namespace {

std::vector<const Group *> &AllGroups() {
    static std::vector<const Group *> groups;
    return groups;
}

constexpr char shelter = '\x01';

struct {
    const CLI::App *command = nullptr;
    Action action;
} chosen;

}  // namespace

Group::Group(const char *of_name, const char *of_description, Maker of_maker)
    : name(of_name), description(of_description), maker(of_maker) {
    AllGroups().push_back(this);
}

const std::vector<const Group *> &Groups() {
    auto before = [](const Group *a, const Group *b) { return std::strcmp(a->name, b->name) < 0; };
    std::sort(AllGroups().begin(), AllGroups().end(), before);
    return AllGroups();
}

void SetAction(CLI::App &command, Action action) {
    command.callback([&command, action = std::move(action)] {
        chosen.command = &command;
        chosen.action = action;
    });
}

const Action &ChosenAction() {
    return chosen.action;
}

std::string CommandName() {
    std::string names;
    for (const CLI::App *app = chosen.command; app; app = app->get_parent())
        names.insert(0, app->get_name() + (names.empty() ? "" : " "));
    return names.empty() ? "kel" : names;
}

const CLI::App &WholeProgram() {
    const CLI::App *app = chosen.command;
    while (app->get_parent())
        app = app->get_parent();
    return *app;
}

std::vector<std::string> Sheltered(int count, char **arguments) {
    std::vector<std::string> sheltered;
    bool to_the_letter = false;
    for (int i = 1; i < count; ++i) {
        std::string argument = arguments[i];
        if (!to_the_letter && argument == "--") {
            to_the_letter = true;
            continue;
        }
        bool list = argument.starts_with('[') && argument.ends_with(']');
        if (to_the_letter || list || argument.starts_with(shelter) || argument == "++")
            argument.insert(argument.begin(), shelter);
        sheltered.push_back(std::move(argument));
    }
    return sheltered;
}

std::string Unsheltered(std::string argument) {
    if (argument.starts_with(shelter)) argument.erase(0, 1);
    return argument;
}

CLI::Option *AddArgument(CLI::App &line, const char *name, std::string &value, const char *description) {
    CLI::callback_t keep = [&value](const CLI::results_t &given) {
        value = Unsheltered(given.back());
        return true;
    };
    return line.add_option(name, keep, description);
}

CLI::Option *AddArguments(CLI::App &line, const char *name, std::vector<std::string> &values,
                          const char *description) {
    // Out of the results, not the values that they are turned into: these lack an argument "{}".
    CLI::callback_t keep = [&values](const CLI::results_t &given) {
        std::transform(given.begin(), given.end(), std::back_inserter(values), Unsheltered);
        return true;
    };
    return line.add_option(name, keep, description)
        ->expected(1, CLI::detail::expected_max_vector_size)
        ->allow_extra_args()
        ->required();
}

CLI::Option *AddJson(CLI::App &line, bool &json) {
    return line.add_flag("--json", json, "Print JSON for programs");
}

// A range of CLI11 lets what is no number through.
std::function<std::string(const std::string &)> SecondsFrom(double least) {
    return [least](const std::string &text) {
        constexpr double day = 86400;
        const std::optional<double> number = ToNumber(text);
        if (number && *number >= least && *number <= day) return std::string();
        return "not between " + NumberText(least) + " and " + NumberText(day) + " seconds: " + text;
    };
}

}  // namespace tool
