"""ci/expect-writable says in one sentence why nothing can be written, and who could."""

import os
import pathlib
import resource
import shutil
import signal
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
ORDINARY_USER = 65534  # who the script is run as when the tests are run by root


class ExpectWritableTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.checkout = pathlib.Path(directory.name)
        (self.checkout / "ci").mkdir()
        shutil.copy(SOURCE / "ci/expect-writable", self.checkout / "ci")
        self.identity = {}
        if os.geteuid() == 0:
            self.identity = {"user": ORDINARY_USER, "group": ORDINARY_USER, "extra_groups": []}
            os.chown(self.checkout, ORDINARY_USER, ORDINARY_USER)

    def expect(self, status, message, *directories, preexec_fn=None):
        result = subprocess.run([self.checkout / "ci/expect-writable", *directories], capture_output=True, text=True,
                                preexec_fn=preexec_fn, **self.identity)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (status, "", message))

    def of_an_ordinary_user(self, path):
        if self.identity:
            os.chown(path, ORDINARY_USER, ORDINARY_USER)

    def test_what_is_missing_is_made_and_nothing_else(self):
        self.expect(0, "", "build/demo", "run-demo")
        found = sorted(str(path.relative_to(self.checkout)) for path in self.checkout.rglob("*"))
        self.assertEqual(found, ["build", "build/demo", "ci", "ci/expect-writable", "run-demo"])

    def test_a_directory_of_root(self):
        (self.checkout / "build").symlink_to("/var")
        self.expect(1, "build is not writable: it belongs to root\n", "build")
        self.expect(1, "build is not writable: it belongs to root\n", "build/dev")

    def test_a_directory_in_which_nobody_may_write(self):
        build = self.checkout / "build"
        build.mkdir()
        self.of_an_ordinary_user(build)
        build.chmod(0o500)
        self.expect(1, "build is not writable: Permission denied\n", "build/dev")

    @unittest.skipUnless(os.geteuid() == 0, "only root can make files for somebody else")
    def test_a_file_of_root_in_a_directory_of_the_user(self):
        build = self.checkout / "build/dev"
        build.mkdir(parents=True)
        self.of_an_ordinary_user(build)
        (build / ".ninja_log").touch(0o644)
        self.expect(1, "build/dev/.ninja_log is not writable: it belongs to root\n", "build/dev")
        (build / ".ninja_log").chmod(0o666)
        self.expect(0, "", "build/dev")

    @unittest.skipUnless(os.geteuid() == 0, "only root can make directories for somebody else")
    def test_a_checkout_of_root(self):
        os.chown(self.checkout, 0, 0)
        self.checkout.chmod(0o755)
        self.expect(1, "this directory is not writable: it belongs to root\n", "build/dev")

    def test_no_room(self):
        def leave_little_room():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (65536, 65536))

        self.expect(1, "build is not writable: File too large\n", "build", preexec_fn=leave_little_room)
        self.assertEqual(list((self.checkout / "build").iterdir()), [])


if __name__ == "__main__":
    unittest.main()
