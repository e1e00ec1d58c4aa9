/*
 * Writes one conversion of every input format, method and output layout, through the public interface
 * only, into a directory: for case k the input as k.in, the output as k.out (0xA5 bytes before the call),
 * and a line of manifest.txt, fields separated by one space, in decimal:
 *     id entry inputFormat height width stride method outputFormat threads status outputBytes
 * entry: "demosaic" (vqpDemosaicing), "parallel" (vqpDemosaicingParallel), "full16" (vqpDemosaicing16,
 * outputFormat its 16-bit configuration), "bilinear16", "bilinear16p" (vqpDemosaicingBilinearU16Parallel
 * and its planar form, planes B, G, R one after the other), "edge16" (vqpDemosaicingEdgeU16Parallel, the
 * phase as inputFormat), "develop" and "develop16" (vqpDevelop into outputFormat, vqpDevelop16 into its
 * 16-bit configuration, with the settings of developSettings()), "develop-once" (vqpDevelop with those
 * settings and automatic balance ONCE). version.txt holds vqpVersionString(). The frames are the same on
 * every platform, so the Linux library and velqora.dll must leave byte-for-byte the same directories; the
 * C# tests read them as their references.
 *
 * Usage: reference_conversions DIRECTORY
 */
#include <velqora.h>

#include <inttypes.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const char *dir;
static FILE *manifest;
static unsigned cases;
static uint32_t seed = 0x2545F491u;

static void fail(const char *what) {
    fprintf(stderr, "reference_conversions: %s\n", what);
    exit(1);
}

/* Writes `n` bytes to the file named by `name` and what follows it, in binary (no line-end translation). */
static void save(const void *bytes, size_t n, const char *name, ...) {
    char path[1024];
    int len = snprintf(path, sizeof path, "%s/", dir);
    va_list args;
    va_start(args, name);
    vsnprintf(path + len, sizeof path - (size_t)len, name, args);
    va_end(args);
    FILE *f = fopen(path, "wb");
    if (!f || fwrite(bytes, 1, n, f) != n || fclose(f) != 0) fail(path);
}

enum entry { DEMOSAIC, FULL16, DEVELOP, DEVELOP16, DEVELOP_ONCE, BILINEAR16, BILINEAR16P, EDGE16 };

/* The settings of every development case: per-site black, gains, a full matrix, sRGB. */
static void developSettings(ProcessingHandle *h) {
    static const float black[4] = {64, 70, 70, 80}, gains[3] = {1.8f, 1.0f, 1.4f};
    static const float matrix[9] = {1.6f, -0.4f, -0.2f, -0.3f, 1.5f, -0.2f, 0.1f, -0.5f, 1.4f};
    if (vqpSetBlackLevel(h, black) != VQP_OK || vqpSetBalanceRatio(h, gains) != VQP_OK ||
        vqpSetColorTransformation(h, matrix) != VQP_OK || vqpSetTransfer(h, VQP_TRANSFER_SRGB, 0) != VQP_OK)
        fail("development settings refused");
}

/* One frame of random bytes through `entry` (DEMOSAIC: vqpDemosaicingParallel unless `threads` is 0). A
 * stride of 0 or below: rows of the bytes the samples take (the PFNC code's bit count says 8, 16 or packed
 * 12) and -stride bytes more. The 16-bit family reads samples as the machine stores them (little-endian
 * everywhere we run). */
static void convert(ProcessingHandle *h, enum entry entry, uint32_t format, int32_t height, int32_t width,
                    int32_t stride, uint32_t method, uint64_t config, uint32_t threads) {
    static const char *const names[] = {"demosaic",   "full16",      "develop", "develop16", "develop-once",
                                        "bilinear16", "bilinear16p", "edge16"};
    unsigned bits = (format >> 16) & 0xFF;
    if (stride <= 0) stride = (bits == 8 ? width : bits == 16 ? 2 * width : (3 * width + 1) / 2) - stride;
    size_t n = (size_t)height * (size_t)width, inBytes = (size_t)stride * (size_t)height;
    size_t outBytes = entry >= BILINEAR16 ? 6 * n : (size_t)vqpOutputSize(height, width, config);
    uint8_t *in = malloc(inBytes), *out = malloc(outBytes ? outBytes : 1); /* 0 for a refused size */
    if (!in || !out) fail("out of memory");
    for (size_t i = 0; i < inBytes; ++i) {
        seed ^= seed << 13;
        seed ^= seed >> 17;
        seed ^= seed << 5;
        in[i] = (uint8_t)(seed >> 24);
    }
    save(in, inBytes, "%u.in", cases); /* before the call: padded 8-bit rows are compacted in place */
    memset(out, 0xA5, outBytes);
    const int wide = entry == FULL16 || entry == DEVELOP16;
    if (entry < BILINEAR16 && (wide ? vqpDemosaicSetConfig16(h, &config) : vqpDemosaicSetConfig(h, &config)) != VQP_OK)
        fail("output format refused");
    const char *name = entry == DEMOSAIC && threads ? "parallel" : names[entry];
    if (entry == DEVELOP_ONCE) {
        if (vqpSetBalanceWhiteAuto(h, VQP_BALANCE_WHITE_AUTO_ONCE) != VQP_OK) fail("ONCE refused");
        entry = DEVELOP;
    }
    ImageFrame fin = {height, width, format, in, stride}, fout = {0, 0, 0, out, 0};
    uint16_t *in16 = (uint16_t *)in, *out16 = (uint16_t *)out;
    uint32_t uh = (uint32_t)height, uw = (uint32_t)width;
    int32_t status =
        entry == FULL16        ? vqpDemosaicing16(h, &fin, method, &fout, threads)
        : entry == DEVELOP     ? vqpDevelop(h, &fin, method, &fout, threads)
        : entry == DEVELOP16   ? vqpDevelop16(h, &fin, method, &fout, threads)
        : entry == BILINEAR16  ? vqpDemosaicingBilinearU16Parallel(h, in16, uh, uw, out16, threads)
        : entry == BILINEAR16P ? vqpDemosaicingBilinearU16PParallel(h, in16, uh, uw, out16, out16 + n, out16 + 2 * n,
                                                                    threads)
        : entry == EDGE16      ? vqpDemosaicingEdgeU16Parallel(h, in16, uh, uw, out16, format, threads)
        : threads              ? vqpDemosaicingParallel(h, &fin, method, &fout, threads)
                               : vqpDemosaicing(h, &fin, method, &fout);
    save(out, outBytes, "%u.out", cases);
    fprintf(manifest, "%u %s %u %d %d %d %u %" PRIu64 " %u %d %" PRIu64 "\n", cases++, name, (unsigned)format,
            (int)height, (int)width, (int)stride, (unsigned)method, config, (unsigned)threads, (int)status,
            (uint64_t)outBytes);
    free(in);
    free(out);
}

int main(int argc, char **argv) {
    static const uint32_t bayer8[] = {VQP_PIXEL_FORMAT_BAYER_RG8, VQP_PIXEL_FORMAT_BAYER_GR8,
                                      VQP_PIXEL_FORMAT_BAYER_GB8, VQP_PIXEL_FORMAT_BAYER_BG8, VQP_PIXEL_FORMAT_MONO8};
    static const uint32_t deep[] = {
        VQP_PIXEL_FORMAT_MONO10,            VQP_PIXEL_FORMAT_MONO12,            VQP_PIXEL_FORMAT_MONO14,
        VQP_PIXEL_FORMAT_MONO16,            VQP_PIXEL_FORMAT_MONO10_PACKED,     VQP_PIXEL_FORMAT_MONO12_PACKED,
        VQP_PIXEL_FORMAT_BAYER_GR10,        VQP_PIXEL_FORMAT_BAYER_RG10,        VQP_PIXEL_FORMAT_BAYER_GB10,
        VQP_PIXEL_FORMAT_BAYER_BG10,        VQP_PIXEL_FORMAT_BAYER_GR12,        VQP_PIXEL_FORMAT_BAYER_RG12,
        VQP_PIXEL_FORMAT_BAYER_GB12,        VQP_PIXEL_FORMAT_BAYER_BG12,        VQP_PIXEL_FORMAT_BAYER_GR16,
        VQP_PIXEL_FORMAT_BAYER_RG16,        VQP_PIXEL_FORMAT_BAYER_GB16,        VQP_PIXEL_FORMAT_BAYER_BG16,
        VQP_PIXEL_FORMAT_BAYER_GR10_PACKED, VQP_PIXEL_FORMAT_BAYER_RG10_PACKED, VQP_PIXEL_FORMAT_BAYER_GB10_PACKED,
        VQP_PIXEL_FORMAT_BAYER_BG10_PACKED, VQP_PIXEL_FORMAT_BAYER_GR12_PACKED, VQP_PIXEL_FORMAT_BAYER_RG12_PACKED,
        VQP_PIXEL_FORMAT_BAYER_GB12_PACKED, VQP_PIXEL_FORMAT_BAYER_BG12_PACKED};
    static const uint64_t layouts[] = {VQP_PIXEL_FORMAT_BGR8,        VQP_PIXEL_FORMAT_RGB8,  VQP_PIXEL_FORMAT_BGRA8,
                                       VQP_PIXEL_FORMAT_RGBA8,       VQP_PIXEL_FORMAT_RGB8_PLANAR,
                                       VQP_PIXEL_FORMAT_BGR8_PLANAR, VQP_PIXEL_FORMAT_MONO8};
    static const uint32_t full[] = {VQP_PIXEL_FORMAT_BAYER_RG10, VQP_PIXEL_FORMAT_BAYER_GR12,
                                    VQP_PIXEL_FORMAT_BAYER_GB14, VQP_PIXEL_FORMAT_BAYER_BG16,
                                    VQP_PIXEL_FORMAT_BAYER_GB10_PACKED, VQP_PIXEL_FORMAT_BAYER_RG12_PACKED};
    static const uint64_t layouts16[] = {VQP_PIXEL_FORMAT_BGR16, VQP_PIXEL_FORMAT_RGB16, VQP_PIXEL_FORMAT_RGB16_PLANAR,
                                         VQP_PIXEL_FORMAT_BGR16_PLANAR};
    const size_t nLayouts = sizeof layouts / sizeof *layouts;

    if (argc != 2) fail("usage: reference_conversions DIRECTORY");
    dir = argv[1];
    char path[1024];
    snprintf(path, sizeof path, "%s/manifest.txt", dir);
    if (!(manifest = fopen(path, "wb"))) fail(path);
    ProcessingHandle *h = NULL;
    if (vqpCreate(&h) != VQP_OK) fail("vqpCreate");

    /* Every 8-bit phase and Mono8, every method, every layout: rows wide enough for the widest vector
     * interiors, odd height. */
    for (size_t f = 0; f < sizeof bayer8 / sizeof *bayer8; ++f)
        for (uint32_t m = 0; m <= 2; ++m)
            for (size_t l = 0; l < nLayouts; ++l) convert(h, DEMOSAIC, bayer8[f], 21, 198, 0, m, layouts[l], 0);
    /* Every deep and packed format, each with a method and a layout of its own, and with padded rows. */
    for (size_t f = 0; f < sizeof deep / sizeof *deep; ++f) {
        convert(h, DEMOSAIC, deep[f], 18, 150, 0, (uint32_t)(f % 3), layouts[f % nLayouts], 0);
        convert(h, DEMOSAIC, deep[f], 17, 134, -6, (uint32_t)((f + 1) % 3), layouts[(f + 3) % nLayouts], 0);
    }
    /* 8-bit rows with padding (compacted in place), an odd width, and a method that writes nothing. */
    convert(h, DEMOSAIC, VQP_PIXEL_FORMAT_BAYER_GB8, 12, 100, 131, VQP_METHOD_EDGE, VQP_PIXEL_FORMAT_RGBA8, 0);
    convert(h, DEMOSAIC, VQP_PIXEL_FORMAT_BAYER_RG8, 9, 77, 0, VQP_METHOD_BILINEAR, VQP_PIXEL_FORMAT_BGR8, 0);
    convert(h, DEMOSAIC, VQP_PIXEL_FORMAT_BAYER_RG8, 8, 40, 0, 3, VQP_PIXEL_FORMAT_BGR8, 0);
    /* Frames large enough to be split over threads. */
    for (uint32_t m = 0; m <= 2; ++m)
        convert(h, DEMOSAIC, m == 1 ? VQP_PIXEL_FORMAT_BAYER_BG12_PACKED : VQP_PIXEL_FORMAT_BAYER_GR8, 140, 256, 0, m,
                layouts[(m * 2) % nLayouts], 3);
    /* Statuses come back as they are: too small, unknown input format. */
    convert(h, DEMOSAIC, VQP_PIXEL_FORMAT_BAYER_RG8, 3, 40, 0, VQP_METHOD_NEAREST, VQP_PIXEL_FORMAT_BGR8, 0);
    convert(h, DEMOSAIC, 0x01100099u, 8, 40, 0, VQP_METHOD_NEAREST, VQP_PIXEL_FORMAT_BGR8, 0);
    /* The 16-bit family, the edge-directed one at every phase. */
    convert(h, BILINEAR16, VQP_PIXEL_FORMAT_BAYER_RG16, 34, 120, 0, 0, 0, 1);
    convert(h, BILINEAR16P, VQP_PIXEL_FORMAT_BAYER_RG16, 140, 256, 0, 0, 0, 2);
    static const uint32_t phases16[] = {VQP_PIXEL_FORMAT_BAYER_RG16, VQP_PIXEL_FORMAT_BAYER_GR16,
                                        VQP_PIXEL_FORMAT_BAYER_GB16, VQP_PIXEL_FORMAT_BAYER_BG16};
    for (uint32_t p = 0; p < 4; ++p) convert(h, EDGE16, phases16[p], 30 + (int32_t)p, 118, 0, 0, 0, p % 2 + 1);
    /* Full depth: every depth and packing across the phases, every method and 16-bit layout, with and
     * without full range; padded rows; frames split over threads; 8-bit input refused. */
    for (size_t f = 0; f < sizeof full / sizeof *full; ++f)
        for (uint32_t m = 0; m <= 2; ++m)
            for (size_t l = 0; l < 4; ++l)
                convert(h, FULL16, full[f], 21, 198, 0, m,
                        layouts16[l] | ((f + l) % 2 ? VQP_OUTPUT16_FULL_RANGE : 0), 1);
    convert(h, FULL16, VQP_PIXEL_FORMAT_BAYER_GR16, 13, 70, -10, VQP_METHOD_EDGE, VQP_PIXEL_FORMAT_BGR16, 1);
    convert(h, FULL16, VQP_PIXEL_FORMAT_BAYER_BG12_PACKED, 11, 71, 120, VQP_METHOD_BILINEAR, VQP_PIXEL_FORMAT_RGB16, 1);
    convert(h, FULL16, VQP_PIXEL_FORMAT_BAYER_RG12, 140, 256, 0, VQP_METHOD_EDGE, VQP_PIXEL_FORMAT_RGB16_PLANAR, 3);
    convert(h, FULL16, VQP_PIXEL_FORMAT_BAYER_RG8, 8, 40, 0, VQP_METHOD_EDGE, VQP_PIXEL_FORMAT_BGR16, 1);
    /* Development: packed, padded 8-bit, mono, a threaded frame; 8 and 16-bit output; gains found by ONCE
     * on a frame of two bands over two threads (last: the gains it finds stay on the handle). */
    developSettings(h);
    convert(h, DEVELOP, VQP_PIXEL_FORMAT_BAYER_RG12_PACKED, 21, 198, 0, VQP_METHOD_EDGE, VQP_PIXEL_FORMAT_BGR8, 1);
    convert(h, DEVELOP, VQP_PIXEL_FORMAT_BAYER_GB8, 17, 134, -6, VQP_METHOD_BILINEAR, VQP_PIXEL_FORMAT_RGBA8, 1);
    convert(h, DEVELOP, VQP_PIXEL_FORMAT_MONO12, 18, 150, 0, VQP_METHOD_NEAREST, VQP_PIXEL_FORMAT_MONO8, 1);
    convert(h, DEVELOP, VQP_PIXEL_FORMAT_BAYER_BG16, 300, 256, 0, VQP_METHOD_BILINEAR, VQP_PIXEL_FORMAT_BGR8_PLANAR, 3);
    convert(h, DEVELOP16, VQP_PIXEL_FORMAT_BAYER_GR10, 21, 198, 0, VQP_METHOD_EDGE, VQP_PIXEL_FORMAT_RGB16, 1);
    convert(h, DEVELOP16, VQP_PIXEL_FORMAT_MONO10_PACKED, 13, 71, 0, VQP_METHOD_NEAREST, VQP_PIXEL_FORMAT_BGR16_PLANAR,
            1);
    convert(h, DEVELOP_ONCE, VQP_PIXEL_FORMAT_BAYER_BG12_PACKED, 300, 256, 0, VQP_METHOD_EDGE, VQP_PIXEL_FORMAT_BGR8,
            2);

    vqpRelease(&h);
    if (fclose(manifest) != 0) fail("manifest.txt");
    save(vqpVersionString(), strlen(vqpVersionString()), "version.txt");
    printf("reference_conversions: %u cases, library %s, vector level %s\n", cases, vqpVersionString(),
           vqpVectorLevel());
    return 0;
}
