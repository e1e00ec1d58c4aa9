// The exported nearest-neighbour drivers: thin wrappers that pick the kernel phase and the pixel store.
#include <cstdint>

#include "nearest/nearest.h"
#include "velqora.h"

namespace {

using vq::Bgr8Store;
using vq::Bgra8Store;
using vq::PlanarStore;
using vq::nearest::nearestGBRG;
using vq::nearest::nearestRGGB;

} // namespace

int32_t rg8ToBgr8_nearest(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst, uint32_t swapRB) {
    nearestRGGB(src, height, width, Bgr8Store(dst, swapRB != 0));
    return 0;
}
int32_t rg8ToBgra8_nearest(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst, uint32_t swapRB) {
    nearestRGGB(src, height, width, Bgra8Store(dst, swapRB != 0));
    return 0;
}
int32_t rg8ToBgr8P_nearest(const uint8_t *src, int32_t height, int32_t width, uint8_t *planeR, uint8_t *planeG,
                           uint8_t *planeB) {
    nearestRGGB(src, height, width, PlanarStore{planeR, planeG, planeB});
    return 0;
}
int32_t rg8ToMono8_nearest(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst, uint32_t swapRB) {
    nearestRGGB(src, height, width, vq::fixedLumaStore(dst, swapRB != 0));
    return 0;
}
int32_t gb8ToBgr8_nearest(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst, uint32_t swapRB) {
    nearestGBRG(src, height, width, Bgr8Store(dst, swapRB != 0));
    return 0;
}
int32_t gb8ToBgra8_nearest(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst, uint32_t swapRB) {
    nearestGBRG(src, height, width, Bgra8Store(dst, swapRB != 0));
    return 0;
}
int32_t gb8ToBgr8P_nearest(const uint8_t *src, int32_t height, int32_t width, uint8_t *planeR, uint8_t *planeG,
                           uint8_t *planeB) {
    nearestGBRG(src, height, width, PlanarStore{planeR, planeG, planeB});
    return 0;
}
int32_t gb8ToMono8_nearest(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst, uint32_t swapRB) {
    nearestGBRG(src, height, width, vq::fixedLumaStore(dst, swapRB != 0));
    return 0;
}
