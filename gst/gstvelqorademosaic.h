/*
 * gstvelqorademosaic.h - velqorademosaic: raw Bayer frames (video/x-bayer) to colour or grey video/x-raw.
 */
#ifndef GST_VELQORA_DEMOSAIC_H
#define GST_VELQORA_DEMOSAIC_H

#include <gst/base/gstbasetransform.h>
#include <gst/video/video.h>

#include <velqora.h>

#include "formats.h"

G_BEGIN_DECLS

#define GST_TYPE_VELQORA_DEMOSAIC (gst_velqora_demosaic_get_type())
G_DECLARE_FINAL_TYPE(GstVelqoraDemosaic, gst_velqora_demosaic, GST, VELQORA_DEMOSAIC, GstBaseTransform)

typedef struct {
    gfloat black_level;
    gfloat white_level;
    gfloat balance_ratio[3];
    guint balance_white_auto;
    gfloat color_transformation[9];
    guint transfer;
    gfloat gamma;
} VqgDevelopSettings;

struct _GstVelqoraDemosaic {
    GstBaseTransform parent;

    /* Properties, read once a frame under the object lock. */
    guint method;
    guint threads;
    /* Development (raw to picture), in GenICam's words. dev.balance_ratio reads back the gains found
     * while automatic balance runs, dev.balance_white_auto its return to off after a ONCE frame;
     * `accepted` holds the last settings the library took, put back when it refuses newer ones. */
    VqgDevelopSettings dev, accepted;
    gboolean develop_dirty; /* settings changed since they were last handed to the library */

    /* Negotiated. */
    const VqgSinkFormat *in_format;
    gint width, height;
    GstVideoInfo out_info;
    const VqgSrcFormat *out_format;

    ProcessingHandle *handle;
    /* Grow-only work areas, kept across frames: 8-bit rows compacted or reduced here, and the
     * library's packed output when the output buffer's rows are padded. */
    guint8 *in_work;
    gsize in_work_size;
    guint8 *out_work;
    gsize out_work_size;
};

GST_ELEMENT_REGISTER_DECLARE(velqorademosaic);

G_END_DECLS

#endif /* GST_VELQORA_DEMOSAIC_H */
