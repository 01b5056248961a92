"""What the program weighs, what it loads, and how long it takes to build."""

import subprocess
import time

import harness as h


def libraries_of(pid):
    lines = h.pathlib.Path(f"/proc/{pid}/maps").read_text().splitlines()
    return len({line.split()[-1] for line in lines if ".so" in line.split()[-1]})


def size_as_installed():
    """In bytes; the package keeps the debug symbols apart."""
    stripped = h.SCRATCH / "stripped"
    subprocess.run(["strip", "-o", stripped, h.DAEMON], check=True)
    return stripped.stat().st_size


def build_seconds():
    """All from clean, without a compiler cache."""
    build = h.SCRATCH / "build"
    quiet = {"check": True, "stdout": subprocess.DEVNULL}
    start = time.monotonic()
    subprocess.run(["cmake", "-S", h.REPOSITORY, "--preset", "release", "-B", build], **quiet, cwd=h.REPOSITORY)
    subprocess.run(["cmake", "--build", build], **quiet)
    return time.monotonic() - start


def measure(short):
    policies = h.write_policies(**h.SMALL)
    with h.Server(policies) as server:
        h.fresh_home(f"{server.plain}/hold", policies[0])
        process = h.start([h.DAEMON])
        server.wait_for("poll")
        libraries = libraries_of(process.pid)
        h.end(process)
        process = h.start(["curl", "-s", f"{server.plain}/hold/guard-config/"])
        server.wait_for("poll")
        of_curl = libraries_of(process.pid)
        h.end(process)
    return {
        "rows": [
            h.row(
                "size of the program file, as installed",
                "",
                None,
                "KiB",
                daemon=size_as_installed() / h.KIB,
                curl=h.pathlib.Path("/usr/bin/curl").stat().st_size / h.KIB,
            ),
            h.row("shared libraries loaded, indirect ones included", "", None, "", daemon=libraries, curl=of_curl),
            h.row("build from clean", "", None, "s", daemon=build_seconds()),
        ]
    }
