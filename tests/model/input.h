// Test support: camera frames of every accepted depth and packing that reduce to a given 8-bit mosaic.
#pragma once

#include <cstdint>
#include <cstring>
#include <random>
#include <string_view>
#include <vector>

#include "model/frame.h"

namespace vqt {

enum class Depth { Bits8, Bits10, Bits12, Bits14, Bits16, Packed10, Packed12 };

// Input code of a depth for a phase ('M' for monochrome; Bayer frames have no 14-bit code). Every
// Bayer depth numbers its phases in the order GR, RG, GB, BG.
inline uint32_t inputCode(char phase, Depth d) {
    static constexpr uint32_t kMono[] = {0x01080001, 0x01100003, 0x01100005, 0x01100025, 0x01100007, 0x010C0004, 0x010C0006};
    static constexpr uint32_t kBayerGR[] = {0x01080008, 0x0110000C, 0x01100010, 0, 0x0110002E, 0x010C0026, 0x010C002A};
    if (phase == 'M') return kMono[int(d)];
    return d == Depth::Bits14 ? 0 : kBayerGR[int(d)] + uint32_t(std::string_view("grbB").find(phase));
}
inline char phaseKey(Phase p) { return "rgbB"[int(p)]; } // Phase order RG, GR, GB, BG

struct RawFrame {
    std::vector<uint16_t> storage; // 16-bit aligned bytes
    int32_t stride = 0;
    uint8_t *bytes() { return reinterpret_cast<uint8_t *>(storage.data()); }
};

// A frame of depth `d` whose reduction to 8 bits is `m`. `padded` picks a stride other than the
// natural one (odd for 16-bit containers, so that the row path's halving of the stride is exercised);
// the bits that the reduction drops are random, including bits above the nominal depth.
inline RawFrame makeRaw(const Mosaic &m, Depth d, bool padded, std::mt19937 &rng) {
    std::uniform_int_distribution<int> any(0, 0xFFFF);
    RawFrame f;
    const int w = m.w, h = m.h;
    auto alloc = [&](size_t nbytes) { f.storage.assign((nbytes + 1) / 2 + 1, 0); };
    if (d == Depth::Bits8) {
        f.stride = padded ? w + 5 : w;
        alloc(size_t(f.stride) * h);
        for (int y = 0; y < h; ++y) std::memcpy(f.bytes() + size_t(y) * f.stride, &m.s[size_t(y) * w], size_t(w));
    } else if (d == Depth::Packed10 || d == Depth::Packed12) {
        // Two samples in three bytes, the high bytes first and last. Unpadded: one stream of pairs
        // across rows; padded: each row starts a new group.
        const int rowGroups = (w + 1) / 2;
        f.stride = padded ? 3 * rowGroups + 2 : w + (w >> 1);
        const size_t n = size_t(w) * h;
        alloc(padded ? size_t(f.stride) * h : 3 * ((n + 1) / 2));
        uint8_t *b = f.bytes();
        for (uint16_t &v : f.storage) v = uint16_t(any(rng)); // the dropped middle bytes and padding
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const size_t k = padded ? size_t(x) : size_t(y) * w + x;
                uint8_t *g = b + (padded ? size_t(y) * f.stride : 0) + 3 * (k / 2);
                g[(k & 1) ? 2 : 0] = uint8_t(m(y, x));
            }
    } else {
        const int shift = d == Depth::Bits10 ? 2 : d == Depth::Bits12 ? 4 : d == Depth::Bits14 ? 6 : 8;
        f.stride = padded ? 2 * w + 3 : 2 * w;
        const int rowSamples = f.stride / 2;
        f.storage.assign(size_t(rowSamples) * h, 0);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const unsigned low = unsigned(any(rng)) & ((1u << shift) - 1);
                const unsigned high = (unsigned(any(rng)) << (8 + shift)) & 0xFFFFu; // wrapped away
                f.storage[size_t(y) * rowSamples + x] = uint16_t((unsigned(m(y, x)) << shift) | low | high);
            }
    }
    return f;
}

} // namespace vqt
