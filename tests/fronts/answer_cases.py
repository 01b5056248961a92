"""ETags that front ends refuse, proxies and servers that say no, bodies of the largest size."""

import asyncio

import rig
from cases import Figure, case
from fronts import start_proxy
from plane import policy

MIB = 1024 * 1024
LIMIT = 100 * MIB
LOST = "The network connection was lost."


class Versions:
    """Answers with the latest policy, or holds when the device has it."""

    def __init__(self, account, first):
        self._latest = first
        self._changed = asyncio.Event()
        account.answer = self

    def publish(self, tag):
        self._latest = tag
        self._changed.set()

    async def __call__(self, request):
        if request.tag == self._latest:
            self._changed.clear()
            try:
                await asyncio.wait_for(self._changed.wait(), 300)
            except asyncio.TimeoutError:
                return 304, b""
        return 200, policy(self._latest)


@case("tags", per_front=True)
async def tags(world, name):
    """A policy with a long ETag, and then one with a short one."""
    sizes = (8_200, 33_000, 65_000)
    if not world.is_short:
        sizes += (1_000, 4_000, 16_000, 60_000, 100_000, 320_000)
    figures = []
    for http2 in (True, False):
        front, where = await world.front(name, http2=http2), rig.Device()
        figures += await asyncio.gather(*(tag(world, where, front, size) for size in sizes))
    return figures


async def tag(world, where, front, size):
    account = world.account()
    versions = Versions(account, "t" * size)
    pause = 1 if world.is_short else None
    daemon = await where.daemon(account, world.url(front.port), sleep=pause).start()
    await account.wait_for_polls(1, 20)
    while daemon.tag() is None:
        await asyncio.sleep(0.05)
    await asyncio.sleep(0.3)
    versions.publish("small")
    end = asyncio.get_running_loop().time() + (12 if world.is_short else 150)
    while daemon.tag() != "small" and asyncio.get_running_loop().time() < end:
        await asyncio.sleep(0.1)
    await asyncio.sleep(0.5)
    lines = [line for line in daemon.activity() if "guard-config" in line["url"]]
    await daemon.stop()
    refusals = [line for line in lines if line["status"] != 200]
    words = ", then ".join(str(line["status"] or line["error"]) for line in refusals) or "taken"
    holds = daemon.tag() == "small" and len(refusals) <= (0 if size <= 1_024 else 1)
    about = f"ETag of {size:,} bytes, {front}"
    return Figure(about, f"{words}; back-offs until the next policy: {len(refusals)}", holds)


@case("refused")
async def refused(world):
    """Proxies that refuse to connect, and servers that demand a certificate of the client."""
    rules = {
        "tinyproxy that lets it pass": ("", ["HTTP 304"]),
        "tinyproxy that allows no such port": (
            "ConnectPort 563",
            ["The proxy refused to connect to the server (HTTP 403)."],
        ),
        "tinyproxy with a password": (
            "BasicAuth ann secret",
            ["The proxy requires a user name and password (HTTP 407)."],
        ),
    }
    # The alert is there to be read, or the connection is gone before it was.
    alert = "The server requires a client certificate, and none is ever sent (TLS alert 116)."
    demands = {"nginx": ["HTTP 400"], "haproxy": [alert, LOST], "nghttpx": [alert, LOST]}
    runs = [behind_proxy(world, *rule) for rule in rules.items()]
    runs += [without_certificate(world, *demand) for demand in demands.items()]
    return await asyncio.gather(*runs)


async def behind_proxy(world, about, rule):
    front = await world.front()
    where = rig.Device()
    port = await start_proxy(rule[0])
    address = {"https_proxy": f"http://{where.front}:{port}"}
    return await first_word(world, where, front, about, rule[1], environment=address)


async def without_certificate(world, name, expected):
    front = await world.front(name, demands_certificate=True)
    return await first_word(world, rig.Device(), front, f"{name} that demands a client certificate", expected)


async def first_word(world, where, front, about, expected, **options):
    """How the daemon's first poll ends."""
    account = world.account()

    async def answer(_request):
        return 304, b""

    account.answer = answer
    daemon = await where.daemon(account, world.url(front.port), sleep=5, **options).start()
    for _ in range(100):
        if daemon.activity():
            break
        await asyncio.sleep(0.1)
    await daemon.stop()
    line = (daemon.activity() or [{"status": 0, "error": "nothing"}])[0]
    said = line["error"] if line["status"] == 0 else f"HTTP {line['status']}"
    return Figure(about, said, said in expected)


@case("memory")
async def memory(world):
    """Bodies of the largest size that is taken, and above, in a control group as the service has it."""
    group = rig.memory_group(256 * MIB)
    if group is None:
        return [Figure("bodies in a memory control group of 256 MiB", "no such group can be made here", True)]
    try:
        return [await body_of(world, size, group) for size in (LIMIT, LIMIT + 1, 150 * MIB)]
    finally:
        group.rmdir()


async def body_of(world, size, group):
    """What becomes of a policy of `size` bytes."""
    front = await world.front()
    account = world.account()
    body = policy("large", size)
    assert len(body) == size

    async def answer(request):
        return (200, body) if len(account.polls()) == 1 else await account.hold(request)

    account.answer = answer
    daemon = await rig.Device().daemon(account, world.url(front.port), sleep=300, on_disk=True, group=group).start()
    for _ in range(300):
        if daemon.activity():
            break
        await asyncio.sleep(0.1)
    await asyncio.sleep(2)
    alive = daemon.process.returncode is None
    await daemon.stop()
    stored = daemon.tag() == "large"
    said = "stored" if stored else ", ".join(str(line["error"]) for line in daemon.activity())
    holds = alive and stored == (size <= LIMIT) and (stored or "is larger than" in said)
    return Figure(f"body of {size:,} bytes in 256 MiB", f"{'alive' if alive else 'killed'}, {said}", holds)
