#include "journal.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include <kelstdmt/vumrt.h>

namespace kel::detail {

namespace {

constexpr std::string_view family = "kelstdmt names ";
constexpr std::string_view header = "kelstdmt names 1\n";
constexpr char added = '+', removed = '-';
constexpr std::size_t int_size = 4, number_size = 8;
constexpr std::size_t entry_head = 2 * int_size;       // the body's length, and the checksum
constexpr std::size_t add_head = 1 + 2 * number_size;  // kind, number and birth
constexpr std::size_t largest_body = 1 << 18;          // beyond what the limits of a record allow
constexpr int owner_alone = 0600;
constexpr long long small_journal = 1 << 20;  // bytes that are not worth compacting

constexpr auto checksums = [] {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
        std::uint32_t sum = byte;
        for (int bit = 0; bit < 8; ++bit)
            sum = sum >> 1 ^ (sum & 1 ? 0xEDB88320u : 0);
        table[byte] = sum;
    }
    return table;
}();

// CRC-32 as in zlib.
std::uint32_t checksum(std::string_view bytes) noexcept {
    std::uint32_t sum = ~0u;
    for (char byte : bytes)
        sum = sum >> 8 ^ checksums[(sum ^ static_cast<unsigned char>(byte)) & 0xFF];
    return ~sum;
}

void append_number(std::string &to, std::uint64_t number) {
    append_int(to, static_cast<int>(number >> 32));
    append_int(to, static_cast<int>(number));
}
std::uint64_t number_at(const char *bytes) noexcept {
    return static_cast<std::uint64_t>(static_cast<std::uint32_t>(int_at(bytes))) << 32 |
           static_cast<std::uint32_t>(int_at(bytes + int_size));
}

void append_entry(std::string &to, std::string_view body) {
    append_int(to, static_cast<int>(body.size()));
    append_int(to, static_cast<int>(checksum(body)));
    to += body;
}
// Whether a whole entry begins somewhere behind the first byte: a tail in which one does was not cut off
// while it was written, whatever length its first entry claims.
bool holds_entry(std::string_view tail) noexcept {
    for (std::size_t at = 1; at + entry_head < tail.size(); ++at) {
        const char kind = tail[at + entry_head];
        const auto length = static_cast<std::uint32_t>(int_at(tail.data() + at));
        if ((kind != added && kind != removed) || length > tail.size() - at - entry_head) continue;
        const auto sum = static_cast<std::uint32_t>(int_at(tail.data() + at + int_size));
        if (checksum(tail.substr(at + entry_head, length)) == sum) return true;
    }
    return false;
}
void append_added(std::string &to, const stored_record &record, unsigned long long birth) {
    std::string body(1, added);
    append_number(body, record.number);
    append_number(body, birth);
    body += record.bytes;
    append_entry(to, body);
}
long long live_size(const record_store &store) noexcept {
    const std::size_t bytes = header.size() + store.bytes() + store.size() * (entry_head + add_head);
    return static_cast<long long>(bytes);
}

// False when the body is none, although its checksum is right.
bool replay(std::string_view body, journal_records &records) {
    if (body.size() < 1 + number_size) return false;
    const std::uint64_t number = number_at(body.data() + 1);
    if (body[0] == removed && body.size() == 1 + number_size) return records.erase(number) == 1;
    if (body[0] != added || body.size() < add_head || number == 0 || number > UINT64_MAX / 2) return false;
    name_record_reader reader;
    const std::string_view packed = body.substr(add_head);
    if (reader.feed(packed.data(), packed.size()) != packed.size() || !reader.is_whole()) return false;
    return records
        .try_emplace(number, journal_record{number_at(body.data() + 1 + number_size), reader.take()})
        .second;
}

// The file, of which as much is in memory as the reading of one entry takes.
class window {
public:
    explicit window(int descriptor) noexcept : m_descriptor(descriptor) {}

    // At least that many bytes from the position on, or all that there are. Null when they cannot be read.
    std::optional<std::string_view> at_least(std::size_t count) {
        if (m_bytes.size() - m_begin < count) {
            m_bytes.erase(0, std::exchange(m_begin, 0));
            const std::size_t had = m_bytes.size(), wanted = std::max(count, piece);
            m_bytes.resize(wanted);
            const long long got = File_ReadAt(m_descriptor, m_bytes.data() + had, wanted - had,
                                              m_position + static_cast<long long>(had));
            if (got < 0) return std::nullopt;
            m_bytes.resize(had + static_cast<std::size_t>(got));
        }
        return std::string_view(m_bytes).substr(m_begin);
    }
    void advance(std::size_t count) noexcept {
        m_begin += count;
        m_position += static_cast<long long>(count);
    }
    long long position() const noexcept { return m_position; }

private:
    static constexpr std::size_t piece = 1 << 20;

    int m_descriptor;
    std::string m_bytes;
    std::size_t m_begin = 0;
    long long m_position = 0;
};

bool copy_file(int from, const std::string &path) {
    btkFileBuf copy;
    if (!copy.Open(path.c_str(), btkFileBuf::Out | btkFileBuf::Truncate, owner_alone)) return false;
    window file(from);
    for (;;) {
        const auto bytes = file.at_least(1);
        if (!bytes) return false;
        if (bytes->empty()) return copy.pubsync() == 0 && File_Sync(copy.GetHandle()) && copy.Close();
        const auto count = static_cast<std::streamsize>(bytes->size());
        if (copy.sputn(bytes->data(), count) != count) return false;
        file.advance(bytes->size());
    }
}

bool is_folder(const std::string &path) {
    std::error_code ignored;
    return std::filesystem::is_directory(btkHostPath(path.c_str()), ignored);
}

std::string last_error(const std::string &what, const std::string &path) {
    return what + " " + path + ": " + Error_GetText(Error_GetLast());
}

}  // namespace

// Reading --------------------------------------------------------------------------------------

bool journal::open(const std::string &path, journal_records &records, std::string &error) {
    constexpr int locked = 33;
    m_path = path;
    if (m_file.Open(path.c_str(), btkFileBuf::In | btkFileBuf::Out, owner_alone, 0)) {
        error = Error_GetLast() == locked ? "the journal " + path + " is in use by another name server"
                : is_folder(path)         ? "the journal " + path + " is a folder; name a file in it"
                                          : last_error("cannot open the journal", path);
        return false;
    }
    if (!read(records, error)) return false;
    m_compact_at = small_journal;
    m_sync = std::make_unique<delayed_sync>(m_file.GetHandle(), m_log);
    return true;
}

bool journal::read(journal_records &records, std::string &error) {
    window file(m_file.GetHandle());
    auto bytes = file.at_least(header.size());
    if (bytes && header.starts_with(*bytes) && bytes->size() < header.size()) {
        if (!File_Truncate(m_file.GetHandle(), 0) || !append(std::string(header))) {
            error = last_error("cannot write the journal", m_path);
            return false;
        }
        return true;
    }
    if (bytes && !bytes->starts_with(header)) {
        error = m_path +
                (bytes->starts_with(family) ? " is the journal of a newer name server"
                                            : " is no journal of a name server") +
                "; it is left alone";
        return false;
    }
    if (bytes) file.advance(header.size());
    while (bytes && (bytes = file.at_least(entry_head)) && !bytes->empty()) {
        if (bytes->size() < entry_head) return cut(file.position(), true, error);
        const auto length = static_cast<std::uint32_t>(int_at(bytes->data()));
        const auto sum = static_cast<std::uint32_t>(int_at(bytes->data() + int_size));
        if (length > largest_body) return cut(file.position(), false, error);
        bytes = file.at_least(entry_head + length);
        if (!bytes) break;
        const bool is_cut = bytes->size() < entry_head + length;
        const bool is_torn = is_cut && !holds_entry(*bytes);
        const std::string_view body = bytes->substr(entry_head, length);
        if (is_cut || checksum(body) != sum || !replay(body, records))
            return cut(file.position(), is_torn, error);
        file.advance(entry_head + length);
    }
    m_end = file.position();
    if (!bytes) error = last_error("cannot read the journal", m_path);
    return bytes.has_value();
}

bool journal::cut(long long end, bool is_torn, std::string &error) {
    const std::string copy = m_path + ".damaged", at = " at byte " + std::to_string(end);
    if (!is_torn && !copy_file(m_file.GetHandle(), copy)) {
        error = "the journal " + m_path + " is damaged" + at + "; " + last_error("cannot copy it to", copy);
        return false;
    }
    if (!File_Truncate(m_file.GetHandle(), end)) {
        error = last_error("cannot mend the journal", m_path);
        return false;
    }
    m_log("the journal " + m_path +
          (is_torn ? " ended in an unfinished entry" + at + ", which is dropped"
                   : " is damaged" + at + ": what follows is dropped; " + copy + " is a copy as it was"));
    m_end = end;
    return true;
}

// Writing --------------------------------------------------------------------------------------

bool journal::append(const std::string &entries) {
    const auto count = static_cast<long long>(entries.size());
    if (File_WriteAt(m_file.GetHandle(), entries.data(), entries.size(), m_end) == count) {
        if (std::exchange(m_has_failed, false)) m_log("the journal is written again");
        m_end += count;
        if (m_sync) m_sync->written();
        return true;
    }
    const int reason = Error_GetLast();
    // What was written in part would otherwise pass for damage.
    File_Truncate(m_file.GetHandle(), m_end);
    if (m_sync && !std::exchange(m_has_failed, true))
        m_log("the journal " + m_path +
              " cannot be written, and changes are refused: " + Error_GetText(reason));
    Error_SetLast(reason);
    return false;
}

bool journal::add(const stored_record &record, unsigned long long birth) {
    std::string entry;
    append_added(entry, record, birth);
    return append(entry);
}

bool journal::remove(const record_refs &records) {
    std::string entries;
    for (const record_ref &record : records) {
        std::string body(1, removed);
        append_number(body, record->number);
        append_entry(entries, body);
    }
    return append(entries);
}

void journal::compact(record_store &store, const births &birth_of) {
    if (m_end <= m_compact_at || m_end <= 2 * live_size(store)) return;
    std::string bytes(header);
    bytes.reserve(static_cast<std::size_t>(live_size(store)));
    for (const record_ref &record : store.all())
        append_added(bytes, *record, record->process ? birth_of(record->process) : 0);
    if (m_file.Replace(bytes)) {
        m_end = static_cast<long long>(bytes.size());
        m_compact_at = small_journal;
        return;
    }
    m_log(last_error("cannot replace the journal, which goes on growing,", m_path));
    m_compact_at = 2 * m_end;
}

}  // namespace kel::detail
