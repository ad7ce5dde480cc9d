// The C interface beside the C++ calls that it stands for, and GLib's containers: a call for each element, of
// a sequence that the processor's cache holds and of a dictionary of as many keys. Time is for one element.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include <kelstdmt/kelstdmt_c.h>
#include <kelstdmt/xbasic.h>

#if defined(KELSTDMT_PEER_GLIB)
#include <glib.h>
#endif

namespace {

constexpr int count = 1000;

const std::vector<std::string> &keys() {
    static const std::vector<std::string> made = [] {
        std::vector<std::string> list;
        for (int i = 0; i < count; ++i)
            list.push_back("key number " + std::to_string(i * 7919 % 100003));
        return list;
    }();
    return made;
}

// As a call, like that of the C function, in place of the lines that the compiler puts into the loop.
struct CppCalled {
    [[gnu::noinline]] static int get(xintsequence *s, int i) { return s->get(i); }
    [[gnu::noinline]] static void set(xintsequence *s, int i, int v) { s->set(i, v); }
    [[gnu::noinline]] static void append(xintsequence *s, int, int v) { s->append(v); }
    static void clear(xintsequence *s) { s->removerange(0, count); }
};

// The pass goes over all elements.
template <class Pass>
void measure(benchmark::State &state, Pass pass) {
    for (auto _ : state)
        pass();
    state.counters["element"] = benchmark::Counter(
        count, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

struct Cpp {
    template <class T>
    using made = xrchandle<T>;
    static int get(xintsequence *s, int i) { return s->get(i); }
    static void set(xintsequence *s, int i, int v) { s->set(i, v); }
    static void append(xintsequence *s, int, int v) { s->append(v); }
    static void clear(xintsequence *s) { s->removerange(0, count); }
    static int find(xintdictionary *d, const char *key) {
        int value = 0;
        d->find(key, value);
        return value;
    }
    static void put(xintdictionary *d, const char *key, int v) { d->set(key, v); }
    static bool text(xstringsequence *s, int i) { return !s->get(i).IsNull(); }
};

struct C {
    static int get(xintsequence *s, int i) { return xintsequence_get(s, i); }
    static void set(xintsequence *s, int i, int v) { xintsequence_set(s, i, v); }
    static void append(xintsequence *s, int i, int v) { xintsequence_set(s, i, v); }
    static void clear(xintsequence *s) { xintsequence_removerange(s, 0, count); }
    static int find(xintdictionary *d, const char *key) {
        int value = 0;
        xintdictionary_find(d, key, &value);
        return value;
    }
    static void put(xintdictionary *d, const char *key, int v) { xintdictionary_set(d, key, v); }
    static bool text(xstringsequence *s, int i) {
        const char *held = xstringsequence_get(s, i);
        xstrunlock_c(held);
        return XISTEXT_C(held);
    }
};

template <class Way>
void sequence_get(benchmark::State &state) {
    xrchandle<xintsequence> s(xintsequence::create());
    for (int i = 0; i < count; ++i)
        s->append(i);
    measure(state, [&] {
        for (int i = 0; i < count; ++i)
            benchmark::DoNotOptimize(Way::get(s, i));
    });
}

template <class Way>
void sequence_set(benchmark::State &state) {
    xrchandle<xintsequence> s(xintsequence::create());
    s->set(count - 1, 0);
    measure(state, [&] {
        for (int i = 0; i < count; ++i) {
            Way::set(s, i, i);
            benchmark::ClobberMemory();
        }
    });
}

template <class Way>
void sequence_append(benchmark::State &state) {
    xrchandle<xintsequence> s(xintsequence::create());
    measure(state, [&] {
        for (int i = 0; i < count; ++i) {
            Way::append(s, i, i);
            benchmark::ClobberMemory();
        }
        Way::clear(s);
    });
}

template <class Way>
void texts_get(benchmark::State &state) {
    xrchandle<xstringsequence> s(xstringsequence::create());
    for (const std::string &key : keys())
        s->append(key.c_str());
    measure(state, [&] {
        for (int i = 0; i < count; ++i)
            benchmark::DoNotOptimize(Way::text(s, i));
    });
}

template <class Way>
void dictionary_find(benchmark::State &state) {
    xrchandle<xintdictionary> d(xintdictionary::create());
    for (const std::string &key : keys())
        d->set(key.c_str(), 1);
    measure(state, [&] {
        for (const std::string &key : keys())
            benchmark::DoNotOptimize(Way::find(d, key.c_str()));
    });
}

template <class Way>
void dictionary_set(benchmark::State &state) {
    xrchandle<xintdictionary> d(xintdictionary::create());
    for (const std::string &key : keys())
        d->set(key.c_str(), 1);
    measure(state, [&] {
        for (const std::string &key : keys())
            Way::put(d, key.c_str(), 2);
    });
}

#define KEL_ROW(NAME)                                                          \
    BENCHMARK_TEMPLATE(NAME, Cpp)->Name("c_interface/" #NAME "/kelstdmt C++"); \
    BENCHMARK_TEMPLATE(NAME, C)->Name("c_interface/" #NAME "/kelstdmt C")
KEL_ROW(sequence_get);
BENCHMARK_TEMPLATE(sequence_get, CppCalled)->Name("c_interface/sequence_get/kelstdmt C++, called");
KEL_ROW(sequence_set);
BENCHMARK_TEMPLATE(sequence_set, CppCalled)->Name("c_interface/sequence_set/kelstdmt C++, called");
KEL_ROW(sequence_append);
BENCHMARK_TEMPLATE(sequence_append, CppCalled)->Name("c_interface/sequence_append/kelstdmt C++, called");
KEL_ROW(texts_get);
KEL_ROW(dictionary_find);
KEL_ROW(dictionary_set);

#if defined(KELSTDMT_PEER_GLIB)

void glib_array_append(benchmark::State &state) {
    GArray *array = g_array_new(FALSE, FALSE, sizeof(int));
    measure(state, [&] {
        for (int i = 0; i < count; ++i)
            g_array_append_val(array, i);
        g_array_set_size(array, 0);
    });
    g_array_free(array, TRUE);
}
BENCHMARK(glib_array_append)->Name("c_interface/sequence_append/GLib GArray");

class GlibTable {
public:
    GlibTable() : m_table(g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr)) {
        for (const std::string &key : keys())
            set(key.c_str(), 1);
    }
    ~GlibTable() { g_hash_table_destroy(m_table); }
    GlibTable(const GlibTable &) = delete;
    GlibTable &operator=(const GlibTable &) = delete;

    void set(const char *key, int value) {
        g_hash_table_insert(m_table, g_strdup(key), GINT_TO_POINTER(value));
    }
    int find(const char *key) { return GPOINTER_TO_INT(g_hash_table_lookup(m_table, key)); }

private:
    GHashTable *m_table;
};

void glib_table_find(benchmark::State &state) {
    GlibTable table;
    measure(state, [&] {
        for (const std::string &key : keys())
            benchmark::DoNotOptimize(table.find(key.c_str()));
    });
}
BENCHMARK(glib_table_find)->Name("c_interface/dictionary_find/GLib GHashTable");

void glib_table_set(benchmark::State &state) {
    GlibTable table;
    measure(state, [&] {
        for (const std::string &key : keys())
            table.set(key.c_str(), 2);
    });
}
BENCHMARK(glib_table_set)->Name("c_interface/dictionary_set/GLib GHashTable");

#endif

}  // namespace
