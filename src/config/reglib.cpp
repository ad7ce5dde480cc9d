// The upper layer of the registry: keys as objects, and typed values, each of which is stored as a text that
// reads the same in every locale.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <string_view>

#include <kelstdmt/reglib.h>

#include "iolibsrc/text_number.h"

namespace {

constexpr std::size_t number_size = 512;

struct characters {
    std::string_view left;
    int peek() const { return left.empty() ? kel::detail::text_end : static_cast<unsigned char>(left[0]); }
    int next() {
        left.remove_prefix(1);
        return peek();
    }
};

// As atof reads a text in the locale "C".
double real_of(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) text.remove_prefix(1);
    if (text.starts_with('-')) return 0;
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    if (hexadecimal) text.remove_prefix(2);
    double value = 0;
    const auto [stop, error] =
        std::from_chars(text.data(), text.data() + text.size(), value,
                        hexadecimal ? std::chars_format::hex : std::chars_format::general);
    if (error == std::errc::result_out_of_range) {
        characters limit{text};
        kel::detail::decode_real(limit, value);
        value = value > 1 ? HUGE_VAL : 0;
    }
    return negative ? -value : value;
}

}  // namespace

// regKey ---------------------------------------------------------------------------------------

regKey::regKey(const ovkRegistryKey &key) : m_key(key) {}

void regKey::CheckName(const char *name, bool (ovkRegistryKey::*is_valid)(const char *) const) const {
    if (!m_key.IsOpened()) regXKeyClosed::Throw();
    if (!(m_key.*is_valid)(name)) regXNameInvalid::Throw(name);
}

regKey *regKey::CreateSubkey(const char *name) {
    CheckName(name, &ovkRegistryKey::IsKeyValid);
    ovkRegistryKey subkey;
    return subkey.Create(m_key, name) ? kel::construct<regKey>(subkey) : nullptr;
}

regKey *regKey::OpenSubkey(const char *name) {
    CheckName(name, &ovkRegistryKey::IsKeyValid);
    ovkRegistryKey subkey;
    return subkey.Open(m_key, name) ? kel::construct<regKey>(subkey) : nullptr;
}

bool regKey::DeleteSubkey(const char *name) {
    CheckName(name, &ovkRegistryKey::IsNameValid);
    return m_key.DeleteSubkey(name);
}

void regKey::Close() {
    m_key.Close();
}

void regKey::SetValue(const char *name, double value) {
    char text[number_size];
    constexpr int significant = 6;
    *std::to_chars(text, text + number_size - 1, value, std::chars_format::general, significant).ptr = 0;
    regKey::SetValue(name, text);
}

void regKey::SetValue(const char *name, unsigned char value) {
    regKey::SetValue(name, value ? "true" : "false");
}

void regKey::SetValue(const char *name, int value) {
    char text[number_size];
    *std::to_chars(text, text + number_size - 1, value).ptr = 0;
    regKey::SetValue(name, text);
}

void regKey::SetValue(const char *name, const char *value) {
    CheckName(name, &ovkRegistryKey::IsNameValid);
    if (!m_key.SetValue(name, value)) regXAccess::Throw();
}

xstring regKey::GetStringValue(const char *name) {
    CheckName(name, &ovkRegistryKey::IsNameValid);
    return m_key.GetValue(name);
}

int regKey::GetIntValue(const char *name) {
    const xstring text = regKey::GetStringValue(name);
    return text.IsNull() ? kel::nil_int : std::atoi(text);
}

double regKey::GetRealValue(const char *name) {
    const xstring text = regKey::GetStringValue(name);
    return text.IsNull() ? kel::nil_real : real_of(text);
}

unsigned char regKey::GetBoolValue(const char *name) {
    const xstring text = regKey::GetStringValue(name);
    const std::string_view view = text;
    return view == "true" ? 1 : view == "false" ? 0 : kel::nil_bool;
}

bool regKey::DeleteValue(const char *name) {
    CheckName(name, &ovkRegistryKey::IsNameValid);
    return m_key.DeleteValue(name);
}

// regRegistry ----------------------------------------------------------------------------------

regRegistry::regRegistry(ovkRegistry *registry) : regKey(registry->Root()), m_registry(registry) {}

regRegistry *regRegistry::System() {
    return kel::construct<regRegistry>(ovkRegistry::System());
}

regRegistry *regRegistry::User() {
    return kel::construct<regRegistry>(ovkRegistry::User());
}

bool regRegistry::Open() {
    return m_registry->Open();
}

void regRegistry::Close() {
    m_registry->Close();
}
