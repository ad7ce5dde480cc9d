// Keys and values of the registry as folders and files.
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#define _FILE_OFFSET_BITS 64

#include "runtime/registry_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>

#include <kelstdmt/vumrt.h>
#include <kelstdmt/vumrt_stream.h>

#include "runtime/copy.h"
#include "runtime/directory.h"
#include "runtime/nodes.h"
#include "runtime/posix/descriptor.h"
#include "runtime/posix/registry_store_lock.h"

namespace kel::system {

namespace {

constexpr std::string_view text_ending = ".text", data_ending = ".data";
constexpr std::string_view default_stem = "default.";  // no name gives it
constexpr std::string_view type_word = "type ";

// What neither a key nor a value is called. It begins with a dot, as no name does.
constexpr const char staged_name[] = ".new", unfinished_name[] = ".made", deleted_name[] = ".deleted",
                     deleted_beside[] = "../.deleted";
// Folders that the registry itself may have left.
constexpr bool is_leftover(std::string_view entry) noexcept {
    return entry == unfinished_name || entry == deleted_name;
}

// What the file of a value has besides, at most.
constexpr std::size_t longest_addition = 24;

// In place of an errno: a file is none of a value, a name is none and the last error tells why.
constexpr int no_value = -1, refused = -2;

// In every locale the same: only the 26 letters have a case.
constexpr char folded(char byte) noexcept {
    return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}

bool refuse(int number) noexcept {
    Error_SetLast(number);
    return false;
}
constexpr int not_found = 2, bad_data = 13, bad_argument = 87, bad_name = 123, not_empty = 145,
              name_too_long = 206, too_large = 223, key_deleted = 1018;

// The name of an entry: a name of a key or value in lower case, and an ending.
class entry_name {
public:
    bool set(std::string_view name, std::string_view ending) noexcept {
        if (name.empty()) return refuse(bad_name);
        if (name.size() + ending.size() > NAME_MAX) return refuse(name_too_long);
        char *to = m_text;
        for (char byte : name) {
            if (byte == '.' || byte == '/' || byte == '\\' || byte == 0) return refuse(bad_name);
            *to++ = folded(byte);
        }
        finish(to, ending);
        return true;
    }
    bool set_value(std::string_view name, std::string_view ending) noexcept {
        if (!name.empty()) return set(name, ending);
        finish(std::copy(default_stem.begin(), default_stem.end(), m_text), ending);
        return true;
    }
    const char *text() const noexcept { return m_text; }

private:
    void finish(char *to, std::string_view ending) noexcept {
        *std::copy(ending.begin(), ending.end(), to) = 0;
    }

    char m_text[NAME_MAX + 1];
};

// The way back for an entry of a folder: whether it is the name of a key, or the file of a value.
bool is_name(std::string_view name) noexcept {
    return !name.empty() && std::none_of(name.begin(), name.end(), [](char byte) {
        return byte == '.' || byte == '\\' || folded(byte) != byte;
    });
}
bool is_value(std::string_view entry, std::string_view &name) noexcept {
    if (!entry.ends_with(text_ending) && !entry.ends_with(data_ending)) return false;
    name = entry.substr(0, entry.size() - text_ending.size());
    if (name == default_stem) return name = {}, true;
    return is_name(name);
}
static_assert(text_ending.size() == data_ending.size());

bool is_folder(int folder, const directory_entry &entry) noexcept {
    if (entry.kind != entry_kind::untold) return entry.kind == entry_kind::folder;
    struct stat node {};
    return ::fstatat(folder, entry.name, &node, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(node.st_mode);
}

int open_key(int folder, const char *name) {
    return open_entry(folder, name, O_PATH | O_DIRECTORY | O_NOFOLLOW);
}

bool parse_data(std::string &bytes, int &type) {
    const std::string_view all = bytes;
    const std::size_t line = all.find('\n');
    if (line == all.npos || !all.starts_with(type_word)) return false;
    const char *end = all.data() + line, *digits = all.data() + type_word.size();
    const auto [stop, error] = std::from_chars(digits, end, type);
    if (error != std::errc() || stop != end || type < 0 || type == registry_folder::text_type) return false;
    bytes.erase(0, line + 1);
    return true;
}

void cut_text(std::string &bytes) {
    if (bytes.ends_with('\n')) bytes.pop_back();
    bytes.resize(std::min(bytes.size(), bytes.find('\0')));
}

// Gives the key its name when it has its mode, whatever the umask and however the process ends.
int make_key(int above, const char *name, mode_t mode) {
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW;
    if (::mkdirat(above, unfinished_name, mode) != 0) {
        if (errno != EEXIST) return -1;
        // Left by a process that was killed.
        if (::unlinkat(above, unfinished_name, AT_REMOVEDIR) != 0 &&
            (errno != ENOTDIR || ::unlinkat(above, unfinished_name, 0) != 0))
            return -1;
        if (::mkdirat(above, unfinished_name, mode) != 0) return -1;
    }
    const owned_descriptor made(open_entry(above, unfinished_name, flags));
    if (made && give_owner(made.get(), above) && give_mode(made.get(), mode) &&
        ::renameat(above, unfinished_name, above, name) == 0)
        return open_key(above, name);
    const int reason = errno;
    ::unlinkat(above, unfinished_name, AT_REMOVEDIR);
    // Somebody may have made it by hand meanwhile.
    if (reason == ENOTEMPTY || reason == EEXIST) return open_key(above, name);
    errno = reason;
    return -1;
}

// A folder that has no name any more for callers, with all that is in it. Keys below cannot be in it, so
// depth means that somebody else was here. Several may do it at once: what is gone is gone, and what came
// into its place meanwhile was deleted too, if it is empty.
bool remove_all(int parent, const char *name, int depth = 8) {
    directory folder;
    if (depth == 0) return false;
    if (!folder.open_below(parent, name)) return Error_GetLast() == not_found;
    directory_entry entry;
    listing_step step;
    while ((step = folder.next(entry)) == listing_step::entry) {
        if (::unlinkat(folder.descriptor(), entry.name, 0) == 0 || errno == ENOENT) continue;
        if (!is_folder(folder.descriptor(), entry) || !remove_all(folder.descriptor(), entry.name, depth - 1))
            return false;
    }
    return step == listing_step::end && (::unlinkat(parent, name, AT_REMOVEDIR) == 0 || errno == ENOENT);
}

}  // namespace

// Failures -------------------------------------------------------------------------------------

// Where a deletion was cut short, the folder is still there, under a name that is none.
bool registry_folder::is_deleted() const noexcept {
    struct stat node {};
    struct stat leaving {};
    if (::fstat(at(), &node) != 0) return false;
    if (node.st_nlink == 0) return true;
    return m_folder && ::fstatat(at(), deleted_beside, &leaving, AT_SYMLINK_NOFOLLOW) == 0 &&
           leaving.st_dev == node.st_dev && leaving.st_ino == node.st_ino;
}

// A deleted key looks like one that has nothing in it.
bool registry_folder::failed(int system_error) const noexcept {
    if (system_error == refused) return false;
    if (system_error == no_value) return refuse(bad_data);
    if (system_error == ENOENT && is_deleted()) return refuse(key_deleted);
    Error_SetLastFromSystem(system_error);
    return false;
}

// Keys -----------------------------------------------------------------------------------------

int registry_folder::walk(const registry_folder &parent, const std::vector<std::string_view> &names,
                          bool make) {
    const mode_t mode = folder_mode(*parent.m_root);
    owned_descriptor reached(names.empty() ? open_key(parent.at(), ".") : -1);
    if (names.empty() && !reached) return errno;
    if (names.empty() && parent.is_deleted()) return ENOENT;
    for (std::string_view name : names) {
        const int above = reached ? reached.get() : parent.at();
        entry_name entry;
        if (!entry.set(name, "")) return refused;
        int fd = open_key(above, entry.text());
        if (fd < 0 && errno == ENOENT && make) fd = make_key(above, entry.text(), mode);
        if (fd < 0) return errno;
        reached.reset(fd);
    }
    m_folder = std::move(reached);
    m_root = parent.m_root;
    return 0;
}

// Under the lock nobody deletes what was just found. What is there already needs no lock.
bool registry_folder::open(const registry_folder &parent, const std::vector<std::string_view> &names,
                           bool make) {
    int error = walk(parent, names, false);
    if (error == ENOENT && make) {
        registry_lock lock;
        if (!lock.take(*parent.m_root)) return parent.failed(errno);
        if (parent.is_deleted()) return refuse(key_deleted);
        error = walk(parent, names, true);
    }
    return error == 0 || parent.failed(error);
}

// Gives the key the hidden name, so that it goes whole for those who look. ENOTEMPTY when that is taken, by
// what another deletion has not emptied yet.
int registry_folder::hide(const char *name) const {
    registry_lock lock;
    if (!lock.take(*m_root)) return errno;
    directory folder;
    if (!folder.open_below(at(), name)) return is_deleted() ? ENOENT : refused;
    directory_entry below;
    listing_step step;
    while ((step = folder.next(below)) == listing_step::entry) {
        if (is_leftover(below.view()) || !is_folder(folder.descriptor(), below)) continue;
        Error_SetLast(not_empty);
        return refused;
    }
    if (step != listing_step::end) return refused;
    if (::renameat(at(), name, at(), deleted_name) == 0) return 0;
    return errno == EEXIST ? ENOTEMPTY : errno;
}

// It is emptied without the lock, since that takes its time: where it is cut short, the next deletion here,
// or that of the key above, goes on with it.
bool registry_folder::remove_folder(std::string_view name) const {
    entry_name entry;
    if (!entry.set(name, "")) return false;
    const int before = Error_GetLast();
    constexpr int most_in_the_way = 100;
    for (int attempt = 0; attempt < most_in_the_way; ++attempt) {
        const int error = hide(entry.text());
        if (error != 0 && error != ENOTEMPTY && error != ENOTDIR) return failed(error);
        const bool emptied = remove_all(at(), deleted_name) || ::unlinkat(at(), deleted_name, 0) == 0;
        if (error == 0) return Error_SetLast(before), true;
        if (!emptied) break;
    }
    return refuse(not_empty);
}

// Values ---------------------------------------------------------------------------------------

namespace {

// The errno of a failure, 0 for none. Anything but an ordinary file is no value: reading it might wait, or
// never end.
int read_file(int folder, const char *name, std::string &bytes) {
    owned_descriptor file(open_entry(folder, name, O_RDONLY | O_NOFOLLOW));
    struct stat node {};
    if (!file || ::fstat(file.get(), &node) != 0) return errno == ELOOP || errno == ENXIO ? no_value : errno;
    constexpr auto largest = static_cast<off_t>(registry_folder::largest_value + longest_addition);
    if (!S_ISREG(node.st_mode) || node.st_size > largest) return no_value;
    bytes.resize(static_cast<std::size_t>(node.st_size));
    const long long got = File_ReadAt(file.get(), bytes.data(), bytes.size(), 0);
    if (got < 0) return errno;
    bytes.resize(static_cast<std::size_t>(got));
    return 0;
}

}  // namespace

bool registry_folder::read_text(std::string_view name, std::string &text) const {
    entry_name entry;
    if (!entry.set_value(name, text_ending)) return false;
    const int error = read_file(at(), entry.text(), text);
    if (error == 0) cut_text(text);
    return error == 0 || failed(error);
}

// A value that changes from data to text while we look for one after the other is found in the next round.
bool registry_folder::read(std::string_view name, registry_content &content) const {
    entry_name text, data;
    if (!text.set_value(name, text_ending) || !data.set_value(name, data_ending)) return false;
    int error = ENOENT;
    constexpr int rounds = 3;
    for (int round = 0; round < rounds && error == ENOENT; ++round) {
        error = read_file(at(), text.text(), content.bytes);
        if (error == 0) return cut_text(content.bytes), content.type = text_type, true;
        if (error != ENOENT) break;
        error = read_file(at(), data.text(), content.bytes);
        if (error == 0) return parse_data(content.bytes, content.type) || refuse(bad_data);
    }
    return failed(error);
}

// A file with these bytes on the disk, which has no name yet, or, where the file system needs one, the hidden
// one, which takes the lock.
owned_descriptor registry_folder::stage(std::string_view bytes, bool with_name) const {
    const mode_t mode = file_mode(*m_root);
    owned_descriptor file;
    if (!with_name) {
        file.reset(open_entry(at(), ".", O_WRONLY | O_TMPFILE, mode));
    } else if (::unlinkat(at(), staged_name, 0) == 0 || errno == ENOENT) {
        file.reset(open_entry(at(), staged_name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, mode));
    }
    if (!file) return file;
    if (give_owner(file.get(), at()) && give_mode(file.get(), mode) &&
        write_bytes(file.get(), bytes.data(), bytes.size()) == bytes.size() && File_Sync(file.get()))
        return file;
    const int reason = errno;
    if (with_name) ::unlinkat(at(), staged_name, 0);
    errno = reason;
    return {};
}

namespace {

// Gives a staged file the hidden name. One that is taken was left by a writer that was killed.
bool give_staged_name(int file, int folder) noexcept {
    outcome result = give_name(file, folder, staged_name);
    if (result == outcome::exists && ::unlinkat(folder, staged_name, 0) == 0)
        result = give_name(file, folder, staged_name);
    return result == outcome::done;
}

}  // namespace

// To its place under the lock. The bytes wait for the disk before it is taken, so that a slow disk makes one
// writer wait for it, not all.
bool registry_folder::write(std::string_view name, int type, std::string_view bytes) const {
    const bool is_text = type == text_type;
    entry_name entry, other;
    if (!entry.set_value(name, is_text ? text_ending : data_ending)) return false;
    if (!other.set_value(name, is_text ? data_ending : text_ending)) return false;
    if (type < 0 || (is_text && bytes.find('\0') != bytes.npos)) return refuse(bad_argument);
    if (bytes.size() > largest_value) return refuse(too_large);
    std::string content;
    content.reserve(bytes.size() + longest_addition);
    if (!is_text) content.append(type_word).append(std::to_string(type)).append(1, '\n');
    content.append(bytes);
    if (is_text) content += '\n';

    owned_descriptor staged = stage(content, false);
    registry_lock lock;
    if (!lock.take(*m_root)) return failed(errno);
    if (is_deleted()) return refuse(key_deleted);
    if (!staged || !give_staged_name(staged.get(), at())) staged = stage(content, true);
    if (!staged) return failed(errno);
    if (::renameat(at(), staged_name, at(), entry.text()) != 0) {
        const int reason = errno;
        ::unlinkat(at(), staged_name, 0);
        return failed(reason);
    }
    // Text counts where both are, so either is right until this is done.
    if (::unlinkat(at(), other.text(), 0) == 0 || errno == ENOENT || is_text) return true;
    return failed(errno);
}

bool registry_folder::remove_value(std::string_view name) const {
    entry_name text, data;
    if (!text.set_value(name, text_ending) || !data.set_value(name, data_ending)) return false;
    registry_lock lock;
    if (!lock.take(*m_root)) return failed(errno);
    // The text last: as long as it is there, it counts.
    const bool had_data = ::unlinkat(at(), data.text(), 0) == 0;
    if (!had_data && errno != ENOENT) return failed(errno);
    return ::unlinkat(at(), text.text(), 0) == 0 || (had_data && errno == ENOENT) ? true : failed(errno);
}

// Listings -------------------------------------------------------------------------------------

template <class Take>
bool registry_folder::list(Take take) const {
    directory folder;
    if (is_deleted()) return refuse(key_deleted);
    if (!folder.open_below(at(), ".")) return false;
    directory_entry entry;
    listing_step step;
    while ((step = folder.next(entry)) == listing_step::entry)
        take(folder.descriptor(), entry);
    return step == listing_step::end;
}

bool registry_folder::list_folders(std::vector<std::string> &names) const {
    names.clear();
    const bool whole = list([&](int folder, const directory_entry &entry) {
        if (is_name(entry.view()) && is_folder(folder, entry)) names.emplace_back(entry.view());
    });
    std::sort(names.begin(), names.end());
    return whole;
}

bool registry_folder::list_values(std::vector<std::string> &names) const {
    names.clear();
    const bool whole = list([&](int, const directory_entry &entry) {
        if (std::string_view name; is_value(entry.view(), name)) names.emplace_back(name);
    });
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return whole;
}

}  // namespace kel::system
