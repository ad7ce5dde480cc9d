#include "command.h"

#include <algorithm>
#include <cstring>
#include <iostream>
#include <iterator>
#include <mutex>

#include <kelstdmt/filelib_exceptions.h>
#include <kelstdmt/vumrt.h>
#include <kelstdmt/xtypes.h>

#include "progress.h"
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

struct {
    std::mutex lock;
    bool kept = false, any = false;
    std::vector<std::string> messages;
} reports;

void Report(const char *message, const char *, int) {
    std::string text = message ? message : "internal error";
    std::lock_guard held(reports.lock);
    reports.any = true;
    if (reports.kept) {
        reports.messages.push_back(std::move(text));
    } else {
        Complain(text);
    }
}

}  // namespace

Failure LastErrorFailure(std::string_view what, std::string_view path) {
    std::string text(what);
    if (!path.empty()) text += ": " + Printable(path);
    if (int error = Error_GetLast()) text += std::string(": ") + Error_GetText(error);
    return Failure(text);
}

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

std::string ChosenCommand() {
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

void Complain(std::string_view text) {
    Progress::WipeAll();
    std::cout.flush();
    std::cerr << ChosenCommand() << ": " << text << std::endl;
}

void ListenToReports() {
    btkSetAbortHandler(Report);
}

Reports::Reports() {
    std::lock_guard held(reports.lock);
    reports.kept = true;
}

Reports::~Reports() {
    std::lock_guard held(reports.lock);
    reports.kept = false;
    reports.messages.clear();
}

std::vector<std::string> Reports::Take() {
    std::lock_guard held(reports.lock);
    return std::exchange(reports.messages, {});
}

bool AnythingReported() {
    std::lock_guard held(reports.lock);
    return reports.any;
}

std::string Explained(const kel::caught &error) {
    int last_error = Error_GetLast();
    xstring description = error.description();
    std::string text = kel::is_text(description) ? description.Str() : "";
    if (text.empty()) text = error.type_name();
    if (const fsXException *file_error = error.as<fsXException>()) {
        bool vague = error.is<fsXOther>() || error.is<fsXIOError>();
        if (kel::is_text(file_error->getPath())) text += ": " + PrintablePath(file_error->getPath());
        if (vague && last_error) text += std::string(": ") + Error_GetText(last_error);
    }
    return text;
}

}  // namespace tool
