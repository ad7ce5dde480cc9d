// The registry's store with any entries in its tree: each input is a list of steps that put files, folders,
// links and pipes anywhere below the root, and of operations of the registry in between. What it holds beside
// the tree must stay as it is, no step may wait, and what was just set must be read back.
#include <sys/stat.h>

#include <vector>

#include <kelstdmt/reglib.h>

#include "fuzzing.h"

namespace {

namespace fs = std::filesystem;
using fuzz::require, std::string;

struct Input : fuzz::Input {
    using fuzz::Input::Input;
    string text() { return take(below(32)); }
    template <std::size_t N>
    string one_of(const char *const (&list)[N]) {
        const std::size_t chosen = below(N + 1);
        return chosen < N ? list[chosen] : text();
    }
};

constexpr const char *entries[] = {"a",      "b",        "A",        "a.text",   "b.data",
                                   "..text", "a.b.text", ".new",     ".deleted", ".deleted/x",
                                   "a/.new", "a/.lock",  "a/b.data", "a/a.text", ".made"};
constexpr const char *targets[] = {"../../outside", "../outside/kept.text", ".", "..", "a.text", "/dev/zero"};
constexpr const char *names[] = {"a", "b", "", "A", "..", "a\\b", ".new", "default", "a/b"};
constexpr const char *keys[] = {"a", "b", "a\\b\\a", "", "a\\", ".deleted", "..\\..", "\\"};

struct Place : fuzz::Folder {
    fs::path tree = path / "in/user", kept = path / "outside/kept.text";

    Place() {
        ::setenv("KELSTDMT_REGISTRY", (path / "in").c_str(), 1);
        fs::create_directories(path / "outside/folder");
        fuzz::put(kept, "kept\n");
    }
    void check() const {
        std::size_t count = 0;
        for (const auto &entry : fs::recursive_directory_iterator(path))
            count += entry.path() != tree && !entry.path().string().starts_with((tree / "").string());
        require(count == 4, "something was made or removed outside the tree");
        require(fuzz::get(kept) == "kept\n", "a file outside was written");
    }
};

// Puts an entry into the tree behind the registry's back, where nothing stands in the way.
void plant(Input &input, const Place &place) {
    const string name = input.one_of(entries).c_str();
    if (name.empty() || name.find("..") < 2 || name.find("/..") != name.npos || name[0] == '/') return;
    const fs::path path = place.tree / name;
    std::error_code ignored;
    // Never through a link of ours.
    for (fs::path above = path.parent_path(); above != place.tree; above = above.parent_path())
        if (above.empty() || fs::is_symlink(above, ignored)) return;
    fs::remove_all(path, ignored);
    const unsigned kind = input.below(5);
    if (kind == 0) fs::create_directories(path, ignored);
    if (kind == 1) fs::create_symlink(input.one_of(targets).c_str(), path, ignored);
    if (kind == 2) ::mkfifo(path.c_str(), 0600);
    if (kind > 2) fuzz::put(path, (kind == 3 ? "type " : "") + input.text());
}

void set_value(Input &input, const ovkRegistryKey &key) {
    const kel::registry_value value{input.one_of(names), static_cast<int>(input.below(4)), input.text()};
    kel::registry_value found;
    if (!kel::set_registry_value(key, value)) return;
    kel::get_registry_value(key, value.name.c_str(), found);
    require(found.type == value.type && found.bytes == value.bytes,
            "another value than was set:", value.name);
}

void operate(Input &input, ovkRegistryKey (&held)[2]) {
    ovkRegistryKey &key = held[input.below(2)];
    const ovkRegistryKey &parent = input.below(2) ? held[input.below(2)] : ovkRegistry::User()->Root();
    std::vector<kel::registry_value> values;
    const unsigned what = input.below(6);
    if (what == 0)
        key.Create(parent, input.one_of(keys).c_str());
    else if (what == 1)
        key.Open(parent, input.one_of(keys).c_str());
    else if (what == 2)
        ovkRegistryKey(parent).DeleteSubkey(input.one_of(keys).c_str());
    else if (what == 3)
        ovkRegistryKey(parent).DeleteValue(input.one_of(names).c_str());
    else if (what == 4)
        kel::registry_values(parent, values);
    else
        set_value(input, parent);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    static const Place place;
    if (size > 400) return 0;
    fs::create_directories(place.tree);
    {
        Input input(bytes, size);
        ovkRegistryKey held[2];
        while (!input.rest.empty())
            input.below(3) == 0 ? plant(input, place) : operate(input, held);
    }
    place.check();
    fs::remove_all(place.tree);
    return 0;
}
