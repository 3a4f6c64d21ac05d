#!/usr/bin/env python3
"""Takes a newcomer's way with this tree on bare Debian systems, each in a root directory of its own.

usage: strangers.py quick          Debian 13 as an ordinary user
       strangers.py full [WAY...]  all of them, or some
       strangers.py page           writes the last results into docs/strangers.md

Only root can. The systems are kept in $XDG_CACHE_HOME/qal: as debootstrap makes them, and with the
packages that `./run` asked for.
"""
import datetime
import json
import os
import pathlib
import re
import signal
import sys
import time
import traceback
import typing

import debian

TREE = pathlib.Path(__file__).resolve().parents[2]
RESULTS = TREE / "build" / "strangers" / "results"
GATE = TREE / "build" / "gate.tsv"  # how long each step of the last .ci/run took, and all of it
PAGE = TREE / "docs" / "strangers.md"

USER, UNKNOWN_USER = "newcomer", "54321"
PLAIN, ODD = "qal", "Büro im Gartenhaus/qal 1"


class Way(typing.NamedTuple):
    """Who comes, with what, and what is done. `packages`: whether what ./run needs is already installed.
    `sudo`: whether the user may install it."""
    title: str
    system: str
    user: str
    do: typing.Callable
    sudo: bool = False
    packages: bool = True
    mask: str = "022"
    folder: str = PLAIN


class Newcomer:
    """Someone in a fresh root directory, with the sources."""

    def __init__(self, way, root):
        self.way, self.root = way, root
        self.home = "/root" if way.user == "root" else f"/home/{way.user}"
        self.folder = f"{self.home}/{way.folder}"
        self.notes, self.seconds = [], {}
        if way.user != "root":
            self.root.add_user(way.user, may_install=way.sudo)

    def shell(self, script, folder=None):
        """Runs it as the newcomer would; what it printed, and whether it ended well."""
        return self.root.shell(f"umask {self.way.mask}; cd '{folder or self.folder}' && {{ {script}\n}}",
                               user=self.way.user, home=self.home)

    def must(self, script, folder=None):
        good, output = self.shell(script, folder)
        if not good:
            raise RuntimeError(f"{script}:\n{output[-6000:]}")
        return output

    def bring_sources(self, with_history=False):
        self.must(f"mkdir -p '{self.folder}'", self.home)
        if with_history:
            self.root.install("git")
            self.root.clone(TREE, self.folder, self.way.user)
        else:
            self.root.copy_sources(TREE, self.folder, self.way.user, self.way.mask)

    def run(self, command, name=None):
        """A command of the tree. Packages that it names are installed by who may."""
        started = time.monotonic()
        good, output = self.shell(command)
        wanted = re.search(r"^apt-get update && .*", output, re.MULTILINE)
        if not good and wanted:
            self.notes.append(f"`{command}` names the packages that are missing")
            self.root.admin(wanted[0])
            started = time.monotonic()
            good, output = self.shell(command)
        self.seconds[name or command] = round(time.monotonic() - started)
        if not good:
            raise RuntimeError(f"{command}:\n{output[-6000:]}")
        return output


def tests_in(output):
    """How many passed, and the names of those that were skipped."""
    failed, tests = re.search(r"(\d+) tests failed out of (\d+)", output).groups()
    skipped = re.findall(r"^\s*\d+ - (.+?) \(Skipped\)", output, re.MULTILINE)
    return {"passed": int(tests) - int(failed) - len(skipped), "failed": int(failed), "skipped": skipped}


def demo_and_test(newcomer):
    newcomer.bring_sources()
    shown = newcomer.run("./run demo")
    if "Every record is as it should be." not in shown:
        raise RuntimeError(shown)
    return tests_in(newcomer.run("./run test"))


def demo_test_and_again(newcomer):
    """Also what comes after the first time."""
    result = demo_and_test(newcomer)
    newcomer.run("./run test", "./run test, nothing changed")
    newcomer.run("touch utils/libsrc/qal_hash.cpp; ./run test hash", "./run test hash, hash changed")
    good, output = newcomer.shell("./run test nosuch")
    if good or "hash" not in output:
        raise RuntimeError(f"./run test nosuch: {output}")
    return result


def shared_and_unordered(newcomer):
    """A shared library, tests in any order, eight at a time. One area comes first, in a tree where
    nothing is built."""
    newcomer.bring_sources()
    newcomer.run("./run test child")
    newcomer.run("cmake --preset release -B build/shared -DBUILD_SHARED_LIBS=ON && cmake --build build/shared",
                 "build")
    return tests_in(newcomer.run("ctest --test-dir build/shared --schedule-random -j8 --output-on-failure",
                                 "ctest -j8"))


def unordered_and_whole(newcomer):
    """Eight at a time in any order; then each program in one process, as a development environment
    starts it."""
    newcomer.bring_sources()
    newcomer.run("./run build", "build")
    result = tests_in(newcomer.run(
        "ctest --test-dir build/release --schedule-random -j8 --output-on-failure", "ctest -j8"))
    newcomer.run("for program in $PWD/build/release/tests/*_test $PWD/build/release/tests/stress/*_stress; do"
                 " (cd / && timeout 300 \"$program\" --gtest_brief=1 --gtest_shuffle) || exit; done",
                 "whole programs")
    return result


def readme(newcomer):
    """Every command line of the README, as it stands. Packages are made on Debian 12."""
    newcomer.bring_sources(with_history=True)
    newcomer.root.admin("echo 'APT::Get::Assume-Yes \"true\";' >/etc/apt/apt.conf.d/yes")
    text = (TREE / "README.md").read_text()
    program = re.search(r"^```c\n(.*?)^```", text, re.MULTILINE | re.DOTALL)[1]
    result = None
    for block in re.findall(r"^```sh\n(.*?)^```", text, re.MULTILINE | re.DOTALL):
        if "./run package" in block and newcomer.way.system != "bookworm":
            continue
        if "mine.c" in block:
            newcomer.must(f"cat >mine.c <<'C'\n{program}C")
        output = newcomer.run(f"set -e\n{block}", block.split("#")[0].split("\n")[0].strip() + " …")
        if "tests passed" in output:
            result = tests_in(output)
    if newcomer.must("./a.out").strip() != "scenes/engine/parts":
        raise RuntimeError("the README's program")
    newcomer.must("test -x /usr/local/bin/kalmora-sweep && test -e /usr/local/share/man/man1/kalmora-sweep.1")
    newcomer.must("./run install ~/mine && test -x ~/mine/bin/kalmora-sweep")  # after root's installation
    return result


def ways():
    """Each pair of system and user comes once with nothing installed; the rest is spread over both."""
    for system in debian.TITLES:
        yield f"{system}-root", Way("root, nothing installed", system, "root", demo_test_and_again, packages=False)
        yield f"{system}-user", Way("user without sudo, nothing installed, mask 077, odd folder", system, USER,
                                    demo_and_test, packages=False, mask="077", folder=ODD)
        yield f"{system}-readme", Way("user with sudo, nothing installed, every line of the README", system, USER,
                                      readme, sudo=True, packages=False, folder=ODD)
    yield "bookworm-root-closed", Way("root, mask 077, odd folder; shared, any order, eight at a time", "bookworm",
                                      "root", shared_and_unordered, mask="077", folder=ODD)
    yield "trixie-user-open", Way("user, mask 0; shared, any order, eight at a time", "trixie", USER,
                                  shared_and_unordered, mask="0")
    yield "trixie-root-open", Way("root, mask 0; any order, eight at a time, and whole programs", "trixie", "root",
                                  unordered_and_whole, mask="0")
    yield "trixie-user-unknown", Way("user whom the password database does not know", "trixie", UNKNOWN_USER,
                                     demo_and_test)


WAYS = dict(ways())
QUICK = Way("user without sudo, mask 077, odd folder", "trixie", USER, demo_and_test, mask="077", folder=ODD)


def go(name, way):
    print(f"-- {name}: {debian.TITLES[way.system]}, {way.title}", flush=True)
    started = time.monotonic()
    result = {}
    try:
        with debian.Root(way.system, with_packages=way.packages) as root:
            newcomer = Newcomer(way, root)
            result = {"seconds": newcomer.seconds, "notes": newcomer.notes}
            result["tests"] = way.do(newcomer)
            if newcomer.notes:
                root.keep_packages(USER)
    except Exception as problem:  # the others are tried all the same
        traceback.print_exc()
        result["problem"] = str(problem)[:200]
    result |= {"way": name, "system": debian.TITLES[way.system], "title": way.title,
               "took": round(time.monotonic() - started), "date": datetime.date.today().isoformat()}
    RESULTS.mkdir(parents=True, exist_ok=True)
    (RESULTS / f"{name}.json").write_text(json.dumps(result, indent=1))
    print(f"   {verdict(result)}, {result['took']} s", flush=True)
    return result


def verdict(result):
    tests = result.get("tests")
    if not tests or tests["failed"] or "problem" in result:
        return "FAILED"
    return f"{tests['passed']} passed" + (f", {len(tests['skipped'])} skipped" if tests["skipped"] else "")


def skipped_in(results):
    return sorted({name for result in results for name in (result.get("tests") or {}).get("skipped", [])})


def summary(results):
    for name in skipped_in(results):
        print(f"skipped: {name}")
    failed = [result["way"] for result in results if verdict(result) == "FAILED"]
    print(f"{len(results) - len(failed)} of {len(results)} ways are green" +
          (f"; not: {', '.join(failed)}" if failed else ""))
    return 1 if failed else 0


def times(result):
    return ", ".join(f"`{what}` {seconds} s" for what, seconds in result.get("seconds", {}).items())


def gate():
    """The steps of the last run of the gate, two at a time, in a sentence."""
    seconds = dict(line.split("\t") for line in GATE.read_text().splitlines())
    minutes = int(seconds.pop("all")) / 60
    return f"{minutes:.1f} minutes, two steps at a time: " + ", ".join(f"`{step}` {took} s" for step, took in seconds.items())


def write_page():
    results = [json.loads((RESULTS / f"{name}.json").read_text()) for name in WAYS]
    rows = [f"| {one['system']} | {one['title']} | {verdict(one)} | {times(one)} | {one['date']} |"
            for one in results]
    PAGE.write_text("\n".join((
        "# Strangers",
        "",
        "What a newcomer meets on a machine that has never seen this project. `./run strangers full` makes bare Debian",
        "systems, comes as root, as a user who may install packages and as one who may not, under different masks, in a",
        "folder with blanks and an umlaut, without a locale, and does what the README says. Where packages are missing",
        "and may not be installed, an administrator types the line that `./run` prints; the times are without that, but",
        "with what `./run` installs itself. The quick form is Debian 13 as an ordinary user, and a part of the gate.",
        f"Written by `./run strangers page` on a machine with {os.cpu_count()} processors.",
        "",
        "| system | who, and how | tests | took | on |",
        "| --- | --- | --- | --- | --- |",
        *rows,
        "",
        "Skipped, because the system refuses what they need: " + (", ".join(skipped_in(results)) or "none") + ".",
        "",
        f"The steps of the gate, `.ci/run`, took in a clean clone on such a machine {gate()}.",
        "")))


def main(arguments):
    if arguments == ["page"]:
        return write_page()
    os.umask(0o022)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    form, chosen = (arguments or ["quick"])[0], arguments[1:]
    if form not in ("quick", "full") or set(chosen) - set(WAYS) or (form == "quick" and chosen):
        sys.exit(__doc__)
    if os.geteuid() != 0:
        print("NOT TRIED: only root can make a root directory")
        return 0
    ways = {"quick": QUICK} if form == "quick" else {name: WAYS[name] for name in chosen or WAYS}
    return summary([go(name, way) for name, way in ways.items()])


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
