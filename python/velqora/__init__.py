"""Demosaicing of raw machine-vision camera frames on numpy arrays.

    import velqora
    bgr = velqora.demosaic(raw, "BayerRG8")                 # (H, W, 3) uint8, B, G, R
    rgb = velqora.demosaic(raw, "BayerRG12", "bilinear", "RGB8")
    img16 = velqora.demosaic16(raw16, "BayerRG12")          # (H, W, 3) uint16, B, G, R, 0 .. 4095
    png16 = velqora.demosaic16(raw16, "RGGB", bits=12, output="RGB16", full_range=True)  # 0 .. 65535

Input formats are named by their PFNC names (``"BayerGB10"``, ``"Mono12Packed"``, ...) or given by code;
``velqora.INPUT_FORMATS`` lists them. Methods: ``"nearest"``, ``"bilinear"``, ``"edge"`` (edge-directed,
the default). Output formats: ``"BGR8"``, ``"RGB8"``, ``"BGRA8"``, ``"RGBA8"``, ``"RGB8_Planar"``,
``"BGR8_Planar"``, ``"Mono8"``. :func:`demosaic16` keeps the full depth of 10 to 16-bit Bayer frames
(``velqora.INPUT_FORMATS16``) and writes ``"BGR16"``, ``"RGB16"``, ``"RGB16_Planar"`` or ``"BGR16_Planar"``.

:func:`develop` turns a raw frame into a picture in the same pass (black level, white balance, colour
matrix, transfer curve), at full depth; a :class:`Developer` keeps continuous white balance across video
frames.

Every call runs with the GIL released; a :class:`Demosaicer` keeps its scratch memory between frames, and
several Demosaicers convert in parallel threads. Errors raise :class:`velqora.Error`.
"""

from __future__ import annotations

import threading

import numpy as np

from . import _velqora

__all__ = ["Error", "Demosaicer", "Developer", "demosaic", "demosaic16", "develop", "vector_level", "INPUT_FORMATS",
           "OUTPUT_FORMATS", "METHODS", "INPUT_FORMATS16", "OUTPUT_FORMATS16", "TRANSFERS", "__version__"]

__version__ = _velqora.version()


def vector_level() -> str:
    """The vector level conversions run at on this machine: ``"scalar"``, ``"avx2"``, ``"avx512"`` or
    ``"neon"``, the best the processor and the operating system allow. Every level gives the same bytes."""
    return _velqora.vector_level()


INPUT_FORMATS = {
    "Mono8": 0x01080001, "Mono10": 0x01100003, "Mono12": 0x01100005, "Mono14": 0x01100025,
    "Mono16": 0x01100007, "Mono10Packed": 0x010C0004, "Mono12Packed": 0x010C0006,
    "BayerGR8": 0x01080008, "BayerRG8": 0x01080009, "BayerGB8": 0x0108000A, "BayerBG8": 0x0108000B,
    "BayerGR10": 0x0110000C, "BayerRG10": 0x0110000D, "BayerGB10": 0x0110000E, "BayerBG10": 0x0110000F,
    "BayerGR12": 0x01100010, "BayerRG12": 0x01100011, "BayerGB12": 0x01100012, "BayerBG12": 0x01100013,
    "BayerGR16": 0x0110002E, "BayerRG16": 0x0110002F, "BayerGB16": 0x01100030, "BayerBG16": 0x01100031,
    "BayerGR10Packed": 0x010C0026, "BayerRG10Packed": 0x010C0027, "BayerGB10Packed": 0x010C0028,
    "BayerBG10Packed": 0x010C0029, "BayerGR12Packed": 0x010C002A, "BayerRG12Packed": 0x010C002B,
    "BayerGB12Packed": 0x010C002C, "BayerBG12Packed": 0x010C002D,
}
OUTPUT_FORMATS = {
    "RGB8": 0x02180014, "BGR8": 0x02180015, "RGBA8": 0x02200016, "BGRA8": 0x02200017,
    "RGB8_Planar": 0x02180021, "BGR8_Planar": 0x02180025, "Mono8": 0x01080001,
}
METHODS = {"nearest": 0, "bilinear": 1, "edge": 2}
_BAYER14 = {"BayerGR14": 0x01100109, "BayerRG14": 0x0110010A, "BayerGB14": 0x0110010B, "BayerBG14": 0x0110010C}
# The full-depth path: Bayer formats of 10 to 16 bits, unpacked or packed.
INPUT_FORMATS16 = {name: code for name, code in {**INPUT_FORMATS, **_BAYER14}.items()
                   if name.startswith("Bayer") and not name.endswith("8")}
OUTPUT_FORMATS16 = {"BGR16": 0x0230004B, "RGB16": 0x02300033, "RGB16_Planar": 0x02300024,
                    "BGR16_Planar": 0x82300024}
_FULL_RANGE = 1 << 32
_PATTERNS = {"RGGB": "RG", "GRBG": "GR", "GBRG": "GB", "BGGR": "BG"}
_CODE_NAMES = {code: name for name, code in {**INPUT_FORMATS, **_BAYER14}.items()}


class Error(ValueError):
    """A frame or argument that cannot be converted. ``status`` is the library's status code and ``name``
    its name (``"VQP_ERR_BAD_DIMENSIONS"``); both are None when the module refused the arguments itself."""

    def __init__(self, message: str, status: int | None = None):
        self.status = status
        self.name = _velqora.status_name(status) if status is not None else None
        super().__init__(f"{message} [{self.name}, {status}]" if status is not None else message)


def _lookup(table: dict, value, what: str, hint: str) -> int:
    if isinstance(value, str):
        if value in table:
            return table[value]
        raise Error(f"unknown {what} {value!r}: use one of {', '.join(table)}{hint}")
    if isinstance(value, (int, np.integer)) and int(value) in table.values():
        return int(value)
    raise Error(f"unknown {what} {value!r}: give a name ({', '.join(list(table)[:4])}, ...) or its code{hint}")


def _input_kind(code: int) -> tuple[int, bool]:
    """Sample bits of the container (8 or 16) and whether the format is packed."""
    group = code & 0x00FF0000
    return (8, False) if group == 0x00080000 else (16, False) if group == 0x00100000 else (12, True)


def _output_shape(config: int, height: int, width: int) -> tuple[int, ...]:
    if config in (0x02180014, 0x02180015):
        return (height, width, 3)
    if config in (0x02200016, 0x02200017):
        return (height, width, 4)
    if config in (0x02180021, 0x02180025):
        return (3, height, width)
    return (height, width)


def _check_out(out, shape: tuple[int, ...], dtype) -> np.ndarray:
    if not isinstance(out, np.ndarray):
        raise Error(f"out= must be a numpy array of shape {shape} and dtype {np.dtype(dtype).name}")
    if out.shape != shape or out.dtype != dtype:
        raise Error(f"out= has shape {out.shape} and dtype {out.dtype}; this frame needs shape {shape} and "
                    f"dtype {np.dtype(dtype).name}")
    if not out.flags.c_contiguous or not out.flags.writeable:
        raise Error("out= must be C-contiguous and writeable: pass np.empty(shape, dtype) or a contiguous slice")
    return out


def _status_error(status: int, what: str) -> Error:
    advice = {
        -104: "frames need at least 4 rows and 4 columns, a stride of at least 4 bytes, and fewer than 2**31 pixels",
        -102: "the input format is not one the library accepts; see velqora.INPUT_FORMATS",
        -107: "the output format is not one the library writes; see velqora.OUTPUT_FORMATS",
        -117: "the memory this frame needs could not be allocated: free memory or convert smaller frames",
        -111: "the Demosaicer or Developer is closed: create a new one",
    }.get(status, _velqora.status_message(status))
    return Error(f"{what}: {advice}", status)


def _prepare_input(raw, code: int, width, height, stride):
    """The buffer the library reads, with height, width and stride in bytes. Never returns the caller's
    memory where the library would write into it (padded 8-bit rows are compacted in place)."""
    bits, packed = _input_kind(code)
    name = _CODE_NAMES[code]
    if not isinstance(raw, np.ndarray):
        raw = np.asarray(raw)
    if packed:
        if raw.dtype != np.uint8 or raw.ndim != 1:
            raise Error(f"{name} is packed (two samples in three bytes): pass the frame's bytes as a 1-D uint8 "
                        f"array with width= and height=, not a {raw.ndim}-D {raw.dtype} array")
        if width is None or height is None:
            raise Error(f"{name} is packed: say the frame's size with width= and height=")
        width, height = int(width), int(height)
        if stride is None:
            stride = width + (width >> 1)
        stride = int(stride)
        buf = np.ascontiguousarray(raw)
        if width < 4 or height < 4:
            return buf, height, width, stride  # the library refuses the size
        # Contiguous rows are one run of pairs; a trailing half pair has two bytes.
        n = width * height if stride == width + (width >> 1) else width
        need = 3 * (n >> 1) + 2 * (n & 1) + (0 if n != width else stride * (height - 1))
        if buf.nbytes < need:
            raise Error(f"a {width} x {height} {name} frame with a stride of {stride} bytes needs {need} bytes; "
                        f"the buffer holds {buf.nbytes}: check width=, height=, stride= and the format")
        if buf.nbytes == need and (n & 1):  # a last half pair: give the reader a byte of slack
            buf = np.concatenate([buf, np.zeros(1, np.uint8)])
        return buf, height, width, stride
    want = np.uint8 if bits == 8 else np.uint16
    if raw.ndim != 2 or raw.dtype != want:
        raise Error(f"{name} frames are 2-D {np.dtype(want).name} arrays (height, width); got a {raw.ndim}-D "
                    f"{raw.dtype} array")
    h, w = raw.shape
    if (width is not None and int(width) != w) or (height is not None and int(height) != h):
        raise Error(f"the array is {w} wide and {h} high: leave out width= and height= for 2-D arrays, "
                    "or slice the array")
    if stride is not None:
        raise Error("stride= applies to packed formats given as bytes; a 2-D array carries its own stride")
    itemsize = raw.dtype.itemsize
    rows_ok = raw.strides[1] == itemsize and raw.strides[0] >= w * itemsize
    if bits == 8:
        # The library compacts padded 8-bit rows in place: it only ever sees a private, packed copy.
        if not raw.flags.c_contiguous:
            raw = np.ascontiguousarray(raw)
        elif rows_ok and raw.strides[0] != w:
            raw = raw.copy()
        return raw, h, w, w
    if not rows_ok:
        raw = np.ascontiguousarray(raw)
    return raw, h, w, int(raw.strides[0])


class Demosaicer:
    """A reusable converter: owns a library handle, whose scratch memory (and worker threads, when
    ``threads`` is not 1) are kept from frame to frame. Use one per thread, or as a context manager::

        with velqora.Demosaicer(threads=0) as d:
            for raw in frames:
                d.demosaic(raw, "BayerRG12", out=buffer)

    ``threads``: 1 (the default) converts on the calling thread; 0 uses one thread per core; N uses N.
    The output is the same for every value.
    """

    def __init__(self, threads: int = 1):
        if int(threads) < 0:
            raise Error("threads= must be 0 (one per core) or a positive count")
        self.threads = int(threads)
        self._handle = _velqora.Handle()
        self._lock = threading.Lock()

    def close(self) -> None:
        """Releases the handle (and joins its threads); later calls raise Error."""
        self._handle.close()

    def __enter__(self) -> "Demosaicer":
        return self

    def __exit__(self, *exc) -> None:
        self.close()

    def demosaic(self, raw, fmt, method="edge", output="BGR8", *, width=None, height=None, stride=None,
                 out=None) -> np.ndarray:
        """Converts one frame; see :func:`velqora.demosaic`."""
        code = _lookup(INPUT_FORMATS, fmt, "input format", "")
        m = _lookup(METHODS, method, "method", "")
        config = _lookup(OUTPUT_FORMATS, output, "output format", "")
        buf, h, w, row_bytes = _prepare_input(raw, code, width, height, stride)
        shape = _output_shape(config, h, w)
        if out is not None:
            result = _check_out(out, shape, np.uint8)
        elif m == 2 and len(shape) == 3 and shape[2] == 4:
            result = np.zeros(shape, np.uint8)  # the edge-directed method leaves the fourth byte alone
        else:
            result = np.empty(shape, np.uint8)
        status = self._handle.demosaic(buf, h, w, row_bytes, code, m, config, result, self.threads)
        if status != 0:
            raise _status_error(status, f"a {w} x {h} {_CODE_NAMES[code]} frame")
        return result

    def demosaic16(self, raw16, fmt, method="edge", planar=False, out=None, *, bits=None, output=None,
                   full_range=False, width=None, height=None, stride=None) -> np.ndarray:
        """Converts one frame at full depth; see :func:`velqora.demosaic16`."""
        code = _format16(fmt, bits)
        m = _lookup(METHODS, method, "method", "")
        if output is None:
            output = "BGR16_Planar" if planar else "BGR16"
        elif planar:
            raise Error("give the layout once: output= (for example 'RGB16_Planar') or planar=True")
        config = _lookup(OUTPUT_FORMATS16, output, "output format", "")
        buf, h, w, row_bytes = _prepare_input(raw16, code, width, height, stride)
        shape = (3, h, w) if config in (0x02300024, 0x82300024) else (h, w, 3)
        result = np.empty(shape, np.uint16) if out is None else _check_out(out, shape, np.uint16)
        status = self._handle.demosaic16(buf, h, w, row_bytes, code, m, config | (_FULL_RANGE if full_range else 0),
                                         result, self.threads)
        if status != 0:
            raise _status_error(status, f"a {w} x {h} {_CODE_NAMES[code]} frame")
        return result


def _format16(fmt, bits) -> int:
    """The code of a full-depth input format: a PFNC name or code, or a pattern with bits= (16 if left out)."""
    if isinstance(fmt, str) and fmt in _PATTERNS:
        depth = 16 if bits is None else bits
        name = f"Bayer{_PATTERNS[fmt]}{depth}"
        if name not in INPUT_FORMATS16:
            raise Error(f"bits={bits!r}: a {fmt} frame for demosaic16 has 10, 12, 14 or 16 bits")
        return INPUT_FORMATS16[name]
    code = _lookup(INPUT_FORMATS16, fmt, "input format",
                   " (or a pattern RGGB, GRBG, GBRG, BGGR with bits=); 8-bit and mono formats go to demosaic()")
    if bits is not None and bits != int(_CODE_NAMES[code].replace("Packed", "")[7:]):
        raise Error(f"{_CODE_NAMES[code]} has its own depth: leave out bits={bits!r}")
    return code


_local = threading.local()


def _default() -> Demosaicer:
    d = getattr(_local, "demosaicer", None)
    if d is None:
        d = _local.demosaicer = Demosaicer()
    return d


def demosaic(raw, fmt, method="edge", output="BGR8", *, width=None, height=None, stride=None, out=None,
             threads: int = 1) -> np.ndarray:
    """Demosaics one camera frame into 8-bit colour (or grey).

    raw: a 2-D uint8 (8-bit formats) or uint16 (10 to 16-bit formats, one sample a value) array, whose
        rows may be padded (a slice or strided view); or, for packed formats, a 1-D uint8 array of the
        frame's bytes with ``width=`` and ``height=`` (``stride=`` in bytes when rows are padded).
    fmt: the input pixel format, a PFNC name such as ``"BayerRG12Packed"`` or its code.
    method: ``"nearest"``, ``"bilinear"`` or ``"edge"`` (edge-directed).
    output: ``"BGR8"`` / ``"RGB8"`` give (H, W, 3), ``"BGRA8"`` / ``"RGBA8"`` (H, W, 4) with 0 in the fourth
        byte, ``"RGB8_Planar"`` / ``"BGR8_Planar"`` (3, H, W), ``"Mono8"`` (H, W); all uint8. The
        edge-directed method does not write the fourth byte: it stays as it was (0 in a new array), except
        in the last ``width`` bytes, where the library keeps a work line.
    out: an array of that shape, uint8, C-contiguous, written instead of allocating a new one.
    threads: 1 (default) on the calling thread, 0 one per core, N threads; the result is the same.

    The caller's array is never modified. Raises velqora.Error for arguments or frames the library refuses.
    """
    if threads == 1:
        return _default().demosaic(raw, fmt, method, output, width=width, height=height, stride=stride, out=out)
    with Demosaicer(threads) as d:
        return d.demosaic(raw, fmt, method, output, width=width, height=height, stride=stride, out=out)


def demosaic16(raw16, fmt, method="edge", planar=False, out=None, *, bits=None, output=None, full_range=False,
               width=None, height=None, stride=None, threads: int = 1) -> np.ndarray:
    """Demosaics a Bayer frame of 10 to 16 bits at full depth into 16-bit colour.

    raw16: a 2-D uint16 array (height, width), one sample a value, rows padded or not; or, for packed formats,
        a 1-D uint8 array of the frame's bytes with ``width=`` and ``height=`` (``stride=`` in bytes when rows
        are padded). Bits above the format's depth are ignored.
    fmt: a PFNC name such as ``"BayerRG12"``, ``"BayerGB10Packed"`` or ``"BayerBG14"`` (``INPUT_FORMATS16``)
        or its code; or a pattern ``"RGGB"``, ``"GRBG"``, ``"GBRG"``, ``"BGGR"`` with ``bits=`` 10, 12, 14 or
        16 (the default).
    method: ``"nearest"``, ``"bilinear"`` or ``"edge"`` (edge-directed, the default), for every pattern.
        Interpolated values never exceed the depth's maximum (4095 for 12 bits, 65535 for 16).
    output: ``"BGR16"`` (the default) or ``"RGB16"`` give (H, W, 3); ``"BGR16_Planar"`` (also
        ``planar=True``) or ``"RGB16_Planar"`` give three planes (3, H, W); all uint16.
    full_range: scale the samples from the input's depth to 0 .. 65535 (as 16-bit PNG expects); otherwise a
        12-bit frame gives 0 .. 4095.
    out: an array of that shape, uint16, C-contiguous, written instead of allocating a new one.
    threads: as for :func:`demosaic`.
    """
    kw = {"bits": bits, "output": output, "full_range": full_range, "width": width, "height": height,
          "stride": stride}
    if threads == 1:
        return _default().demosaic16(raw16, fmt, method, planar, out, **kw)
    with Demosaicer(threads) as d:
        return d.demosaic16(raw16, fmt, method, planar, out, **kw)


# ---- raw to picture --------------------------------------------------------------------------------------

TRANSFERS = {"linear": 0, "srgb": 1}
_GAMMA = 2
_BALANCE_AUTO = {"off": 0, "once": 1, "continuous": 2}
_DEVELOP_INPUTS = {**INPUT_FORMATS, **_BAYER14}
# With u16=True an 8-bit colour output names its 16-bit twin.
_TWINS16 = {"BGR8": "BGR16", "RGB8": "RGB16", "RGB8_Planar": "RGB16_Planar", "BGR8_Planar": "BGR16_Planar"}


def _floats(value, count: int, what: str) -> list:
    """`count` numbers from a scalar, sequence or array: TypeError for what is not numbers, Error (a
    ValueError) for the wrong count."""
    if isinstance(value, (str, bytes)):
        raise TypeError(f"{what}= takes numbers, not the string {value!r}")
    try:
        values = np.asarray(value, dtype=np.float64).reshape(-1)
    except (TypeError, ValueError):
        raise TypeError(f"{what}= takes numbers, not {type(value).__name__} {value!r}") from None
    if values.size != count:
        raise Error(f"{what}= takes {count} number{'s' if count > 1 else ''}, not {values.size}")
    return [float(v) for v in values]


def _levels(black) -> list:
    if black is None:
        return [0.0] * 4
    return _floats(black, 1, "black") * 4 if np.ndim(black) == 0 else _floats(black, 4, "black")


def _white(white) -> list:
    return [0.0 if white is None else _floats(white, 1, "white")[0]]


def _balance(balance) -> list:
    """The library calls (setting, argument, values) for gains, "auto", "once" or None."""
    if isinstance(balance, str):
        if balance not in ("auto", "once"):
            raise Error(f"balance={balance!r}: give (red, green, blue) gains, 'auto' or 'once'")
        mode = _BALANCE_AUTO["continuous" if balance == "auto" else "once"]
        return [("gains", "balance", [1.0, 1.0, 1.0]), ("balance_auto", "balance", [float(mode)])]
    return [("gains", "balance", [1.0, 1.0, 1.0] if balance is None else _floats(balance, 3, "balance"))]


def _matrix(matrix) -> list:
    """Nine numbers, or none for the identity."""
    return [] if matrix is None else _floats(matrix, 9, "matrix")


def _curve(transfer) -> list:
    """(curve, gamma) for the library from "linear", "srgb" or a gamma."""
    if isinstance(transfer, str):
        if transfer not in TRANSFERS:
            raise Error(f"transfer={transfer!r}: use 'linear', 'srgb' or a gamma (a number)")
        return [float(TRANSFERS[transfer]), 1.0]
    if isinstance(transfer, bool) or not isinstance(transfer, (int, float, np.integer, np.floating)):
        raise TypeError(f"transfer= takes 'linear', 'srgb' or a gamma (a number), not {type(transfer).__name__}")
    return [float(_GAMMA), float(transfer)]


class Developer:
    """Turns raw frames into pictures: black level, white level, white balance, the demosaic, a colour matrix
    and a transfer curve in one pass, at the input's full depth. Keeps its settings, its scratch memory and,
    with ``balance="auto"``, continuous automatic white balance from frame to frame (each frame uses the
    gains measured on the frames before it; the first one measures itself)::

        with velqora.Developer(black=64, balance="auto", matrix=camera_to_srgb, transfer="srgb") as dev:
            for raw in frames:
                picture = dev.develop(raw, "BayerRG12", out=buffer)
            print(dev.balance)     # the red, green and blue gains in use
            dev.transfer = 2.2     # one setting changed, the others and the balance kept

    black: one level, or four (the sites of the 2x2 pattern: row 0 col 0, row 0 col 1, row 1 col 0, row 1
        col 1), in the input's sample units. white: the sample value that is full scale (None: the depth's
        maximum). balance: (red, green, blue) gains, ``"auto"`` (continuous), ``"once"`` (the next frame
        measures itself, then the gains stay), or None (1, 1, 1). matrix: nine numbers or a 3x3 array,
        camera R, G, B to output R, G, B (None: the identity). transfer: ``"linear"``, ``"srgb"`` or a
        number, a gamma (encoded = linear ** (1 / gamma)). threads: as for :class:`Demosaicer`.
    Each setting is also a property: assigning it changes that setting alone. Refused values raise
    :class:`Error` (``VQP_ERR_BAD_PARAMETER``) naming the argument and change nothing; values that are not
    numbers where numbers belong raise TypeError.
    """

    def __init__(self, threads: int = 1, *, black=None, white=None, balance=None, matrix=None, transfer="linear"):
        if int(threads) < 0:
            raise Error("threads= must be 0 (one per core) or a positive count")
        self.threads = int(threads)
        self._handle = _velqora.Handle()
        self.configure(black=black, white=white, balance=balance, matrix=matrix, transfer=transfer)

    def close(self) -> None:
        """Releases the handle (and joins its threads); later calls raise Error."""
        self._handle.close()

    def __enter__(self) -> "Developer":
        return self

    def __exit__(self, *exc) -> None:
        self.close()

    def _set(self, what: str, argument: str, values: list) -> None:
        status = self._handle.set(what, values)
        if status == -120:
            raise Error(f"{argument}={values!r} is refused: levels and gains must be finite and not negative, "
                        "black below white, gamma in (0, 10]", status)
        if status != 0:
            raise _status_error(status, argument)

    def configure(self, *, black=None, white=None, balance=None, matrix=None, transfer="linear") -> None:
        """Replaces every setting (those left out become neutral); see the class. Types and counts are checked
        before anything is applied; a value the library refuses leaves those before it in the call applied."""
        steps = [("white", "white", [0.0]),  # black is checked against the white in force
                 ("black", "black", _levels(black)), ("white", "white", _white(white)),
                 *_balance(balance), ("matrix", "matrix", _matrix(matrix)), ("transfer", "transfer", _curve(transfer))]
        for what, argument, values in steps:
            self._set(what, argument, values)
        self._black, self._white, self._matrix = steps[1][2], None if white is None else steps[2][2][0], steps[-2][2]
        self._transfer = transfer if isinstance(transfer, str) else float(transfer)

    @property
    def black(self) -> list:
        """The four black levels, per site of the 2x2 pattern."""
        return list(self._black)

    @black.setter
    def black(self, value) -> None:
        levels = _levels(value)
        self._set("black", "black", levels)
        self._black = levels

    @property
    def white(self):
        """The full-scale sample value, or None for the depth's maximum."""
        return self._white

    @white.setter
    def white(self, value) -> None:
        level = _white(value)
        self._set("white", "white", level)
        self._white = None if value is None else level[0]

    @property
    def balance(self) -> tuple:
        """The red, green and blue gains in use: those given, or the last found automatically. Assign gains,
        ``"auto"`` (continuous), ``"once"`` or None (1, 1, 1)."""
        return tuple(self._handle.gains())

    @balance.setter
    def balance(self, value) -> None:
        for what, argument, values in _balance(value):
            self._set(what, argument, values)

    gains = balance

    @property
    def balance_auto(self) -> str:
        """``"off"``, ``"once"`` (until the next frame) or ``"continuous"``."""
        return {v: k for k, v in _BALANCE_AUTO.items()}[self._handle.balance_auto()]

    @property
    def matrix(self):
        """The colour matrix as a 3x3 array, or None for the identity."""
        return np.array(self._matrix).reshape(3, 3) if self._matrix else None

    @matrix.setter
    def matrix(self, value) -> None:
        values = _matrix(value)
        self._set("matrix", "matrix", values)
        self._matrix = values

    @property
    def transfer(self):
        """``"linear"``, ``"srgb"`` or the gamma."""
        return self._transfer

    @transfer.setter
    def transfer(self, value) -> None:
        self._set("transfer", "transfer", _curve(value))
        self._transfer = value if isinstance(value, str) else float(value)

    def develop(self, raw, fmt, method="edge", output="BGR8", *, u16=False, width=None, height=None, stride=None,
                out=None) -> np.ndarray:
        """Develops one frame; see :func:`velqora.develop`."""
        code = _lookup(_DEVELOP_INPUTS, fmt, "input format", "")
        m = _lookup(METHODS, method, "method", "")
        wide = bool(u16) or (isinstance(output, str) and output in OUTPUT_FORMATS16)
        if wide:
            config = _lookup(OUTPUT_FORMATS16, _TWINS16.get(output, output) if isinstance(output, str) else output,
                             "output format", " (u16=True)")
        else:
            config = _lookup(OUTPUT_FORMATS, output, "output format", " (or u16=True)")
        buf, h, w, row_bytes = _prepare_input(raw, code, width, height, stride)
        dtype = np.uint16 if wide else np.uint8
        shape = ((3, h, w) if config in (0x02300024, 0x82300024) else (h, w, 3)) if wide else _output_shape(config, h, w)
        # The plain edge-directed conversion (neutral settings, 8-bit input) leaves the fourth byte alone.
        four = not wide and len(shape) == 3 and shape[2] == 4
        result = (np.zeros if four else np.empty)(shape, dtype) if out is None else _check_out(out, shape, dtype)
        status = self._handle.develop(buf, h, w, row_bytes, code, m, config, wide, result, self.threads)
        if status == -120:
            raise Error(f"a {_CODE_NAMES[code]} frame: a black level is at or above the white level of its depth; "
                        "lower black= or raise white=", status)
        if status != 0:
            raise _status_error(status, f"a {w} x {h} {_CODE_NAMES[code]} frame")
        return result


def develop(raw, fmt, method="edge", output="BGR8", *, black=None, white=None, balance=None, matrix=None,
            transfer="linear", u16=False, width=None, height=None, stride=None, out=None,
            threads: int = 1) -> np.ndarray:
    """Develops one raw frame into a picture: black level, white level, white balance, the demosaic, a colour
    matrix and a transfer curve in one pass, at the input's full depth (see :class:`Developer` for the
    settings; ``balance="auto"`` balances this frame on its own, grey world).

    raw, fmt, method, width, height, stride, out, threads: as for :func:`demosaic`; every input format of
        :func:`demosaic` and :func:`demosaic16` is accepted, mono included (black, white and the curve apply;
        gains and matrix do not).
    output: an 8-bit format of :func:`demosaic` (uint8 result); with ``u16=True`` a 16-bit one of
        :func:`demosaic16` (``"BGR16"``, ``"RGB16"``, ``"RGB16_Planar"``, ``"BGR16_Planar"``, or the name of
        its 8-bit twin such as the default ``"BGR8"``), a uint16 result, 0 .. 65535. A 16-bit name alone
        also selects 16-bit output.
    With every setting neutral an 8-bit frame gives exactly :func:`demosaic`'s result.
    """
    once = isinstance(balance, str) and balance == "auto"
    with Developer(threads, black=black, white=white, balance="once" if once else balance,
                   matrix=matrix, transfer=transfer) as dev:
        return dev.develop(raw, fmt, method, output, u16=u16, width=width, height=height, stride=stride, out=out)
