/*
 * gstvelqorademosaic.cpp - velqorademosaic, a converter from video/x-bayer to video/x-raw around the
 * library's public interface.
 *
 * One library handle per element, created in start and released in stop; it owns the worker threads of
 * the parallel entry point and the scratch block, so a frame costs no allocation once the first one of
 * its size has run. Output buffers come from a buffer pool that the element configures in
 * decide_allocation (downstream's if it offers one).
 */
#include "gstvelqorademosaic.h"

#include <string.h>

#include <cmath>
#include <string>

GST_DEBUG_CATEGORY_STATIC(velqora_demosaic_debug);
#define GST_CAT_DEFAULT velqora_demosaic_debug

enum {
    PROP_0,
    PROP_METHOD,
    PROP_THREADS,
    PROP_BLACK_LEVEL,
    PROP_WHITE_LEVEL,
    PROP_BALANCE_RATIO_RED,
    PROP_BALANCE_RATIO_GREEN,
    PROP_BALANCE_RATIO_BLUE,
    PROP_BALANCE_WHITE_AUTO,
    PROP_COLOR_TRANSFORMATION,
    PROP_TRANSFER,
    PROP_GAMMA,
};

#define DEFAULT_METHOD VQP_METHOD_EDGE
#define DEFAULT_THREADS 0u
#define MAX_THREADS 1024u

G_DEFINE_TYPE(GstVelqoraDemosaic, gst_velqora_demosaic, GST_TYPE_BASE_TRANSFORM)
GST_ELEMENT_REGISTER_DEFINE(velqorademosaic, "velqorademosaic", GST_RANK_NONE, GST_TYPE_VELQORA_DEMOSAIC)

#define GST_TYPE_VELQORA_METHOD (gst_velqora_method_get_type())
static GType gst_velqora_method_get_type(void) {
    static GType type = 0;
    static const GEnumValue values[] = {
        {VQP_METHOD_NEAREST, "Nearest neighbour: each pixel takes the samples of its 2x2 cell", "nearest"},
        {VQP_METHOD_BILINEAR, "Bilinear interpolation", "bilinear"},
        {VQP_METHOD_EDGE, "Edge-directed interpolation", "edge"},
        {0, NULL, NULL},
    };
    if (g_once_init_enter(&type)) {
        GType t = g_enum_register_static("GstVelqoraMethod", values);
        g_once_init_leave(&type, t);
    }
    return type;
}

#define GST_TYPE_VELQORA_BALANCE_WHITE_AUTO (gst_velqora_balance_white_auto_get_type())
static GType gst_velqora_balance_white_auto_get_type(void) {
    static GType type = 0;
    static const GEnumValue values[] = {
        {VQP_BALANCE_WHITE_AUTO_OFF, "The balance ratios as set", "off"},
        {VQP_BALANCE_WHITE_AUTO_ONCE, "Grey world on the next frame, then off with those ratios", "once"},
        {VQP_BALANCE_WHITE_AUTO_CONTINUOUS, "Grey world, following the scene frame by frame", "continuous"},
        {0, NULL, NULL},
    };
    if (g_once_init_enter(&type)) {
        GType t = g_enum_register_static("GstVelqoraBalanceWhiteAuto", values);
        g_once_init_leave(&type, t);
    }
    return type;
}

#define GST_TYPE_VELQORA_TRANSFER (gst_velqora_transfer_get_type())
static GType gst_velqora_transfer_get_type(void) {
    static GType type = 0;
    static const GEnumValue values[] = {
        {VQP_TRANSFER_LINEAR, "Linear: the balanced, transformed signal as it is", "linear"},
        {VQP_TRANSFER_SRGB, "The sRGB curve (IEC 61966-2-1)", "srgb"},
        {VQP_TRANSFER_GAMMA, "A gamma curve, encoded = linear^(1/gamma) (the gamma property)", "gamma"},
        {0, NULL, NULL},
    };
    if (g_once_init_enter(&type)) {
        GType t = g_enum_register_static("GstVelqoraTransfer", values);
        g_once_init_leave(&type, t);
    }
    return type;
}

/* ---- Development settings ------------------------------------------------------------------------ */

static bool develop_neutral(const VqgDevelopSettings *d) {
    static const gfloat identity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    return d->black_level == 0 && d->white_level == 0 && d->balance_ratio[0] == 1 && d->balance_ratio[1] == 1 &&
           d->balance_ratio[2] == 1 && d->balance_white_auto == VQP_BALANCE_WHITE_AUTO_OFF &&
           memcmp(d->color_transformation, identity, sizeof identity) == 0 && d->transfer == VQP_TRANSFER_LINEAR;
}

static void develop_defaults(VqgDevelopSettings *d) {
    *d = VqgDevelopSettings{0, 0, {1, 1, 1}, VQP_BALANCE_WHITE_AUTO_OFF, {1, 0, 0, 0, 1, 0, 0, 0, 1},
                            VQP_TRANSFER_LINEAR, 2.2f};
}

/* Every setting into the handle (white first to the depth's maximum, so that any black below it passes). */
static int32_t develop_set(ProcessingHandle *h, const VqgDevelopSettings *d) {
    const gfloat black[4] = {d->black_level, d->black_level, d->black_level, d->black_level};
    int32_t status = vqpSetWhiteLevel(h, 0);
    if (status == VQP_OK) status = vqpSetBlackLevel(h, black);
    if (status == VQP_OK) status = vqpSetWhiteLevel(h, d->white_level);
    if (status == VQP_OK && d->balance_white_auto == VQP_BALANCE_WHITE_AUTO_OFF)
        status = vqpSetBalanceRatio(h, d->balance_ratio);
    if (status == VQP_OK) status = vqpSetBalanceWhiteAuto(h, d->balance_white_auto);
    if (status == VQP_OK) status = vqpSetColorTransformation(h, d->color_transformation);
    if (status == VQP_OK) status = vqpSetTransfer(h, d->transfer, d->gamma);
    return status;
}

/* Hands changed settings to the library; called with the object lock held (so nothing is posted here:
 * posting takes that lock). Returns the library's status: when it refuses a value, `refused` keeps what
 * was asked and the last accepted settings come back, in the properties and in the handle (the
 * defaults, which convert plainly, should even those fail). */
static int32_t develop_apply(GstVelqoraDemosaic *self, VqgDevelopSettings *refused) {
    if (!self->develop_dirty)
        return VQP_OK;
    const int32_t status = develop_set(self->handle, &self->dev);
    if (status != VQP_OK) {
        *refused = self->dev;
        self->dev = self->accepted;
        if (develop_set(self->handle, &self->dev) != VQP_OK) {
            develop_defaults(&self->dev);
            return status;
        }
    }
    self->accepted = self->dev;
    self->develop_dirty = FALSE;
    return status;
}

/* "a,b,c,d,e,f,g,h,i" into nine numbers; false when it is not nine finite numbers. */
static bool parse_matrix(const gchar *text, gfloat m[9]) {
    gchar **items = g_strsplit(text, ",", -1);
    bool ok = g_strv_length(items) == 9;
    for (guint i = 0; ok && i < 9; i++) {
        gchar *end = NULL;
        const gdouble v = g_ascii_strtod(items[i], &end);
        ok = end != items[i] && *g_strchug(end) == '\0' && std::isfinite(v);
        m[i] = (gfloat)v;
    }
    g_strfreev(items);
    return ok;
}

/* ---- Caps ---------------------------------------------------------------------------------------- */

/* The format list of one side; `deep` keeps to the formats that pair with deep samples only (when the
 * other side is RGBA64_LE), `shallow` leaves out the full-depth outputs (when it is an 8-bit format). */
static void set_format_list(GstStructure *s, bool bayer, bool deep = false, bool shallow = false) {
    GValue list = G_VALUE_INIT, v = G_VALUE_INIT;
    g_value_init(&list, GST_TYPE_LIST);
    g_value_init(&v, G_TYPE_STRING);
    if (bayer) {
        for (size_t i = 0; i < vqg_n_sink_formats; i++) {
            if (deep && !vqg_sink_formats[i].code16)
                continue;
            g_value_set_string(&v, vqg_sink_formats[i].name);
            gst_value_list_append_value(&list, &v);
        }
    } else {
        for (size_t i = 0; i < vqg_n_src_formats; i++) {
            if (shallow && vqg_src_formats[i].fullDepth)
                continue;
            g_value_set_string(&v, gst_video_format_to_string(vqg_src_formats[i].format));
            gst_value_list_append_value(&list, &v);
        }
    }
    gst_structure_take_value(s, "format", &list);
    g_value_unset(&v);
}

static GstCaps *template_caps(bool bayer) {
    GstStructure *s = gst_structure_new(bayer ? "video/x-bayer" : "video/x-raw", "width", GST_TYPE_INT_RANGE,
                                        1, G_MAXINT, "height", GST_TYPE_INT_RANGE, 1, G_MAXINT, "framerate",
                                        GST_TYPE_FRACTION_RANGE, 0, 1, G_MAXINT, 1, NULL);
    set_format_list(s, bayer);
    GstCaps *caps = gst_caps_new_empty();
    gst_caps_append_structure(caps, s);
    return caps;
}

/* Caps on one side give the caps of the other: the same size, frame rate and pixel aspect ratio, every
 * format of the other side. */
static GstCaps *gst_velqora_demosaic_transform_caps(GstBaseTransform *, GstPadDirection direction,
                                                    GstCaps *caps, GstCaps *filter) {
    const bool to_raw = direction == GST_PAD_SINK;
    static const char *const kept[] = {"width", "height", "framerate", "pixel-aspect-ratio"};
    GstCaps *result = gst_caps_new_empty();
    for (guint i = 0; i < gst_caps_get_size(caps); i++) {
        GstCapsFeatures *features = gst_caps_get_features(caps, i);
        if (features && !gst_caps_features_is_any(features) &&
            !gst_caps_features_is_equal(features, GST_CAPS_FEATURES_MEMORY_SYSTEM_MEMORY))
            continue;
        const GstStructure *s = gst_caps_get_structure(caps, i);
        GstStructure *o = gst_structure_new_empty(to_raw ? "video/x-raw" : "video/x-bayer");
        for (const char *field : kept) {
            const GValue *v = gst_structure_get_value(s, field);
            if (v)
                gst_structure_set_value(o, field, v);
        }
        const char *format = gst_structure_get_string(s, "format");
        const VqgSinkFormat *in = to_raw ? vqg_find_sink_format(format) : NULL;
        const VqgSrcFormat *out = to_raw || !format ? NULL : vqg_find_src_format(gst_video_format_from_string(format));
        set_format_list(o, !to_raw, out && out->fullDepth, in && !in->code16);
        result = gst_caps_merge_structure(result, o);
    }
    if (filter) {
        GstCaps *narrowed = gst_caps_intersect_full(filter, result, GST_CAPS_INTERSECT_FIRST);
        gst_caps_unref(result);
        result = narrowed;
    }
    return result;
}

static std::string sink_format_names() {
    std::string names;
    for (size_t i = 0; i < vqg_n_sink_formats; i++)
        names += std::string(i ? ", " : "") + vqg_sink_formats[i].name;
    return names;
}

/* Refused caps are named in an error message, so that a pipeline that stops at negotiation says why. */
static gboolean gst_velqora_demosaic_accept_caps(GstBaseTransform *bt, GstPadDirection direction,
                                                 GstCaps *caps) {
    gboolean ok = GST_BASE_TRANSFORM_CLASS(gst_velqora_demosaic_parent_class)->accept_caps(bt, direction, caps);
    if (ok || direction != GST_PAD_SINK || !gst_caps_is_fixed(caps))
        return ok;
    const GstStructure *s = gst_caps_get_structure(caps, 0);
    const char *format = gst_structure_get_string(s, "format");
    if (!gst_structure_has_name(s, "video/x-bayer")) {
        gchar *text = gst_caps_to_string(caps);
        GST_ELEMENT_ERROR(bt, CORE, NEGOTIATION, ("velqorademosaic cannot convert %s", text),
                          ("it converts video/x-bayer of the formats %s", sink_format_names().c_str()));
        g_free(text);
    } else if (!vqg_find_sink_format(format)) {
        GST_ELEMENT_ERROR(bt, CORE, NEGOTIATION,
                          ("velqorademosaic cannot convert video/x-bayer format '%s'", format ? format : "(none)"),
                          ("it converts the formats %s", sink_format_names().c_str()));
    }
    return ok;
}

static gboolean gst_velqora_demosaic_set_caps(GstBaseTransform *bt, GstCaps *incaps, GstCaps *outcaps) {
    GstVelqoraDemosaic *self = GST_VELQORA_DEMOSAIC(bt);
    const GstStructure *s = gst_caps_get_structure(incaps, 0);
    const char *format = gst_structure_get_string(s, "format");
    const VqgSinkFormat *in = vqg_find_sink_format(format);
    gint width = 0, height = 0;
    if (!in || !gst_structure_get_int(s, "width", &width) || !gst_structure_get_int(s, "height", &height)) {
        GST_ELEMENT_ERROR(self, CORE, NEGOTIATION,
                          ("velqorademosaic cannot convert video/x-bayer format '%s'", format ? format : "(none)"),
                          ("it converts the formats %s, with a width and a height", sink_format_names().c_str()));
        return FALSE;
    }
    if (width < 4 || height < 4) {
        GST_ELEMENT_ERROR(self, STREAM, FORMAT,
                          ("velqorademosaic cannot convert frames of %dx%d: they must be 4x4 or larger", width,
                           height),
                          (NULL));
        return FALSE;
    }
    GstVideoInfo info;
    const VqgSrcFormat *out = NULL;
    if (gst_video_info_from_caps(&info, outcaps))
        out = vqg_find_src_format(GST_VIDEO_INFO_FORMAT(&info));
    if (!out || GST_VIDEO_INFO_WIDTH(&info) != width || GST_VIDEO_INFO_HEIGHT(&info) != height) {
        gchar *text = gst_caps_to_string(outcaps);
        GST_ELEMENT_ERROR(self, CORE, NEGOTIATION, ("velqorademosaic cannot produce %s", text), (NULL));
        g_free(text);
        return FALSE;
    }
    if (out->fullDepth && !in->code16) {
        GST_ELEMENT_ERROR(self, CORE, NEGOTIATION,
                          ("velqorademosaic cannot produce %s from 8-bit samples (format '%s')",
                           gst_video_format_to_string(out->format), in->name),
                          (NULL));
        return FALSE;
    }
    uint64_t config = out->code;
    int32_t status = out->fullDepth ? vqpDemosaicSetConfig16(self->handle, &config)
                                    : vqpDemosaicSetConfig(self->handle, &config);
    if (status != VQP_OK) {
        GST_ELEMENT_ERROR(self, LIBRARY, SETTINGS, ("%s: %s", vqpStatusName(status), vqpStatusMessage(status)),
                          ("setting the output format %s", gst_video_format_to_string(out->format)));
        return FALSE;
    }
    self->in_format = in;
    self->width = width;
    self->height = height;
    self->out_info = info;
    self->out_format = out;
    GST_DEBUG_OBJECT(self, "%s %dx%d to %s", in->name, width, height, gst_video_format_to_string(out->format));
    return TRUE;
}

static gboolean gst_velqora_demosaic_transform_size(GstBaseTransform *, GstPadDirection direction, GstCaps *,
                                                    gsize, GstCaps *othercaps, gsize *othersize) {
    GstVideoInfo info;
    if (direction != GST_PAD_SINK || !gst_video_info_from_caps(&info, othercaps))
        return FALSE;
    *othersize = GST_VIDEO_INFO_SIZE(&info);
    return TRUE;
}

/* ---- Allocation ---------------------------------------------------------------------------------- */

/* Upstream may pad its rows: the stride of a GstVideoMeta is honoured. */
static gboolean gst_velqora_demosaic_propose_allocation(GstBaseTransform *, GstQuery *, GstQuery *query) {
    gst_query_add_allocation_meta(query, GST_VIDEO_META_API_TYPE, NULL);
    return TRUE;
}

/* Output buffers come from one pool for the whole stream: downstream's if it offers one, else a video
 * buffer pool of our own. */
static gboolean gst_velqora_demosaic_decide_allocation(GstBaseTransform *bt, GstQuery *query) {
    GstCaps *outcaps = NULL;
    gst_query_parse_allocation(query, &outcaps, NULL);
    GstVideoInfo info;
    if (!outcaps || !gst_video_info_from_caps(&info, outcaps))
        return FALSE;
    GstBufferPool *pool = NULL;
    guint size = 0, min = 0, max = 0;
    const bool update = gst_query_get_n_allocation_pools(query) > 0;
    if (update)
        gst_query_parse_nth_allocation_pool(query, 0, &pool, &size, &min, &max);
    if (!pool)
        pool = gst_video_buffer_pool_new();
    size = MAX(size, (guint)GST_VIDEO_INFO_SIZE(&info));
    GstStructure *config = gst_buffer_pool_get_config(pool);
    gst_buffer_pool_config_set_params(config, outcaps, size, min, max);
    if (gst_query_find_allocation_meta(query, GST_VIDEO_META_API_TYPE, NULL))
        gst_buffer_pool_config_add_option(config, GST_BUFFER_POOL_OPTION_VIDEO_META);
    if (!gst_buffer_pool_set_config(pool, config)) {
        config = gst_buffer_pool_get_config(pool);
        if (!gst_buffer_pool_config_validate_params(config, outcaps, size, min, max) ||
            !gst_buffer_pool_set_config(pool, config)) {
            gst_object_unref(pool);
            pool = gst_video_buffer_pool_new();
            config = gst_buffer_pool_get_config(pool);
            gst_buffer_pool_config_set_params(config, outcaps, size, min, max);
            if (!gst_buffer_pool_set_config(pool, config)) {
                gst_object_unref(pool);
                return FALSE;
            }
        }
    }
    if (update)
        gst_query_set_nth_allocation_pool(query, 0, pool, size, min, max);
    else
        gst_query_add_allocation_pool(query, pool, size, min, max);
    gst_object_unref(pool);
    return GST_BASE_TRANSFORM_CLASS(gst_velqora_demosaic_parent_class)->decide_allocation(bt, query);
}

/* ---- Frames -------------------------------------------------------------------------------------- */

static bool ensure_work(guint8 **area, gsize *size, gsize needed) {
    if (*size >= needed)
        return true;
    g_free(*area);
    *area = (guint8 *)g_try_malloc0(needed);
    *size = *area ? needed : 0;
    return *area != NULL;
}

/* The edge-directed kernels leave the fourth byte of 4-byte pixels alone: a memory block of the pool
 * is cleared the first time it receives such output, so that the padding byte reads 0 as it does from
 * the other methods. */
static void clear_padding_once(GstBuffer *outbuf, guint8 *data, gsize bytes) {
    static GQuark cleared = g_quark_from_static_string("GstVelqoraDemosaicCleared");
    GstMemory *mem = gst_buffer_n_memory(outbuf) == 1 ? gst_buffer_peek_memory(outbuf, 0) : NULL;
    if (mem && gst_mini_object_get_qdata(GST_MINI_OBJECT_CAST(mem), cleared))
        return;
    memset(data, 0, bytes);
    if (mem)
        gst_mini_object_set_qdata(GST_MINI_OBJECT_CAST(mem), cleared, GINT_TO_POINTER(1), NULL);
}

/* R, G, B samples of 16 bits (the machine's order, rows packed) to RGBA64_LE rows, alpha opaque. */
static void expand_rgb16(const guint8 *rgb, gint w, gint h, GstVideoFrame *frame) {
    guint8 *to = (guint8 *)GST_VIDEO_FRAME_PLANE_DATA(frame, 0);
    const gint toStride = GST_VIDEO_FRAME_PLANE_STRIDE(frame, 0);
    for (gint y = 0; y < h; y++) {
        const guint8 *from = rgb + (gsize)y * w * 3 * sizeof(guint16);
        guint16 *row = (guint16 *)(void *)(to + (gsize)y * toStride);
        for (gint x = 0; x < w; x++) {
            guint16 sample[3];
            memcpy(sample, from + (gsize)x * sizeof sample, sizeof sample);
            row[4 * x + 0] = GUINT16_TO_LE(sample[0]);
            row[4 * x + 1] = GUINT16_TO_LE(sample[1]);
            row[4 * x + 2] = GUINT16_TO_LE(sample[2]);
            row[4 * x + 3] = 0xFFFF;
        }
    }
}

static GstFlowReturn gst_velqora_demosaic_transform(GstBaseTransform *bt, GstBuffer *inbuf, GstBuffer *outbuf) {
    GstVelqoraDemosaic *self = GST_VELQORA_DEMOSAIC(bt);
    const VqgSinkFormat *f = self->in_format;
    const VqgSrcFormat *of = self->out_format;
    if (!f || !of)
        return GST_FLOW_NOT_NEGOTIATED;
    const gint w = self->width, h = self->height;

    guint64 offset = 0, stride = vqg_natural_stride(f, w);
    if (GstVideoMeta *meta = gst_buffer_get_video_meta(inbuf)) {
        if (meta->stride[0] < 0 || (f->layout != VQG_SAMPLES_8 && f->layout != VQG_SAMPLES_PACKED &&
                                    meta->stride[0] % 2 != 0)) {
            GST_ELEMENT_ERROR(self, STREAM, FORMAT, ("a %s frame with a row stride of %d bytes", f->name,
                                                     meta->stride[0]),
                              ("the stride of 16-bit samples is a positive even number of bytes"));
            return GST_FLOW_ERROR;
        }
        offset = meta->offset[0];
        stride = (guint64)meta->stride[0];
    }
    const guint64 rowBytes = vqg_row_bytes(f, w);
    const bool packedRun = f->layout == VQG_SAMPLES_PACKED && stride == (guint64)w + w / 2;
    if ((stride < rowBytes && !packedRun) || stride > G_MAXINT32) {
        GST_ELEMENT_ERROR(self, STREAM, FORMAT,
                          ("a %s frame %d wide with a row stride of %" G_GUINT64_FORMAT " bytes", f->name, w, stride),
                          ("a row holds %" G_GUINT64_FORMAT " bytes", rowBytes));
        return GST_FLOW_ERROR;
    }

    GstMapInfo inMap;
    if (!gst_buffer_map(inbuf, &inMap, GST_MAP_READ)) {
        GST_ELEMENT_ERROR(self, RESOURCE, READ, ("cannot map the input buffer"), (NULL));
        return GST_FLOW_ERROR;
    }
    const guint64 frameBytes = vqg_frame_bytes(f, w, h, stride); /* below 2^63: no sum overflows */
    if (offset > inMap.size || frameBytes > inMap.size - offset) {
        const guint64 needed = MIN(offset, (guint64)G_MAXINT64 - frameBytes) + frameBytes;
        GST_ELEMENT_ERROR(self, STREAM, FORMAT,
                          ("a buffer of %" G_GSIZE_FORMAT " bytes, but a %dx%d %s frame needs %" G_GUINT64_FORMAT
                           " bytes",
                           inMap.size, w, h, f->name, needed),
                          ("row stride %" G_GUINT64_FORMAT ", offset %" G_GUINT64_FORMAT, stride, offset));
        gst_buffer_unmap(inbuf, &inMap);
        return GST_FLOW_ERROR;
    }

    /* The library compacts padded 8-bit rows in place; upstream's buffer is not ours to write, so such
     * rows are compacted into the work area instead. 14-bit samples are reduced here to the 8 bits
     * the library keeps of every depth (the most significant ones). The full-depth entry point reads
     * every deep layout where it lies and writes nothing into its input. */
    const guint8 *src = inMap.data + offset;
    ImageFrame in = {h, w, of->fullDepth ? f->code16 : f->code, (void *)src, (int32_t)stride};
    const gsize pixels = (gsize)w * (gsize)h;
    if (!of->fullDepth &&
        ((f->layout == VQG_SAMPLES_8 && stride != (guint64)w) || f->layout == VQG_SAMPLES_16_SELF)) {
        if (!ensure_work(&self->in_work, &self->in_work_size, pixels)) {
            GST_ELEMENT_ERROR(self, RESOURCE, NO_SPACE_LEFT, ("no memory for a %dx%d frame", w, h), (NULL));
            gst_buffer_unmap(inbuf, &inMap);
            return GST_FLOW_ERROR;
        }
        if (f->layout == VQG_SAMPLES_8)
            for (gint y = 0; y < h; y++)
                memcpy(self->in_work + (gsize)y * w, src + y * stride, w);
        else
            u16Tou8((const uint16_t *)(const void *)src, h, w, (int32_t)stride, f->depth - 8, self->in_work);
        in = ImageFrame{h, w, f->phase8, self->in_work, w};
    }

    GstVideoFrame frame;
    if (!gst_video_frame_map(&frame, &self->out_info, outbuf, GST_MAP_WRITE)) {
        GST_ELEMENT_ERROR(self, RESOURCE, WRITE, ("cannot map the output buffer"), (NULL));
        gst_buffer_unmap(inbuf, &inMap);
        return GST_FLOW_ERROR;
    }
    /* The library writes rows without padding and planes one after the other; when the output buffer
     * is laid out so, it writes there, else into the work area and the rows are copied. Full-depth
     * output (three samples a pixel) always goes through the work area, to gain its alpha. */
    const gsize planeRow = (gsize)w * of->pixelBytes;
    bool direct = !of->fullDepth;
    for (int p = 0; p < of->planes; p++)
        direct = direct && (gsize)GST_VIDEO_FRAME_PLANE_STRIDE(&frame, p) == planeRow &&
                 (guint8 *)GST_VIDEO_FRAME_PLANE_DATA(&frame, p) ==
                     (guint8 *)GST_VIDEO_FRAME_PLANE_DATA(&frame, 0) + p * planeRow * h;
    guint8 *dst = (guint8 *)GST_VIDEO_FRAME_PLANE_DATA(&frame, 0);
    const gsize outBytes = of->fullDepth ? pixels * 3 * sizeof(guint16) : planeRow * h * of->planes;

    GST_OBJECT_LOCK(self);
    const guint method = self->method, threads = self->threads;
    VqgDevelopSettings refused{};
    int32_t refusal = develop_neutral(&self->dev) ? VQP_OK : develop_apply(self, &refused);
    const bool develop = !develop_neutral(&self->dev);
    GST_OBJECT_UNLOCK(self);
    if (refusal != VQP_OK)
        GST_ELEMENT_WARNING(self, LIBRARY, SETTINGS, ("%s: %s", vqpStatusName(refusal), vqpStatusMessage(refusal)),
                            ("refused: black-level %g, white-level %g, gamma %g (the black level must lie below the "
                             "white level); the settings of the last frame are kept",
                             refused.black_level, refused.white_level, refused.gamma));
    /* Development reads every layout at full depth where it lies and never writes its input. */
    const ImageFrame raw = {h, w, f->code16 ? f->code16 : f->code, (void *)src, (int32_t)stride};

    GstFlowReturn ret = GST_FLOW_OK;
    if (!direct && !ensure_work(&self->out_work, &self->out_work_size, outBytes)) {
        GST_ELEMENT_ERROR(self, RESOURCE, NO_SPACE_LEFT, ("no memory for a %dx%d frame", w, h), (NULL));
        ret = GST_FLOW_ERROR;
    } else {
        if (direct && of->pixelBytes == 4 && method == VQP_METHOD_EDGE && !develop)
            clear_padding_once(outbuf, dst, outBytes);
        ImageFrame out = {0, 0, 0, direct ? dst : self->out_work, 0};
        int32_t status;
        if (develop) {
            status = of->fullDepth ? vqpDevelop16(self->handle, &raw, method, &out, threads)
                                   : vqpDevelop(self->handle, &raw, method, &out, threads);
            /* The gains in use (found automatically, too) and the mode (ONCE is over) read back. */
            gfloat gains[3];
            guint mode = VQP_BALANCE_WHITE_AUTO_OFF;
            vqpGetBalanceRatio(self->handle, gains);
            vqpGetBalanceWhiteAuto(self->handle, &mode);
            GST_OBJECT_LOCK(self);
            if (!self->develop_dirty) {
                memcpy(self->dev.balance_ratio, gains, sizeof gains);
                self->dev.balance_white_auto = mode;
                self->accepted = self->dev;
            }
            GST_OBJECT_UNLOCK(self);
        } else {
            status = of->fullDepth ? vqpDemosaicing16(self->handle, &in, method, &out, threads)
                                   : vqpDemosaicingParallel(self->handle, &in, method, &out, threads);
        }
        if (status != VQP_OK) {
            GST_ELEMENT_ERROR(self, LIBRARY, FAILED,
                              ("%s: %s", vqpStatusName(status), vqpStatusMessage(status)),
                              ("converting a %dx%d %s frame to %s", w, h, f->name,
                               gst_video_format_to_string(of->format)));
            ret = GST_FLOW_ERROR;
        } else if (of->fullDepth) {
            expand_rgb16(self->out_work, w, h, &frame);
        } else if (!direct) {
            for (int p = 0; p < of->planes; p++) {
                const guint8 *from = self->out_work + p * planeRow * h;
                guint8 *to = (guint8 *)GST_VIDEO_FRAME_PLANE_DATA(&frame, p);
                const gint toStride = GST_VIDEO_FRAME_PLANE_STRIDE(&frame, p);
                for (gint y = 0; y < h; y++)
                    memcpy(to + (gsize)y * toStride, from + y * planeRow, planeRow);
            }
        }
    }
    gst_video_frame_unmap(&frame);
    gst_buffer_unmap(inbuf, &inMap);
    return ret;
}

/* ---- Life cycle and properties ------------------------------------------------------------------- */

static gboolean gst_velqora_demosaic_start(GstBaseTransform *bt) {
    GstVelqoraDemosaic *self = GST_VELQORA_DEMOSAIC(bt);
    int32_t status = vqpCreate(&self->handle);
    GST_OBJECT_LOCK(self);
    self->develop_dirty = TRUE;
    GST_OBJECT_UNLOCK(self);
    if (status != VQP_OK) {
        GST_ELEMENT_ERROR(self, LIBRARY, INIT, ("%s: %s", vqpStatusName(status), vqpStatusMessage(status)), (NULL));
        return FALSE;
    }
    return TRUE;
}

static gboolean gst_velqora_demosaic_stop(GstBaseTransform *bt) {
    GstVelqoraDemosaic *self = GST_VELQORA_DEMOSAIC(bt);
    vqpRelease(&self->handle);
    g_clear_pointer(&self->in_work, g_free);
    g_clear_pointer(&self->out_work, g_free);
    self->in_work_size = self->out_work_size = 0;
    self->in_format = NULL;
    self->out_format = NULL;
    return TRUE;
}

static void gst_velqora_demosaic_set_property(GObject *object, guint id, const GValue *value, GParamSpec *pspec) {
    GstVelqoraDemosaic *self = GST_VELQORA_DEMOSAIC(object);
    GST_OBJECT_LOCK(self);
    switch (id) {
    case PROP_METHOD: self->method = g_value_get_enum(value); break;
    case PROP_THREADS: self->threads = g_value_get_uint(value); break;
    case PROP_BLACK_LEVEL: self->dev.black_level = g_value_get_float(value); break;
    case PROP_WHITE_LEVEL: self->dev.white_level = g_value_get_float(value); break;
    case PROP_BALANCE_RATIO_RED:
    case PROP_BALANCE_RATIO_GREEN:
    case PROP_BALANCE_RATIO_BLUE:
        /* As on a camera: setting a ratio turns automatic balance off. */
        self->dev.balance_ratio[id - PROP_BALANCE_RATIO_RED] = g_value_get_float(value);
        self->dev.balance_white_auto = VQP_BALANCE_WHITE_AUTO_OFF;
        break;
    case PROP_BALANCE_WHITE_AUTO: self->dev.balance_white_auto = g_value_get_enum(value); break;
    case PROP_COLOR_TRANSFORMATION: {
        const gchar *text = g_value_get_string(value);
        gfloat m[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
        if (text != NULL && *text != '\0' && !parse_matrix(text, m)) {
            GST_WARNING_OBJECT(self, "color-transformation '%s' is not nine numbers: kept as it was", text);
            break;
        }
        memcpy(self->dev.color_transformation, m, sizeof m);
        break;
    }
    case PROP_TRANSFER: self->dev.transfer = g_value_get_enum(value); break;
    case PROP_GAMMA: self->dev.gamma = g_value_get_float(value); break;
    default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec); break;
    }
    if (id >= PROP_BLACK_LEVEL)
        self->develop_dirty = TRUE;
    GST_OBJECT_UNLOCK(self);
}

static void gst_velqora_demosaic_get_property(GObject *object, guint id, GValue *value, GParamSpec *pspec) {
    GstVelqoraDemosaic *self = GST_VELQORA_DEMOSAIC(object);
    GST_OBJECT_LOCK(self);
    switch (id) {
    case PROP_METHOD: g_value_set_enum(value, self->method); break;
    case PROP_THREADS: g_value_set_uint(value, self->threads); break;
    case PROP_BLACK_LEVEL: g_value_set_float(value, self->dev.black_level); break;
    case PROP_WHITE_LEVEL: g_value_set_float(value, self->dev.white_level); break;
    case PROP_BALANCE_RATIO_RED:
    case PROP_BALANCE_RATIO_GREEN:
    case PROP_BALANCE_RATIO_BLUE: g_value_set_float(value, self->dev.balance_ratio[id - PROP_BALANCE_RATIO_RED]); break;
    case PROP_BALANCE_WHITE_AUTO: g_value_set_enum(value, self->dev.balance_white_auto); break;
    case PROP_COLOR_TRANSFORMATION: {
        GString *text = g_string_new(NULL);
        for (int i = 0; i < 9; i++) {
            gchar number[G_ASCII_DTOSTR_BUF_SIZE];
            g_string_append_printf(text, "%s%s", i ? "," : "",
                                   g_ascii_dtostr(number, sizeof number, self->dev.color_transformation[i]));
        }
        g_value_take_string(value, g_string_free(text, FALSE));
        break;
    }
    case PROP_TRANSFER: g_value_set_enum(value, self->dev.transfer); break;
    case PROP_GAMMA: g_value_set_float(value, self->dev.gamma); break;
    default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec); break;
    }
    GST_OBJECT_UNLOCK(self);
}

static void gst_velqora_demosaic_class_init(GstVelqoraDemosaicClass *klass) {
    GObjectClass *gobject_class = G_OBJECT_CLASS(klass);
    GstElementClass *element_class = GST_ELEMENT_CLASS(klass);
    GstBaseTransformClass *bt_class = GST_BASE_TRANSFORM_CLASS(klass);

    gobject_class->set_property = gst_velqora_demosaic_set_property;
    gobject_class->get_property = gst_velqora_demosaic_get_property;
    g_object_class_install_property(
        gobject_class, PROP_METHOD,
        g_param_spec_enum("method", "Method", "Demosaicing method", GST_TYPE_VELQORA_METHOD, DEFAULT_METHOD,
                          (GParamFlags)(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING)));
    g_object_class_install_property(
        gobject_class, PROP_THREADS,
        g_param_spec_uint("threads", "Threads",
                          "Threads that share a frame in horizontal bands (0: one per hardware thread)", 0,
                          MAX_THREADS, DEFAULT_THREADS,
                          (GParamFlags)(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING)));

    /* Development: with every one of these at its default the element converts as it always has. */
    const GParamFlags flags = (GParamFlags)(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING);
    g_object_class_install_property(
        gobject_class, PROP_BLACK_LEVEL,
        g_param_spec_float("black-level", "Black level",
                           "The sample value where no light falls, in the input's own units (0 .. 4095 for 12 bits)",
                           0, 65535, 0, flags));
    g_object_class_install_property(
        gobject_class, PROP_WHITE_LEVEL,
        g_param_spec_float("white-level", "White level",
                           "The sample value that is full scale (0: the input depth's maximum)", 0, 65535, 0, flags));
    const char *colours[3] = {"red", "green", "blue"};
    for (int c = 0; c < 3; c++) {
        const std::string name = std::string("balance-ratio-") + colours[c];
        const std::string blurb = std::string("White-balance gain of ") + colours[c] +
                                  " (reads back the gain found while balance-white-auto runs; setting it turns that off)";
        g_object_class_install_property(
            gobject_class, PROP_BALANCE_RATIO_RED + c,
            g_param_spec_float(g_intern_string(name.c_str()), g_intern_string(name.c_str()),
                               g_intern_string(blurb.c_str()), 0, 64, 1,
                               (GParamFlags)(G_PARAM_READWRITE | GST_PARAM_MUTABLE_PLAYING)));
    }
    g_object_class_install_property(
        gobject_class, PROP_BALANCE_WHITE_AUTO,
        g_param_spec_enum("balance-white-auto", "Balance white auto",
                          "Automatic white balance (grey world); once returns to off after a frame",
                          GST_TYPE_VELQORA_BALANCE_WHITE_AUTO, VQP_BALANCE_WHITE_AUTO_OFF, flags));
    g_object_class_install_property(
        gobject_class, PROP_COLOR_TRANSFORMATION,
        g_param_spec_string("color-transformation", "Color transformation",
                            "Row-major 3x3 matrix from balanced camera R,G,B to output R,G,B, nine numbers "
                            "separated by commas (empty: the identity)",
                            "1,0,0,0,1,0,0,0,1", flags));
    g_object_class_install_property(
        gobject_class, PROP_TRANSFER,
        g_param_spec_enum("transfer", "Transfer", "Transfer curve applied last", GST_TYPE_VELQORA_TRANSFER,
                          VQP_TRANSFER_LINEAR, flags));
    g_object_class_install_property(
        gobject_class, PROP_GAMMA,
        g_param_spec_float("gamma", "Gamma", "The gamma of transfer=gamma (encoded = linear^(1/gamma))", 0.1f, 10,
                           2.2f, flags));

    GstCaps *sink = template_caps(true), *src = template_caps(false);
    gst_element_class_add_pad_template(element_class, gst_pad_template_new("sink", GST_PAD_SINK, GST_PAD_ALWAYS, sink));
    gst_element_class_add_pad_template(element_class, gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, src));
    gst_caps_unref(sink);
    gst_caps_unref(src);
    gst_element_class_set_static_metadata(
        element_class, "Velqora demosaic", "Filter/Converter/Video",
        "Demosaics raw Bayer frames (8 to 16 bits, unpacked or GigE Vision packed) to colour or grey video",
        "Velqora developers");
    gst_type_mark_as_plugin_api(GST_TYPE_VELQORA_METHOD, (GstPluginAPIFlags)0);
    gst_type_mark_as_plugin_api(GST_TYPE_VELQORA_BALANCE_WHITE_AUTO, (GstPluginAPIFlags)0);
    gst_type_mark_as_plugin_api(GST_TYPE_VELQORA_TRANSFER, (GstPluginAPIFlags)0);

    bt_class->transform_caps = gst_velqora_demosaic_transform_caps;
    bt_class->accept_caps = gst_velqora_demosaic_accept_caps;
    bt_class->set_caps = gst_velqora_demosaic_set_caps;
    bt_class->transform_size = gst_velqora_demosaic_transform_size;
    bt_class->propose_allocation = gst_velqora_demosaic_propose_allocation;
    bt_class->decide_allocation = gst_velqora_demosaic_decide_allocation;
    bt_class->transform = gst_velqora_demosaic_transform;
    bt_class->start = gst_velqora_demosaic_start;
    bt_class->stop = gst_velqora_demosaic_stop;
    bt_class->passthrough_on_same_caps = FALSE;

    GST_DEBUG_CATEGORY_INIT(velqora_demosaic_debug, "velqorademosaic", 0, "Velqora demosaic");
}

static void gst_velqora_demosaic_init(GstVelqoraDemosaic *self) {
    self->method = DEFAULT_METHOD;
    self->threads = DEFAULT_THREADS;
    develop_defaults(&self->dev);
    self->accepted = self->dev;
    self->develop_dirty = TRUE;
}

static gboolean plugin_init(GstPlugin *plugin) {
    return GST_ELEMENT_REGISTER(velqorademosaic, plugin);
}

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, velqora, "Demosaicing of raw machine-vision camera frames",
                  plugin_init, VELQORA_VERSION_STRING, "Proprietary", "Velqora", "Velqora")
