"""ci/configure prepares a build directory, also one that was moved or copied together with its checkout."""

import pathlib
import shutil
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]

PRESETS = """{
  "version": 6,
  "configurePresets": [
    { "name": "small", "generator": "Ninja", "binaryDir": "${sourceDir}/build/${presetName}" }
  ]
}"""


class ConfigureTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.top = pathlib.Path(directory.name).resolve()
        self.checkout = self.top / "first place"
        (self.checkout / "ci").mkdir(parents=True)
        shutil.copy(SOURCE / "ci/configure", self.checkout / "ci/configure")
        (self.checkout / "CMakePresets.json").write_text(PRESETS)
        (self.checkout / "CMakeLists.txt").write_text(
            'cmake_minimum_required(VERSION 3.25)\nproject(small NONE)\nset(KEPT "" CACHE STRING "")\n')

    def configure(self, checkout, *arguments):
        return subprocess.run([checkout / "ci/configure", "small", *arguments], capture_output=True, text=True)

    def cache(self, checkout):
        lines = (checkout / "build/small/CMakeCache.txt").read_text().splitlines()
        return dict(line.split("=", 1) for line in lines if "=" in line)

    def expect_configured(self, checkout):
        result = self.configure(checkout)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))
        self.assertEqual(self.cache(checkout)["CMAKE_HOME_DIRECTORY:INTERNAL"], str(checkout))

    def test_a_new_build_directory(self):
        self.expect_configured(self.checkout)

    def test_what_was_set_before_stays(self):
        self.assertEqual(self.configure(self.checkout, "-DKEPT=yes").returncode, 0)
        self.expect_configured(self.checkout)
        self.assertEqual(self.cache(self.checkout)["KEPT:STRING"], "yes")

    def test_a_checkout_that_was_moved(self):
        self.configure(self.checkout)
        self.expect_configured(self.checkout.rename(self.top / "second place"))

    def test_a_copy_beside_the_original(self):
        self.configure(self.checkout)
        self.expect_configured(pathlib.Path(shutil.copytree(self.checkout, self.top / "copy")))
        self.expect_configured(self.checkout)

    def test_another_name_for_the_same_place_changes_nothing(self):
        self.configure(self.checkout, "-DKEPT=yes")
        (self.top / "link").symlink_to(self.checkout)
        result = self.configure(self.top / "link")
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertEqual(self.cache(self.checkout)["KEPT:STRING"], "yes")

    def test_an_error_is_shown_and_reported(self):
        (self.checkout / "CMakeLists.txt").write_text('message(FATAL_ERROR "no such luck")\n')
        result = self.configure(self.checkout)
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("no such luck", result.stderr)


if __name__ == "__main__":
    unittest.main()
