#include "json_reader.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <utility>

#include "text.h"

namespace tool {

namespace {

constexpr int greatest_depth = 100;  // of arrays and objects; the reader calls itself for each

void AppendUtf8(std::string &text, std::uint32_t code) {
    auto add = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
    if (code < 0x80) {
        add(code);
    } else if (code < 0x800) {
        add(0xC0 | code >> 6);
        add(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        add(0xE0 | code >> 12);
        add(0x80 | (code >> 6 & 0x3F));
        add(0x80 | (code & 0x3F));
    } else {
        add(0xF0 | code >> 18);
        add(0x80 | (code >> 12 & 0x3F));
        add(0x80 | (code >> 6 & 0x3F));
        add(0x80 | (code & 0x3F));
    }
}

class Reader {
public:
    explicit Reader(std::string_view document) : m_all(document), m_rest(document) {}

    JsonValue Document() {
        JsonValue value = Value(0);
        Skip();
        if (!m_rest.empty()) Fail("something follows the value");
        return value;
    }

private:
    [[noreturn]] void Fail(const char *mistake) const {
        std::string_view read = m_all.substr(0, m_all.size() - m_rest.size());
        auto line = 1 + std::count(read.begin(), read.end(), '\n');
        throw JsonMistake("line " + std::to_string(line) + ": " + mistake);
    }

    void Skip() { m_rest.remove_prefix(std::min(m_rest.find_first_not_of(" \t\r\n"), m_rest.size())); }
    char Peek() const { return m_rest.empty() ? '\0' : m_rest[0]; }
    bool Take(std::string_view text) {
        if (!m_rest.starts_with(text)) return false;
        m_rest.remove_prefix(text.size());
        return true;
    }
    // After blanks, exactly this.
    void Need(char c, const char *mistake) {
        Skip();
        if (!Take({&c, 1})) Fail(mistake);
    }

    JsonValue Value(int depth) {
        if (depth > greatest_depth) Fail("nested too deeply");
        Skip();
        if (Take("null")) return {nullptr};
        if (Take("true")) return {true};
        if (Take("false")) return {false};
        switch (Peek()) {
            case '"':
                return {Text()};
            case '[':
                return {Array(depth)};
            case '{':
                return {Object(depth)};
            default:
                return {Number()};
        }
    }

    JsonArray Array(int depth) {
        JsonArray elements;
        Take("[");
        Skip();
        if (Take("]")) return elements;
        do
            elements.push_back(Value(depth + 1));
        while (Skip(), Take(","));
        Need(']', "a comma or ] is missing");
        return elements;
    }

    JsonObject Object(int depth) {
        JsonObject members;
        Take("{");
        Skip();
        if (Take("}")) return members;
        do {
            Skip();
            if (Peek() != '"') Fail("the name of a member is missing");
            std::string name = Text();
            Need(':', "a colon is missing");
            members.push_back({std::move(name), Value(depth + 1)});
        } while (Skip(), Take(","));
        Need('}', "a comma or } is missing");
        return members;
    }

    double Number() {
        std::size_t length = std::min(m_rest.find_first_not_of("+-.0123456789eE"), m_rest.size());
        std::string_view digits = m_rest.substr(0, length);
        std::string_view unsigned_digits = digits.substr(digits.starts_with('-') ? 1 : 0);
        bool leading_zero = unsigned_digits.size() > 1 && unsigned_digits[0] == '0' &&
                            unsigned_digits[1] >= '0' && unsigned_digits[1] <= '9';
        bool begins = !unsigned_digits.empty() && unsigned_digits[0] >= '0' && unsigned_digits[0] <= '9';
        std::size_t point = digits.find('.');
        bool bare_point = point != std::string_view::npos &&
                          (point + 1 == digits.size() || digits[point + 1] < '0' || digits[point + 1] > '9');
        double number = 0;
        auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
        if (!begins || leading_zero || bare_point || end != digits.data() + digits.size()) Fail("no value");
        if (error != std::errc()) Fail("a number beyond the range");
        m_rest.remove_prefix(length);
        return number;
    }

    std::string Text() {
        std::string text;
        Take("\"");
        while (true) {
            if (m_rest.empty()) Fail("a text without an end");
            if (Take("\"")) return text;
            if (Take("\\")) {
                Escape(text);
                continue;
            }
            std::size_t length = Utf8Length(m_rest);
            if (!length) Fail("a text that is no UTF-8");
            if (static_cast<unsigned char>(m_rest[0]) < 0x20) Fail("a control character in a text");
            text += m_rest.substr(0, length);
            m_rest.remove_prefix(length);
        }
    }

    void Escape(std::string &text) {
        constexpr std::string_view letters = "\"\\/bfnrt", meanings = "\"\\/\b\f\n\r\t";
        if (Take("u")) {
            std::uint32_t code = Unit();
            if (code >= 0xD800 && code < 0xDC00) {
                std::uint32_t low = Take("\\u") ? Unit() : 0;
                if (low < 0xDC00 || low >= 0xE000) Fail("half a surrogate pair");
                code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
            } else if (code >= 0xDC00 && code < 0xE000) {
                Fail("half a surrogate pair");
            }
            AppendUtf8(text, code);
            return;
        }
        std::size_t letter = m_rest.empty() ? std::string_view::npos : letters.find(m_rest[0]);
        if (letter == std::string_view::npos) Fail("an unknown escape in a text");
        text += meanings[letter];
        m_rest.remove_prefix(1);
    }

    std::uint32_t Unit() {
        std::uint32_t unit = 0;
        if (m_rest.size() < 4) Fail("\\u without four digits");
        auto [end, error] = std::from_chars(m_rest.data(), m_rest.data() + 4, unit, 16);
        if (error != std::errc() || end != m_rest.data() + 4) Fail("\\u without four digits");
        m_rest.remove_prefix(4);
        return unit;
    }

    std::string_view m_all, m_rest;
};

}  // namespace

const JsonValue *JsonValue::Member(std::string_view name) const {
    const JsonObject *object = As<JsonObject>();
    if (!object) return nullptr;
    for (const auto &[known, member] : *object)
        if (known == name) return &member;
    return nullptr;
}

JsonValue ReadJson(std::string_view document) {
    return Reader(document).Document();
}

}  // namespace tool
