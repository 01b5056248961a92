"""./test shows how far the tests are, which of them failed and how many, and hands on ctest's verdict.

Fakes replace the build and ctest; their lines are like the real ones.
"""

import os
import pathlib
import pty
import re
import shutil
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]

LINE = {
    "passed": "{done:4}/{total} Test {number:>5}: Some/ValueTest.OfNumber/{done} .....   Passed    0.02 sec",
    "failed": "{done:4}/{total} Test {number:>5}: Some/ValueTest.OfNumber/{done} .....***Failed    0.02 sec",
    "timeout": "{done:4}/{total} Test {number:>5}: Some/ValueTest.OfNumber/{done} .....***Timeout   0.02 sec",
    "skipped": "{done:4}/{total} Test {number:>5}: Some/ValueTest.OfNumber/{done} .....***Skipped   0.02 sec",
}


class TestTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.checkout = pathlib.Path(directory.name)
        (self.checkout / "ci").mkdir()
        for name in ("test", "ci/expect-writable"):
            shutil.copy(SOURCE / name, self.checkout / name)
        for name in ("ci/install-packages", "ci/configure", "bin/cmake"):
            self.stand_in(name, "exit 0")

    def stand_in(self, name, script):
        file = self.checkout / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text("#!/bin/sh\n" + script + "\n")
        file.chmod(0o755)

    def let_ctest_find(self, *outcomes):
        """What it finds is in its lines, its report and its status; calls are noted down."""
        lines = [f"Test project {self.checkout}/build/dev"]
        for done, outcome in enumerate(outcomes, 1):
            lines.append(f"      Start {done:4}: Some/ValueTest.OfNumber/{done}")
            lines.append(LINE[outcome].format(done=done, total=len(outcomes), number=f"#{done}"))
            if outcome in ("failed", "timeout"):
                lines.append(f"the output of {done}")
        failed = outcomes.count("failed") + outcomes.count("timeout")
        (self.checkout / "lines").write_text("\n".join(lines) + "\n\nTotal Test time (real) = 0.10 sec\n")
        (self.checkout / "report").write_text(
            f'<testsuite name="x"\n\ttests="{len(outcomes)}"\n\tfailures="{failed}"\n\tdisabled="0"\n'
            f'\tskipped="{outcomes.count("skipped")}"\n>\n</testsuite>\n')
        self.stand_in("bin/ctest", 'echo "TZ=$TZ $*" >>calls\n'
                                   f'cat lines; cp report build/dev/tests.xml; exit {8 if failed else 0}')

    def environment(self, **more):
        return {**os.environ, "TZ": "UTC", "PATH": f"{self.checkout / 'bin'}:{os.environ['PATH']}", **more}

    def run_it(self, *arguments):
        return subprocess.run([self.checkout / "test", *arguments], env=self.environment(), capture_output=True,
                              text=True)

    def test_all_is_well(self):
        self.let_ctest_find(*["passed"] * 25)
        result = self.run_it()
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        lines = result.stdout.splitlines()
        self.assertEqual(lines[0], "Running 25 tests")
        self.assertEqual(lines[1:-1], [f"{done} of 25, 0 failed" for done in (3, 5, 8, 10, 13, 15, 18, 20, 23, 25)])
        self.assertEqual(lines[-1], "25 passed, 0 failed, 0 skipped")
        self.assertEqual(len((self.checkout / "calls").read_text().splitlines()), 1)

    def test_failures_are_named_at_once_and_shown_in_full_at_the_end(self):
        self.let_ctest_find("passed", "failed", "skipped", "timeout", "passed")
        result = self.run_it()
        self.assertEqual(result.returncode, 8)
        lines = result.stdout.splitlines()
        self.assertEqual(lines[:8],
                         ["Running 5 tests", "1 of 5, 0 failed", "FAILED Some/ValueTest.OfNumber/2", "2 of 5, 1 failed",
                          "3 of 5, 1 failed", "FAILED Some/ValueTest.OfNumber/4", "4 of 5, 2 failed",
                          "5 of 5, 2 failed"])
        self.assertEqual(lines[8:13],
                         ["What failed, and its output:", "Some/ValueTest.OfNumber/2: Failed    0.02 sec",
                          "the output of 2", "Some/ValueTest.OfNumber/4: Timeout   0.02 sec", "the output of 4"])
        self.assertEqual(lines[-1], "2 passed, 2 failed, 1 skipped")
        self.assertIn("--output-on-failure", (self.checkout / "calls").read_text())

    def test_tests_do_not_run_in_utc(self):
        self.let_ctest_find("passed")
        self.run_it()
        zone = re.match("TZ=([^ ]+) ", (self.checkout / "calls").read_text()).group(1)
        hour = subprocess.run(["date", "+%H:%M"], env={**os.environ, "TZ": zone}, capture_output=True, text=True)
        utc = subprocess.run(["date", "-u", "+%H:%M"], capture_output=True, text=True)
        self.assertNotEqual(hour.stdout, utc.stdout)

    def test_on_a_terminal_the_progress_is_one_line(self):
        self.let_ctest_find(*["passed"] * 30, "failed")
        end, terminal = pty.openpty()
        process = subprocess.Popen([self.checkout / "test"], stdout=terminal, env=self.environment(TERM="xterm"))
        os.close(terminal)
        text = b""
        try:
            while chunk := os.read(end, 65536):
                text += chunk
        except OSError:  # its way to say that nobody has the terminal open
            pass
        os.close(end)
        self.assertEqual(process.wait(), 8)
        lines = [line.split("\r\x1b[K") for line in text.decode().replace("\r\n", "\n").split("\n")]
        self.assertEqual(lines[0], ["Running 31 tests"])
        self.assertEqual(lines[1], ["", *(f"{done} of 31, 0 failed" for done in range(1, 31)),
                                    "FAILED Some/ValueTest.OfNumber/31"])
        self.assertEqual(lines[2], ["", "31 of 31, 1 failed", "What failed, and its output:"])

    def test_a_mac_is_told_what_takes_linux(self):
        self.let_ctest_find("passed")
        self.stand_in("bin/uname", "echo Darwin")
        for preset in ("libcxx", "asan", "asan-daemon"):
            result = self.run_it(preset)
            self.assertEqual((result.returncode, result.stdout, result.stderr), (2, "", f"test: {preset} takes Linux\n"))
        self.assertFalse((self.checkout / "calls").exists())
        shutil.copy(SOURCE / "ci/install-packages", self.checkout / "real-install-packages")
        for word in ("libcxx", "bench", "roots", "macos"):
            result = subprocess.run([self.checkout / "real-install-packages", "build", word], env=self.environment(),
                                    capture_output=True, text=True)
            self.assertEqual((result.returncode, result.stderr), (2, f"install-packages: {word} takes Linux\n"))

    def test_on_a_mac_homebrews_openssl_comes_before_the_systems(self):
        self.let_ctest_find("passed")
        self.stand_in("bin/uname", "echo Darwin")
        self.stand_in("bin/ctest", 'echo "$PATH" >>calls; cp report build/dev/tests.xml')
        self.assertEqual(self.run_it().returncode, 0)
        first, second, *_ = (self.checkout / "calls").read_text().split(":")
        self.assertEqual([first, second], ["/opt/homebrew/opt/openssl@3/bin", "/usr/local/opt/openssl@3/bin"])

    def test_on_linux_the_path_stays_as_it_is(self):
        self.let_ctest_find("passed")
        self.stand_in("bin/uname", "echo Linux")
        self.stand_in("bin/ctest", 'echo "$PATH" >>calls; cp report build/dev/tests.xml')
        self.assertEqual(self.run_it().returncode, 0)
        self.assertEqual((self.checkout / "calls").read_text().strip(), self.environment()["PATH"])

    def test_help_and_unknown_options(self):
        self.let_ctest_find("passed")
        self.assertTrue(self.run_it("--help").stdout.startswith("usage: ./test"))
        result = self.run_it("--unknown")
        self.assertEqual((result.returncode, result.stdout), (2, ""))
        self.assertIn("usage: ./test", result.stderr)
        self.assertFalse((self.checkout / "calls").exists())


if __name__ == "__main__":
    unittest.main()
