// Memory of many megabytes that is read here and there.
#pragma once

#include <cstddef>

namespace kel::system {

// A wish: that a block, all of which will be used, lie in large pages, which the processor finds faster.
// Blocks below a few megabytes stay as they are. To be called before the block is first written.
void prefer_large_pages(void *block, std::size_t bytes) noexcept;

}  // namespace kel::system
