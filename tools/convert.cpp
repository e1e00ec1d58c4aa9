// velqora-convert: demosaics raw camera frames, PGM and PNG mosaics into PNG, PPM/PGM or raw files.
#include <sys/stat.h>

#include <cctype>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tool.h"
#include "velqora.h"

namespace vqtool {
int runDemo(const std::string &outDir);
}

using namespace vqtool;

namespace {

const char *const kUsage = R"(usage: velqora-convert [options] INPUT... (-o FILE | --out-dir DIR)
       velqora-convert --demo OUTDIR
       velqora-convert --list-formats
       velqora-convert --version

Demosaics raw Bayer or monochrome camera frames with the Velqora library.

Input (a raw frame dump, or a .pgm/.png greyscale mosaic of 8 or 16 bits):
  -f, --format NAME      input pixel format: a PFNC name (BayerRG8, BayerGB12, BayerRG12Packed,
                         Mono10Packed, ...) or its hex code (0x010C002B); required
  -W, --width N          raw input: pixels in a row
  -H, --height N         raw input: rows
      --stride N         raw input: bytes from one row to the next (default: rows packed,
                         3 bytes per 2 samples for packed formats)
Conversion:
  -m, --method NAME      nearest, bilinear or edge (edge-directed; the default)
      --output NAME      output pixel format: BGR8, RGB8, BGRA8, RGBA8, RGB8_Planar,
                         BGR8_Planar or Mono8 (default: RGB8, Mono8 for .pgm files and
                         monochrome input in .png, BGR8 for .raw)
      --u16              16-bit mode: Bayer input of 10 to 16 bits (any phase, unpacked or packed)
                         is demosaiced at full depth into 16-bit .png (scaled to 16 bits), .ppm or
                         .raw (B, G, R samples at the input's depth), by any method
Development (raw to picture, in the same pass; with none of these the output is a plain conversion;
each also with --u16, whose files then hold 0 .. 65535):
      --black N[,N,N,N]  black level, one for all sites or one per site of the 2x2 pattern (row 0
                         col 0, row 0 col 1, row 1 col 0, row 1 col 1), in input sample units
      --white N          the sample value that is full scale (default: the depth's maximum)
      --balance R,G,B    white-balance gains; or 'auto': grey world, each frame on its own
      --matrix A,B,...,I colour matrix, nine numbers, row-major, camera R, G, B to output R, G, B
      --transfer CURVE   linear (default), srgb, or a number: a gamma (encoded = linear^(1/gamma))
Output (the type follows the extension: .png, .ppm, .pgm, or .raw for the library's exact bytes):
  -o, --out FILE         the output file (one input)
  -d, --out-dir DIR      write each input to DIR/<input name>.<type> (several inputs)
      --type TYPE        the type written into --out-dir: png (default), ppm, pgm or raw
  -j, --threads N        threads to use (default 0: one per core); one input is split across them,
                         several inputs are converted side by side, one a thread
  -q, --quiet            no progress lines
Other:
      --demo OUTDIR      synthesise a test chart, demosaic it with every method and Bayer phase,
                         write PNGs and a comparison image to OUTDIR, print time and PSNR
      --list-formats     the accepted pixel-format names and codes
      --version          the library's version and the vector level it runs at on this machine
  -h, --help             this text

Exit status: 0 done, 2 bad command line, 3 unreadable or short input, 4 the library refused the
frame, 5 the output could not be written.
)";

struct Options {
    std::vector<std::string> inputs;
    std::string format, outFile, outDir, type = "png", demoDir;
    std::string outputFormat;
    int64_t width = -1, height = -1, stride = -1;
    Method method = Method::Edge;
    bool u16 = false, quiet = false;
    int64_t threads = 0; // 0: one per hardware thread
    DevelopOptions develop;
};

[[noreturn]] void usageError(const std::string &line) { throw Failure(kExitUsage, line + " (see --help)"); }

int64_t parseCount(const std::string &option, const std::string &text) {
    char *end = nullptr;
    errno = 0;
    const long long v = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || v < 0 || v > 0x7FFFFFFF)
        usageError(option + " needs a whole number from 0 to 2147483647, not '" + text + "'");
    return v;
}

Method parseMethod(const std::string &text) {
    if (text == "nearest" || text == "0") return Method::Nearest;
    if (text == "bilinear" || text == "1") return Method::Bilinear;
    if (text == "edge" || text == "edge-directed" || text == "2") return Method::Edge;
    usageError("unknown method '" + text + "': use nearest, bilinear or edge");
}

Options parseArgs(int argc, char **argv, bool &done) {
    Options o;
    done = false;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i], value;
        bool hasValue = false;
        if (arg.rfind("--", 0) == 0 && arg.find('=') != std::string::npos) {
            value = arg.substr(arg.find('=') + 1);
            arg = arg.substr(0, arg.find('='));
            hasValue = true;
        }
        auto next = [&]() -> std::string {
            if (hasValue) return value;
            if (i + 1 >= argc) usageError(arg + " needs a value");
            return argv[++i];
        };
        if (arg == "-h" || arg == "--help") {
            std::fputs(kUsage, stdout);
            done = true;
            return o;
        } else if (arg == "--version") {
            std::printf("velqora-convert %s, library %s, vector level %s\n", VQP_VERSION_STRING,
                        vqpVersionString(), vqpVectorLevel());
            done = true;
            return o;
        } else if (arg == "--list-formats") {
            listFormats(stdout);
            done = true;
            return o;
        } else if (arg == "-f" || arg == "--format") {
            o.format = next();
        } else if (arg == "-W" || arg == "--width") {
            o.width = parseCount("--width", next());
        } else if (arg == "-H" || arg == "--height") {
            o.height = parseCount("--height", next());
        } else if (arg == "--stride") {
            o.stride = parseCount("--stride", next());
        } else if (arg == "-m" || arg == "--method") {
            o.method = parseMethod(next());
        } else if (arg == "--output") {
            o.outputFormat = next();
        } else if (arg == "-o" || arg == "--out") {
            o.outFile = next();
        } else if (arg == "-d" || arg == "--out-dir") {
            o.outDir = next();
        } else if (arg == "--type") {
            o.type = next();
        } else if (arg == "--black" || arg == "--white" || arg == "--balance" || arg == "--matrix" ||
                   arg == "--transfer") {
            parseDevelopOption(arg, next(), o.develop);
        } else if (arg == "--u16") {
            o.u16 = true;
        } else if (arg == "-j" || arg == "--threads") {
            o.threads = parseCount("--threads", next());
        } else if (arg == "-q" || arg == "--quiet") {
            o.quiet = true;
        } else if (arg == "--demo") {
            o.demoDir = next();
        } else if (arg == "--") {
            for (++i; i < argc; ++i) o.inputs.push_back(argv[i]);
        } else if (arg.size() > 1 && arg[0] == '-') {
            usageError("unknown option '" + arg + "'");
        } else {
            o.inputs.push_back(arg);
        }
    }
    return o;
}

bool endsWithNoCase(const std::string &s, const char *suffix) {
    const size_t n = std::strlen(suffix);
    if (s.size() < n) return false;
    for (size_t i = 0; i < n; ++i)
        if (std::tolower(static_cast<unsigned char>(s[s.size() - n + i])) != suffix[i]) return false;
    return true;
}

// Packs samples two in three bytes, rows run on as one stream (the library's packed layout): the first
// and third byte hold the high 8 bits of the two samples, the middle byte their low bits, the first
// sample's in the low nibble.
void packSamples(const std::vector<uint16_t> &s, int bits, std::vector<uint8_t> &out) {
    const int low = bits - 8;
    const uint32_t mask = (1u << bits) - 1;
    for (size_t i = 0; i < s.size(); i += 2) {
        const uint32_t a = s[i] & mask, b = i + 1 < s.size() ? s[i + 1] & mask : 0;
        const size_t o = i / 2 * 3;
        out[o] = uint8_t(a >> low);
        out[o + 1] = uint8_t((a & ((1u << low) - 1)) | ((b & ((1u << low) - 1)) << 4));
        out[o + 2] = uint8_t(b >> low);
    }
}

constexpr size_t kSlack = 64; // the library may read a byte or two past a packed frame

// 16-bit containers whose samples exceed the format's depth are usually MSB-aligned data given the
// wrong format; the library would keep the low bits of each shifted sample.
void warnIfAboveDepth(const LoadedInput &in) {
    const InputFormat &f = in.format;
    if (f.packed || f.bits <= 8 || f.bits >= 16) return;
    uint16_t largest = 0;
    for (int32_t y = 0; y < in.height; ++y) {
        const uint8_t *row = in.bytes.data() + size_t(y) * size_t(in.stride);
        for (int32_t x = 0; x < in.width; ++x) {
            uint16_t v;
            std::memcpy(&v, row + 2 * size_t(x), 2);
            largest = v > largest ? v : largest;
        }
    }
    if (largest >> f.bits)
        std::fprintf(stderr, "velqora-convert: %s: note: samples exceed %d bits (largest %u); for MSB-aligned data "
                             "give a 16-bit format\n", in.path.c_str(), f.bits, unsigned(largest));
}

// The frames the tool takes: below 536870912 samples (its 4-byte output must fit a 32-bit count) and a
// stride a 32-bit count holds.
void checkFrameSize(const std::string &path, uint64_t w, uint64_t h, uint64_t stride) {
    if (w * h > 0x7FFFFFFFu / 4 || stride > 0x7FFFFFFF)
        throw Failure(kExitLibrary, path + ": a " + std::to_string(w) + " x " + std::to_string(h) +
                                        " frame is too large: keep width x height below 536870912 samples " +
                                        statusTag(VQP_ERR_BAD_DIMENSIONS));
}

LoadedInput loadInput(const std::string &path, const Options &o) {
    LoadedInput in;
    in.path = path;
    in.format = parseInputFormat(o.format);
    const InputFormat &f = in.format;
    const bool image = endsWithNoCase(path, ".png") || endsWithNoCase(path, ".pgm");
    if (!image) {
        if (o.width < 0 || o.height < 0)
            usageError("raw input " + path + " needs --width and --height (or give a .png or .pgm mosaic)");
        const uint64_t w = uint64_t(o.width), h = uint64_t(o.height);
        const uint64_t minStride = defaultStride(f, w);
        const uint64_t stride = o.stride >= 0 ? uint64_t(o.stride) : minStride;
        if (stride < minStride)
            usageError("--stride " + std::to_string(stride) + " is shorter than a row of " + std::to_string(w) + " " +
                       f.name + " samples: give at least " + std::to_string(minStride) + " bytes");
        if (!f.packed && f.bits > 8 && stride % 2 != 0)
            usageError("--stride " + std::to_string(stride) + " is odd: rows of 16-bit samples start on even byte offsets");
        // Sizes the library refuses are refused before the file is read.
        if (w < 4 || h < 4)
            throw Failure(kExitLibrary, path + ": " + (h < 4 ? "height " + std::to_string(h) : "width " + std::to_string(w)) +
                                            " is too small: frames need at least 4 rows and columns " +
                                            statusTag(VQP_ERR_BAD_DIMENSIONS));
        checkFrameSize(path, w, h, stride);
        in.bytes = readFile(path);
        const uint64_t need = frameBytes(f, h, w, stride);
        if (in.bytes.size() < need)
            throw Failure(kExitInput, path + " holds " + std::to_string(in.bytes.size()) + " bytes, but a " +
                                          std::to_string(w) + " x " + std::to_string(h) + " " + f.name + " frame" +
                                          (o.stride >= 0 ? " with stride " + std::to_string(stride) : "") + " needs " +
                                          std::to_string(need) + ": check --width, --height, --format and --stride");
        if (in.bytes.size() > need)
            in.warning = path + ": warning: the file holds " + std::to_string(in.bytes.size()) + " bytes, a " +
                         std::to_string(w) + " x " + std::to_string(h) + " " + f.name + " frame " +
                         std::to_string(need) + "; the rest is ignored (check --width, --height, --format and --stride)";
        in.width = int32_t(w);
        in.height = int32_t(h);
        in.stride = int64_t(stride);
    } else {
        if (o.stride >= 0) usageError("--stride applies to raw input only, not to " + path);
        const GreyImage img = endsWithNoCase(path, ".png") ? readPng(path) : readPgm(path);
        if ((o.width >= 0 && o.width != img.width) || (o.height >= 0 && o.height != img.height))
            usageError(path + " is " + std::to_string(img.width) + " x " + std::to_string(img.height) +
                       ": leave out --width and --height for PNG and PGM input, the file gives its size");
        if (img.bits == 8 && f.bits != 8)
            throw Failure(kExitInput, path + " holds 8-bit samples but " + f.name + " has " + std::to_string(f.bits) +
                                          ": use an 8-bit format such as BayerRG8 or Mono8");
        if (img.bits == 16 && f.bits == 8)
            throw Failure(kExitInput, path + " holds 16-bit samples but " + f.name +
                                          " has 8: use a 10, 12, 14 or 16-bit format such as BayerRG12");
        in.width = img.width;
        in.height = img.height;
        const size_t n = img.samples.size();
        if (f.packed) {
            in.stride = int64_t(defaultStride(f, uint64_t(img.width)));
            in.bytes.assign((n + 1) / 2 * 3, 0);
            packSamples(img.samples, f.bits, in.bytes);
        } else if (f.bits == 8) {
            in.stride = img.width;
            in.bytes.resize(n);
            for (size_t i = 0; i < n; ++i) in.bytes[i] = uint8_t(img.samples[i]);
        } else {
            in.stride = int64_t(img.width) * 2;
            in.bytes.resize(2 * n);
            std::memcpy(in.bytes.data(), img.samples.data(), 2 * n);
        }
    }
    checkFrameSize(path, uint64_t(in.width), uint64_t(in.height), uint64_t(in.stride));
    warnIfAboveDepth(in);
    in.bytes.resize(in.bytes.size() + kSlack, 0);
    return in;
}

// The line for a status the library returned for this frame.
std::string libraryProblem(int32_t status, const LoadedInput &in, const OutputFormat &out) {
    switch (status) {
    case VQP_ERR_BAD_DIMENSIONS:
        if (in.height < 4)
            return "height " + std::to_string(in.height) + " is too small: frames need at least 4 rows and columns " +
                   statusTag(status);
        if (in.width < 4)
            return "width " + std::to_string(in.width) + " is too small: frames need at least 4 rows and columns " +
                   statusTag(status);
        if (in.stride < 4)
            return "stride " + std::to_string(in.stride) + " is too small: rows need at least 4 bytes " + statusTag(status);
        return "a " + std::to_string(in.width) + " x " + std::to_string(in.height) + " frame is too large " +
               statusTag(status);
    case VQP_ERR_UNSUPPORTED_INPUT_FORMAT:
        return "input format " + in.format.name + " is not accepted: pick one listed by --list-formats " +
               statusTag(status);
    case VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT:
        return "output format " + std::string(out.name) + " is not accepted: use one of " + outputFormatNames() + " " +
               statusTag(status);
    case VQP_ERR_OUT_OF_MEMORY:
        return "out of memory for a " + std::to_string(in.width) + " x " + std::to_string(in.height) +
               " frame: free memory or convert smaller frames " + statusTag(status);
    default:
        return "the library refused the frame " + statusTag(status);
    }
}

uint32_t defaultOutput(FileKind kind, const InputFormat &f) {
    switch (kind) {
    case FileKind::Pgm: return VQP_PIXEL_FORMAT_MONO8;
    case FileKind::Raw: return VQP_PIXEL_FORMAT_BGR8;
    case FileKind::Png: return f.phase[0] == '\0' ? VQP_PIXEL_FORMAT_MONO8 : VQP_PIXEL_FORMAT_RGB8;
    case FileKind::Ppm: return VQP_PIXEL_FORMAT_RGB8;
    }
    return VQP_PIXEL_FORMAT_RGB8;
}

// Rearranges the library's output into the R, G, B (or grey) order of an image file.
std::vector<uint8_t> toFileOrder(const std::vector<uint8_t> &px, const OutputFormat &of, size_t n) {
    if (of.code == VQP_PIXEL_FORMAT_MONO8 || of.code == VQP_PIXEL_FORMAT_RGB8) return px;
    std::vector<uint8_t> rgb(3 * n);
    for (size_t i = 0; i < n; ++i) {
        uint8_t r, g, b;
        switch (of.code) {
        case VQP_PIXEL_FORMAT_BGR8: b = px[3 * i], g = px[3 * i + 1], r = px[3 * i + 2]; break;
        case VQP_PIXEL_FORMAT_BGRA8: b = px[4 * i], g = px[4 * i + 1], r = px[4 * i + 2]; break;
        case VQP_PIXEL_FORMAT_RGBA8: r = px[4 * i], g = px[4 * i + 1], b = px[4 * i + 2]; break;
        case VQP_PIXEL_FORMAT_RGB8_PLANAR: r = px[i], g = px[n + i], b = px[2 * n + i]; break;
        default: b = px[i], g = px[n + i], r = px[2 * n + i]; break; // BGR8_Planar
        }
        rgb[3 * i] = r, rgb[3 * i + 1] = g, rgb[3 * i + 2] = b;
    }
    return rgb;
}

// Checks that the file type can hold the output format before anything is computed.
void checkKindFits(FileKind kind, const OutputFormat &of) {
    if (kind == FileKind::Pgm && of.code != VQP_PIXEL_FORMAT_MONO8)
        usageError("a .pgm file holds grey images: use --output Mono8, or name the file .png or .ppm");
    if (kind == FileKind::Ppm && of.code == VQP_PIXEL_FORMAT_MONO8)
        usageError("a .ppm file holds colour images: name the file .pgm or .png for Mono8");
}

class Converter8 {
public:
    Converter8() {
        const int32_t status = vqpCreate(&handle_);
        if (status != VQP_OK) throw Failure(kExitLibrary, "cannot create a processing handle " + statusTag(status));
    }
    ~Converter8() { vqpRelease(&handle_); }
    Converter8(const Converter8 &) = delete;
    Converter8 &operator=(const Converter8 &) = delete;

    // Converts one frame on `threads` threads and writes it; returns the milliseconds spent demosaicing.
    double convert(LoadedInput &in, Method method, const OutputFormat &of, const std::string &outPath, FileKind kind,
                   uint32_t threads, const DevelopOptions &develop) {
        if (develop.any) applyDevelop(develop, handle_);
        const uint64_t config = of.code;
        int32_t status = vqpDemosaicSetConfig(handle_, &config);
        const size_t n = size_t(in.width) * size_t(in.height);
        std::vector<uint8_t> px(n * size_t(of.bytesPerPixel));
        ImageFrame src{in.height, in.width, in.format.code, in.bytes.data(), int32_t(in.stride)};
        ImageFrame dst{0, 0, 0, px.data(), 0};
        const auto start = std::chrono::steady_clock::now();
        if (status == VQP_OK)
            status = develop.any ? vqpDevelop(handle_, &src, uint32_t(method), &dst, threads)
                                 : vqpDemosaicingParallel(handle_, &src, uint32_t(method), &dst, threads);
        const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
        if (status == VQP_ERR_BAD_PARAMETER)
            throw Failure(kExitUsage, in.path + ": a black level is at or above the white level of " + in.format.name +
                                          " (--black): lower --black or raise --white " + statusTag(status));
        if (status != VQP_OK) throw Failure(kExitLibrary, in.path + ": " + libraryProblem(status, in, of));

        AtomicFile file(outPath);
        if (kind == FileKind::Raw) {
            std::fwrite(px.data(), 1, px.size(), file.stream());
        } else {
            const std::vector<uint8_t> ordered = toFileOrder(px, of, n);
            const int channels = of.code == VQP_PIXEL_FORMAT_MONO8 ? 1 : 3;
            if (kind == FileKind::Png)
                writePng(file, in.width, in.height, channels, 8, ordered.data());
            else
                writePnm(file, in.width, in.height, channels, 8, ordered.data());
        }
        file.commit();
        return ms;
    }

    ProcessingHandle *handle() const { return handle_; }

private:
    ProcessingHandle *handle_ = nullptr;
};

bool sameFile(const std::string &a, const std::string &b) {
    struct stat sa {}, sb {};
    if (stat(a.c_str(), &sa) != 0 || stat(b.c_str(), &sb) != 0) return false;
    return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

std::string outputPathFor(const Options &o, const std::string &input) {
    if (!o.outFile.empty()) return o.outFile;
    std::string stem = std::filesystem::path(input).stem().string();
    return (std::filesystem::path(o.outDir) / (stem + "." + o.type)).string();
}

int run(const Options &o) {
    if (!o.demoDir.empty()) {
        if (!o.inputs.empty()) usageError("--demo takes no input files");
        return runDemo(o.demoDir);
    }
    if (o.inputs.empty()) usageError("no input file given");
    if (o.format.empty()) usageError("say what the input holds: --format NAME, e.g. --format BayerRG8");
    if (o.outFile.empty() == o.outDir.empty())
        usageError(o.outFile.empty() ? "say where to write: -o FILE, or --out-dir DIR for several inputs"
                                     : "give either -o FILE or --out-dir DIR, not both");
    if (!o.outFile.empty() && o.inputs.size() > 1)
        usageError("several inputs go into a directory: use --out-dir DIR instead of -o");
    if (!o.outDir.empty()) {
        if (o.type != "png" && o.type != "ppm" && o.type != "pgm" && o.type != "raw")
            usageError("--type " + o.type + ": use png, ppm, pgm or raw");
        std::error_code ec;
        std::filesystem::create_directories(o.outDir, ec);
        if (ec) throw Failure(kExitOutput, "cannot create directory " + o.outDir + ": " + ec.message());
    }

    const InputFormat format = parseInputFormat(o.format); // name errors before any file is touched
    std::vector<std::string> outPaths;
    std::set<std::string> seen;
    for (const std::string &input : o.inputs) {
        outPaths.push_back(outputPathFor(o, input));
        if (!seen.insert(outPaths.back()).second)
            usageError("two inputs would both be written to " + outPaths.back() + ": rename one of them");
        if (sameFile(input, outPaths.back()))
            usageError(input + " would be overwritten by its own output: choose another output name");
    }
    const FileKind kind = fileKindOf(outPaths.front());
    OutputFormat of{};
    if (o.u16) {
        if (!o.outputFormat.empty())
            usageError("--output selects 8-bit layouts; the 16-bit mode writes B, G, R samples (.raw) or RGB (.png, .ppm)");
        if (kind == FileKind::Pgm) usageError("the 16-bit mode writes colour: name the output .png, .ppm or .raw");
    } else {
        if (format.bits == 14 && format.phase[0] != '\0' && !o.develop.any)
            usageError(format.name + " is converted at full depth only: add --u16 (or develop it: --black, --transfer, ...)");
        of = o.outputFormat.empty() ? outputFormatByCode(defaultOutput(kind, format)) : parseOutputFormat(o.outputFormat);
        checkKindFits(kind, of);
    }

    // One input is split across the threads; several are converted side by side, one a thread, in waves
    // whose lines are printed in input order.
    const size_t total = o.inputs.size();
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    const size_t threads = o.threads > 0 ? size_t(o.threads) : cores;
    const size_t lanes = total > 1 ? std::min(threads, total) : 1;
    const uint32_t threadsPerFrame = total > 1 ? 1u : uint32_t(threads);
    std::vector<std::unique_ptr<Converter8>> converters;
    for (size_t k = 0; k < lanes; ++k) converters.push_back(std::make_unique<Converter8>());
    struct Outcome {
        std::string line;  // the progress line, or the failure's message
        std::string warning; // printed when the frame was converted
        int exitCode = kExitOk;
        bool usage = false;
    };
    const auto convertOne = [&](size_t i, Converter8 &converter) -> Outcome {
        Outcome r;
        try {
            const auto start = std::chrono::steady_clock::now();
            LoadedInput in = loadInput(o.inputs[i], o);
            const double demosaicMs =
                o.u16 ? convertU16(in, o.method, outPaths[i], kind, converter.handle(), threadsPerFrame, o.develop)
                      : converter.convert(in, o.method, of, outPaths[i], kind, threadsPerFrame, o.develop);
            const double ms =
                std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
            char text[160];
            std::snprintf(text, sizeof text, " (%d x %d %s, %s, demosaic %.1f ms, %.1f ms with reading and writing)",
                          in.width, in.height, in.format.name.c_str(), methodName(o.method), demosaicMs, ms);
            char counter[48] = "";
            if (total > 1) std::snprintf(counter, sizeof counter, "[%zu/%zu] ", i + 1, total);
            r.warning = in.warning;
            r.line = counter;
            r.line += o.inputs[i];
            r.line += " -> ";
            r.line += outPaths[i];
            r.line += text;
        } catch (const Failure &f) {
            r.exitCode = f.exitCode;
            r.usage = f.exitCode == kExitUsage;
            const std::string line = f.what();
            // Messages that do not start with the input's name get it in front.
            r.line = line.rfind(o.inputs[i], 0) == 0 ? line : o.inputs[i] + ": " + line;
        }
        return r;
    };
    int exitCode = kExitOk;
    for (size_t first = 0; first < total; first += lanes) {
        const size_t count = std::min(lanes, total - first);
        std::vector<Outcome> outcomes(count);
        std::vector<std::thread> workers;
        for (size_t k = 1; k < count; ++k)
            workers.emplace_back([&, k] { outcomes[k] = convertOne(first + k, *converters[k]); });
        outcomes[0] = convertOne(first, *converters[0]);
        for (std::thread &t : workers) t.join();
        for (const Outcome &r : outcomes) {
            if (r.usage) throw Failure(kExitUsage, r.line);
            if (r.exitCode != kExitOk) {
                std::fflush(stdout);
                std::fprintf(stderr, "velqora-convert: %s\n", r.line.c_str());
                if (exitCode == kExitOk) exitCode = r.exitCode;
            } else {
                if (!r.warning.empty()) std::fprintf(stderr, "velqora-convert: %s\n", r.warning.c_str());
                if (!o.quiet) std::printf("%s\n", r.line.c_str());
                std::fflush(stdout);
            }
        }
    }
    if (total > 1 && exitCode != kExitOk && !o.quiet) std::printf("some inputs failed; the others were written\n");
    return exitCode;
}

} // namespace

int main(int argc, char **argv) {
    try {
        bool done = false;
        const Options o = parseArgs(argc, argv, done);
        if (done) return kExitOk;
        return run(o);
    } catch (const Failure &f) {
        std::fflush(stdout);
        std::fprintf(stderr, "velqora-convert: %s\n", f.what());
        return f.exitCode;
    } catch (const std::exception &e) {
        std::fprintf(stderr, "velqora-convert: %s\n", e.what());
        return 1;
    }
}
