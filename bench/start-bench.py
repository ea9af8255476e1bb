#!/usr/bin/env python3
"""How light unwarp starts: wall milliseconds and peak resident kB of commands that do little
work (`templates`, `size`, `settings list`, one small photo job), beside the start of libvips
(`vips --version`, `vipsheader`) and ImageMagick (`convert -version`) in the same run, and
whether each command loaded the movie and HEIC module. Goal: `unwarp templates` under 15 ms and
12 MB peak.

    bench/start-bench.py [--build build/release] [--runs 15] [--scratch DIR]

Every command runs --runs times, in turns with the others, so that a change of the machine's
load falls on all of them alike; the table shows medians. The load average is printed before
and after: the machine is shared, and under load the wall times are mostly waiting for a core,
so the CPU time (user + system) is shown beside them.
"""

import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

from benchtools import goal_line, loadavg, log, run

GOAL_MS = 15.0
GOAL_KB = 12 * 1024


def measure(command, report):
    """Wall and CPU (user + system) milliseconds and peak resident kB of one run. It runs under
    GNU time, whose child is small before it executes the command (a child forked from this
    Python would count Python's own pages in its peak); the wall time includes time's start,
    about a millisecond, and the CPU time is the command's as the kernel counted it."""
    start = time.perf_counter()
    child = subprocess.Popen(["/usr/bin/time", "-f", "%M", "-o", report] + command,
                             stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    _, status, usage = os.wait4(child.pid, 0)
    wall = (time.perf_counter() - start) * 1000.0
    err = child.stderr.read().decode(errors="replace")
    child.stderr.close()
    if os.waitstatus_to_exitcode(status) != 0:
        raise RuntimeError(f"{' '.join(command)} failed:\n{err}")
    with open(report) as f:
        peak = int(f.read().split()[-1])
    return wall, (usage.ru_utime + usage.ru_stime) * 1000.0, peak


def loaded_media_module(command):
    """Whether the command mapped the movie and HEIC module or FFmpeg, by the loader's own
    account."""
    env = dict(os.environ, LD_DEBUG="files")
    result = subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                            text=True, env=env)
    return any(name in result.stderr for name in ("unwarp-media.so", "libavcodec", "libheif"))


def main():
    parser = argparse.ArgumentParser()
    repo = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    parser.add_argument("--build", default=os.path.join(repo, "build", "release"))
    parser.add_argument("--runs", type=int, default=15)
    parser.add_argument("--scratch", default=os.path.join(tempfile.gettempdir(), "unwarp-start-bench"))
    args = parser.parse_args()
    unwarp = os.path.join(args.build, "unwarp")
    if not os.access(unwarp, os.X_OK):
        sys.exit(f"no unwarp at {unwarp}; build it first")
    shutil.rmtree(args.scratch, ignore_errors=True)
    home = os.path.join(args.scratch, "home")
    out = os.path.join(args.scratch, "out")
    os.makedirs(home)
    os.makedirs(out)
    photo = os.path.join(args.scratch, "small.jpg")
    run(["convert", "-size", "640x480", "gradient:red-blue", photo])
    base = [unwarp, "--home", home]

    commands = {
        "unwarp templates": base + ["templates"],
        "unwarp size": base + ["size", "--template", "uw-133", "--media", "photo", "--source",
                               "4032x3024"],
        "unwarp settings list": base + ["settings", "list"],
        # A new name each time: the job refuses to overwrite, and the run's cost stays the same.
        "unwarp process (640x480 JPEG)": None,
        "vips --version": ["vips", "--version"],
        "vipsheader (640x480 JPEG)": ["vipsheader", photo],
        "convert -version": ["convert", "-version"],
    }

    log(f"load average at start: {loadavg()}")
    samples = {name: [] for name in commands}
    for i in range(args.runs):
        for name, command in commands.items():
            if command is None:
                folder = os.path.join(out, str(i))
                os.makedirs(folder)
                command = base + ["process", "--template", "uw-133", "--out", folder, photo]
            samples[name].append(measure(command, os.path.join(args.scratch, ".time")))

    log(f"\n{'command':32} {'wall ms':>9} {'CPU ms':>8} {'peak kB':>9}  media module")
    medians = {}
    for name, runs in samples.items():
        wall = statistics.median(r[0] for r in runs)
        cpu = statistics.median(r[1] for r in runs)
        peak = statistics.median(r[2] for r in runs)
        medians[name] = (wall, peak, cpu)
        module = ""
        if name.startswith("unwarp"):
            command = commands[name] or base + ["process", "--template", "uw-133", "--out",
                                                os.path.join(out, "probe"), photo]
            os.makedirs(os.path.join(out, "probe"), exist_ok=True)
            module = "loaded" if loaded_media_module(command) else "not loaded"
        log(f"{name:32} {wall:9.1f} {cpu:8.1f} {peak:9.0f}  {module}")

    log(f"\nload average at end: {loadavg()}")
    wall, peak, cpu = medians["unwarp templates"]
    log(goal_line("templates wall", wall, GOAL_MS, unit=" ms"))
    # On a loaded machine the wall time is mostly waiting for a core; the CPU time is not.
    log(goal_line("templates CPU", cpu, GOAL_MS, unit=" ms"))
    log(goal_line("templates peak", peak / 1024.0, GOAL_KB / 1024.0, unit=" MB"))
    vips_wall = medians["vips --version"][0]
    log(f"templates against vips --version: {wall / vips_wall:.2f}x wall, "
        f"{peak / medians['vips --version'][1]:.2f}x peak")


if __name__ == "__main__":
    main()
