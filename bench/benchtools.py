"""What the side-by-side benchmark scripts share: running and timing commands under GNU
time, the medians of a Google Benchmark kernel program, the load average, and the verdict
line of a goal."""

import json
import os
import subprocess


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


def goal_line(name, value, limit, higher=False, unit=""):
    met = value >= limit if higher else value <= limit
    if met:
        return f"{name}: goal met ({value:.2f}{unit})"
    return f"{name}: gap {value - limit:+.2f}{unit} ({value:.2f}{unit} against {limit:.2f}{unit})"


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
