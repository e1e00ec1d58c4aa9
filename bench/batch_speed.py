"""The speed of velqora-batch: a local cluster of 2 workers against 1, and against velqora-convert -j 2 on the
same files (a measurement, not a test). Prints wall times (best of --repeat, cluster start included) and the
ratios.

    PYTHONPATH=build/python/python /usr/bin/python3 bench/batch_speed.py [--frames 64] [--width 1920]
        [--height 1200] [--format BayerRG12] [--type png] [--convert build/release/tools/velqora-convert]
"""

import argparse
import os
import resource
import shutil
import subprocess
import sys
import tempfile
import time

import numpy as np


def timed(command: list, out: str) -> tuple[float, float]:
    """(wall seconds, processor seconds of the command and the processes it waited for)."""
    shutil.rmtree(out, ignore_errors=True)
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.perf_counter()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    wall = time.perf_counter() - start
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return wall, after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def main() -> None:
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    p = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    p.add_argument("--frames", type=int, default=96)
    p.add_argument("--width", type=int, default=1920)
    p.add_argument("--height", type=int, default=1200)
    p.add_argument("--format", default="BayerRG12")
    p.add_argument("--type", default="png")
    p.add_argument("--repeat", type=int, default=2)
    p.add_argument("--convert", default=os.path.join(root, "build", "release", "tools", "velqora-convert"))
    a = p.parse_args()
    bits = int("".join(c for c in a.format if c.isdigit()))
    with tempfile.TemporaryDirectory(prefix="velqora-batch-bench-") as tmp:
        rng = np.random.default_rng(0)
        # A smooth scene with noise, so that the PNG encoder does realistic work.
        y, x = np.mgrid[0:a.height, 0:a.width]
        base = (np.sin(x / 37.0) * np.cos(y / 23.0) + 1) * ((1 << bits) - 1) * 0.45
        inputs = []
        for k in range(a.frames):
            frame = base + rng.normal(0, (1 << bits) / 64, base.shape)
            frame = np.clip(frame, 0, (1 << bits) - 1).astype(np.uint16 if bits > 8 else np.uint8)
            inputs.append(os.path.join(tmp, f"frame{k:04d}.raw"))
            frame.tofile(inputs[-1])
        geometry = ["-f", a.format, "-W", str(a.width), "-H", str(a.height)]
        out = os.path.join(tmp, "out")
        batch = [sys.executable, "-m", "velqora", "batch", "-q", *geometry, "--type", a.type, "--out-dir", out]
        runs = {
            "velqora-batch --workers 1": batch + ["--workers", "1"] + inputs,
            "velqora-batch --workers 2": batch + ["--workers", "2"] + inputs,
            "velqora-convert -j 2": [a.convert, "-q", "-j", "2", *geometry, "--type", a.type, "--out-dir", out] + inputs,
        }
        # Rounds of one run each, so that a neighbour's load falls on all three alike.
        times = {name: [] for name in runs}
        for _ in range(a.repeat):
            for name, command in runs.items():
                times[name].append(timed(command, out))
        best = {name: min(t) for name, t in times.items()}
        # The engine's fixed cost: starting and stopping a local cluster of 2 for one small frame.
        with open(os.path.join(tmp, "small.raw"), "wb") as f:
            f.write(bytes(64 * 64))
        start = min(timed([sys.executable, "-m", "velqora", "batch", "-q", "-f", "BayerRG8", "-W", "64", "-H", "64",
                           "--workers", "2", "--out-dir", out, os.path.join(tmp, "small.raw")], out)[0]
                    for _ in range(a.repeat))
    print(f"{a.frames} frames of {a.width} x {a.height} {a.format} to {a.type}, best of {a.repeat} "
          f"(wall time, cluster start included; processor time of all processes):")
    for name, (seconds, cpu) in best.items():
        print(f"  {name:28s} {seconds:7.2f} s  {a.frames / seconds:7.1f} frames/s  cpu {cpu:7.2f} s")
    one, two, tool = (best[n][0] for n in runs)
    print(f"  2 workers / 1 worker: {one / two:.2f}x faster; 2 workers against velqora-convert -j 2: "
          f"{two / tool:.2f}x its time")
    print(f"  a local cluster of 2 started and stopped around one small frame: {start:.2f} s; without it, "
          f"2 workers / 1 worker {(one - start) / (two - start):.2f}x, against velqora-convert -j 2 "
          f"{(two - start) / tool:.2f}x its time")


if __name__ == "__main__":
    main()
