#pragma once

#include "harness/suite.h"

namespace bench {

Section files_section();
Section settings_section();
Section monitor_section();

// Each library in its own unit.
void add_ours(Suite &suite);
void add_std(Suite &suite);
void add_coreutils(Suite &suite);
void add_libc(Suite &suite);
void add_floor(Suite &suite);
void add_glib(Suite &suite);
void add_poco(Suite &suite);
void add_sqlite(Suite &suite);

}  // namespace bench
