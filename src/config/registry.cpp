// The lower layer of the registry: keys as counted records, and plain answers. Names are looked at here, as
// far as a registry forbids characters; what the store cannot keep it refuses itself.
#include <kelstdmt/reglib.h>

#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "runtime/registry_store.h"

using kel::system::registry_folder;
using kel::system::registry_tree;

// A root has a tree, and its folder is looked for whenever it is used; every other key is a folder.
struct kel::detail::registry_record {
    std::uint32_t holders = 1;
    ovkRegistry *registry;
    std::unique_ptr<registry_tree> tree;
    registry_folder folder;
};

using kel::detail::registry_record;

namespace {

constexpr int not_found = 2, no_folder = 3, bad_handle = 6, no_memory = 8, bad_data = 13, bad_name = 123;

bool refuse(int number) noexcept {
    Error_SetLast(number);
    return false;
}

// The answer of an operation on the folder of a key; false for none. With `make`, the folder of a tree is
// made.
template <class Work>
bool with_folder(const registry_record *record, bool make, Work work) {
    if (!record) return refuse(bad_handle);
    try {
        if (!record->tree) return work(record->folder);
        const registry_folder folder(record->tree->root(make));
        return folder && work(folder);
    } catch (const std::bad_alloc &) {
        return refuse(no_memory);
    }
}

// The names between separators. One at the end is accepted.
bool split(std::string_view key, char separator, std::vector<std::string_view> &names) {
    while (!key.empty()) {
        const std::size_t end = key.find(separator);
        if (end == 0) return refuse(bad_name);
        names.push_back(key.substr(0, end));
        key.remove_prefix(end == key.npos ? key.size() : end + 1);
    }
    return true;
}

}  // namespace

// ovkRegistry ----------------------------------------------------------------------------------

ovkRegistry::ovkRegistry(Type type, char separator, const char *forbidden)
    : m_separator(separator), m_forbidden(kel::is_text(forbidden) ? forbidden : "") {
    using kel::system::registry_kind;
    if (type != UserKind && type != SystemKind) return;
    const registry_kind kind = type == UserKind ? registry_kind::user : registry_kind::machine;
    m_root.m_record = new registry_record{1, this, std::make_unique<registry_tree>(kind), {}};
}

ovkRegistry::~ovkRegistry() = default;

// Never deleted: keys in static objects may outlive everything that is.
ovkRegistry *ovkRegistry::System() {
    static auto *const registry = new ovkRegistry(SystemKind, '\\', "/.:*?");
    return registry;
}

ovkRegistry *ovkRegistry::User() {
    static auto *const registry = new ovkRegistry(UserKind, '\\', "/.:*?");
    return registry;
}

bool ovkRegistry::Open() {
    return true;
}

bool ovkRegistry::Close() {
    return true;
}

bool ovkRegistry::IsKeyValid(const char *key) const {
    return kel::is_text(key) && !std::strpbrk(key, m_forbidden);
}

bool ovkRegistry::IsNameValid(const char *name) const {
    return IsKeyValid(name) && (m_separator == 0 || !std::strchr(name, m_separator));
}

// ovkRegistryKey -------------------------------------------------------------------------------

ovkRegistryKey::ovkRegistryKey(const ovkRegistryKey &from) noexcept : m_record(from.m_record) {
    if (m_record) kel::detail::count_add(m_record->holders, std::uint32_t{1});
}

ovkRegistryKey &ovkRegistryKey::operator=(const ovkRegistryKey &from) noexcept {
    ovkRegistryKey copy(from);
    std::swap(m_record, copy.m_record);
    return *this;
}

ovkRegistryKey::~ovkRegistryKey() {
    Close();
}

void ovkRegistryKey::Close() {
    registry_record *record = std::exchange(m_record, nullptr);
    if (record && kel::detail::count_add(record->holders, std::uint32_t(-1)) == 1) delete record;
}

bool ovkRegistryKey::IsKeyValid(const char *key) const {
    return m_record && m_record->registry->IsKeyValid(key);
}

bool ovkRegistryKey::IsNameValid(const char *name) const {
    return m_record && m_record->registry->IsNameValid(name);
}

// The parent may be this key.
bool ovkRegistryKey::Reach(const ovkRegistryKey &parent, const char *subkey, bool make) {
    if (!parent.m_record) return refuse(bad_handle);
    if (!parent.IsKeyValid(subkey)) return refuse(bad_name);
    const ovkRegistryKey from(parent);
    Close();
    return with_folder(from.m_record, make, [&](const registry_folder &folder) {
        ovkRegistry *registry = from.m_record->registry;
        std::vector<std::string_view> names;
        if (!split(subkey, registry->m_separator, names)) return false;
        auto record = std::make_unique<registry_record>(registry_record{1, registry, nullptr, {}});
        if (!record->folder.open(folder, names, make)) return false;
        m_record = record.release();
        return true;
    });
}

bool ovkRegistryKey::Create(const ovkRegistryKey &parent, const char *subkey) {
    return Reach(parent, subkey, true);
}

bool ovkRegistryKey::Open(const ovkRegistryKey &parent, const char *subkey) {
    return Reach(parent, subkey, false);
}

// The answer of an operation on one name below this key, which is looked at first.
template <class Work>
static bool with_name(const ovkRegistryKey &key, const registry_record *record, const char *name, bool make,
                      Work work) {
    if (record && !key.IsNameValid(name)) return refuse(bad_name);
    return with_folder(record, make, work);
}

bool ovkRegistryKey::DeleteSubkey(const char *name) {
    return with_name(*this, m_record, name, false,
                     [=](const registry_folder &folder) { return folder.remove_folder(name); });
}

bool ovkRegistryKey::SetValue(const char *name, const char *value) {
    return with_name(*this, m_record, name, true, [=](const registry_folder &folder) {
        return folder.write(name, registry_folder::text_type, kel::is_text(value) ? value : name);
    });
}

xstring ovkRegistryKey::GetValue(const char *name) const {
    xstring value;
    with_name(*this, m_record, name, false, [&](const registry_folder &folder) {
        std::string text;
        if (!folder.read_text(name, text)) return false;
        value = xstring::FromBytes(text.data(), text.size());
        return true;
    });
    return value;
}

bool ovkRegistryKey::DeleteValue(const char *name) {
    return with_name(*this, m_record, name, false,
                     [=](const registry_folder &folder) { return folder.remove_value(name); });
}

// Looking around -------------------------------------------------------------------------------

struct kel::detail::registry_access {
    static registry_record *record(const ovkRegistryKey &key) noexcept { return key.m_record; }
};

namespace kel {

// A tree that was never written to has no folder yet, and nothing in it.
template <class Work>
static bool look_around(const ovkRegistryKey &key, Work work) {
    const registry_record *record = detail::registry_access::record(key);
    const int before = Error_GetLast();
    bool found = false;
    const bool done = with_folder(record, false, [&](const registry_folder &folder) {
        found = true;
        return work(folder);
    });
    const int reason = Error_GetLast();
    const bool untouched =
        !done && !found && record && record->tree && (reason == not_found || reason == no_folder);
    if (done || untouched) Error_SetLast(before);
    return done || untouched;
}

// Others may have put into the tree what this registry calls no name.
static void keep_valid(const ovkRegistryKey &key, std::vector<std::string> &names) {
    std::erase_if(names, [&](const std::string &name) { return !key.IsNameValid(name.c_str()); });
}

bool registry_subkeys(const ovkRegistryKey &key, std::vector<std::string> &names) {
    names.clear();
    return look_around(key, [&](const registry_folder &folder) {
        const bool listed = folder.list_folders(names);
        keep_valid(key, names);
        return listed;
    });
}

bool registry_values(const ovkRegistryKey &key, std::vector<registry_value> &values) {
    values.clear();
    return look_around(key, [&](const registry_folder &folder) {
        std::vector<std::string> names;
        if (!folder.list_values(names)) return false;
        keep_valid(key, names);
        system::registry_content content;
        for (std::string &name : names) {
            if (folder.read(name, content))
                values.push_back({std::move(name), content.type, std::move(content.bytes)});
            else if (int reason = Error_GetLast(); reason != not_found && reason != bad_data)
                return false;  // anything else may have hidden a value
        }
        return true;
    });
}

bool get_registry_value(const ovkRegistryKey &key, const char *name, registry_value &value) {
    return with_name(key, detail::registry_access::record(key), name, false,
                     [&](const registry_folder &folder) {
                         system::registry_content content;
                         if (!folder.read(name, content)) return false;
                         value = {name, content.type, std::move(content.bytes)};
                         return true;
                     });
}

bool set_registry_value(const ovkRegistryKey &key, const registry_value &value) {
    // A NUL would end the name before it is looked at.
    if (value.name.find('\0') != std::string::npos) return refuse(bad_name);
    return with_name(
        key, detail::registry_access::record(key), value.name.c_str(), true,
        [&](const registry_folder &folder) { return folder.write(value.name, value.type, value.bytes); });
}

}  // namespace kel
