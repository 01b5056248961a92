"""What all measurements stand on: the server, the clients, and what /proc says of a process.

Runs inside the root directory that bench/run makes, so the paths here are the daemon's real ones.
"""

import atexit
import os
import pathlib
import platform
import shutil
import signal
import statistics
import subprocess
import time

REPOSITORY = pathlib.Path("/repository")
BUILD = REPOSITORY / "build/release"
PEERS = REPOSITORY / "bench/peers"
HOME = pathlib.Path("/home/agent")
ORVANE = HOME / ".orvane"
SETUP = pathlib.Path("/private/tmp/dev.orvane.setup")
CERTIFICATES = pathlib.Path("/etc/ssl/certs")
SCRATCH = pathlib.Path("/tmp")
DAEMON = BUILD / "OrvanePolicyDaemon"
LIMIT = BUILD / "bench/bench-limit"
EASY_LOOP = BUILD / "bench/bench-easy-loop"
PYTHON = "/usr/bin/python3"
LOOPS = {"daemon": [DAEMON], "python": [PYTHON, PEERS / "loop.py"], "shell": [PEERS / "loop.sh"], "limit": [LIMIT]}
ACTIVITY_LOG = ORVANE / "logs/policy-daemon.activity.jsonl"

KIB = 1024
MIB = 1024 * KIB


# ---- Files the clients work on


def policy_text(version, hosts, size=0):
    """A policy of `size` bytes or a little more, with so many hosts to intercept. Versions differ
    in their tag and their first host, so that each makes another capture file."""
    names = [f'"v{version}.example.com"'] + [f'"host-{i:06}.service.example.com"' for i in range(1, hosts)]
    text = (
        f'{{"etag":"v{version}","version":{version},"guard_config":{{"mode":"monitor","capture":'
        f'{{"enabled":true,"hosts":[{",".join(names)}],"suppress_ech":false}},"rules":['
    )
    end = '],"retention_days":30}}'
    rules = []
    length = len(text) + len(end)
    while length < size:
        rule = (
            f'{{"id":{len(rules)},"name":"rule \\u00e9 {len(rules)}","match":"*.corp.example\\/path",'
            f'"action":"redact","weight":0.75,"enabled":true,"note":null}}'
        )
        rules.append(rule)
        length += len(rule) + 1
    return text + ",".join(rules) + end


def write_policies(hosts, size=0):
    """Two policies that differ; their files."""
    files = []
    for version in (1, 2):
        file = SCRATCH / f"policy-{version}.json"
        file.write_text(policy_text(version, hosts, size))
        files.append(file)
    return files


SMALL = {"hosts": 40, "size": 4000}  # a policy of 4 KB


def fresh_home(url, stored=None):
    """An account without a history, enrolled at `url`. With `stored`, a policy file, as after its
    last cycle."""
    shutil.rmtree(ORVANE, ignore_errors=True)
    ORVANE.mkdir()
    SETUP.mkdir(parents=True, exist_ok=True)
    for file in SETUP.iterdir():  # the directory itself is being watched
        file.unlink()
    (SETUP / "enroll-config.json").write_text(f'{{"api_url":"{url}","api_key":"key-0123456789abcdef"}}')
    if stored is not None:
        shutil.copyfile(stored, ORVANE / "policy.json")
        (ORVANE / "policy-etag.json").write_text('{"etag":"v1"}')


# ---- Server


class Server:
    """bench-server; see there for what its lines mean."""

    def __init__(self, policies):
        effective = SCRATCH / "effective.json"
        effective.write_text('{"effective":{"mode":"monitor","source":"cascade"}}')
        SETUP.mkdir(parents=True, exist_ok=True)
        command = [BUILD / "bench/bench-server", SCRATCH / "server.pem", SCRATCH / "server.key", effective, SETUP]
        self._process = subprocess.Popen(
            [str(part) for part in [*command, *policies]], stdout=subprocess.PIPE, text=True
        )
        plain, tls = self.wait_for("listening")
        self.plain = f"http://127.0.0.1:{plain}"
        self.tls = f"https://localhost:{tls}"

    def wait_for(self, word):
        """The numbers on the next line that starts with `word`; those before it are skipped."""
        return self.collect_until(word)[-1][1]

    def collect_until(self, word, number=None):
        """All lines up to one that starts with `word` (and `number`), as (word, numbers)."""
        lines = []
        for line in self._process.stdout:
            first, *rest = line.split()
            lines.append((first, [int(value) for value in rest]))
            if first == word and number in (None, lines[-1][1][0]):
                return lines
        raise RuntimeError("the server is gone")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._process.kill()
        self._process.wait()
        self._process.stdout.close()


def make_certificates():
    """A certificate authority that everything in this root trusts beside the usual ones, as a file
    by its hash and in the bundle, and a server's certificate from it."""
    quiet = {"check": True, "cwd": SCRATCH, "stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
    key = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "2"]
    config = SCRATCH / "openssl.cnf"
    config.write_text("[req]\ndistinguished_name=name\n[name]\n")
    subprocess.run(
        [
            "openssl",
            "req",
            "-config",
            config,
            "-x509",
            *key,
            "-subj",
            "/CN=Bench CA",
            "-keyout",
            "ca.key",
            "-out",
            "ca.pem",
            "-addext",
            "basicConstraints=critical,CA:true",
        ],
        **quiet,
    )
    subprocess.run(
        [
            "openssl",
            "req",
            "-config",
            config,
            "-x509",
            *key,
            "-subj",
            "/CN=localhost",
            "-CA",
            "ca.pem",
            "-CAkey",
            "ca.key",
            "-addext",
            "subjectAltName=DNS:localhost,IP:127.0.0.1",
            "-addext",
            "basicConstraints=CA:false",
            "-keyout",
            "server.key",
            "-out",
            "server.pem",
        ],
        **quiet,
    )
    hashed = subprocess.run(
        ["openssl", "x509", "-hash", "-noout", "-in", SCRATCH / "ca.pem"], check=True, stdout=subprocess.PIPE, text=True
    )
    authority = (SCRATCH / "ca.pem").read_text()
    (CERTIFICATES / f"{hashed.stdout.strip()}.0").write_text(authority)
    with open(CERTIFICATES / "ca-certificates.crt", "a", encoding="ascii") as bundle:
        bundle.write(authority)


# ---- Processes


_clients = []


def start(command, **options):
    """Starts a client; its output goes nowhere unless told otherwise."""
    options = {
        "stdin": subprocess.DEVNULL,
        "stdout": subprocess.DEVNULL,
        "stderr": subprocess.DEVNULL,
        "start_new_session": True,
        **options,
    }
    process = subprocess.Popen([str(part) for part in command], **options)
    _clients.append(process)
    return process


def end(process, how=signal.SIGKILL):
    """Ends a client with whatever it started."""
    try:
        os.killpg(process.pid, how)
    except ProcessLookupError:
        pass
    process.wait()
    _clients.remove(process)


@atexit.register
def end_all():
    """Nothing stays behind when a measurement fails."""
    while _clients:
        end(_clients[-1])


def descendants(pid):
    found = [pid]
    for parent in found:
        for task in pathlib.Path(f"/proc/{parent}/task").glob("*/children"):
            found += [int(child) for child in task.read_text().split()]
    return found


def memory_of(pid):
    """MiB of memory of a process and of all it started: what is its own and was written to (own);
    pages of files that nobody else maps right now (clean); its share of everything (share)."""
    names = {"Private_Dirty": "own", "Private_Clean": "clean", "Pss": "share"}
    sums = dict.fromkeys(names.values(), 0.0)
    for process in descendants(pid):
        for line in pathlib.Path(f"/proc/{process}/smaps_rollup").read_text().splitlines():
            name, _, rest = line.partition(":")
            if name in names:
                sums[names[name]] += int(rest.split()[0]) * KIB / MIB
    return sums


def peak_memory_of(pid):
    """The most that was ever resident, in MiB."""
    return status_field(f"/proc/{pid}/status", "VmHWM") * KIB / MIB


def status_field(path, name):
    for line in pathlib.Path(path).read_text().splitlines():
        if line.startswith(name + ":"):
            return int(line.split()[1])
    raise KeyError(name)


def switches_of(pid):
    """How often anything in a process, or in what it started, has gone off a processor."""
    count = 0
    for process in descendants(pid):
        for status in pathlib.Path(f"/proc/{process}/task").glob("*/status"):
            count += status_field(status, "voluntary_ctxt_switches")
            count += status_field(status, "nonvoluntary_ctxt_switches")
    return count


def cpu_of(pid):
    """Seconds of processor time used so far by all its threads, to the nanosecond."""
    return sum(int(stat.read_text().split()[0]) for stat in pathlib.Path(f"/proc/{pid}/task").glob("*/schedstat")) / 1e9


def settle(pid, quiet=0.2, limit=10.0):
    """Waits until a process has done nothing for a while."""
    deadline = time.monotonic() + limit
    last = cpu_of(pid)
    while time.monotonic() < deadline:
        time.sleep(quiet)
        used = cpu_of(pid)
        if used == last:
            return
        last = used
    raise RuntimeError("the process does not come to rest")


def cpu_of_finished(command, **options):
    """Seconds of processor time of a command that ends by itself."""
    before = os.times()
    process = start(command, **options)
    process.wait()
    end(process)
    after = os.times()
    return (after.children_user - before.children_user) + (after.children_system - before.children_system)


# ---- Results


def machine():
    model = [line.split(":")[1].strip() for line in open("/proc/cpuinfo", encoding="utf-8") if "model name" in line]
    memory = status_field("/proc/meminfo", "MemTotal") / MIB
    return f"{len(model)} × {model[0]}, {memory:.0f} GiB, Linux {platform.release().partition('-')[0]}"


def spread(values):
    """Median and the quartiles around it."""
    ordered = sorted(values)
    if len(ordered) < 2:
        return {"median": ordered[0], "low": ordered[0], "high": ordered[0], "runs": len(ordered)}
    low, _, high = statistics.quantiles(ordered, n=4, method="inclusive")
    return {"median": statistics.median(ordered), "low": low, "high": high, "runs": len(ordered)}


def row(what, goal, met, unit, **values):
    """A row of the table: numbers or spreads of the daemon and of its peers, in one unit. `met` says
    whether the daemon reaches the goal, None where there is none."""
    return {"what": what, "goal": goal, "met": met, "unit": unit, "values": values}


def middle(value):
    return value["median"] if isinstance(value, dict) else value
