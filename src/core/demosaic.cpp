// vqpDemosaicing: argument checks, classification, scratch sizing, reduction to 8 bits, dispatch.
#include <cstddef>
#include <cstdint>

#include "core/convert.h"
#include "core/handle.h"
#include "core/wrap32.h"

namespace {

using vq::add32;
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
        if (stride == 2 * width) u16Tou8_old(samples + ptrdiff_t{from} * width, rows, width, rule, window);
        else u16Tou8(samples + ptrdiff_t{from} * (stride >> 1), rows, width, stride, rule, window);
    } else if (stride == width + (width >> 1)) {
        unpacked_old(inData + 3 * (ptrdiff_t{from} * width / 2), rows, width, window);
    } else {
        unpacked(inData + ptrdiff_t{from} * stride, rows, width, stride, window);
    }
}

// Deep or packed input by bands: each band of output rows is converted from a window of reduced rows
// (its own rows and the neighbours above and below it) at the start of the scratch work area, which the
// next band reuses while it is still in cache; the reduced frame as a whole is never written out. The
// output bytes are those of reducing the whole frame and converting it.
int32_t reduceAndConvertByBands(const ImageFrame *in, int32_t rule, uint32_t phase, uint64_t config, uint32_t method,
                                uint8_t *window, uint8_t *dst) {
    const int32_t height = in->height;
    const int32_t width = in->width;
    // About 128 KiB of reduced rows a band; an even count, so band starts keep the parity the kernel needs.
    int32_t band = (131072 / width) & ~1;
    band = band < 8 ? 8 : band > 64 ? 64 : band;
    const int32_t step = vq::rowBandStep(phase);
    for (int32_t from = 0; from < height;) {
        const int32_t to = height - from > band + step + 8 ? (from == 0 ? band + step : from + band) : height;
        // Rows read: one above the band and one below it; the bottom band's border rows look up to three
        // rows above the last one.
        int32_t first = from - 1 < height - 4 ? from - 1 : height - 4;
        if (first < 0) first = 0;
        if ((width & 1) != 0 && (first & 1) != 0) --first; // packed runs start at an even sample
        const int32_t last = to < height ? to + 1 : height;
        reduceRows(in, rule, first, last, window);
        if (const int32_t rc = vq::convertRows(phase, window, dst, height, width, config, method, nullptr,
                                               {from, to, first});
            rc != VQP_OK)
            return rc;
        from = to;
    }
    return VQP_OK;
}

} // namespace

int32_t vqpDemosaicing(ProcessingHandle *handle, const ImageFrame *in, uint32_t method, ImageFrame *out) {
    if (handle == nullptr || in == nullptr || out == nullptr || in->data == nullptr || out->data == nullptr)
        return VQP_ERR_NULL_ARGUMENT;
    if (in->height <= 3 || in->stride <= 3 || in->width <= 3) return VQP_ERR_BAD_DIMENSIONS;
    const int32_t height = in->height;
    const int32_t width = in->width;
    // Only a product that turns negative is refused; one that wraps back to a positive value is not.
    const int32_t pixels = mul32(height, width);
    if (pixels < 0) return VQP_ERR_BAD_DIMENSIONS;

    int64_t phase = 0;
    int32_t rule = 0;
    if (const int32_t rc = demosaicDataInit(in, handle, &phase, &rule); rc != VQP_OK) return rc;

    const int32_t scratchSize = rule != 0 ? add32(add32(pixels, width), 64) : add32(width, 64);
    if (const int32_t rc = vqpMemRealloc(&handle->scratch, scratchSize); rc != VQP_OK) return rc;

    uint8_t *const base = handle->scratch.data;
    uint8_t *const inData = static_cast<uint8_t *>(in->data);
    if ((rule > 0 || rule == -1) && int64_t{height} * width == pixels &&
        vq::convertsByRows(static_cast<uint32_t>(phase), handle->config, method)) {
        const int32_t rc = reduceAndConvertByBands(in, rule, static_cast<uint32_t>(phase), handle->config, method,
                                                   alignUp16(base), static_cast<uint8_t *>(out->data));
        if (rc != VQP_OK) return rc;
        out->height = in->height;
        out->width = in->width;
        out->pixelFormat = static_cast<uint32_t>(handle->config);
        return VQP_OK;
    }
    const uint8_t *src = inData;
    uint8_t *scratchTail = base;
    if (rule > 0 || rule == -1) {
        uint8_t *work = alignUp16(base);
        scratchTail = work + pixels;
        if (rule > 0) {
            const uint16_t *samples = static_cast<const uint16_t *>(in->data);
            if (in->stride == 2 * width) u16Tou8_old(samples, height, width, rule, work);
            else u16Tou8(samples, height, width, in->stride, rule, work);
        } else {
            if (in->stride == width + (width >> 1)) unpacked_old(inData, height, width, work);
            else unpacked(inData, height, width, in->stride, work);
        }
        src = work;
    } else if (rule == 0 && in->stride != width) {
        u8Tou8(inData, height, width, in->stride, inData); // the caller's rows are compacted in place
    }

    if (static_cast<uint64_t>(phase - 0x01080001) > 10u) return VQP_ERR_UNSUPPORTED_INPUT_FORMAT;
    uint8_t *dst = static_cast<uint8_t *>(out->data);
    const uint64_t config = handle->config;
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

    out->height = in->height;
    out->width = in->width;
    out->pixelFormat = static_cast<uint32_t>(config);
    return VQP_OK;
}
