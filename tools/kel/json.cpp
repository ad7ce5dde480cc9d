#include "json.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ostream>

#include "text.h"

namespace tool {

namespace {

std::string Quoted(std::string_view text) {
    std::string quoted = "\"";
    while (!text.empty()) {
        std::size_t length = Utf8Length(text);
        std::string_view character = text.substr(0, length ? length : 1);
        text.remove_prefix(character.size());
        if (!length) {
            quoted += "\xEF\xBF\xBD";
        } else if (character == "\"" || character == "\\") {
            (quoted += '\\') += character;
        } else if (static_cast<unsigned char>(character[0]) < 0x20 || character[0] == 0x7F) {
            char escape[7];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(character[0]));
            quoted += escape;
        } else {
            quoted += character;
        }
    }
    return quoted += '"';
}

}  // namespace

void JsonWriter::Separate() {
    if (m_named) {
        m_named = false;
        return;
    }
    if (!m_first) m_out << ',';
    if (!m_open.empty() && m_open.back() == '[') {
        auto depth = std::count(m_open.begin(), m_open.end(), '[');
        m_out << '\n' << std::string(static_cast<std::size_t>(2 * depth), ' ');
    } else if (!m_first) {
        m_out << ' ';
    }
}

void JsonWriter::Value(std::string_view text) {
    Separate();
    m_out << text;
    m_first = false;
}

void JsonWriter::Open(char bracket) {
    Value({&bracket, 1});
    m_open += bracket;
    m_first = true;
}

void JsonWriter::Close(char bracket) {
    bool empty = m_first;
    m_open.pop_back();
    m_first = false;
    if (bracket == ']' && !empty) {
        auto depth = std::count(m_open.begin(), m_open.end(), '[');
        m_out << '\n' << std::string(static_cast<std::size_t>(2 * depth), ' ');
    }
    m_out << bracket;
}

JsonWriter &JsonWriter::BeginObject() {
    Open('{');
    return *this;
}

JsonWriter &JsonWriter::EndObject() {
    Close('}');
    return *this;
}

JsonWriter &JsonWriter::BeginArray() {
    Open('[');
    return *this;
}

JsonWriter &JsonWriter::EndArray() {
    Close(']');
    return *this;
}

JsonWriter &JsonWriter::Name(std::string_view name) {
    Separate();
    m_out << Quoted(name) << ": ";
    m_named = true;
    return *this;
}

JsonWriter &JsonWriter::Text(std::string_view text) {
    Value(Quoted(text));
    return *this;
}

JsonWriter &JsonWriter::Integer(long long number) {
    Value(std::to_string(number));
    return *this;
}

JsonWriter &JsonWriter::Real(double number) {
    if (!std::isfinite(number)) return Text(NumberText(number));
    Value(NumberText(number));
    return *this;
}

JsonWriter &JsonWriter::Boolean(bool value) {
    Value(value ? "true" : "false");
    return *this;
}

JsonWriter &JsonWriter::Null() {
    Value("null");
    return *this;
}

JsonWriter &JsonWriter::Bytes(std::string_view name, std::string_view bytes) {
    Name(name).Text(bytes);
    if (!IsUtf8(bytes)) Name(std::string(name) + "_base64").Text(Base64(bytes));
    return *this;
}

void JsonWriter::EndDocument() {
    m_out << '\n';
}

}  // namespace tool
