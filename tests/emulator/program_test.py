"""The program orvane-control-plane from outside: what it prints and records, what it says about input that it
cannot use, and what it takes to hold 10,000 polls.
"""

import json
import os
import pathlib
import resource
import selectors
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.error
import urllib.request

POLL = "/api/orvane/v1/connect/guard-config/?wait=300&agent_slug="
POLICY = '{"etag": "one", "guard_config": {}}'
HELD_POLLS = 10_000
MOST_MEMORY = 300  # MiB for 10,000 held polls; orvane-control-plane(1) says so


class ProgramTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)
        self.policy = self.directory / "policy.json"
        self.policy.write_text(POLICY)

    def start(self, *arguments):
        port_file = self.directory / "port"
        self.output = (self.directory / "output").open("w+")
        process = subprocess.Popen([PROGRAM, "--port-file", port_file, *arguments],
                                   stdout=self.output, stderr=subprocess.STDOUT)
        self.addCleanup(self.output.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        self.wait_until(port_file.exists)
        self.port = int(port_file.read_text())
        return process

    def wait_until(self, condition):
        deadline = time.monotonic() + 60
        while not condition():
            self.assertLess(time.monotonic(), deadline, self.printed())
            time.sleep(0.02)

    def printed(self):
        return (self.directory / "output").read_text()

    def ask(self, path, **options):
        request = urllib.request.Request(f"http://127.0.0.1:{self.port}{path}", **options)
        with urllib.request.urlopen(request, timeout=30) as answer:
            return answer.read().decode()

    def refusal(self, *arguments):
        """Its one line of complaint."""
        result = subprocess.run([PROGRAM, *arguments], capture_output=True, text=True, timeout=30)
        self.assertEqual(result.returncode, 2, result)
        self.assertEqual(result.stderr.count("\n"), 1, result.stderr)
        self.assertTrue(result.stderr.startswith("orvane-control-plane: "), result.stderr)
        return result.stderr.removeprefix("orvane-control-plane: ").rstrip()


class InputTest(ProgramTest):
    def test_what_it_cannot_use_is_one_line_and_a_status(self):
        self.policy.write_text("[]")
        nowhere = str(self.directory / "none" / "file")
        for arguments, complaint in (
            (["--policy", self.policy], f"{self.policy}: the policy is not a JSON object"),
            (["--policy", nowhere], f"{nowhere} cannot be read"),
            (["--port", "http"], '--port: not a number from 0 to 65535: "http"'),
            (["--fault", "slw"], '--fault: there is no fault "slw"; orvane-control-plane --help lists them'),
            (["--record", nowhere], f"cannot write the record to {nowhere}: No such file or directory"),
            (["--port-file", nowhere], f"cannot write {nowhere}.new"),
            (["--cert", self.policy, "--private-key", self.policy], "the certificate is not in PEM format"),
            (["--cert", nowhere, "--private-key", nowhere], f"cannot read {nowhere}"),
            (["--listen", "everywhere"], '"everywhere" is not an address to listen on, such as 127.0.0.1'),
            (["--frobnicate"], 'there is no option "--frobnicate"; --help lists them'),
        ):
            with self.subTest(arguments=arguments):
                self.assertEqual(self.refusal(*arguments), complaint)

    def test_a_certificate_that_is_too_weak(self):
        files = [self.directory / "weak.pem", self.directory / "weak.key"]
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:512", "-nodes", "-subj", "/CN=localhost",
                        "-out", files[0], "-keyout", files[1]], check=True, capture_output=True)
        self.assertEqual(self.refusal("--cert", files[0], "--private-key", files[1]),
                         "the TLS library does not take the certificate")

    def test_a_port_that_is_taken(self):
        with socket.create_server(("127.0.0.1", 0)) as taken:
            port = taken.getsockname()[1]
            self.assertEqual(self.refusal("--port", str(port)),
                             f"cannot listen on 127.0.0.1:{port}: the port is taken; give another one with --port, "
                             "or none for any")

    def test_a_policy_file_that_becomes_unusable_changes_nothing(self):
        self.start("--policy", self.policy)
        self.policy.write_text("{")
        self.wait_until(lambda: "; the policy stays as it was" in self.printed())
        self.assertEqual(self.ask("/policy"), POLICY)
        self.policy.write_text('{"etag": "two"}')
        self.wait_until(lambda: self.ask("/policy") == '{"etag": "two"}')

    def test_version_and_help(self):
        help_text = subprocess.run([PROGRAM, "--help"], capture_output=True, text=True, check=True).stdout
        self.assertIn("--policy FILE", help_text)
        version = subprocess.run([PROGRAM, "--version"], capture_output=True, text=True, check=True).stdout
        self.assertRegex(version, r"^orvane-control-plane \d+\.\d+\.\d+\n$")


class CheckTest(ProgramTest):
    """--check, against the program itself and against a server that knows nothing of agents."""

    def check(self, url, *arguments):
        """Its exit status and lines."""
        result = subprocess.run([PROGRAM, "--check", url, "--wait", "3", *arguments],
                                capture_output=True, text=True, timeout=60)
        self.assertEqual(result.stderr, "")
        return result.returncode, result.stdout.splitlines()

    def test_a_good_one(self):
        self.start("--policy", self.policy, "--key", "top-secret", "--device", "secret-token", "--tenant", "acme",
                   "--agent-slug", "laptop")
        status, lines = self.check(f"http://localhost:{self.port}/", "--device", "secret-token", "--tenant", "acme")
        self.assertEqual((status, lines),
                         (0, ["10 requests, nothing wrong; a hold was watched for 3 s, --wait SECONDS changes that"]))

    def test_one_with_a_fault(self):
        self.start("--policy", self.policy, "--fault", "html-portal")
        status, lines = self.check(f"http://localhost:{self.port}")
        self.assertEqual(status, 1)
        self.assertEqual(lines[0], 'A poll without an ETag: status 200 with a page instead of JSON: "<!DOCTYPE html>'
                         '<html><head><title>Sign in</title></head><bod…". A daemon stores nothing and polls again at '
                         "once, at full speed. Send a JSON object in UTF-8 (RFC 8259) and nothing after it.")
        self.assertTrue(lines[1].startswith("1 request, 1 finding; "), lines)

    def test_one_with_a_certificate_of_its_own(self):
        tls = self.directory / "tls"
        self.start("--policy", self.policy, "--tls", tls)
        url = f"https://localhost:{self.port}"
        status, lines = self.check(url)
        self.assertEqual((status, len(lines)), (1, 2))
        self.assertIn("--ca FILE", lines[0])
        self.assertEqual(self.check(url, "--ca", tls / "ca.pem")[0], 0)

    def test_what_cannot_be_checked(self):
        for url in ("localhost:8080", "ftp://localhost", "http://a b", "http://"):
            self.assertEqual(self.refusal("--check", url),
                             f'--check: not an address such as https://control.example: "{url}"')
        nowhere = str(self.directory / "none")
        self.assertEqual(self.refusal("--check", "http://localhost", "--ca", nowhere),
                         f"there is no certificate in PEM format in {nowhere}")

    def start_nginx(self, **files):
        """nginx, which serves `files` where agents ask for them."""
        self.directory.chmod(0o755)  # its workers have an account of their own
        paths = {"policy": "connect/guard-config", "effective": "guard/effective"}
        for name, content in files.items():
            place = self.directory / "files/api/orvane/v1" / paths[name]
            place.mkdir(parents=True)
            (place / "index.json").write_text(content)
        with socket.create_server(("127.0.0.1", 0)) as free:
            port = free.getsockname()[1]
        temporary = "".join(f"{kind}_temp_path {self.directory}/{kind};"
                            for kind in ("client_body", "proxy", "fastcgi", "uwsgi", "scgi"))
        (self.directory / "nginx.conf").write_text(
            f"daemon off; pid {self.directory}/pid; error_log {self.directory}/log; worker_processes 1;\n"
            f"events {{}}\nhttp {{ access_log off; {temporary} default_type application/json;\n"
            f"server {{ listen 127.0.0.1:{port}; root {self.directory}/files; index index.json; }} }}\n")
        with (self.directory / "output").open("w") as output:
            process = subprocess.Popen(
                ["nginx", "-e", f"{self.directory}/log", "-c", f"{self.directory}/nginx.conf"], stderr=output)
        self.addCleanup(process.wait)
        self.addCleanup(process.terminate)

        def listens():
            with socket.socket() as connection:
                return connection.connect_ex(("127.0.0.1", port)) == 0
        self.wait_until(listens)
        return f"http://127.0.0.1:{port}"

    @unittest.skipUnless(shutil.which("nginx"), "nginx is not installed")
    def test_a_file_server(self):
        url = self.start_nginx(policy=POLICY, effective="{}")
        status, lines = self.check(url)
        self.assertEqual(status, 1)
        expected = (
            ("A poll without an ETag", "without Cache-Control"),
            ("The effective configuration", "without Cache-Control"),
            ("A poll with a wrong key", "status 200", "whatever key they send"),
            ("The effective configuration with a wrong key", "status 200", "whatever key they send"),
            ("A poll with the live ETag and wait=1", "status 200", "at full speed"),
            ("A poll with the live ETag", "with the same ETag", "Compare If-None-Match"),
            # It refuses the long ETag with 400, which is as good as another status.
            ("9 requests, 6 findings",),
        )
        self.assertEqual(len(lines), len(expected), lines)
        for line, (request, *parts) in zip(lines, expected):
            self.assertTrue(line.startswith((request + ": ", request + "; ")), line)
            for part in parts:
                self.assertIn(part, line)

    @unittest.skipUnless(shutil.which("nginx"), "nginx is not installed")
    def test_a_file_server_without_the_files(self):
        status, lines = self.check(self.start_nginx())
        self.assertEqual(status, 1)
        self.assertIn("status 404", lines[0])
        self.assertIn("Serve this address, with the slash at its end", lines[0])


class RecordTest(ProgramTest):
    def test_it_has_every_exchange_and_no_credentials(self):
        record = self.directory / "record.jsonl"
        process = self.start("--policy", self.policy, "--record", record, "--key", "top-secret",
                             "--device", "secret-token", "--tenant", "acme", "--agent-slug", "laptop")
        self.ask(POLL + "laptop", headers={"X-Orv-Key": "top-secret", "User-Agent": "Agent/1"})
        self.ask("/api/orvane/v1/endpoint/agent-config/?process=claude",
                 headers={"X-Orv-Device": "secret-token", "X-Orv-Tenant": "acme"})
        with self.assertRaises(urllib.error.HTTPError):
            self.ask(POLL + "laptop", headers={"X-Orv-Key": "wrong-secret"})
        self.ask("/faults", method="PUT", data=b'[{"name": "redirect"}]')
        self.ask("/")
        process.send_signal(signal.SIGTERM)
        self.assertEqual(process.wait(timeout=30), 0)
        self.assertNotIn("secret", record.read_text() + self.printed())
        lines = [json.loads(line) for line in record.read_text().splitlines()]
        self.assertEqual([(line["method"], line["status"], line["device"]) for line in lines],
                         [("GET", 200, "laptop"), ("GET", 200, "laptop"), ("GET", 401, "laptop"), ("PUT", 204, "")])
        self.assertEqual(lines[0]["user_agent"], "Agent/1")
        self.assertEqual(lines[0]["bytes"], len(POLICY))
        self.assertEqual({line["http2"] for line in lines}, {False})

    def test_the_record_ends_where_the_disk_is_full(self):
        self.start("--policy", self.policy, "--record", "/dev/full")
        for _ in range(2):
            self.ask(POLL, headers={"X-Orv-Key": "local-key"})
        self.assertEqual(self.printed().count("the record cannot be written any more"), 1)


class SeedTest(ProgramTest):
    def answers(self, *arguments):
        process = self.start("--policy", self.policy, "--fault", "server-error,percent=50", *arguments)
        statuses = []
        for _ in range(40):
            try:
                self.ask(POLL + "a", headers={"X-Orv-Key": "local-key"})
                statuses.append(200)
            except urllib.error.HTTPError as error:
                statuses.append(error.code)
        process.kill()
        process.wait()
        (self.directory / "port").unlink()
        return statuses

    def test_the_same_seed_brings_the_same_faults(self):
        first = self.answers("--seed", "7")
        self.assertEqual(set(first), {200, 500})
        self.assertEqual(self.answers("--seed", "7"), first)
        self.assertNotEqual(self.answers("--seed", "8"), first)

    def test_a_seed_of_its_own_is_printed(self):
        first = self.answers()
        seed = self.printed().split("--seed ")[1].split()[0]
        self.assertEqual(self.answers("--seed", seed), first)


class HeldPollsTest(ProgramTest):
    def setUp(self):
        super().setUp()
        _, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        if hard < HELD_POLLS + 500:
            self.skipTest(f"only {hard} files can be open")
        resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))

    def poll(self, number, etag="one"):
        connection = socket.create_connection(("127.0.0.1", self.port))
        self.addCleanup(connection.close)
        self.send_poll(connection, number, etag)
        return connection

    def send_poll(self, connection, number, etag="one"):
        connection.sendall(f"GET {POLL}device-{number} HTTP/1.1\r\nHost: 127.0.0.1\r\nX-Orv-Key: local-key\r\n"
                           f'If-None-Match: "{etag}"\r\n\r\n'.encode())

    def memory(self, process):
        status = pathlib.Path(f"/proc/{process.pid}/status").read_text()
        return int(status.split("VmHWM:")[1].split()[0]) // 1024

    def test_ten_thousand_are_held_and_answered_in_the_memory_that_the_manual_says(self):
        process = self.start("--policy", self.policy)
        polls = [self.poll(number) for number in range(HELD_POLLS)]
        self.wait_until(lambda: self.printed().count("-> held\n") == HELD_POLLS)
        held = self.memory(process)
        before = time.monotonic()
        self.policy.write_text('{"etag": "two"}')
        selector = selectors.DefaultSelector()
        for connection in polls:
            selector.register(connection, selectors.EVENT_READ)
        waiting = len(polls)
        while waiting > 0:
            ready = selector.select(timeout=30)
            self.assertTrue(ready, f"{waiting} polls have no answer")
            for key, _ in ready:
                self.assertIn(b" 200 OK\r\n", key.fileobj.recv(65536))
                selector.unregister(key.fileobj)
                waiting -= 1
        took = time.monotonic() - before
        print(f"{held} MiB for {HELD_POLLS} held polls, {self.memory(process)} MiB at most; "
              f"all answered after {took:.1f} s")
        self.assertLess(self.memory(process), MOST_MEMORY)

    def test_polls_that_come_all_at_once_are_held(self):
        """Just as many as libmicrohttpd takes from epoll at a time: it would look at none before another one came."""
        process = self.start("--policy", self.policy)
        polls = [self.poll(number, "none") for number in range(128)]
        for connection in polls:
            self.assertIn(b" 200 OK\r\n", connection.recv(65536))
        process.send_signal(signal.SIGSTOP)
        os.waitpid(process.pid, os.WUNTRACED)
        for number, connection in enumerate(polls):
            self.send_poll(connection, number)
        process.send_signal(signal.SIGCONT)
        self.wait_until(lambda: self.printed().count("-> held\n") == len(polls))

    def test_the_end_of_agents_is_noticed_at_once(self):
        self.start("--policy", self.policy)
        polls = [self.poll(number) for number in range(100)]
        self.wait_until(lambda: self.printed().count("-> held\n") == len(polls))
        for connection in polls:
            connection.close()
        self.wait_until(lambda: self.printed().count("-> hung up") == len(polls))

    def test_half_a_request_is_no_exchange(self):
        self.start("--policy", self.policy)
        with socket.create_connection(("127.0.0.1", self.port)) as connection:
            connection.sendall(f"GET {POLL}half HTTP/1.1\r\nHost: ".encode())
        for number in range(3):  # By the last one the end of the first is noticed.
            self.assertIn(b" 200 OK\r\n", self.poll(number, "none").recv(65536))
        self.assertNotIn("hung up", self.printed())

    def test_when_it_stops_itself_no_agent_has_hung_up(self):
        for _ in range(5):  # The library's thread may be quick enough to answer them all.
            process = self.start("--policy", self.policy)
            polls = [self.poll(number) for number in range(300)]
            self.wait_until(lambda: self.printed().count("-> held\n") == len(polls))
            process.terminate()
            process.wait()
            self.assertNotIn("-> hung up", self.printed())
            (self.directory / "port").unlink()


if __name__ == "__main__":
    PROGRAM = os.path.abspath(sys.argv.pop(1))
    unittest.main()
