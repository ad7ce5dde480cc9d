// The C interface beside the C++ functions that it stands for, and GLib's containers: a call for each
// element, of a sequence that the processor's cache holds and of a dictionary of as many keys.
#include <kelstdmt/kelstdmt_c.h>
#include <kelstdmt/xbasic.h>

#include <string>
#include <vector>

#include "cases.h"

#ifdef KELSTDMT_PEER_GLIB
#include <glib.h>
#endif

namespace bench {
namespace {

constexpr int element_count = 1'000;

const std::vector<std::string> &keys() {
    static const std::vector<std::string> made = [] {
        std::vector<std::string> list;
        for (int i = 0; i < element_count; ++i)
            list.push_back("key number " + std::to_string(i * 7'919 % 100'003));
        return list;
    }();
    return made;
}

struct Inlined {
    static int get(xintsequence *s, int i) { return s->get(i); }
    static void set(xintsequence *s, int i, int value) { s->set(i, value); }
    static void append(xintsequence *s, int, int value) { s->append(value); }
    static bool text(xstringsequence *s, int i) { return !s->get(i).IsNull(); }
    static int find(xintdictionary *d, const char *key) {
        int value = 0;
        d->find(key, value);
        return value;
    }
    static void put(xintdictionary *d, const char *key, int value) { d->set(key, value); }
};

// The same as calls, like those of the C functions, in place of the lines that the compiler puts into the
// loop.
struct Called {
    [[gnu::noinline]] static int get(xintsequence *s, int i) { return Inlined::get(s, i); }
    [[gnu::noinline]] static void set(xintsequence *s, int i, int value) { Inlined::set(s, i, value); }
    [[gnu::noinline]] static void append(xintsequence *s, int i, int value) { Inlined::append(s, i, value); }
    [[gnu::noinline]] static bool text(xstringsequence *s, int i) { return Inlined::text(s, i); }
    [[gnu::noinline]] static int find(xintdictionary *d, const char *key) { return Inlined::find(d, key); }
    [[gnu::noinline]] static void put(xintdictionary *d, const char *key, int value) {
        Inlined::put(d, key, value);
    }
};

struct C {
    static int get(xintsequence *s, int i) { return xintsequence_get(s, i); }
    static void set(xintsequence *s, int i, int value) { xintsequence_set(s, i, value); }
    static void append(xintsequence *s, int i, int value) { xintsequence_set(s, i, value); }
    static bool text(xstringsequence *s, int i) {
        const char *held = xstringsequence_get(s, i);
        xstrunlock_c(held);
        return XISTEXT_C(held);
    }
    static int find(xintdictionary *d, const char *key) {
        int value = 0;
        xintdictionary_find(d, key, &value);
        return value;
    }
    static void put(xintdictionary *d, const char *key, int value) { xintdictionary_set(d, key, value); }
};

template <class Way>
void get_each(benchmark::State &state) {
    xrchandle<xintsequence> sequence(xintsequence::create());
    for (int i = 0; i < element_count; ++i)
        sequence->append(i);
    for (auto _ : state)
        for (int i = 0; i < element_count; ++i)
            benchmark::DoNotOptimize(Way::get(sequence.get(), i));
}

template <class Way>
void set_each(benchmark::State &state) {
    xrchandle<xintsequence> sequence(xintsequence::create());
    sequence->set(element_count - 1, 0);
    for (auto _ : state)
        for (int i = 0; i < element_count; ++i) {
            Way::set(sequence.get(), i, i);
            benchmark::ClobberMemory();
        }
}

template <class Way>
void append_each(benchmark::State &state) {
    xrchandle<xintsequence> sequence(xintsequence::create());
    for (auto _ : state) {
        for (int i = 0; i < element_count; ++i) {
            Way::append(sequence.get(), i, i);
            benchmark::ClobberMemory();
        }
        sequence->removerange(0, element_count);
    }
}

template <class Way>
void get_texts(benchmark::State &state) {
    xrchandle<xstringsequence> sequence(xstringsequence::create());
    for (const std::string &key : keys())
        sequence->append(key.c_str());
    for (auto _ : state)
        for (int i = 0; i < element_count; ++i)
            benchmark::DoNotOptimize(Way::text(sequence.get(), i));
}

// Table: find(key), put(key, value).
template <class Table>
void find_keys(benchmark::State &state) {
    Table table;
    bool wrong = false;
    for (std::size_t i = 0; i < keys().size(); ++i)
        table.put(keys()[i].c_str(), static_cast<int>(i));
    for (std::size_t i = 0; i < keys().size(); ++i)
        wrong |= table.find(keys()[i].c_str()) != static_cast<int>(i);
    for (auto _ : state)
        for (const std::string &key : keys())
            benchmark::DoNotOptimize(table.find(key.c_str()));
    if (wrong) state.SkipWithError("other values came back");
}

template <class Table>
void set_keys(benchmark::State &state) {
    Table table;
    for (const std::string &key : keys())
        table.put(key.c_str(), 1);
    for (auto _ : state)
        for (const std::string &key : keys())
            table.put(key.c_str(), 2);
}

template <class Way>
class OurTable {
public:
    OurTable() : m_table(xintdictionary::create()) {}
    int find(const char *key) { return Way::find(m_table.get(), key); }
    void put(const char *key, int value) { Way::put(m_table.get(), key, value); }

private:
    xrchandle<xintdictionary> m_table;
};

template <class Way>
void add_ours(Suite &suite, Library library, const char *way) {
    suite.add("c/get", library, way, get_each<Way>);
    suite.add("c/set", library, way, set_each<Way>);
    suite.add("c/append", library, way, append_each<Way>);
    suite.add("c/texts", library, way, get_texts<Way>);
    suite.add("c/find-keys", library, way, find_keys<OurTable<Way>>);
    suite.add("c/set-keys", library, way, set_keys<OurTable<Way>>);
}

#ifdef KELSTDMT_PEER_GLIB

void append_to_array(benchmark::State &state) {
    GArray *array = g_array_new(FALSE, FALSE, sizeof(int));
    for (auto _ : state) {
        for (int i = 0; i < element_count; ++i)
            g_array_append_val(array, i);
        g_array_set_size(array, 0);
    }
    g_array_free(array, TRUE);
}

class GlibTable {
public:
    GlibTable() : m_table(g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr)) {}
    ~GlibTable() { g_hash_table_destroy(m_table); }
    GlibTable(const GlibTable &) = delete;
    GlibTable &operator=(const GlibTable &) = delete;

    void put(const char *key, int value) {
        g_hash_table_insert(m_table, g_strdup(key), GINT_TO_POINTER(value));
    }
    int find(const char *key) { return GPOINTER_TO_INT(g_hash_table_lookup(m_table, key)); }

private:
    GHashTable *m_table;
};

#endif

}  // namespace

Section c_interface_section() {
    return {"C interface",
            {Library::Ours, Library::Called, Library::Inlined, Library::Glib},
            {
                {"c/get", "1,000 ints of a sequence: get each"},
                {"c/set", "1,000 ints of a sequence: set each"},
                {"c/append", "1,000 ints of a sequence: append each"},
                {"c/texts", "1,000 texts of a sequence: get each"},
                {"c/find-keys", "1,000 keys of a dictionary: find each"},
                {"c/set-keys", "1,000 keys of a dictionary: set each"},
            }};
}

void add_c_interface(Suite &suite) {
    add_ours<C>(suite, Library::Ours, "C function");
    add_ours<Called>(suite, Library::Called, "C++, called");
    add_ours<Inlined>(suite, Library::Inlined, "C++, inline");
#ifdef KELSTDMT_PEER_GLIB
    suite.add("c/append", Library::Glib, "GArray", append_to_array);
    suite.add("c/find-keys", Library::Glib, "GHashTable", find_keys<GlibTable>);
    suite.add("c/set-keys", Library::Glib, "GHashTable", set_keys<GlibTable>);
#endif
}

}  // namespace bench
