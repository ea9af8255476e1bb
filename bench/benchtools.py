"""What the side-by-side benchmark scripts share: running and timing commands under GNU
time, the medians of a Google Benchmark kernel program, the load average, and the verdict
line of a goal."""

import argparse
import json
import os
import subprocess
import tempfile


def store_arguments(name):
    """--build, --runs, --count and --scratch of the scripts that time a generated store of
    `--count` items (a library, a result store) under a scratch folder named after `name`."""
    parser = argparse.ArgumentParser()
    repo = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    parser.add_argument("--build", default=os.path.join(repo, "build", "release"))
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--count", type=int, default=10000)
    parser.add_argument("--scratch", default=os.path.join(tempfile.gettempdir(), f"unwarp-{name}-bench"))
    args = parser.parse_args()
    os.makedirs(args.scratch, exist_ok=True)
    return args


def log(text=""):
    print(text, flush=True)


def run(command, **kwargs):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          text=True, **kwargs)


def timed(command, cwd):
    """Wall seconds, CPU seconds and peak kB of one run under GNU time."""
    report = os.path.join(cwd, ".time")
    result = subprocess.run(["/usr/bin/time", "-f", "%e %U %S %M", "-o", report] + command,
                            cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    if result.returncode != 0:
        raise RuntimeError(f"{' '.join(command)} failed:\n{result.stdout}{result.stderr}")
    with open(report) as f:
        wall, user, system, peak = f.read().split()[-4:]
    return float(wall), float(user) + float(system), int(peak)


def loadavg():
    with open("/proc/loadavg") as f:
        return " ".join(f.read().split()[:3])


def goal_line(name, value, limit, higher=False, unit="", digits=2):
    met = value >= limit if higher else value <= limit
    if met:
        return f"{name}: goal met ({value:.{digits}f}{unit})"
    return (f"{name}: gap {value - limit:+.{digits}f}{unit} ({value:.{digits}f}{unit} against "
            f"{limit:.{digits}f}{unit})")


def kernel_medians(binary, repetitions, env=None):
    """Median real and CPU milliseconds of every benchmark of a Google Benchmark program, keyed
    by the first two parts of its name ("Decode/P1", "FrameScaler/V1-..."); none when the
    program is not built."""
    if not os.access(binary, os.X_OK):
        log(f"no kernel benchmark at {binary}; build it first")
        return {}
    result = run([binary, "--benchmark_format=json", f"--benchmark_repetitions={repetitions}",
                  "--benchmark_report_aggregates_only=true"], env=env)
    times = {}
    for entry in json.loads(result.stdout)["benchmarks"]:
        if entry.get("aggregate_name") == "median":
            name = "/".join(entry["run_name"].split("/")[:2])
            times[name] = dict(real=entry["real_time"], cpu=entry["cpu_time"])
    return times
