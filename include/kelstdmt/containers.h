// The plain container templates: arrays, sorted sets and maps, lists, and walks over them. They are no
// objects of the system: no count, no descriptor, no locks.
#pragma once

#include <kelstdmt/dsarray.h>
#include <kelstdmt/dsiter.h>
#include <kelstdmt/dslist.h>
#include <kelstdmt/dssorted.h>
