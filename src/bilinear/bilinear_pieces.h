// Bilinear demosaic, 8-bit: the RGGB arithmetic, split into five region pieces so that the interior loop
// needs no bounds tests, plus the two-row top routine of the phases whose first row starts with green.
//
// RGGB labelling, counted from the first byte of the buffer a piece is given: even row and even column is
// a red site, odd row and odd column a blue site, the other two are green sites. Interior rule:
//
//   site           red                     green                   blue
//   red            own                     (N + S + W + E) >> 2    (NW + NE + SW + SE) >> 2
//   green, R row   (W + E) >> 1            own                     (N + S) >> 1
//   green, B row   (N + S) >> 1            own                     (W + E) >> 1
//   blue           (NW + NE + SW + SE) >> 2 (N + S + W + E) >> 2   own
//
// At the border each piece knows which neighbours exist: green with three neighbours counts the one
// opposite the missing one twice; green in a corner averages its two; red or blue at a green site with
// one neighbour on the axis copies it; red or blue across an edge averages the two diagonals, in a corner
// copies the one. Every average truncates; nothing is clamped.
//
// Regions, each pixel written exactly once: row 0 (firstRows), column 0 below it (firstCols), the body in
// 2x2 cells, the last one or two rows under the body's columns (lastRows), the last one or two columns
// from row 1 down (lastCols). Each piece is instantiated per pixel store; the instance over Bgr8Store is
// what the interface tables call rg8ToBgr8_bilinear_<piece>, and so on for the other layouts.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/pixel_store.h"
#include "core/rows.h"
#include "simd/dispatch.h"

namespace vq::bilinear {

// First column (or row) after the pairs that start at 1: ((n - 4) & ~1) + 3, or 1 when n is below 4.
// That is n - 1 for even n and n - 2 for odd n, so one or two columns remain.
inline int32_t tailStart(int32_t n) { return n >= 4 ? ((n - 4) & ~1) + 3 : 1; }

// The body's result: high half lastRowsStart, low half lastColsStart.
inline uint64_t packEnds(int32_t lastRowsStart, int32_t lastColsStart) {
    return (uint64_t{static_cast<uint32_t>(lastRowsStart)} << 32) | static_cast<uint32_t>(lastColsStart);
}
inline int32_t lastRowsStartOf(uint64_t ends) { return static_cast<int32_t>(static_cast<uint32_t>(ends >> 32)); }
inline int32_t lastColsStartOf(uint64_t ends) { return static_cast<int32_t>(static_cast<uint32_t>(ends)); }

// Interior rule for the two pixels at columns x (odd) and x + 1 of a blue row c, between rows n and s.
template <class Store>
void blueRowPair(const uint8_t *n, const uint8_t *c, const uint8_t *s, int32_t x, const Store &o) {
    o.put(x, (n[x - 1] + n[x + 1] + s[x - 1] + s[x + 1]) >> 2, (n[x] + s[x] + c[x - 1] + c[x + 1]) >> 2, c[x]);
    o.put(x + 1, (n[x + 1] + s[x + 1]) >> 1, c[x + 1], (c[x] + c[x + 2]) >> 1);
}

// Interior rule for the two pixels at columns x (odd) and x + 1 of a red row c, between rows n and s.
template <class Store>
void redRowPair(const uint8_t *n, const uint8_t *c, const uint8_t *s, int32_t x, const Store &o) {
    o.put(x, (c[x - 1] + c[x + 1]) >> 1, c[x], (n[x] + s[x]) >> 1);
    o.put(x + 1, c[x + 1], (n[x + 1] + s[x + 1] + c[x] + c[x + 2]) >> 2,
          (n[x] + n[x + 2] + s[x] + s[x + 2]) >> 2);
}

// Row 0, all columns. It is a red row with no row above.
template <class Store>
void firstRows(const uint8_t *src, const Store &out, int32_t w) {
    const uint8_t *r0 = src;
    const uint8_t *r1 = src + w;
    out.put(0, r0[0], (r0[1] + r1[0]) >> 1, r1[1]); // top-left corner
    const int32_t k = tailStart(w);
    for (int32_t x = 1; x < k; x += 2) {
        out.put(x, (r0[x - 1] + r0[x + 1]) >> 1, r0[x], r1[x]);                            // green: blue from below
        out.put(x + 1, r0[x + 1], (r0[x] + r0[x + 2] + 2 * r1[x + 1]) >> 2, (r1[x] + r1[x + 2]) >> 1); // red
    }
    if (w - k == 1) { // even width: the top-right corner is a green site
        out.put(k, r0[k - 1], r0[k], r1[k]);
    } else if (w - k == 2) { // odd width: a green site, then a red top-right corner
        out.put(k, (r0[k - 1] + r0[k + 1]) >> 1, r0[k], r1[k]);
        out.put(k + 1, r0[k + 1], (r0[k] + r1[k + 1]) >> 1, r1[k]);
    }
}

// Column 0, rows 1 to h - 1: green sites on blue rows, red sites on red rows, no column to the west.
template <class Store>
void firstCols(const uint8_t *src, const Store &out, int32_t h, int32_t w, RowSpan rows = kAllRows) {
    for (int32_t y = rows.firstPair(1); y < rows.pairEnd(h - 2); y += 2) {
        const uint8_t *n = rows.row(src, y - 1, w), *c = rows.row(src, y, w), *s = c + w, *s2 = s + w;
        out.put(ptrdiff_t{y} * w, (n[0] + s[0]) >> 1, c[0], c[1]);
        out.put(ptrdiff_t{y + 1} * w, s[0], (c[0] + s2[0] + 2 * s[1]) >> 2, (c[1] + s2[1]) >> 1);
    }
    if (!rows.bottom(h)) return;
    const int32_t k = tailStart(h);
    const uint8_t *n = rows.row(src, k - 1, w), *c = n + w;
    if (h - k == 1) { // even height: the bottom-left corner is a green site
        out.put(ptrdiff_t{k} * w, n[0], c[0], c[1]);
    } else if (h - k == 2) { // odd height: a green site, then a red bottom-left corner
        const uint8_t *s = c + w;
        out.put(ptrdiff_t{k} * w, (n[0] + s[0]) >> 1, c[0], c[1]);
        out.put(ptrdiff_t{k + 1} * w, s[0], (c[0] + s[1]) >> 1, c[1]);
    }
}

// The interior, two rows (blue, red) and two columns at a time, all neighbours present. Returns where the
// rows it covered end (lastRowsStart) and where its columns end (lastColsStart). lastColsStart depends on
// the width alone, also for heights below 4 where the body writes nothing.
template <class Store>
uint64_t body(const uint8_t *src, const Store &out, int32_t h, int32_t w, RowSpan rows = kAllRows) {
    const int32_t colEnd = tailStart(w);
    if (h - 2 > 1 && w - 2 > 1) {
        const auto vectorPairs = simd::kernels<Store>().bilinearRowPair; // the vector interior, if any
        for (int32_t y = rows.firstPair(1); y < rows.pairEnd(h - 2); y += 2) {
            const uint8_t *r0 = rows.row(src, y - 1, w), *r1 = r0 + w, *r2 = r1 + w, *r3 = r2 + w;
            const Store blueRow = out.at(ptrdiff_t{y} * w), redRow = blueRow.at(w);
            int32_t x = 1;
            if (rows.deep != nullptr) {
                const unsigned char *deep[4];
                rows.deepRows(y - 1, deep);
                x = simd::kernels<Store>().bilinearRowPairDeep(deep, rows.deepRule, w, colEnd < w - 2 ? colEnd : w - 2,
                                                               blueRow, redRow);
            } else if (vectorPairs != nullptr) {
                x = vectorPairs(r0, w, colEnd, blueRow, redRow);
            }
            for (; x < colEnd; x += 2) {
                blueRowPair(r0, r1, r2, x, blueRow);
                redRowPair(r1, r2, r3, x, redRow);
            }
        }
    }
    return packEnds(h - 1 - (h & 1), colEnd);
}

// Rows `start` to h - 1 under the body's columns: one blue row, or a blue row and a red row. The first
// row written is always taken as a blue row, whatever its index. The last row has no row below.
template <class Store>
void lastRows(const uint8_t *src, const Store &out, int32_t h, int32_t w, int32_t start, RowSpan rows = kAllRows) {
    const int32_t count = h - start;
    if (w <= 3 || (count != 1 && count != 2)) return;
    const int32_t colEnd = tailStart(w);
    const uint8_t *n = rows.row(src, start - 1, w), *c = n + w;
    const Store o = out.at(ptrdiff_t{start} * w);
    if (count == 1) {
        for (int32_t x = 1; x < colEnd; x += 2) {
            o.put(x, (n[x - 1] + n[x + 1]) >> 1, (c[x - 1] + c[x + 1] + 2 * n[x]) >> 2, c[x]);
            o.put(x + 1, n[x + 1], c[x + 1], (c[x] + c[x + 2]) >> 1);
        }
        return;
    }
    const uint8_t *s = c + w;
    const Store so = o.at(w);
    for (int32_t x = 1; x < colEnd; x += 2) {
        blueRowPair(n, c, s, x, o);
        so.put(x, (s[x - 1] + s[x + 1]) >> 1, s[x], c[x]);
        so.put(x + 1, s[x + 1], (s[x] + s[x + 2] + 2 * c[x + 1]) >> 2, (c[x] + c[x + 2]) >> 1);
    }
}

// Columns `start` (odd) to w - 1, rows 1 to h - 1; the bottom-right corner is written here. With one
// column it is the last and has no east neighbour; with two the first takes the interior rule across and
// the second has no east neighbour.
template <class Store>
void lastCols(const uint8_t *src, const Store &out, int32_t h, int32_t w, int32_t start, RowSpan rows = kAllRows) {
    const int32_t cols = w - start;
    if (cols != 1 && cols != 2) return;
    const int32_t x = start;
    // Blue row y between rows n and s (s == nullptr: the last row, nothing below).
    const auto blueRow = [&](int32_t y, const uint8_t *n, const uint8_t *c, const uint8_t *s) {
        const Store o = out.at(ptrdiff_t{y} * w);
        if (s != nullptr) {
            if (cols == 1) {
                o.put(x, (n[x - 1] + s[x - 1]) >> 1, (n[x] + s[x] + 2 * c[x - 1]) >> 2, c[x]);
            } else {
                o.put(x, (n[x - 1] + n[x + 1] + s[x - 1] + s[x + 1]) >> 2, (n[x] + s[x] + c[x - 1] + c[x + 1]) >> 2, c[x]);
                o.put(x + 1, (n[x + 1] + s[x + 1]) >> 1, c[x + 1], c[x]);
            }
        } else if (cols == 1) { // bottom-right corner, a blue site
            o.put(x, n[x - 1], (n[x] + c[x - 1]) >> 1, c[x]);
        } else {
            o.put(x, (n[x - 1] + n[x + 1]) >> 1, (c[x - 1] + c[x + 1] + 2 * n[x]) >> 2, c[x]);
            o.put(x + 1, n[x + 1], c[x + 1], c[x]); // bottom-right corner, a green site
        }
    };
    // Red row y between rows n and s (s == nullptr: the last row, nothing below).
    const auto redRow = [&](int32_t y, const uint8_t *n, const uint8_t *c, const uint8_t *s) {
        const Store o = out.at(ptrdiff_t{y} * w);
        if (s != nullptr) {
            if (cols == 1) {
                o.put(x, c[x - 1], c[x], (n[x] + s[x]) >> 1);
            } else {
                o.put(x, (c[x - 1] + c[x + 1]) >> 1, c[x], (n[x] + s[x]) >> 1);
                o.put(x + 1, c[x + 1], (n[x + 1] + s[x + 1] + 2 * c[x]) >> 2, (n[x] + s[x]) >> 1);
            }
        } else if (cols == 1) { // bottom-right corner, a green site
            o.put(x, c[x - 1], c[x], n[x]);
        } else {
            o.put(x, (c[x - 1] + c[x + 1]) >> 1, c[x], n[x]);
            o.put(x + 1, c[x + 1], (n[x + 1] + c[x]) >> 1, n[x]); // bottom-right corner, a red site
        }
    };
    if (h >= 4) {
        for (int32_t y = rows.firstPair(1); y < rows.pairEnd(h - 2); y += 2) {
            const uint8_t *r0 = rows.row(src, y - 1, w), *r1 = r0 + w, *r2 = r1 + w, *r3 = r2 + w;
            blueRow(y, r0, r1, r2);
            redRow(y + 1, r1, r2, r3);
        }
    }
    if (!rows.bottom(h)) return;
    const int32_t k = tailStart(h);
    const uint8_t *n = rows.row(src, k - 1, w), *c = n + w;
    if (h - k == 1) {
        blueRow(k, n, c, nullptr);
    } else if (h - k == 2) {
        blueRow(k, n, c, c + w);
        redRow(k + 1, c, c + w, nullptr);
    }
}

// Rows 0 and 1, all columns, of a frame whose rows alternate G B and R G (GBRG read with red as red; GRBG
// is the same with red and blue exchanged by the store). Row 0 is a blue row with no row above, row 1 a red
// row with the interior rule except at the first and last columns.
//
// Odd widths keep two reuses of samples read at the start of the row: green at (0, w - 2) takes M(0, 0)
// where its west neighbour M(0, w - 3) would be, and blue at (1, w - 2) and (1, w - 1) takes M(2, 1) where
// M(2, w - 2) would be.
template <class Store>
void greenFirstRows(const uint8_t *src, const Store &out, int32_t w) {
    const uint8_t *r0 = src, *r1 = r0 + w, *r2 = r1 + w;
    const Store o1 = out.at(w);
    out.put(0, r1[0], r0[0], r0[1]);                                            // green: red below, blue east
    o1.put(0, r1[0], (r0[0] + r2[0] + 2 * r1[1]) >> 2, (r0[1] + r2[1]) >> 1); // red: no west
    const int32_t k = tailStart(w);
    int32_t x = 1;
    if (const auto vectorRows = simd::kernels<Store>().bilinearGreenFirstRows) x = vectorRows(r0, w, k, out, o1);
    for (; x < k; x += 2) {
        out.put(x, (r1[x - 1] + r1[x + 1]) >> 1, (r0[x - 1] + r0[x + 1] + 2 * r1[x]) >> 2, r0[x]); // blue
        out.put(x + 1, r1[x + 1], r0[x + 1], (r0[x] + r0[x + 2]) >> 1);                        // green
        redRowPair(r0, r1, r2, x, o1);
    }
    if (w - k == 1) { // even width: a blue top-right corner above a green site
        out.put(k, r1[k - 1], (r0[k - 1] + r1[k]) >> 1, r0[k]);
        o1.put(k, r1[k - 1], r1[k], (r0[k] + r2[k]) >> 1);
    } else if (w - k == 2) { // odd width: the two reuses
        out.put(k, (r1[k - 1] + r1[k + 1]) >> 1, (r0[0] + r0[k + 1] + 2 * r1[k]) >> 2, r0[k]);
        out.put(k + 1, r1[k + 1], r0[k + 1], r0[k]);
        const int blue = (r0[k] + r2[1]) >> 1;
        o1.put(k, (r1[k - 1] + r1[k + 1]) >> 1, r1[k], blue);
        o1.put(k + 1, r1[k + 1], (r0[k + 1] + r2[k + 1] + 2 * r1[k]) >> 2, blue);
    }
}

// The RGGB sequence: row 0, column 0, body, last rows, last columns. A band (`rows`) starts at row 0 or
// at an odd row.
template <class Store>
void rggb(const uint8_t *src, int32_t h, int32_t w, const Store &out, RowSpan rows = kAllRows) {
    if (rows.top()) firstRows(src, out, w);
    firstCols(src, out, h, w, rows);
    const uint64_t ends = body(src, out, h, w, rows);
    if (rows.bottom(h)) lastRows(src, out, h, w, lastRowsStartOf(ends), rows);
    lastCols(src, out, h, w, lastColsStartOf(ends), rows);
}

// Green-first phases: the two top rows, then the RGGB pieces on the frame one row down. lastRows runs on
// the whole frame, where the sub-frame's lastRowsStart is one row further down. A band (`rows`) starts at
// row 0 or at an even row.
template <class Store>
void greenFirst(const uint8_t *src, int32_t h, int32_t w, const Store &out, RowSpan rows = kAllRows) {
    if (rows.top()) greenFirstRows(src, out, w);
    const uint8_t *sub = src + w;
    const Store subOut = out.at(w);
    const RowSpan subRows = rows.down(1);
    firstCols(sub, subOut, h - 1, w, subRows);
    const uint64_t ends = body(sub, subOut, h - 1, w, subRows);
    if (rows.bottom(h)) lastRows(src, out, h, w, lastRowsStartOf(ends) + 1, rows);
    lastCols(sub, subOut, h - 1, w, lastColsStartOf(ends), subRows);
}

} // namespace vq::bilinear
