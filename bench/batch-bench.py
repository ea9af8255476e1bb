#!/usr/bin/env python3
"""The batch run of `unwarp process` against its goals.

  - 50 photos (12 MP JPEG, "Unwarp 1.33x") as one batch: total wall time against the sum of
    50 single `unwarp process` runs of the same photos (goal: at most 1.1x), so that the run,
    the store and the library add under 10 percent;
  - 500 small photos as one batch: the time of the last 50 items against the first 50 (goal:
    within 1.2x), from the per-item `seconds` of the run's JSON lines, so that no per-item cost
    grows with the batch;
  - memory of that 500-photo batch against the result list itself: the heap the run holds
    between items early and late in the run (under heaptrack), which is what the run keeps, per
    result made in between; against the heap that the same home's result list takes in memory
    per result, as the results screen holds it (the store's records and the assets its list is
    built from), counted by build/release/bench/ResultListHeap in the same way heaptrack counts.
    For scale, the peak resident size at the end against the peak when the first item has ended
    (the `[2/500]` line), which also counts the pages the allocator keeps after freeing them, and
    the size of the list's JSON text (`unwarp results list --json`).

    bench/batch-bench.py [--build build/release] [--scratch DIR] [--large 50] [--small 500]

Inputs are made once in the scratch folder; every batch runs in a fresh home there. The machine
is shared: the load average is printed before and after.
"""

import argparse
import json
import os
import shutil
import subprocess
import tempfile
import threading
import time

from benchtools import goal_line, loadavg, log, run, timed


def arguments():
    parser = argparse.ArgumentParser()
    repo = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    parser.add_argument("--build", default=os.path.join(repo, "build", "release"))
    parser.add_argument("--scratch", default=os.path.join(tempfile.gettempdir(), "unwarp-batch-bench"))
    parser.add_argument("--large", type=int, default=50)
    parser.add_argument("--small", type=int, default=500)
    args = parser.parse_args()
    os.makedirs(args.scratch, exist_ok=True)
    return args


def make_photos(folder, count, size, seed_name):
    """`count` JPEGs of `size` in `folder`, made once: one plasma picture, copied under
    numbered names so that each item is its own file."""
    marker = os.path.join(folder, f".made-{count}")
    if os.path.exists(marker):
        return sorted(os.path.join(folder, n) for n in os.listdir(folder) if n.endswith(".jpg"))
    shutil.rmtree(folder, ignore_errors=True)
    os.makedirs(folder)
    first = os.path.join(folder, f"{seed_name}-0000.jpg")
    run(["convert", "-size", size, "plasma:", "-seed", "7", "-quality", "92", first])
    for i in range(1, count):
        shutil.copyfile(first, os.path.join(folder, f"{seed_name}-{i:04d}.jpg"))
    open(marker, "w").close()
    return sorted(os.path.join(folder, n) for n in os.listdir(folder) if n.endswith(".jpg"))


def fresh_home(scratch, name):
    home = os.path.join(scratch, name)
    shutil.rmtree(home, ignore_errors=True)
    os.makedirs(home)
    return home


def peak_kb(pid):
    try:
        with open(f"/proc/{pid}/status") as f:
            for line in f:
                if line.startswith("VmHWM:"):
                    return int(line.split()[1])
    except OSError:
        pass
    return None


def watched_batch(binary, home, folder, count):
    """Runs the batch with --json under GNU time; answers the result lines, the peak kB when
    the first item had ended, the final peak kB and the wall seconds."""
    report = os.path.join(home, ".time")
    command = ["/usr/bin/time", "-f", "%e %M", "-o", report, binary, "--home", home, "process",
               "--template", "uw-133", "--json", folder]
    process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    first = {}
    err_lines = []

    def follow_stderr():
        for line in process.stderr:
            err_lines.append(line)
            # The second item's line: the first has ended. GNU time's child is the program.
            if not first and line.startswith(f"[2/{count}]"):
                for child in children(process.pid):
                    first["kb"] = peak_kb(child)

    reader = threading.Thread(target=follow_stderr)
    reader.start()
    out = process.stdout.read()
    process.wait()
    reader.join()
    if process.returncode != 0:
        raise RuntimeError("batch failed:\n" + "".join(err_lines[-20:]))
    with open(report) as f:
        wall, peak = f.read().split()[-2:]
    lines = [json.loads(l) for l in out.splitlines() if l.strip()]
    return lines, first.get("kb"), int(peak), float(wall)


def held_heap(binary, home, folder, count):
    """The heap the run holds between items, early and late in the run: the same batch under
    heaptrack, its heap snapshots over time, the lowest heap in the window at 10-20 percent of
    the processing time and in the one at 85-95 percent (the floors between items, where no
    picture is in work). Answers (early bytes, late bytes, items that ended between the two),
    or None without heaptrack."""
    if not shutil.which("heaptrack") or not shutil.which("heaptrack_print"):
        return None
    record = os.path.join(home, "heap")
    started, done = timed_item_lines(["heaptrack", "-o", record, binary, "--home", home,
                                      "process", "--template", "uw-133", "--json", folder], count)
    massif = record + ".massif"
    subprocess.run(["heaptrack_print", record + ".zst", "--print-massif", massif],
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
    points, moment = [], None
    with open(massif) as f:
        for line in f:
            if line.startswith("time="):
                moment = float(line.split("=")[1])
            elif line.startswith("mem_heap_B=") and moment is not None:
                points.append((moment, int(line.split("=")[1])))
    # Processing begins when the heap first holds a picture (over 1 MB).
    busy = [t for t, b in points if b > 1 << 20]
    if not busy:
        return None
    start, end = busy[0], points[-1][0]

    def floor(a, b):
        window = [(h, t) for t, h in points
                  if start + a * (end - start) <= t <= start + b * (end - start)]
        return min(window) if window else (None, None)

    (early, early_t), (late, late_t) = floor(0.10, 0.20), floor(0.85, 0.95)
    if early is None or late is None or done is None:
        return None
    # Both clocks meet at the run's end: the summary line, just before the program's last heap
    # snapshot at its exit. Between two floors no item is in work, so the items that started
    # between them have ended by the later one.
    offset = done - end
    between = sum(1 for s in started if early_t < s - offset <= late_t)
    return early, late, between


def timed_item_lines(command, count):
    """Runs `command` and answers the moments (seconds from its start) at which the run's
    `[n/count]` lines came on standard error, and the moment of its summary line ("Done: ...")."""
    begun = time.monotonic()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                               text=True)
    moments, done = [], None
    for line in process.stderr:
        now = time.monotonic() - begun
        if line.startswith("[") and f"/{count}]" in line.split(" ", 1)[0]:
            moments.append(now)
        elif line.startswith("Done:"):
            done = now
    if process.wait() != 0:
        raise RuntimeError(f"{' '.join(command)} failed")
    return moments, done


def result_list_bytes(build, home):
    """The heap the result list of `home` takes in memory, and its count of results."""
    tool = os.path.join(build, "bench", "ResultListHeap")
    if not os.access(tool, os.X_OK):
        log(f"no {tool}; build it first")
        return None
    answer = json.loads(run([tool, home]).stdout)
    return answer["bytes"], answer["results"]


def children(pid):
    found = []
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            with open(f"/proc/{entry}/stat") as f:
                # The parent's pid is the field after the name in parentheses.
                if int(f.read().rsplit(")", 1)[1].split()[1]) == pid:
                    found.append(int(entry))
        except (OSError, IndexError, ValueError):
            pass
    return found


def main():
    args = arguments()
    binary = os.path.join(args.build, "unwarp")
    large = make_photos(os.path.join(args.scratch, "large"), args.large, "4000x3000", "L")
    small_folder = os.path.join(args.scratch, "small")
    make_photos(small_folder, args.small, "320x240", "S")
    log(f"machine: {os.cpu_count()} cores; load average before: {loadavg()}")

    log(f"{args.large} single runs of unwarp process (12 MP JPEG, uw-133) ...")
    singles_home = fresh_home(args.scratch, "home-singles")
    singles = 0.0
    for photo in large:
        wall, _, _ = timed([binary, "--home", singles_home, "process", "--template", "uw-133",
                            photo], args.scratch)
        singles += wall
    log(f"one batch of {args.large} ...")
    batch_home = fresh_home(args.scratch, "home-large")
    batch_wall, batch_cpu, batch_peak = timed(
        [binary, "--home", batch_home, "process", "--template", "uw-133",
         os.path.join(args.scratch, "large")], args.scratch)

    log(f"one batch of {args.small} small photos ...")
    small_home = fresh_home(args.scratch, "home-small")
    lines, first_kb, final_kb, small_wall = watched_batch(binary, small_home, small_folder,
                                                          args.small)
    seconds = [l["seconds"] for l in lines if "seconds" in l]
    tail = min(50, len(seconds) // 2)
    first50 = sum(seconds[:tail])
    last50 = sum(seconds[-tail:])
    listing = run([binary, "--home", small_home, "results", "list", "--json"]).stdout
    json_bytes = len(listing.encode())
    growth_kb = final_kb - first_kb if first_kb is not None else None
    log("the same batch under heaptrack ...")
    heap_home = fresh_home(args.scratch, "home-heap")
    held = held_heap(binary, heap_home, small_folder, args.small)
    in_memory = result_list_bytes(args.build, heap_home)
    per_result = in_memory[0] / max(in_memory[1], 1) if in_memory else None

    ratio = batch_wall / singles if singles else float("nan")
    log(f"\n== batch run ==")
    log(f"{'measure':52} {'value':>14}")
    log(f"{f'{args.large} photos, sum of single runs (s)':52} {singles:14.2f}")
    log(f"{f'{args.large} photos, one batch (s wall / s cpu)':52} {batch_wall:8.2f} / {batch_cpu:.2f}")
    log(f"{'  batch / singles':52} {ratio:14.3f}")
    log(f"{f'{args.small} small photos, one batch (s)':52} {small_wall:14.2f}")
    log(f"{f'  first {tail} items (s)':52} {first50:14.3f}")
    log(f"{f'  last {tail} items (s)':52} {last50:14.3f}")
    log(f"{'  last / first':52} {last50 / first50 if first50 else float('nan'):14.3f}")
    log(f"{'  peak kB after the first item':52} {first_kb if first_kb is not None else 'n/a':>14}")
    log(f"{'  peak kB at the end':52} {final_kb:14d}")
    if in_memory:
        log(f"{'  result list in memory, kB (results)':52} "
            f"{in_memory[0] / 1024:8.0f} ({in_memory[1]})")
        log(f"{'  result list in memory, B a result':52} {per_result:14.0f}")
    log(f"{'  result list as JSON text, kB':52} {json_bytes / 1024:14.0f}")
    if growth_kb is not None and in_memory:
        log(f"{'  peak growth kB / result list kB':52} "
            f"{growth_kb:8.0f} / {in_memory[0] / 1024:.0f}")
    if held:
        log(f"{'  heap held between items, early / late (kB)':52} "
            f"{held[0] / 1024:8.0f} / {held[1] / 1024:.0f}")
        log(f"{'  results made in between':52} {held[2]:14d}")
        if held[2]:
            log(f"{'  heap growth, B a result':52} {(held[1] - held[0]) / held[2]:14.0f}")
    log(f"{'large batch peak kB':52} {batch_peak:14d}")
    log()
    log(goal_line(f"{args.large}-photo batch against single runs", ratio, 1.1, unit="x"))
    if first50:
        log(goal_line(f"last {tail} against first {tail} of {args.small}", last50 / first50, 1.2,
                      unit="x"))
    if held and held[2] and per_result:
        log(goal_line("heap held between items, growth a result against the result list's",
                      (held[1] - held[0]) / held[2] / per_result, 1.0, unit="x"))
    # Resident pages count what the allocator keeps after freeing and the code pages touched
    # later, not what the run holds: shown for scale, the heap above is the goal's measure.
    if growth_kb is not None and in_memory:
        log(f"resident peak growth after the first item, for scale: "
            f"{growth_kb / max(in_memory[0] / 1024, 1e-9):.2f}x the result list")
    log(f"load average after: {loadavg()}")


if __name__ == "__main__":
    main()
