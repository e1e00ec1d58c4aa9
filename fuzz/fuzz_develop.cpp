// Development with random settings (the setters' checks included) of every input format, method and
// output layout, 8 and 16-bit, on exact-size buffers: the call on several threads must write the bytes
// and find the gains of the call on one, and the statuses must agree with the arguments.
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "fuzz_input.h"
#include "velqora.h"

namespace {

float number(vqf::Input &in) { // mostly sensible values, sometimes NaN, infinity or negative
    const uint32_t v = in.u32();
    switch (v & 7) {
    case 0: return std::nanf("");
    case 1: return (v & 8) ? INFINITY : -1.0f;
    default: return float(v >> 4 & 0xFFFF) / float(1 + (v >> 20 & 0xFF));
    }
}

// The same settings on both handles; the statuses must agree.
void set(ProcessingHandle *a, ProcessingHandle *b, vqf::Input &in) {
    const uint32_t which = in.u32();
    int32_t sa = 0, sb = 0;
    if (which & 1) {
        float black[4];
        for (float &v : black) v = number(in);
        sa = vqpSetBlackLevel(a, black), sb = vqpSetBlackLevel(b, black);
    }
    if (which & 2) {
        const float white = number(in);
        if (vqpSetWhiteLevel(a, white) != vqpSetWhiteLevel(b, white)) std::abort();
    }
    if (which & 4) {
        float gains[3];
        for (float &v : gains) v = number(in);
        if (vqpSetBalanceRatio(a, gains) != vqpSetBalanceRatio(b, gains)) std::abort();
    }
    if (which & 8) {
        const uint32_t mode = (which >> 8) % 4;
        if (vqpSetBalanceWhiteAuto(a, mode) != vqpSetBalanceWhiteAuto(b, mode)) std::abort();
    }
    if (which & 16) {
        float m[9];
        for (float &v : m) v = number(in) - 2.0f;
        const float *matrix = (which & 32) ? nullptr : m;
        if (vqpSetColorTransformation(a, matrix) != vqpSetColorTransformation(b, matrix)) std::abort();
    }
    if (which & 64) {
        const uint32_t curve = (which >> 12) % 4;
        const float gamma = number(in);
        if (vqpSetTransfer(a, curve, gamma) != vqpSetTransfer(b, curve, gamma)) std::abort();
    }
    if (sa != sb || (sa != VQP_OK && sa != VQP_ERR_BAD_PARAMETER)) std::abort();
}

constexpr uint32_t kCodes[] = {
    VQP_PIXEL_FORMAT_BAYER_RG8,        VQP_PIXEL_FORMAT_BAYER_GR10,       VQP_PIXEL_FORMAT_BAYER_GB12,
    VQP_PIXEL_FORMAT_BAYER_BG14,       VQP_PIXEL_FORMAT_BAYER_RG16,       VQP_PIXEL_FORMAT_BAYER_GB10_PACKED,
    VQP_PIXEL_FORMAT_BAYER_BG12_PACKED, VQP_PIXEL_FORMAT_MONO8,           VQP_PIXEL_FORMAT_MONO12,
    VQP_PIXEL_FORMAT_MONO10_PACKED,    VQP_PIXEL_FORMAT_BAYER_GR8,        0x01100006u /* refused */};
constexpr uint64_t kLayouts8[] = {VQP_PIXEL_FORMAT_BGR8,  VQP_PIXEL_FORMAT_RGB8,        VQP_PIXEL_FORMAT_BGRA8,
                                  VQP_PIXEL_FORMAT_RGBA8, VQP_PIXEL_FORMAT_RGB8_PLANAR, VQP_PIXEL_FORMAT_BGR8_PLANAR,
                                  VQP_PIXEL_FORMAT_MONO8};
constexpr uint64_t kLayouts16[] = {VQP_PIXEL_FORMAT_BGR16, VQP_PIXEL_FORMAT_RGB16, VQP_PIXEL_FORMAT_RGB16_PLANAR,
                                   VQP_PIXEL_FORMAT_BGR16_PLANAR};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    vqf::Input in(data, size);
    const uint32_t pick = in.u32();
    const int32_t h = in.u8() % 40, w = in.u8() % 40;
    const uint32_t code = kCodes[(pick & 0xFF) % 12];
    const bool wide = (pick >> 8) & 1;
    const uint32_t method = (pick >> 9) % 4, threads = 2 + (pick >> 11) % 3;
    const bool packed = (code >> 16 & 0xFF) == 0x0C, deep = (code >> 16 & 0xFF) == 0x10;
    const size_t row = packed ? 3 * (size_t(w) / 2) + 2 * (w & 1) : deep ? 2 * size_t(w) : size_t(w);
    const size_t stride = row + (pick >> 13) % 5;
    const size_t bytes = h == 0 ? 0 : (size_t(h) - 1) * stride + row;
    const std::vector<uint8_t> raw = in.bytes(bytes);
    ProcessingHandle *a = nullptr, *b = nullptr;
    vqpCreate(&a), vqpCreate(&b);
    const uint64_t layout = wide ? kLayouts16[(pick >> 16) % 4] : kLayouts8[(pick >> 16) % 7];
    if (wide ? vqpDemosaicSetConfig16(a, &layout) || vqpDemosaicSetConfig16(b, &layout)
             : vqpDemosaicSetConfig(a, &layout) || vqpDemosaicSetConfig(b, &layout))
        std::abort();
    const size_t outBytes = size_t(vqpOutputSize(h, w, layout));
    const size_t shift = wide ? (pick >> 20) & 1 : 0; // 16-bit output at an odd address too
    std::vector<uint8_t> oa(outBytes + 2), ob(outBytes + 2);
    for (int frame = 0; frame < 2; ++frame) {
        set(a, b, in);
        ImageFrame frameIn{h, w, code, const_cast<uint8_t *>(raw.data()), int32_t(stride)};
        ImageFrame ra{0, 0, 0, oa.data() + shift, 0}, rb{0, 0, 0, ob.data() + shift, 0};
        const int32_t s1 = wide ? vqpDevelop16(a, &frameIn, method, &ra, 1) : vqpDevelop(a, &frameIn, method, &ra, 1);
        const int32_t s2 =
            wide ? vqpDevelop16(b, &frameIn, method, &rb, threads) : vqpDevelop(b, &frameIn, method, &rb, threads);
        if (s1 != s2 || oa != ob) std::abort();
        if ((h < 4 || w < 4) != (s1 == VQP_ERR_BAD_DIMENSIONS)) std::abort();
        float ga[3], gb[3];
        vqpGetBalanceRatio(a, ga), vqpGetBalanceRatio(b, gb);
        if (std::memcmp(ga, gb, sizeof ga) != 0) std::abort();
        if (s1 == VQP_OK && ra.pixelFormat != uint32_t(layout)) std::abort();
    }
    vqpRelease(&a), vqpRelease(&b);
    return 0;
}
