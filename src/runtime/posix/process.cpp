// Processes by their descriptors. A program that was started here is collected by the first wait that finds
// its end; until then its id cannot belong to another one, which is what makes signals to its group safe. One
// that was let go of before is collected by a later launch. All of this happens under one guard.
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <new>

#include <kelstdmt/vumrt_process.h>

#include "runtime/posix/process_handles.h"
#include "runtime/posix/through_signals.h"
#include "runtime/posix/uncancelled.h"
#include "runtime/relay.h"

namespace kel::system {

namespace {

MT_LIBRARY_GUARD(process_guard);

constexpr int wrong_argument = 87, no_memory = 8;

// The entries of the open handles, by the handle. Usable before and after every other static object.
class handle_table {
public:
    void add(prepared_entry &entry) noexcept {
        prepared_entry &place = place_of(entry.front().handle);
        place.splice(place.begin(), entry);
    }
    // Null for a handle that is not open.
    process_entry *find(int handle) noexcept {
        for (process_entry &entry : place_of(handle))
            if (entry.handle == handle) return &entry;
        return nullptr;
    }
    // Those of one id, one after the other.
    template <class Work>
    void each_of(int id, Work work) {
        for (prepared_entry &place : m_places)
            for (process_entry &entry : place)
                if (entry.id == id) work(entry);
    }
    // Own children that were let go of while they ran, the one that was looked at longest ago first.
    prepared_entry &left() noexcept { return m_left; }
    // The entry moves out, and its memory goes with the answer.
    prepared_entry remove(int handle) noexcept {
        prepared_entry removed, &place = place_of(handle);
        for (auto at = place.begin(); at != place.end(); ++at) {
            if (at->handle != handle) continue;
            removed.splice(removed.begin(), place, at);
            break;
        }
        return removed;
    }

private:
    static constexpr std::size_t size = 1024;
    prepared_entry &place_of(int handle) noexcept { return m_places[static_cast<unsigned>(handle) % size]; }

    prepared_entry m_places[size], m_left;
};

// Never destroyed: objects that die after every static one hold processes too.
handle_table &handles() {
    static handle_table &table = *new handle_table;
    return table;
}

// Ends -----------------------------------------------------------------------------------------

// With block, waits for it.
bool has_ended(int handle, bool block) {
    pollfd request{handle, POLLIN, 0};
    return through_signals([&] { return ::poll(&request, 1, block ? -1 : 0); }) > 0 &&
           (request.revents & POLLIN);
}

enum class told { nothing, running, ended };

// Asks the system how a child ended; with collect, for the last time.
told ask_end(int handle, bool collect, long &exit_code) {
    siginfo_t end{};
    const int options = WEXITED | WNOHANG | (collect ? 0 : WNOWAIT);
    if (through_signals([&] {
            return ::waitid(static_cast<idtype_t>(P_PIDFD), static_cast<id_t>(handle), &end, options);
        }) != 0)
        return told::nothing;
    if (end.si_pid == 0) return told::running;
    exit_code = end.si_code == CLD_EXITED ? end.si_status : 128 + end.si_status;
    return told::ended;
}

// PIDFD_GET_INFO of newer systems, whose headers are newer too: a descriptor goes on telling how its process
// ended when that has been collected.
struct process_info {
    std::uint64_t mask;
    std::uint64_t unused[6];
    std::uint32_t last_unused;
    std::int32_t wait_status;
};
static_assert(sizeof(process_info) == 64);
constexpr std::uint64_t end_wanted = 1U << 3;

told ask_descriptor(int handle, long &exit_code) {
    process_info info{};
    info.mask = end_wanted;
    if (::ioctl(handle, _IOWR(0xFF, 11, process_info), &info) != 0 || !(info.mask & end_wanted))
        return told::nothing;
    const int status = info.wait_status;
    exit_code = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    return told::ended;
}

// True when it has ended. An exit code that nobody tells is left as it was. errno tells of a handle that is
// none.
bool take_end(int handle, long *exit_code) {
    MT_LIBRARY_GUARD_USE(process_guard);
    process_entry *entry = handles().find(handle);
    if (!entry) {
        errno = EBADF;
        return false;
    }
    if (!entry->own_child && !has_ended(handle, false)) {
        errno = EAGAIN;
        return false;
    }
    if (!entry->collected) {
        told end = ask_end(handle, entry->own_child, entry->exit_code);
        errno = EAGAIN;
        if (end == told::running) return false;
        if (end == told::nothing && entry->own_child) {
            // The program ignores the end of its children, or collects all of them.
            if (!has_ended(handle, false)) return false;
            end = ask_descriptor(handle, entry->exit_code);
        }
        if (end == told::nothing) return true;
        entry->collected = entry->own_child;
    }
    if (exit_code) *exit_code = entry->exit_code;
    return true;
}

// Of a child that is known by its id and its birth, so that it costs no descriptor: whether there is nothing
// left to collect. One that was opened since is left to who did so.
bool is_collected(const process_entry &child) {
    bool opened = false;
    handles().each_of(child.id, [&](const process_entry &) { opened = true; });
    siginfo_t end{};
    const auto id = static_cast<id_t>(child.id);
    if (opened) return false;
    if (::waitid(P_PID, id, &end, WEXITED | WNOHANG | WNOWAIT) != 0) return true;
    const unsigned long long birth = end.si_pid == 0 ? 0 : Process_GetBirth(id);
    if (birth == child.birth) ::waitid(P_PID, id, &end, WEXITED | WNOHANG);
    return birth != 0;
}

void collect_some() {
    prepared_entry &left = handles().left();
    for (int turns = 4; turns > 0 && !left.empty(); --turns)
        if (is_collected(left.front()))
            left.pop_front();
        else
            left.splice(left.end(), left, left.begin());
}

}  // namespace

bool peek_exit_code(int process, long &exit_code) {
    MT_LIBRARY_GUARD_USE(process_guard);
    const process_entry *entry = handles().find(process);
    if (!entry || !has_ended(process, false)) return false;
    if (entry->collected)
        exit_code = entry->exit_code;
    else if (ask_end(process, false, exit_code) == told::nothing)
        ask_descriptor(process, exit_code);
    return true;
}

namespace {

// Signals --------------------------------------------------------------------------------------

// PIDFD_SIGNAL_PROCESS_GROUP of newer systems.
constexpr unsigned to_the_group = 1U << 2;

bool send(int handle, int signal, unsigned flags) {
    return ::syscall(SYS_pidfd_send_signal, handle, signal, nullptr, flags) == 0;
}

// Older systems know a group by its number alone, which nobody else has until the process is collected.
bool send_to_group(const process_entry &entry, int signal) {
    if (send(entry.handle, signal, to_the_group)) return true;
    long ignored;
    return errno == EINVAL && ask_end(entry.handle, false, ignored) != told::nothing &&
           ::kill(-entry.id, signal) == 0;
}

// To a process, and to its group where it leads one of ours; to itself where it has left that. Called under
// the guard; errno tells.
bool send_to(const process_entry &entry, int signal) {
    const bool has_group = entry.own_group && !entry.collected;
    return (has_group && send_to_group(entry, signal)) || send(entry.handle, signal, 0);
}

bool answer(bool success, int system_error) {
    if (!success) Error_SetLastFromSystem(system_error);
    return success;
}

bool is_id(unsigned long id) {
    return id > 0 && id <= INT_MAX;
}

}  // namespace

prepared_entry prepare_process() {
    handles();
    return prepared_entry(1);
}

int remember_process(prepared_entry &entry, owned_descriptor &&descriptor) noexcept {
    const uncancelled scope;
    const int handle = entry.front().handle = descriptor.release();
    MT_LIBRARY_GUARD_USE(process_guard);
    if (entry.front().own_child) collect_some();
    handles().add(entry);
    return handle;
}

}  // namespace kel::system

using namespace kel::system;

bool Process_Open(btkProcessHandle *handle, unsigned long id) {
    if (!handle || !is_id(id)) {
        Error_SetLast(wrong_argument);
        return false;
    }
    try {
        prepared_entry entry = prepare_process();
        owned_descriptor descriptor(static_cast<int>(::syscall(SYS_pidfd_open, static_cast<pid_t>(id), 0)));
        if (!descriptor) {
            // The id of a thread is none of a process.
            Error_SetLastFromSystem(errno == ENOENT ? ESRCH : errno);
            return false;
        }
        entry.front().id = static_cast<int>(id);
        *handle = remember_process(entry, std::move(descriptor));
        return true;
    } catch (const std::bad_alloc &) {
        Error_SetLast(no_memory);
        return false;
    }
}

bool Process_CanWait(btkProcessHandle handle) {
    return handle >= 0;
}

bool Process_Wait(btkProcessHandle handle, long *exit_code, bool block, bool release) {
    bool ended = take_end(handle, exit_code);
    if (!ended && block && errno == EAGAIN) ended = has_ended(handle, true) && take_end(handle, exit_code);
    if (!ended) {
        if (errno != EAGAIN) Error_SetLastFromSystem(errno);
        return false;
    }
    if (release) Process_Free(handle);
    return true;
}

bool Process_CheckRunning(btkProcessHandle handle) {
    if (handle < 0) return false;
    pollfd request{handle, POLLIN, 0};
    return through_signals([&] { return ::poll(&request, 1, 0); }) == 0;
}

bool Process_Kill(btkProcessHandle handle) {
    MT_LIBRARY_GUARD_USE(process_guard);
    const process_entry *entry = handles().find(handle);
    if (!entry) return answer(false, EBADF);
    // The others of a group may outlive the first.
    if (!entry->own_group && has_ended(handle, false)) return answer(false, ESRCH);
    return answer(send_to(*entry, SIGKILL), errno);
}

bool Process_Interrupt(unsigned long id) {
    if (!is_id(id)) {
        Error_SetLast(wrong_argument);
        return false;
    }
    MT_LIBRARY_GUARD_USE(process_guard);
    // Of several handles the one on a process that still runs, and of those the one that knows the group;
    // else the one whose group may live on.
    const process_entry *best = nullptr, *left = nullptr;
    bool known = false;
    handles().each_of(static_cast<int>(id), [&](const process_entry &entry) {
        known = true;
        if (entry.own_group && !entry.collected) left = &entry;
        if (!has_ended(entry.handle, false) && (!best || entry.own_group)) best = &entry;
    });
    if (!best) best = left;
    if (known && !best) return answer(false, ESRCH);
    return answer(best ? send_to(*best, SIGINT) : ::kill(static_cast<pid_t>(id), SIGINT) == 0, errno);
}

void Process_Free(btkProcessHandle handle) noexcept {
    if (handle < 0) return;
    const uncancelled scope;
    MT_LIBRARY_GUARD_USE(process_guard);
    // All under the guard: the number may be given out again at once.
    prepared_entry removed = handles().remove(handle);
    const owned_descriptor closed(removed.empty() ? -1 : handle);
    if (removed.empty() || !removed.front().own_child || removed.front().collected) return;
    process_entry &child = removed.front();
    if (ask_end(handle, true, child.exit_code) != told::running) return;
    child.birth = Process_GetBirth(static_cast<unsigned long>(child.id));
    if (child.birth) handles().left().splice(handles().left().end(), removed);
}

unsigned long Process_GetCurrentId() noexcept {
    return static_cast<unsigned long>(::getpid());
}
