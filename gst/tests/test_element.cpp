// velqorademosaic in appsrc ! velqorademosaic ! appsink pipelines: every output frame equals the
// library's own single-threaded conversion of the same input bytes, for every sink and src format,
// method and thread count, on random frames of odd and even sizes from 4x4 up, with natural rows and
// with padded rows described by a GstVideoMeta. Then what a broken upstream can send: truncated
// buffers, unknown formats, frames below 4x4, strides below a row, caps changes mid-stream.
#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gst/gst.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "formats.h"

namespace {

struct Frame {
    int width, height;
    std::vector<uint8_t> bytes; // the buffer as pushed
    size_t offset = 0; // of the frame in the buffer, in the GstVideoMeta
    int stride = 0;    // 0: no GstVideoMeta, natural rows
};

// Bytes of a frame with natural rows, counted here apart from the element: a packed frame is one run
// of samples whose trailing half pair has two bytes.
size_t naturalBytes(const VqgSinkFormat &f, int w, int h) {
    const size_t n = (size_t)w * h;
    switch (f.layout) {
    case VQG_SAMPLES_8: return n;
    case VQG_SAMPLES_PACKED: return (3 * n + 1) / 2;
    default: return 2 * n;
    }
}

Frame randomFrame(const VqgSinkFormat &f, int w, int h, bool padded, std::mt19937 &rng) {
    Frame fr{w, h, {}};
    size_t size = naturalBytes(f, w, h);
    if (padded) {
        const int row = f.layout == VQG_SAMPLES_8 ? w : f.layout == VQG_SAMPLES_PACKED ? (3 * w + 1) / 2 : 2 * w;
        fr.stride = row + 2 * (int)(rng() % 9) + (f.layout == VQG_SAMPLES_16 || f.layout == VQG_SAMPLES_16_SELF ? 0 : 1);
        fr.offset = rng() % 5;
        size = fr.offset + (size_t)(h - 1) * fr.stride + row;
    }
    fr.bytes.resize(size);
    for (auto &b : fr.bytes)
        b = (uint8_t)rng();
    return fr;
}

// The library's conversion of the frame: the same bytes through vqpDemosaicing on one thread, into
// packed rows. 14-bit samples keep their 8 most significant bits (wrapped, as the library wraps
// every depth) and go in as 8-bit samples of the same phase.
std::vector<uint8_t> reference(const VqgSinkFormat &f, const VqgSrcFormat &o, Frame fr, uint32_t method) {
    const int w = fr.width, h = fr.height;
    const int stride = fr.stride ? fr.stride : f.layout == VQG_SAMPLES_PACKED ? w + w / 2
                                            : f.layout == VQG_SAMPLES_8       ? w
                                                                              : 2 * w;
    ProcessingHandle *handle = nullptr;
    EXPECT_EQ(vqpCreate(&handle), VQP_OK);
    uint64_t config = o.code;
    if (o.fullDepth) {
        // vqpDemosaicing16's R, G, B samples, each pixel followed by an opaque alpha, little-endian.
        ImageFrame in{h, w, f.code16, fr.bytes.data() + fr.offset, stride};
        EXPECT_EQ(vqpDemosaicSetConfig16(handle, &config), VQP_OK);
        std::vector<uint16_t> rgb((size_t)w * h * 3);
        ImageFrame outFrame{0, 0, 0, rgb.data(), 0};
        EXPECT_EQ(vqpDemosaicing16(handle, &in, method, &outFrame, 1), VQP_OK);
        vqpRelease(&handle);
        std::vector<uint8_t> out;
        for (size_t i = 0; i < rgb.size(); i += 3)
            for (uint16_t v : {rgb[i], rgb[i + 1], rgb[i + 2], (uint16_t)0xFFFF}) {
                out.push_back((uint8_t)v);
                out.push_back((uint8_t)(v >> 8));
            }
        return out;
    }
    std::vector<uint8_t> reduced;
    ImageFrame in{h, w, f.code, fr.bytes.data() + fr.offset, stride};
    if (f.layout == VQG_SAMPLES_16_SELF) {
        reduced.resize((size_t)w * h);
        for (int y = 0; y < h; y++)
            for (int x = 0; x < w; x++) {
                const uint8_t *p = fr.bytes.data() + fr.offset + (size_t)y * stride + 2 * x;
                reduced[(size_t)y * w + x] = (uint8_t)((p[0] | p[1] << 8) >> (f.depth - 8));
            }
        in = ImageFrame{h, w, f.phase8, reduced.data(), w};
    }
    EXPECT_EQ(vqpDemosaicSetConfig(handle, &config), VQP_OK);
    std::vector<uint8_t> out(vqpOutputSize(h, w, o.code), 0);
    ImageFrame outFrame{0, 0, 0, out.data(), 0};
    EXPECT_EQ(vqpDemosaicing(handle, &in, method, &outFrame), VQP_OK);
    vqpRelease(&handle);
    return out;
}

class Pipeline {
  public:
    explicit Pipeline(const char *outCaps) {
        std::string desc = std::string("appsrc name=src format=time ! velqorademosaic name=d ! ") + outCaps +
                           " ! appsink name=sink sync=false";
        GError *error = nullptr;
        pipe_ = gst_parse_launch(desc.c_str(), &error);
        EXPECT_EQ(error, nullptr) << (error ? error->message : "");
        src_ = gst_bin_get_by_name(GST_BIN(pipe_), "src");
        demosaic_ = gst_bin_get_by_name(GST_BIN(pipe_), "d");
        sink_ = gst_bin_get_by_name(GST_BIN(pipe_), "sink");
        bus_ = gst_element_get_bus(pipe_);
        EXPECT_NE(gst_element_set_state(pipe_, GST_STATE_PLAYING), GST_STATE_CHANGE_FAILURE);
    }
    ~Pipeline() {
        gst_element_set_state(pipe_, GST_STATE_NULL);
        gst_object_unref(bus_);
        gst_object_unref(sink_);
        gst_object_unref(demosaic_);
        gst_object_unref(src_);
        gst_object_unref(pipe_);
    }
    void set(uint32_t method, uint32_t threads) { g_object_set(demosaic_, "method", method, "threads", threads, NULL); }

    void push(const char *format, const Frame &fr) {
        if (format != format_ || fr.width != width_ || fr.height != height_) {
            GstCaps *caps = gst_caps_new_simple("video/x-bayer", "format", G_TYPE_STRING, format, "width", G_TYPE_INT,
                                                fr.width, "height", G_TYPE_INT, fr.height, "framerate",
                                                GST_TYPE_FRACTION, 30, 1, NULL);
            gst_app_src_set_caps(GST_APP_SRC(src_), caps);
            gst_caps_unref(caps);
            format_ = format;
            width_ = fr.width;
            height_ = fr.height;
        }
        GstBuffer *buf = gst_buffer_new_memdup(fr.bytes.data(), fr.bytes.size());
        if (fr.stride) {
            gsize offset[GST_VIDEO_MAX_PLANES] = {(gsize)fr.offset};
            gint stride[GST_VIDEO_MAX_PLANES] = {fr.stride};
            gst_buffer_add_video_meta_full(buf, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_FORMAT_ENCODED, fr.width,
                                           fr.height, 1, offset, stride);
        }
        GST_BUFFER_PTS(buf) = pts_;
        pts_ += GST_SECOND / 30;
        ASSERT_EQ(gst_app_src_push_buffer(GST_APP_SRC(src_), buf), GST_FLOW_OK);
    }

    // The next output frame as packed rows and planes, or an empty vector when none came.
    std::vector<uint8_t> pull() {
        GstSample *sample = gst_app_sink_try_pull_sample(GST_APP_SINK(sink_), 10 * GST_SECOND);
        if (!sample)
            return {};
        GstVideoInfo info;
        EXPECT_TRUE(gst_video_info_from_caps(&info, gst_sample_get_caps(sample)));
        GstVideoFrame frame;
        EXPECT_TRUE(gst_video_frame_map(&frame, &info, gst_sample_get_buffer(sample), GST_MAP_READ));
        std::vector<uint8_t> packed;
        for (guint p = 0; p < GST_VIDEO_FRAME_N_PLANES(&frame); p++) {
            const size_t row = (size_t)GST_VIDEO_FRAME_COMP_PSTRIDE(&frame, p) * GST_VIDEO_FRAME_WIDTH(&frame);
            for (int y = 0; y < GST_VIDEO_FRAME_HEIGHT(&frame); y++) {
                const uint8_t *r = (const uint8_t *)GST_VIDEO_FRAME_PLANE_DATA(&frame, p) +
                                   (size_t)y * GST_VIDEO_FRAME_PLANE_STRIDE(&frame, p);
                packed.insert(packed.end(), r, r + row);
            }
        }
        gst_video_frame_unmap(&frame);
        gst_sample_unref(sample);
        return packed;
    }

    // The text of the next error message, empty when none is posted within a few seconds.
    std::string error() {
        GstMessage *msg = gst_bus_timed_pop_filtered(bus_, 5 * GST_SECOND, GST_MESSAGE_ERROR);
        if (!msg)
            return {};
        GError *err = nullptr;
        gchar *debug = nullptr;
        gst_message_parse_error(msg, &err, &debug);
        std::string text = std::string(err->message) + " | " + (debug ? debug : "");
        g_error_free(err);
        g_free(debug);
        gst_message_unref(msg);
        return text;
    }
    bool noError() {
        GstMessage *msg = gst_bus_pop_filtered(bus_, GST_MESSAGE_ERROR);
        if (msg)
            gst_message_unref(msg);
        return msg == nullptr;
    }

  private:
    GstElement *pipe_, *src_, *demosaic_, *sink_;
    GstBus *bus_;
    const char *format_ = nullptr;
    int width_ = 0, height_ = 0;
    GstClockTime pts_ = 0;
};

std::string outCaps(const VqgSrcFormat &o) {
    return std::string("video/x-raw,format=") + gst_video_format_to_string(o.format);
}

class EveryFormat : public ::testing::TestWithParam<size_t> {};

// One pipeline per sink and src format; the frame size, the rows' padding, the method and the thread
// count change from frame to frame, so caps change mid-stream too.
TEST_P(EveryFormat, EqualsTheLibrary) {
    const VqgSinkFormat &f = vqg_sink_formats[GetParam()];
    std::mt19937 rng(1234 + (unsigned)GetParam());
    const uint32_t threadCounts[] = {1, 2, 0};
    for (size_t oi = 0; oi < vqg_n_src_formats; oi++) {
        const VqgSrcFormat &o = vqg_src_formats[oi];
        if (o.fullDepth && !f.code16)
            continue;
        SCOPED_TRACE(std::string(f.name) + " to " + gst_video_format_to_string(o.format));
        Pipeline pipe(outCaps(o).c_str());
        std::vector<std::pair<int, int>> sizes = {{4, 4}, {5, 7}};
        for (int i = 0; i < 5; i++)
            sizes.push_back({4 + (int)(rng() % 37), 4 + (int)(rng() % 21)});
        if ((oi + GetParam()) % 2 == 0)
            sizes.push_back({201, 180}); // large enough for the frame to be split between threads
        int n = 0;
        for (auto [w, h] : sizes)
            for (bool padded : {false, true})
                for (uint32_t method : {VQP_METHOD_NEAREST, VQP_METHOD_BILINEAR, VQP_METHOD_EDGE}) {
                    const uint32_t threads = threadCounts[n++ % 3];
                    SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h) + (padded ? " padded" : "") +
                                 " method " + std::to_string(method) + " threads " + std::to_string(threads));
                    Frame fr = randomFrame(f, w, h, padded, rng);
                    pipe.set(method, threads);
                    pipe.push(f.name, fr);
                    std::vector<uint8_t> got = pipe.pull();
                    ASSERT_FALSE(got.empty()) << pipe.error();
                    ASSERT_TRUE(got == reference(f, o, fr, method));
                }
        EXPECT_TRUE(pipe.noError());
    }
}

INSTANTIATE_TEST_SUITE_P(Velqora, EveryFormat, ::testing::Range<size_t>(0, vqg_n_sink_formats),
                         [](const ::testing::TestParamInfo<size_t> &i) {
                             return std::string(vqg_sink_formats[i.param].name);
                         });

// A hand-computed case: a mosaic of one colour (red 200, green 100, blue 40 at every site of its kind)
// comes out as that colour at every pixel, borders included, in RGB order.
TEST(Element, ConstantCellsStayConstant) {
    Pipeline pipe("video/x-raw,format=RGB");
    pipe.set(VQP_METHOD_BILINEAR, 1);
    Frame fr{6, 4, {}};
    for (int y = 0; y < 4; y++)
        for (int x = 0; x < 6; x++)
            fr.bytes.push_back((y % 2 == 0 && x % 2 == 0) ? 200 : (y % 2 == 1 && x % 2 == 1) ? 40 : 100);
    pipe.push("rggb", fr);
    std::vector<uint8_t> got = pipe.pull();
    ASSERT_EQ(got.size(), 6u * 4 * 3);
    for (size_t i = 0; i < got.size(); i += 3)
        EXPECT_TRUE(got[i] == 200 && got[i + 1] == 100 && got[i + 2] == 40) << "pixel " << i / 3;
}

// By hand: a 12-bit mosaic of 0x800 everywhere gives 0x800 scaled to 16 bits (0x8008) in R, G and B,
// alpha 0xFFFF, for every method.
TEST(Element, FullDepthScalesToSixteenBits) {
    Pipeline pipe("video/x-raw,format=RGBA64_LE");
    for (uint32_t method : {VQP_METHOD_NEAREST, VQP_METHOD_BILINEAR, VQP_METHOD_EDGE}) {
        pipe.set(method, 0);
        Frame fr{7, 5, {}};
        for (int i = 0; i < 7 * 5; i++)
            fr.bytes.insert(fr.bytes.end(), {0x00, 0x08});
        pipe.push("bggr12le", fr);
        std::vector<uint8_t> got = pipe.pull();
        ASSERT_EQ(got.size(), 7u * 5 * 8);
        for (size_t i = 0; i < got.size(); i += 8)
            EXPECT_TRUE(got[i] == 0x08 && got[i + 1] == 0x80 && got[i + 2] == 0x08 && got[i + 3] == 0x80 &&
                        got[i + 4] == 0x08 && got[i + 5] == 0x80 && got[i + 6] == 0xFF && got[i + 7] == 0xFF)
                << "method " << method << " pixel " << i / 8;
    }
}

// ---- What a broken upstream can send ------------------------------------------------------------

TEST(BadInput, TruncatedBufferNamesBothSizes) {
    for (const char *format : {"rggb", "gbrg12le", "bggr12packed", "grbg14le"}) {
        SCOPED_TRACE(format);
        const VqgSinkFormat *f = vqg_find_sink_format(format);
        Pipeline pipe("video/x-raw,format=BGRx");
        std::mt19937 rng(7);
        Frame fr = randomFrame(*f, 15, 9, false, rng);
        const size_t full = fr.bytes.size();
        ASSERT_GT(full, 1u);
        fr.bytes.pop_back();
        pipe.push(format, fr);
        std::string err = pipe.error();
        EXPECT_NE(err.find(std::to_string(full - 1) + " bytes"), std::string::npos) << err;
        EXPECT_NE(err.find(std::to_string(full) + " bytes"), std::string::npos) << err;
    }
}

TEST(BadInput, PaddedRowsBeyondTheBuffer) {
    const VqgSinkFormat *f = vqg_find_sink_format("rggb16le");
    Pipeline pipe("video/x-raw,format=RGB");
    std::mt19937 rng(8);
    Frame fr = randomFrame(*f, 8, 8, true, rng);
    fr.offset += 2; // the meta's offset pushes the last row past the end
    pipe.push("rggb16le", fr);
    EXPECT_NE(pipe.error().find("bytes"), std::string::npos);

    Pipeline pipe2("video/x-raw,format=RGB");
    fr.offset = SIZE_MAX - 8; // an offset that a sum with the frame's size would wrap
    pipe2.push("rggb16le", fr);
    EXPECT_NE(pipe2.error().find("bytes"), std::string::npos);
}

TEST(BadInput, StrideBelowARow) {
    for (const char *format : {"rggb", "rggb12le", "rggb10packed"}) {
        SCOPED_TRACE(format);
        const VqgSinkFormat *f = vqg_find_sink_format(format);
        Pipeline pipe("video/x-raw,format=RGB");
        std::mt19937 rng(9);
        Frame fr = randomFrame(*f, 16, 8, true, rng);
        fr.stride = f->layout == VQG_SAMPLES_PACKED ? 22 : f->layout == VQG_SAMPLES_8 ? 15 : 30;
        pipe.push(format, fr);
        EXPECT_NE(pipe.error().find("stride"), std::string::npos);
    }
}

// Formats and sizes the element cannot convert: the error names what was refused.
TEST(BadInput, RefusedFramesSayWhy) {
    const struct {
        const char *out, *format;
        int w, h;
        std::string named;
    } cases[] = {{"BGR", "rggb12p", 8, 8, "'rggb12p'"},   {"BGR", "rggb10be", 8, 8, "'rggb10be'"},
                 {"BGR", "xyzw", 8, 8, "'xyzw'"},         {"RGBA64_LE", "gbrg", 8, 8, ""},
                 {"BGR", "rggb16le", 3, 8, "3x8"},        {"BGR", "rggb16le", 8, 3, "8x3"},
                 {"BGR", "rggb16le", 1, 1, "1x1"}};
    for (const auto &c : cases) {
        Pipeline pipe((std::string("video/x-raw,format=") + c.out).c_str());
        pipe.push(c.format, Frame{c.w, c.h, std::vector<uint8_t>((size_t)c.w * c.h * 2)});
        const std::string err = pipe.error();
        EXPECT_NE(err, "") << c.format;
        EXPECT_NE(err.find(c.named), std::string::npos) << err;
    }
}

// Format and size change mid-stream, good frames follow bad ones' caps: each good frame still equals
// the library's conversion.
TEST(BadInput, CapsChangeMidStream) {
    Pipeline pipe("video/x-raw,format=BGR");
    std::mt19937 rng(10);
    const char *formats[] = {"rggb", "bggr12packed", "gbrg10le", "grbg14le", "rggb"};
    int i = 0;
    for (const char *format : formats) {
        const VqgSinkFormat *f = vqg_find_sink_format(format);
        const VqgSrcFormat &o = *vqg_find_src_format(GST_VIDEO_FORMAT_BGR);
        Frame fr = randomFrame(*f, 6 + 3 * i, 10 - i, i % 2 == 1, rng);
        pipe.set(VQP_METHOD_EDGE, 2);
        pipe.push(format, fr);
        std::vector<uint8_t> got = pipe.pull();
        ASSERT_FALSE(got.empty()) << pipe.error();
        EXPECT_TRUE(got == reference(*f, o, fr, VQP_METHOD_EDGE)) << format;
        i++;
    }
}

} // namespace

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VQ_TEST_ASAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(VQ_TEST_ASAN)
// GLib and GStreamer keep blocks to the end of the process, which LeakSanitizer would report: no leak
// check by default here, also when the build lists the tests (ASAN_OPTIONS still overrides this).
extern "C" const char *__asan_default_options() { return "detect_leaks=0"; }
#endif

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
