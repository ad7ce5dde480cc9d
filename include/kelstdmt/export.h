// The export mark. The shared library hides every symbol that does not carry it.
#pragma once

#if defined(KELSTDMT_STATIC)
#define KELSTDMT_API
#else
#define KELSTDMT_API __attribute__((visibility("default")))
#endif
