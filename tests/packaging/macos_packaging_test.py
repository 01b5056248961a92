"""What is in packaging/macos, as launchd and the scripts read it.

The scripts run for real, into a directory; fakes replace what would change a Mac.
"""

import json
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
DIRECTORY = LABEL + ".directory"
PLACE = "Library/Application Support/Orvane"
PROGRAM = f"{PLACE}/OrvanePolicyDaemon"
AGENTS = "Library/LaunchAgents"
DAEMONS = "Library/LaunchDaemons"
SILENT = {"StandardOutPath": "/dev/null", "StandardErrorPath": "/dev/null"}

PROPERTY_LISTS = {
    LABEL: {
        "Label": LABEL,
        "ProgramArguments": ["/" + PROGRAM],
        "RunAtLoad": True,
        "KeepAlive": True,
        "Umask": 0o077,
        "ProcessType": "Background",
        **SILENT,
    },
    ROTATION: {
        "Label": ROTATION,
        "ProgramArguments": [f"/{PLACE}/rotate-activity-log"],
        "EnvironmentVariables": {"PATH": "/usr/bin:/bin:/usr/sbin:/sbin"},
        "StartInterval": 3600,
        "Umask": 0o077,
        "ProcessType": "Background",
        **SILENT,
    },
    DIRECTORY: {
        "Label": DIRECTORY,
        "ProgramArguments": [f"/{PLACE}/prepare-setup-directory"],
        "RunAtLoad": True,
        "StartInterval": 12 * 3600,
        "ProcessType": "Background",
        **SILENT,
    },
}


def plist(name):
    with open(PACKAGING / name, "rb") as file:
        return plistlib.load(file)


def files_below(directory):
    return sorted(str(path.relative_to(directory)) for path in directory.rglob("*") if not path.is_dir())


def mode_of(path):
    return stat.S_IMODE(path.lstat().st_mode)


class PropertyListTest(unittest.TestCase):
    def test_every_job_key_by_key(self):
        self.assertEqual({path.name for path in PACKAGING.glob("*.plist")},
                         {f"{label}.plist" for label in PROPERTY_LISTS})
        for label, keys in PROPERTY_LISTS.items():
            self.assertEqual(plist(f"{label}.plist"), keys)

    def test_every_script_that_a_job_runs_can_be_run(self):
        for label in (ROTATION, DIRECTORY):
            name = pathlib.Path(PROPERTY_LISTS[label]["ProgramArguments"][0]).name
            self.assertTrue(os.access(PACKAGING / name, os.X_OK), name)

    def test_the_programs_own_list_key_by_key(self):
        keys = plist("Info.plist.in")
        self.assertIn("local network", keys.pop("NSLocalNetworkUsageDescription"))
        self.assertEqual(keys, {
            "CFBundleIdentifier": LABEL,
            "CFBundleName": "OrvanePolicyDaemon",
            "CFBundleShortVersionString": "@PROJECT_VERSION@",
            "CFBundleVersion": "@PROJECT_VERSION@",
        })

    def test_the_profile_for_managed_macs_key_by_key(self):
        keys = plist("orvane-policy-daemon.mobileconfig")
        identifiers = {keys.pop("PayloadUUID")}
        (payload,) = keys.pop("PayloadContent")
        identifiers.add(payload.pop("PayloadUUID"))
        self.assertEqual(len(identifiers), 2)
        for identifier in identifiers:
            self.assertRegex(identifier, r"^[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}$")
        self.assertEqual(keys, {
            "PayloadType": "Configuration",
            "PayloadVersion": 1,
            "PayloadIdentifier": LABEL + ".profile",
            "PayloadDisplayName": "Orvane policy daemon",
            "PayloadScope": "System",
        })
        (rule,) = payload.pop("Rules")
        self.assertEqual(payload, {
            "PayloadType": "com.apple.servicemanagement",
            "PayloadVersion": 1,
            "PayloadIdentifier": LABEL + ".profile.background",
            "PayloadDisplayName": "Background items",
        })
        self.assertEqual((rule.pop("RuleType"), rule.pop("RuleValue")), ("LabelPrefix", LABEL))
        self.assertEqual([*rule], ["Comment"])
        for label in PROPERTY_LISTS:
            self.assertTrue(label.startswith(LABEL))


class Scratch(unittest.TestCase):
    """A directory with fakes that come before the system's programs."""

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.scratch = pathlib.Path(directory.name)
        self.stand_ins = self.scratch / "bin"
        self.stand_ins.mkdir()
        self.calls_file = self.scratch / "calls"
        self.calls_file.touch()

    def stand_in(self, name, script):
        file = self.stand_ins / name
        file.write_text("#!/bin/sh\n" + script + "\n")
        file.chmod(0o755)

    def run_script(self, name, *arguments, **environment):
        environment = {**os.environ, "PATH": f"{self.stand_ins}:{os.environ['PATH']}",
                       "CALLS": str(self.calls_file), "SCRATCH": str(self.scratch), **environment}
        return subprocess.run([PACKAGING / name, *arguments], capture_output=True, text=True, env=environment)

    def calls(self, program=None):
        lines = self.calls_file.read_text().splitlines()
        return [line for line in lines if program is None or line.split()[0] == program]


class RotationTest(Scratch):
    """newsyslog(8) as its manual has it: flag B keeps its own message out of the old and the new log."""

    NEWSYSLOG = r"""
        echo newsyslog "$@" >>"$CALLS"
        read -r file mode count size when flags </dev/stdin
        echo "$file $mode $count $size $when $flags" >>"$CALLS"
        [ "$(wc -c <"$file")" -gt $((size * 1024)) ] || exit 0
        turned_over() {
            case $flags in *B*) ;; *) echo "Nov 22 mac newsyslog[1]: logfile turned over due to size" ;; esac
        }
        turned_over >>"$file"
        mv "$file" "$file.0"
        turned_over >"$file"
        chmod "$mode" "$file" """
    LOG = ".orvane/logs/policy-daemon.activity.jsonl"

    def setUp(self):
        super().setUp()
        self.stand_in("newsyslog", self.NEWSYSLOG)
        self.home = self.scratch / "home"
        self.log = self.home / self.LOG
        self.log.parent.mkdir(parents=True)

    def rotate(self, home=None):
        return self.run_script("rotate-activity-log", HOME=str(home or self.home))

    def test_nothing_but_json_lines_is_ever_in_the_log(self):
        line = json.dumps({"daemon": "policy-daemon", "pad": "x" * 1000}) + "\n"
        self.log.write_text(line * 11_000)
        self.assertEqual(self.rotate().returncode, 0)
        with open(self.log, "a") as log:
            log.write(line)
        old = pathlib.Path(f"{self.log}.0")
        for file, lines in ((old, 11_000), (self.log, 1)):
            self.assertEqual([json.loads(text)["daemon"] for text in file.read_text().splitlines()],
                             ["policy-daemon"] * lines)
        self.assertEqual(mode_of(self.log), 0o600)

    def test_newsyslog_gets_the_rule_with_the_accounts_home(self):
        self.log.write_text("{}\n")
        self.assertEqual(self.rotate().returncode, 0)
        self.assertEqual(self.calls(), ["newsyslog -r -f /dev/stdin", f"{self.log} 600 5 10240 * BN"])
        self.assertIn(f'"{self.log.name}"', (SOURCE / "src/activity/activity_log.cpp").read_text())

    def test_any_character_of_a_home_is_taken_as_it_is_or_refused(self):
        for name in ("a,b", "a&b", "a~b", "a$b", "a'b"):
            log = self.scratch / name / self.LOG
            log.parent.mkdir(parents=True)
            log.write_text("{}\n")
            self.assertEqual(self.rotate(self.scratch / name).returncode, 0)
            self.assertEqual(self.calls()[-1], f"{log} 600 5 10240 * BN")
        count = len(self.calls())
        for home in ("/Users/a b", "/Users/a#b", "/Users/a\\b", "/Users/a\nb", "Users/a"):
            self.assertEqual(self.rotate(home).returncode, 1, home)
        self.assertEqual(len(self.calls()), count)


class SetupDirectoryTest(Scratch):
    NAMES = ["device-identity.json", "enroll-config.json"]

    def setUp(self):
        super().setUp()
        self.directory = self.scratch / "setup"
        self.kept = self.scratch / "kept"

    def prepare(self):
        return self.run_script("prepare-setup-directory", str(self.directory), str(self.kept))

    def expect_prepared(self):
        self.assertEqual(self.prepare().returncode, 0)
        self.assertFalse(self.directory.is_symlink())
        self.assertEqual(mode_of(self.directory), 0o1777)
        self.assertEqual(self.directory.stat().st_uid, os.geteuid())

    def test_it_is_made_with_the_names_of_enrollment_taken(self):
        self.expect_prepared()
        self.assertEqual(files_below(self.directory), self.NAMES)
        for name in self.NAMES:
            self.assertEqual((self.directory / name).read_text(), "{}\n")
            self.assertEqual(mode_of(self.directory / name), 0o644)

    def test_its_mode_is_put_right_and_what_is_in_it_stays(self):
        self.directory.mkdir(mode=0o700)
        (self.directory / "enroll-config.json").write_text("enrolled")
        (self.directory / "capture-policy.json").write_text("captured")
        self.expect_prepared()
        self.assertEqual((self.directory / "enroll-config.json").read_text(), "enrolled")
        self.assertEqual((self.directory / "capture-policy.json").read_text(), "captured")
        self.assertEqual((self.directory / "device-identity.json").read_text(), "{}\n")

    def test_what_is_kept_is_put_back(self):
        self.kept.mkdir()
        (self.kept / "enroll-config.json").write_text("enrolled")
        self.expect_prepared()
        self.assertEqual((self.directory / "enroll-config.json").read_text(), "enrolled")
        self.assertEqual(mode_of(self.directory / "enroll-config.json"), 0o644)
        self.assertEqual((self.directory / "device-identity.json").read_text(), "{}\n")

    def test_what_is_no_directory_is_replaced(self):
        victim = self.scratch / "victim"
        victim.mkdir()
        (victim / "file").write_text("kept")
        plants = (lambda: self.directory.write_text("a file"), lambda: self.directory.symlink_to(victim),
                  lambda: self.directory.symlink_to("nowhere"), lambda: os.mkfifo(self.directory))
        for plant in plants:
            plant()
            self.expect_prepared()
            for name in self.NAMES:
                (self.directory / name).unlink()
            self.directory.rmdir()
        self.assertEqual(files_below(self.scratch / "victim"), ["file"])

    @unittest.skipUnless(os.geteuid() == 0, "only root can give a directory to another account")
    def test_another_accounts_directory_is_replaced(self):
        self.directory.mkdir()
        (self.directory / "enroll-config.json").write_text("planted")
        os.chown(self.directory, 65534, 65534)
        self.expect_prepared()
        self.assertEqual((self.directory / "enroll-config.json").read_text(), "{}\n")

    def test_a_planted_link_is_not_followed(self):
        victim = self.scratch / "victim"
        victim.write_text("kept")
        os.utime(victim, (1, 1))
        for target in (victim, self.scratch / "missing", self.scratch):
            self.expect_prepared()
            (self.directory / "enroll-config.json").unlink()
            (self.directory / "enroll-config.json").symlink_to(target)
            self.expect_prepared()
            self.assertTrue((self.directory / "enroll-config.json").is_symlink())
        self.assertEqual((victim.read_text(), victim.stat().st_mtime), ("kept", 1))
        self.assertFalse((self.scratch / "missing").exists())

    def test_every_file_in_it_becomes_young_for_the_cleaner(self):
        self.expect_prepared()
        names = [*self.NAMES, "capture-policy.json"]
        (self.directory / names[-1]).write_text("captured")
        for name in names:
            os.utime(self.directory / name, (1, 1))
        self.expect_prepared()
        for name in names:
            status = (self.directory / name).stat()
            self.assertGreater(status.st_atime, 1_000_000_000)
            self.assertEqual(status.st_mtime, 1)

    def test_a_link_that_takes_a_files_place_meanwhile_is_not_followed(self):
        self.stand_in("touch", 'echo touch "$1" "$2" >>"$CALLS"')
        self.expect_prepared()
        self.assertEqual(self.calls(), ["touch -h -a"])

    def test_it_gives_up_where_nothing_can_be_made(self):
        self.directory = self.scratch / "missing/setup"
        result = self.prepare()
        self.assertEqual(result.returncode, 1)
        self.assertIn("cannot be made", result.stderr)


# launchctl(1) as it was seen to answer: bootout returns before the job has ended (36 while it is ending, 3
# when there is none), print fails when the job is gone, bootstrap fails with 5 for some time after that and
# with 37 when the job is there; a disabled job is not taken. Time goes by with sleep.
CLOCK = r"""
    now=0
    [ ! -e "$SCRATCH/now" ] || read -r now <"$SCRATCH/now"
"""
LAUNCHCTL = CLOCK + r"""
    echo launchctl "$@" >>"$CALLS"
    job=$2
    if [ "$1" = bootstrap ]; then job=${3##*/}; job=$2/${job%.plist}; fi
    file=$SCRATCH/jobs/$(echo "$job" | tr / :)
    ends=gone free=0
    [ ! -e "$file" ] || read -r ends free <"$file"
    loaded() { [ "$ends" != gone ] && { [ "$ends" = never ] || [ "$now" -lt "$ends" ]; }; }
    case $1 in
        print)
            loaded || { echo "Could not find service" >&2; exit 113; } ;;
        bootout)
            loaded || { echo "Boot-out failed: 3: No such process" >&2; exit 3; }
            [ "$ends" = never ] || { echo "Boot-out failed: 36: Operation now in progress" >&2; exit 36; }
            [ "${STUCK-}" != "$job" ] || exit 36
            echo $((now + ${ENDING:-0})) $((now + ${ENDING:-0} + ${SETTLING:-0})) >"$file"
            [ "${ENDING:-0}" = 0 ] || { echo "Boot-out failed: 36: Operation now in progress" >&2; exit 36; } ;;
        enable)
            /bin/rm -f "$file:disabled" ;;
        bootstrap)
            ! loaded || { echo "Bootstrap failed: 37: Operation already in progress" >&2; exit 37; }
            [ "$now" -ge "$free" ] && [ ! -e "$file:disabled" ] && [ "${REFUSED-}" != "$job" ] ||
                { echo "Bootstrap failed: 5: Input/output error" >&2; exit 5; }
            echo never 0 >"$file" ;;
    esac
"""
SLEEP = CLOCK + r"""
    step=5
    [ "$1" = 0.5 ] || step=$(($1 * 10))
    echo $((now + step)) >"$SCRATCH/now"
"""
PS = r"""
    [ "$*" = "-axww -o uid= -o comm=" ] || { echo "ps: $*" >&2; exit 1; }
    window=/System/Library/CoreServices/loginwindow.app/Contents/MacOS/loginwindow
    echo "    0 /sbin/launchd"
    for user in $SESSIONS; do echo "  $user $window"; done
    echo "  501 /usr/bin/other"
"""


class ScriptsTest(Scratch):
    def setUp(self):
        super().setUp()
        self.root = self.scratch / "root"
        (self.scratch / "jobs").mkdir()
        self.program = self.scratch / "built/OrvanePolicyDaemon"
        manual = self.program.parent / "packaging/OrvanePolicyDaemon.8"
        manual.parent.mkdir(parents=True)
        manual.write_text("the manual")
        self.program.write_text("the program")
        self.program.chmod(0o700)

    def install(self, *arguments, **environment):
        return self.run_script("install", *arguments, str(self.program), **environment)

    def be_a_mac(self, libraries=("/usr/lib/libSystem.B.dylib",)):
        """What would touch this machine is written down instead; what is asked of launchd has effects."""
        self.stand_in("uname", "echo Darwin")
        self.stand_in("id", "echo 0")
        self.stand_in("ps", PS)
        self.stand_in("launchctl", LAUNCHCTL)
        self.stand_in("sleep", SLEEP)
        listing = "".join(f"\\t{library} (compatibility version 1.0.0)\\n" for library in libraries)
        self.stand_in("otool", f"""printf "$2:\n{listing}" """)
        for command in ("install_name_tool", "codesign"):
            self.stand_in(command, f'echo {command} "$@" >>"$CALLS"')

    def be_this_mac(self):
        """As without --root: files go nowhere."""
        self.be_a_mac()
        for command in ("install", "mkdir", "rm", "rmdir"):
            self.stand_in(command, f'echo {command} "$@" >>"$CALLS"')

    def run_on_this_mac(self, name, *arguments, **environment):
        """The script with what it would run from its place on the machine taken from a fake."""
        copy = self.scratch / "scripts"
        copy.mkdir(exist_ok=True)
        for script in ("common.sh", "install", "remove", "postinstall"):
            text = (PACKAGING / script).read_text()
            text = text.replace("place='/Library", f"place='{self.scratch}/Library")
            (copy / script).write_text(text)
            (copy / script).chmod(0o755)
        prepare = self.scratch / PLACE / "prepare-setup-directory"
        prepare.parent.mkdir(parents=True, exist_ok=True)
        prepare.write_text('#!/bin/sh\necho prepare-setup-directory "$@" >>"$CALLS"\n')
        prepare.chmod(0o755)
        return self.run_script(copy / name, *arguments, **{"SESSIONS": "501", **environment})

    def jobs(self):
        return [line.split()[1:] for line in self.calls("launchctl")]

    def loaded(self):
        return sorted(path.name.replace(":", "/") for path in (self.scratch / "jobs").iterdir()
                      if path.read_text().startswith("never"))

    def load(self, *jobs):
        for job in jobs:
            (self.scratch / "jobs" / job.replace("/", ":")).write_text("never 0\n")

    @staticmethod
    def jobs_of(*users):
        return sorted([f"gui/{user}/{label}" for user in users for label in (LABEL, ROTATION)] +
                      [f"system/{DIRECTORY}"])

    # ---- Into a directory ----

    def test_all_is_put_where_the_property_lists_look_for_it(self):
        result = self.install("--root", str(self.root))
        self.assertEqual(result.returncode, 0, result.stderr)
        lists = [f"{AGENTS}/{LABEL}.plist", f"{AGENTS}/{ROTATION}.plist", f"{DAEMONS}/{DIRECTORY}.plist"]
        scripts = [f"{PLACE}/prepare-setup-directory", f"{PLACE}/rotate-activity-log"]
        self.assertEqual(files_below(self.root), sorted([*lists, *scripts, PROGRAM, PROGRAM + ".8"]))
        self.assertEqual((self.root / PROGRAM).read_text(), "the program")
        self.assertEqual((self.root / (PROGRAM + ".8")).read_text(), "the manual")
        for name in [PROGRAM, *scripts]:
            self.assertEqual(mode_of(self.root / name), 0o755)
        for name in [*lists, PROGRAM + ".8"]:
            self.assertEqual(mode_of(self.root / name), 0o644)
        for name in [*lists, *scripts]:
            self.assertEqual((self.root / name).read_bytes(), (PACKAGING / pathlib.Path(name).name).read_bytes())
        for directory in (path for path in self.root.rglob("*") if path.is_dir()):
            self.assertEqual(mode_of(directory), 0o755, directory)

    def test_the_status_command_comes_with_the_daemon_that_it_was_built_with(self):
        (self.program.parent / "orvane-policy-status").write_text("the command")
        (self.program.parent / "packaging/orvane-policy-status.1").write_text("its manual")
        self.be_a_mac()
        self.assertEqual(self.install("--root", str(self.root)).returncode, 0)
        command = self.root / PLACE / "orvane-policy-status"
        self.assertEqual((command.read_text(), mode_of(command)), ("the command", 0o755))
        manual = command.with_suffix(".1")
        self.assertEqual((manual.read_text(), mode_of(manual)), ("its manual", 0o644))
        self.assertEqual(self.calls("codesign"), [f"codesign --force --sign - {self.root / PROGRAM}",
                                                  f"codesign --force --sign - {command}"])
        self.assertEqual(self.run_script("remove", "--root", str(self.root)).returncode, 0)
        self.assertEqual(files_below(self.root), [])

    def test_nothing_is_kept_below_homebrews_prefixes(self):
        self.install("--root", str(self.root))
        self.assertEqual({path.name for path in self.root.iterdir()}, {"Library"})
        for file in PACKAGING.glob("*.plist"):
            self.assertNotIn("/usr/local", file.read_text())
            self.assertNotIn("/opt", file.read_text())

    def test_an_upgrade_leaves_the_running_programs_file_alone(self):
        self.install("--root", str(self.root))
        with open(self.root / PROGRAM) as running:
            self.program.write_text("the next one")
            self.assertEqual(self.install("--root", str(self.root)).returncode, 0)
            self.assertEqual(running.read(), "the program")
        self.assertEqual((self.root / PROGRAM).read_text(), "the next one")

    def test_nothing_is_installed_without_a_program(self):
        for program in ("missing", str(self.scratch)):
            result = self.run_script("install", "--root", str(self.root), program)
            self.assertEqual(result.returncode, 1)
            self.assertIn("there is no program", result.stderr)
        self.assertFalse(self.root.exists())

    def test_homebrews_library_comes_along_and_is_signed_again(self):
        library = self.scratch / "opt/homebrew/liburiparser.1.dylib"
        library.parent.mkdir(parents=True)
        library.write_text("the library")
        self.be_a_mac()
        self.stand_in("otool", f"""
            printf '%s:\\n\\t/opt/homebrew/liburiparser.1.dylib (x)\\n\\t/usr/lib/libcurl.4.dylib (x)\\n' "$2" """)
        # Instead of the file that the list names.
        self.stand_in("install", f"""
            [ "$3" != /opt/homebrew/liburiparser.1.dylib ] || set -- "$1" "$2" {library} "$4"
            exec /usr/bin/install "$@" """)
        result = self.install("--root", str(self.root))
        self.assertEqual(result.returncode, 0, result.stderr)
        carried = self.root / PLACE / "liburiparser.1.dylib"
        self.assertEqual(carried.read_text(), "the library")
        changed = "/opt/homebrew/liburiparser.1.dylib @executable_path/liburiparser.1.dylib"
        program = self.root / PROGRAM
        self.assertEqual(self.calls(), [
            f"install_name_tool -change {changed} {program}",
            f"install_name_tool -id @executable_path/liburiparser.1.dylib {carried}",
            f"codesign --force --sign - {carried}",
            f"codesign --force --sign - {program}"])

    def test_an_identity_signs_for_the_hardened_runtime(self):
        self.be_a_mac()
        result = self.install("--root", str(self.root), ORVANE_SIGN_AS="Developer ID Application: X")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(self.calls("codesign"),
                         ["codesign --force --sign Developer ID Application: X --options runtime --timestamp "
                          f"{self.root / PROGRAM}"])

    def test_a_library_that_needs_others_of_homebrews_is_refused(self):
        self.be_a_mac()
        self.stand_in("otool", """
            case $2 in
                *.dylib) printf '%s:\\n\\t/opt/homebrew/a.dylib (x)\\n\\t/opt/homebrew/b.dylib (x)\\n' "$2" ;;
                *) printf '%s:\\n\\t/opt/homebrew/a.dylib (x)\\n' "$2" ;;
            esac""")
        self.stand_in("install", """
            case $3 in *.dylib) set -- "$1" "$2" /dev/null "$4" ;; esac
            exec /usr/bin/install "$@" """)
        result = self.install("--root", str(self.root))
        self.assertEqual(result.returncode, 1)
        self.assertIn("other libraries of Homebrew", result.stderr)

    def test_nothing_stays_but_what_others_have_put_there(self):
        self.install("--root", str(self.root))
        (self.root / PLACE / "liburiparser.1.dylib").touch()
        others = [f"{AGENTS}/other.plist", f"{PLACE}/enrollment/enroll-config.json"]
        for other in others:
            (self.root / other).parent.mkdir(exist_ok=True)
            (self.root / other).touch()
        self.assertEqual(self.run_script("remove", "--root", str(self.root)).returncode, 0)
        self.assertEqual(files_below(self.root), sorted(others))
        (self.root / others[1]).unlink()
        (self.root / others[1]).parent.rmdir()
        self.assertEqual(self.run_script("remove", "--root", str(self.root)).returncode, 0)
        self.assertFalse((self.root / PLACE).exists())

    # ---- On the Mac itself ----

    def test_without_a_root_directory_it_takes_a_mac(self):
        self.be_this_mac()
        self.stand_in("uname", "echo Linux")
        for script in ("install", "remove"):
            result = self.run_script(script)
            self.assertEqual(result.returncode, 1)
            self.assertIn("this is for macOS", result.stderr)
        self.assertEqual(self.calls(), [])

    def test_without_a_root_directory_it_takes_root(self):
        self.be_this_mac()
        self.stand_in("id", "echo 501")
        for script in ("install", "remove"):
            result = self.run_script(script)
            self.assertEqual(result.returncode, 1)
            self.assertIn("this takes root", result.stderr)
        self.assertEqual(self.calls(), [])

    def test_jobs_are_started_in_every_session_once_all_is_in_place(self):
        self.be_this_mac()
        # At the login screen it is root's; the Setup Assistant has an account of its own.
        result = self.run_on_this_mac("install", str(self.program), SESSIONS="0 248 502 501 502")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(self.loaded(), self.jobs_of(501, 502))
        names = [line.split()[0] for line in self.calls()]
        first = names.index("launchctl")
        self.assertEqual(names[first - 1], "prepare-setup-directory")
        self.assertNotIn("install", names[first:])
        self.assertEqual([job for job in self.jobs() if job[0] == "bootstrap"][0],
                         ["bootstrap", "system", f"/{DAEMONS}/{DIRECTORY}.plist"])

    def test_at_the_login_screen_no_agent_is_started(self):
        self.be_this_mac()
        for sessions in ("", "0", "0 248"):
            self.assertEqual(self.run_on_this_mac("install", str(self.program), SESSIONS=sessions).returncode, 0)
            self.assertEqual(self.loaded(), self.jobs_of())

    def test_an_upgrade_waits_for_the_old_job_and_for_its_label(self):
        for ending, settling in ((0, 0), (0, 50), (7, 0), (55, 20)):
            with self.subTest(ending=ending, settling=settling):
                self.be_this_mac()
                self.load(*self.jobs_of(501))
                result = self.run_on_this_mac("install", str(self.program), ENDING=str(ending), SETTLING=str(settling))
                self.assertEqual((result.returncode, result.stderr), (0, ""))
                self.assertEqual(self.loaded(), self.jobs_of(501))
                for job in self.jobs_of(501):
                    self.assertIn(["bootout", job], self.jobs())

    def test_a_job_that_was_switched_off_is_started_all_the_same(self):
        self.be_this_mac()
        (self.scratch / f"jobs/gui:501:{LABEL}:disabled").touch()
        self.assertEqual(self.run_on_this_mac("install", str(self.program)).returncode, 0)
        self.assertEqual(self.loaded(), self.jobs_of(501))

    def test_a_job_that_does_not_start_is_told_and_keeps_no_other_from_starting(self):
        self.be_this_mac()
        refused = f"gui/501/{LABEL}"
        result = self.run_on_this_mac("install", str(self.program), REFUSED=refused, SESSIONS="501 502")
        self.assertEqual(result.returncode, 0)
        self.assertEqual(self.loaded(), [job for job in self.jobs_of(501, 502) if job != refused])
        self.assertEqual(result.stderr,
                         f"install: {LABEL} does not start in gui/501 now: Bootstrap failed: 5: Input/output error\n"
                         "install: it starts when that account logs in the next time\n")

    def test_a_job_that_a_login_has_started_meanwhile_is_left_alone(self):
        self.be_this_mac()
        self.stand_in("sleep", SLEEP + f"""echo never 0 >"$SCRATCH/jobs/gui:501:{LABEL}" """)
        result = self.run_on_this_mac("install", str(self.program), REFUSED=f"gui/501/{LABEL}")
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_a_job_that_does_not_end_stops_the_upgrade(self):
        self.be_this_mac()
        self.load(*self.jobs_of(501))
        for script in ("install", "remove"):
            arguments = [str(self.program)] if script == "install" else []
            result = self.run_on_this_mac(script, *arguments, STUCK=f"gui/501/{LABEL}")
            self.assertEqual(result.returncode, 1)
            self.assertIn(f"launchd does not let go of {LABEL} in gui/501", result.stderr)

    def test_jobs_of_every_session_are_ended_before_files_go(self):
        self.be_this_mac()
        self.load(*self.jobs_of(501, 502))
        result = self.run_on_this_mac("remove", SESSIONS="0 501 502", ENDING="30")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(self.loaded(), [])
        names = [line.split()[0] for line in self.calls()]
        self.assertNotIn("launchctl", names[names.index("rm"):])
        removed = "\n".join(self.calls("rm"))
        for name in (f"{AGENTS}/{LABEL}.plist", f"{AGENTS}/{ROTATION}.plist", f"{DAEMONS}/{DIRECTORY}.plist",
                     PROGRAM, PROGRAM + ".8", f"{PLACE}/rotate-activity-log", f"{PLACE}/prepare-setup-directory"):
            self.assertIn(f"/{name}", removed)

    def test_an_installer_package_starts_what_it_has_put_on_the_running_system(self):
        self.be_this_mac()
        # installer(8): package, destination, volume, root.
        result = self.run_on_this_mac("postinstall", "package", "/", "/", "/")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(self.loaded(), self.jobs_of(501))
        self.calls_file.write_text("")
        self.assertEqual(self.run_on_this_mac("postinstall", "package", "/", "/Volumes/Other", "/").returncode, 0)
        self.assertEqual(self.calls(), [])


class OldShellTest(unittest.TestCase):
    """What runs on a Mac keeps to bash 3.2, which is the one that macOS has."""

    NEWER = {
        "mapfile, readarray": r"\b(mapfile|readarray)\b",
        "associative arrays, references, lower and upper case": r"\b(declare|local|typeset) +-[aAgilrtux]*[Anglu]",
        "changing case": r"\$\{[A-Za-z_]\w*(\[[^]]*\])?(\^|,)",
        "both outputs appended": r"&>>|\|&",
        "negative indices and lengths": r"\$\{\w+\[-\d|\$\{\w+:[^}]*:\s*-\d",
        "@-transformations": r"\$\{\w+(\[@\])?@[A-Za-z]\}",
        "a descriptor of the shell's choice": r"\{\w+\}[<>]",
        "printf of the time": r"%\(.*\)T",
        "coprocesses, wait -n": r"\bcoproc\b|\bwait -n\b",
        "EPOCHSECONDS, EPOCHREALTIME, BASHPID": r"\b(EPOCHSECONDS|EPOCHREALTIME|BASHPID)\b",
        "falling through a case": r";;?&",
    }
    ON_A_MAC = ["run", "ci/install-packages", "ci/configure", "ci/check-release", "ci/expect-writable",
                *(f"packaging/macos/{name}" for name in ("common.sh", "install", "remove", "postinstall",
                                                         "rotate-activity-log", "prepare-setup-directory"))]

    def test_the_scripts_use_nothing_newer(self):
        for name in self.ON_A_MAC:
            text = (SOURCE / name).read_text()
            # What only Linux runs may be newer.
            for what, pattern in self.NEWER.items():
                for number, line in enumerate(text.splitlines(), 1):
                    self.assertIsNone(re.search(pattern, line), f"{name}:{number}: {what}: {line}")

    def test_the_patterns_find_what_they_are_for(self):
        samples = ["mapfile -t x", "local -A x", "declare -n x", "${x^^}", "${x,}", "a &>>b", "a |& b", "${x[-1]}",
                   "${x: 1: -1}", "${x@Q}", "exec {fd}<x", "printf '%(%s)T'", "wait -n", "$EPOCHSECONDS", ";;&"]
        for sample in samples:
            self.assertTrue(any(re.search(pattern, sample) for pattern in self.NEWER.values()), sample)
        fine = ['"${x[@]}"', "${x[0]-y}", 'local tenth', "${x//a/b}", "${x%/}", "a >b 2>&1", "${x:1:2}", "local -a x"]
        for sample in fine:
            self.assertFalse(any(re.search(pattern, sample) for pattern in self.NEWER.values()), sample)

    def test_an_empty_array_is_not_expanded_as_it_is(self):
        # To bash 3.2 under set -u it is an unset variable.
        for name in (name for name in self.ON_A_MAC if name.startswith("packaging/")):
            for empty in re.findall(r"\b(\w+)=\(\)", (SOURCE / name).read_text()):
                bare = re.compile(r'(?<!\+)"\$\{' + empty + r'\[[@*]\]\}"')
                for number, line in enumerate((SOURCE / name).read_text().splitlines(), 1):
                    self.assertIsNone(bare.search(line.replace(f'{empty}[@]+"', "")), f"{name}:{number}: {line}")


class FormulaTest(unittest.TestCase):
    FORMULA = (PACKAGING / "orvane-policy-daemon.rb").read_text()

    def block(self, head):
        return [line.strip() for line in
                re.search(rf"^  {head}\n(.*?)\n  end$", self.FORMULA, re.DOTALL | re.MULTILINE).group(1).splitlines()]

    def test_it_depends_on_what_the_build_takes(self):
        script = (SOURCE / "ci/install-packages").read_text()
        packages = re.search(r"Darwin.*?for_build=\((.*?)\)", script, re.DOTALL).group(1).split()
        for package in ("libmicrohttpd", "libnghttp2", "nlohmann-json", "openssl@3"):  # for the local control plane
            packages.remove(package)
        named = re.findall(r'^  depends_on "([^"]+)"', self.FORMULA, re.MULTILINE)
        self.assertEqual(sorted(named), sorted(packages))
        self.assertIn("depends_on macos: :ventura", self.FORMULA)

    def test_its_service_is_the_launch_agents(self):
        keys = PROPERTY_LISTS[LABEL]
        self.assertEqual(self.block("service do"),
                         [f'run opt_libexec/"{pathlib.Path(keys["ProgramArguments"][0]).name}"',
                          "run_at_load " + str(keys["RunAtLoad"]).lower(),
                          "keep_alive " + str(keys["KeepAlive"]).lower(),
                          "process_type :" + keys["ProcessType"].lower()])

    def test_it_installs_what_the_build_makes_and_the_rotation(self):
        lines = "\n".join(self.block("def install"))
        self.assertNotIn("WARNING_AS_ERROR=ON", lines)
        self.assertIn('libexec.install "build/release/OrvanePolicyDaemon"', lines)
        self.assertIn('bin.install "build/release/orvane-policy-status"', lines)
        self.assertIn('libexec.install "packaging/macos/rotate-activity-log"', lines)
        self.assertIn('man1.install "build/release/packaging/orvane-policy-status.1"', lines)
        self.assertIn('man8.install "build/release/packaging/OrvanePolicyDaemon.8"', lines)
        place = re.search(r'inreplace "([^"]+)", "([^"]+)", ', lines)
        self.assertEqual((SOURCE / place.group(1)).name, f"{ROTATION}.plist")
        self.assertIn(f"<string>{place.group(2)}/rotate-activity-log</string>",
                      (SOURCE / place.group(1)).read_text())

    def test_the_release_preset_makes_no_errors_of_warnings(self):
        presets = json.loads((SOURCE / "CMakePresets.json").read_text())["configurePresets"]
        by_name = {preset["name"]: preset for preset in presets}
        waiting, seen = ["release"], {}
        while waiting:
            preset = by_name[waiting.pop()]
            inherited = preset.get("inherits", [])
            waiting += [inherited] if isinstance(inherited, str) else inherited
            seen.update(preset.get("cacheVariables", {}))
        self.assertNotIn("CMAKE_COMPILE_WARNING_AS_ERROR", seen)

    def test_it_tells_how_the_rotation_is_started(self):
        told = "\n".join(self.block("def caveats"))
        self.assertIn(f"{ROTATION}.plist", told)
        self.assertIn("launchctl bootstrap gui/$(id -u)", told)


if __name__ == "__main__":
    unittest.main()
