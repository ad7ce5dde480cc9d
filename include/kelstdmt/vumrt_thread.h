// Threads whose end can be awaited beside sockets and processes. One that is cancelled ends in the next wait
// of the library that it comes to, and lets go of what it held there.
#pragma once

#include <kelstdmt/export.h>
#include <kelstdmt/vumrt.h>

// Awaited with btkPROCESSEvent: signalled from the end of the thread on. -1 is none.
using btkThreadHandle = int;

using btkThreadStarter = int (*)(void *object);              // runs on the new thread; its exit code
using btkThreadForker = void (*)(void *object, bool child);  // see StrictThread_Launch

// Starts a thread with the signals that this one blocks. -1 with the last error set when it cannot be
// started: 1816 for want of threads or of memory for a stack, 4 of descriptors. The forker is for platforms
// on which the thread gets descriptors of its own; threads here share them, and it is not called. An
// exception that leaves the starter ends the program.
KELSTDMT_API btkThreadHandle StrictThread_Launch(btkThreadStarter starter, void *object,
                                                 btkThreadForker forker);
// Waits for the end, which comes behind the destructors of the thread's thread_local objects, and stores the
// exit code: the nil int of a thread that was cancelled or left by pthread_exit. Any number of times, any
// thread. False for -1.
KELSTDMT_API bool StrictThread_Wait(btkThreadHandle thread, int *exit_code);
KELSTDMT_API bool StrictThread_CheckRunning(btkThreadHandle thread);
// Lets go of the handle, which nobody must await any more with an event. A thread that still runs goes on
// without it.
KELSTDMT_API void StrictThread_Free(btkThreadHandle thread) noexcept;
