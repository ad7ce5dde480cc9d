#ifdef KELSTDMT_PEER_GIO
#define G_SETTINGS_ENABLE_BACKEND
#include <gio/gio.h>
#include <gio/gsettingsbackend.h>

#include <memory>

#include "cases.h"
#include "work.h"

namespace bench {
namespace {

template <auto Free>
struct With {
    template <class T>
    void operator()(T *owned) const {
        Free(owned);
    }
};
template <class T>
using Object = std::unique_ptr<T, With<g_object_unref>>;

Object<GFile> file_at(const std::string &path) {
    return Object<GFile>(g_file_new_for_path(path.c_str()));
}

// GLib has no copy of a tree; this is what its users write.
void copy_tree(GFile *from, GFile *to) {
    Object<GFileEnumerator> listing(g_file_enumerate_children(
        from, "standard::name,standard::type", G_FILE_QUERY_INFO_NOFOLLOW_SYMLINKS, nullptr, nullptr));
    if (!listing) return;
    g_file_make_directory(to, nullptr, nullptr);
    GFileInfo *info;
    GFile *child;
    while (g_file_enumerator_iterate(listing.get(), &info, &child, nullptr, nullptr) && info) {
        Object<GFile> target(g_file_get_child(to, g_file_info_get_name(info)));
        if (g_file_info_get_file_type(info) == G_FILE_TYPE_DIRECTORY)
            copy_tree(child, target.get());
        else
            g_file_copy(child, target.get(), G_FILE_COPY_NONE, nullptr, nullptr, nullptr, nullptr);
    }
}

void remove_tree(GFile *node) {
    if (Object<GFileEnumerator> listing{g_file_enumerate_children(
            node, "standard::name,standard::type", G_FILE_QUERY_INFO_NOFOLLOW_SYMLINKS, nullptr, nullptr)}) {
        GFileInfo *info;
        GFile *child;
        while (g_file_enumerator_iterate(listing.get(), &info, &child, nullptr, nullptr) && info) {
            if (g_file_info_get_file_type(info) == G_FILE_TYPE_DIRECTORY)
                remove_tree(child);
            else
                g_file_delete(child, nullptr, nullptr);
        }
    }
    g_file_delete(node, nullptr, nullptr);
}

std::size_t list(const std::string &folder) {
    std::vector<std::string> names;
    std::unique_ptr<GDir, With<g_dir_close>> listing(g_dir_open(folder.c_str(), 0, nullptr));
    std::unique_ptr<GPatternSpec, With<g_pattern_spec_free>> pattern(g_pattern_spec_new("*7.txt"));
    while (const char *name = g_dir_read_name(listing.get()))
        if (g_pattern_spec_match_string(pattern.get(), name)) names.emplace_back(name);
    return names.size();
}

std::uint32_t sum_of(const std::string &path) {
    std::unique_ptr<GMappedFile, With<g_mapped_file_unref>> mapped(
        g_mapped_file_new(path.c_str(), FALSE, nullptr));
    PlainSum sum;
    sum.add(g_mapped_file_get_contents(mapped.get()), g_mapped_file_get_length(mapped.get()));
    return sum.value();
}

using KeyFile = std::unique_ptr<GKeyFile, With<g_key_file_free>>;

KeyFile load(const std::string &path) {
    KeyFile file(g_key_file_new());
    g_key_file_load_from_file(file.get(), path.c_str(), G_KEY_FILE_NONE, nullptr);
    return file;
}

Settings key_file() {
    return {[](const std::string &path) {
                KeyFile file(g_key_file_new());
                for (const auto &[name, value] : config_content())
                    g_key_file_set_string(file.get(), "s", name.c_str(), value.c_str());
                g_key_file_save_to_file(file.get(), path.c_str(), nullptr);
            },
            [](const std::string &path) {
                KeyFile file = load(path);
                std::size_t count = 0;
                g_strfreev(g_key_file_get_keys(file.get(), "s", &count, nullptr));
                return count;
            },
            [](const std::string &path) {
                KeyFile file = load(path);
                g_key_file_set_string(file.get(), "s", "window7position", "8");
                g_key_file_save_to_file(file.get(), path.c_str(), nullptr);
            }};
}

// The back end that GSettings writes to when there is no other; GSettings itself would want a schema with a
// key for each value.
class KeyFileBackend : public Store {
public:
    explicit KeyFileBackend(const std::string &place)
        : m_backend(g_keyfile_settings_backend_new(place.c_str(), "/", "root")),
          m_calls(G_SETTINGS_BACKEND_GET_CLASS(m_backend.get())) {}
    void set(const std::string &name, const std::string &value) override {
        m_calls->write(m_backend.get(), ("/bench/" + name).c_str(),
                       g_variant_ref_sink(g_variant_new_string(value.c_str())), nullptr);
    }
    std::string get(const std::string &name) override {
        std::unique_ptr<GVariant, With<g_variant_unref>> value(
            m_calls->read(m_backend.get(), ("/bench/" + name).c_str(), G_VARIANT_TYPE_STRING, FALSE));
        return value ? g_variant_get_string(value.get(), nullptr) : "";
    }

private:
    Object<GSettingsBackend> m_backend;
    GSettingsBackendClass *m_calls;
};

class Update {
public:
    explicit Update(const std::string &path)
        : m_file(g_file_open_readwrite(file_at(path).get(), nullptr, nullptr)),
          m_output(g_io_stream_get_output_stream(G_IO_STREAM(m_file.get()))) {}
    void put(int value) {
        std::uint32_t word = __builtin_bswap32(static_cast<std::uint32_t>(value));
        g_seekable_seek(G_SEEKABLE(m_file.get()), monitor_place, G_SEEK_SET, nullptr, nullptr);
        g_output_stream_write_all(m_output, &word, 4, nullptr, nullptr, nullptr);
    }

private:
    Object<GFileIOStream> m_file;
    GOutputStream *m_output;
};

class Follow {
public:
    explicit Follow(std::string path) : m_path(std::move(path)) {}
    long long read_all() {
        char *bytes = nullptr;
        std::size_t size = 0;
        g_file_get_contents(m_path.c_str(), &bytes, &size, nullptr);
        long long sum = sum_of_records(bytes, size);
        g_free(bytes);
        return sum;
    }

private:
    std::string m_path;
};

}  // namespace

void add_glib(Suite &suite) {
    add_tree(
        suite, Library::Glib, "GFile",
        [](const std::string &from, const std::string &to) {
            copy_tree(file_at(from).get(), file_at(to).get());
        },
        [](const std::string &folder) { remove_tree(file_at(folder).get()); });
    add_list(suite, Library::Glib, "GDir, GPatternSpec", list);
    add_sum(suite, Library::Glib, "GMappedFile", sum_of);
    add_config(suite, Library::Glib, "GKeyFile", key_file());
    add_registry<KeyFileBackend>(suite, Library::Glib, "GSettings, key file");
    add_update<Update>(suite, Library::Glib, "GFileIOStream");
    add_follow<Follow>(suite, Library::Glib, "g_file_get_contents");
}

}  // namespace bench
#endif
