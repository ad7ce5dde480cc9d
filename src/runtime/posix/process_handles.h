// What the process remembers of the handles that it holds. A handle is a process descriptor; its entry tells
// what the descriptor does not.
#pragma once

#include <list>

#include "runtime/owned_descriptor.h"

namespace kel::system {

struct process_entry {
    int handle = -1;
    int id = 0;
    bool own_child = false;  // started by Process_Launch: waiting collects it
    bool own_group = false;
    bool collected = false;        // its id may belong to another process by now
    long exit_code = 0;            // of one that was collected
    unsigned long long birth = 0;  // of one that was let go of while it ran
};

// One entry, whose memory is there before the process is, so that nothing can fail once it runs.
using prepared_entry = std::list<process_entry>;

prepared_entry prepare_process();

// Takes the descriptor and answers the handle. A launch collects some of those that were let go of too.
int remember_process(prepared_entry &entry, owned_descriptor &&descriptor) noexcept;

}  // namespace kel::system
