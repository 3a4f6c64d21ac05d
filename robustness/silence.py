#!/usr/bin/env python3
"""What the tool has printed in all runs of the other measurements of the same form."""
import json

import figures

NAME, GOAL = "bytes on stdout and stderr by the tool, all tests", "0"


def measure(form):
    results = [json.loads(file.read_text()) for file in (figures.RESULTS / form).glob("*.json")]
    if not results:
        yield figures.not_run(NAME, GOAL)
        return
    printed = sum(result["printed"] for result in results)
    yield figures.Figure(NAME, GOAL, str(printed), printed == 0)


if __name__ == "__main__":
    figures.main(measure)
