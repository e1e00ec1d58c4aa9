// The PNG encoder of velqora-convert, shared with the Python module so that both write the same bytes for
// the same pixels.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace vqtool {

// Writes a PNG of `channels` 1 (grey) or 3 (R, G, B interleaved) and `bits` 8 or 16 (16-bit samples in host
// order; `sigBits` between 1 and 15 is recorded as the meaningful depth) to `file`. Returns false with
// libpng's message in `error` when writing failed.
bool encodePng(std::FILE *file, int32_t width, int32_t height, int channels, int bits, const void *pixels,
               int sigBits, std::string &error);

} // namespace vqtool
