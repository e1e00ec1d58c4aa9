// 32-bit arithmetic that wraps as two's complement, where the library's sizes are formed that way.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vq {

inline int32_t mul32(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}
inline int32_t add32(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

// A 16-bit sample at any byte address: frames inside packet buffers can start at an odd address.
inline uint16_t load16(const uint16_t *p, ptrdiff_t i) {
    uint16_t v;
    std::memcpy(&v, reinterpret_cast<const unsigned char *>(p) + 2 * i, sizeof v);
    return v;
}

} // namespace vq
