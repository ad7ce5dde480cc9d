// The runtime underneath: memory, internal errors, locks, texts and time values.
// Stream buffers, pipes and files are in vumrt_stream.h, waitable conditions in vumrt_event.h.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string>

#include <kelstdmt/export.h>
#include <kelstdmt/xtypes.h>

// Memory ---------------------------------------------------------------------------------------

// Where the system's objects, descriptors and string buffers come from. What the default manager
// gives is freed by the plain operator delete; a manager of one's own must keep to that.
class KELSTDMT_API btkMemMgr {
public:
    virtual ~btkMemMgr();
    virtual void *Allocate(std::size_t bytes);  // throws std::bad_alloc, never null
};

extern KELSTDMT_API btkMemMgr *const pDefMemMgr;

KELSTDMT_API void *operator new(std::size_t bytes, btkMemMgr *manager);
KELSTDMT_API void operator delete(void *block, btkMemMgr *manager) noexcept;

// A heap copy of the text that operator delete frees; a null pointer gives null.
KELSTDMT_API char *Strnew__(const char *text);

// Characters of the current locale before the terminator; a byte that begins none counts as one. 0 for a
// null pointer and for the text markers 1 and 2.
KELSTDMT_API unsigned Strlen(const char *text);
// The same for wide text, in units.
KELSTDMT_API unsigned Strlen(const unsigned short *text);

// Internal errors ------------------------------------------------------------------------------

// Reports a case that must not occur and returns: callers go on with their own fallback. The
// default reporter writes one line "kelstdmt: internal error: MESSAGE (SOURCE:LINE)" to standard
// error. message may be null. Any thread.
KELSTDMT_API void _Abort(const char *message, const char *source, int line);

using btkAbortHandler = void (*)(const char *message, const char *source, int line);

// Replaces the reporter (null: the default one) and answers the one before.
KELSTDMT_API btkAbortHandler btkSetAbortHandler(btkAbortHandler handler);

// Locks ----------------------------------------------------------------------------------------

// True from the start; a program without threads may clear it before it uses the library.
extern KELSTDMT_API bool s_bThreadingEnabled;

// A thread unlocked what it does not hold, or locked a plain mutex twice: throws thrXIllegalAccess.
[[noreturn]] KELSTDMT_API void throwXIllegalAccess();

class KELSTDMT_API thrXIllegalAccess {
public:
    virtual ~thrXIllegalAccess();
    const char *what() const noexcept;
};

// A mutex that knows its owner. Type 0 (plain): a second Lock by the owner is an illegal access;
// type 1 (recursive): it is counted. Trivially destructible state, so that a static one may be
// used by objects that die after it.
class KELSTDMT_API thrMutex {
public:
    enum Type : int { Plain = 0, Recursive = 1 };

    explicit constexpr thrMutex(int type) noexcept : m_type(type) {}
    thrMutex(const thrMutex &) = delete;
    thrMutex &operator=(const thrMutex &) = delete;

    void Lock();
    void Unlock();
    bool IsOwner() const noexcept;
    bool IsActive() const noexcept { return true; }
    int GetType() const noexcept { return m_type; }
    unsigned GetDepth() const noexcept { return m_depth; }  // meaningful to the owner only

private:
    void wait();

    std::atomic<int> m_state{0};  // 0 free, 1 held, 2 held and awaited
    std::atomic<const void *> m_owner{nullptr};
    unsigned m_depth = 0;
    int m_type;
};

// Holds a mutex for a scope, only while threading is on.
class thrLock {
public:
    explicit thrLock(thrMutex &mutex) : m_mutex(s_bThreadingEnabled ? &mutex : nullptr) {
        if (m_mutex) m_mutex->Lock();
    }
    ~thrLock() {
        if (m_mutex) m_mutex->Unlock();
    }
    thrLock(const thrLock &) = delete;
    thrLock &operator=(const thrLock &) = delete;

private:
    thrMutex *m_mutex;
};

// A lock of the library's own, usable before and after every other static object, and its scoped user:
//     MT_LIBRARY_GUARD(interrupt_guard);
//     ... { MT_LIBRARY_GUARD_USE(interrupt_guard); ... }
#define MT_LIBRARY_GUARD(name) static constinit thrMutex name(thrMutex::Plain)
#define MT_LIBRARY_GUARD_USE(name) const thrLock name##_in_use(name)

// Chance ---------------------------------------------------------------------------------------

// 64 bits that nobody outside the process can foresee, from the system: seeds for hashes and names.
KELSTDMT_API std::uint64_t btkRandomSeed() noexcept;

// The machine ----------------------------------------------------------------------------------

// What the program runs on, as the system names it: such as "x86_64" and "Linux". A 32-bit program on a
// 64-bit system is told the system's own type. Never null; they live as long as the process.
KELSTDMT_API const char *btkMachineType() noexcept;
KELSTDMT_API const char *btkOSType() noexcept;

// Sets an environment variable; a null value removes it. False, with the last error set, when the name is
// null, empty or holds '='. Not while another thread reads or changes the environment.
KELSTDMT_API bool Putenv(const char *name, const char *value);

// Runs the line with /bin/sh, waits for its end and answers its exit code as a shell gives it: 127 without
// such a command, 128 and the signal's number after a signal. -1, with the last error set, when it cannot be
// run, and for a null pointer. Meanwhile interrupt and quit from the terminal are for the command alone. What
// the program has not flushed appears behind the command's output.
KELSTDMT_API int System(const char *command_line);

// Last error -----------------------------------------------------------------------------------

// Each thread has a last error: the reason why a call of the runtime that reports failure by its
// result failed, in the numbers that callers know: 2 no such file, 3 no such folder, 5 access denied,
// 12 read-only file system, 32 in use, 33 locked, 80 exists already, 87 wrong argument, 109 broken pipe,
// 112 disk full, 145 folder not empty, 162 interrupted by a signal, 183 exists already (folders), 206 name
// too long, 267 no folder, 1117 device error, 1816 quota exhausted. Success leaves it alone.
KELSTDMT_API int Error_GetLast() noexcept;
KELSTDMT_API void Error_SetLast(int number) noexcept;
// From an errno value; an errno without a number of its own is 31.
KELSTDMT_API void Error_SetLastFromSystem(int system_error) noexcept;
// The same for a failure that concerns a host path: tells a missing file (2) and a file that should be a
// folder (267) from something missing above it (3), and a file that exists (80) from a folder (183).
KELSTDMT_API void Error_SetLastFromSystem(int system_error, const char *host_path) noexcept;
// English, one sentence without a line end; lives as long as the process. Never null.
KELSTDMT_API const char *Error_GetText(int number) noexcept;

// Host paths -----------------------------------------------------------------------------------

// The host's path for a path in the callers' form. "C:\a\b", "\a\b" and "/a/b" are "/a/b"; "C:a" and "a" are
// relative to the current folder; "D:\a" and "D:a" lie in the entry "D" or "d" of the folder that the
// environment variable KELSTDMT_DRIVES names, and without such an entry the path is one that can neither
// exist nor be made. Every backslash separates. A null pointer and the text markers give the empty path.
KELSTDMT_API std::string btkHostPath(const char *path);
// The way back: absolute paths become "C:\...", or "D:\..." below a drive's folder, also when that is a link.
KELSTDMT_API std::string btkCallerPath(const char *host_path);

// Time values ----------------------------------------------------------------------------------

// Seconds and microseconds; always normal (0 <= usec < 1,000,000).
class KELSTDMT_API btkTimeval {
public:
    constexpr btkTimeval() noexcept = default;
    constexpr btkTimeval(std::int64_t seconds, std::int32_t micros) noexcept
        : m_sec(seconds), m_usec(micros) {}

    // From seconds, rounded to the nearest microsecond. Not-a-number is 0; what lies beyond the range
    // of plus or minus 2^30 seconds is cut to it.
    void init(double seconds) noexcept;
    static btkTimeval GetTimeOfDay() noexcept;  // the wall clock

    constexpr std::int64_t GetSec() const noexcept { return m_sec; }
    constexpr std::int32_t GetUsec() const noexcept { return m_usec; }
    double ToSeconds() const noexcept;

    friend constexpr auto operator<=>(const btkTimeval &, const btkTimeval &) noexcept = default;

private:
    std::int64_t m_sec = 0;
    std::int32_t m_usec = 0;
};

// Counts ---------------------------------------------------------------------------------------

// Told by the C library: true while this process has only one thread.
extern "C" char __libc_single_threaded;

namespace kel::detail {

// Reference and holder counts are touched on every copy of every value. A process with one thread
// pays a plain increment; otherwise the count is changed by one atomic step, so that two threads
// that copy two different objects never wait for each other.
inline bool counts_are_private() noexcept {
    return __libc_single_threaded || !s_bThreadingEnabled;
}

template <class Int>
inline Int count_load(const Int &count) noexcept {
    return __atomic_load_n(&count, __ATOMIC_ACQUIRE);
}

template <class Int>
inline void count_store(Int &count, Int value) noexcept {
    __atomic_store_n(&count, value, __ATOMIC_RELEASE);
}

// Adds and answers the count before.
template <class Int>
inline Int count_add(Int &count, Int by) noexcept {
    if (counts_are_private()) {
        Int before = count;
        count = static_cast<Int>(before + by);
        return before;
    }
    return __atomic_fetch_add(&count, by, __ATOMIC_ACQ_REL);
}

// Replaces the count if it still is `expected`; otherwise tells the present one in `expected`.
template <class Int>
inline bool count_swap(Int &count, Int &expected, Int wanted) noexcept {
    return __atomic_compare_exchange_n(&count, &expected, wanted, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
}

}  // namespace kel::detail
