"""One run of the tool for each way in which a server can be bad, one record each, all runs side by
side. The tool must end in time, in silence, with the record deleted and nobody else asked.
"""
import concurrent.futures
import os

import bad_servers
import figures
import sweep_world
from bad_servers import answering, serve
from figures import Figure, not_run

RUN_BOUND_SECONDS = 10.5
SILENT_CROWD = 10
CROWD_BOUND_SECONDS = 75  # 10 for each of the seven that use up a minute, 1 for each of the rest
CROWD_NAME = f"run with {SILENT_CROWD} silent servers"


def redirecting(status):
    target = sweep_world.server().address + "/redirected"
    return answering(f"HTTP/1.1 {status} Moved\r\nLocation: {target}\r\n"
                     "Content-Length: 0\r\n\r\n".encode())


def urls():
    """What the record of each case names."""
    authenticate = b"HTTP/1.1 401 No\r\nWWW-Authenticate: Basic realm=\"x\"\r\n\r\n"
    behaviours = {
        "silent": bad_servers.say_nothing, "hangs up": bad_servers.hang_up,
        "resets": bad_servers.reset, "drips its header": bad_servers.drip_header,
        "drips its body": bad_servers.drip_body, "endless body": bad_servers.endless_body,
        "endless interim answers": bad_servers.endless_answers_that_are_none,
        "100 MB header line": bad_servers.huge_header,
        "100 MB of header lines": bad_servers.huge_header_in_lines,
        "refuses the credentials": answering(authenticate), "garbage": answering(os.urandom(9999)),
        "no answer": answering(b""), "half an answer": answering(b"HTTP/1.1 200 OK\r\nContent-"),
        "escape sequences": answering(b"\x1b[2J\x1b]0;title\x07" * 100),
        "body too short": answering(b"HTTP/1.1 200 OK\r\nContent-Length: 99\r\n\r\nx"),
        "chunks of garbage": answering(
            b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n"),
        "redirects": redirecting(302), "redirects for good": redirecting(301),
        "redirects with the method": redirecting(307)}
    made = {name: f"http://{serve(behaviour)}/" for name, behaviour in behaviours.items()}
    return made | {"refuses": f"http://{bad_servers.nobody()}/",
                   "silent instead of encrypting": f"https://{serve(bad_servers.say_nothing)}/",
                   "does not encrypt": f"https://{serve(answering(bad_servers.DONE))}/"}


def run_with(name, url, environment=()):
    """One run; its seconds and what is wrong with it."""
    world = sweep_world.make_world()
    sweep_world.make_file(world.temporary / sweep_world.LIVE, sweep_world.record(url))
    ended = sweep_world.run(world, environment)
    found = sweep_world.complaints(ended)
    if os.listdir(world.temporary):
        found.append("the record is still there")
    for problem in found:
        sweep_world.tell(f"{name}: {problem}")
    return name, ended.seconds, found


def run_all():
    busy_address, crowd = bad_servers.busy()
    cases = [(name, url) for name, url in urls().items()]
    cases.append(("too busy to take the connection", f"http://{busy_address}/"))
    cases.append(("name service that hangs", "http://records.invalid/",
                  {"LD_PRELOAD": sweep_world.shim("slow_names")}))
    with concurrent.futures.ThreadPoolExecutor(len(cases)) as pool:
        outcomes = list(pool.map(lambda case: run_with(*case), cases))
    for waiting in crowd:
        waiting.close()
    return outcomes


def run_with_silent_crowd():
    world = sweep_world.make_world()
    text = sweep_world.record(f"http://{serve(bad_servers.say_nothing)}/")
    for number in range(SILENT_CROWD):
        sweep_world.make_file(world.temporary / f"halix_server{number}.dat", text)
    ended = sweep_world.run(world, limit=3 * CROWD_BOUND_SECONDS)
    wrong = sweep_world.complaints(ended) or os.listdir(world.temporary)
    reached = not wrong and ended.seconds <= CROWD_BOUND_SECONDS
    return Figure(CROWD_NAME, f"<= {CROWD_BOUND_SECONDS} s", f"{ended.seconds:.1f} s", reached)


def measure(form):
    sweep_world.tool()
    outcomes = run_all()
    name, seconds, _ = max(outcomes, key=lambda outcome: outcome[1])
    yield Figure("longest run with one silent server", f"<= {RUN_BOUND_SECONDS} s",
                 f"{seconds:.1f} s ({name}; {len(outcomes)} ways)", seconds <= RUN_BOUND_SECONDS)
    wrong = sum(bool(found) for _, _, found in outcomes)
    yield Figure("runs with a bad server that left the record or failed", "0",
                 f"{wrong} of {len(outcomes)}", wrong == 0)
    redirected = sweep_world.server().asked["/redirected"]
    yield Figure("requests that a redirection led to", "0", str(redirected), redirected == 0)
    if form == "quick":
        yield not_run(CROWD_NAME, f"<= {CROWD_BOUND_SECONDS} s")
    else:
        yield run_with_silent_crowd()


if __name__ == "__main__":
    figures.main(measure)
