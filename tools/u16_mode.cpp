// The 16-bit mode: Bayer frames of 10 to 16 bits are demosaiced at full depth by the library's 16-bit
// entry points (bilinear for RGGB, edge-directed for every phase) into 16-bit PNG, PPM or raw files.
#include <chrono>
#include <utility>
#include <cstring>
#include <string>
#include <vector>

#include "tool.h"
#include "velqora.h"

namespace vqtool {
namespace {

// The edge-directed drivers check no sizes; like every entry point they need 4 rows and columns.
constexpr int32_t kEdgeMinSide = 4;

// The frame's samples at full depth, rows packed. Packed pairs keep the high 8 bits in the first and
// third byte and the low bits in the middle byte (first sample's in the low nibble).
std::vector<uint16_t> fullDepthSamples(const LoadedInput &in) {
    const InputFormat &f = in.format;
    const size_t w = size_t(in.width), h = size_t(in.height);
    std::vector<uint16_t> s(w * h);
    if (!f.packed) {
        for (size_t y = 0; y < h; ++y)
            std::memcpy(s.data() + y * w, in.bytes.data() + y * size_t(in.stride), 2 * w);
        return s;
    }
    const int low = f.bits - 8;
    const unsigned lowMask = (1u << low) - 1;
    auto pair = [&](const uint8_t *p, uint16_t *out, bool second) {
        out[0] = uint16_t((unsigned(p[0]) << low) | (p[1] & lowMask));
        if (second) out[1] = uint16_t((unsigned(p[2]) << low) | ((p[1] >> 4) & lowMask));
    };
    const bool stream = uint64_t(in.stride) == defaultStride(f, w);
    if (stream) {
        for (size_t i = 0; i < w * h; i += 2) pair(in.bytes.data() + i / 2 * 3, s.data() + i, i + 1 < w * h);
    } else {
        for (size_t y = 0; y < h; ++y)
            for (size_t x = 0; x < w; x += 2)
                pair(in.bytes.data() + y * size_t(in.stride) + x / 2 * 3, s.data() + y * w + x, x + 1 < w);
    }
    return s;
}

// Sample values widened to 16 bits by repeating their top bits, as PNG readers expect.
uint16_t widen(uint32_t v, int bits) {
    if (bits >= 16) return uint16_t(v);
    return uint16_t((v << (16 - bits)) | (v >> (2 * bits - 16 > 0 ? 2 * bits - 16 : 0)));
}

// RGGB frames deeper than 12 bits by the edge-directed method: the RGGB driver clamps interpolated values
// at 4095, so the frame goes through a driver that keeps the full 16-bit range, mirrored so that its
// pattern becomes that driver's, and the result is mirrored back: left to right (GRBG) when the width is
// even, else upside down (GBRG) when the height is even. When both are odd the frame first gets one more
// column, a copy of column w - 2 (the colours the missing column would have), dropped afterwards.
int32_t edgeRggbFullRange(ProcessingHandle *handle, const std::vector<uint16_t> &src, uint32_t h, uint32_t w,
                          std::vector<uint16_t> &bgr, uint32_t threads) {
    const bool flipRows = (w & 1) != 0 && (h & 1) == 0;
    const size_t W = flipRows ? w : w + (w & 1);
    // Position (y, x) of the mirrored frame comes from (y', x') of the original.
    const auto from = [&](size_t y, size_t x) -> std::pair<size_t, size_t> {
        if (flipRows) return {h - 1 - y, x};
        const size_t column = W - 1 - x;
        return {y, column < w ? column : w - 2};
    };
    std::vector<uint16_t> mirrored(W * h), out(3 * W * h);
    for (size_t y = 0; y < h; ++y)
        for (size_t x = 0; x < W; ++x) {
            const auto [sy, sx] = from(y, x);
            mirrored[y * W + x] = src[sy * w + sx];
        }
    const int32_t status = vqpDemosaicingEdgeU16Parallel(
        handle, mirrored.data(), h, uint32_t(W), out.data(),
        flipRows ? VQP_PIXEL_FORMAT_BAYER_GB16 : VQP_PIXEL_FORMAT_BAYER_GR16, threads);
    for (size_t y = 0; y < h; ++y)
        for (size_t x = 0; x < W; ++x) {
            const auto [sy, sx] = from(y, x);
            if (!flipRows && W - 1 - x >= w) continue; // the added column
            for (size_t c = 0; c < 3; ++c) bgr[3 * (sy * w + sx) + c] = out[3 * (y * W + x) + c];
        }
    return status;
}

} // namespace

double convertU16(const LoadedInput &in, Method method, const std::string &outPath, FileKind kind,
                  ProcessingHandle *handle, uint32_t threads) {
    const InputFormat &f = in.format;
    if (f.phase[0] == '\0')
        throw Failure(kExitUsage, f.name + " is monochrome: the 16-bit mode demosaics Bayer frames, leave out --u16");
    if (f.bits == 8)
        throw Failure(kExitUsage, f.name + " has 8-bit samples: leave out --u16 or give a 10 to 16-bit format");
    const std::string phase = f.phase;
    if (method == Method::Bilinear && phase != "RG")
        throw Failure(kExitUsage, "16-bit bilinear takes RGGB mosaics (BayerRG...) only: use --method edge for " + f.name);
    if (method == Method::Edge && (in.height < kEdgeMinSide || in.width < kEdgeMinSide))
        throw Failure(kExitLibrary, in.path + ": a " + std::to_string(in.width) + " x " + std::to_string(in.height) +
                                        " frame is too small: frames need at least " +
                                        std::to_string(kEdgeMinSide) + " rows and columns " +
                                        statusTag(VQP_ERR_BAD_DIMENSIONS));

    const std::vector<uint16_t> src = fullDepthSamples(in);
    const uint32_t h = uint32_t(in.height), w = uint32_t(in.width);
    std::vector<uint16_t> bgr(size_t(3) * src.size());
    const auto start = std::chrono::steady_clock::now();
    int32_t status = VQP_OK;
    if (method == Method::Bilinear) {
        status = vqpDemosaicingBilinearU16Parallel(handle, src.data(), h, w, bgr.data(), threads);
    } else if (phase == "RG" && f.bits > 12) {
        status = edgeRggbFullRange(handle, src, h, w, bgr, threads);
    } else {
        const uint32_t phaseCode = phase == "RG"   ? VQP_PIXEL_FORMAT_BAYER_RG16
                                   : phase == "GR" ? VQP_PIXEL_FORMAT_BAYER_GR16
                                   : phase == "GB" ? VQP_PIXEL_FORMAT_BAYER_GB16
                                                   : VQP_PIXEL_FORMAT_BAYER_BG16;
        status = vqpDemosaicingEdgeU16Parallel(handle, src.data(), h, w, bgr.data(), phaseCode, threads);
    }
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    if (status != VQP_OK) {
        const std::string what = status == VQP_ERR_BAD_DIMENSIONS
                                     ? "a " + std::to_string(w) + " x " + std::to_string(h) +
                                           " frame is too small: frames need at least 4 rows and columns "
                                     : "the library refused the frame ";
        throw Failure(kExitLibrary, in.path + ": " + what + statusTag(status));
    }

    AtomicFile file(outPath);
    if (kind == FileKind::Raw) {
        std::fwrite(bgr.data(), 2, bgr.size(), file.stream());
    } else {
        // Image files get R, G, B, limited to the format's depth (edge-directed values may overshoot it).
        const uint32_t top = (1u << f.bits) - 1;
        std::vector<uint16_t> rgb(bgr.size());
        for (size_t i = 0; i < bgr.size(); i += 3) {
            const uint16_t px[3] = {bgr[i + 2], bgr[i + 1], bgr[i]};
            for (int c = 0; c < 3; ++c) {
                const uint32_t v = px[c] > top ? top : px[c];
                rgb[i + size_t(c)] = kind == FileKind::Png ? widen(v, f.bits) : uint16_t(v);
            }
        }
        if (kind == FileKind::Png)
            writePng(file, in.width, in.height, 3, 16, rgb.data(), f.bits);
        else
            writePnm(file, in.width, in.height, 3, 16, rgb.data(), f.bits);
    }
    file.commit();
    return ms;
}

} // namespace vqtool
