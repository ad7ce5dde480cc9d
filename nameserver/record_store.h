// The records of a name server, found by what they say.
//
// Each record is listed under each of its fields (name and value together), under its process, and under
// itself as a whole. A template is answered from the shortest list of its fields, so a query costs what it
// may match and not what is stored. Lists are in the order of registration, and removing a record only marks
// it: a list is swept when half of it is gone, so a removal costs the same however long the lists are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <kelstdmt/vumrt_names.h>

namespace kel::detail {

struct stored_record {
    std::uint64_t number;  // grows with each registration
    unsigned process;
    std::string bytes;  // as it travels
    bool is_stored = true;
};
// Answers under way hold records that may have been removed since.
using record_ref = std::shared_ptr<stored_record>;
using record_refs = std::vector<record_ref>;

class record_store {
public:
    record_store();

    // The record must be within the limits, and find_equal have found none. With number 0 it gets the next
    // one; a larger number is kept, and the numbers go on behind it.
    record_ref add(const name_record &record, std::uint64_t number = 0);
    void remove(record_ref record);

    // In the order of registration. A template without fields matches all.
    record_refs find(const name_record &record_template) const;
    record_ref find_first(std::string_view name, std::string_view value) const;
    record_ref find_equal(
        const name_record &record) const;  // the same process, and the same fields in any order
    record_refs of_process(unsigned process) const;
    const record_refs &all();

    std::size_t size() const noexcept { return m_all.records.size() - m_all.removed; }
    std::size_t bytes() const noexcept { return m_bytes; }  // of all records as they travel

private:
    struct list {
        record_refs records;
        std::size_t removed = 0;

        void sweep();
    };
    using key = std::uint64_t;

    key key_of(std::string_view name, std::string_view value) const noexcept;
    key key_of_process(unsigned process) const noexcept;
    template <class Fields>
    key key_of_whole(unsigned process, const Fields &fields) const noexcept;
    std::vector<key> keys_of(const stored_record &record) const;
    const list *listed(key under) const noexcept;

    key m_seed;
    std::unordered_map<key, list> m_lists;
    list m_all;
    std::uint64_t m_next_number = 1;
    std::size_t m_bytes = 0;
};

}  // namespace kel::detail
