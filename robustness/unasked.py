"""The live records that went without a request in all runs that the other measurements of the same
form made at this commit while calls, memory or the tool itself failed. Theirs are in the
dashboard's results, so this one stands behind them.
"""
import json

import dashboard
import figures
from figures import Figure, if_enough

NAME, GOAL = "live records gone unasked, all causes", "0"
MEASUREMENTS = ("allocations", "system_calls", "kill_points", "limits", "crowd")


def measure(form):
    files = [dashboard.result_file(form, measurement) for measurement in MEASUREMENTS]
    results = [json.loads(file.read_text()) for file in files if file.exists()]
    commit = dashboard.commit()
    judged = [one["judged"] for one in results if one["commit"] == commit]
    gone = sum(one["unasked"] for one in results if one["commit"] == commit)
    complete = len(judged) == len(MEASUREMENTS) and all(judged)
    yield Figure(NAME, GOAL, f"{gone} of {sum(judged):,}", if_enough(gone == 0, complete))


if __name__ == "__main__":
    figures.main(measure)
