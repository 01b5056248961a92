"""What the status command costs, and that it does not grow with the activity log."""

import os
import resource
import statistics
import subprocess
import time

import harness as h

STATUS = h.BUILD / "orvane-policy-status"
RUNS = 30
LINE = (
    '{"bytes":0,"daemon":"policy-daemon","method":"GET","ms":300123,"pid":4711,"status":304,"ts":"%s",'
    '"url":"https:\\/\\/control.example\\/api\\/orvane\\/v1\\/connect\\/guard-config\\/?wait=300"}\n'
)


def write_log(lines, hole=0):
    """A log with so many lines of the last 24 hours, behind a hole of so many bytes."""
    h.ACTIVITY_LOG.parent.mkdir(exist_ok=True)
    now = time.time()
    with open(h.ACTIVITY_LOG, "w", encoding="utf-8") as log:
        log.truncate(hole)
        log.seek(hole)
        log.write("\n")
        for i in range(lines):
            ended = time.gmtime(now - (lines - i) * 86000 / lines)
            log.write(LINE % time.strftime("%Y-%m-%dT%H:%M:%S.000Z", ended))


def used():
    """Milliseconds of processor time of all children so far."""
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return (usage.ru_utime + usage.ru_stime) * 1000


def milliseconds(command):
    """Of processor time, of one run. It waits for nothing, so on a machine at rest it takes no longer."""
    before = used()
    subprocess.run(command, stdout=subprocess.DEVNULL, check=False)
    return used() - before


def measure(short):
    h.fresh_home("http://127.0.0.1:9")
    logs = {"day": (288, 0), "flood": (8000, 0), "large": (288, 10**9), "larger": (288, 10**10)}
    times = {name: [] for name in [*logs, "true"]}
    for _ in range(RUNS):  # interleaved: what else the machine does must not look like growth
        for name, (lines, hole) in logs.items():
            write_log(lines, hole)
            times[name].append(milliseconds([STATUS]))
        times["true"].append(milliseconds(["/usr/bin/true"]))
    os.unlink(h.ACTIVITY_LOG)
    day, flood, large, larger, nothing = (statistics.median(times[name]) for name in [*logs, "true"])
    return {
        "rows": [
            h.row(
                "processor time of orvane-policy-status, a log of 288 polls",
                "≤ 50 ms",
                day <= 50,
                "ms",
                daemon=day,
                true=nothing,
            ),
            h.row("the same, a log of which 1 MiB is read, the most there is", "≤ 50 ms", flood <= 50, "ms", daemon=flood),
            h.row("the same, a log of 10 GB against 1 GB", "none", larger <= 1.2 * large, "×", daemon=larger / large),
        ]
    }
