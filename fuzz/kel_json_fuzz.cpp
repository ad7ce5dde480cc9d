// The JSON that kel imports: whatever is read is written and read again, and must be the same.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>

#include "../tools/kel/json.cpp"
#include "../tools/kel/json_reader.cpp"
#include "../tools/kel/text.cpp"

namespace {

struct Writer {
    tool::JsonWriter &json;

    void operator()(std::nullptr_t) { json.Null(); }
    void operator()(bool value) { json.Boolean(value); }
    void operator()(double number) { json.Real(number); }
    void operator()(const std::string &text) { json.Text(text); }
    void operator()(const tool::JsonArray &elements) {
        json.BeginArray();
        for (const tool::JsonValue &element : elements)
            std::visit(*this, element.value);
        json.EndArray();
    }
    void operator()(const tool::JsonObject &members) {
        json.BeginObject();
        for (const auto &[name, member] : members) {
            json.Name(name);
            std::visit(*this, member.value);
        }
        json.EndObject();
    }
};

std::string Written(const tool::JsonValue &value) {
    std::ostringstream out;
    tool::JsonWriter json(out);
    std::visit(Writer{json}, value.value);
    return out.str();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::string_view bytes(reinterpret_cast<const char *>(data), size);
    if (tool::FromBase64(tool::Base64(bytes)) != bytes) std::abort();
    if (!tool::IsUtf8(tool::Printable(bytes))) std::abort();
    try {
        std::string once = Written(tool::ReadJson(bytes));
        if (Written(tool::ReadJson(once)) != once) std::abort();
    } catch (const tool::JsonMistake &) {
    }
    return 0;
}
