// The registry: settings of the user and of the machine, in a tree of keys that hold named values.
//
// Keys are written with backslashes between their components; neither keys nor value names know case. A key
// or name with one of the characters "/.:*?" is none. The lower layer, ovkRegistry and ovkRegistryKey,
// answers true or false; the upper, regKey and regRegistry, makes keys objects with typed values and throws
// on misuse.
//
// It is stored as folders and files that `ls` and `cat` show: doc/registry.md. A write appears whole or not
// at all, to other processes and after a crash. One key is for one thread at a time; different keys, also
// copies of one, may be used by different threads.
//
// What answers false or the null string leaves the last error: 2 there is none, 5 access denied, 6 the key is
// closed, 13 the file is none of a value, 33 others held the lock for five seconds, 87 a value that cannot be
// kept, 112 disk full, 123 no name, 145 there are keys below it, 206 name too long (250 bytes for a value,
// 255 for each component of a key), 223 value too large (16 MiB), 1018 the key was deleted.
#pragma once

#include <concepts>
#include <string>
#include <vector>

#include <kelstdmt/declare.h>
#include <kelstdmt/export.h>
#include <kelstdmt/xexception.h>
#include <kelstdmt/xstring.h>

class ovkRegistry;

namespace kel::detail {
struct registry_record;
struct registry_access;
}  // namespace kel::detail

// A key, or none (closed). Copies share the key that is open; it is let go with the last of them.
class KELSTDMT_API ovkRegistryKey {
public:
    ovkRegistryKey() noexcept = default;
    ovkRegistryKey(const ovkRegistryKey &from) noexcept;
    ovkRegistryKey &operator=(const ovkRegistryKey &from) noexcept;
    ~ovkRegistryKey();

    // Both close this key first unless the subkey is not valid. Create opens a key that exists, and makes
    // what is missing above it too. The parent may be this key. An empty subkey is the parent once more; a
    // separator at the end is accepted, an empty component is not.
    bool Create(const ovkRegistryKey &parent, const char *subkey);
    bool Open(const ovkRegistryKey &parent, const char *subkey);
    void Close();
    bool IsOpened() const noexcept { return m_record != nullptr; }

    // False on a closed key, and for a null pointer or marker.
    bool IsKeyValid(const char *key) const;
    bool IsNameValid(const char *name) const;

    bool DeleteSubkey(const char *name);  // false for one that has subkeys; its values go with it
    // The name may be empty: the key's default value. A null pointer or marker as value is the name itself.
    bool SetValue(const char *name, const char *value);
    xstring GetValue(const char *name) const;  // the null string for none, and for one that is no text
    bool DeleteValue(const char *name);

private:
    friend class ovkRegistry;
    friend struct kel::detail::registry_access;
    bool Reach(const ovkRegistryKey &parent, const char *subkey, bool make);

    kel::detail::registry_record *m_record = nullptr;
};

// A tree of settings, and the rules for its keys; it must outlive the keys below it.
class KELSTDMT_API ovkRegistry {
public:
    // The user's own settings, and those of the machine, which everybody reads and their owner writes.
    enum Type : int { UserKind, SystemKind };

    // Keys are split at the separator; neither they nor names have one of the forbidden characters, nor one
    // of "./\\", which the store cannot keep. Another type than these gives a registry whose root is closed.
    ovkRegistry(Type type, char separator, const char *forbidden);
    ~ovkRegistry();
    ovkRegistry(const ovkRegistry &) = delete;
    ovkRegistry &operator=(const ovkRegistry &) = delete;

    // One of each for the process, made on first use.
    static ovkRegistry *System();
    static ovkRegistry *User();

    // They do nothing, and answer true.
    bool Open();
    bool Close();
    // Its folder is looked for whenever it is used: the environment says where it lies.
    const ovkRegistryKey &Root() const noexcept { return m_root; }

private:
    friend class ovkRegistryKey;
    bool IsKeyValid(const char *key) const;
    bool IsNameValid(const char *name) const;

    ovkRegistryKey m_root;
    char m_separator;
    xstring m_forbidden;
};

// Every operation but Close throws regXKeyClosed on a closed key and regXNameInvalid for a name that is none;
// new keys belong to the caller, who deletes them.
KEL_DECLARE_STRUCT(regKey)
class KELSTDMT_API regKey : public xobject {
    KEL_CLASS(regKey, xobject)
public:
    explicit regKey(const ovkRegistryKey &key);

    virtual regKey *CreateSubkey(const char *name);  // null on failure
    virtual regKey *OpenSubkey(const char *name);    // null on failure
    virtual bool DeleteSubkey(const char *name);     // false for one that has subkeys
    virtual void Close();
    // Stored as text, in every locale the same: a number with at most 6 significant digits, "true" or
    // "false". A write that fails throws regXAccess; the last error tells why.
    virtual void SetValue(const char *name, double value);
    virtual void SetValue(const char *name, unsigned char value);
    virtual void SetValue(const char *name, int value);
    virtual void SetValue(const char *name, const char *value);
    // A bool, which would be an int otherwise.
    template <std::same_as<bool> Bool>
    void SetValue(const char *name, Bool value) {
        SetValue(name, static_cast<unsigned char>(value));
    }
    // Without a text value: the null string and the nil values of each type. A text that begins with no
    // number is 0 (ints are as atoi has them), one that is neither "true" nor "false" is nil.
    virtual xstring GetStringValue(const char *name);
    virtual int GetIntValue(const char *name);
    virtual double GetRealValue(const char *name);
    virtual unsigned char GetBoolValue(const char *name);
    virtual bool DeleteValue(const char *name);

    const ovkRegistryKey &Key() const noexcept { return m_key; }

private:
    void CheckName(const char *name, bool (ovkRegistryKey::*is_valid)(const char *) const) const;

    ovkRegistryKey m_key;
};

KEL_DECLARE_STRUCT(regRegistry)
class KELSTDMT_API regRegistry : public regKey {
    KEL_CLASS(regRegistry, regKey)
public:
    explicit regRegistry(ovkRegistry *registry);  // which must outlive it
    static regRegistry *System();                 // a new one that the caller owns
    static regRegistry *User();

    void Close() override;  // the root key stays open
    virtual bool Open();

private:
    ovkRegistry *m_registry;
};

KEL_DECLARE_STRUCT(regXNameInvalid)
class KELSTDMT_API regXNameInvalid : public xthrowable {
    KEL_ROOT_EXCEPTION(regXNameInvalid, (xstring, Name))
};
KEL_DECLARE_STRUCT(regXKeyClosed)
class KELSTDMT_API regXKeyClosed : public xthrowable {
    KEL_ROOT_EXCEPTION(regXKeyClosed)
};
KEL_DECLARE_STRUCT(regXAccess)
class KELSTDMT_API regXAccess : public xthrowable {
    KEL_ROOT_EXCEPTION(regXAccess)
};

// Looking around, and values that are no text.
namespace kel {

struct registry_value {
    std::string name;  // empty: the default value
    int type = 1;      // text; what others mean is up to who sets them, from 0 on
    std::string bytes;
};

// In ascending order of the names, which are told in lower case; what is no key or value is left out. False
// when the key cannot be read. A tree that was never written to is empty.
KELSTDMT_API bool registry_subkeys(const ovkRegistryKey &key, std::vector<std::string> &names);
KELSTDMT_API bool registry_values(const ovkRegistryKey &key, std::vector<registry_value> &values);
// A value of any type. False when there is none.
KELSTDMT_API bool get_registry_value(const ovkRegistryKey &key, const char *name, registry_value &value);
// It takes the place of a value of any type. False when it cannot be written; 87 for a negative type, and for
// a text with a NUL.
KELSTDMT_API bool set_registry_value(const ovkRegistryKey &key, const registry_value &value);

}  // namespace kel
