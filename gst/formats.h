/*
 * formats.h - the caps formats of velqorademosaic and what each means to the library.
 *
 * Shared by the element and its tests, so that both name every format the same way.
 */
#ifndef VELQORA_GST_FORMATS_H
#define VELQORA_GST_FORMATS_H

#include <gst/video/video.h>
#include <stdint.h>
#include <stddef.h>

#include <velqora.h>

/* How the samples of a sink format lie in memory and how they reach 8 bits. */
enum VqgSampleLayout {
    VQG_SAMPLES_8,       /* one byte a sample */
    VQG_SAMPLES_16,      /* little-endian 16-bit containers, reduced by the library */
    VQG_SAMPLES_16_SELF, /* 16-bit containers of a depth the library has no Bayer code for: reduced here */
    VQG_SAMPLES_PACKED,  /* two samples in three bytes, the first and third byte their high bytes */
};

struct VqgSinkFormat {
    const char *name;       /* the caps format string */
    uint32_t code;          /* the pixel-format code handed to the library */
    uint32_t phase8;        /* the 8-bit Bayer code of the same phase */
    uint32_t code16;        /* the code handed to vqpDemosaicing16; 0 for 8-bit samples */
    VqgSampleLayout layout;
    int depth;              /* significant bits a sample */
};

/* The four phases at every depth: 8-bit names as every element uses them, 16-bit containers as
 * GStreamer names them from 1.24 on, and the GigE Vision packed layouts under names of our own. */
#define VQG_PHASE_FORMATS(p, P)                                                                          \
    {#p, VQP_PIXEL_FORMAT_BAYER_##P##8, VQP_PIXEL_FORMAT_BAYER_##P##8, 0, VQG_SAMPLES_8, 8},             \
    {#p "10le", VQP_PIXEL_FORMAT_BAYER_##P##10, VQP_PIXEL_FORMAT_BAYER_##P##8,                           \
     VQP_PIXEL_FORMAT_BAYER_##P##10, VQG_SAMPLES_16, 10},                                                \
    {#p "12le", VQP_PIXEL_FORMAT_BAYER_##P##12, VQP_PIXEL_FORMAT_BAYER_##P##8,                           \
     VQP_PIXEL_FORMAT_BAYER_##P##12, VQG_SAMPLES_16, 12},                                                \
    {#p "14le", VQP_PIXEL_FORMAT_BAYER_##P##8, VQP_PIXEL_FORMAT_BAYER_##P##8,                            \
     VQP_PIXEL_FORMAT_BAYER_##P##14, VQG_SAMPLES_16_SELF, 14},                                           \
    {#p "16le", VQP_PIXEL_FORMAT_BAYER_##P##16, VQP_PIXEL_FORMAT_BAYER_##P##8,                           \
     VQP_PIXEL_FORMAT_BAYER_##P##16, VQG_SAMPLES_16, 16},                                                \
    {#p "10packed", VQP_PIXEL_FORMAT_BAYER_##P##10_PACKED, VQP_PIXEL_FORMAT_BAYER_##P##8,                \
     VQP_PIXEL_FORMAT_BAYER_##P##10_PACKED, VQG_SAMPLES_PACKED, 10},                                     \
    {#p "12packed", VQP_PIXEL_FORMAT_BAYER_##P##12_PACKED, VQP_PIXEL_FORMAT_BAYER_##P##8,                \
     VQP_PIXEL_FORMAT_BAYER_##P##12_PACKED, VQG_SAMPLES_PACKED, 12}

static const VqgSinkFormat vqg_sink_formats[] = {
    VQG_PHASE_FORMATS(rggb, RG), VQG_PHASE_FORMATS(grbg, GR), VQG_PHASE_FORMATS(gbrg, GB),
    VQG_PHASE_FORMATS(bggr, BG),
};
#undef VQG_PHASE_FORMATS

static const size_t vqg_n_sink_formats = sizeof vqg_sink_formats / sizeof vqg_sink_formats[0];

struct VqgSrcFormat {
    GstVideoFormat format;
    uint64_t code;   /* the library's output format (vqpDemosaicSetConfig16's when fullDepth) */
    int pixelBytes;  /* bytes a pixel of one plane */
    int planes;
    bool fullDepth;  /* through vqpDemosaicing16, from deep input only */
};

/* In the order the element prefers them when downstream leaves the choice. */
static const VqgSrcFormat vqg_src_formats[] = {
    {GST_VIDEO_FORMAT_BGRx, VQP_PIXEL_FORMAT_BGRA8, 4, 1, false},
    {GST_VIDEO_FORMAT_RGBx, VQP_PIXEL_FORMAT_RGBA8, 4, 1, false},
    {GST_VIDEO_FORMAT_BGR, VQP_PIXEL_FORMAT_BGR8, 3, 1, false},
    {GST_VIDEO_FORMAT_RGB, VQP_PIXEL_FORMAT_RGB8, 3, 1, false},
    {GST_VIDEO_FORMAT_RGBP, VQP_PIXEL_FORMAT_RGB8_PLANAR, 1, 3, false},
    {GST_VIDEO_FORMAT_BGRP, VQP_PIXEL_FORMAT_BGR8_PLANAR, 1, 3, false},
    {GST_VIDEO_FORMAT_GRAY8, VQP_PIXEL_FORMAT_MONO8, 1, 1, false},
    /* 16 bits a sample: R, G, B from the library scaled to the full range, alpha opaque. */
    {GST_VIDEO_FORMAT_RGBA64_LE, VQP_PIXEL_FORMAT_RGB16 | VQP_OUTPUT16_FULL_RANGE, 8, 1, true},
};

static const size_t vqg_n_src_formats = sizeof vqg_src_formats / sizeof vqg_src_formats[0];

static inline const VqgSinkFormat *vqg_find_sink_format(const char *name) {
    for (size_t i = 0; name && i < vqg_n_sink_formats; i++)
        if (g_str_equal(name, vqg_sink_formats[i].name))
            return &vqg_sink_formats[i];
    return NULL;
}

static inline const VqgSrcFormat *vqg_find_src_format(GstVideoFormat format) {
    for (size_t i = 0; i < vqg_n_src_formats; i++)
        if (vqg_src_formats[i].format == format)
            return &vqg_src_formats[i];
    return NULL;
}

/* Bytes of one row of `width` samples; a trailing half pair of a packed row has two bytes. */
static inline uint64_t vqg_row_bytes(const VqgSinkFormat *f, uint64_t width) {
    switch (f->layout) {
    case VQG_SAMPLES_8: return width;
    case VQG_SAMPLES_PACKED: return width / 2 * 3 + (width & 1) * 2;
    default: return width * 2;
    }
}

/* The row stride of frames that carry no GstVideoMeta. Packed frames are then one run of samples, as
 * a GigE Vision camera sends them; the library reads a stride of width + width / 2 that way. */
static inline uint64_t vqg_natural_stride(const VqgSinkFormat *f, uint64_t width) {
    return f->layout == VQG_SAMPLES_PACKED ? width + width / 2 : vqg_row_bytes(f, width);
}

/* Bytes a frame needs from its first byte: `stride` apart rows, the last one `row bytes` long. A packed
 * frame with the natural stride is one run of height x width samples. */
static inline uint64_t vqg_frame_bytes(const VqgSinkFormat *f, uint64_t width, uint64_t height,
                                       uint64_t stride) {
    if (f->layout == VQG_SAMPLES_PACKED && stride == width + width / 2)
        return vqg_row_bytes(f, width * height);
    return (height - 1) * stride + vqg_row_bytes(f, width);
}

#endif /* VELQORA_GST_FORMATS_H */
