#!/usr/bin/env python3
"""The unit tests under valgrind: all of them under memcheck, those that start threads under
helgrind. A finding is an error context that valgrind reports, or a program whose tests fail. The
reports of those that have any are kept below build/valgrind.
"""
import concurrent.futures
import pathlib
import re
import shutil
import subprocess
import tempfile

import figures

PROGRAMS = figures.BUILD / "release" / "tests"
REPORTS = figures.BUILD / "valgrind"
HERE = figures.ROOT / "robustness"

# The cases that start threads. The thread sanitizer alone runs two kinds: helgrind takes an hour over
# 2047 threads at once or 20,000 in turn, and it does not see that a cancelled waiter has its mutex
# back.
THREADED = {
    "barrier_test": "*",
    "blocks_test": "*Thread*",
    "hash_test": "*Thread*",
    "list_test": "*Thread*",
    "logger_test": "*Thread*",
    "mpool_test": "*Thread*",
    "path_test": "*Thread*",
    "pipe_test": "*Thread*",
    "plist_test": "*Thread*",
    "reduce_test": "*",
    "thread_test": "*-*FindsNoSlot:*OneSlotThatIsFree:*RepeatedWithNewThreads:ThreadSema.*Cancelled*",
    "uid_test": "*Thread*",
}

SLOWEST = ("directories_test", "hash_test", "files_test", "mpool_test")
LIMIT_SECONDS = 3600

# Their cases need a process each, as ctest gives them; those of thread_test because helgrind gets
# slower with each thread that a process ever had.
ONE_BY_ONE = ("clock_test", "logger_test", "thread_test")

# What compares with a model takes hours here and touches no memory that other cases do not.
TOO_LONG = "*Exhaustive*:*Model*:*OverAndOver*:*HundredThousandTimes*"

# Valgrind shows in these: it has descriptors of its own in each child, and ends one whose exec the
# system refuses.
SEEN_THROUGH = ":".join((
    "PipeOpen.ShowsNoOtherPipeToACommand",
    "PipeOpenChild.IsConnectedWhateverTheParentHasClosed",
    "PipeOpenChild.ReturnsNoneWhenTheShellDoesNotStart",
    "PipeOpenChild.TellsOnStandardErrorThatTheShellDidNotStart",
))
LEFT_OUT = f"{TOO_LONG}:{SEEN_THROUGH}"

COMMON = ["--max-threads=2100", "--trace-children=no", "--num-callers=20"]
TOOLS = {
    "memcheck": ["--leak-check=full", "--show-leak-kinds=definite",
                 "--errors-for-leak-kinds=definite"],
    "helgrind": [],
}
SUMMARY = re.compile(r"ERROR SUMMARY: \d+ errors from (\d+) contexts")


def all_cases():
    """All cases of each program that has a source among the unit tests."""
    sources = sorted((figures.ROOT / "tests" / "unit").glob("*_test.cpp"))
    return {file.stem: "*" for file in sources if not file.stem.endswith("_model_test")}


def without_left_out(pattern):
    return f"{pattern}{':' if '-' in pattern else '-'}{LEFT_OUT}"


def jobs(chosen):
    """Pairs of a program and the filter for its cases. The slowest come first."""
    whole = [(program, without_left_out(pattern)) for program, pattern in chosen.items()
             if program not in ONE_BY_ONE]
    single = [(program, case) for program in ONE_BY_ONE if program in chosen
              for case in figures.test_names(PROGRAMS / program, without_left_out(chosen[program]))]
    return sorted(whole, key=lambda job: job[0] not in SLOWEST) + single


def run(tool, job):
    """How many errors valgrind tells apart in one job, in the program and in the children that it
    forks, and one more when its tests fail or it does not end."""
    program, chosen = job
    with tempfile.TemporaryDirectory(dir=REPORTS / tool, prefix=f"{program}.") as reports:
        ended = in_valgrind(tool, reports, program, chosen)
        texts = [file.read_text(errors="replace") for file in pathlib.Path(reports).iterdir()]
        found = sum(int(count) for text in texts for count in SUMMARY.findall(text)) + (not ended)
        if found:
            shutil.copytree(reports, REPORTS / tool / program, dirs_exist_ok=True)
    return found


def in_valgrind(tool, reports, program, chosen):
    """Whether the program's tests passed."""
    command = ["valgrind", f"--tool={tool}", f"--suppressions={HERE / tool}.supp",
               f"--log-file={reports}/%p", *COMMON, *TOOLS[tool],
               PROGRAMS / program, "--gtest_brief=1", f"--gtest_filter={chosen}"]
    with open(f"{reports}/output", "w", encoding="utf-8") as output:
        try:
            return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=output, stderr=output,
                                  timeout=LIMIT_SECONDS).returncode == 0
        except subprocess.TimeoutExpired:
            return False


def figure(tool, name, chosen):
    shutil.rmtree(REPORTS / tool, ignore_errors=True)
    (REPORTS / tool).mkdir(parents=True)
    todo = jobs(chosen)
    with concurrent.futures.ThreadPoolExecutor(figures.JOBS) as pool:
        counts = list(pool.map(lambda job: run(tool, job), todo))
    guilty = sorted({program for (program, _), count in zip(todo, counts) if count})
    shown = " ".join([str(sum(counts)), f"in {len(chosen)} programs", *guilty])
    return figures.Figure(name, "0", shown, not guilty)


def measure(form):
    tools = {"open valgrind findings": ("memcheck", all_cases()),
             "open helgrind findings": ("helgrind", THREADED)}
    for name, (tool, programs) in tools.items():
        yield figures.not_run(name, "0") if form == "quick" else figure(tool, name, programs)


if __name__ == "__main__":
    figures.main(measure)
