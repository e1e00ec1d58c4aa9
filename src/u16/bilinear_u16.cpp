// 16-bit bilinear demosaic of RGGB frames into 16-bit colour, interleaved or planar.
//
// Every missing value is a truncating mean of the nearest samples of its colour. Rows are taken in
// pairs (odd row r: G B G B ..., even row r + 1: R G R G ...) and columns in pairs (odd k, even
// k + 1), so each step is one 2x2 cell whose site types are fixed. Row 0 and column 0 are done by
// their own pieces; the body covers the cells that have all their neighbours and reports where it
// stopped, and the last-rows and last-columns pieces finish the one or two lines that remain. On a
// border a missing neighbour is left out of the mean, except for green at an R or B site with three
// neighbours, where the inner neighbour stands in for its missing mirror (counted twice).
//
// The arithmetic is written once over a store; the interleaved store puts B, G, R (or R, G, B with
// order flag 1) into one pixel, the planar store into three planes.
#include <cstddef>
#include <cstdint>

#include "simd/dispatch.h"
#include "u16/u16_common.h"
#include "velqora.h"

namespace {

using vq::u16::minus32;

inline uint32_t mean2(uint32_t a, uint32_t b) { return (a + b) >> 1; }
inline uint32_t mean4(uint32_t a, uint32_t b, uint32_t c, uint32_t d) { return (a + b + c + d) >> 2; }
// Three neighbours: the inner one `m` also stands in for its missing mirror.
inline uint32_t edge3(uint32_t a, uint32_t m, uint32_t b) { return (a + 2u * m + b) >> 2; }

// Interleaved 16-bit pixels; order flag 1 puts red first, anything else blue first.
// Samples are read and written bytewise (vq::u16::Src16, Dst16): buffers may start at any address.
struct InterleavedU16 {
    vq::u16::Dst16 base;
    int redAt;
    int blueAt;
    InterleavedU16(uint16_t *dst, uint32_t order)
        : base(vq::u16::Dst16::of(dst)), redAt(order == 1 ? 0 : 2), blueAt(order == 1 ? 2 : 0) {}
    void put(ptrdiff_t i, uint32_t r, uint32_t g, uint32_t b) const {
        const vq::u16::Dst16 p = base + i * 3;
        p[blueAt] = b;
        p[1] = g;
        p[redAt] = r;
    }
};

struct PlanarU16 {
    vq::u16::Dst16 blue, green, red;
    PlanarU16(uint16_t *b, uint16_t *g, uint16_t *r)
        : blue(vq::u16::Dst16::of(b)), green(vq::u16::Dst16::of(g)), red(vq::u16::Dst16::of(r)) {}
    void put(ptrdiff_t i, uint32_t r, uint32_t g, uint32_t b) const {
        blue[i] = b;
        green[i] = g;
        red[i] = r;
    }
};

// Source samples by row and column, and the pixel index of a position.
struct Mosaic16 {
    const uint16_t *p;
    int32_t w;
    uint32_t operator()(int32_t r, int32_t k) const {
        return static_cast<uint32_t>(vq::u16::Src16::of(p)[ptrdiff_t{r} * w + k]);
    }
    ptrdiff_t at(int32_t r, int32_t k) const { return ptrdiff_t{r} * w + k; }
};

// Sizes arrive as unsigned 32-bit values and are used as signed ones; the differences below wrap
// instead of overflowing for sizes no caller can pass.
inline int32_t signedOf(uint32_t v) { return static_cast<int32_t>(v); }

// First row not covered by the row pairs (r odd, r + 1) for r < h - 2: h - 1 for even h, h - 2 for odd.
inline int32_t firstRowLeft(int32_t h) { return minus32(minus32(h, 1), h & 1); }
// First column not covered by the column pairs: w - 1 for even w, w - 2 for odd w (1 below 4).
inline int32_t firstColumnLeft(int32_t w) { return w >= 4 ? ((w - 4) & ~1) + 3 : 1; }

// The four sites of an inner cell, all neighbours present. Row r is odd, column k odd.
template <class Store>
void blueSite(Mosaic16 s, int32_t r, int32_t k, const Store &o) {
    o.put(s.at(r, k), mean4(s(r - 1, k - 1), s(r - 1, k + 1), s(r + 1, k - 1), s(r + 1, k + 1)),
          mean4(s(r, k - 1), s(r, k + 1), s(r - 1, k), s(r + 1, k)), s(r, k));
}
template <class Store> // green on a blue row: red above and below, blue left and right
void greenOnBlueRow(Mosaic16 s, int32_t r, int32_t k, const Store &o) {
    o.put(s.at(r, k), mean2(s(r - 1, k), s(r + 1, k)), s(r, k), mean2(s(r, k - 1), s(r, k + 1)));
}
template <class Store> // green on a red row: red left and right, blue above and below
void greenOnRedRow(Mosaic16 s, int32_t r, int32_t k, const Store &o) {
    o.put(s.at(r, k), mean2(s(r, k - 1), s(r, k + 1)), s(r, k), mean2(s(r - 1, k), s(r + 1, k)));
}
template <class Store>
void redSite(Mosaic16 s, int32_t r, int32_t k, const Store &o) {
    o.put(s.at(r, k), s(r, k), mean4(s(r, k - 1), s(r, k + 1), s(r - 1, k), s(r + 1, k)),
          mean4(s(r - 1, k - 1), s(r - 1, k + 1), s(r + 1, k - 1), s(r + 1, k + 1)));
}

// Row 0: red sites at even columns, nothing above.
template <class Store>
void firstRows(Mosaic16 s, int32_t w, const Store &o) {
    o.put(0, s(0, 0), mean2(s(0, 1), s(1, 0)), s(1, 1));
    const int32_t X = firstColumnLeft(w);
    for (int32_t k = 1; k < X - 1; k += 2) {
        o.put(k, mean2(s(0, k - 1), s(0, k + 1)), s(0, k), s(1, k));
        o.put(k + 1, s(0, k + 1), edge3(s(0, k), s(1, k + 1), s(0, k + 2)), mean2(s(1, k), s(1, k + 2)));
    }
    const int32_t left = minus32(w, X);
    if (left == 1) {
        o.put(X, s(0, X - 1), s(0, X), s(1, X));
    } else if (left == 2) {
        o.put(X, mean2(s(0, X - 1), s(0, X + 1)), s(0, X), s(1, X));
        o.put(X + 1, s(0, X + 1), mean2(s(0, X), s(1, X + 1)), s(1, X)); // top-right corner
    }
}

// Column 0 from row 1 down: green sites on odd rows, red sites on even rows, nothing to the left.
template <class Store>
void firstCols(Mosaic16 s, int32_t h, const Store &o) {
    const int32_t Y = firstRowLeft(h);
    for (int32_t r = 1; r < Y; r += 2) {
        o.put(s.at(r, 0), mean2(s(r - 1, 0), s(r + 1, 0)), s(r, 0), s(r, 1));
        o.put(s.at(r + 1, 0), s(r + 1, 0), edge3(s(r, 0), s(r + 1, 1), s(r + 2, 0)), mean2(s(r, 1), s(r + 2, 1)));
    }
    const int32_t left = minus32(h, Y);
    if (left == 1) {
        o.put(s.at(Y, 0), s(Y - 1, 0), s(Y, 0), s(Y, 1));
    } else if (left == 2) {
        o.put(s.at(Y, 0), mean2(s(Y - 1, 0), s(Y + 1, 0)), s(Y, 0), s(Y, 1));
        o.put(s.at(Y + 1, 0), s(Y + 1, 0), mean2(s(Y, 0), s(Y + 1, 1)), s(Y, 1)); // bottom-left corner
    }
}

inline uint64_t packRowColumn(int32_t row, int32_t column) {
    return (uint64_t{static_cast<uint32_t>(row)} << 32) | static_cast<uint32_t>(column);
}

// The vector interior of a row pair, if the machine has one: the first column it did not write.
int32_t vectorRows(Mosaic16 s, int32_t r, int32_t X, const InterleavedU16 &o, const vq::simd::Ahead &ahead) {
    const auto rows = vq::simd::table().u16BilinearRows;
    if (rows == nullptr) return 1;
    const auto *r0 = reinterpret_cast<const unsigned char *>(s.p) + 2 * s.at(r - 1, 0);
    unsigned char *blueRow = o.base.p + 6 * s.at(r, 0);
    return rows(r0, s.w, X, blueRow, blueRow + 6 * ptrdiff_t{s.w}, o.redAt == 0, ahead);
}
int32_t vectorRows(Mosaic16 s, int32_t r, int32_t X, const PlanarU16 &o, const vq::simd::Ahead &ahead) {
    const auto rows = vq::simd::table().u16BilinearRowsPlanar;
    if (rows == nullptr) return 1;
    const auto *r0 = reinterpret_cast<const unsigned char *>(s.p) + 2 * s.at(r - 1, 0);
    const ptrdiff_t at = 2 * s.at(r, 0);
    unsigned char *const planes[3] = {o.blue.p + at, o.green.p + at, o.red.p + at};
    return rows(r0, s.w, X, planes, ahead);
}

template <class Store>
uint64_t body(Mosaic16 s, int32_t h, int32_t w, const Store &o, const vq::simd::FetchRows &fetch = {}) {
    const int32_t Y = firstRowLeft(h), X = firstColumnLeft(w);
    for (int32_t r = 1; r < Y; r += 2) {
        for (int32_t k = vectorRows(s, r, X, o, fetch.at(r - 1)); k < X - 1; k += 2) {
            blueSite(s, r, k, o);
            greenOnBlueRow(s, r, k + 1, o);
            greenOnRedRow(s, r + 1, k, o);
            redSite(s, r + 1, k + 1, o);
        }
    }
    return packRowColumn(Y, X);
}

// Rows Y .. h-1 of the inner columns: one blue row (only the row above exists) or a blue row with
// an inner neighbourhood followed by the last, red row (only the row above exists).
template <class Store>
void lastRows(Mosaic16 s, int32_t h, int32_t w, int32_t Y, const Store &o) {
    if (w <= 3) return;
    const int32_t X = firstColumnLeft(w);
    const int32_t left = minus32(h, Y);
    if (left == 1) {
        for (int32_t k = 1; k < X - 1; k += 2) {
            o.put(s.at(Y, k), mean2(s(Y - 1, k - 1), s(Y - 1, k + 1)), edge3(s(Y, k - 1), s(Y - 1, k), s(Y, k + 1)), s(Y, k));
            o.put(s.at(Y, k + 1), s(Y - 1, k + 1), s(Y, k + 1), mean2(s(Y, k), s(Y, k + 2)));
        }
    } else if (left == 2) {
        for (int32_t k = 1; k < X - 1; k += 2) {
            blueSite(s, Y, k, o);
            greenOnBlueRow(s, Y, k + 1, o);
            o.put(s.at(Y + 1, k), mean2(s(Y + 1, k - 1), s(Y + 1, k + 1)), s(Y + 1, k), s(Y, k));
            o.put(s.at(Y + 1, k + 1), s(Y + 1, k + 1), edge3(s(Y + 1, k), s(Y, k + 1), s(Y + 1, k + 2)),
                  mean2(s(Y, k), s(Y, k + 2)));
        }
    }
}

// Columns X .. w-1 from row 1 down: one blue column (only the column to the left exists) or a blue
// column with an inner neighbourhood followed by the last, red column.
template <class Store>
void lastCols(Mosaic16 s, int32_t h, int32_t w, int32_t X, const Store &o) {
    const int32_t Y = firstRowLeft(h);
    const int32_t tail = minus32(h, Y);
    const int32_t left = minus32(w, X);
    if (left == 1) {
        for (int32_t r = 1; r < Y; r += 2) {
            o.put(s.at(r, X), mean2(s(r - 1, X - 1), s(r + 1, X - 1)), edge3(s(r - 1, X), s(r, X - 1), s(r + 1, X)), s(r, X));
            o.put(s.at(r + 1, X), s(r + 1, X - 1), s(r + 1, X), mean2(s(r, X), s(r + 2, X)));
        }
        if (tail == 1) {
            o.put(s.at(Y, X), s(Y - 1, X - 1), mean2(s(Y, X - 1), s(Y - 1, X)), s(Y, X));
        } else if (tail == 2) {
            o.put(s.at(Y, X), mean2(s(Y - 1, X - 1), s(Y + 1, X - 1)), edge3(s(Y - 1, X), s(Y, X - 1), s(Y + 1, X)), s(Y, X));
            o.put(s.at(Y + 1, X), s(Y + 1, X - 1), s(Y + 1, X), s(Y, X));
        }
    } else if (left == 2) {
        for (int32_t r = 1; r < Y; r += 2) {
            const uint32_t blueBelow = mean2(s(r, X), s(r + 2, X)); // shared by (r+1, X) and (r+1, X+1)
            blueSite(s, r, X, o);
            o.put(s.at(r, X + 1), mean2(s(r - 1, X + 1), s(r + 1, X + 1)), s(r, X + 1), s(r, X));
            o.put(s.at(r + 1, X), mean2(s(r + 1, X - 1), s(r + 1, X + 1)), s(r + 1, X), blueBelow);
            o.put(s.at(r + 1, X + 1), s(r + 1, X + 1), edge3(s(r, X + 1), s(r + 1, X), s(r + 2, X + 1)), blueBelow);
        }
        if (tail == 1) {
            o.put(s.at(Y, X), mean2(s(Y - 1, X - 1), s(Y - 1, X + 1)), edge3(s(Y, X - 1), s(Y - 1, X), s(Y, X + 1)), s(Y, X));
            o.put(s.at(Y, X + 1), s(Y - 1, X + 1), s(Y, X + 1), s(Y, X));
        } else if (tail == 2) {
            // The bottom-right 2x2 block: its only blue sample serves all four pixels.
            const uint32_t b = s(Y, X);
            o.put(s.at(Y, X), mean4(s(Y - 1, X - 1), s(Y - 1, X + 1), s(Y + 1, X - 1), s(Y + 1, X + 1)),
                  mean4(s(Y, X - 1), s(Y, X + 1), s(Y - 1, X), s(Y + 1, X)), b);
            o.put(s.at(Y, X + 1), mean2(s(Y - 1, X + 1), s(Y + 1, X + 1)), s(Y, X + 1), b);
            o.put(s.at(Y + 1, X), mean2(s(Y + 1, X - 1), s(Y + 1, X + 1)), s(Y + 1, X), b);
            o.put(s.at(Y + 1, X + 1), s(Y + 1, X + 1), mean2(s(Y, X + 1), s(Y + 1, X)), b);
        }
    }
}

} // namespace

// ---- interleaved pieces ----------------------------------------------------------------------

VQP_EXTERN void bilinearFirstRowsRGGBU16(const uint16_t *src, uint16_t *dst, uint32_t width, uint32_t order) {
    firstRows(Mosaic16{src, signedOf(width)}, signedOf(width), InterleavedU16(dst, order));
}
VQP_EXTERN void bilinearFirstColsRGGBU16(const uint16_t *src, uint16_t *dst, uint32_t height, uint32_t width,
                                         uint32_t order) {
    firstCols(Mosaic16{src, signedOf(width)}, signedOf(height), InterleavedU16(dst, order));
}
VQP_EXTERN uint64_t bilinearBodyRGGBU16(const uint16_t *src, uint16_t *dst, uint32_t height, uint32_t width,
                                        uint32_t order) {
    return body(Mosaic16{src, signedOf(width)}, signedOf(height), signedOf(width), InterleavedU16(dst, order));
}
VQP_EXTERN void bilinearLastRowsRGGBU16(const uint16_t *src, uint16_t *dst, uint32_t height, uint32_t width,
                                        int32_t firstRowLeft, uint32_t order) {
    lastRows(Mosaic16{src, signedOf(width)}, signedOf(height), signedOf(width), firstRowLeft, InterleavedU16(dst, order));
}
VQP_EXTERN void bilinearLastColsRGGBU16(const uint16_t *src, uint16_t *dst, uint32_t height, uint32_t width,
                                        int32_t firstColumnLeft, uint32_t order) {
    lastCols(Mosaic16{src, signedOf(width)}, signedOf(height), signedOf(width), firstColumnLeft,
             InterleavedU16(dst, order));
}

// ---- planar pieces ---------------------------------------------------------------------------

VQP_EXTERN void bilinearFirstRowsRGGBU16P(const uint16_t *src, uint16_t *planeB, uint16_t *planeG, uint16_t *planeR,
                                          uint32_t width) {
    firstRows(Mosaic16{src, signedOf(width)}, signedOf(width), PlanarU16{planeB, planeG, planeR});
}
VQP_EXTERN void bilinearFirstColsRGGBU16P(const uint16_t *src, uint16_t *planeB, uint16_t *planeG, uint16_t *planeR,
                                          uint32_t height, uint32_t width) {
    firstCols(Mosaic16{src, signedOf(width)}, signedOf(height), PlanarU16{planeB, planeG, planeR});
}
VQP_EXTERN uint64_t bilinearBodyRGGBU16P(const uint16_t *src, uint16_t *planeB, uint16_t *planeG, uint16_t *planeR,
                                         uint32_t height, uint32_t width) {
    return body(Mosaic16{src, signedOf(width)}, signedOf(height), signedOf(width), PlanarU16{planeB, planeG, planeR});
}
VQP_EXTERN void bilinearLastRowsRGGBU16P(const uint16_t *src, uint16_t *planeB, uint16_t *planeG, uint16_t *planeR,
                                         uint32_t height, uint32_t width, int32_t firstRowLeft) {
    lastRows(Mosaic16{src, signedOf(width)}, signedOf(height), signedOf(width), firstRowLeft,
             PlanarU16{planeB, planeG, planeR});
}
VQP_EXTERN void bilinearLastColsRGGBU16P(const uint16_t *src, uint16_t *planeB, uint16_t *planeG, uint16_t *planeR,
                                         uint32_t height, uint32_t width, int32_t firstColumnLeft) {
    lastCols(Mosaic16{src, signedOf(width)}, signedOf(height), signedOf(width), firstColumnLeft,
             PlanarU16{planeB, planeG, planeR});
}

uint64_t vq::u16::bilinearBody(const uint16_t *src, uint16_t *dst, uint32_t height, uint32_t width, uint32_t order,
                               const simd::FetchRows &fetch) {
    return body(Mosaic16{src, signedOf(width)}, signedOf(height), signedOf(width), InterleavedU16(dst, order), fetch);
}
uint64_t vq::u16::bilinearBodyPlanar(const uint16_t *src, uint16_t *const planes[3], uint32_t height, uint32_t width,
                                     const simd::FetchRows &fetch) {
    return body(Mosaic16{src, signedOf(width)}, signedOf(height), signedOf(width),
                PlanarU16{planes[0], planes[1], planes[2]}, fetch);
}

// ---- drivers and entry points ----------------------------------------------------------------

VQP_EXTERN int32_t demosaicingBilinearRGGBU16(const uint16_t *src, uint32_t height, uint32_t width, uint16_t *dst) {
    bilinearFirstRowsRGGBU16(src, dst, width, 0);
    bilinearFirstColsRGGBU16(src, dst, height, width, 0);
    const uint64_t stop = bilinearBodyRGGBU16(src, dst, height, width, 0);
    bilinearLastRowsRGGBU16(src, dst, height, width, static_cast<int32_t>(stop >> 32), 0);
    bilinearLastColsRGGBU16(src, dst, height, width, static_cast<int32_t>(stop & 0xFFFFFFFFu), 0);
    return 0;
}

VQP_EXTERN int32_t demosaicingBilinearRGGBU16P(const uint16_t *src, uint32_t height, uint32_t width, uint16_t *planeB,
                                               uint16_t *planeG, uint16_t *planeR) {
    bilinearFirstRowsRGGBU16P(src, planeB, planeG, planeR, width);
    bilinearFirstColsRGGBU16P(src, planeB, planeG, planeR, height, width);
    const uint64_t stop = bilinearBodyRGGBU16P(src, planeB, planeG, planeR, height, width);
    bilinearLastRowsRGGBU16P(src, planeB, planeG, planeR, height, width, static_cast<int32_t>(stop >> 32));
    bilinearLastColsRGGBU16P(src, planeB, planeG, planeR, height, width, static_cast<int32_t>(stop & 0xFFFFFFFFu));
    return 0;
}

VQP_EXTERN int32_t vqpDemosaicingBilinearU16(const uint16_t *src, uint32_t height, uint32_t width, uint16_t *dst) {
    if (src == nullptr || dst == nullptr) return VQP_ERR_NULL_ARGUMENT;
    if (signedOf(height) <= 3 || signedOf(width) <= 3) return VQP_ERR_BAD_DIMENSIONS;
    return demosaicingBilinearRGGBU16(src, height, width, dst);
}

VQP_EXTERN int32_t vqpDemosaicingBilinearU16P(const uint16_t *src, uint32_t height, uint32_t width, uint16_t *planeB,
                                              uint16_t *planeG, uint16_t *planeR) {
    if (src == nullptr || planeB == nullptr || planeG == nullptr || planeR == nullptr) return VQP_ERR_NULL_ARGUMENT;
    if (signedOf(height) <= 3 || signedOf(width) <= 3) return VQP_ERR_BAD_DIMENSIONS;
    return demosaicingBilinearRGGBU16P(src, height, width, planeB, planeG, planeR);
}
