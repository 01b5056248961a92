"""A copy of the tree in which the sources may be broken, and what the tests say about it there."""

import contextlib
import fcntl
import os
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
from pathlib import Path

REPOSITORY = Path(__file__).resolve().parents[2]
TREE = REPOSITORY / "build" / "mutation"
LOCK = REPOSITORY / "build" / "mutation.lock"
# Only whole programs have the machine's clock and paths, and an entry point.
WHOLE_PROGRAM = re.compile(r"_machine\.cpp$|main\.cpp$|process_entry\.cpp$")
PROCESSORS = os.cpu_count() or 1
GIB = 1 << 30

# What a compiler or linker says when it is the sources that are wrong ...
REFUSED = re.compile(r"^\S+:\d+:\d+: (?:fatal )?error: |undefined (?:reference|symbol)|"
                     r"multiple definition|duplicate symbol", re.MULTILINE)
# ... and when it is the machine.
STARVED = re.compile(r"Killed signal|terminated with signal|internal compiler error|out of memory allocating|"
                     r"virtual memory exhausted|No space left on device")
# The tests are listed by starting them, which is the last step of building them.
DOES_NOT_START = "Error running test executable"
FAILED_TEST = re.compile(r"^\s*\d+ - (\S+) \((.*)\)", re.MULTILINE)
ALL_PASSED = re.compile(r"^100% tests passed, 0 tests failed out of [1-9]", re.MULTILINE)


class ToolError(Exception):
    """Something went wrong that says nothing about the tests."""


def limit_tests():
    """A broken loop must not take the machine's memory or time, nor leave a core file."""
    resource.setrlimit(resource.RLIMIT_CPU, (20, 20))
    resource.setrlimit(resource.RLIMIT_AS, (6 * GIB, 6 * GIB))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def run(*command, limit=None):
    """Runs `command` in the copy of the tree and gives its status and output. Nothing it started stays."""
    scratch = Path(tempfile.mkdtemp(prefix="om-"))  # a short name, for there are sockets in it
    scratch.chmod(0o755)  # for tests that become somebody else
    log = TREE / "build" / "log"
    log.parent.mkdir(parents=True, exist_ok=True)
    with open(log, "w", encoding="utf-8") as output:
        process = subprocess.Popen(command, cwd=TREE, stdout=output, stderr=subprocess.STDOUT,
                                   env={**os.environ, "TMPDIR": str(scratch)}, preexec_fn=limit,
                                   start_new_session=True)
        try:
            os.waitid(os.P_PID, process.pid, os.WEXITED | os.WNOWAIT)
        finally:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            shutil.rmtree(scratch, ignore_errors=True)
    output = log.read_text(encoding="utf-8", errors="replace")
    if process.returncode < 0:
        raise ToolError(f"{command[0]} was ended by signal {-process.returncode}\n{output}")
    return process.returncode, output


def prepare():
    """Makes the copy what the working tree is, and leaves alone what has not changed.

    One run at a time in the copy. A run that is asked to stop leaves it whole.
    """
    LOCK.parent.mkdir(exist_ok=True)
    lock = os.open(LOCK, os.O_WRONLY | os.O_CREAT | os.O_CLOEXEC, 0o644)
    try:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        sys.exit("another run is under way in build/mutation")
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("stopped"))
    names = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                           cwd=REPOSITORY, check=True, capture_output=True, text=True).stdout
    for name in filter(None, names.split("\0")):
        source, copy = REPOSITORY / name, TREE / name
        if source.is_file() and not (copy.is_file() and copy.read_bytes() == source.read_bytes()):
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, copy)
    linker = ["-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld"] if shutil.which("ld.lld") else []
    status, output = run("cmake", "--preset", "dev", "-DORVANE_COVERAGE=OFF", "-DCMAKE_CXX_FLAGS=-w",
                         "-DCMAKE_CXX_FLAGS_DEBUG=-O0", "-DCMAKE_COMPILE_WARNING_AS_ERROR=OFF", *linker)
    if status:
        raise ToolError(output)


def check_that_all_pass():
    """Before anything is broken."""
    outcome, details = attempt("src/daemon/main.cpp")
    if outcome != "survived":
        raise ToolError(f"the tests do not even pass on sources that are whole:\n{details}")


def suites_in(pattern):
    suites = set()
    for file in REPOSITORY.glob(f"tests/{pattern}"):
        suites.update(re.findall(r"^TEST(?:_[FP])?\((\w+),", file.read_text(encoding="utf-8"), re.MULTILINE))
    return "(^|/)(" + "|".join(sorted(suites)) + r")\." if suites else None


def stages(file):
    """What to build and which tests to run and which to leave out; those first that know the file best."""
    layer, stem = Path(file).parts[1], re.split(r"[_.]", Path(file).name)[0]
    second = "process" if WHOLE_PROGRAM.search(file) else layer
    done = None
    for target, chosen in [(f"{layer}_test", suites_in(f"{layer}/{stem}*.cpp")),
                           (f"{second}_test", suites_in(f"{second}/*.cpp")),
                           ("all", ".")]:
        if chosen not in (None, done):  # the tests of the file may be all that its layer has
            yield target, chosen, done
            done = chosen


def build(target):
    """What is wrong with the sources, if anything, as an outcome and details."""
    status, output = run("cmake", "--build", "--preset", "dev", "--target", target, f"-j{PROCESSORS}")
    if not status:
        return None
    if DOES_NOT_START in output:
        return "killed", f"{target} does not start\n{output}"
    if STARVED.search(output) or not REFUSED.search(output):
        raise ToolError(f"{target} cannot be built\n{output}")
    return "does not compile", output


@contextlib.contextmanager
def restored(files):
    """Puts `files` of the copy back as they were."""
    texts = {TREE / file: (TREE / file).read_text(encoding="utf-8") for file in files}
    try:
        yield
    finally:
        for path, text in texts.items():
            path.write_text(text, encoding="utf-8")


def attempt(file):
    """What becomes of the tree as it is, with `file` changed: an outcome, and what showed it."""
    for target, chosen, done in stages(file):
        refused = build(target)
        if refused:
            return refused
        # Without it ctest would begin with the slowest.
        (TREE / "build/dev/Testing/Temporary/CTestCostData.txt").unlink(missing_ok=True)
        # On a busy machine a test may fail once for that reason alone; a fault has to fail it twice.
        status, output = run("ctest", "--test-dir", "build/dev", "--label-exclude", "nightly",
                             "--tests-regex", chosen, *(["--exclude-regex", done] if done else []),
                             "--stop-on-failure", "--output-on-failure", "--no-tests=error",
                             "--repeat", "until-pass:2", f"-j{2 * PROCESSORS}", limit=limit_tests)
        failed = FAILED_TEST.findall(output)
        if status and failed and failed[0][1] not in ("Not Run", "BAD_COMMAND"):
            return "killed", f"{failed[0][0]} ({failed[0][1]})\n{output}"
        if status or not ALL_PASSED.search(output):
            raise ToolError(f"no test of {target} says anything\n{output}")
    return "survived", output
