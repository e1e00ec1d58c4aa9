// A range of output rows that one call of a kernel writes, so that a frame can be converted band by band
// (while its input is still being reduced, or on several threads). Kernels that work in pairs of rows
// take a pair when its first row lies in the range, so a band boundary must never split a pair; the
// rows before the first pair are written by the band that starts at row 0, the rows after the last pair
// by the band that reaches the bottom.
//
// The band's input rows need not be the whole frame: `base` is the frame row that the source pointer
// a kernel is given holds, so a band can be converted from a window of reduced rows that stays in cache.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vq {

struct RowSpan {
    int32_t from;
    int32_t to;       // exclusive; at or past the height means "to the bottom"
    int32_t base = 0; // the frame row at the source pointer
    // Deep or packed input that the vector interiors of the body rows read directly (null: none): frame
    // row y starts at deep + y * deepStride, reduced by `deepRule` (see simd::StoreKernels). The reduced
    // source then holds only what the scalar pieces read: the whole rows near the top and bottom, and the
    // first and last columns of the others.
    const unsigned char *deep = nullptr;
    ptrdiff_t deepStride = 0;
    int32_t deepRule = 0;

    // Frame row y of a source that holds the rows from `base` on.
    const uint8_t *row(const uint8_t *src, int32_t y, int32_t w) const { return src + ptrdiff_t{y - base} * w; }

    bool top() const { return from == 0; }
    bool bottom(int32_t h) const { return to >= h; }
    // The first pair row at or after `first` (pairs start at `first`, first + 2, ...) inside the range;
    // `from` is a pair row or 0.
    int32_t firstPair(int32_t first) const { return from > first ? from : first; }
    // The end of the pair loop: the smaller of the kernel's own end and the range's.
    int32_t pairEnd(int32_t end) const { return to < end ? to : end; }
    // The same range seen from a frame that starts `rows` rows further down, whose source pointer is
    // moved on by as many rows (so the frame row at it is unchanged).
    RowSpan down(int32_t rows) const {
        return {from > rows ? from - rows : 0, to > INT32_MAX - rows ? to : to - rows, base,
                deep != nullptr ? deep + rows * deepStride : nullptr, deepStride, deepRule};
    }
    // The deep rows y, y + 1, ... (K of them) of the frame.
    template <int K>
    void deepRows(int32_t y, const unsigned char *(&rows)[K]) const {
        for (int k = 0; k < K; ++k) rows[k] = deep + (y + k) * deepStride;
    }
};

inline constexpr RowSpan kAllRows{0, INT32_MAX};

} // namespace vq
