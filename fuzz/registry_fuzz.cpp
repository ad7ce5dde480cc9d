// The registry's store with any entries in its tree: each input is a list of steps that put files, folders,
// links and pipes anywhere below the root, and of operations of the registry in between. What it holds beside
// the tree must stay as it is, no step may wait, and what was just set must be read back.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include <kelstdmt/reglib.h>

namespace {

namespace fs = std::filesystem;

void require(bool holds, const char *what) {
    if (holds) return;
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

class Input {
public:
    Input(const std::uint8_t *bytes, std::size_t size) : m_at(bytes), m_end(bytes + size) {}
    bool done() const { return m_at == m_end; }
    unsigned byte() { return done() ? 0 : *m_at++; }
    template <std::size_t N>
    std::string one_of(const char *const (&list)[N]) {
        const std::size_t chosen = byte() % (N + 1);
        return chosen < N ? list[chosen] : text();
    }
    std::string text() {
        std::string result;
        for (unsigned left = byte() % 32; left > 0 && !done(); --left)
            result += static_cast<char>(byte());
        return result;
    }

private:
    const std::uint8_t *m_at, *m_end;
};

constexpr const char *entries[] = {
    "a",      "b",        "A",        "a.text", "b.text",   "b.data",       "default..text",
    ".new",   ".deleted", ".lock",    "..text", "a.data",   "a.b.text",     ".deleted/x",
    "a/.new", "a/.lock",  "a/b.data", "a/a",    "a/a.text", "b/.deleted/y", ".made"};
constexpr const char *targets[] = {
    "../../outside", "../outside/kept.text", "../../outside/kept.text", ".", "..", "a", "a.text", "/dev/zero",
    "missing"};
constexpr const char *names[] = {"a", "b", "", "A", "..", "a\\b", ".new", "default", "a/b"};
constexpr const char *keys[] = {"a", "b", "a\\a", "a\\b\\a", "", "a\\", ".deleted", "..\\..", "\\"};

struct Place {
    fs::path top, tree, outside;

    Place() {
        std::error_code none;
        // Where waiting for the disk costs nothing.
        const fs::path base = fs::is_directory("/dev/shm", none) && ::access("/dev/shm", W_OK) == 0
                                  ? fs::path("/dev/shm")
                                  : fs::temp_directory_path();
        std::string pattern = base / "registry_fuzz.XXXXXX";
        top = ::mkdtemp(pattern.data());
        tree = top / "in/user";
        outside = top / "outside";
        ::setenv("KELSTDMT_REGISTRY", (top / "in").c_str(), 1);
        fs::create_directories(outside / "folder");
        std::ofstream(outside / "kept.text") << "kept\n";
    }
    ~Place() { fs::remove_all(top); }

    void check() const {
        std::size_t count = 0;
        for (const auto &entry : fs::recursive_directory_iterator(top))
            count += entry.path().string().find("/in") == std::string::npos;
        require(count == 3, "something was made or removed outside the tree");
        std::ifstream kept(outside / "kept.text");
        require(std::string(std::istreambuf_iterator<char>(kept), {}) == "kept\n",
                "a file outside was written");
        for (const auto &entry : fs::directory_iterator(top / "in"))
            require(entry.path().filename() == "user", "something was made beside the tree");
    }
};

// Puts an entry into the tree behind the registry's back, where nothing stands in the way.
void plant(Input &input, const Place &place) {
    std::string name = input.one_of(entries).c_str();
    if (name.empty() || name.find("..") < 2 || name.find("/..") != name.npos || name[0] == '/') return;
    const fs::path path = place.tree / name;
    std::error_code ignored;
    // Never through a link of ours.
    for (fs::path above = path.parent_path(); above != place.tree; above = above.parent_path())
        if (above.empty() || fs::is_symlink(above, ignored)) return;
    fs::remove_all(path, ignored);
    switch (input.byte() % 5) {
        case 0:
            fs::create_directories(path, ignored);
            break;
        case 1:
            fs::create_symlink(input.one_of(targets).c_str(), path, ignored);
            break;
        case 2:
            ::mkfifo(path.c_str(), 0600);
            break;
        case 3:
            std::ofstream(path) << "type " << input.text();
            break;
        default:
            std::ofstream(path) << input.text();
    }
}

void operate(Input &input, ovkRegistryKey (&held)[2]) {
    ovkRegistryKey &key = held[input.byte() % 2];
    const ovkRegistryKey &parent = input.byte() % 2 ? held[input.byte() % 2] : ovkRegistry::User()->Root();
    switch (input.byte() % 7) {
        case 0:
            key.Create(parent, input.one_of(keys).c_str());
            break;
        case 1:
            key.Open(parent, input.one_of(keys).c_str());
            break;
        case 2:
            ovkRegistryKey(parent).DeleteSubkey(input.one_of(keys).c_str());
            break;
        case 3:
            ovkRegistryKey(parent).DeleteValue(input.one_of(names).c_str());
            break;
        case 4: {
            std::vector<std::string> subkeys;
            std::vector<kel::registry_value> values;
            kel::registry_subkeys(parent, subkeys);
            for (const std::string &name : subkeys)
                require(parent.IsNameValid(name.c_str()) && !name.empty(), "a subkey is listed that is none");
            kel::registry_values(parent, values);
            for (const auto &value : values)
                require(parent.IsNameValid(value.name.c_str()), "a value is listed that is none");
            break;
        }
        case 5: {
            const std::string name = input.one_of(names), text = input.text().c_str();
            if (!ovkRegistryKey(parent).SetValue(name.c_str(), text.c_str())) break;
            require(kel::view(parent.GetValue(name.c_str())) == text, "another text than was set");
            break;
        }
        default: {
            kel::registry_value value{input.one_of(names), static_cast<int>(input.byte() % 4), input.text()},
                found;
            if (!kel::set_registry_value(parent, value)) break;
            require(kel::get_registry_value(parent, value.name.c_str(), found),
                    "a value that was set is missing");
            require(found.type == value.type && found.bytes == value.bytes, "another value than was set");
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    static const Place place;
    if (size > 400) return 0;
    fs::create_directories(place.tree);
    {
        Input input(bytes, size);
        ovkRegistryKey held[2];
        while (!input.done()) {
            if (input.byte() % 3 == 0)
                plant(input, place);
            else
                operate(input, held);
        }
    }
    place.check();
    fs::remove_all(place.tree);
    return 0;
}
