#!/usr/bin/env python3
"""The inputs that are kept for each fuzz target, one bundle for each area, fuzz/corpus/AREA.tar: the
seeds under the names that a person gave them, beside them what a fuzzer found, named by its hash.

usage: corpora.py unpack              all bundles, into the fuzz build
       corpora.py seed AREA FILE...   the files, under their names, into the bundle
       corpora.py merge [AREA]        what the fuzzers found since, into the bundles
"""
import io
import pathlib
import shutil
import subprocess
import sys
import tarfile

import figures
from figures import areas

CORPUS = figures.ROOT / "fuzz" / "corpus"
WORK = figures.BUILD / "fuzz"


def bundle(area):
    """What a replay program reads."""
    return CORPUS / f"{area}.tar"


def unpacked(area):
    """What a fuzz target reads: the folder of the bundle's inputs."""
    inputs = WORK / "bundle" / area
    shutil.rmtree(inputs, ignore_errors=True)
    inputs.mkdir(parents=True)
    if bundle(area).exists():  # a new area has none
        with tarfile.open(bundle(area)) as archive:
            archive.extractall(inputs)
    return inputs


def pack(area, folder):
    """The same inputs make the same bytes: no entry has an owner, a mode or a time of its own."""
    with tarfile.open(bundle(area), "w", format=tarfile.USTAR_FORMAT) as archive:
        for file in sorted(folder.iterdir()):
            content = file.read_bytes()
            entry = tarfile.TarInfo(file.name)
            entry.size = len(content)
            archive.addfile(entry, io.BytesIO(content))


def seed(area, *files):
    """Adds inputs that a person named; one of that name is replaced."""
    inputs = unpacked(area)
    for file in files:
        shutil.copy(file, inputs / pathlib.Path(file).name)
    pack(area, inputs)


def merge(area):
    """Adds what reaches something that no input of the bundle reaches."""
    found, findings = (WORK / kind / area for kind in ("corpus", "findings"))
    for folder in (found, findings):
        folder.mkdir(parents=True, exist_ok=True)
    merged = unpacked(area)
    subprocess.run([figures.BUILD / "asan" / "fuzz" / f"{area}_fuzz", "-merge=1", "-timeout=10",
                    f"-artifact_prefix={findings}/", merged, found], check=True)
    pack(area, merged)


def main():
    command, chosen, files = sys.argv[1], sys.argv[2:3], sys.argv[3:]
    known = sorted(areas.all_of("fuzz"))
    if set(chosen) - set(known):
        sys.exit(f"fuzz: these are the areas: {' '.join(known)}")
    for area in chosen or known:
        {"unpack": unpacked, "seed": seed, "merge": merge}[command](area, *files)


if __name__ == "__main__":
    main()
