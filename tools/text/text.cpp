#include "text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>

#include <kelstdmt/vumrt.h>

namespace tool {

namespace {

constexpr std::string_view base64_digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

unsigned Byte(char c) {
    return static_cast<unsigned char>(c);
}

// What begins with these bits has this many bytes, and stands for nothing below the least.
struct Utf8Form {
    unsigned mask, bits;
    std::size_t bytes;
    std::uint32_t least;
};
constexpr Utf8Form utf8_forms[] = {
    {0x80, 0x00, 1, 0}, {0xE0, 0xC0, 2, 0x80}, {0xF0, 0xE0, 3, 0x800}, {0xF8, 0xF0, 4, 0x10000}};

// In UTF-8, C1 control characters are two bytes.
bool IsControl(std::string_view character) {
    unsigned first = Byte(character[0]);
    if (character.size() == 1) return first < 0x20 || first == 0x7F;
    return character.size() == 2 && first == 0xC2 && Byte(character[1]) < 0xA0;
}

template <class Number>
std::optional<Number> Parsed(std::string_view text) {
    if (text.starts_with('+') && text.size() > 1 && text[1] != '-') text.remove_prefix(1);
    Number number{};
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

}  // namespace

std::size_t Utf8Length(std::string_view text) {
    if (text.empty()) return 0;
    for (const Utf8Form &form : utf8_forms) {
        if ((Byte(text[0]) & form.mask) != form.bits) continue;
        if (text.size() < form.bytes) return 0;
        std::uint32_t code = Byte(text[0]) & ~form.mask;
        for (std::size_t i = 1; i < form.bytes; ++i) {
            if ((Byte(text[i]) & 0xC0) != 0x80) return 0;
            code = code << 6 | (Byte(text[i]) & 0x3F);
        }
        bool surrogate = code >= 0xD800 && code < 0xE000;
        return code < form.least || surrogate || code > 0x10FFFF ? 0 : form.bytes;
    }
    return 0;
}

bool IsUtf8(std::string_view text) {
    while (!text.empty()) {
        std::size_t length = Utf8Length(text);
        if (!length) return false;
        text.remove_prefix(length);
    }
    return true;
}

std::string Printable(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        std::size_t length = Utf8Length(text);
        std::string_view character = text.substr(0, length ? length : 1);
        text.remove_prefix(character.size());
        if (length && !IsControl(character)) {
            shown += character;
        } else if (std::size_t named = std::string_view("\n\t\r").find(character);
                   named != std::string::npos) {
            shown += {'\\', "ntr"[named]};
        } else {
            for (char c : character) {
                char escape[5];
                std::snprintf(escape, sizeof escape, "\\x%02X", Byte(c));
                shown += escape;
            }
        }
    }
    return shown;
}

std::string PrintablePath(std::string_view path) {
    bool other_drive = path.size() > 1 && path[1] == ':' && path[0] != 'C' && path[0] != 'c';
    return Printable(other_drive ? std::string(path) : btkHostPath(std::string(path).c_str()));
}

std::string Base64(std::string_view bytes) {
    std::string text;
    for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(3, bytes.size()))) {
        std::uint32_t group = 0;
        for (std::size_t i = 0; i < 3; ++i)
            group = group << 8 | (i < bytes.size() ? Byte(bytes[i]) : 0);
        for (std::size_t i = 0; i < 4; ++i)
            text += i <= bytes.size() ? base64_digits[group >> (18 - 6 * i) & 63] : '=';
    }
    return text;
}

std::optional<std::string> FromBase64(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    std::string bytes;
    for (; !text.empty(); text.remove_prefix(4)) {
        std::size_t digits = text.size() > 4            ? 4
                             : text.ends_with("==")     ? 2
                             : text.substr(3, 1) == "=" ? 3
                                                        : 4;
        std::uint32_t group = 0;
        for (std::size_t i = 0; i < 4; ++i) {
            std::size_t digit = i < digits ? base64_digits.find(text[i]) : 0;
            if (digit == std::string_view::npos) return std::nullopt;
            group = group << 6 | static_cast<std::uint32_t>(digit);
        }
        for (std::size_t i = 0; i + 1 < digits; ++i)
            bytes += static_cast<char>(group >> (16 - 8 * i) & 0xFF);
    }
    return bytes;
}

std::string NumberText(double number) {
    std::array<char, 32> text;
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), number).ptr};
}

std::optional<double> ToNumber(std::string_view text) {
    return Parsed<double>(text);
}

std::optional<int> ToInteger(std::string_view text) {
    return Parsed<int>(text);
}

std::string SizeText(double bytes) {
    constexpr const char *units[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB"};
    std::size_t unit = 0;
    for (; bytes >= 1024 && unit + 1 < std::size(units); ++unit)
        bytes /= 1024;
    char text[32];
    std::snprintf(text, sizeof text, unit && bytes < 100 ? "%.1f %s" : "%.0f %s", bytes, units[unit]);
    return text;
}

}  // namespace tool
