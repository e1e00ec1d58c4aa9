// The 16-bit kernels split over a handle's worker threads, for the parallel entry points.
#pragma once

#include <cstdint>

#include "core/handle.h"
#include "core/workers.h"
#include "u16/edge_u16.h"

namespace vq::u16 {

// The handle's workers when `threads` (already resolved, see vq::threadCount) is 2 or more and the frame
// has enough pixels to be worth splitting; null otherwise: run on the calling thread.
vq::Workers *workersFor(ProcessingHandle *handle, int threads, int64_t pixels);

// ---- bilinear: the body reads only the source, so each thread runs it on a slice of the frame (a
// sub-frame starting at an even row, whose body covers exactly the slice's row pairs); the first thread
// also does the first row and column, the last one the last rows and columns.

// At most `threads`, and few enough for every thread to have two row pairs.
int bilinearThreads(int threads, uint32_t height);

// Runs the body of a frame of `height` rows in `count` slices and the borders around it. `pieces`:
// first() the first row and column, body(row, rows) the body on the sub-frame from `row`, last(stopRow,
// stopColumn) the last rows and columns.
template <class Pieces>
void bilinearInSlices(vq::Workers *workers, int count, uint32_t height, const Pieces &pieces) {
    const int32_t h = static_cast<int32_t>(height);
    const int32_t lastPairEnd = h - 1 - (h & 1); // the body's row pairs start at 1, 3, ... below this
    const int32_t pairs = (lastPairEnd - 1) / 2;
    workers->run(count, [&](int k) {
        const int32_t first = 1 + 2 * static_cast<int32_t>(int64_t{pairs} * k / count);
        const int32_t end = 1 + 2 * static_cast<int32_t>(int64_t{pairs} * (k + 1) / count);
        if (k == 0) pieces.first();
        const uint64_t sliceStop = pieces.body(first - 1, static_cast<uint32_t>(end - first + 2));
        if (k == count - 1) {
            const int32_t stopRow = static_cast<int32_t>(sliceStop >> 32) + (first - 1);
            pieces.last(stopRow, static_cast<int32_t>(sliceStop & 0xFFFFFFFFu));
        }
    });
}

// ---- edge-directed: the kernel reads back the greens of the two rows above each row pair, which the
// band above computes. Greens depend on the source alone, so a band's thread first runs the kernel on the
// pair above its band and its own first pair in private rows (the greens of the border columns copied
// in), copies back the bytes that its first pair writes in the frame, and runs the rest of its band in
// place. The borders before the kernel run first, those after it last, both on the calling thread.

// The bands a run is split into: at most `threads`, each of two row pairs at least.
int edgeThreads(const EdgeRun &r, int threads);
// Bytes of private rows that `count` bands need, 64-byte alignment included.
int64_t edgeBandBytes(uint32_t width, int count);
// The whole run in `count` bands on `workers`, private rows from `scratch` (edgeBandBytes of them).
void edgeInBands(vq::Workers *workers, int count, const EdgeRun &r, uint8_t *scratch);

} // namespace vq::u16
