// The case of texts, byte by byte as the locale has it.
#pragma once

#include <algorithm>
#include <array>
#include <string_view>

namespace kel::detail {

// Every byte through std::toupper or std::tolower, to as many bytes at `out`. A long text asks the locale
// once for each of the bytes that there are.
template <class Change>
void change_case(std::string_view text, char *out, Change change) {
    std::array<char, 256> table;
    auto changed = [change](unsigned byte) { return static_cast<char>(change(static_cast<int>(byte))); };
    if (text.size() < table.size()) {
        for (char byte : text)
            *out++ = changed(static_cast<unsigned char>(byte));
        return;
    }
    for (unsigned byte = 0; byte < table.size(); ++byte)
        table[byte] = changed(byte);
    std::transform(text.begin(), text.end(), out,
                   [&table](char byte) { return table[static_cast<unsigned char>(byte)]; });
}

}  // namespace kel::detail
