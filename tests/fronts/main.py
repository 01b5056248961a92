"""Runs the cases side by side and prints their figures. Called by tests/fronts/run, in namespaces of its own."""

import argparse
import asyncio
import ctypes
import os
import sys
import time
import traceback

import address_cases
import answer_cases
import fronts
import idle_cases
import loss_cases
import rig
from cases import CASES, Figure, World
from plane import Plane

assert address_cases and answer_cases and idle_cases and loss_cases  # they declare themselves


def wanted():
    parser = argparse.ArgumentParser(prog="tests/fronts/run")
    parser.add_argument("names", nargs="*", metavar="NAME", choices=[[], *(case.name for case in CASES)])
    parser.add_argument("--short", action="store_true")
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--front", action="append", choices=fronts.KINDS)
    return parser.parse_args()


def library():
    """The library that the daemon uses, with its version."""
    version = ctypes.CDLL("libcurl.so.4").curl_version
    version.restype = ctypes.c_char_p
    return version().decode()


async def figures_of(case, world, names):
    """The case's figures; one that does not hold where it cannot be run."""
    arguments = names if case.per_front else [None]
    figures = []
    for done in await asyncio.gather(
        *(case.run(world, *([name] if name else [])) for name in arguments), return_exceptions=True
    ):
        if isinstance(done, BaseException):
            traceback.print_exception(done, file=sys.stdout)
            done = [Figure(case.name, f"failed: {done!r}", False)]
        figures += done
    return figures


async def main():
    options = wanted()
    if options.list:
        print("cases: ", *(case.name for case in CASES))
        print("fronts:", *fronts.KINDS)
        return 0
    started = time.monotonic()
    rig.prepare()
    plane = Plane()
    await plane.start()
    world = World(plane, rig.make_keys(), options.short)
    names = options.front or (fronts.OF_EVERY_CHANGE if options.short else [*fronts.KINDS])
    chosen = [
        case
        for case in CASES
        if case.name in options.names or (not options.names and (case.is_short if options.short else case.is_long))
    ]
    print(library())
    figures = []
    first = [] if options.short else [case for case in chosen if case.is_first]
    for group in (first, [case for case in chosen if case not in first]):
        for done in await asyncio.gather(*(figures_of(case, world, names) for case in group)):
            figures += done
    for figure in figures:
        print(f"{'  ' if figure.holds else '! '}{figure.about}: {figure.value}")
    bad = sum(not figure.holds for figure in figures)
    print(f"{len(figures)} figures, {bad} not as they have to be, after {time.monotonic() - started:.0f} s")
    sys.stdout.flush()
    os._exit(1 if bad or not figures else 0)  # everything else ends with this process


if __name__ == "__main__":
    sys.exit(asyncio.run(main()))
