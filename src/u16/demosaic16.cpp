// The full-depth entry point: any Bayer phase, depth (10, 12, 14, 16 bits) and packing to 16-bit colour.
//
// The input is used where it lies when it already is what the kernels read (16-bit samples, rows packed);
// otherwise it is reassembled into rows of full samples, bits above the depth dropped, in the handle's
// scratch block: on one thread a band of rows at a time, just before the kernels read it (while the band
// before fetches its input into the cache), and the border strips into a frame-sized block for the border
// pieces; on several threads the whole frame first. On one thread, deep samples in 16-bit containers with
// rows packed are read where they lie too, a band or the border strips at a time, when none of them has a
// bit set above the depth. The
// kernels are those of the RGGB bilinear and the edge-directed drivers:
//   - bilinear: the RGGB pieces serve RGGB frames and, with red and blue exchanged, BGGR frames; GBRG
//     frames (and GRBG, exchanged) are RGGB frames without their first row, so the pieces run on the frame
//     from row 1 down after rows 0 and 1 are done here, pixel by pixel, by the same rule;
//   - edge-directed: every phase has its run of the pieces (edge_u16.h); the channel order R, G, B comes
//     from the run of the exchanged phase, whose only different rule, the top-left blue of RGGB frames,
//     is put right afterwards; planar output is taken from interleaved rows in the scratch block;
//   - nearest: the 8-bit rule, pixel by pixel.
// Scaling to the full 16 bits is one pass over the output at the end.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/handle.h"
#include "core/workers.h"
#include "simd/dispatch.h"
#include "u16/edge_u16.h"
#include "u16/parallel_u16.h"
#include "u16/u16_common.h"
#include "velqora.h"

// Samples [i0, i1) of a run of packed pairs into dst[0 .. i1 - i0). A last sample without a partner is
// read from its two bytes.
void vq::u16::unpackSpan(const unsigned char *run, ptrdiff_t i0, ptrdiff_t i1, int lowBits, uint16_t *dst) {
    const unsigned lowMask = (1u << lowBits) - 1u;
    if (i0 >= i1) return;
    if (i0 & 1) { // the second sample of a pair
        const unsigned char *p = run + i0 / 2 * 3;
        *dst++ = static_cast<uint16_t>(unsigned{p[2]} << lowBits | (p[1] >> 4 & lowMask));
        ++i0;
    }
    ptrdiff_t i = i0;
    if (const auto vector = vq::simd::table().u16UnpackSamples; vector != nullptr && i1 > i0) {
        const ptrdiff_t bytes = 3 * ((i1 - i0) / 2) + 2 * ((i1 - i0) & 1); // what the loop below reads
        i += 2 * vector(run + i0 / 2 * 3, (i1 - i0) / 2, bytes, lowBits, reinterpret_cast<unsigned char *>(dst));
    }
    for (; i + 1 < i1; i += 2) {
        const unsigned char *p = run + i / 2 * 3;
        dst[i - i0] = static_cast<uint16_t>(unsigned{p[0]} << lowBits | (p[1] & lowMask));
        dst[i + 1 - i0] = static_cast<uint16_t>(unsigned{p[2]} << lowBits | (p[1] >> 4 & lowMask));
    }
    if (i < i1) {
        const unsigned char *p = run + i / 2 * 3;
        dst[i - i0] = static_cast<uint16_t>(unsigned{p[0]} << lowBits | (p[1] & lowMask));
    }
}

// n samples of 16-bit containers at `row` (any address) into dst, bits above `bits` dropped.
void vq::u16::maskRun(const unsigned char *row, ptrdiff_t n, int bits, uint16_t *dst) {
    if (bits == 16) {
        std::memcpy(dst, row, static_cast<size_t>(2 * n));
        return;
    }
    const uint16_t mask = static_cast<uint16_t>((1u << bits) - 1u);
    ptrdiff_t x = 0;
    if (const auto vector = vq::simd::table().u16MaskSamples; vector != nullptr)
        x = vector(row, n, mask, reinterpret_cast<unsigned char *>(dst));
    for (; x < n; ++x) dst[x] = static_cast<uint16_t>(vq::u16::Src16{row}[x] & mask);
}


using vq::u16::maskRun;
using vq::u16::unpackSpan;

namespace {

enum Phase { kRGGB = 0, kGRBG = 1, kGBRG = 2, kBGGR = 3 };
// The phase with red and blue exchanged.
constexpr int exchanged(int phase) { return 3 - phase; }
// Where the red site of the top-left 2x2 cell lies: row and column parity.
constexpr int kRedRow[] = {0, 0, 1, 1}, kRedColumn[] = {0, 1, 0, 1};

struct Input16 {
    int phase;
    int bits;
    bool packed;
};

bool classify(uint32_t code, Input16 *info) {
    struct Family {
        uint32_t gr; // GR, RG, GB and BG follow each other in every family
        int bits;
        bool packed;
    };
    static constexpr Family kFamilies[] = {
        {VQP_PIXEL_FORMAT_BAYER_GR10, 10, false},        {VQP_PIXEL_FORMAT_BAYER_GR12, 12, false},
        {VQP_PIXEL_FORMAT_BAYER_GR14, 14, false},        {VQP_PIXEL_FORMAT_BAYER_GR16, 16, false},
        {VQP_PIXEL_FORMAT_BAYER_GR10_PACKED, 10, true}, {VQP_PIXEL_FORMAT_BAYER_GR12_PACKED, 12, true}};
    static constexpr int kPhaseAfterGR[] = {kGRBG, kRGGB, kGBRG, kBGGR};
    for (const Family &f : kFamilies) {
        if (code - f.gr < 4u) {
            *info = {kPhaseAfterGR[code - f.gr], f.bits, f.packed};
            return true;
        }
    }
    return false;
}

struct Layout {
    bool planar;
    bool redFirst; // R, G, B (or planes R, G, B)
    bool fullRange;
};

bool layoutOf(uint64_t config, Layout *layout) {
    const uint64_t flags = config >> 32 << 32;
    if (flags != 0 && flags != VQP_OUTPUT16_FULL_RANGE) return false;
    const bool full = flags != 0;
    switch (static_cast<uint32_t>(config)) {
    case VQP_PIXEL_FORMAT_BGR16: *layout = {false, false, full}; return true;
    case VQP_PIXEL_FORMAT_RGB16: *layout = {false, true, full}; return true;
    case VQP_PIXEL_FORMAT_RGB16_PLANAR: *layout = {true, true, full}; return true;
    case VQP_PIXEL_FORMAT_BGR16_PLANAR: *layout = {true, false, full}; return true;
    default: return false;
    }
}

// ---- input ----------------------------------------------------------------------------------------

// The bits set in any of n samples of 16-bit containers at `row` (any address).
uint32_t orRun(const unsigned char *row, ptrdiff_t n) {
    uint32_t bits = 0;
    ptrdiff_t x = 0;
    if (const auto vector = vq::simd::table().u16OrSamples; vector != nullptr) bits = vector(row, n, &x);
    for (; x < n; ++x) bits |= static_cast<uint32_t>(vq::u16::Src16{row}[x]);
    return bits;
}

// The input as rows of full samples, w apart.
struct Source {
    const ImageFrame &in;
    Input16 f;
    uint16_t *frame; // the whole frame's rows

    const unsigned char *base() const { return static_cast<const unsigned char *>(in.data); }
    // Packed rows with no padding are one run of samples whose pairs straddle row ends.
    bool oneRun() const { return f.packed && in.stride == in.width + (in.width >> 1); }

    // Columns [x0, x1) of rows [y0, y1) to `at`, the address of row y0's first sample.
    void to(int32_t y0, int32_t y1, ptrdiff_t x0, ptrdiff_t x1, uint16_t *at) const {
        const ptrdiff_t w = in.width, stride = in.stride;
        if (oneRun() && x0 == 0 && x1 == w) {
            unpackSpan(base(), y0 * w, y1 * w, f.bits - 8, at);
            return;
        }
        if (x0 >= x1) return;
        for (ptrdiff_t y = y0; y < y1; ++y) {
            uint16_t *row = at + (y - y0) * w + x0;
            if (oneRun()) unpackSpan(base(), y * w + x0, y * w + x1, f.bits - 8, row);
            else if (f.packed) unpackSpan(base() + y * stride, x0, x1, f.bits - 8, row);
            else maskRun(base() + y * stride + 2 * x0, x1 - x0, f.bits, row);
        }
    }
    // Input that may be read where it lies: 16-bit containers, rows packed.
    bool rowsOfSamples() const { return !f.packed && int64_t{in.stride} == 2 * int64_t{in.width}; }
    // Whether n samples of 16-bit containers from `at` have no bit set above the depth (what cameras send).
    bool clean(const unsigned char *at, ptrdiff_t n) const {
        return (orRun(at, n) & ~((1u << f.bits) - 1u) & 0xFFFFu) == 0;
    }
    const uint16_t *samplesAt(const unsigned char *at) const {
        return reinterpret_cast<const uint16_t *>(static_cast<const void *>(at));
    }
    // Rows [y0, y1) where they lie when they already are full samples, w apart; else null.
    const uint16_t *inPlace(int32_t y0, int32_t y1) const {
        const unsigned char *first = base() + ptrdiff_t{y0} * in.stride;
        if (!rowsOfSamples() || !clean(first, ptrdiff_t{y1 - y0} * in.width)) return nullptr;
        return samplesAt(first);
    }
    // Rows [y0, y1) as full samples, w apart: where they lie (inPlace), else converted into `band`.
    const uint16_t *band(int32_t y0, int32_t y1, uint16_t *band) const {
        if (const uint16_t *rows = inPlace(y0, y1)) return rows;
        to(y0, y1, 0, in.width, band);
        return band;
    }
    // Fetching the input rows from row y on, as the kernels go down a band (rows of a packed run of odd
    // width start inside a pair: their addresses are then off by a byte, which a fetch does not mind).
    vq::simd::FetchRows fetchFrom(int32_t y) const {
        vq::simd::FetchRows fetch;
        if (y >= in.height) return fetch;
        fetch.rowBytes = oneRun() ? ptrdiff_t{in.width} * 3 / 2 : in.stride;
        fetch.first = base() + ptrdiff_t{y} * fetch.rowBytes;
        fetch.twoColumnBytes = f.packed ? 3 : 4;
        fetch.rows = in.height - y;
        return fetch;
    }
    // Rows [y0, y1) whole, into the frame.
    void rows(int32_t y0, int32_t y1) const {
        y0 = std::max(y0, 0), y1 = std::min(y1, in.height);
        if (y0 < y1) to(y0, y1, 0, in.width, frame + ptrdiff_t{y0} * in.width);
    }
    // What the first and last rows and columns of the kernels read, eight rows and columns on each side:
    // where they lie when they already are full samples, else converted into the frame. Returns the rows
    // to read them from (the input or the frame).
    const uint16_t *borders() const {
        const int32_t h = in.height, w = in.width, top = std::min(8, h), bottom = std::max(top, h - 8);
        const int32_t side = std::min(8, w);
        const unsigned char *at = base();
        bool whole = rowsOfSamples() && clean(at, ptrdiff_t{top} * w) &&
                     clean(at + ptrdiff_t{bottom} * in.stride, ptrdiff_t{h - bottom} * w);
        for (ptrdiff_t y = top; whole && y < bottom; ++y)
            whole = clean(at + y * in.stride, side) && clean(at + y * in.stride + 2 * ptrdiff_t{w - side}, side);
        if (whole) return samplesAt(at);
        rows(0, 8);
        rows(std::max(8, h - 8), h);
        to(0, h, 0, std::min(8, w), frame);
        to(0, h, std::max(8, w - 8), w, frame);
        return frame;
    }
    // The whole frame: where it lies (inPlace), else converted into the frame.
    const uint16_t *whole() const {
        if (const uint16_t *all = inPlace(0, in.height)) return all;
        rows(0, in.height);
        return frame;
    }
};

// Runs fn(begin, end) over [0, n) in `count` parts on `workers`, or whole on the calling thread.
template <class Fn>
void inParts(vq::Workers *workers, int count, ptrdiff_t n, const Fn &fn) {
    if (workers == nullptr || count < 2) {
        fn(ptrdiff_t{0}, n);
        return;
    }
    workers->run(count, [&](int k) { fn(n * k / count, n * (k + 1) / count); });
}

// The whole input at once, in parts on the workers.
void readInput(vq::Workers *workers, int count, const Source &source) {
    inParts(workers, count, source.in.height, [&](ptrdiff_t y0, ptrdiff_t y1) {
        source.rows(static_cast<int32_t>(y0), static_cast<int32_t>(y1));
    });
}

// On one thread the kernels read the input through a band of rows, converted just before they read it
// (and still in the cache when they do), about 64 KiB of samples: bandRows(w) rows and the rows around.
int32_t bandRows(uint32_t width) {
    const int64_t rows = (int64_t{1} << 15) / int64_t{width};
    return static_cast<int32_t>(std::clamp<int64_t>(rows, 4, 64) & ~int64_t{1});
}
constexpr int32_t kBandExtraRows = 4;

// ---- output ---------------------------------------------------------------------------------------

// Where a pixel's three samples go: byte addresses of pixel 0's blue, green and red and the bytes from
// one pixel to the next (6 interleaved, 2 planar). Any address will do.
struct Out16 {
    unsigned char *at[3];
    ptrdiff_t step;
    void put(ptrdiff_t i, uint32_t r, uint32_t g, uint32_t b) const {
        const uint16_t v[3] = {static_cast<uint16_t>(b), static_cast<uint16_t>(g), static_cast<uint16_t>(r)};
        for (int c = 0; c < 3; ++c) std::memcpy(at[c] + i * step, &v[c], 2);
    }
};

// The output of a frame of n pixels at `base` in `layout`, colours exchanged when `swapRB`.
Out16 outputOf(unsigned char *base, ptrdiff_t n, const Layout &layout, bool swapRB) {
    const bool redFirst = layout.redFirst != swapRB;
    if (layout.planar) {
        unsigned char *first = base, *third = base + 4 * n;
        return {{redFirst ? third : first, base + 2 * n, redFirst ? first : third}, 2};
    }
    return {{base + (redFirst ? 4 : 0), base + 2, base + (redFirst ? 0 : 4)}, 6};
}

// n samples at p scaled from `bits` to 16 by repeating their top bits.
void scaleSamples(unsigned char *p, ptrdiff_t n, int bits) {
    const int up = 16 - bits, down = 2 * bits - 16;
    constexpr ptrdiff_t kChunk = 1024;
    uint16_t buf[kChunk];
    for (ptrdiff_t i = 0; i < n; i += kChunk) {
        const ptrdiff_t m = std::min(kChunk, n - i);
        std::memcpy(buf, p + 2 * i, static_cast<size_t>(2 * m));
        for (ptrdiff_t j = 0; j < m; ++j) buf[j] = static_cast<uint16_t>(buf[j] << up | buf[j] >> down);
        std::memcpy(p + 2 * i, buf, static_cast<size_t>(2 * m));
    }
}

// Pixels [i0, i1) of interleaved B, G, R rows into three planes.
void toPlanes(const uint16_t *bgr, ptrdiff_t i0, ptrdiff_t i1, const Out16 &out) {
    for (ptrdiff_t i = i0; i < i1; ++i) out.put(i, bgr[3 * i + 2], bgr[3 * i + 1], bgr[3 * i]);
}

// ---- the methods ----------------------------------------------------------------------------------

struct Frame {
    const uint16_t *src; // rows packed, full samples, at any address
    uint32_t h, w;
    int phase;
    uint32_t s(ptrdiff_t y, ptrdiff_t x) const {
        return static_cast<uint32_t>(vq::u16::Src16::of(src)[y * ptrdiff_t{w} + x]);
    }
};

// Red and blue from the 2x2 cell whose lower-right corner is the pixel (moved down or right on the top
// row and left column); green its own sample, else the one to its left, in column 0 the one above, at
// the top-left corner the one to its right.
void nearest(const Frame &f, const Out16 &out) {
    const ptrdiff_t h = f.h, w = f.w;
    const int redRow = kRedRow[f.phase], redColumn = kRedColumn[f.phase];
    for (ptrdiff_t y = 0; y < h; ++y) {
        const ptrdiff_t ya = std::max<ptrdiff_t>(y, 1) - 1, yb = ya + 1;
        const ptrdiff_t yr = (ya & 1) == redRow ? ya : yb, yB = ya + yb - yr;
        const bool redSitesRow = (y & 1) == redRow;
        for (ptrdiff_t x = 0; x < w; ++x) {
            const ptrdiff_t xa = std::max<ptrdiff_t>(x, 1) - 1, xb = xa + 1;
            const ptrdiff_t xr = (xa & 1) == redColumn ? xa : xb, xB = xa + xb - xr;
            const bool green = redSitesRow != ((x & 1) == redColumn);
            const uint32_t g = green ? f.s(y, x) : x >= 1 ? f.s(y, x - 1) : y >= 1 ? f.s(y - 1, 0) : f.s(0, 1);
            out.put(y * w + x, f.s(yr, xr), g, f.s(yB, xB));
        }
    }
}

// One pixel of a green-first frame's rows 0 and 1 by the bilinear rule, in the terms of the RGGB pieces
// (red sites on odd rows, even columns): the truncating mean of the nearest samples of each missing
// colour that lie in the frame, where green with three neighbours counts the one facing the missing one
// twice.
void bilinearTopPixel(const Frame &f, ptrdiff_t y, ptrdiff_t x, const Out16 &out) {
    const ptrdiff_t h = f.h, w = f.w;
    const auto colour = [](ptrdiff_t yy, ptrdiff_t xx) { // 0 blue, 1 green, 2 red
        const bool redRow = (yy & 1) != 0, redColumn = (xx & 1) == 0;
        return redRow && redColumn ? 2 : !redRow && !redColumn ? 0 : 1;
    };
    uint32_t v[3];
    const int own = colour(y, x);
    for (int want = 0; want < 3; ++want) {
        if (want == own) {
            v[want] = f.s(y, x);
            continue;
        }
        uint32_t sum = 0, n = 0;
        ptrdiff_t facingY = 0, facingX = 0;
        for (ptrdiff_t dy = -1; dy <= 1; ++dy)
            for (ptrdiff_t dx = -1; dx <= 1; ++dx) {
                if (colour(y + dy, x + dx) != want) continue;
                if (y + dy >= 0 && y + dy < h && x + dx >= 0 && x + dx < w) sum += f.s(y + dy, x + dx), ++n;
                else facingY = y - dy, facingX = x - dx;
            }
        if (n == 3) sum += f.s(facingY, facingX), ++n;
        v[want] = n == 4 ? sum >> 2 : n == 2 ? sum >> 1 : sum;
    }
    out.put(y * w + x, v[2], v[1], v[0]);
}

// Rows 0 and 1 of a green-first frame: bilinearTopPixel, written out for the columns with both side
// neighbours (row 0: green at even columns, blue at odd ones, nothing above; row 1: red at even columns).
void bilinearTopRows(const Frame &f, const Out16 &out) {
    const ptrdiff_t w = f.w;
    for (ptrdiff_t y = 0; y < 2; ++y) bilinearTopPixel(f, y, 0, out), bilinearTopPixel(f, y, w - 1, out);
    for (ptrdiff_t x = 1; x + 1 < w; ++x) {
        const uint32_t l0 = f.s(0, x - 1), c0 = f.s(0, x), r0 = f.s(0, x + 1);
        const uint32_t l1 = f.s(1, x - 1), c1 = f.s(1, x), r1 = f.s(1, x + 1), c2 = f.s(2, x);
        if (x & 1) { // blue, then green between reds
            out.put(x, (l1 + r1) >> 1, (l0 + r0 + 2 * c1) >> 2, c0);
            out.put(w + x, (l1 + r1) >> 1, c1, (c0 + c2) >> 1);
        } else { // green between blues, then red
            out.put(x, c1, c0, (l0 + r0) >> 1);
            out.put(w + x, c1, (l1 + r1 + c0 + c2) >> 2, (l0 + r0 + f.s(2, x - 1) + f.s(2, x + 1)) >> 2);
        }
    }
}

// The RGGB bilinear pieces on the frame (RGGB and BGGR) or on the frame without its first row (GBRG and
// GRBG), into interleaved pixels with their order flag or into planes (blue-site, green, red-site).
struct BilinearPieces {
    Frame f;
    bool greenFirst;
    bool planar;
    uint32_t order;
    unsigned char *dst;           // interleaved
    unsigned char *planes[3];     // planar: the RGGB pieces' blue, green, red
    Out16 topRows;                // rows 0 and 1 of a green-first frame

    const uint16_t *sub() const { return f.src + (greenFirst ? ptrdiff_t{f.w} : 0); }
    uint32_t height() const { return f.h - (greenFirst ? 1u : 0u); }
    ptrdiff_t pixelOf(int32_t row) const { return (ptrdiff_t{row} + (greenFirst ? 1 : 0)) * f.w; }
    uint16_t *d(int32_t row) const { return reinterpret_cast<uint16_t *>(dst + 6 * pixelOf(row)); }
    uint16_t *p(int k, int32_t row) const { return reinterpret_cast<uint16_t *>(planes[k] + 2 * pixelOf(row)); }

    void first() const {
        if (greenFirst) {
            bilinearTopRows(f, topRows);
        } else if (planar) {
            bilinearFirstRowsRGGBU16P(sub(), p(0, 0), p(1, 0), p(2, 0), f.w);
        } else {
            bilinearFirstRowsRGGBU16(sub(), d(0), f.w, order);
        }
        if (planar) bilinearFirstColsRGGBU16P(sub(), p(0, 0), p(1, 0), p(2, 0), height(), f.w);
        else bilinearFirstColsRGGBU16(sub(), d(0), height(), f.w, order);
    }
    uint64_t body(int32_t row, uint32_t rows) const { return bodyFrom(sub() + ptrdiff_t{row} * f.w, row, rows); }
    // The body on the sub-frame from `row` whose rows are at s, fetching the rows of `fetch` as it goes.
    uint64_t bodyFrom(const uint16_t *s, int32_t row, uint32_t rows, const vq::simd::FetchRows &fetch = {}) const {
        if (planar) {
            uint16_t *const at[3] = {p(0, row), p(1, row), p(2, row)};
            return vq::u16::bilinearBodyPlanar(s, at, rows, f.w, fetch);
        }
        return vq::u16::bilinearBody(s, d(row), rows, f.w, order, fetch);
    }
    void last(int32_t stopRow, int32_t stopColumn) const {
        if (planar) {
            bilinearLastRowsRGGBU16P(sub(), p(0, 0), p(1, 0), p(2, 0), height(), f.w, stopRow);
            bilinearLastColsRGGBU16P(sub(), p(0, 0), p(1, 0), p(2, 0), height(), f.w, stopColumn);
        } else {
            bilinearLastRowsRGGBU16(sub(), d(0), height(), f.w, stopRow, order);
            bilinearLastColsRGGBU16(sub(), d(0), height(), f.w, stopColumn, order);
        }
    }
};

// On one thread with input to convert: the body in bands of row pairs, each band's rows converted into
// `band` just before it while the band before fetches them into the cache; then the first and last rows
// and columns (the pieces read only the source and write different pixels, so their order does not matter).
bool bilinearAhead(const BilinearPieces &pieces, const Source &source, uint16_t *band) {
    const int32_t h = static_cast<int32_t>(pieces.height()), below = pieces.greenFirst ? 1 : 0;
    const int32_t lastPairEnd = h - 1 - (h & 1), pairs = (lastPairEnd - 1) / 2, step = bandRows(pieces.f.w) / 2;
    if (pairs < 2 * step) return false;
    uint64_t stop = 0;
    int32_t stopRow = 0;
    for (int32_t p0 = 0; p0 < pairs; p0 += step) {
        const int32_t first = 1 + 2 * p0, end = 1 + 2 * std::min(pairs, p0 + step); // rows first - 1 .. end
        const uint16_t *rows = source.band(below + first - 1, below + end + 1, band);
        // The next band's rows that this one has not converted: from row end + 1 on.
        stop = pieces.bodyFrom(rows, first - 1, static_cast<uint32_t>(end - first + 2),
                               source.fetchFrom(below + end + 1));
        stopRow = static_cast<int32_t>(stop >> 32) + (first - 1);
    }
    pieces.first();
    pieces.last(stopRow, static_cast<int32_t>(stop & 0xFFFFFFFFu));
    return true;
}

void bilinear(const Frame &f, const Layout &layout, unsigned char *out, ProcessingHandle *handle, int threads,
              const Source *ahead, uint16_t *band) {
    const ptrdiff_t n = ptrdiff_t{f.h} * f.w;
    const bool swapRB = f.phase == kBGGR || f.phase == kGRBG; // the pieces take blue sites for red ones
    BilinearPieces pieces{};
    pieces.f = f;
    pieces.greenFirst = f.phase == kGBRG || f.phase == kGRBG;
    pieces.planar = layout.planar;
    pieces.order = layout.redFirst != swapRB ? 1u : 0u;
    pieces.dst = out;
    pieces.topRows = outputOf(out, n, layout, swapRB);
    for (int k = 0; k < 3; ++k) pieces.planes[k] = pieces.topRows.at[k];
    const int count = vq::u16::bilinearThreads(threads, pieces.height());
    vq::Workers *workers = vq::u16::workersFor(handle, count, n);
    if (workers == nullptr) {
        if (ahead != nullptr && bilinearAhead(pieces, *ahead, band)) return;
        if (ahead != nullptr) pieces.f.src = ahead->whole();
        pieces.first();
        const uint64_t stop = pieces.body(0, pieces.height());
        pieces.last(static_cast<int32_t>(stop >> 32), static_cast<int32_t>(stop & 0xFFFFFFFFu));
        return;
    }
    vq::u16::bilinearInSlices(workers, count, pieces.height(), pieces);
}

constexpr int32_t kStartRow[] = {2, 2, 3, 3}, kStartColumn[] = {2, 3, 2, 3};

vq::u16::EdgeRun edgeRunFor(const Frame &f, int label, uint16_t *dst, int32_t maximum) {
    return vq::u16::edgeRunOf(f.src, f.h, f.w, dst, kStartRow[label], kStartColumn[label], maximum);
}

// The driver on one thread with input to convert: the kernel in bands of rows, each band's rows converted
// into `band` just before it while the band before fetches them.
void edgeAhead(const vq::u16::EdgeRun &r, const Source &source, uint16_t *band) {
    vq::u16::edgeBefore(r);
    const uint32_t kernelRows = vq::u16::edgeKernelRows(r);
    const int32_t rowEnd = static_cast<int32_t>(kernelRows - 1u), step = bandRows(r.width);
    for (int32_t t = 0; t < rowEnd; t += step) { // a pair from row y reads rows y - 2 .. y + 3
        const int32_t y = r.startRow + t;
        const int32_t end = std::min(y + step + 2, static_cast<int32_t>(r.height));
        vq::u16::edgeKernelPart(r, t, t + step, source.band(y - 2, end, band), source.fetchFrom(end));
    }
    vq::u16::edgeAfter(r, vq::u16::edgeKernelStop(kernelRows, r.width, r.startColumn));
}

// Interleaved rows at dst from the run of phase `label` (the frame's own or the exchanged one).
void edgeRun(const vq::u16::EdgeRun &r, int count, vq::Workers *workers, uint8_t *bandRows, const Source *ahead,
             uint16_t *band) {
    if (workers == nullptr && ahead != nullptr) edgeAhead(r, *ahead, band);
    else if (workers == nullptr) vq::u16::edgeDriver(r);
    else vq::u16::edgeInBands(workers, count, r, bandRows);
}

// The run of the exchanged phase gives every pixel its own rule but the top-left one: the RGGB rule
// takes its blue from unclamped green estimates, the others from the greens written.
void edgeTopLeft(const Frame &f, int label, unsigned char *dst, int32_t maximum) {
    if (label == f.phase) return;
    uint16_t px[3], below[3];
    std::memcpy(px, dst, 6);
    std::memcpy(below, dst + 6 * (ptrdiff_t{f.w} + 1), 6);
    if (f.phase == kRGGB) {
        px[2] = static_cast<uint16_t>(vq::u16::edgeTopLeftBlue(f.src, f.h, f.w, maximum)); // blue in red's place
    } else if (label == kRGGB) {
        const int32_t v = int32_t{px[1]} + static_cast<int32_t>(f.s(1, 1)) - int32_t{below[1]};
        px[0] = static_cast<uint16_t>(v < 0 ? 0 : v > maximum ? maximum : v);
    }
    std::memcpy(dst, px, 6);
}

} // namespace

VQP_EXTERN int32_t vqpDemosaicSetConfig16(ProcessingHandle *handle, const uint64_t *config) {
    if (handle == nullptr || config == nullptr) return VQP_ERR_NULL_ARGUMENT;
    Layout layout;
    if (!layoutOf(*config, &layout)) return VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT;
    handle->config16 = *config;
    return VQP_OK;
}

VQP_EXTERN int32_t vqpDemosaicGetConfig16(const ProcessingHandle *handle, uint64_t *configOut) {
    if (handle == nullptr || configOut == nullptr) return VQP_ERR_NULL_ARGUMENT;
    *configOut = handle->config16;
    return VQP_OK;
}

VQP_EXTERN int32_t vqpDemosaicing16(ProcessingHandle *handle, const ImageFrame *in, uint32_t method, ImageFrame *out,
                                    uint32_t threads) {
    if (handle == nullptr || in == nullptr || out == nullptr || in->data == nullptr || out->data == nullptr)
        return VQP_ERR_NULL_ARGUMENT;
    if (in->height <= 3 || in->stride <= 3 || in->width <= 3) return VQP_ERR_BAD_DIMENSIONS;
    if (static_cast<int32_t>(static_cast<uint32_t>(in->height) * static_cast<uint32_t>(in->width)) < 0)
        return VQP_ERR_BAD_DIMENSIONS;
    Input16 input;
    if (!classify(in->pixelFormat, &input)) return VQP_ERR_UNSUPPORTED_INPUT_FORMAT;

    const uint32_t h = static_cast<uint32_t>(in->height), w = static_cast<uint32_t>(in->width);
    const ptrdiff_t n = ptrdiff_t{in->height} * in->width;
    const uint64_t config = handle->config16;
    Layout layout{};
    const bool knownLayout = layoutOf(config, &layout);
    const int requested = vq::threadCount(threads);
    const int32_t maximum = static_cast<int32_t>((1u << input.bits) - 1u);
    const bool known = method <= VQP_METHOD_EDGE;

    // Scratch: the reassembled frame, interleaved rows for planar edge-directed output, band rows.
    const bool direct = !input.packed && input.bits == 16 && int64_t{in->stride} == 2 * int64_t{w};
    const int label = layout.redFirst && !layout.planar ? exchanged(input.phase) : input.phase;
    const bool viaRows = known && method == VQP_METHOD_EDGE && layout.planar;
    int edgeCount = 0;
    vq::Workers *edgeWorkers = nullptr;
    if (known && method == VQP_METHOD_EDGE) {
        const Frame probe{nullptr, h, w, input.phase};
        edgeCount = vq::u16::edgeThreads(edgeRunFor(probe, label, nullptr, maximum), requested);
        edgeWorkers = vq::u16::workersFor(handle, edgeCount, n);
    }
    const auto rounded = [](int64_t bytes) { return (bytes + 63) / 64 * 64; };
    const int64_t frameBytes = direct ? 0 : rounded(2 * int64_t{n});
    const int64_t rowsBytes = viaRows ? rounded(6 * int64_t{n}) : 0;
    const int64_t bandBytes = edgeWorkers != nullptr ? vq::u16::edgeBandBytes(w, edgeCount) : 0;
    const int64_t aheadBytes = direct ? 0 : rounded(2 * int64_t{bandRows(w) + kBandExtraRows} * w);
    const int64_t need = frameBytes + rowsBytes + aheadBytes + bandBytes + (frameBytes + rowsBytes > 0 ? 64 : 0);
    if (need > INT32_MAX) return VQP_ERR_OUT_OF_MEMORY;
    if (const int32_t rc = vqpMemRealloc(&handle->scratch, static_cast<int32_t>(need)); rc != VQP_OK) return rc;
    if (!knownLayout) return VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT;

    if (known) {
        uint8_t *at = handle->scratch.data;
        at += (64 - (reinterpret_cast<uintptr_t>(at) & 63u)) & 63u;
        uint16_t *frame = reinterpret_cast<uint16_t *>(at);
        uint16_t *rows = reinterpret_cast<uint16_t *>(at + frameBytes);
        uint16_t *band = reinterpret_cast<uint16_t *>(at + frameBytes + rowsBytes);
        uint8_t *bandRows = at + frameBytes + rowsBytes + aheadBytes;
        vq::Workers *workers = vq::u16::workersFor(handle, requested, n);
        // On one thread the kernels convert the input as they go; on several it is converted first, in parts.
        Source source{*in, input, frame};
        const Source *ahead = nullptr;
        if (!direct && (workers != nullptr || method == VQP_METHOD_NEAREST)) readInput(workers, requested, source);
        else if (!direct) ahead = &source;
        // With input converted as the kernels go, the pieces of the first and last rows and columns read the
        // borders from where source.borders() leaves them.
        const uint16_t *src = direct ? static_cast<const uint16_t *>(in->data) : frame;
        if (ahead != nullptr) src = source.borders();
        const Frame f{src, h, w, input.phase};
        auto *dst = static_cast<unsigned char *>(out->data);

        if (method == VQP_METHOD_NEAREST) {
            nearest(f, outputOf(dst, n, layout, false));
        } else if (method == VQP_METHOD_BILINEAR) {
            bilinear(f, layout, dst, handle, requested, ahead, band);
        } else {
            unsigned char *target = viaRows ? reinterpret_cast<unsigned char *>(rows) : dst;
            edgeRun(edgeRunFor(f, label, reinterpret_cast<uint16_t *>(target), maximum), edgeCount, edgeWorkers, bandRows,
                    ahead, band);
            edgeTopLeft(f, label, target, maximum);
            if (viaRows) {
                const Out16 planes = outputOf(dst, n, layout, false);
                inParts(workers, requested, n, [&](ptrdiff_t i0, ptrdiff_t i1) { toPlanes(rows, i0, i1, planes); });
            }
        }
        if (layout.fullRange && input.bits < 16)
            inParts(workers, requested, 3 * n, [&](ptrdiff_t i0, ptrdiff_t i1) {
                scaleSamples(dst + 2 * i0, i1 - i0, input.bits);
            });
    }
    out->height = in->height;
    out->width = in->width;
    out->pixelFormat = static_cast<uint32_t>(config);
    return VQP_OK;
}
