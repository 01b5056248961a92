"""What every case has in common: its figures, and helpers."""

import asyncio
import dataclasses
import itertools
import typing

from fronts import Front, Setting
from relay import Relay


@dataclasses.dataclass
class Figure:
    """`value` in words, as it goes into the table; whether it `holds`."""

    about: str
    value: str
    holds: bool


@dataclasses.dataclass
class Case:
    """`run(world)` gives figures. `per_front`: `run(world, front name)`, for each of them."""

    name: str
    run: typing.Callable
    per_front: bool
    is_short: bool
    is_long: bool
    is_first: bool


CASES = []


def case(name, per_front=False, is_short=True, is_long=True, is_first=False):
    """Declares a case. `is_first`: before all others, where there is the time, for its seconds count."""

    def declare(run):
        CASES.append(Case(name, run, per_front, is_short, is_long, is_first))
        return run

    return declare


class World:
    """What a case needs: the control plane, the keys, and whether it has to be quick."""

    _names = itertools.count()

    def __init__(self, plane, keys, is_short):
        self.plane = plane
        self.keys = keys
        self.is_short = is_short

    def account(self):
        return self.plane.account(str(next(self._names)))

    async def front(self, name="nginx", **setting):
        return await Front(name, Setting(**setting), self.keys).start()

    async def relayed(self, front, delay=0.0):
        """A relay before `front`, and the port that leads to it."""
        relay = Relay(front.port, delay)
        return relay, await relay.start()

    @staticmethod
    def url(port, name="front.test"):
        return f"https://{name}:{port}"


async def after_start(account, count, limit):
    """How long the `count`th poll of `account` takes to come from now on; `limit` when it does not."""
    started = asyncio.get_running_loop().time()
    try:
        await account.wait_for_polls(count, limit)
    except asyncio.TimeoutError:
        return limit
    return asyncio.get_running_loop().time() - started


def number(seconds):
    return f"{seconds:.1f} s"
