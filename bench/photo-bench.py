#!/usr/bin/env python3
"""Photo jobs P1-P4 through `unwarp process`, libvips and ImageMagick, side by side.

For each job and tool: the median wall time, CPU time (user + system) and peak memory (GNU
time's maximum resident size) of several runs, the ratios against the peers, how far unwarp is
from the sum of its kernel times (decode + draw + encode, from DrawingBenchmark on the same
inputs), the PSNR of P1 against ImageMagick's Lanczos result of the same geometry, and a verdict
for every goal. Inputs are generated once in the scratch folder.

    bench/photo-bench.py [--build build/release] [--runs 5] [--scratch DIR]

The machine is shared: the load averages before and after are printed with the results.
"""

import argparse
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile

from benchtools import goal_line, kernel_medians, loadavg, log, run, timed

JOBS = {
    # name: input, unwarp template, output extension, source size, output size
    "P1": dict(input="p1.jpg", template="uw-133", ext="jpg", src=(4032, 3024), out=(5363, 3024),
               src_bytes=4, out_bytes=4),
    "P2": dict(input="p2.jpg", template="ig-square", ext="jpg", src=(6000, 4000),
               out=(1080, 1080), src_bytes=4, out_bytes=4),
    "P3": dict(input="p3.png", template=None, ext="png", src=(3000, 2000), out=(1080, 1920),
               src_bytes=8, out_bytes=8),
    "P4": dict(input="p4.heic", template="uw-133", ext="heic", src=(4032, 3024),
               out=(5363, 3024), src_bytes=4, out_bytes=4),
}

# The quality that unwarp's HEIC writer gives libheif for a compression of 0.85 (CRF 22).
HEIC_QUALITY = 56
# unwarp's PNG writer: Paeth filter on every row, zlib level 4 (16-bit pictures: matching runs
# only, within 0.4 % of that size).
PNG_VIPS = "compression=4,filter=paeth"
PNG_MAGICK = "44"
P1_SCALE = 5363 / 4032
P2_SCALE = 1080 / 4000
P3_SCALE = 1080 / 3000


def make_inputs(scratch):
    """Textured pictures made by ImageMagick's plasma fractal, each once."""
    makers = {
        # Chroma halved both ways, as cameras write them (ImageMagick keeps full chroma
        # from quality 90 up unless told).
        "p1.jpg": ["convert", "-seed", "1", "-size", "4032x3024", "plasma:fractal",
                   "-sampling-factor", "2x2", "-quality", "92", "p1.jpg"],
        "p2.jpg": ["convert", "-seed", "2", "-size", "6000x4000", "plasma:fractal",
                   "-sampling-factor", "2x2", "-interlace", "Plane", "-quality", "92", "p2.jpg"],
        "p3.png": ["convert", "-seed", "3", "-size", "3000x2000", "plasma:fractal",
                   "(", "-size", "2000x3000", "gradient:white-gray20", "-rotate", "90", ")",
                   "-alpha", "off", "-compose", "CopyOpacity", "-composite",
                   "-depth", "16", "PNG64:p3.png"],
        "p4.heic": ["convert", "-seed", "4", "-size", "4032x3024", "plasma:fractal",
                    "-quality", "60", "p4.heic"],
    }
    for name, command in makers.items():
        if not os.path.exists(os.path.join(scratch, name)):
            log(f"making {name} ...")
            run(command, cwd=scratch)


def measure(steps, cwd, runs):
    """Median wall, CPU and peak of `runs` runs of a list of commands run one after another."""
    walls, cpus, peaks = [], [], []
    for _ in range(runs):
        wall = cpu = 0.0
        peak = 0
        for command in steps:
            if callable(command):  # untimed preparation
                command()
                continue
            w, c, p = timed(command, cwd)
            wall, cpu, peak = wall + w, cpu + c, max(peak, p)
        walls.append(wall)
        cpus.append(cpu)
        peaks.append(peak)
    return dict(wall=statistics.median(walls), cpu=statistics.median(cpus),
                peak=statistics.median(peaks), walls=walls, cpus=cpus, peaks=peaks)


def vips_steps(job, src, out):
    if job == "P1":
        return [["vips", "resize", src, f"{out}[Q=85]", str(P1_SCALE), "--vscale", "1",
                 "--kernel", "lanczos3"]]
    if job == "P2":
        # Full-size decode and Lanczos-3 as unwarp does; then the centre square.
        return [["vips", "resize", src, "t.v", str(P2_SCALE), "--kernel", "lanczos3"],
                ["vips", "crop", "t.v", f"{out}[Q=85]", "270", "0", "1080", "1080"]]
    if job == "P3":
        # thumbnail premultiplies around its resize; PNG loads have no shrink-on-load.
        return [["vips", "thumbnail", src, "t.v", "1080", "--height", "1920"],
                ["vips", "gravity", "t.v", f"{out}[{PNG_VIPS}]", "centre", "1080", "1920",
                 "--extend", "background", "--background", "0 0 0 0"]]
    return [["vips", "resize", src, f"{out}[Q={HEIC_QUALITY},bitdepth=8]", str(P1_SCALE),
             "--vscale", "1", "--kernel", "lanczos3"]]


def vips_thumbnail_p2(src, out):
    """P2 the way libvips would rather do it: shrink-on-load (DCT scaling) first."""
    return [["vips", "thumbnail", src, f"{out}[Q=85]", "1080", "--height", "1080",
             "--crop", "centre"]]


def magick_steps(job, src, out):
    base = ["convert", src, "-filter", "Lanczos"]
    if job == "P1":
        return [base + ["-resize", "5363x3024!", "-quality", "85", out]]
    if job == "P2":
        return [base + ["-resize", "1080x1080^", "-gravity", "center", "-extent", "1080x1080",
                        "-quality", "85", out]]
    if job == "P3":
        return [base + ["-resize", "1080x1920", "-background", "none", "-gravity", "center",
                        "-extent", "1080x1920", "-quality", PNG_MAGICK, f"PNG64:{out}"]]
    return [base + ["-resize", "5363x3024!", "-quality", str(HEIC_QUALITY), out]]


def p3_template(unwarp, home):
    """A personal template for P3 (1080 x 1920 fit, PNG out); None when it cannot be made."""
    result = subprocess.run([unwarp, "--home", home, "template", "create", "--name", "Bench Fit",
                             "--size", "1080x1920", "--method", "fit", "--photo-format", "png"],
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    if result.returncode != 0:
        return None
    # `template create` prints the new template's key alone.
    key = result.stdout.strip()
    return key if re.fullmatch(r"[0-9A-F-]{36}", key) else None


def unwarp_steps(unwarp, home, template, src, outdir):
    def empty_outdir():
        # Each run writes into an empty folder, so no run meets the previous run's result.
        shutil.rmtree(outdir, ignore_errors=True)
        os.makedirs(outdir)
    return [empty_outdir, [unwarp, "--home", home, "process", "--template", template, "--out",
                           outdir, "--yes", src]]


def kernel_times(build, scratch):
    """Median real and CPU milliseconds of every kernel benchmark, keyed "Decode/P1" etc."""
    return kernel_medians(os.path.join(build, "bench", "DrawingBenchmark"), 3,
                          env=dict(os.environ, UNWARP_BENCH_INPUTS=scratch))


def psnr(a, b):
    result = subprocess.run(["compare", "-metric", "PSNR", a, b, "null:"],
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    match = re.match(r"\s*([0-9.]+|inf)", result.stderr)
    return float(match.group(1)) if match else None


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--build", default=os.path.join(here, "..", "build", "release"))
    parser.add_argument("--runs", type=int, default=5, help="runs per tool and job (P4: at most 3)")
    parser.add_argument("--scratch", default=os.path.join(tempfile.gettempdir(), "unwarp-photo-bench"))
    parser.add_argument("--jobs", default="P1,P2,P3,P4")
    args = parser.parse_args()
    for tool in ("vips", "convert", "compare"):
        if not shutil.which(tool):
            sys.exit(f"{tool} is missing: scripts/bootstrap installs it")

    scratch = os.path.abspath(args.scratch)
    os.makedirs(scratch, exist_ok=True)
    make_inputs(scratch)
    unwarp = os.path.abspath(os.path.join(args.build, "unwarp"))
    if not os.access(unwarp, os.X_OK):
        sys.exit(f"no unwarp binary at {unwarp}; build it first")
    home = os.path.join(scratch, "home")
    # What the program holds before it touches a picture (its shared libraries: the codecs,
    # FFmpeg, x265), to read the jobs' peaks against.
    baseline = timed([unwarp, "--home", home, "info"], scratch)[2]
    cpus = os.cpu_count()
    load_before = loadavg()
    log(f"machine: {cpus} cores; load average before: {load_before}")

    log("\n== kernels (DrawingBenchmark, median of 3 repetitions, ms) ==")
    kernels = kernel_times(args.build, scratch)
    log(f"{'job':4} {'step':10} {'wall':>9} {'cpu':>9}")
    for job in JOBS:
        for step in ("Decode", "Draw", "ZimgFloor", "Encode"):
            k = kernels.get(f"{step}/{job}")
            if k:
                log(f"{job:4} {step:10} {k['real']:9.1f} {k['cpu']:9.1f}")

    templates = {job: facts["template"] for job, facts in JOBS.items()}
    templates["P3"] = p3_template(unwarp, home)
    if templates["P3"] is None:
        sys.exit("`unwarp template create` could not make the 1080 x 1920 fit template of P3")

    results = {}
    for job in args.jobs.split(","):
        facts = JOBS[job]
        runs = min(args.runs, 3) if job == "P4" else args.runs
        src = os.path.join(scratch, facts["input"])
        tools = {
            "vips": vips_steps(job, src, f"vips-{job}.{facts['ext']}"),
            "magick": magick_steps(job, src, f"magick-{job}.{facts['ext']}"),
        }
        if job == "P2":
            tools["vips-thumb"] = vips_thumbnail_p2(src, f"vips-thumb-{job}.jpg")
        tools["unwarp"] = unwarp_steps(unwarp, home, templates[job], src,
                                       os.path.join(scratch, f"unwarp-{job}"))
        results[job] = {}
        for tool, steps in tools.items():
            log(f"running {job} {tool} x{runs} ...")
            try:
                results[job][tool] = measure(steps, scratch, runs)
            except RuntimeError as error:
                log(f"  {tool} failed: {error}")

    load_after = loadavg()
    log(f"\n== every run (wall ms / CPU ms / peak MB; load average at start {load_before}) ==")
    for job, tools in results.items():
        for tool, m in tools.items():
            cells = "  ".join(f"{w * 1000:6.0f} /{c * 1000:6.0f} /{p / 1024:6.1f}"
                              for w, c, p in zip(m["walls"], m["cpus"], m["peaks"]))
            log(f"{job:4} {tool:10} {cells}")
    log(f"\n== jobs (median of {args.runs} runs; wall and CPU in ms, peak in MB) ==")
    log(f"{'job':4} {'tool':10} {'wall':>8} {'cpu':>8} {'peak':>7} {'wall/vips':>10} "
        f"{'wall/magick':>12}")
    log(f"(unwarp's bare program, `unwarp info`, peaks at {baseline / 1024:.1f} MB)")
    verdicts = []
    for job, tools in results.items():
        facts = JOBS[job]
        vips = tools.get("vips")
        magick = tools.get("magick")
        k = [kernels.get(f"{s}/{job}") for s in ("Decode", "Draw", "Encode")]
        kernel_sum = sum(x["real"] for x in k) / 1000 if all(k) else None
        for tool, m in tools.items():
            rv = m["wall"] / vips["wall"] if vips else float("nan")
            rm = m["wall"] / magick["wall"] if magick else float("nan")
            log(f"{job:4} {tool:10} {m['wall']*1000:8.0f} {m['cpu']*1000:8.0f} "
                f"{m['peak']/1024:7.1f} {rv:10.2f} {rm:12.2f}")
        if kernel_sum is not None:
            log(f"{job:4} {'kernels':10} {kernel_sum*1000:8.0f} {'':8} {'':7} "
                f"{kernel_sum/vips['wall'] if vips else float('nan'):10.2f} "
                f"{kernel_sum/magick['wall'] if magick else float('nan'):12.2f}"
                "   (decode + draw + encode)")
        ours = tools.get("unwarp")
        if ours and kernel_sum is not None:
            gap = ours["wall"] - kernel_sum
            log(f"{job:4} unwarp is {gap*1000:+.0f} ms ({gap/kernel_sum*100:+.0f} %) from the sum "
                "of its kernel times")
        if not ours:
            verdicts.append(f"{job}: not measured (unwarp failed)")
            continue
        # The libvips command each job is held against: vipsthumbnail for P2, which shrinks
        # on load as unwarp does; `vips resize` (or thumbnail for P3, HEIC resize for P4) else.
        peer_name = "vips-thumb" if job == "P2" else "vips"
        peer = tools.get(peer_name)
        vips_goal = {"P1": 0.5, "P2": 0.5, "P3": 0.7, "P4": 1.0}[job]
        if peer:
            verdicts.append(goal_line(f"{job} wall <= {vips_goal} x libvips ({peer_name})",
                                      ours["wall"] / peer["wall"], vips_goal))
        if job in ("P1", "P2") and magick:
            verdicts.append(goal_line(f"{job} wall <= 0.2 x ImageMagick",
                                      ours["wall"] / magick["wall"], 0.2))
        if job != "P4" and peer:
            # The program's own base counts: the whole process's peak against libvips'.
            budget = (peer["peak"] + 30 * 1024) / 1024
            verdicts.append(goal_line(
                f"{job} peak <= libvips' {peer['peak'] / 1024:.1f} MB + 30 MB = {budget:.1f} MB",
                ours["peak"] / 1024, budget, unit=" MB"))

    log("\n== quality ==")
    reference = os.path.join(scratch, "magick-P1-reference.png")
    run(["convert", os.path.join(scratch, "p1.jpg"), "-filter", "Lanczos", "-resize",
         "5363x3024!", reference])
    magick_jpeg = psnr(os.path.join(scratch, "magick-P1.jpg"), reference)
    if magick_jpeg is not None:
        log(f"ImageMagick's own P1 JPEG (Q 85) against its lossless result: {magick_jpeg:.2f} dB "
            "(what JPEG alone costs)")
    outdir = os.path.join(scratch, "unwarp-P1")
    files = [f for f in os.listdir(outdir) if f.endswith(".jpg")] \
        if "unwarp" in results.get("P1", {}) else []
    if files:
        value = psnr(os.path.join(outdir, files[0]), reference)
        log(f"unwarp P1 against ImageMagick -filter Lanczos: {value:.2f} dB")
        verdicts.append(goal_line("P1 PSNR >= 40 dB", value, 40, higher=True, unit=" dB"))
    else:
        verdicts.append("P1 PSNR >= 40 dB: not measured (no unwarp output)")

    log("\n== notes ==")
    log("P2: vips resize decodes at full size; vips-thumb and unwarp may shrink on load (DCT "
        "scaling), so P2's goal is held against vips-thumb")
    log("P2: libjpeg keeps every DCT coefficient of a progressive JPEG until its last scan "
        "(about 3 bytes a pixel, 72 MB at 24 MP) beside the decoded bitmap; the libvips row "
        "holds the coefficients too but streams its output")
    log("P3: the peers write PNG with zlib level 4 and the Paeth filter; unwarp filters alike and "
        "deflates its 16-bit result matching runs only (zlib's RLE strategy, within 0.4 % of the "
        "size); "
        "vips thumbnail makes 8-bit output, so vips writes half the bytes that unwarp and "
        "ImageMagick write")
    log(f"P4: all three write HEIC at libheif quality {HEIC_QUALITY} (CRF 22); unwarp sets x265's "
        "preset to ultrafast, which neither vips nor convert can choose (they run libheif's "
        "default preset), so P4's ratios are not at matching presets")
    log(f"\nload average before: {load_before}; after: {load_after} ({cpus} cores)")
    log("\n== goals ==")
    for line in verdicts:
        log(line)


if __name__ == "__main__":
    main()
