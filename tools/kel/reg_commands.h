// The commands of kel reg, which stand in two files.
#pragma once

#include "command.h"
#include "registry.h"

namespace tool {

// Adds --machine and --user.
void AddLayer(CLI::App &line, RegistryPlace &place);
// Adds export and import.
void AddTransfer(CLI::App &group);

}  // namespace tool
