#!/usr/bin/env python3
"""What the tool printed in all runs of the measurements before this one."""
import figures
import sweep_world


def measure(_):
    printed = sweep_world.bytes_printed()
    yield figures.Figure("bytes on stdout and stderr by the tool, all tests", "0", str(printed),
                         printed == 0)


if __name__ == "__main__":
    figures.main(measure)
