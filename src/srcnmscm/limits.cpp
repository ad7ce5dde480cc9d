// The limits of a record, which the machine may narrow in its registry.
#include <cstdlib>

#include <kelstdmt/nmsclib.h>
#include <kelstdmt/reglib.h>

namespace {

constexpr int usual = 256;

int limit_of(const char *key_path, const char *name) {
    ovkRegistryKey key;
    if (!kel::is_text(key_path) || !key.Open(ovkRegistry::System()->Root(), key_path)) return usual;
    const xstring value = key.GetValue(name);
    if (value.IsNull()) return usual;
    const long limit = std::strtol(value, nullptr, 10);
    return limit > 0 && limit < usual ? static_cast<int>(limit) : usual;
}

}  // namespace

int nmsRecordLimits::GetNumberOfFields(const char *key) {
    return limit_of(key, "MaxNumFields");
}
int nmsRecordLimits::GetFieldNameLength(const char *key) {
    return limit_of(key, "FieldNameMaxLength");
}
int nmsRecordLimits::GetFieldValueLength(const char *key) {
    return limit_of(key, "FieldValueMaxLength");
}
