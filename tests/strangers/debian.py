"""Bare Debian systems, each in a root directory of its own, with its own mounts and processes."""
import os
import pathlib
import shutil
import subprocess
import tempfile

TITLES = {"bookworm": "Debian 12", "trixie": "Debian 13"}
CACHE = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache") / "qal"

# pivot_root, because the kernel refuses user namespaces to a process in a chroot. The shared memory
# is the system's own. All mounts and processes end with the first process, which is root's as on
# every machine.
ENTER = """
mount --bind "$1" "$1" && mount -t proc proc "$1/proc" && mount --rbind /dev "$1/dev" &&
  mount -t tmpfs -o mode=1777 shm "$1/dev/shm" && cd "$1" && pivot_root . . && umount --lazy . && cd / || exit
shift
"$@"
exit $?
"""
SETTINGS = ("PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "DEBIAN_FRONTEND=noninteractive")


def run(command, **options):
    subprocess.run(command, check=True, stdin=subprocess.DEVNULL, **options)


def archive(system, with_packages):
    return CACHE / f"{system}{'-with-packages' if with_packages else ''}.tar"


def pack(directory, file):
    file.parent.mkdir(parents=True, exist_ok=True)
    new = file.with_suffix(".new")
    run(["tar", "--one-file-system", "-cf", new, "-C", directory, "."])
    new.rename(file)


def bare_system(system):
    """The archive of the system as debootstrap makes it."""
    file = archive(system, False)
    if not file.exists():
        with tempfile.TemporaryDirectory(prefix="qal-root-", dir="/var/tmp") as directory:
            run(["debootstrap", "--variant=minbase", system, directory], stdout=subprocess.DEVNULL)
            pack(directory, file)
    return file


class Root:
    """A root directory. The one with packages is a bare one until some have been kept."""

    def __init__(self, system, with_packages):
        self.system = system
        self.archive = archive(system, True)
        if not with_packages or not self.archive.exists():
            self.archive = bare_system(system)
        self.directory = tempfile.TemporaryDirectory(prefix="qal-root-", dir="/var/tmp")
        self.path = pathlib.Path(self.directory.name)

    def __enter__(self):
        self.directory.__enter__()
        run(["tar", "-xf", self.archive, "-C", self.path])
        self.path.chmod(0o755)  # the archive has the mode of a temporary directory
        shutil.copy("/etc/resolv.conf", self.path / "etc/resolv.conf")
        return self

    def __exit__(self, *problem):
        self.directory.__exit__(*problem)

    def keep_packages(self, user):
        """For the next who comes to this system with packages, and may be this user."""
        self.admin(f"rm -rf /home/* /root/* /tmp/* /var/tmp/*; apt-get clean; ! id {user} 2>&1 || userdel {user}")
        pack(self.path, archive(self.system, True))

    def command(self, script, user, home):
        """Runs the script in a shell of the user, in an environment that holds nothing else."""
        group = user if user.isdecimal() else ""  # one without a name has no group of its own either
        return ["unshare", "--mount", "--pid", "--ipc", "--uts", "--fork", "--kill-child", "sh", "-c", ENTER, "sh", self.path,
                "chroot", f"--userspec={user}:{group}", "/", "env", "-i", *SETTINGS, f"HOME={home}", f"USER={user}",
                "bash", "-c", script]

    def shell(self, script, user="root", home="/root", stdin=subprocess.DEVNULL):
        """Whether it ended well, and what it printed."""
        done = subprocess.run(self.command(script, user, home), stdin=stdin, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, errors="replace", check=False)
        return done.returncode == 0, done.stdout

    def admin(self, script):
        good, output = self.shell(script)
        if not good:
            raise RuntimeError(f"{script}:\n{output[-3000:]}")

    def install(self, *packages):
        self.admin("apt-get update -qq && apt-get install -y -qq --no-install-recommends " + " ".join(packages))

    def add_user(self, name, may_install):
        """A number alone stands for one without an entry, as the users of containers may be."""
        if name.isdecimal():
            self.admin(f"mkdir /home/{name} && chown {name}:{name} /home/{name}")
            return
        self.admin(f"useradd --create-home --shell /bin/bash {name}")
        if may_install:
            self.install("sudo")
            self.admin(f"usermod -aG sudo {name} && echo '{name} ALL=(ALL) NOPASSWD: ALL' >/etc/sudoers.d/{name}")

    def copy_sources(self, tree, folder, user, mask):
        """What git knows of, as the user would unpack it."""
        listed = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                                cwd=tree, check=True, capture_output=True).stdout
        names = b"\0".join(name for name in listed.split(b"\0") if name and (tree / os.fsdecode(name)).exists())
        with tempfile.TemporaryFile() as sources:
            subprocess.run(["tar", "--null", "-T", "-", "-c"], cwd=tree, input=names, stdout=sources, check=True)
            sources.seek(0)
            script = f"umask {mask}; tar -x --no-same-owner --no-same-permissions -C '{folder}'"
            good, output = self.shell(script, user, stdin=sources)
        if not good:
            raise RuntimeError(output)

    def clone(self, tree, folder, user):
        """The last commit, with its history."""
        inside = f"{self.path}{folder}"
        run(["git", "clone", "--quiet", "--no-hardlinks", tree, inside])
        self.admin(f"chown -R {user}: '{folder}'")
