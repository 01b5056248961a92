"""How a cycle's cost grows with what is stored, and with the daemon's age."""

import os
import statistics
import time

import harness as h
import measure_cycles

AGE = 1_000_000
PATIENCE = 600  # seconds; a slow machine gets less far


def cost(policy, log_size=0, cycles=10):
    """Processor milliseconds of a 304 cycle with this policy stored."""
    file = h.SCRATCH / "grown.json"
    file.write_text(policy)
    with h.Server([file]) as server:
        h.fresh_home(f"{server.plain}/same/{cycles}", file)
        if log_size:
            h.ACTIVITY_LOG.parent.mkdir()
            with open(h.ACTIVITY_LOG, "wb") as log:
                os.truncate(log.fileno(), log_size)
        process = h.start([h.DAEMON])
        server.wait_for("poll")
        before = h.cpu_of(process.pid)
        server.collect_until("poll", cycles + 1)
        spent = h.cpu_of(process.pid) - before
        h.end(process)
    file.unlink()
    return spent / cycles * 1000


def instructions(policy):
    """Of a 304 cycle with this policy stored."""
    file = h.SCRATCH / "grown.json"
    file.write_text(policy)
    found = sum(measure_cycles.instructions([h.DAEMON], stored=file, cycles=1))
    file.unlink()
    return found


def growth_row(what, by, larger, smaller):
    """Ten times as much is to cost ten times as much."""
    return h.row(f"{what} of a cycle against {by}", "linear", larger <= 15 * smaller, "×", daemon=larger / smaller)


def cycles_for(size):
    return max(2, min(500, 40_000_000 // size))


def by_size():
    return [
        [size, cost(h.policy_text(1, 10, size), cycles=cycles_for(size))]
        for size in (10**3, 10**4, 10**5, 10**6, 10**7, 10**8)
    ]


def by_hosts():
    return [
        [hosts, cost(h.policy_text(1, hosts), cycles=cycles_for(50 * hosts))]
        for hosts in (10, 100, 10**3, 10**4, 10**5, 10**6)
    ]


def by_log():
    """Medians of runs that take turns: what else the machine does must not look like growth."""
    policy = h.policy_text(1, **h.SMALL)
    costs = {size: [] for size in (10**3, 10**5, 10**7, 10**9, 10**10)}
    for _ in range(7):
        for size, found in costs.items():
            found.append(cost(policy, size, cycles=500))
    return [[size, statistics.median(found)] for size, found in costs.items()]


def by_age():
    """Cost of a cycle and private memory, at twenty points of one daemon's life."""
    policies = h.write_policies(**h.SMALL)
    points = []
    with h.Server(policies) as server:
        h.fresh_home(f"{server.plain}/same/{AGE}", policies[0])
        process = h.start([h.DAEMON])
        server.wait_for("poll")
        cycle, cpu = 1, h.cpu_of(process.pid)
        end = time.monotonic() + PATIENCE
        while cycle <= AGE and time.monotonic() < end:
            later, _ = server.wait_for("poll")
            now = h.cpu_of(process.pid)
            points.append([later, (now - cpu) / (later - cycle) * 1000, h.memory_of(process.pid)["own"]])
            cycle, cpu = later, now
        h.end(process)
    return [point for point in points if point[0] <= AGE]


def measure(short):
    size, hosts, log, age = by_size(), by_hosts(), by_log(), by_age()
    by_size_text, by_hosts_text = "policy size, 100 MB against 10 MB", "hosts, 1,000,000 against 100,000"
    sizes = [instructions(h.policy_text(1, 10, each)) for each in (10**8, 10**7)]
    host_counts = [instructions(h.policy_text(1, each)) for each in (10**6, 10**5)]
    log_costs = [point[1] for point in log]
    age_costs = [point[1] for point in age]
    memory = [point[2] for point in age]
    return {
        "rows": [
            growth_row("instructions", by_size_text, *sizes),
            growth_row("processor time", by_size_text, size[-1][1], size[-2][1]),
            growth_row("instructions", by_hosts_text, *host_counts),
            growth_row("processor time", by_hosts_text, hosts[-1][1], hosts[-2][1]),
            h.row(
                "processor time against the activity log's length, 10 GB against 1 KB",
                "none",
                log_costs[-1] <= 1.15 * log_costs[0],
                "×",
                daemon=log_costs[-1] / log_costs[0],
            ),
            h.row(
                f"processor time against age, the last of {age[-1][0]:,} cycles against the first",
                "none",
                age_costs[-1] <= 1.15 * age_costs[0],
                "×",
                daemon=age_costs[-1] / age_costs[0],
            ),
            h.row(
                f"private memory, after {age[-1][0]:,} cycles less after {age[0][0]:,}",
                "none",
                memory[-1] - memory[0] <= 0.1,
                "MiB",
                daemon=memory[-1] - memory[0],
            ),
        ],
        "plots": {
            "policy-size": size,
            "hosts": hosts,
            "log-length": log,
            "age": [point[:2] for point in age],
            "age-memory": [[point[0], point[2]] for point in age],
        },
    }
