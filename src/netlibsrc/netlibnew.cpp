// Services, and the way to become a daemon. What the signals ask for is kept in one word of bits, and two
// events follow it: one for the body (something is new), one for a pause (it is over). Handlers may run on
// any thread and interrupt any other change, so whoever changes the word afterwards brings the events in line
// with it.
#include <atomic>
#include <iostream>

#include <kelstdmt/iolib.h>
#include <kelstdmt/netlib_service.h>

#include "runtime/service.h"

namespace {

using kel::system::tell_service_manager;

enum service_bit : unsigned {
    runs = 1,
    stopped = 2,
    paused = 4,
    released = 8,
    news = 16,  // to pause or to go on, which nobody has asked about since
    told_stopping = 32
};
std::atomic<unsigned> state{0};
static_assert(std::atomic<unsigned>::is_always_lock_free);

bool has_news() noexcept {
    return state & (stopped | news);
}
bool may_go_on() noexcept {
    return (state & (paused | stopped)) != paused;
}

// An event of the process's life, in line with a condition.
class following_event {
public:
    explicit constexpr following_event(bool (*condition)() noexcept) noexcept : m_condition(condition) {}

    bool Ready() {
        MT_LIBRARY_GUARD(guard);
        MT_LIBRARY_GUARD_USE(guard);
        if (m_event == -1) m_event = Event_Create(true, m_condition());
        return m_event != -1;
    }
    btkEventHandle Handle() const noexcept { return m_event; }

    // Who changes the event looks at the condition once more: the last one to change it has seen the last
    // condition.
    void Follow() noexcept {
        for (bool set = m_condition();;) {
            set ? Event_Set(m_event) : Event_Reset(m_event);
            const bool now = m_condition();
            if (now == set) return;
            set = now;
        }
    }

private:
    bool (*m_condition)() noexcept;
    std::atomic<btkEventHandle> m_event{-1};
};
constinit following_event news_event(has_news), go_on_event(may_go_on);

// Answers the bits before. Nothing while no service runs.
unsigned change(unsigned clear, unsigned set) noexcept {
    unsigned before = state;
    do {
        if (!(before & runs)) return before;
    } while (!state.compare_exchange_weak(before, (before & ~clear) | set));
    news_event.Follow();
    go_on_event.Follow();
    return before;
}

void ask_to_stop() noexcept {
    change(0, stopped);
}
void ask_to_pause() noexcept {
    change(released, paused | news);
}
void ask_to_go_on() noexcept {
    change(paused, released | news);
}
constexpr kel::system::service_requests requests{ask_to_stop, ask_to_pause, ask_to_go_on};

// The bits, for one who asks about pauses.
unsigned ask() noexcept {
    return state & news ? change(news, 0) : state.load();
}

void report_stopping() noexcept {
    if ((change(0, told_stopping) & (runs | told_stopping)) == runs)
        tell_service_manager("STOPPING=1\nSTATUS=Stopping");
}

// The next run may begin when the signals are back with their owners.
struct run_state {
    ~run_state() {
        state = 0;
        news_event.Follow();
        go_on_event.Follow();
    }
};
class run_of_service {
public:
    run_of_service() noexcept : m_signals(requests, !kel::system::has_service_manager()) {}
    ~run_of_service() { report_stopping(); }

private:
    run_state m_state;
    kel::system::service_signals m_signals;
};

}  // namespace

netService::~netService() = default;

netService::netService(const char *service_name, xrchandle<xstringsequence> parameters,
                       const char *display_name)
    : m_service_name(service_name),
      m_display_name(kel::is_text(display_name) ? display_name : service_name),
      m_parameters(parameters) {}

netService *netService::Create(const char *service_name, xrchandle<xstringsequence> parameters,
                               const char *display_name) {
    return kel::construct_with<netService>(
        [&](void *at) { return ::new (at) netService(service_name, parameters, display_name); });
}

unsigned char netService::Run() {
    constexpr int exists = 183;
    if (!news_event.Ready() || !go_on_event.Ready()) return 0;
    unsigned none = 0;
    if (!state.compare_exchange_strong(none, runs)) {
        Error_SetLast(exists);
        return 0;
    }
    run_of_service scope;
    DoService(m_parameters);
    return 1;
}

void netService::DoService(xrchandle<xstringsequence> parameters) {
    if (kel::is_object(m_do_service)) m_do_service->DoService(this, parameters);
}

xrchandle<xstringsequence> netService::ExtractParms(int count, char **arguments) {
    xrchandle<xstringsequence> list(xstringsequence::create());
    for (int at = 0; arguments && at < count; ++at)
        list->append(xstring(arguments[at]));
    return list;
}

// To the manager -------------------------------------------------------------------------------

void netService::ReportStarting(double seconds) {
    btkTimeval time;
    time.init(seconds);
    std::string lines = "STATUS=Starting";
    if (time > btkTimeval()) {
        constexpr std::int64_t micros_per_second = 1'000'000;
        const std::int64_t micros = time.GetSec() * micros_per_second + time.GetUsec();
        lines += "\nEXTEND_TIMEOUT_USEC=" + std::to_string(micros);
    }
    tell_service_manager(lines);
}
void netService::ReportRunning() {
    tell_service_manager("READY=1\nSTATUS=Running");
}
void netService::ReportPaused() {
    tell_service_manager("STATUS=Paused");
}

// What was asked for ---------------------------------------------------------------------------

xbool netService::IsStopped() {
    if (!(state & stopped)) return 0;
    report_stopping();
    return 1;
}
xbool netService::IsPaused() {
    return (ask() & paused) != 0;
}
xbool netService::IsReleased() {
    return (ask() & released) != 0;
}

void netService::DoPause() {
    ReportPaused();
    evtEvent over(new btkEVENTEvent(go_on_event.Handle()));
    bool waits = true;
    do {
        while (waits && !may_go_on())
            waits = over.Wait(INFINITE);
        // A request to pause that comes just now is waited out too.
    } while (waits && (ask() & (paused | stopped)) == paused);
    if (!IsStopped()) ReportRunning();
}

void netService::RequestStop() {
    ask_to_stop();
}

evtEvent *netService::StateEvent() {
    if (!news_event.Ready()) return nullptr;
    return kel::construct<evtEvent>(new btkEVENTEvent(news_event.Handle()));
}

// Daemons --------------------------------------------------------------------------------------

bool kel::become_daemon(const char *pid_file, std::string *reason) {
    // What is buffered would be written by both.
    ioStream::getStdout()->Flush();
    std::cout.flush();
    std::clog.flush();
    std::string ignored;
    return kel::system::become_daemon(pid_file, reason ? *reason : ignored);
}

void kel::daemon_ready() {
    kel::system::daemon_ready();
}
