// The list of cases, in the order in which they run.
#include "cases.h"

namespace bench {

Section core_section() {
    const auto light = Cost::Light, heavy = Cost::Heavy, huge = Cost::Huge;
    const std::vector<std::string> table = {"set", "find", "remove"}, sequence = {"append", "index", "walk"},
                                   file = {"out", "in"};
    Section core{"",
                 {Library::Ours, Library::Std, Library::Glib, Library::Qt, Library::Poco, Library::Tirpc,
                  Library::Floor}};
    core.cases = {
        {"any/int", "copy and destroy a value: int", light},
        {"any/real", "copy and destroy a value: real", light},
        {"any/string", "copy and destroy a value: string", light},
        {"any/object", "copy and destroy a value: object", light},
        {"count/alone", "attach and release, 1 thread", light},
        {"string/copy12", "copy a string of 12 bytes", light},
        {"string/copy200", "copy a string of 200 bytes", light},
        {"string/assign12", "assign a string of 12 bytes", light},
        {"string/assign200", "assign a string of 200 bytes", light},
        {"string/concat12", "concatenate strings of 12 bytes", light},
        {"string/concat200", "concatenate strings of 200 bytes", light},
        {"field/index", "a field of 20 by index", light},
        {"field/name", "a field of 20 by name", light},
        {"sequence/ints", "sequence of 1,000,000 ints", heavy, false, sequence},
        {"sequence/strings", "sequence of 1,000,000 strings", heavy, false, sequence},
        {"dictionary/paths", "1,000,000 keys /srv/data/file...", huge, false, table},
        {"dictionary/random", "1,000,000 keys of 16 random letters", huge, false, table},
        {"dictionary/numbers", "1,000,000 keys, decimal numbers", huge, false, table},
        {"file/text/ints", "text file, 1,000,000 ints", heavy, false, file},
        {"file/text/reals", "text file, 1,000,000 reals", heavy, false, file},
        {"file/text/strings", "text file, 1,000,000 strings", heavy, false, file},
        {"file/binary/ints", "binary file, 1,000,000 ints", heavy, false, file},
        {"file/binary/reals", "binary file, 1,000,000 reals", heavy, false, file},
        {"file/binary/strings", "binary file, 1,000,000 strings", heavy, false, file},
        {"file/xdr/ints", "XDR file, 1,000,000 ints", heavy, false, file},
        {"file/xdr/reals", "XDR file, 1,000,000 reals", heavy, false, file},
        {"file/xdr/strings", "XDR file, 1,000,000 strings", heavy, false, file},
        {"print/tree", "print a tree of 100,000 fields", heavy, false, {"a field"}},
        {"wait/1000", "wait for one of 1,000 events", light},
        {"count/two-objects", "attach and release, 2 threads, 2 objects", heavy, true, {"a pair"}},
        {"count/one-object", "attach and release, 2 threads, 1 object", heavy, true, {"a pair"}},
        {"any/object-threads", "copy and destroy a value: object, after a thread", light, true},
        {"string/copy12-threads", "copy a string of 12 bytes, after a thread", light, true},
        {"wait/wake", "wake a thread that waits, on one processor", heavy, true, {"one way"}},
    };
    return core;
}

}  // namespace bench
