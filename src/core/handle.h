// The processing handle as the library lays it out. Callers see only an opaque pointer.
#pragma once

#include <cstdint>

#include "develop/develop.h"
#include "velqora.h"

namespace vq {
class Workers;
}

struct ProcessingHandle {
    uint64_t config;          // the output pixel format, compared and stored as a 64-bit value
    uint8_t reserved[24];     // never initialised, never read
    uint32_t settings[8];     // reset to 12, 1, 0, 8, 1, 0, 8, 1; read by nothing
    int32_t createWord;       // zeroed by vqpCreate only; read by nothing
    uint64_t createValue;     // zeroed by vqpCreate only; read by nothing
    ScratchBuffer scratch;    // grow-only work memory
    vq::Workers *workers;     // the threads of the parallel entry points; null until first used
    uint64_t config16;        // the output format of the full-depth entry point (and its flags)
    vq::develop::Settings develop;      // black, white, balance, matrix and curve of vqpDevelop
    vq::develop::State *developState;   // its tables and buffers; null until first used
};

namespace vq {
// The handle's worker threads, started on first use; null when none can be had.
Workers *workersOf(ProcessingHandle *handle);
} // namespace vq
