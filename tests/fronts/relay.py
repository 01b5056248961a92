"""A TCP relay that delays what goes through it by a set time, and cuts connections."""

import asyncio
import socket
import struct


class Relay:
    """Passes connections to `port` of this machine on."""

    def __init__(self, port, delay=0.0):
        self._target = port
        self._delay = delay
        self._open = set()
        self._server = None

    async def start(self):
        self._server = await asyncio.start_server(self._serve, "0.0.0.0", 0, backlog=1000)
        return self._server.sockets[0].getsockname()[1]

    def cut(self, reset=False):
        """Closes the clients' connections, with FIN or RST."""
        for writer in self._open:
            if reset:
                writer.get_extra_info("socket").setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
                writer.transport.abort()
            writer.close()
        self._open.clear()

    async def _serve(self, reader, writer):
        self._open.add(writer)
        await asyncio.sleep(self._delay)
        try:
            onward_reader, onward_writer = await asyncio.open_connection("127.0.0.1", self._target)
            await asyncio.gather(self._pump(reader, onward_writer), self._pump(onward_reader, writer))
            onward_writer.close()
        except OSError:
            pass
        finally:
            self._open.discard(writer)
            writer.close()

    async def _pump(self, reader, writer):
        """What is read leaves `delay` later; then the end, too."""
        loop = asyncio.get_running_loop()
        queue = asyncio.Queue()

        async def read():
            data = b" "
            while data:
                try:
                    data = await reader.read(65536)
                except ConnectionError:
                    data = b""
                queue.put_nowait((loop.time() + self._delay, data))

        reading = asyncio.ensure_future(read())
        try:
            while True:
                due, data = await queue.get()
                await asyncio.sleep(max(0, due - loop.time()))
                if not data:
                    # As real hosts do it: both ways end. No server here goes on after one has.
                    writer.close()
                    return
                writer.write(data)
                await writer.drain()
        except ConnectionError:
            writer.close()
        finally:
            reading.cancel()
