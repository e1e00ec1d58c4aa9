// The converters by rows: what vqpDemosaicing calls when it converts a frame band by band.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/rows.h"
#include "simd/dispatch.h"

namespace vq {

// The phase codes that input classification yields (the 8-bit pixel-format codes).
inline constexpr uint32_t kPhaseMono = 0x01080001u, kPhaseGR = 0x01080008u, kPhaseRG = 0x01080009u,
                          kPhaseGB = 0x0108000Au, kPhaseBG = 0x0108000Bu;

// Output rows `rows` of the converter of `phase`; with kAllRows it is that converter exactly.
int32_t convertRows(uint32_t phase, const uint8_t *src, uint8_t *dst, int32_t height, int32_t width, uint64_t config,
                    uint32_t method, uint8_t *scratchTail, RowSpan rows);

// Whether the conversion can run band by band: the nearest and bilinear methods and monochrome input,
// into a known output layout. (The edge-directed kernels carry a line of green from band to band.)
bool convertsByRows(uint32_t phase, uint64_t config, uint32_t method);

// The parity of the rows where a band may start: 1 for odd rows (the kernels whose row pairs start at
// row 1), 0 for even rows (those whose pairs start at row 2). Monochrome input may start anywhere.
int32_t rowBandStep(uint32_t phase);

// What the edge-directed conversion calls before a band reads its rows: reduce(context, end) makes the
// source rows before `end` ready. The body band of row r fetches the input rows fetch.at(r) into the cache
// as it goes (`fetch` starts some rows below the first).
struct RowsReady {
    void (*reduce)(void *context, int32_t end);
    void *context;
    simd::FetchRows fetch;
    void operator()(ptrdiff_t end) const { reduce(context, static_cast<int32_t>(end)); }
    simd::Ahead ahead(ptrdiff_t r) const { return fetch.at(r); }
};

// The edge-directed conversion of an 8-bit mosaic whose rows are made ready as the bands reach them (rows
// the conversion has read stay as they are). `line` is the green line of the planar and Mono8 layouts.
void convertEdgeAsRowsArrive(uint32_t phase, const uint8_t *src, uint8_t *dst, int32_t height, int32_t width,
                             uint64_t config, uint8_t *line, RowsReady ready);

class Workers;

// Whether `config` is an output format the converters know.
bool knownOutput(uint64_t config);

// Whether the edge-directed conversion of a frame of this height splits into `count` bands of at least two
// band rows each.
bool edgeSplits(int32_t height, int count);

// The edge-directed conversion of an 8-bit mosaic in `count` bands on the workers, with the bytes of the
// single-threaded converter (the frame's line included); `lines` holds 2 * count * width private bytes.
void convertEdgeInBands(uint32_t phase, const uint8_t *src, uint8_t *dst, int32_t height, int32_t width,
                        uint64_t config, uint8_t *scratchTail, Workers &workers, int count, uint8_t *lines);

} // namespace vq
