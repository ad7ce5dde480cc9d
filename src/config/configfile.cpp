// Configuration files: read whole when opened, written whole when closed after a change. What SetValue takes
// is what the next Open gives; anything that lines of NAME:VALUE cannot hold is refused, not bent.
#include <kelstdmt/configfile.h>
#include <kelstdmt/strlib.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <exception>
#include <iterator>
#include <memory>
#include <numeric>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

constexpr int access_denied = 5, no_memory = 8, invalid_data = 13, invalid_argument = 87;

bool refuse(int reason) {
    Error_SetLast(reason);
    return false;
}

// A name without its blanks and tabs, copied only when it has some; it must outlive this.
class pressed_name {
public:
    explicit pressed_name(const char *name) : m_copy(StrPress(name)), m_text(m_copy ? m_copy.get() : name) {}
    bool IsEmpty() const { return !kel::is_text(m_text) || *m_text == 0; }
    const char *Text() const { return m_text; }

private:
    struct release {
        void operator()(char *text) const { ::operator delete(text); }
    };
    std::unique_ptr<char, release> m_copy;
    const char *m_text;
};

bool has_any(std::string_view text, std::string_view bytes) {
    return text.find_first_of(bytes) != text.npos;
}

// All of the file, however long it says to be: it may shrink or grow. Whatever it holds, what is read stops
// at the first block with a NUL, so that a file of holes does not fill the memory.
bool read_whole(lockFileBuf &file, std::string &text) {
    constexpr long long least_block = 1 << 16, largest_block = 1 << 24;
    const long long told = File_GetSize(file.GetHandle());
    const auto block = static_cast<std::size_t>(std::clamp(told + 1, least_block, largest_block));
    for (std::size_t got = block; got == block;) {
        const std::size_t before = text.size();
        text.resize(before + block);
        got = static_cast<std::size_t>(file.sgetn(text.data() + before, static_cast<std::streamsize>(block)));
        text.resize(before + got);
        if (std::memchr(text.data() + before, 0, got)) return refuse(invalid_data);
    }
    return true;
}

// Fewer bytes than asked are the end or a failure; only the last error knows.
bool read_unbroken(lockFileBuf &file, std::string &text) {
    const int earlier = Error_GetLast();
    Error_SetLast(0);
    if (!read_whole(file, text) || Error_GetLast() != 0) return false;
    Error_SetLast(earlier);
    return true;
}

// A line: where its name begins in the text, ended by a NUL, behind which the value begins, which also ends
// with one. A line finds its place by eight bytes of the name at a time, taken as a number, so that the
// texts, which lie far apart, are seldom looked at.
struct config_line {
    const char *name;  // null when a later line has the same name
    std::uint64_t word;

    void ReadWord(std::size_t from) {
        word = 0;
        const char *at = name + from;
        for (int shift = 56; shift >= 0 && *at; shift -= 8)
            word |= std::uint64_t{static_cast<unsigned char>(*at++)} << shift;
    }
    unsigned Byte(unsigned place) const { return word >> 8 * place & 0xFF; }  // 0: the last
    bool EndsInWord() const { return Byte(0) == 0; }
    const char *Value() const { return name + std::strlen(name) + 1; }
    bool operator<(const config_line &other) const {
        return word != other.word ? word < other.word : name < other.name;
    }
};
using config_lines = std::span<config_line>;

// In the order of the text, whose bytes are made into names and values.
std::vector<config_line> split_lines(std::string &text) {
    std::vector<config_line> lines;
    lines.reserve(static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1);
    auto is_blank = [](char byte) { return byte == ' ' || byte == '\t'; };
    for (char *at = text.data(), *end = at + text.size(), *stop; at < end; at = stop + 1) {
        auto find = [at](char byte, char *last) {
            return static_cast<char *>(std::memchr(at, byte, static_cast<std::size_t>(last - at)));
        };
        stop = find('\n', end);
        if (!stop) stop = end;
        char *colon = find(':', stop);
        if (!colon) continue;
        // What is kept moves up to the colon.
        char *name = std::remove_if(std::reverse_iterator(colon), std::reverse_iterator(at), is_blank).base();
        *colon = *stop = 0;
        if (name < colon) lines.push_back({name, 0});
    }
    return lines;
}

// Lines of equal words stay in the order of the text. Many are not compared, for the processor cannot foresee
// how that turns out, but dealt out by each byte from the last to the first.
void sort_by_word(config_lines lines, std::vector<config_line> &spare) {
    constexpr std::size_t many = 256;
    constexpr unsigned word_bytes = 8;
    if (std::is_sorted(lines.begin(), lines.end())) return;
    if (lines.size() < many) return std::sort(lines.begin(), lines.end());
    std::array<std::array<std::size_t, 256>, word_bytes> places{};
    for (const config_line &line : lines)
        for (unsigned byte = 0; byte < word_bytes; ++byte)
            ++places[byte][line.Byte(byte)];
    spare.resize(std::max(spare.size(), lines.size()));
    config_lines from = lines, to(spare.data(), lines.size());
    for (unsigned byte = 0; byte < word_bytes; ++byte) {
        auto &place = places[byte];
        if (place[from[0].Byte(byte)] == lines.size()) continue;  // all have the same
        std::exclusive_scan(place.begin(), place.end(), place.begin(), std::size_t{0});
        for (const config_line &line : from)
            to[place[line.Byte(byte)]++] = line;
        std::swap(from, to);
    }
    if (from.data() != lines.data()) std::copy(from.begin(), from.end(), lines.begin());
}

// In ascending order of the names. Only where lines are equal in one word, the next is looked at.
void sort_lines(config_lines lines) {
    struct part {
        config_lines lines;
        std::size_t from;  // bytes of the names that are equal
    };
    std::vector<config_line> spare;
    for (std::vector<part> parts{{lines, 0}}; !parts.empty();) {
        const auto [equal, from] = parts.back();
        parts.pop_back();
        for (config_line &line : equal)
            line.ReadWord(from);
        sort_by_word(equal, spare);
        for (std::size_t begin = 0, end = 0; begin < equal.size(); begin = end) {
            const config_line first = equal[begin];
            while (++end < equal.size() && equal[end].word == first.word)
                if (first.EndsInWord()) equal[end - 1].name = nullptr;
            if (end - begin > 1 && !first.EndsInWord())
                parts.push_back({equal.subspan(begin, end - begin), from + sizeof first.word});
        }
    }
}

}  // namespace

ovkConfigFile::ovkConfigFile() = default;

ovkConfigFile::~ovkConfigFile() {
    Close();
    DeleteNodes();
}

// Opening and closing --------------------------------------------------------------------------

bool ovkConfigFile::Open(const char *file_name, OpenMode mode) {
    const bool written = Close();
    m_modified = false;
    m_mode = mode;
    if (!written) return false;
    const int access = mode == ReadOnly ? lockFileBuf::In : lockFileBuf::In | lockFileBuf::Out;
    try {
        auto file = std::make_unique<lockFileBuf>();
        if (file->Open(kel::is_text(file_name) ? file_name : xstrNullStr, access) || !Load(*file))
            return false;
        m_file = std::move(file);
        return true;
    } catch (const std::exception &) {
        DeleteNodes();
        return refuse(no_memory);
    }
}

bool ovkConfigFile::Load(lockFileBuf &file) {
    std::string text;
    if (!read_unbroken(file, text)) return false;
    const bool has_defaults = !IsEmpty();
    std::vector<config_line> lines = split_lines(text);
    sort_lines(lines);
    if (!has_defaults) {  // memory for all at once
        Resize(static_cast<unsigned>(lines.size()));
        Resize(0);
    }
    for (const config_line &line : lines) {
        if (!line.name) continue;
        xstring value = *line.Value() ? xstring(line.Value()) : xstring();
        if (has_defaults) {
            AddNode(line.name, std::move(value));
        } else {
            InsertNode(line.name, std::move(value));
        }
    }
    return true;
}

bool ovkConfigFile::Close() {
    if (!m_file) return true;
    bool written = true;
    try {
        written = !m_modified || Save();
    } catch (const std::exception &) {
        written = refuse(no_memory);
    }
    const int reason = Error_GetLast();
    DeleteNodes();
    m_file.reset();
    m_modified = false;
    Error_SetLast(reason);
    return written;
}

bool ovkConfigFile::Save() {
    std::size_t size = 0;
    for (const auto &entry : *this)
        size += kel::view(entry.value->name).size() + kel::view(entry.value->value).size() + 2;
    std::string text;
    text.reserve(size);
    for (const auto &entry : *this)
        text.append(kel::view(entry.value->name)).append(1, ':').append(kel::view(entry.value->value)) +=
            '\n';
    return m_file->Replace(text);
}

// Entries --------------------------------------------------------------------------------------

xstring ovkConfigFile::GetValue(const char *name) const {
    const pressed_name key(name);
    const auto *entry = key.IsEmpty() ? nullptr : Locate(key.Text());
    return entry ? entry->value->value : xstring();
}

bool ovkConfigFile::SetValue(const char *name, const char *value) {
    if (m_mode == ReadOnly) return refuse(access_denied);
    const pressed_name key(name);
    xstring text;
    if (kel::is_text(value)) text = value;
    if (key.IsEmpty() || has_any(key.Text(), ":\n") || has_any(text, "\n")) return refuse(invalid_argument);
    AddNode(key.Text(), std::move(text));
    m_modified = true;
    return true;
}

bool ovkConfigFile::DeleteValue(const char *name) {
    if (m_mode == ReadOnly) return refuse(access_denied);
    const pressed_name key(name);
    const auto *entry = key.IsEmpty() ? nullptr : Locate(key.Text());
    if (!entry) return false;
    const std::unique_ptr<Node> removed(entry->value);  // its name may be the one that was given
    Remove(key.Text());
    m_modified = true;
    return true;
}

// The name has no blanks.
void ovkConfigFile::AddNode(const char *name, xstring value) {
    if (const auto *entry = Locate(name)) {
        entry->value->value = std::move(value);
    } else {
        InsertNode(name, std::move(value));
    }
}

// A name that is not there yet.
void ovkConfigFile::InsertNode(const char *name, xstring value) {
    auto node = std::make_unique<Node>(Node{xstring(), std::move(value)});
    auto *entry = Insert(name);
    node->name = xstring::Adopt(xstrlock_c(entry->key));
    entry->value = node.release();
}

const char *ovkConfigFile::CopyKey(const char *key) {
    return kel::is_text(key) ? xstrlock_c(xstring(key)) : key;
}
void ovkConfigFile::FreeKey(const char *key) {
    xstrunlock_c(key);
}

void ovkConfigFile::DeleteNodes() noexcept {
    for (const auto &entry : *this)
        delete entry.value;
    Clear();
}
