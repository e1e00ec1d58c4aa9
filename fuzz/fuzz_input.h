// Reads a fuzzer's bytes as the arguments of a call: small integers first, the rest as sample data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace vqf {

class Input {
public:
    Input(const uint8_t *data, size_t size) : p_(data), n_(size) {}
    uint32_t u32() {
        uint32_t v = 0;
        const size_t k = n_ < 4 ? n_ : 4;
        std::memcpy(&v, p_, k);
        p_ += k, n_ -= k;
        return v;
    }
    uint8_t u8() { return static_cast<uint8_t>(u32() & 0xFF); }
    // `count` bytes of sample data: what is left of the input, repeated (zeros when nothing is left). An
    // empty frame still gets one byte, so that no pointer passed on is null.
    std::vector<uint8_t> bytes(size_t count) const {
        std::vector<uint8_t> out(count == 0 ? 1 : count);
        for (size_t i = 0; i < count; ++i) out[i] = n_ == 0 ? 0 : p_[i % n_];
        return out;
    }

private:
    const uint8_t *p_;
    size_t n_;
};

} // namespace vqf
