// --demo: a synthetic test chart as ground truth, mosaiced for each Bayer phase, demosaiced by every
// method; writes the results and a side-by-side comparison, prints time per frame and PSNR.
#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "tool.h"
#include "velqora.h"

namespace vqtool {
namespace {

constexpr int kW = 640, kH = 480;
constexpr double kPi = 3.14159265358979323846;

struct Rgbf {
    double r, g, b;
};

// An RGB8 image, rows packed.
struct Picture {
    int w, h;
    std::vector<uint8_t> px;
    Picture(int width, int height, uint8_t fill = 0) : w(width), h(height), px(size_t(width) * size_t(height) * 3, fill) {}
    uint8_t *at(int x, int y) { return &px[(size_t(y) * size_t(w) + size_t(x)) * 3]; }
    const uint8_t *at(int x, int y) const { return &px[(size_t(y) * size_t(w) + size_t(x)) * 3]; }
};

Rgbf hsv(double hue, double sat, double val) {
    const double h6 = std::fmod(hue, 1.0) * 6.0, f = h6 - std::floor(h6);
    const double p = val * (1 - sat), q = val * (1 - sat * f), t = val * (1 - sat * (1 - f));
    switch (int(h6)) {
    case 0: return {val, t, p};
    case 1: return {q, val, p};
    case 2: return {p, val, t};
    case 3: return {p, q, val};
    case 4: return {t, p, val};
    default: return {val, p, q};
    }
}

// Inside a square of half side `half` centred on (cx, cy) and turned by `degrees`.
bool inTurnedSquare(double x, double y, double cx, double cy, double half, double degrees) {
    const double a = degrees * kPi / 180, dx = x - cx, dy = y - cy;
    const double u = dx * std::cos(a) + dy * std::sin(a), v = -dx * std::sin(a) + dy * std::cos(a);
    return std::fabs(u) <= half && std::fabs(v) <= half;
}

// The chart at a point (pixel centres at half-integer coordinates). Four areas: a zone plate (top left),
// colour patches (top right), bar groups of several periods in both directions (middle right) and
// slanted edges, black on white and red on blue (bottom).
Rgbf chart(double x, double y) {
    if (x < 320 && y < 320) { // zone plate: the local frequency reaches 0.5 cycles a pixel at the rim
        const double dx = x - 160, dy = y - 160, r2 = dx * dx + dy * dy;
        if (r2 > 158.0 * 158.0) return {0.5, 0.5, 0.5};
        const double v = 0.5 + 0.5 * std::cos(kPi * r2 / 316.0);
        return {v, v, v};
    }
    if (y < 160) { // 8 x 4 patches of 40 x 40: saturated, pale and dark hues, then a grey ramp
        const int col = int(x - 320) / 40, row = int(y) / 40;
        const double hue = col / 8.0;
        switch (row) {
        case 0: return hsv(hue, 0.9, 0.9);
        case 1: return hsv(hue, 0.35, 0.95);
        case 2: return hsv(hue + 1.0 / 16, 0.8, 0.45);
        default: {
            const double v = col / 7.0;
            return {v, v, v};
        }
        }
    }
    if (y < 320) { // bars 1, 2, 3 and 4 pixels wide, vertical on the left, horizontal on the right
        static const int widths[4] = {1, 2, 3, 4};
        bool on;
        if (x < 480) {
            const int width = widths[int(y - 160) / 40];
            on = (int(x - 320) / width) % 2 == 0;
        } else {
            const int width = widths[int(x - 480) / 40];
            on = (int(y - 160) / width) % 2 == 0;
        }
        const double v = on ? 0.95 : 0.05;
        return {v, v, v};
    }
    if (x < 320) return inTurnedSquare(x, y, 160, 400, 55, 5) ? Rgbf{0.05, 0.05, 0.05} : Rgbf{0.95, 0.95, 0.95};
    return inTurnedSquare(x, y, 480, 400, 55, 20) ? Rgbf{0.85, 0.12, 0.1} : Rgbf{0.1, 0.2, 0.8};
}

uint8_t to8(double v) { return uint8_t(std::lround(std::fmin(1.0, std::fmax(0.0, v)) * 255)); }

// Each pixel is the mean of 4 x 4 points inside it, so slanted edges and fine rings are anti-aliased.
Picture renderChart() {
    Picture p(kW, kH);
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x) {
            Rgbf sum{0, 0, 0};
            for (int sy = 0; sy < 4; ++sy)
                for (int sx = 0; sx < 4; ++sx) {
                    const Rgbf c = chart(x + (sx + 0.5) / 4, y + (sy + 0.5) / 4);
                    sum.r += c.r, sum.g += c.g, sum.b += c.b;
                }
            uint8_t *o = p.at(x, y);
            o[0] = to8(sum.r / 16), o[1] = to8(sum.g / 16), o[2] = to8(sum.b / 16);
        }
    return p;
}

struct PhaseInfo {
    const char *name;
    uint32_t code;
    int redRow, redCol; // parity of the red sites
};
constexpr PhaseInfo kPhaseList[] = {{"RGGB", VQP_PIXEL_FORMAT_BAYER_RG8, 0, 0},
                                    {"GRBG", VQP_PIXEL_FORMAT_BAYER_GR8, 0, 1},
                                    {"GBRG", VQP_PIXEL_FORMAT_BAYER_GB8, 1, 0},
                                    {"BGGR", VQP_PIXEL_FORMAT_BAYER_BG8, 1, 1}};

std::vector<uint8_t> mosaic(const Picture &truth, const PhaseInfo &ph) {
    std::vector<uint8_t> m(size_t(kW) * kH);
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x) {
            const bool redRow = (y & 1) == ph.redRow, redCol = (x & 1) == ph.redCol;
            const int channel = redRow && redCol ? 0 : (!redRow && !redCol ? 2 : 1);
            m[size_t(y) * kW + size_t(x)] = truth.at(x, y)[channel];
        }
    return m;
}

double psnr(const Picture &a, const Picture &b) {
    double se = 0;
    for (size_t i = 0; i < a.px.size(); ++i) {
        const double d = double(a.px[i]) - double(b.px[i]);
        se += d * d;
    }
    const double mse = se / double(a.px.size());
    return mse == 0 ? 99.0 : 10 * std::log10(255.0 * 255.0 / mse);
}

// ---- the comparison image -----------------------------------------------------------------------

// 5 x 7 glyphs for the labels, one row a byte (bit 4 the leftmost column).
struct Glyph {
    char c;
    uint8_t rows[7];
};
constexpr Glyph kFont[] = {
    {'A', {14, 17, 17, 31, 17, 17, 17}}, {'B', {30, 17, 17, 30, 17, 17, 30}}, {'D', {30, 17, 17, 17, 17, 17, 30}},
    {'E', {31, 16, 16, 30, 16, 16, 31}}, {'G', {14, 17, 16, 23, 17, 17, 15}}, {'H', {17, 17, 17, 31, 17, 17, 17}},
    {'I', {14, 4, 4, 4, 4, 4, 14}},      {'L', {16, 16, 16, 16, 16, 16, 31}}, {'N', {17, 25, 21, 19, 17, 17, 17}},
    {'O', {14, 17, 17, 17, 17, 17, 14}}, {'R', {30, 17, 17, 30, 20, 18, 17}}, {'S', {15, 16, 16, 14, 1, 1, 30}},
    {'T', {31, 4, 4, 4, 4, 4, 4}},       {'U', {17, 17, 17, 17, 17, 17, 14}}, {'0', {14, 17, 19, 21, 25, 17, 14}},
    {'1', {4, 12, 4, 4, 4, 4, 14}},      {'2', {14, 17, 1, 2, 4, 8, 31}},     {'3', {31, 2, 4, 2, 1, 17, 14}},
    {'4', {2, 6, 10, 18, 31, 2, 2}},     {'5', {31, 16, 30, 1, 1, 17, 14}},   {'6', {6, 8, 16, 30, 17, 17, 14}},
    {'7', {31, 1, 2, 4, 8, 8, 8}},       {'8', {14, 17, 17, 14, 17, 17, 14}}, {'9', {14, 17, 17, 15, 1, 2, 12}},
    {'.', {0, 0, 0, 0, 0, 12, 12}},      {'-', {0, 0, 0, 31, 0, 0, 0}},      {'P', {30, 17, 17, 30, 16, 16, 16}},
    {'V', {17, 17, 17, 17, 17, 10, 4}},  {'W', {17, 17, 17, 21, 21, 21, 10}}, {'C', {14, 17, 16, 16, 16, 17, 14}},
    {'M', {17, 27, 21, 21, 17, 17, 17}},
};

void drawText(Picture &p, int x0, int y0, const std::string &text, int scale) {
    for (const char c : text) {
        for (const Glyph &g : kFont) {
            if (g.c != c) continue;
            for (int r = 0; r < 7; ++r)
                for (int col = 0; col < 5; ++col)
                    if (g.rows[r] & (16 >> col))
                        for (int dy = 0; dy < scale; ++dy)
                            for (int dx = 0; dx < scale; ++dx) {
                                const int x = x0 + col * scale + dx, y = y0 + r * scale + dy;
                                if (x < p.w && y < p.h) p.at(x, y)[0] = p.at(x, y)[1] = p.at(x, y)[2] = 20;
                            }
        }
        x0 += 6 * scale;
    }
}

constexpr int kCropSide = 64, kZoom = 3, kPanel = kCropSide * kZoom, kGap = 8, kLabel = 24, kCropCount = 3;
// Top-left corners of the crops in every panel: the zone plate where its rings get fine, the finest
// vertical and horizontal bars side by side, and a corner of the red square on blue.
constexpr int kCrops[kCropCount][2] = {{210, 128}, {448, 168}, {415, 322}};

// One panel per picture: the label, then the crops enlarged (pixels repeated); a missing result
// (a method the library was built without) shows as hatching.
Picture comparison(const std::vector<const Picture *> &pics, const std::vector<std::string> &labels) {
    const int n = int(pics.size());
    Picture out(kGap + n * (kPanel + kGap), kLabel + kCropCount * (kPanel + kGap), 235);
    for (int i = 0; i < n; ++i) {
        const int x0 = kGap + i * (kPanel + kGap);
        drawText(out, x0, 5, labels[size_t(i)], 2);
        for (int c = 0; c < kCropCount; ++c) {
            const int y0 = kLabel + c * (kPanel + kGap);
            for (int y = 0; y < kPanel; ++y)
                for (int x = 0; x < kPanel; ++x) {
                    uint8_t *o = out.at(x0 + x, y0 + y);
                    if (!pics[size_t(i)]) {
                        o[0] = o[1] = o[2] = ((x + y) / 6) % 2 ? 160 : 200;
                        continue;
                    }
                    const uint8_t *s = pics[size_t(i)]->at(kCrops[c][0] + x / kZoom, kCrops[c][1] + y / kZoom);
                    o[0] = s[0], o[1] = s[1], o[2] = s[2];
                }
        }
    }
    return out;
}

void savePng(const std::string &path, const Picture &p) {
    AtomicFile f(path);
    writePng(f, p.w, p.h, 3, 8, p.px.data());
    f.commit();
}

void saveGrey(const std::string &path, const std::vector<uint8_t> &m) {
    AtomicFile f(path);
    writePng(f, kW, kH, 1, 8, m.data());
    f.commit();
}

// ---- raw to picture -------------------------------------------------------------------------------

double fromSrgb(double v) { return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4); }

// A camera's view of the chart: the sensor's colour primaries (the inverse of its camera-to-sRGB matrix),
// a green-heavy response, a black level of 240 and 12-bit samples, RGGB, packed two in three bytes.
// Develops it plainly and with black level, automatic white balance, the matrix and sRGB.
constexpr float kCameraToSrgb[9] = {1.72f, -0.55f, -0.17f, -0.21f, 1.48f, -0.27f, 0.04f, -0.51f, 1.47f};
constexpr double kResponse[3] = {0.52, 1.0, 0.68}; // red, green, blue sensitivity relative to green
constexpr int kBlack = 240;

void rawToPicture(const Picture &truth, const std::string &dir) {
    // The inverse of the camera-to-sRGB matrix: sRGB-linear to camera colour.
    double m[9], inv[9];
    for (int i = 0; i < 9; ++i) m[i] = kCameraToSrgb[i];
    const double det = m[0] * (m[4] * m[8] - m[5] * m[7]) - m[1] * (m[3] * m[8] - m[5] * m[6]) +
                       m[2] * (m[3] * m[7] - m[4] * m[6]);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) {
            const int r1 = (c + 1) % 3, r2 = (c + 2) % 3, c1 = (r + 1) % 3, c2 = (r + 2) % 3;
            inv[3 * r + c] = (m[3 * r1 + c1] * m[3 * r2 + c2] - m[3 * r1 + c2] * m[3 * r2 + c1]) / det;
        }
    std::vector<uint16_t> samples(size_t(kW) * kH);
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x) {
            const int channel = (y & 1) == 0 && (x & 1) == 0 ? 0 : ((y & 1) == 1 && (x & 1) == 1 ? 2 : 1);
            const uint8_t *t = truth.at(x, y);
            const double lin[3] = {fromSrgb(t[0] / 255.0), fromSrgb(t[1] / 255.0), fromSrgb(t[2] / 255.0)};
            double cam = 0;
            for (int k = 0; k < 3; ++k) cam += inv[3 * channel + k] * lin[k];
            cam = std::fmin(1.0, std::fmax(0.0, cam * kResponse[channel]));
            samples[size_t(y) * kW + size_t(x)] = uint16_t(std::lround(kBlack + cam * (4095 - kBlack)));
        }
    std::vector<uint8_t> packed(samples.size() / 2 * 3);
    for (size_t i = 0; i < samples.size(); i += 2) {
        const unsigned a = samples[i], b = samples[i + 1];
        packed[i / 2 * 3] = uint8_t(a >> 4), packed[i / 2 * 3 + 1] = uint8_t((a & 15) | (b & 15) << 4);
        packed[i / 2 * 3 + 2] = uint8_t(b >> 4);
    }

    ProcessingHandle *handle = nullptr;
    int32_t status = vqpCreate(&handle);
    const uint64_t config = VQP_PIXEL_FORMAT_RGB8;
    if (status == VQP_OK) status = vqpDemosaicSetConfig(handle, &config);
    Picture plain(kW, kH), developed(kW, kH);
    ImageFrame in{kH, kW, VQP_PIXEL_FORMAT_BAYER_RG12_PACKED, packed.data(), kW + kW / 2};
    ImageFrame out{0, 0, 0, plain.px.data(), 0};
    if (status == VQP_OK) status = vqpDemosaicing(handle, &in, VQP_METHOD_EDGE, &out);
    const float black[4] = {kBlack, kBlack, kBlack, kBlack};
    if (status == VQP_OK) status = vqpSetBlackLevel(handle, black);
    if (status == VQP_OK) status = vqpSetBalanceWhiteAuto(handle, VQP_BALANCE_WHITE_AUTO_ONCE);
    if (status == VQP_OK) status = vqpSetColorTransformation(handle, kCameraToSrgb);
    if (status == VQP_OK) status = vqpSetTransfer(handle, VQP_TRANSFER_SRGB, 0);
    out.data = developed.px.data();
    const auto start = std::chrono::steady_clock::now();
    if (status == VQP_OK) status = vqpDevelop(handle, &in, VQP_METHOD_EDGE, &out, 1);
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    float gains[3] = {0, 0, 0};
    vqpGetBalanceRatio(handle, gains);
    vqpRelease(&handle);
    if (status != VQP_OK) throw Failure(kExitLibrary, "the library refused the simulated sensor's frame " + statusTag(status));

    const double before = psnr(truth, plain), after = psnr(truth, developed);
    std::printf("\nRaw to picture: the chart seen by a simulated sensor (black level %d, red and blue at %.2f and "
                "%.2f of green, a camera colour matrix), BayerRG12Packed, edge-directed:\n",
                kBlack, kResponse[0], kResponse[2]);
    std::printf("  plain conversion                        %6.2f dB\n", before);
    std::printf("  developed (black, auto balance, matrix, sRGB) %6.2f dB, %.2f ms; gains found %.3f, %.3f, %.3f "
                "(the sensor's inverse: %.3f, 1, %.3f)\n",
                after, ms, gains[0], gains[1], gains[2], 1 / kResponse[0], 1 / kResponse[2]);
    savePng(dir + "raw_plain.png", plain);
    savePng(dir + "raw_developed.png", developed);
    char a[32], b[32];
    std::snprintf(a, sizeof a, "RAW %.1f DB", before);
    std::snprintf(b, sizeof b, "DEVELOPED %.1f DB", after);
    savePng(dir + "develop_comparison.png", comparison({&truth, &plain, &developed}, {"GROUND TRUTH", a, b}));
    std::printf("Wrote raw_plain.png, raw_developed.png and develop_comparison.png.\n");
}

} // namespace

int runDemo(const std::string &outDir) {
    std::error_code ec;
    std::filesystem::create_directories(outDir, ec);
    if (ec) throw Failure(kExitOutput, "cannot create directory " + outDir + ": " + ec.message());
    const std::string dir = outDir + "/";

    const Picture truth = renderChart();
    savePng(dir + "ground_truth.png", truth);
    std::vector<std::vector<uint8_t>> mosaics;
    for (const PhaseInfo &ph : kPhaseList) {
        mosaics.push_back(mosaic(truth, ph));
        saveGrey(dir + "mosaic_" + ph.name + ".png", mosaics.back());
    }

    ProcessingHandle *handle = nullptr;
    int32_t status = vqpCreate(&handle);
    const uint64_t config = VQP_PIXEL_FORMAT_RGB8;
    if (status == VQP_OK) status = vqpDemosaicSetConfig(handle, &config);
    if (status != VQP_OK) throw Failure(kExitLibrary, "cannot set up a processing handle " + statusTag(status));

    std::printf("Test chart %d x %d, 8-bit, RGB8 output; PSNR against the ground truth over all pixels.\n", kW, kH);
    std::printf("%-9s %14s %10s   %s\n", "method", "time/frame", "PSNR", "PSNR per phase (RGGB GRBG GBRG BGGR)");
    constexpr uint8_t kFill = 0xA5;
    const Method methods[] = {Method::Nearest, Method::Bilinear, Method::Edge};
    std::vector<Picture> firstPhase;
    std::vector<bool> present;
    std::vector<std::string> labels{"GROUND TRUTH"};
    for (const Method m : methods) {
        double seconds = 0, psnrSum = 0;
        int frames = 0;
        bool wrote = true;
        std::string perPhase;
        for (size_t p = 0; p < 4; ++p) {
            Picture out(kW, kH, kFill);
            ImageFrame in{kH, kW, kPhaseList[p].code, mosaics[p].data(), kW};
            ImageFrame dst{0, 0, 0, out.px.data(), 0};
            // Repeat until the time is measurable; the first run is also the result.
            const auto start = std::chrono::steady_clock::now();
            int reps = 0;
            double elapsed = 0;
            do {
                status = vqpDemosaicing(handle, &in, uint32_t(m), &dst);
                ++reps;
                elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            } while (status == VQP_OK && elapsed < 0.05 && reps < 50);
            if (status != VQP_OK) {
                vqpRelease(&handle);
                throw Failure(kExitLibrary, std::string("the library refused the ") + kPhaseList[p].name + " chart " +
                                                statusTag(status));
            }
            seconds += elapsed;
            frames += reps;
            bool untouched = true;
            for (const uint8_t v : out.px) untouched = untouched && v == kFill;
            if (untouched) wrote = false;
            const double q = psnr(truth, out);
            psnrSum += q;
            char buf[16];
            std::snprintf(buf, sizeof buf, " %5.2f", q);
            perPhase += buf;
            if (!untouched) savePng(dir + methodName(m) + "_" + kPhaseList[p].name + ".png", out);
            if (p == 0) firstPhase.push_back(std::move(out));
        }
        present.push_back(wrote);
        char label[32];
        if (wrote) {
            std::printf("%-9s %11.3f ms %7.2f dB  %s\n", methodName(m), 1000 * seconds / frames, psnrSum / 4,
                        perPhase.c_str());
            std::snprintf(label, sizeof label, "%s %.1f DB", m == Method::Edge ? "EDGE" : methodName(m), psnrSum / 4);
        } else {
            std::printf("%-9s %14s %10s   this library build has no %s kernels\n", methodName(m), "-", "-",
                        methodName(m));
            std::snprintf(label, sizeof label, "%s", m == Method::Edge ? "EDGE" : methodName(m));
        }
        std::string upper = label;
        for (char &c : upper) c = char(std::toupper(static_cast<unsigned char>(c)));
        labels.push_back(upper);
    }
    vqpRelease(&handle);

    std::vector<const Picture *> pics{&truth};
    for (size_t i = 0; i < firstPhase.size(); ++i) pics.push_back(present[i] ? &firstPhase[i] : nullptr);
    savePng(dir + "comparison.png", comparison(pics, labels));
    rawToPicture(truth, dir);
    std::printf("Wrote %s: ground_truth.png, mosaic_<phase>.png, <method>_<phase>.png and comparison.png "
                "(RGGB, crops enlarged %dx).\n",
                outDir.c_str(), kZoom);
    return kExitOk;
}

} // namespace vqtool
