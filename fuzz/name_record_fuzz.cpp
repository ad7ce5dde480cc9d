// The record of the name service. The first byte says in which pieces the reader gets the rest and under
// which limits; a reader of a few lines, which sees all at once, says what must come of it. What was read is
// written and read again.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>

#include <kelstdmt/vumrt_names.h>

namespace {

void require(bool holds, const char *what) {
    if (holds) return;
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

using Fields = std::map<std::string, std::string>;

// Throws Cut when the bytes end within the record, Malformed when they are none.
class PlainReader {
public:
    struct Cut {};
    struct Malformed {};

    PlainReader(std::string_view bytes, const kel::name_record_limits &limits)
        : m_bytes(bytes), m_limits(limits) {}

    void read() {
        process = number();
        const std::uint32_t count = number();
        if (count > static_cast<std::uint32_t>(m_limits.fields)) throw Malformed();
        for (std::uint32_t i = 0; i < count; ++i) {
            const std::string name = text(m_limits.name);
            fields[name] = text(m_limits.value);
        }
    }
    std::size_t position() const { return m_at; }

    std::uint32_t process = 0;
    Fields fields;

private:
    std::string take(std::size_t count) {
        if (m_bytes.size() - m_at < count) throw Cut();
        m_at += count;
        return std::string(m_bytes.substr(m_at - count, count));
    }
    std::uint32_t number() {
        std::uint32_t value = 0;
        for (const char byte : take(4))
            value = value * 256 + static_cast<unsigned char>(byte);
        return value;
    }
    // Above the limit is also what is negative for others.
    std::string text(int limit) {
        const std::uint32_t size = number();
        if (size > static_cast<std::uint32_t>(limit) || size == 0) throw Malformed();
        const std::uint32_t length = number();
        if (length + 1 > size || length == UINT32_MAX) throw Malformed();
        const std::string found = take(length);
        if (found.find('\0') != std::string::npos) throw Malformed();
        return found;
    }

    std::string_view m_bytes;
    kel::name_record_limits m_limits;
    std::size_t m_at = 0;
};

Fields fields_of(const kel::name_record &record) {
    Fields fields(record.fields.begin(), record.fields.end());
    require(fields.size() == record.fields.size(), "a name stands twice");
    for (const auto &[name, value] : fields)
        require(record.find(name) && *record.find(name) == value, "a field is not found");
    return fields;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    if (size == 0) return 0;
    std::uint32_t chance = bytes[0];
    const std::string_view input(reinterpret_cast<const char *>(bytes) + 1, size - 1);
    const kel::name_record_limits limits =
        chance % 2 ? kel::name_record_limits{} : kel::name_record_limits{3, 20, 9};
    PlainReader plain(input, limits);
    enum { whole, cut, malformed } expected = whole;
    try {
        plain.read();
    } catch (PlainReader::Cut) {
        expected = cut;
    } catch (PlainReader::Malformed) {
        expected = malformed;
    }

    kel::name_record_reader reader(limits);
    std::size_t used = 0;
    while (used < input.size() && !reader.is_whole() && !reader.is_malformed()) {
        std::size_t count = reader.missing();
        require(count > 0, "an unfinished record misses nothing");
        if (expected == whole)
            require(used + count <= plain.position(), "more is missing than the record has");
        chance = chance * 1103515245 + 12345;
        // Otherwise the piece is what the reader asked for.
        if (bytes[0] % 4) count = 1 + (chance >> 16) % (bytes[0] % 4 == 1 ? 3 : 100);
        // A copy of its own size shows a read beyond its end.
        const std::string piece(input.substr(used, count));
        const std::size_t taken = reader.feed(std::string(piece).data(), piece.size());
        require(taken == piece.size() || reader.is_whole() || reader.is_malformed(), "bytes were left");
        used += taken;
    }
    require(reader.is_whole() == (expected == whole), "another record than is there");
    require(reader.is_malformed() == (expected == malformed), "another judgement than is due");
    if (expected != whole) return 0;
    require(reader.missing() == 0 && used == plain.position(), "another end than is there");
    const kel::name_record record = reader.take();
    require(record.process == plain.process && fields_of(record) == plain.fields,
            "other fields than are there");

    std::string again = "before";
    require(kel::append_record(again, record, limits), "what was read cannot be written");
    require(reader.feed(again.data() + 6, again.size() - 6) == again.size() - 6 && reader.is_whole(),
            "what was written cannot be read");
    const kel::name_record copy = reader.take();
    require(copy.process == record.process && copy.fields == record.fields, "another record came back");
    return 0;
}
