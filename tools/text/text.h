// Texts of unknown origin on their way to people and programs: names and values are bytes, and may be no
// UTF-8, or steer a terminal.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tool {

// The length of the UTF-8 character that the text begins with; 0 when it begins with none.
std::size_t Utf8Length(std::string_view text);
bool IsUtf8(std::string_view text);

// For people: on one line, harmless to a terminal. Control characters are \n, \t, \r or \xNN, and so are
// bytes that are no UTF-8. A backslash stays a single one, for the sake of paths.
std::string Printable(std::string_view text);
// The same for a path in either form, as the host writes it; one of another drive or host stays as it is.
std::string PrintablePath(std::string_view path);

std::string Base64(std::string_view bytes);
std::optional<std::string> FromBase64(std::string_view text);

// The shortest that reads back as the same number: "0.1", "1e+126", "inf", "nan".
std::string NumberText(double number);
// The whole text as a number in the same form, whatever the locale.
std::optional<double> ToNumber(std::string_view text);
std::optional<int> ToInteger(std::string_view text);

// 1536 is "1.5 KiB".
std::string SizeText(double bytes);

}  // namespace tool
