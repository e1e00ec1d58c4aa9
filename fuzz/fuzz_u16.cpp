// The 16-bit path: the bilinear entry points (interleaved, planar), the four edge-directed drivers and
// the parallel entry points, on exact-size buffers at any alignment; the parallel results must equal the
// single-threaded ones.
#include <cstdlib>
#include <cstring>

#include "fuzz_input.h"
#include "velqora.h"

namespace {

// A frame of 16-bit samples at byte offset `shift` (0 or 1) of an exact-size block.
struct Samples {
    std::vector<uint8_t> block;
    uint16_t *at;
    Samples(size_t count, unsigned shift, const std::vector<uint8_t> &bytes) : block(2 * count + shift + 2) {
        block.resize(2 * count + shift + (count == 0 ? 2 : 0)); // exact size; never a null pointer
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
    switch ((pick >> 8) % 3) {
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
