#pragma once

#include "harness/suite.h"

namespace bench {

Section servers_section();
Section names_section();
Section launches_section();

// Each library in its own unit.
void add_ours(Suite &suite);
void add_ours_names(Suite &suite);
void add_ours_launches(Suite &suite);
void add_glib(Suite &suite);
void add_qt(Suite &suite);
void add_poco(Suite &suite);
void add_asio(Suite &suite);
void add_floor(Suite &suite);
void add_redis(Suite &suite);
void add_rpcbind(Suite &suite);

}  // namespace bench
