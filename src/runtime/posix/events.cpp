// One poll over everything that a list awaits. What is known without asking, such as bytes already read
// ahead, joins in by turning the poll into one that does not wait, so that the order of the list decides
// between the two kinds.
#include <kelstdmt/vumrt_event.h>

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>

#include "runtime/posix/uncancelled.h"
#include "runtime/posix/waiting.h"

using namespace kel::system;

btkBaseEvent::~btkBaseEvent() = default;
bool btkBaseEvent::IsReady() {
    return false;
}
btkPollRequest btkBaseEvent::GetPollRequest() {
    return {};
}
bool btkBaseEvent::Confirm(unsigned got) {
    return IsMet(got);
}
bool btkBaseEvent::IsMet(unsigned got) {
    return got != 0;
}

btkEvent::~btkEvent() = default;

// Asking ---------------------------------------------------------------------------------------

int btkEvent::Wait(List &list, const btkTimeval &timeout, const btkTimeval &) {
    std::size_t size = list.GetSize();
    std::int64_t nanos = to_nanos(timeout);
    std::int64_t deadline = deadline_in(nanos);
    pollfd few[64];  // a wait of one of the events may run within this one, so each has room of its own
    std::vector<pollfd> many(size > std::size(few) ? size : 0);
    pollfd *requests = many.empty() ? few : many.data();
    for (std::int64_t left = nanos;; left = left_until(deadline)) {
        // Events after one that is ready without asking cannot come first: they are not asked.
        std::size_t asked = 0;
        bool ready = false, any = false;
        for (; asked < size && !ready; ++asked) {
            btkBaseEvent *base = list[asked] ? list[asked]->GetBaseEvent() : nullptr;
            ready = base && base->IsReady();
            requests[asked] = to_system(base && !ready ? base->GetPollRequest() : btkPollRequest{});
            any = any || requests[asked].fd >= 0;
        }
        int told = 0;
        if (any || !ready) told = poll_until(requests, asked, ready ? 0 : left, deadline);
        if (told < 0) {
            Error_SetLastFromSystem(errno);
            return -1;
        }
        if (told == 0 && !ready) return 0;
        for (std::size_t at = 0; at < asked; ++at) {
            unsigned got = from_system(requests[at].revents);
            if (told > 0 && got && list[at]->GetBaseEvent()->Confirm(got)) return static_cast<int>(at) + 1;
        }
        if (ready) return static_cast<int>(asked);
        // Another thread took the signal.
        if (left == 0) return 0;
    }
}

bool btkEvent::IsSignaled() {
    if (!m_base) return false;
    if (m_base->IsReady()) return true;
    pollfd request = to_system(m_base->GetPollRequest());
    return request.fd >= 0 && poll_until(&request, 1, 0, 0) > 0 &&
           m_base->IsMet(from_system(request.revents));
}

// The kinds ------------------------------------------------------------------------------------

bool btkAlwaysEvent::IsReady() {
    return true;
}

btkSelectEvent::btkSelectEvent(int fd, int type) noexcept
    : m_request{fd, type == 0   ? btkPollIn
                    : type == 1 ? btkPollOut
                                : btkPollUrgent} {}
btkPollRequest btkSelectEvent::GetPollRequest() {
    return m_request;
}

btkPollRequest btkPROCESSEvent::GetPollRequest() {
    return {m_handle, btkPollIn};
}

// The program's own events: a handle is twice the descriptor, plus one for manual reset.

namespace {

constexpr int descriptor_of(btkEventHandle event) {
    return event < 0 ? -1 : event >> 1;
}
constexpr bool is_manual(btkEventHandle event) {
    return event & 1;
}

// Takes the signal; false when there was none.
bool take(btkEventHandle event) {
    eventfd_t count;
    return ::eventfd_read(descriptor_of(event), &count) == 0;
}

// Around calls of the system in functions that throw nothing and leave errno alone.
class quietly {
public:
    quietly() noexcept : m_saved(errno) {}
    ~quietly() { errno = m_saved; }
    quietly(const quietly &) = delete;
    quietly &operator=(const quietly &) = delete;

private:
    uncancelled m_scope;
    int m_saved;
};

}  // namespace

btkEventHandle Event_Create(bool manual_reset, bool initial) {
    int fd = ::eventfd(initial ? 1 : 0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (fd < 0) {
        Error_SetLastFromSystem(errno);
        return -1;
    }
    return fd * 2 + (manual_reset ? 1 : 0);
}

void Event_Set(btkEventHandle event) noexcept {
    quietly scope;
    // A counter at its limit, the one refusal, is a signal too.
    if (event >= 0) ::eventfd_write(descriptor_of(event), 1);
}
void Event_Reset(btkEventHandle event) noexcept {
    quietly scope;
    if (event >= 0) take(event);
}
void Event_Free(btkEventHandle event) noexcept {
    quietly scope;
    if (event >= 0) ::close(descriptor_of(event));
}

btkPollRequest btkEVENTEvent::GetPollRequest() {
    return {descriptor_of(m_event), btkPollIn};
}
bool btkEVENTEvent::Confirm(unsigned got) {
    if (is_manual(m_event) || !(got & btkPollIn)) return got != 0;
    quietly scope;
    return take(m_event);
}
