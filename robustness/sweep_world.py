"""What the measurements of the whole tool share: scratch directories that stand in for a user's,
records, servers on the loopback interface, and one watched run of the tool.

The tool runs as an ordinary user, even when the measurement is root's: faults of permission are
real then. All that is made here lies below one scratch directory that goes when Python ends.
"""
import atexit
import collections
import concurrent.futures
import dataclasses
import functools
import itertools
import os
import pathlib
import shutil
import signal
import stat
import subprocess
import sys
import tempfile
import threading
import time

from figures import BUILD, JOBS, ROOT, TOOL, Figure

ORDINARY_USER = 65534
GONE_OWNER = 2147483647  # no process ever has this id
RESOURCES = "Library/Application Support/kalmora102"
LIVE, KEPT, OTHER = "halix_server1.dat", "halix_server2.dat", "other.dat"
UNASKED = "lost the live record without a request"

os.umask(0o022)  # whatever the user's is, the tool's user reads what is made here

_totals = collections.Counter(printed=0, judged=0, unasked=0)
_totals_lock = threading.Lock()
_numbers = itertools.count(1)
_of_thread = threading.local()


@dataclasses.dataclass(frozen=True)
class World:
    """A user's directories as far as the tool knows them."""
    root: pathlib.Path
    home: pathlib.Path
    resources: pathlib.Path
    temporary: pathlib.Path


@dataclasses.dataclass(frozen=True)
class Run:
    """How a run of the tool ended. Status is None when it had to be stopped."""
    status: int | None
    seconds: float
    printed: bytes


def made_once(make):
    """The function, cached so that threads that come at once get the same."""
    cached, lock = functools.cache(make), threading.Lock()

    @functools.wraps(make)
    def made(*arguments):
        with lock:
            return cached(*arguments)
    return made


def totals():
    """What all runs of this process together came to, by name: the bytes that the tool `printed`,
    the live records that were `judged`, and how many of these went `unasked`."""
    with _totals_lock:
        return _totals.copy()


def add(name, amount):
    with _totals_lock:
        _totals[name] += amount


def tell(problem):
    print(problem, file=sys.stderr)


def give_away(path):
    if os.geteuid() == 0:
        os.lchown(path, ORDINARY_USER, ORDINARY_USER)
    return path


def make_directory(path):
    path.mkdir()
    return give_away(path)


def make_file(path, content=b""):
    path.write_bytes(content if isinstance(content, bytes) else content.encode())
    return give_away(path)


def open_scratch(parent=None):
    """A directory that the ordinary user may walk through. It goes when Python ends."""
    path = pathlib.Path(tempfile.mkdtemp(dir=parent, prefix="kalmora-robustness-"))
    atexit.register(shutil.rmtree, path, ignore_errors=True)
    path.chmod(0o755)
    return path


def serves(directory):
    """Whether the tool can be started there, by the ordinary user too."""
    path = pathlib.Path(directory).resolve()
    walkable = all(part.stat().st_mode & stat.S_IXOTH for part in (path, *path.parents))
    return (os.access(path, os.W_OK | os.X_OK) and (walkable or os.geteuid() != 0)
            and not os.statvfs(path).f_flag & os.ST_NOEXEC)


@made_once
def scratch():
    places = (tempfile.gettempdir(), "/var/tmp", BUILD)
    return open_scratch(next(filter(serves, places), None))


def copied_for_everybody(program):
    """A copy that the ordinary user can use, who may not be able to walk to the build nor to read
    what was built."""
    path = shutil.copy(program, scratch())
    os.chmod(path, 0o755)
    return path


@made_once
def tool():
    return copied_for_everybody(TOOL)


@made_once
def shim(name):
    """The library for LD_PRELOAD that is made of shims/NAME.c."""
    library = BUILD / "robustness" / f"{name}.so"
    library.parent.mkdir(parents=True, exist_ok=True)
    subprocess.run(["cc", "-shared", "-fPIC", "-O2", "-Wall", "-Wextra", "-Werror", "-o", library,
                    ROOT / "robustness" / "shims" / f"{name}.c"], check=True)
    return copied_for_everybody(library)


def make_world(parent=None):
    root = make_directory((parent or scratch()) / f"world{next(_numbers)}")
    home = make_directory(root / "home")
    resources = home
    for part in RESOURCES.split("/"):
        resources = make_directory(resources / part)
    return World(root, home, resources, make_directory(root / "tmp"))


def world_of_thread():
    """An empty world that this thread uses again and again."""
    if not hasattr(_of_thread, "world"):
        _of_thread.world = make_world()
    empty(_of_thread.world.temporary)
    return _of_thread.world


def empty(directory):
    for entry in os.scandir(directory):
        if entry.is_dir(follow_symlinks=False):
            shutil.rmtree(entry.path)
        else:
            os.unlink(entry.path)


def environment_of(world):
    return {"ZUL_HOME": str(world.root), "ZUL_USER_HOMEDIR": str(world.home),
            "HOME": str(world.home), "TMPDIR": str(world.temporary)}


def ordinary_user():
    if os.geteuid() != 0:
        return {}
    return {"user": ORDINARY_USER, "group": ORDINARY_USER, "extra_groups": []}


def run(world, environment=(), under=(), limit=60):
    """Runs the tool, as the last argument of the command `under` when there is one."""
    start = time.monotonic()
    process = subprocess.Popen(
        [*under, tool()], env=environment_of(world) | dict(environment), cwd=world.root,
        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
        start_new_session=True, **ordinary_user())
    try:
        printed, status = process.communicate(timeout=limit)[0], process.returncode
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        printed, status = process.communicate()[0], None
    add("printed", len(printed))
    return Run(status, time.monotonic() - start, printed)


def complaints(result):
    """What a run did that no run may do."""
    found = []
    if result.status != 0:
        found.append("stopped: it hung" if result.status is None else f"status {result.status}")
    if result.printed:
        found.append(f"printed {result.printed!r}")
    return found


def record(url, owner=None):
    """The text of a record. Without an owner, that of a process that exists."""
    return f"{url} halix s3cret:word {os.getpid() if owner is None else owner}\n"


class Servers:
    """Those of tests/support, in a process of their own, by their names."""

    def __init__(self):
        program = BUILD / "release" / "robustness" / "sweep_servers"
        self.process = subprocess.Popen([program], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        text=True)
        self.lock = threading.Lock()
        shown = itertools.takewhile("\n".__ne__, self.process.stdout)
        (_, self.good), *bad = (line.rstrip().split("\t") for line in shown)
        self.bad = dict(bad)

    def asked(self, path):
        """How often the good one was asked for it."""
        with self.lock:
            print(path, file=self.process.stdin, flush=True)
            return int(self.process.stdout.readline())


@made_once
def servers():
    return Servers()


def lay_out_record(world, number):
    """A record to settle. Returns the path that the server is asked for."""
    path = f"/{next(_numbers):08}"
    make_file(world.temporary / f"halix_server{number}.dat", record(servers().good + path))
    return path


def lay_out(world):
    """Puts out a record to settle, one to keep and a file that is none. Returns the path that the
    server is asked for."""
    path = lay_out_record(world, 1)
    make_file(world.temporary / KEPT, record(servers().good + "/never", GONE_OWNER))
    make_file(world.temporary / OTHER, "not a record")
    return path


def watch_requests(world):
    """Settings under which a run leaves a mark when it tries a request in vain."""
    mark = request_mark(world)
    mark.unlink(missing_ok=True)
    make_file(mark)
    return {"LD_PRELOAD": shim("requests"), "REQUEST_TRIED": str(mark)}


def has_tried(world):
    return request_mark(world).stat().st_mode & 0o777 == 0


def request_mark(world):
    return world.root / "tried"


def losses(world, path, tried=False):
    """What is gone from the scene of `lay_out` without having been settled. A request that was
    tried in vain settles a record as well as one that arrived."""
    gone = {LIVE, KEPT, OTHER} - set(os.listdir(world.temporary))
    found = [f"lost {name}" for name in sorted(gone - {LIVE})]
    if LIVE in gone and not tried and not servers().asked(path):
        found.append(UNASKED)
    if servers().asked("/never"):
        found.append("asked for a record whose owner is gone")
    return found


def left_by_next_run(world, path):
    """What is wrong after an undisturbed run over what another run has left of the scene."""
    waits, asked = LIVE in os.listdir(world.temporary), servers().asked(path)
    found = complaints(run(world))
    if sorted(os.listdir(world.temporary)) != [KEPT, OTHER]:
        found.append("the next run did not settle the rest")
    if waits and servers().asked(path) == asked:
        found.append(UNASKED)
    return found


def gone_unasked(cause, outcomes):
    """The figure of one cause; an outcome is the list of what was wrong around one live record."""
    gone = sum(UNASKED in found for found in outcomes)
    add("judged", len(outcomes))
    add("unasked", gone)
    return Figure(unasked_name(cause), "0", f"{gone} of {len(outcomes):,}",
                  gone == 0 < len(outcomes))


def unasked_name(cause):
    return f"live records gone unasked: {cause}"


def in_parallel(function, items):
    """The results in the order of the items."""
    with concurrent.futures.ThreadPoolExecutor(JOBS) as pool:
        return list(pool.map(function, items))


def spread(items, wanted):
    """At most `wanted` of the items, evenly spread, the first and the last among them."""
    items = list(items)
    if len(items) <= wanted:
        return items
    return [items[index * (len(items) - 1) // (wanted - 1)] for index in range(wanted)]
