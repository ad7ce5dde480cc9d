#include <string>

#include "coding.h"
#include "coding_text.h"

namespace {

// Where the basic values go.
class Sink {
public:
    virtual ~Sink() = default;
    virtual void Int(int value) = 0;
    virtual void Bool(bool value) = 0;
    virtual void Text(const char *value) = 0;
};

class StreamSink : public Sink {
public:
    StreamSink(ioStream &stream, Progress &progress) : m_stream(stream), m_progress(progress) {}

    void Int(int value) override {
        m_stream.WriteInt(value);
        End();
    }
    void Bool(bool value) override {
        m_stream.WriteBool(value);
        End();
    }
    void Text(const char *value) override {
        m_stream.WriteString(m_text ? Quote(value, m_quoted) : value);
        End();
    }

private:
    void End() {
        if (m_text) m_stream.WriteByte('\n');
        m_progress.Step("values");
    }

    ioStream &m_stream;
    Progress &m_progress;
    const bool m_text = !m_stream.getSerializer()->getIsBinary();
    std::string m_quoted;
};

// Counts instead of writing.
class CountingSink : public Sink {
public:
    explicit CountingSink(ioSerializer *encoding)
        : m_stream(ioStringStream::Create()), m_text(!encoding->getIsBinary()) {
        m_stream->setSerializer(encoding);
    }

    void Int(int value) override { Count(m_stream->SizeOf(value)); }
    void Bool(bool value) override { Count(m_stream->SizeOf(value)); }
    void Text(const char *value) override {
        Count(m_stream->SizeOf(m_text ? Quote(value, m_quoted) : value));
    }
    long long Bytes() const { return m_bytes; }

private:
    void Count(int bytes) { m_bytes += bytes + (m_text ? 1 : 0); }

    std::unique_ptr<ioStream> m_stream;
    const bool m_text;
    std::string m_quoted;
    long long m_bytes = 0;
};

void WriteObject(Sink &sink, xobject *object);

// Recursion follows the nesting of the declared types, never the length of the data.
void WriteValue(Sink &sink, const xany &value, const char *where) {
    switch (value.getkind()) {
        case xany::Int:
            return sink.Int(value);
        case xany::Bool:
            return sink.Bool(value.getbool() != 0);
        case xany::String:
            return sink.Text(value);
        case xany::Enum:
            return sink.Int(value.getrtti()->getenumindex(value));
        case xany::Object:
            return WriteObject(sink, value);
        default:
            XBadData::Throw((std::string(where) + " holds no value that this format can carry").c_str());
    }
}

void WriteFields(Sink &sink, xobject *object, xrttistruct *type) {
    xrttifields *fields = type->getfields();
    for (int i = 0; i < fields->getmapsize(); ++i) {
        xrttifield *field = fields->getbyindex(i);
        xany value = field->get(object);
        if (field->getisoptional()) {
            sink.Bool(!value.isnil());
            if (value.isnil()) continue;
        }
        WriteValue(sink, value, field->getname());
    }
}

void WriteElements(Sink &sink, xobject *object, xrttisequence *type) {
    int count = type->getsize(object);
    sink.Int(count);
    for (int i = 0; i < count; ++i)
        WriteValue(sink, type->get(i, object), "a sequence");
}

void WriteEntries(Sink &sink, xobject *object, xrttidictionary *type) {
    xstring key;
    int slots = type->getsize(object), count = 0;
    for (int i = 0; i < slots; ++i)
        count += type->getkey(i, object, key);
    sink.Int(count);
    for (int i = 0; i < slots; ++i) {
        xany value;
        if (!type->getkey(i, object, key) || !type->get(i, object, value)) continue;
        sink.Text(key);
        WriteValue(sink, value, key);
    }
}

void WriteObject(Sink &sink, xobject *object) {
    xrtticlass *type = object->getrtti();
    if (type->isstruct())
        WriteFields(sink, object, static_cast<xrttistruct *>(type));
    else if (type->issequence())
        WriteElements(sink, object, static_cast<xrttisequence *>(type));
    else if (type->isdictionary())
        WriteEntries(sink, object, static_cast<xrttidictionary *>(type));
    else
        XBadData::Throw(
            (std::string(type->getname()) + " is of a kind that this format cannot carry").c_str());
}

void WriteAll(Sink &sink, Inventory &inventory) {
    sink.Text(header);
    WriteObject(sink, &inventory);
    sink.Text(trailer);
}

}  // namespace

void WriteInventory(ioStream &stream, Inventory &inventory, Progress &progress) {
    StreamSink sink(stream, progress);
    WriteAll(sink, inventory);
}

long long SizeOf(ioSerializer *encoding, Inventory &inventory) {
    CountingSink sink(encoding);
    WriteAll(sink, inventory);
    return sink.Bytes();
}
