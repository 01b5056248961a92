"""The hosted workflows call scripts that there are, and do what .ci/run and ci/nightly do."""

import os
import pathlib
import re
import shlex
import subprocess
import tempfile
import unittest

import yaml

SOURCE = pathlib.Path(__file__).resolve().parents[2]
WORKFLOWS = SOURCE / ".github/workflows"


def jobs_of(workflow):
    return yaml.safe_load((WORKFLOWS / workflow).read_text(encoding="utf-8"))["jobs"]


def commands_of(job):
    """The words of each command of a job, without sudo and its options."""
    for step in job["steps"]:
        if "run" in step:
            words = shlex.split(step["run"])
            if words[0] == "sudo":
                words = [word for word in words[1:] if not word.startswith("--preserve-env=")]
            yield words


def steps_of_ci_run():
    return subprocess.run([SOURCE / ".ci/run", "--list"], check=True, capture_output=True, text=True).stdout.splitlines()


def steps_of_nightly():
    shown = subprocess.run([SOURCE / "ci/nightly", "--list"], check=True, capture_output=True, text=True).stdout
    return dict(line.split(None, 1) for line in shown.splitlines())


class HostedWorkflowTest(unittest.TestCase):
    def setUp(self):
        self.jobs = jobs_of("ci.yml")

    def test_these_are_the_workflows(self):
        self.assertEqual({path.name for path in WORKFLOWS.iterdir()}, {"ci.yml", "nightly.yml"})

    def test_every_job_gets_the_sources_and_runs_something(self):
        for job in [*self.jobs.values(), *jobs_of("nightly.yml").values()]:
            self.assertEqual(job["steps"][0], {"uses": "actions/checkout@v4"})
            self.assertTrue(all(set(step) == {"run"} for step in job["steps"][1:]))
            self.assertTrue(job["steps"][1:])

    def test_every_command_is_a_step_of_ci_run(self):
        for name, job in self.jobs.items():
            ours = [*steps_of_ci_run(), ".ci/run", *(["ci/macos/try-installed"] if name == "macos" else [])]
            for words in commands_of(job):
                self.assertTrue(os.access(SOURCE / words[0], os.X_OK), words[0])
                if words[0] == "ci/in-fresh-root":
                    words = words[3:] if words[1] == "--user" else words[2:]
                self.assertIn(" ".join(words), ours)

    def test_every_machine_is_one_that_there_is(self):
        # Hosted until at least 2027, by actions/runner-images; macos-13 and macos-14 are gone.
        known = {"ubuntu-24.04", "macos-15", "macos-15-intel", "macos-26"}
        for job in self.jobs.values():
            system = job["runs-on"]
            systems = job["strategy"]["matrix"]["system"] if "matrix" in system else [system]
            self.assertLessEqual({*systems}, known)


class NightlyTest(unittest.TestCase):
    def test_every_step_runs_a_script_that_there_is(self):
        for name, command in steps_of_nightly().items():
            self.assertTrue(os.access(SOURCE / command.split()[0], os.X_OK), f"{name}: {command}")

    def test_the_hosted_job_runs_every_step(self):
        job = jobs_of("nightly.yml")["nightly"]
        self.assertEqual(job["strategy"]["matrix"]["step"], [*steps_of_nightly()])
        self.assertEqual(job["steps"][1]["run"], "sudo ci/nightly ${{ matrix.step }}")

    def test_a_step_that_fails_is_reported_and_keeps_no_other_from_running(self):
        tool = (SOURCE / "ci/nightly").read_text(encoding="utf-8")
        listed = re.search(r"(?<=<<'END'\n).*?(?=^END)", tool, re.DOTALL | re.MULTILINE).group()
        with tempfile.TemporaryDirectory() as place:
            copy = pathlib.Path(place) / "ci/nightly"
            copy.parent.mkdir()
            copy.write_text(tool.replace(listed, "bad  false\ngood  echo ran it\n"), encoding="utf-8")
            run = subprocess.run(["bash", copy], capture_output=True, text=True, check=False)
        self.assertEqual(run.returncode, 1)
        self.assertIn("ran it", run.stdout)
        self.assertEqual(run.stderr, "failed: bad\n")


if __name__ == "__main__":
    unittest.main()
