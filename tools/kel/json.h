// JSON, which is UTF-8, for names and values that may be any bytes.
//
// Where the bytes of a member NAME are no UTF-8, U+FFFD stands for each bad byte, and a member NAME_base64
// behind it holds them as they are.
#pragma once

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace tool {

using Json = nlohmann::ordered_json;

void PutBytes(Json &object, const std::string &name, std::string_view bytes);
std::string BytesOf(const Json &object, const std::string &name);  // throws Failure when there are none
// What JSON has no number for is "nan", "inf" or "-inf".
Json NumberOf(double number);

Json ReadJson(std::string_view document);  // throws Failure with the place of the mistake
void PrintJson(const Json &document);      // on standard output

}  // namespace tool
