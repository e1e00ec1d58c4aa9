// Development with random settings (the setters' checks included) of every input format, method and
// output layout, 8 and 16-bit (16-bit output at odd addresses too), on exact-size buffers: the call on
// several threads must write the bytes and find the gains of the call on one, and the statuses must agree.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz_input.h"
#include "velqora.h"

namespace {

float number(vqf::Input &in) { // mostly sensible values, sometimes NaN, infinity or negative
    const uint32_t v = in.u32();
    return (v & 7) == 0 ? std::nanf("") : (v & 7) == 1 ? ((v & 8) ? INFINITY : -1.0f)
                                                       : float(v >> 4 & 0xFFFF) / float(1 + (v >> 20 & 0xFF));
}

// The same settings on both handles; every setter must give both the same status, 0 or -120.
void set(ProcessingHandle *const *h, vqf::Input &in) {
    const uint32_t which = in.u32();
    float v[9];
    for (float &x : v) x = number(in);
    std::vector<int32_t> s[2];
    for (int k = 0; k < 2; ++k) {
        if (which & 1) s[k].push_back(vqpSetBlackLevel(h[k], v));
        if (which & 2) s[k].push_back(vqpSetWhiteLevel(h[k], v[4]));
        if (which & 4) s[k].push_back(vqpSetBalanceRatio(h[k], v + 5));
        if (which & 8) s[k].push_back(vqpSetBalanceWhiteAuto(h[k], (which >> 8) % 4));
        if (which & 16) s[k].push_back(vqpSetColorTransformation(h[k], (which & 32) ? nullptr : v));
        if (which & 64) s[k].push_back(vqpSetTransfer(h[k], (which >> 12) % 4, v[8]));
    }
    if (s[0] != s[1]) std::abort();
    for (const int32_t status : s[0])
        if (status != VQP_OK && status != VQP_ERR_BAD_PARAMETER) std::abort();
}

constexpr uint32_t kCodes[] = {
    VQP_PIXEL_FORMAT_BAYER_RG8,        VQP_PIXEL_FORMAT_BAYER_GR10,       VQP_PIXEL_FORMAT_BAYER_GB12,
    VQP_PIXEL_FORMAT_BAYER_BG14,       VQP_PIXEL_FORMAT_BAYER_RG16,       VQP_PIXEL_FORMAT_BAYER_GB10_PACKED,
    VQP_PIXEL_FORMAT_BAYER_BG12_PACKED, VQP_PIXEL_FORMAT_MONO8,           VQP_PIXEL_FORMAT_MONO12,
    VQP_PIXEL_FORMAT_MONO10_PACKED,    VQP_PIXEL_FORMAT_BAYER_GR8,        0x01100006u /* refused */};
constexpr uint64_t kLayouts[] = {VQP_PIXEL_FORMAT_BGR8,        VQP_PIXEL_FORMAT_RGB8,        VQP_PIXEL_FORMAT_BGRA8,
                                 VQP_PIXEL_FORMAT_RGBA8,       VQP_PIXEL_FORMAT_RGB8_PLANAR, VQP_PIXEL_FORMAT_BGR8_PLANAR,
                                 VQP_PIXEL_FORMAT_MONO8,       VQP_PIXEL_FORMAT_BGR16,       VQP_PIXEL_FORMAT_RGB16,
                                 VQP_PIXEL_FORMAT_RGB16_PLANAR, VQP_PIXEL_FORMAT_BGR16_PLANAR};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    vqf::Input in(data, size);
    const uint32_t pick = in.u32();
    const int32_t h = in.u8() % 40, w = in.u8() % 40;
    const uint32_t code = kCodes[(pick & 0xFF) % 12], method = (pick >> 9) % 4, threads = 2 + (pick >> 11) % 3;
    const uint64_t layout = kLayouts[(pick >> 16) % 11];
    const bool wide = (layout >> 16 & 0xFF) == 0x30; // the 16-bit layouts
    const bool packed = (code >> 16 & 0xFF) == 0x0C, deep = (code >> 16 & 0xFF) == 0x10;
    const size_t row = packed ? 3 * (size_t(w) / 2) + 2 * (w & 1) : deep ? 2 * size_t(w) : size_t(w);
    const size_t stride = row + (pick >> 13) % 5, bytes = h == 0 ? 0 : (size_t(h) - 1) * stride + row;
    const std::vector<uint8_t> raw = in.bytes(bytes);
    ProcessingHandle *hs[2] = {nullptr, nullptr};
    for (ProcessingHandle *&h1 : hs) {
        vqpCreate(&h1);
        if ((wide ? vqpDemosaicSetConfig16(h1, &layout) : vqpDemosaicSetConfig(h1, &layout)) != VQP_OK) std::abort();
    }
    const size_t shift = wide ? (pick >> 20) & 1 : 0, outBytes = size_t(vqpOutputSize(h, w, layout));
    std::vector<uint8_t> out[2] = {std::vector<uint8_t>(outBytes + 2), std::vector<uint8_t>(outBytes + 2)};
    for (int frame = 0; frame < 2; ++frame) {
        set(hs, in);
        ImageFrame frameIn{h, w, code, const_cast<uint8_t *>(raw.data()), int32_t(stride)};
        int32_t status[2];
        float gains[2][3];
        for (int k = 0; k < 2; ++k) {
            ImageFrame o{0, 0, 0, out[k].data() + shift, 0};
            const uint32_t t = k == 0 ? 1 : threads;
            status[k] = wide ? vqpDevelop16(hs[k], &frameIn, method, &o, t) : vqpDevelop(hs[k], &frameIn, method, &o, t);
            vqpGetBalanceRatio(hs[k], gains[k]);
            if (status[k] == VQP_OK && o.pixelFormat != uint32_t(layout)) std::abort();
        }
        if (status[0] != status[1] || out[0] != out[1] || std::memcmp(gains[0], gains[1], sizeof gains[0]) != 0)
            std::abort();
        if ((h < 4 || w < 4) != (status[0] == VQP_ERR_BAD_DIMENSIONS)) std::abort();
    }
    for (ProcessingHandle *&h1 : hs) vqpRelease(&h1);
    return 0;
}
