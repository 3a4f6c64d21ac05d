"""The tests in a build of their own, for measurements that are taken while they run."""
import os
import shutil
import subprocess

import figures
import unconfined


def built(preset, *targets):
    tree = figures.BUILD / preset
    subprocess.run(["cmake", "--preset", preset, "-B", tree], cwd=figures.ROOT, check=True,
                   stdout=subprocess.DEVNULL)
    return subprocess.run(["ninja", "-C", tree, "--quiet", *targets], check=False,
                          stdout=subprocess.DEVNULL).returncode == 0


def empty_folder(folder):
    """One that tests may write to, whoever they run as."""
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    folder.chmod(0o777)
    return folder


def passes(preset, left_out, settings):
    """Whether all tests pass but those left out. The settings lead them to where they leave what was
    measured."""
    tree = figures.BUILD / preset
    done = subprocess.run(
        ["ctest", "--test-dir", tree, f"-j{figures.JOBS}", "--timeout", "300", "-E", left_out, "-Q",
         "-O", tree / "ctest.log"], check=False, preexec_fn=unconfined.give_up_confinement,
        env=os.environ | settings)
    return done.returncode == 0


def note(preset, passed):
    """What a figure adds when tests failed."""
    return "" if passed else f", tests failed, see {figures.BUILD / preset / 'ctest.log'}"
