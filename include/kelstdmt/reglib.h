// The registry: settings of the user and of the machine, in a tree of keys that hold named values.
//
// Keys are written with backslashes between their components; neither keys nor value names know case. A key
// or name with one of the characters "/.:*?" is none. The lower layer, ovkRegistry and ovkRegistryKey,
// answers true or false; the upper, regKey and regRegistry, makes keys objects with typed values and throws
// on misuse.
//
// It is stored as folders and files that `ls` and `cat` show: doc/registry.md. A write appears whole or not
// at all, to other processes and after a crash. Keys are meant for one thread at a time.
#pragma once

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

    // Both close this key first unless the subkey is not valid. Create opens a key that exists.
    bool Create(const ovkRegistryKey &parent, const char *subkey);
    bool Open(const ovkRegistryKey &parent, const char *subkey);
    void Close();
    bool IsOpened() const noexcept { return m_record != nullptr; }

    bool IsKeyValid(const char *key) const;
    bool IsNameValid(const char *name) const;

    bool DeleteSubkey(const char *name);  // false for one that has subkeys; its values go with it
    // The name may be empty: the key's default value. A null value is the name itself.
    bool SetValue(const char *name, const char *value);
    xstring GetValue(const char *name) const;  // the null string for none, and for one that is no text
    bool DeleteValue(const char *name);

private:
    friend class ovkRegistry;
    friend struct kel::detail::registry_access;
    bool Reach(const ovkRegistryKey &parent, const char *subkey, bool make);

    kel::detail::registry_record *m_record = nullptr;
};

class KELSTDMT_API ovkRegistry {
public:
    enum Type : int { UserKind, SystemKind };

    ovkRegistry(Type type, char separator, const char *forbidden);
    ~ovkRegistry();
    ovkRegistry(const ovkRegistry &) = delete;
    ovkRegistry &operator=(const ovkRegistry &) = delete;

    // One of each for the process, made on first use.
    static ovkRegistry *System();
    static ovkRegistry *User();

    bool Open();
    bool Close();
    const ovkRegistryKey &Root() const noexcept { return m_root; }

private:
    friend class ovkRegistryKey;
    bool IsKeyValid(const char *key) const;
    bool IsNameValid(const char *name) const;

    int m_opened = 0;
    ovkRegistryKey m_root;
    char m_separator;
    xstring m_forbidden;
};

// Every operation but Close throws regXKeyClosed on a closed key and regXNameInvalid for a name that is none;
// new keys belong to the caller.
KEL_DECLARE_STRUCT(regKey)
class KELSTDMT_API regKey : public xobject {
    KEL_CLASS(regKey, xobject)
public:
    explicit regKey(const ovkRegistryKey &key);

    virtual regKey *CreateSubkey(const char *name);  // null on failure
    virtual regKey *OpenSubkey(const char *name);    // null on failure
    virtual bool DeleteSubkey(const char *name);
    virtual void Close();
    // Stored as text; a refused write throws regXAccess.
    virtual void SetValue(const char *name, double value);
    virtual void SetValue(const char *name, unsigned char value);
    virtual void SetValue(const char *name, int value);
    virtual void SetValue(const char *name, const char *value);
    // Without a text value: the null string and the nil values of each type.
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
class KELSTDMT_API regXNameInvalid : public kelXException {
    KEL_UNCOUNTED_EXCEPTION(regXNameInvalid, kelXException, xstrNullStr, (xstring, Name))
};
KEL_DECLARE_STRUCT(regXKeyClosed)
class KELSTDMT_API regXKeyClosed : public kelXException {
    KEL_UNCOUNTED_EXCEPTION(regXKeyClosed, kelXException, xstrNullStr)
};
KEL_DECLARE_STRUCT(regXAccess)
class KELSTDMT_API regXAccess : public kelXException {
    KEL_UNCOUNTED_EXCEPTION(regXAccess, kelXException, xstrNullStr)
};

// Looking around, and values that are no text.
namespace kel {

struct registry_value {
    std::string name;  // empty: the default value
    int type;          // 1 is text
    std::string bytes;
};

// In ascending order of the names. False, with the last error set, when the key cannot be read.
KELSTDMT_API bool registry_subkeys(const ovkRegistryKey &key, std::vector<std::string> &names);
KELSTDMT_API bool registry_values(const ovkRegistryKey &key, std::vector<registry_value> &values);
// A value of any type. False, with the last error set, when there is none or the name is none.
KELSTDMT_API bool get_registry_value(const ovkRegistryKey &key, const char *name, registry_value &value);
// False, with the last error set, when the value cannot be written.
KELSTDMT_API bool set_registry_value(const ovkRegistryKey &key, const registry_value &value);

}  // namespace kel
