// Writes JSON: an element of an array on each line, objects in one line.
//
// Every text is valid UTF-8. Where the bytes of a name or value are none, U+FFFD stands for each bad byte,
// and a member NAME_base64 behind NAME holds the bytes as they are.
#pragma once

#include <iosfwd>
#include <string>
#include <string_view>

namespace tool {

class JsonWriter {
public:
    explicit JsonWriter(std::ostream &out) : m_out(out) {}

    JsonWriter &BeginObject();
    JsonWriter &EndObject();
    JsonWriter &BeginArray();
    JsonWriter &EndArray();
    JsonWriter &Name(std::string_view name);  // of the member that comes next; text of our own

    JsonWriter &Text(std::string_view text);
    JsonWriter &Integer(long long number);
    JsonWriter &Real(double number);  // what JSON has no number for is "nan", "inf" or "-inf"
    JsonWriter &Boolean(bool value);
    JsonWriter &Null();

    // A member that holds bytes, in one or two members.
    JsonWriter &Bytes(std::string_view name, std::string_view bytes);

    void EndDocument();

private:
    void Value(std::string_view text);
    void Separate();
    void Open(char bracket);
    void Close(char bracket);

    std::ostream &m_out;
    std::string m_open;  // the brackets
    bool m_first = true, m_named = false;
};

}  // namespace tool
