// End-to-end tests of velqora-convert: the tool is run as a process on files made here, and what it
// writes is compared with what the library itself produces for the same frame.
#include <png.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <sstream>

#include "harness.h"
#include "velqora.h"

namespace {

using namespace vqtt;

// What the library writes for a frame held in `frame` (a zeroed output buffer, as the tool uses).
Bytes library(Bytes frame, int32_t h, int32_t w, int32_t stride, uint32_t format, uint64_t config, uint32_t method) {
    ProcessingHandle *handle = nullptr;
    vqpCreate(&handle);
    EXPECT_EQ(vqpDemosaicSetConfig(handle, &config), VQP_OK);
    const size_t n = size_t(h) * size_t(w);
    Bytes out(config == VQP_PIXEL_FORMAT_MONO8 ? n : (config >> 16 & 0xFF) == 0x20 ? 4 * n : 3 * n);
    frame.resize(frame.size() + 64);
    ImageFrame in{h, w, format, frame.data(), stride}, dst{0, 0, 0, out.data(), 0};
    EXPECT_EQ(vqpDemosaicing(handle, &in, method, &dst), VQP_OK);
    vqpRelease(&handle);
    return out;
}

struct Format {
    const char *name;
    uint32_t code;
    int bits;
    bool packed;
};
const Format kFormats[] = {
    {"Mono8", 0x01080001, 8, false},           {"Mono10", 0x01100003, 10, false},
    {"Mono12", 0x01100005, 12, false},         {"Mono14", 0x01100025, 14, false},
    {"Mono16", 0x01100007, 16, false},         {"Mono10Packed", 0x010C0004, 10, true},
    {"Mono12Packed", 0x010C0006, 12, true},    {"BayerGR8", 0x01080008, 8, false},
    {"BayerRG8", 0x01080009, 8, false},        {"BayerGB8", 0x0108000A, 8, false},
    {"BayerBG8", 0x0108000B, 8, false},        {"BayerGR10", 0x0110000C, 10, false},
    {"BayerRG10", 0x0110000D, 10, false},      {"BayerGB10", 0x0110000E, 10, false},
    {"BayerBG10", 0x0110000F, 10, false},      {"BayerGR12", 0x01100010, 12, false},
    {"BayerRG12", 0x01100011, 12, false},      {"BayerGB12", 0x01100012, 12, false},
    {"BayerBG12", 0x01100013, 12, false},      {"BayerGR16", 0x0110002E, 16, false},
    {"BayerRG16", 0x0110002F, 16, false},      {"BayerGB16", 0x01100030, 16, false},
    {"BayerBG16", 0x01100031, 16, false},      {"BayerGR10Packed", 0x010C0026, 10, true},
    {"BayerRG10Packed", 0x010C0027, 10, true}, {"BayerGB10Packed", 0x010C0028, 10, true},
    {"BayerBG10Packed", 0x010C0029, 10, true}, {"BayerGR12Packed", 0x010C002A, 12, true},
    {"BayerRG12Packed", 0x010C002B, 12, true}, {"BayerGB12Packed", 0x010C002C, 12, true},
    {"BayerBG12Packed", 0x010C002D, 12, true},
};
const std::pair<const char *, uint64_t> kOutputs[] = {
    {"BGR8", VQP_PIXEL_FORMAT_BGR8},       {"RGB8", VQP_PIXEL_FORMAT_RGB8},
    {"BGRA8", VQP_PIXEL_FORMAT_BGRA8},     {"RGBA8", VQP_PIXEL_FORMAT_RGBA8},
    {"RGB8_Planar", VQP_PIXEL_FORMAT_RGB8_PLANAR}, {"BGR8_Planar", VQP_PIXEL_FORMAT_BGR8_PLANAR},
    {"Mono8", VQP_PIXEL_FORMAT_MONO8},
};
const char *const kMethods[] = {"nearest", "bilinear", "edge"};

// A random frame as a camera would store it: rows of `stride` bytes, padding filled with noise.
Bytes randomFrame(const Format &f, int h, int w, int stride, std::mt19937 &rng) {
    Bytes b(f.packed && stride == w + w / 2 ? size_t(h * w * 3 + 1) / 2 : size_t(stride) * size_t(h));
    for (auto &v : b) v = uint8_t(rng());
    if (!f.packed && f.bits > 8) // keep 16-bit containers mostly in range, with some samples above it
        for (size_t i = 1; i < b.size(); i += 2) b[i] = uint8_t(b[i] & (rng() % 8 ? (1 << (f.bits - 8)) - 1 : 0xFF));
    return b;
}

struct Png {
    uint32_t w = 0, h = 0;
    int channels = 0;
    Bytes px; // 8-bit samples
};
Png readPng8(const std::string &p) {
    png_image img{};
    img.version = PNG_IMAGE_VERSION;
    Png r;
    if (!png_image_begin_read_from_file(&img, p.c_str())) return r;
    r.w = img.width, r.h = img.height;
    r.channels = (img.format & PNG_FORMAT_FLAG_COLOR) ? 3 : 1;
    img.format = r.channels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    r.px.resize(PNG_IMAGE_SIZE(img));
    png_image_finish_read(&img, nullptr, r.px.data(), 0, nullptr);
    return r;
}

// A greyscale PNG of 8 or 16-bit samples.
void writeGreyPng(const std::string &p, int w, int h, int bits, const std::vector<uint16_t> &s) {
    FILE *f = std::fopen(p.c_str(), "wb");
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, f);
    png_set_IHDR(png, info, png_uint_32(w), png_uint_32(h), bits, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    Bytes row(size_t(w) * size_t(bits / 8));
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const uint16_t v = s[size_t(y * w + x)];
            if (bits == 8) row[size_t(x)] = uint8_t(v);
            else row[size_t(2 * x)] = uint8_t(v >> 8), row[size_t(2 * x + 1)] = uint8_t(v);
        }
        png_write_row(png, row.data());
    }
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    std::fclose(f);
}

// Every input format, raw, in every method and output format (rotating), odd and even sizes, with and
// without row padding: the tool's .raw output is the library's own output, byte for byte.
TEST_F(ToolTest, RawRoundTrip) {
    std::mt19937 rng(7);
    int k = 0;
    for (const Format &f : kFormats) {
        const int h = 4 + int(rng() % 17), w = 4 + int(rng() % 17);
        const int packedRow = w + w / 2, row = f.packed ? packedRow : w * (f.bits > 8 ? 2 : 1);
        const int pad = f.packed ? 0 : 2 * int(rng() % 3);
        const int stride = row + pad + (f.packed && k % 2 ? 3 : 0); // packed: stream, or padded rows
        const Bytes frame = randomFrame(f, h, w, stride, rng);
        write(path("in.raw"), frame);
        const auto &[outName, config] = kOutputs[k % 7];
        const char *method = kMethods[k % 3];
        const Result r = run({"-f", f.name, "-W", std::to_string(w), "-H", std::to_string(h), "--stride",
                              std::to_string(stride), "-m", method, "--output", outName, "-q", path("in.raw"), "-o",
                              path("out.raw")});
        SCOPED_TRACE(std::string(f.name) + " " + outName + " " + method + " " + std::to_string(w) + "x" +
                     std::to_string(h) + " stride " + std::to_string(stride));
        ASSERT_EQ(r.exitCode, 0) << r.err;
        EXPECT_EQ(bytes(path("out.raw")), library(frame, h, w, stride, f.code, config, uint32_t(k % 3)));
        ++k;
    }
}

// PGM and PNG mosaics of 8 and 16 bits go through the library exactly as raw frames with the same
// samples; a packed format given for a 16-bit image gives the same result as its unpacked twin.
TEST_F(ToolTest, ImageMosaicsMatchTheLibrary) {
    std::mt19937 rng(11);
    const int w = 13, h = 10;
    std::vector<uint16_t> s8(size_t(w * h)), s12(size_t(w * h));
    for (auto &v : s8) v = uint16_t(rng() & 0xFF);
    for (auto &v : s12) v = uint16_t(rng() & 0xFFF);
    Bytes raw8(s8.begin(), s8.end()), raw12(2 * s12.size());
    std::memcpy(raw12.data(), s12.data(), raw12.size());
    writeGreyPng(path("m8.png"), w, h, 8, s8);
    writeGreyPng(path("m12.png"), w, h, 16, s12);
    std::string pgm = "P5\n# comment\n" + std::to_string(w) + " " + std::to_string(h) + "\n4095\n";
    for (uint16_t v : s12) pgm += char(v >> 8), pgm += char(v & 0xFF);
    write(path("m12.pgm"), Bytes(pgm.begin(), pgm.end()));

    struct Case {
        const char *file, *format;
        uint32_t code;
        const Bytes *frame;
        int stride;
    } cases[] = {{"m8.png", "BayerGB8", VQP_PIXEL_FORMAT_BAYER_GB8, &raw8, w},
                 {"m12.png", "BayerBG12", VQP_PIXEL_FORMAT_BAYER_BG12, &raw12, 2 * w},
                 {"m12.pgm", "0x01100010", VQP_PIXEL_FORMAT_BAYER_GR12, &raw12, 2 * w},
                 {"m12.png", "BayerRG12Packed", VQP_PIXEL_FORMAT_BAYER_RG12, &raw12, 2 * w},
                 {"m12.pgm", "Mono12", VQP_PIXEL_FORMAT_MONO12, &raw12, 2 * w}};
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.file) + " as " + c.format);
        const Result r = run({"-f", c.format, "-m", "nearest", "--output", "BGR8", "-q", path(c.file), "-o",
                              path("out.raw")});
        ASSERT_EQ(r.exitCode, 0) << r.err;
        EXPECT_EQ(bytes(path("out.raw")), library(*c.frame, h, w, c.stride, c.code, VQP_PIXEL_FORMAT_BGR8, 0));
    }
    // An 8-bit image for a 16-bit format is refused.
    const Result r = run({"-f", "BayerRG12", path("m8.png"), "-o", path("x.png")});
    EXPECT_EQ(r.exitCode, 3);
    EXPECT_NE(r.err.find("8-bit"), std::string::npos) << r.err;
}

// PNG output of every output format reads back as the frame in R, G, B order (grey for Mono8); PPM and
// PGM hold the same pixels after their header.
TEST_F(ToolTest, ImageFilesReadBack) {
    std::mt19937 rng(3);
    const int w = 11, h = 9;
    const Format &f = kFormats[9]; // BayerGB8
    const Bytes frame = randomFrame(f, h, w, w, rng);
    write(path("in.raw"), frame);
    const Bytes rgb = library(frame, h, w, w, f.code, VQP_PIXEL_FORMAT_RGB8, 0);
    const Bytes grey = library(frame, h, w, w, f.code, VQP_PIXEL_FORMAT_MONO8, 0);
    const std::vector<std::string> base{"-f", "BayerGB8", "-W", std::to_string(w), "-H", std::to_string(h),
                                        "-m", "nearest", "-q", path("in.raw")};
    for (const auto &[name, config] : kOutputs) {
        SCOPED_TRACE(name);
        std::vector<std::string> args = base;
        args.insert(args.end(), {"--output", name, "-o", path("out.png")});
        ASSERT_EQ(run(args).exitCode, 0);
        const Png png = readPng8(path("out.png"));
        const bool mono = config == VQP_PIXEL_FORMAT_MONO8;
        EXPECT_EQ(png.w, uint32_t(w));
        EXPECT_EQ(png.h, uint32_t(h));
        EXPECT_EQ(png.channels, mono ? 1 : 3);
        EXPECT_EQ(png.px, mono ? grey : rgb);
    }
    std::vector<std::string> args = base;
    args.insert(args.end(), {"-o", path("out.ppm")});
    ASSERT_EQ(run(args).exitCode, 0);
    const std::string header = "P6\n" + std::to_string(w) + " " + std::to_string(h) + "\n255\n";
    Bytes ppm(header.begin(), header.end());
    ppm.insert(ppm.end(), rgb.begin(), rgb.end());
    EXPECT_EQ(bytes(path("out.ppm")), ppm);
    args = base;
    args.insert(args.end(), {"-o", path("out.pgm")});
    ASSERT_EQ(run(args).exitCode, 0);
    const Bytes pgm = bytes(path("out.pgm"));
    ASSERT_GT(pgm.size(), grey.size());
    EXPECT_TRUE(std::equal(grey.begin(), grey.end(), pgm.end() - std::ptrdiff_t(grey.size())));
}

// Each bad command gives exactly one line on stderr that names the problem (and the library status
// where there is one), a distinct non-zero exit code, and leaves no file behind.
TEST_F(ToolTest, BadArgumentsGiveOneLineAndNoOutput) {
    write(path("in.raw"), Bytes(300, 7));
    const std::string in = path("in.raw"), out = path("out.png");
    struct Case {
        std::vector<std::string> args;
        int exitCode;
        std::vector<std::string> mentions;
    } cases[] = {
        {{"-f", "BayerXY8", "-W", "10", "-H", "10", in, "-o", out}, 2, {"BayerXY8", "-102", "--list-formats"}},
        {{"-f", "0x01080002", "-W", "10", "-H", "10", in, "-o", out}, 2, {"0x01080002", "-102"}},
        {{"-f", "BayerRG8", "-W", "20", "-H", "20", in, "-o", out}, 3, {"300 bytes", "needs 400", "--width"}},
        {{"-f", "BayerRG12Packed", "-W", "20", "-H", "12", in, "-o", out}, 3, {"needs 360"}},
        {{"-f", "BayerRG16", "-W", "15", "-H", "11", in, "-o", out}, 3, {"needs 330"}},
        {{"-f", "BayerRG8", "-W", "10", "-H", "3", in, "-o", out}, 4, {"height 3 is too small", "at least 4", "-104"}},
        {{"-f", "BayerRG8", "-W", "3", "-H", "10", in, "-o", out}, 4, {"width 3 is too small", "-104"}},
        {{"-f", "BayerRG8", "-W", "10", "-H", "10", "-m", "cubic", in, "-o", out}, 2, {"cubic", "nearest"}},
        {{"-f", "BayerRG8", "-W", "10", "-H", "10", "--output", "RGB16", in, "-o", out}, 2, {"RGB16", "-107"}},
        {{"-f", "BayerRG8", "-H", "10", in, "-o", out}, 2, {"--width"}},
        {{"-f", "BayerRG8", "-W", "10", "-H", "10", "--stride", "8", in, "-o", out}, 2, {"--stride 8", "10"}},
        {{"-f", "BayerRG8", "-W", "10", "-H", "10", "--output", "RGB8", in, "-o", path("out.pgm")}, 2, {".pgm"}},
        {{"-f", "BayerRG8", "-W", "10", "-H", "10", in, "-o", path("no/such/dir/out.png")}, 5, {"out.png"}},
        {{"-f", "BayerRG8", "-W", "10", "-H", "10", path("missing.raw"), "-o", out}, 3, {"missing.raw"}},
    };
    for (const Case &c : cases) {
        std::string cmd;
        for (const auto &a : c.args) cmd += a + " ";
        SCOPED_TRACE(cmd);
        const Result r = run(c.args);
        EXPECT_EQ(r.exitCode, c.exitCode);
        EXPECT_EQ(r.out, "");
        ASSERT_FALSE(r.err.empty());
        EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
        EXPECT_EQ(r.err.rfind("velqora-convert: ", 0), 0u) << r.err;
        for (const auto &m : c.mentions) EXPECT_NE(r.err.find(m), std::string::npos) << m << " in " << r.err;
        EXPECT_EQ(listing(), std::vector<std::string>{"in.raw"});
    }
}

// Several inputs into a directory: a progress line per frame, a bad frame reported and skipped, the
// others written; the exit code is the failure's.
TEST_F(ToolTest, BatchIntoDirectory) {
    std::mt19937 rng(5);
    const Format &f = kFormats[8]; // BayerRG8
    for (const char *name : {"a.raw", "c.raw"}) write(path(name), randomFrame(f, 8, 8, 8, rng));
    write(path("b.raw"), Bytes(10, 0));
    const Result r = run({"-f", "BayerRG8", "-W", "8", "-H", "8", "-m", "nearest", "--out-dir", path("out"),
                          path("a.raw"), path("b.raw"), path("c.raw")});
    EXPECT_EQ(r.exitCode, 3);
    EXPECT_NE(r.out.find("[1/3] " + path("a.raw") + " -> " + path("out/a.png")), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("[3/3] " + path("c.raw")), std::string::npos) << r.out;
    EXPECT_NE(r.err.find("b.raw holds 10 bytes"), std::string::npos) << r.err;
    std::vector<std::string> written;
    for (const auto &e : fs::directory_iterator(dir / "out")) written.push_back(e.path().filename().string());
    std::sort(written.begin(), written.end());
    EXPECT_EQ(written, (std::vector<std::string>{"a.png", "c.png"}));
}

// Threads change nothing in the files: one frame split across threads, and a batch converted side by
// side, give the bytes of one thread, with the progress lines in input order.
TEST_F(ToolTest, ThreadsGiveTheSameFiles) {
    std::mt19937 rng(9);
    const Format &f = kFormats[8]; // BayerRG8
    for (const char *name : {"a.raw", "b.raw", "c.raw"}) write(path(name), randomFrame(f, 256, 300, 300, rng));
    const auto convert = [&](const std::string &threads, const std::string &out) {
        std::vector<std::string> args = {"-f", "BayerRG8", "-W", "300", "-H", "256", "--threads",
                                         threads, "--type", "raw", "--out-dir", path(out), path("a.raw"),
                                         path("b.raw"), path("c.raw")};
        const Result r = run(args);
        EXPECT_EQ(r.exitCode, 0) << r.err;
        const size_t first = r.out.find("[1/3]"), second = r.out.find("[2/3]"), third = r.out.find("[3/3]");
        EXPECT_TRUE(first < second && second < third) << r.out;
        EXPECT_NE(r.out.find("demosaic "), std::string::npos) << r.out;
    };
    convert("1", "one");
    convert("3", "three");
    for (const char *name : {"a.raw", "b.raw", "c.raw"})
        EXPECT_EQ(bytes(path(std::string("one/") + name)), bytes(path(std::string("three/") + name))) << name;
    for (const char *threads : {"1", "2"}) {
        const Result r = run({"-f", "BayerRG8", "-W", "300", "-H", "256", "--threads", threads, "-o",
                              path(std::string("single") + threads + ".raw"), path("a.raw")});
        EXPECT_EQ(r.exitCode, 0) << r.err;
    }
    EXPECT_EQ(bytes(path("single1.raw")), bytes(path("single2.raw")));
    EXPECT_EQ(bytes(path("single1.raw")), bytes(path("one/a.raw")));
}

// Sizes: too small and too large are refused before the file is read (the file here does not exist), with
// the library's status; a file larger than the frame gets a warning naming both sizes.
TEST_F(ToolTest, FrameSizesAreCheckedBeforeReading) {
    Result r = run({"-f", "BayerRG8", "-W", "0", "-H", "8", path("missing.raw"), "-o", path("o.png")});
    EXPECT_EQ(r.exitCode, 4);
    EXPECT_NE(r.err.find("too small"), std::string::npos) << r.err;
    r = run({"-f", "BayerRG16", "-W", "65536", "-H", "65536", path("missing.raw"), "-o", path("o.png")});
    EXPECT_EQ(r.exitCode, 4);
    EXPECT_NE(r.err.find("too large"), std::string::npos) << r.err;
    write(path("big.raw"), Bytes(100, 1));
    r = run({"-f", "BayerRG8", "-W", "8", "-H", "8", "-q", path("big.raw"), "-o", path("o.png")});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.err.find("holds 100 bytes, a 8 x 8 BayerRG8 frame 64"), std::string::npos) << r.err;
}

// --version names the library's version and the level this process of the library chose.
TEST_F(ToolTest, VersionNamesTheVectorLevel) {
    const Result r = run({"--version"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, std::string("velqora-convert ") + VQP_VERSION_STRING + ", library " + vqpVersionString() +
                         ", vector level " + vqpVectorLevel() + "\n");
}

// The demo needs no input: it writes its pictures and reports every method.
TEST_F(ToolTest, DemoFinishes) {
    const Result r = run({"--demo", path("demo")});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    for (const char *m : {"nearest", "bilinear", "edge"})
        EXPECT_NE(r.out.find(std::string("\n") + m + " "), std::string::npos) << r.out;
    for (const char *file : {"ground_truth.png", "mosaic_GBRG.png", "nearest_BGGR.png", "comparison.png"})
        EXPECT_TRUE(fs::exists(dir / "demo" / file)) << file;
    const Png cmp = readPng8(path("demo/comparison.png"));
    EXPECT_EQ(cmp.channels, 3);
    EXPECT_GT(cmp.w, 600u);
}

// Edge-directed demosaicing must beat nearest-neighbour on the chart.
TEST_F(ToolTest, DemoEdgeAboveNearest) {
    const Result r = run({"--demo", path("demo")});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    auto psnrOf = [&](const std::string &method) { // "edge   1.234 ms   31.20 dB ..."
        const size_t at = r.out.find("\n" + method + " ");
        if (at == std::string::npos) return -1.0;
        std::istringstream line(r.out.substr(at + 1));
        std::string name, ms, db;
        double time = 0, psnr = -1;
        line >> name >> time >> ms >> psnr >> db;
        return ms == "ms" && db == "dB" ? psnr : -1.0;
    };
    const double nearest = psnrOf("nearest"), edge = psnrOf("edge");
    ASSERT_GT(nearest, 0) << r.out;
    EXPECT_GT(edge, nearest) << r.out;
}

} // namespace
