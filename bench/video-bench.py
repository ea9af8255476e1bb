#!/usr/bin/env python3
"""Video jobs V1-V3 through `unwarp process` and the ffmpeg command line, side by side.

V1: an 8-second 1080p30 H.264 clip with AAC through uw-133 (stretch to 2554 x 1080).
V2: a 3-second 4K HEVC 10-bit HLG clip through yt-1080p (1920 x 1080, 10-bit HEVC, HLG kept).
V3: a 1080p H.264 clip with a 90-degree display matrix through ig-reel (1080 x 1920 on screen).

ffmpeg runs at unwarp's own encoder settings for each job: the encoder, speed preset, profile,
average bit rate, key frame interval, frame rate and colour tags that unwarp logs ("~~
compression settings 2: ...") in a first, untimed run, with Lanczos scaling, square pixels, the
audio copied and the template's geometry (scale, then crop or pad). The runs of the two tools
alternate. For each job and tool: the median wall time, CPU time (user + system) and peak
memory (GNU time's maximum resident size), the ratios, ffprobe's view of both outputs, and the
frame scaler against libswscale's Lanczos from build/release/bench/FrameScalerBenchmark.

The floor and the quality: each job's source is scaled once with Lanczos into raw frames in the
encoder's format (the lossless reference). The encoder alone, fed those frames at the same
settings, runs in the same alternation; unwarp's wall time is set against it. The SSIM of
unwarp's and ffmpeg's outputs against the reference is printed beside that of the same encoder
at the preset "medium" and the same bit rate.

    bench/video-bench.py [--build build/release] [--runs 3] [--scratch DIR] [--jobs V1,V2,V3]
                         [--no-kernels] [--no-quality]

The machine is shared: the load averages before and after are printed with the results.
"""

import argparse
import json
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile

from benchtools import goal_line, kernel_medians, loadavg, log, run, timed

JOBS = {
    # input, template, output extension, the displayed output size, arrangement
    "V1": dict(input="v1.mp4", template="uw-133", ext="mp4", size=(2554, 1080), method="stretch",
               codec="h264", bits=8, rotation=0),
    "V2": dict(input="v2.mp4", template="yt-1080p", ext="mp4", size=(1920, 1080), method="fill",
               codec="hevc", bits=10, rotation=0,
               colour=("bt2020", "arib-std-b67", "bt2020nc")),
    "V3": dict(input="v3.mp4", template="ig-reel", ext="mov", size=(1080, 1920), method="fill",
               codec="h264", bits=8, rotation=90),
}

# Where the kernel benchmark's jobs stand against the video jobs.
KERNELS = {
    "V1-8bit-1920x1080-2554x1080": "V1, 8-bit",
    "V1-16bit-1920x1080-2554x1080": "V1 geometry, 16-bit form",
    "V2-16bit-3840x2160-1920x1080": "V2, 16-bit",
}

# unwarp's colour names (AVVideoSettings.h values) as ffmpeg's option values.
PRIMARIES = {"ITU_R_709_2": "bt709", "ITU_R_2020": "bt2020", "P3_D65": "smpte432",
             "SMPTE_C": "smpte170m"}
TRANSFERS = {"ITU_R_709_2": "bt709", "ITU_R_2100_HLG": "arib-std-b67",
             "SMPTE_ST_2084_PQ": "smpte2084"}
MATRICES = {"ITU_R_709_2": "bt709", "ITU_R_601_4": "smpte170m", "ITU_R_2020": "bt2020nc"}


def make_inputs(scratch):
    """The three clips, each made once: moving test patterns with grain, so that the encoders
    and filters do real work, and a sine tone as AAC."""
    grain = "noise=alls=10:allf=t"
    makers = {
        "v1.mp4": ["ffmpeg", "-nostdin", "-y", "-loglevel", "error",
                   "-f", "lavfi", "-i", f"testsrc2=size=1920x1080:rate=30:duration=8,{grain}",
                   "-f", "lavfi", "-i", "sine=frequency=440:sample_rate=48000:duration=8",
                   "-c:v", "libx264", "-preset", "veryfast", "-b:v", "12M", "-pix_fmt", "yuv420p",
                   "-color_primaries", "bt709", "-color_trc", "bt709", "-colorspace", "bt709",
                   "-c:a", "aac", "-b:a", "128k", "-shortest", "v1.mp4"],
        "v2.mp4": ["ffmpeg", "-nostdin", "-y", "-loglevel", "error",
                   "-f", "lavfi", "-i", f"testsrc2=size=3840x2160:rate=30:duration=3,{grain}",
                   "-f", "lavfi", "-i", "sine=frequency=440:sample_rate=48000:duration=3",
                   "-c:v", "libx265", "-preset", "ultrafast", "-b:v", "30M",
                   "-x265-params", "log-level=error", "-pix_fmt", "yuv420p10le",
                   "-color_primaries", "bt2020", "-color_trc", "arib-std-b67",
                   "-colorspace", "bt2020nc", "-tag:v", "hvc1",
                   "-c:a", "aac", "-b:a", "128k", "-shortest", "v2.mp4"],
        "v3-upright.mp4": ["ffmpeg", "-nostdin", "-y", "-loglevel", "error",
                           "-f", "lavfi", "-i",
                           f"testsrc2=size=1920x1080:rate=30:duration=5,{grain}",
                           "-f", "lavfi", "-i", "sine=frequency=660:sample_rate=48000:duration=5",
                           "-c:v", "libx264", "-preset", "veryfast", "-b:v", "12M",
                           "-pix_fmt", "yuv420p", "-c:a", "aac", "-b:a", "128k", "-shortest",
                           "v3-upright.mp4"],
        # The display matrix only: the mov muxer writes a "rotate" tag as the track's matrix
        # (clockwise, as a phone held upright records).
        "v3.mp4": ["ffmpeg", "-nostdin", "-y", "-loglevel", "error", "-i", "v3-upright.mp4",
                   "-c", "copy", "-metadata:s:v:0", "rotate=90", "v3.mp4"],
    }
    for name, command in makers.items():
        if not os.path.exists(os.path.join(scratch, name)):
            log(f"making {name} ...")
            run(command, cwd=scratch)


def summary(samples):
    walls, cpus, peaks = zip(*samples)
    return dict(wall=statistics.median(walls), cpu=statistics.median(cpus),
                peak=statistics.median(peaks), walls=list(walls))


def probe(path):
    """ffprobe's streams of a movie, as a dict of the facts the benchmark checks."""
    out = run(["ffprobe", "-v", "error", "-show_streams", "-show_format", "-of", "json",
               path]).stdout
    data = json.loads(out)
    video = next((s for s in data["streams"] if s["codec_type"] == "video"), None)
    audio = next((s for s in data["streams"] if s["codec_type"] == "audio"), None)
    facts = dict(audio=audio["codec_name"] if audio else None)
    if not video:
        return facts
    rotation = 0
    for side in video.get("side_data_list", []):
        if "rotation" in side:
            rotation = int(round(float(side["rotation"])))
    pix = video.get("pix_fmt", "")
    facts.update(
        width=video["width"], height=video["height"], codec=video["codec_name"],
        profile=video.get("profile"), pix_fmt=pix, bits=10 if "10" in pix else 8,
        sar=video.get("sample_aspect_ratio", "1:1"), rotation=rotation,
        primaries=video.get("color_primaries"), transfer=video.get("color_transfer"),
        matrix=video.get("color_space"), range=video.get("color_range"),
        bit_rate=int(video["bit_rate"]) if video.get("bit_rate", "").isdigit() else None,
        frames=int(video["nb_frames"]) if video.get("nb_frames", "").isdigit() else None,
        tag=video.get("codec_tag_string"))
    return facts


def encoder_options_logged(path):
    """The options x264 or x265 wrote into the stream's first SEI ("... options: cabac=1 ..."),
    as a dict, or None when the file carries none."""
    with open(path, "rb") as f:
        head = f.read(16 << 20)
    match = re.search(rb"(?:x264 - core|x265 \(build)[^\x00]*?options: ([^\x00\x80]*)", head)
    if not match:
        return None
    options = {}
    for item in match.group(1).decode("latin-1").split():
        key, _, value = item.partition("=")
        options[key] = value
    return options


def options_difference(ours, theirs):
    """The encoder options that differ between two outputs, as "key: ours/theirs" texts."""
    if ours is None or theirs is None:
        return None
    keys = sorted(set(ours) | set(theirs))
    return [f"{k}: {ours.get(k, '-')}/{theirs.get(k, '-')}" for k in keys
            if ours.get(k) != theirs.get(k)]


def displayed(facts):
    """The size on screen: the stored size turned by the display matrix."""
    w, h = facts["width"], facts["height"]
    return (h, w) if abs(facts["rotation"]) % 180 == 90 else (w, h)


def audio_md5(path):
    """MD5 of the audio packets as stored, or None when there is no audio."""
    result = subprocess.run(["ffmpeg", "-nostdin", "-loglevel", "error", "-i", path, "-map",
                             "0:a:0", "-c", "copy", "-f", "md5", "-"],
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    return result.stdout.strip() if result.returncode == 0 else None


def unwarp_available(unwarp):
    if not os.access(unwarp, os.X_OK):
        return False, f"no unwarp binary at {unwarp}; build it first"
    return True, ""


def unwarp_command(unwarp, home, template, src, outdir, verbose=False):
    return ([unwarp] + (["--verbose"] if verbose else []) +
            ["--home", home, "process", "--template", template, "--out", outdir, "--yes", src])


def parse_settings(stderr):
    """The encoder settings unwarp logged for its video track."""
    line = next((l for l in stderr.splitlines() if "compression settings 2:" in l), None)
    if line is None:
        return None
    text = line.split("compression settings 2:", 1)[1]

    def value(key):
        # The log prints dictionaries as {Key = value; ...}.
        match = re.search(r"(?<![A-Za-z])" + re.escape(key) + r" = ([^;{}]+)", text)
        return match.group(1).strip() if match else None

    settings = dict(
        codec=value("AVVideoCodecKey"), width=value("AVVideoWidthKey"),
        height=value("AVVideoHeightKey"), bit_rate=value("AverageBitRate"),
        profile=value("ProfileLevel"), keyint=value("MaxKeyFrameInterval"),
        fps=value("ExpectedFrameRate"), preset=value("EncoderSpeedPreset"),
        params=value("EncoderParameters"), reordering=value("AllowFrameReordering"),
        primaries=value("ColorPrimaries"), transfer=value("TransferFunction"),
        matrix=value("YCbCrMatrix"), raw=text.strip())
    return settings


def geometry_filter(job, settings):
    """The template's geometry as an ffmpeg filter: scale, then crop or pad, square pixels."""
    w, h = stored_size(settings)
    method = JOBS[job]["method"]
    if method == "stretch":
        geometry = f"scale={w}:{h}"
    elif method == "fill":
        geometry = f"scale={w}:{h}:force_original_aspect_ratio=increase,crop={w}:{h}"
    else:
        geometry = (f"scale={w}:{h}:force_original_aspect_ratio=decrease,"
                    f"pad={w}:{h}:(ow-iw)/2:(oh-ih)/2")
    return f"{geometry},setsar=1"


def stored_size(settings):
    return int(float(settings["width"])), int(float(settings["height"]))


def raw_format(job):
    return "yuv420p10le" if JOBS[job]["bits"] > 8 else "yuv420p"


def is_hevc(settings):
    codec = settings["codec"] or ""
    return "hvc1" in codec or "hevc" in codec.lower()


def encoder_options(job, settings, preset=None):
    """The video encoder's options at unwarp's settings; `preset` replaces the speed preset."""
    preset = preset or settings["preset"] or "medium"
    if is_hevc(settings):
        params = "log-level=error" + (f":{settings['params']}" if settings["params"] else "")
        command = ["-c:v", "libx265", "-preset", preset, "-x265-params", params, "-tag:v", "hvc1"]
    else:
        profile = "main" if settings["profile"] and "Main" in settings["profile"] else "high"
        command = ["-c:v", "libx264", "-preset", preset, "-profile:v", profile]
        if settings["params"]:
            command += ["-x264-params", settings["params"]]
    command += ["-pix_fmt", raw_format(job)]
    if settings["bit_rate"]:
        command += ["-b:v", str(int(float(settings["bit_rate"])))]
    if settings["keyint"]:
        command += ["-g", str(int(float(settings["keyint"])))]
    if settings["reordering"] in ("0", "false", "NO"):
        command += ["-bf", "0"]
    for option, table, key in (("-color_primaries", PRIMARIES, "primaries"),
                               ("-color_trc", TRANSFERS, "transfer"),
                               ("-colorspace", MATRICES, "matrix")):
        if settings[key] in table:
            command += [option, table[settings[key]]]
    return command + ["-color_range", "tv"]


def ffmpeg_command(job, settings, src, out):
    """The ffmpeg command line at unwarp's encoder settings and the template's geometry."""
    # unwarp keeps the pixels as they lie and writes the display matrix; so does ffmpeg without
    # autorotation, which copies the matrix.
    command = ["ffmpeg", "-nostdin", "-y", "-loglevel", "error", "-noautorotate", "-i", src,
               "-sws_flags", "lanczos", "-vf", geometry_filter(job, settings)]
    return command + encoder_options(job, settings) + ["-c:a", "copy", out]


def reference_command(job, settings, src, raw):
    """The lossless reference: the source through the same geometry with Lanczos, as raw
    frames in the encoder's format. It is also what the encoder alone is fed."""
    return ["ffmpeg", "-nostdin", "-y", "-loglevel", "error", "-noautorotate", "-i", src,
            "-sws_flags", "lanczos+accurate_rnd+full_chroma_int", "-vf",
            geometry_filter(job, settings), "-an", "-pix_fmt", raw_format(job), "-f", "rawvideo",
            raw]


def raw_input(job, settings, raw):
    w, h = stored_size(settings)
    rate = settings["fps"] and float(settings["fps"]) or 30.0
    return ["-f", "rawvideo", "-pix_fmt", raw_format(job), "-s", f"{w}x{h}", "-r", f"{rate:g}",
            "-i", raw]


def encoder_alone_command(job, settings, raw, out, preset=None):
    """The encoder fed the scaled frames at unwarp's settings (or another preset): the floor
    that decoding, scaling and muxing can at best hide behind."""
    return (["ffmpeg", "-nostdin", "-y", "-loglevel", "error"] + raw_input(job, settings, raw) +
            encoder_options(job, settings, preset) + [out])


def ssim(job, settings, movie, raw):
    """SSIM (all planes) of a movie's stored frames against the raw reference."""
    command = (["ffmpeg", "-nostdin", "-loglevel", "info", "-noautorotate", "-i", movie] +
               raw_input(job, settings, raw) +
               ["-lavfi", "[0:v][1:v]ssim", "-f", "null", "-"])
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    match = re.search(r"SSIM .* All:([0-9.]+)", result.stderr)
    return float(match.group(1)) if match else None


def measure_quality(job, settings, raw, outputs, alone):
    """SSIM of unwarp's and ffmpeg's outputs, and of the encoder at "medium" on the reference
    at the same bit rate (the encoder-alone output where unwarp's preset is medium already)."""
    preset = settings["preset"] or "medium"
    if preset != "medium":
        run(encoder_alone_command(job, settings, raw, alone, "medium"))
    q = dict(preset=preset, codec="x265" if is_hevc(settings) else "x264",
             medium=ssim(job, settings, alone, raw))
    for tool, facts in outputs.items():
        q[tool] = ssim(job, settings, facts["path"], raw)
    return q


def kernel_times(build):
    """Median real milliseconds of every frame scaler benchmark, keyed "FrameScaler/V1-..."."""
    return kernel_medians(os.path.join(build, "bench", "FrameScalerBenchmark"), 5)


def check_output(job, facts, source_md5):
    """What the job promises of unwarp's output, each fact with ok or the difference."""
    want = JOBS[job]
    checks = []

    def check(name, got, expected):
        checks.append((name, got == expected, f"{got}" + ("" if got == expected
                                                          else f" (expected {expected})")))

    check("size on screen", displayed(facts), tuple(want["size"]))
    check("even sides", facts["width"] % 2 == 0 and facts["height"] % 2 == 0, True)
    check("SAR", facts["sar"], "1:1")
    check("codec", facts["codec"], want["codec"])
    check("bit depth", facts["bits"], want["bits"])
    check("display rotation", abs(facts["rotation"]), want["rotation"])
    if "colour" in want:
        check("colour tags", (facts["primaries"], facts["transfer"], facts["matrix"]),
              want["colour"])
    check("audio packets copied", audio_md5(facts["path"]), source_md5)
    return checks


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--build", default=os.path.join(here, "..", "build", "release"))
    parser.add_argument("--runs", type=int, default=3, help="timed runs per tool and job")
    parser.add_argument("--scratch",
                        default=os.path.join(tempfile.gettempdir(), "unwarp-video-bench"))
    parser.add_argument("--jobs", default="V1,V2,V3")
    parser.add_argument("--no-kernels", action="store_true", help="skip FrameScalerBenchmark")
    parser.add_argument("--no-quality", action="store_true",
                        help="skip the encoder alone and the SSIM against the reference")
    args = parser.parse_args()
    for tool in ("ffmpeg", "ffprobe", "/usr/bin/time"):
        if not shutil.which(tool):
            sys.exit(f"{tool} is missing: scripts/bootstrap installs it")

    scratch = os.path.abspath(args.scratch)
    os.makedirs(scratch, exist_ok=True)
    make_inputs(scratch)
    unwarp = os.path.abspath(os.path.join(args.build, "unwarp"))
    have_unwarp, why = unwarp_available(unwarp)
    if not have_unwarp:
        sys.exit(why)
    home = os.path.join(scratch, "home")
    cpus = os.cpu_count()
    load_before = loadavg()
    log(f"machine: {cpus} cores; load average before: {load_before}")

    results, probes, commands, verdicts, quality = {}, {}, {}, [], {}
    for job in args.jobs.split(","):
        facts = JOBS[job]
        src = os.path.join(scratch, facts["input"])
        outdir = os.path.join(scratch, f"unwarp-{job}")
        shutil.rmtree(outdir, ignore_errors=True)
        os.makedirs(outdir)
        # The first run is untimed: it tells the encoder settings and leaves the output.
        first = subprocess.run(unwarp_command(unwarp, home, facts["template"], src, outdir, True),
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        settings = parse_settings(first.stderr)
        movies = [f for f in os.listdir(outdir) if f.endswith("." + facts["ext"])]
        if first.returncode != 0 or not settings or not movies:
            log(f"{job}: unwarp failed (exit {first.returncode}):\n{first.stdout}{first.stderr}")
            continue
        ours = os.path.join(outdir, movies[0])
        theirs = os.path.join(scratch, f"ffmpeg-{job}.{facts['ext']}")
        ffmpeg = ffmpeg_command(job, settings, src, theirs)
        commands[job] = dict(settings=settings["raw"], ffmpeg=ffmpeg)
        timed_unwarp = unwarp_command(unwarp, home, facts["template"], src, outdir)
        samples = {"unwarp": [], "ffmpeg": []}
        raw = os.path.join(scratch, f"reference-{job}.yuv")
        alone = os.path.join(scratch, f"encoder-{job}.{facts['ext']}")
        if not args.no_quality:
            log(f"making the {job} reference (Lanczos, lossless) ...")
            run(reference_command(job, settings, src, raw))
            encoder = encoder_alone_command(job, settings, raw, alone)
            commands[job]["encoder"] = encoder
            samples["encoder"] = []
        log(f"running {job} " + ", ".join(samples) + f", alternating, x{args.runs} ...")
        try:
            for _ in range(args.runs):
                # unwarp numbers its outputs when the name is taken: keep one.
                for f in os.listdir(outdir):
                    os.remove(os.path.join(outdir, f))
                samples["unwarp"].append(timed(timed_unwarp, scratch))
                samples["ffmpeg"].append(timed(ffmpeg, scratch))
                if "encoder" in samples:
                    samples["encoder"].append(timed(encoder, scratch))
        except RuntimeError as error:
            log(f"  {job} failed: {error}")
            continue
        results[job] = {tool: summary(s) for tool, s in samples.items()}
        movies = [f for f in os.listdir(outdir) if f.endswith("." + facts["ext"])]
        probes[job] = {}
        for tool, path in (("unwarp", os.path.join(outdir, movies[0])), ("ffmpeg", theirs)):
            probes[job][tool] = dict(probe(path), path=path)
        if not args.no_quality:
            quality[job] = measure_quality(job, settings, raw, probes[job], alone)
            os.remove(raw)

    kernels = {} if args.no_kernels else kernel_times(args.build)
    load_after = loadavg()

    log("\n== encoder settings (unwarp's log) and the matching ffmpeg command ==")
    for job, c in commands.items():
        log(f"{job} unwarp: {c['settings']}")
        log(f"{job} ffmpeg: {' '.join(c['ffmpeg'])}")

    log("\n== jobs (median of runs; wall and CPU in s, peak in MB; encoder: the encoder alone "
        "fed the scaled frames) ==")
    log(f"{'job':4} {'tool':7} {'wall':>7} {'cpu':>7} {'peak':>7} {'wall/ff':>8} {'cpu/ff':>7} "
        f"{'peak/ff':>8}   walls")
    for job, tools in results.items():
        ff = tools["ffmpeg"]
        for tool, m in tools.items():
            log(f"{job:4} {tool:7} {m['wall']:7.2f} {m['cpu']:7.2f} {m['peak']/1024:7.1f} "
                f"{m['wall']/ff['wall']:8.2f} {m['cpu']/ff['cpu']:7.2f} "
                f"{m['peak']/ff['peak']:8.2f}   " + " ".join(f"{w:.2f}" for w in m["walls"]))
        ours = tools["unwarp"]
        verdicts.append(goal_line(f"{job} wall <= 1.0 x ffmpeg", ours["wall"] / ff["wall"], 1.0))
        verdicts.append(goal_line(f"{job} peak memory <= ffmpeg's", ours["peak"] / 1024,
                                  ff["peak"] / 1024, unit=" MB"))
        if "encoder" in tools:
            verdicts.append(goal_line(f"{job} wall <= 1.05 x the encoder alone",
                                      ours["wall"] / tools["encoder"]["wall"], 1.05))
        if job == "V1":
            verdicts.append(goal_line("V1 in at most 8 s", ours["wall"], 8.0, unit=" s"))
            # On a shared machine the wall time says more about the others' load: the CPU time
            # spread over every core is what the run would take with the machine to itself.
            verdicts.append(goal_line(f"V1 in at most 8 s, estimated as CPU time / {cpus} cores",
                                      ours["cpu"] / cpus, 8.0, unit=" s"))

    if quality:
        log("\n== quality (SSIM, all planes, against the source scaled with Lanczos, lossless) ==")
        log(f"{'job':4} {'preset':>9} {'unwarp':>8} {'ffmpeg':>8} {'medium':>8} {'gap':>7}")
        for job, q in quality.items():
            def text(v):
                return f"{v:.4f}" if v is not None else "?"
            gap = (q["medium"] - q["unwarp"]
                   if q["medium"] is not None and q["unwarp"] is not None else None)
            log(f"{job:4} {q['preset']:>9} {text(q['unwarp']):>8} {text(q['ffmpeg']):>8} "
                f"{text(q['medium']):>8} {('%+.4f' % gap) if gap is not None else '?':>7}")
            if gap is None:
                verdicts.append(f"{job} SSIM within 0.002 of medium: not measured")
            else:
                verdicts.append(goal_line(f"{job} SSIM within 0.002 of {q['codec']} medium", gap,
                                          0.002, digits=4))
        log("medium: the same encoder at the preset \"medium\" and the same bit rate, fed the "
            "reference")

    log("\n== encoder options the encoder logged in each output (unwarp/ffmpeg) ==")
    for job, tools in probes.items():
        difference = options_difference(encoder_options_logged(tools["unwarp"]["path"]),
                                        encoder_options_logged(tools["ffmpeg"]["path"]))
        if difference is None:
            verdicts.append(f"{job} encoder options: not found in the outputs")
        elif difference:
            log(f"{job}: " + "; ".join(difference))
            verdicts.append(f"{job} encoder options: {len(difference)} differ, not like with like")
        else:
            log(f"{job}: identical")
            verdicts.append(f"{job} encoder options: identical in both runs")

    log("\n== outputs (ffprobe) ==")
    log(f"{'job':4} {'tool':7} {'stored':>10} {'shown':>10} {'rot':>4} {'SAR':>5} {'codec':>5} "
        f"{'profile':>8} {'pix_fmt':>12} {'colour (primaries/transfer/matrix/range)':>44} "
        f"{'Mb/s':>6} {'frames':>6} {'audio':>5}")
    for job, tools in probes.items():
        for tool, p in tools.items():
            shown = "x".join(map(str, displayed(p)))
            colour = f"{p['primaries']}/{p['transfer']}/{p['matrix']}/{p['range']}"
            rate = f"{p['bit_rate']/1e6:.1f}" if p["bit_rate"] else "?"
            log(f"{job:4} {tool:7} {p['width']:>4}x{p['height']:<5} {shown:>10} "
                f"{p['rotation']:>4} {p['sar']:>5} {p['codec']:>5} {str(p['profile']):>8} "
                f"{p['pix_fmt']:>12} {colour:>44} {rate:>6} {str(p['frames']):>6} "
                f"{str(p['audio']):>5}")
    log("")
    for job, tools in probes.items():
        source_md5 = audio_md5(os.path.join(scratch, JOBS[job]["input"]))
        checks = check_output(job, tools["unwarp"], source_md5)
        bad = [f"{name}: {text}" for name, ok, text in checks if not ok]
        good = ", ".join(f"{name} {text}" for name, ok, text in checks if ok)
        log(f"{job} unwarp output: " + ("all as expected" if not bad else "NOT as expected"))
        log(f"     ok: {good}")
        for line in bad:
            log(f"     wrong: {line}")
        verdicts.append(f"{job} output checks: " + ("passed" if not bad else
                                                    f"{len(bad)} failed"))

    if kernels:
        log("\n== frame scaler per frame (FrameScalerBenchmark, median of 5, ms) ==")
        log(f"{'kernel job':30} {'scaler':>8} {'sws same':>9} {'sws 3-pl':>9} {'ratio':>6} "
            f"{'vs 3-pl':>8}")
        for name, label in KERNELS.items():
            ours = kernels.get(f"FrameScaler/{name}")
            sws = kernels.get(f"SwsLanczos/{name}")
            planar = kernels.get(f"SwsLanczosPlanar/{name}")
            if not ours or not sws:
                verdicts.append(f"frame scaler {label}: not measured")
                continue
            ratio = ours["real"] / sws["real"]
            pratio = ours["real"] / planar["real"] if planar else float("nan")
            log(f"{name:30} {ours['real']:8.2f} {sws['real']:9.2f} "
                f"{planar['real'] if planar else float('nan'):9.2f} {ratio:6.2f} {pratio:8.2f}")
            verdicts.append(goal_line(f"frame scaler <= 0.7 x swscale Lanczos, {label}", ratio,
                                      0.7))
        log("sws same: sws_scale on the scaler's own biplanar formats (NV12, P010); sws 3-pl: on "
            "three planes (yuv420p, yuv420p10), which is what the ffmpeg command line scales")

    log(f"\nload average before: {load_before}; after: {load_after} ({cpus} cores)")
    log("\n== goals ==")
    for line in verdicts:
        log(line)


if __name__ == "__main__":
    main()
