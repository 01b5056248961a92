"""Memory per daemon with many of them on one machine."""

import harness as h


def share_of_each(server, command, count):
    """MiB of proportional memory of each of so many processes that hold a poll."""
    processes = [h.start(command) for _ in range(count)]
    for _ in processes:
        server.wait_for("poll")
    h.settle(processes[-1].pid, limit=60)
    share = sum(h.memory_of(process.pid)["share"] for process in processes) / count
    for process in processes:
        h.end(process)
    return share


def measure(short):
    rows = []
    policies = h.write_policies(**h.SMALL)
    for kind, limit in (("plain", 1.6), ("https", 2.1)):
        for count in (200, 1000):
            with h.Server(policies) as server:
                url = f"{server.tls if kind == 'https' else server.plain}/hold"
                h.fresh_home(url, policies[0])
                daemon = share_of_each(server, [h.DAEMON], count)
                curl = share_of_each(server, ["curl", "-s", f"{url}/guard-config/"], count)
            what = f"memory per daemon, {count:,} of them, {kind}"
            rows.append(h.row(what, f"≤ {limit} MiB", daemon <= limit, "MiB", daemon=daemon, curl=curl))
    return {"rows": rows}
