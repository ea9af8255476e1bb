#!/usr/bin/env python3
"""Runs scripts/include-graph on small source trees and checks which ones it refuses."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "include-graph"


def run_on(files):
    """Writes {path: [included paths]} under a temporary src/ and runs the script on it."""
    with tempfile.TemporaryDirectory() as root:
        src = pathlib.Path(root) / "src"
        for path, includes in files.items():
            target = src / path
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_text("".join(f'#include "{i}"\n' for i in includes) + "#include <vector>\n")
        done = subprocess.run([sys.executable, str(SCRIPT), str(src)], capture_output=True,
                              text=True, check=False)
        return done.returncode, done.stdout


class IncludeGraphTest(unittest.TestCase):
    def test_trees(self):
        down = {
            "model/A.h": ["platform/P.h"],
            "platform/P.h": [],
            "core/VRProcessor.h": ["photo/Job.h", "model/A.h"],
            "photo/Job.h": ["model/A.h"],
        }
        cases = [
            # (what, tree, exit code, lines the output must hold)
            ("includes that point down pass", down, 0,
             ["photo -> model        1", "No include points up or across, and no cycle."]),
            ("the error header may be included from below",
             {**down, "core/VRError.h": ["platform/P.h"], "model/B.cpp": ["core/VRError.h"]}, 0,
             ["model -> core         1"]),
            ("an upward include fails and is named with its line",
             {**down, "photo/Job.cpp": ["photo/Job.h", "core/VRProcessor.h"]}, 1,
             ["upward      photo/Job.cpp:2 -> core/VRProcessor.h", "core <-> photo"]),
            ("an include across the same layer fails",
             {**down, "video/V.h": ["photo/Job.h"]}, 1,
             ["same level  video/V.h:1 -> photo/Job.h"]),
            ("a cycle between files of one folder fails",
             {**down, "model/B.h": ["model/C.h"], "model/C.h": ["model/B.h"]}, 1,
             ["Cycles between files (1):", "model/B.h <-> model/C.h"]),
            ("a folder outside the layers fails",
             {**down, "gui/W.cpp": ["model/A.h"]}, 1, ["Folders outside the layers: gui"]),
        ]
        for what, tree, code, lines in cases:
            with self.subTest(what):
                got_code, output = run_on(tree)
                self.assertEqual(got_code, code, output)
                for line in lines:
                    self.assertIn(line, output)

    def test_missing_folder_is_an_error(self):
        done = subprocess.run([sys.executable, str(SCRIPT), "/nonexistent/src"],
                              capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 2)


if __name__ == "__main__":
    unittest.main()
