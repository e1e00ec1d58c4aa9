"""The work of one batch task, on whichever worker runs it: frames of one raw file read, converted and written
as ``velqora-convert`` writes them (the same layouts, the same PNG encoder, the same bytes). Only paths,
options and small records travel; pixels stay on the worker."""

from __future__ import annotations

import io
import os
import re
import secrets
import stat
import threading
import time
from dataclasses import dataclass, field
from pathlib import PurePath

import numpy as np

from . import _BAYER14, INPUT_FORMATS, Demosaicer, Developer, Error, _velqora

FORMATS = {**INPUT_FORMATS, **_BAYER14}
TYPES = ("png", "ppm", "pgm", "raw", "npy")


class BadInput(Exception):
    """An input that cannot be converted: the message names the file and the rule it breaks."""


@dataclass(frozen=True)
class Job:
    """What every task of a batch shares: the frame geometry, the conversion and where outputs go."""
    fmt: str  # PFNC name
    width: int
    height: int
    stride: int | None  # bytes from one row to the next; None: rows packed
    method: str = "edge"
    output: str = "RGB8"  # the library's 8-bit layout (ignored in the 16-bit mode)
    u16: bool = False
    type: str = "png"
    out_dir: str = "."
    develop: dict = field(default_factory=dict)  # keywords of velqora.develop; empty: a plain conversion

    @property
    def code(self) -> int:
        return FORMATS[self.fmt]

    @property
    def packed(self) -> bool:
        return self.fmt.endswith("Packed")

    @property
    def bits(self) -> int:
        """The format's sample depth: 8, 10, 12, 14 or 16."""
        return int(re.search(r"(\d+)", self.fmt).group(1))

    @property
    def mono(self) -> bool:
        return self.fmt.startswith("Mono")


def format_name(text: str) -> str:
    """The PFNC name of a format given by name (any case) or by hex code; KeyError for others."""
    if text.lower().startswith("0x"):
        code = int(text, 16)
        for name, c in FORMATS.items():
            if c == code:
                return name
        raise KeyError(text)
    for name in FORMATS:
        if name.lower() == text.lower():
            return name
    raise KeyError(text)


def layout(job: Job) -> tuple[int, int]:
    """(bytes of one frame, bytes from one frame to the next in a file of several). Packed rows without
    padding run on as one stream; padded rows keep their padding after the last row too."""
    w, h = job.width, job.height
    row = (w * 3 + 1) // 2 if job.packed else w * (2 if job.bits > 8 else 1)
    tight = w + w // 2 if job.packed else row
    stride = tight if job.stride is None else job.stride
    if job.packed and stride == tight:
        frame = (h * w * 3 + 1) // 2
        return frame, frame
    return stride * (h - 1) + row, stride * h


def frame_count(path: str, size: int, job: Job) -> int:
    """Frames in a file of `size` bytes: one frame, or a whole number of them back to back."""
    frame, period = layout(job)
    if size == frame:
        return 1
    if size > 0 and size % period == 0:
        return size // period
    raise BadInput(f"{path} holds {size} bytes, not a whole number of {job.width} x {job.height} {job.fmt} frames "
                   f"of {period} bytes: check --width, --height, --format and --stride")


def output_paths(path: str, count: int, job: Job) -> list[str]:
    """DIR/<name>.<type> for one frame (velqora-convert's name), DIR/<name>_000000.<type>, ... for several."""
    stem = PurePath(path).stem
    if count == 1:
        return [os.path.join(job.out_dir, f"{stem}.{job.type}")]
    return [os.path.join(job.out_dir, f"{stem}_{i:06d}.{job.type}") for i in range(count)]


def is_partial(name: str) -> str | None:
    """The output a temporary file (".<name>.partial-...") was being written for, or None."""
    if name.startswith(".") and ".partial-" in name:
        return name[1:name.rindex(".partial-")]
    return None


def write_atomic(path: str, data: bytes) -> None:
    """Writes under a temporary name in the same directory, flushed to the disk, then renamed: a reader
    sees the whole file or none."""
    directory, base = os.path.split(path)
    temp = os.path.join(directory, f".{base}.partial-{os.getpid()}-{secrets.token_hex(4)}")
    try:
        with open(temp, "wb") as f:
            f.write(data)
            f.flush()
            os.fsync(f.fileno())
        os.replace(temp, path)
    except BaseException:
        try:
            os.unlink(temp)
        except OSError:
            pass
        raise


# ---- conversion ------------------------------------------------------------------------------------------

_local = threading.local()  # one Demosaicer and one Developer a worker thread, kept from task to task


def _handles() -> tuple[Demosaicer, Developer]:
    if not hasattr(_local, "handles"):
        _local.handles = (Demosaicer(1), Developer(1))
    return _local.handles


def frame_array(buf: bytes, job: Job):
    """The frame as the Python layer takes it (keywords for width, height and stride where it needs them)."""
    if job.packed:
        kw = {"width": job.width, "height": job.height}
        if job.stride is not None:
            kw["stride"] = job.stride
        return np.frombuffer(buf, np.uint8), kw
    size = 2 if job.bits > 8 else 1
    stride = job.stride if job.stride is not None else job.width * size
    if stride % size:
        raise BadInput(f"--stride {stride} is odd: rows of 16-bit samples start on even byte offsets")
    return np.ndarray((job.height, job.width), np.uint16 if size == 2 else np.uint8, buffer=buf,
                      strides=(stride, size)), {}


def _wide_output(job: Job) -> str:
    return "BGR16" if job.type in ("raw", "npy") else "RGB16"


def convert(raw, kw: dict, job: Job) -> np.ndarray:
    """The library's output for one frame, as velqora-convert asks for it."""
    demosaicer, developer = _handles()
    if job.develop:
        settings = dict(job.develop)
        if settings.get("balance") == "auto":
            settings["balance"] = "once"  # grey world, each frame on its own
        developer.configure(**settings)
        return developer.develop(raw, job.code, job.method, _wide_output(job) if job.u16 else job.output,
                                 u16=job.u16, **kw)
    if job.u16:
        return demosaicer.demosaic16(raw, job.code, job.method, output=_wide_output(job),
                                     full_range=job.type == "png", **kw)
    return demosaicer.demosaic(raw, job.code, job.method, job.output, **kw)


def _file_order(px: np.ndarray, output: str) -> np.ndarray:
    """R, G, B (or grey) interleaved, from the library's 8-bit layout."""
    if output.endswith("_Planar"):
        px = px.transpose(1, 2, 0)
    if output.startswith("BGR"):
        px = px[..., 2::-1]
    elif output == "RGBA8":
        px = px[..., :3]
    return np.ascontiguousarray(px)


def encode(px: np.ndarray, job: Job) -> bytes:
    """The file's bytes: raw is the library's output as it is, npy the same array with its shape; PNG and
    PNM hold R, G, B (or grey), 16-bit PNM at the input's depth unless developed."""
    if job.type == "raw":
        return px.tobytes()
    if job.type == "npy":
        out = io.BytesIO()
        np.save(out, px)
        return out.getvalue()
    wide = px.dtype == np.uint16
    pixels = px if wide else _file_order(px, job.output)
    depth = 16 if job.develop else job.bits
    if job.type == "png":
        return _velqora.encode_png(pixels, depth if wide else 0)
    h, w = pixels.shape[:2]
    maxval = ((1 << depth) - 1) if wide else 255
    header = f"P{'5' if pixels.ndim == 2 else '6'}\n{w} {h}\n{maxval}\n".encode()
    return header + (pixels.astype(">u2") if wide else pixels).tobytes()


def convert_file(path: str, first: int, count: int | None, job: Job) -> dict:
    """Converts frames first .. first + count - 1 of `path` (count None: all of them), skipping frames whose
    outputs exist. Returns a record; a bad input gives a failed record instead of raising, so that the batch
    goes on and the scheduler does not run it again."""
    start = time.monotonic()
    record = {"input": path, "outputs": [], "frames": 0, "written": 0, "status": "ok", "reason": None}
    try:
        try:
            info = os.stat(path)
            if not stat.S_ISREG(info.st_mode):
                raise BadInput(f"{path} is not a file: give raw frame files")
            size = info.st_size
            f = open(path, "rb")
        except OSError as e:
            raise BadInput(f"{path}: cannot open: {e.strerror}") from None
        with f:
            n = frame_count(path, size, job)
            names = output_paths(path, n, job)
            if count is None:
                first, count = 0, n
            if first + count > n:
                raise BadInput(f"{path} holds {n} frames now, fewer than when the batch began")
            record["outputs"] = names[first:first + count]
            record["frames"] = count
            frame_bytes, period = layout(job)
            for k in range(first, first + count):
                if os.path.exists(names[k]):
                    continue
                f.seek(k * period)
                try:
                    buf = f.read(frame_bytes)
                except OSError as e:
                    raise BadInput(f"{path}: cannot read: {e.strerror}") from None
                if len(buf) != frame_bytes:
                    raise BadInput(f"{path} was cut short while the batch read it")
                raw, kw = frame_array(buf, job)
                try:
                    px = convert(raw, kw, job)
                except Error as e:
                    where = f"{path}" if n == 1 else f"{path} (frame {k})"
                    raise BadInput(f"{where}: the library refused the frame: {e}") from None
                try:
                    write_atomic(names[k], encode(px, job))
                except OSError as e:
                    raise BadInput(f"{names[k]}: cannot write: {e.strerror}") from None
                record["written"] += 1
    except BadInput as e:
        record.update(status="failed", reason=str(e))
    record["seconds"] = round(time.monotonic() - start, 4)
    return record
