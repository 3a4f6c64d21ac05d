#!/usr/bin/env python3
"""Uses the shared library from Python: sorts a list and matches names against a wildcard.

usage: from_python.py SHARED_LIBRARY
"""
import ctypes
import sys

if len(sys.argv) != 2:
    sys.exit(__doc__)
qal = ctypes.CDLL(sys.argv[1])
for name in ("qal_list_pool_create", "qal_list_create", "qal_list_alloc", "qal_list_first", "qal_list_next"):
    getattr(qal, name).restype = ctypes.c_void_p  # an int would lose half of the address

Number = ctypes.POINTER(ctypes.c_double)
Compare = ctypes.CFUNCTYPE(ctypes.c_int, Number, Number)


@Compare
def ascending(earlier, later):
    return 1 if earlier[0] > later[0] else 0


def sort(values):
    """Sorts through a list whose elements hold the numbers."""
    pool = ctypes.c_void_p(qal.qal_list_pool_create(ctypes.sizeof(ctypes.c_double), 64, 1))
    numbers = ctypes.c_void_p(qal.qal_list_create(pool))
    for value in values:
        element = ctypes.c_void_p(qal.qal_list_alloc(numbers))
        ctypes.cast(element, Number)[0] = value
        qal.qal_list_append(numbers, element)
    qal.qal_list_sort(numbers, ascending)
    result, at = [], qal.qal_list_first(numbers)
    while at:
        result.append(ctypes.c_double.from_address(at).value)
        at = qal.qal_list_next(ctypes.c_void_p(at))
    qal.qal_list_pool_destroy(ctypes.byref(pool))  # and with it the list, whose header is pooled
    return result


assert qal.qal_utils_init() == 0
print(sort([2.5, 0.75, 10, -1.25]))
for name in (b"halix_server7.dat", b"halix_server7.txt"):
    matches = qal.zul_fnmatch(b"halix_server*.dat", name) == 0
    print(name.decode(), "matches" if matches else "does not match")
qal.qal_utils_done()
