// The Python extension velqora._velqora: a handle object whose calls take numpy arrays that the Python
// layer (velqora/__init__.py) has already checked, and run the library with the GIL released. One lock a
// handle keeps two Python threads from using the same handle at once.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "png_encode.h"
#include "velqora.h"

namespace py = pybind11;

namespace {

class Handle {
public:
    Handle() {
        const int32_t status = vqpCreate(&handle_);
        if (status != VQP_OK) throw std::runtime_error(std::string("cannot create a handle: ") + vqpStatusName(status));
    }
    ~Handle() { close(); }
    Handle(const Handle &) = delete;
    Handle &operator=(const Handle &) = delete;

    void close() {
        std::lock_guard<std::mutex> lock(mutex_);
        if (handle_ != nullptr) vqpRelease(&handle_);
    }

    // `raw`: the input bytes (any dtype; the caller passes the buffer the library may read from, its
    // first byte at the first sample); `out`: a C-contiguous uint8 array of the output's size.
    int32_t demosaic(py::array raw, int32_t height, int32_t width, int32_t stride, uint32_t code, uint32_t method,
                     uint64_t config, py::array out, uint32_t threads) {
        void *in = const_cast<void *>(raw.data());
        void *dst = out.mutable_data();
        py::gil_scoped_release release;
        std::lock_guard<std::mutex> lock(mutex_);
        if (handle_ == nullptr) return VQP_ERR_NULL_ARGUMENT;
        int32_t status = vqpDemosaicSetConfig(handle_, &config);
        if (status != VQP_OK) return status;
        ImageFrame fi{height, width, code, in, stride}, fo{0, 0, 0, dst, 0};
        return threads == 1 ? vqpDemosaicing(handle_, &fi, method, &fo)
                            : vqpDemosaicingParallel(handle_, &fi, method, &fo, threads);
    }

    // Full depth: `raw` as for demosaic; `config` the 16-bit output configuration; `out` a C-contiguous
    // uint16 array of the output's size.
    int32_t demosaic16(py::array raw, int32_t height, int32_t width, int32_t stride, uint32_t code, uint32_t method,
                       uint64_t config, py::array out, uint32_t threads) {
        void *in = const_cast<void *>(raw.data());
        void *dst = out.mutable_data();
        py::gil_scoped_release release;
        std::lock_guard<std::mutex> lock(mutex_);
        if (handle_ == nullptr) return VQP_ERR_NULL_ARGUMENT;
        int32_t status = vqpDemosaicSetConfig16(handle_, &config);
        if (status != VQP_OK) return status;
        ImageFrame fi{height, width, code, in, stride}, fo{0, 0, 0, dst, 0};
        return vqpDemosaicing16(handle_, &fi, method, &fo, threads);
    }

    // Development: `config` the 8-bit (wide false) or 16-bit output configuration; `out` a C-contiguous array
    // of the output's size (uint8 or uint16).
    int32_t develop(py::array raw, int32_t height, int32_t width, int32_t stride, uint32_t code, uint32_t method,
                    uint64_t config, bool wide, py::array out, uint32_t threads) {
        void *in = const_cast<void *>(raw.data());
        void *dst = out.mutable_data();
        py::gil_scoped_release release;
        std::lock_guard<std::mutex> lock(mutex_);
        if (handle_ == nullptr) return VQP_ERR_NULL_ARGUMENT;
        int32_t status = wide ? vqpDemosaicSetConfig16(handle_, &config) : vqpDemosaicSetConfig(handle_, &config);
        if (status != VQP_OK) return status;
        ImageFrame fi{height, width, code, in, stride}, fo{0, 0, 0, dst, 0};
        return wide ? vqpDevelop16(handle_, &fi, method, &fo, threads) : vqpDevelop(handle_, &fi, method, &fo, threads);
    }

    // One setting: the name of the setter's argument that the library refused comes back with the status.
    // values: black (4), white (1), gains (3), matrix (9, or none for the identity), transfer (curve, gamma),
    // balance_auto (mode).
    int32_t set(const std::string &what, const std::vector<float> &values) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (handle_ == nullptr) return VQP_ERR_NULL_ARGUMENT;
        if (what == "black") return vqpSetBlackLevel(handle_, values.data());
        if (what == "white") return vqpSetWhiteLevel(handle_, values[0]);
        if (what == "gains") return vqpSetBalanceRatio(handle_, values.data());
        if (what == "matrix") return vqpSetColorTransformation(handle_, values.empty() ? nullptr : values.data());
        if (what == "transfer") return vqpSetTransfer(handle_, static_cast<uint32_t>(values[0]), values[1]);
        return vqpSetBalanceWhiteAuto(handle_, static_cast<uint32_t>(values[0]));
    }

    std::vector<float> gains() {
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<float> g(3, 0.0f);
        if (handle_ != nullptr) vqpGetBalanceRatio(handle_, g.data());
        return g;
    }

    uint32_t balanceAuto() {
        std::lock_guard<std::mutex> lock(mutex_);
        uint32_t mode = 0;
        if (handle_ != nullptr) vqpGetBalanceWhiteAuto(handle_, &mode);
        return mode;
    }

private:
    ProcessingHandle *handle_ = nullptr;
    std::mutex mutex_;
};

// A PNG of `pixels` (H, W) grey or (H, W, 3) R, G, B, uint8 or uint16, C-contiguous, as velqora-convert
// encodes it (the same encoder): the file's bytes.
py::bytes encodePng(py::array pixels, int sigBits) {
    const int bits = int(pixels.itemsize()) * 8;
    const int channels = pixels.ndim() == 3 ? int(pixels.shape(2)) : 1;
    const int32_t height = int32_t(pixels.shape(0)), width = int32_t(pixels.shape(1));
    char *data = nullptr;
    size_t size = 0;
    std::string error;
    bool ok = false;
    {
        py::gil_scoped_release release;
        std::FILE *stream = open_memstream(&data, &size);
        if (stream == nullptr) {
            error = "out of memory";
        } else {
            ok = vqtool::encodePng(stream, width, height, channels, bits, pixels.data(), sigBits, error);
            ok = std::fclose(stream) == 0 && ok;
        }
    }
    if (!ok) {
        std::free(data);
        throw std::runtime_error("cannot encode a PNG: " + error);
    }
    py::bytes result(data, size);
    std::free(data);
    return result;
}

} // namespace

PYBIND11_MODULE(_velqora, m) {
    m.doc() = "Low-level binding of the Velqora library; use the velqora package instead.";
    py::class_<Handle>(m, "Handle")
        .def(py::init<>())
        .def("close", &Handle::close)
        .def("demosaic", &Handle::demosaic)
        .def("demosaic16", &Handle::demosaic16)
        .def("develop", &Handle::develop)
        .def("set", &Handle::set)
        .def("gains", &Handle::gains)
        .def("balance_auto", &Handle::balanceAuto);
    m.def("status_name", [](int32_t s) { return std::string(vqpStatusName(s)); });
    m.def("status_message", [](int32_t s) { return std::string(vqpStatusMessage(s)); });
    m.def("output_size", &vqpOutputSize);
    m.def("version", [] { return std::string(vqpVersionString()); });
    m.def("encode_png", &encodePng);
    m.def("vector_level", [] { return std::string(vqpVectorLevel()); });
}
