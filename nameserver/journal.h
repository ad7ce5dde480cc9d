// The file in which the records of a name server outlive it. doc/kelnmsd.md has its bytes.
//
// A log: each record that comes or goes is an entry with a checksum at the end of the file, written before
// the peer is answered. When it has grown to twice what the records need, it is replaced by a new one, as a
// whole or not at all. The lock on the file keeps a second name server out.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include <kelstdmt/vumrt_names.h>
#include <kelstdmt/vumtext.h>

#include "delayed_sync.h"
#include "log_lines.h"
#include "record_store.h"

namespace kel::detail {

struct journal_record {
    unsigned long long birth = 0;  // of the record's process
    name_record record;
};
using journal_records = std::map<std::uint64_t, journal_record>;  // by number

class journal {
public:
    using births = std::function<unsigned long long(unsigned process)>;

    explicit journal(log_lines log) : m_log(std::move(log)) {}

    // Opens or makes the file and reads what is registered by its account. A damaged end is cut off; what was
    // cut is kept in a copy, unless it is just an entry that was never finished. False when it cannot.
    bool open(const std::string &path, journal_records &records, std::string &error);
    bool is_open() const noexcept { return m_sync != nullptr; }

    // False when it could not be written: the file is as before.
    bool add(const stored_record &record, unsigned long long birth);
    bool remove(const record_refs &records);

    // Replaces a log that has grown too long.
    void compact(record_store &store, const births &birth_of);

private:
    bool read(journal_records &records, std::string &error);
    bool cut(long long end, bool is_torn, std::string &error);
    bool append(const std::string &entries);

    log_lines m_log;
    std::string m_path;
    lockFileBuf m_file;
    long long m_end = 0;         // the entries reach to here
    long long m_compact_at = 0;  // the least size that is worth it
    bool m_has_failed = false;
    std::unique_ptr<delayed_sync> m_sync;  // after the file: it ends before the file is closed
};

}  // namespace kel::detail
