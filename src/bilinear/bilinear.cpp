// Bilinear demosaic drivers, 8-bit. One arithmetic (the RGGB pieces) serves every phase and layout:
//
//   rg8 / bg8   the RGGB sequence; bg8 stores red and blue exchanged, so BGGR data comes out as B,G,R and
//               RGGB data through the bg8 driver as R,G,B.
//   gb8 / gr8   the two top rows of a green-first frame, then the RGGB pieces one row down (from row 1 a
//               GBRG frame is RGGB); gr8 stores red and blue exchanged.
//
// The planar and Mono8 drivers exist for rg8 and gr8 only and take red, green and blue in the frame's own
// colours (planeR receives red, weights[0] weighs red); the converters reach BGGR and GBRG through them
// with the planes or the weights reversed.
#include <cstdint>

#include "bilinear/bilinear_pieces.h"
#include "core/pixel_store.h"
#include "velqora.h"

namespace {

using vq::Bgr8Store;
using vq::Bgra8Store;
using vq::LumaStore;
using vq::PlanarStore;

LumaStore lumaStore(uint8_t *dst, const uint32_t *weights) { return {dst, weights[0], weights[1], weights[2]}; }

} // namespace

int32_t rg8ToBgr8_bilinear(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst) {
    vq::bilinear::rggb(src, height, width, Bgr8Store(dst, false));
    return 0;
}
int32_t bg8ToBgr8_bilinear(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst) {
    vq::bilinear::rggb(src, height, width, Bgr8Store(dst, true));
    return 0;
}
int32_t rg8ToBgra8_bilinear(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst) {
    vq::bilinear::rggb(src, height, width, Bgra8Store(dst, false));
    return 0;
}
int32_t bg8ToBgra8_bilinear(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst) {
    vq::bilinear::rggb(src, height, width, Bgra8Store(dst, true));
    return 0;
}

int32_t gb8ToBgr8_bilinear(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst) {
    vq::bilinear::greenFirst(src, height, width, Bgr8Store(dst, false));
    return 0;
}
int32_t gr8ToBgr8_bilinear(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst) {
    vq::bilinear::greenFirst(src, height, width, Bgr8Store(dst, true));
    return 0;
}
int32_t gb8ToBgra8_bilinear(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst) {
    vq::bilinear::greenFirst(src, height, width, Bgra8Store(dst, false));
    return 0;
}
int32_t gr8ToBgra8_bilinear(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst) {
    vq::bilinear::greenFirst(src, height, width, Bgra8Store(dst, true));
    return 0;
}

int32_t rg8ToBgr8P_bilinear(const uint8_t *src, int32_t height, int32_t width, uint8_t *planeR, uint8_t *planeG,
                            uint8_t *planeB) {
    vq::bilinear::rggb(src, height, width, PlanarStore{planeR, planeG, planeB});
    return 0;
}
// GRBG read as GBRG: what the pieces compute as red is the frame's blue, so it goes to planeB.
int32_t gr8ToBgr8P_bilinear(const uint8_t *src, int32_t height, int32_t width, uint8_t *planeR, uint8_t *planeG,
                            uint8_t *planeB) {
    vq::bilinear::greenFirst(src, height, width, PlanarStore{planeB, planeG, planeR});
    return 0;
}

int32_t rg8ToMono8_bilinear(const uint8_t *src, int32_t height, int32_t width, const uint32_t *weights, uint8_t *dst) {
    vq::bilinear::rggb(src, height, width, lumaStore(dst, weights));
    return 0;
}
// GRBG read as GBRG: the pieces' red is the frame's blue, so they weigh it with the blue weight. The
// reversed weights are a local copy; the caller's array is only read.
int32_t gr8ToMono8_bilinear(const uint8_t *src, int32_t height, int32_t width, const uint32_t *weights, uint8_t *dst) {
    const uint32_t reversed[3] = {weights[2], weights[1], weights[0]};
    vq::bilinear::greenFirst(src, height, width, lumaStore(dst, reversed));
    return 0;
}
