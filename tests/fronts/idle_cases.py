"""Front ends whose idle timeout is about as long as a daemon's pause: requests cross the end of their connection."""

import asyncio

from cases import Figure, case
from rig import Device

# The time from one end to the other, by way of a relay.
ONE_WAY = 0.15


async def refuse(_request):
    return 503, b""


def spread(middle, count, step=0.05):
    """`count` pauses about `middle`, most of them shorter: an answer takes its time, too."""
    return [middle - 4 * ONE_WAY + step * i for i in range(count)]


@case("idle", per_front=True)
async def idle(world, name):
    """Polls that are answered 503, so that each is followed by a back-off of about the idle timeout."""
    return await asyncio.gather(*(crowd(world, name, http2) for http2 in (True, False)))


async def crowd(world, name, http2):
    lost, polls = await (quick_polls if world.is_short else slow_polls)(world, name, http2)
    holds = lost == 0 and polls >= (20 if world.is_short else 200)
    return Figure(f"polls lost, {name}, HTTP/{2 if http2 else 1.1}", f"{lost} of {polls}", holds)


async def quick_polls(world, name, http2):
    """By sleeps of another length: within those 3 s that a connection is kept for, and beyond."""
    daemons = []
    where = Device()
    for idle_timeout in (2, 4):
        front = await world.front(name, http2=http2, idle=idle_timeout)
        _, port = await world.relayed(front, ONE_WAY)
        for pause in spread(idle_timeout, 6 if idle_timeout == 2 else 2, 0.1):
            account = world.account()
            account.answer = refuse
            daemons.append(await where.daemon(account, world.url(port), sleep=pause).start())
    await asyncio.sleep(20)
    return await results(daemons)


async def slow_polls(world, name, http2):
    """The daemon as it is: its back-off is 60 s, and so is the idle timeout."""
    front = await world.front(name, http2=http2, idle=60)
    _, port = await world.relayed(front, ONE_WAY)
    where = Device()
    daemons = []
    for i in range(20):
        account = world.account()
        account.answer = refuse
        daemons.append(await where.daemon(account, world.url(front.port if i % 2 else port)).start())
        await asyncio.sleep(1)
    await asyncio.sleep(10 * 61.5)
    return await results(daemons)


async def results(daemons):
    """How many of their polls were lost, and how many there were."""
    for daemon in daemons:
        await daemon.stop()
    lines = [line for daemon in daemons for line in daemon.activity()]
    return sum(line["status"] == 0 for line in lines), len(lines)


@case("lookup", per_front=True)
async def lookup(world, name):
    """Devices that are enrolled by identity, with another tenant's profile to fall back to. The lookup's connection
    is idle while the poll is held."""
    idle_timeout = 2 if world.is_short else 60
    await asyncio.sleep(6 if world.is_short else 0)  # until what starts with this one has started
    front = await world.front(name, idle=idle_timeout)
    _, port = await world.relayed(front, ONE_WAY)
    where = Device()
    daemons, accounts, others = [], [], []
    for hold in spread(idle_timeout, 6 if world.is_short else 10, 0.1):
        account, other = world.account(), world.account()
        account.answer = other.answer = holding(hold)
        daemon = where.daemon(account, world.url(port), by_identity=True)
        daemon.also_in_config(other, world.url(port))
        daemons.append(await daemon.start())
        accounts.append(account)
        others.append(other)
        await asyncio.sleep(0 if world.is_short else 2)
    await asyncio.sleep(20 if world.is_short else 10 * 61.5)
    for daemon in daemons:
        await daemon.stop()
    lookups = sum(request.kind == "lookup" for account in accounts for request in account.requests)
    strange = sum(len(other.requests) for other in others)
    failed = sum(daemon.log().count("No usable profile") for daemon in daemons)
    lost = strange + failed
    holds = lost == 0 and lookups >= (20 if world.is_short else 90)
    return [Figure(f"identities lost, {name}", f"{lost} of {lookups}", holds)]


def holding(seconds):
    async def answer(_request):
        await asyncio.sleep(seconds)
        return 304, b""

    return answer
