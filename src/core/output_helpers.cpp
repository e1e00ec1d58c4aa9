// Utilities for a finished 24-bit image: widening to 4-byte pixels and bitmap row padding.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "simd/dispatch.h"
#include "velqora.h"

// The byte count is the signed 32-bit result of the wrapping product height x width x 3: nothing when it
// is below 1, otherwise whole pixels until that many source bytes have been read. A count that wraps is
// never more than the image really holds, so a wrapped size converts less, never past the buffers.
const uint8_t *bgrToBgra(const uint8_t *src, uint32_t height, uint32_t width, uint8_t *dst) {
    const int32_t n = static_cast<int32_t>(height * width * 3u);
    if (n < 1) return src;
    const ptrdiff_t pixels = (ptrdiff_t{n} + 2) / 3;
    ptrdiff_t p = 0;
    if (const auto vector = vq::simd::table().bgrToBgra) p = vector(src, pixels, dst);
    for (; p < pixels; ++p) {
        dst[4 * p] = src[3 * p];
        dst[4 * p + 1] = src[3 * p + 1];
        dst[4 * p + 2] = src[3 * p + 2];
        dst[4 * p + 3] = 0;
    }
    return src;
}

int32_t vqpBMPAdjust(ProcessingHandle *handle, ImageFrame *image) {
    if (handle == nullptr || image == nullptr || image->data == nullptr) return VQP_ERR_NULL_ARGUMENT;
    if (image->height <= 3 || image->width <= 3) return VQP_ERR_BAD_DIMENSIONS;
    // A padded row that a signed 32-bit count cannot hold is refused like a width of 3 or less.
    if ((int64_t{3} * image->width + 3) > INT32_MAX) return VQP_ERR_BAD_DIMENSIONS;
    const int32_t row = 3 * image->width;
    const int32_t pad = static_cast<int32_t>((static_cast<uint32_t>(row) + 3u) & ~3u) - row;
    if (static_cast<uint32_t>(pad - 1) > 2u) return VQP_OK; // rows already a multiple of 4 bytes
    const int32_t newRow = row + pad;
    uint8_t *data = static_cast<uint8_t *>(image->data);
    // From the last row up, so that no row is overwritten before it has moved; a row's source and
    // destination overlap, hence memmove.
    for (int32_t y = image->height - 1; y >= 0; --y) {
        uint8_t *to = data + ptrdiff_t{y} * newRow;
        std::memmove(to, data + ptrdiff_t{y} * row, static_cast<size_t>(row));
        std::memset(to + row, 0, static_cast<size_t>(pad));
    }
    return VQP_OK;
}
