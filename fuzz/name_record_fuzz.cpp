// The record of the name service. The first byte says in which pieces the reader gets the rest and under
// which limits; a reader of a few lines, which sees all at once, says what must come of it. What was read is
// written and read again.
#include <map>

#include "peer.h"

namespace {

using peer::require;

using Fields = std::map<std::string, std::string>;

enum outcome { cut, malformed, whole };

// What the bytes are, seen all at once; of sizes above their limit is also what is negative for others.
outcome judge(peer::Reader &from, const kel::name_record_limits &limits, unsigned &process, Fields &fields) {
    process = static_cast<unsigned>(from.integer());
    const int count = from.integer();
    if (!from.whole) return cut;
    if (count < 0 || count > limits.fields) return malformed;
    for (int i = 0; i < count; ++i) {
        std::string texts[2];
        for (const bool is_value : {false, true}) {
            const int size = from.integer();
            if (from.whole && (size <= 0 || size > (is_value ? limits.value : limits.name))) return malformed;
            const int length = from.integer();
            if (from.whole && (length < 0 || length >= size)) return malformed;
            if (from.whole) texts[is_value] = from.bytes(length);
            if (!from.whole) return cut;
            if (texts[is_value].find('\0') != std::string::npos) return malformed;
        }
        fields[texts[0]] = texts[1];
    }
    return whole;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    if (size == 0) return 0;
    std::uint32_t chance = bytes[0];
    const std::string_view input(reinterpret_cast<const char *>(bytes) + 1, size - 1);
    const kel::name_record_limits limits =
        chance % 2 ? kel::name_record_limits{} : kel::name_record_limits{3, 20, 9};
    peer::Reader plain{input};
    unsigned process = 0;
    Fields fields;
    const outcome expected = judge(plain, limits, process, fields);
    const std::size_t end = input.size() - plain.left.size();

    kel::name_record_reader reader(limits);
    std::size_t used = 0;
    while (used < input.size() && !reader.is_whole() && !reader.is_malformed()) {
        std::size_t count = reader.missing();
        require(count > 0, "an unfinished record misses nothing");
        if (expected == whole) require(used + count <= end, "more is missing than the record has");
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
    require(reader.missing() == 0 && used == end, "another end than is there");
    const kel::name_record record = reader.take();
    require(record.process == process && record.fields.size() == fields.size() &&
                Fields(record.fields.begin(), record.fields.end()) == fields,
            "other fields than are there");

    std::string again;
    require(kel::append_record(again, record, limits), "what was read cannot be written");
    require(reader.feed(again.data(), again.size()) == again.size() && reader.is_whole(),
            "what was written cannot be read");
    require(reader.take().fields == record.fields, "another record came back");
    return 0;
}
