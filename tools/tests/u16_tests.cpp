// End-to-end tests of the 16-bit mode of velqora-convert: the tool's raw
// output is what the library's 16-bit entry points write for the same samples, for unpacked and packed
// input of every phase.
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

TEST_F(ToolTest, U16MatchesTheLibrary) {
    std::mt19937 rng(13);
    const int w = 14, h = 11;
    Samples s(size_t(w * h));
    for (auto &v : s) v = uint16_t(rng() & 0xFFF);
    write(path("in.raw"), asBytes(s));
    write(path("in.packed"), packed12(s));
    struct Case {
        const char *format, *method, *file;
        int32_t (*run)(const uint16_t *, uint32_t, uint32_t, uint16_t *);
    } cases[] = {{"BayerRG12", "bilinear", "in.raw", vqpDemosaicingBilinearU16},
                 {"BayerRG12", "edge", "in.raw", demosaicingEdgeRGGBU16},
                 {"BayerGR12Packed", "edge", "in.packed", demosaicingEdgeGRBGU16},
                 {"BayerGB12", "edge", "in.raw", demosaicingEdgeGBRGU16},
                 {"BayerBG12Packed", "edge", "in.packed", demosaicingEdgeBGGRU16}};
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.format) + " " + c.method);
        const Result r = run({"--u16", "-f", c.format, "-W", std::to_string(w), "-H", std::to_string(h), "-m",
                              c.method, "-q", path(c.file), "-o", path("out.raw")});
        ASSERT_EQ(r.exitCode, 0) << r.err;
        Samples expected(3 * s.size());
        ASSERT_EQ(c.run(s.data(), uint32_t(h), uint32_t(w), expected.data()), 0);
        EXPECT_EQ(bytes(path("out.raw")), asBytes(expected));
    }
    const Result r = run({"--u16", "-f", "BayerGB12", "-W", "14", "-H", "11", "-m", "bilinear", path("in.raw"), "-o",
                          path("out.raw")});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_NE(r.err.find("RGGB"), std::string::npos) << r.err;
}

} // namespace
