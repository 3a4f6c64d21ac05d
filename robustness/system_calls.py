"""Lets every system call of a run fail in every way: by each of six errors, each time only one
call, from the first of the tool's main on. The run settles one record and keeps another.
"""
import figures
import sweep_world
import tracing
from figures import Figure, not_run
from sweep_world import LIVE, percent

NAME = "system-call faults (call × N × error) surviving"
CAUSE = "a system call"
CALLS = ("open", "openat", "read", "write", "close", "stat", "fstat", "newfstatat", "getdents64",
         "unlink", "unlinkat", "socket", "connect", "mmap", "munmap", "mprotect", "fcntl", "poll",
         "sendto", "recvfrom")
ERRORS = ("EIO", "EINTR", "ENOSPC", "EMFILE", "EACCES", "ENOMEM")
SAMPLES = 150
TRACED = ("-y", "-e", "trace=kill,?chmod,?fchmodat," + ",".join(f"?{call}" for call in CALLS))


def run_traced(world, *options):
    """One run with these options that shows in its trace when it had loaded libcurl."""
    for name, value in sweep_world.watch_loading(world).items():
        options += ("-E", f"{name}={value}")
    return tracing.run_traced(world, *TRACED, *options)


def fault_points():
    """Every (call, number, error) of an undisturbed run."""
    world = sweep_world.world_of_thread()
    sweep_world.lay_out(world)
    _, trace = run_traced(world)
    before, after = tracing.names_before_and_after(trace)
    return [(call, before[call] + number, error) for call in CALLS
            for number in range(1, after[call] + 1) for error in ERRORS]


def fail_at(point):
    """What the fault did that it must not do; none when the run got by without that call: how often
    it waits for the server is not the same each time."""
    call, number, error = point
    world = sweep_world.world_of_thread()
    path = sweep_world.lay_out(world)
    ended, trace = run_traced(world, "-e", f"inject={call}:error={error}:when={number}")
    found = sweep_world.complaints(ended)
    found += sweep_world.losses(world, path, request_may_fail(trace))
    for problem in found:
        sweep_world.tell(f"{call} {number} {error}: {problem}")
    return found if found or any(map(is_injected, trace)) else None


def is_injected(call):
    return "(INJECTED)" in call


def request_may_fail(trace):
    """Whether the fault lies between the loading of libcurl and the deletion of the record."""
    fault = tracing.index_of(trace, is_injected)
    loaded = tracing.index_of(trace, lambda call: call.startswith(("chmod", "fchmodat")))
    unlink = tracing.index_of(trace, lambda call: call.startswith("unlink") and LIVE in call)
    return loaded < fault < unlink


def measure(form):
    if not tracing.is_available():
        yield not_run(NAME, "100 %")
        yield not_run(sweep_world.unasked_name(CAUSE), "0")
        return
    points = fault_points()
    tried = sweep_world.spread(points, SAMPLES) if form == "quick" else points
    outcomes = [found for found in sweep_world.in_parallel(fail_at, tried) if found is not None]
    surviving = outcomes.count([])
    measured = f"{percent(surviving, len(outcomes))} ({surviving:,} of {len(outcomes):,}"
    measured += f" sampled from {len(points):,})" if len(tried) < len(points) else ")"
    yield Figure(NAME, "100 %", measured, 0 < surviving == len(outcomes))
    yield sweep_world.gone_unasked(CAUSE, outcomes)


if __name__ == "__main__":
    figures.main(measure)
