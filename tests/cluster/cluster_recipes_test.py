#!/usr/bin/env python3
"""Runs the cluster recipes of docs/cluster locally, every array index at once, and checks that
they give what one unsharded run gives, file for file.

The Slurm script runs as it stands under bash, with the SLURM_ARRAY_* variables set for each
index of its --array. The Kubernetes Job's container command runs as written, with
$(JOB_COMPLETION_INDEX) replaced by each completion index and every path under a volume's mount
moved to a local folder: the shared claim to one folder for all pods, each emptyDir to a
folder of its pod. No cluster and no network take part.

Usage: cluster_recipes_test.py UNWARP_BINARY
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

import yaml

RECIPES = pathlib.Path(__file__).resolve().parents[2] / "docs" / "cluster"
UNWARP = None

# Mixed names, one in a subfolder, of several sizes and two formats.
PHOTOS = ["IMG_0001.jpg", "IMG_0002.JPG", "IMG_0010.jpg", "beach day.png", "Été 2024.jpg",
          "a-uwrp-2.jpg", "DSC_2468.jpg", "scan.png", "x.jpeg", "café+crème.png",
          "20240820_101500.jpg", "sub/inner.jpg"]


def shard_of(key, count):
    """The slice of an input as docs/cluster/README.md gives it: FNV-1a 64 of the key's UTF-8
    bytes, MurmurHash3's fmix64, modulo the count."""
    mask = (1 << 64) - 1
    h = 0xcbf29ce484222325
    for byte in key.encode():
        h = ((h ^ byte) * 0x100000001b3) & mask
    h ^= h >> 33
    h = (h * 0xff51afd7ed558ccd) & mask
    h ^= h >> 33
    h = (h * 0xc4ceb9fe1a85ec53) & mask
    h ^= h >> 33
    return h % count


def make_photos(folder):
    for i, name in enumerate(PHOTOS):
        path = folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        subprocess.run(["convert", "-size", f"{40 + 2 * i}x30", "gradient:red-blue",
                        "-fill", "white", "-draw", f"rectangle 2,2 {4 + i},8", str(path)],
                       check=True)


def files_under(folder):
    """The relative paths of every file under the folder, hidden ones included."""
    return sorted(str(p.relative_to(folder)) for p in folder.rglob("*") if p.is_file())


def pixels(path):
    """The picture's sides and pixels; not its bytes, as a PNG's text records when it was
    written."""
    return subprocess.run(["convert", str(path), "-depth", "8", "-print", "%wx%h ", "rgba:-"],
                          capture_output=True, check=True).stdout


def sources_said(text, photos):
    """The inputs a run's lines `SOURCE -> OUTPUT ...` name, relative to the photos' folder."""
    sources = set()
    for line in text.splitlines():
        if " -> " in line:
            source = pathlib.Path(line.split(" -> ")[0])
            sources.add(str(source.relative_to(photos)))
    return sources


class ClusterRecipesTest(unittest.TestCase):
    def setUp(self):
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="unwarp-cluster-"))
        self.addCleanup(shutil.rmtree, self.root, ignore_errors=True)

    def reference(self, photos, template):
        """The folder of the unsharded run's results."""
        out = self.root / "reference"
        done = subprocess.run([UNWARP, "--home", str(self.root / "reference-home"), "process",
                               "--template", template, "--recursive", "--out", str(out),
                               str(photos)], capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(len(files_under(out)), len(PHOTOS))
        return out

    def check_runs(self, runs, photos, out, count, template):
        """Waits for every index's process; each must succeed and take exactly the inputs the
        documented hash gives it, and the shared folder must hold what one run makes."""
        for index, run in enumerate(runs):
            stdout, stderr = run.communicate(timeout=300)
            with self.subTest(index=index):
                self.assertEqual(run.returncode, 0, stderr)
                expected = {p for p in PHOTOS if shard_of(p, count) == index}
                self.assertEqual(sources_said(stdout, photos), expected)
        reference = self.reference(photos, template)
        self.assertEqual(files_under(out), files_under(reference))
        for name in files_under(out):
            self.assertEqual(pixels(out / name), pixels(reference / name), name)

    def test_slurm_array_script(self):
        script = (RECIPES / "unwarp-array.sbatch").read_text()
        array = re.search(r"^#SBATCH --array=(\d+)-(\d+)(%\d+)?$", script, re.M)
        self.assertIsNotNone(array, "the script needs an #SBATCH --array=0-(N-1) line")
        self.assertEqual(array.group(1), "0", "the shard index counts from 0")
        count = int(array.group(2)) + 1
        template = re.search(r"^TEMPLATE=\$\{TEMPLATE:-([\w-]+)\}$", script, re.M).group(1)
        photos = self.root / "shared" / "photos"
        out = self.root / "shared" / "results"
        make_photos(photos)
        tmp = self.root / "node-tmp"
        tmp.mkdir()
        runs = []
        for index in range(count):
            env = dict(os.environ, SLURM_ARRAY_JOB_ID="7", SLURM_ARRAY_TASK_ID=str(index),
                       SLURM_ARRAY_TASK_COUNT=str(count), TMPDIR=str(tmp), UNWARP=UNWARP,
                       INPUT=str(photos), OUTPUT=str(out))
            runs.append(subprocess.Popen(["bash", str(RECIPES / "unwarp-array.sbatch")],
                                         env=env, stdout=subprocess.PIPE,
                                         stderr=subprocess.PIPE, text=True))
        self.check_runs(runs, photos, out, count, template)
        # Each task's home goes with the task.
        self.assertEqual(list(tmp.iterdir()), [])

    def test_kubernetes_indexed_job(self):
        documents = list(yaml.safe_load_all((RECIPES / "unwarp-indexed-job.yaml").read_text()))
        jobs = [d for d in documents if d and d.get("kind") == "Job"]
        self.assertEqual(len(jobs), 1)
        spec = jobs[0]["spec"]
        self.assertEqual(spec["completionMode"], "Indexed")
        pod = spec["template"]["spec"]
        self.assertEqual(pod["restartPolicy"], "Never")
        (container,) = pod["containers"]
        command = container["command"] + container["args"]
        self.assertEqual(command[0], "unwarp")
        template = command[command.index("--template") + 1]
        volumes = {v["name"]: v for v in pod["volumes"]}
        # Each mount as a local folder: the claim shared by all pods, an emptyDir per pod.
        mounts = []
        for mount in container["volumeMounts"]:
            volume = volumes[mount["name"]]
            shared = "persistentVolumeClaim" in volume
            self.assertTrue(shared or "emptyDir" in volume, mount["name"])
            mounts.append((mount["mountPath"].rstrip("/"), shared))

        def local(arg, index):
            for path, shared in mounts:
                if arg == path or arg.startswith(path + "/"):
                    base = self.root / ("claim" if shared else f"pod-{index}")
                    return str(base) + arg
            return arg

        count = spec["completions"]
        self.assertGreaterEqual(spec["parallelism"], 1)
        commands = []
        for index in range(count):
            args = [local(a.replace("$(JOB_COMPLETION_INDEX)", str(index)), index)
                    for a in command[1:]]
            self.assertFalse([a for a in args if "$(" in a], "only the index is substituted")
            commands.append([UNWARP] + args)
        inputs = pathlib.Path(commands[0][-1])
        out = pathlib.Path(commands[0][commands[0].index("--out") + 1])
        make_photos(inputs)
        runs = [subprocess.Popen(c, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
                for c in commands]
        self.check_runs(runs, inputs, out, count, template)


if __name__ == "__main__":
    UNWARP = os.path.abspath(sys.argv.pop(1))
    unittest.main()
