// End-to-end tests of velqora-convert's development options: the tool's raw output is what vqpDevelop and
// vqpDevelop16 write with the same settings (without them the tool's tests of plain conversions hold); each
// bad value is refused in one line that names its option, and nothing is written.
#include <cstring>
#include <random>

#include "harness.h"
#include "velqora.h"

namespace {

using namespace vqtt;

// The library's development of a 12-bit frame (16-bit containers) with the settings of the command line
// below: black 64,70,70,80, white 4000, gains 1.8,1,1.4, a matrix, sRGB (or gamma 2.2 at 16 bits).
Bytes library(const Bytes &in, int h, int w, uint32_t method, bool wide) {
    ProcessingHandle *handle = nullptr;
    vqpCreate(&handle);
    const float black[4] = {64, 70, 70, 80}, gains[3] = {1.8f, 1, 1.4f};
    const float matrix[9] = {1.6f, -0.4f, -0.2f, -0.3f, 1.5f, -0.2f, 0.1f, -0.5f, 1.4f};
    vqpSetBlackLevel(handle, black), vqpSetWhiteLevel(handle, 4000), vqpSetBalanceRatio(handle, gains);
    vqpSetColorTransformation(handle, matrix), vqpSetTransfer(handle, wide ? VQP_TRANSFER_GAMMA : VQP_TRANSFER_SRGB, 2.2f);
    Bytes out(size_t(6 * w * h));
    ImageFrame frame{h, w, VQP_PIXEL_FORMAT_BAYER_GB12, const_cast<uint8_t *>(in.data()), 2 * w};
    ImageFrame o{0, 0, 0, out.data(), 0};
    EXPECT_EQ(wide ? vqpDevelop16(handle, &frame, method, &o, 1) : vqpDevelop(handle, &frame, method, &o, 1), VQP_OK);
    vqpRelease(&handle);
    out.resize(size_t((wide ? 6 : 3) * w * h));
    return out;
}

TEST_F(ToolTest, DevelopMatchesTheLibrary) {
    std::mt19937 rng(29);
    const int w = 21, h = 14;
    Bytes in(size_t(2 * w * h));
    for (size_t i = 0; i < in.size(); i += 2) {
        const uint16_t v = uint16_t(rng() & 0xFFF);
        std::memcpy(&in[i], &v, 2);
    }
    write(path("in.raw"), in);
    const std::vector<std::string> common = {"-f", "BayerGB12", "-W", std::to_string(w), "-H", std::to_string(h),
                                             "--black", "64,70,70,80", "--white", "4000", "--balance", "1.8,1,1.4",
                                             "--matrix", "1.6,-0.4,-0.2,-0.3,1.5,-0.2,0.1,-0.5,1.4", "-q", path("in.raw")};
    for (uint32_t method : {VQP_METHOD_BILINEAR, VQP_METHOD_EDGE})
        for (bool wide : {false, true}) {
            std::vector<std::string> args = common;
            args.insert(args.end(), {"-m", method == VQP_METHOD_EDGE ? "edge" : "bilinear", "--transfer",
                                     wide ? "2.2" : "srgb", "--output", "BGR8", "-o", path("out.raw")});
            if (wide) args.erase(args.end() - 4, args.end() - 2), args.push_back("--u16");
            const Result r = run(args);
            ASSERT_EQ(r.exitCode, 0) << r.err;
            EXPECT_EQ(bytes(path("out.raw")), library(in, h, w, method, wide)) << "method " << method << " wide " << wide;
        }
}

TEST_F(ToolTest, DevelopOptionsRefusedByName) {
    write(path("in.raw"), Bytes(2 * 8 * 8, 0x01));
    const struct {
        const char *option, *value;
    } cases[] = {{"--black", "x"},        {"--black", "1,2"},     {"--black", "-5"},     {"--white", "0"},
                 {"--white", "nan"},      {"--balance", "1,2"},   {"--balance", "1,-1,1"}, {"--matrix", "1,0,0"},
                 {"--matrix", "1,0,0,0,1,0,0,0,inf"}, {"--transfer", "cubic"}, {"--transfer", "11"}};
    for (const auto &c : cases) {
        const Result r = run({"-f", "BayerRG12", "-W", "8", "-H", "8", c.option, c.value, path("in.raw"), "-o",
                              path("out.png")});
        EXPECT_EQ(r.exitCode, 2) << c.option << " " << c.value;
        EXPECT_NE(r.err.find(c.option), std::string::npos) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    }
    // A black level above the white level, and above the depth's maximum: refused naming the options.
    for (const std::vector<std::string> &extra : {std::vector<std::string>{"--black", "500", "--white", "400"},
                                                  std::vector<std::string>{"--black", "5000"}}) {
        std::vector<std::string> args = {"-f", "BayerRG12", "-W", "8", "-H", "8", path("in.raw"), "-o", path("out.png")};
        args.insert(args.end(), extra.begin(), extra.end());
        const Result r = run(args);
        EXPECT_EQ(r.exitCode, 2) << r.err;
        EXPECT_NE(r.err.find("--black"), std::string::npos) << r.err;
    }
    EXPECT_EQ(listing(), std::vector<std::string>{"in.raw"});
}

} // namespace
