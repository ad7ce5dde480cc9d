// What writing and reading share: the texts around an inventory, and the quoting of coding.h.
#pragma once

#include <string>
#include <string_view>

inline constexpr const char *header = "kelstdmt inventory 1";
inline constexpr const char *trailer = "end";

// The quoted form, in a buffer that is used again and again.
inline const char *Quote(std::string_view text, std::string &buffer) {
    buffer = '"';
    for (char character : text) {
        if (character == '\n')
            buffer += "\\n";
        else if (character == '\\')
            buffer += "\\\\";
        else
            buffer += character;
    }
    buffer += '"';
    return buffer.c_str();
}

// The way back; false when the text is not in quoted form.
inline bool Unquote(std::string_view quoted, std::string &text) {
    text.clear();
    if (quoted.size() < 2 || quoted.front() != '"' || quoted.back() != '"') return false;
    quoted = quoted.substr(1, quoted.size() - 2);
    for (std::size_t i = 0; i < quoted.size(); ++i) {
        if (quoted[i] != '\\') {
            text += quoted[i];
        } else {
            ++i;
            if (i == quoted.size() || (quoted[i] != 'n' && quoted[i] != '\\')) return false;
            text += quoted[i] == 'n' ? '\n' : '\\';
        }
    }
    return true;
}
