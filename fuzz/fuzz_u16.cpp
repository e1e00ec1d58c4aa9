// The 16-bit path: the bilinear entry points (interleaved, planar), the four edge-directed drivers, the
// parallel entry points and the full-depth entry point (every input code, stride, method and output
// layout), on exact-size buffers at any alignment; results on several threads must equal those on one.
#include <cstdlib>
#include <cstring>

#include "fuzz_input.h"
#include "velqora.h"

namespace {

// A frame of 16-bit samples at byte offset `shift` (0 or 1) of an exact-size block.
struct Samples {
    std::vector<uint8_t> block;
    uint16_t *at;
    Samples(size_t count, unsigned shift, const std::vector<uint8_t> &bytes)
        : block(2 * count + shift + (count == 0 ? 2 : 0)) { // exact size; never a null pointer
        if (count != 0 && !bytes.empty()) std::memcpy(block.data() + shift, bytes.data(), 2 * count);
        at = reinterpret_cast<uint16_t *>(block.data() + shift);
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    vqf::Input in(data, size);
    const uint32_t pick = in.u32();
    const uint32_t h = in.u8() % 48, w = in.u8() % 48;
    const uint32_t threads = 1 + pick % 4;
    const unsigned shift = (pick >> 4) & 1;
    const size_t n = size_t(h) * w;
    Samples src(n, shift, in.bytes(2 * n));
    ProcessingHandle *handle = nullptr;
    vqpCreate(&handle);
    Samples a(3 * n, (pick >> 5) & 1, {}), b(3 * n, (pick >> 6) & 1, {});
    const auto same = [&] { return n == 0 || std::memcmp(a.at, b.at, 6 * n) == 0; };
    switch ((pick >> 8) % 4) {
    case 3: {
        static constexpr uint32_t kGR[] = {VQP_PIXEL_FORMAT_BAYER_GR10, VQP_PIXEL_FORMAT_BAYER_GR12,
                                           VQP_PIXEL_FORMAT_BAYER_GR14, VQP_PIXEL_FORMAT_BAYER_GR16,
                                           VQP_PIXEL_FORMAT_BAYER_GR10_PACKED, VQP_PIXEL_FORMAT_BAYER_GR12_PACKED};
        static constexpr uint64_t kLayouts[] = {VQP_PIXEL_FORMAT_BGR16, VQP_PIXEL_FORMAT_RGB16,
                                                VQP_PIXEL_FORMAT_RGB16_PLANAR, VQP_PIXEL_FORMAT_BGR16_PLANAR};
        const uint32_t more = in.u32();
        const size_t family = (more & 0xFF) % 7; // 6: a code the entry point refuses
        const uint32_t code = family < 6 ? kGR[family] + (more >> 8) % 4 : VQP_PIXEL_FORMAT_MONO12;
        const bool packed = family == 4 || family == 5;
        const size_t row = packed ? 3 * (w / 2) + 2 * (w & 1) : 2 * size_t(w);
        const bool run = packed && ((more >> 10) & 1) != 0;
        const size_t stride = run ? w + (w >> 1) : row + (more >> 11) % 7;
        // Exactly the bytes the entry point reads: one run of pairs, or the rows at their stride.
        const size_t bytes = h == 0 ? 0 : run ? 3 * (n / 2) + 2 * (n & 1) : (h - 1) * stride + row;
        std::vector<uint8_t> raw = in.bytes(bytes);
        raw.resize(bytes + shift + (bytes == 0 ? 1 : 0));
        if (shift != 0) std::memmove(raw.data() + 1, raw.data(), bytes);
        const uint64_t config = kLayouts[(more >> 14) % 4] | ((more >> 16) & 1 ? VQP_OUTPUT16_FULL_RANGE : 0);
        const uint32_t method = (more >> 17) % 4;
        if (vqpDemosaicSetConfig16(handle, &config) != VQP_OK) std::abort();
        ImageFrame frame{int32_t(h), int32_t(w), code, raw.data() + shift, int32_t(stride)};
        ImageFrame oa{0, 0, 0, a.at, 0}, ob{0, 0, 0, b.at, 0};
        const int32_t s1 = vqpDemosaicing16(handle, &frame, method, &oa, 1);
        const int32_t s2 = vqpDemosaicing16(handle, &frame, method, &ob, threads);
        if (s1 != s2 || (s1 == VQP_OK && !same())) std::abort();
        if ((h < 4 || w < 4) != (s1 == VQP_ERR_BAD_DIMENSIONS)) std::abort();
        if (s1 == VQP_OK && (family == 6 || oa.pixelFormat != uint32_t(config))) std::abort();
        break;
    }
    case 0: {
        const int32_t s1 = vqpDemosaicingBilinearU16(src.at, h, w, a.at);
        const int32_t s2 = vqpDemosaicingBilinearU16Parallel(handle, src.at, h, w, b.at, threads);
        if (s1 != s2 || !same()) std::abort();
        break;
    }
    case 1: {
        const int32_t s1 = vqpDemosaicingBilinearU16P(src.at, h, w, a.at, a.at + n, a.at + 2 * n);
        const int32_t s2 = vqpDemosaicingBilinearU16PParallel(handle, src.at, h, w, b.at, b.at + n, b.at + 2 * n, threads);
        if (s1 != s2 || !same()) std::abort();
        break;
    }
    default: {
        using Driver = int32_t (*)(const uint16_t *, uint32_t, uint32_t, uint16_t *);
        static constexpr Driver kDrivers[] = {demosaicingEdgeRGGBU16, demosaicingEdgeGRBGU16, demosaicingEdgeGBRGU16,
                                              demosaicingEdgeBGGRU16};
        static constexpr uint32_t kPhases[] = {VQP_PIXEL_FORMAT_BAYER_RG16, VQP_PIXEL_FORMAT_BAYER_GR16,
                                               VQP_PIXEL_FORMAT_BAYER_GB16, VQP_PIXEL_FORMAT_BAYER_BG16};
        const uint32_t p = (pick >> 12) % 4;
        const int32_t s2 = vqpDemosaicingEdgeU16Parallel(handle, src.at, h, w, b.at, kPhases[p], threads);
        if (h >= 4 && w >= 4) { // the drivers check nothing
            kDrivers[p](src.at, h, w, a.at);
            if (s2 != VQP_OK || !same()) std::abort();
        } else if (s2 != VQP_ERR_BAD_DIMENSIONS) {
            std::abort();
        }
    }
    }
    vqpRelease(&handle);
    return 0;
}
