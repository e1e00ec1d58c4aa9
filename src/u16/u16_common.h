// Shared by the 16-bit kernels.
#pragma once

#include <cstdint>

namespace vq::u16 {

// The first column that the kernel's column steps (x = startColumn + 2k, each needing three columns
// to its right) do not reach; startColumn itself when there is no step. Unsigned arithmetic, so no
// width can overflow it.
inline int32_t edgeColumnEnd(uint32_t width, int32_t startColumn) {
    if (startColumn >= static_cast<int32_t>(width - 3u)) return startColumn;
    return static_cast<int32_t>(static_cast<uint32_t>(startColumn) + 2u +
                                ((width - static_cast<uint32_t>(startColumn) - 4u) & ~1u));
}

// a - b with two's-complement wrap instead of overflow.
inline int32_t minus32(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

} // namespace vq::u16
