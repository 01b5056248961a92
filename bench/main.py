"""Runs the measurements; see bench/run."""

import importlib
import json
import os
import sys
import time

import harness as h
import report

GROUPS = ("idle", "fleet", "start", "cycles", "latency", "large", "growth", "size", "status")
SHORT = ("idle", "cycles")
RESULTS = h.REPOSITORY / "bench/results.json"


def run(groups, short):
    results = {}
    for name in groups:
        start = time.monotonic()
        results[name] = importlib.import_module(f"measure_{name}").measure(short)
        results[name]["load"] = os.getloadavg()[0]
        for row in results[name]["rows"]:
            print(report.line(row), flush=True)
        print(f"  ({name}: {time.monotonic() - start:.0f} s, load {results[name]['load']:.1f})", flush=True)
    return results


def main(arguments):
    if arguments == ["--list"]:
        print(*GROUPS)
        return 0
    unknown = [name for name in arguments if name not in (*GROUPS, "--short")]
    if unknown:
        sys.exit(f"bench/run: there is no group {unknown[0]}; bench/run --list has their names")
    h.make_certificates()
    os.sync()  # a program that was just built counts as written to
    if arguments == ["--short"]:
        results = run(SHORT, True)
        return 0 if all(row["met"] is not False for group in results.values() for row in group["rows"]) else 1
    stored = json.loads(RESULTS.read_text(encoding="utf-8")) if RESULTS.exists() else {"groups": {}}
    stored["machine"] = h.machine()
    stored["date"] = time.strftime("%Y-%m-%d", time.gmtime())
    for name in arguments or GROUPS:
        stored["groups"].update(run([name], False))
        RESULTS.write_text(json.dumps(stored, indent=1, ensure_ascii=False) + "\n", encoding="utf-8")
        report.write(stored, GROUPS)
    return 0


sys.exit(main(sys.argv[1:]))
