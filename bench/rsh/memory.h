// What a command costs in memory at both ends while its channels are full.
#pragma once

#include "work.h"

namespace bench {

struct Memory {
    double client, server;  // bytes a command
};

// Of ten `cat` that are fed as long as something takes it, while nobody reads what they say. Counted are the
// pages that the processes of each side have written to and share with no other; not those of the commands.
// Throws when other bytes come back, once they are read.
Memory memory_of_stuck_commands(Shell &shell);

}  // namespace bench
