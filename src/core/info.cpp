// What bindings and applications ask of the library besides conversions: its version and vector level,
// the name and a short message for each status code, and the size of an output buffer.
#include <cstdint>

#include "simd/dispatch.h"
#include "velqora.h"

uint32_t vqpVersion(void) {
    return (uint32_t{VQP_VERSION_MAJOR} << 16) | (uint32_t{VQP_VERSION_MINOR} << 8) | uint32_t{VQP_VERSION_PATCH};
}

const char *vqpVersionString(void) { return VQP_VERSION_STRING; }

const char *vqpVectorLevel(void) { return vq::simd::levelName(vq::simd::activeLevel()); }

namespace {

struct StatusText {
    int32_t status;
    const char *name;
    const char *message;
};

constexpr StatusText kStatuses[] = {
    {VQP_OK, "VQP_OK", "success"},
    {VQP_ERR_NULL_ARGUMENT, "VQP_ERR_NULL_ARGUMENT", "a required pointer argument is null"},
    {VQP_ERR_OUT_OF_MEMORY, "VQP_ERR_OUT_OF_MEMORY", "the memory the frame needs could not be allocated"},
    {VQP_ERR_BAD_DIMENSIONS, "VQP_ERR_BAD_DIMENSIONS",
     "height, width and stride must each be at least 4, and height x width must fit in 31 bits"},
    {VQP_ERR_UNSUPPORTED_INPUT_FORMAT, "VQP_ERR_UNSUPPORTED_INPUT_FORMAT", "the input pixel format is not accepted"},
    {VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT, "VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT",
     "the output pixel format is not accepted"},
    {VQP_ERR_BAD_PARAMETER, "VQP_ERR_BAD_PARAMETER",
     "a development setting is out of range: a NaN or infinity, a negative level or gain, a black level at or "
     "above the white level, an unknown mode or curve, or a gamma outside (0, 10]"},
};

const StatusText *find(int32_t status) {
    for (const StatusText &s : kStatuses)
        if (s.status == status) return &s;
    return nullptr;
}

} // namespace

const char *vqpStatusName(int32_t status) {
    const StatusText *s = find(status);
    return s != nullptr ? s->name : "VQP_ERR_UNKNOWN";
}

const char *vqpStatusMessage(int32_t status) {
    const StatusText *s = find(status);
    return s != nullptr ? s->message : "not a status code of this library";
}

uint64_t vqpOutputSize(int32_t height, int32_t width, uint64_t pixelFormat) {
    if (height <= 3 || width <= 3) return 0;
    const uint64_t pixels = uint64_t(uint32_t(height)) * uint64_t(uint32_t(width));
    if (pixels > uint64_t{INT32_MAX}) return 0; // refused: -104 or -117
    switch (pixelFormat) {
    case VQP_PIXEL_FORMAT_MONO8: return pixels;
    case VQP_PIXEL_FORMAT_BGR8:
    case VQP_PIXEL_FORMAT_RGB8:
    case VQP_PIXEL_FORMAT_RGB8_PLANAR:
    case VQP_PIXEL_FORMAT_BGR8_PLANAR: return 3 * pixels;
    case VQP_PIXEL_FORMAT_BGRA8:
    case VQP_PIXEL_FORMAT_RGBA8: return 4 * pixels;
    case VQP_PIXEL_FORMAT_BGR16:
    case VQP_PIXEL_FORMAT_RGB16:
    case VQP_PIXEL_FORMAT_RGB16_PLANAR:
    case VQP_PIXEL_FORMAT_BGR16_PLANAR:
    case VQP_PIXEL_FORMAT_BGR16 | VQP_OUTPUT16_FULL_RANGE:
    case VQP_PIXEL_FORMAT_RGB16 | VQP_OUTPUT16_FULL_RANGE:
    case VQP_PIXEL_FORMAT_RGB16_PLANAR | VQP_OUTPUT16_FULL_RANGE:
    case VQP_PIXEL_FORMAT_BGR16_PLANAR | VQP_OUTPUT16_FULL_RANGE: return 6 * pixels;
    default: return 0;
    }
}
