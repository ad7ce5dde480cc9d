// The list of cases, in the order in which they run. Those of launches stand last, because from then on the
// program holds 2 GiB.
#include "cases.h"

namespace bench {

Section servers_section() {
    Section servers{
        "Servers", {Library::Ours, Library::Glib, Library::Qt, Library::Poco, Library::Asio, Library::Floor}};
    servers.cases = {
        {"connect", "connect, one byte each way, close", Cost::Heavy, true},
        {"exchange", "an int there and back", Cost::Heavy, true},
        {"crowd", "an int there and back, 64 connections", Cost::Heavy, true},
        {"open",
         "10,000 open connections",
         Cost::Huge,
         true,
         {"bytes a connection", "an int there and back"}},
        {"requests", "100 requests on threads at once, each", Cost::Heavy, true},
        {"bulk", "one way, blocks of 64 KiB: a MiB", Cost::Heavy, true},
    };
    return servers;
}

Section names_section() {
    Section names{"Name service", {Library::Ours, Library::Rpcbind, Library::Redis, Library::Floor}};
    const std::vector<std::string> phases = {"register", "query"};
    names.cases = {
        {"names", "10,000 records, in memory", Cost::Huge, true, phases},
        {"journal", "10,000 records, with a journal", Cost::Huge, true, phases},
    };
    return names;
}

Section launches_section() {
    Section launches{"Processes, from one with 2 GiB of memory",
                     {Library::Ours, Library::Glib, Library::Qt, Library::Poco, Library::Floor}};
    launches.cases = {
        {"launch", "start /bin/true and await its end", Cost::Heavy, true},
        {"output", "start /bin/echo and read what it says", Cost::Heavy, true},
    };
    return launches;
}

}  // namespace bench
