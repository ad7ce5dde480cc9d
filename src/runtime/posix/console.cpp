// The keys by which a user interrupts the program. There is one signal handler for both; it asks the
// program's handlers, the youngest first, and at the end does what would have been done without it.
//
// The list is read by signal handlers in any thread while others change it, so it is a few atomic places. Who
// removes a handler waits until no signal handler is inside the list: what the handler uses may go after
// that.
#include <sched.h>
#include <signal.h>

#include <atomic>
#include <cerrno>

#include <kelstdmt/vumrt_process.h>

namespace {

MT_LIBRARY_GUARD(console_guard);

constexpr int room = 8;
constinit std::atomic<btkConsoleHandler> handlers[room] = {};
constinit int handler_count = 0;  // under the guard
constinit std::atomic<int> signal_handlers_inside = 0;

struct console_signal {
    int number;
    btkConsoleEvent event;
    // What the program had; under the guard, and for signal handlers, of which one may come late.
    struct sigaction before;
    std::atomic<void (*)(int)> plain_before = SIG_DFL;
    std::atomic<void (*)(int, siginfo_t *, void *)> detailed_before = nullptr;
};
constinit console_signal signals[] = {{SIGINT, CTRL_C_EVENT, {}}, {SIGQUIT, CTRL_BREAK_EVENT, {}}};

// The end of the program, unless it is one that the system spares.
void do_default(int number) {
    struct sigaction ours {
    }, plain{};
    plain.sa_handler = SIG_DFL;
    sigset_t set, masked;
    ::sigemptyset(&set);
    ::sigaddset(&set, number);
    ::sigaction(number, &plain, &ours);
    ::raise(number);
    ::pthread_sigmask(SIG_UNBLOCK, &set, &masked);
    ::pthread_sigmask(SIG_SETMASK, &masked, nullptr);
    ::sigaction(number, &ours, nullptr);
}

void do_as_before(const console_signal &signal, siginfo_t *info, void *context) {
    const auto detailed = signal.detailed_before.load();
    const auto plain = signal.plain_before.load();
    if (detailed)
        detailed(signal.number, info, context);
    else if (plain == SIG_DFL)
        do_default(signal.number);
    else if (plain != SIG_IGN)
        plain(signal.number);
}

void on_signal(int number, siginfo_t *info, void *context) {
    const int error_before = errno;
    const console_signal &signal = signals[number == SIGINT ? 0 : 1];
    signal_handlers_inside.fetch_add(1);
    bool dealt_with = false;
    // Handlers move towards the beginning when others go: read in this direction none is missed.
    for (int i = room - 1; i >= 0 && !dealt_with; --i) {
        const btkConsoleHandler handler = handlers[i].load();
        dealt_with = handler && handler(signal.event);
    }
    signal_handlers_inside.fetch_sub(1);
    if (!dealt_with) do_as_before(signal, info, context);
    errno = error_before;
}

bool is_installed(const struct sigaction &action) {
    return (action.sa_flags & SA_SIGINFO) && action.sa_sigaction == on_signal;
}

void install() {
    for (console_signal &signal : signals) {
        struct sigaction now {};
        ::sigaction(signal.number, nullptr, &now);
        // Somebody who had ours for the one before has put it back.
        if (is_installed(now)) continue;
        signal.before = now;
        const bool detailed = now.sa_flags & SA_SIGINFO;
        signal.plain_before = detailed ? SIG_IGN : now.sa_handler;
        signal.detailed_before = detailed ? now.sa_sigaction : nullptr;
        struct sigaction ours {};
        ours.sa_sigaction = on_signal;
        ours.sa_mask = now.sa_mask;
        ours.sa_flags = SA_SIGINFO | SA_RESTART | SA_ONSTACK;
        ::sigaction(signal.number, &ours, nullptr);
    }
}

// Where another handler has been installed over ours, that one stays.
void uninstall() {
    for (console_signal &signal : signals) {
        struct sigaction now {};
        ::sigaction(signal.number, nullptr, &now);
        if (is_installed(now)) ::sigaction(signal.number, &signal.before, nullptr);
    }
}

bool add(btkConsoleHandler handler) {
    if (handler_count == room) return false;
    handlers[handler_count++].store(handler);
    if (handler_count == 1) install();
    return true;
}

bool remove(btkConsoleHandler handler) {
    int at = handler_count - 1;
    while (at >= 0 && handlers[at].load() != handler)
        --at;
    if (at < 0) return false;
    for (; at + 1 < handler_count; ++at)
        handlers[at].store(handlers[at + 1].load());
    handlers[--handler_count].store(nullptr);
    if (handler_count == 0) uninstall();
    while (signal_handlers_inside.load() > 0)
        ::sched_yield();
    return true;
}

}  // namespace

bool SetConsoleCtrlHandler(btkConsoleHandler handler, bool add_it) {
    MT_LIBRARY_GUARD_USE(console_guard);
    return handler && (add_it ? add(handler) : remove(handler));
}
