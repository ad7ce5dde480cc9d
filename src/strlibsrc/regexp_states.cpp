// Contents, rows and an index of hashes, each in one growing block.
#include "strlibsrc/regexp_states.h"

#include <algorithm>

namespace kel::detail {

state_table::number state_table::intern(const std::vector<std::uint32_t> &content) {
    std::uint32_t hash = 0x811C9DC5;
    for (const std::uint32_t each : content)
        hash = ((hash ^ each) * 0x9E3779B1u) ^ (hash >> 15);
    if (2 * (m_states.size() + 1) > m_places.size()) grow();
    const std::size_t mask = m_places.size() - 1;
    std::size_t place = hash & mask;
    for (; m_places[place] != full; place = (place + 1) & mask) {
        const entry &known = m_states[m_places[place]];
        if (known.hash == hash && known.size == content.size() &&
            std::equal(content.begin(), content.end(), m_contents.data() + known.begin))
            return m_places[place];
    }
    // Two states always find room, so that every step can be taken.
    const std::size_t more = (m_symbols + content.size()) * sizeof(std::uint32_t) + sizeof(entry);
    if (m_states.size() >= 2 && used() + more > memory_limit) return full;
    const auto result = static_cast<number>(m_states.size());
    m_places[place] = result;
    m_states.push_back(
        {static_cast<std::uint32_t>(m_contents.size()), static_cast<std::uint32_t>(content.size()), hash});
    m_contents.insert(m_contents.end(), content.begin(), content.end());
    m_steps.insert(m_steps.end(), m_symbols, unknown);
    return result;
}

void state_table::grow() {
    m_places.assign(m_places.empty() ? 16 : 2 * m_places.size(), full);
    const std::size_t mask = m_places.size() - 1;
    for (number each = 0; each < m_states.size(); ++each) {
        std::size_t place = m_states[each].hash & mask;
        while (m_places[place] != full)
            place = (place + 1) & mask;
        m_places[place] = each;
    }
}

std::size_t state_table::used() const noexcept {
    return (m_contents.size() + m_steps.size() + m_places.size()) * sizeof(std::uint32_t) +
           m_states.size() * sizeof(entry);
}

std::size_t state_table::memory() const noexcept {
    return (m_contents.capacity() + m_steps.capacity() + m_places.capacity()) * sizeof(std::uint32_t) +
           m_states.capacity() * sizeof(entry);
}

void state_table::clear() noexcept {
    m_states.clear();
    m_contents.clear();
    m_steps.clear();
    std::fill(m_places.begin(), m_places.end(), full);
}

}  // namespace kel::detail
