// The work of the cases, written once for all libraries. A library brings types with the few operations that
// are asked for here; thin inline wrappers where its interface is C.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "cases.h"
#include "harness/placement.h"
#include "harness/stopwatch.h"
#include "inputs.h"

namespace bench {

// Values and strings ---------------------------------------------------------------------------------

template <class Value>
void copy_and_destroy(benchmark::State &state, const Value &value) {
    for (auto _ : state) {
        Value copy(value);
        benchmark::DoNotOptimize(copy);
    }
}

// From many texts in turn, so that every assignment has another text to carry. They lie at uneven distances:
// the processor is slow where source and target are a multiple of 4,096 bytes apart, and that would be luck.
template <class Text, class Make>
void assign(benchmark::State &state, Make make, std::size_t bytes) {
    constexpr std::size_t count = 64;
    std::vector<Text> texts;
    std::vector<std::vector<char>> gaps;
    texts.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        texts.push_back(Text(make(text_of(bytes, static_cast<int>(i)))));
        gaps.emplace_back(16 + i * 37 % 300);
    }
    Text target(texts[0]);
    std::size_t next = 1;
    for (auto _ : state) {
        target = texts[next];
        benchmark::DoNotOptimize(target);
        next = (next + 1) % count;
    }
}

template <class Text>
void concatenate(benchmark::State &state, const Text &one, const Text &other) {
    for (auto _ : state) {
        Text sum(one + other);
        benchmark::DoNotOptimize(sum);
    }
}

template <class Text, class Make>
void add_strings(Suite &suite, Library library, const char *way, Make make) {
    for (std::size_t bytes : {std::size_t{12}, std::size_t{200}}) {
        std::string size = std::to_string(bytes);
        suite.add("string/copy" + size, library, way, [make, bytes](benchmark::State &state) {
            Text text(make(text_of(bytes)));
            copy_and_destroy(state, text);
        });
        suite.add("string/assign" + size, library, way,
                  [make, bytes](benchmark::State &state) { assign<Text>(state, make, bytes); });
        suite.add("string/concat" + size, library, way, [make, bytes](benchmark::State &state) {
            Text one(make(text_of(bytes))), other(make(text_of(bytes, 1)));
            concatenate(state, one, other);
        });
    }
    suite.add("string/copy12-threads", library, way, [make](benchmark::State &state) {
        Text text(make(text_of(12)));
        copy_and_destroy(state, text);
    });
}

// Counts ---------------------------------------------------------------------------------------------

// Two threads that start together, each on its own processor and with a handle on its own stack. Nanoseconds
// a pair, of the slower thread and in its processor time, so that neither is charged for what else the
// machine runs.
template <class Handle, class Pair>
void on_two_threads(benchmark::State &state, const Handle &one, const Handle &other_one, Pair pair) {
    constexpr std::size_t pairs = 2'000'000;
    run_once(state, [&]() -> const char * {
        std::atomic<int> waiting{2};
        auto body = [&](int place, Handle own) {
            Placed here(place);
            waiting.fetch_sub(1);
            while (waiting.load() != 0) {
            }
            double begin = seconds_of(CLOCK_THREAD_CPUTIME_ID);
            for (std::size_t i = 0; i < pairs; ++i)
                pair(own);
            return seconds_of(CLOCK_THREAD_CPUTIME_ID) - begin;
        };
        double first = 0, second = 0;
        std::thread other([&] { second = body(1, other_one); });
        first = body(0, one);
        other.join();
        state.counters["a pair"] = std::max(first, second) * 1e9 / static_cast<double>(pairs);
        return nullptr;
    });
}

// Objects that are counted are this large, so that the counts of two share no cache line.
struct Ballast {
    int bytes[128] = {};
};

// make: a handle on a new object. pair: takes a reference through the handle and gives it back.
template <class Make, class Pair>
void add_counts(Suite &suite, Library library, const char *way, Make make, Pair pair) {
    suite.add("count/alone", library, way, [make, pair](benchmark::State &state) {
        auto object = make();
        for (auto _ : state)
            pair(object);
    });
    suite.add("count/two-objects", library, way, [make, pair](benchmark::State &state) {
        auto one = make(), other = make();
        on_two_threads(state, one, other, pair);
    });
    suite.add("count/one-object", library, way, [make, pair](benchmark::State &state) {
        auto one = make();
        on_two_threads(state, one, one, pair);
    });
}

// Fields ---------------------------------------------------------------------------------------------

inline constexpr int field_count = 20;
inline constexpr const char *field_names[field_count] = {
    "Uid",   "Gid",  "Age",  "Quota", "Logins", "Shell",   "Locked", "Level", "Height", "Weight",
    "Score", "Rate", "Load", "Share", "Name",   "Comment", "Home",   "Group", "Host",   "Mail"};
// Fields 0 to 7 are ints (their index), 8 to 13 reals (a half more), the rest texts (their names).

inline std::string expected_field(int index) {
    if (index >= 14) return field_names[index];
    return std::to_string(index) + (index >= 8 ? ".5" : "");
}

// read(index) gives a value, show(value) its text; every field in turn.
template <class Read, class Show>
void read_fields(benchmark::State &state, Read read, Show show) {
    bool wrong = false;
    for (int i = 0; i < field_count; ++i)
        wrong |= show(read(i)) != expected_field(i);
    int index = 0;
    for (auto _ : state) {
        auto value = read(index);
        benchmark::DoNotOptimize(value);
        index = index == field_count - 1 ? 0 : index + 1;
    }
    if (wrong) state.SkipWithError("other values came back");
}

// Sequences ------------------------------------------------------------------------------------------

// List: append(value), at(index), begin(), end(). number(element) is what is summed up.
template <class List, class Value, class Number>
void append_and_read(benchmark::State &state, const std::vector<Value> &values, Number number) {
    run_once(state, [&]() -> const char * {
        List list;
        long long expected = 0, by_index = 0, walked = 0;
        for (std::size_t i = 0, from = 0; i < million; ++i, from = from + 1 == values.size() ? 0 : from + 1)
            expected += number(values[from]);
        time_phase(state, "append", million, [&] {
            for (std::size_t i = 0, from = 0; i < million;
                 ++i, from = from + 1 == values.size() ? 0 : from + 1)
                list.append(values[from]);
        });
        time_phase(state, "index", million, [&] {
            for (int i = 0; i < static_cast<int>(million); ++i)
                by_index += number(list.at(i));
        });
        time_phase(state, "walk", million, [&] {
            for (const auto &element : list)
                walked += number(element);
        });
        return by_index == expected && walked == expected ? nullptr : "other elements came back";
    });
}

template <class List>
void append_and_read_ints(benchmark::State &state) {
    append_and_read<List>(state, ints(), [](int value) { return value; });
}

// Dictionaries ---------------------------------------------------------------------------------------

// Table: Keys (made from a vector of texts, gives keys by []), set(key, int), find(key, int &), remove(key),
// empty().
template <class Table>
void set_find_remove(benchmark::State &state, Shape shape) {
    run_once(state, [&]() -> const char * {
        const Keys &all = keys(shape);
        typename Table::Keys given(all.given), shuffled(all.shuffled);
        Table table;
        std::size_t wrong = 0;
        time_phase(state, "set", million, [&] {
            for (std::size_t i = 0; i < million; ++i)
                table.set(given[i], static_cast<int>(i));
        });
        time_phase(state, "find", million, [&] {
            for (std::size_t i = 0; i < million; ++i) {
                int value = -1;
                wrong += !table.find(shuffled[i], value) || value != all.positions[i];
            }
        });
        time_phase(state, "remove", million, [&] {
            for (std::size_t i = 0; i < million; ++i)
                wrong += !table.remove(shuffled[i]);
        });
        return wrong == 0 && table.empty() ? nullptr : "keys were lost";
    });
}

template <class Table>
void add_dictionaries(Suite &suite, Library library, const char *way) {
    auto add = [&](const char *name, Shape shape) {
        suite.add(name, library, way,
                  [shape](benchmark::State &state) { set_find_remove<Table>(state, shape); });
    };
    add("dictionary/paths", Shape::Paths);
    add("dictionary/random", Shape::Random);
    add("dictionary/numbers", Shape::Numbers);
}

// Keys as plain pointers to the texts.
class PointerKeys {
public:
    explicit PointerKeys(const std::vector<std::string> &texts) : m_texts(texts) {}
    const char *operator[](std::size_t i) const { return m_texts[i].c_str(); }

private:
    const std::vector<std::string> &m_texts;
};

// Files ----------------------------------------------------------------------------------------------

// Format: Writer(path) with put(value) and finish(), which answers whether all went well; Reader(path) with
// get(value); Text, what a text is written from and made of a std::string by make; TextBack, what it is read
// into; same(const TextBack &, const std::string &). Opening and closing are part of the time.
template <class Format, class Value, class Back, class Expected, class Same>
void out_and_in(benchmark::State &state, const std::vector<Value> &values,
                const std::vector<Expected> &expected, Same same) {
    run_once(state, [&]() -> const char * {
        const std::string &path = scratch_path();
        bool written = false;
        std::size_t wrong = 0;
        time_phase(state, "out", values.size(), [&] {
            typename Format::Writer writer(path.c_str());
            for (const Value &value : values)
                writer.put(value);
            written = writer.finish();
        });
        time_phase(state, "in", values.size(), [&] {
            typename Format::Reader reader(path.c_str());
            Back value{};
            for (const Expected &wanted : expected) {
                reader.get(value);
                wrong += !same(value, wanted);
            }
        });
        return !written ? "not all was written" : wrong ? "other values came back" : nullptr;
    });
}

// exact: reals come back to the bit.
template <class Format>
void add_files(Suite &suite, Library library, const char *way, const std::string &encoding) {
    const bool exact = encoding != "text";
    suite.add("file/" + encoding + "/ints", library, way, [](benchmark::State &state) {
        out_and_in<Format, int, int>(state, ints(), ints(), [](int a, int b) { return a == b; });
    });
    suite.add("file/" + encoding + "/reals", library, way, [exact](benchmark::State &state) {
        out_and_in<Format, double, double>(state, reals(), exact ? reals() : reals_of_six_digits(),
                                           [](double a, double b) { return a == b; });
    });
    suite.add("file/" + encoding + "/strings", library, way, [](benchmark::State &state) {
        std::vector<typename Format::Text> values;
        values.reserve(texts().size());
        for (const std::string &text : texts())
            values.push_back(Format::make(text));
        out_and_in<Format, typename Format::Text, typename Format::TextBack>(state, values, texts(),
                                                                             Format::same);
    });
}

// Printing -------------------------------------------------------------------------------------------

// print() answers the text, in whatever type the library has for it; plain(text) is the std::string.
template <class Print, class Plain>
void print_tree(benchmark::State &state, Print print, Plain plain) {
    run_once(state, [&]() -> const char * {
        decltype(print()) text{};
        time_phase(state, "a field", std::size_t{tree::groups} * tree::items * tree::fields,
                   [&] { text = print(); });
        return tree::complete(plain(text)) ? nullptr : "fields are missing";
    });
}

// Waits ----------------------------------------------------------------------------------------------

inline constexpr int wait_count = 1'000;

// Set: set(index), wait() answers the index of the one event that is set and takes its signal.
template <class Set>
void wait_for_one(benchmark::State &state) {
    Set events;
    int index = 0;
    bool wrong = false;
    for (auto _ : state) {
        events.set(index);
        wrong |= events.wait() != index;
        index = (index + 397) % wait_count;
    }
    if (wrong) state.SkipWithError("another event was reported");
}

// Signal: set(), wait() takes the signal. Two threads wake each other in turn, on one
// processor: on two of them the time is that of a processor that leaves its sleep.
template <class Signal>
void wake(benchmark::State &state) {
    constexpr int rounds = 4'000;
    run_once(state, [&]() -> const char * {
        Signal ping, pong;
        std::thread other([&] {
            Placed there(0);
            for (int i = 0; i < rounds; ++i) {
                ping.wait();
                pong.set();
            }
        });
        Placed here(0);
        double begin = seconds_of(CLOCK_MONOTONIC);
        for (int i = 0; i < rounds; ++i) {
            ping.set();
            pong.wait();
        }
        double end = seconds_of(CLOCK_MONOTONIC);
        other.join();
        state.counters["one way"] = (end - begin) * 1e9 / (2.0 * rounds);
        return nullptr;
    });
}

}  // namespace bench
