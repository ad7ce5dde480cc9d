// Memory, texts, internal errors, the mutex and time values.
#include <kelstdmt/vumrt.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <string>

#include "runtime/characters.h"
#include "runtime/system.h"

// Memory ---------------------------------------------------------------------------------------

namespace {

// Never destroyed: objects that die after every static one still ask for memory.
union eternal_manager {
    constexpr eternal_manager() : manager() {}
    ~eternal_manager() {}
    btkMemMgr manager;
};
constinit eternal_manager default_manager;

}  // namespace

btkMemMgr *const pDefMemMgr = &default_manager.manager;

btkMemMgr::~btkMemMgr() = default;

void *btkMemMgr::Allocate(std::size_t bytes) {
    return ::operator new(bytes);
}

void *operator new(std::size_t bytes, btkMemMgr *manager) {
    return manager && manager != pDefMemMgr ? manager->Allocate(bytes) : ::operator new(bytes);
}
void operator delete(void *block, btkMemMgr *) noexcept {
    ::operator delete(block);
}

char *Strnew__(const char *text) {
    if (!text) return nullptr;
    std::size_t bytes = std::strlen(text) + 1;
    return static_cast<char *>(std::memcpy(::operator new(bytes), text, bytes));
}

unsigned Strlen(const char *text) {
    if (!kel::is_text(text)) return 0;
    using namespace kel::detail;
    return static_cast<unsigned>(count_characters(locale_encoding(), text, text + std::strlen(text)));
}
unsigned Strlen(const unsigned short *text) {
    if (reinterpret_cast<std::uintptr_t>(text) <= 2) return 0;
    const unsigned short *end = text;
    while (*end)
        ++end;
    return static_cast<unsigned>(end - text);
}

// Internal errors ------------------------------------------------------------------------------

namespace {

std::atomic<btkAbortHandler> abort_handler{nullptr};

void report_internal_error(const char *message, const char *source, int line) {
    std::string text = "kelstdmt: internal error: ";
    if (message) text.append(message).append(" ");
    text.append("(").append(source ? source : "?").append(":").append(std::to_string(line)).append(")\n");
    kel::system::write_error(text.data(), text.size());
}

}  // namespace

void _Abort(const char *message, const char *source, int line) {
    btkAbortHandler handler = abort_handler.load(std::memory_order_acquire);
    (handler ? handler : report_internal_error)(message, source, line);
}

btkAbortHandler btkSetAbortHandler(btkAbortHandler handler) {
    if (handler == report_internal_error) handler = nullptr;
    btkAbortHandler before = abort_handler.exchange(handler, std::memory_order_acq_rel);
    return before ? before : report_internal_error;
}

// Locks ----------------------------------------------------------------------------------------

bool s_bThreadingEnabled = true;

thrXIllegalAccess::~thrXIllegalAccess() = default;

const char *thrXIllegalAccess::what() const noexcept {
    return "a thread misused a lock";
}

void throwXIllegalAccess() {
    throw thrXIllegalAccess();
}

namespace {

// A thread is told by the address of a variable that each has for itself.
__attribute__((tls_model("initial-exec"))) thread_local char thread_mark;

constexpr int held = 1, awaited = 2;
constexpr int spins = 50;

}  // namespace

void thrMutex::Lock() {
    if (m_owner.load(std::memory_order_relaxed) == &thread_mark) {
        if (m_type != Recursive) throwXIllegalAccess();
        ++m_depth;
        return;
    }
    int state = 0;
    if (!m_state.compare_exchange_strong(state, held, std::memory_order_acquire, std::memory_order_relaxed))
        wait();
    m_owner.store(&thread_mark, std::memory_order_relaxed);
    m_depth = 1;
}

void thrMutex::Unlock() {
    if (m_owner.load(std::memory_order_relaxed) != &thread_mark) throwXIllegalAccess();
    if (--m_depth > 0) return;
    m_owner.store(nullptr, std::memory_order_relaxed);
    if (m_state.exchange(0, std::memory_order_release) == awaited) m_state.notify_one();
}

bool thrMutex::IsOwner() const noexcept {
    return m_owner.load(std::memory_order_relaxed) == &thread_mark;
}

void thrMutex::wait() {
    for (int i = 0; i < spins; ++i) {
        int state = 0;
        if (m_state.load(std::memory_order_relaxed) == 0 &&
            m_state.compare_exchange_weak(state, held, std::memory_order_acquire, std::memory_order_relaxed))
            return;
    }
    // Who has waited once cannot know whether others still do, so it holds the mutex as awaited.
    while (m_state.exchange(awaited, std::memory_order_acquire) != 0)
        m_state.wait(awaited, std::memory_order_relaxed);
}

// Time values ----------------------------------------------------------------------------------

namespace {

constexpr std::int64_t micros_per_second = 1'000'000;
constexpr double longest = 1073741824;  // seconds

btkTimeval from_micros(std::int64_t micros) {
    std::int64_t seconds = micros / micros_per_second, rest = micros % micros_per_second;
    if (rest < 0) {
        rest += micros_per_second;
        --seconds;
    }
    return {seconds, static_cast<std::int32_t>(rest)};
}

}  // namespace

void btkTimeval::init(double seconds) noexcept {
    if (std::isnan(seconds)) seconds = 0;
    if (seconds > longest) seconds = longest;
    if (seconds < -longest) seconds = -longest;
    *this = from_micros(std::llround(seconds * static_cast<double>(micros_per_second)));
}

btkTimeval btkTimeval::GetTimeOfDay() noexcept {
    auto now = std::chrono::system_clock::now().time_since_epoch();
    return from_micros(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

double btkTimeval::ToSeconds() const noexcept {
    return static_cast<double>(m_sec) + static_cast<double>(m_usec) / static_cast<double>(micros_per_second);
}

// Chance ---------------------------------------------------------------------------------------

std::uint64_t btkRandomSeed() noexcept {
    return kel::system::random_bits();
}
