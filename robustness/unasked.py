"""Adds up the live records that went without a request while calls, memory or the tool itself
failed, in the other measurements of the same form at this commit. It reads the dashboard's results
and therefore comes after them.
"""
import dashboard
import figures
from figures import Figure, if_enough

NAME, GOAL = "live records gone unasked, all causes", "0"
MEASUREMENTS = ("allocations", "system_calls", "kill_points", "limits", "crowd")


def measure(form):
    results = dashboard.results_of_this_commit(form, MEASUREMENTS)
    judged = [result["judged"] for result in results]
    gone = sum(result["unasked"] for result in results)
    complete = len(judged) == len(MEASUREMENTS) and all(judged)
    yield Figure(NAME, GOAL, f"{gone} of {sum(judged):,}", if_enough(gone == 0, complete))


if __name__ == "__main__":
    figures.main(measure)
