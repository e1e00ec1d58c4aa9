"""The Python module against the C library's own output (called through ctypes), on random frames of every
input family, method and output layout; strided, sliced and packed inputs; out=; refusals; threads."""

import ctypes
import os
import threading

import numpy as np
import pytest

import velqora

HERE = os.path.dirname(os.path.abspath(__file__))
LIB = os.environ.get("VELQORA_LIB", os.path.join(HERE, "..", "..", "build", "release", "libvelqora.so"))


class ImageFrame(ctypes.Structure):
    _fields_ = [("height", ctypes.c_int32), ("width", ctypes.c_int32), ("pixelFormat", ctypes.c_uint32),
                ("data", ctypes.c_void_p), ("stride", ctypes.c_int32)]


@pytest.fixture(scope="module")
def lib():
    c = ctypes.CDLL(LIB)
    frame = ctypes.POINTER(ImageFrame)
    c.vqpDemosaicing.argtypes = [ctypes.c_void_p, frame, ctypes.c_uint32, frame]
    c.vqpDemosaicing16.argtypes = [ctypes.c_void_p, frame, ctypes.c_uint32, frame, ctypes.c_uint32]
    c.vqpOutputSize.restype = ctypes.c_uint64
    c.vqpOutputSize.argtypes = [ctypes.c_int32, ctypes.c_int32, ctypes.c_uint64]
    return c


def c_demosaic(lib, raw_bytes, h, w, stride, code, method, config, deep=False):
    """vqpDemosaicing (or, deep, vqpDemosaicing16 on one thread) on a private copy of the input bytes."""
    handle = ctypes.c_void_p()
    assert lib.vqpCreate(ctypes.byref(handle)) == 0
    cfg = ctypes.c_uint64(config)
    assert (lib.vqpDemosaicSetConfig16 if deep else lib.vqpDemosaicSetConfig)(handle, ctypes.byref(cfg)) == 0
    src = np.frombuffer(bytes(raw_bytes), np.uint8).copy()
    out = np.zeros(3 * h * w, np.uint16) if deep else np.zeros(lib.vqpOutputSize(h, w, config), np.uint8)
    fi, fo = ImageFrame(h, w, code, src.ctypes.data, stride), ImageFrame(0, 0, 0, out.ctypes.data, 0)
    args = (handle, ctypes.byref(fi), method, ctypes.byref(fo))
    status = lib.vqpDemosaicing16(*args, 1) if deep else lib.vqpDemosaicing(*args)
    lib.vqpRelease(ctypes.byref(handle))
    return status, out


def random_input(rng, fmt, h, w):
    """(array or bytes for the module, raw bytes and stride for the C call)."""
    code = velqora.INPUT_FORMATS[fmt]
    if fmt.endswith("Packed"):
        stride = w + (w >> 1)
        data = rng.integers(0, 256, 3 * (h * w >> 1) + 2 * (h * w & 1), dtype=np.uint8)
        return data, data.tobytes(), stride, code
    if fmt.endswith("8"):
        a = rng.integers(0, 256, (h, w), dtype=np.uint8)
        return a, a.tobytes(), w, code
    a = rng.integers(0, 65536, (h, w), dtype=np.uint16)
    return a, a.tobytes(), 2 * w, code


FAMILIES = ["Mono8", "Mono12", "Mono10Packed", "BayerRG8", "BayerGB10", "BayerGR12Packed", "BayerBG16", "BayerGR8"]


@pytest.mark.parametrize("fmt", FAMILIES)
def test_every_method_and_layout_equals_the_c_library(lib, fmt):
    rng = np.random.default_rng(abs(hash(fmt)) % 1000)
    for h, w in [(9, 13), (8, 6)]:
        data, raw_bytes, stride, code = random_input(rng, fmt, h, w)
        kw = {"width": w, "height": h} if fmt.endswith("Packed") else {}
        for method in velqora.METHODS:
            for output, config in velqora.OUTPUT_FORMATS.items():
                got = velqora.demosaic(data, fmt, method, output, **kw)
                status, want = c_demosaic(lib, raw_bytes, h, w, stride, code, velqora.METHODS[method], config)
                assert status == 0 and got.dtype == np.uint8
                assert got.shape == ((3, h, w) if "Planar" in output else (h, w) if output == "Mono8"
                                     else (h, w, 4 if "A8" in output else 3))
                assert got.tobytes() == want.tobytes(), (fmt, h, w, method, output)


def test_strided_and_sliced_inputs_equal_contiguous_ones_and_stay_unmodified():
    rng = np.random.default_rng(5)
    big8 = rng.integers(0, 256, (20, 40), dtype=np.uint8)
    big16 = rng.integers(0, 4096, (20, 40), dtype=np.uint16)
    for big, fmt in [(big8, "BayerRG8"), (big16, "BayerRG12")]:
        for view in [big[2:17, 3:30], big[::2, :], big[:, ::2], big[::-1, :]]:
            before = big.copy()
            got = velqora.demosaic(view, fmt, "edge", "RGBA8")
            assert np.array_equal(big, before), "the caller's array was modified"
            assert np.array_equal(got, velqora.demosaic(np.ascontiguousarray(view), fmt, "edge", "RGBA8"))
    # Packed rows with padding, given by stride=.
    w, h, stride = 11, 7, 20
    packed = rng.integers(0, 256, stride * h, dtype=np.uint8)
    tight = np.concatenate([packed[y * stride:y * stride + 18] for y in range(h)])
    a = velqora.demosaic(packed, "BayerRG12Packed", "bilinear", width=w, height=h, stride=stride)
    b = velqora.demosaic(tight, "BayerRG12Packed", "bilinear", width=w, height=h, stride=18)
    assert np.array_equal(a, b)


def test_out_is_written_and_checked():
    raw = np.random.default_rng(1).integers(0, 256, (8, 12), dtype=np.uint8)
    out = np.empty((8, 12, 3), np.uint8)
    assert velqora.demosaic(raw, "BayerGB8", out=out) is out
    assert np.array_equal(out, velqora.demosaic(raw, "BayerGB8"))
    for bad in [np.empty((8, 12, 4), np.uint8), np.empty((8, 12, 3), np.uint16),
                np.empty((8, 24, 3), np.uint8)[:, ::2], [0] * 288]:
        with pytest.raises(velqora.Error):
            velqora.demosaic(raw, "BayerGB8", out=bad)


def test_refusals_carry_the_status_and_say_what_to_change():
    with pytest.raises(velqora.Error) as e:
        velqora.demosaic(np.zeros((3, 8), np.uint8), "BayerRG8")
    assert e.value.status == -104 and e.value.name == "VQP_ERR_BAD_DIMENSIONS" and "4 rows" in str(e.value)
    assert isinstance(e.value, ValueError)
    for args, kw in [((np.zeros((8, 8), np.uint8), "BayerXY8"), {}),
                     ((np.zeros((8, 8), np.uint8), "BayerRG12"), {}),
                     ((np.zeros((8, 8), np.uint16), "BayerRG8"), {}),
                     ((np.zeros(96, np.uint8), "BayerRG12Packed"), {}),
                     ((np.zeros(20, np.uint8), "BayerRG12Packed"), {"width": 8, "height": 8}),
                     ((np.zeros((8, 8), np.uint8), "BayerRG8", "cubic"), {}),
                     ((np.zeros((8, 8), np.uint8), "BayerRG8", "edge", "YUV"), {})]:
        with pytest.raises(velqora.Error) as e:
            velqora.demosaic(*args, **kw)
        assert e.value.status is None


def test_demosaic16_equals_the_library_for_every_format_method_and_output(lib):
    """By PFNC name, and for unpacked formats by pattern and bits= too; stray bits above the depth, padded
    rows and packed input with width=/height=/stride=."""
    rng = np.random.default_rng(21)
    patterns = {"GR": "GRBG", "RG": "RGGB", "GB": "GBRG", "BG": "BGGR"}
    for name, code in velqora.INPUT_FORMATS16.items():
        h, w = int(rng.integers(4, 12)), int(rng.integers(4, 12))
        bits = int(name.replace("Packed", "")[7:])
        if name.endswith("Packed"):
            stride = w + (w >> 1) + int(rng.integers(0, 2)) * 3  # one run, or padded rows
            raw = rng.integers(0, 256, stride * h + w, dtype=np.uint8)
            kw, raw_bytes = {"width": w, "height": h, "stride": stride}, raw.tobytes()
        else:
            big = rng.integers(0, 65536, (h, w + 3), dtype=np.uint16)
            raw, kw, stride, raw_bytes = big[:, 1:w + 1], {}, 2 * (w + 3), big.tobytes()[2:]
        for method, m in velqora.METHODS.items():
            for output, config in velqora.OUTPUT_FORMATS16.items():
                for full in (False, True):
                    got = velqora.demosaic16(raw, name, method, output=output, full_range=full, **kw)
                    status, want = c_demosaic(lib, raw_bytes, h, w, stride, code, m, config | (full << 32), True)
                    assert status == 0 and (full or got.max() < 1 << bits)
                    assert got.shape == ((3, h, w) if "Planar" in output else (h, w, 3))
                    assert np.array_equal(got.reshape(-1), want), (name, method, output, full)
                    if not kw:
                        layout = {"planar": True} if output == "BGR16_Planar" else {"output": output}
                        alt = velqora.demosaic16(raw, patterns[name[5:7]], method, bits=bits, full_range=full, **layout)
                        assert np.array_equal(alt, got), (name, method, output, full)


def test_demosaic16_keeps_the_full_range_of_a_16_bit_ramp_and_refuses_bad_arguments():
    y, x = np.mgrid[0:64, 0:64]
    ramp = ((x + y) * 505).astype(np.uint16)  # up to 63630
    for method in velqora.METHODS:
        out = velqora.demosaic16(ramp, "RGGB", method)
        assert np.count_nonzero(out == 4095) == 0 and out.max() > 60000
    raw = ramp[:10, :14]
    for args, kw in [((raw, "RGBG"), {}), ((raw, "RGGB"), {"bits": 11}), ((raw, "BayerRG12"), {"bits": 16}),
                     ((raw, "BayerRG8"), {}), ((raw, "Mono12"), {}), ((raw, "RGGB", "cubic"), {}),
                     ((raw, "RGGB"), {"output": "BGR8"}), ((raw, "RGGB", "edge", True), {"output": "RGB16"}),
                     ((raw.astype(np.uint8), "RGGB"), {}), ((np.zeros(30, np.uint8), "BayerRG12Packed"), {})]:
        with pytest.raises(velqora.Error):
            velqora.demosaic16(*args, **kw)


def test_threads_and_demosaicers_in_parallel_give_the_same_result():
    rng = np.random.default_rng(11)
    raw = rng.integers(0, 4096, (400, 300), dtype=np.uint16)
    want = velqora.demosaic(raw, "BayerGR12", "edge", "BGRA8")
    assert np.array_equal(velqora.demosaic(raw, "BayerGR12", "edge", "BGRA8", threads=0), want)
    results = [None] * 4

    def work(i):
        with velqora.Demosaicer(threads=1 + i % 2) as d:
            results[i] = [d.demosaic(raw, "BayerGR12", "edge", "BGRA8") for _ in range(3)]

    threads = [threading.Thread(target=work, args=(i,)) for i in range(4)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert all(np.array_equal(r, want) for rs in results for r in rs)
    d = velqora.Demosaicer()
    d.close()
    with pytest.raises(velqora.Error):
        d.demosaic(raw, "BayerGR12")


def test_version_and_vector_level_match_the_library(lib):
    lib.vqpVersionString.restype = ctypes.c_char_p
    lib.vqpVectorLevel.restype = ctypes.c_char_p
    assert velqora.__version__ == lib.vqpVersionString().decode()
    # The module and the shared library detect the machine on their own; they must agree.
    assert velqora.vector_level() == lib.vqpVectorLevel().decode()
    assert velqora.vector_level() in ("scalar", "avx2", "avx512", "neon")
