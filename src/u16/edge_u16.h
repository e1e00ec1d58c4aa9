// The 16-bit edge-directed drivers in their three steps, for the drivers and the parallel entry point.
#pragma once

#include <cstdint>

#include "u16/u16_common.h"

namespace vq::u16 {

// Interpolated values are clamped at 4095 by the RGGB driver, at 65535 by the other three.
inline constexpr int32_t kEdgeMaxRGGB = 4095;
inline constexpr int32_t kEdgeMaxOther = 65535;

struct EdgeRun {
    const uint16_t *src;
    uint16_t *dst;
    uint32_t height, width;
    int32_t startRow;    // 2 for RGGB and GRBG, 3 for GBRG and BGGR
    int32_t startColumn; // 2 for RGGB and GBRG, 3 for GRBG and BGGR
    int32_t maximum;
};

EdgeRun edgeRunOf(const uint16_t *src, uint32_t height, uint32_t width, uint16_t *dst, int32_t startRow,
                  int32_t startColumn, int32_t maximum);
// First rows and first columns: everything the kernel reads back from the destination besides its own
// greens.
void edgeBefore(const EdgeRun &r);
// The kernel over all its rows (from startRow), and the number of rows it is given.
uint64_t edgeKernel(const EdgeRun &r);
uint32_t edgeKernelRows(const EdgeRun &r);
// The kernel on the row pairs that start at kernel rows [firstRow, endRow) (firstRow even, rows counted
// from startRow), every pair above them done, reading the source rows from two above the first pair to
// three below the last at `rows` (w samples apart): the kernel over all its rows in parts, the same bytes.
// The pair from kernel row firstRow + t fetches the rows of `fetch`'s band row t.
void edgeKernelPart(const EdgeRun &r, int32_t firstRow, int32_t endRow, const uint16_t *rows,
                    const simd::FetchRows &fetch = {});
// What the kernel returns for `rows` rows: (rows covered << 32) | first column not centred on; 0 when
// it covers no row pair.
uint64_t edgeKernelStop(uint32_t rows, uint32_t width, int32_t startColumn);
// Last rows and last columns, from where the kernel stopped.
void edgeAfter(const EdgeRun &r, uint64_t stop);
// The three steps on the calling thread.
int32_t edgeDriver(const EdgeRun &r);
// The blue that the RGGB driver gives the top-left red site of a frame (height and width >= 4): the
// green estimates of (0, 0) and (1, 1) before clamping, their difference added to s(1, 1), clamped.
int32_t edgeTopLeftBlue(const uint16_t *src, uint32_t height, uint32_t width, int32_t maximum);

} // namespace vq::u16
