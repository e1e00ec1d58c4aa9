// Handle lifecycle, configuration and the grow-only scratch block.
#include "core/handle.h"

#include <cstdlib>
#include <new>

#include "core/workers.h"

namespace {
constexpr uint64_t kDefaultConfig = VQP_PIXEL_FORMAT_BGR8;

bool acceptedOutputFormat(uint64_t v) {
    return v - 0x02180014u <= 1u          // RGB8, BGR8
           || v - 0x02200016u <= 1u       // RGBA8, BGRA8
           || (v & ~uint64_t{4}) == 0x02180021u // both planar orders
           || v == VQP_PIXEL_FORMAT_MONO8;
}
} // namespace

int32_t vqpCreate(ProcessingHandle **handleOut) {
    if (handleOut == nullptr) return VQP_ERR_NULL_ARGUMENT;
    *handleOut = static_cast<ProcessingHandle *>(std::malloc(sizeof(ProcessingHandle)));
    if (*handleOut == nullptr) return VQP_ERR_OUT_OF_MEMORY;
    (*handleOut)->createWord = 0;
    (*handleOut)->createValue = 0;
    (*handleOut)->workers = nullptr;
    (*handleOut)->developState = nullptr;
    vqpInit(*handleOut);
    return VQP_OK;
}

void vqpInit(ProcessingHandle *handle) {
    static constexpr uint32_t kSettings[8] = {12, 1, 0, 8, 1, 0, 8, 1};
    handle->config = kDefaultConfig;
    handle->config16 = VQP_PIXEL_FORMAT_BGR16;
    for (int i = 0; i < 8; ++i) handle->settings[i] = kSettings[i];
    handle->develop = vq::develop::neutral();
    // A block already held is forgotten here, not freed. Worker threads stay with the handle until
    // vqpRelease joins them.
    handle->scratch.data = nullptr;
    handle->scratch.capacity = 0;
}

int32_t vqpRelease(ProcessingHandle **handlePtr) {
    if (handlePtr == nullptr) return VQP_ERR_NULL_ARGUMENT;
    ProcessingHandle *h = *handlePtr;
    if (h == nullptr) return VQP_OK; // released already: nothing to do, like free(NULL)
    delete h->workers; // joins the handle's threads
    vq::develop::release(h->developState);
    std::free(h->scratch.data);
    h->scratch.data = nullptr;
    h->scratch.capacity = 0;
    std::free(h);
    *handlePtr = nullptr;
    return VQP_OK;
}

vq::Workers *vq::workersOf(ProcessingHandle *handle) {
    if (handle->workers == nullptr) handle->workers = new (std::nothrow) Workers();
    return handle->workers;
}

int32_t vqpMemRealloc(ScratchBuffer *scratch, int32_t size) {
    if (scratch->capacity >= size) return VQP_OK;
    std::free(scratch->data);
    scratch->capacity = 0;
    scratch->data = static_cast<uint8_t *>(std::malloc(static_cast<size_t>(static_cast<int64_t>(size))));
    if (scratch->data == nullptr) return VQP_ERR_OUT_OF_MEMORY;
    scratch->capacity = size;
    return VQP_OK;
}

int32_t vqpDemosaicGetConfig(const ProcessingHandle *handle, uint64_t *configOut) {
    if (handle == nullptr || configOut == nullptr) return VQP_ERR_NULL_ARGUMENT;
    *configOut = handle->config;
    return VQP_OK;
}

int32_t vqpDemosaicSetConfig(ProcessingHandle *handle, const uint64_t *config) {
    if (handle == nullptr || config == nullptr) return VQP_ERR_NULL_ARGUMENT;
    const uint64_t v = *config;
    if (!acceptedOutputFormat(v)) return VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT;
    handle->config = v;
    return VQP_OK;
}
