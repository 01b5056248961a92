"""What a cycle costs with a policy of 4 KB: instructions and system calls, which do not depend on
what else the machine does, and cycles per second."""

import signal
import statistics

import harness as h

COUNTS = h.SCRATCH / "callgrind"


def exact_costs(command, mode, url_of, parse, stored=None, cycles=50):
    """What a cycle adds to a count: that of 2N cycles less that of N, divided by N. `stored` is the policy,
    when it is not the usual one."""
    counts = []
    for times in (cycles, 2 * cycles):
        policies = [stored] if stored else h.write_policies(**h.SMALL)
        with h.Server(policies) as server:
            url = f"{server.plain}/{mode}/{times}"
            h.fresh_home(url, policies[0])
            for old in h.SCRATCH.glob("callgrind*"):
                old.unlink()
            process = h.start(url_of(command, url, times))
            server.collect_until("poll", times + 1)
            h.settle(process.pid)
            h.end(process, signal.SIGTERM)
            counts.append(parse())
    return [(more - less) / cycles for less, more in zip(*counts)]


def instructions_so_far():
    """Per thread, the main one first."""
    counts = []
    for file in sorted(h.SCRATCH.glob("callgrind-*")):
        totals = [line for line in file.read_text().splitlines() if line.startswith("totals:")]
        counts.append(int(totals[-1].split()[1]))
    return counts


def instructions(command, mode="same", **how):
    def under_callgrind(command, _url, _times):
        return ["valgrind", "--tool=callgrind", "--separate-threads=yes", f"--callgrind-out-file={COUNTS}", *command]

    return exact_costs(command, mode, under_callgrind, instructions_so_far, **how)


def instructions_of_easy_loop():
    def under_callgrind(command, url, times):
        poll = f"{url}/api/orvane/v1/connect/guard-config/?wait=300"
        return [
            "valgrind",
            "--tool=callgrind",
            "--separate-threads=yes",
            f"--callgrind-out-file={COUNTS}",
            *command,
            poll,
            times + 1,
        ]

    return exact_costs([h.EASY_LOOP], "same", under_callgrind, instructions_so_far)


def system_calls_so_far():
    lines = (h.SCRATCH / "callgrind-calls").read_text().splitlines()
    return [int(line.split()[3]) for line in lines if line.split()[-1:] == ["total"]]


def system_calls(command, mode="same"):
    def under_strace(command, _url, _times):
        return ["strace", "-f", "-c", "-o", h.SCRATCH / "callgrind-calls", *command]

    return exact_costs(command, mode, under_strace, system_calls_so_far)[0]


def cycles_per_second(command, cycles):
    policies = h.write_policies(**h.SMALL)
    with h.Server(policies) as server:
        h.fresh_home(f"{server.plain}/same/{cycles}", policies[0])
        process = h.start(command)
        polls = [numbers for word, numbers in server.collect_until("poll", cycles + 1) if word == "poll"]
        h.end(process)
    return cycles / ((polls[-1][1] - polls[0][1]) / 1e9)


def exact_rows(short):
    main, worker = instructions([h.DAEMON])
    changed = sum(instructions([h.DAEMON], "change"))
    bare = sum(instructions_of_easy_loop())
    room = 1.3 if short else 1
    rows = [
        h.row(
            "HTTP part of a 304 cycle, instructions",
            f"≤ {1.05 * room:.3g} × a bare easy loop",
            worker <= 1.05 * bare * room,
            "k",
            daemon=worker / 1e3,
            easy_loop=bare / 1e3,
        ),
        h.row(
            "304 cycle, instructions",
            "≤ 500 k, stretch 300 k",
            main + worker <= 500e3,
            "k",
            daemon=(main + worker) / 1e3,
        ),
        h.row("200 cycle, instructions", "", changed <= 700e3 if short else None, "k", daemon=changed / 1e3),
        h.row("304 cycle, system calls", "", None, "", daemon=system_calls([h.DAEMON])),
        h.row("200 cycle, system calls", "", None, "", daemon=system_calls([h.DAEMON], "change")),
    ]
    if short:
        for calls, limit in zip(rows[3:], (75, 230)):
            calls["met"] = calls["values"]["daemon"] <= limit
    else:
        for name in ("python", "limit"):
            rows[1]["values"][name] = sum(instructions(h.LOOPS[name])) / 1e3
            rows[2]["values"][name] = sum(instructions(h.LOOPS[name], "change")) / 1e3
            rows[3]["values"][name] = system_calls(h.LOOPS[name])
            rows[4]["values"][name] = system_calls(h.LOOPS[name], "change")
    return rows


def measure(short):
    rows = exact_rows(short)
    if not short:
        speeds = {"daemon": [], "python": [], "limit": [], "shell": []}
        for _ in range(7):
            for name, found in speeds.items():
                found.append(cycles_per_second(h.LOOPS[name], 20 if name == "shell" else 2000))
        values = {name: h.spread(found) for name, found in speeds.items()}
        ratio = statistics.median(a / b for a, b in zip(speeds["daemon"], speeds["python"]))
        rows.append(h.row("cycles per second, 304 at once", "≥ 1.8 × Python", ratio >= 1.8, "/s", **values))
    return {"rows": rows}
