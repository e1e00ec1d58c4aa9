// Shared by the 16-bit kernels.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "simd/dispatch.h"

namespace vq::u16 {

// The RGGB bilinear body (bilinearBodyRGGBU16 / bilinearBodyRGGBU16P) fetching `fetch`'s rows into the
// cache as it goes (the next band's input, so that its conversion finds it there), the row pair from row r
// those of fetch.at(r - 1).
uint64_t bilinearBody(const uint16_t *src, uint16_t *dst, uint32_t height, uint32_t width, uint32_t order,
                      const simd::FetchRows &fetch);
uint64_t bilinearBodyPlanar(const uint16_t *src, uint16_t *const planes[3], uint32_t height, uint32_t width,
                            const simd::FetchRows &fetch);

// Deep input as full samples (demosaic16.cpp), vector interiors where the level has them. unpackSpan:
// samples [i0, i1) of a run of packed pairs (`lowBits` 2 or 4 of each in the middle byte) into
// dst[0 .. i1 - i0), a last sample without a partner read from its two bytes. maskRun: n samples of
// 16-bit containers at `row` (any address) into dst, bits above `bits` dropped.
void unpackSpan(const unsigned char *run, ptrdiff_t i0, ptrdiff_t i1, int lowBits, uint16_t *dst);
void maskRun(const unsigned char *row, ptrdiff_t n, int bits, uint16_t *dst);

// 16-bit samples at any byte address (a frame inside a packet buffer may start at an odd one): every
// load and store goes through memcpy, which compilers turn into plain moves.
struct Ref16 {
    unsigned char *p;
    operator uint16_t() const {
        uint16_t v;
        std::memcpy(&v, p, 2);
        return v;
    }
    const Ref16 &operator=(uint32_t v) const {
        const uint16_t w = static_cast<uint16_t>(v);
        std::memcpy(p, &w, 2);
        return *this;
    }
};

struct Src16 {
    const unsigned char *p;
    static Src16 of(const uint16_t *s) { return {reinterpret_cast<const unsigned char *>(s)}; }
    int32_t operator[](ptrdiff_t i) const {
        uint16_t v;
        std::memcpy(&v, p + 2 * i, 2);
        return v;
    }
    Src16 operator+(ptrdiff_t i) const { return {p + 2 * i}; }
    Src16 operator-(ptrdiff_t i) const { return {p - 2 * i}; }
};

struct Dst16 {
    unsigned char *p;
    static Dst16 of(uint16_t *d) { return {reinterpret_cast<unsigned char *>(d)}; }
    Ref16 operator[](ptrdiff_t i) const { return {p + 2 * i}; }
    Dst16 operator+(ptrdiff_t i) const { return {p + 2 * i}; }
    Dst16 operator-(ptrdiff_t i) const { return {p - 2 * i}; }
};

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
