#!/usr/bin/env python3
"""The library under MemorySanitizer: the fuzz targets, built with it, replay what has been collected
for them; before a release each goes on searching for a minute. Left out are the targets whose
reports would be about libraries that are not built with it. The quick form measures nothing.
"""
import os
import pathlib
import subprocess
import tempfile

import corpora
import figures
from figures import areas

TREE = figures.BUILD / "msan"
IGNORED = figures.ROOT / "robustness" / "memory_sanitizer.ignore"

# They run zlib, or the standard library's handling of files and copying of texts.
LEFT_OUT = ("blocks", "directories", "sweep")
TARGETS = [target for target in areas.all_of("fuzz") if target not in LEFT_OUT]
SECONDS = {"full": 0, "release": 60}

# Texts are then built in our own programs, where they are seen.
CXX_FLAGS = f"-D_GLIBCXX_EXTERN_TEMPLATE=0 -fsanitize-ignorelist={IGNORED}"


def build():
    subprocess.run(["cmake", "--preset", "asan", "-B", TREE, f"-DCMAKE_CXX_FLAGS={CXX_FLAGS}",
                    "-DQAL_SANITIZE=memory,fuzzer-no-link", "-DQAL_AUTO_VAR_INIT=", "-DQAL_BUILD_TESTS=OFF"],
                   cwd=figures.ROOT, check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", TREE, "--target", *(f"{target}_fuzz" for target in TARGETS)],
                   check=True, stdout=subprocess.DEVNULL)


def is_clean(target, seconds):
    with tempfile.TemporaryDirectory() as scratch:
        found = pathlib.Path(scratch) / "found"
        found.mkdir()
        search = [f"-max_total_time={seconds}"] if seconds else ["-runs=0"]
        with open(TREE / f"{target}.log", "w", encoding="utf-8") as log:
            ended = subprocess.run(
                [TREE / "fuzz" / f"{target}_fuzz", *search, found, corpora.unpacked(target)],
                cwd=scratch, env={**os.environ, "HOME": scratch, "TMPDIR": scratch},
                stdout=log, stderr=log)
    return ended.returncode == 0


def measure(form):
    name = "open MemorySanitizer findings"
    if form == "quick":
        yield figures.not_run(name, "0")
        return
    build()
    guilty = [target for target in TARGETS if not is_clean(target, SECONDS[form])]
    shown = " ".join([str(len(guilty)), f"in {len(TARGETS)} areas", *guilty])
    yield figures.Figure(name, "0", shown, not guilty)


if __name__ == "__main__":
    figures.main(measure)
