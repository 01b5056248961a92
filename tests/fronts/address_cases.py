"""Addresses that are silent, and connections that died silently."""

import asyncio
import re
import time

from cases import Figure, after_start, case, number
from rig import Device, drop


@case("addresses", is_first=True)
async def addresses(world):
    """A name with two addresses, the first of which drops everything."""
    front = await world.front()
    where = Device()
    silent = where.other_front
    where.add_front(silent)
    drop(f"ip daddr {silent}")
    where.hosts["two.test"] = [silent, where.front]
    url = world.url(front.port, "two.test")
    held, found = world.account(), world.account()
    daemons = [where.daemon(held, url), where.daemon(found, url, by_identity=True)]
    started = time.monotonic()
    for daemon in daemons:
        await daemon.start()
    await asyncio.gather(*(after_start(account, 1, 60) for account in (held, found)))
    for daemon in daemons:
        await daemon.stop()
    firsts = (min((request.came for request in account.requests), default=started + 99) for account in (held, found))
    poll, identity = (first - started for first in firsts)
    # Where every change is tried the machine has much else to do. Less than 2 s: the wrong one was first.
    slack = 4 if world.is_short else 0
    return [
        Figure("two addresses, the first silent: poll after", number(poll), 2 < poll <= 20 + slack),
        Figure("the same: identity after", number(identity), 2 < identity <= 10 + slack),
    ]


@case("handshake")
async def handshake(world):
    """The first of two addresses takes connections, and TLS never comes to an end there."""
    ways = {"IPv6 that accepts and is silent": silent_ipv6, "packets above 1,000 bytes vanish": black_hole}
    return await asyncio.gather(*(hanging(world, what, make) for what, make in ways.items()))


async def silent_ipv6(where, port):
    """A listener on IPv6 that never sends anything."""
    address = f"{where.net6}:9"
    where.add_front(address)

    async def be_silent(_reader, _writer):
        await asyncio.sleep(3600)

    await asyncio.start_server(be_silent, address, port)
    return address


async def black_hole(where, _port):
    """An address whose answers are too large for the way back, and nobody says so."""
    address = where.other_front
    where.add_front(address)
    drop(f"ip saddr {address} meta length > 1000", where)
    return address


async def hanging(world, what, make):
    _, port = await world.relayed(await world.front())
    where = Device()
    where.hosts["two.test"] = [await make(where, port), where.front]
    account = world.account()
    started = time.monotonic()
    daemon = await where.daemon(account, world.url(port, "two.test")).start()
    await after_start(account, 1, 100)
    await daemon.stop()
    came = min((request.came for request in account.requests), default=started + 99) - started
    errors = len(daemon.errors())
    return Figure(f"{what}: poll after", f"{number(came)}, {errors} errors", 5 < came <= 20 and not errors)


@case("held", is_long=False)
async def held(world):
    """What a held poll's connection is watched by: the system's probes, not the daemon."""
    figures = []
    for http2 in (True, False):
        front = await world.front(http2=http2)
        where = Device()
        account = world.account()
        daemon = await where.daemon(account, world.url(front.port)).start()
        await account.wait_for_polls(1, 10)
        await asyncio.sleep(2)
        before = daemon.wake_ups()
        await asyncio.sleep(10)
        woken = daemon.wake_ups() - before
        timers = where.run(f"ss -tnoH dst {where.front}")
        await daemon.stop()
        protocol = f"HTTP/{2 if http2 else 1.1}"
        probe = re.search(r"keepalive,([0-9.]+)sec", timers)
        seconds = float(probe.group(1)) if probe else 999
        figures.append(Figure(f"probe of a held poll's connection, {protocol}: within", number(seconds), seconds <= 30))
        figures.append(Figure(f"wake-ups in 10 s of a held poll, {protocol}", str(woken), woken == 0))
    return figures


async def change_address(where, seconds_without=0):
    """The device wakes up elsewhere."""
    where.run(f"ip addr del {where.own}/24 dev eth0")
    await asyncio.sleep(seconds_without)
    where.run(f"ip addr add {where.other_own}/24 dev eth0")


async def forget(where):
    """Something on the way no longer knows the connections that there are; new ones go through."""
    for line in where.run(f"ss -tnH state established dst {where.front}").splitlines():
        port = line.split()[2].rsplit(":", 1)[1]
        drop(f"ip saddr {where.own} tcp sport {port}")
        drop(f"ip daddr {where.own} tcp dport {port}", where)


@case("moved")
async def moved(world):
    """The device gets another address in mid-hold, at once or after some seconds without any. The poll's connection
    is its first, so the library does not send it again by itself."""
    return await asyncio.gather(*(moving(world, http2, gap) for http2 in (True, False) for gap in (0, 4)))


async def moving(world, http2, gap):
    front = await world.front(http2=http2)
    where = Device()
    account = world.account()
    daemon = await where.daemon(account, world.url(front.port)).start()
    await account.wait_for_polls(1, 10)
    await asyncio.sleep(1)
    await change_address(where, gap)
    after = await after_start(account, 2, 40)
    await daemon.stop()
    errors = len(daemon.errors())
    about = f"another address after {gap} s without any, HTTP/{2 if http2 else 1.1}: next poll after"
    return Figure(about, f"{number(after)}, {errors} errors", after <= 5 and not errors)


@case("dead", is_short=False)
async def dead(world):
    """A connection that dies silently during a hold."""
    ways = [("address changed", change_address, 5), ("connection forgotten", forget, 75)]
    runs = [dying(world, *way, http2) for way in ways for http2 in (True, False)]
    return [figure for figures in await asyncio.gather(*runs) for figure in figures]


async def dying(world, what, make, limit, http2):
    front = await world.front(http2=http2)
    where = Device()
    account = world.account()
    daemon = await where.daemon(account, world.url(front.port)).start()
    await account.wait_for_polls(1, 10)
    await asyncio.sleep(2)
    before = daemon.wake_ups()
    await asyncio.sleep(58)
    woken = daemon.wake_ups() - before
    await make(where)
    after = await after_start(account, 2, 400)
    # The second one is held for its whole time; its end is no error.
    await asyncio.sleep(305)
    statuses = [line["status"] for line in daemon.activity()]
    await daemon.stop()
    protocol = f"HTTP/{2 if http2 else 1.1}"
    return [
        Figure(f"{what}, {protocol}: next poll after", number(after), after <= limit and statuses == [304]),
        Figure(f"{what}, {protocol}: wake-ups in 58 s before", str(woken), woken == 0),
    ]
