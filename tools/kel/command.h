// What every group of commands of kel stands on: how it enters itself, how a command is added to it, and how
// a command fails.
//
// A group is one file with one line
//     const tool::Group group("reg", "Show and change the registry", AddCommands);
// which the program finds at its start. A command keeps its options in an object that the command line is
// read into; its action runs after the whole command line was found right, and answers the exit code.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "failure.h"

namespace tool {

class Group {
public:
    using Maker = void (*)(CLI::App &group);

    // The maker adds commands to the group, or makes a command of it with WithOptions.
    Group(const char *name, const char *description, Maker maker);

    const char *name;
    const char *description;
    Maker maker;
};
const std::vector<const Group *> &Groups();  // in the order of their names

using Action = std::function<ExitCode()>;
void SetAction(CLI::App &command, Action action);
const Action &ChosenAction();
const CLI::App &WholeProgram();

// Adds a command, whose options are read into an object of its own:
//     auto [line, options] = AddCommand(group, "ls", "List keys", List);   // ExitCode List(const Listing &);
//     AddArgument(line, "KEY", options.key, "The key");
template <class Options>
struct Command {
    CLI::App &line;
    Options &options;
};
template <class Options>
Command<Options> WithOptions(CLI::App &line, ExitCode (*run)(const Options &)) {
    auto options = std::make_shared<Options>();
    SetAction(line, [options, run] { return run(*options); });
    return {line, *options};
}
template <class Options>
Command<Options> AddCommand(CLI::App &group, const char *name, const char *description,
                            ExitCode (*run)(const Options &)) {
    return WithOptions(*group.add_subcommand(name, description), run);
}

// CLI11 takes an argument "[a,b]" for a list, "++" for an end, and forgets "--" behind the first of several
// arguments. So what must be taken to the letter, such as all that stands behind "--", is marked before it
// reads the command line, and the marks are taken off where values are kept.
std::vector<std::string> Sheltered(int count, char **arguments);
std::string Unsheltered(std::string argument);

// An argument that is known by its place, or the text of an option "--NAME". The name or, for an option, the
// type name is also its kind for the completion: FILE and FROM are completed as files, KEY as a key of the
// registry.
CLI::Option *AddArgument(CLI::App &line, const char *name, std::string &value, const char *description);
// All that follow, at least one.
CLI::Option *AddArguments(CLI::App &line, const char *name, std::vector<std::string> &values,
                          const char *description);
CLI::Option *AddJson(CLI::App &line, bool &json);
// What an option in seconds is checked by: at least so many, a day at most.
std::function<std::string(const std::string &)> SecondsFrom(double least);

}  // namespace tool
