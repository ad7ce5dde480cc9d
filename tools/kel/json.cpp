#include "json.h"

#include <cmath>
#include <iostream>
#include <optional>

#include "failure.h"
#include "text.h"

namespace tool {

namespace {

std::string Repaired(std::string_view bytes) {
    std::string text;
    while (!bytes.empty()) {
        const std::size_t length = Utf8Length(bytes);
        text += length ? bytes.substr(0, length) : "\xEF\xBF\xBD";
        bytes.remove_prefix(length ? length : 1);
    }
    return text;
}

const std::string *TextIn(const Json &object, const std::string &name) {
    const auto member = object.find(name);
    return member == object.end() ? nullptr : member->get_ptr<const std::string *>();
}

}  // namespace

void PutBytes(Json &object, const std::string &name, std::string_view bytes) {
    object[name] = Repaired(bytes);
    if (!IsUtf8(bytes)) object[name + "_base64"] = Base64(bytes);
}

std::string BytesOf(const Json &object, const std::string &name) {
    if (object.contains(name + "_base64")) {
        const std::string *coded = TextIn(object, name + "_base64");
        std::optional<std::string> bytes = coded ? FromBase64(*coded) : std::nullopt;
        if (!bytes) throw Failure(name + "_base64 is not base64");
        return *bytes;
    }
    const std::string *text = TextIn(object, name);
    if (!text) throw Failure("a text \"" + name + "\" is missing");
    return *text;
}

Json NumberOf(double number) {
    return std::isfinite(number) ? Json(number) : Json(NumberText(number));
}

Json ReadJson(std::string_view document) {
    try {
        return Json::parse(document);
    } catch (const Json::exception &error) {
        // In front of what it says stands the library's own name for the error.
        const std::string_view what = error.what();
        throw Failure(Printable(what.substr(what.find(']') + 2)));
    }
}

void PrintJson(const Json &document) {
    std::cout << document.dump(2) << '\n';
}

}  // namespace tool
