// Reading mosaics from PGM and PNG files, writing PNG, PPM/PGM and raw files without ever leaving a
// half-written file under the target name.
#include <png.h>

#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "png_encode.h"
#include "tool.h"

namespace vqtool {
namespace {

std::string why() { return std::strerror(errno); }

bool hostIsLittleEndian() {
    const uint16_t one = 1;
    uint8_t first;
    std::memcpy(&first, &one, 1);
    return first == 1;
}

// The temporary file being written, for the signal handler: removed if the tool is interrupted.
char g_pendingTemp[4096];

extern "C" void removePendingAndExit(int sig) {
    if (g_pendingTemp[0] != '\0') unlink(g_pendingTemp);
    _exit(128 + sig);
}

void installSignalCleanup() {
    static bool done = false;
    if (done) return;
    done = true;
    struct sigaction sa {};
    sa.sa_handler = removePendingAndExit;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGHUP, &sa, nullptr);
}

struct FileCloser {
    void operator()(std::FILE *f) const { std::fclose(f); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

FilePtr openInput(const std::string &path) {
    FilePtr f(std::fopen(path.c_str(), "rb"));
    if (!f) throw Failure(kExitInput, path + ": cannot open: " + why());
    return f;
}

} // namespace

std::vector<uint8_t> readFile(const std::string &path) {
    FilePtr f = openInput(path);
    std::vector<uint8_t> bytes;
    uint8_t buf[1 << 16];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f.get())) > 0) bytes.insert(bytes.end(), buf, buf + n);
    if (std::ferror(f.get())) throw Failure(kExitInput, path + ": cannot read: " + why());
    return bytes;
}

// ---- PGM -------------------------------------------------------------------------------------------

GreyImage readPgm(const std::string &path) {
    const std::vector<uint8_t> bytes = readFile(path);
    size_t pos = 0;
    auto bad = [&](const std::string &what) {
        return Failure(kExitInput, path + " is not a binary PGM (" + what +
                                       "): save the mosaic as P5 greyscale, 8 or 16 bits a sample");
    };
    auto skipSpace = [&] {
        while (pos < bytes.size()) {
            if (bytes[pos] == '#') {
                while (pos < bytes.size() && bytes[pos] != '\n') ++pos;
            } else if (std::isspace(bytes[pos])) {
                ++pos;
            } else {
                break;
            }
        }
    };
    auto number = [&](const char *what) {
        skipSpace();
        uint64_t v = 0;
        size_t digits = 0;
        while (pos < bytes.size() && std::isdigit(bytes[pos]) && digits < 10) v = v * 10 + (bytes[pos++] - '0'), ++digits;
        if (digits == 0 || v > 0x7FFFFFFF) throw bad(std::string("bad ") + what);
        return int64_t(v);
    };
    if (bytes.size() < 2 || bytes[0] != 'P' || bytes[1] != '5') throw bad("no P5 header");
    pos = 2;
    const int64_t w = number("width"), h = number("height"), maxval = number("maximum value");
    if (maxval < 1 || maxval > 65535) throw bad("maximum value out of range");
    if (pos >= bytes.size() || !std::isspace(bytes[pos])) throw bad("header not ended by white space");
    ++pos;
    GreyImage img;
    img.width = int32_t(w);
    img.height = int32_t(h);
    img.bits = maxval > 255 ? 16 : 8;
    const uint64_t bytesPer = img.bits / 8;
    const uint64_t need = uint64_t(w) * uint64_t(h) * bytesPer;
    if (need > (uint64_t(1) << 34)) throw bad("frame too large");
    if (bytes.size() - pos < need)
        throw Failure(kExitInput, path + " is cut short: " + std::to_string(w) + " x " + std::to_string(h) +
                                      " samples need " + std::to_string(need) + " bytes after the header, it has " +
                                      std::to_string(bytes.size() - pos));
    img.samples.resize(size_t(w) * size_t(h));
    for (size_t i = 0; i < img.samples.size(); ++i)
        img.samples[i] = bytesPer == 1 ? bytes[pos + i]
                                       : uint16_t((bytes[pos + 2 * i] << 8) | bytes[pos + 2 * i + 1]);
    return img;
}

// ---- PNG --------------------------------------------------------------------------------------------

namespace {

// libpng reports errors through longjmp; errors here become a message and a flag instead.
struct PngErrors {
    std::string message;
};
extern "C" void pngError(png_structp png, png_const_charp msg) {
    auto *e = static_cast<PngErrors *>(png_get_error_ptr(png));
    e->message = msg;
    png_longjmp(png, 1);
}
extern "C" void pngWarning(png_structp, png_const_charp) {}


// The libpng calls that may jump back on an error; nothing with a destructor lives in these frames.
struct PngHeader {
    png_uint_32 width, height;
    int depth, colour;
};
bool pngReadHeader(png_structp png, png_infop info, std::FILE *f, PngHeader *h) {
    if (setjmp(png_jmpbuf(png))) return false;
    png_init_io(png, f);
    png_set_sig_bytes(png, 8);
    png_set_user_limits(png, 1u << 16, 1u << 16);
    png_read_info(png, info);
    h->width = png_get_image_width(png, info);
    h->height = png_get_image_height(png, info);
    h->depth = png_get_bit_depth(png, info);
    h->colour = png_get_color_type(png, info);
    return true;
}
bool pngReadRows(png_structp png, png_bytepp rows, bool swap) {
    if (setjmp(png_jmpbuf(png))) return false;
    if (swap) png_set_swap(png);
    png_read_image(png, rows);
    return true;
}
} // namespace

GreyImage readPng(const std::string &path) {
    FilePtr f = openInput(path);
    uint8_t sig[8] = {};
    if (std::fread(sig, 1, 8, f.get()) != 8 || png_sig_cmp(sig, 0, 8) != 0)
        throw Failure(kExitInput, path + " is not a PNG file: give a PNG, a PGM or a raw frame");
    PngErrors errors;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &errors, pngError, pngWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        png_destroy_read_struct(&png, nullptr, nullptr);
        throw Failure(kExitInput, "out of memory reading " + path);
    }
    PngHeader hdr{};
    GreyImage img;
    std::string problem;
    if (!pngReadHeader(png, info, f.get(), &hdr)) {
        problem = " is a damaged PNG (" + errors.message + ")";
    } else if (hdr.colour != PNG_COLOR_TYPE_GRAY) {
        problem = " holds colour or alpha, not a greyscale mosaic: save the raw mosaic as 8 or 16-bit greyscale";
    } else if (hdr.depth != 8 && hdr.depth != 16) {
        problem = " has " + std::to_string(hdr.depth) + "-bit samples: mosaics must be 8 or 16-bit greyscale";
    } else {
        const size_t bytesPer = size_t(hdr.depth / 8), n = size_t(hdr.width) * size_t(hdr.height);
        std::vector<uint8_t> raw(n * bytesPer);
        std::vector<png_bytep> rows(hdr.height);
        for (png_uint_32 y = 0; y < hdr.height; ++y) rows[y] = raw.data() + size_t(y) * hdr.width * bytesPer;
        if (!pngReadRows(png, rows.data(), hdr.depth == 16 && hostIsLittleEndian())) {
            problem = " is a damaged PNG (" + errors.message + ")";
        } else {
            img.width = int32_t(hdr.width);
            img.height = int32_t(hdr.height);
            img.bits = hdr.depth;
            img.samples.resize(n);
            for (size_t i = 0; i < n; ++i) {
                if (bytesPer == 1) {
                    img.samples[i] = raw[i];
                } else {
                    uint16_t v;
                    std::memcpy(&v, raw.data() + 2 * i, 2);
                    img.samples[i] = v;
                }
            }
        }
    }
    png_destroy_read_struct(&png, &info, nullptr);
    if (!problem.empty()) throw Failure(kExitInput, path + problem);
    return img;
}

// ---- atomic output ----------------------------------------------------------------------------------

AtomicFile::AtomicFile(const std::string &path) : path_(path) {
    installSignalCleanup();
    const size_t slash = path.rfind('/');
    const std::string dir = slash == std::string::npos ? "" : path.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    std::string pattern = dir + "." + base + ".partial-XXXXXX";
    if (pattern.size() >= sizeof g_pendingTemp) throw Failure(kExitOutput, "output path too long: " + path);
    const int fd = mkstemp(pattern.data());
    if (fd < 0) throw Failure(kExitOutput, "cannot create " + path + ": " + why());
    temp_ = pattern;
    std::memcpy(g_pendingTemp, temp_.c_str(), temp_.size() + 1);
    file_ = fdopen(fd, "wb");
    if (!file_) {
        close(fd);
        unlink(temp_.c_str());
        g_pendingTemp[0] = '\0';
        throw Failure(kExitOutput, "cannot write " + path + ": " + why());
    }
}

AtomicFile::~AtomicFile() {
    if (file_) std::fclose(file_);
    if (!temp_.empty()) {
        unlink(temp_.c_str());
        g_pendingTemp[0] = '\0';
    }
}

void AtomicFile::commit() {
    const bool writeError = std::ferror(file_) != 0;
    const int closed = std::fclose(file_);
    file_ = nullptr;
    if (writeError || closed != 0) throw Failure(kExitOutput, "cannot write " + path_ + ": " + why());
    // Files made by mkstemp are private (0600); give the result the usual permissions.
    const mode_t mask = umask(0);
    umask(mask);
    chmod(temp_.c_str(), 0666 & ~mask);
    if (std::rename(temp_.c_str(), path_.c_str()) != 0)
        throw Failure(kExitOutput, "cannot write " + path_ + ": " + why());
    temp_.clear();
    g_pendingTemp[0] = '\0';
}

void writePng(AtomicFile &file, int32_t width, int32_t height, int channels, int bits, const void *pixels,
              int sigBits) {
    std::string error;
    if (!encodePng(file.stream(), width, height, channels, bits, pixels, sigBits, error))
        throw Failure(kExitOutput, "cannot write PNG: " + error);
}


void writePnm(AtomicFile &file, int32_t width, int32_t height, int channels, int bits, const void *pixels,
              int sigBits) {
    const int maxval = bits == 8 ? 255 : (sigBits > 0 ? (1 << sigBits) - 1 : 65535);
    std::fprintf(file.stream(), "P%c\n%d %d\n%d\n", channels == 1 ? '5' : '6', width, height, maxval);
    const size_t n = size_t(width) * size_t(height) * size_t(channels);
    if (bits == 8) {
        std::fwrite(pixels, 1, n, file.stream());
        return;
    }
    const auto *s = static_cast<const uint16_t *>(pixels);
    std::vector<uint8_t> be(2 * n);
    for (size_t i = 0; i < n; ++i) be[2 * i] = uint8_t(s[i] >> 8), be[2 * i + 1] = uint8_t(s[i]);
    std::fwrite(be.data(), 1, be.size(), file.stream());
}

FileKind fileKindOf(const std::string &path) {
    const size_t dot = path.rfind('.');
    const size_t slash = path.rfind('/');
    std::string ext = dot == std::string::npos || (slash != std::string::npos && dot < slash) ? "" : path.substr(dot + 1);
    for (char &c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
    if (ext == "png") return FileKind::Png;
    if (ext == "ppm") return FileKind::Ppm;
    if (ext == "pgm") return FileKind::Pgm;
    if (ext == "raw" || ext == "bin") return FileKind::Raw;
    throw Failure(kExitUsage, "cannot tell the output type of '" + path +
                                  "': name the file .png, .ppm, .pgm or .raw");
}

} // namespace vqtool
