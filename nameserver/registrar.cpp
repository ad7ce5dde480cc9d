#include "registrar.h"

#include <unordered_set>

namespace kel::detail {

namespace {

constexpr std::size_t most_bytes = std::size_t{256}
                                   << 20;  // of all records; only programs of this host fill it

}  // namespace

registrar::registrar(event_loop &loop, log_lines log)
    : m_log(log), m_processes(loop, log, [this] { forget_ended(); }), m_journal(std::move(log)) {}

registrar::~registrar() = default;

bool registrar::open_journal(const std::string &path, std::string &error) {
    journal_records records;
    if (!m_journal.open(path, records, error)) return false;
    record_refs gone;
    for (const auto &[number, entry] : records) {
        const bool is_alive =
            entry.record.process == 0 || m_processes.hold(entry.record.process, entry.birth);
        const record_ref record = m_store.add(entry.record, number);
        if (is_alive) continue;
        gone.push_back(record);
        m_store.remove(record);
    }
    if (!gone.empty()) m_journal.remove(gone);
    compact();
    return true;
}

// Requests -------------------------------------------------------------------------------------

name_status registrar::add(const name_record &record, bool is_local) {
    if (!is_local) return name_status::not_authorized;
    forget_ended();
    // The same id may be another process by now.
    if (m_processes.is_held(record.process) && !m_processes.is_running(record.process))
        forget(record.process);
    if (m_store.find_equal(record)) return name_status::already_exists;
    if (const std::string *name = record.find(server_name_field)) {
        const record_ref holder = m_store.find_first(server_name_field, *name);
        if (holder && (!holder->process || m_processes.is_running(holder->process)))
            return name_status::already_exists;
        if (holder) forget(holder->process);
    }
    return store(record);
}

// Takes back what was done of a registration that failed.
struct registrar::registration {
    registrar &names;
    unsigned process;
    record_ref record = nullptr;
    bool is_kept = false;

    ~registration() {
        if (is_kept) return;
        if (record) names.m_store.remove(record);
        names.m_processes.release(process);
    }
};

name_status registrar::store(const name_record &record) {
    if (m_store.bytes() > most_bytes) {
        if (!std::exchange(m_is_full, true)) m_log("the records take 256 MiB: no more are registered");
        return internal_error;
    }
    m_is_full = false;
    if (record.process && !m_processes.hold(record.process)) return name_status::not_authorized;
    registration made{*this, record.process};
    made.record = m_store.add(record);
    if (m_journal.is_open() && !m_journal.add(*made.record, m_processes.birth_of(record.process)))
        return internal_error;
    made.is_kept = true;
    compact();
    return name_status::success;
}

std::pair<name_status, int> registrar::remove(const name_record &record_template, bool is_local) {
    if (!is_local) return {name_status::not_authorized, 0};
    const record_refs found = find(record_template);
    if (found.empty()) return {name_status::not_found, 0};
    if (!take(found)) return {internal_error, 0};
    return {name_status::success, static_cast<int>(found.size())};
}

record_refs registrar::find(const name_record &record_template) {
    forget_ended();
    record_refs found = m_store.find(record_template);
    if (m_processes.are_all_watched()) return found;
    std::unordered_set<unsigned> asked;
    for (const record_ref &record : found)
        if (record->is_stored && record->process && asked.insert(record->process).second &&
            !m_processes.is_watched(record->process) && !m_processes.is_running(record->process))
            forget(record->process);
    std::erase_if(found, [](const record_ref &record) { return !record->is_stored; });
    return found;
}

// Removals -------------------------------------------------------------------------------------

bool registrar::take(const record_refs &records) {
    if (m_journal.is_open() && !m_journal.remove(records)) return false;
    for (const record_ref &record : records) {
        m_store.remove(record);
        m_processes.release(record->process);
    }
    compact();
    return true;
}

// A journal that cannot be written tells of them as well: their process has another birth, or none.
void registrar::forget(unsigned process) {
    const record_refs records = m_store.of_process(process);
    if (m_journal.is_open()) m_journal.remove(records);
    for (const record_ref &record : records)
        m_store.remove(record);
    m_processes.drop(process);
    compact();
}

void registrar::forget_ended() {
    for (auto ids = m_processes.ended(); !ids.empty(); ids = m_processes.ended())
        for (unsigned id : ids)
            forget(id);
}

void registrar::compact() {
    if (m_journal.is_open())
        m_journal.compact(m_store, [this](unsigned process) { return m_processes.birth_of(process); });
}

}  // namespace kel::detail
