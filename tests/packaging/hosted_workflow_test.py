"""The hosted workflow calls scripts that there are, and nothing that .ci/run does not."""

import os
import pathlib
import re
import shlex
import unittest

import yaml

SOURCE = pathlib.Path(__file__).resolve().parents[2]
WORKFLOWS = SOURCE / ".github/workflows"


class HostedWorkflowTest(unittest.TestCase):
    def setUp(self):
        self.jobs = yaml.safe_load((WORKFLOWS / "ci.yml").read_text())["jobs"]

    def commands(self):
        for job in self.jobs.values():
            for step in job["steps"]:
                self.assertTrue(set(step) == {"run"} or step == {"uses": "actions/checkout@v4"}, step)
                if "run" in step:
                    yield shlex.split(step["run"])

    def test_there_is_one_workflow(self):
        self.assertEqual([path.name for path in WORKFLOWS.iterdir()], ["ci.yml"])

    def test_every_job_gets_the_sources_and_runs_something(self):
        self.assertEqual(set(self.jobs), {"debian", "ubuntu", "macos"})
        for name, job in self.jobs.items():
            self.assertEqual(job["steps"][0].get("uses"), "actions/checkout@v4", name)
            self.assertTrue(any("run" in step for step in job["steps"]), name)

    def test_every_command_is_a_script_of_ours_and_one_of_ci_run(self):
        ours = re.findall(r"^step (.+)$", (SOURCE / ".ci/run").read_text(), re.MULTILINE) + [".ci/run"]
        for words in self.commands():
            if words[:2] == ["docker", "run"]:
                words = words[words.index("debian:bookworm") + 1:]
            self.assertIn(" ".join(words), ours)
            self.assertTrue(os.access(SOURCE / words[0], os.X_OK), words[0])

    def test_the_debian_job_runs_all(self):
        self.assertEqual(shlex.split(self.jobs["debian"]["steps"][-1]["run"])[-1], ".ci/run")


if __name__ == "__main__":
    unittest.main()
