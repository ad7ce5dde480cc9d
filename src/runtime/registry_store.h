// The registry on the host: a key is a folder, a value a file (doc/registry.md has the layout).
//
// A value is written to a file without a name, made lasting, and only then, under the lock of its tree,
// given its name: whoever reads sees the old or the new one without taking a lock, and a writer that is
// killed leaves nothing. Everything below the folder of a tree is reached by descriptor and never through a
// link, so that nothing in the tree can lead out of it.
//
// Names may be in any case, and are those of keys and values: neither empty (but the default value is) nor
// with a NUL, a dot, a slash or a backslash. Every failure leaves the last error: 2 for what is not there,
// 123 for what is no name, 206 for one that is too long, 1018 for a key that was deleted.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <kelstdmt/vumrt.h>

#include "runtime/owned_descriptor.h"

namespace kel::system {

enum class registry_kind : unsigned char { user, machine };

// The folder of a tree, which the keys below it share.
struct registry_root {
    owned_descriptor folder;
    unsigned long long device = 0, node = 0;
    bool for_all = false;  // read by everybody, not by the owner alone
};

struct registry_content {
    int type = 0;  // 1 is text
    std::string bytes;
};

// A key that is open, or none. One thread at a time.
class registry_folder {
public:
    static constexpr int text_type = 1;
    static constexpr std::size_t largest_value = std::size_t{16} << 20;  // bytes

    registry_folder() = default;
    // The folder of the tree itself.
    explicit registry_folder(std::shared_ptr<const registry_root> root) noexcept : m_root(std::move(root)) {}

    // The key that lies so many names below the parent, which may be none: then the parent once more. With
    // `make`, what is missing is made.
    bool open(const registry_folder &parent, const std::vector<std::string_view> &names, bool make);

    // The text of a value of that type, up to a NUL.
    bool read_text(std::string_view name, std::string &text) const;
    bool read(std::string_view name, registry_content &content) const;
    // 87 for a negative type and for a text with a NUL, 223 for a value that is too large.
    bool write(std::string_view name, int type, std::string_view bytes) const;
    bool remove_value(std::string_view name) const;
    // A key with all its values; 145 when it has keys below it.
    bool remove_folder(std::string_view name) const;

    // In ascending order; those of the values as far as they are known without reading them.
    bool list_folders(std::vector<std::string> &names) const;
    bool list_values(std::vector<std::string> &names) const;

    explicit operator bool() const noexcept { return m_root != nullptr; }

private:
    int at() const noexcept { return m_folder ? m_folder.get() : m_root->folder.get(); }
    bool is_deleted() const noexcept;
    bool failed(int system_error) const noexcept;
    int walk(const registry_folder &parent, const std::vector<std::string_view> &names, bool make);
    int hide(const char *name) const;
    owned_descriptor stage(std::string_view bytes, bool with_name) const;
    template <class Take>
    bool list(Take take) const;

    owned_descriptor m_folder;  // none: that of the root
    std::shared_ptr<const registry_root> m_root;
};

// Finds the folder of a tree anew whenever it is asked, since the environment says where it lies. Any thread.
class registry_tree {
public:
    explicit registry_tree(registry_kind kind) noexcept : m_kind(kind) {}

    // Null, with the last error set, when it is not there and cannot, or shall not, be made.
    std::shared_ptr<const registry_root> root(bool make);

private:
    registry_kind m_kind;
    thrMutex m_guard{thrMutex::Plain};
    std::weak_ptr<const registry_root> m_last;
};

}  // namespace kel::system
