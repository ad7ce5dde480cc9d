#pragma once

#include "harness/processes.h"
#include "harness/suite.h"

namespace bench {

Section commands_section();

// Each library in its own unit.
void add_ours(Suite &suite);
void add_openssh(Suite &suite);
void add_relay(Suite &suite);
void add_floor(Suite &suite);

// What an OwnProcess of these benchmarks does.
bool serve_word(std::string_view word);
void serve_ours();
void serve_ours_by_name();
void serve_names();
void serve_relay();
void keep_sshd();

}  // namespace bench
