#pragma once

#include "harness/suite.h"

namespace bench {

Section core_section();

// Each in its own unit, so that the peers' macros do not meet.
void add_ours_values(Suite &suite);
void add_ours_containers(Suite &suite);
void add_ours_streams(Suite &suite);
void add_ours_events(Suite &suite);
void add_std(Suite &suite);
void add_std_streams(Suite &suite);
void add_glib(Suite &suite);
void add_glib_objects(Suite &suite);
void add_qt(Suite &suite);
void add_qt_streams(Suite &suite);
void add_poco(Suite &suite);
void add_tirpc(Suite &suite);
void add_floor(Suite &suite);

}  // namespace bench
