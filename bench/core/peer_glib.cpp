// GLib: strings, containers, printing and waits.
#ifdef KELSTDMT_PEER_GLIB
#include <glib.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <memory>

#include "loops.h"

namespace bench {
namespace {

class Text {
public:
    explicit Text(const std::string &text)
        : m_text(g_string_new_len(text.data(), static_cast<gssize>(text.size()))) {}
    Text(const Text &other)
        : m_text(g_string_new_len(other.m_text->str, static_cast<gssize>(other.m_text->len))) {}
    ~Text() { g_string_free(m_text, TRUE); }
    Text &operator=(const Text &other) {
        g_string_assign(m_text, other.m_text->str);
        return *this;
    }
    friend Text operator+(const Text &a, const Text &b) {
        GString *sum = g_string_sized_new(a.m_text->len + b.m_text->len);
        g_string_append_len(sum, a.m_text->str, static_cast<gssize>(a.m_text->len));
        g_string_append_len(sum, b.m_text->str, static_cast<gssize>(b.m_text->len));
        return Text(sum);
    }

private:
    explicit Text(GString *text) : m_text(text) {}
    GString *m_text;
};

class Ints {
public:
    ~Ints() { g_array_unref(m_array); }
    void append(int value) { g_array_append_val(m_array, value); }
    int at(int index) const { return g_array_index(m_array, int, index); }
    const int *begin() const { return reinterpret_cast<const int *>(m_array->data); }
    const int *end() const { return begin() + m_array->len; }

private:
    GArray *m_array = g_array_new(FALSE, FALSE, sizeof(int));
};

class Texts {
public:
    ~Texts() { g_ptr_array_unref(m_array); }
    void append(const std::string &text) { g_ptr_array_add(m_array, g_strdup(text.c_str())); }
    const char *at(int index) const { return static_cast<const char *>(g_ptr_array_index(m_array, index)); }
    const char *const *begin() const { return reinterpret_cast<const char *const *>(m_array->pdata); }
    const char *const *end() const { return begin() + m_array->len; }

private:
    GPtrArray *m_array = g_ptr_array_new_with_free_func(g_free);
};

class Table {
public:
    using Keys = PointerKeys;

    ~Table() { g_hash_table_unref(m_table); }
    void set(const char *key, int value) {
        g_hash_table_insert(m_table, g_strdup(key), GINT_TO_POINTER(value));
    }
    bool find(const char *key, int &value) {
        gpointer found;
        if (!g_hash_table_lookup_extended(m_table, key, nullptr, &found)) return false;
        value = GPOINTER_TO_INT(found);
        return true;
    }
    bool remove(const char *key) { return g_hash_table_remove(m_table, key); }
    bool empty() { return g_hash_table_size(m_table) == 0; }

private:
    GHashTable *m_table = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr);
};

GVariant *make_tree() {
    GVariantBuilder groups;
    g_variant_builder_init(&groups, G_VARIANT_TYPE("aaa{sv}"));
    for (int g = 0; g < tree::groups; ++g) {
        g_variant_builder_open(&groups, G_VARIANT_TYPE("aa{sv}"));
        for (int i = 0; i < tree::items; ++i) {
            g_variant_builder_open(&groups, G_VARIANT_TYPE("a{sv}"));
            for (int f = 0; f < tree::fields; ++f) {
                GVariant *value = f < 4   ? g_variant_new_int32(tree::integer(g, i, f))
                                  : f < 7 ? g_variant_new_double(tree::real(g, i, f))
                                          : g_variant_new_string(tree::text(g, i, f).c_str());
                g_variant_builder_add(&groups, "{sv}", tree::names[f], value);
            }
            g_variant_builder_close(&groups);
        }
        g_variant_builder_close(&groups);
    }
    return g_variant_ref_sink(g_variant_builder_end(&groups));
}

class Signal {
public:
    Signal() {
        g_mutex_init(&m_mutex);
        g_cond_init(&m_changed);
    }
    ~Signal() {
        g_cond_clear(&m_changed);
        g_mutex_clear(&m_mutex);
    }
    void set() {
        g_mutex_lock(&m_mutex);
        m_set = true;
        g_cond_signal(&m_changed);
        g_mutex_unlock(&m_mutex);
    }
    void wait() {
        g_mutex_lock(&m_mutex);
        while (!m_set)
            g_cond_wait(&m_changed, &m_mutex);
        m_set = false;
        g_mutex_unlock(&m_mutex);
    }

private:
    GMutex m_mutex;
    GCond m_changed;
    bool m_set = false;
};

// A thread that waits in a main loop.
class LoopSignal {
public:
    ~LoopSignal() { g_main_context_unref(m_context); }
    void set() {
        m_set.store(true);
        g_main_context_wakeup(m_context);
    }
    void wait() {
        while (!m_set.exchange(false))
            g_main_context_iteration(m_context, TRUE);
    }

private:
    GMainContext *m_context = g_main_context_new();
    std::atomic<bool> m_set{false};
};

// One source over one eventfd, in a main loop with many.
struct DescriptorSource {
    GSource base;
    int descriptor;
    int index;
    gpointer tag;
};

class SourceSet {
public:
    SourceSet() : m_sources(wait_count) {
        static GSourceFuncs functions = {nullptr, check, dispatch, nullptr, nullptr, nullptr};
        for (std::size_t i = 0; i < m_sources.size(); ++i) {
            GSource *source = g_source_new(&functions, sizeof(DescriptorSource));
            auto *own = reinterpret_cast<DescriptorSource *>(source);
            own->descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
            own->index = static_cast<int>(i);
            own->tag = g_source_add_unix_fd(source, own->descriptor, G_IO_IN);
            g_source_set_callback(source, nullptr, &m_reported, nullptr);
            g_source_attach(source, m_context);
            m_sources[i] = own;
        }
    }
    ~SourceSet() {
        for (DescriptorSource *own : m_sources) {
            close(own->descriptor);
            g_source_destroy(&own->base);
            g_source_unref(&own->base);
        }
        g_main_context_unref(m_context);
    }
    SourceSet(const SourceSet &) = delete;
    SourceSet &operator=(const SourceSet &) = delete;

    void set(int index) {
        if (eventfd_write(m_sources[static_cast<std::size_t>(index)]->descriptor, 1) != 0)
            std::perror("eventfd_write");
    }
    int wait() {
        m_reported = -1;
        while (m_reported < 0)
            g_main_context_iteration(m_context, TRUE);
        return m_reported;
    }

private:
    static gboolean check(GSource *source) {
        return g_source_query_unix_fd(source, reinterpret_cast<DescriptorSource *>(source)->tag) != 0;
    }
    static gboolean dispatch(GSource *source, GSourceFunc, gpointer reported) {
        auto *own = reinterpret_cast<DescriptorSource *>(source);
        eventfd_t value;
        if (eventfd_read(own->descriptor, &value) != 0) std::perror("eventfd_read");
        *static_cast<int *>(reported) = own->index;
        return G_SOURCE_CONTINUE;
    }

    GMainContext *m_context = g_main_context_new();
    std::vector<DescriptorSource *> m_sources;
    int m_reported = -1;
};

}  // namespace

void add_glib(Suite &suite) {
    const auto glib = Library::Glib;
    add_strings<Text>(suite, glib, "GString", [](const std::string &text) { return Text(text); });
    suite.add("sequence/ints", glib, "GArray", append_and_read_ints<Ints>);
    suite.add("sequence/strings", glib, "GPtrArray", [](benchmark::State &state) {
        struct FirstLetter {
            char operator()(const std::string &text) const { return text[0]; }
            char operator()(const char *text) const { return text[0]; }
        };
        append_and_read<Texts>(state, different_texts(), FirstLetter());
    });
    add_dictionaries<Table>(suite, glib, "GHashTable");
    suite.add("print/tree", glib, "g_variant_print", [](benchmark::State &state) {
        GVariant *value = make_tree();
        using Printed = std::unique_ptr<char, decltype(&g_free)>;
        struct Plain {
            Printed text{nullptr, g_free};
        };
        print_tree(
            state, [&] { return Plain{Printed(g_variant_print(value, FALSE), g_free)}; },
            [](const Plain &printed) { return std::string(printed.text.get()); });
        g_variant_unref(value);
    });
    suite.add("wait/1000", glib, "GMainContext", wait_for_one<SourceSet>);
    suite.add("wait/wake", glib, "GCond", wake<Signal>);
    suite.add("wait/wake", glib, "GMainContext", wake<LoopSignal>);
}

}  // namespace bench
#endif
