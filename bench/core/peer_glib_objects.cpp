// GObject: values, counts and properties.
#ifdef KELSTDMT_PEER_GLIB
#include <glib-object.h>

#include <cstdio>

#include "loops.h"

namespace bench {
namespace {

// An object with the properties of field_names.
struct BenchRecord {
    GObject base;
    int integers[8];
    double reals[6];
    char *texts[6];
    Ballast ballast;
};
struct BenchRecordClass {
    GObjectClass base;
};
G_DEFINE_TYPE(BenchRecord, bench_record, G_TYPE_OBJECT)

void bench_record_init(BenchRecord *self) {
    for (int i = 0; i < 8; ++i)
        self->integers[i] = i;
    for (int i = 0; i < 6; ++i) {
        self->reals[i] = i + 8.5;
        self->texts[i] = g_strdup(field_names[i + 14]);
    }
}

void bench_record_finalize(GObject *object) {
    for (char *text : reinterpret_cast<BenchRecord *>(object)->texts)
        g_free(text);
    G_OBJECT_CLASS(bench_record_parent_class)->finalize(object);
}

void bench_record_get(GObject *object, guint id, GValue *value, GParamSpec *) {
    auto *self = reinterpret_cast<BenchRecord *>(object);
    guint field = id - 1;
    if (field < 8)
        g_value_set_int(value, self->integers[field]);
    else if (field < 14)
        g_value_set_double(value, self->reals[field - 8]);
    else
        g_value_set_string(value, self->texts[field - 14]);
}

void bench_record_class_init(BenchRecordClass *type) {
    type->base.finalize = bench_record_finalize;
    type->base.get_property = bench_record_get;
    const auto flags = static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS);
    for (int i = 0; i < field_count; ++i) {
        const char *name = field_names[i];
        GParamSpec *property =
            i < 8    ? g_param_spec_int(name, name, name, G_MININT, G_MAXINT, 0, flags)
            : i < 14 ? g_param_spec_double(name, name, name, -G_MAXDOUBLE, G_MAXDOUBLE, 0, flags)
                     : g_param_spec_string(name, name, name, nullptr, flags);
        g_object_class_install_property(&type->base, static_cast<guint>(i + 1), property);
    }
}

class Value {
public:
    Value() = default;
    Value(const Value &other) {
        g_value_init(&m_value, G_VALUE_TYPE(&other.m_value));
        g_value_copy(&other.m_value, &m_value);
    }
    ~Value() { g_value_unset(&m_value); }
    GValue *get() { return &m_value; }
    const GValue *get() const { return &m_value; }

private:
    GValue m_value = G_VALUE_INIT;
};

class Handle {
public:
    Handle() : m_object(static_cast<GObject *>(g_object_new(bench_record_get_type(), nullptr))) {}
    Handle(const Handle &other) : m_object(static_cast<GObject *>(g_object_ref(other.m_object))) {}
    ~Handle() { g_object_unref(m_object); }
    Handle &operator=(const Handle &) = delete;
    GObject *get() const { return m_object; }

private:
    GObject *m_object;
};

std::string show(const Value &value) {
    if (G_VALUE_HOLDS_STRING(value.get())) return g_value_get_string(value.get());
    if (G_VALUE_HOLDS_INT(value.get())) return std::to_string(g_value_get_int(value.get()));
    char text[40];
    std::snprintf(text, sizeof text, "%g", g_value_get_double(value.get()));
    return text;
}

}  // namespace

void add_glib_objects(Suite &suite) {
    const auto glib = Library::Glib;
    suite.add("any/int", glib, "GValue", [](benchmark::State &state) {
        Value value;
        g_value_init(value.get(), G_TYPE_INT);
        g_value_set_int(value.get(), 42);
        copy_and_destroy(state, value);
    });
    suite.add("any/real", glib, "GValue", [](benchmark::State &state) {
        Value value;
        g_value_init(value.get(), G_TYPE_DOUBLE);
        g_value_set_double(value.get(), 42.5);
        copy_and_destroy(state, value);
    });
    suite.add("any/string", glib, "GValue", [](benchmark::State &state) {
        Value value;
        g_value_init(value.get(), G_TYPE_STRING);
        g_value_set_string(value.get(), text_of(12).c_str());
        copy_and_destroy(state, value);
    });
    for (const char *name : {"any/object", "any/object-threads"})
        suite.add(name, glib, "GValue", [](benchmark::State &state) {
            Handle record;
            Value value;
            g_value_init(value.get(), bench_record_get_type());
            g_value_set_object(value.get(), record.get());
            copy_and_destroy(state, value);
        });
    add_counts(
        suite, glib, "g_object_ref", [] { return Handle(); },
        [](const Handle &record) {
            g_object_ref(record.get());
            g_object_unref(record.get());
        });
    suite.add("field/name", glib, "g_object_get_property", [](benchmark::State &state) {
        Handle record;
        read_fields(
            state,
            [&](int index) {
                Value value;
                g_object_get_property(record.get(), field_names[index], value.get());
                return value;
            },
            show);
    });
}

}  // namespace bench
#endif
