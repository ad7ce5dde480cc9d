// Configuration files: read whole when opened, written whole when closed after a change. What SetValue takes
// is what the next Open gives; anything that lines of NAME:VALUE cannot hold is refused, not bent.
#include <kelstdmt/configfile.h>
#include <kelstdmt/strlib.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
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

xstring text_or_null(std::string_view text) {
    return text.empty() ? xstring() : xstring::FromBytes(text.data(), text.size());
}

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

// An entry as it stands in the text of the file.
struct config_line {
    std::string_view name, value;
};

// By name; the lines of one name in their order in the text.
bool below(const config_line &a, const config_line &b) {
    const int order = a.name.compare(b.name);
    return order != 0 ? order < 0 : a.name.data() < b.name.data();
}

// In the order of the text. The names lose their blanks and tabs in place.
std::vector<config_line> split_lines(std::string &text) {
    std::vector<config_line> lines;
    for (char *at = text.data(), *end = at + text.size(); at < end;) {
        auto find = [&at](char byte, char *stop) {
            return static_cast<char *>(std::memchr(at, byte, static_cast<std::size_t>(stop - at)));
        };
        char *feed = find('\n', end);
        char *stop = feed ? feed : end;
        if (char *colon = find(':', stop)) {
            char *pressed = std::remove_if(at, colon, [](char byte) { return byte == ' ' || byte == '\t'; });
            if (pressed > at) lines.push_back({{at, pressed}, {colon + 1, stop}});
        }
        at = stop + 1;
    }
    return lines;
}

// In ascending order, each name once: the last line of that name.
std::vector<config_line> sorted_lines(std::string &text) {
    std::vector<config_line> lines = split_lines(text);
    if (!std::is_sorted(lines.begin(), lines.end(), below)) std::sort(lines.begin(), lines.end(), below);
    auto kept = lines.begin();
    for (auto line = lines.begin(); line != lines.end(); ++line)
        if (line + 1 == lines.end() || line->name != line[1].name) *kept++ = *line;
    lines.erase(kept, lines.end());
    return lines;
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
        m_file_name = kel::is_text(file_name) ? xstring(file_name) : xstring();
        auto file = std::make_unique<lockFileBuf>();
        if (file->Open(m_file_name, access) || !Load(*file)) return false;
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
    for (const config_line &line : sorted_lines(text)) {
        xstring name = text_or_null(line.name), value = text_or_null(line.value);
        if (has_defaults) {
            AddNode(std::move(name), std::move(value));
        } else {
            InsertNode(std::move(name), std::move(value));
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

void ovkConfigFile::AddNode(xstring name, xstring value) {
    StrPress(name);
    if (const auto *entry = Locate(name)) {
        entry->value->value = std::move(value);
    } else {
        InsertNode(std::move(name), std::move(value));
    }
}

// A name that is not there yet.
void ovkConfigFile::InsertNode(xstring name, xstring value) {
    auto node = std::make_unique<Node>(Node{std::move(name), std::move(value)});
    Add(node->name, node.get());
    node.release();
}

void ovkConfigFile::DeleteNodes() noexcept {
    for (const auto &entry : *this)
        delete entry.value;
    Clear();
}
