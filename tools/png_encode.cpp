// PNG encoding with libpng: compression level 3, the default filters, an sBIT chunk for samples that use
// fewer bits than the file holds.
#include "png_encode.h"

#include <png.h>

#include <cstring>
#include <vector>

namespace vqtool {
namespace {

bool hostIsLittleEndian() {
    const uint16_t one = 1;
    uint8_t first;
    std::memcpy(&first, &one, 1);
    return first == 1;
}

// libpng reports errors through longjmp; the message is kept for the caller.
extern "C" void encodeError(png_structp png, png_const_charp msg) {
    *static_cast<std::string *>(png_get_error_ptr(png)) = msg;
    png_longjmp(png, 1);
}
extern "C" void encodeWarning(png_structp, png_const_charp) {}

// The libpng calls that may jump back on an error; nothing with a destructor lives in this frame.
bool pngWrite(png_structp png, png_infop info, std::FILE *f, png_uint_32 w, png_uint_32 h, int bits, int colour,
              int sigBits, png_bytepp rows, bool swap) {
    if (setjmp(png_jmpbuf(png))) return false;
    png_init_io(png, f);
    png_set_compression_level(png, 3);
    png_set_IHDR(png, info, w, h, bits, colour, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    if (sigBits > 0 && sigBits < bits) {
        png_color_8 sig{};
        sig.red = sig.green = sig.blue = sig.gray = png_byte(sigBits);
        png_set_sBIT(png, info, &sig);
    }
    png_write_info(png, info);
    if (swap) png_set_swap(png);
    png_write_image(png, rows);
    png_write_end(png, nullptr);
    return true;
}

} // namespace

bool encodePng(std::FILE *file, int32_t width, int32_t height, int channels, int bits, const void *pixels,
               int sigBits, std::string &error) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &error, encodeError, encodeWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        png_destroy_write_struct(&png, nullptr);
        error = "out of memory";
        return false;
    }
    const size_t rowBytes = size_t(width) * size_t(channels) * size_t(bits / 8);
    auto *base = static_cast<png_bytep>(const_cast<void *>(pixels));
    std::vector<png_bytep> rows(static_cast<size_t>(height));
    for (int32_t y = 0; y < height; ++y) rows[size_t(y)] = base + size_t(y) * rowBytes;
    const bool ok = pngWrite(png, info, file, png_uint_32(width), png_uint_32(height), bits,
                             channels == 1 ? PNG_COLOR_TYPE_GRAY : PNG_COLOR_TYPE_RGB, sigBits, rows.data(),
                             bits == 16 && hostIsLittleEndian());
    png_destroy_write_struct(&png, &info);
    return ok;
}

} // namespace vqtool
