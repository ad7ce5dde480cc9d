// Many conditions over one epoll instance.
//
// The system knows a descriptor once, so the interests of all events on it are joined, and what it tells is
// handed to each of them. What the system cannot know, such as bytes that stand in a buffer, is asked of the
// events in a queue: new ones, those that were reported or touched since, and those without a descriptor.
// A wait serves the queue from its front until there is no more room, then asks the system. Who is told of
// then and finds no room joins the queue, and who was reported goes behind him, so that nobody is passed over
// twice.
#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <deque>
#include <unordered_map>
#include <utility>

#include "runtime/owned_descriptor.h"
#include "runtime/posix/waiting.h"

using namespace kel::system;

namespace {

constexpr int no_descriptors = 4, wrong_argument = 87, exists = 183;
constexpr int most_told = 512;

struct entry {
    entry(btkEvent *owner, btkBaseEvent *condition) noexcept : event(owner), base(condition) {}

    btkEvent *event;
    btkBaseEvent *base;
    btkPollRequest request;         // as it is registered
    entry *next = nullptr;          // on the same descriptor
    std::uint64_t place = 0;        // in the queue, counted from its beginning, while it is queued
    std::uint64_t reported_by = 0;  // the number of a wait
    bool queued = false;
    bool told = false;    // of by the system, and there was no room
    bool direct = false;  // the system's set does not take its descriptor: it is polled
};

}  // namespace

struct btkEventSet::state {
    struct descriptor {
        entry *first = nullptr;
        std::uint32_t generation = 0;  // tells an older registration of the same number
        bool registered = false;
    };

    bool place(entry &one);
    void displace(entry &one);
    void move(entry &one, btkPollRequest request);
    bool tell_system(int fd);
    bool rebuild();

    void queue(entry &one);
    void unqueue(entry &one) noexcept;
    bool is_signalled(entry &one);
    void report(entry &one);
    void ask_queued();
    int ask_system(std::int64_t left);
    bool hear(const epoll_event &message);

    std::unordered_map<btkEvent *, std::unique_ptr<entry>> entries;
    std::vector<descriptor> descriptors;  // by number
    owned_descriptor epoll;
    std::deque<entry *> queued;
    std::uint64_t served = 0;  // of the queue, since the beginning
    std::vector<entry *> reported;
    std::vector<epoll_event> messages;
    std::uint64_t round = 0;
    bool is_whole = true;  // what stands in no list is direct
    btkEvent **signalled = nullptr;
    std::size_t room = 0, found = 0;
};

btkEventSet::btkEventSet() : m_state(std::make_unique<state>()) {}
btkEventSet::~btkEventSet() = default;

std::size_t btkEventSet::GetSize() const noexcept {
    return m_state->entries.size();
}

bool btkEventSet::Add(btkEvent *event) {
    if (!event) return true;
    const auto [at, is_new] =
        m_state->entries.try_emplace(event, std::make_unique<entry>(event, event->GetBaseEvent()));
    if (!is_new) {
        Error_SetLast(exists);
        return false;
    }
    entry &one = *at->second;
    if (!one.base) return true;
    one.request = one.base->GetPollRequest();
    bool placed = false;
    try {
        placed = m_state->place(one);
        if (placed) m_state->queue(one);
    } catch (...) {
        if (placed) m_state->displace(one);
        m_state->entries.erase(at);
        throw;
    }
    if (!placed) m_state->entries.erase(at);
    return placed;
}

void btkEventSet::Remove(btkEvent *event) {
    const auto at = m_state->entries.find(event);
    if (at == m_state->entries.end()) return;
    m_state->unqueue(*at->second);
    m_state->displace(*at->second);
    m_state->entries.erase(at);
}

void btkEventSet::Touch(btkEvent *event) {
    const auto at = m_state->entries.find(event);
    if (at != m_state->entries.end() && at->second->base) m_state->queue(*at->second);
}

// What the system knows ------------------------------------------------------------------------

// False with the last error set when the system refuses.
bool btkEventSet::state::place(entry &one) {
    one.direct = false;
    if (one.request.fd < 0) return true;
    if (!epoll) epoll.reset(::epoll_create1(EPOLL_CLOEXEC));
    if (!epoll) {
        Error_SetLast(no_descriptors);
        return false;
    }
    const auto fd = static_cast<std::size_t>(one.request.fd);
    if (fd >= descriptors.size()) descriptors.resize(std::max(fd + 1, 2 * descriptors.size()));
    // Events of a stream that was closed since then stand at a number that is another's now.
    for (entry *other = descriptors[fd].first; other;) {
        entry *next = other->next;
        if (other->base->GetPollRequest().fd != one.request.fd) {
            queue(*other);
            displace(*other);
            other->request = {};
        }
        other = next;
    }
    one.next = std::exchange(descriptors[fd].first, &one);
    if (tell_system(one.request.fd)) return true;
    descriptors[fd].first = one.next;
    // Files on a disk are always ready, and a descriptor that is none is an event too, also when its number
    // has become the set's own: they are left to poll.
    one.direct = errno == EPERM || errno == EBADF || errno == EINVAL;
    if (!one.direct) Error_SetLast(no_descriptors);
    return one.direct;
}

void btkEventSet::state::displace(entry &one) {
    if (one.request.fd < 0 || one.direct) return;
    entry **link = &descriptors[static_cast<std::size_t>(one.request.fd)].first;
    while (*link != &one)
        link = &(*link)->next;
    *link = one.next;
    tell_system(one.request.fd);
}

void btkEventSet::state::move(entry &one, btkPollRequest request) {
    displace(one);
    one.request = request;
    if (!place(one)) {
        one.direct = true;
        is_whole = false;
    }
}

// The joined interests of a descriptor. False with errno set.
bool btkEventSet::state::tell_system(int fd) {
    descriptor &place = descriptors[static_cast<std::size_t>(fd)];
    if (!place.first) {
        if (std::exchange(place.registered, false)) ::epoll_ctl(epoll.get(), EPOLL_CTL_DEL, fd, nullptr);
        return true;
    }
    epoll_event wish{};
    for (const entry *one = place.first; one; one = one->next)
        wish.events |= static_cast<std::uint32_t>(to_system(one->request).events);
    auto tell = [&](int operation) {
        wish.data.u64 = std::uint64_t{place.generation} << 32 | static_cast<std::uint32_t>(fd);
        return ::epoll_ctl(epoll.get(), operation, fd, &wish) == 0;
    };
    if (place.registered && tell(EPOLL_CTL_MOD)) return true;
    // Not registered yet, or closed and opened again.
    ++place.generation;
    place.registered = tell(EPOLL_CTL_ADD);
    return place.registered;
}

// A descriptor that was closed while a copy of it lives on stays in the system's set, and only a new set is
// free of it. What the system refuses now is tried again by the next wait.
bool btkEventSet::state::rebuild() {
    epoll.reset();
    for (descriptor &place : descriptors)
        place = {nullptr, place.generation, false};
    is_whole = true;
    for (auto &[event, one] : entries) {
        if (!one->base || one->request.fd < 0) continue;
        if (!place(*one)) {
            one->direct = true;
            is_whole = false;
        }
        if (one->direct) queue(*one);
    }
    return is_whole;
}

// What is asked --------------------------------------------------------------------------------

void btkEventSet::state::queue(entry &one) {
    if (one.queued) return;
    queued.push_back(&one);
    one.place = served + queued.size() - 1;
    one.queued = true;
}

void btkEventSet::state::unqueue(entry &one) noexcept {
    if (one.queued) queued[static_cast<std::size_t>(one.place - served)] = nullptr;
    one.queued = false;
}

bool btkEventSet::state::is_signalled(entry &one) {
    if (one.base->IsReady()) return true;
    const btkPollRequest now = one.base->GetPollRequest();
    if (now.fd != one.request.fd || now.interest != one.request.interest || one.direct) move(one, now);
    if (!std::exchange(one.told, false) && !one.direct) return false;
    pollfd request = to_system(now);
    if (poll_until(&request, 1, 0, 0) <= 0) return false;
    const unsigned got = from_system(request.revents);
    return got != 0 && one.base->Confirm(got);
}

void btkEventSet::state::report(entry &one) {
    one.reported_by = round;
    reported.push_back(&one);
    signalled[found++] = one.event;
}

void btkEventSet::state::ask_queued() {
    for (std::size_t count = queued.size(); count > 0 && found < room; --count) {
        entry *one = queued.front();
        queued.pop_front();
        ++served;
        if (!one) continue;
        one->queued = false;
        if (is_signalled(*one))
            report(*one);
        else if (one->request.fd < 0 || one->direct)
            queue(*one);
    }
}

// How many messages there are; negative on failure.
int btkEventSet::state::ask_system(std::int64_t left) {
    constexpr std::int64_t nanos_per_milli = 1'000'000;
    if (!epoll) return poll_until(nullptr, 0, left, deadline_in(left));
    const std::int64_t millis = std::min<std::int64_t>(left / nanos_per_milli, INT_MAX);
    // The rest below a millisecond is waited out to the point.
    if (left > 0 && millis == 0) {
        pollfd request{epoll.get(), POLLIN, 0};
        poll_until(&request, 1, left, deadline_in(left));
    }
    messages.resize(std::clamp<std::size_t>(room, 1, most_told));
    const int told = ::epoll_wait(epoll.get(), messages.data(), static_cast<int>(messages.size()),
                                  left == unlimited ? -1 : static_cast<int>(millis));
    return told < 0 && errno == EINTR ? 0 : told;
}

// Hands on what the system told of a descriptor; false when it told of none that is here.
bool btkEventSet::state::hear(const epoll_event &message) {
    const auto fd = static_cast<std::uint32_t>(message.data.u64);
    if (fd >= descriptors.size() || !descriptors[fd].registered ||
        descriptors[fd].generation != message.data.u64 >> 32)
        return false;
    const unsigned got = from_system(static_cast<short>(message.events));
    for (entry *one = descriptors[fd].first, *next = nullptr; one; one = next) {
        next = one->next;
        const unsigned own =
            got & (static_cast<unsigned>(one->request.interest) | btkPollError | btkPollHangup);
        if (own == 0 || one->reported_by == round) continue;
        if (found == room) {
            one->told = true;
            queue(*one);
        } else if (one->base->Confirm(own)) {
            report(*one);
        }
    }
    return true;
}

int btkEventSet::Wait(const btkTimeval &timeout, btkEvent **signalled, int room) {
    if (!signalled || room <= 0) {
        Error_SetLast(wrong_argument);
        return -1;
    }
    state &set = *m_state;
    set.signalled = signalled;
    set.room = static_cast<std::size_t>(room);
    set.found = 0;
    const std::int64_t nanos = to_nanos(timeout);
    const std::int64_t deadline = deadline_in(nanos);
    for (std::int64_t left = nanos;; left = left_until(deadline)) {
        ++set.round;
        set.ask_queued();
        bool failed = !set.is_whole && !set.rebuild();
        if (!failed) {
            const int told = set.ask_system(set.found > 0 ? 0 : left);
            bool known = true;
            for (int at = 0; at < told; ++at)
                known = set.hear(set.messages[static_cast<std::size_t>(at)]) && known;
            if (told < 0) Error_SetLastFromSystem(errno);
            failed = told < 0 || (!known && !set.rebuild());
        }
        for (entry *one : set.reported)
            set.queue(*one);
        set.reported.clear();
        // What was reported may have been taken with it, so it counts more than a failure.
        if (set.found > 0) return static_cast<int>(set.found);
        if (failed) return -1;
        if (left == 0) return 0;
    }
}
