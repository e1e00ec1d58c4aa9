/* The public header must compile as plain C. */
#include "velqora.h"

int velqora_c_header_check(void) {
    ProcessingHandle *h = 0;
    ImageFrame frame = {4, 4, VQP_PIXEL_FORMAT_BAYER_RG8, 0, 4};
    uint64_t fmt = VQP_PIXEL_FORMAT_BGR8;
    (void)frame;
    if (vqpCreate(&h) != VQP_OK) return 1;
    vqpDemosaicSetConfig(h, &fmt);
    return vqpRelease(&h);
}
