#!/usr/bin/env python3
"""Adds up what the tool printed in the other measurements of the same form at this commit. It reads
the dashboard's results and therefore comes after all measurements that run the tool.
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
