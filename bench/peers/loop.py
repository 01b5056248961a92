"""The daemon's cycle as a loop in Python, with the standard library alone and without any flush: what
one might write instead, and what the daemon is measured against."""

import datetime
import http.client
import json
import os
import pathlib
import ssl
import time
import urllib.parse

ORVANE = pathlib.Path("~/.orvane").expanduser()
SETUP = pathlib.Path("/private/tmp/dev.orvane.setup")
LOG = ORVANE / "logs/policy-daemon.activity.jsonl"

connections = {}


def read_object(path):
    try:
        value = json.loads(path.read_bytes())
    except (OSError, ValueError):
        return {}
    return value if isinstance(value, dict) else {}


def replace(path, data):
    scratch = path.with_name(path.name + ".tmp")
    scratch.write_bytes(data)
    os.replace(scratch, path)


def connection_to(base):
    if base.netloc not in connections:
        if base.scheme == "https":
            connections[base.netloc] = http.client.HTTPSConnection(
                base.netloc, context=ssl.create_default_context(), timeout=330
            )
        else:
            connections[base.netloc] = http.client.HTTPConnection(base.netloc, timeout=330)
    return connections[base.netloc]


def get(base_url, path, headers):
    base = urllib.parse.urlsplit(base_url)
    start = time.monotonic()
    connection = connection_to(base)
    connection.request("GET", base.path.rstrip("/") + path, headers=headers)
    response = connection.getresponse()
    body = response.read()
    record(base_url + path, response.status, int((time.monotonic() - start) * 1000), len(body))
    return response.status, body


def record(url, status, ms, size):
    LOG.parent.mkdir(parents=True, exist_ok=True)
    now = datetime.datetime.now(datetime.timezone.utc)
    line = {
        "ts": now.isoformat(timespec="milliseconds").replace("+00:00", "Z"),
        "daemon": "policy-daemon",
        "pid": os.getpid(),
        "method": "GET",
        "url": url,
        "status": status,
        "ms": ms,
        "bytes": size,
    }
    with open(LOG, "a", encoding="utf-8") as log:
        log.write(json.dumps(line, sort_keys=True, separators=(",", ":")) + "\n")


def store(body, url, headers):
    try:
        policy = json.loads(body)
    except ValueError:
        return
    if not isinstance(policy, dict):
        return
    replace(ORVANE / "policy.json", body)
    etag = policy.get("etag")
    if isinstance(etag, str) and etag:
        replace(ORVANE / "policy-etag.json", json.dumps({"etag": etag}).encode())
    status, effective = get(url, "/api/orvane/v1/guard/effective/", headers)
    if status == 200 and isinstance(json.loads(effective), dict):
        replace(ORVANE / "guard-effective.json", effective)


def derive():
    policy = read_object(ORVANE / "policy.json")
    guard = next((policy[key] for key in ("guard_config", "config") if isinstance(policy.get(key), dict)), {})
    capture = guard.get("capture")
    if not isinstance(capture, dict):
        return
    hosts = capture.get("hosts")
    if not isinstance(hosts, list) or not all(isinstance(host, str) for host in hosts):
        hosts = []
    wanted = {
        "enabled": capture.get("enabled") is True,
        "intercept_hosts": hosts,
        "suppress_ech": capture.get("suppress_ech") is True,
    }
    if read_object(SETUP / "capture-policy.json") != wanted:
        SETUP.mkdir(parents=True, exist_ok=True)
        replace(SETUP / "capture-policy.json", json.dumps(wanted, separators=(",", ":")).encode())
        os.chmod(SETUP / "capture-policy.json", 0o644)


def cycle():
    profile = read_object(SETUP / "enroll-config.json")
    headers = {"X-Orv-Key": profile["api_key"]}
    conditional = {**headers, "Accept": "application/json"}
    etag = read_object(ORVANE / "policy-etag.json").get("etag")
    if isinstance(etag, str):
        conditional["If-None-Match"] = f'"{etag}"'
    url = profile["api_url"].strip("/")
    status, body = get(url, "/api/orvane/v1/connect/guard-config/?wait=300", conditional)
    if status == 200:
        store(body, url, headers)
    derive()


while True:
    cycle()
