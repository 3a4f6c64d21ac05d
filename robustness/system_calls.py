"""Lets every system call of a run fail in every way: by each of six errors, each time only one
call, from the first of the tool's main on. The run settles one record and keeps another.
"""
import errno
import os

import figures
import sweep_world
import tracing
from figures import Figure, not_run
from sweep_world import KEPT, LIVE, percent

NAME = "system-call faults (call × N × error) surviving"
CALLS = ("open", "openat", "read", "write", "close", "stat", "fstat", "newfstatat", "getdents64",
         "unlink", "unlinkat", "socket", "connect", "mmap", "munmap", "mprotect", "fcntl", "poll",
         "sendto", "recvfrom")
ERRORS = ("EIO", "EINTR", "ENOSPC", "EMFILE", "EACCES", "ENOMEM")
SAMPLES = 150
TRACED = ("-y", "-e", "trace=kill," + ",".join(f"?{call}" for call in CALLS))


def fault_points():
    """Every (call, number, error) of an undisturbed run."""
    world = sweep_world.world_of_thread()
    sweep_world.lay_out(world)
    _, trace = tracing.run_traced(world, *TRACED)
    before, after = tracing.names_before_and_after(trace)
    return [(call, before[call] + number, error) for call in CALLS
            for number in range(1, after[call] + 1) for error in ERRORS]


def fail_at(point):
    """What the fault did that it must not do; none when the run got by without that call: how often
    it waits for the server is not the same each time."""
    call, number, error = point
    world = sweep_world.world_of_thread()
    path = sweep_world.lay_out(world)
    ended, trace = tracing.run_traced(
        world, *TRACED, "-e", f"inject={call}:error={error}:when={number}")
    found = sweep_world.complaints(ended)
    found += sweep_world.losses(world, path, request_may_fail(trace), unreadable(trace))
    for problem in found:
        sweep_world.tell(f"{call} {number} {error}: {problem}")
    return found if found or any(map(is_injected, trace)) else None


def is_injected(call):
    return "(INJECTED)" in call


def request_may_fail(trace):
    """Whether the fault lies between the question for the owner and the deletion of the record."""
    fault = tracing.index_of(trace, is_injected)
    probe = tracing.index_of(trace, lambda call: call.startswith(f"kill({os.getpid()}, 0)"))
    unlink = tracing.index_of(trace, lambda call: call.startswith("unlink") and LIVE in call)
    return probe < fault < unlink


def unreadable(trace):
    """The records whose reading failed. An interrupted one is read again."""
    faults = [call for call in trace if is_injected(call) and tracing.name_of(call) == "read"
              and errno.errorcode[errno.EINTR] not in call]
    return [name for name in (LIVE, KEPT) if any(f"/{name}>" in fault for fault in faults)]


def measure(form):
    if not tracing.is_available():
        yield not_run(NAME, "100 %")
        return
    points = fault_points()
    tried = sweep_world.spread(points, SAMPLES) if form == "quick" else points
    outcomes = [found for found in sweep_world.in_parallel(fail_at, tried) if found is not None]
    surviving = outcomes.count([])
    measured = f"{percent(surviving, len(outcomes))} ({surviving:,} of {len(outcomes):,}"
    measured += f" sampled from {len(points):,})" if len(tried) < len(points) else ")"
    yield Figure(NAME, "100 %", measured, 0 < surviving == len(outcomes))


if __name__ == "__main__":
    figures.main(measure)
