// The development settings of a handle: each setter checks its values and changes nothing when it
// refuses one.
#include <cmath>

#include "core/handle.h"
#include "develop/develop.h"
#include "velqora.h"

namespace {

bool finite(float v) { return std::isfinite(v); }
bool level(float v) { return finite(v) && v >= 0.0f; }

// Whether every black level lies below a white level that is set (0 is the depth's maximum, checked when
// a frame's depth is known).
bool below(const float black[4], float white) {
    if (white == 0.0f) return true;
    for (int i = 0; i < 4; ++i)
        if (!(black[i] < white)) return false;
    return true;
}

} // namespace

vq::develop::Settings vq::develop::neutral() {
    Settings s{};
    s.white = 0.0f;
    for (float &g : s.gain) g = 1.0f;
    s.autoMode = VQP_BALANCE_WHITE_AUTO_OFF;
    s.primed = false;
    s.identity = true;
    for (int i = 0; i < 9; ++i) s.matrix[i] = i % 4 == 0 ? 1.0f : 0.0f;
    s.curve = VQP_TRANSFER_LINEAR;
    s.gamma = 1.0f;
    return s;
}

int32_t vqpSetBlackLevel(ProcessingHandle *handle, const float black[4]) {
    if (handle == nullptr || black == nullptr) return VQP_ERR_NULL_ARGUMENT;
    for (int i = 0; i < 4; ++i)
        if (!level(black[i])) return VQP_ERR_BAD_PARAMETER;
    if (!below(black, handle->develop.white)) return VQP_ERR_BAD_PARAMETER;
    for (int i = 0; i < 4; ++i) handle->develop.black[i] = black[i];
    return VQP_OK;
}

int32_t vqpSetWhiteLevel(ProcessingHandle *handle, float white) {
    if (handle == nullptr) return VQP_ERR_NULL_ARGUMENT;
    if (!level(white) || !below(handle->develop.black, white)) return VQP_ERR_BAD_PARAMETER;
    handle->develop.white = white;
    return VQP_OK;
}

int32_t vqpSetBalanceRatio(ProcessingHandle *handle, const float ratio[3]) {
    if (handle == nullptr || ratio == nullptr) return VQP_ERR_NULL_ARGUMENT;
    for (int i = 0; i < 3; ++i)
        if (!level(ratio[i])) return VQP_ERR_BAD_PARAMETER;
    for (int i = 0; i < 3; ++i) handle->develop.gain[i] = ratio[i];
    handle->develop.autoMode = VQP_BALANCE_WHITE_AUTO_OFF;
    return VQP_OK;
}

int32_t vqpGetBalanceRatio(const ProcessingHandle *handle, float ratio[3]) {
    if (handle == nullptr || ratio == nullptr) return VQP_ERR_NULL_ARGUMENT;
    for (int i = 0; i < 3; ++i) ratio[i] = handle->develop.gain[i];
    return VQP_OK;
}

int32_t vqpSetBalanceWhiteAuto(ProcessingHandle *handle, uint32_t mode) {
    if (handle == nullptr) return VQP_ERR_NULL_ARGUMENT;
    if (mode > VQP_BALANCE_WHITE_AUTO_CONTINUOUS) return VQP_ERR_BAD_PARAMETER;
    // Continuous balance entered anew measures its first frame on that frame itself.
    if (mode != handle->develop.autoMode) handle->develop.primed = false;
    handle->develop.autoMode = mode;
    return VQP_OK;
}

int32_t vqpGetBalanceWhiteAuto(const ProcessingHandle *handle, uint32_t *mode) {
    if (handle == nullptr || mode == nullptr) return VQP_ERR_NULL_ARGUMENT;
    *mode = handle->develop.autoMode;
    return VQP_OK;
}

int32_t vqpSetColorTransformation(ProcessingHandle *handle, const float matrix[9]) {
    if (handle == nullptr) return VQP_ERR_NULL_ARGUMENT;
    const vq::develop::Settings neutral = vq::develop::neutral();
    const float *m = matrix != nullptr ? matrix : neutral.matrix;
    for (int i = 0; i < 9; ++i)
        if (!finite(m[i])) return VQP_ERR_BAD_PARAMETER;
    bool identity = true;
    for (int i = 0; i < 9; ++i) {
        handle->develop.matrix[i] = m[i];
        identity = identity && m[i] == neutral.matrix[i];
    }
    handle->develop.identity = identity;
    return VQP_OK;
}

int32_t vqpSetTransfer(ProcessingHandle *handle, uint32_t curve, float gamma) {
    if (handle == nullptr) return VQP_ERR_NULL_ARGUMENT;
    if (curve > VQP_TRANSFER_GAMMA) return VQP_ERR_BAD_PARAMETER;
    if (curve == VQP_TRANSFER_GAMMA && !(finite(gamma) && gamma > 0.0f && gamma <= 10.0f))
        return VQP_ERR_BAD_PARAMETER;
    handle->develop.curve = curve;
    handle->develop.gamma = curve == VQP_TRANSFER_GAMMA ? gamma : 1.0f;
    return VQP_OK;
}
