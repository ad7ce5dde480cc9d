// The commands of kel reg, which stand in two files.
#pragma once

#include <string>

#include "command.h"
#include "registry.h"

namespace tool {

// Adds --machine and --user.
void AddLayer(CLI::App &line, RegistryPlace &place);
// Adds export and import.
void AddTransfer(CLI::App &group);

// All of a file, or of standard input when the name is empty or -; throws Failure.
std::string ReadInput(const std::string &file);
std::string InputName(const std::string &file);  // for complaints

}  // namespace tool
