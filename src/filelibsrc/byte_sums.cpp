// The loop over the bytes of a checksum, for processors with and without wide registers.
#include "filelibsrc/byte_sums.h"

#include <cstring>

namespace kel::detail {

namespace {

using lanes = unsigned char __attribute__((vector_size(32)));
constexpr std::size_t width = sizeof(lanes), columns = 4;

struct folded_lanes {
    unsigned char sum[width], folded[width];
};

// In columns, since each step of one must wait for the step before.
[[gnu::always_inline]] inline void fold(const unsigned char *bytes, std::size_t rows,
                                        folded_lanes &result) noexcept {
    lanes sum[columns] = {}, folded[columns] = {};
    for (std::size_t row = 0; row < rows; ++row, bytes += columns * width) {
        for (std::size_t column = 0; column < columns; ++column) {
            lanes some;
            std::memcpy(&some, bytes + column * width, width);
            sum[column] += some;
            folded[column] ^= some;
        }
    }
    for (std::size_t column = 1; column < columns; ++column) {
        sum[0] += sum[column];
        folded[0] ^= folded[column];
    }
    std::memcpy(result.sum, &sum[0], width);
    std::memcpy(result.folded, &folded[0], width);
}

using folding = void (*)(const unsigned char *, std::size_t, folded_lanes &) noexcept;

void fold_anywhere(const unsigned char *bytes, std::size_t rows, folded_lanes &result) noexcept {
    fold(bytes, rows, result);
}

#if defined(__x86_64__) || defined(__i386__)
[[gnu::target("avx2")]] void fold_wide(const unsigned char *bytes, std::size_t rows,
                                       folded_lanes &result) noexcept {
    fold(bytes, rows, result);
}
folding choose() noexcept {
    return __builtin_cpu_supports("avx2") ? &fold_wide : &fold_anywhere;
}
#else
folding choose() noexcept {
    return &fold_anywhere;
}
#endif

}  // namespace

void byte_sums::add(const unsigned char *bytes, std::size_t count) noexcept {
    static const folding fold_rows = choose();
    const std::size_t rows = count / (columns * width);
    folded_lanes result;
    fold_rows(bytes, rows, result);
    for (std::size_t lane = 0; lane < width; ++lane) {
        m_sum += result.sum[lane];
        m_folded ^= result.folded[lane];
    }
    for (std::size_t at = rows * columns * width; at < count; ++at) {
        m_sum += bytes[at];
        m_folded ^= bytes[at];
    }
    m_count += count;
}

}  // namespace kel::detail
