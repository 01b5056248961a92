"""The devices: each a network namespace with daemons in it, joined to this one, where the front ends are."""

import asyncio
import dataclasses
import json
import os
import pathlib
import shutil
import subprocess

REPOSITORY = pathlib.Path("/repository")
DAEMON = REPOSITORY / "build/release/OrvanePolicyDaemon"
SET_SLEEP = REPOSITORY / "build/release/tests/fronts/orvane-daemon-set-sleep"
SETUP = pathlib.Path("/private/tmp/dev.orvane.setup")
CERTIFICATES = pathlib.Path("/etc/ssl/certs")
PLACE = pathlib.Path("/tmp/fronts")


def run(command, **options):
    """Runs a command, by words or as one text; its output."""
    words = command.split() if isinstance(command, str) else [str(word) for word in command]
    done = subprocess.run(words, check=False, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options)
    if done.returncode != 0:
        raise RuntimeError(f"{' '.join(words)}: {done.stdout}")
    return done.stdout


def drop(rule, device=None):
    """Has the network drop in silence what the nftables expression `rule` says, on its way into `device`, or into
    this side."""
    prefix = [] if device is None else ["ip", "netns", "exec", device.name]
    table = "add table inet f; add chain inet f in { type filter hook prerouting priority -300; }"
    run([*prefix, "nft", f"{table}; add rule inet f in {rule} drop"])


def prepare():
    """What this root lacks for the front ends."""
    PLACE.mkdir()
    PLACE.chmod(0o777)
    SETUP.mkdir()
    run("ip link set lo up")
    lacking = {
        "host.conf": "multi on\n",  # several addresses to a name
        "hosts": "127.0.0.1 front.test\n",
        "passwd": "root:x:0:0::/:/bin/sh\nnobody:x:65534:65534::/:/bin/sh\n",
        "group": "root:x:0:\nnogroup:x:65534:\n",
    }
    for name, lines in lacking.items():
        with open(f"/etc/{name}", "a", encoding="ascii") as file:
            file.write(lines)


@dataclasses.dataclass
class Keys:
    """The files of the front ends' certificate."""

    authority: pathlib.Path
    key: pathlib.Path
    chain: pathlib.Path
    both: pathlib.Path


def make_keys():
    """A certificate for *.test from an authority that this root trusts."""
    config = PLACE / "openssl.cnf"
    config.write_text("[req]\ndistinguished_name=name\n[name]\n")
    request = ["openssl", "req", "-config", config, "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2"]
    keys = Keys(*(PLACE / name for name in ("ca.pem", "server.key", "server.pem", "both.pem")))
    signer = ["-keyout", PLACE / "ca.key", "-out", keys.authority]
    run([*request, "-subj", "/CN=Authority of the rig", "-addext", "basicConstraints=critical,CA:true", *signer])
    by = ["-CA", keys.authority, "-CAkey", PLACE / "ca.key", "-keyout", keys.key, "-out", keys.chain]
    names = ["-addext", "subjectAltName=DNS:front.test,DNS:two.test"]
    run([*request, "-subj", "/CN=front.test", "-addext", "basicConstraints=CA:false", *names, *by])
    keys.both.write_text(keys.chain.read_text() + keys.key.read_text())
    keys.key.chmod(0o644)
    hashed = run(["openssl", "x509", "-hash", "-noout", "-in", keys.authority]).strip()
    shutil.copyfile(keys.authority, CERTIFICATES / f"{hashed}.0")
    return keys


def memory_group(limit):
    """A memory control group with so many bytes; None where none can be made."""
    first, second = ("/sys/fs/cgroup/memory", "memory.limit_in_bytes"), ("/sys/fs/cgroup", "memory.max")
    for root, name in (first, second):
        group = pathlib.Path(root) / "orvane-fronts"
        try:
            group.mkdir(exist_ok=True)
            if (group / name).exists():
                (group / name).write_text(str(limit))
                return group
            group.rmdir()
        except OSError:
            pass
    return None


class Device:
    """A network namespace with a cable to this one: `own` and `front` are the addresses at its ends."""

    _numbers = iter(range(1, 250))

    def __init__(self):
        number = next(self._numbers)
        self.name = f"d{number}"
        self.own, self.other_own, self.front = (f"10.78.{number}.{last}" for last in (2, 4, 1))
        # Of two addresses of a name the one with more bits in common with `own` is taken first (RFC 6724).
        self.other_front = f"10.78.{number}.3"
        self.net6 = f"2001:db8:{number}:"
        self.hosts = {"front.test": [self.front]}
        self._daemons = 0
        run(f"ip netns add {self.name}")
        run(f"ip link add {self.name} type veth peer name eth0 netns {self.name}")
        run(f"ip addr add {self.front}/24 dev {self.name}")
        run(f"ip -6 addr add {self.net6}:1/64 dev {self.name} nodad")
        run(f"ip link set {self.name} up")
        self.run("ip link set lo up")
        self.run("ip link set eth0 up")
        self.run(f"ip addr add {self.own}/24 dev eth0")
        self.run(f"ip -6 addr add {self.net6}:2/64 dev eth0 nodad")

    def run(self, command):
        return run(f"ip netns exec {self.name} {command}")

    def add_front(self, address):
        """Gives this side another address."""
        bits = 64 if ":" in address else 24
        run(f"ip addr add {address}/{bits} dev {self.name}" + (" nodad" if ":" in address else ""))

    def daemon(self, account, url, on_disk=False, **options):
        self._daemons += 1
        place = pathlib.Path("/disk") if on_disk else PLACE
        return Daemon(self, place / f"{self.name}-{self._daemons}", account, url, **options)


class Daemon:
    """The daemon as it ships, on a device, with a home of its own. With `sleep` it is a build of its own, each of
    whose sleeps takes that many seconds."""

    def __init__(self, device, place, account, url, sleep=None, by_identity=False, environment=(), group=None):
        self._device = device
        self._place = place
        self._environment = dict(environment)
        self._group = group
        self._program = DAEMON if sleep is None else SET_SLEEP
        if sleep is not None:
            self._environment.update(ORVANE_SLEEP=str(sleep))
        self.home = place / "home"
        (self.home / ".orvane").mkdir(parents=True)
        (place / "setup").mkdir()
        if by_identity:
            enrollment = {"device_token": account.token, "tenant_slug": "acme", "api_url": url}
            (place / "setup/device-identity.json").write_text(json.dumps(enrollment))
        else:
            enrollment = {"api_url": url, "api_key": account.key}
            (place / "setup/enroll-config.json").write_text(json.dumps(enrollment))
        lines = [f"{address} {name}\n" for name, addresses in device.hosts.items() for address in addresses]
        (place / "hosts").write_text("127.0.0.1 localhost\n" + "".join(lines))
        self.process = None

    def also_in_config(self, account, url):
        (self.home / ".orvane/config").write_text(f"[default]\napi_url = {url}\napi_key = {account.key}\n")

    async def start(self):
        binds = [("home", "/home/agent"), ("setup", SETUP), ("hosts", "/etc/hosts")]
        mounts = " && ".join(f"mount --bind {self._place}/{own} {place}" for own, place in binds)
        joins = "" if self._group is None else f"echo 0 >{self._group}/cgroup.procs && "
        environment = " ".join(f"{name}={value}" for name, value in self._environment.items())
        with (self._place / "log").open("wb") as log:
            self.process = await asyncio.create_subprocess_exec(
                *("nsenter", f"--net=/run/netns/{self._device.name}", "unshare", "--mount", "sh", "-c"),
                f"{joins}{mounts} && exec env {environment} {self._program}",
                stdin=asyncio.subprocess.DEVNULL,
                stdout=log,
                stderr=log,
            )
        return self

    async def stop(self):
        if self.process.returncode is None:
            self.process.kill()
        await self.process.wait()

    def log(self):
        return (self._place / "log").read_text()

    def activity(self):
        """Its activity log's whole lines."""
        file = self.home / ".orvane/logs/policy-daemon.activity.jsonl"
        if not file.exists():
            return []
        return [json.loads(line) for line in file.read_text().splitlines(keepends=True) if line.endswith("\n")]

    def errors(self):
        return [line["error"] for line in self.activity() if line["status"] == 0]

    def tag(self):
        file = self.home / ".orvane/policy-etag.json"
        return json.loads(file.read_text())["etag"] if file.exists() else None

    def wake_ups(self):
        """How often its threads have gone on, so far."""
        total = 0
        for thread in os.listdir(f"/proc/{self.process.pid}/task"):
            for line in pathlib.Path(f"/proc/{self.process.pid}/task/{thread}/status").read_text().splitlines():
                if "ctxt_switches" in line:
                    total += int(line.split()[1])
        return total
