#pragma once

#include "harness/suite.h"

namespace bench {

// Each section is the list of its cases, in the order in which they run.
Section expressions_section();
Section shell_section();
Section texts_section();
Section c_interface_section();

// Each library in its own units, so that the peers' macros do not meet.
void add_ours_expressions(Suite &suite);
void add_ours_texts(Suite &suite);
void add_c_interface(Suite &suite);
void add_re2(Suite &suite);
void add_pcre2(Suite &suite);
void add_std_expressions(Suite &suite);
void add_std_texts(Suite &suite);
void add_glib_expressions(Suite &suite);
void add_glib_texts(Suite &suite);
void add_qt_expressions(Suite &suite);
void add_qt_texts(Suite &suite);
void add_libc_expressions(Suite &suite);
void add_libc_texts(Suite &suite);

}  // namespace bench
