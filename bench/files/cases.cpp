// The list of cases, in the order in which they run. Those from the registry on may find several threads in
// the process, because GSettings leaves one behind.
#include "cases.h"

namespace bench {

Section files_section() {
    Section files{"Files",
                  {Library::Ours, Library::Coreutils, Library::Std, Library::Libc, Library::Glib,
                   Library::Poco, Library::Floor}};
    files.cases = {
        {"tree", "a tree of 20,000 files, each", Cost::Huge, false, {"copy", "remove"}},
        {"list", "list 100,000 names, `*7.txt`", Cost::Heavy, false, {"a name"}},
        {"sum", "checksum of 4 GiB", Cost::Huge, false, {"a MiB"}},
    };
    return files;
}

Section settings_section() {
    Section settings{
        "Settings",
        {Library::Ours, Library::Std, Library::Glib, Library::Poco, Library::Sqlite, Library::SqliteFull}};
    settings.cases = {
        {"config", "a file of 100,000 entries, each", Cost::Heavy, false, {"open", "save"}},
        {"registry", "10,000 values, each", Cost::Huge, true, {"set", "get"}},
    };
    return settings;
}

Section monitor_section() {
    Section monitor{"Monitor files",
                    {Library::Ours, Library::Std, Library::Glib, Library::Poco, Library::Floor}};
    monitor.cases = {
        {"monitor/update", "update a value", Cost::Light, true},
        {"monitor/follow", "read 10,000 values, each", Cost::Heavy, true, {"a value"}},
    };
    return monitor;
}

}  // namespace bench
