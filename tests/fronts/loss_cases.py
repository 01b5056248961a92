"""Polls that are lost in mid-hold on a connection that had served before."""

import asyncio
import os
import signal

from cases import Figure, after_start, case, number
from rig import Device


async def serve_once(account):
    """Has the first poll answered at once, so that the next one is on a connection that has served."""
    hold = account.hold

    async def answer(request):
        if len(account.polls()) == 1:
            return 304, b""
        return await hold(request)

    account.answer = answer


@case("cut")
async def cut(world):
    """A held poll is lost: it is sent again, once; then that is an error."""
    ways = [(http2, reset) for http2 in (True, False) for reset in (False, True)]
    return await asyncio.gather(*(cutting(world, http2, reset) for http2, reset in ways))


async def cutting(world, http2, reset):
    relay, port = await world.relayed(await world.front(http2=http2))
    account = world.account()
    await serve_once(account)
    daemon = await Device().daemon(account, world.url(port), sleep=2).start()
    await account.wait_for_polls(2, 20)
    # Long enough that a second hold would not end within 330 s of the first one's start.
    await asyncio.sleep(2 if world.is_short else 90)
    relay.cut(reset)
    again = await after_start(account, 3, 10)
    holds = again < 1
    if world.is_short:
        await asyncio.sleep(1)
        holds = holds and not daemon.errors()
        relay.cut(reset)
        late = await after_start(account, 4, 10)
        holds = holds and len(daemon.errors()) == 1 and late > 1.5
        then = f"cut once more: an error, next poll after {number(late)}"
    else:
        await after_start(account, 4, 310)
        statuses = [line["status"] for line in daemon.activity()]
        holds = holds and statuses == [304, 304]
        then = f"held for 300 s more: {statuses[-1]}"
    await daemon.stop()
    about = f"held poll cut {'by RST' if reset else 'by FIN'}, HTTP/{2 if http2 else 1.1}: sent again after"
    return Figure(about, f"{number(again)}; {then}", holds)


@case("restart")
async def restart(world):
    """A front end's worker is killed under held polls; a graceful reload in mid-hold."""
    front = await world.front()
    where = Device()
    accounts = [world.account() for _ in range(10)]
    daemons = []
    for account in accounts:
        await serve_once(account)
        daemons.append(await where.daemon(account, world.url(front.port), sleep=20).start())
    for account in accounts:
        await account.wait_for_polls(2, 60)
    await asyncio.sleep(1)
    holding = front.workers()
    front.process.send_signal(signal.SIGHUP)
    await asyncio.sleep(3)
    kept = sum(len(account.polls()) == 2 for account in accounts)
    for worker in holding:  # the new ones would lose the polls a second time
        os.kill(worker, signal.SIGKILL)
    again = await asyncio.gather(*(after_start(account, 3, 10) for account in accounts))
    await asyncio.sleep(0.5)
    errors = sum(len(daemon.errors()) for daemon in daemons)
    for daemon in daemons:
        await daemon.stop()
    soon = sum(seconds < 5 for seconds in again)
    return [
        Figure("nginx reloaded: polls that stayed", f"{kept} of 10", kept == 10),
        Figure(
            "its worker killed: polls again at once",
            f"{soon} of 10, the last after {number(max(again))}, {errors} errors",
            soon == 10 and not errors,
        ),
    ]
