"""What the mutation tool takes for a kill, for sources that are refused, and for a failure of its own.

Fakes replace the build and ctest; their lines are like the real ones.
"""

import os
import pathlib
import resource
import shlex
import tempfile
import unittest

import trial

PASSED = "100% tests passed, 0 tests failed out of 7"
FAILED = """50% tests passed, 1 tests failed out of 2

The following tests FAILED:
\t  3 - PollTest.TheHeadersComeInTheirOrder (Failed)
Errors while running CTest"""
NONE_FOUND = "No tests were found!!!"
COMPILER_ERROR = "FAILED: a.cpp.o\n/tree/src/a.cpp:3:5: error: 'x' was not declared in this scope"
LINKER_ERROR = "FAILED: daemon_test\nld.lld: error: undefined symbol: orvane::exchange()"
KILLED_COMPILER = "FAILED: b.cpp.o\nc++: fatal error: Killed signal terminated program cc1plus"
DOES_NOT_START = "CMake Error at GoogleTestAddTests.cmake:112 (message):\n  Error running test executable."


class TrialTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)
        self.addCleanup(setattr, trial, "TREE", trial.TREE)
        trial.TREE = self.directory
        self.addCleanup(os.environ.update, PATH=os.environ["PATH"])
        os.environ["PATH"] = f"{self.directory}:{os.environ['PATH']}"
        self.build_does("exit 0")
        self.ctest_says(PASSED, 0)

    def stand_in(self, name, script):
        file = self.directory / name
        file.write_text("#!/bin/sh\n" + script + "\n")
        file.chmod(0o755)

    def build_does(self, script):
        self.stand_in("cmake", script)

    def build_fails_with(self, output):
        self.build_does(f"echo {shlex.quote(output)}; exit 1")

    def ctest_says(self, output, status):
        calls = shlex.quote(str(self.directory / "calls"))
        self.stand_in("ctest", f'echo "$*" >>{calls}; echo {shlex.quote(output)}; exit {status}')

    def calls(self):
        return (self.directory / "calls").read_text().splitlines()

    def outcome(self, file="src/daemon/poll.cpp"):
        return trial.attempt(file)[0]

    def test_a_fault_that_no_test_notices_survives(self):
        self.assertEqual(self.outcome(), "survived")

    def test_a_failed_test_kills_and_is_named(self):
        self.ctest_says(FAILED, 8)
        outcome, details = trial.attempt("src/daemon/poll.cpp")
        self.assertEqual(outcome, "killed")
        self.assertEqual(details.splitlines()[0], "PollTest.TheHeadersComeInTheirOrder (Failed)")
        self.assertEqual(len(self.calls()), 1)

    def test_tests_that_cannot_be_listed_kill(self):
        self.build_fails_with(DOES_NOT_START)
        self.assertEqual(self.outcome(), "killed")

    def test_sources_that_are_refused_do_not_compile(self):
        for output in (COMPILER_ERROR, LINKER_ERROR):
            self.build_fails_with(output)
            self.assertEqual(self.outcome(), "does not compile", output)

    def test_a_compiler_that_was_killed_is_an_error(self):
        for output in (KILLED_COMPILER, f"{COMPILER_ERROR}\n{KILLED_COMPILER}", "ninja: fatal: cannot fork", ""):
            self.build_fails_with(output)
            self.assertRaises(trial.ToolError, self.outcome)

    def test_a_build_that_was_killed_is_an_error(self):
        self.build_does(f"echo {shlex.quote(COMPILER_ERROR)}; kill -9 $$")
        self.assertRaises(trial.ToolError, self.outcome)

    def test_no_test_found_is_an_error(self):
        for status in (0, 8):
            self.ctest_says(NONE_FOUND, status)
            self.assertRaises(trial.ToolError, self.outcome)

    def test_a_test_that_could_not_be_run_is_an_error(self):
        self.ctest_says(FAILED.replace("(Failed)", "(Not Run)"), 8)
        self.assertRaises(trial.ToolError, self.outcome)

    def test_no_stage_is_without_tests(self):
        # The tests of this file are all that its layer has.
        self.outcome("src/activity/activity_log.cpp")
        self.assertEqual(len(self.calls()), 2)
        self.assertIn("--exclude-regex (^|/)(ActivityLogTest)", self.calls()[1])

    def test_only_tests_are_limited_in_processor_time(self):
        self.build_does(f"ulimit -t >>{shlex.quote(str(self.directory / 'limits'))}")
        self.stand_in("ctest", f"ulimit -t >>{shlex.quote(str(self.directory / 'limits'))}; echo '{PASSED}'")
        self.outcome("src/activity/activity_log.cpp")
        limits = (self.directory / "limits").read_text().split()
        own, _ = resource.getrlimit(resource.RLIMIT_CPU)
        self.assertEqual(limits[0], "unlimited" if own == resource.RLIM_INFINITY else str(own))
        self.assertEqual(limits[1], "20")


if __name__ == "__main__":
    unittest.main()
