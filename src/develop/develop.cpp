// Development of a raw frame: black level, white level, white balance, demosaic, colour matrix and
// transfer curve in one pass over bands of rows.
//
// Each band of rows is read once: its samples, at full depth, go through the black level, white level and
// gain of their site (single precision, in vector lanes) into a balanced mosaic of 16-bit samples; the
// full-depth demosaic turns the band, with a margin of rows above and below, into 16-bit camera colour;
// and the store applies the matrix (single precision) and the transfer curve, writing the output layout.
// The 8-bit curve is a cubic per octave of its input, evaluated in the same lanes as the matrix;
// 16-bit output, and curves too steep for the cubics, take a table indexed by the matrix's 16-bit
// result. The margins make each band's rows exactly those of the whole frame's demosaic, so the bands are
// independent: threads take runs of them, and the bytes do not depend on the thread count. Balance
// statistics are integer sums over a band's own 2x2 cells, added up after the pass, so they do not depend
// on it either.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <vector>

#include "core/handle.h"
#include "core/workers.h"
#include "develop/develop.h"
#include "simd/dispatch.h"
#include "u16/parallel_u16.h"
#include "u16/u16_common.h"
#include "velqora.h"

namespace vq::develop {

namespace {

enum Phase { kMono = -1, kRGGB = 0, kGRBG = 1, kGBRG = 2, kBGGR = 3 };
enum Kind { kBytes, kContainers, kPacked };

struct Input {
    int phase;
    int bits;
    Kind kind;
};

bool classify(uint32_t code, Input *info) {
    struct Mono {
        uint32_t code;
        int bits;
        Kind kind;
    };
    static constexpr Mono kMonos[] = {
        {VQP_PIXEL_FORMAT_MONO8, 8, kBytes},          {VQP_PIXEL_FORMAT_MONO10, 10, kContainers},
        {VQP_PIXEL_FORMAT_MONO12, 12, kContainers},   {VQP_PIXEL_FORMAT_MONO14, 14, kContainers},
        {VQP_PIXEL_FORMAT_MONO16, 16, kContainers},   {VQP_PIXEL_FORMAT_MONO10_PACKED, 10, kPacked},
        {VQP_PIXEL_FORMAT_MONO12_PACKED, 12, kPacked}};
    for (const Mono &m : kMonos)
        if (code == m.code) {
            *info = {kMono, m.bits, m.kind};
            return true;
        }
    struct Family {
        uint32_t gr; // GR, RG, GB and BG follow each other in every family
        int bits;
        Kind kind;
    };
    static constexpr Family kFamilies[] = {
        {VQP_PIXEL_FORMAT_BAYER_GR8, 8, kBytes},           {VQP_PIXEL_FORMAT_BAYER_GR10, 10, kContainers},
        {VQP_PIXEL_FORMAT_BAYER_GR12, 12, kContainers},    {VQP_PIXEL_FORMAT_BAYER_GR14, 14, kContainers},
        {VQP_PIXEL_FORMAT_BAYER_GR16, 16, kContainers},    {VQP_PIXEL_FORMAT_BAYER_GR10_PACKED, 10, kPacked},
        {VQP_PIXEL_FORMAT_BAYER_GR12_PACKED, 12, kPacked}};
    static constexpr int kPhaseAfterGR[] = {kGRBG, kRGGB, kGBRG, kBGGR};
    for (const Family &f : kFamilies)
        if (code - f.gr < 4u) {
            *info = {kPhaseAfterGR[code - f.gr], f.bits, f.kind};
            return true;
        }
    return false;
}

// The 16-bit Bayer code of a phase: the balanced mosaic's format.
constexpr uint32_t kMosaicCode[] = {VQP_PIXEL_FORMAT_BAYER_RG16, VQP_PIXEL_FORMAT_BAYER_GR16,
                                    VQP_PIXEL_FORMAT_BAYER_GB16, VQP_PIXEL_FORMAT_BAYER_BG16};
// Where the red site of the top-left 2x2 cell lies: row and column parity.
constexpr int kRedRow[] = {0, 0, 1, 1}, kRedColumn[] = {0, 1, 0, 1};

// The colour (0 red, 1 green, 2 blue) of site s = 2 x row parity + column parity.
int colourOf(int phase, int site) {
    const int row = site >> 1, column = site & 1;
    if (row == kRedRow[phase] && column == kRedColumn[phase]) return 0;
    if (row != kRedRow[phase] && column != kRedColumn[phase]) return 2;
    return 1;
}

// ---- statistics of automatic balance --------------------------------------------------------------

struct Sums {
    uint64_t red = 0, green = 0, blue = 0, cells = 0; // green: both greens of a cell
    void add(const Sums &o) { red += o.red, green += o.green, blue += o.blue, cells += o.cells; }
};

// In units of the normalised sample n x 65535: a cell with a sample at or above 98% of full scale is
// clipped; its greens must average more than 2%.
constexpr uint32_t kClipped = 64224;   // 0.98 x 65535
constexpr uint32_t kDarkGreens = 2621; // 2 x 0.02 x 65535, the sum of the two greens

// Gains from sums; false when no cell counted.
bool gainsOf(const Sums &s, float gain[3]) {
    if (s.cells == 0) return false;
    const double green = 0.5 * static_cast<double>(s.green);
    const auto ratio = [&](uint64_t sum) {
        const double r = sum == 0 ? 8.0 : green / static_cast<double>(sum);
        return static_cast<float>(std::clamp(r, 0.125, 8.0));
    };
    gain[0] = ratio(s.red), gain[1] = 1.0f, gain[2] = ratio(s.blue);
    return true;
}

// ---- state ----------------------------------------------------------------------------------------

struct Worker {
    ProcessingHandle *demosaic = nullptr; // the full-depth demosaic of the bands
    std::vector<uint16_t> samples;        // two rows of full samples
    std::vector<uint16_t> mosaic;         // the balanced mosaic of a band and its margins
    std::vector<uint16_t> camera;         // its camera colour, B, G, R
    std::vector<unsigned char> row;       // one output row
    std::vector<uint16_t> planes;         // a camera row in planes, and through the matrix
    Sums sums;
};

struct CurveKey {
    int curve = -1;
    float gamma = 0.0f;
    bool wide = false;
    bool operator==(const CurveKey &o) const { return curve == o.curve && gamma == o.gamma && wide == o.wide; }
};

} // namespace

struct State {
    CurveKey curveKey;
    std::vector<uint8_t> curve8;    // indexed by the 16-bit value before the curve
    std::vector<uint16_t> curve16;
    float cubics[64];               // the 8-bit curve per octave of its input (see encodeByte)
    bool cubic = false;             // ... close enough to the curve to be used
    std::vector<Worker> workers;
    std::vector<unsigned char> compact; // padded 8-bit rows, packed for the plain conversion
    ~State() {
        for (Worker &w : workers) vqpRelease(&w.demosaic);
    }
};

void release(State *state) { delete state; }

namespace {

// ---- tables ---------------------------------------------------------------------------------------

double whiteOf(const Settings &s, int bits) {
    return s.white == 0.0f ? static_cast<double>((1u << bits) - 1u) : static_cast<double>(s.white);
}

double transfer(uint32_t curve, double gamma, double c) {
    switch (curve) {
    case VQP_TRANSFER_SRGB: return c <= 0.0031308 ? 12.92 * c : 1.055 * std::pow(c, 1.0 / 2.4) - 0.055;
    case VQP_TRANSFER_GAMMA: return std::pow(c, 1.0 / gamma);
    default: return c;
    }
}

// The 8-bit curve without a table: a cubic in c' = c + 2 (c the matrix's result, 0 .. 65535, not rounded)
// per octave of c', [2, 4), [4, 8) ... [32768, 65536), [65536, 65537], found as (bits of c' >> 23) & 15.
// q holds the 16 constant coefficients (with the 0.5 that rounds), then the linear, square and cube ones.
int octaveOf(float shifted) { return static_cast<int>(std::bit_cast<uint32_t>(shifted) >> 23) & 15; }

// The byte of c: q0 + c' (q1 + c' (q2 + c' q3)) truncated, single precision step by step (the fit keeps
// the sum within -1 .. 256).
uint8_t encodeByte(float c, const float *q) {
    const float v = c + 2.0f;
    const int k = octaveOf(v);
    const float e = q[k] + v * (q[16 + k] + v * (q[32 + k] + v * q[48 + k]));
    return static_cast<uint8_t>(static_cast<int32_t>(e));
}

// Least-squares cubics of 255 x transfer(c / 65535) on each octave; true when every one is within 0.15 of the
// curve in single precision (the first, c below 2, within 1 or as close as the table's value of c rounded to
// 16 bits) and within -1.25 .. 255.25. Curves steeper than that (gammas far below 1, or above 2.5 near black)
// keep the table.
bool fitCubics(const Settings &set, float *q) {
    const auto curve = [&](double c) { return 255.0 * std::clamp(transfer(set.curve, set.gamma, c / 65535.0), 0.0, 1.0); };
    constexpr int kPoints = 512;
    bool close = true;
    for (int k = 0; k < 16; ++k) {
        const double lo = std::ldexp(1.0, k + 1), hi = k == 15 ? 65537.0 : 2.0 * lo; // of c'
        // Normal equations in u = (c' - mid) / half, which keeps them well conditioned.
        const double mid = 0.5 * (lo + hi), half = 0.5 * (hi - lo);
        double a[4][5] = {};
        for (int i = 0; i <= kPoints; ++i) {
            const double u = -1.0 + 2.0 * i / kPoints, y = curve(mid + half * u - 2.0);
            const double p[4] = {1.0, u, u * u, u * u * u};
            for (int r = 0; r < 4; ++r) {
                for (int j = 0; j < 4; ++j) a[r][j] += p[r] * p[j];
                a[r][4] += p[r] * y;
            }
        }
        for (int i = 0; i < 4; ++i) // Gauss-Jordan; the system is symmetric positive definite
            for (int r = 0; r < 4; ++r) {
                if (r == i) continue;
                const double f = a[r][i] / a[i][i];
                for (int j = 0; j < 5; ++j) a[r][j] -= f * a[i][j];
            }
        // The cubic in u, then in c' = mid + half u: expand (c' - mid)^j / half^j.
        double inU[4], inC[4] = {};
        for (int j = 0; j < 4; ++j) inU[j] = a[j][4] / a[j][j];
        for (int j = 0; j < 4; ++j) {
            const double scale = inU[j] / std::pow(half, j);
            double binomial = 1.0; // C(j, i) (-mid)^(j - i) for i = j down to 0
            for (int i = j; i >= 0; --i) {
                inC[i] += scale * binomial;
                binomial *= -mid * i / (j - i + 1);
            }
        }
        inC[0] += 0.5; // rounds: the byte is the truncation
        for (int j = 0; j < 4; ++j) q[16 * j + k] = static_cast<float>(inC[j]);
        for (int i = 0; i <= 8 * kPoints && close; ++i) {
            const float v = static_cast<float>(lo + (hi - lo) * i / (8 * kPoints));
            if (octaveOf(v) != k) continue;
            const double c = static_cast<double>(v) - 2.0;
            const double limit = k == 0 ? std::max(1.0, std::abs(curve(std::round(c)) - curve(c))) : 0.15;
            const double e = q[k] + v * (q[16 + k] + v * (q[32 + k] + v * q[48 + k])) - 0.5;
            close = std::abs(e - curve(c)) <= limit && e >= -1.25 && e <= 255.25;
        }
    }
    return close;
}

void buildCurve(const Settings &set, bool wide, State &st) {
    CurveKey want;
    want.curve = static_cast<int>(set.curve);
    want.gamma = set.gamma;
    want.wide = wide;
    if (want == st.curveKey) return;
    st.curveKey = CurveKey{};
    const double top = wide ? 65535.0 : 255.0;
    if (wide) st.curve16.resize(65536);
    else st.curve8.resize(65536);
    for (uint32_t c = 0; c < 65536; ++c) {
        const double e = std::clamp(transfer(set.curve, set.gamma, c / 65535.0), 0.0, 1.0);
        const long v = std::lround(e * top);
        if (wide) st.curve16[c] = static_cast<uint16_t>(v);
        else st.curve8[c] = static_cast<uint8_t>(v);
    }
    if (!wide) st.cubic = fitCubics(set, st.cubics);
    st.curveKey = want;
}

// ---- input ----------------------------------------------------------------------------------------

struct Reader {
    const ImageFrame &in;
    Input f;

    const unsigned char *base() const { return static_cast<const unsigned char *>(in.data); }
    bool oneRun() const { return f.kind == kPacked && in.stride == in.width + (in.width >> 1); }

    // Row y as full samples (the full-depth path's own readers for deep and packed rows).
    void row(int32_t y, uint16_t *dst) const {
        const ptrdiff_t w = in.width;
        const unsigned char *p = base() + ptrdiff_t{y} * in.stride;
        if (f.kind == kBytes) {
            for (ptrdiff_t x = 0; x < w; ++x) dst[x] = p[x];
        } else if (f.kind == kContainers) {
            vq::u16::maskRun(p, w, f.bits, dst);
        } else if (oneRun()) { // packed rows one run of samples: row y starts at sample y * w
            vq::u16::unpackSpan(base(), ptrdiff_t{y} * w, ptrdiff_t{y + 1} * w, f.bits - 8, dst);
        } else {
            vq::u16::unpackSpan(p, 0, w, f.bits - 8, dst);
        }
    }
};

// Black level, white level and gain of a row's two sites: black, 1 / (white - black) and gain x 65535 of its
// even columns, then of its odd ones (both factors at most 1e30, so that no product is NaN).
struct Balance {
    float p[6];
};

Balance balanceOf(const Settings &set, const Input &f, int rowParity, bool withGains = true) {
    const double white = whiteOf(set, f.bits);
    Balance b{};
    for (int column = 0; column < 2; ++column) {
        const int site = 2 * rowParity + column;
        const double black = set.black[site];
        const double gain = withGains && f.phase != kMono ? double{set.gain[colourOf(f.phase, site)]} : 1.0;
        b.p[3 * column] = static_cast<float>(black);
        b.p[3 * column + 1] = static_cast<float>(std::min(1.0 / (white - black), 1e30));
        b.p[3 * column + 2] = static_cast<float>(std::min(gain * 65535.0, 1e30));
    }
    return b;
}

// Full samples in place through their sites' balance: min(min(max((s - black) x inv, 0), 1) x gain, 65535)
// + 0.5, truncated, single precision step by step (as the vector units do it).
void balance(const uint16_t *s, uint16_t *d, ptrdiff_t w, const Balance &b) {
    ptrdiff_t x = 0;
    if (const auto vector = vq::simd::table().developBalance; vector != nullptr) x = vector(s, d, w, b.p);
    for (; x < w; ++x) {
        const float *p = b.p + 3 * (x & 1);
        float n = (static_cast<float>(s[x]) - p[0]) * p[1];
        n = n > 0.0f ? n : 0.0f;
        n = n < 1.0f ? n : 1.0f;
        float v = n * p[2];
        v = v < 65535.0f ? v : 65535.0f;
        v += 0.5f;
        d[x] = static_cast<uint16_t>(static_cast<int32_t>(v));
    }
}

// The cells of rows y - 1 (`above`, even) and y into the sums, by their normalised samples (n x 65535).
void countCells(const uint16_t *above, const uint16_t *below, ptrdiff_t w, int phase, Sums &sums) {
    const ptrdiff_t rc = kRedColumn[phase];
    const uint16_t *redRow = kRedRow[phase] ? below : above, *blueRow = kRedRow[phase] ? above : below;
    uint64_t red = 0, green = 0, blue = 0, cells = 0;
    for (ptrdiff_t x = 0; x + 1 < w; x += 2) {
        const uint32_t r = redRow[x + rc], g1 = redRow[x + 1 - rc], g2 = blueRow[x + rc], b = blueRow[x + 1 - rc];
        // Without a branch: whether a cell counts is as random as the picture.
        const uint32_t counts = (std::max(std::max(r, b), std::max(g1, g2)) < kClipped) & (g1 + g2 > kDarkGreens);
        red += counts * r, blue += counts * b, green += counts * (g1 + g2), cells += counts;
    }
    sums.red += red, sums.green += green, sums.blue += blue, sums.cells += cells;
}

// ---- output ---------------------------------------------------------------------------------------

// One row of encoded samples, B, G, R a pixel (or one grey sample a pixel), into the output layout.
// Samples are written bytewise (memcpy): 16-bit output may start at any address.
template <class T>
void writeRow(uint32_t format, const T *e, bool grey, ptrdiff_t w, ptrdiff_t n, ptrdiff_t first, unsigned char *dst) {
    constexpr ptrdiff_t S = sizeof(T);
    const auto put = [](unsigned char *p, T v) { std::memcpy(p, &v, sizeof v); };
    unsigned char *o = dst;
    switch (format) {
    case VQP_PIXEL_FORMAT_BGR8:
    case VQP_PIXEL_FORMAT_BGR16:
        o += 3 * S * first;
        if (grey) for (ptrdiff_t x = 0; x < w; ++x) put(o + 3 * S * x, e[x]), put(o + 3 * S * x + S, e[x]), put(o + 3 * S * x + 2 * S, e[x]);
        else std::memcpy(o, e, static_cast<size_t>(3 * S * w));
        return;
    case VQP_PIXEL_FORMAT_RGB8:
    case VQP_PIXEL_FORMAT_RGB16:
        o += 3 * S * first;
        for (ptrdiff_t x = 0; x < w; ++x) {
            const T *v = grey ? e + x : e + 3 * x;
            const ptrdiff_t step = grey ? 0 : 1;
            put(o + 3 * S * x, v[2 * step]), put(o + 3 * S * x + S, v[step]), put(o + 3 * S * x + 2 * S, v[0]);
        }
        return;
    case VQP_PIXEL_FORMAT_BGRA8:
    case VQP_PIXEL_FORMAT_RGBA8: {
        o += 4 * first;
        const int r = format == VQP_PIXEL_FORMAT_BGRA8 ? 2 : 0;
        for (ptrdiff_t x = 0; x < w; ++x) {
            const T *v = grey ? e + x : e + 3 * x;
            const ptrdiff_t step = grey ? 0 : 1;
            o[4 * x + r] = static_cast<unsigned char>(v[2 * step]), o[4 * x + 1] = static_cast<unsigned char>(v[step]);
            o[4 * x + 2 - r] = static_cast<unsigned char>(v[0]), o[4 * x + 3] = 0;
        }
        return;
    }
    case VQP_PIXEL_FORMAT_MONO8:
        o += first;
        if (grey) for (ptrdiff_t x = 0; x < w; ++x) o[x] = static_cast<unsigned char>(e[x]);
        else for (ptrdiff_t x = 0; x < w; ++x)
            o[x] = static_cast<unsigned char>((29u * e[3 * x] + 150u * e[3 * x + 1] + 77u * e[3 * x + 2] + 128u) >> 8);
        return;
    default: { // planar: R, G, B planes, or B, G, R
        const bool redFirst = format == VQP_PIXEL_FORMAT_RGB8_PLANAR || format == VQP_PIXEL_FORMAT_RGB16_PLANAR;
        const ptrdiff_t blue = redFirst ? 2 : 0, red = redFirst ? 0 : 2;
        unsigned char *planes[3] = {o + S * (blue * n + first), o + S * (n + first), o + S * (red * n + first)};
        for (int c = 0; c < 3; ++c) {
            unsigned char *plane = planes[c];
            if (grey) std::memcpy(plane, e, static_cast<size_t>(S * w));
            else for (ptrdiff_t x = 0; x < w; ++x) put(plane + S * x, e[3 * x + c]);
        }
    }
    }
}

// Planes of blue, green and red through the matrix m (for B, G, R out of B, G, R): each value
// (m0 b + m1 g) + m2 r + 0.5, clamped to 0 .. 65535 (a NaN, from huge entries of both signs, to 0) and
// truncated. The vector units do what they can; the rest runs here, kept apart with unaliased planes so
// that the compiler runs it in vector registers too.
__attribute__((noinline)) void mixPlanes(const uint16_t *__restrict pb, const uint16_t *__restrict pg,
                                         const uint16_t *__restrict pr, uint16_t *__restrict ob,
                                         uint16_t *__restrict og, uint16_t *__restrict orr, ptrdiff_t w,
                                         const float *m) {
    ptrdiff_t x = 0;
    if (const auto vector = vq::simd::table().developMix; vector != nullptr) {
        const uint16_t *const in[3] = {pb, pg, pr};
        uint16_t *const out[3] = {ob, og, orr};
        x = vector(in, out, w, m);
    }
    const float m0 = m[0], m1 = m[1], m2 = m[2], m3 = m[3], m4 = m[4], m5 = m[5], m6 = m[6], m7 = m[7], m8 = m[8];
    const auto round16 = [](float v) {
        v += 0.5f;
        v = v > 0.0f ? v : 0.0f;
        v = v < 65535.0f ? v : 65535.0f;
        return static_cast<uint16_t>(static_cast<int32_t>(v));
    };
    for (; x < w; ++x) {
        const float b = pb[x], g = pg[x], r = pr[x];
        ob[x] = round16(m0 * b + m1 * g + m2 * r);
        og[x] = round16(m3 * b + m4 * g + m5 * r);
        orr[x] = round16(m6 * b + m7 * g + m8 * r);
    }
}

struct Store {
    uint32_t format; // the low 32 bits of the configuration
    bool wide;       // 16-bit output
    unsigned char *dst;
    ptrdiff_t n, w;  // pixels of the frame, of a row
    const uint8_t *curve8;
    const uint16_t *curve16;
    const float *cubics; // the 8-bit curve without its table (null: the table)
    bool identity;
    float m[9];      // the matrix, for blue, green, red out of blue, green, red

    // Row y from values before the curve: blue, green and red at b, g and r, `step` samples a pixel apart
    // (3 for interleaved B, G, R, 1 for planes); grey rows have b alone. `tmp` holds 6 bytes a pixel.
    void put(int32_t y, const uint16_t *b, const uint16_t *g, const uint16_t *r, ptrdiff_t step, bool grey,
             unsigned char *tmp) const {
        const ptrdiff_t first = ptrdiff_t{y} * w;
        const auto encode = [&](auto *e, const auto *curve) {
            if (grey) {
                for (ptrdiff_t x = 0; x < w; ++x) e[x] = curve[b[x]];
                return;
            }
            for (ptrdiff_t x = 0; x < w; ++x)
                e[3 * x] = curve[b[step * x]], e[3 * x + 1] = curve[g[step * x]], e[3 * x + 2] = curve[r[step * x]];
        };
        if (wide) {
            uint16_t *e = reinterpret_cast<uint16_t *>(tmp);
            encode(e, curve16);
            writeRow(format, static_cast<const uint16_t *>(e), grey, w, n, first, dst);
        } else if (format == VQP_PIXEL_FORMAT_BGR8 && !grey) { // the row as it is written: straight there
            encode(dst + 3 * first, curve8);
        } else {
            encode(tmp, curve8);
            writeRow(format, static_cast<const uint8_t *>(tmp), grey, w, n, first, dst);
        }
    }

    // Row y of 8-bit colour from camera blue, green and red (`step` apart, as for put) through the matrix
    // and the curve's cubics; `tmp` holds 3 bytes a pixel.
    void encode(int32_t y, const uint16_t *b, const uint16_t *g, const uint16_t *r, ptrdiff_t step,
                unsigned char *tmp) const {
        const ptrdiff_t first = ptrdiff_t{y} * w;
        unsigned char *e = format == VQP_PIXEL_FORMAT_BGR8 ? dst + 3 * first : tmp;
        encodeRow(b, g, r, step, e);
        if (e == tmp) writeRow(format, static_cast<const uint8_t *>(tmp), false, w, n, first, dst);
    }

    // B, G, R pixels into planes.
    void split(const uint16_t *bgr, uint16_t *__restrict pb, uint16_t *__restrict pg, uint16_t *__restrict pr) const {
        ptrdiff_t x = 0;
        if (const auto vector = vq::simd::table().developSplit; vector != nullptr) {
            uint16_t *const out[3] = {pb, pg, pr};
            x = vector(bgr, w, out);
        }
        for (; x < w; ++x) pb[x] = bgr[3 * x], pg[x] = bgr[3 * x + 1], pr[x] = bgr[3 * x + 2];
    }

    // Camera colour through the matrix, c = min(max((m0 b + m1 g) + m2 r, 0), 65535) (a NaN to 0; the
    // identity: c the sample), and encodeByte, into B, G, R bytes.
    void encodeRow(const uint16_t *pb, const uint16_t *pg, const uint16_t *pr, ptrdiff_t step, unsigned char *e) const {
        ptrdiff_t x = 0;
        if (const auto vector = vq::simd::table().developEncode8; vector != nullptr) {
            const uint16_t *const in[3] = {pb, pg, pr};
            x = vector(in, step, e, w, identity ? nullptr : m, cubics);
        }
        const auto clamp16 = [](float v) {
            v = v > 0.0f ? v : 0.0f;
            return v < 65535.0f ? v : 65535.0f;
        };
        for (; x < w; ++x) {
            const float b = pb[step * x], g = pg[step * x], r = pr[step * x];
            if (identity) {
                e[3 * x] = encodeByte(b, cubics), e[3 * x + 1] = encodeByte(g, cubics);
                e[3 * x + 2] = encodeByte(r, cubics);
                continue;
            }
            e[3 * x] = encodeByte(clamp16(m[0] * b + m[1] * g + m[2] * r), cubics);
            e[3 * x + 1] = encodeByte(clamp16(m[3] * b + m[4] * g + m[5] * r), cubics);
            e[3 * x + 2] = encodeByte(clamp16(m[6] * b + m[7] * g + m[8] * r), cubics);
        }
    }

    // Camera blue, green and red (`step` samples a pixel apart: 3 for B, G, R pixels, 1 for planes) through
    // the matrix into three planes of blue, green and red, clamped to 16 bits. Single precision keeps a
    // hundredth of a step at 16 bits for entries within +-2; +0.5 and truncation round.
    void mix(const uint16_t *b, const uint16_t *g, const uint16_t *r, ptrdiff_t step, uint16_t *planes) const {
        if (step == 1) {
            mixPlanes(b, g, r, planes + 3 * w, planes + 4 * w, planes + 5 * w, w, m);
            return;
        }
        split(b, planes, planes + w, planes + 2 * w);
        mixPlanes(planes, planes + w, planes + 2 * w, planes + 3 * w, planes + 4 * w, planes + 5 * w, w, m);
    }
};

// ---- the pass -------------------------------------------------------------------------------------

// Automatic balance counts the cells of every eighth row of cells (rows 0 and 1, 16 and 17, ...): as good a
// grey world as all of them (a 12-megapixel frame still has about 380,000 such cells), at an eighth of the cost.
constexpr int32_t kCellRowStep = 8;

// Rows a band covers, and the rows of margin it demosaics above and below them. About two million pixels:
// each band's demosaic computes its first and last rows by the border rules, at a fixed cost that smaller
// bands pay more often than they gain from the cache (a 4096-pixel row: 128-row bands cost 20% more).
constexpr int32_t kMargin = 8;
int32_t bandRowsFor(int32_t width) {
    const int32_t rows = static_cast<int32_t>(std::clamp<int64_t>((int64_t{1} << 21) / width, 32, 1024));
    return rows & ~1;
}

struct Pass {
    const Reader &reader;
    const Input f;
    int32_t h, w, band, bands;
    uint32_t method;
    bool writes;              // false: statistics only
    Balance rowBalance[2];    // of even and odd rows
    bool counts;              // gathers the statistics
    Balance rowNormal[2];     // black and white alone, for the statistics
    const Store *store;

    int32_t firstRow(int32_t k) const { return bands == 1 ? 0 : std::min(h, k * band); }

    // Band k's statistics (and, unless only those are wanted, its output).
    int32_t run(int32_t k, Worker &wk) const {
        const int32_t y0 = firstRow(k), y1 = k + 1 == bands ? h : firstRow(k + 1);
        const bool mono = f.phase == kMono;
        const int32_t margin = bands == 1 || mono ? 0 : kMargin;
        const int32_t s0 = std::max(0, y0 - margin), s1 = std::min(h, y1 + margin);
        uint16_t *const s = wk.samples.data(), *const normalised[2] = {s + w, s + 2 * w};
        for (int32_t y = writes ? s0 : y0; y < (writes ? s1 : y1); ++y) {
            // Rows of counted cells: the band's own, a cell row in kCellRowStep.
            const bool counted = counts && !mono && y >= y0 && y < y1 && y / 2 % kCellRowStep == 0;
            if (!writes && !counted) continue;
            uint16_t *m = writes ? wk.mosaic.data() + ptrdiff_t{y - s0} * w : nullptr;
            if (!counted) { // full samples, balanced where they lie
                reader.row(y, m);
                balance(m, m, w, rowBalance[y & 1]);
                continue;
            }
            reader.row(y, s);
            balance(s, normalised[y & 1], w, rowNormal[y & 1]);
            if ((y & 1) == 1) countCells(normalised[0], normalised[1], w, f.phase, wk.sums);
            if (writes) balance(s, m, w, rowBalance[y & 1]);
        }
        if (!writes) return VQP_OK;
        if (mono) {
            for (int32_t y = y0; y < y1; ++y) {
                const uint16_t *v = wk.mosaic.data() + ptrdiff_t{y - s0} * w;
                store->put(y, v, v, v, 1, true, wk.row.data());
            }
            return VQP_OK;
        }
        // Camera colour in planes where the method writes them as fast as pixels (bilinear, nearest), so
        // that the matrix reads them as they are; edge-directed colour comes as B, G, R pixels.
        const bool planes = method != VQP_METHOD_EDGE;
        const uint64_t layout = planes ? VQP_PIXEL_FORMAT_BGR16_PLANAR : VQP_PIXEL_FORMAT_BGR16;
        if (const int32_t rc = vqpDemosaicSetConfig16(wk.demosaic, &layout); rc != VQP_OK) return rc;
        ImageFrame in{s1 - s0, w, kMosaicCode[f.phase], wk.mosaic.data(), 2 * w};
        ImageFrame out{0, 0, 0, wk.camera.data(), 0};
        if (const int32_t rc = vqpDemosaicing16(wk.demosaic, &in, method, &out, 1); rc != VQP_OK) return rc;
        const ptrdiff_t plane = ptrdiff_t{s1 - s0} * w;
        for (int32_t y = y0; y < y1; ++y) {
            const ptrdiff_t row = ptrdiff_t{y - s0} * w;
            const uint16_t *b = wk.camera.data() + (planes ? row : 3 * row);
            const uint16_t *g = planes ? b + plane : b + 1, *r = planes ? b + 2 * plane : b + 2;
            if (store->cubics != nullptr) {
                store->encode(y, b, g, r, planes ? 1 : 3, wk.row.data());
                continue;
            }
            if (store->identity) {
                store->put(y, b, g, r, planes ? 1 : 3, false, wk.row.data());
                continue;
            }
            uint16_t *mixed = wk.planes.data();
            store->mix(b, g, r, planes ? 1 : 3, mixed);
            store->put(y, mixed + 3 * w, mixed + 4 * w, mixed + 5 * w, 1, false, wk.row.data());
        }
        return VQP_OK;
    }
};

bool neutral8(const Settings &s, const Input &f) {
    for (float b : s.black)
        if (b != 0.0f) return false;
    for (float g : s.gain)
        if (g != 1.0f) return false;
    return f.bits == 8 && (s.white == 0.0f || s.white == 255.0f) && s.autoMode == VQP_BALANCE_WHITE_AUTO_OFF &&
           s.identity && s.curve == VQP_TRANSFER_LINEAR;
}

// Neutral settings on 8-bit input: the plain conversion, padded rows compacted into a copy (the input is
// never written).
int32_t plain(ProcessingHandle *handle, const ImageFrame *in, uint32_t method, ImageFrame *out, uint32_t threads) {
    if (in->stride == in->width) return vqpDemosaicingParallel(handle, in, method, out, threads);
    try {
        if (handle->developState == nullptr) handle->developState = new State();
        std::vector<unsigned char> &rows = handle->developState->compact;
        const size_t w = static_cast<size_t>(in->width);
        rows.resize(static_cast<size_t>(in->height) * w);
        for (int32_t y = 0; y < in->height; ++y)
            std::memcpy(rows.data() + y * w, static_cast<const unsigned char *>(in->data) + ptrdiff_t{y} * in->stride, w);
        const ImageFrame packed{in->height, in->width, in->pixelFormat, rows.data(), in->width};
        return vqpDemosaicingParallel(handle, &packed, method, out, threads);
    } catch (const std::bad_alloc &) {
        return VQP_ERR_OUT_OF_MEMORY;
    }
}

int32_t develop(ProcessingHandle *handle, const ImageFrame *in, uint32_t method, ImageFrame *out, uint32_t threads,
                bool wide) {
    if (handle == nullptr || in == nullptr || out == nullptr || in->data == nullptr || out->data == nullptr)
        return VQP_ERR_NULL_ARGUMENT;
    if (in->height <= 3 || in->stride <= 3 || in->width <= 3) return VQP_ERR_BAD_DIMENSIONS;
    if (static_cast<int32_t>(static_cast<uint32_t>(in->height) * static_cast<uint32_t>(in->width)) < 0)
        return VQP_ERR_BAD_DIMENSIONS;
    Input f;
    if (!classify(in->pixelFormat, &f)) return VQP_ERR_UNSUPPORTED_INPUT_FORMAT;
    Settings &set = handle->develop;
    const double white = whiteOf(set, f.bits);
    for (float b : set.black)
        if (!(b < white)) return VQP_ERR_BAD_PARAMETER;
    if (!wide && neutral8(set, f)) return plain(handle, in, method, out, threads);

    const uint64_t config = wide ? handle->config16 : handle->config;
    const bool colour = f.phase != kMono;
    const bool writes = !colour || method <= VQP_METHOD_EDGE;
    const int32_t h = in->height, w = in->width;
    const ptrdiff_t n = ptrdiff_t{h} * w;
    const int32_t band = bandRowsFor(w);
    const int32_t bands = h <= band + 2 * kMargin ? 1 : (h + band - 1) / band;
    int count = std::min(vq::threadCount(threads), bands);
    vq::Workers *workers = vq::u16::workersFor(handle, count, n);
    if (workers == nullptr) count = 1;

    try {
        if (handle->developState == nullptr) handle->developState = new State();
        State &st = *handle->developState;
        if (st.workers.size() < static_cast<size_t>(count)) st.workers.resize(static_cast<size_t>(count));
        const int32_t rowsMax = bands == 1 ? h : band + 2 * kMargin;
        for (int k = 0; k < count; ++k) {
            Worker &wk = st.workers[static_cast<size_t>(k)];
            if (wk.demosaic == nullptr) {
                if (const int32_t rc = vqpCreate(&wk.demosaic); rc != VQP_OK) return rc;
            }
            wk.samples.resize(3 * static_cast<size_t>(w));
            wk.mosaic.resize(static_cast<size_t>(rowsMax) * static_cast<size_t>(w));
            if (colour) wk.camera.resize(3 * static_cast<size_t>(rowsMax) * static_cast<size_t>(w));
            wk.row.resize(6 * static_cast<size_t>(w));
            wk.planes.resize(6 * static_cast<size_t>(w));
            wk.sums = Sums{};
        }
        const Reader reader{*in, f};
        // Runs pass.run over every band on `count` threads; the first failure's status.
        const auto everyBand = [&](const Pass &pass) {
            int32_t status[256] = {};
            const auto part = [&](int k) {
                for (int32_t b = bands * k / count; b < bands * (k + 1) / count && status[k] == VQP_OK; ++b)
                    status[k] = pass.run(b, st.workers[static_cast<size_t>(k)]);
            };
            if (workers != nullptr) workers->run(count, part);
            else part(0);
            Sums total;
            for (int k = 0; k < count; ++k) total.add(st.workers[static_cast<size_t>(k)].sums);
            for (int k = 0; k < count; ++k) st.workers[static_cast<size_t>(k)].sums = Sums{};
            for (int k = 0; k < count; ++k)
                if (status[k] != VQP_OK) return std::pair{status[k], total};
            return std::pair{int32_t{VQP_OK}, total};
        };

        const bool measure = colour && writes && set.autoMode != VQP_BALANCE_WHITE_AUTO_OFF;
        const bool measureFirst = measure && (set.autoMode == VQP_BALANCE_WHITE_AUTO_ONCE || !set.primed);
        const Balance normal[2] = {balanceOf(set, f, 0, false), balanceOf(set, f, 1, false)};
        if (measureFirst) {
            const Pass stats{reader, f, h, w, band, bands, method, false, {}, true, {normal[0], normal[1]}, nullptr};
            const auto [rc, sums] = everyBand(stats);
            if (rc != VQP_OK) return rc;
            gainsOf(sums, set.gain);
            if (set.autoMode == VQP_BALANCE_WHITE_AUTO_ONCE) set.autoMode = VQP_BALANCE_WHITE_AUTO_OFF;
            else set.primed = true;
        }
        if (writes) {
            buildCurve(set, wide, st);
            Store store{};
            store.format = static_cast<uint32_t>(config);
            store.wide = wide;
            store.dst = static_cast<unsigned char *>(out->data);
            store.n = n, store.w = w;
            store.curve8 = st.curve8.data(), store.curve16 = st.curve16.data();
            store.identity = set.identity;
            store.cubics = !wide && st.cubic ? st.cubics : nullptr;
            for (int i = 0; i < 9; ++i) // the matrix maps R, G, B; the store works in B, G, R
                store.m[3 * (2 - i / 3) + 2 - i % 3] = set.matrix[i];
            const bool gather = measure && !measureFirst;
            const Pass pass{reader, f, h, w, band, bands, method, true, {balanceOf(set, f, 0), balanceOf(set, f, 1)},
                            gather, {normal[0], normal[1]}, &store};
            const auto [rc, sums] = everyBand(pass);
            if (rc != VQP_OK) return rc;
            float measured[3];
            if (gather && gainsOf(sums, measured)) // continuous: half-way towards the new measurement
                for (int c = 0; c < 3; ++c) set.gain[c] = 0.5f * (set.gain[c] + measured[c]);
        }
    } catch (const std::bad_alloc &) {
        return VQP_ERR_OUT_OF_MEMORY;
    }
    out->height = in->height;
    out->width = in->width;
    out->pixelFormat = static_cast<uint32_t>(config);
    return VQP_OK;
}

} // namespace

} // namespace vq::develop

int32_t vqpDevelop(ProcessingHandle *handle, const ImageFrame *in, uint32_t method, ImageFrame *out,
                   uint32_t threads) {
    return vq::develop::develop(handle, in, method, out, threads, false);
}

int32_t vqpDevelop16(ProcessingHandle *handle, const ImageFrame *in, uint32_t method, ImageFrame *out,
                     uint32_t threads) {
    return vq::develop::develop(handle, in, method, out, threads, true);
}
