// Run-time choice of the vector interiors.
//
// The scalar kernels are the reference and cover every pixel on their own. Where a vector version of a
// hot interior exists for the machine's instruction set, the scalar kernel calls it through this table
// and finishes from where it stopped, so every border rule stays in the scalar code. The best level is
// detected once per process (thread-safe); tests and benchmarks may force a lower one through
// forceLevel, which is internal to the build: it is not in the public header, and the library reads no
// environment variable.
//
// A null entry means "no vector version": the scalar loop does the whole row.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/pixel_store.h"

namespace vq::simd {

enum class Level : int { Scalar = 0, Avx2 = 1, Avx512 = 2, Neon = 3 };
constexpr int kLevels = 4;

// Input rows that a vector interior fetches into the cache as it goes, for deep input reduced or
// reassembled a few rows ahead of the interiors that read it: with column x, row[k] + x * twoColumnBytes / 2
// (null rows: nothing).
struct Ahead {
    const unsigned char *row[2] = {nullptr, nullptr};
    int32_t twoColumnBytes = 0;
};

// Input rows fetched a row pair at a time as the interiors go down a frame or a band: the pair of row t
// (counted from `first`) fetches rows first + t * rowBytes and the one after, while both lie before row
// `rows`.
struct FetchRows {
    const unsigned char *first = nullptr;
    ptrdiff_t rowBytes = 0;
    int32_t twoColumnBytes = 0, rows = 0;
    Ahead at(ptrdiff_t t) const {
        Ahead a;
        if (first == nullptr || t < 0 || t + 1 >= rows) return a;
        a.row[0] = first + t * rowBytes;
        a.row[1] = a.row[0] + rowBytes;
        a.twoColumnBytes = twoColumnBytes;
        return a;
    }
};

// What an edge-directed body band writes (StoreKernels::edgeBody).
constexpr int kEdgeRowAbove = 1, kEdgeRowsBelow = 2, kEdgeAll = 3;

// Interiors that write through a pixel store. Every function writes whole pixels from column `from`
// onwards and returns the first column it did not write; the scalar loop goes on from there.
template <class Store>
struct StoreKernels {
    // Bilinear body: the blue row of `blueRow` and the red row of `redRow`, from the rows r0 .. r0 + 3w
    // (above, blue, red, below), pixel pairs from column 1 while the pair ends before `colEnd`.
    int32_t (*bilinearRowPair)(const uint8_t *r0, ptrdiff_t w, int32_t colEnd, const Store &blueRow,
                               const Store &redRow) = nullptr;
    // Bilinear, green-first frames: rows 0 (a blue row with no row above) and 1 (a red row between rows 0
    // and 2), pixel pairs from column 1 while the pair ends before `colEnd`.
    int32_t (*bilinearGreenFirstRows)(const uint8_t *r0, ptrdiff_t w, int32_t colEnd, const Store &row0,
                                      const Store &row1) = nullptr;
    // Nearest: an R-row (`own`, blue from `other`) or a B-row (`own`, red from `other`) from column 1
    // while whole pixel pairs fit before `w`.
    int32_t (*nearestRRow)(const uint8_t *own, const uint8_t *other, int32_t w, const Store &out) = nullptr;
    int32_t (*nearestBRow)(const uint8_t *own, const uint8_t *other, int32_t w, const Store &out) = nullptr;
    // Deep or packed input read directly, without a reduced copy of the rows (`rule`: the shift of 16-bit
    // samples, 2 to 8, or -1 for packed pairs; rows[k]: the byte address of a row's first sample, `w` its
    // samples). The vector interiors stop at or before `end` <= w - 2 and return the first column not
    // written, at least end - 1 once end > N + 1. Nearest: a B row and the R row below it, rows[0 .. 2] the
    // R row above, the B row and the R row below. Bilinear: the blue and red rows of bilinearRowPair,
    // rows[0 .. 3] the rows above, blue, red and below.
    int32_t (*nearestRowsDeep)(const unsigned char *const *rows, int32_t rule, int32_t w, int32_t end,
                               const Store &bRow, const Store &rRow) = nullptr;
    int32_t (*bilinearRowPairDeep)(const unsigned char *const *rows, int32_t rule, int32_t w, int32_t end,
                                   const Store &blueRow, const Store &redRow) = nullptr;
    // Edge-directed body band of the R/G row r: `rows` are the source rows r-2 .. r+3, `out` addresses
    // row r and `line` is the green line. Called once the band has visited columns 0 and 1, with `seam`
    // holding the line's entries of those two columns as the band found them. Visits columns from 2 while
    // whole vectors end before the last two columns (green estimates, line entries, greens of rows r and
    // r+1, unless `greensBelow` is 0) and finishes red and blue of rows r-1 and r up to the column before
    // the last one visited. Returns the first column not visited and leaves in `seam` the line's entries
    // of the two columns before it as the band found them. Fetches the rows of `ahead` meanwhile.
    // `keep` says what reaches `out`: kEdgeRowAbove (row r-1), kEdgeRowsBelow (row r and the greens of
    // row r+1), both, or neither (only the line, for a band recomputed on another thread).
    int32_t (*edgeBody)(const uint8_t *const *rows, ptrdiff_t w, uint8_t *line, uint8_t *seam, int greensBelow,
                        const Store &out, const Ahead &ahead, int keep) = nullptr;
};

// The 8-bit interiors of one level.
struct Kernels8 {
    StoreKernels<Bgr8Store> bgr;
    StoreKernels<Bgra8Store> bgra;
    StoreKernels<Bgra8KeepAlphaStore> bgraKeep;
    StoreKernels<PlanarStore> planar;
    StoreKernels<LumaStore> luma;

    // dst[i] = low byte of src[i] >> shift for i < n; returns how many it did (a multiple of its width).
    ptrdiff_t (*u16ToU8)(const uint16_t *src, ptrdiff_t n, int32_t shift, uint8_t *dst) = nullptr;
    // Two samples in three bytes: dst[2g] = src[3g], dst[2g + 1] = src[3g + 2] for g < groups, reading
    // no byte at or past src + srcBytes; returns the groups it did.
    ptrdiff_t (*unpackPairs)(const uint8_t *src, ptrdiff_t groups, ptrdiff_t srcBytes, uint8_t *dst) = nullptr;
    // 3-byte pixels to 4-byte pixels with a zero fourth byte; returns the pixels it did.
    ptrdiff_t (*bgrToBgra)(const uint8_t *src, ptrdiff_t pixels, uint8_t *dst) = nullptr;
};

// The 16-bit interiors of one level.
struct Kernels16 {
    // 16-bit bilinear body (src/simd/kernels16.h): rows r (blue) and r + 1 (red) from r0, the byte
    // address of row r - 1 (rows of w samples), pixels from column 1 while a whole vector ends at or
    // before colEnd; returns the first column not written. Interleaved: blueOut / redOut address pixel 0
    // of their rows (B, G, R, or R, G, B when redFirst). Planar: planes[] address pixel 0 of the blue row
    // in the blue, green and red planes, the red row w samples further.
    // Both fetch the rows of `ahead` into the cache as they go.
    int32_t (*u16BilinearRows)(const unsigned char *r0, ptrdiff_t w, int32_t colEnd, unsigned char *blueOut,
                               unsigned char *redOut, int redFirst, const Ahead &ahead) = nullptr;
    int32_t (*u16BilinearRowsPlanar)(const unsigned char *r0, ptrdiff_t w, int32_t colEnd,
                                     unsigned char *const *planes, const Ahead &ahead) = nullptr;

    // 16-bit edge-directed kernel (src/simd/kernels16.h): the steps of one row pair from step column
    // x0 while a whole vector of steps ends at or before columnEnd; s0 and d0 are the byte addresses of the
    // pair's first source row (w samples a row) and destination row (3w samples a row). Returns the first
    // step column not done. The pair's second row is read back and rewritten whole where it writes green
    // and blue, and the row above where it writes red: no other thread may write those rows meanwhile.
    // Fetches the rows of `ahead` into the cache as it goes.
    int32_t (*u16EdgePair)(const unsigned char *s0, ptrdiff_t w, unsigned char *d0, int32_t x0, int32_t columnEnd,
                           int32_t maximum, const Ahead &ahead) = nullptr;

    // The bits set in any of samples [0, *done) of src, *done <= n a multiple of its width (byte address).
    uint32_t (*u16OrSamples)(const unsigned char *src, ptrdiff_t n, ptrdiff_t *done) = nullptr;
    // Deep input as full samples (src/simd/kernels16.h); both return how far they got, a multiple of their
    // width, and take byte addresses. Samples of 16-bit containers with the bits above the depth dropped:
    // dst[i] = src[i] & mask for i < n.
    ptrdiff_t (*u16MaskSamples)(const unsigned char *src, ptrdiff_t n, uint32_t mask, unsigned char *dst) = nullptr;
    // Packed pairs (two samples in three bytes, `lowBits` 2 or 4 of each in byte 1): groups g < `groups`
    // into samples 2g and 2g + 1, reading no byte at or past src + srcBytes.
    ptrdiff_t (*u16UnpackSamples)(const unsigned char *src, ptrdiff_t groups, ptrdiff_t srcBytes, int32_t lowBits,
                                  unsigned char *dst) = nullptr;

    // Development's colour matrix on planes (src/simd/kernels16.h): in[] blue, green, red, out[] the same,
    // w pixels; returns the pixels done, a multiple of its width.
    ptrdiff_t (*developMix)(const uint16_t *const *in, uint16_t *const *out, ptrdiff_t w, const float *m) = nullptr;
    // Development's input (black, white, gains) on full samples, d may be s; returns the samples done, a
    // multiple of its width.
    ptrdiff_t (*developBalance)(const uint16_t *s, uint16_t *d, ptrdiff_t w, const float *p) = nullptr;
    // Camera pixels of three samples (blue, green, red) into planes: out[c][x] = bgr[3x + c] for x < w;
    // returns the pixels done, a multiple of its width.
    ptrdiff_t (*developSplit)(const uint16_t *bgr, ptrdiff_t w, uint16_t *const *out) = nullptr;
    // Camera colour (planes in[0..2] when step is 1, B, G, R pixels at in[0] when it is 3) through the matrix
    // (null: the identity) and the transfer curve's cubics into 8-bit B, G, R pixels; returns the pixels
    // done, a multiple of its width.
    ptrdiff_t (*developEncode8)(const uint16_t *const *in, ptrdiff_t step, unsigned char *out, ptrdiff_t w,
                                const float *m, const float *curve) = nullptr;
};


// Every interior of one level; a level without vector interiors has only null entries.
struct Table : Kernels8, Kernels16 {};

// The table of the active level.
const Table &table();

// Stores of other types (the edge-directed method's partial stores) have no vector interiors.
template <class Store>
const StoreKernels<Store> &kernels() {
    static const StoreKernels<Store> none{};
    return none;
}
template <> inline const StoreKernels<Bgr8Store> &kernels<Bgr8Store>() { return table().bgr; }
template <> inline const StoreKernels<Bgra8Store> &kernels<Bgra8Store>() { return table().bgra; }
template <> inline const StoreKernels<Bgra8KeepAlphaStore> &kernels<Bgra8KeepAlphaStore>() { return table().bgraKeep; }
template <> inline const StoreKernels<PlanarStore> &kernels<PlanarStore>() { return table().planar; }
template <> inline const StoreKernels<LumaStore> &kernels<LumaStore>() { return table().luma; }

// Whether the active level has the interiors that read deep and packed rows directly (every store has
// them, or none).
inline bool readsDeepRows() { return table().bgr.nearestRowsDeep != nullptr; }

// The best level this machine and this build support.
Level bestLevel();
// Whether this machine and build can run `level` (Scalar always).
bool supported(Level level);
// Makes `level` the active one for the whole process; false (and nothing changes) when unsupported.
// For tests and benchmarks only; not safe while conversions run on other threads.
bool forceLevel(Level level);
Level activeLevel();
const char *levelName(Level level);
// "scalar", "avx2", "avx512" or "neon" to a level; false for any other name.
bool levelFromName(const char *name, Level *level);

// Each instruction-set unit (src/simd/<family>_<isa>.cpp, compiled with that set's flags) defines the
// entries of its kernel family as constant data, filled in when the library is linked and loaded: no
// code of a unit runs before the dispatcher has found its instruction set on the machine.
#define VQ_SIMD_DECLARE_KERNELS(isa)                                                                       \
    namespace isa {                                                                                        \
    extern const Kernels8 kKernels8;                                                                       \
    extern const Kernels16 kKernels16;                                                                     \
    }
VQ_SIMD_DECLARE_KERNELS(avx2)
VQ_SIMD_DECLARE_KERNELS(avx512)
VQ_SIMD_DECLARE_KERNELS(neon)
#undef VQ_SIMD_DECLARE_KERNELS

} // namespace vq::simd
