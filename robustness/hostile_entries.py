"""Directory entries whose names are made to lead a program elsewhere: paths once a backslash counts
as a slash, several names once a newline ends one, formats, patterns, bytes that are no text.

An entry is a pair of its name and its kind. Names are bytes, for many are no text in any encoding.
"""
import itertools
import os
import pathlib
import random
import socket

VICTIMS = (b"notes.txt", b"precious.dat", b"halix_server1.dat", b"halix_server.dat")
AIMS = (b"victim", b"tnp", b"tmp2", b"home\\halix_server")  # "tnp" is as long as "tmp"
DIRECTORIES = (b"halix_server", b"halix_serverA", b"halix_server1")  # to climb out through
LONGEST = 255 - len(b"halix_server.dat")
MIDDLES = (b"", b"...", b" ", b"%s%n%d%99999999s", b"%n" * (LONGEST // 2), b"x" * LONGEST,
           b"\\" * LONGEST, b"\n" * LONGEST, b"\xff" * LONGEST, b"\xff\xfe", b"\xed\xa0\x80",
           b"\xc0\xae\xc0\xae\xc0\xaf", b"\x1b[2J", b"$(touch x)", b"`id`", b"'\";|&", b"*?[]",
           b"~root", b"\xe2\x80\xae", b"\xe2\x88\x95..\xe2\x88\x95", b"C:")
PIECES = (b"halix_server", b"halix_server1.dat", b".dat", b"\\", b"\n", b"..", b".", b"\\..\\",
          b"victim", b"tnp", b"tmp2", b"home", b"notes.txt", b"precious.dat", b"A", b"%n", b"~",
          b"*", b"?", b"[", b"\xff", b"\xc0\xaf", b"\x01", b" ", b"C:", b"\r", b"\t", b"$HOME")


def make_file(path, _):
    pathlib.Path(os.fsdecode(path)).write_bytes(b"not a record")


def make_fifo(path, _):
    os.mkfifo(path)


def make_directory(path, _):
    os.mkdir(path)


def make_socket(path, _):
    """Under a short name first: the address of a socket has little room."""
    directory = os.open(os.path.dirname(path), os.O_PATH)
    short = b"/proc/self/fd/%d/s" % directory
    with socket.socket(socket.AF_UNIX) as made:
        made.bind(short)
    os.rename(short, path)
    os.close(directory)


def link_to_file(path, root):
    os.symlink(root + b"/victim/notes.txt", path)


def link_to_record(path, root):
    os.symlink(root + b"/victim/halix_server1.dat", path)


def link_to_device(path, _):
    os.symlink(b"/dev/zero", path)


def link_to_directory(path, root):
    os.symlink(root + b"/victim", path)


def link_to_nothing(path, root):
    os.symlink(root + b"/victim/missing", path)


def link_to_itself(path, _):
    os.symlink(os.path.basename(path), path)


# What the table of records calls malformed, and what it has nothing to do with.
DELETED_KINDS = (make_file, make_fifo, link_to_file, link_to_record, link_to_device)
KEPT_KINDS = (make_directory, make_socket, link_to_directory, link_to_nothing, link_to_itself)
# A listing that knows no other separator than the newline takes these for plain files.
LISTED_KINDS = DELETED_KINDS + (make_socket,)


def is_record_name(name):
    return (name.startswith(b"halix_server") and name.endswith(b".dat") and len(name) >= 16
            and not set(name) & set(b"\\\n"))


def deleted(kinds):
    """Which of the names, mapped to their kinds, the tool deletes. A piece of a name with newlines
    may be the name of a record beside it. This is also how a link to a directory comes to be
    deleted, which is in no list by its own name."""
    listed = {piece for name, kind in kinds.items()
              if kind in LISTED_KINDS and name.endswith(b".dat") for piece in name.split(b"\n")}
    return {name for name in listed if is_record_name(name)
            and kinds.get(name) in (*DELETED_KINDS, link_to_directory)}


def names_with_every_byte():
    return [b"halix_server" + bytes([byte]) + b".dat" for byte in range(1, 256) if byte != ord("/")]


def odd_names():
    return [b"halix_server" + middle + b".dat" for middle in MIDDLES]


def climbing_names(root):
    """Names that lead to a victim as soon as they are taken for paths or for several names."""
    starts = [b"\\", b"A\\", b"\n\\", b"\n", b"1\n..\\tmp\\"]
    starts.append(root.replace(b"/", b"\\") + b"\\tmp\\")
    climbs = [b"\\".join([b".."] * depth) for depth in (1, 2, 3, 4, 9)]
    names = [b"halix_server" + b"\\".join((start + climb, aim, victim)) + end
             for start, climb, aim, victim in itertools.product(starts, climbs, AIMS, VICTIMS)
             for end in (b"", b"\n.dat")]
    names += [b"halix_server\n" + victim + b"\n.dat" for victim in VICTIMS]
    names += [b"halix_server\\..\\..\\home\\u\\f", b"halix_server\\.dat", b"halix_server\n.dat"]
    return names


def directories():
    """What a climbing name needs to be a path that exists."""
    return [(name, make_directory) for name in DIRECTORIES]


def random_family(seed, count):
    chosen = random.Random(seed)
    entries = directories()
    for _ in range(count):
        middle = b"".join(chosen.choices(PIECES, k=chosen.randint(1, 8)))
        kind = chosen.choice((make_file,) * 6 + DELETED_KINDS + KEPT_KINDS)
        entries.append(
            (b"halix_server" + middle + chosen.choice((b".dat", b"", b"\\f.dat")), kind))
    return entries


def families(root):
    """Lists of entries that have something in common."""
    every_byte, odd, climbing = names_with_every_byte(), odd_names(), climbing_names(root)
    for names in (every_byte, odd, climbing):
        yield directories() + [(name, make_file) for name in names]
    for kind in DELETED_KINDS + KEPT_KINDS:
        yield directories() + [(name, kind) for name in every_byte[::7] + odd + climbing[::9]]
