"""The program orvane-control-plane over HTTP/2: with a daemon, frame by frame, and with many held polls."""

import json
import os
import pathlib
import resource
import socket
import ssl
import subprocess
import sys
import unittest
import urllib.request

import program_test

HELD_POLLS = 1_000
MOST_MEMORY = 100  # MiB for 1,000 held polls; orvane-control-plane(1) says so

# HTTP/2 frames, RFC 9113.
PREFACE = b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n"
DATA, HEADERS, SETTINGS, GOAWAY = 0, 1, 4, 7
END_STREAM, END_HEADERS = 1, 4


def frame(kind, flags, stream, payload=b""):
    return len(payload).to_bytes(3, "big") + bytes([kind, flags]) + stream.to_bytes(4, "big") + payload


def field(name, value):
    """A header as HPACK has it, without compression (RFC 7541, 6.2.2); each part is shorter than 127 bytes."""
    return b"\0" + bytes([len(name)]) + name + bytes([len(value)]) + value


class Http2Test(program_test.ProgramTest):
    def start_with_tls(self, *arguments):
        self.tls = self.directory / "tls"
        process = self.start("--policy", self.policy, "--tls", self.tls, *arguments)
        self.context = ssl.create_default_context(cafile=self.tls / "ca.pem")
        return process

    def put(self, path, body):
        request = urllib.request.Request(f"https://localhost:{self.port}{path}", data=body.encode(), method="PUT")
        with urllib.request.urlopen(request, timeout=30, context=self.context) as answer:
            self.assertEqual(answer.status, 204)

    def connect(self):
        """A connection that speaks HTTP/2."""
        context = ssl.create_default_context(cafile=self.tls / "ca.pem")
        context.set_alpn_protocols(["h2", "http/1.1"])
        connection = context.wrap_socket(socket.create_connection(("127.0.0.1", self.port), timeout=30),
                                         server_hostname="localhost")
        self.addCleanup(connection.close)
        self.assertEqual(connection.selected_alpn_protocol(), "h2")
        connection.sendall(PREFACE + frame(SETTINGS, 0, 0))
        return connection

    def poll(self, connection, stream, tag, name="one"):
        fields = {":method": "GET", ":scheme": "https", ":authority": "localhost", ":path": program_test.POLL + name,
                  "x-orv-key": "local-key", "if-none-match": tag}
        connection.sendall(frame(HEADERS, END_STREAM | END_HEADERS, stream,
                                 b"".join(field(key.encode(), value.encode()) for key, value in fields.items())))

    def frames(self, connection):
        """What comes, as (kind, flags, stream, payload), to the end of the connection."""
        received = b""
        while True:
            part = connection.recv(65536)
            if not part:
                self.assertEqual(received, b"", "the connection ends within a frame")
                return
            received += part
            while len(received) >= 9 and len(received) >= 9 + int.from_bytes(received[:3], "big"):
                end = 9 + int.from_bytes(received[:3], "big")
                yield received[3], received[4], int.from_bytes(received[5:9], "big"), received[9:end]
                received = received[end:]


class GoAwayTest(Http2Test):
    NO_ERROR = bytes(4)

    def test_it_leaves_out_the_poll_and_closes_the_connection(self):
        self.start_with_tls()
        connection = self.connect()
        frames = self.frames(connection)
        self.poll(connection, 1, '"none"')
        self.assertIn((DATA, END_STREAM, 1, program_test.POLICY.encode()), frames)
        self.poll(connection, 3, '"one"')
        self.wait_until(lambda: "-> held\n" in self.printed())
        self.put("/faults", '[{"name": "goaway"}]')
        # That it had taken the first request is all it may say.
        self.assertEqual([(kind, stream, payload) for kind, _, stream, payload in frames],
                         [(GOAWAY, 0, (1).to_bytes(4, "big") + self.NO_ERROR)])
        self.assertIn("-> no answer, ", self.printed())

    def test_so_it_does_with_the_first_request_of_a_connection(self):
        self.start_with_tls("--fault", "goaway")
        connection = self.connect()
        self.poll(connection, 1, '"one"')
        last = list(self.frames(connection))[-1]
        self.assertEqual(last, (GOAWAY, 0, 0, bytes(4) + self.NO_ERROR))

    def test_over_http_1_the_connection_closes_without_an_answer(self):
        self.start_with_tls()
        with self.context.wrap_socket(socket.create_connection(("127.0.0.1", self.port), timeout=30),
                                      server_hostname="localhost") as connection:
            self.assertIsNone(connection.selected_alpn_protocol())
            connection.sendall(f"GET {program_test.POLL}one HTTP/1.1\r\nHost: localhost\r\nX-Orv-Key: local-key\r\n"
                               'If-None-Match: "one"\r\n\r\n'.encode())
            self.wait_until(lambda: "-> held\n" in self.printed())
            self.put("/faults", '[{"name": "goaway"}]')
            self.assertEqual(connection.recv(65536), b"")


class DaemonTest(Http2Test):
    """With a whole daemon, whose pauses take no time."""

    def start_daemon(self):
        root = self.directory / "root"
        self.setup = root / "private/tmp/dev.orvane.setup"
        trusted = root / "etc/ssl/certs"
        for place in (self.setup, trusted, root / "home"):
            place.mkdir(parents=True)
        (root / "etc/machine-id").write_text("0123456789abcdef0123456789abcdef\n")
        authority = (self.tls / "ca.pem").read_bytes()
        name = subprocess.run(["openssl", "x509", "-noout", "-hash"], input=authority, check=True,
                              capture_output=True).stdout.decode().strip()
        (trusted / f"{name}.0").write_bytes(authority)
        (self.setup / "enroll-config.json").write_text(
            json.dumps({"api_url": f"https://localhost:{self.port}", "api_key": "local-key"}))
        self.log = self.directory / "log"
        with self.log.open("w") as log:
            process = subprocess.Popen([DAEMON], env={**os.environ, "ORVANE_ROOT": str(root)}, stdout=log, stderr=log)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)

    def hosts(self):
        try:
            return json.loads((self.setup / "capture-policy.json").read_text())["intercept_hosts"]
        except FileNotFoundError:
            return None

    def policy_for(self, tag, host):
        return json.dumps({"etag": tag, "guard_config": {"capture": {"hosts": [host]}}})

    def test_a_policy_arrives_and_again_after_a_goaway(self):
        record = self.directory / "record.jsonl"
        self.policy.write_text(self.policy_for("one", "one.example"))
        self.start_with_tls("--record", record)
        self.start_daemon()
        self.wait_until(lambda: self.hosts() == ["one.example"])
        self.wait_until(lambda: "-> held\n" in self.printed())
        self.put("/faults", '[{"name": "goaway"}]')
        # Once is no reason for an error; what is sent again is struck again.
        self.wait_until(lambda: "Poll error: " in self.log.read_text())
        self.put("/faults", "[]")
        self.put("/policy", self.policy_for("two", "two.example"))
        self.wait_until(lambda: self.hosts() == ["two.example"])
        lines = [json.loads(line) for line in record.read_text().splitlines()]
        self.assertEqual({line["http2"] for line in lines if line["method"] == "GET"}, {True})
        struck = [line for line in lines if line["fault"] == "goaway"]
        self.assertGreaterEqual(len(struck), 2)
        self.assertEqual({(line["status"], line["hung_up"]) for line in struck}, {(0, False)})


class HeldPollsTest(Http2Test):
    def memory(self, process):
        status = pathlib.Path(f"/proc/{process.pid}/status").read_text()
        return int(status.split("VmHWM:")[1].split()[0]) // 1024

    def test_a_thousand_are_held_and_answered_in_the_memory_that_the_manual_says(self):
        _, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        if hard < 4 * HELD_POLLS:
            self.skipTest(f"only {hard} files can be open")
        resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
        process = self.start_with_tls()
        polls = [self.connect() for _ in range(HELD_POLLS)]
        for number, connection in enumerate(polls):
            self.poll(connection, 1, '"one"', f"device-{number}")
        self.wait_until(lambda: self.printed().count("-> held\n") == HELD_POLLS)
        held = self.memory(process)
        self.policy.write_text('{"etag": "two"}')
        for connection in polls:
            self.assertIn((DATA, END_STREAM, 1, b'{"etag": "two"}'), self.frames(connection))
        print(f"{held} MiB for {HELD_POLLS} held polls, {self.memory(process)} MiB at most")
        self.assertLess(self.memory(process), MOST_MEMORY)
        for number, connection in enumerate(polls):
            self.poll(connection, 3, '"two"', f"device-{number}")
        self.wait_until(lambda: self.printed().count("-> held\n") == 2 * HELD_POLLS)
        for connection in polls:
            connection.close()
        self.wait_until(lambda: self.printed().count("-> hung up") == HELD_POLLS)


if __name__ == "__main__":
    program_test.PROGRAM = os.path.abspath(sys.argv.pop(1))
    DAEMON = os.path.abspath(sys.argv.pop(1))
    unittest.main()
