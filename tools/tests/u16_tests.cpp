// End-to-end tests of the 16-bit mode of velqora-convert: the tool's raw output is what the library's
// full-depth entry point writes for the same bytes, for unpacked and packed input of every phase and
// every method, and what the exported 16-bit functions write where they apply.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

#include "harness.h"
#include "velqora.h"

namespace {

using namespace vqtt;

using Samples = std::vector<uint16_t>;

Bytes asBytes(const Samples &s) {
    Bytes b(2 * s.size());
    std::memcpy(b.data(), s.data(), b.size());
    return b;
}

// Two 12-bit samples in three bytes: high bits in the first and third byte, low nibbles in the middle.
Bytes packed12(const Samples &s) {
    Bytes b;
    for (size_t i = 0; i < s.size(); i += 2)
        b.insert(b.end(), {uint8_t(s[i] >> 4), uint8_t((s[i] & 15) | (s[i + 1] & 15) << 4), uint8_t(s[i + 1] >> 4)});
    return b;
}

// B, G, R samples of the library's full-depth entry point for a frame's bytes.
Samples library16(const Bytes &in, uint32_t code, int32_t stride, int h, int w, uint32_t method) {
    ProcessingHandle *handle = nullptr;
    vqpCreate(&handle);
    Samples out(size_t(3 * w * h));
    ImageFrame frame{h, w, code, const_cast<uint8_t *>(in.data()), stride}, o{0, 0, 0, out.data(), 0};
    EXPECT_EQ(vqpDemosaicing16(handle, &frame, method, &o, 1), VQP_OK);
    vqpRelease(&handle);
    return out;
}

TEST_F(ToolTest, U16MatchesTheLibrary) {
    std::mt19937 rng(13);
    const int w = 14, h = 11;
    Samples s(size_t(w * h));
    for (auto &v : s) v = uint16_t(rng() & 0xFFF);
    write(path("in.raw"), asBytes(s));
    write(path("in.packed"), packed12(s));
    struct Case {
        const char *format, *method, *file;
        uint32_t code, methodCode;
    } cases[] = {{"BayerRG12", "bilinear", "in.raw", VQP_PIXEL_FORMAT_BAYER_RG12, VQP_METHOD_BILINEAR},
                 {"BayerGB12", "bilinear", "in.raw", VQP_PIXEL_FORMAT_BAYER_GB12, VQP_METHOD_BILINEAR},
                 {"BayerBG12Packed", "nearest", "in.packed", VQP_PIXEL_FORMAT_BAYER_BG12_PACKED, VQP_METHOD_NEAREST},
                 {"BayerRG12", "edge", "in.raw", VQP_PIXEL_FORMAT_BAYER_RG12, VQP_METHOD_EDGE},
                 {"BayerGR12Packed", "edge", "in.packed", VQP_PIXEL_FORMAT_BAYER_GR12_PACKED, VQP_METHOD_EDGE},
                 {"BayerGB14", "edge", "in.raw", VQP_PIXEL_FORMAT_BAYER_GB14, VQP_METHOD_EDGE},
                 {"BayerBG12Packed", "edge", "in.packed", VQP_PIXEL_FORMAT_BAYER_BG12_PACKED, VQP_METHOD_EDGE}};
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.format) + " " + c.method);
        const Result r = run({"--u16", "-f", c.format, "-W", std::to_string(w), "-H", std::to_string(h), "-m",
                              c.method, "-q", path(c.file), "-o", path("out.raw")});
        ASSERT_EQ(r.exitCode, 0) << r.err;
        const bool packed = std::string(c.file) == "in.packed";
        const Bytes in = bytes(path(c.file));
        EXPECT_EQ(bytes(path("out.raw")), asBytes(library16(in, c.code, packed ? w + w / 2 : 2 * w, h, w, c.methodCode)));
    }
    // The exported RGGB functions where they apply: bilinear at any depth, edge-directed at 12 bits.
    Samples expected(3 * s.size());
    using Driver = int32_t (*)(const uint16_t *, uint32_t, uint32_t, uint16_t *);
    const std::pair<const char *, Driver> drivers[] = {{"bilinear", vqpDemosaicingBilinearU16},
                                                        {"edge", demosaicingEdgeRGGBU16}};
    for (const auto &[method, driver] : drivers) {
        ASSERT_EQ(run({"--u16", "-f", "BayerRG12", "-W", "14", "-H", "11", "-m", method, "-q", path("in.raw"), "-o",
                       path("out.raw")}).exitCode, 0);
        ASSERT_EQ(driver(s.data(), uint32_t(h), uint32_t(w), expected.data()), 0);
        EXPECT_EQ(bytes(path("out.raw")), asBytes(expected)) << method;
    }
    // Bayer 14-bit formats exist for the 16-bit mode only.
    const Result r = run({"-f", "BayerRG14", "-W", "14", "-H", "11", path("in.raw"), "-o", path("out.png")});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_NE(r.err.find("--u16"), std::string::npos) << r.err;
}

// A smooth 16-bit "photo" sampled in every phase: the full-depth edge-directed output of the RGGB mosaic
// (no 4095 clamp at 16 bits) is as close to the photo as those of the GRBG and GBRG mosaics (phases differ
// by a few dB at the borders of a frame this small), for even and odd widths and heights. Clamped at 4095
// it would be near 7 dB.
TEST_F(ToolTest, U16RggbKeepsTheFullRange) {
    const int sizes[][2] = {{40, 30}, {39, 30}, {39, 31}};
    for (const auto &size : sizes) {
        const int w = size[0], h = size[1];
        std::vector<double> photo(size_t(3 * w * h)); // R, G, B
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                for (int c = 0; c < 3; ++c)
                    photo[size_t(3 * (y * w + x) + c)] =
                        32768 + 30000 * std::sin(0.0225 * (x + y) * (c + 1) + c) * std::cos(0.03 * (x - y));
        const auto mosaic = [&](int redRowParity, int redColParity) {
            Samples s(size_t(w * h));
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) {
                    const bool redRow = y % 2 == redRowParity, redCol = x % 2 == redColParity;
                    const int c = redRow && redCol ? 0 : (!redRow && !redCol ? 2 : 1);
                    s[size_t(y * w + x)] = uint16_t(photo[size_t(3 * (y * w + x) + c)]);
                }
            return s;
        };
        const auto psnr = [&](const char *format, const Samples &s) {
            write(path("in.raw"), asBytes(s));
            const Result r = run({"--u16", "-f", format, "-W", std::to_string(w), "-H", std::to_string(h), "-m",
                                  "edge", "-q", path("in.raw"), "-o", path("out.raw")});
            EXPECT_EQ(r.exitCode, 0) << r.err;
            const Bytes out = bytes(path("out.raw"));
            double se = 0;
            for (int i = 0; i < w * h; ++i)
                for (int c = 0; c < 3; ++c) { // the raw output is B, G, R
                    uint16_t v;
                    std::memcpy(&v, &out[size_t(2 * (3 * i + (2 - c)))], 2);
                    const double d = v - photo[size_t(3 * i + c)];
                    se += d * d;
                }
            return 10 * std::log10(65535.0 * 65535.0 / (se / (3.0 * w * h)));
        };
        const double rggb = psnr("BayerRG16", mosaic(0, 0)), grbg = psnr("BayerGR16", mosaic(0, 1)),
                     gbrg = psnr("BayerGB16", mosaic(1, 0));
        EXPECT_GT(std::min(grbg, gbrg), 40.0);
        EXPECT_GT(rggb, std::min(grbg, gbrg) - ((w & h & 1) ? 2.5 : 1.0)) // odd by odd: more border
            << w << " x " << h << ": RGGB " << rggb << " dB, GRBG " << grbg << " dB, GBRG " << gbrg << " dB";
    }
}

} // namespace
