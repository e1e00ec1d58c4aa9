/*
 * Writes one conversion of every input format, method and output layout, through the public interface
 * only, into a directory: for case k the input bytes as k.in, the output bytes as k.out, and a line of
 * manifest.txt that says how the call was made. The frames are the same on every platform, so two runs
 * (the Linux library and velqora.dll, say) must leave byte-for-byte the same directories; the C# tests
 * read the same files as their references.
 *
 * manifest.txt, one case a line, fields separated by one space:
 *     id entry inputFormat height width stride method outputFormat threads status outputBytes
 * entry: "demosaic" (vqpDemosaicing), "parallel" (vqpDemosaicingParallel, `threads`), "bilinear16",
 * "bilinear16p" (vqpDemosaicingBilinearU16Parallel and its planar form, planes B, G, R one after the
 * other), "edge16" (vqpDemosaicingEdgeU16Parallel, the phase as inputFormat), "full16" (vqpDemosaicing16
 * with `threads`, outputFormat its 16-bit configuration). Numbers are decimal.
 * Every output buffer holds 0xA5 bytes before the call. version.txt holds vqpVersionString().
 *
 * Usage: reference_conversions DIRECTORY
 */
#include <velqora.h>

#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const char *dir;
static FILE *manifest;
static unsigned cases;
static uint32_t seed = 0x2545F491u;

static uint32_t next(void) {
    seed ^= seed << 13;
    seed ^= seed >> 17;
    seed ^= seed << 5;
    return seed;
}

static void fill(uint8_t *p, size_t n) {
    for (size_t i = 0; i < n; ++i) p[i] = (uint8_t)(next() >> 24);
}

static void fail(const char *what) {
    fprintf(stderr, "reference_conversions: %s\n", what);
    exit(1);
}

static void saveAs(const char *name, const void *bytes, size_t n) {
    char path[1024];
    snprintf(path, sizeof path, "%s/%s", dir, name);
    FILE *f = fopen(path, "wb"); /* binary: no line-end translation on Windows */
    if (!f || fwrite(bytes, 1, n, f) != n || fclose(f) != 0) fail(path);
}

static void save(unsigned id, const char *suffix, const void *bytes, size_t n) {
    char name[64];
    snprintf(name, sizeof name, "%u.%s", id, suffix);
    saveAs(name, bytes, n);
}

static void record(const char *entry, uint32_t format, int32_t h, int32_t w, int32_t stride, uint32_t method,
                   uint64_t config, uint32_t threads, int32_t status, size_t outBytes) {
    fprintf(manifest, "%u %s %u %d %d %d %u %" PRIu64 " %u %d %" PRIu64 "\n", cases, entry, (unsigned)format, (int)h,
            (int)w, (int)stride, (unsigned)method, config, (unsigned)threads, (int)status, (uint64_t)outBytes);
    ++cases;
}

/* Bytes of one input row of `format` with `w` samples: the PFNC code's bit count says 8, 16 or packed 12. */
static size_t rowBytes(uint32_t format, int32_t w) {
    switch ((format >> 16) & 0xFF) {
    case 8: return (size_t)w;
    case 16: return 2 * (size_t)w;
    default: return (3 * (size_t)w + 1) / 2;
    }
}

/* One frame through vqpDemosaicing (threads 0) or vqpDemosaicingParallel; stride 0 means packed rows. With
 * `full` through vqpDemosaicing16 with the 16-bit configuration `config`. */
static void convert(ProcessingHandle *h, int full, uint32_t format, int32_t height, int32_t width, int32_t stride,
                    uint32_t method, uint64_t config, uint32_t threads) {
    if (stride == 0) stride = (int32_t)rowBytes(format, width);
    size_t inBytes = (size_t)stride * (size_t)height;
    size_t outBytes = (size_t)vqpOutputSize(height, width, config);
    uint8_t *in = malloc(inBytes), *out = malloc(outBytes ? outBytes : 1); /* 0 for a refused size */
    if (!in || !out) fail("out of memory");
    fill(in, inBytes);
    save(cases, "in", in, inBytes); /* before the call: padded 8-bit rows are compacted in place */
    memset(out, 0xA5, outBytes);
    if ((full ? vqpDemosaicSetConfig16(h, &config) : vqpDemosaicSetConfig(h, &config)) != VQP_OK)
        fail("output format refused");
    ImageFrame fin = {height, width, format, in, stride};
    ImageFrame fout = {0, 0, 0, out, 0};
    int32_t status = full      ? vqpDemosaicing16(h, &fin, method, &fout, threads)
                     : threads ? vqpDemosaicingParallel(h, &fin, method, &fout, threads)
                               : vqpDemosaicing(h, &fin, method, &fout);
    save(cases, "out", out, outBytes);
    record(full ? "full16" : threads ? "parallel" : "demosaic", format, height, width, stride, method, config, threads,
           status, outBytes);
    free(in);
    free(out);
}

static void demosaic(ProcessingHandle *h, uint32_t format, int32_t height, int32_t width, int32_t stride,
                     uint32_t method, uint64_t config, uint32_t threads) {
    convert(h, 0, format, height, width, stride, method, config, threads);
}

/* The 16-bit family: rows packed, samples as the machine stores them (little-endian everywhere we run). */
static void demosaic16(ProcessingHandle *h, const char *entry, uint32_t phase, int32_t height, int32_t width,
                       uint32_t threads) {
    size_t n = (size_t)height * (size_t)width;
    uint16_t *in = malloc(2 * n), *out = malloc(6 * n);
    if (!in || !out) fail("out of memory");
    fill((uint8_t *)in, 2 * n);
    save(cases, "in", in, 2 * n);
    memset(out, 0xA5, 6 * n);
    int32_t status;
    if (strcmp(entry, "bilinear16") == 0)
        status = vqpDemosaicingBilinearU16Parallel(h, in, (uint32_t)height, (uint32_t)width, out, threads);
    else if (strcmp(entry, "bilinear16p") == 0)
        status = vqpDemosaicingBilinearU16PParallel(h, in, (uint32_t)height, (uint32_t)width, out, out + n,
                                                    out + 2 * n, threads);
    else
        status = vqpDemosaicingEdgeU16Parallel(h, in, (uint32_t)height, (uint32_t)width, out, phase, threads);
    save(cases, "out", out, 6 * n);
    record(entry, phase, height, width, 2 * width, 0, 0, threads, status, 6 * n);
    free(in);
    free(out);
}

int main(int argc, char **argv) {
    static const uint32_t bayer8[] = {VQP_PIXEL_FORMAT_BAYER_RG8, VQP_PIXEL_FORMAT_BAYER_GR8,
                                      VQP_PIXEL_FORMAT_BAYER_GB8, VQP_PIXEL_FORMAT_BAYER_BG8,
                                      VQP_PIXEL_FORMAT_MONO8};
    static const uint32_t deep[] = {
        VQP_PIXEL_FORMAT_MONO10, VQP_PIXEL_FORMAT_MONO12, VQP_PIXEL_FORMAT_MONO14, VQP_PIXEL_FORMAT_MONO16,
        VQP_PIXEL_FORMAT_MONO10_PACKED, VQP_PIXEL_FORMAT_MONO12_PACKED,
        VQP_PIXEL_FORMAT_BAYER_GR10, VQP_PIXEL_FORMAT_BAYER_RG10, VQP_PIXEL_FORMAT_BAYER_GB10,
        VQP_PIXEL_FORMAT_BAYER_BG10, VQP_PIXEL_FORMAT_BAYER_GR12, VQP_PIXEL_FORMAT_BAYER_RG12,
        VQP_PIXEL_FORMAT_BAYER_GB12, VQP_PIXEL_FORMAT_BAYER_BG12, VQP_PIXEL_FORMAT_BAYER_GR16,
        VQP_PIXEL_FORMAT_BAYER_RG16, VQP_PIXEL_FORMAT_BAYER_GB16, VQP_PIXEL_FORMAT_BAYER_BG16,
        VQP_PIXEL_FORMAT_BAYER_GR10_PACKED, VQP_PIXEL_FORMAT_BAYER_RG10_PACKED,
        VQP_PIXEL_FORMAT_BAYER_GB10_PACKED, VQP_PIXEL_FORMAT_BAYER_BG10_PACKED,
        VQP_PIXEL_FORMAT_BAYER_GR12_PACKED, VQP_PIXEL_FORMAT_BAYER_RG12_PACKED,
        VQP_PIXEL_FORMAT_BAYER_GB12_PACKED, VQP_PIXEL_FORMAT_BAYER_BG12_PACKED};
    static const uint64_t layouts[] = {VQP_PIXEL_FORMAT_BGR8,        VQP_PIXEL_FORMAT_RGB8,
                                       VQP_PIXEL_FORMAT_BGRA8,       VQP_PIXEL_FORMAT_RGBA8,
                                       VQP_PIXEL_FORMAT_RGB8_PLANAR, VQP_PIXEL_FORMAT_BGR8_PLANAR,
                                       VQP_PIXEL_FORMAT_MONO8};
    static const uint32_t phases16[] = {VQP_PIXEL_FORMAT_BAYER_RG16, VQP_PIXEL_FORMAT_BAYER_GR16,
                                        VQP_PIXEL_FORMAT_BAYER_GB16, VQP_PIXEL_FORMAT_BAYER_BG16};
    const size_t nLayouts = sizeof layouts / sizeof *layouts;

    if (argc != 2) fail("usage: reference_conversions DIRECTORY");
    dir = argv[1];
    char path[1024];
    snprintf(path, sizeof path, "%s/manifest.txt", dir);
    manifest = fopen(path, "wb");
    if (!manifest) fail(path);
    ProcessingHandle *h = NULL;
    if (vqpCreate(&h) != VQP_OK) fail("vqpCreate");

    /* Every 8-bit phase and Mono8, every method, every layout: rows wide enough for the widest vector
     * interiors, odd height. */
    for (size_t f = 0; f < sizeof bayer8 / sizeof *bayer8; ++f)
        for (uint32_t m = 0; m <= 2; ++m)
            for (size_t l = 0; l < nLayouts; ++l) demosaic(h, bayer8[f], 21, 198, 0, m, layouts[l], 0);
    /* Every deep and packed format, each with a method and a layout of its own, and with padded rows. */
    for (size_t f = 0; f < sizeof deep / sizeof *deep; ++f) {
        demosaic(h, deep[f], 18, 150, 0, (uint32_t)(f % 3), layouts[f % nLayouts], 0);
        demosaic(h, deep[f], 17, 134, (int32_t)rowBytes(deep[f], 134) + 6, (uint32_t)((f + 1) % 3),
                 layouts[(f + 3) % nLayouts], 0);
    }
    /* 8-bit rows with padding (compacted in place), an odd width, and a method that writes nothing. */
    demosaic(h, VQP_PIXEL_FORMAT_BAYER_GB8, 12, 100, 131, VQP_METHOD_EDGE, VQP_PIXEL_FORMAT_RGBA8, 0);
    demosaic(h, VQP_PIXEL_FORMAT_BAYER_RG8, 9, 77, 0, VQP_METHOD_BILINEAR, VQP_PIXEL_FORMAT_BGR8, 0);
    demosaic(h, VQP_PIXEL_FORMAT_BAYER_RG8, 8, 40, 0, 3, VQP_PIXEL_FORMAT_BGR8, 0);
    /* Frames large enough to be split over threads. */
    for (uint32_t m = 0; m <= 2; ++m)
        demosaic(h, m == 1 ? VQP_PIXEL_FORMAT_BAYER_BG12_PACKED : VQP_PIXEL_FORMAT_BAYER_GR8, 140, 256, 0, m,
                 layouts[(m * 2) % nLayouts], 3);
    /* Statuses come back as they are: too small, unknown input format. */
    demosaic(h, VQP_PIXEL_FORMAT_BAYER_RG8, 3, 40, 0, VQP_METHOD_NEAREST, VQP_PIXEL_FORMAT_BGR8, 0);
    demosaic(h, 0x01100099u, 8, 40, 0, VQP_METHOD_NEAREST, VQP_PIXEL_FORMAT_BGR8, 0);
    /* The 16-bit family. */
    demosaic16(h, "bilinear16", VQP_PIXEL_FORMAT_BAYER_RG16, 34, 120, 1);
    demosaic16(h, "bilinear16p", VQP_PIXEL_FORMAT_BAYER_RG16, 140, 256, 2);
    for (size_t p = 0; p < sizeof phases16 / sizeof *phases16; ++p)
        demosaic16(h, "edge16", phases16[p], 30 + (int32_t)p, 118, (uint32_t)p % 2 + 1);

    /* Full depth: every depth and packing across the phases, every method and 16-bit layout, with and
     * without full range; padded rows; frames split over threads. */
    static const uint32_t full[] = {VQP_PIXEL_FORMAT_BAYER_RG10,        VQP_PIXEL_FORMAT_BAYER_GR12,
                                    VQP_PIXEL_FORMAT_BAYER_GB14,        VQP_PIXEL_FORMAT_BAYER_BG16,
                                    VQP_PIXEL_FORMAT_BAYER_GB10_PACKED, VQP_PIXEL_FORMAT_BAYER_RG12_PACKED};
    static const uint64_t layouts16[] = {VQP_PIXEL_FORMAT_BGR16, VQP_PIXEL_FORMAT_RGB16, VQP_PIXEL_FORMAT_RGB16_PLANAR,
                                         VQP_PIXEL_FORMAT_BGR16_PLANAR};
    for (size_t f = 0; f < sizeof full / sizeof *full; ++f)
        for (uint32_t m = 0; m <= 2; ++m)
            for (size_t l = 0; l < 4; ++l)
                convert(h, 1, full[f], 21, 198, 0, m, layouts16[l] | ((f + l) % 2 ? VQP_OUTPUT16_FULL_RANGE : 0), 1);
    convert(h, 1, VQP_PIXEL_FORMAT_BAYER_GR16, 13, 70, 2 * 70 + 10, VQP_METHOD_EDGE, VQP_PIXEL_FORMAT_BGR16, 1);
    convert(h, 1, VQP_PIXEL_FORMAT_BAYER_BG12_PACKED, 11, 71, 120, VQP_METHOD_BILINEAR, VQP_PIXEL_FORMAT_RGB16, 1);
    convert(h, 1, VQP_PIXEL_FORMAT_BAYER_RG12, 140, 256, 0, VQP_METHOD_EDGE, VQP_PIXEL_FORMAT_RGB16_PLANAR, 3);
    convert(h, 1, VQP_PIXEL_FORMAT_BAYER_RG8, 8, 40, 0, VQP_METHOD_EDGE, VQP_PIXEL_FORMAT_BGR16, 1);

    vqpRelease(&h);
    if (fclose(manifest) != 0) fail("manifest.txt");
    saveAs("version.txt", vqpVersionString(), strlen(vqpVersionString()));
    printf("reference_conversions: %u cases, library %s, vector level %s\n", cases, vqpVersionString(),
           vqpVectorLevel());
    return 0;
}
