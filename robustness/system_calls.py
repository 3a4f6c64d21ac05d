"""Lets every system call of a run fail in every way: with each error that its manual page states,
each time only one call, from the first of the tool's main on. The run settles one record and keeps
another. The live one may go without a request only when the request itself was made to fail.
"""
import figures
import sweep_world
import tracing
from figures import Figure, not_run, percent

NAME = "system-call faults (call × N × error) surviving"
CAUSE = "failing system calls"
SAMPLES = 150
PAGES = {  # what each manual page states, as far as the call may be made so
    "access": "EACCES EBADF EFAULT EINVAL EIO ELOOP ENAMETOOLONG ENOENT ENOMEM ENOTDIR EPERM EROFS"
              " ETXTBSY",
    "close": "EBADF EDQUOT EINTR EIO ENOSPC",
    "connect": "EACCES EADDRINUSE EADDRNOTAVAIL EAFNOSUPPORT EAGAIN EALREADY EBADF ECONNREFUSED"
               " EFAULT EINPROGRESS EINTR EISCONN ENETUNREACH ENOTSOCK EPERM EPROTOTYPE ETIMEDOUT",
    "dup2": "EBADF EBUSY EINTR EINVAL EMFILE",
    "exit_group": "",
    "fcntl": "EACCES EAGAIN EBADF EBUSY EDEADLK EFAULT EINTR EINVAL EMFILE ENOLCK ENOTDIR EPERM",
    "futex": "EFAULT EINVAL",  # the only thread wakes others up and never waits
    "getdents64": "EBADF EFAULT EINVAL ENOENT ENOTDIR",
    "getpeername": "EBADF EFAULT EINVAL ENOBUFS ENOTCONN ENOTSOCK",
    "getrandom": "EAGAIN EFAULT EINTR EINVAL ENOSYS",
    "getsockname": "EBADF EFAULT EINVAL ENOBUFS ENOTSOCK",
    "getsockopt setsockopt": "EBADF EFAULT EINVAL ENOPROTOOPT ENOTSOCK",
    "kill": "ESRCH",  # EPERM says that the owner exists
    "landlock_add_rule": "EBADF EBADFD EFAULT EINVAL ENOMSG EOPNOTSUPP EPERM",
    "landlock_create_ruleset": "E2BIG EFAULT EINVAL ENOMSG EOPNOTSUPP",
    "landlock_restrict_self": "E2BIG EBADF EBADFD EINVAL EOPNOTSUPP EPERM",
    "mmap munmap": "EACCES EAGAIN EBADF EEXIST EINVAL ENFILE ENODEV ENOMEM EOVERFLOW EPERM"
                   " ETXTBSY",
    "mprotect": "EACCES EINVAL ENOMEM",
    "open openat": "EACCES EAGAIN EBADF EBUSY EDQUOT EEXIST EFAULT EFBIG EINTR EINVAL EISDIR ELOOP"
                   " EMFILE ENAMETOOLONG ENFILE ENODEV ENOENT ENOMEM ENOSPC ENOTDIR ENXIO"
                   " EOPNOTSUPP EOVERFLOW EPERM EROFS ETXTBSY",
    "poll": "EFAULT EINTR EINVAL ENOMEM",
    "prctl": "EACCES EBADF EBUSY EFAULT EINVAL ENODEV ENXIO EOPNOTSUPP EPERM ERANGE",
    "prlimit64": "EFAULT EINVAL EPERM ESRCH",
    "read": "EAGAIN EBADF EFAULT EINTR EINVAL EIO EISDIR",
    "recvfrom": "EAGAIN EBADF ECONNREFUSED EFAULT EINTR EINVAL ENOMEM ENOTCONN ENOTSOCK",
    "rt_sigaction": "EFAULT EINVAL",
    "sendto": "EACCES EAGAIN EALREADY EBADF ECONNRESET EDESTADDRREQ EFAULT EINTR EINVAL EISCONN"
              " EMSGSIZE ENOBUFS ENOMEM ENOTCONN ENOTSOCK EOPNOTSUPP EPIPE",
    "socket": "EACCES EAFNOSUPPORT EINVAL EMFILE ENFILE ENOBUFS ENOMEM EPROTONOSUPPORT",
    "socketpair": "EAFNOSUPPORT EFAULT EMFILE ENFILE EOPNOTSUPP EPROTONOSUPPORT",
    "stat fstat newfstatat": "EACCES EBADF EFAULT EINVAL ELOOP ENAMETOOLONG ENOENT ENOMEM ENOTDIR"
                             " EOVERFLOW",
    "sysinfo": "EFAULT",
    "unlink unlinkat": "EACCES EBADF EBUSY EFAULT EINVAL EIO EISDIR ELOOP ENAMETOOLONG ENOENT"
                       " ENOMEM ENOTDIR EPERM EROFS",
}
FAULTS = {call: [f"error={error}" for error in errors.split()]
          for calls, errors in PAGES.items() for call in calls.split()}
FAULTS["brk"] = ["retval=0"]  # it knows no errors: what it returns is too low


def run_traced(world, *options):
    return tracing.run_traced(world, "-y", *options)


def fault_points():
    """Every (call, number, fault) of an undisturbed run."""
    world = sweep_world.world_of_thread()
    sweep_world.lay_out(world)
    _, trace = run_traced(world)
    before, after = tracing.names_before_and_after(trace)
    if unknown := after.keys() - FAULTS.keys():
        raise LookupError(f"PAGES does not say how these calls fail: {sorted(unknown)}")
    return [(call, before[call] + number, fault) for call in sorted(after)
            for number in range(1, after[call] + 1) for fault in FAULTS[call]]


def fail_at(point):
    """What the fault did that it must not do. None if the run did not make that call: how often the
    tool waits for the server varies."""
    call, number, fault = point
    world = sweep_world.world_of_thread()
    path = sweep_world.lay_out(world)
    ended, trace = run_traced(world, "-e", f"inject={call}:{fault}:when={number}")
    failed = next((line for line in trace if "(INJECTED)" in line), None)
    found = sweep_world.complaints(ended)
    found += sweep_world.losses(world, path, failed and is_of_request(failed, trace))
    for problem in found:
        sweep_world.tell(f"{call} {number} {fault}: {problem}: {failed}")
    return found if found or failed else None


def is_of_request(failed, trace):
    """Whether the call that failed made the socket of the request, used it, or was one in which the
    transfer waits: nothing else does, and it waits before it has a socket, too."""
    made = [call for call in trace if call.startswith("socket(AF_INET")]
    return failed.startswith("poll(") or any(tracing.result_of(call) in failed for call in made)


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
