// The work of each case, written once: what a library does comes as functions. Everything here is timed by
// the wall clock, because much of it is done by the system, or by another process; what was written before is
// on the disk when the clock starts.
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "harness/stopwatch.h"
#include "harness/suite.h"
#include "inputs.h"

namespace bench {

template <class Work>
void wall_phase(benchmark::State &state, const char *phase, std::size_t operations, Work work) {
    settle_disk();
    time_wall_phase(state, phase, operations, work);
}

using Action = std::function<void(const std::string &from, const std::string &to)>;

// Copies the tree, looks whether all is there, and removes the copy.
inline void add_tree(Suite &suite, Library library, std::string way, Action copy,
                     std::function<void(const std::string &)> remove) {
    suite.add("tree", library, std::move(way), [=](benchmark::State &state) {
        run_once(state, [&]() -> const char * {
            const std::string from = source_tree(), to = scratch_path("copy");
            wall_phase(state, "copy", tree_files, [&] { copy(from, to); });
            if (content_of_tree(to) != content_of_tree(from)) return "the copy differs";
            wall_phase(state, "remove", tree_files, [&] { remove(to); });
            return exists(to) ? "the copy is still there" : nullptr;
        });
    });
}

// `list` answers how many names match.
inline void add_list(Suite &suite, Library library, std::string way,
                     std::function<std::size_t(const std::string &folder)> list) {
    suite.add("list", library, std::move(way), [=](benchmark::State &state) {
        run_once(state, [&]() -> const char * {
            const std::string folder = crowded_folder();
            std::size_t found = 0;
            wall_phase(state, "a name", crowd, [&] { found = list(folder); });
            return found == crowd_matching ? nullptr : "other names match";
        });
    });
}

inline void add_sum(Suite &suite, Library library, std::string way,
                    std::function<std::uint32_t(const std::string &path)> sum) {
    suite.add("sum", library, std::move(way), [=](benchmark::State &state) {
        run_once(state, [&]() -> const char * {
            const std::string path = big_file();
            std::uint32_t found = 0;
            wall_phase(state, "a MiB", big_file_mib, [&] { found = sum(path); });
            return found == big_file_sum() ? nullptr : "another sum";
        });
    });
}

// The sum as it is told: the count in the high half, then the sum and the exclusive or of the bytes.
struct PlainSum {
    std::uint32_t count = 0, sum = 0, folded = 0;
    void add(const char *bytes, std::size_t size) {
        count += static_cast<std::uint32_t>(size);
        for (std::size_t i = 0; i < size; ++i) {
            sum += static_cast<unsigned char>(bytes[i]);
            folded ^= static_cast<unsigned char>(bytes[i]);
        }
    }
    std::uint32_t value() const { return count << 16 | (sum & 0xFF) << 8 | (folded & 0xFF); }
};

// A settings file in the library's own form: `write` makes it, `open` reads it and answers how many entries
// it holds, `save` opens it, changes one entry and writes it back.
struct Settings {
    std::function<void(const std::string &path)> write;
    std::function<std::size_t(const std::string &path)> open;
    std::function<void(const std::string &path)> save;
};
inline void add_config(Suite &suite, Library library, std::string way, Settings settings) {
    suite.add("config", library, std::move(way), [=](benchmark::State &state) {
        run_once(state, [&]() -> const char * {
            const std::string path = scratch_path("settings");
            settings.write(path);
            std::size_t found = 0;
            wall_phase(state, "open", config_entries, [&] { found = settings.open(path); });
            if (found != config_entries) return "other entries";
            wall_phase(state, "save", config_entries, [&] { settings.save(path); });
            return settings.open(path) == config_entries ? nullptr : "entries got lost";
        });
    });
}

// A store is opened on a fresh place; get answers the value that set has set.
struct Store {
    virtual ~Store() = default;
    virtual void set(const std::string &name, const std::string &value) = 0;
    virtual std::string get(const std::string &name) = 0;
};
template <class Opened>
void add_registry(Suite &suite, Library library, std::string way) {
    suite.add("registry", library, std::move(way), [](benchmark::State &state) {
        run_once(state, [&]() -> const char * {
            Opened store(scratch_path("registry"));
            const std::vector<std::string> &names = value_names();
            wall_phase(state, "set", names.size(), [&] {
                for (const std::string &name : names)
                    store.set(name, "value of " + name);
            });
            bool right = true;
            wall_phase(state, "get", names.size(), [&] {
                for (const std::string &name : names)
                    right = store.get(name) == "value of " + name && right;
            });
            return right ? nullptr : "reads other values";
        });
    });
}

// One int is written at its place, so that other processes see it.
template <class Opened>
void add_update(Suite &suite, Library library, std::string way) {
    suite.add("monitor/update", library, std::move(way), [](benchmark::State &state) {
        const std::string path = monitor_file();
        Opened file(path);
        int value = 0;
        for (auto _ : state)
            file.put(++value);
        if (value_in_file(path) != value) state.SkipWithError("another value is in the file");
    });
}

// `Opened` reads all values of the file anew and answers their sum.
template <class Opened>
void add_follow(Suite &suite, Library library, std::string way) {
    suite.add("monitor/follow", library, std::move(way), [](benchmark::State &state) {
        Opened file(followed_file());
        run_once(state, [&]() -> const char * {
            long long sum = 0;
            constexpr int times = 20;
            wall_phase(state, "a value", followed * times, [&] {
                for (int i = 0; i < times; ++i)
                    sum = file.read_all();
            });
            return sum == followed_sum ? nullptr : "other values";
        });
    });
}

// The values of a monitor file that holds ints only, from its bytes.
inline long long sum_of_records(const char *bytes, std::size_t size) {
    auto word = [&](std::size_t at) {
        std::uint32_t value;
        std::memcpy(&value, bytes + at, 4);
        return static_cast<std::uint32_t>(__builtin_bswap32(value));
    };
    long long sum = 0;
    std::size_t at = 8 + word(4);
    while (at + 12 <= size) {
        at += 12 + word(at + 8);
        sum += static_cast<int>(word(at));
        at += 4;
    }
    return sum;
}

}  // namespace bench
