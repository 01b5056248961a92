"""A fleet of real daemons, and the local control plane that they poll.

Runs inside the root directory that bench/fleet makes, as harness.py says.
"""

import contextlib
import datetime
import json
import pathlib
import re
import shutil
import socket
import ssl
import subprocess
import time
import urllib.request

import harness as h

PLACE = h.SCRATCH / "fleet"
KEY = "fleet-key"
# In a namespace of its own, with its own home and setup directory at the fixed paths.
ENTER = (
    f'mount --bind "$1/setup" {h.SETUP} && mount --bind "$1/orvane" {h.ORVANE} && exec {h.DAEMON}'
)
POLL = re.compile(r"^(\S+) GET /api/orvane/v1/connect/guard-config/\S*.* -> (?:(held)|(\d+), \d+ bytes, held (\d+) ms)")


def free_port():
    with socket.socket() as taken:
        taken.bind(("127.0.0.1", 0))
        return taken.getsockname()[1]


def policy(version):
    return h.policy_text(version, **h.SMALL)


class Plane:
    """orvane-control-plane with HTTPS, and what it says of the polls that arrive."""

    def __init__(self, port, hold, options=(), tls=True):
        self.port = port
        PLACE.mkdir(exist_ok=True)
        self._log = PLACE / f"plane-{time.monotonic_ns()}.log"
        (PLACE / "policy.json").write_text(policy(1))
        command = [h.BUILD / "orvane-control-plane", "--port", port, "--key", KEY, "--hold", hold, "--seed", 1]
        command += ["--policy", PLACE / "policy.json", *options]
        if tls:
            command += ["--cert", h.SCRATCH / "server.pem", "--private-key", h.SCRATCH / "server.key"]
        with open(self._log, "wb") as log:
            self.process = h.start(command, stdout=log)
        self.url = f"http{'s' if tls else ''}://localhost:{port}"
        while b"listening on" not in self._log.read_bytes():
            if self.process.poll() is not None:
                raise RuntimeError("the control plane did not start")
            time.sleep(0.01)

    def put(self, path, text):
        request = urllib.request.Request(self.url + path, data=text.encode(), method="PUT")
        context = ssl.create_default_context(cafile=h.SCRATCH / "ca.pem")
        with urllib.request.urlopen(request, context=context if self.url.startswith("https") else None) as response:
            response.read()

    def arrivals(self):
        """When polls came, in seconds since the epoch, and the status of those that were answered at once, or
        None."""
        found = []
        for line in self._log.read_text(encoding="utf-8").splitlines():
            match = POLL.match(line)
            if match and (match[2] or int(match[4]) == 0):
                at = datetime.datetime.fromisoformat(match[1].replace("Z", "+00:00")).timestamp()
                found.append((at, int(match[3]) if match[3] else None))
        return found

    def wait_for_holds(self, count, limit=120):
        """Until so many polls have been held since the start."""
        deadline = time.monotonic() + limit
        while (held := self._log.read_bytes().count(b"-> held")) < count:
            if time.monotonic() > deadline:
                raise RuntimeError(f"{held} of {count} polls are held")
            time.sleep(0.1)

    def kill(self):
        h.end(self.process)


class Balancer:
    """HAProxy, which passes connections on, and can cut them all at once while it goes on listening."""

    def __init__(self, port, plane):
        PLACE.mkdir(exist_ok=True)
        config = PLACE / "haproxy.cfg"
        config.write_text(
            f"""
global
    maxconn 8000
    stats socket {PLACE}/haproxy.socket level admin
defaults
    mode tcp
    timeout connect 5s
    timeout client 400s
    timeout server 400s
frontend devices
    bind 127.0.0.1:{port}
    default_backend planes
backend planes
    server plane 127.0.0.1:{plane}
"""
        )
        self.process = h.start(["haproxy", "-db", "-f", config])
        while not (PLACE / "haproxy.socket").exists():
            time.sleep(0.01)
        self.url = f"https://localhost:{port}"

    def cut_all(self):
        with socket.socket(socket.AF_UNIX) as admin:
            admin.connect(str(PLACE / "haproxy.socket"))
            admin.sendall(b"shutdown sessions server planes/plane\n")
            while admin.recv(4096):
                pass


class Fleet:
    """So many daemons, started one after the other."""

    def __init__(self, count, url):
        h.SETUP.mkdir(parents=True, exist_ok=True)
        h.ORVANE.mkdir(parents=True, exist_ok=True)
        self._places = [PLACE / f"device-{number}" for number in range(count)]
        self.processes = []
        for number, place in enumerate(self._places):
            (place / "setup").mkdir(parents=True)
            (place / "setup").chmod(0o1777)
            (place / "orvane").mkdir()
            (place / "orvane/config").write_text(
                f"[default]\napi_url = {url}\napi_key = {KEY}\nagent_slug = device-{number}\n"
            )
            command = ["unshare", "--mount", "--propagation", "private", "sh", "-c", ENTER, "sh", place]
            self.processes.append(h.start(command))

    def capture_times(self, host):
        """For each daemon, when it put a capture file with `host` in place, or None."""
        times = []
        for place in self._places:
            file = place / "setup/capture-policy.json"
            with contextlib.suppress(FileNotFoundError):
                if host in json.loads(file.read_text(encoding="utf-8"))["intercept_hosts"]:
                    times.append(file.stat().st_ctime)
                    continue
            times.append(None)
        return times

    def cpu(self):
        return sum(h.cpu_of(process.pid) for process in self.processes)

    def memory(self):
        """MiB of each, shared pages by share."""
        return sum(h.memory_of(process.pid)["share"] for process in self.processes) / len(self.processes)


@contextlib.contextmanager
def scene():
    """Everything that is started in it ends with it."""
    shutil.rmtree(PLACE, ignore_errors=True)
    try:
        yield
    finally:
        h.end_all()


def bytes_on_loopback():
    for line in pathlib.Path("/proc/self/net/dev").read_text(encoding="ascii").splitlines():
        name, _, counts = line.partition(":")
        if name.strip() == "lo":
            return int(counts.split()[0])
    raise RuntimeError("there is no loopback interface")
