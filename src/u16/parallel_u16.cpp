// The 16-bit entry points split over the handle's worker threads.
//
// Bilinear: the body reads only the source, so each thread runs it on a slice of the frame (a sub-frame
// starting at an even row, whose body covers exactly the slice's row pairs); the first thread also does
// the first row and column, the last one the last rows and columns.
//
// Edge-directed: the kernel reads back the greens of the two rows above each row pair, which the band
// above computes. Greens depend on the source alone, so a band's thread first runs the kernel on the pair
// above its band and its own first pair in private rows (the greens of the border columns copied in),
// copies back the bytes that its first pair writes in the frame, and runs the rest of its band in place.
// The borders before the kernel run first, those after it last, both on the calling thread.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/handle.h"
#include "core/workers.h"
#include "u16/edge_u16.h"
#include "u16/u16_common.h"
#include "velqora.h"

namespace {

inline int32_t signedOf(uint32_t v) { return static_cast<int32_t>(v); }

// Frames below this many pixels run on the calling thread.
constexpr int64_t kMinParallelPixels = 1 << 15;

vq::Workers *workersFor(ProcessingHandle *handle, int threads, int64_t pixels) {
    if (threads < 2 || pixels < kMinParallelPixels) return nullptr;
    return vq::workersOf(handle);
}

// Runs the bilinear body of a frame in `count` slices and the borders around it. `pieces` supplies the
// five pieces on a sub-frame starting at a given row.
template <class Pieces>
void bilinearInSlices(vq::Workers *workers, int count, uint32_t height, const Pieces &pieces) {
    const int32_t h = signedOf(height);
    const int32_t lastPairEnd = h - 1 - (h & 1); // the body's row pairs start at 1, 3, ... below this
    const int32_t pairs = (lastPairEnd - 1) / 2;
    workers->run(count, [&](int k) {
        const int32_t first = 1 + 2 * static_cast<int32_t>(int64_t{pairs} * k / count);
        const int32_t end = 1 + 2 * static_cast<int32_t>(int64_t{pairs} * (k + 1) / count);
        if (k == 0) pieces.first();
        const uint64_t sliceStop = pieces.body(first - 1, static_cast<uint32_t>(end - first + 2));
        if (k == count - 1) {
            const int32_t stopRow = static_cast<int32_t>(sliceStop >> 32) + (first - 1);
            pieces.last(stopRow, static_cast<int32_t>(sliceStop & 0xFFFFFFFFu));
        }
    });
}

// Enough pairs for every thread to have two.
int bilinearThreads(int threads, uint32_t height) {
    const int32_t pairs = (signedOf(height) - 2) / 2;
    return threads < pairs / 2 ? threads : pairs / 2;
}

} // namespace

VQP_EXTERN int32_t vqpDemosaicingBilinearU16Parallel(ProcessingHandle *handle, const uint16_t *src, uint32_t height,
                                                     uint32_t width, uint16_t *dst, uint32_t threads) {
    if (handle == nullptr || src == nullptr || dst == nullptr) return VQP_ERR_NULL_ARGUMENT;
    if (signedOf(height) <= 3 || signedOf(width) <= 3) return VQP_ERR_BAD_DIMENSIONS;
    const int count = bilinearThreads(vq::threadCount(threads), height);
    vq::Workers *workers = workersFor(handle, count, int64_t{height} * width);
    if (workers == nullptr) return demosaicingBilinearRGGBU16(src, height, width, dst);
    const ptrdiff_t w = width;
    struct {
        const uint16_t *src;
        uint16_t *dst;
        uint32_t height, width;
        ptrdiff_t w;
        void first() const {
            bilinearFirstRowsRGGBU16(src, dst, width, 0);
            bilinearFirstColsRGGBU16(src, dst, height, width, 0);
        }
        uint64_t body(int32_t row, uint32_t rows) const {
            return bilinearBodyRGGBU16(src + row * w, dst + row * 3 * w, rows, width, 0);
        }
        void last(int32_t stopRow, int32_t stopColumn) const {
            bilinearLastRowsRGGBU16(src, dst, height, width, stopRow, 0);
            bilinearLastColsRGGBU16(src, dst, height, width, stopColumn, 0);
        }
    } pieces{src, dst, height, width, w};
    bilinearInSlices(workers, count, height, pieces);
    return VQP_OK;
}

VQP_EXTERN int32_t vqpDemosaicingBilinearU16PParallel(ProcessingHandle *handle, const uint16_t *src,
                                                      uint32_t height, uint32_t width, uint16_t *planeB,
                                                      uint16_t *planeG, uint16_t *planeR, uint32_t threads) {
    if (handle == nullptr || src == nullptr || planeB == nullptr || planeG == nullptr || planeR == nullptr)
        return VQP_ERR_NULL_ARGUMENT;
    if (signedOf(height) <= 3 || signedOf(width) <= 3) return VQP_ERR_BAD_DIMENSIONS;
    const int count = bilinearThreads(vq::threadCount(threads), height);
    vq::Workers *workers = workersFor(handle, count, int64_t{height} * width);
    if (workers == nullptr) return demosaicingBilinearRGGBU16P(src, height, width, planeB, planeG, planeR);
    struct {
        const uint16_t *src;
        uint16_t *b, *g, *r;
        uint32_t height, width;
        void first() const {
            bilinearFirstRowsRGGBU16P(src, b, g, r, width);
            bilinearFirstColsRGGBU16P(src, b, g, r, height, width);
        }
        uint64_t body(int32_t row, uint32_t rows) const {
            const ptrdiff_t at = row * ptrdiff_t{width};
            return bilinearBodyRGGBU16P(src + at, b + at, g + at, r + at, rows, width);
        }
        void last(int32_t stopRow, int32_t stopColumn) const {
            bilinearLastRowsRGGBU16P(src, b, g, r, height, width, stopRow);
            bilinearLastColsRGGBU16P(src, b, g, r, height, width, stopColumn);
        }
    } pieces{src, planeB, planeG, planeR, height, width};
    bilinearInSlices(workers, count, height, pieces);
    return VQP_OK;
}

namespace {

// The phase of an unpacked Bayer code: 0 RG, 1 GR, 2 GB, 3 BG; -1 for any other code.
int bayerPhaseOf(uint32_t code) {
    static constexpr uint32_t kGR[] = {VQP_PIXEL_FORMAT_BAYER_GR8, VQP_PIXEL_FORMAT_BAYER_GR10,
                                       VQP_PIXEL_FORMAT_BAYER_GR12, VQP_PIXEL_FORMAT_BAYER_GR16};
    for (uint32_t gr : kGR) {
        if (code == gr) return 1;
        if (code == gr + 1) return 0;
        if (code == gr + 2) return 2;
        if (code == gr + 3) return 3;
    }
    return -1;
}

constexpr ptrdiff_t kPrivateRows = 6; // the pair above a band and the band's first pair, and two rows above

// Band k of `count` of the kernel's row pairs, in place below its first pair; the first pair (and the pair
// above it, for its greens) in the private rows `mine`.
void edgeBand(const vq::u16::EdgeRun &r, int32_t firstPair, int32_t endPair, uint16_t *mine) {
    const ptrdiff_t w = r.width, sw = w, dw = 3 * w;
    const ptrdiff_t top = r.startRow + 2 * ptrdiff_t{firstPair}; // frame row of the band's first pair
    int32_t inPlaceFrom = firstPair;
    if (firstPair > 0) {
        const int32_t c0 = r.startColumn;
        const int32_t c1 = vq::u16::edgeColumnEnd(r.width, c0);
        // Private rows top - 4 .. top + 1; the border columns' greens of rows top - 2 .. top + 1 copied in.
        std::memset(mine, 0, static_cast<size_t>(kPrivateRows * dw) * sizeof(uint16_t));
        const vq::u16::Dst16 frame = vq::u16::Dst16::of(r.dst); // the frame may start at any address
        for (ptrdiff_t y = 2; y < kPrivateRows; ++y)
            for (ptrdiff_t x = 0; x < c0; ++x) mine[y * dw + 3 * x + 1] = frame[(top - 4 + y) * dw + 3 * x + 1];
        edgeSecRGGBU16(r.src + (top - 2) * sw, mine + 2 * dw, 4u, r.width, c0, r.maximum);
        // What the band's first pair writes: red of the row above it, red, green and blue of its first
        // row, green and blue of its second.
        const auto copy = [&](ptrdiff_t y, int channel, ptrdiff_t x0, ptrdiff_t x1) {
            for (ptrdiff_t x = x0; x < x1; ++x) frame[(top - 4 + y) * dw + 3 * x + channel] = mine[y * dw + 3 * x + channel];
        };
        copy(3, 2, c0 - 1, c1 - 1);
        copy(4, 2, c0 - 1, c1 - 1);
        copy(4, 1, c0, c1);
        copy(4, 0, c0, c1);
        copy(5, 1, c0, c1);
        copy(5, 0, c0, c1);
        inPlaceFrom = firstPair + 1;
    }
    if (endPair > inPlaceFrom) {
        const ptrdiff_t row = r.startRow + 2 * ptrdiff_t{inPlaceFrom};
        edgeSecRGGBU16(r.src + row * sw, r.dst + row * dw, 2u * static_cast<uint32_t>(endPair - inPlaceFrom),
                       r.width, r.startColumn, r.maximum);
    }
}

} // namespace

VQP_EXTERN int32_t vqpDemosaicingEdgeU16Parallel(ProcessingHandle *handle, const uint16_t *src, uint32_t height,
                                                 uint32_t width, uint16_t *dst, uint32_t phase, uint32_t threads) {
    if (handle == nullptr || src == nullptr || dst == nullptr) return VQP_ERR_NULL_ARGUMENT;
    if (signedOf(height) <= 3 || signedOf(width) <= 3) return VQP_ERR_BAD_DIMENSIONS;
    const int p = bayerPhaseOf(phase);
    if (p < 0) return VQP_ERR_UNSUPPORTED_INPUT_FORMAT;
    static constexpr int32_t kStartRow[] = {2, 2, 3, 3}, kStartColumn[] = {2, 3, 2, 3};
    const vq::u16::EdgeRun r = vq::u16::edgeRunOf(src, height, width, dst, kStartRow[p], kStartColumn[p],
                                                  p == 0 ? vq::u16::kEdgeMaxRGGB : vq::u16::kEdgeMaxOther);
    const uint32_t kernelRows = vq::u16::edgeKernelRows(r);
    const int32_t rowEnd = static_cast<int32_t>(kernelRows - 1u);
    const int32_t pairs = rowEnd < 1 ? 0 : (rowEnd + 1) / 2;
    int count = vq::threadCount(threads);
    if (count > pairs / 2) count = pairs / 2; // at least two pairs a band
    vq::Workers *workers = workersFor(handle, count, int64_t{height} * width);
    if (workers == nullptr) return vq::u16::edgeDriver(r);

    const int64_t rowBytes = kPrivateRows * 3 * int64_t{width} * 2;
    const int64_t need = rowBytes * count + 64;
    if (need > INT32_MAX) return vq::u16::edgeDriver(r); // one band on the calling thread needs no scratch
    if (const int32_t rc = vqpMemRealloc(&handle->scratch, static_cast<int32_t>(need)); rc != VQP_OK) return rc;
    uint8_t *base = handle->scratch.data;
    base += (64 - (reinterpret_cast<uintptr_t>(base) & 63u)) & 63u;

    vq::u16::edgeBefore(r);
    workers->run(count, [&](int k) {
        const int32_t firstPair = static_cast<int32_t>(int64_t{pairs} * k / count);
        const int32_t endPair = static_cast<int32_t>(int64_t{pairs} * (k + 1) / count);
        edgeBand(r, firstPair, endPair, reinterpret_cast<uint16_t *>(base + k * rowBytes));
    });
    vq::u16::edgeAfter(r, vq::u16::edgeKernelStop(kernelRows, width, r.startColumn));
    return VQP_OK;
}
