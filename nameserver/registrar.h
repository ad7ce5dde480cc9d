// What a name server does with requests, whoever they come from and however they arrive: the rules of
// registration, and records, processes and journal brought into agreement.
#pragma once

#include <string>
#include <utility>

#include <kelstdmt/vumrt_names.h>

#include "journal.h"
#include "process_table.h"
#include "record_store.h"

namespace kel::detail {

// The number that clients print as an internal error.
constexpr name_status internal_error{9};

class registrar {
public:
    registrar(event_loop &loop, log_lines log);
    ~registrar();

    // Without a journal there is none. False when it cannot be used.
    bool open_journal(const std::string &path, std::string &error);

    // `is_local`: the peer is on this machine.
    name_status add(const name_record &record, bool is_local);
    std::pair<name_status, int> remove(const name_record &record_template, bool is_local);  // how many
    record_refs find(const name_record &record_template);

    // Another descriptor is needed: false when there is none to give.
    bool give_descriptors() { return m_processes.give_descriptors(); }

private:
    struct registration;

    name_status store(const name_record &record);
    bool take(const record_refs &records);
    void forget(unsigned process);
    void forget_ended();
    void compact();

    log_lines m_log;
    process_table m_processes;
    record_store m_store;
    journal m_journal;
    bool m_is_full = false;
};

}  // namespace kel::detail
