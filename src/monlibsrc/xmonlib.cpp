// Monitor files: opening, taking in records, appending them, and single values. All of it goes by positions
// in the file and past the stream's buffer: a record is one write, a value one write or one read.
//
// Whoever reads runs beside a writer that takes no notice. A record that is not all there yet is left for the
// next look; what a look takes in was read twice with the same result, since a writer that takes over from a
// killed one cuts off what that one left and writes other bytes there. A value that lies within one line of
// the processor's cache is copied in one go. Any other may be caught half written, and for long if the writer
// loses the processor there; so it is read, a write under way is waited for, and it is read again until two
// reads agree.
#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <utility>

#include <kelstdmt/kel.h>
#include <kelstdmt/monlib.h>

#include "monlibsrc/record.h"

using namespace kel::monitor;

namespace {

constexpr const char *source = "monlibsrc/xmonlib";
constexpr unsigned block_size = 32768;
constexpr long long most_at_once = 65536;  // bytes of a slot that are written with their record
constexpr int most_tries = 32;
constexpr int invalid_data = 13;  // the last error of a file that is no monitor file

constexpr bool in_one_line(long long at, unsigned count) {
    constexpr long long line = 64;
    return at / line == (at + count - 1) / line;
}

// Appends `length` bytes of a text, or those up to a NUL, which can only end it. Memory is taken for what is
// there. False when the file ends before.
bool read_text(ioFileStream &stream, long long at, int length, std::string &text) {
    constexpr unsigned piece = 4096;
    for (auto left = static_cast<unsigned>(length); left > 0;) {
        unsigned count = std::min(left, piece);
        std::size_t before = text.size();
        text.resize(before + count);
        if (stream.ReadAt(at, text.data() + before, count) < count) return false;
        if (std::size_t end = text.find('\0', before); end != std::string::npos) {
            text.resize(end);
            return true;
        }
        at += count;
        left -= count;
    }
    return true;
}

}  // namespace

// Opening --------------------------------------------------------------------------------------

monFile::~monFile() = default;

monFile *monFile::Create(const char *path, const char *title) {
    std::unique_ptr<ioFileStream> stream(ioFileStream::CreatePlain(path, ioReadWrite));
    if (!stream) return nullptr;
    std::unique_ptr<monFile> file(kel::construct_with<monFile>([](void *at) { return ::new (at) monFile; }));
    file->m_stream = std::move(stream);
    return file->WriteHeader(kel::detail::any_view(title).data()) ? file.release() : nullptr;
}

monFile *monFile::Open(const char *path) {
    return OpenStream(path, ioReadWrite);
}
monFile *monFile::OpenReadOnly(const char *path) {
    return OpenStream(path, ioReadOnly);
}

monFile *monFile::OpenStream(const char *path, ioOpenMode mode) {
    std::unique_ptr<ioFileStream> stream(ioFileStream::OpenPlain(path, mode));
    if (!stream) return nullptr;
    std::unique_ptr<monFile> file(kel::construct_with<monFile>([](void *at) { return ::new (at) monFile; }));
    file->m_stream = std::move(stream);
    try {
        if (file->ReadHeader()) return file.release();
        Error_SetLast(invalid_data);
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
    }
    return nullptr;
}

bool monFile::WriteHeader(const char *title) {
    m_stream->setSerializer(ioSerializer::getXDR());
    try {
        m_stream->WriteInt(0);
        m_stream->WriteString(title);
        m_after_header = m_known_end = 8 + static_cast<long long>(std::strlen(title));
        m_size = m_stream->GetFileSize();
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        return false;
    }
    m_title = title;
    m_overwrites = true;
    return true;
}

bool monFile::ReadHeader() {
    char head[8];
    long long size = m_stream->GetFileSize();
    if (m_stream->ReadAt(0, head, sizeof head) < sizeof head) return false;
    m_header = get_int(head);
    int length = get_int(head + 4);
    if (m_header > 0 || length < 0 || 8LL + length > size) return false;
    std::string title;
    if (!read_text(*m_stream, sizeof head, length, title)) return false;
    m_title = title.c_str();
    m_after_header = m_known_end = 8LL + length;
    return true;
}

void monFile::Close() {
    m_stream->Close();
}

// Taking in records ----------------------------------------------------------------------------

namespace {

struct found_record {
    record_head head;
    long long slot;
};

struct batch {
    std::vector<found_record> records;
    reading stopped = reading::whole;  // whole: the next batch goes on
};

// The records from `from` on whose heads lie within one block, of a file of `size` bytes. Two buffers of a
// block each; the names lie in the first.
batch read_batch(ioFileStream &stream, long long from, long long size, char *block, char *again) {
    batch result;
    auto count = static_cast<unsigned>(std::min<long long>(block_size, size - from));
    std::string_view bytes(block, stream.ReadAt(from, block, count));
    unsigned looked_at = 0;
    for (std::size_t at = 0; at < bytes.size();) {
        record_head head;
        result.stopped = read_head(bytes.substr(at), head);
        looked_at = static_cast<unsigned>(std::min(at + head.bytes, bytes.size()));
        if (result.stopped != reading::whole) break;
        long long slot = from + static_cast<long long>(at + head.bytes);
        long long end = slot + slot_bytes(head.type, head.size);
        if (end > size) {
            result.stopped = reading::more;
            break;
        }
        result.records.push_back({head, slot});
        at = static_cast<std::size_t>(std::min<long long>(end - from, block_size));
    }
    // A head across the block's end is the first of the next block, unless it is the file's end that cuts it.
    if (result.stopped == reading::more && !result.records.empty() && bytes.size() == block_size &&
        looked_at == bytes.size())
        result.stopped = reading::whole;
    if (bytes.empty()) result.stopped = reading::more;

    // The heads once more; values may differ, since they are being rewritten.
    stream.AwaitWrite();
    unsigned same = stream.ReadAt(from, again, looked_at);
    auto unchanged = [&](long long begin, long long end) {
        return end - from <= same && std::memcmp(block + (begin - from), again + (begin - from),
                                                 static_cast<std::size_t>(end - begin)) == 0;
    };
    long long at = from;
    for (std::size_t i = 0; i < result.records.size(); ++i) {
        const auto &[head, slot] = result.records[i];
        if (!unchanged(at, slot)) {
            result.records.resize(i);
            result.stopped = reading::more;
            return result;
        }
        at = slot + slot_bytes(head.type, head.size);
    }
    bool damaged = result.stopped == reading::unknown_type || result.stopped == reading::bad_length;
    if (damaged && !unchanged(at, from + looked_at)) result.stopped = reading::more;
    return result;
}

}  // namespace

bool monFile::Refresh() {
    m_state = CatchUp();
    return m_state <= State::Incomplete;
}

monFile::State monFile::CatchUp() {
    m_size = m_stream->GetFileSize();
    if (m_size == m_known_end) return State::Whole;
    if (m_size < m_known_end) return Report(State::Shrunk, "monFile has shrunk!", __LINE__);
    auto block = static_cast<std::size_t>(std::min<long long>(block_size, m_size - m_known_end));
    auto blocks = std::make_unique_for_overwrite<char[]>(2 * block);
    batch found;
    while (m_known_end < m_size && found.stopped == reading::whole) {
        found = read_batch(*m_stream, m_known_end, m_size, blocks.get(), blocks.get() + block);
        for (const auto &[head, slot] : found.records) {
            const std::string name(head.name);
            if (IsFiller(name.c_str())) {
                found.stopped = reading::bad_length;
                break;
            }
            AddParameter(name.c_str(), slot, head.type, head.size);
            m_known_end = slot + slot_bytes(head.type, head.size);
        }
    }
    LeaveOutReplaced();
    switch (found.stopped) {
        case reading::unknown_type:
            return Report(State::Damaged, "Weird parameter type", __LINE__);
        case reading::bad_length:
            return Report(State::Damaged, "monFile::UpdateCache: Weird length", __LINE__);
        case reading::more:
            return State::Incomplete;
        case reading::whole:
            break;
    }
    return State::Whole;
}

// Zeros, of which a file can have any number without a disk behind it, read as records without a name. A
// writer makes one such record at most.
bool monFile::IsFiller(const char *name) const {
    return !*name && !m_in_order.empty() && !*m_in_order.back()->m_name.Str();
}

// Once for each place.
monFile::State monFile::Report(State state, const char *text, int line) {
    // What Create found in an old file is to be overwritten, whatever it is.
    if (m_overwrites && state == State::Damaged) return State::Incomplete;
    bool known = m_reported_at == m_known_end && m_reported && std::strcmp(m_reported, text) == 0;
    if (!known) _Abort(text, source, line);
    m_reported = text;
    m_reported_at = m_known_end;
    return state;
}

monParam *monFile::AddParameter(const char *name, long long slot, int type, int size) {
    auto make_room = [](auto &list) {
        if (list.size() == list.capacity()) list.reserve(16 + 2 * list.size());
    };
    make_room(m_owned);
    make_room(m_in_order);
    monParam *before = nullptr;
    bool replaces = m_params.find(name, before);
    auto make = [&]<class Param>(Param *) -> monParam * {
        return kel::construct_with<Param>(
            [&](void *at) { return ::new (at) Param(this, name, slot, type, size); });
    };
    monParam *made = nullptr;
    switch (type) {
        case boolean_record:
            made = make(static_cast<monBoolParam *>(nullptr));
            break;
        case integer_record:
            made = make(static_cast<monIntParam *>(nullptr));
            break;
        case real_record:
            made = make(static_cast<monRealParam *>(nullptr));
            break;
        default:
            made = make(static_cast<monStringParam *>(nullptr));
    }
    m_owned.emplace_back(made);
    m_in_order.push_back(made);
    if (replaces) m_some_replaced = before->m_replaced = true;
    return made;
}

// Callers may still hold a replaced parameter, so it lives on, but it is not listed.
void monFile::LeaveOutReplaced() {
    if (!m_some_replaced) return;
    std::erase_if(m_in_order, [](const monParam *parameter) { return parameter->m_replaced; });
    m_some_replaced = false;
}

// Looking up and appending ---------------------------------------------------------------------

monIntParam *monFile::Int(const char *name) {
    return static_cast<monIntParam *>(LookUp(name, integer_record, 0));
}
monBoolParam *monFile::Bool(const char *name) {
    return static_cast<monBoolParam *>(LookUp(name, boolean_record, 0));
}
monRealParam *monFile::Real(const char *name) {
    return static_cast<monRealParam *>(LookUp(name, real_record, 0));
}
monStringParam *monFile::String(const char *name, int size) {
    return static_cast<monStringParam *>(LookUp(name, string_record, size));
}

monParam *monFile::LookUp(const char *name, int type, int size) {
    if (!kel::is_text(name)) return nullptr;
    Refresh();
    if (monParam *found = nullptr; m_params.find(name, found)) return found->m_type == type ? found : nullptr;
    return m_stream->getCanWrite() ? Append(name, type, size) : nullptr;
}

monParam *monFile::Append(const char *name, int type, int size) {
    std::string_view view(name);
    if (view.size() > longest_name) {
        _Abort("monFile::WriteParamHead: Name too long", source, __LINE__);
        return nullptr;
    }
    if (size < 0 || size > largest_size) {
        _Abort("monFile::String: Weird size", source, __LINE__);
        return nullptr;
    }
    if (m_size < m_after_header) return nullptr;  // not even the header is left, and was reported
    std::string bytes = write_head(type, view, size);
    long long at = PlaceForRecord(), slot = at + static_cast<long long>(bytes.size());
    long long slot_length = slot_bytes(type, size), end = slot + slot_length;
    // All in one write; only what a very long slot has beyond its beginning is left to the file's length.
    bytes.append(static_cast<std::size_t>(std::min(slot_length, most_at_once)), '\0');
    WriteRecord(at, bytes, end);
    monParam *made = AddParameter(name, slot, type, size);
    m_known_end = m_size = end;
    m_state = State::Whole;
    m_overwrites = false;
    return made;
}

// The file's end, without a part of a record that nobody will finish. A damaged file keeps its bytes.
long long monFile::PlaceForRecord() {
    if (m_state != State::Incomplete) return m_size;
    m_stream->SetFileSize(m_known_end);
    return m_known_end;
}

void monFile::WriteRecord(long long at, const std::string &bytes, long long end) {
    try {
        m_stream->WriteAt(at, bytes.data(), static_cast<unsigned>(bytes.size()));
        if (at + static_cast<long long>(bytes.size()) < end) m_stream->SetFileSize(end);
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        try {
            m_stream->SetFileSize(at);
        } catch (xthrowable *again) {
            kel::caught ignored(again);
        }
        error.rethrow();
    }
}

// Values ---------------------------------------------------------------------------------------

monParam::monParam(monFile *file, const char *name, long long slot, int type, int size)
    : m_name(name),
      m_file(file),
      m_slot(slot),
      m_size(size),
      m_slot_size(slot_bytes(type, size)),
      m_type(type) {
    file->m_params.set(name, this);
}

xstring monParam::getName() {
    return m_name;
}

bool monParam::ReadNumber(void *to, unsigned count, unsigned skip) {
    ioFileStream &stream = *m_file->m_stream;
    const long long at = m_slot + skip;
    if (stream.ReadAt(at, to, count) < count) return false;
    m_reported = false;
    if (in_one_line(at, count)) return true;
    std::array<char, 8> before;
    for (int tries = 1; tries < most_tries; ++tries) {
        std::memcpy(before.data(), to, count);
        stream.AwaitWrite();
        if (stream.ReadAt(at, to, count) < count) return false;
        if (std::memcmp(before.data(), to, count) == 0) break;
    }
    return true;
}

void monParam::ReportOnce(const char *text, int line) {
    if (!m_reported) _Abort(text, source, line);
    m_reported = true;
}

namespace {

constexpr const char *cut_off = "monParam::getValue: Value is cut off";

}  // namespace

int monIntParam::getValue() {
    char bytes[4];
    if (ReadNumber(bytes, sizeof bytes)) return get_int(bytes);
    ReportOnce(cut_off, __LINE__);
    return kel::nil_int;
}
int monIntParam::setValue(int value) {
    char bytes[4];
    put_int(bytes, value);
    m_file->m_stream->WriteAt(m_slot, bytes, sizeof bytes);
    return value;
}

// Only the last byte of the four counts.
xbool monBoolParam::getValue() {
    xbool value = 0;
    if (ReadNumber(&value, 1, 3)) return value;
    ReportOnce(cut_off, __LINE__);
    return kel::nil_bool;
}
xbool monBoolParam::setValue(xbool value) {
    char bytes[4];
    put_int(bytes, value);
    m_file->m_stream->WriteAt(m_slot, bytes, sizeof bytes);
    return value;
}

double monRealParam::getValue() {
    char bytes[8];
    if (ReadNumber(bytes, sizeof bytes)) return get_real(bytes);
    ReportOnce(cut_off, __LINE__);
    return kel::nil_real;
}
double monRealParam::setValue(double value) {
    char bytes[8];
    put_real(bytes, value);
    m_file->m_stream->WriteAt(m_slot, bytes, sizeof bytes);
    return value;
}

// Length and, of most texts, all the rest come with one read.
monStringParam::Look monStringParam::LookAt(std::string &text) {
    std::array<char, 4096> block;
    auto count = static_cast<unsigned>(std::min<long long>(4LL + m_size, block.size()));
    unsigned got = m_file->m_stream->ReadAt(m_slot, block.data(), count);
    if (got < 4) return Look::CutOff;
    int length = get_int(block.data());
    if (length < 0 || length > m_size) return Look::TooLong;
    std::string_view found(block.data() + 4, std::min(got - 4, static_cast<unsigned>(length)));
    std::size_t end = found.find('\0');
    text = found.substr(0, end);
    if (end != std::string_view::npos || text.size() == static_cast<unsigned>(length)) return Look::Whole;
    long long rest = m_slot + got;
    return read_text(*m_file->m_stream, rest, length - static_cast<int>(got - 4), text) ? Look::Whole
                                                                                        : Look::CutOff;
}

xstring monStringParam::getValue() {
    std::string text, before;
    Look look = LookAt(text), last = look;
    for (int tries = 1; tries < most_tries; ++tries) {
        before.swap(text);
        m_file->m_stream->AwaitWrite();
        last = std::exchange(look, LookAt(text));
        if (look == last && (look != Look::Whole || text == before)) break;
    }
    if (look == Look::Whole) {
        m_reported = false;
        return text.c_str();
    }
    ReportOnce(look == Look::CutOff ? cut_off : "monStringParam::getValue: Weird length", __LINE__);
    return xstrNullStr;
}

xstring monStringParam::setValue(const char *text) {
    std::string_view view = kel::detail::any_view(text);
    if (view.size() > static_cast<unsigned>(m_size)) {
        _Abort("monStringParam::setValue: Value too long", source, __LINE__);
        return xstrNullStr;
    }
    std::string bytes(4, '\0');
    put_int(bytes.data(), static_cast<int>(view.size()));
    bytes += view;
    m_file->m_stream->WriteAt(m_slot, bytes.data(), static_cast<unsigned>(bytes.size()));
    return kel::is_text(text) ? xstring(text) : xstring();
}
