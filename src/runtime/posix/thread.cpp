// Threads with a handle to wait for: a descriptor that becomes readable when the thread has ended.
//
// The end is told by the destructor of the first thread-local object that the thread makes, because that is
// the last one destroyed: whatever way the thread ends (its starter returns, pthread_exit, a cancellation),
// everything of the program's that ran on it has run by then.
#include <kelstdmt/vumrt_thread.h>

#include <pthread.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "runtime/owned_descriptor.h"
#include "runtime/posix/uncancelled.h"

namespace {

using kel::system::owned_descriptor;
using kel::system::uncancelled;

// Shared by the handle and the thread, so that either may go first.
struct thread_state {
    std::mutex guard;  // of the three below
    std::condition_variable end;
    bool ended = false;
    owned_descriptor end_signal;  // none once the handle is let go of

    int exit_code = kel::nil_int;  // the thread's until it has ended

    btkThreadStarter starter = nullptr;
    void *object = nullptr;
    std::shared_ptr<thread_state> for_thread;  // its share until it runs
};
using shared_state = std::shared_ptr<thread_state>;

class end_of_thread {
public:
    ~end_of_thread() {
        if (!m_state) return;
        uncancelled scope;
        {
            std::lock_guard lock(m_state->guard);
            m_state->ended = true;
            if (m_state->end_signal) ::eventfd_write(m_state->end_signal.get(), 1);
            m_state->end.notify_all();
        }
        m_state.reset();
    }

    thread_state &Of(shared_state state) noexcept {
        m_state = std::move(state);
        return *m_state;
    }

private:
    shared_state m_state;
};

// Nobody joins a thread: its end is told otherwise. It is detached from its beginning, because pthread_detach
// looks once more at the thread, which may be ending and gone by then.
class detached {
public:
    detached() noexcept {
        ::pthread_attr_init(&m_attributes);
        ::pthread_attr_setdetachstate(&m_attributes, PTHREAD_CREATE_DETACHED);
    }
    ~detached() { ::pthread_attr_destroy(&m_attributes); }
    detached(const detached &) = delete;
    detached &operator=(const detached &) = delete;
    const pthread_attr_t *get() const noexcept { return &m_attributes; }

private:
    pthread_attr_t m_attributes;
};

void *run(void *argument) {
    thread_local end_of_thread end;
    thread_state &self = end.Of(std::move(static_cast<thread_state *>(argument)->for_thread));
    ::pthread_setname_np(::pthread_self(), "kel");
    self.exit_code = self.starter(self.object);
    return nullptr;
}

// The handles. Never destroyed: threads may outlive the static objects.
class thread_table {
public:
    void Add(const shared_state &state) {
        std::lock_guard lock(m_guard);
        m_states.emplace(state->end_signal.get(), state);
    }
    shared_state Find(btkThreadHandle thread) {
        std::lock_guard lock(m_guard);
        auto at = m_states.find(thread);
        return at == m_states.end() ? nullptr : at->second;
    }
    shared_state Take(btkThreadHandle thread) noexcept {
        std::lock_guard lock(m_guard);
        auto entry = m_states.extract(thread);
        return entry ? std::move(entry.mapped()) : nullptr;
    }

private:
    std::mutex m_guard;
    std::unordered_map<btkThreadHandle, shared_state> m_states;
};

thread_table &table() {
    static auto *const only = new thread_table;
    return *only;
}

}  // namespace

btkThreadHandle StrictThread_Launch(btkThreadStarter starter, void *object, btkThreadForker) {
    constexpr int no_more_threads = 1816;
    if (!starter) {
        Error_SetLastFromSystem(EINVAL);
        return -1;
    }
    try {
        auto state = std::make_shared<thread_state>();
        state->end_signal.reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        if (!state->end_signal) {
            Error_SetLastFromSystem(errno);
            return -1;
        }
        state->starter = starter;
        state->object = object;
        const btkThreadHandle handle = state->end_signal.get();
        table().Add(state);
        state->for_thread = state;
        const detached attributes;
        pthread_t created;
        if (::pthread_create(&created, attributes.get(), run, state.get()) == 0) return handle;
        state->for_thread.reset();
        table().Take(handle);
        Error_SetLast(no_more_threads);
    } catch (const std::bad_alloc &) {
        Error_SetLastFromSystem(ENOMEM);
    }
    return -1;
}

bool StrictThread_Wait(btkThreadHandle thread, int *exit_code) {
    shared_state state = table().Find(thread);
    if (!state) return false;
    std::unique_lock lock(state->guard);
    state->end.wait(lock, [&] { return state->ended; });
    if (exit_code) *exit_code = state->exit_code;
    return true;
}

bool StrictThread_CheckRunning(btkThreadHandle thread) {
    shared_state state = table().Find(thread);
    if (!state) return false;
    std::lock_guard lock(state->guard);
    return !state->ended;
}

// The descriptor goes at once, also while the thread runs on.
void StrictThread_Free(btkThreadHandle thread) noexcept {
    const uncancelled scope;
    const shared_state state = table().Take(thread);
    if (!state) return;
    const std::lock_guard lock(state->guard);
    state->end_signal.reset();
}
