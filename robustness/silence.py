#!/usr/bin/env python3
"""What the tool has printed in all runs that other measurements of the same form made at this commit.
Theirs are in the dashboard's results, so this one stands behind all that run the tool.
"""
import dashboard
import figures

NAME, GOAL = "bytes that the tool printed in all runs measured", "0"


def measure(form):
    printed = [result["printed"] for result in dashboard.results_of_this_commit(form)]
    if not printed:
        yield figures.not_run(NAME, GOAL)
        return
    yield figures.Figure(NAME, GOAL, str(sum(printed)), not any(printed))


if __name__ == "__main__":
    figures.main(measure)
