// The converters: one per input phase, each picking exactly one kernel by output format and method.
//
// Only RGGB and GBRG have nearest-neighbour and edge-directed kernels of their own; BGGR and GRBG reuse
// them with red and blue exchanged (the opposite swap flag, plane order or luma weights). The bilinear
// family has drivers for every phase, and a converter reaches the opposite channel order through the
// driver of the opposite phase.
#include <cstddef>
#include <cstdint>

#include "core/pixel_store.h"
#include "core/wrap32.h"
#include "velqora.h"

namespace {

enum class Layout { Interleaved3, Interleaved4, Mono, Planar, Unknown };

struct OutputFormat {
    Layout layout;
    bool redFirst; // RGB8 / RGBA8, or planes in the order B, G, R for planar 0x02180025
};

OutputFormat classifyOutput(uint64_t config) {
    switch (config) {
    case VQP_PIXEL_FORMAT_BGR8: return {Layout::Interleaved3, false};
    case VQP_PIXEL_FORMAT_RGB8: return {Layout::Interleaved3, true};
    case VQP_PIXEL_FORMAT_BGRA8: return {Layout::Interleaved4, false};
    case VQP_PIXEL_FORMAT_RGBA8: return {Layout::Interleaved4, true};
    case VQP_PIXEL_FORMAT_MONO8: return {Layout::Mono, false};
    case VQP_PIXEL_FORMAT_RGB8_PLANAR: return {Layout::Planar, false};
    case VQP_PIXEL_FORMAT_BGR8_PLANAR: return {Layout::Planar, true};
    default: return {Layout::Unknown, false};
    }
}

enum class Phase { RG, GR, GB, BG };

// Kernels of one family for the nearest and edge-directed methods: RGGB kernels serve RG and BG,
// GBRG kernels serve GB and GR, with red and blue exchanged by the swap flag, the plane order or the
// luma weights.
template <class Bgr, class Bgra, class Planar, class Mono>
struct SwapFamily {
    Bgr bgr;
    Bgra bgra;
    Planar planar;
    Mono mono;
};

constexpr SwapFamily kNearestRG{rg8ToBgr8_nearest, rg8ToBgra8_nearest, rg8ToBgr8P_nearest, rg8ToMono8_nearest};
constexpr SwapFamily kNearestGB{gb8ToBgr8_nearest, gb8ToBgra8_nearest, gb8ToBgr8P_nearest, gb8ToMono8_nearest};
constexpr SwapFamily kEdgeRG{rg8ToBgr8_edge, rg8ToBgra8_edge, rg8ToBgr8P_edge, rg8ToMono8_edge};
constexpr SwapFamily kEdgeGB{gb8ToBgr8_edge, gb8ToBgra8_edge, gb8ToBgr8P_edge, gb8ToMono8_edge};

// Calls one kernel of a swap family. `phaseSwapped` is set for BGGR and GRBG input; `line` is the
// work row that the planar and Mono8 kernels of the edge-directed family take.
template <class Family, class... Line>
void runSwapFamily(const Family &k, bool phaseSwapped, OutputFormat of, const uint8_t *src, uint8_t *dst,
                   int32_t height, int32_t width, Line... line) {
    const uint32_t swap = (phaseSwapped != of.redFirst) ? 1u : 0u;
    const ptrdiff_t n = vq::mul32(height, width);
    switch (of.layout) {
    case Layout::Interleaved3: k.bgr(src, height, width, dst, swap); break;
    case Layout::Interleaved4: k.bgra(src, height, width, dst, swap); break;
    case Layout::Mono: k.mono(src, height, width, dst, phaseSwapped ? 1u : 0u, line...); break;
    case Layout::Planar:
        if (swap) k.planar(src, height, width, dst + 2 * n, dst + n, dst, line...);
        else k.planar(src, height, width, dst, dst + n, dst + 2 * n, line...);
        break;
    case Layout::Unknown: break;
    }
}

int32_t convertBayer(Phase phase, const uint8_t *src, uint8_t *dst, int32_t height, int32_t width, uint64_t config,
                     uint32_t method, uint8_t *scratchTail) {
    const OutputFormat of = classifyOutput(config);
    if (of.layout == Layout::Unknown) return VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT;
    const bool rgbFamily = phase == Phase::RG || phase == Phase::BG;
    const bool phaseSwapped = phase == Phase::BG || phase == Phase::GR;
    switch (method) {
    case VQP_METHOD_NEAREST:
        runSwapFamily(rgbFamily ? kNearestRG : kNearestGB, phaseSwapped, of, src, dst, height, width);
        break;
    case VQP_METHOD_BILINEAR: {
        // Interleaved: every phase has its own drivers, and the driver of the opposite phase (RG <-> BG,
        // GR <-> GB, that is index 3 - i in Phase order) writes the opposite channel order.
        using Interleaved = int32_t (*)(const uint8_t *, int32_t, int32_t, uint8_t *);
        static constexpr Interleaved kBgr[] = {rg8ToBgr8_bilinear, gr8ToBgr8_bilinear, gb8ToBgr8_bilinear,
                                               bg8ToBgr8_bilinear};
        static constexpr Interleaved kBgra[] = {rg8ToBgra8_bilinear, gr8ToBgra8_bilinear, gb8ToBgra8_bilinear,
                                                bg8ToBgra8_bilinear};
        static_assert(int(Phase::RG) == 0 && int(Phase::GR) == 1 && int(Phase::GB) == 2 && int(Phase::BG) == 3);
        const int own = static_cast<int>(phase);
        const int pick = of.redFirst ? 3 - own : own;
        // Planar and Mono8: the rg8 drivers serve RGGB and BGGR, the gr8 drivers GRBG and GBRG. BGGR and GBRG
        // have blue where those drivers read red, so their planes go reversed and their weights come reversed.
        const bool readsBlueAsRed = phase == Phase::BG || phase == Phase::GB;
        const uint32_t weights[3] = {readsBlueAsRed ? 29u : 77u, 150u, readsBlueAsRed ? 77u : 29u};
        const ptrdiff_t n = vq::mul32(height, width);
        const bool planesReversed = readsBlueAsRed != of.redFirst;
        uint8_t *planeR = planesReversed ? dst + 2 * n : dst;
        uint8_t *planeB = planesReversed ? dst : dst + 2 * n;
        switch (of.layout) {
        case Layout::Interleaved3: kBgr[pick](src, height, width, dst); break;
        case Layout::Interleaved4: kBgra[pick](src, height, width, dst); break;
        case Layout::Mono:
            (rgbFamily ? rg8ToMono8_bilinear : gr8ToMono8_bilinear)(src, height, width, weights, dst);
            break;
        case Layout::Planar:
            (rgbFamily ? rg8ToBgr8P_bilinear : gr8ToBgr8P_bilinear)(src, height, width, planeR, dst + n, planeB);
            break;
        case Layout::Unknown: break;
        }
        break;
    }
    case VQP_METHOD_EDGE: // scratchTail is the green line of the planar and Mono8 kernels
        runSwapFamily(rgbFamily ? kEdgeRG : kEdgeGB, phaseSwapped, of, src, dst, height, width, scratchTail);
        break;
    default: break; // an unknown method writes nothing and succeeds
    }
    return VQP_OK;
}

} // namespace

// Every output pixel of a monochrome frame is its input byte v in each channel (alpha 0). Luma of
// (v, v, v) is v, so the Mono8 output is a copy.
int32_t mono8Convert(const uint8_t *src, uint8_t *dst, int32_t height, int32_t width, uint64_t config) {
    const OutputFormat of = classifyOutput(config);
    const int32_t n = vq::mul32(height, width);
    const auto grey = [&](const auto &store) {
        for (int32_t i = 0; i < n; ++i) store.put(i, src[i], src[i], src[i]);
    };
    switch (of.layout) {
    case Layout::Mono:
        for (int32_t i = 0; i < n; ++i) dst[i] = src[i];
        break;
    case Layout::Interleaved3: grey(vq::Bgr8Store(dst, false)); break;
    case Layout::Interleaved4: grey(vq::Bgra8Store(dst, false)); break;
    case Layout::Planar: grey(vq::PlanarStore{dst, dst + n, dst + ptrdiff_t{2} * n}); break;
    case Layout::Unknown: return VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT;
    }
    return VQP_OK;
}

int32_t rg8Convert(const uint8_t *src, uint8_t *dst, int32_t height, int32_t width, uint64_t config, uint32_t method,
                   uint8_t *scratchTail) {
    return convertBayer(Phase::RG, src, dst, height, width, config, method, scratchTail);
}
int32_t gr8Convert(const uint8_t *src, uint8_t *dst, int32_t height, int32_t width, uint64_t config, uint32_t method,
                   uint8_t *scratchTail) {
    return convertBayer(Phase::GR, src, dst, height, width, config, method, scratchTail);
}
int32_t gb8Convert(const uint8_t *src, uint8_t *dst, int32_t height, int32_t width, uint64_t config, uint32_t method,
                   uint8_t *scratchTail) {
    return convertBayer(Phase::GB, src, dst, height, width, config, method, scratchTail);
}
int32_t bg8Convert(const uint8_t *src, uint8_t *dst, int32_t height, int32_t width, uint64_t config, uint32_t method,
                   uint8_t *scratchTail) {
    return convertBayer(Phase::BG, src, dst, height, width, config, method, scratchTail);
}
