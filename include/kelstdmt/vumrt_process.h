// Processes, and what reaches this one from its console.
//
// A process handle is a descriptor of the process: it can be awaited beside sockets and pipes, and it means
// the same process for as long as it is open, also when the id has been given to another one since.
#pragma once

#include <kelstdmt/export.h>
#include <kelstdmt/vumrt.h>

// Awaited with btkPROCESSEvent. -1 is none.
using btkProcessHandle = int;

enum btkLaunchOptions : unsigned {
    btkLaunchGroup = 1,   // in a process group of its own: interrupt and kill reach its children too
    btkLaunchSession = 2  // in a session of its own, away from the terminal
};

// Starts a program. The command line is split at blanks: double quotes hold blanks together (two of them
// inside quotes are an ordinary one), backslashes before a quote are halved and an odd one makes it an
// ordinary character. What follows the -c or /c of a command interpreter is one argument, from its first
// double quote to the last; all of it when it does not begin with one. A program without a separator in its
// name is looked for in PATH, a relative one from the caller's folder. A null working directory is the
// caller's.
//
// The three handles become the child's standard input, output and error; with -1 it keeps the caller's. It
// inherits no other descriptor, and signals as a fresh program finds them: ignored ones stay ignored, but not
// SIGINT with btkLaunchGroup. Any thread, but not while another one changes the environment. False with the
// last error set, and nothing started: 2 no such program, 5 not to be executed, 8 no memory, 87 no command or
// a bad handle, 193 no program, 206 too long, 267 no such working directory, 1816 too many processes.
KELSTDMT_API bool Process_Launch(btkProcessHandle *handle, unsigned long *id, const char *command_line,
                                 const char *working_directory, int in, int out, int err, unsigned options);
// A process that runs already. False with the last error set: 87 for an id that no process has.
KELSTDMT_API bool Process_Open(btkProcessHandle *handle, unsigned long id);
// Whether Process_Wait can wait for it.
KELSTDMT_API bool Process_CanWait(btkProcessHandle handle);
// True when the process has ended: its exit code has been stored (128 and the signal's number after a signal;
// left as it was for a process that is no child of this one, or when the system does not tell) and, with
// release, the handle freed. With block it waits for that; without, it is false while the process runs.
KELSTDMT_API bool Process_Wait(btkProcessHandle handle, long *exit_code, bool block, bool release);
KELSTDMT_API bool Process_CheckRunning(btkProcessHandle handle);
// Ends it, and with btkLaunchGroup its group: also what is left of that when the process itself has ended,
// until a wait has told so. False with the last error set when it may not or there is nothing left to end.
KELSTDMT_API bool Process_Kill(btkProcessHandle handle);
// What Ctrl+C at its terminal would do, to the process and with btkLaunchGroup to its group, as Process_Kill.
// While this program holds a handle of the process, an id that has been given to another one since is refused
// (87).
KELSTDMT_API bool Process_Interrupt(unsigned long id);
// Lets go of the handle; the process goes on. When a child has ended after that, a later launch collects it.
KELSTDMT_API void Process_Free(btkProcessHandle handle) noexcept;

KELSTDMT_API unsigned long Process_GetCurrentId() noexcept;
// Tells a process from every other one that ever had its id on this machine; 0 when there is none of that id.
KELSTDMT_API unsigned long long Process_GetBirth(unsigned long id) noexcept;

// The console ----------------------------------------------------------------------------------

enum btkConsoleEvent : unsigned long {
    CTRL_C_EVENT = 0,     // SIGINT
    CTRL_BREAK_EVENT = 1  // SIGQUIT
};

// Called inside a signal handler, in any thread: it may do no more than set an event. True: the key has been
// dealt with; false: the next handler is asked, the one that was added before it, and in the end what the
// program had for the signal before the first handler was added.
using btkConsoleHandler = bool (*)(unsigned long type);

// Adds a handler, or removes the youngest equal one. False when there is none to remove, or no room (8
// handlers). With the last one, the signals are as they were, unless another handler stands there by now. One
// that was removed is not running any more. Any thread, but not inside a handler.
KELSTDMT_API bool SetConsoleCtrlHandler(btkConsoleHandler handler, bool add);
