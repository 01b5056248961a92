"""What the daemon costs while it waits: wake-ups, memory and processor time, held and asleep."""

import time

import harness as h

HOLDERS = ("daemon", "curl", "shell", "python")


def start_waiting(server, command, url, word="poll"):
    h.fresh_home(url, h.SCRATCH / "policy-1.json")
    process = h.start(command)
    server.wait_for(word)
    return process


def wakeups(seconds):
    """Everything that waits, side by side: wake-ups and processor time in so many seconds."""
    waiting = {}
    with h.Server(h.write_policies(**h.SMALL)) as server:
        for name in HOLDERS:
            for kind, url in (("plain", server.plain), ("https", server.tls)):
                curl = ["curl", "-s", f"{url}/hold/api/orvane/v1/connect/guard-config/?wait=300"]
                waiting[name, kind] = start_waiting(server, h.LOOPS.get(name, curl), f"{url}/hold")
        waiting["daemon", "60 s sleep"] = start_waiting(server, [h.DAEMON], f"{server.plain}/fail")
        for process in waiting.values():
            h.settle(process.pid)
        h.fresh_home(server.plain)
        (h.SETUP / "enroll-config.json").unlink()
        waiting["daemon", "30 s sleep"] = h.start([h.DAEMON])
        time.sleep(2)
        seconds = min(seconds, 25)  # the shortest sleep must not end meanwhile
        before = {key: (h.switches_of(process.pid), h.cpu_of(process.pid)) for key, process in waiting.items()}
        time.sleep(seconds)
        result = {}
        for key, process in waiting.items():
            switches, cpu = before[key]
            result[key] = {
                "wakeups": (h.switches_of(process.pid) - switches) * 60 / seconds,
                "cpu": (h.cpu_of(process.pid) - cpu) / seconds,
                "memory": h.memory_of(process.pid),
            }
        for process in waiting.values():
            h.end(process)
    return result


def memory_of_one(kind):
    """Of a single daemon that holds a poll, while one other program uses the same libraries."""
    with h.Server(h.write_policies(**h.SMALL)) as server:
        url = f"{server.tls if kind == 'https' else server.plain}/hold"
        daemon = start_waiting(server, [h.DAEMON], url)
        neighbor = h.start(["curl", "-s", f"{url}/guard-config/"])
        server.wait_for("poll")
        for process in (daemon, neighbor):
            h.settle(process.pid)
        memory = h.memory_of(daemon.pid)
        for process in (daemon, neighbor):
            h.end(process)
    return memory


def cpu_of_a_cycle(cycles=2000):
    with h.Server(h.write_policies(**h.SMALL)) as server:
        process = start_waiting(server, [h.DAEMON], f"{server.plain}/same/{cycles}")
        server.collect_until("poll", cycles + 1)
        h.settle(process.pid)
        cpu = h.cpu_of(process.pid) / cycles
        h.end(process)
    return cpu


def measure(short):
    waiting = wakeups(5 if short else 25)
    rows = []
    stray = 12 if short else 0  # one in five seconds is no rhythm
    for state in ("plain", "https", "60 s sleep", "30 s sleep"):
        held = f"held poll, {state}" if state in ("plain", "https") else state
        values = {name: waiting[name, state]["wakeups"] for name in HOLDERS if (name, state) in waiting}
        rows.append(
            h.row(
                f"wake-ups per minute, {held}", f"≤ {stray}" if stray else "0", values["daemon"] <= stray, "", **values
            )
        )
    for kind, limit in (("plain", 1.6), ("https", 2.0)):
        memory = {name: waiting[name, kind]["memory"] for name in HOLDERS}
        own = {name: values["own"] for name, values in memory.items()}
        room = 1.05 if short else 1
        rows.append(
            h.row(
                f"private memory in a held poll, {kind}", f"≤ {limit} MiB", own["daemon"] <= limit * room, "MiB", **own
            )
        )
        alone = memory_of_one(kind)
        what = f"the same with the file pages that it alone maps, one daemon beside one curl, {kind}"
        rows.append(h.row(what, "", None, "MiB", daemon=alone["own"] + alone["clean"]))
    if not short:
        a_day = waiting["daemon", "plain"]["cpu"] * 86400 + 290 * cpu_of_a_cycle()
        rows.append(h.row("processor time per day, 290 held polls", "≤ 0.5 s", a_day <= 0.5, "s", daemon=a_day))
    return {"rows": rows}
