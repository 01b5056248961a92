"""A policy of 50 MB with 500,000 hosts."""

import harness as h

HOSTS = 500_000
NAME = '"host-{:06}.' + "x" * 63 + '.service.example.com"'


def write_large():
    files = []
    for version in (1, 2):
        names = ",".join([f'"v{version}.example.com"'] + [NAME.format(i) for i in range(1, HOSTS)])
        file = h.SCRATCH / f"large-{version}.json"
        file.write_text(f'{{"etag":"v{version}","guard_config":{{"capture":{{"enabled":true,"hosts":[{names}]}}}}}}')
        files.append(file)
    return files


def handle(command, policies, changes):
    """Processor seconds per change, memory at rest before and after, and the peak, in MiB."""
    with h.Server(policies) as server:
        h.fresh_home(f"{server.plain}/change/{changes}", h.write_policies(**h.SMALL)[0])
        process = h.start(command)
        server.collect_until("poll", changes + 1)
        h.settle(process.pid)
        cpu = h.cpu_of(process.pid) / changes
        after = h.memory_of(process.pid)["own"]
        peak = h.peak_memory_of(process.pid)
        h.end(process)
    return cpu, after, peak


def measure(short):
    small = handle([h.DAEMON], h.write_policies(**h.SMALL), 4)
    policies = write_large()
    body = policies[0].stat().st_size / h.MIB
    cpu = {"daemon": [], "python": [], "limit": [], "jq": []}
    after = peak = 0.0
    for _ in range(3):
        found, after, peak = handle([h.DAEMON], policies, 4)
        cpu["daemon"].append(found)
        cpu["python"].append(handle(h.LOOPS["python"], policies, 1)[0])
        cpu["limit"].append(handle([h.LIMIT], policies, 4)[0])
        cpu["jq"].append(h.cpu_of_finished(["jq", "-r", ".etag", policies[0]]))
    values = {name: h.spread(found) for name, found in cpu.items()}
    met = values["daemon"]["median"] <= values["jq"]["median"]
    for file in policies:
        file.unlink()
    return {
        "rows": [
            h.row(f"policy of {body:.0f} MiB: processor time of the cycle", "≤ jq reading it once", met, "s", **values),
            h.row(
                "peak memory while handling it",
                f"≤ 3 × body + 4 = {3 * body + 4:.0f} MiB",
                peak <= 3 * body + 4,
                "MiB",
                daemon=peak,
            ),
            h.row(
                "private memory after it, more than after a small one",
                "≤ 1 MiB",
                after - small[1] <= 1,
                "MiB",
                daemon=after - small[1],
            ),
        ]
    }
