#!/usr/bin/env python3
"""The tests under valgrind: all of them and the corpora under memcheck, those that start threads
under helgrind. A finding is an error context that valgrind reports, or a program whose tests fail. The
reports of those that have any are kept below build/valgrind.
"""
import concurrent.futures
import fnmatch
import functools
import pathlib
import re
import shutil
import subprocess
import tempfile

import corpora
import figures
from figures import areas

PROGRAMS = figures.BUILD / "release"
REPORTS = figures.BUILD / "valgrind"
HERE = figures.ROOT / "robustness"

# The cases that start threads.
THREADED = {f"{test}_test": cases for test, cases in areas.threaded().items()}

SLOWEST = ("sweep_e2e_test", "directories_test", "hash_test", "files_test", "mpool_test")
LIMIT_SECONDS = 3600

# Its cases need a process each: helgrind gets slower with each thread that a process ever had.
ONE_BY_ONE = ("thread_test",)

# What cannot run here: comparing with a model takes hours and touches no memory that other cases do not,
# and valgrind's own allocator takes the place of the one that fails every request in turn.
LEFT_OUT_PROGRAMS = [f"{test}_test" for test in (*areas.all_of("exhaustive"), "every_allocation")]

# Thousands of threads and sizes up to 4 GiB take as long.
TOO_LONG = ("*OverAndOver", "*FourGiB", "ThreadCancel.MayBeRepeatedWithNewThreads")

# These notice valgrind: it holds descriptors of its own in each child, does not let them be limited
# as low, and ends a child whose exec the system refuses.
SEEN_THROUGH = (
    "FewDescriptors.*",
    "SweepProcess.KeepsTheRecordWhenNoDescriptorIsLeft*",
    "PipeOpen.ShowsNoOtherPipeToACommand",
    "PipeOpenChild.IsConnectedWhateverTheParentHasClosed",
    "PipeOpenChild.ReturnsNoneWhenTheShellDoesNotStart",
    "PipeOpenChild.TellsOnStandardErrorThatTheShellDidNotStart",
    "PipeFaultChild.TellsThatTheShellDidNotStartAndReturns",
    "PipeFaultChild.TellsTheReaderThatTheShellDidNotStart",
    "PipeFaultChild.WritesItsMessageWholeThroughShortAndInterruptedWrites",
    "PipeFaultChild.GivesUpOnAMessageThatCannotBeWritten",
)

# It refuses memory through an operator new of its own, which valgrind replaces.
WITHOUT_SHORTAGE = ("SweepMemory.ShortageEndsTheSweepWithoutHarm",)

# For the thread sanitizer alone: helgrind takes an hour over 2047 threads at once, and does not see that
# a cancelled waiter has its mutex back.
NOT_IN_HELGRIND = ("*FindsNoSlot", "*OneSlotThatIsFree", "ThreadSema.*Cancelled*")
LEFT_OUT = {"memcheck": (*TOO_LONG, *SEEN_THROUGH, *WITHOUT_SHORTAGE)}
LEFT_OUT["helgrind"] = (*LEFT_OUT["memcheck"], *NOT_IN_HELGRIND)

# A case that wants a new process has its program start again; the tool runs as a user who can write
# no report.
COMMON = ["--max-threads=2100", "--trace-children=yes",
          "--trace-children-skip=/bin/*,/usr/bin/*,*/kalmora-sweep*", "--num-callers=20"]
TOOLS = {
    "memcheck": ["--leak-check=full", "--show-leak-kinds=definite",
                 "--errors-for-leak-kinds=definite"],
    "helgrind": [],
}
SUMMARY = re.compile(r"ERROR SUMMARY: \d+ errors from (\d+) contexts")


@functools.cache
def programs():
    """The files of all that can run here, by their names."""
    patterns = ("tests/*_test", "tests/stress/*_stress", "fuzz/*_replay")
    files = [file for pattern in patterns for file in sorted(PROGRAMS.glob(pattern))]
    return {file.name: file for file in files if file.name not in LEFT_OUT_PROGRAMS}


def command_of(program, chosen):
    """A program with what it is to run: cases, or the corpus of a fuzz target."""
    file = programs()[program]
    if program.endswith("_replay"):
        return [file, corpora.bundle(program.removesuffix("_replay"))]
    return [file, "--gtest_brief=1", f"--gtest_filter={chosen}"]


def jobs(tool, chosen):
    """Pairs of a program and the filter for its cases. The slowest come first."""
    filters = {program: f"{pattern}-{':'.join(LEFT_OUT[tool])}" for program, pattern in chosen.items()}
    whole = [job for job in filters.items() if job[0] not in ONE_BY_ONE]
    single = [(program, case) for program in ONE_BY_ONE if program in chosen
              for case in figures.test_names(programs()[program], filters[program])]
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
               *command_of(program, chosen)]
    with open(f"{reports}/output", "w", encoding="utf-8") as output:
        try:
            return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=output, stderr=output,
                                  timeout=LIMIT_SECONDS).returncode == 0
        except subprocess.TimeoutExpired:
            return False


def figure(tool, name, chosen):
    shutil.rmtree(REPORTS / tool, ignore_errors=True)
    (REPORTS / tool).mkdir(parents=True)
    todo = jobs(tool, chosen)
    with concurrent.futures.ThreadPoolExecutor(figures.JOBS) as pool:
        counts = list(pool.map(lambda job: run(tool, job), todo))
    guilty = sorted({program for (program, _), count in zip(todo, counts) if count})
    shown = " ".join([str(sum(counts)), f"in {len(chosen)} programs", *guilty])
    return figures.Figure(name, "0", shown, not guilty)


def require_cases():
    """A case that got another name would run where it was left out, or not run where it was chosen."""
    cases = {case for name, file in programs().items() if not name.endswith("_replay")
             for case in figures.test_names(file)}
    gone = [pattern for pattern in LEFT_OUT["helgrind"] if not fnmatch.filter(cases, pattern)]
    gone += [f"{pattern} of {program}" for program, pattern in THREADED.items()
             if not figures.test_names(programs()[program], pattern)]
    if gone:
        raise SystemExit(f"no case has such a name: {', '.join(gone)}")


def measure(form):
    require_cases()
    tools = {"open valgrind findings": ("memcheck", dict.fromkeys(programs(), "*")),
             "open helgrind findings": ("helgrind", THREADED)}
    for name, (tool, chosen) in tools.items():
        yield figures.not_run(name, "0") if form == "quick" else figure(tool, name, chosen)


if __name__ == "__main__":
    figures.main(measure)
