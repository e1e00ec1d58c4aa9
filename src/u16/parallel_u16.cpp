// The 16-bit entry points split over the handle's worker threads (how, in u16/parallel_u16.h).
#include "u16/parallel_u16.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "u16/u16_common.h"
#include "velqora.h"

namespace {

inline int32_t signedOf(uint32_t v) { return static_cast<int32_t>(v); }

// Frames below this many pixels run on the calling thread.
constexpr int64_t kMinParallelPixels = 1 << 15;

} // namespace

vq::Workers *vq::u16::workersFor(ProcessingHandle *handle, int threads, int64_t pixels) {
    if (threads < 2 || pixels < kMinParallelPixels) return nullptr;
    return vq::workersOf(handle);
}

int vq::u16::bilinearThreads(int threads, uint32_t height) {
    const int32_t pairs = (signedOf(height) - 2) / 2;
    return threads < pairs / 2 ? threads : pairs / 2;
}

using vq::u16::bilinearInSlices;
using vq::u16::bilinearThreads;
using vq::u16::workersFor;

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

int vq::u16::edgeThreads(const EdgeRun &r, int threads) {
    const int32_t rowEnd = static_cast<int32_t>(edgeKernelRows(r) - 1u);
    const int32_t pairs = rowEnd < 1 ? 0 : (rowEnd + 1) / 2;
    return threads < pairs / 2 ? threads : pairs / 2; // at least two pairs a band
}

int64_t vq::u16::edgeBandBytes(uint32_t width, int count) {
    return kPrivateRows * 3 * int64_t{width} * 2 * count + 64;
}

void vq::u16::edgeInBands(vq::Workers *workers, int count, const EdgeRun &r, uint8_t *scratch) {
    const uint32_t kernelRows = edgeKernelRows(r);
    const int32_t rowEnd = static_cast<int32_t>(kernelRows - 1u);
    const int32_t pairs = rowEnd < 1 ? 0 : (rowEnd + 1) / 2;
    const int64_t rowBytes = kPrivateRows * 3 * int64_t{r.width} * 2;
    uint8_t *base = scratch + ((64 - (reinterpret_cast<uintptr_t>(scratch) & 63u)) & 63u);
    edgeBefore(r);
    workers->run(count, [&](int k) {
        const int32_t firstPair = static_cast<int32_t>(int64_t{pairs} * k / count);
        const int32_t endPair = static_cast<int32_t>(int64_t{pairs} * (k + 1) / count);
        edgeBand(r, firstPair, endPair, reinterpret_cast<uint16_t *>(base + k * rowBytes));
    });
    edgeAfter(r, edgeKernelStop(kernelRows, r.width, r.startColumn));
}

VQP_EXTERN int32_t vqpDemosaicingEdgeU16Parallel(ProcessingHandle *handle, const uint16_t *src, uint32_t height,
                                                 uint32_t width, uint16_t *dst, uint32_t phase, uint32_t threads) {
    if (handle == nullptr || src == nullptr || dst == nullptr) return VQP_ERR_NULL_ARGUMENT;
    if (signedOf(height) <= 3 || signedOf(width) <= 3) return VQP_ERR_BAD_DIMENSIONS;
    const int p = bayerPhaseOf(phase);
    if (p < 0) return VQP_ERR_UNSUPPORTED_INPUT_FORMAT;
    static constexpr int32_t kStartRow[] = {2, 2, 3, 3}, kStartColumn[] = {2, 3, 2, 3};
    const vq::u16::EdgeRun r = vq::u16::edgeRunOf(src, height, width, dst, kStartRow[p], kStartColumn[p],
                                                  p == 0 ? vq::u16::kEdgeMaxRGGB : vq::u16::kEdgeMaxOther);
    const int count = vq::u16::edgeThreads(r, vq::threadCount(threads));
    vq::Workers *workers = workersFor(handle, count, int64_t{height} * width);
    if (workers == nullptr) return vq::u16::edgeDriver(r);
    const int64_t need = vq::u16::edgeBandBytes(width, count);
    if (need > INT32_MAX) return vq::u16::edgeDriver(r); // one band on the calling thread needs no scratch
    if (const int32_t rc = vqpMemRealloc(&handle->scratch, static_cast<int32_t>(need)); rc != VQP_OK) return rc;
    vq::u16::edgeInBands(workers, count, r, handle->scratch.data);
    return VQP_OK;
}
