"""Measures a fleet, simulates larger ones, and writes what came of it; see bench/fleet."""

import datetime
import json
import os
import pathlib
import sys
import time

import fleet_report

RESULTS = pathlib.Path(__file__).with_name("fleet.json")
BIN = 10  # seconds
OUTAGE = 170  # ends between two tries of the daemons, which are 60 s apart
HOLD = 60
WATCHED = 430

# What the control plane is told after the outage, and what the simulation is told.
OUTAGES = {
    "outage": ([], {}),
    "outage, jitter": (["--jitter"], {"jitter": True}),
    "outage, jitter, half of the polls refused for 4 minutes": (
        ["--jitter", "--fault", "server-error,percent=50,seconds=240"],
        {"jitter": True, "refuse": 0.5, "refuse_until": OUTAGE + 240},
    ),
}
CUT = "connections cut, service stays, jitter"


def measure_change(count, tls):
    """How a new policy reaches everybody, and what held polls and connecting cost."""
    with d.scene():
        plane = d.Plane(d.free_port(), 300, tls=tls)
        before = d.bytes_on_loopback()
        fleet = d.Fleet(count, plane.url)
        plane.wait_for_holds(count)
        h.settle(plane.process.pid)
        start_cpu, start_bytes = h.cpu_of(plane.process.pid), d.bytes_on_loopback() - before
        memory = fleet.memory()
        devices_cpu, before = fleet.cpu(), d.bytes_on_loopback()
        published = time.time()
        plane.put("/policy", d.policy(2))
        plane.wait_for_holds(2 * count)
        h.settle(plane.process.pid)
        times = fleet.capture_times("v2.example.com")
        if None in times:
            raise RuntimeError(f"{times.count(None)} daemons do not have the policy")
        delays = sorted(1000 * (at - published) for at in times)
        return {
            "delays": [round(delay, 1) for delay in delays],
            "devices_cpu": fleet.cpu() - devices_cpu,
            "plane_cpu": h.cpu_of(plane.process.pid) - start_cpu,
            "bytes": d.bytes_on_loopback() - before,
            "start_plane_cpu": start_cpu,
            "start_bytes": start_bytes,
            "memory": memory,
            "memory_after": fleet.memory(),
        }


def measure_holds(count):
    """What a poll costs that ends with 304."""
    with d.scene():
        plane = d.Plane(d.free_port(), 10)
        fleet = d.Fleet(count, plane.url)
        plane.wait_for_holds(2 * count)
        polls, bytes_before = len(plane.arrivals()), d.bytes_on_loopback()
        cpu, devices_cpu = h.cpu_of(plane.process.pid), fleet.cpu()
        time.sleep(40)
        polls = len(plane.arrivals()) - polls
        return {
            "polls": polls,
            "plane_cpu": h.cpu_of(plane.process.pid) - cpu,
            "devices_cpu": fleet.cpu() - devices_cpu,
            "bytes": d.bytes_on_loopback() - bytes_before,
        }


def bins(arrivals, since):
    counts = [0] * (WATCHED // BIN)
    for at, _ in arrivals:
        if since <= at < since + WATCHED:
            counts[int(at - since) // BIN] += 1
    return counts


def measure_outage(count, options):
    with d.scene():
        port = d.free_port()
        plane = d.Plane(port, HOLD)
        d.Fleet(count, plane.url)
        plane.wait_for_holds(2 * count)
        lost = time.time()
        plane.kill()
        time.sleep(lost + OUTAGE - time.time())
        plane = d.Plane(port, HOLD, options)
        time.sleep(lost + WATCHED - time.time())
        return bins(plane.arrivals(), lost)


def measure_cut(count):
    with d.scene():
        plane = d.Plane(d.free_port(), HOLD, ["--jitter"])
        balancer = d.Balancer(d.free_port(), plane.port)
        d.Fleet(count, balancer.url)
        plane.wait_for_holds(2 * count)
        cut = time.time()
        balancer.cut_all()
        time.sleep(cut + WATCHED - time.time())
        return bins(plane.arrivals(), cut)


def measure(count):
    h.make_certificates()
    load = os.getloadavg()[0]
    results = {"machine": h.machine(), "date": f"{datetime.datetime.now(datetime.timezone.utc):%F}", "devices": count}
    results["change"] = {"http": measure_change(count, False), "https": measure_change(count, True)}
    results["holds"] = measure_holds(count)
    results["courses"] = {}
    for name, (options, told) in OUTAGES.items():
        results["courses"][name] = {
            "told": {"outage": OUTAGE, **told},
            "polls": measure_outage(count, options),
        }
        print(name, results["courses"][name], flush=True)
    results["courses"][CUT] = {"told": {"cut": True, "jitter": True}, "polls": measure_cut(count)}
    for course in results["courses"].values():
        course["told"].update({"hold": HOLD, "seconds": WATCHED})
    # What was left over at the end says nothing of the start.
    results["remark"] = f"Load average before: {load:.1f}."
    return results


def main(arguments):
    if arguments == ["--simulate"]:
        fleet_report.write(json.loads(RESULTS.read_text(encoding="utf-8")), BIN)
        return
    if arguments == ["--short"]:
        h.make_certificates()
        print(f"the last of 10 daemons has the policy after {measure_change(10, True)['delays'][-1]:.0f} ms")
        return
    results = measure(int(arguments[0]) if arguments else 1000)
    RESULTS.write_text(json.dumps(results, indent=1) + "\n", encoding="utf-8")
    fleet_report.write(results, BIN)


if sys.argv[1:] != ["--simulate"]:  # that works anywhere
    import fleet_devices as d
    import harness as h
main(sys.argv[1:])
