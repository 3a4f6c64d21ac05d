#!/usr/bin/env python3
"""Settles the records of a directory as a script would: usage: settle.py DIRECTORY"""
import base64
import glob
import os
import sys
import urllib.request


def is_running(pid):
    try:
        os.kill(pid, 0)
    except ProcessLookupError:
        return False
    except PermissionError:
        pass
    return True


def notify(url, user, password):
    credentials = base64.b64encode(f"{user}:{password}".encode()).decode()
    request = urllib.request.Request(url, headers={"Authorization": f"Basic {credentials}"})
    with urllib.request.urlopen(request, timeout=10) as answer:
        answer.read()


for path in glob.iglob(os.path.join(sys.argv[1], "halix_server*.dat")):
    with open(path) as record:
        url, user, password, pid = record.read().split()[:4]
    if is_running(int(pid)):
        notify(url, user, password)
        os.unlink(path)
