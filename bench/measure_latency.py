"""From the last byte of a 200 to the capture file in place: in memory, and on a disk with all the
flushes that durability needs."""

import shutil
import subprocess

import harness as h

CHANGES = 20
REPEATS = 5


def delays(command):
    """Milliseconds, for some changes of the policy in a row."""
    policies = h.write_policies(**h.SMALL)
    with h.Server(policies) as server:
        h.fresh_home(f"{server.plain}/change/{CHANGES}", policies[0])
        process = h.start(command)
        found = []
        sent = None
        for word, numbers in server.collect_until("poll", CHANGES + 1):
            if word == "policy":
                sent = numbers[1]
            elif word == "capture" and sent is not None:
                found.append((numbers[0] - sent) / 1e6)
                sent = None
        h.end(process)
    return found


def on_disk():
    """Puts the clients' directories on the disk that holds the scratch directory."""
    mounted = []
    for directory in (h.HOME, h.SETUP.parent):
        there = h.pathlib.Path("/disk") / directory.name
        there.mkdir(exist_ok=True)
        subprocess.run(["mount", "--bind", there, directory], check=True)
        mounted.append(directory)
    return mounted


def measure_here(names):
    found = {name: [] for name in names}
    for _ in range(REPEATS):
        for name in names:
            found[name] += delays(h.LOOPS[name])
    return {name: h.spread(values) for name, values in found.items()}


def measure(short):
    names = ("daemon", "python", "limit", "shell")
    memory = measure_here(names)
    mounted = on_disk()
    try:
        disk = measure_here(names)
    finally:
        for directory in mounted:
            shutil.rmtree(directory, ignore_errors=True)
            subprocess.run(["umount", directory], check=True)
    daemon, python, limit = (memory[name]["median"] for name in ("daemon", "python", "limit"))
    met = daemon <= 0.6 * python and daemon <= 2 * limit
    met_on_disk = disk["daemon"]["median"] <= disk["python"]["median"]
    return {
        "rows": [
            h.row(
                "last byte of a 200 to capture file in place, in memory",
                "≤ 0.6 × Python, ≤ 2 × limit",
                met,
                "ms",
                **memory,
            ),
            h.row(
                "the same on a disk; daemon and limit flush, Python and shell do not",
                "≤ 1.0 × Python",
                met_on_disk,
                "ms",
                **disk,
            ),
        ]
    }
