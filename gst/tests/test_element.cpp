// velqorademosaic in appsrc ! velqorademosaic ! appsink pipelines: every output frame equals the library's
// own single-threaded conversion of the same bytes, for every src and sink format, method and thread
// count, on random frames from 4x4 up, natural or padded (GstVideoMeta), caps changing mid-stream.
// Then what a broken upstream can send, each refused with an error that says why.
#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "formats.h"

namespace {

const uint32_t kMethods[] = {VQP_METHOD_NEAREST, VQP_METHOD_BILINEAR, VQP_METHOD_EDGE};

struct Frame {
    const char *format; // the caps format string
    int width, height;
    std::vector<uint8_t> bytes; // the buffer as pushed
    size_t offset = 0; // of the frame in the buffer, in the GstVideoMeta
    int stride = 0;    // 0: no GstVideoMeta, natural rows
};

// Padded rows get an even number of extra bytes for 16-bit samples, an odd one otherwise.
Frame randomFrame(const VqgSinkFormat &f, int w, int h, bool padded, std::mt19937 &rng) {
    Frame fr{f.name, w, h, {}};
    if (padded) {
        fr.stride = (int)vqg_row_bytes(&f, w) + 2 * (int)(rng() % 9) +
                    (f.layout == VQG_SAMPLES_8 || f.layout == VQG_SAMPLES_PACKED);
        fr.offset = rng() % 5;
    }
    fr.bytes.resize(fr.offset + vqg_frame_bytes(&f, w, h, fr.stride ? fr.stride : vqg_natural_stride(&f, w)));
    for (auto &b : fr.bytes)
        b = (uint8_t)rng();
    return fr;
}

// The library's conversion of the frame on one thread, into packed rows (a copy of the frame: the library
// may compact padded 8-bit rows in place). 14-bit samples keep their 8 most significant bits (wrapped,
// as the library wraps every depth) and go in as 8-bit samples of the same phase. With `developer` (a
// handle holding development settings) the frame is developed instead, from its full depth.
std::vector<uint8_t> reference(Frame fr, const VqgSrcFormat &o, uint32_t method, ProcessingHandle *developer = nullptr) {
    const VqgSinkFormat &f = *vqg_find_sink_format(fr.format);
    const int w = fr.width, h = fr.height;
    ImageFrame in{h, w, (o.fullDepth || developer) && f.code16 ? f.code16 : f.code, fr.bytes.data() + fr.offset,
                  fr.stride ? fr.stride : (int)vqg_natural_stride(&f, w)};
    std::vector<uint8_t> reduced, out(vqpOutputSize(h, w, o.code));
    if (f.layout == VQG_SAMPLES_16_SELF && !o.fullDepth && !developer) {
        for (int y = 0; y < h; y++)
            for (const uint8_t *p = (uint8_t *)in.data + (size_t)y * in.stride, *end = p + 2 * w; p < end; p += 2)
                reduced.push_back((uint8_t)((p[0] | p[1] << 8) >> (f.depth - 8)));
        in = ImageFrame{h, w, f.phase8, reduced.data(), w};
    }
    ProcessingHandle *handle = developer;
    uint64_t config = o.code;
    ImageFrame to{0, 0, 0, out.data(), 0};
    if (!developer && vqpCreate(&handle) != VQP_OK) ADD_FAILURE() << "vqpCreate";
    EXPECT_EQ(o.fullDepth ? vqpDemosaicSetConfig16(handle, &config) : vqpDemosaicSetConfig(handle, &config), VQP_OK);
    EXPECT_EQ(developer ? (o.fullDepth ? vqpDevelop16(handle, &in, method, &to, 1) : vqpDevelop(handle, &in, method, &to, 1))
              : o.fullDepth ? vqpDemosaicing16(handle, &in, method, &to, 1)
                            : vqpDemosaicing(handle, &in, method, &to),
              VQP_OK);
    if (!developer) vqpRelease(&handle);
    // Full depth: R, G, B samples in the machine's (little-endian) byte order, each pixel then an opaque alpha.
    std::vector<uint8_t> rgba;
    for (size_t i = 0; o.fullDepth && i < out.size(); i += 6)
        rgba.insert(rgba.end(), {out[i], out[i + 1], out[i + 2], out[i + 3], out[i + 4], out[i + 5], 0xFF, 0xFF});
    return o.fullDepth ? rgba : out;
}

// The src format named `name`.
const VqgSrcFormat &srcFormat(const char *name) {
    return *std::find_if(vqg_src_formats, vqg_src_formats + vqg_n_src_formats,
                         [&](const VqgSrcFormat &s) { return !strcmp(gst_video_format_to_string(s.format), name); });
}

class Pipeline {
  public:
    explicit Pipeline(const char *outFormat) {
        const std::string desc = std::string("appsrc name=src format=time ! velqorademosaic name=d ! ") +
                                 "video/x-raw,format=" + outFormat + " ! appsink name=sink sync=false";
        GError *error = nullptr;
        pipe_ = gst_parse_launch(desc.c_str(), &error);
        EXPECT_EQ(error, nullptr) << (error ? error->message : "");
        EXPECT_NE(gst_element_set_state(pipe_, GST_STATE_PLAYING), GST_STATE_CHANGE_FAILURE);
    }
    ~Pipeline() {
        gst_element_set_state(pipe_, GST_STATE_NULL);
        gst_object_unref(pipe_);
    }
    // An element of the pipeline, which keeps it as long as it lives.
    GstElement *child(const char *name) {
        GstElement *element = gst_bin_get_by_name(GST_BIN(pipe_), name);
        gst_object_unref(element);
        return element;
    }

    // appsrc sends caps downstream only when they differ from the last ones.
    void push(const Frame &fr, uint32_t method = VQP_METHOD_BILINEAR, uint32_t threads = 0) {
        g_object_set(child("d"), "method", method, "threads", threads, NULL);
        g_autoptr(GstCaps) caps = gst_caps_new_simple("video/x-bayer", "format", G_TYPE_STRING, fr.format, "width",
                                                      G_TYPE_INT, fr.width, "height", G_TYPE_INT, fr.height, NULL);
        gst_app_src_set_caps(GST_APP_SRC(child("src")), caps);
        GstBuffer *buf = gst_buffer_new_memdup(fr.bytes.data(), fr.bytes.size());
        if (fr.stride) {
            gsize offset[GST_VIDEO_MAX_PLANES] = {(gsize)fr.offset};
            gint stride[GST_VIDEO_MAX_PLANES] = {fr.stride};
            gst_buffer_add_video_meta_full(buf, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_FORMAT_ENCODED, fr.width,
                                           fr.height, 1, offset, stride);
        }
        ASSERT_EQ(gst_app_src_push_buffer(GST_APP_SRC(child("src")), buf), GST_FLOW_OK);
    }

    // The next output frame as packed rows and planes, or an empty vector when none came.
    std::vector<uint8_t> pull() {
        g_autoptr(GstSample) sample = gst_app_sink_try_pull_sample(GST_APP_SINK(child("sink")), 10 * GST_SECOND);
        if (!sample)
            return {};
        GstVideoInfo info;
        GstVideoFrame frame;
        EXPECT_TRUE(gst_video_info_from_caps(&info, gst_sample_get_caps(sample)));
        EXPECT_TRUE(gst_video_frame_map(&frame, &info, gst_sample_get_buffer(sample), GST_MAP_READ));
        std::vector<uint8_t> packed;
        for (guint p = 0; p < GST_VIDEO_FRAME_N_PLANES(&frame); p++)
            for (int y = 0; y < GST_VIDEO_FRAME_HEIGHT(&frame); y++) {
                const uint8_t *r = (const uint8_t *)GST_VIDEO_FRAME_PLANE_DATA(&frame, p) +
                                   (size_t)y * GST_VIDEO_FRAME_PLANE_STRIDE(&frame, p);
                packed.insert(packed.end(), r, r + GST_VIDEO_FRAME_COMP_PSTRIDE(&frame, p) * frame.info.width);
            }
        gst_video_frame_unmap(&frame);
        return packed;
    }

    // The text and details of the next error (or warning) message, empty when none is posted within `timeout`.
    std::string error(GstClockTime timeout = 5 * GST_SECOND, GstMessageType type = GST_MESSAGE_ERROR) {
        g_autoptr(GstBus) bus = gst_element_get_bus(pipe_);
        g_autoptr(GstMessage) msg = gst_bus_timed_pop_filtered(bus, timeout, type);
        g_autoptr(GError) err = nullptr;
        g_autofree gchar *debug = nullptr;
        if (msg)
            (type == GST_MESSAGE_ERROR ? gst_message_parse_error : gst_message_parse_warning)(msg, &err, &debug);
        return msg ? std::string(err->message) + " | " + (debug ? debug : "") : "";
    }

  private:
    GstElement *pipe_;
};

class EveryFormat : public ::testing::TestWithParam<size_t> {};

// One pipeline per src format takes every sink format in turn; the frame size, the rows' padding, the
// method and the thread count change from frame to frame, so caps change mid-stream in every way.
TEST_P(EveryFormat, EqualsTheLibrary) {
    const VqgSrcFormat &o = vqg_src_formats[GetParam()];
    std::mt19937 rng(1234 + (unsigned)GetParam());
    Pipeline pipe(gst_video_format_to_string(o.format));
    int n = 0;
    for (size_t fi = 0; fi < vqg_n_sink_formats; fi++) {
        const VqgSinkFormat &f = vqg_sink_formats[fi];
        if (o.fullDepth && !f.code16)
            continue;
        std::vector<std::pair<int, int>> sizes = {{4, 4}, {5, 7}};
        for (int i = 0; i < 5; i++)
            sizes.push_back({4 + (int)(rng() % 37), 4 + (int)(rng() % 21)});
        if ((fi + GetParam()) % 2 == 0)
            sizes.push_back({201, 180}); // large enough for the frame to be split between threads
        for (auto [w, h] : sizes)
            for (bool padded : {false, true})
                for (uint32_t method : kMethods) {
                    const uint32_t threads = (n++ + 1) % 3; // 1, 2, 0 (as many as the machine has)
                    SCOPED_TRACE(::testing::Message() << f.name << " " << w << "x" << h << (padded ? " padded" : "")
                                                      << " method " << method << " threads " << threads);
                    Frame fr = randomFrame(f, w, h, padded, rng);
                    pipe.push(fr, method, threads);
                    ASSERT_TRUE(pipe.pull() == reference(fr, o, method)) << pipe.error(0);
                }
    }
    EXPECT_EQ(pipe.error(0), "");
}

INSTANTIATE_TEST_SUITE_P(Velqora, EveryFormat, ::testing::Range<size_t>(0, vqg_n_src_formats), [](const auto &i) {
    return std::string(gst_video_format_to_string(vqg_src_formats[i.param].format));
});

// By hand, for every method: a mosaic of one colour (each site its colour's value) comes out as that
// colour at every pixel, borders included. 8-bit samples in RGB order; 12-bit ones scaled to 16 bits
// by repeating their top bits (0x800 to 0x8008), little-endian, R, G, B and an opaque alpha.
TEST(Element, OneColourMosaicsByHand) {
    const struct { const char *out, *format; uint16_t r, g, b; std::vector<uint8_t> pixel; } cases[] = {
        {"RGB", "rggb", 200, 100, 40, {200, 100, 40}},
        {"RGBA64_LE", "bggr12le", 0x800, 0x400, 0x100, {0x08, 0x80, 0x04, 0x40, 0x01, 0x10, 0xFF, 0xFF}}};
    for (const auto &c : cases)
        for (uint32_t method : kMethods) {
            Pipeline pipe(c.out);
            Frame fr{c.format, 7, 5, {}};
            std::vector<uint8_t> want;
            for (int y = 0; y < 5; y++)
                for (int x = 0; x < 7; x++) {
                    const char site = c.format[2 * (y % 2) + x % 2];
                    const uint16_t v = site == 'r' ? c.r : site == 'g' ? c.g : c.b;
                    fr.bytes.push_back((uint8_t)v);
                    if (vqg_find_sink_format(c.format)->code16)
                        fr.bytes.push_back((uint8_t)(v >> 8));
                    want.insert(want.end(), c.pixel.begin(), c.pixel.end());
                }
            pipe.push(fr, method);
            EXPECT_TRUE(pipe.pull() == want) << c.format << " method " << method;
        }
}

// Development properties: each frame equals vqpDevelop (vqpDevelop16 for RGBA64_LE) with the same
// settings on a handle that developed the same frames before it; the gains found while automatic balance
// runs and the mode (ONCE over after its frame) read back from the properties. A setting the library
// refuses (a black level above the white level) is a warning: the frame and the properties keep the last
// settings it took; back at every default the element converts plainly.
TEST(Element, DevelopmentEqualsTheLibrary) {
    const float matrix[9] = {1.6f, -0.4f, -0.2f, -0.3f, 1.5f, -0.2f, 0.1f, -0.5f, 1.4f};
    const float black[4] = {40, 40, 40, 40}, gains[3] = {1.7f, 1, 1.3f};
    const struct { const char *out, *format; guint mode, transfer; bool padded; } cases[] = {
        {"BGRx", "bggr12packed", VQP_BALANCE_WHITE_AUTO_CONTINUOUS, VQP_TRANSFER_SRGB, false},
        {"RGB", "grbg10le", VQP_BALANCE_WHITE_AUTO_ONCE, VQP_TRANSFER_GAMMA, true},
        {"RGBA64_LE", "rggb16le", VQP_BALANCE_WHITE_AUTO_CONTINUOUS, VQP_TRANSFER_SRGB, true},
        {"GRAY8", "gbrg", VQP_BALANCE_WHITE_AUTO_OFF, VQP_TRANSFER_LINEAR, false}};
    std::mt19937 rng(29);
    for (const auto &c : cases) {
        Pipeline pipe(c.out);
        g_object_set(pipe.child("d"), "black-level", 40.0f, "balance-ratio-red", 1.7f, "balance-ratio-blue", 1.3f,
                     "color-transformation", "1.6,-0.4,-0.2,-0.3,1.5,-0.2,0.1,-0.5,1.4", "transfer", c.transfer,
                     "gamma", 2.4f, "balance-white-auto", c.mode, NULL);
        ProcessingHandle *handle = nullptr;
        ASSERT_EQ(vqpCreate(&handle), VQP_OK);
        vqpSetBlackLevel(handle, black), vqpSetBalanceRatio(handle, gains), vqpSetBalanceWhiteAuto(handle, c.mode);
        vqpSetColorTransformation(handle, matrix), vqpSetTransfer(handle, c.transfer, 2.4f);
        for (int frame = 0; frame < 3; frame++) {
            SCOPED_TRACE(::testing::Message() << c.format << " to " << c.out << " frame " << frame);
            Frame fr = randomFrame(*vqg_find_sink_format(c.format), 40 + frame, 33, c.padded, rng);
            pipe.push(fr, VQP_METHOD_EDGE, 2);
            ASSERT_TRUE(pipe.pull() == reference(fr, srcFormat(c.out), VQP_METHOD_EDGE, handle)) << pipe.error(0);
            float found[3], read[3];
            guint mode = 9, libraryMode = 8;
            vqpGetBalanceRatio(handle, found), vqpGetBalanceWhiteAuto(handle, &libraryMode);
            g_object_get(pipe.child("d"), "balance-ratio-red", &read[0], "balance-ratio-green", &read[1],
                         "balance-ratio-blue", &read[2], "balance-white-auto", &mode, NULL);
            EXPECT_EQ(std::vector<float>(read, read + 3), std::vector<float>(found, found + 3));
            EXPECT_EQ(mode, c.mode == VQP_BALANCE_WHITE_AUTO_ONCE ? VQP_BALANCE_WHITE_AUTO_OFF : libraryMode);
        }
        vqpRelease(&handle);
        EXPECT_EQ(pipe.error(0), "");
    }
    // Refused: black 20 is developed, black 20 over white 10 keeps black 20 with a warning, defaults are plain.
    const struct { float black, white; bool refused; float inUse; } steps[] = {
        {20, 0, false, 20}, {20, 10, true, 20}, {0, 0, false, 0}};
    Pipeline pipe("BGR");
    for (const auto &s : steps) {
        SCOPED_TRACE(::testing::Message() << "black " << s.black << " white " << s.white);
        g_object_set(pipe.child("d"), "black-level", s.black, "white-level", s.white, NULL);
        Frame fr = randomFrame(*vqg_find_sink_format("rggb"), 24, 16, false, rng);
        ProcessingHandle *handle = nullptr;
        const float inUse[4] = {s.inUse, s.inUse, s.inUse, s.inUse};
        ASSERT_EQ(vqpCreate(&handle), VQP_OK);
        vqpSetBlackLevel(handle, inUse);
        const std::vector<uint8_t> want = reference(fr, srcFormat("BGR"), VQP_METHOD_BILINEAR, s.inUse ? handle : nullptr);
        vqpRelease(&handle);
        pipe.push(fr);
        EXPECT_TRUE(pipe.pull() == want);
        EXPECT_EQ(pipe.error(0, GST_MESSAGE_WARNING).find("VQP_ERR_BAD_PARAMETER") == 0, s.refused);
        float black = -1, white = -1;
        g_object_get(pipe.child("d"), "black-level", &black, "white-level", &white, NULL);
        EXPECT_EQ(black, s.inUse);
        EXPECT_EQ(white, 0);
    }
    EXPECT_EQ(pipe.error(0), "");
}

// What a broken upstream can send: the frame is refused, without a crash, by an error that names what
// was wrong. Frames of known formats have natural rows, or a GstVideoMeta with `stride` and `offset`
// (their bytes then counted with the stride), `cut` bytes short.
TEST(BadInput, RefusedFramesSayWhy) {
    const struct { const char *out, *format; int w, h, stride; size_t offset, cut; const char *says[3]; } cases[] = {
        // Buffers a byte short, counted by hand: 15x9 samples, a packed run's trailing half pair in two bytes.
        {"BGRx", "rggb", 15, 9, 0, 0, 1, {"134 bytes", "135 bytes", "15x9 rggb"}},
        {"BGRx", "gbrg12le", 15, 9, 0, 0, 1, {"269 bytes", "270 bytes"}},
        {"BGRx", "bggr12packed", 15, 9, 0, 0, 1, {"202 bytes", "203 bytes"}},
        {"BGRx", "grbg14le", 15, 9, 0, 0, 1, {"269 bytes", "270 bytes"}},
        // The meta's offset pushes the last padded row past the end, or would wrap a sum with the size.
        {"RGB", "rggb16le", 8, 8, 20, 2, 0, {"156 bytes", "158 bytes"}},
        {"RGB", "rggb16le", 8, 8, 16, SIZE_MAX - 8, 0, {"128 bytes", "8x8 rggb16le"}},
        // Strides below a row, and odd or negative ones between 16-bit samples.
        {"RGB", "rggb", 16, 8, 15, 0, 0, {"stride of 15 bytes", "holds 16 bytes"}},
        {"RGB", "rggb12le", 16, 8, 30, 0, 0, {"stride of 30 bytes", "holds 32 bytes"}},
        {"RGB", "rggb10packed", 16, 8, 22, 0, 0, {"stride of 22 bytes", "holds 24 bytes"}},
        {"RGB", "rggb12le", 16, 8, 33, 0, 0, {"rggb12le frame with a row stride of 33"}},
        {"RGB", "gbrg16le", 16, 8, -32, 0, 0, {"gbrg16le frame with a row stride of -32"}},
        // Formats and sizes the element cannot convert.
        {"BGR", "rggb12p", 8, 8, 0, 0, 0, {"'rggb12p'"}},   {"BGR", "rggb10be", 8, 8, 0, 0, 0, {"'rggb10be'"}},
        {"BGR", "xyzw", 8, 8, 0, 0, 0, {"'xyzw'"}},         {"RGBA64_LE", "gbrg", 8, 8, 0, 0, 0, {"not-negotiated"}},
        {"BGR", "rggb16le", 3, 8, 0, 0, 0, {"3x8"}},        {"BGR", "rggb16le", 8, 3, 0, 0, 0, {"8x3"}},
        {"BGR", "rggb16le", 1, 1, 0, 0, 0, {"1x1"}},
    };
    for (const auto &c : cases) {
        const VqgSinkFormat *f = vqg_find_sink_format(c.format);
        Frame fr{c.format, c.w, c.h, {}, c.offset, c.stride};
        const uint64_t stride = f ? std::max<int64_t>(c.stride, vqg_natural_stride(f, c.w)) : 0;
        fr.bytes.resize(f ? vqg_frame_bytes(f, c.w, c.h, stride) - c.cut : 256);
        Pipeline pipe(c.out);
        pipe.push(fr);
        const std::string err = pipe.error();
        for (const char *s : c.says)
            EXPECT_TRUE(!s || err.find(s) != std::string::npos) << c.format << " " << c.w << "x" << c.h << ": '" << s
                                                                << "' in: " << err;
    }
}

} // namespace

// GLib and GStreamer keep blocks to the end of the process: no leak check by default in a sanitizer
// build, also when the build lists the tests (ASAN_OPTIONS overrides it; without the sanitizer, unread).
extern "C" const char *__asan_default_options() { return "detect_leaks=0"; }

int main(int argc, char **argv) {
    g_setenv("GST_PLUGIN_PATH", VELQORA_GST_PLUGIN_DIR, TRUE);
    g_setenv("GST_REGISTRY", VELQORA_GST_REGISTRY, TRUE);
    g_setenv("GST_REGISTRY_FORK", "no", TRUE);
    gst_init(&argc, &argv);
    ::testing::InitGoogleTest(&argc, argv);
    int result = RUN_ALL_TESTS();
    gst_deinit();
    return result;
}
