// vqpDemosaicing: argument checks, classification, scratch sizing, reduction to 8 bits, dispatch.
#include <cstddef>
#include <cstdint>

#include "core/handle.h"
#include "core/wrap32.h"

namespace {

using vq::add32;
using vq::mul32;

uint8_t *alignUp16(uint8_t *p) {
    const uintptr_t misalign = reinterpret_cast<uintptr_t>(p) & 15u;
    return misalign == 0 ? p : p + (16 - misalign);
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
