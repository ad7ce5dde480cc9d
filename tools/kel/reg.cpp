// kel reg: looks at the registry and changes it.
#include <iostream>
#include <limits>

#include "reg_commands.h"
#include "text.h"

namespace tool {

void AddLayer(CLI::App &line, RegistryPlace &place) {
    CLI::Option *machine = line.add_flag("--machine", place.machine, "The settings of the machine");
    line.add_flag("--user", place.user, "The settings of the user (the default)")->excludes(machine);
}

namespace {

std::string ShownValue(const kel::registry_value &value) {
    std::string name = value.name.empty() ? "(default)" : Printable(value.name);
    if (value.type == registry_text) return name + " = " + Printable(value.bytes);
    return name + " = (type " + std::to_string(value.type) + ", " + std::to_string(value.bytes.size()) +
           (value.bytes.size() == 1 ? " byte) " : " bytes) ") + Printable(value.bytes);
}

// ls ---------------------------------------------------------------------------------------------

struct Listing {
    RegistryPlace place;
    bool recursive = false, json = false;
};

Json JsonOfFolder(const RegistryFolder &folder) {
    Json object, subkeys = Json::array();
    PutBytes(object, "key", folder.key);
    for (const std::string &name : folder.subkeys)
        PutBytes(subkeys.emplace_back(), "name", name);
    object["subkeys"] = std::move(subkeys);
    object["values"] = JsonOf(folder.values);
    return object;
}

void PrintFolder(const RegistryFolder &folder, const std::string &before) {
    for (const kel::registry_value &value : folder.values)
        std::cout << before << ShownValue(value) << '\n';
}

ExitCode List(const Listing &options) {
    RegistryPlace place = options.place;
    place.key = KeyText(place.key);
    if (!options.recursive) {
        RegistryFolder folder = ListKey(place);
        if (options.json) {
            PrintJson(JsonOfFolder(folder));
            return done;
        }
        for (const std::string &name : folder.subkeys)
            std::cout << Printable(name) << "\\\n";
        PrintFolder(folder, "");
        return done;
    }
    Json folders = Json::array();
    WalkKeys(place, [&](const RegistryFolder &folder) {
        if (options.json) {
            folders.push_back(JsonOfFolder(folder));
            return;
        }
        std::string before = folder.key.empty() ? "" : Printable(folder.key) + '\\';
        if (folder.values.empty() && folder.subkeys.empty()) std::cout << before << '\n';
        PrintFolder(folder, before);
    });
    if (options.json) PrintJson(folders);
    return done;
}

// get --------------------------------------------------------------------------------------------

struct Wanted {
    RegistryPlace place;
    std::string name;
    bool json = false;
};

kel::registry_value Find(const ovkRegistryKey &key, const std::string &name) {
    constexpr int no_value = 2, bad_value = 13;
    Error_SetLast(0);
    kel::registry_value value;
    if (kel::get_registry_value(key, name.c_str(), value)) return value;
    if (Error_GetLast() != no_value && Error_GetLast() != bad_value)
        throw LastErrorFailure("cannot read the value", name);
    throw Failure(name.empty() ? "the key has no default value" : "no such value: " + Printable(name));
}

ExitCode Get(const Wanted &options) {
    RegistryPlace place = options.place;
    place.key = KeyText(place.key);
    CheckValueName(options.name);
    kel::registry_value value = Find(OpenKey(place), options.name);
    if (options.json) {
        PrintJson(JsonOf(value));
    } else {
        std::cout << value.bytes;
        if (value.type == registry_text) std::cout << '\n';
    }
    return done;
}

// set --------------------------------------------------------------------------------------------

struct Setting {
    RegistryPlace place;
    std::string name, value;
    const CLI::Option *given = nullptr;
    bool from_input = false;
    int type = registry_text;
};

ExitCode Set(const Setting &options) {
    if (!options.from_input && !options.given->count()) throw Misuse("VALUE or --stdin is required");
    RegistryPlace place = options.place;
    place.key = KeyText(place.key);
    CheckKey(place.key);
    kel::registry_value value{options.name, options.type, options.value};
    CheckValueName(value.name);
    if (options.from_input) value.bytes = ReadInput("");
    CheckValue(value);
    SetRegistryValue(CreateKey(place), place.key, value);
    return done;
}

// del --------------------------------------------------------------------------------------------

struct Deletion {
    RegistryPlace place;
    std::string name;
    const CLI::Option *named = nullptr;
    bool recursive = false;
};

void DeleteKey(RegistryPlace place) {
    std::string key = place.key;
    std::size_t cut = key.rfind('\\');
    std::string name = key.substr(cut + 1);
    place.key = cut == std::string::npos ? "" : key.substr(0, cut);
    ovkRegistryKey parent = OpenKey(place);
    Error_SetLast(0);
    if (!parent.DeleteSubkey(name.c_str())) throw LastErrorFailure("cannot delete the key", key);
}

ExitCode Delete(const Deletion &options) {
    RegistryPlace place = options.place;
    place.key = KeyText(place.key);
    if (options.named->count()) {
        CheckValueName(options.name);
        ovkRegistryKey key = OpenKey(place);
        Find(key, options.name);
        Error_SetLast(0);
        if (!key.DeleteValue(options.name.c_str()))
            throw LastErrorFailure("cannot delete the value", options.name);
        return done;
    }
    if (place.key.empty()) throw Failure("the root itself cannot be deleted");
    std::vector<std::string> keys;
    RegistryFolder top = ListKey(place);
    if (!top.subkeys.empty() && !options.recursive)
        throw Failure("the key has subkeys (-r deletes them, too): " + Printable(place.key));
    WalkKeys(place, [&](const RegistryFolder &folder) { keys.push_back(folder.key); });
    for (; !keys.empty(); keys.pop_back()) {
        place.key = keys.back();
        DeleteKey(place);
    }
    return done;
}

// ------------------------------------------------------------------------------------------------

void AddCommands(CLI::App &group) {
    group.require_subcommand(1);
    group.footer(
        "Keys are written a\\b or a/b; neither keys nor names know case. The name \"\" is a key's "
        "default value.");
    {
        auto [line, options] = AddCommand(group, "ls", "List the subkeys and values of a key", List);
        AddArgument(line, "KEY", options.place.key, "The key; without it, the root");
        line.add_flag("-r,--recursive", options.recursive, "All keys below it, too");
        AddJson(line, options.json);
        AddLayer(line, options.place);
    }
    {
        auto [line, options] = AddCommand(group, "get", "Print a value", Get);
        AddArgument(line, "KEY", options.place.key, "The key")->required();
        AddArgument(line, "NAME", options.name, "The value; without it, the key's default value");
        AddJson(line, options.json);
        AddLayer(line, options.place);
        line.footer("A text ends with a line end; a value of another type is written as it is.");
    }
    {
        auto [line, options] = AddCommand(group, "set", "Set a value; makes the key", Set);
        AddArgument(line, "KEY", options.place.key, "The key")->required();
        AddArgument(line, "NAME", options.name, "The value's name")->required();
        CLI::Option *value = AddArgument(line, "VALUE", options.value, "What it is set to");
        options.given = value;
        line.add_flag("--stdin", options.from_input, "Take what standard input holds")->excludes(value);
        line.add_option("--type", options.type, "The type of a value that is no text (1)")
            ->check(CLI::Range(0, std::numeric_limits<int>::max()))
            ->type_name("NUMBER");
        AddLayer(line, options.place);
    }
    {
        auto [line, options] = AddCommand(group, "del", "Delete a value, or a key with its values", Delete);
        AddArgument(line, "KEY", options.place.key, "The key")->required();
        options.named = AddArgument(line, "NAME", options.name, "The value; without it, the key goes");
        line.add_flag("-r,--recursive", options.recursive, "The key and all below it");
        AddLayer(line, options.place);
    }
    AddTransfer(group);
}

const Group group("reg", "Show and change the registry", AddCommands);

}  // namespace

}  // namespace tool
