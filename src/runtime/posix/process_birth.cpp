// What tells a process from all others that had its id: when it started, counted from the machine's own
// start, and a number that is another one after each start of the machine.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <charconv>
#include <climits>
#include <cstdint>
#include <string_view>

#include <kelstdmt/vumrt_process.h>

#include "runtime/owned_descriptor.h"
#include "runtime/posix/through_signals.h"
#include "runtime/posix/uncancelled.h"

namespace {

using kel::system::owned_descriptor;

// The beginning of a small file of the system; empty where there is none.
std::string_view read_small(const char *path, char *room, std::size_t size) {
    const owned_descriptor file(::open(path, O_RDONLY | O_CLOEXEC));
    const ssize_t count =
        file ? kel::system::through_signals([&] { return ::read(file.get(), room, size); }) : -1;
    return {room, count > 0 ? static_cast<std::size_t>(count) : 0};
}

std::uint64_t mix(std::uint64_t sum, std::uint64_t value) {
    sum = (sum ^ value) * 0x9E3779B97F4A7C15U;
    return sum ^ sum >> 29;
}

// 0 while it cannot be read, for want of descriptors; kept once it was.
std::uint64_t start_of_the_machine() {
    static std::atomic<std::uint64_t> known{0};
    if (const std::uint64_t number = known.load(std::memory_order_relaxed)) return number;
    char room[64];
    const std::string_view told = read_small("/proc/sys/kernel/random/boot_id", room, sizeof room);
    std::uint64_t sum = told.empty() ? 0 : 1;
    for (char each : told)
        sum = mix(sum, static_cast<unsigned char>(each));
    known.store(sum, std::memory_order_relaxed);
    return sum;
}

// The field in which the system tells it, counted behind the program's name: that stands in brackets and may
// hold brackets and blanks itself.
bool start_of_process(std::string_view told, std::uint64_t &ticks) {
    constexpr int fields_before = 20;
    std::size_t at = told.rfind(')');
    for (int i = 0; i < fields_before && at != told.npos; ++i)
        at = told.find(' ', at + 1);
    if (at == told.npos) return false;
    const char *begin = told.data() + at + 1, *end = told.data() + told.size();
    return std::from_chars(begin, end, ticks).ec == std::errc();
}

}  // namespace

unsigned long long Process_GetBirth(unsigned long id) noexcept {
    if (id == 0 || id > INT_MAX) return 0;
    const kel::system::uncancelled scope;
    // Threads have entries there too.
    const owned_descriptor process(static_cast<int>(::syscall(SYS_pidfd_open, static_cast<pid_t>(id), 0)));
    char path[48] = "/proc/", room[1024];
    char *end = std::to_chars(path + 6, path + sizeof path - 8, id).ptr;
    std::string_view("/stat").copy(end, 5);
    std::uint64_t ticks = 0;
    if (!process || !start_of_process(read_small(path, room, sizeof room), ticks)) return 0;
    const std::uint64_t birth = mix(mix(start_of_the_machine(), ticks), id);
    return birth ? birth : 1;
}
