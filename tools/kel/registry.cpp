#include "registry.h"

#include <algorithm>

#include <kelstdmt/vumrt.h>

#include "text.h"

namespace tool {

namespace {

constexpr int no_file = 2, no_folder = 3, key_deleted = 1018;

bool IsAbsence(int error) {
    return error == no_file || error == no_folder || error == key_deleted;
}

std::string Layer(const RegistryPlace &place) {
    std::string text = place.machine ? "machine" : "user";
    return place.key.empty() ? text : text + ": " + Printable(place.key);
}

// False when there is no such key.
bool List(const RegistryPlace &place, RegistryFolder &folder) {
    Error_SetLast(0);
    folder.key = place.key;
    ovkRegistryKey key;
    bool opened = key.Open(RegistryRoot(place), place.key.c_str());
    if (opened && kel::registry_subkeys(key, folder.subkeys) && kel::registry_values(key, folder.values))
        return true;
    if (IsAbsence(Error_GetLast())) return false;
    throw LastErrorFailure("cannot read the key", Layer(place));
}

}  // namespace

std::string KeyText(std::string_view given) {
    std::string key(given);
    std::replace(key.begin(), key.end(), '/', '\\');
    key.erase(0, std::min(key.find_first_not_of('\\'), key.size()));
    key.erase(key.find_last_not_of('\\') + 1);
    return key;
}

std::string JoinedKey(const std::string &parent, const std::string &name) {
    return parent.empty() || name.empty() ? parent + name : parent + '\\' + name;
}

void CheckKey(const std::string &key) {
    bool gap = key.starts_with('\\') || key.ends_with('\\') || key.find("\\\\") != std::string::npos;
    if (gap || key.find('\0') != std::string::npos || !ovkRegistry::User()->Root().IsKeyValid(key.c_str()))
        throw Failure("not a key: " + Printable(key) + ": no component is empty or holds one of /.:*?");
}

void CheckValueName(const std::string &name) {
    if (name.find('\0') != std::string::npos || !ovkRegistry::User()->Root().IsNameValid(name.c_str()))
        throw Failure("not a name for a value: " + Printable(name) + ": it may not hold any of \\/.:*?");
}

const ovkRegistryKey &RegistryRoot(const RegistryPlace &place) {
    return (place.machine ? ovkRegistry::System() : ovkRegistry::User())->Root();
}

ovkRegistryKey OpenKey(const RegistryPlace &place) {
    CheckKey(place.key);
    Error_SetLast(0);
    ovkRegistryKey key;
    if (!key.Open(RegistryRoot(place), place.key.c_str())) {
        if (IsAbsence(Error_GetLast())) throw Failure("no such key: " + Layer(place));
        throw LastErrorFailure("cannot open the key", Layer(place));
    }
    return key;
}

ovkRegistryKey CreateKey(const RegistryPlace &place) {
    CheckKey(place.key);
    Error_SetLast(0);
    ovkRegistryKey key;
    if (!key.Create(RegistryRoot(place), place.key.c_str()))
        throw LastErrorFailure("cannot make the key", Layer(place));
    return key;
}

void CheckValue(const kel::registry_value &value) {
    CheckValueName(value.name);
    if (value.type == registry_text && value.bytes.find('\0') != std::string::npos)
        throw Failure("a text cannot hold a NUL byte (another type can): " + Printable(value.name));
    constexpr std::size_t longest_name = 250, largest_value = 16 << 20;
    if (value.name.size() > longest_name)
        throw Failure("a name has 250 bytes at most: " + Printable(value.name));
    if (value.bytes.size() > largest_value)
        throw Failure("a value has 16 MiB at most: " + Printable(value.name));
}

void SetRegistryValue(const ovkRegistryKey &key, const std::string &key_text,
                      const kel::registry_value &value) {
    Error_SetLast(0);
    if (!kel::set_registry_value(key, value))
        throw LastErrorFailure("cannot write the value", JoinedKey(key_text, value.name));
}

RegistryFolder ListKey(const RegistryPlace &place) {
    CheckKey(place.key);
    RegistryFolder folder;
    // A root that nobody has written to yet is empty.
    if (!List(place, folder) && !place.key.empty()) throw Failure("no such key: " + Layer(place));
    return folder;
}

void WalkKeys(const RegistryPlace &top, const std::function<void(const RegistryFolder &)> &visit) {
    RegistryFolder folder = ListKey(top);
    std::vector<std::string> left;
    RegistryPlace place = top;
    while (true) {
        visit(folder);
        for (auto name = folder.subkeys.rbegin(); name != folder.subkeys.rend(); ++name)
            left.push_back(JoinedKey(folder.key, *name));
        do {
            if (left.empty()) return;
            place.key = std::move(left.back());
            left.pop_back();
            folder = {};
        } while (!List(place, folder));
    }
}

Json JsonOf(const kel::registry_value &value) {
    Json object;
    PutBytes(object, "name", value.name);
    object["type"] = value.type;
    PutBytes(object, "value", value.bytes);
    return object;
}

Json JsonOf(const std::vector<kel::registry_value> &values) {
    Json list = Json::array();
    for (const kel::registry_value &value : values)
        list.push_back(JsonOf(value));
    return list;
}

}  // namespace tool
