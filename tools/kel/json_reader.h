// Reads JSON (RFC 8259) from outside: whole documents of bounded depth, strict about everything, lenient
// about nothing, with the place of the first mistake.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tool {

struct JsonValue;
struct JsonMember;
using JsonArray = std::vector<JsonValue>;
using JsonObject = std::vector<JsonMember>;  // in the document's order

struct JsonValue {
    std::variant<std::nullptr_t, bool, double, std::string, JsonArray, JsonObject> value;

    template <class T>
    const T *As() const {
        return std::get_if<T>(&value);
    }
    // The member of this name; null when there is none, or this is no object.
    const JsonValue *Member(std::string_view name) const;
};
struct JsonMember {
    std::string name;
    JsonValue value;
};

// "line 3: ..."
class JsonMistake : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

JsonValue ReadJson(std::string_view document);

}  // namespace tool
