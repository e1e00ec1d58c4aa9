// 16-bit edge-directed borders and the four phase drivers.
//
// The border pieces apply the interior kernel's rules pixel by pixel with the neighbours that exist:
//   - green at an R or B site, per direction:
//       both green neighbours and both far samples:  cost |G1 - G2| + |2V - V2 - V2'|,
//                                                    estimate ((G1 + G2) >> 1) + ((2V - V2 - V2') >> 2)
//       one far sample missing:                      cost |G1 - G2| + |V - V2|,
//                                                    estimate ((G1 + G2) >> 1) + ((V - V2) >> 2)
//       a green neighbour missing (frame edge):      cost 2|V - V2|, estimate G1 + ((2(V - V2)) >> 2)
//     the smaller cost wins, ties vertical;
//   - red and blue: green plus the mean of the colour differences at the nearest sites of that colour
//     that exist (four: >> 2, two: >> 1, one: as it is);
//   - every interpolated value clamped to [0, maximum], native samples copied.
// The one exception is the blue of the top-left pixel of an RGGB frame, see topLeftBlue().
//
// Who writes what (S = kernel start row, C = start column, Y and X where the kernel stopped):
//   first rows     green and blue of rows 0 .. S-1, red of rows 0 .. S-2
//   first columns  green and blue of columns 0 .. C-1 from row S down, red of columns 0 .. C-2 from row S-1
//   kernel         green and blue of rows S .. Y-1 x columns C .. X-1, red one row up and one column left
//   last rows      green and blue of rows Y .. h-1 x columns C .. X-1, red from row Y-1 and column C-1
//   last columns   green and blue of columns X .. w-1 from row S down, red from column X-1 and row S-1
// A piece writes all its greens before any red or blue, and reads the greens of other sites from the
// destination, so every red and blue sees final greens.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "u16/edge_u16.h"
#include "u16/u16_common.h"
#include "velqora.h"

namespace {

using vq::u16::minus32;

enum Channel { kBlue = 0, kGreen = 1, kRed = 2 };

// A frame as one border piece sees it: rows of `w` source samples, interleaved B,G,R destination,
// red sites where the row parity is `redRow` and the column parity `redCol`.
struct EdgeFrame {
    const uint16_t *src;
    uint16_t *dst;
    int32_t h, w;
    int32_t redRow, redCol;
    int32_t maximum;

    bool has(int32_t y, int32_t x) const { return y >= 0 && y < h && x >= 0 && x < w; }
    // Bytewise loads and stores: the buffers may start at any address.
    int32_t s(int32_t y, int32_t x) const { return vq::u16::Src16::of(src)[ptrdiff_t{y} * w + x]; }
    int32_t g(int32_t y, int32_t x) const { return vq::u16::Dst16::of(dst)[(ptrdiff_t{y} * w + x) * 3 + kGreen]; }
    void put(int32_t y, int32_t x, Channel c, int32_t v) const {
        vq::u16::Dst16::of(dst)[(ptrdiff_t{y} * w + x) * 3 + c] = static_cast<uint16_t>(v);
    }
    int32_t clamp(int32_t v) const { return v < 0 ? 0 : (v < maximum ? v : maximum); }

    bool redRowAt(int32_t y) const { return ((y ^ redRow) & 1) == 0; }
    bool redColAt(int32_t x) const { return ((x ^ redCol) & 1) == 0; }
    bool isRed(int32_t y, int32_t x) const { return redRowAt(y) && redColAt(x); }
    bool isBlue(int32_t y, int32_t x) const { return !redRowAt(y) && !redColAt(x); }

    struct Directional {
        int32_t cost;
        int32_t estimate;
    };

    // Green at the R or B site (y, x) along the direction (dy, dx), with the neighbours that exist.
    Directional along(int32_t y, int32_t x, int32_t dy, int32_t dx) const {
        const int32_t v = s(y, x);
        const bool nearBack = has(y - dy, x - dx), nearFore = has(y + dy, x + dx);
        const bool farBack = has(y - 2 * dy, x - 2 * dx), farFore = has(y + 2 * dy, x + 2 * dx);
        if (nearBack && nearFore) {
            const int32_t g1 = s(y - dy, x - dx), g2 = s(y + dy, x + dx);
            const int32_t mean = (g1 + g2) >> 1;
            if (farBack && farFore) {
                const int32_t second = 2 * v - s(y - 2 * dy, x - 2 * dx) - s(y + 2 * dy, x + 2 * dx);
                return {std::abs(g1 - g2) + std::abs(second), mean + (second >> 2)};
            }
            const int32_t single = v - (farBack ? s(y - 2 * dy, x - 2 * dx) : s(y + 2 * dy, x + 2 * dx));
            return {std::abs(g1 - g2) + std::abs(single), mean + (single >> 2)};
        }
        // On the frame edge in this direction: the one green neighbour and the far sample beyond it.
        const int32_t step = nearBack ? -1 : 1;
        const int32_t g1 = s(y + step * dy, x + step * dx);
        const int32_t single = v - s(y + 2 * step * dy, x + 2 * step * dx);
        return {2 * std::abs(single), g1 + ((2 * single) >> 2)};
    }

    // Unclamped green estimate at an R or B site: horizontal only when strictly cheaper.
    int32_t greenEstimate(int32_t y, int32_t x) const {
        const Directional across = along(y, x, 0, 1), down = along(y, x, 1, 0);
        return across.cost < down.cost ? across.estimate : down.estimate;
    }

    void writeGreen(int32_t y, int32_t x) const {
        const bool native = redRowAt(y) != redColAt(x);
        put(y, x, kGreen, native ? s(y, x) : clamp(greenEstimate(y, x)));
    }

    // base + mean of (sample - green) over the existing sites among the n offsets.
    int32_t fromDifferences(int32_t y, int32_t x, int32_t base, const int32_t (*offsets)[2], int n) const {
        int32_t sum = 0, count = 0;
        for (int i = 0; i < n; ++i) {
            const int32_t ny = y + offsets[i][0], nx = x + offsets[i][1];
            if (!has(ny, nx)) continue;
            sum += s(ny, nx) - g(ny, nx);
            ++count;
        }
        const int shift = count == 4 ? 2 : (count == 2 ? 1 : 0);
        return clamp(base + (sum >> shift));
    }

    // Red (wantRed) or blue at (y, x).
    int32_t colour(int32_t y, int32_t x, bool wantRed) const {
        static constexpr int32_t kDiagonal[4][2] = {{-1, -1}, {-1, 1}, {1, -1}, {1, 1}};
        static constexpr int32_t kAcross[2][2] = {{0, -1}, {0, 1}};
        static constexpr int32_t kDown[2][2] = {{-1, 0}, {1, 0}};
        const bool red = isRed(y, x), blue = isBlue(y, x);
        if (red || blue) {
            if (red == wantRed) return s(y, x);
            return fromDifferences(y, x, g(y, x), kDiagonal, 4);
        }
        // A green site: the wanted colour lies across when this row holds it, else above and below.
        const bool rowHoldsIt = redRowAt(y) == wantRed;
        return fromDifferences(y, x, s(y, x), rowHoldsIt ? kAcross : kDown, 2);
    }
};

// Rectangles are [y0, y1) x [x0, x1).
void fillGreen(const EdgeFrame &f, int32_t y0, int32_t y1, int32_t x0, int32_t x1) {
    for (int32_t y = y0; y < y1; ++y)
        for (int32_t x = x0; x < x1; ++x) f.writeGreen(y, x);
}
void fillBlue(const EdgeFrame &f, int32_t y0, int32_t y1, int32_t x0, int32_t x1) {
    for (int32_t y = y0; y < y1; ++y)
        for (int32_t x = x0; x < x1; ++x) f.put(y, x, kBlue, f.colour(y, x, false));
}
void fillRed(const EdgeFrame &f, int32_t y0, int32_t y1, int32_t x0, int32_t x1) {
    for (int32_t y = y0; y < y1; ++y)
        for (int32_t x = x0; x < x1; ++x) f.put(y, x, kRed, f.colour(y, x, true));
}

// A strip of columns down the frame: greens and blues of rows 2 .. h-1 in columns [x0, x1), reds of rows
// 1 .. h-1 in columns [r0, r1). A block of rows at a time, the greens a row ahead of the blues and reds
// that read them, so that the three find the block's rows in the cache (one pass each would fetch every
// row of the strip three times).
void fillStrip(const EdgeFrame &f, int32_t x0, int32_t x1, int32_t r0, int32_t r1) {
    constexpr int32_t kBlock = 32;
    int32_t greens = 2; // the first row without its greens
    for (int32_t y = 1; y < f.h; y += kBlock) {
        const int32_t end = std::min(f.h, y + kBlock), ahead = std::min(f.h, end + 1);
        fillGreen(f, greens, ahead, x0, x1);
        greens = std::max(greens, ahead);
        fillBlue(f, std::max(y, 2), end, x0, x1);
        fillRed(f, y, end, r0, r1);
    }
}

// The rows above a kernel that starts at row `startRow`; red of the last of them needs the kernel's
// greens and is left to it.
void firstRows(const EdgeFrame &f, int32_t startRow) {
    fillGreen(f, 0, startRow, 0, f.w);
    fillBlue(f, 0, startRow, 0, f.w);
    fillRed(f, 0, startRow - 1, 0, f.w);
}

// The top-left red site of an RGGB frame takes its blue from the two green estimates before they
// are clamped (the greens written are clamped as everywhere).
int32_t topLeftBlueOf(const EdgeFrame &f) {
    return f.clamp(f.greenEstimate(0, 0) + f.s(1, 1) - f.greenEstimate(1, 1));
}
void topLeftBlue(const EdgeFrame &f) { f.put(0, 0, kBlue, topLeftBlueOf(f)); }

// Rows 0 and 1 of an RGGB or GRBG frame; they read rows 0 .. 3, which always exist.
void firstRowsRGGB(const uint16_t *src, uint16_t *dst, int32_t h, int32_t w, int32_t startColumn, int32_t maximum) {
    const EdgeFrame f{src, dst, h, w, 0, startColumn & 1, maximum};
    firstRows(f, 2);
    if (startColumn == 2) topLeftBlue(f);
}

// Rows 0 .. 2 of a GBRG or BGGR frame. The blue sites of row 2 take their vertical second difference
// from rows 0 and 4, so this piece must know whether row 4 exists: the exported piece assumes it does,
// the drivers pass the real height (a frame 4 high has no row 4).
void firstRowsGBRG(const uint16_t *src, uint16_t *dst, int32_t h, int32_t w, int32_t startColumn, int32_t maximum) {
    firstRows(EdgeFrame{src, dst, h, w, 1, startColumn & 1, maximum}, 3);
}

// Columns left of the kernel's start column, from row 2 down (rows 0 and 1 are the first rows').
void firstCols(const EdgeFrame &f, int32_t startColumn) { fillStrip(f, 0, startColumn, 0, startColumn - 1); }

} // namespace

VQP_EXTERN void edgeFirstRowsRGGBU16(const uint16_t *src, uint16_t *dst, uint32_t width, int32_t startColumn,
                                     int32_t maximum) {
    firstRowsRGGB(src, dst, 4, static_cast<int32_t>(width), startColumn, maximum); // reads rows 0 .. 3
}

VQP_EXTERN void edgeFirstRowsGBRGU16(const uint16_t *src, uint16_t *dst, uint32_t width, int32_t startColumn,
                                     int32_t maximum) {
    firstRowsGBRG(src, dst, 5, static_cast<int32_t>(width), startColumn, maximum); // reads rows 0 .. 4
}

VQP_EXTERN void edgeFirstColsRGGBU16(const uint16_t *src, uint16_t *dst, uint32_t height, uint32_t width,
                                     int32_t maximum) {
    firstCols(EdgeFrame{src, dst, static_cast<int32_t>(height), static_cast<int32_t>(width), 0, 0, maximum}, 2);
}

VQP_EXTERN void edgeFirstColsGRBGU16(const uint16_t *src, uint16_t *dst, uint32_t height, uint32_t width,
                                     int32_t maximum) {
    firstCols(EdgeFrame{src, dst, static_cast<int32_t>(height), static_cast<int32_t>(width), 0, 1, maximum}, 3);
}

// Rows firstRowLeft .. h-1 (one, two or three, the first a red-site row) under the kernel's columns,
// and red of the row above them. When the kernel covered no rows (it then reports no columns either)
// this piece takes the whole width right of the first columns.
VQP_EXTERN void edgeLastRowsRGGBU16(const uint16_t *src, uint16_t *dst, uint32_t height, uint32_t width,
                                    int32_t firstRowLeft, int32_t startColumn, int32_t maximum) {
    const int32_t h = static_cast<int32_t>(height), w = static_cast<int32_t>(width);
    const int32_t Y = firstRowLeft;
    const int32_t left = minus32(h, Y);
    if (left < 1 || left > 3) return;
    const bool kernelRan = Y > 3; // the kernel starts at row 2 or 3 and covers at least two rows
    const int32_t columnEnd = kernelRan ? vq::u16::edgeColumnEnd(width, startColumn) : w;
    if (columnEnd <= startColumn) return;
    const EdgeFrame f{src, dst, h, w, Y & 1, startColumn & 1, maximum};
    fillGreen(f, Y, h, startColumn, columnEnd);
    fillBlue(f, Y, h, startColumn, columnEnd);
    fillRed(f, Y - 1, h, startColumn - 1, kernelRan ? columnEnd - 1 : w);
}

// Columns firstColumnLeft .. w-1 (one, two or three, the first a red-site column) from row 2 down,
// and red of the column left of them from row 1 down.
VQP_EXTERN void edgeLastColsRGGBU16(const uint16_t *src, uint16_t *dst, uint32_t height, uint32_t width,
                                    int32_t firstColumnLeft, int32_t maximum) {
    const int32_t h = static_cast<int32_t>(height), w = static_cast<int32_t>(width);
    const int32_t X = firstColumnLeft;
    const int32_t left = minus32(w, X);
    if (left < 1 || left > 3) return;
    fillStrip(EdgeFrame{src, dst, h, w, 0, X & 1, maximum}, X, w, X - 1, w);
}

// ---- one driver in three steps: borders before the kernel, the kernel, borders after it --------
//
// RGGB and GRBG start the kernel at row 2, GBRG and BGGR at row 3 and run their column pieces on the
// frame without its first row; RGGB and GBRG start it at column 2, the others at 3.

vq::u16::EdgeRun vq::u16::edgeRunOf(const uint16_t *src, uint32_t height, uint32_t width, uint16_t *dst,
                                    int32_t startRow, int32_t startColumn, int32_t maximum) {
    return {src, dst, height, width, startRow, startColumn, maximum};
}

void vq::u16::edgeBefore(const EdgeRun &r) {
    const int32_t h = static_cast<int32_t>(r.height), w = static_cast<int32_t>(r.width);
    const ptrdiff_t viewRows = r.startRow - 2; // 0, or 1 for the row-1 view
    if (r.startRow == 2) firstRowsRGGB(r.src, r.dst, h, w, r.startColumn, r.maximum);
    else firstRowsGBRG(r.src, r.dst, h, w, r.startColumn, r.maximum);
    const uint32_t viewHeight = r.height - static_cast<uint32_t>(viewRows);
    if (r.startColumn == 2) edgeFirstColsRGGBU16(r.src + viewRows * w, r.dst + viewRows * 3 * w, viewHeight, r.width, r.maximum);
    else edgeFirstColsGRBGU16(r.src + viewRows * w, r.dst + viewRows * 3 * w, viewHeight, r.width, r.maximum);
}

uint32_t vq::u16::edgeKernelRows(const EdgeRun &r) { return r.height - static_cast<uint32_t>(r.startRow) - 2u; }

uint64_t vq::u16::edgeKernel(const EdgeRun &r) {
    const ptrdiff_t w = r.width;
    return edgeSecRGGBU16(r.src + r.startRow * w, r.dst + r.startRow * 3 * w, edgeKernelRows(r), r.width,
                          r.startColumn, r.maximum);
}

void vq::u16::edgeAfter(const EdgeRun &r, uint64_t stop) {
    const ptrdiff_t viewRows = r.startRow - 2;
    const ptrdiff_t w = r.width;
    const int32_t firstRowLeft = static_cast<int32_t>(static_cast<uint32_t>(stop >> 32) + static_cast<uint32_t>(r.startRow));
    edgeLastRowsRGGBU16(r.src, r.dst, r.height, r.width, firstRowLeft, r.startColumn, r.maximum);
    edgeLastColsRGGBU16(r.src + viewRows * w, r.dst + viewRows * 3 * w, r.height - static_cast<uint32_t>(viewRows),
                        r.width, static_cast<int32_t>(stop & 0xFFFFFFFFu), r.maximum);
}

int32_t vq::u16::edgeTopLeftBlue(const uint16_t *src, uint32_t height, uint32_t width, int32_t maximum) {
    return topLeftBlueOf(EdgeFrame{src, nullptr, static_cast<int32_t>(height), static_cast<int32_t>(width), 0, 0, maximum});
}

int32_t vq::u16::edgeDriver(const EdgeRun &r) {
    edgeBefore(r);
    edgeAfter(r, edgeKernel(r));
    return 0;
}

VQP_EXTERN int32_t demosaicingEdgeRGGBU16(const uint16_t *src, uint32_t height, uint32_t width, uint16_t *dst) {
    return vq::u16::edgeDriver(vq::u16::edgeRunOf(src, height, width, dst, 2, 2, vq::u16::kEdgeMaxRGGB));
}
VQP_EXTERN int32_t demosaicingEdgeGRBGU16(const uint16_t *src, uint32_t height, uint32_t width, uint16_t *dst) {
    return vq::u16::edgeDriver(vq::u16::edgeRunOf(src, height, width, dst, 2, 3, vq::u16::kEdgeMaxOther));
}
VQP_EXTERN int32_t demosaicingEdgeGBRGU16(const uint16_t *src, uint32_t height, uint32_t width, uint16_t *dst) {
    return vq::u16::edgeDriver(vq::u16::edgeRunOf(src, height, width, dst, 3, 2, vq::u16::kEdgeMaxOther));
}
VQP_EXTERN int32_t demosaicingEdgeBGGRU16(const uint16_t *src, uint32_t height, uint32_t width, uint16_t *dst) {
    return vq::u16::edgeDriver(vq::u16::edgeRunOf(src, height, width, dst, 3, 3, vq::u16::kEdgeMaxOther));
}
