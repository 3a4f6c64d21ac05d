#!/usr/bin/env python3
"""The inputs that are kept for each fuzz target: the seeds that a person named lie in
fuzz/corpus/AREA/; those that a fuzzer found, named by their hash, are one bundle,
fuzz/corpus/AREA.tar.

usage: corpora.py unpack          all bundles, into the fuzz build
       corpora.py merge [AREA]    what the fuzzers found since, into the bundles
"""
import io
import re
import shutil
import subprocess
import sys
import tarfile

import figures

CORPUS = figures.ROOT / "fuzz" / "corpus"
WORK = figures.BUILD / "fuzz"
HASH = re.compile("[0-9a-f]{40}")


def bundle(area):
    return CORPUS / f"{area}.tar"


def kept(area):
    """What a replay program reads: the folder of the seeds and the bundle."""
    return [CORPUS / area, bundle(area)]


def unpacked(area):
    """What a fuzz target reads: the folder of the seeds and that of the bundle's inputs."""
    inputs = WORK / "bundle" / area
    shutil.rmtree(inputs, ignore_errors=True)
    inputs.mkdir(parents=True)
    if bundle(area).exists():  # a new area has none
        with tarfile.open(bundle(area)) as archive:
            archive.extractall(inputs)
    return [CORPUS / area, inputs]


def pack(area, folder):
    """The same inputs make the same bytes: no entry has an owner, a mode or a time of its own."""
    with tarfile.open(bundle(area), "w", format=tarfile.USTAR_FORMAT) as archive:
        for file in sorted(folder.iterdir()):
            if HASH.fullmatch(file.name):
                content = file.read_bytes()
                entry = tarfile.TarInfo(file.name)
                entry.size = len(content)
                archive.addfile(entry, io.BytesIO(content))


def merge(area):
    """Adds what reaches something that neither a seed nor an input of the bundle reaches."""
    found, findings = (WORK / kind / area for kind in ("corpus", "findings"))
    for folder in (found, findings):
        folder.mkdir(parents=True, exist_ok=True)
    seeds, merged = unpacked(area)
    shutil.copytree(seeds, merged, dirs_exist_ok=True)
    subprocess.run([figures.BUILD / "asan" / "fuzz" / f"{area}_fuzz", "-merge=1", "-timeout=10",
                    f"-artifact_prefix={findings}/", merged, found], check=True)
    pack(area, merged)


def main():
    command, *chosen = sys.argv[1:]
    areas = sorted(folder.name for folder in CORPUS.iterdir() if folder.is_dir())
    if set(chosen) - set(areas):
        sys.exit(f"fuzz: these are the areas: {' '.join(areas)}")
    for area in chosen or areas:
        {"unpack": unpacked, "merge": merge}[command](area)


if __name__ == "__main__":
    main()
