// Development of a raw frame into a picture: the settings a handle keeps, and the state (tables, band
// buffers, a demosaicing handle per thread) that the pass reuses from frame to frame.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "velqora.h"

namespace vq::develop {

struct Settings {
    float black[4];    // per site of the 2x2 pattern, in the input's sample units
    float white;       // full scale; 0: the depth's maximum
    float gain[3];     // red, green, blue
    uint32_t autoMode; // VQP_BALANCE_WHITE_AUTO_*
    bool primed;       // continuous balance: gains measured on an earlier frame are in force
    bool identity;     // the matrix is the identity
    float matrix[9];
    uint32_t curve;
    float gamma;
};

// Neutral settings: what vqpCreate and vqpInit set.
Settings neutral();

struct State; // tables and per-thread buffers; develop.cpp
void release(State *state);

} // namespace vq::develop
