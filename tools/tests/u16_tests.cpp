// End-to-end tests of the 16-bit mode of velqora-convert: the tool's raw output is what the library's
// full-depth entry point writes for the same bytes, for unpacked and packed input of every phase and
// every method, and what the exported 16-bit functions write where they apply; a 16-bit ramp keeps its range.
#include <algorithm>
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
    // The tool's raw output for an input file, or nothing when it fails.
    const auto convert = [&](const char *format, int w, int h, const char *method, const char *file) {
        const Result r = run({"--u16", "-f", format, "-W", std::to_string(w), "-H", std::to_string(h), "-m", method,
                              "-q", path(file), "-o", path("out.raw")});
        EXPECT_EQ(r.exitCode, 0) << format << " " << method << ": " << r.err;
        return r.exitCode == 0 ? bytes(path("out.raw")) : Bytes{};
    };
    std::mt19937 rng(13);
    const int w = 14, h = 11;
    Samples s(size_t(w * h));
    for (auto &v : s) v = uint16_t(rng() & 0xFFF);
    write(path("in.raw"), asBytes(s));
    write(path("in.packed"), packed12(s));
    const struct {
        const char *format, *method;
        uint32_t code, methodCode;
    } cases[] = {{"BayerRG12", "bilinear", VQP_PIXEL_FORMAT_BAYER_RG12, VQP_METHOD_BILINEAR},
                 {"BayerGB12", "bilinear", VQP_PIXEL_FORMAT_BAYER_GB12, VQP_METHOD_BILINEAR},
                 {"BayerBG12Packed", "nearest", VQP_PIXEL_FORMAT_BAYER_BG12_PACKED, VQP_METHOD_NEAREST},
                 {"BayerRG12", "edge", VQP_PIXEL_FORMAT_BAYER_RG12, VQP_METHOD_EDGE},
                 {"BayerGR12Packed", "edge", VQP_PIXEL_FORMAT_BAYER_GR12_PACKED, VQP_METHOD_EDGE},
                 {"BayerGB14", "edge", VQP_PIXEL_FORMAT_BAYER_GB14, VQP_METHOD_EDGE},
                 {"BayerBG12Packed", "edge", VQP_PIXEL_FORMAT_BAYER_BG12_PACKED, VQP_METHOD_EDGE}};
    for (const auto &c : cases) {
        const bool packed = std::strstr(c.format, "Packed") != nullptr;
        const char *file = packed ? "in.packed" : "in.raw";
        EXPECT_EQ(convert(c.format, w, h, c.method, file),
                  asBytes(library16(bytes(path(file)), c.code, packed ? w + w / 2 : 2 * w, h, w, c.methodCode)))
            << c.format << " " << c.method;
    }
    // The exported RGGB functions where they apply: bilinear at any depth, edge-directed at 12 bits.
    Samples expected(3 * s.size());
    using Driver = int32_t (*)(const uint16_t *, uint32_t, uint32_t, uint16_t *);
    const std::pair<const char *, Driver> drivers[] = {{"bilinear", vqpDemosaicingBilinearU16},
                                                        {"edge", demosaicingEdgeRGGBU16}};
    for (const auto &[method, driver] : drivers) {
        ASSERT_EQ(driver(s.data(), uint32_t(h), uint32_t(w), expected.data()), 0);
        EXPECT_EQ(convert("BayerRG12", w, h, method, "in.raw"), asBytes(expected)) << method;
    }
    // A 16-bit RGGB ramp (up to 63,630) keeps its range whatever the method: nothing stuck at 4095.
    Samples ramp;
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x) ramp.push_back(uint16_t((x + y) * 505));
    write(path("in.raw"), asBytes(ramp));
    for (const char *method : {"nearest", "bilinear", "edge"}) {
        const Bytes out = convert("BayerRG16", 64, 64, method, "in.raw");
        ASSERT_EQ(out.size(), 2 * 3 * ramp.size()) << method;
        Samples v(3 * ramp.size());
        std::memcpy(v.data(), out.data(), out.size());
        EXPECT_EQ(std::count(v.begin(), v.end(), 4095), 0) << method;
        EXPECT_GT(*std::max_element(v.begin(), v.end()), 60000) << method;
    }
    // Bayer 14-bit formats exist for the 16-bit mode only.
    const Result r = run({"-f", "BayerRG14", "-W", "14", "-H", "11", path("in.raw"), "-o", path("out.png")});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_NE(r.err.find("--u16"), std::string::npos) << r.err;
}

} // namespace
