"""Runs of the tool under strace, which disturbs one chosen system call, and what their traces say.

A trace is a list of lines; those before the first call of the tool's main belong to the loader.
"""
import collections
import os
import shutil
import subprocess

import sweep_world

FIRST_CALL_OF_MAIN = '"/dev/null", O_RDWR|O_CLOEXEC'
LIMIT_SECONDS = 30


def is_available():
    """A sandbox may have strace and forbid what it does."""
    return (shutil.which("strace") is not None
            and subprocess.run(["strace", "-qq", "-o", os.devnull, "true"], stderr=subprocess.DEVNULL,
                               check=False).returncode == 0)


def run_traced(world, *options, environment=(), limit=LIMIT_SECONDS):
    """One run under strace with these options."""
    file = world.root / "trace"
    file.unlink(missing_ok=True)
    ended = sweep_world.run(world, environment, limit=limit,
                            under=["strace", "-f", "-qq", "-o", str(file), *options])
    return ended, [call_of(line) for line in file.read_text(errors="replace").splitlines()]


def call_of(line):
    """A line without the process id in front of it."""
    return line.split(maxsplit=1)[1]


def name_of(call):
    return call.split("(", 1)[0]


def result_of(call):
    return call.rsplit(" = ", 1)[1]


def start_of_main(trace):
    start = next((i for i, call in enumerate(trace) if FIRST_CALL_OF_MAIN in call), None)
    if start is None:
        raise SystemExit(f"no call of main is in the trace: none has {FIRST_CALL_OF_MAIN}")
    return start


def names_before_and_after(trace):
    """How often each call was made before main and from its start on."""
    start = start_of_main(trace)
    return (collections.Counter(map(name_of, trace[:start])),
            collections.Counter(map(name_of, trace[start:])))
