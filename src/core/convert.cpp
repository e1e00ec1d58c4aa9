// The converters: one per input phase, each picking exactly one kernel by output format and method.
//
// Only RGGB and GBRG have nearest-neighbour and edge-directed kernels of their own; BGGR and GRBG reuse
// them with red and blue exchanged (the opposite swap flag, plane order or luma weights). The bilinear
// family has drivers for every phase, and a converter reaches the opposite channel order through the
// driver of the opposite phase.
#include <cstddef>
#include <cstdint>

#include "bilinear/bilinear_pieces.h"
#include "core/convert.h"
#include "core/pixel_store.h"
#include "core/workers.h"
#include "edge/edge_kernel.h"
#include "nearest/nearest.h"
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

// Every method has one kernel for the frames whose first row starts with red or blue (RGGB, BGGR) and
// one for the frames whose first row starts with green (GBRG, GRBG); the second phase of each pair is
// the first with red and blue exchanged, by the store: the channel order of the interleaved layouts,
// the order of the planes, the luma weights (red 77, green 150, blue 29).
//
// Calls `kernel(store)` with the store of the output layout; `swap` exchanges red and blue in the
// interleaved layouts and the planes, `lumaSwap` in the luma weights.
// The 4-byte store is Bgra8Store (alpha written as 0) for the nearest and bilinear methods, and
// Bgra8KeepAlphaStore for the edge-directed one.
template <class Store4 = vq::Bgra8Store, class Kernel>
void withStore(OutputFormat of, uint8_t *dst, ptrdiff_t n, bool swap, bool lumaSwap, Kernel kernel) {
    switch (of.layout) {
    case Layout::Interleaved3: kernel(vq::Bgr8Store(dst, swap)); break;
    case Layout::Interleaved4: kernel(Store4(dst, swap)); break;
    case Layout::Mono: kernel(vq::fixedLumaStore(dst, lumaSwap)); break;
    case Layout::Planar:
        kernel(swap ? vq::PlanarStore{dst + 2 * n, dst + n, dst} : vq::PlanarStore{dst, dst + n, dst + 2 * n});
        break;
    case Layout::Unknown: break;
    }
}

// The edge-directed family: RGGB kernels serve RG and BG, GBRG kernels serve GB and GR.
struct SwapFamily {
    int64_t (*bgr)(const uint8_t *, uint32_t, uint32_t, uint8_t *, uint32_t);
    int64_t (*bgra)(const uint8_t *, uint32_t, uint32_t, uint8_t *, uint32_t);
    int64_t (*planar)(const uint8_t *, uint32_t, uint32_t, uint8_t *, uint8_t *, uint8_t *, uint8_t *);
    int64_t (*mono)(const uint8_t *, uint32_t, uint32_t, uint8_t *, uint32_t, uint8_t *);
};

constexpr SwapFamily kEdgeRG{rg8ToBgr8_edge, rg8ToBgra8_edge, rg8ToBgr8P_edge, rg8ToMono8_edge};
constexpr SwapFamily kEdgeGB{gb8ToBgr8_edge, gb8ToBgra8_edge, gb8ToBgr8P_edge, gb8ToMono8_edge};

// Calls one kernel of a swap family. `phaseSwapped` is set for BGGR and GRBG input; `line` is the
// work row that the planar and Mono8 kernels of the edge-directed family take.
template <class Family, class... Line>
void runSwapFamily(const Family &k, bool phaseSwapped, OutputFormat of, const uint8_t *src, uint8_t *dst,
                   int32_t height, int32_t width, Line... line) {
    const uint32_t swap = (phaseSwapped != of.redFirst) ? 1u : 0u;
    const ptrdiff_t n = ptrdiff_t{height} * width; // plane offsets in 64 bits
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
                     uint32_t method, uint8_t *scratchTail, vq::RowSpan rows) {
    const OutputFormat of = classifyOutput(config);
    if (of.layout == Layout::Unknown) return VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT;
    const bool rgbFamily = phase == Phase::RG || phase == Phase::BG;
    const bool phaseSwapped = phase == Phase::BG || phase == Phase::GR;
    const bool swap = phaseSwapped != of.redFirst;
    const ptrdiff_t n = ptrdiff_t{height} * width; // plane offsets in 64 bits
    switch (method) {
    case VQP_METHOD_NEAREST:
        withStore(of, dst, n, swap, phaseSwapped, [&](const auto &store) {
            if (rgbFamily) vq::nearest::nearestRGGB(src, height, width, store, rows);
            else vq::nearest::nearestGBRG(src, height, width, store, rows);
        });
        break;
    case VQP_METHOD_BILINEAR:
        withStore(of, dst, n, swap, phaseSwapped, [&](const auto &store) {
            if (rgbFamily) vq::bilinear::rggb(src, height, width, store, rows);
            else vq::bilinear::greenFirst(src, height, width, store, rows);
        });
        break;
    case VQP_METHOD_EDGE: // scratchTail is the green line of the planar and Mono8 kernels
        runSwapFamily(rgbFamily ? kEdgeRG : kEdgeGB, phaseSwapped, of, src, dst, height, width, scratchTail);
        break;
    default: break; // an unknown method writes nothing and succeeds
    }
    return VQP_OK;
}

// Rows [from, to) of a monochrome frame: every output pixel is its input byte v in each channel (alpha
// 0); luma of (v, v, v) is v, so the Mono8 output is a copy.
int32_t convertMono(const uint8_t *src, uint8_t *dst, int32_t height, int32_t width, uint64_t config,
                    vq::RowSpan rows) {
    const OutputFormat of = classifyOutput(config);
    if (of.layout == Layout::Unknown) return VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT;
    const ptrdiff_t n = ptrdiff_t{height} * width;
    const ptrdiff_t from = ptrdiff_t{rows.from} * width;
    const ptrdiff_t to = rows.bottom(height) ? n : ptrdiff_t{rows.to} * width;
    const ptrdiff_t at = ptrdiff_t{rows.base} * width; // src[i - at]: the sample of output pixel i
    if (of.layout == Layout::Mono) {
        for (ptrdiff_t i = from; i < to; ++i) dst[i] = src[i - at];
        return VQP_OK;
    }
    withStore(of, dst, n, false, false, [&](const auto &store) {
        for (ptrdiff_t i = from; i < to; ++i) store.put(i, src[i - at], src[i - at], src[i - at]);
    });
    return VQP_OK;
}

} // namespace

bool vq::knownOutput(uint64_t config) { return classifyOutput(config).layout != Layout::Unknown; }

bool vq::edgeSplits(int32_t height, int count) {
    return count >= 2 && height > 4 && edge::bodyBands(height, true) >= 2 * count;
}

namespace {

// The edge-directed store of `config` for a frame of `phase`, and the line it keeps: the last `w` bytes of
// the interleaved layouts' own output, `line` for the others. Calls f(store, frameLine, gbrg).
template <class F>
void withEdgeStore(uint32_t phase, uint8_t *dst, int32_t height, int32_t width, uint64_t config, uint8_t *line, F f) {
    const OutputFormat of = classifyOutput(config);
    const bool gbrg = phase == vq::kPhaseGB || phase == vq::kPhaseGR;
    const bool phaseSwapped = phase == vq::kPhaseBG || phase == vq::kPhaseGR;
    const ptrdiff_t n = ptrdiff_t{height} * width;
    withStore<vq::Bgra8KeepAlphaStore>(of, dst, n, phaseSwapped != of.redFirst, phaseSwapped, [&](const auto &store) {
        const ptrdiff_t bytes = of.layout == Layout::Interleaved3 ? 3 : 4;
        const bool interleaved = of.layout == Layout::Interleaved3 || of.layout == Layout::Interleaved4;
        f(store, interleaved ? dst + bytes * n - width : line, gbrg);
    });
}

} // namespace

void vq::convertEdgeInBands(uint32_t phase, const uint8_t *src, uint8_t *dst, int32_t height, int32_t width,
                            uint64_t config, uint8_t *scratchTail, Workers &workers, int count, uint8_t *lines) {
    const ptrdiff_t h = height, w = width;
    withEdgeStore(phase, dst, height, width, config, scratchTail, [&](const auto &store, uint8_t *frameLine, bool gbrg) {
        const ptrdiff_t bands = edge::bodyBands(h, gbrg);
        const auto firstBand = [&](int k) { return bands * k / count; };
        workers.run(count, [&](int k) {
            uint8_t *line = k == count - 1 ? frameLine : lines + 2 * k * w;
            edge::bandsOfThread(src, h, w, gbrg, store, firstBand(k), firstBand(k + 1), line, lines + (2 * k + 1) * w);
        });
        for (int k = 1; k < count; ++k) edge::rowAboveThread(src, h, w, gbrg, store, firstBand(k), lines + (2 * k + 1) * w);
    });
}

void vq::convertEdgeAsRowsArrive(uint32_t phase, const uint8_t *src, uint8_t *dst, int32_t height, int32_t width,
                                 uint64_t config, uint8_t *line, RowsReady ready) {
    const uint32_t h = static_cast<uint32_t>(height), w = static_cast<uint32_t>(width);
    withEdgeStore(phase, dst, height, width, config, line, [&](const auto &store, uint8_t *frameLine, bool gbrg) {
        if (gbrg) edge::demosaicGBRG(src, h, w, store, frameLine, ready);
        else edge::demosaicRGGB(src, h, w, store, frameLine, ready);
    });
}

int32_t vq::convertRows(uint32_t phase, const uint8_t *src, uint8_t *dst, int32_t height, int32_t width,
                       uint64_t config, uint32_t method, uint8_t *scratchTail, RowSpan rows) {
    switch (phase) {
    case kPhaseMono: return convertMono(src, dst, height, width, config, rows);
    case kPhaseRG: return convertBayer(Phase::RG, src, dst, height, width, config, method, scratchTail, rows);
    case kPhaseGR: return convertBayer(Phase::GR, src, dst, height, width, config, method, scratchTail, rows);
    case kPhaseGB: return convertBayer(Phase::GB, src, dst, height, width, config, method, scratchTail, rows);
    case kPhaseBG: return convertBayer(Phase::BG, src, dst, height, width, config, method, scratchTail, rows);
    default: return VQP_ERR_UNSUPPORTED_INPUT_FORMAT;
    }
}

bool vq::convertsByRows(uint32_t phase, uint64_t config, uint32_t method) {
    if (classifyOutput(config).layout == Layout::Unknown) return false;
    return phase == kPhaseMono || method == VQP_METHOD_NEAREST || method == VQP_METHOD_BILINEAR;
}

int32_t vq::rowBandStep(uint32_t phase) { return phase == kPhaseGR || phase == kPhaseGB ? 0 : 1; }

int32_t mono8Convert(const uint8_t *src, uint8_t *dst, int32_t height, int32_t width, uint64_t config) {
    return vq::convertRows(vq::kPhaseMono, src, dst, height, width, config, 0, nullptr, vq::kAllRows);
}
int32_t rg8Convert(const uint8_t *src, uint8_t *dst, int32_t height, int32_t width, uint64_t config, uint32_t method,
                   uint8_t *scratchTail) {
    return vq::convertRows(vq::kPhaseRG, src, dst, height, width, config, method, scratchTail, vq::kAllRows);
}
int32_t gr8Convert(const uint8_t *src, uint8_t *dst, int32_t height, int32_t width, uint64_t config, uint32_t method,
                   uint8_t *scratchTail) {
    return vq::convertRows(vq::kPhaseGR, src, dst, height, width, config, method, scratchTail, vq::kAllRows);
}
int32_t gb8Convert(const uint8_t *src, uint8_t *dst, int32_t height, int32_t width, uint64_t config, uint32_t method,
                   uint8_t *scratchTail) {
    return vq::convertRows(vq::kPhaseGB, src, dst, height, width, config, method, scratchTail, vq::kAllRows);
}
int32_t bg8Convert(const uint8_t *src, uint8_t *dst, int32_t height, int32_t width, uint64_t config, uint32_t method,
                   uint8_t *scratchTail) {
    return vq::convertRows(vq::kPhaseBG, src, dst, height, width, config, method, scratchTail, vq::kAllRows);
}
