// 16-bit edge-directed interior kernel.
//
// Each step is one 2x2 cell whose top-left is a red site: (y, x) R, (y, x+1) G, (y+1, x) G,
// (y+1, x+1) B. Green at the R and B sites is interpolated along the direction with the smaller
// cost (green difference plus second difference of the site's own colour; ties go vertical), then
// red and blue are green plus a mean of the colour differences (R - G, B - G) at the nearest sites of
// that colour. Red lags: a step finishes red for the row above and the column to its left, because
// the greens that the other reds need are not known yet. Every interpolated value is clamped to
// [0, maximum]; native samples are copied.
//
// Greens of earlier steps (and of the first-rows and first-columns pieces) are read back from the
// destination, so steps run left to right and row pairs top to bottom.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "simd/dispatch.h"
#include "u16/edge_u16.h"
#include "u16/u16_common.h"
#include "velqora.h"

namespace {

using vq::u16::Dst16;
using vq::u16::Src16;

inline int32_t clampTo(int32_t v, int32_t maximum) { return v < 0 ? 0 : (v < maximum ? v : maximum); }

} // namespace

namespace {

// The row pairs of a kernel run starting at rows [tBegin, tEnd) (tBegin even); row pairs start below rowEnd.
// Fetches the rows of `fetch` as it goes, the pair from row t those of band row t.
void kernelPairs(const uint16_t *src, uint16_t *dst, int32_t rowEnd, uint32_t width, int32_t startColumn,
                 int32_t maximum, int32_t tBegin, int32_t tEnd, const vq::simd::FetchRows &fetch = {}) {
    const int32_t w = static_cast<int32_t>(width);
    const int32_t columnEnd = vq::u16::edgeColumnEnd(width, startColumn);
    const ptrdiff_t sw = w;      // source row stride
    const ptrdiff_t dw = 3 * sw; // destination row stride

    const auto vector = vq::simd::table().u16EdgePair;
    for (int32_t t = tBegin; t < tEnd; t += 2) {
        const Src16 s0 = Src16::of(src) + t * sw; // row y: R G R G ...
        const Src16 sm2 = s0 - 2 * sw, sm1 = s0 - sw, s1 = s0 + sw, s2 = s0 + 2 * sw, s3 = s0 + 3 * sw;
        const Dst16 d0 = Dst16::of(dst) + t * dw;
        const Dst16 dm2 = d0 - 2 * dw, dm1 = d0 - dw, d1 = d0 + dw;
        // Green already in the destination at column c of a destination row.
        auto g = [](Dst16 row, ptrdiff_t c) -> int32_t { return row[3 * c + 1]; };
        auto put = [maximum](Dst16 row, ptrdiff_t c, int channel, int32_t v) {
            row[3 * c + channel] = static_cast<uint16_t>(clampTo(v, maximum));
        };
        enum { B = 0, G = 1, R = 2 };

        // The vector steps rewrite whole pixels of the pair's second row; the last pair, whose second row
        // a band below may be completing on another thread, stays with the scalar steps.
        ptrdiff_t x0 = startColumn;
        if (vector != nullptr && t + 2 < rowEnd) x0 = vector(s0.p, sw, d0.p, startColumn, columnEnd, maximum, fetch.at(t));
        for (ptrdiff_t x = x0; x < columnEnd; x += 2) { // 64-bit: 3 * x never overflows
            // Green at the red site (y, x).
            const int32_t a = s0[x];
            const int32_t a2H = 2 * a - s0[x - 2] - s0[x + 2];
            const int32_t a2V = 2 * a - sm2[x] - s2[x];
            const int32_t costHa = std::abs(s0[x - 1] - s0[x + 1]) + std::abs(a2H);
            const int32_t costVa = std::abs(sm1[x] - s1[x]) + std::abs(a2V);
            const int32_t greenA = clampTo(costHa >= costVa ? (a2V >> 2) + ((sm1[x] + s1[x]) >> 1)
                                                            : (a2H >> 2) + ((s0[x - 1] + s0[x + 1]) >> 1),
                                           maximum);
            d0[3 * x + G] = static_cast<uint16_t>(greenA);
            d0[3 * (x + 1) + G] = s0[x + 1];

            // Green at the blue site (y+1, x+1).
            const int32_t b = s1[x + 1];
            const int32_t b2H = 2 * b - s1[x - 1] - s1[x + 3];
            const int32_t b2V = 2 * b - sm1[x + 1] - s3[x + 1];
            const int32_t costHb = std::abs(s1[x] - s1[x + 2]) + std::abs(b2H);
            const int32_t costVb = std::abs(s0[x + 1] - s2[x + 1]) + std::abs(b2V);
            const int32_t greenB = clampTo(costHb >= costVb ? (b2V >> 2) + ((s0[x + 1] + s2[x + 1]) >> 1)
                                                            : (b2H >> 2) + ((s1[x] + s1[x + 2]) >> 1),
                                           maximum);
            d1[3 * (x + 1) + G] = static_cast<uint16_t>(greenB);
            d1[3 * x + G] = s1[x];

            // Colour differences of this cell and of the finished sites around it.
            const int32_t dR = a - greenA;
            const int32_t dB = b - greenB;
            const int32_t dRUp = sm2[x] - g(dm2, x);               // red two rows up
            const int32_t dRLeft = s0[x - 2] - g(d0, x - 2);       // red two columns left
            const int32_t dRUpLeft = sm2[x - 2] - g(dm2, x - 2);   // red up and left
            const int32_t dBUpLeft = sm1[x - 1] - g(dm1, x - 1);   // blue of the row above
            const int32_t dBUpRight = sm1[x + 1] - g(dm1, x + 1);
            const int32_t dBLeft = s1[x - 1] - g(d1, x - 1);       // blue to the left, row below

            put(dm1, x, R, sm1[x] + ((dRUp + dR) >> 1));
            put(dm1, x - 1, R, g(dm1, x - 1) + ((dRLeft + dRUpLeft + dRUp + dR) >> 2));
            put(d0, x - 1, R, s0[x - 1] + ((dRLeft + dR) >> 1));
            d0[3 * x + R] = static_cast<uint16_t>(a);
            put(d0, x, B, greenA + ((dBUpLeft + dBUpRight + dBLeft + dB) >> 2));
            put(d0, x + 1, B, s0[x + 1] + ((dBUpRight + dB) >> 1));
            put(d1, x, B, s1[x] + ((dBLeft + dB) >> 1));
            d1[3 * (x + 1) + B] = static_cast<uint16_t>(b);
        }
    }
}

} // namespace

VQP_EXTERN uint64_t edgeSecRGGBU16(const uint16_t *src, uint16_t *dst, uint32_t rows, uint32_t width,
                                   int32_t startColumn, int32_t maximum) {
    const int32_t rowEnd = static_cast<int32_t>(rows - 1u); // row pairs start below this
    if (rowEnd < 1) return 0;
    kernelPairs(src, dst, rowEnd, width, startColumn, maximum, 0, rowEnd);
    return vq::u16::edgeKernelStop(rows, width, startColumn);
}

void vq::u16::edgeKernelPart(const EdgeRun &r, int32_t firstRow, int32_t endRow, const uint16_t *rows,
                             const simd::FetchRows &fetch) {
    const int32_t rowEnd = static_cast<int32_t>(edgeKernelRows(r) - 1u);
    if (rowEnd < 1 || firstRow >= rowEnd) return;
    const ptrdiff_t w = r.width, y = r.startRow + firstRow;
    // Counted from the part's first pair, row pairs still start below rowEnd - firstRow.
    kernelPairs(rows + 2 * w, r.dst + y * 3 * w, rowEnd - firstRow, r.width, r.startColumn, r.maximum, 0,
                (endRow < rowEnd ? endRow : rowEnd) - firstRow, fetch);
}

uint64_t vq::u16::edgeKernelStop(uint32_t rows, uint32_t width, int32_t startColumn) {
    if (static_cast<int32_t>(rows - 1u) < 1) return 0;
    const uint32_t rowsCovered = ((rows - 2u) | 1u) + 1u;
    return (uint64_t{rowsCovered} << 32) | static_cast<uint32_t>(edgeColumnEnd(width, startColumn));
}
