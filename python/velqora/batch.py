"""velqora-batch: converts a recording of raw frame files on a Dask cluster, a local one of worker processes
(--workers N) or a running one (--scheduler tcp://HOST:PORT, the files on storage every worker reads).

Each task converts one file, or a run of frames of a long sequence file, and writes its outputs itself; only
small records come back. The client keeps DIR/velqora-batch.jsonl, one line per input, skips inputs whose
outputs are complete (outputs appear under their names only once written), and exits with 1 when any input
failed.
"""

from __future__ import annotations

import argparse
import datetime
import json
import logging
import math
import os
import stat
import sys
import time
from dataclasses import replace

from . import METHODS, OUTPUT_FORMATS
from ._convert import TYPES, BadInput, Job, convert_file, format_name, frame_count, is_partial, output_paths

RECORD = "velqora-batch.jsonl"

USAGE = """velqora-batch -f FORMAT -W WIDTH -H HEIGHT [--stride N] [-m METHOD] [--output FMT] [--u16]
                     [--black N[,N,N,N]] [--white N] [--balance R,G,B|auto] [--matrix A,...,I]
                     [--transfer CURVE] [--type png|ppm|pgm|raw|npy] --out-dir DIR
                     [--workers N | --scheduler ADDRESS] [--quiet] FILE..."""

EPILOG = """Options mean what they mean to velqora-convert. A file that holds several frames back to back gives
DIR/<name>_000000.<type>, ...; one frame gives DIR/<name>.<type>. Run again with the same arguments to
finish an interrupted batch: inputs whose outputs are complete are skipped. Exit status: 0 every input
converted or skipped, 1 some input failed (see DIR/velqora-batch.jsonl), 2 bad command line, 3 no cluster
(or no Dask)."""


def _parser() -> argparse.ArgumentParser:
    p = argparse.ArgumentParser(prog="velqora-batch", usage=USAGE, description=__doc__.split("\n\n")[0],
                                epilog=EPILOG, formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("files", nargs="+", metavar="FILE", help="raw frame files")
    p.add_argument("-f", "--format", required=True, help="input pixel format: a PFNC name or its hex code")
    p.add_argument("-W", "--width", type=int, required=True, help="pixels in a row")
    p.add_argument("-H", "--height", type=int, required=True, help="rows")
    p.add_argument("--stride", type=int, help="bytes from one row to the next (default: rows packed)")
    p.add_argument("-m", "--method", default="edge", help="nearest, bilinear or edge (the default)")
    p.add_argument("--output", help="8-bit output layout: " + ", ".join(OUTPUT_FORMATS))
    p.add_argument("--u16", action="store_true", help="16-bit mode: Bayer input of 10 to 16 bits at full depth")
    for name, text in (("--black", "black level, 1 or 4 numbers"), ("--white", "the full-scale sample value"),
                       ("--balance", "white-balance gains R,G,B, or auto"), ("--matrix", "colour matrix, 9 numbers"),
                       ("--transfer", "linear, srgb or a gamma")):
        p.add_argument(name, help=text)
    p.add_argument("--type", default="png", choices=TYPES, help="the files written (default png)")
    p.add_argument("-d", "--out-dir", required=True, help="where outputs and the record go")
    engine = p.add_mutually_exclusive_group()
    engine.add_argument("--workers", type=int, help="a local cluster of N worker processes (default: one a core)")
    engine.add_argument("--scheduler", help="a running Dask scheduler, tcp://HOST:PORT")
    p.add_argument("-q", "--quiet", action="store_true", help="no progress, only failures")
    return p


def _numbers(p, option: str, text: str, counts: tuple) -> list:
    try:
        values = [float(v) for v in text.split(",")]
    except ValueError:
        values = []
    if len(values) not in counts or not all(math.isfinite(v) for v in values):
        p.error(f"{option}: expected {' or '.join(map(str, counts))} numbers, comma-separated, got '{text}'")
    return values


def _develop(p, a) -> dict:
    """The development options as keywords of velqora.develop."""
    d = {}
    if a.black is not None:
        levels = _numbers(p, "--black", a.black, (1, 4))
        if min(levels) < 0:
            p.error(f"--black: levels are not negative, got '{a.black}'")
        d["black"] = levels * 4 if len(levels) == 1 else levels
    if a.white is not None:
        d["white"] = _numbers(p, "--white", a.white, (1,))[0]
        if d["white"] <= 0:
            p.error(f"--white: expected a positive number, got '{a.white}'")
    if a.balance is not None:
        d["balance"] = "auto" if a.balance == "auto" else _numbers(p, "--balance", a.balance, (3,))
    if a.matrix is not None:
        d["matrix"] = _numbers(p, "--matrix", a.matrix, (9,))
    if a.transfer is not None:
        if a.transfer in ("linear", "srgb", "sRGB"):
            d["transfer"] = a.transfer.lower()
        else:
            gamma = _numbers(p, "--transfer", a.transfer, (1,))[0]
            if not 0 < gamma <= 10:
                p.error(f"--transfer: expected linear, srgb or a gamma from 0 to 10, got '{a.transfer}'")
            d["transfer"] = gamma
    return d


def job_from(argv: list[str]) -> tuple[Job, argparse.Namespace]:
    """The job and the parsed command line; exits with 2 (and a line saying what to change) on a bad one."""
    p = _parser()
    a = p.parse_args(argv)
    try:
        fmt = format_name(a.format)
    except (KeyError, ValueError):
        p.error(f"unknown input format '{a.format}': velqora-convert --list-formats shows the names")
    if a.width < 1 or a.height < 1 or (a.stride is not None and a.stride < 1):
        p.error("--width, --height and --stride are whole numbers above 0")
    if a.method not in METHODS:
        p.error(f"unknown method '{a.method}': use nearest, bilinear or edge")
    if a.workers is not None and a.workers < 1:
        p.error("--workers needs at least 1")
    job = Job(fmt, a.width, a.height, a.stride, a.method, type=a.type, out_dir=a.out_dir, u16=a.u16,
              develop=_develop(p, a))
    wide_row = job.width * (2 if job.bits > 8 else 1)
    if a.stride is not None and not job.packed:
        if a.stride < wide_row:
            p.error(f"--stride {a.stride} is shorter than a row of {job.width} {fmt} samples ({wide_row} bytes)")
        if job.bits > 8 and a.stride % 2:
            p.error(f"--stride {a.stride} is odd: rows of 16-bit samples start on even byte offsets")
    if job.u16:
        if a.output:
            p.error("--output selects 8-bit layouts; the 16-bit mode writes B, G, R (raw, npy) or R, G, B (png, ppm)")
        if job.type == "pgm":
            p.error("the 16-bit mode writes colour: use --type png, ppm, raw or npy")
        if not job.develop and job.mono:
            p.error(f"{fmt} is monochrome: the 16-bit mode demosaics Bayer frames, leave out --u16")
        if not job.develop and job.bits == 8:
            p.error(f"{fmt} has 8-bit samples: leave out --u16 or give a 10 to 16-bit format")
        return job, a
    if job.bits == 14 and not job.mono and not job.develop:
        p.error(f"{fmt} is converted at full depth only: add --u16 (or develop it: --black, --transfer, ...)")
    if a.output:
        names = {n.lower(): n for n in OUTPUT_FORMATS}
        if a.output.lower() not in names:
            p.error(f"unknown output format '{a.output}': use one of {', '.join(OUTPUT_FORMATS)}")
        output = names[a.output.lower()]
    else:
        output = {"pgm": "Mono8", "raw": "BGR8", "npy": "BGR8", "ppm": "RGB8"}.get(
            job.type, "Mono8" if job.mono else "RGB8")
    if job.type == "pgm" and output != "Mono8":
        p.error("a .pgm file holds grey images: use --output Mono8, or --type png or ppm")
    if job.type == "ppm" and output == "Mono8":
        p.error("a .ppm file holds colour images: use --type pgm or png for Mono8")
    return replace(job, output=output), a


# ---- the plan ---------------------------------------------------------------------------------------------

def _now() -> str:
    return datetime.datetime.now(datetime.timezone.utc).isoformat(timespec="milliseconds")


def plan(job: Job, files: list[str], workers: int) -> tuple[list, list]:
    """(tasks, records now): tasks (path, first frame, frame count or None) for inputs with outputs still
    to write; records of inputs skipped (outputs complete) or failed here (a size that is not whole frames).
    Files the client cannot see go to the workers whole: they may see them."""
    tasks, records = [], []
    present = set(os.listdir(job.out_dir))
    for path in files:
        try:
            info = os.stat(path)
        except OSError:
            info = None
        if info is None or not stat.S_ISREG(info.st_mode):  # the worker says why
            tasks.append((path, 0, None))
            continue
        size = info.st_size
        try:
            n = frame_count(path, size, job)
        except BadInput as e:
            records.append({"input": path, "outputs": [], "frames": 0, "status": "failed", "reason": str(e)})
            continue
        names = output_paths(path, n, job)
        missing = {k for k, name in enumerate(names) if os.path.basename(name) not in present}
        if not missing:
            records.append({"input": path, "outputs": names, "frames": n, "status": "skipped", "reason": None})
            continue
        # Long sequences are split so that every worker gets a share (and a task that runs again, its worker
        # lost, has at most 256 frames to look at); runs already written are not sent.
        chunk = min(256, max(8, math.ceil(n / (4 * workers)))) if n > 1 else 1
        for first in range(0, n, chunk):
            count = min(chunk, n - first)
            if any(k in missing for k in range(first, first + count)):
                tasks.append((path, first, count))
    return tasks, records


def remove_partials(job: Job, files: list[str]) -> int:
    """Removes the temporary files an interrupted run left for this batch's outputs."""
    names = set()
    for path in files:
        stem = os.path.splitext(os.path.basename(path))[0]
        names.add(stem)
    removed = 0
    for entry in os.scandir(job.out_dir):
        target = is_partial(entry.name)
        if target is None or not target.endswith("." + job.type):
            continue
        stem = target[:-len(job.type) - 1]
        if stem in names or (stem[-7:-6] == "_" and stem[-6:].isdigit() and stem[:-7] in names):
            try:
                os.unlink(entry.path)
                removed += 1
            except OSError:
                pass
    return removed


# ---- progress -----------------------------------------------------------------------------------------------

class Progress:
    """A tqdm bar on a terminal (files done, frames/s, time left), plain lines otherwise; nothing but failures
    with --quiet. Failures go to stderr."""

    def __init__(self, total: int, quiet: bool):
        self.total, self.quiet, self.done, self.frames = total, quiet, 0, 0
        self.start = time.monotonic()
        self.bar = None
        if not quiet and sys.stderr.isatty():
            try:
                from tqdm import tqdm
                self.bar = tqdm(total=total, unit="file", dynamic_ncols=True)
            except ImportError:
                pass

    def _say(self, line: str, error: bool = False) -> None:
        if self.bar is not None:
            self.bar.write(line, file=sys.stderr if error else sys.stdout)
        else:
            print(line, file=sys.stderr if error else sys.stdout, flush=True)

    def update(self, record: dict, written: int) -> None:
        self.done += 1
        self.frames += written
        if record["status"] == "failed":
            self._say(f"velqora-batch: {record['reason']}", error=True)
        elif self.bar is not None:
            rate = self.frames / max(time.monotonic() - self.start, 1e-9)
            self.bar.set_postfix_str(f"{rate:.1f} frames/s", refresh=False)
        elif not self.quiet:
            outputs = record["outputs"]
            where = outputs[0] if len(outputs) == 1 else f"{len(outputs)} files in {os.path.dirname(outputs[0])}" \
                if outputs else "-"
            self._say(f"[{self.done}/{self.total}] {record['input']} -> {where} ({record['status']}, "
                      f"{record['frames']} frame{'s' if record['frames'] != 1 else ''})")
        if self.bar is not None:
            self.bar.update(1)

    def close(self, summary: str) -> None:
        if self.bar is not None:
            self.bar.close()
        if not self.quiet:
            print(summary, flush=True)


# ---- the run ------------------------------------------------------------------------------------------------

def _engine(args):
    """A client on the cluster named, or on a local cluster of worker processes on the loopback interface
    (closed with the client)."""
    from distributed import Client, LocalCluster
    if args.scheduler:
        return Client(args.scheduler, timeout="20s"), None
    workers = args.workers or os.cpu_count() or 1
    cluster = LocalCluster(n_workers=workers, threads_per_worker=1, processes=True, host="127.0.0.1",
                           dashboard_address=None, silence_logs=logging.ERROR,
                           # the scheduler's plain HTTP routes on any free port rather than the dashboard's
                           scheduler_kwargs={"dashboard_address": "127.0.0.1:0"})
    return Client(cluster), cluster


def run(argv: list[str] | None = None) -> int:
    job, args = job_from(sys.argv[1:] if argv is None else argv)
    if len({os.path.splitext(os.path.basename(f))[0] for f in args.files}) != len(args.files):
        print("velqora-batch: two inputs have the same name and would be written to the same outputs: "
              "rename one of them", file=sys.stderr)
        return 2
    os.makedirs(job.out_dir, exist_ok=True)
    remove_partials(job, args.files)
    try:
        client, cluster = _engine(args)
    except ImportError as e:
        print(f"velqora-batch: {e}: it runs on Dask's distributed scheduler (Debian: python3-distributed; "
              "pip: velqora[batch])", file=sys.stderr)
        return 3
    except (OSError, TimeoutError) as e:
        print(f"velqora-batch: no cluster at {args.scheduler}: {e}", file=sys.stderr)
        return 3
    counts = {"ok": 0, "skipped": 0, "failed": 0}
    try:
        workers = max(1, len(client.scheduler_info()["workers"]))
        tasks, now = plan(job, args.files, workers)
        progress = Progress(len(args.files), args.quiet)
        with open(os.path.join(job.out_dir, RECORD), "a", encoding="utf-8") as log:
            def finish(record: dict) -> None:
                written = record.pop("written", 0)
                record["time"] = _now()
                log.write(json.dumps(record) + "\n")
                log.flush()
                counts[record["status"]] += 1
                progress.update(record, written)

            for record in now:
                record["seconds"] = 0.0
                finish(record)
            pending = {}  # input -> [tasks left, the record being gathered]
            for path, _, _ in tasks:
                entry = pending.setdefault(path, [0, None])
                entry[0] += 1
            from distributed import as_completed
            # Workers of a running cluster have working directories of their own: they get absolute paths.
            remote = os.path.abspath if args.scheduler else (lambda path: path)
            futures = client.map(convert_file, [remote(t[0]) for t in tasks], [t[1] for t in tasks],
                                 [t[2] for t in tasks], job=replace(job, out_dir=remote(job.out_dir)), pure=False)
            origin = {f.key: t for f, t in zip(futures, tasks)}
            for future in as_completed(futures):
                path = origin[future.key][0]
                try:
                    part = future.result()
                except Exception as e:  # the task's workers died (KilledWorker) or it raised
                    part = {"input": path, "outputs": [], "frames": 0, "status": "failed",
                            "reason": f"{path}: the task failed on the cluster: {type(e).__name__}: {e}",
                            "seconds": 0.0}
                part["input"] = path  # as the command line gave it
                entry = pending[path]
                entry[0] -= 1
                if entry[1] is None:
                    entry[1] = part
                else:
                    whole = entry[1]
                    whole["outputs"] += part["outputs"]
                    whole["frames"] += part["frames"]
                    whole["written"] = whole.get("written", 0) + part.get("written", 0)
                    whole["seconds"] = round(whole["seconds"] + part["seconds"], 4)
                    if part["status"] == "failed" and whole["status"] != "failed":
                        whole["status"], whole["reason"] = "failed", part["reason"]
                if entry[0] == 0:
                    record = entry[1]
                    record["outputs"].sort()
                    finish(record)
        elapsed = time.monotonic() - progress.start
        progress.close(f"{counts['ok']} converted, {counts['skipped']} skipped, {counts['failed']} failed; "
                       f"{progress.frames} frames in {elapsed:.1f} s ({progress.frames / max(elapsed, 1e-9):.1f} "
                       f"frames/s); record: {os.path.join(job.out_dir, RECORD)}")
    finally:
        client.close()
        if cluster is not None:
            cluster.close()
    return 1 if counts["failed"] else 0


def main(argv: list[str] | None = None) -> int:
    try:
        return run(argv)
    except KeyboardInterrupt:
        print("velqora-batch: interrupted; run again with the same arguments to finish", file=sys.stderr)
        return 130


if __name__ == "__main__":
    sys.exit(main())
