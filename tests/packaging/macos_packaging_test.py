"""What packaging/macos holds is what launchd, newsyslog and the two scripts are to be told.

The scripts run for real into a directory; what they would say to launchd goes to stand-ins.
"""

import os
import pathlib
import plistlib
import re
import stat
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
PACKAGING = SOURCE / "packaging/macos"
LABEL = "dev.orvane.policy-daemon"
ROTATION = LABEL + ".rotation"
PROGRAM = "usr/local/libexec/orvane/OrvanePolicyDaemon"
RULE = "usr/local/share/orvane/newsyslog.conf"
AGENTS = "Library/LaunchAgents"


def plist(label):
    with open(PACKAGING / f"{label}.plist", "rb") as file:
        return plistlib.load(file)


def files_below(directory):
    return sorted(str(path.relative_to(directory)) for path in directory.rglob("*") if not path.is_dir())


class PropertyListTest(unittest.TestCase):
    def test_the_daemon_key_by_key(self):
        keys = plist(LABEL)
        self.assertEqual(keys.pop("Label"), LABEL)
        self.assertEqual(keys.pop("ProgramArguments"), ["/" + PROGRAM])
        self.assertIs(keys.pop("RunAtLoad"), True)
        self.assertIs(keys.pop("KeepAlive"), True)
        self.assertEqual(keys.pop("ProcessType"), "Background")
        self.assertEqual(keys.pop("StandardOutPath"), "/dev/null")
        self.assertEqual(keys.pop("StandardErrorPath"), "/dev/null")
        self.assertEqual(keys, {})

    def test_the_rotation_key_by_key(self):
        keys = plist(ROTATION)
        self.assertEqual(keys.pop("Label"), ROTATION)
        shell, option, command = keys.pop("ProgramArguments")
        self.assertEqual((shell, option), ("/bin/sh", "-c"))
        self.assertIn("/" + RULE, command)
        self.assertEqual(keys.pop("EnvironmentVariables"), {"PATH": "/usr/bin:/bin:/usr/sbin:/sbin"})
        self.assertEqual(keys.pop("StartInterval"), 3600)
        self.assertEqual(keys.pop("ProcessType"), "Background")
        self.assertEqual(keys.pop("StandardOutPath"), "/dev/null")
        self.assertEqual(keys.pop("StandardErrorPath"), "/dev/null")
        self.assertEqual(keys, {})


class RuleTest(unittest.TestCase):
    def test_the_rule_is_for_the_log_that_the_daemon_writes(self):
        lines = [line for line in (PACKAGING / "newsyslog.conf").read_text().splitlines()
                 if line and not line.startswith("#")]
        self.assertEqual([line.split() for line in lines],
                         [["~/.orvane/logs/policy-daemon.activity.jsonl", "600", "5", "10240", "*", "N"]])
        name = lines[0].split()[0].rpartition("/")[2]
        self.assertIn(f'"{name}"', (SOURCE / "src/activity/activity_log.cpp").read_text())

    def test_newsyslog_gets_the_rule_with_the_accounts_home(self):
        with tempfile.TemporaryDirectory() as directory:
            bin_directory = pathlib.Path(directory)
            newsyslog = bin_directory / "newsyslog"
            newsyslog.write_text('#!/bin/sh\necho "$@"\ncat\n')
            newsyslog.chmod(0o755)
            command = plist(ROTATION)["ProgramArguments"]
            command[2] = command[2].replace("/" + RULE, str(PACKAGING / "newsyslog.conf"))
            told = subprocess.run(command, check=True, capture_output=True, text=True,
                                  env={"HOME": "/Users/somebody", "PATH": f"{bin_directory}:/usr/bin:/bin"})
        arguments, *rule = told.stdout.splitlines()
        self.assertEqual(arguments, "-r -f /dev/stdin")
        self.assertTrue(rule[-1].startswith("/Users/somebody/.orvane/logs/policy-daemon.activity.jsonl "))


class ScriptsTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.root = pathlib.Path(directory.name) / "root"
        self.stand_ins = pathlib.Path(directory.name) / "bin"
        self.program = pathlib.Path(directory.name) / "built"
        self.calls = pathlib.Path(directory.name) / "calls"
        self.stand_ins.mkdir()
        self.program.write_text("the program")
        self.program.chmod(0o700)
        self.calls.touch()

    def run_script(self, name, *arguments):
        path = f"{self.stand_ins}:{os.environ['PATH']}"
        return subprocess.run([PACKAGING / name, *arguments], capture_output=True, text=True,
                              env={**os.environ, "PATH": path, "CALLS": str(self.calls)})

    def stand_in(self, name, script):
        file = self.stand_ins / name
        file.write_text("#!/bin/sh\n" + script + "\n")
        file.chmod(0o755)

    def be_a_mac(self, user="501"):
        """Everything that would touch this machine is written down instead."""
        self.stand_in("uname", "echo Darwin")
        self.stand_in("id", "echo 0")
        self.stand_in("stat", f"echo {user}")
        self.stand_in("ps", f"echo '  {user} /{PROGRAM}'; echo '  502 /bin/other'")
        self.stand_in("launchctl", 'echo launchctl "$@" >>"$CALLS"; [ "$1" != print ]')
        for command in ("install", "mkdir", "rm", "rmdir"):
            self.stand_in(command, f'echo {command} "$@" >>"$CALLS"')

    def jobs(self):
        calls = (line.split() for line in self.calls.read_text().splitlines())
        return [call[1:] for call in calls if call[0] == "launchctl"]

    def mode_of(self, name):
        return stat.S_IMODE((self.root / name).stat().st_mode)

    def test_all_is_put_where_the_property_lists_look_for_it(self):
        result = self.run_script("install", "--root", str(self.root), str(self.program))
        self.assertEqual(result.returncode, 0, result.stderr)
        agents = [f"{AGENTS}/{LABEL}.plist", f"{AGENTS}/{ROTATION}.plist"]
        self.assertEqual(files_below(self.root), [*agents, PROGRAM, RULE])
        self.assertEqual((self.root / PROGRAM).read_text(), "the program")
        self.assertEqual(self.mode_of(PROGRAM), 0o755)
        for name in [*agents, RULE]:
            self.assertEqual(self.mode_of(name), 0o644)
            self.assertEqual((self.root / name).read_bytes(), (PACKAGING / pathlib.Path(name).name).read_bytes())
        for directory in (path for path in self.root.rglob("*") if path.is_dir()):
            self.assertEqual(stat.S_IMODE(directory.stat().st_mode), 0o755, directory)

    def test_an_upgrade_leaves_the_running_programs_file_alone(self):
        self.run_script("install", "--root", str(self.root), str(self.program))
        with open(self.root / PROGRAM) as running:
            self.program.write_text("the next one")
            self.assertEqual(self.run_script("install", "--root", str(self.root), str(self.program)).returncode, 0)
            self.assertEqual(running.read(), "the program")
        self.assertEqual((self.root / PROGRAM).read_text(), "the next one")

    def test_nothing_is_installed_without_a_program(self):
        for program in ("missing", str(self.root.parent)):
            result = self.run_script("install", "--root", str(self.root), program)
            self.assertEqual(result.returncode, 1)
            self.assertIn("there is no program", result.stderr)
        self.assertFalse(self.root.exists())

    def test_nothing_stays_but_what_others_have_put_there(self):
        self.run_script("install", "--root", str(self.root), str(self.program))
        other = self.root / AGENTS / "other.plist"
        other.touch()
        self.assertEqual(self.run_script("remove", "--root", str(self.root)).returncode, 0)
        self.assertEqual(files_below(self.root), [f"{AGENTS}/other.plist"])
        self.assertFalse((self.root / PROGRAM).parent.exists())
        self.assertEqual(self.run_script("remove", "--root", str(self.root)).returncode, 0)

    def test_without_a_root_directory_it_takes_a_mac(self):
        self.be_a_mac()
        self.stand_in("uname", "echo Linux")
        for script in ("install", "remove"):
            result = self.run_script(script)
            self.assertEqual(result.returncode, 1)
            self.assertIn("this is for macOS", result.stderr)
        self.assertEqual(self.calls.read_text(), "")

    def test_without_a_root_directory_it_takes_root(self):
        self.be_a_mac()
        self.stand_in("id", "echo 501")
        for script in ("install", "remove"):
            result = self.run_script(script)
            self.assertEqual(result.returncode, 1)
            self.assertIn("this takes root", result.stderr)
        self.assertEqual(self.calls.read_text(), "")

    def test_jobs_are_started_afresh_for_who_is_at_the_screen(self):
        self.be_a_mac()
        result = self.run_script("install", str(self.program))
        self.assertEqual(result.returncode, 0, result.stderr)
        expected = []
        for label in (LABEL, ROTATION):
            expected += [["bootout", f"gui/501/{label}"], ["print", f"gui/501/{label}"],
                         ["bootstrap", "gui/501", f"/{AGENTS}/{label}.plist"]]
        self.assertEqual(self.jobs(), expected)
        first = self.calls.read_text().splitlines()[0]
        self.assertFalse(first.startswith("launchctl"), "started before all is in place")

    def test_at_the_login_screen_nothing_is_started(self):
        self.be_a_mac(user="0")
        self.assertEqual(self.run_script("install", str(self.program)).returncode, 0)
        self.assertNotIn("bootstrap", self.calls.read_text())

    def test_jobs_of_all_who_run_it_are_ended_before_files_go(self):
        self.be_a_mac()
        self.assertEqual(self.run_script("remove").returncode, 0)
        self.assertEqual([job for job in self.jobs() if job[0] == "bootout"],
                         [["bootout", f"gui/501/{LABEL}"], ["bootout", f"gui/501/{ROTATION}"]])
        removed = re.findall(r"rm -f (.*)", self.calls.read_text())
        self.assertEqual(sorted(" ".join(removed).split()),
                         [f"/{AGENTS}/{LABEL}.plist", f"/{AGENTS}/{ROTATION}.plist", f"/{PROGRAM}", f"/{RULE}"])
        last_job = self.calls.read_text().rindex("launchctl")
        self.assertLess(last_job, self.calls.read_text().index("rm -f"))


class FormulaTest(unittest.TestCase):
    FORMULA = (PACKAGING / "orvane-policy-daemon.rb").read_text()

    def test_it_depends_on_what_the_build_takes(self):
        script = (SOURCE / "ci/install-packages").read_text()
        packages = re.search(r"Darwin.*?for_build=\((.*?)\)", script, re.DOTALL).group(1).split()
        for package in ("libmicrohttpd", "nlohmann-json"):  # for the local control plane
            packages.remove(package)
        named = re.findall(r'^  depends_on "([^"]+)"', self.FORMULA, re.MULTILINE)
        self.assertEqual(sorted(named), sorted(packages))

    def test_its_service_is_the_launch_agents(self):
        keys = plist(LABEL)
        service = re.search(r"  service do\n(.*?)\n  end", self.FORMULA, re.DOTALL).group(1)
        self.assertEqual([line.strip() for line in service.splitlines()],
                         [f'run opt_libexec/"{pathlib.Path(keys["ProgramArguments"][0]).name}"',
                          "run_at_load " + str(keys["RunAtLoad"]).lower(),
                          "keep_alive " + str(keys["KeepAlive"]).lower(),
                          "process_type :" + keys["ProcessType"].lower()])


if __name__ == "__main__":
    unittest.main()
