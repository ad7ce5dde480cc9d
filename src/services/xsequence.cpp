// The engine of sequences: a byte array whose elements are known through callbacks alone.
//
// Whatever a callback throws, the elements below the size are constructed and those above are not. To keep
// that, a change goes in three steps: grow (new elements are constructed at the end), shift (assignments
// only), fill (assignments only); when a fill fails, the gap is closed again.
#include <kelstdmt/xsequence.h>

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <new>
#include <stdexcept>

#include <kelstdmt/xexception.h>

namespace {

constexpr unsigned default_step = 256;

unsigned checked(std::uint64_t bytes) {
    if (bytes > std::numeric_limits<unsigned>::max()) kel::detail::throw_sequence_length();
    return static_cast<unsigned>(bytes);
}

}  // namespace

xbasesequence::~xbasesequence() = default;

void xbasesequence::Init(const xseqcontrol *control) noexcept {
    m_buffer = nullptr;
    m_size = m_capacity = 0;
    m_exact = control && control->exact;
    m_step = control && control->step ? control->step : default_step;
}

unsigned xbasesequence::wanted_capacity(unsigned bytes) const {
    if (!m_exact && bytes <= m_capacity) return m_capacity;
    return bytes == 0 ? 0 : checked(((std::uint64_t{bytes} - 1) / m_step + 1) * m_step);
}

void xbasesequence::take_capacity(unsigned capacity) {
    if (capacity == m_capacity) return;
    m_buffer = static_cast<char *>(OnResize(capacity));
    m_capacity = capacity;
}

void xbasesequence::Resize(unsigned bytes) {
    unsigned capacity = wanted_capacity(bytes);
    if (bytes < m_size) {
        unsigned before = std::exchange(m_size, bytes);
        OnDestroy(m_buffer + bytes, before - bytes);
        try {
            take_capacity(capacity);
        } catch (const std::bad_alloc &) {  // what is not given back stays usable
        }
        return;
    }
    take_capacity(capacity);
    if (bytes > m_size) {
        OnAllocate(m_buffer + m_size, bytes - m_size);
        m_size = bytes;
    }
}

void xbasesequence::BaseReserve(unsigned bytes) {
    take_capacity(wanted_capacity(checked(std::uint64_t{m_size} + bytes)));
}

bool xbasesequence::holds(const void *from, unsigned bytes) const noexcept {
    auto begin = reinterpret_cast<std::uintptr_t>(m_buffer), at = reinterpret_cast<std::uintptr_t>(from);
    return bytes != 0 && at >= begin && at - begin < m_size;
}

// Blocks that are as long as the distance do not overlap; from the far end each is read before it is written.
void xbasesequence::assign_within(unsigned to, unsigned from, unsigned bytes) {
    if (to == from) return;
    unsigned distance = to > from ? to - from : from - to;
    for (unsigned done = 0; done < bytes;) {
        unsigned block = std::min(distance, bytes - done);
        unsigned skip = to > from ? bytes - done - block : done;
        OnCopy(m_buffer + to + skip, m_buffer + from + skip, block);
        done += block;
    }
}

void xbasesequence::BaseCopy(unsigned at, unsigned bytes, const void *from) {
    const unsigned before = m_size, end = checked(std::uint64_t{at} + bytes);
    const bool within = holds(from, bytes);
    const auto source = within ? static_cast<unsigned>(static_cast<const char *>(from) - m_buffer) : 0;
    if (end > before) Resize(end);
    if (bytes == 0) return;
    try {
        if (within)
            assign_within(at, source, bytes);
        else
            OnCopy(m_buffer + at, from, bytes);
    } catch (...) {
        if (m_size > before) Resize(before);
        throw;
    }
}

void xbasesequence::open_gap(unsigned at, unsigned bytes) {
    const unsigned before = m_size;
    Resize(checked(std::uint64_t{std::max(at, before)} + bytes));
    if (at < before && bytes != 0) OnMove(m_buffer + at + bytes, m_buffer + at, before - at);
}

void xbasesequence::close_gap(unsigned at, unsigned bytes, unsigned before) {
    if (at < before) OnMove(m_buffer + at, m_buffer + at + bytes, before - at);
    Resize(before);
}

namespace {

// Elements with their default value outside the sequence.
template <class Construct, class Destroy>
class fresh_elements {
public:
    fresh_elements(unsigned bytes, Construct construct, Destroy destroy)
        : m_block(kel::detail::sequence_memory(nullptr, bytes)), m_bytes(bytes), m_destroy(destroy) {
        try {
            construct(m_block, bytes);
        } catch (...) {
            kel::detail::sequence_free(m_block);
            throw;
        }
    }
    ~fresh_elements() {
        m_destroy(m_block, m_bytes);
        kel::detail::sequence_free(m_block);
    }
    fresh_elements(const fresh_elements &) = delete;
    fresh_elements &operator=(const fresh_elements &) = delete;
    void *get() const noexcept { return m_block; }

private:
    void *m_block;
    unsigned m_bytes;
    Destroy m_destroy;
};

}  // namespace

void xbasesequence::BaseInsertEmpty(unsigned at, unsigned bytes) {
    if (at >= m_size || bytes == 0) return open_gap(at, bytes);
    // The shift leaves old values in the gap, as far as it reached below the old size.
    const unsigned before = m_size, stale = std::min(bytes, before - at);
    fresh_elements fresh(
        stale, [this](void *to, unsigned count) { OnAllocate(to, count); },
        [this](void *to, unsigned count) { OnDestroy(to, count); });
    open_gap(at, bytes);
    try {
        OnMove(m_buffer + at, fresh.get(), stale);
    } catch (...) {
        close_gap(at, bytes, before);
        throw;
    }
}

void xbasesequence::BaseInsert(unsigned at, unsigned bytes, const void *from) {
    const unsigned before = m_size;
    const bool within = holds(from, bytes);
    const auto source = within ? static_cast<unsigned>(static_cast<const char *>(from) - m_buffer) : 0;
    open_gap(at, bytes);
    if (bytes == 0) return;
    try {
        if (!within) return OnCopy(m_buffer + at, from, bytes);
        // What lay below the gap is still there, the rest has moved up with it.
        const unsigned below = source < at ? std::min(bytes, at - source) : 0;
        if (below != 0) OnCopy(m_buffer + at, m_buffer + source, below);
        if (below != bytes) OnCopy(m_buffer + at + below, m_buffer + source + below + bytes, bytes - below);
    } catch (...) {
        close_gap(at, bytes, before);
        throw;
    }
}

void xbasesequence::BaseRemove(unsigned from, unsigned to) {
    const unsigned low = std::min(from, to), high = std::min(std::max(from, to), m_size);
    if (low >= high) return;
    if (high < m_size) OnMove(m_buffer + low, m_buffer + high, m_size - high);
    Resize(m_size - (high - low));
}

namespace kel::detail {

void throw_sequence_index(xobject *sequence, int index) {
    if (index < 0) kelhThrowNegativeIndex(index);
    kelhThrowInvalidSeqIndex(sequence, index);
}

void throw_sequence_length() {
    throw std::length_error("kelstdmt: a sequence of this size");
}

unsigned sequence_offset(int index, std::size_t elementsize) {
    if (index < 0) kelhThrowNegativeIndex(index);
    return checked(static_cast<std::uint64_t>(index) * elementsize);
}

void *sequence_memory(void *block, std::size_t bytes) {
    if (bytes == 0) {
        std::free(block);
        return nullptr;
    }
    void *result = std::realloc(block, bytes);
    if (!result) throw std::bad_alloc();
    return result;
}

void sequence_free(void *block) noexcept {
    std::free(block);
}

std::size_t sequence_portion(std::size_t present, std::size_t wanted) noexcept {
    // The maximum also serves where the sum wraps around.
    return std::max(wanted, present + present / 2);
}

}  // namespace kel::detail
