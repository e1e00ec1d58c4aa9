// Test support: random mosaics, a colour image as the per-pixel models produce it, and the bytes the
// library must write for it in each output format.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "velqora.h"

namespace vqt {

struct Rgb {
    int r, g, b;
    bool operator==(const Rgb &) const = default;
};

// A colour image in the frame's own colours (red is red whatever the phase), row-major.
struct Image {
    int h = 0, w = 0;
    std::vector<Rgb> px;
    Image(int height, int width) : h(height), w(width), px(size_t(height) * size_t(width)) {}
    Rgb &at(int y, int x) { return px[size_t(y) * size_t(w) + size_t(x)]; }
    const Rgb &at(int y, int x) const { return px[size_t(y) * size_t(w) + size_t(x)]; }
};

// A mosaic of 8-bit samples, rows packed.
struct Mosaic {
    int h = 0, w = 0;
    std::vector<uint8_t> s;
    Mosaic(int height, int width) : h(height), w(width), s(size_t(height) * size_t(width)) {}
    int operator()(int y, int x) const { return s[size_t(y) * size_t(w) + size_t(x)]; }
};

inline Mosaic randomMosaic(int h, int w, std::mt19937 &rng) {
    Mosaic m(h, w);
    std::uniform_int_distribution<int> d(0, 255);
    for (auto &v : m.s) v = uint8_t(d(rng));
    return m;
}

// The four phases, named by their top-left 2x2 cell read row by row.
enum class Phase { RG, GR, GB, BG };
constexpr Phase kPhases[] = {Phase::RG, Phase::GR, Phase::GB, Phase::BG};
inline const char *phaseName(Phase p) {
    static constexpr const char *kNames[] = {"RGGB", "GRBG", "GBRG", "BGGR"};
    return kNames[int(p)];
}
inline uint32_t phaseCode(Phase p) {
    static constexpr uint32_t kCodes[] = {VQP_PIXEL_FORMAT_BAYER_RG8, VQP_PIXEL_FORMAT_BAYER_GR8,
                                          VQP_PIXEL_FORMAT_BAYER_GB8, VQP_PIXEL_FORMAT_BAYER_BG8};
    return kCodes[int(p)];
}
// Colour of the site (y, x): 'R', 'G' or 'B'.
inline char siteColour(Phase p, int y, int x) { return phaseName(p)[2 * (y & 1) + (x & 1)]; }

constexpr uint64_t kOutputFormats[] = {VQP_PIXEL_FORMAT_BGR8,        VQP_PIXEL_FORMAT_RGB8,
                                       VQP_PIXEL_FORMAT_BGRA8,       VQP_PIXEL_FORMAT_RGBA8,
                                       VQP_PIXEL_FORMAT_RGB8_PLANAR, VQP_PIXEL_FORMAT_BGR8_PLANAR,
                                       VQP_PIXEL_FORMAT_MONO8};

inline size_t outputBytes(uint64_t config, int h, int w) {
    const size_t n = size_t(h) * size_t(w);
    switch (config) {
    case VQP_PIXEL_FORMAT_BGRA8:
    case VQP_PIXEL_FORMAT_RGBA8: return 4 * n;
    case VQP_PIXEL_FORMAT_MONO8: return n;
    default: return 3 * n;
    }
}

inline uint8_t luma(const Rgb &c) { return uint8_t((77u * c.r + 150u * c.g + 29u * c.b + 128u) >> 8); }

// The bytes of `img` in output format `config`. 4-byte formats get `alpha` in byte 3; a negative
// alpha takes byte 3 from `keep` (for kernels that never write it).
inline std::vector<uint8_t> encode(const Image &img, uint64_t config, int alpha = 0,
                                   const std::vector<uint8_t> *keep = nullptr) {
    const size_t n = img.px.size();
    const bool redFirst = config == VQP_PIXEL_FORMAT_RGB8 || config == VQP_PIXEL_FORMAT_RGBA8 ||
                          config == VQP_PIXEL_FORMAT_RGB8_PLANAR;
    std::vector<uint8_t> out(outputBytes(config, img.h, img.w));
    for (size_t i = 0; i < n; ++i) {
        const Rgb &c = img.px[i];
        const uint8_t first = uint8_t(redFirst ? c.r : c.b), g = uint8_t(c.g), last = uint8_t(redFirst ? c.b : c.r);
        switch (config) {
        case VQP_PIXEL_FORMAT_MONO8: out[i] = luma(c); break;
        case VQP_PIXEL_FORMAT_RGB8_PLANAR:
        case VQP_PIXEL_FORMAT_BGR8_PLANAR: out[i] = first, out[n + i] = g, out[2 * n + i] = last; break;
        case VQP_PIXEL_FORMAT_BGRA8:
        case VQP_PIXEL_FORMAT_RGBA8:
            out[4 * i] = first, out[4 * i + 1] = g, out[4 * i + 2] = last;
            out[4 * i + 3] = alpha >= 0 ? uint8_t(alpha) : (*keep)[4 * i + 3];
            break;
        default: out[3 * i] = first, out[3 * i + 1] = g, out[3 * i + 2] = last;
        }
    }
    return out;
}

// Runs vqpDemosaicing on one frame with a fresh handle and returns the status and the output bytes;
// the output buffer is exactly sized and pre-filled with `fill`.
struct Run {
    int32_t status;
    std::vector<uint8_t> out;
};
inline Run convertFrame(int h, int w, uint32_t code, void *data, int32_t stride, uint64_t config, uint32_t method,
                        uint8_t fill = 0xA5) {
    ProcessingHandle *handle = nullptr;
    vqpCreate(&handle);
    vqpDemosaicSetConfig(handle, &config);
    Run r{0, std::vector<uint8_t>(outputBytes(config, h, w), fill)};
    ImageFrame fi{h, w, code, data, stride}, fo{0, 0, 0, r.out.data(), 0};
    r.status = vqpDemosaicing(handle, &fi, method, &fo);
    vqpRelease(&handle);
    return r;
}
// The same for an 8-bit mosaic of the given phase.
inline Run demosaic(const Mosaic &m, Phase p, uint64_t config, uint32_t method, uint8_t fill = 0xA5) {
    std::vector<uint8_t> in = m.s;
    return convertFrame(m.h, m.w, phaseCode(p), in.data(), m.w, config, method, fill);
}

} // namespace vqt
