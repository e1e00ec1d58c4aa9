"""velqora-batch on Dask clusters on the loopback interface: its files against velqora-convert's bytes, bad
inputs, the record and the exit status, a worker killed mid-batch, the client killed and the batch resumed."""

import json
import os
import signal
import subprocess
import sys
import time

import numpy as np
import psutil
import pytest

pytest.importorskip("distributed")
from distributed import Client, LocalCluster  # noqa: E402

HERE = os.path.dirname(os.path.abspath(__file__))
CONVERT = os.environ.get("VELQORA_CONVERT",
                         os.path.join(HERE, "..", "..", "build", "release", "tools", "velqora-convert"))
BATCH = [sys.executable, "-m", "velqora", "batch"]


def frames(path, fmt, w, h, count=1, stride=None, seed=0):
    """`count` random frames of `fmt` back to back; returns the bytes of each."""
    rng = np.random.default_rng(seed)
    bits = int("".join(c for c in fmt if c.isdigit()))
    if fmt.endswith("Packed"):
        one = (w * h * 3 + 1) // 2
        parts = [rng.integers(0, 256, one, dtype=np.uint8).tobytes() for _ in range(count)]
    else:
        dtype = np.uint16 if bits > 8 else np.uint8
        row = stride or w * dtype().itemsize
        parts = [rng.integers(0, 1 << bits, (h, row // dtype().itemsize), dtype=dtype).tobytes() for _ in range(count)]
    with open(path, "wb") as f:
        f.write(b"".join(parts))
    return parts


def reference(tmp, name, data, args, kind):
    """velqora-convert's file for one frame's bytes."""
    src = os.path.join(tmp, "src-" + name + ".raw")
    with open(src, "wb") as f:
        f.write(data)
    out = os.path.join(tmp, "ref-" + name + "." + kind)
    subprocess.run([CONVERT, "-q", *args, "-o", out, src], check=True)
    with open(out, "rb") as f:
        return f.read()


def records(out):
    with open(os.path.join(out, "velqora-batch.jsonl")) as f:
        return [json.loads(line) for line in f]


@pytest.fixture(scope="module")
def cluster():
    with LocalCluster(n_workers=2, threads_per_worker=1, processes=True, host="127.0.0.1",
                      dashboard_address=None, scheduler_kwargs={"dashboard_address": "127.0.0.1:0"}) as c:
        yield c.scheduler_address


# fmt, width, height, stride, options (both tools), type; the first case's sequence is split into 3 tasks
CASES = [
    ("BayerRG12", 96, 64, None, [], "png"),
    ("BayerGB8", 64, 48, 80, ["-m", "bilinear"], "ppm"),
    ("Mono12Packed", 62, 20, None, [], "pgm"),
    ("BayerBG10Packed", 40, 30, None, ["-m", "nearest", "--output", "BGRA8"], "raw"),
    ("BayerRG8", 48, 32, None, ["--output", "BGR8_Planar"], "png"),
    ("BayerGR16", 64, 40, None, ["--u16"], "png"),
    ("BayerRG12", 64, 40, 160, ["--u16"], "ppm"),
    ("BayerRG12", 64, 40, None, ["--black", "64", "--balance", "auto", "--transfer", "srgb"], "png"),
    ("BayerBG14", 64, 40, None, ["--u16", "--white", "12000", "--matrix", "1.5,-0.3,-0.2,-0.2,1.4,-0.2,0,-0.5,1.5"],
     "raw"),
    ("BayerGR10", 64, 40, None, ["--balance", "1.8,1,1.4"], "npy"),
]


@pytest.mark.parametrize("fmt,w,h,stride,options,kind", CASES)
def test_outputs_are_velqora_converts_bytes(tmp_path, cluster, fmt, w, h, stride, options, kind):
    geometry = ["-f", fmt, "-W", str(w), "-H", str(h)] + (["--stride", str(stride)] if stride else [])
    single = frames(tmp_path / "one.raw", fmt, w, h, stride=stride, seed=1)
    count = 20 if (fmt, options, kind) == ("BayerRG12", [], "png") else 3
    seq = frames(tmp_path / "seq.raw", fmt, w, h, count=count, stride=stride, seed=2)
    out = tmp_path / "out"
    run = subprocess.run(BATCH + geometry + options + ["--type", kind, "--out-dir", str(out), "--scheduler", cluster,
                                                       str(tmp_path / "one.raw"), str(tmp_path / "seq.raw")],
                         capture_output=True, text=True, timeout=120)
    assert run.returncode == 0, run.stderr
    written = {"one": single[0], **{f"seq_{k:06d}": seq[k] for k in range(count)}}
    for name, data in written.items():
        expect = reference(str(tmp_path), name, data, geometry + options, "raw" if kind == "npy" else kind)
        with open(out / f"{name}.{kind}", "rb") as f:
            got = f.read()
        if kind == "npy":
            array = np.load(out / f"{name}.npy")
            assert array.shape[:2] in ((h, w), (3, h)) and array.tobytes() == expect
        else:
            assert got == expect, name
    assert sorted((r["status"], len(r["outputs"])) for r in records(out)) == [("ok", 1), ("ok", count)]


def test_bad_inputs_record_and_exit_status(tmp_path):
    args = ["-f", "BayerRG12", "-W", "64", "-H", "48"]
    frames(tmp_path / "good.raw", "BayerRG12", 64, 48)
    seq = frames(tmp_path / "three.raw", "BayerRG12", 64, 48, count=3)
    with open(tmp_path / "cut.raw", "wb") as f:
        f.write(seq[0][:-2])
    (tmp_path / "dir.raw").mkdir()
    inputs = [str(tmp_path / n) for n in ("good.raw", "cut.raw", "gone.raw", "three.raw", "dir.raw")]
    out = str(tmp_path / "out")
    first = subprocess.run(BATCH + args + ["--workers", "2", "--out-dir", out] + inputs, capture_output=True,
                           text=True, timeout=120)
    assert first.returncode == 1
    by_input = {os.path.basename(r["input"]): r for r in records(out)}
    assert {k: r["status"] for k, r in by_input.items()} == {"good.raw": "ok", "cut.raw": "failed",
                                                             "gone.raw": "failed", "three.raw": "ok",
                                                             "dir.raw": "failed"}
    assert "cut.raw holds 6142 bytes, not a whole number of 64 x 48 BayerRG12 frames" in by_input["cut.raw"]["reason"]
    assert "gone.raw: cannot open: No such file" in by_input["gone.raw"]["reason"]
    assert "dir.raw is not a file" in by_input["dir.raw"]["reason"]
    assert all(r["reason"] in first.stderr for r in by_input.values() if r["reason"])
    assert [os.path.basename(p) for p in by_input["three.raw"]["outputs"]] == [f"three_{k:06d}.png" for k in range(3)]
    for k in range(3):
        with open(os.path.join(out, f"three_{k:06d}.png"), "rb") as f:
            assert f.read() == reference(str(tmp_path), f"t{k}", seq[k], args, "png")

    # Again: the complete inputs are skipped, the bad ones fail again; nothing is rewritten.
    before = {n: os.stat(os.path.join(out, n)).st_ino for n in os.listdir(out) if n.endswith(".png")}
    again = subprocess.run(BATCH + args + ["--workers", "1", "-q", "--out-dir", out] + inputs, capture_output=True,
                           text=True, timeout=120)
    assert again.returncode == 1 and again.stdout == ""
    assert [r["status"] for r in records(out)[5:]].count("skipped") == 2
    assert before == {n: os.stat(os.path.join(out, n)).st_ino for n in before}

    # A frame the library refuses fails with its reason; a good batch exits with 0.
    with open(tmp_path / "tiny.raw", "wb") as f:
        f.write(bytes(8))
    tiny = subprocess.run(BATCH + ["-f", "BayerRG8", "-W", "2", "-H", "2", "--workers", "1", "--out-dir", out + "2",
                                   str(tmp_path / "tiny.raw")], capture_output=True, text=True, timeout=120)
    assert tiny.returncode == 1 and "frames need at least 4 rows and 4 columns" in tiny.stderr
    ok = subprocess.run(BATCH + args + ["--workers", "1", "--out-dir", out + "3", inputs[0]], timeout=120)
    assert ok.returncode == 0


def many(tmp_path, count, w=1024, h=768):
    """`count` frames of BayerRG12 in files of their own, and velqora-convert's outputs for them."""
    src = tmp_path / "in"
    src.mkdir()
    inputs = []
    for k in range(count):
        frames(src / f"f{k:03d}.raw", "BayerRG12", w, h, seed=k)
        inputs.append(str(src / f"f{k:03d}.raw"))
    ref = str(tmp_path / "ref")
    subprocess.run([CONVERT, "-q", "-j", "2", "-f", "BayerRG12", "-W", str(w), "-H", str(h), "--out-dir", ref,
                    *inputs], check=True, timeout=120)
    return inputs, ref, ["-f", "BayerRG12", "-W", str(w), "-H", str(h)]


def same_as_reference(out, ref, names):
    for name in names:
        with open(os.path.join(out, name), "rb") as a, open(os.path.join(ref, name), "rb") as b:
            assert a.read() == b.read(), name


def wait_for_outputs(out, count, proc, timeout=60):
    end = time.monotonic() + timeout
    while time.monotonic() < end and proc.poll() is None:
        if os.path.isdir(out) and sum(n.endswith(".png") and not n.startswith(".") for n in os.listdir(out)) >= count:
            return
        time.sleep(0.02)
    raise AssertionError("the batch did not get going")


def stop(pids):
    for pid in pids:
        try:
            os.kill(pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
    psutil.wait_procs([p for p in map(lambda pid: psutil.Process(pid) if psutil.pid_exists(pid) else None, pids)
                       if p is not None], timeout=10)


def test_worker_killed_mid_batch(tmp_path):
    inputs, ref, args = many(tmp_path, 40)
    address = str(tmp_path / "scheduler.json")
    opts = ["--host", "127.0.0.1", "--dashboard-address", "127.0.0.1:0", "--no-dashboard"]
    procs = [subprocess.Popen(["dask", "scheduler", "--port", "0", "--scheduler-file", address, *opts],
                              stderr=subprocess.DEVNULL)]
    try:
        for _ in range(2):
            procs.append(subprocess.Popen(["dask", "worker", "--scheduler-file", address, "--no-nanny", "--nthreads",
                                           "1", "--death-timeout", "30", *opts], stderr=subprocess.DEVNULL))
        with Client(scheduler_file=address, timeout="30s") as client:
            client.wait_for_workers(2, timeout=30)
            scheduler = client.scheduler.address
        out = str(tmp_path / "out")
        batch = subprocess.Popen(BATCH + args + ["--scheduler", scheduler, "--out-dir", out] + inputs,
                                 stdout=subprocess.DEVNULL)
        wait_for_outputs(out, 3, batch)
        procs[1].kill()
        assert batch.wait(timeout=120) == 0
        assert len(records(out)) == 40 and procs[1].poll() is not None
        same_as_reference(out, ref, [f"f{k:03d}.png" for k in range(40)])
    finally:
        stop([p.pid for p in procs])


def test_client_killed_then_resumed(tmp_path):
    inputs, ref, args = many(tmp_path, 30)
    out = str(tmp_path / "out")
    batch = subprocess.Popen(BATCH + args + ["--workers", "2", "--out-dir", out] + inputs, stdout=subprocess.DEVNULL)
    wait_for_outputs(out, 4, batch)
    family = [p.pid for p in psutil.Process(batch.pid).children(recursive=True)]
    batch.kill()
    batch.wait()
    stop(family)
    done = sorted(n for n in os.listdir(out) if n.endswith(".png") and not n.startswith("."))
    assert 4 <= len(done) < 30
    same_as_reference(out, ref, done)  # whatever carries a final name is whole
    before = {n: os.stat(os.path.join(out, n)).st_ino for n in done}
    again = subprocess.run(BATCH + args + ["--workers", "2", "--out-dir", out] + inputs, capture_output=True,
                           text=True, timeout=120)
    assert again.returncode == 0, again.stderr
    assert not [n for n in os.listdir(out) if ".partial-" in n]
    assert before == {n: os.stat(os.path.join(out, n)).st_ino for n in done}
    last = {os.path.basename(r["input"]): r["status"] for r in records(out)[-30:]}
    assert sorted(k for k, s in last.items() if s == "skipped") == [n.replace(".png", ".raw") for n in done]
    same_as_reference(out, ref, [f"f{k:03d}.png" for k in range(30)])
