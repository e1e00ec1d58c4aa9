// vqpDemosaicing: argument checks, classification, scratch sizing, reduction to 8 bits, dispatch.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/convert.h"
#include "core/handle.h"
#include "core/workers.h"
#include "core/wrap32.h"
#include "simd/dispatch.h"

namespace {

using vq::mul32;

uint8_t *alignUp16(uint8_t *p) {
    const uintptr_t misalign = reinterpret_cast<uintptr_t>(p) & 15u;
    return misalign == 0 ? p : p + (16 - misalign);
}

// Reduces rows [from, to) of deep or packed input into `window`, the rows laid one after the other. The
// routines are the same that reduce a whole frame, started where the whole-frame run is at row `from`;
// contiguous packed rows are one run of samples, so `from` * width must be even for them.
void reduceRows(const ImageFrame *in, int32_t rule, int32_t from, int32_t to, uint8_t *window) {
    const int32_t width = in->width;
    const int32_t stride = in->stride;
    const int32_t rows = to - from;
    const uint8_t *inData = static_cast<const uint8_t *>(in->data);
    if (rule > 0) {
        const uint16_t *samples = static_cast<const uint16_t *>(in->data);
        if (stride == int64_t{2} * width) u16Tou8_old(samples + ptrdiff_t{from} * width, rows, width, rule, window);
        else u16Tou8(samples + ptrdiff_t{from} * (stride >> 1), rows, width, stride, rule, window);
    } else if (stride == int64_t{width} + (width >> 1)) {
        unpacked_old(inData + 3 * (ptrdiff_t{from} * width / 2), rows, width, window);
    } else {
        unpacked(inData + ptrdiff_t{from} * stride, rows, width, stride, window);
    }
}

// Bytes from one input row to the next as the reduction routines step: 16-bit rows advance by whole
// samples, so an odd stride loses its last byte.
ptrdiff_t inputRowBytes(const ImageFrame *in, int32_t rule) {
    return rule > 0 ? ptrdiff_t{in->stride >> 1} * 2 : in->stride;
}

// Columns [x0, x1) of frame row y (rows that start at a packed pair) reduced into the same columns of
// `row`, by the routines that reduce whole rows; a packed run starts at an even sample, and one of odd
// length writes a 0 into the byte after it.
void reduceColumns(const ImageFrame *in, int32_t rule, int32_t y, int32_t x0, int32_t x1, uint8_t *row) {
    if (rule > 0) {
        const uint16_t *samples = static_cast<const uint16_t *>(in->data) + ptrdiff_t{y} * (in->stride >> 1);
        u16Tou8(samples + x0, 1, x1 - x0, in->stride, rule, row + x0);
    } else {
        x0 &= ~1;
        const uint8_t *bytes = static_cast<const uint8_t *>(in->data) + ptrdiff_t{y} * in->stride;
        unpacked(bytes + ptrdiff_t{x0} / 2 * 3, 1, x1 - x0, in->stride, row + x0);
    }
}

// Deep and packed rows read directly by the vector interiors of the nearest and bilinear body rows, from
// this width on (every body row then has vector steps); the scalar pieces read only the rows near the top
// and bottom and the first and last kDeepBorder columns of the others, so only those are reduced.
constexpr int32_t kDeepMinWidth = 256;
constexpr int32_t kDeepBorder = 8;

// The rows that the interiors of this conversion read directly (RowSpan::deep null: none).
vq::RowSpan deepRowsOf(const ImageFrame *in, int32_t rule, uint32_t phase, uint32_t method) {
    vq::RowSpan span{0, 0};
    const int32_t width = in->width;
    const bool packedRunsSplitPairs = rule == -1 && (width & 1) != 0 && in->stride == int64_t{width} + (width >> 1);
    if ((method != VQP_METHOD_NEAREST && method != VQP_METHOD_BILINEAR) || phase == vq::kPhaseMono ||
        width < kDeepMinWidth || packedRunsSplitPairs || !vq::simd::readsDeepRows())
        return span;
    span.deep = static_cast<const unsigned char *>(in->data);
    span.deepStride = inputRowBytes(in, rule);
    span.deepRule = rule;
    return span;
}

// The rows of a band of deep or packed input: about 128 KiB of reduced rows, an even count so that band
// starts keep the parity the kernel needs.
int32_t bandRows(int32_t width) {
    const int32_t band = (131072 / width) & ~1;
    return band < 8 ? 8 : band > 64 ? 64 : band;
}
// The window bytes that the bands of a range of `rangeRows` rows need: a band's rows (the last band of
// the range up to nine more), one row above and one below, a row of slack for the parity of packed runs,
// and the byte a packed run writes past its end.
ptrdiff_t windowBytes(int32_t width, int32_t rangeRows) {
    const int32_t rows = rangeRows < bandRows(width) + 9 ? rangeRows : bandRows(width) + 9;
    return (ptrdiff_t{rows} + 4) * width + 64;
}

// Deep or packed input by bands, output rows [from, end): each band is converted from a window of reduced
// rows (its own rows and the neighbours above and below it). The rows the next band shares with this one
// move to the window's start and only the new ones are reduced, so every row is reduced about once, in
// small steps between conversions, and the reduced frame as a whole is never written out. The output
// bytes are those of reducing the whole frame and converting it.
void reduceAndConvertByBands(const ImageFrame *in, int32_t rule, uint32_t phase, uint64_t config, uint32_t method,
                             uint8_t *window, uint8_t *dst, int32_t from, int32_t end) {
    const int32_t height = in->height;
    const int32_t width = in->width;
    const int32_t band = bandRows(width);
    const int32_t step = vq::rowBandStep(phase);
    const vq::RowSpan deep = deepRowsOf(in, rule, phase, method);
    int32_t held = 0, heldEnd = 0; // rows [held, heldEnd) are in the window
    while (from < end) {
        const int32_t to = end - from > band + step + 8 ? (from == 0 ? band + step : from + band) : end;
        // Rows read: one above the band and one below it; the bottom band's border rows look up to three
        // rows above the last one.
        int32_t first = from - 1 < height - 4 ? from - 1 : height - 4;
        if (first < 0) first = 0;
        if ((width & 1) != 0 && (first & 1) != 0) --first; // packed runs start at an even sample
        const int32_t last = to < height ? to + 1 : height;
        int32_t next = first; // the first row to reduce
        if (first >= held && first < heldEnd) {
            std::memmove(window, window + ptrdiff_t{first - held} * width, ptrdiff_t{heldEnd - first} * width);
            next = heldEnd;
            if ((width & 1) != 0 && (next & 1) != 0) --next; // the same bytes again, from an even sample
        }
        if (deep.deep == nullptr) {
            reduceRows(in, rule, next, last, window + ptrdiff_t{next - first} * width);
        } else {
            for (int32_t y = next; y < last; ++y) { // in order: a packed border may spill into the next row
                uint8_t *row = window + ptrdiff_t{y - first} * width;
                if (y < 4 || y >= height - 4) {
                    reduceRows(in, rule, y, y + 1, row);
                } else {
                    reduceColumns(in, rule, y, 0, kDeepBorder, row);
                    reduceColumns(in, rule, y, width - kDeepBorder, width, row);
                }
            }
        }
        vq::RowSpan rows = deep;
        rows.from = from, rows.to = to, rows.base = first;
        vq::convertRows(phase, window, dst, height, width, config, method, nullptr, rows);
        held = first, heldEnd = last;
        from = to;
    }
}

// The edge-directed conversion of deep or packed input: the frame is reduced into `work` a few rows ahead
// of the band that reads them, so that the reduced rows are still in cache when they are read, and the
// reading of the input overlaps the conversion. The planar and Mono8 green line follows the reduced frame
// at a distance: a packed run of odd length writes one byte past its end.
void reduceAsBandsArrive(const ImageFrame *in, int32_t rule, uint32_t phase, uint64_t config, uint8_t *work,
                         uint8_t *dst) {
    struct Progress {
        const ImageFrame *in;
        int32_t rule;
        uint8_t *work;
        int32_t done; // rows reduced
    } progress{in, rule, work, 0};
    const auto reduce = [](void *context, int32_t end) {
        auto &p = *static_cast<Progress *>(context);
        const int32_t height = p.in->height, width = p.in->width;
        if (end <= p.done) return;
        // Whole steps of 16 rows, so that a packed run starts at an even sample.
        const int32_t step = (end + 15) & ~15;
        const int32_t to = step < height ? step : height;
        reduceRows(p.in, p.rule, p.done, to, p.work + ptrdiff_t{p.done} * width);
        p.done = to;
    };
    const ptrdiff_t pixels = ptrdiff_t{in->height} * in->width;
    // The rows of the next step but one (20 rows below a band) are fetched while the bands before it run.
    constexpr int32_t kDistance = 20;
    const ptrdiff_t rowBytes = inputRowBytes(in, rule);
    const auto *input = static_cast<const unsigned char *>(in->data);
    const vq::RowsReady ready{reduce, &progress,
                              vq::simd::FetchRows{in->height > kDistance ? input + kDistance * rowBytes : nullptr,
                                                  rowBytes, rule > 0 ? 4 : 3, in->height - kDistance}};
    vq::convertEdgeAsRowsArrive(phase, work, dst, in->height, in->width, config, work + pixels + 16, ready);
}

// What both entry points do before any byte is reduced or written: the argument checks, classification
// and the growth of the scratch block.
struct Prepared {
    int32_t status;
    int64_t phase;
    int32_t rule;
    int32_t pixels;
};

Prepared prepare(ProcessingHandle *handle, const ImageFrame *in, const ImageFrame *out) {
    Prepared p{VQP_OK, 0, 0, 0};
    if (handle == nullptr || in == nullptr || out == nullptr || in->data == nullptr || out->data == nullptr)
        return {VQP_ERR_NULL_ARGUMENT, 0, 0, 0};
    if (in->height <= 3 || in->stride <= 3 || in->width <= 3) return {VQP_ERR_BAD_DIMENSIONS, 0, 0, 0};
    // Only a product that turns negative is refused; one that wraps back to a positive value is not.
    p.pixels = mul32(in->height, in->width);
    if (p.pixels < 0) return {VQP_ERR_BAD_DIMENSIONS, 0, 0, 0};
    if (const int32_t rc = demosaicDataInit(in, handle, &p.phase, &p.rule); rc != VQP_OK) return {rc, 0, 0, 0};
    // The scratch block the frame needs, counted in 64 bits: one that a 32-bit capacity cannot describe
    // cannot be had.
    const int64_t need = p.rule != 0 ? int64_t{in->height} * in->width + in->width + 64 : int64_t{in->width} + 64;
    if (need > INT32_MAX) return {VQP_ERR_OUT_OF_MEMORY, 0, 0, 0};
    if (const int32_t rc = vqpMemRealloc(&handle->scratch, static_cast<int32_t>(need)); rc != VQP_OK)
        return {rc, 0, 0, 0};
    return p;
}

void fillOutputRecord(const ImageFrame *in, uint64_t config, ImageFrame *out) {
    out->height = in->height;
    out->width = in->width;
    out->pixelFormat = static_cast<uint32_t>(config);
}

// Whether the frame can go band by band: the method's kernels take row ranges, and the frame's size is
// what its 32-bit product says.
bool byBands(const Prepared &p, const ImageFrame *in, uint64_t config, uint32_t method) {
    return int64_t{in->height} * in->width == p.pixels &&
           vq::convertsByRows(static_cast<uint32_t>(p.phase), config, method);
}

// The whole frame to packed 8-bit rows: deep or packed input into the scratch work area, padded 8-bit rows
// compacted in place in the caller's buffer. Returns the 8-bit frame and sets the scratch tail: the bytes
// after the reduced frame, or the start of the scratch block when nothing was reduced.
const uint8_t *reduceFrame(ProcessingHandle *handle, const ImageFrame *in, const Prepared &p, uint8_t **scratchTail) {
    const int32_t height = in->height;
    const int32_t width = in->width;
    const int32_t rule = p.rule;
    uint8_t *const base = handle->scratch.data;
    uint8_t *const inData = static_cast<uint8_t *>(in->data);
    *scratchTail = base;
    if (rule > 0 || rule == -1) {
        uint8_t *work = alignUp16(base);
        *scratchTail = work + p.pixels;
        if (rule > 0) {
            const uint16_t *samples = static_cast<const uint16_t *>(in->data);
            if (in->stride == int64_t{2} * width) u16Tou8_old(samples, height, width, rule, work);
            else u16Tou8(samples, height, width, in->stride, rule, work);
        } else {
            if (in->stride == int64_t{width} + (width >> 1)) unpacked_old(inData, height, width, work);
            else unpacked(inData, height, width, in->stride, work);
        }
        return work;
    }
    if (in->stride != width) u8Tou8(inData, height, width, in->stride, inData); // the caller's rows, in place
    return inData;
}

// The conversion on the calling thread, after prepare().
int32_t convertOnThisThread(ProcessingHandle *handle, const ImageFrame *in, uint32_t method, ImageFrame *out,
                            const Prepared &p) {
    const int32_t height = in->height;
    const int32_t width = in->width;
    const int64_t phase = p.phase;
    const int32_t rule = p.rule;
    const uint64_t config = handle->config;
    uint8_t *dst = static_cast<uint8_t *>(out->data);
    if ((rule > 0 || rule == -1) && byBands(p, in, config, method)) {
        reduceAndConvertByBands(in, rule, static_cast<uint32_t>(phase), config, method,
                                alignUp16(handle->scratch.data), dst, 0, height);
        fillOutputRecord(in, config, out);
        return VQP_OK;
    }
    if ((rule > 0 || rule == -1) && method == VQP_METHOD_EDGE && phase != vq::kPhaseMono && vq::knownOutput(config)) {
        reduceAsBandsArrive(in, rule, static_cast<uint32_t>(phase), config, alignUp16(handle->scratch.data), dst);
        fillOutputRecord(in, config, out);
        return VQP_OK;
    }
    uint8_t *scratchTail = nullptr;
    const uint8_t *src = reduceFrame(handle, in, p, &scratchTail);

    if (static_cast<uint64_t>(phase - 0x01080001) > 10u) return VQP_ERR_UNSUPPORTED_INPUT_FORMAT;
    int32_t rc;
    switch (phase) {
    case 0x01080001: rc = mono8Convert(src, dst, height, width, config); break;
    case 0x01080008: rc = gr8Convert(src, dst, height, width, config, method, scratchTail); break;
    case 0x01080009: rc = rg8Convert(src, dst, height, width, config, method, scratchTail); break;
    case 0x0108000A: rc = gb8Convert(src, dst, height, width, config, method, scratchTail); break;
    case 0x0108000B: rc = bg8Convert(src, dst, height, width, config, method, scratchTail); break;
    default: return VQP_ERR_UNSUPPORTED_INPUT_FORMAT;
    }
    if (rc != VQP_OK) return rc;
    fillOutputRecord(in, config, out);
    return VQP_OK;
}

// What the parallel conversions return when they leave the frame to the calling thread.
constexpr int32_t kNotSplit = 1;

// Frames below this many pixels are not worth waking threads for.
constexpr int32_t kMinParallelPixels = 1 << 15;

// The edge-directed method on several threads: the frame is reduced as a whole, then its bands are split
// (edge/edge_kernel.h). Each thread but the bottom one keeps its own line and a copy of the line it started
// from, after the scratch bytes that the single-threaded conversion uses.
int32_t convertEdgeInBands(ProcessingHandle *handle, const ImageFrame *in, ImageFrame *out, const Prepared &p,
                           int threads) {
    const int32_t height = in->height;
    const int32_t width = in->width;
    const uint64_t config = handle->config;
    const uint32_t phase = static_cast<uint32_t>(p.phase);
    int count = threads;
    while (count >= 2 && !vq::edgeSplits(height, count)) --count;
    vq::Workers *workers = count >= 2 ? vq::workersOf(handle) : nullptr;
    if (workers == nullptr) return kNotSplit;
    const int64_t used = p.rule != 0 ? int64_t{p.pixels} + width + 64 + 16 : int64_t{width} + 64;
    const int64_t need = used + 2 * int64_t{count} * width + 64;
    if (need > INT32_MAX) return kNotSplit;
    if (const int32_t rc = vqpMemRealloc(&handle->scratch, static_cast<int32_t>(need)); rc != VQP_OK) return rc;
    uint8_t *scratchTail = nullptr;
    const uint8_t *src = reduceFrame(handle, in, p, &scratchTail);
    uint8_t *lines = scratchTail + width + 64;
    vq::convertEdgeInBands(phase, src, static_cast<uint8_t *>(out->data), height, width, config, scratchTail, *workers,
                           count, lines);
    fillOutputRecord(in, config, out);
    return VQP_OK;
}

// The conversion split into horizontal bands, one a thread. Returns kNotSplit when the frame is not split
// (too small, one thread, a method whose kernels do not take row ranges, no threads to be had).
int32_t convertInBands(ProcessingHandle *handle, const ImageFrame *in, uint32_t method, ImageFrame *out,
                       const Prepared &p, int threads) {
    const int32_t height = in->height;
    const int32_t width = in->width;
    const uint64_t config = handle->config;
    if (threads < 2 || p.pixels < kMinParallelPixels || int64_t{height} * width != p.pixels) return kNotSplit;
    if (method == VQP_METHOD_EDGE && p.phase != vq::kPhaseMono && vq::knownOutput(config))
        return convertEdgeInBands(handle, in, out, p, threads);
    if (!byBands(p, in, config, method)) return kNotSplit;
    const bool reduce = p.rule > 0 || p.rule == -1;
    const int count = threads < height / 4 ? threads : height / 4; // bands of at least four rows
    vq::Workers *workers = count >= 2 ? vq::workersOf(handle) : nullptr;
    if (workers == nullptr) return kNotSplit;
    // Deep and packed input: one window of reduced rows a thread, in the scratch block.
    const ptrdiff_t window = windowBytes(width, height / count + 4);
    if (reduce) {
        const int64_t need = int64_t{window} * count + 16;
        if (need > INT32_MAX) return kNotSplit;
        if (const int32_t rc = vqpMemRealloc(&handle->scratch, static_cast<int32_t>(need)); rc != VQP_OK) return rc;
    }
    uint8_t *const work = alignUp16(handle->scratch.data);

    uint8_t *const inData = static_cast<uint8_t *>(in->data);
    if (!reduce && in->stride != width) u8Tou8(inData, height, width, in->stride, inData); // compacted in place
    const uint32_t phase = static_cast<uint32_t>(p.phase);
    const int32_t step = vq::rowBandStep(phase);
    uint8_t *dst = static_cast<uint8_t *>(out->data);
    // Band k starts at row k * height / count, moved down to the parity the kernel's row pairs need.
    const auto bandStart = [&](int k) -> int32_t {
        if (k == 0) return 0;
        if (k == count) return height;
        const int32_t y = static_cast<int32_t>(int64_t{k} * height / count);
        return (y & 1) == step ? y : y + 1;
    };
    workers->run(count, [&](int k) {
        const int32_t from = bandStart(k), to = bandStart(k + 1);
        if (reduce)
            reduceAndConvertByBands(in, p.rule, phase, config, method, work + k * window, dst, from, to);
        else
            vq::convertRows(phase, inData, dst, height, width, config, method, nullptr, {from, to});
    });
    fillOutputRecord(in, config, out);
    return VQP_OK;
}

} // namespace

int32_t vqpDemosaicing(ProcessingHandle *handle, const ImageFrame *in, uint32_t method, ImageFrame *out) {
    const Prepared p = prepare(handle, in, out);
    if (p.status != VQP_OK) return p.status;
    return convertOnThisThread(handle, in, method, out, p);
}

int32_t vqpDemosaicingParallel(ProcessingHandle *handle, const ImageFrame *in, uint32_t method, ImageFrame *out,
                               uint32_t threads) {
    const Prepared p = prepare(handle, in, out);
    if (p.status != VQP_OK) return p.status;
    const int32_t rc = convertInBands(handle, in, method, out, p, vq::threadCount(threads));
    return rc != kNotSplit ? rc : convertOnThisThread(handle, in, method, out, p);
}
