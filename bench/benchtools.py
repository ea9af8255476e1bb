"""What the side-by-side benchmark scripts share: running and timing commands under GNU
time, the load average, and the verdict line of a goal."""

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
