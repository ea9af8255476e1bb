#!/usr/bin/env python3
"""The result store with 10,000 results.

A store of 10,000 results in the store's own layout (half photo results, folders "A<uuid>"
holding main/phasset; half local results, folders "B<uuid>" holding main/<file> and a
thumbnail), made once in the scratch folder. Measured:
  - loading it, in process (goal: under 300 ms), and `unwarp results list --json` as a whole
    program run for scale;
  - adding one photo result and one local result (a 640x480 JPEG moved in, its thumbnail
    drawn), each until its disk step has ended (goal: under 5 ms).
The in-process times are medians from ResultStoreBenchmark.

    bench/results-bench.py [--build build/release] [--runs 5] [--scratch DIR] [--count 10000]

The machine is shared: the load average and `uptime` are printed with the results.
"""

import os
import shutil
import statistics
import subprocess
import uuid

from benchtools import goal_line, store_arguments, kernel_medians, loadavg, log, run, timed


def make_store(scratch, count):
    home = os.path.join(scratch, "home")
    results = os.path.join(home, "documents", "results")
    marker = os.path.join(scratch, f".made-{count}")
    if os.path.exists(marker):
        return home, results
    shutil.rmtree(home, ignore_errors=True)
    os.makedirs(results)
    thumb = os.path.join(scratch, "thumb.jpg")
    run(["convert", "-size", "152x114", "gradient:red-blue", thumb])
    with open(thumb, "rb") as f:
        thumb_bytes = f.read()
    log(f"writing {count} results ...")
    for i in range(count):
        photo = i % 2 == 0
        folder = os.path.join(results, ("A" if photo else "B") + str(uuid.uuid4()).upper())
        os.makedirs(os.path.join(folder, "main"))
        if photo:
            with open(os.path.join(folder, "main", "phasset"), "w") as f:
                f.write(f"{uuid.uuid4()}/L0/001".upper())
        else:
            with open(os.path.join(folder, "main", f"IMG_{i:05d}-uwrp.jpg"), "wb") as f:
                f.write(thumb_bytes)
            with open(os.path.join(folder, "thumbnail.jpg"), "wb") as f:
                f.write(thumb_bytes)
    open(marker, "w").close()
    return home, results


def main():
    args = store_arguments("results")
    home, results = make_store(args.scratch, args.count)
    jpeg = os.path.join(args.scratch, "640x480.jpg")
    if not os.path.exists(jpeg):
        run(["convert", "-size", "640x480", "plasma:", "-quality", "90", jpeg])
    load_before = loadavg()
    log(f"machine: {os.cpu_count()} cores; load average before: {load_before}")

    env = dict(os.environ, UNWARP_BENCH_RESULTS=results, UNWARP_BENCH_RESULT_JPEG=jpeg)
    kernels = kernel_medians(os.path.join(args.build, "bench", "ResultStoreBenchmark"), 3, env=env)
    names = dict(load="ResultStoreLoad/iterations:5", photo="ResultStoreAddPhoto/iterations:50",
                 local="ResultStoreAddLocal/iterations:20")
    times = {k: kernels[v] for k, v in names.items()}

    binary = os.path.join(args.build, "unwarp")
    log(f"running unwarp results list x{args.runs} ...")
    listing = statistics.median(
        timed([binary, "--home", home, "results", "list", "--json"], args.scratch)[0]
        for _ in range(args.runs))

    log(f"\n== result store, {args.count} results (median ms) ==")
    log(f"{'measure':44} {'wall':>9} {'cpu':>9}")
    log(f"{'load (new store, count)':44} {times['load']['real']:9.2f} {times['load']['cpu']:9.2f}")
    log(f"{'add a photo result':44} {times['photo']['real']:9.2f} {times['photo']['cpu']:9.2f}")
    log(f"{'add a local result (640x480 JPEG, thumbnail)':44} {times['local']['real']:9.2f} "
        f"{times['local']['cpu']:9.2f}")
    log(f"{'unwarp results list --json (whole run)':44} {listing * 1000:9.1f}")
    log("(in process: wall and CPU ms of the store's calls; the CPU column misses the work on "
        "the store's queue)")
    log(f"\nload average before: {load_before}; after: {loadavg()} ({os.cpu_count()} cores)")
    log("uptime: " + subprocess.run(["uptime"], stdout=subprocess.PIPE, text=True).stdout.strip())
    log("\n== goals ==")
    log(goal_line("load", times["load"]["real"], 300, unit=" ms"))
    log(goal_line("add a photo result", times["photo"]["real"], 5, unit=" ms"))
    log(goal_line("add a local result", times["local"]["real"], 5, unit=" ms"))


if __name__ == "__main__":
    main()
