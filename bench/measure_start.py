"""From the start of the process to the first byte of its request at the server."""

import time

import harness as h

REPEATS = 41


def first_byte(server, command):
    """Milliseconds."""
    before = time.monotonic_ns()
    process = h.start(command)
    _, arrival = server.wait_for("poll")
    h.end(process)
    return (arrival - before) / 1e6


def measure(short):
    rows = []
    policies = h.write_policies(**h.SMALL)
    for kind, limit in (("plain", 1.1), ("https", 0.5)):
        commands = {"daemon": [h.DAEMON], "python": h.LOOPS["python"], "limit": [h.LIMIT]}
        times = {name: [] for name in ("daemon", "curl", "python", "limit")}
        with h.Server(policies) as server:
            url = f"{server.tls if kind == 'https' else server.plain}/hold"
            commands["curl"] = ["curl", "-s", f"{url}/guard-config/"]
            h.fresh_home(url, policies[0])
            for _ in range(REPEATS):
                for name, taken in times.items():
                    taken.append(first_byte(server, commands[name]))
        values = {name: h.spread(taken) for name, taken in times.items()}
        ratio = values["daemon"]["median"] / values["curl"]["median"]
        rows.append(h.row(f"start to first request byte, {kind}", f"≤ {limit} × curl", ratio <= limit, "ms", **values))
    return {"rows": rows}
