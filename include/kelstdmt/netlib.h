// The network module: servers that find each other by name, their clients, and threads and services around
// them.
#pragma once

#include <kelstdmt/netlib_server.h>
#include <kelstdmt/netlib_service.h>
#include <kelstdmt/netlib_stream.h>
#include <kelstdmt/netlib_thread.h>
