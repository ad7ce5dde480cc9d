// Bytes arrive through a pipe in pieces that the input chooses, and between the pieces values of all types
// are tried and read in one of the encodings. The same bytes in memory, where all of them are there at
// once, tell what a read must give.
//
// Byte 0 of the input chooses the encoding, byte 1 the number of steps that follow; the rest is sent.
#include <memory>

#include <kelstdmt/iolib.h>

#include "fuzzing.h"

namespace {

using fuzz::require;

template <class Value>
std::string bytes_of(Value value) {
    return std::string(reinterpret_cast<const char *>(&value), sizeof value);
}

struct Type {
    ioTryCode (*attempt)(ioStream &);
    std::string (*read)(ioStream &);
};
const Type types[] = {
    {[](ioStream &from) { return from.TryReadByte(); },
     [](ioStream &from) { return bytes_of(from.ReadByte()); }},
    {[](ioStream &from) { return from.TryReadInt(); },
     [](ioStream &from) { return bytes_of(from.ReadInt()); }},
    {[](ioStream &from) { return from.TryReadBool(); },
     [](ioStream &from) { return bytes_of(from.ReadBool()); }},
    {[](ioStream &from) { return from.TryReadReal(); },
     [](ioStream &from) { return bytes_of(from.ReadReal()); }},
    {[](ioStream &from) { return from.TryReadString(xstrNullStr); },
     [](ioStream &from) { return std::string(kel::view(from.ReadString(xstrNullStr))); }},
    {[](ioStream &from) { return from.TryReadString(" "); },
     [](ioStream &from) { return std::string(kel::view(from.ReadString(" "))); }},
};

struct Outcome {
    ioTryCode code = ioSuccess;
    std::string value;
    bool operator==(const Outcome &) const = default;
};

Outcome read_value(ioStream &stream, const Type &type) {
    try {
        return {ioSuccess, type.read(stream)};
    } catch (xthrowable *error) {
        xdelete(error);
        require(stream.getIsEof() || stream.getIsFail(), "a read failed in another way");
        return {stream.getIsEof() ? ioEndOfFile : ioFormatError, ""};
    }
}

class Conversation {
public:
    Conversation(ioSerializer *serializer, std::string bytes)
        : m_serializer(serializer), m_bytes(std::move(bytes)), m_pipe(ioPipe::Create()) {
        in().setSerializer(serializer);
    }

    void step(unsigned char choice) {
        int kind = choice % 4, detail = choice / 4;
        if (kind == 0) return send(static_cast<std::size_t>(detail) + 1);
        if (kind == 1 && detail == 63) return end();
        if (kind == 1 && detail == 62) return send(m_bytes.size());
        value(types[static_cast<std::size_t>(detail) % std::size(types)], kind == 3);
    }

    // Whatever was tried and read before: no byte is lost.
    void finish() {
        send(m_bytes.size());
        end();
        std::string rest;
        char block[97];
        try {
            for (;;)
                rest.append(block, in().ReadBytes(block, sizeof block));
        } catch (xthrowable *error) {
            xdelete(error);
        }
        require(in().getIsEof() && rest == m_bytes.substr(m_read), "bytes were lost");
    }

private:
    ioPipeStream &out() { return *kel_pipe_access::WriteStream(*m_pipe); }
    ioPipeStream &in() { return *kel_pipe_access::ReadStream(*m_pipe); }

    void send(std::size_t count) {
        count = std::min(count, m_bytes.size() - m_sent);
        if (count == 0 || m_ended) return;
        out().WriteBytes(m_bytes.data() + m_sent, static_cast<unsigned>(count));
        out().Flush();
        m_sent += count;
    }
    void end() {
        if (!m_ended) m_bytes.resize(m_sent);
        m_ended = true;
        out().Close();
    }

    // What a read gives when all the bytes are there, and where it leaves off.
    Outcome in_memory(const Type &type, std::size_t &read) {
        std::unique_ptr<ioStringStream> memory(ioStringStream::Create());
        memory->setSerializer(m_serializer);
        auto left = static_cast<unsigned>(m_bytes.size() - m_read);
        memory->WriteBytes(m_bytes.data() + m_read, left);
        Outcome outcome = read_value(*memory, type);
        memory->setIsFail(false);
        read = left - memory->PeekNBytes();
        return outcome;
    }

    void value(const Type &type, bool then_read) {
        auto arrived = static_cast<unsigned>(m_sent - m_read);
        require(in().PeekNBytes() == arrived, "the count of the bytes that arrived");
        ioTryCode code = type.attempt(in());
        require(type.attempt(in()) == code, "a second trial differs");
        require(in().PeekNBytes() == arrived && in().getIsGood(), "a trial changed the stream");
        std::unique_ptr<ioEvent> event(in().InputEvent());
        require(event->getIsSignaled() == (arrived > 0 || m_ended), "the event");
        require(code == ioSuccess || code == ioFormatError || code == ioEndOfFile ||
                    (code == ioWouldBlock && !m_ended),
                "an unexpected code");
        bool settled = m_ended || code == ioSuccess || code == ioFormatError;
        if (!settled) return;
        std::size_t read = 0;
        Outcome expected = in_memory(type, read);
        require(expected.code == code, "a trial tells what a read does");
        if (!then_read) return;
        require(read_value(in(), type) == expected, "the value");
        in().setIsFail(false);
        m_read += read;
        require(m_read <= m_sent && in().PeekNBytes() == m_sent - m_read, "the position after the value");
    }

    ioSerializer *m_serializer;
    std::string m_bytes;
    std::unique_ptr<ioPipe> m_pipe;
    std::size_t m_sent = 0, m_read = 0;
    bool m_ended = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    // More than a pipe takes would wait for a reader.
    if (size < 2 || size > 60000) return 0;
    ioSerializer *serializers[] = {ioSerializer::getAscii(), ioSerializer::getBinary(),
                                   ioSerializer::getXDR()};
    std::size_t steps = std::min<std::size_t>(data[1], size - 2);
    const std::uint8_t *choices = data + 2, *bytes = choices + steps;
    Conversation conversation(serializers[data[0] % 3], std::string(bytes, data + size));
    for (std::size_t i = 0; i < steps; ++i)
        conversation.step(choices[i]);
    conversation.finish();
    return 0;
}
