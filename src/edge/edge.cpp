// The exported edge-directed drivers: one per phase and output layout, each a thin wrapper that picks the
// pixel store and the place of the green line.
#include <cstddef>
#include <cstdint>

#include "core/pixel_store.h"
#include "edge/edge_kernel.h"
#include "velqora.h"

namespace {

// The interleaved layouts keep the green line in the last `w` bytes of their own output.
uint8_t *lineInOutput(uint8_t *dst, int bytesPerPixel, uint32_t h, uint32_t w) {
    return dst + ptrdiff_t{bytesPerPixel} * ptrdiff_t{h} * ptrdiff_t{w} - ptrdiff_t{w};
}

} // namespace

int64_t rg8ToBgr8_edge(const uint8_t *src, uint32_t h, uint32_t w, uint8_t *dst, uint32_t swapRB) {
    return vq::edge::demosaicRGGB(src, h, w, vq::Bgr8Store(dst, swapRB != 0), lineInOutput(dst, 3, h, w));
}
int64_t gb8ToBgr8_edge(const uint8_t *src, uint32_t h, uint32_t w, uint8_t *dst, uint32_t swapRB) {
    return vq::edge::demosaicGBRG(src, h, w, vq::Bgr8Store(dst, swapRB != 0), lineInOutput(dst, 3, h, w));
}
int64_t rg8ToBgra8_edge(const uint8_t *src, uint32_t h, uint32_t w, uint8_t *dst, uint32_t swapRB) {
    return vq::edge::demosaicRGGB(src, h, w, vq::Bgra8KeepAlphaStore(dst, swapRB != 0), lineInOutput(dst, 4, h, w));
}
int64_t gb8ToBgra8_edge(const uint8_t *src, uint32_t h, uint32_t w, uint8_t *dst, uint32_t swapRB) {
    return vq::edge::demosaicGBRG(src, h, w, vq::Bgra8KeepAlphaStore(dst, swapRB != 0), lineInOutput(dst, 4, h, w));
}
int64_t rg8ToBgr8P_edge(const uint8_t *src, uint32_t h, uint32_t w, uint8_t *rPlane, uint8_t *gPlane, uint8_t *bPlane,
                        uint8_t *greenLine) {
    return vq::edge::demosaicRGGB(src, h, w, vq::PlanarStore{rPlane, gPlane, bPlane}, greenLine);
}
int64_t gb8ToBgr8P_edge(const uint8_t *src, uint32_t h, uint32_t w, uint8_t *rPlane, uint8_t *gPlane, uint8_t *bPlane,
                        uint8_t *greenLine) {
    return vq::edge::demosaicGBRG(src, h, w, vq::PlanarStore{rPlane, gPlane, bPlane}, greenLine);
}
int64_t rg8ToMono8_edge(const uint8_t *src, uint32_t h, uint32_t w, uint8_t *dst, uint32_t swapRB, uint8_t *greenLine) {
    return vq::edge::demosaicRGGB(src, h, w, vq::fixedLumaStore(dst, swapRB != 0), greenLine);
}
int64_t gb8ToMono8_edge(const uint8_t *src, uint32_t h, uint32_t w, uint8_t *dst, uint32_t swapRB, uint8_t *greenLine) {
    return vq::edge::demosaicGBRG(src, h, w, vq::fixedLumaStore(dst, swapRB != 0), greenLine);
}
