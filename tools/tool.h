// velqora-convert: pieces shared by the 8-bit converter, the 16-bit mode and the demo.
#pragma once

#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "velqora.h"

namespace vqtool {

// Exit codes of the tool.
enum Exit : int {
    kExitOk = 0,
    kExitUsage = 2,   // the command line is wrong (unknown name, missing or bad value)
    kExitInput = 3,   // an input file cannot be read, is too short or is not a mosaic
    kExitLibrary = 4, // the library refused the frame
    kExitOutput = 5,  // the output file cannot be written
};

// A failure of one conversion: one line of text, already saying what to change, and the exit code.
struct Failure : std::runtime_error {
    int exitCode;
    Failure(int code, const std::string &line) : std::runtime_error(line), exitCode(code) {}
};

// "(status -104 VQP_ERR_BAD_DIMENSIONS)"
std::string statusTag(int32_t status);

// ---- pixel formats ----------------------------------------------------------------------------

struct InputFormat {
    uint32_t code = 0;
    std::string name;      // PFNC name, or the hex code when the table does not know it
    char phase[3] = "";    // "RG", "GR", "GB", "BG", or "" for monochrome
    int bits = 0;          // nominal sample depth: 8, 10, 12, 14 or 16
    bool packed = false;   // two samples in three bytes
    bool known = false;    // listed in the table (a hex code outside it is passed on as it is)
};

// By PFNC name (case-insensitive) or by hex code "0x...". Throws a usage Failure naming -102.
InputFormat parseInputFormat(const std::string &text);
// Bytes of one row of `width` samples, rows starting on a byte boundary (packed: 3 bytes per pair).
uint64_t rowBytes(const InputFormat &f, uint64_t width);
// Bytes that a frame of `height` x `width` occupies in a file with the given stride.
uint64_t frameBytes(const InputFormat &f, uint64_t height, uint64_t width, uint64_t stride);
// The stride the library assumes for packed rows: width + width / 2 (odd widths run on continuously).
uint64_t defaultStride(const InputFormat &f, uint64_t width);

struct OutputFormat {
    uint32_t code;
    const char *name;
    int bytesPerPixel; // 3, 4, or 1; planar formats count 3
    bool planar;
};
OutputFormat parseOutputFormat(const std::string &text); // throws a usage Failure naming -107
const OutputFormat &outputFormatByCode(uint32_t code);
std::string outputFormatNames(); // "BGR8, RGB8, ..."
void listFormats(std::FILE *out);

// ---- files --------------------------------------------------------------------------------------

std::vector<uint8_t> readFile(const std::string &path); // throws an input Failure

// A greyscale image file holding a mosaic, 8 or 16 bits a sample, samples in host order.
struct GreyImage {
    int32_t width = 0, height = 0;
    int bits = 8; // 8 or 16
    std::vector<uint16_t> samples;
};
GreyImage readPgm(const std::string &path);
GreyImage readPng(const std::string &path);

// An output file that appears under its name only once it is complete: the bytes go to a hidden
// temporary file in the same directory, renamed over the target by commit(). If commit() is never
// reached (an error, an exception, Ctrl-C), the temporary file is removed.
class AtomicFile {
public:
    explicit AtomicFile(const std::string &path);
    ~AtomicFile();
    AtomicFile(const AtomicFile &) = delete;
    AtomicFile &operator=(const AtomicFile &) = delete;
    std::FILE *stream() { return file_; }
    void commit();

private:
    std::string path_, temp_;
    std::FILE *file_ = nullptr;
};

// Image writers. `channels` is 1 (grey) or 3 (R, G, B interleaved); `bits` 8 or 16 (16-bit samples in
// host order, written big-endian as the file formats require; `sigBits` the meaningful depth).
void writePng(AtomicFile &file, int32_t width, int32_t height, int channels, int bits, const void *pixels,
              int sigBits = 0);
void writePnm(AtomicFile &file, int32_t width, int32_t height, int channels, int bits, const void *pixels,
              int sigBits = 0);

enum class FileKind { Png, Ppm, Pgm, Raw };
FileKind fileKindOf(const std::string &path); // by extension; throws a usage Failure

// ---- the 16-bit mode (u16_mode.cpp; a stand-in explains its absence when it is not built) --------

enum class Method { Nearest = 0, Bilinear = 1, Edge = 2 };
const char *methodName(Method m);

// One loaded input: the file's bytes (raw) or samples (PGM/PNG), with its frame geometry.
struct LoadedInput {
    std::string path;
    InputFormat format;
    int32_t width = 0, height = 0;
    int64_t stride = 0;         // bytes per row in `bytes`
    std::vector<uint8_t> bytes; // the frame as the library reads it, with zeroed slack at the end
    std::string warning; // a line for stderr once the frame is converted (a file longer than the frame)
};

// The development options (--black, --white, --balance, --matrix, --transfer); none given: a plain
// conversion, as before they existed.
struct DevelopOptions {
    bool any = false;
    bool black = false, white = false, balance = false, autoBalance = false, matrix = false, transfer = false;
    float blackLevels[4] = {0, 0, 0, 0};
    float whiteLevel = 0;
    float gains[3] = {1, 1, 1};
    float matrixValues[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    uint32_t curve = VQP_TRANSFER_LINEAR;
    float gamma = 1;
};
// Parses one development option's value into `d`; throws a usage Failure naming the option.
void parseDevelopOption(const std::string &option, const std::string &value, DevelopOptions &d);
// The settings on a handle (automatic balance: ONCE, each frame balanced on its own); throws a usage
// Failure naming the option the library refused.
void applyDevelop(const DevelopOptions &d, ProcessingHandle *handle);

// The 16-bit mode on `threads` threads of `handle`; returns the milliseconds spent demosaicing. With
// development options the frame is developed (vqpDevelop16, samples 0 .. 65535).
double convertU16(const LoadedInput &in, Method method, const std::string &outPath, FileKind kind,
                  ProcessingHandle *handle, uint32_t threads, const DevelopOptions &develop);

} // namespace vqtool
