#include "record_store.h"

#include <algorithm>
#include <cstring>

#include <kelstdmt/vumrt.h>

namespace kel::detail {

namespace {

// The fields of a record as it travels, which this server has encoded itself.
class packed_fields {
public:
    struct field {
        std::string_view first, second;
    };
    class iterator {
    public:
        explicit iterator(const char *at) noexcept : m_at(at) {}
        bool operator==(const iterator &) const noexcept = default;
        field operator*() const noexcept { return {text(m_at), text(m_at + width(m_at))}; }
        iterator &operator++() noexcept {
            m_at += width(m_at);
            m_at += width(m_at);
            return *this;
        }

    private:
        static constexpr std::size_t ints = 8;  // size and length stand before a text
        static std::size_t length(const char *at) noexcept {
            return static_cast<std::size_t>(int_at(at + ints / 2));
        }
        static std::string_view text(const char *at) noexcept { return {at + ints, length(at)}; }
        static std::size_t width(const char *at) noexcept { return ints + length(at); }

        const char *m_at;
    };

    explicit packed_fields(std::string_view record) noexcept : m_record(record) {}
    iterator begin() const noexcept { return iterator(m_record.data() + head); }
    iterator end() const noexcept { return iterator(m_record.data() + m_record.size()); }
    std::size_t size() const noexcept { return static_cast<std::size_t>(int_at(m_record.data() + head / 2)); }

private:
    static constexpr std::size_t head = 8;  // process and count

    std::string_view m_record;
};

packed_fields fields_of(const stored_record &record) {
    return packed_fields(record.bytes);
}

bool has(const stored_record &record, std::string_view name, std::string_view value) noexcept {
    for (const auto &[field, content] : fields_of(record))
        if (field == name) return content == value;
    return false;
}
bool matches(const stored_record &record, const name_record &record_template) noexcept {
    return std::ranges::all_of(record_template.fields,
                               [&](const auto &field) { return has(record, field.first, field.second); });
}

// Eight bytes at a time through a multiplication and a shift: whoever does not know the seed cannot choose
// texts that meet in one list.
constexpr std::uint64_t stirred(std::uint64_t hash, std::uint64_t word) noexcept {
    hash = (hash ^ word) * 0x9E3779B97F4A7C15u;
    hash = (hash ^ hash >> 32) * 0xD6E8FEB86659FD93u;
    return hash ^ hash >> 29;
}
std::uint64_t stirred(std::uint64_t hash, std::string_view text) noexcept {
    hash = stirred(hash, text.size());
    while (!text.empty()) {
        std::uint64_t word = 0;
        const std::size_t count = std::min(text.size(), sizeof word);
        std::memcpy(&word, text.data(), count);
        hash = stirred(hash, word);
        text.remove_prefix(count);
    }
    return hash;
}

// Lists of other things than fields begin from other seeds.
constexpr std::uint64_t of_a_process = 1, of_a_whole = 2;

}  // namespace

// Lists ----------------------------------------------------------------------------------------

record_store::record_store() : m_seed(btkRandomSeed()) {}

void record_store::list::sweep() {
    if (removed * 2 < records.size()) return;
    std::erase_if(records, [](const record_ref &record) { return !record->is_stored; });
    if (records.capacity() > records.size() * 4) records.shrink_to_fit();
    removed = 0;
}

record_store::key record_store::key_of(std::string_view name, std::string_view value) const noexcept {
    return stirred(stirred(m_seed, name), value);
}

record_store::key record_store::key_of_process(unsigned process) const noexcept {
    return stirred(m_seed + of_a_process, process);
}

// A sum, because the order of fields does not count.
template <class Fields>
record_store::key record_store::key_of_whole(unsigned process, const Fields &fields) const noexcept {
    key sum = process;
    for (const auto &[name, value] : fields)
        sum += key_of(name, value);
    return stirred(m_seed + of_a_whole, sum);
}

std::vector<record_store::key> record_store::keys_of(const stored_record &record) const {
    const packed_fields fields = fields_of(record);
    std::vector<key> keys;
    keys.reserve(fields.size() + 2);
    for (const auto &[name, value] : fields)
        keys.push_back(key_of(name, value));
    keys.push_back(key_of_whole(record.process, fields));
    if (record.process) keys.push_back(key_of_process(record.process));
    // Two that happen to be equal count once, or the record would stand twice in one list.
    std::ranges::sort(keys);
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
    return keys;
}

const record_store::list *record_store::listed(key under) const noexcept {
    const auto found = m_lists.find(under);
    return found == m_lists.end() ? nullptr : &found->second;
}

// Changes --------------------------------------------------------------------------------------

record_ref record_store::add(const name_record &record, std::uint64_t number) {
    m_next_number = std::max(m_next_number, number);
    auto made = std::make_shared<stored_record>();
    made->number = number ? number : m_next_number;
    made->process = record.process;
    append_record(made->bytes, record);
    made->bytes.shrink_to_fit();
    const std::vector<key> keys = keys_of(*made);
    // Room first, so that memory that runs out leaves every list as it was.
    std::vector<list *> lists{&m_all};
    lists.reserve(keys.size() + 1);
    for (key under : keys)
        lists.push_back(&m_lists[under]);
    for (list *each : lists)
        if (each->records.size() == each->records.capacity())
            each->records.reserve(std::max<std::size_t>(1, each->records.size() * 2));
    for (list *each : lists)
        each->records.push_back(made);
    m_next_number = made->number + 1;
    m_bytes += made->bytes.size();
    return made;
}

// By value, because the caller's reference may stand in a list that is swept.
void record_store::remove(record_ref record) {
    if (!record->is_stored) return;
    const std::vector<key> keys = keys_of(*record);
    record->is_stored = false;
    m_bytes -= record->bytes.size();
    for (key under : keys) {
        const auto found = m_lists.find(under);
        list &holder = found->second;
        ++holder.removed;
        if (holder.removed == holder.records.size())
            m_lists.erase(found);
        else
            holder.sweep();
    }
    ++m_all.removed;
    m_all.sweep();
}

// Questions ------------------------------------------------------------------------------------

record_refs record_store::find(const name_record &record_template) const {
    const list *shortest = &m_all;
    for (const auto &[name, value] : record_template.fields) {
        const list *candidate = listed(key_of(name, value));
        if (!candidate) return {};
        if (candidate->records.size() < shortest->records.size()) shortest = candidate;
    }
    record_refs found;
    if (record_template.fields.empty()) found.reserve(size());
    for (const record_ref &record : shortest->records)
        if (record->is_stored && matches(*record, record_template)) found.push_back(record);
    return found;
}

record_ref record_store::find_first(std::string_view name, std::string_view value) const {
    if (const list *candidates = listed(key_of(name, value)))
        for (const record_ref &record : candidates->records)
            if (record->is_stored && has(*record, name, value)) return record;
    return nullptr;
}

record_ref record_store::find_equal(const name_record &record) const {
    if (const list *candidates = listed(key_of_whole(record.process, record.fields)))
        for (const record_ref &other : candidates->records)
            if (other->is_stored && other->process == record.process &&
                fields_of(*other).size() == record.fields.size() && matches(*other, record))
                return other;
    return nullptr;
}

record_refs record_store::of_process(unsigned process) const {
    record_refs found;
    if (const list *candidates = listed(key_of_process(process)))
        for (const record_ref &record : candidates->records)
            if (record->is_stored && record->process == process) found.push_back(record);
    return found;
}

const record_refs &record_store::all() {
    if (m_all.removed) {
        std::erase_if(m_all.records, [](const record_ref &record) { return !record->is_stored; });
        m_all.removed = 0;
    }
    return m_all.records;
}

}  // namespace kel::detail
