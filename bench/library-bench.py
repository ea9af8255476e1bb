#!/usr/bin/env python3
"""The photo library against its peers, side by side.

A generated library of 10,000 small photos (EXIF-dated JPEGs in one album folder):
  - first open (full scan into a new catalogue) against `exiftool -fast2 -r` reading the same
    tree's dates (goal: at most 2x);
  - reopen with nothing changed (goal: under 200 ms);
  - listing the album of 10,000 (goal: under 50 ms);
and a 256-pixel thumbnail of a 12 MP JPEG against `vipsthumbnail` at the same size, both
writing PNG (goal: at most 0.5x). The library's times are in-process medians from
LibraryBenchmark; the peers are whole program runs (median wall time under GNU time), so
their start-up is part of their figure.

    bench/library-bench.py [--build build/release] [--runs 5] [--scratch DIR] [--count 10000]

The machine is shared: the load average and `uptime` are printed with the results.
"""

import os
import shutil
import statistics
import subprocess

from benchtools import goal_line, store_arguments, kernel_medians, loadavg, log, run, timed


def make_library(scratch, count):
    root = os.path.join(scratch, "library")
    camera = os.path.join(root, "Camera")
    marker = os.path.join(root, f".made-{count}")
    if os.path.exists(marker):
        return root
    shutil.rmtree(root, ignore_errors=True)
    os.makedirs(camera)
    seed = os.path.join(scratch, "seed.jpg")
    run(["convert", "-size", "160x120", "gradient:red-blue", seed])
    run(["exiftool", "-q", "-overwrite_original", "-DateTimeOriginal=2024:05:01 10:20:30",
         "-Make=Bench", "-Model=Camera", seed])
    with open(seed, "rb") as f:
        data = f.read()
    log(f"writing {count} photos ...")
    for i in range(count):
        with open(os.path.join(camera, f"IMG_{i:05d}.jpg"), "wb") as f:
            f.write(data)
    open(marker, "w").close()
    return root


def make_big_jpeg(scratch):
    folder = os.path.join(scratch, "big")
    path = os.path.join(folder, "12mp.jpg")
    if not os.path.exists(path):
        os.makedirs(folder, exist_ok=True)
        log("making the 12 MP JPEG ...")
        run(["convert", "-size", "4000x3000", "plasma:", "-quality", "90", path])
    return path


def median_wall(command, cwd, runs):
    return statistics.median(timed(command, cwd)[0] for _ in range(runs))


def main():
    args = store_arguments("library")
    root = make_library(args.scratch, args.count)
    big = make_big_jpeg(args.scratch)
    load_before = loadavg()
    log(f"machine: {os.cpu_count()} cores; load average before: {load_before}")

    log(f"running exiftool -fast2 -r x{args.runs} ...")
    exiftool = median_wall(["exiftool", "-fast2", "-r", "-q", "-DateTimeOriginal", "-CreateDate",
                            "-FileModifyDate", "-T", root], args.scratch, args.runs)
    log(f"running vipsthumbnail x{args.runs} ...")
    out = os.path.join(args.scratch, "vips-thumb.png")
    vips = median_wall(["vipsthumbnail", big, "-s", "256", "-o", out], args.scratch, args.runs)

    env = dict(os.environ, UNWARP_BENCH_LIBRARY=root, UNWARP_BENCH_THUMBNAIL=big)
    kernels = kernel_medians(os.path.join(args.build, "bench", "LibraryBenchmark"), 3, env=env)
    names = dict(first="LibraryOpenFirst/iterations:1", reopen="LibraryReopen/iterations:3",
                 listing="LibraryAlbumList/iterations:10", thumb="LibraryThumbnail256/iterations:5")
    first, reopen, listing, thumb = (kernels[names[k]]["real"] for k in ("first", "reopen", "listing", "thumb"))
    cpu = {k: kernels[v]["cpu"] for k, v in names.items()}

    log(f"\n== photo library, {args.count} photos (median ms) ==")
    log(f"{'measure':34} {'unwarp':>9} {'cpu':>9} {'peer':>9} {'ratio':>7}")
    log(f"{'first open / exiftool -fast2 -r':34} {first:9.1f} {cpu['first']:9.1f} {exiftool * 1000:9.1f} "
        f"{first / (exiftool * 1000):7.2f}")
    log(f"{'reopen, nothing changed':34} {reopen:9.1f} {cpu['reopen']:9.1f}")
    log(f"{'list the album':34} {listing:9.1f} {cpu['listing']:9.1f}")
    log(f"{'256-px thumbnail of 12 MP / vips':34} {thumb:9.1f} {cpu['thumb']:9.1f} {vips * 1000:9.1f} "
        f"{thumb / (vips * 1000):7.2f}")
    log("(unwarp: wall and CPU ms in process; peers: wall ms of whole runs)")
    log(f"\nload average before: {load_before}; after: {loadavg()} ({os.cpu_count()} cores)")
    log("uptime: " + subprocess.run(["uptime"], stdout=subprocess.PIPE, text=True).stdout.strip())
    log("\n== goals ==")
    log(goal_line("first open / exiftool", first / (exiftool * 1000), 2.0, unit="x"))
    log(goal_line("reopen", reopen, 200, unit=" ms"))
    log(goal_line("album list", listing, 50, unit=" ms"))
    log(goal_line("thumbnail / vipsthumbnail", thumb / (vips * 1000), 0.5, unit="x"))


if __name__ == "__main__":
    main()
