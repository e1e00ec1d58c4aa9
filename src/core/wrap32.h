// 32-bit arithmetic that wraps as two's complement, where the library's sizes are formed that way.
#pragma once

#include <cstdint>

namespace vq {

inline int32_t mul32(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}
inline int32_t add32(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

} // namespace vq
