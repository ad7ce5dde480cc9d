#include "runtime/system.h"

#include <ctype.h>
#include <langinfo.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include <kelstdmt/vumrt.h>

#include "runtime/large_memory.h"
#include "runtime/posix/uncancelled.h"

namespace kel::system {

void write_error(const char *bytes, std::size_t count) noexcept {
    const uncancelled scope;
    int saved = errno;
    while (count > 0) {
        ssize_t written = ::write(STDERR_FILENO, bytes, count);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) break;
        bytes += written;
        count -= static_cast<std::size_t>(written);
    }
    errno = saved;
}

std::uint64_t random_bits() noexcept {
    const uncancelled scope;
    std::uint64_t bits = 0;
    if (::getrandom(&bits, sizeof bits, GRND_NONBLOCK) == static_cast<ssize_t>(sizeof bits)) return bits;
    // Too early in the machine's life, or forbidden: the clock and the address space's own randomness.
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    bits = static_cast<std::uint64_t>(now.tv_nsec) ^ reinterpret_cast<std::uintptr_t>(&now);
    bits ^= static_cast<std::uint64_t>(now.tv_sec) << 32 ^ static_cast<std::uint64_t>(::getpid()) << 16;
    return bits * 0x9E3779B97F4A7C15U;
}

bool locale_is_utf8() noexcept {
    // Asked for every operation on a text, so without another call.
    const char *name = ::nl_langinfo(CODESET);
    return name[0] == 'U' && name[1] == 'T' && name[2] == 'F' && name[3] == '-' && name[4] == '8' && !name[5];
}

const std::int32_t *upper_case() noexcept {
    return *::__ctype_toupper_loc();
}
const std::int32_t *lower_case() noexcept {
    return *::__ctype_tolower_loc();
}

void prefer_large_pages(void *block, std::size_t bytes) noexcept {
#ifdef MADV_HUGEPAGE
    constexpr std::size_t large_page = 2 << 20;
    if (bytes < 2 * large_page) return;
    const int saved = errno;
    const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    const auto begin = (reinterpret_cast<std::uintptr_t>(block) + page - 1) / page * page;
    const auto end = (reinterpret_cast<std::uintptr_t>(block) + bytes) / page * page;
    ::madvise(reinterpret_cast<void *>(begin), end - begin, MADV_HUGEPAGE);
    errno = saved;
#else
    static_cast<void>(block), static_cast<void>(bytes);
#endif
}

}  // namespace kel::system

// The machine ----------------------------------------------------------------------------------

namespace {

// Needs no destructor, so that it can be asked as long as the process lives.
const utsname &names() noexcept {
    static const utsname told = [] {
        utsname empty{};
        ::uname(&empty);
        return empty;
    }();
    return told;
}

}  // namespace

const char *btkMachineType() noexcept {
    return names().machine;
}
const char *btkOSType() noexcept {
    return names().sysname;
}
