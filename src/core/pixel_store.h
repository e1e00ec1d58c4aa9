// Pixel stores: where a finished red, green and blue triple goes.
//
// Every 8-bit kernel computes its values once and hands them to one of these small policies; the
// layouts (3-byte, 4-byte, planar, luma) and the two channel orders differ only here. A store is
// addressed by pixel index (row * width + column) from its base; `at(n)` gives the same store moved
// on by n pixels, which is how a kernel is run on the frame one row down.
//
//   put(i, r, g, b)          the whole pixel
//   putGreen(i, g)           the green alone (kernels that finish green before red and blue)
//   putRedBlue(i, r, g, b)   red and blue, green already placed (luma needs all three, so it
//                            writes its byte here and ignores putGreen)
#pragma once

#include <cstddef>
#include <cstdint>

namespace vq {

inline uint8_t lumaOf(uint32_t wR, uint32_t wG, uint32_t wB, uint32_t r, uint32_t g, uint32_t b) {
    return static_cast<uint8_t>((wR * r + wG * g + wB * b + 128u) >> 8);
}

// Interleaved pixels of Bytes bytes: green at byte 1, blue at byte 0 and red at byte 2, or red at 0
// and blue at 2 when swapped. ZeroAlpha writes 0 into byte 3 with every whole pixel; without it
// byte 3 is never touched.
template <int Bytes, bool ZeroAlpha>
struct InterleavedStore {
    static constexpr int kBytes = Bytes;
    uint8_t *base;
    int redAt;
    int blueAt;

    InterleavedStore(uint8_t *dst, bool swapRB) : base(dst), redAt(swapRB ? 0 : 2), blueAt(swapRB ? 2 : 0) {}

    InterleavedStore at(ptrdiff_t pixels) const {
        InterleavedStore s = *this;
        s.base += pixels * Bytes;
        return s;
    }
    void put(ptrdiff_t i, uint32_t r, uint32_t g, uint32_t b) const {
        uint8_t *p = base + i * Bytes;
        p[blueAt] = static_cast<uint8_t>(b);
        p[1] = static_cast<uint8_t>(g);
        p[redAt] = static_cast<uint8_t>(r);
        if constexpr (Bytes == 4 && ZeroAlpha) p[3] = 0;
    }
    void putGreen(ptrdiff_t i, uint32_t g) const { base[i * Bytes + 1] = static_cast<uint8_t>(g); }
    void putRedBlue(ptrdiff_t i, uint32_t r, uint32_t /*g*/, uint32_t b) const {
        uint8_t *p = base + i * Bytes;
        p[blueAt] = static_cast<uint8_t>(b);
        p[redAt] = static_cast<uint8_t>(r);
    }
};

using Bgr8Store = InterleavedStore<3, false>;
using Bgra8Store = InterleavedStore<4, true>;           // alpha written as 0
using Bgra8KeepAlphaStore = InterleavedStore<4, false>; // alpha left as the caller had it

// Three planes; the caller chooses the plane order through the pointers it passes.
struct PlanarStore {
    uint8_t *red;
    uint8_t *green;
    uint8_t *blue;

    PlanarStore at(ptrdiff_t pixels) const { return {red + pixels, green + pixels, blue + pixels}; }
    void put(ptrdiff_t i, uint32_t r, uint32_t g, uint32_t b) const {
        red[i] = static_cast<uint8_t>(r);
        green[i] = static_cast<uint8_t>(g);
        blue[i] = static_cast<uint8_t>(b);
    }
    void putGreen(ptrdiff_t i, uint32_t g) const { green[i] = static_cast<uint8_t>(g); }
    void putRedBlue(ptrdiff_t i, uint32_t r, uint32_t /*g*/, uint32_t b) const {
        red[i] = static_cast<uint8_t>(r);
        blue[i] = static_cast<uint8_t>(b);
    }
};

// One luma byte a pixel: (wR*R + wG*G + wB*B + 128) >> 8, low 8 bits kept.
struct LumaStore {
    uint8_t *base;
    uint32_t wR, wG, wB;

    LumaStore at(ptrdiff_t pixels) const { return {base + pixels, wR, wG, wB}; }
    void put(ptrdiff_t i, uint32_t r, uint32_t g, uint32_t b) const { base[i] = lumaOf(wR, wG, wB, r, g, b); }
    void putGreen(ptrdiff_t, uint32_t) const {}
    void putRedBlue(ptrdiff_t i, uint32_t r, uint32_t g, uint32_t b) const { put(i, r, g, b); }
};

// The fixed weights of the nearest and edge-directed luma kernels: red 77, green 150, blue 29, with
// red and blue exchanged when swapRB is set.
inline LumaStore fixedLumaStore(uint8_t *dst, bool swapRB) {
    return swapRB ? LumaStore{dst, 29u, 150u, 77u} : LumaStore{dst, 77u, 150u, 29u};
}

} // namespace vq
