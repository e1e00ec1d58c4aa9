// Edge-directed demosaic, 8-bit: the arithmetic, the band machinery and the two phase drivers, written
// once over the pixel stores of core/pixel_store.h.
//
// Coordinates are those of an RGGB mosaic: rows whose red sites sit at even columns ("R/G rows") alternate
// with rows whose blue sites sit at odd columns ("G/B rows"). A GBRG frame is the same mosaic one row down,
// and BGGR / GRBG are these two with red and blue exchanged by the caller.
//
// Green at a red or blue site: along each direction an estimate and a gradient are formed, the horizontal
// estimate is taken only when its gradient is strictly smaller (ties go vertical), and the result is clamped
// to 0..255. Red and blue then come from colour differences (sample minus green) of the nearest red or blue
// sites, averaged over those that exist.
//
// The frame is processed in bands of two rows. The band of R/G row r estimates the greens of rows r and r+1
// and finishes red and blue of rows r-1 and r: the colour stage lags one row behind the green stage. The
// estimates of the previous band (red sites of row r-2 at even entries, blue sites of row r-1 at odd ones)
// come from the green line, `w` bytes that each band reads and then overwrites with its own; it is the only
// state carried from band to band. The bottom pieces only read it, which lets the interleaved layouts keep
// the line in the last `w` bytes of their own output: a pixel of the last row is written only after every
// line entry at or before its column has been read, and it covers no entry beyond its column.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <type_traits>
#include <utility>

#include "core/pixel_store.h"
#include "simd/dispatch.h"

namespace vq::edge {

// ---- The arithmetic --------------------------------------------------------------------------------------

struct Estimate {
    int32_t grad;
    int32_t value;
};

// Both green neighbours and both far samples of the site's own colour exist.
inline Estimate interior(int32_t g1, int32_t g2, int32_t c, int32_t c1, int32_t c2) {
    const int32_t second = 2 * c - c1 - c2;
    return {std::abs(g1 - g2) + std::abs(second), ((g1 + g2) >> 1) + (second >> 2)};
}

// Both greens exist, one far sample lies outside: a single difference, not doubled.
inline Estimate singleDifference(int32_t g1, int32_t g2, int32_t c, int32_t c1) {
    const int32_t d = c - c1;
    return {std::abs(g1 - g2) + std::abs(d), ((g1 + g2) >> 1) + (d >> 2)};
}

// The site is on the frame's edge in this direction: one green `g` and the far sample beyond it.
inline Estimate edgeSite(int32_t g, int32_t c, int32_t c1) {
    const int32_t d = 2 * (c - c1);
    return {std::abs(d), g + (d >> 2)};
}

inline int32_t clampByte(int32_t v) { return v > 255 ? 255 : (v < 0 ? 0 : v); }

// Horizontal only when strictly smoother.
inline int32_t chooseGreen(Estimate horizontal, Estimate vertical) {
    return clampByte(horizontal.grad < vertical.grad ? horizontal.value : vertical.value);
}

// Which samples exist along one direction through a site ("before" is left or up).
enum class Form : uint8_t {
    Interior,
    NoFarBefore, // both greens, the far sample before the site is missing
    NoFarAfter,  // both greens, the far sample after the site is missing
    EdgeBefore,  // first site of the line: green and far sample after it only
    EdgeAfter,   // last site of the line: green and far sample before it only
};

// The estimate of form F; `at(k)` reads the sample k steps along the direction. Reads only what F has.
template <Form F, class At>
Estimate along(At at) {
    const int32_t c = at(0);
    if constexpr (F == Form::Interior) return interior(at(-1), at(1), c, at(-2), at(2));
    else if constexpr (F == Form::NoFarBefore) return singleDifference(at(-1), at(1), c, at(2));
    else if constexpr (F == Form::NoFarAfter) return singleDifference(at(-1), at(1), c, at(-2));
    else if constexpr (F == Form::EdgeBefore) return edgeSite(at(1), c, at(2));
    else return edgeSite(at(-1), c, at(-2));
}

// Colour differences around a pixel, averaged over those that exist: one is taken whole, two are halved,
// four quartered (three never occur).
struct DiffMean {
    int32_t sum = 0;
    int count = 0;
    void add(int32_t d) {
        sum += d;
        ++count;
    }
    int32_t value() const { return count == 4 ? sum >> 2 : (count == 2 ? sum >> 1 : sum); }
};

// ---- Bands -----------------------------------------------------------------------------------------------

// A store that keeps nothing.
struct NullStore {
    NullStore at(ptrdiff_t) const { return {}; }
    void put(ptrdiff_t, uint32_t, uint32_t, uint32_t) const {}
    void putGreen(ptrdiff_t, uint32_t) const {}
    void putRedBlue(ptrdiff_t, uint32_t, uint32_t, uint32_t) const {}
};

// A store that keeps only the pixels before its origin (Before) or only those at or after it.
template <class Store, bool Before>
struct SplitStore {
    Store store;
    ptrdiff_t origin; // in pixels from the store's base

    SplitStore at(ptrdiff_t pixels) const { return {store.at(pixels), origin - pixels}; }
    bool keeps(ptrdiff_t i) const { return (i < origin) == Before; }
    void put(ptrdiff_t i, uint32_t r, uint32_t g, uint32_t b) const {
        if (keeps(i)) store.put(i, r, g, b);
    }
    void putGreen(ptrdiff_t i, uint32_t g) const {
        if (keeps(i)) store.putGreen(i, g);
    }
    void putRedBlue(ptrdiff_t i, uint32_t r, uint32_t g, uint32_t b) const {
        if (keeps(i)) store.putRedBlue(i, r, g, b);
    }
};

// The store a band's vector interior writes through, and what it keeps of the band (simd::kEdge*; -1:
// no vector interior for this store).
template <class Store>
struct VectorTarget {
    using Type = Store;
    static const Store &store(const Store &s) { return s; }
    static int keep(const Store &) { return simd::kEdgeAll; }
};
template <>
struct VectorTarget<NullStore> { // the line alone, through a store that is never written
    using Type = PlanarStore;
    static PlanarStore store(const NullStore &) { return {nullptr, nullptr, nullptr}; }
    static int keep(const NullStore &) { return 0; }
};
template <class Store, bool Before>
struct VectorTarget<SplitStore<Store, Before>> { // split at the band's row r: row r-1, or the rows below
    using Type = Store;
    static const Store &store(const SplitStore<Store, Before> &s) { return s.store; }
    static int keep(const SplitStore<Store, Before> &s) {
        return s.origin != 0 ? -1 : (Before ? simd::kEdgeRowAbove : simd::kEdgeRowsBelow);
    }
};

// Six source rows r-2 .. r+3 of the band of row r; rows outside the frame are null and never read.
struct RowSet {
    const uint8_t *row[6];
    simd::Ahead ahead{}; // input rows the band's vector interior fetches into the cache
};

inline RowSet rowSet(const uint8_t *src, ptrdiff_t h, ptrdiff_t w, ptrdiff_t r) {
    RowSet rows{};
    for (ptrdiff_t k = 0; k < 6; ++k) {
        const ptrdiff_t y = r - 2 + k;
        rows.row[k] = (y >= 0 && y < h) ? src + y * w : nullptr;
    }
    return rows;
}

// What a band knows about one of the rows r-2 .. r+2 ("slot" k is row r-2+k): where the greens of its red
// or blue sites come from, the vertical form of those it estimates, and whether it completes the row's red
// and blue. Slots that hold nothing are outside the frame wherever a neighbour is looked up.
enum class From : uint8_t { None, Line, Estimated };

struct Slot {
    From from = From::None;
    Form vertical = Form::Interior;
    bool finish = false;
    constexpr bool operator==(const Slot &) const = default;
};

struct BandShape {
    Slot slot[5];
    bool writesLine = false; // store the estimates of slots 2 and 3 for the next band
    constexpr bool operator==(const BandShape &) const = default;
};

constexpr Slot kNone{};
constexpr Slot kFromLine{From::Line, Form::Interior, false};
constexpr Slot kFromLineFinish{From::Line, Form::Interior, true};
constexpr Slot estimated(Form vertical, bool finish = false) { return {From::Estimated, vertical, finish}; }

// Interior band: the previous band's greens from the line, rows r-1 and r completed.
constexpr BandShape kBody{{kFromLine, kFromLineFinish, estimated(Form::Interior, true), estimated(Form::Interior), kNone},
                          true};
// First two rows of an RGGB frame: row 0 completed.
constexpr BandShape kFirstRows{
    {kNone, kNone, estimated(Form::EdgeBefore, true), estimated(Form::NoFarBefore), kNone}, true};
// Band r = h-2, rows r-1 .. r+1 completed.
constexpr BandShape kLast2Rows{{kFromLine, kFromLineFinish, estimated(Form::NoFarAfter, true),
                                estimated(Form::EdgeAfter, true), kNone},
                               false};
// Band r = h-3 with the last R/G row r+2, rows r-1 .. r+2 completed.
constexpr BandShape kLast3Rows{{kFromLine, kFromLineFinish, estimated(Form::Interior, true),
                                estimated(Form::NoFarAfter, true), estimated(Form::EdgeAfter, true)},
                               false};
// Top of a GBRG frame: band r = 1 with the G/B row 0 above it, rows 0 and 1 completed.
constexpr BandShape kTopRowsGB{
    {kNone, estimated(Form::EdgeBefore, true), estimated(Form::NoFarBefore, true), estimated(Form::Interior), kNone},
    true};
// The same for a GBRG frame of height 4, where row 2's blue sites have no row 4 below.
constexpr BandShape kTopRowsGB4{
    {kNone, estimated(Form::EdgeBefore, true), estimated(Form::NoFarBefore, true), estimated(Form::NoFarAfter), kNone},
    true};
// Bottom of a GBRG frame of height 4: band r = 3 alone (no row 4), rows 2 and 3 completed.
constexpr BandShape kLastRowGB4{{kFromLine, kFromLineFinish, estimated(Form::EdgeAfter, true), kNone, kNone}, false};

template <class F>
constexpr void forEachSlot(F f) {
    [&]<int... k>(std::integer_sequence<int, k...>) { (f(std::integral_constant<int, k>{}), ...); }(
        std::make_integer_sequence<int, 5>{});
}

// One band: columns are visited left to right; visiting column x reads its line entry, estimates its greens,
// stores them (line, green bytes) and completes column x-1, whose neighbours are then all known.
template <BandShape S, class Store>
class Band {
public:
    // Pieces that do not store into the line get it read-only.
    using Line = std::conditional_t<S.writesLine, uint8_t *, const uint8_t *>;

    // `belowRewritten`: the next band is a body band on the same store, whose vector columns write row r+1
    // whole, so this band's vector columns need not place that row's greens.
    Band(const RowSet &rows, ptrdiff_t w, const Store &out, Line line, bool belowRewritten = false)
        : rows_(rows), w_(w), out_(out), line_(line), belowRewritten_(belowRewritten) {}

    // Column scheme: columns 0 and 1, pairs of interior columns, then a tail of two columns (even width)
    // or three (odd width). `TailDeparture` is the first RGGB band's odd-width tail, whose columns w-3 and
    // w-2 behave as if the frame ended one column earlier.
    template <bool TailDeparture = false>
    void run() {
        column<Form::EdgeBefore, 0>(0);
        column<Form::NoFarBefore, 1>(1);
        ptrdiff_t x = 2;
        if constexpr (S == kBody) x = vectorInterior();
        for (; x + 4 <= w_; x += 2) {
            column<Form::Interior, 0>(x);
            column<Form::Interior, 1>(x + 1);
        }
        if (x + 2 == w_) {
            column<Form::NoFarAfter, 0>(x);
            column<Form::EdgeAfter, 1>(x + 1);
            finish<1, true, false>(x + 1);
            return;
        }
        if constexpr (TailDeparture) {
            column<Form::NoFarAfter, 0>(x);
            column<Form::EdgeAfter, 1>(x + 1);
        } else {
            column<Form::Interior, 0>(x);
            column<Form::NoFarAfter, 1>(x + 1);
        }
        column<Form::EdgeAfter, 0>(x + 2);
        finish<0, true, false>(x + 2);
    }

private:
    // The body's interior columns through the vector table, when there is one for this store; returns
    // where the columns go on, with the two columns before it in the window as the scalar visit leaves them.
    ptrdiff_t vectorInterior() {
        using Target = VectorTarget<Store>;
        const auto vector = simd::kernels<typename Target::Type>().edgeBody;
        const int keep = Target::keep(out_);
        if (vector == nullptr || keep < 0) return 2;
        uint8_t seam[2] = {static_cast<uint8_t>(col(0).green[0]), static_cast<uint8_t>(col(1).green[1])};
        const ptrdiff_t x = vector(rows_.row, w_, line_, seam, !belowRewritten_, Target::store(out_), rows_.ahead, keep);
        if (x == 2) return x;
        for (int p = 0; p < 2; ++p) { // the line entry found (slot p) and the new estimate (slot p + 2)
            Column &c = col(x - 2 + p);
            c.green[p] = seam[p];
            c.diff[p] = sample(p, x - 2 + p) - c.green[p];
            c.green[p + 2] = line_[x - 2 + p];
            c.diff[p + 2] = sample(p + 2, x - 2 + p) - c.green[p + 2];
        }
        // The greens of column x-1, whose red and blue the scalar visit of column x finishes.
        out_.putGreen(pixel(2, x - 1), sample(2, x - 1));
        out_.putGreen(pixel(3, x - 1), line_[x - 1]);
        return x;
    }

    // Greens at the column's red or blue sites by slot, and their colour differences.
    struct Column {
        int32_t green[5];
        int32_t diff[5];
    };

    static constexpr bool has(int k) { return k >= 0 && k < 5 && S.slot[k].from != From::None; }

    uint8_t sample(int k, ptrdiff_t x) const { return rows_.row[k][x]; }
    ptrdiff_t pixel(int k, ptrdiff_t x) const { return (k - 2) * w_ + x; }
    Column &col(ptrdiff_t x) { return window_[x & 3]; } // columns x-1 .. x+1 are live at a time

    // Column x, of parity P (even columns hold the red sites of R/G rows, odd ones the blue sites of G/B
    // rows), with horizontal form H; then column x-1 is completed.
    template <Form H, int P>
    void column(ptrdiff_t x) {
        Column &c = col(x);
        forEachSlot([&](auto k) {
            constexpr Slot slot = S.slot[k];
            if constexpr (slot.from != From::None && (k & 1) == P) {
                if constexpr (slot.from == From::Line) {
                    c.green[k] = line_[x];
                } else {
                    const uint8_t *row = rows_.row[k];
                    const Estimate horizontal = along<H>([&](int s) { return int32_t{row[x + s]}; });
                    const Estimate vertical = along<slot.vertical>([&](int s) { return int32_t{sample(k + s, x)}; });
                    c.green[k] = chooseGreen(horizontal, vertical);
                }
                c.diff[k] = sample(k, x) - c.green[k];
            }
        });
        if constexpr (S.writesLine) line_[x] = static_cast<uint8_t>(c.green[2 + P]);
        forEachSlot([&](auto k) {
            if constexpr (S.slot[k].from == From::Estimated)
                out_.putGreen(pixel(k, x), (k & 1) == P ? static_cast<uint32_t>(c.green[k]) : sample(k, x));
        });
        if constexpr (P == 1) {
            if (x == 1) finish<0, false, true>(0);
            else finish<0, true, true>(x - 1);
        } else if (x > 0) {
            finish<1, true, true>(x - 1);
        }
    }

    // Red and blue of column x (parity P) in every completed row; Left and Right tell whether the columns
    // beside it exist.
    template <int P, bool Left, bool Right>
    void finish(ptrdiff_t x) {
        const Column &left = col(x - 1), &mid = col(x), &right = col(x + 1);
        forEachSlot([&](auto k) {
            if constexpr (S.slot[k].finish) {
                constexpr bool redBlueRow = (k & 1) == 0;
                int32_t green, red, blue;
                if constexpr ((k & 1) != P) { // green site
                    green = sample(k, x);
                    DiffMean across, upDown; // across: the row's own red or blue; upDown: the other colour
                    if constexpr (Left) across.add(left.diff[k]);
                    if constexpr (Right) across.add(right.diff[k]);
                    if constexpr (has(k - 1)) upDown.add(mid.diff[k - 1]);
                    if constexpr (has(k + 1)) upDown.add(mid.diff[k + 1]);
                    red = green + (redBlueRow ? across : upDown).value();
                    blue = green + (redBlueRow ? upDown : across).value();
                } else { // red or blue site: the other colour from the diagonals
                    green = mid.green[k];
                    DiffMean diagonal;
                    if constexpr (Left && has(k - 1)) diagonal.add(left.diff[k - 1]);
                    if constexpr (Left && has(k + 1)) diagonal.add(left.diff[k + 1]);
                    if constexpr (Right && has(k - 1)) diagonal.add(right.diff[k - 1]);
                    if constexpr (Right && has(k + 1)) diagonal.add(right.diff[k + 1]);
                    const int32_t other = green + diagonal.value();
                    red = redBlueRow ? sample(k, x) : other;
                    blue = redBlueRow ? other : sample(k, x);
                }
                out_.putRedBlue(pixel(k, x), static_cast<uint32_t>(clampByte(red)), static_cast<uint32_t>(green),
                                static_cast<uint32_t>(clampByte(blue)));
            }
        });
    }

    RowSet rows_;
    ptrdiff_t w_;
    Store out_; // at row r
    Line line_;
    bool belowRewritten_;
    Column window_[4]{};
};

template <BandShape S, bool TailDeparture = false, class Store>
void runBand(const RowSet &rows, ptrdiff_t w, const Store &outRow, typename Band<S, Store>::Line line,
             bool belowRewritten = false) {
    Band<S, Store>(rows, w, outRow, line, belowRewritten).template run<TailDeparture>();
}

// ---- The pieces and the drivers --------------------------------------------------------------------------
// `out` addresses the whole frame; a piece gets it moved to its band row.

// Rows r-1 and r finished, greens of rows r and r+1 estimated; r < h-3. `belowRewritten`: the next band
// is a body band too.
template <class Store>
int64_t body(const RowSet &rows, ptrdiff_t w, const Store &outRow, uint8_t *line, bool belowRewritten = false) {
    runBand<kBody>(rows, w, outRow, line, belowRewritten);
    return 0;
}
// Even-height RGGB / odd-height GBRG bottom: band r = h-2.
template <class Store>
int64_t last2Rows(const RowSet &rows, ptrdiff_t w, const Store &outRow, const uint8_t *line) {
    runBand<kLast2Rows>(rows, w, outRow, line);
    return 0;
}
// Odd-height RGGB / even-height GBRG bottom: band r = h-3 and the last row.
template <class Store>
int64_t last3Rows(const RowSet &rows, ptrdiff_t w, const Store &outRow, const uint8_t *line) {
    runBand<kLast3Rows>(rows, w, outRow, line);
    return 0;
}

// The drivers call `ready(end)` before a band reads its rows, so that a source still being written (deep
// input reduced as the bands reach it) has the rows before `end` by then, and give each body band the
// input rows `ready.ahead(r)` to fetch meanwhile. A frame that is whole from the start needs neither.
struct WholeFrame {
    void operator()(ptrdiff_t) const {}
    simd::Ahead ahead(ptrdiff_t) const { return {}; }
};

// Body bands from row r while r < h-3, then the bottom piece of the two or three rows left. Both phases
// end this way; the GBRG frame runs it one row lower.
template <class Store, class Ready = WholeFrame>
int64_t bodyAndBottom(const uint8_t *src, ptrdiff_t h, ptrdiff_t w, const Store &out, uint8_t *line, ptrdiff_t r,
                      Ready ready = {}) {
    for (; r < h - 3; r += 2) {
        ready(r + 4);
        RowSet rows = rowSet(src, h, w, r);
        rows.ahead = ready.ahead(r);
        body(rows, w, out.at(r * w), line, r + 2 < h - 3);
    }
    ready(h);
    if (h - r == 2) last2Rows(rowSet(src, h, w, r), w, out.at(r * w), line);
    else last3Rows(rowSet(src, h, w, r), w, out.at(r * w), line);
    return 0;
}

// First band (rows 0 and 1), body bands while r < h-3, then the bottom piece of the two or three rows left.
// Heights 4 and 5 run no body band: their bottom piece starts at row 2.
template <class Store, class Ready = WholeFrame>
int64_t demosaicRGGB(const uint8_t *src, uint32_t height, uint32_t width, const Store &out, uint8_t *line,
                     Ready ready = {}) {
    const ptrdiff_t h = height, w = width;
    ready(4);
    runBand<kFirstRows, true>(rowSet(src, h, w, 0), w, out, line);
    return bodyAndBottom(src, h, w, out, line, 2, ready);
}

// Rows 0..2 first (row 0 is a G/B row above the RGGB mosaic that starts at row 1), then the RGGB bands one
// row lower. Height 4 has no room for a bottom piece of two or three rows: rows 2 and 3 are completed by a
// band of row 3 alone, with the same rules and nothing read outside the frame.
template <class Store, class Ready = WholeFrame>
int64_t demosaicGBRG(const uint8_t *src, uint32_t height, uint32_t width, const Store &out, uint8_t *line,
                     Ready ready = {}) {
    const ptrdiff_t h = height, w = width;
    ready(h < 5 ? h : 5);
    if (h == 4) {
        runBand<kTopRowsGB4>(rowSet(src, h, w, 1), w, out.at(w), line);
        runBand<kLastRowGB4>(rowSet(src, h, w, 3), w, out.at(3 * w), line);
        return 0;
    }
    runBand<kTopRowsGB>(rowSet(src, h, w, 1), w, out.at(w), line);
    return bodyAndBottom(src, h, w, out, line, 3, ready);
}

// ---- Bands on several threads ----------------------------------------------------------------------------
//
// The line is the only state a band takes from the band before it, and it holds greens, which depend on
// the source alone: a thread that starts at body band s recomputes the line of band s - 2 (running that
// band with a store that keeps nothing) and goes on from there. Band s also finishes red and blue of row
// s - 1, whose green the thread above writes; so that no byte has two writers, the thread leaves row s - 1
// out and the caller completes it afterwards from a copy of the line band s started from.

// The body bands of a frame and where they start: RGGB from row 2, GBRG from row 3, while r < h - 3.
inline ptrdiff_t firstBodyRow(bool gbrg) { return gbrg ? 3 : 2; }
inline ptrdiff_t bodyBands(ptrdiff_t h, bool gbrg) {
    const ptrdiff_t r0 = firstBodyRow(gbrg);
    return h - 3 > r0 ? (h - 3 - r0 + 1) / 2 : 0;
}

// One thread's share of demosaicRGGB / demosaicGBRG (h > 4): body bands [firstBand, endBand), plus the
// first band when firstBand is 0 and the bottom piece when endBand is the last. `line` is the thread's
// line (the frame's own line for the bottom thread), `entry` receives the line that band firstBand starts
// from when firstBand is not 0.
template <class Store>
void bandsOfThread(const uint8_t *src, ptrdiff_t h, ptrdiff_t w, bool gbrg, const Store &out, ptrdiff_t firstBand,
                   ptrdiff_t endBand, uint8_t *line, uint8_t *entry) {
    const ptrdiff_t r0 = firstBodyRow(gbrg);
    ptrdiff_t r = r0 + 2 * firstBand;
    if (firstBand == 0) {
        if (gbrg) runBand<kTopRowsGB>(rowSet(src, h, w, 1), w, out.at(w), line);
        else runBand<kFirstRows, true>(rowSet(src, h, w, 0), w, out, line);
    } else {
        for (ptrdiff_t x = 0; x < w; ++x) line[x] = 0;
        runBand<kBody>(rowSet(src, h, w, r - 2), w, NullStore{}, line); // the line band r starts from
        for (ptrdiff_t x = 0; x < w; ++x) entry[x] = line[x];
        runBand<kBody>(rowSet(src, h, w, r), w, SplitStore<Store, false>{out.at(r * w), 0}, line);
        r += 2;
    }
    const ptrdiff_t end = r0 + 2 * endBand;
    if (endBand < bodyBands(h, gbrg)) {
        for (; r < end; r += 2) body(rowSet(src, h, w, r), w, out.at(r * w), line, r + 2 < end);
    } else {
        bodyAndBottom(src, h, w, out, line, r);
    }
}

// What a thread left out: row r - 1 of its first band r = first body row + 2 * firstBand, from the line
// that band started from (used up).
template <class Store>
void rowAboveThread(const uint8_t *src, ptrdiff_t h, ptrdiff_t w, bool gbrg, const Store &out, ptrdiff_t firstBand,
                    uint8_t *entry) {
    const ptrdiff_t r = firstBodyRow(gbrg) + 2 * firstBand;
    runBand<kBody>(rowSet(src, h, w, r), w, SplitStore<Store, true>{out.at(r * w), 0}, entry);
}

} // namespace vq::edge
