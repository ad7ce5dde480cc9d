// The registry as the commands see it: keys are told as texts from the root of the user or the machine.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <kelstdmt/reglib.h>

#include "failure.h"
#include "json.h"

namespace tool {

constexpr int registry_text = 1;  // the type of a value that is a text

struct RegistryPlace {
    bool machine = false, user = false;
    std::string key;
};

// With backslashes, without one at either end. A slash, which no key can hold, does as well as a backslash.
std::string KeyText(std::string_view given);
std::string JoinedKey(const std::string &parent, const std::string &name);
void CheckKey(const std::string &key);
void CheckValueName(const std::string &name);
void CheckValue(const kel::registry_value &value);  // all that its writing would refuse

const ovkRegistryKey &RegistryRoot(const RegistryPlace &place);
ovkRegistryKey OpenKey(const RegistryPlace &place);    // throws Failure
ovkRegistryKey CreateKey(const RegistryPlace &place);  // the same
void SetRegistryValue(const ovkRegistryKey &key, const std::string &key_text,
                      const kel::registry_value &value);

struct RegistryFolder {
    std::string key;  // from the root
    std::vector<std::string> subkeys;
    std::vector<kel::registry_value> values;
};
RegistryFolder ListKey(const RegistryPlace &place);
// The key and all below it, each before its subkeys. What others delete meanwhile is left out.
void WalkKeys(const RegistryPlace &top, const std::function<void(const RegistryFolder &)> &visit);

Json JsonOf(const kel::registry_value &value);
Json JsonOf(const std::vector<kel::registry_value> &values);

}  // namespace tool
