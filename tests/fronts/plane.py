"""A control plane for many accounts at once, each of which it answers as the case wants."""

import asyncio
import dataclasses
import json
import re
import time
import typing


@dataclasses.dataclass
class Request:
    """A request as it arrived; `status` is 0 until it has been answered."""

    kind: str  # "poll", "effective" or "lookup"
    tag: typing.Optional[str]
    came: float
    status: int = 0
    lost: bool = False


class Account:
    """A device's account. A case sets `answer`, a coroutine that gets a poll and returns status and body."""

    def __init__(self, name):
        self.name = name
        self.key = f"key-{name}"
        self.token = f"token-{name}"
        self.requests = []
        self.answer = self.hold
        self._news = asyncio.Condition()

    async def hold(self, _request):
        await asyncio.sleep(300)
        return 304, b""

    def polls(self):
        return [request for request in self.requests if request.kind == "poll"]

    async def wait_for(self, holds, limit):
        """Returns when `holds(polls)` is true; raises TimeoutError when it is not within `limit` seconds."""

        async def look():
            async with self._news:
                await self._news.wait_for(lambda: holds(self.polls()))

        await asyncio.wait_for(look(), limit)

    async def wait_for_polls(self, count, limit):
        await self.wait_for(lambda polls: len(polls) >= count, limit)
        return self.polls()[count - 1]

    async def note(self):
        async with self._news:
            self._news.notify_all()


def policy(tag, size=0):
    """A policy with this ETag, of `size` bytes or a little more."""
    text = json.dumps({"etag": tag, "guard_config": {"capture": {"enabled": True, "hosts": ["a.example"]}}, "note": ""})
    return (text[:-2] + "x" * max(0, size - len(text)) + text[-2:]).encode()


class Plane:
    """Listens in plain HTTP/1.1, for front ends to pass requests on to."""

    PORT = 8000

    def __init__(self):
        self._accounts = {}

    def account(self, name):
        account = Account(name)
        self._accounts[account.key] = self._accounts[account.token] = account
        return account

    async def start(self):
        await asyncio.start_server(self._serve, "0.0.0.0", self.PORT, limit=8 * 1024 * 1024, backlog=1000)

    async def _serve(self, reader, writer):
        try:
            while head := await reader.readuntil(b"\r\n\r\n"):
                status, body = await self._answer(head.decode("latin-1"), reader)
                writer.write(
                    f"HTTP/1.1 {status} x\r\nContent-Type: application/json\r\nCache-Control: no-store\r\n".encode()
                    + (b"" if status == 304 else f"Content-Length: {len(body)}\r\n".encode())
                    + b"\r\n"
                    + body
                )
                await writer.drain()
        except (asyncio.IncompleteReadError, ConnectionError):
            pass
        finally:
            writer.close()

    async def _answer(self, head, reader):
        path = head.split(" ", 2)[1].split("?")[0]
        headers = {name.lower(): value for name, value in re.findall(r"^([^:\r\n]+): *(.*)\r$", head, re.MULTILINE)}
        account = self._accounts.get(headers.get("x-orv-key") or headers.get("x-orv-device"))
        if account is None:
            return 401, b""
        tag = headers.get("if-none-match")
        kind = {"guard-config": "poll", "effective": "effective"}.get(path.rstrip("/").split("/")[-1], "lookup")
        request = Request(kind, tag and tag.strip('"'), time.monotonic())
        account.requests.append(request)
        await account.note()
        if kind == "lookup":
            request.status = 200
            return 200, json.dumps({"upload_api_key": account.key, "agent_slug": account.name}).encode()
        if kind == "effective":
            request.status = 404
            return 404, b""
        answer = asyncio.ensure_future(account.answer(request))
        # A client does not send the next request before it has the answer to this one.
        end = asyncio.ensure_future(reader.read(1))
        await asyncio.wait({answer, end}, return_when=asyncio.FIRST_COMPLETED)
        if not answer.done():
            answer.cancel()
            request.lost = True
            await account.note()
            raise ConnectionError("the client is gone")
        end.cancel()
        await asyncio.wait({end})
        request.status, body = answer.result()
        await account.note()
        return request.status, body
