// The blocks of the key store.
#include "services/key_store.h"

#include <algorithm>

#include "runtime/large_memory.h"

namespace kel::detail {

key_store::~key_store() {
    while (m_blocks)
        operator delete(std::exchange(m_blocks, m_blocks->next), pDefMemMgr);
}

char *key_store::take_block(std::size_t bytes) {
    auto *made = static_cast<block *>(operator new(sizeof(block) + bytes, pDefMemMgr));
    kel::system::prefer_large_pages(made, bytes);
    made->next = m_blocks;
    m_blocks = made;
    return reinterpret_cast<char *>(made + 1);
}

char *key_store::add_block(std::size_t bytes) {
    // A text that is long for the blocks of now leaves what is left of the present one in use.
    if (bytes > m_size / 4) return take_block(bytes);
    char *place = take_block(m_size);
    m_next = place + bytes;
    m_left = m_size - bytes;
    m_size = std::min(m_size * 2, largest_block);
    return place;
}

}  // namespace kel::detail
