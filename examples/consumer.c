/* A minimal C program against the installed Velqora package: demosaics a small BayerRG8 frame of one
 * flat colour and checks that every output pixel comes back as that colour. */
#include <stdio.h>
#include <string.h>

#include <velqora.h>

enum { W = 16, H = 12 };

int main(void)
{
    static uint8_t raw[H * W], rgb[H * W * 3];
    const uint8_t r = 200, g = 120, b = 40;
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x)  /* RGGB: red at even row and column, blue at odd row and column */
            raw[y * W + x] = (y % 2 == 0 && x % 2 == 0) ? r : (y % 2 == 1 && x % 2 == 1) ? b : g;

    ProcessingHandle *h = NULL;
    int32_t rc = vqpCreate(&h);
    if (rc != VQP_OK) {
        fprintf(stderr, "vqpCreate failed: %d\n", (int)rc);
        return 1;
    }
    uint64_t fmt = VQP_PIXEL_FORMAT_RGB8;
    rc = vqpDemosaicSetConfig(h, &fmt);
    ImageFrame in = {H, W, VQP_PIXEL_FORMAT_BAYER_RG8, raw, W};
    ImageFrame out = {0, 0, 0, rgb, 0};
    if (rc == VQP_OK) rc = vqpDemosaicing(h, &in, VQP_METHOD_NEAREST, &out);
    vqpRelease(&h);
    if (rc != VQP_OK) {
        fprintf(stderr, "vqpDemosaicing failed: %d\n", (int)rc);
        return 1;
    }
    const uint8_t want[3] = {r, g, b};
    for (int i = 0; i < H * W; ++i)
        if (memcmp(rgb + 3 * i, want, 3) != 0) {
            fprintf(stderr, "pixel %d is %d,%d,%d\n", i, rgb[3 * i], rgb[3 * i + 1], rgb[3 * i + 2]);
            return 1;
        }
    printf("consumer: %dx%d frame demosaiced to %dx%d RGB8, format 0x%08X\n", W, H, (int)out.width,
           (int)out.height, (unsigned)out.pixelFormat);
    return 0;
}
