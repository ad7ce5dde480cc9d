// kel conf: the lines NAME:VALUE of a configuration file.
#include <iostream>

#include <kelstdmt/configfile.h>
#include <kelstdmt/filelib.h>
#include <kelstdmt/strlib.h>
#include <kelstdmt/vumrt.h>

#include "command.h"
#include "json.h"
#include "text.h"

namespace tool {

namespace {

struct Entry {
    std::string file, name, value;
    bool json = false;
};

void Open(ovkConfigFile &file, const std::string &path, ovkConfigFile::OpenMode mode) {
    Error_SetLast(0);
    constexpr int bad_data = 13;
    if (file.Open(path.c_str(), mode)) return;
    const int error = Error_GetLast();
    if (error == bad_data) throw Failure("cannot read: " + Printable(path) + ": It holds a NUL byte.");
    if (fshIsDirectory(path.c_str())) throw Failure("cannot open: " + Printable(path) + ": It is a folder.");
    Error_SetLast(error);
    throw LastErrorFailure("cannot open", path);
}

// Writes what was changed.
void Close(ovkConfigFile &file, const std::string &path) {
    Error_SetLast(0);
    if (!file.Close()) throw LastErrorFailure("cannot write", path);
}

// Blanks and tabs in names do not count.
xstring Pressed(const std::string &name) {
    xstring pressed(name.c_str());
    StrPress(pressed);
    return pressed;
}

Json JsonOf(const ovkConfigFile::Node &node) {
    Json object;
    PutBytes(object, "name", kel::view(node.name));
    PutBytes(object, "value", kel::view(node.value));
    return object;
}

ExitCode List(const Entry &options) {
    ovkConfigFile file;
    Open(file, options.file, ovkConfigFile::ReadOnly);
    Json entries = Json::array();
    for (const auto &entry : file) {
        if (options.json) {
            entries.push_back(JsonOf(*entry.value));
        } else {
            std::cout << Printable(kel::view(entry.value->name)) << ':'
                      << Printable(kel::view(entry.value->value)) << '\n';
        }
    }
    if (options.json) PrintJson(entries);
    return done;
}

ExitCode Get(const Entry &options) {
    ovkConfigFile file;
    Open(file, options.file, ovkConfigFile::ReadOnly);
    ovkConfigFile::Node *node = nullptr;
    if (!file.Find(Pressed(options.name), node)) throw Failure("no such name: " + Printable(options.name));
    if (options.json) {
        PrintJson(JsonOf(*node));
    } else {
        std::cout << kel::view(node->value) << '\n';
    }
    return done;
}

// Before the file is opened, which would make it.
ExitCode Set(const Entry &options) {
    const xstring pressed = Pressed(options.name);
    const std::string_view name = pressed;
    if (name.empty() || name.find_first_of(":\n") != name.npos)
        throw Failure("not a name for an entry: " + Printable(options.name));
    if (options.value.find('\n') != std::string::npos) throw Failure("a value is one line");
    ovkConfigFile file;
    Open(file, options.file, ovkConfigFile::ReadWrite);
    if (!file.SetValue(options.name.c_str(), options.value.c_str()))
        throw LastErrorFailure("cannot set", options.name);
    Close(file, options.file);
    return done;
}

ExitCode Delete(const Entry &options) {
    // Opened for reading and writing, a missing file would be made.
    ovkConfigFile file;
    Open(file, options.file, ovkConfigFile::ReadOnly);
    Open(file, options.file, ovkConfigFile::ReadWrite);
    if (!file.DeleteValue(options.name.c_str())) throw Failure("no such name: " + Printable(options.name));
    Close(file, options.file);
    return done;
}

Command<Entry> AddEntryCommand(CLI::App &group, const char *name, const char *description,
                               ExitCode (*run)(const Entry &)) {
    auto command = AddCommand(group, name, description, run);
    AddArgument(command.line, "FILE", command.options.file, "The configuration file")->required();
    return command;
}

void AddCommands(CLI::App &group) {
    group.require_subcommand(1);
    group.footer(
        "The file is locked while a command works on it, and replaced whole or not at all.\n"
        "Blanks in names do not count.");
    {
        auto [line, options] =
            AddEntryCommand(group, "list", "List the entries in the order of their names", List);
        AddJson(line, options.json);
    }
    {
        auto [line, options] = AddEntryCommand(group, "get", "Print the value of a name", Get);
        AddArgument(line, "NAME", options.name, "The name")->required();
        AddJson(line, options.json);
    }
    {
        auto [line, options] = AddEntryCommand(group, "set", "Set the value of a name; makes the file", Set);
        AddArgument(line, "NAME", options.name, "The name")->required();
        AddArgument(line, "VALUE", options.value, "The value")->required();
    }
    {
        auto [line, options] = AddEntryCommand(group, "del", "Delete a name", Delete);
        AddArgument(line, "NAME", options.name, "The name")->required();
    }
}

const Group group("conf", "Show and change a configuration file", AddCommands);

}  // namespace

}  // namespace tool
