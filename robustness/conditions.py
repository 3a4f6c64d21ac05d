#!/usr/bin/env python3
"""Which conditions of the product the tests show to matter: for each condition of a decision there
are two runs in which it alone differs, and with it the decision (modified condition/decision
coverage). Those that cannot be shown stand in inconclusive_conditions.txt, each with its reason.

A process that is killed loses its counters, and so do those of a function that is never called.
"""
import collections
import json
import os
import shutil
import subprocess

import figures
import unconfined

TREE = figures.BUILD / "conditions"
COUNTERS = TREE / "counters"
EXPECTED = figures.ROOT / "robustness" / "inconclusive_conditions.txt"
# They fail every allocation in turn, those of the counters too, or count to millions.
LEFT_OUT = r"^every_allocation\.|_stress\.|\.corpus$|_model\."
OURS = ("app/", "utils/", "cxxutils/")


def built():
    subprocess.run(["cmake", "--preset", "conditions", "-B", TREE], cwd=figures.ROOT, check=True,
                   stdout=subprocess.DEVNULL)
    return subprocess.run(["ninja", "-C", TREE, "--quiet", "tests/all", "tests/contract/all"],
                          check=False, stdout=subprocess.DEVNULL).returncode == 0


def run_tests():
    """Whether all passed. Each process leaves a file of its own, whoever it belongs to."""
    shutil.rmtree(COUNTERS, ignore_errors=True)
    COUNTERS.mkdir(parents=True)
    COUNTERS.chmod(0o1777)
    done = subprocess.run(
        ["ctest", "--test-dir", TREE, f"-j{figures.JOBS}", "--timeout", "300", "-E", LEFT_OUT, "-Q",
         "-O", TREE / "ctest.log"], check=False, preexec_fn=unconfined.give_up_confinement,
        env=os.environ | {"LLVM_PROFILE_FILE": str(COUNTERS / "%p-%m.profraw")})
    return done.returncode == 0


def programs():
    return [file for file in [TREE / "kalmora-sweep", *sorted((TREE / "tests").iterdir())]
            if file.is_file() and os.access(file, os.X_OK) and not file.suffix]


def exported():
    """What llvm-cov knows of each decision of our sources."""
    listed, merged = TREE / "counters.txt", TREE / "counters.profdata"
    listed.write_text("".join(f"{file}\n" for file in COUNTERS.iterdir() if file.stat().st_size))
    subprocess.run(["llvm-profdata-19", "merge", "-sparse", "-failure-mode=all", f"--input-files={listed}", "-o", merged],
                   check=True, stderr=subprocess.DEVNULL)
    first, *others = programs()
    done = subprocess.run(
        ["llvm-cov-19", "export", "--skip-expansions", f"--instr-profile={merged}", first,
         *(f"--object={other}" for other in others)], check=True, capture_output=True, cwd=TREE)
    return json.loads(done.stdout)["data"][0]["files"]
