"""./run ends what it started however it ends, runs once at a time, and says in a sentence why it cannot.

It runs for real, with the programs of this build, in a directory of its own. Only what would install
packages or build is replaced by a fake.
"""

import argparse
import fcntl
import os
import pathlib
import pty
import re
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
PROGRAMS = ("orvane-control-plane", "orvane-daemon-demo", "orvane-policy-status-demo")
PATIENCE = 60  # seconds; much less is needed on a machine that has time


def wait_until(condition, what):
    deadline = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError(f"timed out: {what}")
        time.sleep(0.05)


class RunTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.checkout = pathlib.Path(directory.name).resolve() / "a checkout"
        for name in ("run", "ci/expect-writable", "emulator/sample-policy.json"):
            (self.checkout / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(SOURCE / name, self.checkout / name)
        for name in ("ci/install-packages", "ci/configure", "bin/cmake"):
            self.stand_in(name, "exit 0")
        for name in PROGRAMS:
            self.stand_in(f"build/demo/{name}", f'echo $$ >>pids; exec "{BUILD / name}" "$@"')
        self.demo = self.checkout / "run-demo"
        self.addCleanup(wait_until, lambda: not self.programs(), "the end of all programs")

    def stand_in(self, name, script):
        file = self.checkout / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text("#!/bin/sh\n" + script + "\n")
        file.chmod(0o755)

    def start(self, *arguments, stdout=subprocess.PIPE, environment=None, preexec_fn=None):
        path = f"{self.checkout / 'bin'}:{os.environ['PATH']}"
        process = subprocess.Popen(
            [self.checkout / "run", *arguments], text=True, stdin=subprocess.DEVNULL, stdout=stdout,
            stderr=subprocess.PIPE, env={**os.environ, "PATH": path, **(environment or {})}, preexec_fn=preexec_fn)
        self.addCleanup(self.end, process)
        return process

    def end(self, process):
        if process.poll() is None:
            process.terminate()
        process.communicate()

    def run_to_the_end(self, *arguments):
        process = self.start(*arguments)
        out, err = process.communicate(timeout=PATIENCE)
        return process.returncode, out, err

    def programs(self):
        """The process IDs of the control planes and daemons that run."""
        file = self.checkout / "pids"
        pids = file.read_text().split() if file.exists() else []
        states = ((pid, subprocess.run(["ps", "-o", "stat=", "-p", pid], capture_output=True, text=True).stdout)
                  for pid in pids)
        return [int(pid) for pid, state in states if state and not state.startswith("Z")]


class DemoTest(RunTest):
    def wait_for_the_daemon(self):
        etag = self.demo / "home/.orvane/policy-etag.json"
        wait_until(lambda: len(self.programs()) == 2 and etag.exists(), "the first policy")

    def test_it_shows_what_both_programs_do(self):
        process = self.start()
        shown = ""
        for text in ("confined to run-demo/", "In 5 seconds the policy changes by itself",
                     "listening on http://127.0.0.1:", "guard-config/?wait=300 -> 200", "policy-etag.json"):
            while text not in shown:
                line = process.stdout.readline()
                self.assertTrue(line, f"{text} is not shown, but {shown}")
                shown += line
        self.assertNotIn("\x1b", shown)

    def test_it_ends_by_itself(self):
        status, out, err = self.run_to_the_end("--for", "2")
        self.assertEqual((status, err), (0, ""))
        self.assertTrue(out.endswith("\nThe demo is over; its files stay in run-demo/ until the next one.\n"), out)
        self.assertEqual(self.programs(), [])

    def test_a_signal_ends_it_and_what_it_started(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(signal=number):
                process = self.start()
                self.wait_for_the_daemon()
                process.send_signal(number)
                out, err = process.communicate(timeout=PATIENCE)
                self.assertEqual((process.returncode, err), (0, ""))
                self.assertIn("The demo is over", out)
                self.assertEqual(self.programs(), [])

    def test_nothing_is_left_of_a_demo_that_was_killed(self):
        process = self.start()
        self.wait_for_the_daemon()
        process.kill()
        process.wait()
        wait_until(lambda: not self.programs(), "the end of what it started")

    def test_the_next_demo_waits_until_nothing_is_left(self):
        process = self.start()
        self.wait_for_the_daemon()
        left = set(self.programs())
        for program in left:
            os.kill(program, signal.SIGSTOP)  # it takes its time to end
        process.kill()
        process.wait()
        self.start()
        wait_until(lambda: set(self.programs()) - left, "the programs of the next demo")
        self.assertEqual(left & set(self.programs()), set())

    def test_there_is_one_at_a_time(self):
        first = self.start()
        self.wait_for_the_daemon()
        status, _, err = self.run_to_the_end("--for", "1")
        self.assertEqual((status, err), (1, f"./run: the demo is running already, as process {first.pid}\n"))
        self.assertEqual(len(self.programs()), 2)

    def test_a_process_that_has_an_old_demos_number_does_not_matter(self):
        self.demo.mkdir()
        (self.demo / "run.pid").write_text(f"{os.getpid()}\n")
        status, _, err = self.run_to_the_end("--for", "1")
        self.assertEqual((status, err), (0, ""))

    def test_a_reader_that_has_seen_enough_ends_it(self):
        process = self.start()
        self.wait_for_the_daemon()
        process.stdout.close()
        process.stdout = None
        self.assertEqual(process.wait(PATIENCE), 0)
        self.assertEqual(self.programs(), [])


class TerminalTest(RunTest):
    """What somebody sees who looks at it in a terminal."""

    def screen(self, columns, *arguments, environment=None):
        end, terminal = pty.openpty()
        fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))

        def take_terminal():
            os.setsid()
            fcntl.ioctl(terminal, termios.TIOCSCTTY, 0)

        process = self.start(*arguments, stdout=terminal, environment={"TERM": "xterm", **(environment or {})},
                             preexec_fn=take_terminal)
        os.close(terminal)
        text = b""
        try:
            while chunk := os.read(end, 65536):
                text += chunk
        except OSError:  # its way to say that nobody has the terminal open
            pass
        os.close(end)
        self.assertEqual(process.wait(PATIENCE), 0, process.stderr.read())
        return text.decode()

    def test_a_live_demo_in_a_narrow_pane(self):
        text = self.screen(60, "--for", "2")
        self.assertIn("\x1b[1m", text)
        lines = re.sub("\x1b\\[[0-9]*m", "", text).splitlines()
        self.assertIn("your own files are not touched.", lines)
        self.assertEqual([line for line in lines if len(line) > 60], [])

    def test_no_line_is_wider_than_the_terminal(self):
        line = ('{"bytes":342,"daemon":"policy-daemon","method":"GET","ms":4353,"pid":6479,"status":200,'
                '"ts":"2026-11-22T00:12:02.134Z","url":"http:\\/\\/127.0.0.1:34161\\/api\\/orvane\\/v1\\/connect"}')
        script = '''
            . ./run
            columns=$1 row_columns=$1 url=http://127.0.0.1:45678
            introduce 5
            suggest
            echo ROW
            row 00:12:02.134 activity "$2"'''
        for columns in (200, 80, 79, 60, 59, 40, 30):
            with self.subTest(columns=columns):
                result = subprocess.run(["bash", "-c", script, "-", str(columns), line], cwd=self.checkout,
                                        check=True, capture_output=True, text=True)
                self.assertEqual(result.stderr, "")
                prose, _, row = result.stdout.partition("ROW\n")
                self.assertEqual([line for line in (prose + row).splitlines() if len(line) > columns], [])
                # Nothing is lost, and words are whole where they fit.
                self.assertEqual("".join(row.split()), "00:12:02.134activity" + line)
                if columns >= 40:
                    words = " ".join(prose.split())
                    self.assertIn("your own files are not touched. control plane a local HTTP server", words)
                    self.assertIn("What to try next, in another terminal, in this directory: change it back cp",
                                  words)
                if columns >= 60:
                    for command in ("cp emulator/sample-*.json run-demo/served-policy.json", "cat run-demo/*.log"):
                        self.assertIn(command, prose)

    def test_what_is_suggested_is_there(self):
        self.stand_in("only/curl", "exit 0")
        script = ". ./run; url=http://127.0.0.1:1; PATH=$1; suggest"
        for path, expected in ((self.checkout / "only", True), (self.checkout / "ci", False)):
            out = subprocess.run([shutil.which("bash"), "-c", script, "-", str(path)], cwd=self.checkout, check=True,
                                 capture_output=True, text=True).stdout
            self.assertEqual("curl -T FILE" in out, expected)

    def test_no_color_is_no_color(self):
        self.assertNotIn("\x1b", self.screen(80, "--for", "1", environment={"NO_COLOR": "1"}))

    def test_the_help_fits_a_narrow_pane(self):
        for script in ("run", "test"):
            text = subprocess.run([SOURCE / script, "--help"], check=True, capture_output=True, text=True).stdout
            self.assertTrue(text.startswith(f"usage: ./{script}"))
            self.assertEqual([line for line in text.splitlines() if len(line) > 60], [])


class ObstacleTest(RunTest):
    def test_a_failed_build_shows_its_end(self):
        self.stand_in("bin/cmake", 'echo "it does not compile"; exit 1')
        status, _, err = self.run_to_the_end()
        self.assertEqual(status, 1)
        self.assertEqual(err, "it does not compile\n"
                              "./run: the build failed; all of its output is in build/demo/build.log\n")

    def test_a_control_plane_that_does_not_start_is_heard(self):
        self.stand_in("build/demo/orvane-control-plane", "echo no network; exit 1")
        status, _, err = self.run_to_the_end()
        self.assertEqual(status, 1)
        self.assertEqual(err, "no network\n"
                              "./run: the control plane does not start; its output is in run-demo/control-plane.log\n")

    def test_the_log_is_there_before_the_child_opens_it(self):
        traced = ["strace", "-f", "-o", "/dev/null"]
        if not shutil.which("strace") or subprocess.run([*traced, "true"], capture_output=True).returncode:
            self.skipTest("there is no strace, or it may not trace")
        # Every opening of the log takes a while: the child's too, which nobody waits for.
        script = '''
            . ./run
            start_guard
            for ((i = 0; i < STARTS; i++)); do
                rm -f some.log
                start some.log true
                [[ -e some.log ]] || echo missing
                wait "${started[0]}"
                started=()
            done
            echo done'''
        result = subprocess.run(
            [*traced, "-P", str(self.checkout / "some.log"), "-e", "trace=openat",
             "-e", "inject=openat:delay_enter=20000", "bash", "-c", script],
            cwd=self.checkout, env={**os.environ, "STARTS": os.environ.get("ORVANE_STARTS", "5")},
            capture_output=True, text=True)
        self.assertEqual((result.stdout, result.stderr), ("done\n", ""))


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=pathlib.Path)
    arguments, rest = parser.parse_known_args()
    BUILD = arguments.build.resolve()
    unittest.main(argv=[sys.argv[0], *rest])
