#!/usr/bin/env python3
"""Where a video job's peak memory lies: unwarp against ffmpeg at identical settings.

Runs a job of bench/video-bench.py (V1 unless told) through `unwarp process` and through the
ffmpeg command line at unwarp's logged encoder settings, one after the other, and samples
/proc/PID/status every 20 ms: resident memory split into anonymous (heap, frames, stacks) and
file-backed (the program and its libraries), and the thread count. For each tool it prints the
split at the peak and a timeline of resident memory, so that a difference can be placed in the
base (libraries, start), in the frames in flight (anonymous, during the encode) or in a step
after the encode (thumbnails).

    bench/video-memory.py [--build build/release] [--job V1] [--scratch DIR] [--timeline 20]

The machine is shared: the load averages before and after are printed with the results.
"""

import argparse
import importlib.util
import os
import shutil
import subprocess
import sys
import tempfile
import time

from benchtools import log, loadavg

HERE = os.path.dirname(os.path.abspath(__file__))


def video_bench():
    """bench/video-bench.py as a module: its jobs, inputs and ffmpeg command line."""
    spec = importlib.util.spec_from_file_location("video_bench",
                                                  os.path.join(HERE, "video-bench.py"))
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def status(pid):
    """VmRSS, RssAnon and RssFile in KiB and the thread count of a live process."""
    fields = {}
    with open(f"/proc/{pid}/status") as f:
        for line in f:
            key, _, value = line.partition(":")
            fields[key] = value.split()
    return (int(fields["VmRSS"][0]), int(fields["RssAnon"][0]), int(fields["RssFile"][0]),
            int(fields["Threads"][0]))


def sampled(command, cwd, stderr=subprocess.DEVNULL):
    """Runs a command to its end; returns the wall time, the exit status and the samples, each
    (seconds since start, rss, anon, file, threads)."""
    start = time.monotonic()
    process = subprocess.Popen(command, cwd=cwd, stdout=subprocess.DEVNULL, stderr=stderr)
    samples = []
    while process.poll() is None:
        try:
            samples.append((time.monotonic() - start,) + status(process.pid))
        except (OSError, KeyError, IndexError, ValueError):
            pass  # between exec and exit the fields may be missing
        time.sleep(0.02)
    return time.monotonic() - start, process.returncode, samples


def report(tool, wall, samples, points):
    if not samples:
        log(f"{tool}: no samples")
        return
    peak = max(samples, key=lambda s: s[1])
    log(f"{tool:7} wall {wall:6.2f} s  peak rss {peak[1] / 1024:6.1f} MB = anon "
        f"{peak[2] / 1024:6.1f} + file {peak[3] / 1024:5.1f}  threads {peak[4]:3d} "
        f"(most {max(s[4] for s in samples)}) at {peak[0]:.2f} s")
    step = max(1, len(samples) // points)
    line = "  ".join(f"{s[0]:.1f}:{s[1] / 1024:.0f}" for s in samples[::step])
    log(f"        time:MB  {line}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--build", default=os.path.join(HERE, "..", "build", "release"))
    parser.add_argument("--job", default="V1")
    parser.add_argument("--scratch",
                        default=os.path.join(tempfile.gettempdir(), "unwarp-video-bench"))
    parser.add_argument("--timeline", type=int, default=20, help="timeline points per tool")
    args = parser.parse_args()
    vb = video_bench()
    if args.job not in vb.JOBS:
        sys.exit(f"no job {args.job}; the jobs are " + ", ".join(vb.JOBS))
    scratch = os.path.abspath(args.scratch)
    os.makedirs(scratch, exist_ok=True)
    vb.make_inputs(scratch)
    unwarp = os.path.abspath(os.path.join(args.build, "unwarp"))
    ok, why = vb.unwarp_available(unwarp)
    if not ok:
        sys.exit(why)
    facts = vb.JOBS[args.job]
    src = os.path.join(scratch, facts["input"])
    outdir = os.path.join(scratch, f"memory-{args.job}")
    home = os.path.join(scratch, "memory-home")
    log(f"machine: {os.cpu_count()} cores; load average before: {loadavg()}")

    shutil.rmtree(outdir, ignore_errors=True)
    os.makedirs(outdir)
    errors = os.path.join(scratch, f"memory-{args.job}.log")
    with open(errors, "w") as err:
        wall, code, ours = sampled(
            vb.unwarp_command(unwarp, home, facts["template"], src, outdir, True), scratch, err)
    with open(errors) as err:
        settings = vb.parse_settings(err.read())
    if code != 0 or not settings:
        sys.exit(f"unwarp failed (exit {code}); see {errors}")
    theirs = os.path.join(scratch, f"memory-ffmpeg-{args.job}.{facts['ext']}")
    ff_wall, ff_code, ffmpeg = sampled(vb.ffmpeg_command(args.job, settings, src, theirs),
                                       scratch)
    if ff_code != 0:
        sys.exit(f"ffmpeg failed (exit {ff_code})")
    log(f"\n== {args.job} resident memory (unwarp with --verbose, as video-bench's first run)")
    report("unwarp", wall, ours, args.timeline)
    report("ffmpeg", ff_wall, ffmpeg, args.timeline)
    log(f"\nload average after: {loadavg()}")


if __name__ == "__main__":
    main()
