// kel reg export and import: a key with all below it as one JSON document, byte for byte.
//
//     {"format": "kelstdmt registry 1", "key": "software\\orv", "keys": [
//       {"key": "", "values": [{"name": "port", "type": 1, "value": "80"}]},
//       {"key": "server", "values": []}]}
//
// The outer key is where it comes from, the inner ones are told from there. Names and values that are no
// UTF-8 are in members NAME_base64 (json.h).
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iostream>
#include <limits>
#include <sstream>

#include <kelstdmt/vumrt.h>

#include "json.h"
#include "reg_commands.h"
#include "text.h"

namespace tool {

namespace {

constexpr std::string_view format_name = "kelstdmt registry 1";

struct Export {
    RegistryPlace place;
};

ExitCode Write(const Export &options) {
    RegistryPlace place = options.place;
    place.key = KeyText(place.key);
    ListKey(place);  // fails before anything is written
    Json document, keys = Json::array();
    document["format"] = format_name;
    PutBytes(document, "key", place.key);
    WalkKeys(place, [&](const RegistryFolder &folder) {
        std::string key =
            folder.key == place.key ? "" : folder.key.substr(place.key.empty() ? 0 : place.key.size() + 1);
        Json &object = keys.emplace_back();
        PutBytes(object, "key", key);
        object["values"] = JsonOf(folder.values);
    });
    document["keys"] = std::move(keys);
    PrintJson(document);
    return done;
}

// import -----------------------------------------------------------------------------------------

struct Import {
    RegistryPlace place;
    std::string file;
    const CLI::Option *to = nullptr;
};

const Json &ArrayOf(const Json &object, const char *name) {
    const auto member = object.find(name);
    if (member == object.end() || !member->is_array())
        throw Failure(std::string("a list \"") + name + "\" is missing");
    return *member;
}

kel::registry_value ValueOf(const Json &object) {
    kel::registry_value value{BytesOf(object, "name"), registry_text, BytesOf(object, "value")};
    if (const auto member = object.find("type"); member != object.end()) {
        const double type = member->is_number() ? member->get<double>() : 0.5;
        if (type != std::floor(type) || type < 0 || type > std::numeric_limits<int>::max())
            throw Failure("\"type\" is no whole number from 0 on");
        value.type = static_cast<int>(type);
    }
    CheckValue(value);
    return value;
}

// Everything is looked at before the first key is made.
ExitCode Read(const Import &options) {
    const std::string bytes = ReadInput(options.file);
    const Json document = [&] {
        try {
            return ReadJson(bytes);
        } catch (const Failure &failure) {
            throw Failure("not an export: " + InputName(options.file) + ": " + failure.what());
        }
    }();
    const auto format = document.find("format");
    if (format == document.end() || *format != format_name)
        throw Failure("not an export of the registry: \"format\" is not \"" + std::string(format_name) + '"');
    RegistryPlace place = options.place;
    std::string top = KeyText(options.to->count() ? place.key : BytesOf(document, "key"));
    std::vector<RegistryFolder> folders;
    for (const Json &entry : ArrayOf(document, "keys")) {
        RegistryFolder folder{JoinedKey(top, KeyText(BytesOf(entry, "key"))), {}, {}};
        CheckKey(folder.key);
        for (const Json &value : ArrayOf(entry, "values"))
            folder.values.push_back(ValueOf(value));
        folders.push_back(std::move(folder));
    }
    for (const RegistryFolder &folder : folders) {
        place.key = folder.key;
        ovkRegistryKey key = folder.key.empty() ? RegistryRoot(place) : CreateKey(place);
        for (const kel::registry_value &value : folder.values)
            SetRegistryValue(key, folder.key, value);
    }
    return done;
}

}  // namespace

std::string InputName(const std::string &file) {
    return file.empty() || file == "-" ? "standard input" : Printable(file);
}

std::string ReadInput(const std::string &file) {
    std::ifstream named;
    std::ostringstream bytes;
    const bool is_named = !file.empty() && file != "-";
    errno = 0;
    if (is_named) named.open(btkHostPath(file.c_str()), std::ios::binary);
    std::istream &in = is_named ? named : std::cin;
    // Both turn what a buffer throws into a state. No bytes at all would set that of the output, too.
    if (in.peek() != std::istream::traits_type::eof()) bytes << in.rdbuf();
    if (in.bad() || !bytes || (is_named && !named.is_open()))
        throw Failure("cannot read: " + InputName(file) +
                      (errno ? std::string(": ") + std::strerror(errno) : ""));
    return bytes.str();
}

void AddTransfer(CLI::App &group) {
    {
        auto [line, options] = AddCommand(group, "export", "Write a key and all below it as JSON", Write);
        AddArgument(line, "KEY", options.place.key, "The key; without it, the root");
        AddLayer(line, options.place);
    }
    {
        auto [line, options] = AddCommand(group, "import", "Set what an export holds", Read);
        AddArgument(line, "FILE", options.file, "The export; without it, or with -, standard input");
        options.to = AddArgument(line, "--to", options.place.key, "Another key than the export's own")
                         ->type_name("KEY");
        AddLayer(line, options.place);
        line.footer("Values that the export does not name stay as they are.");
    }
}

}  // namespace tool
