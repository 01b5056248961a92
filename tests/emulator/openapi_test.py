"""docs/openapi.yaml, held against what it describes: the local control plane answers as it says, and the daemon sends
what it says, and takes the answers that it gives as examples.

  openapi_test.py DOCUMENT CONTROL_PLANE DAEMON
"""

import http.server
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import urllib.error
import urllib.parse
import urllib.request

try:
    import jsonschema
    import yaml
except ImportError as missing:
    print(f"SKIPPED: {missing}")
    sys.exit(0)

# What HTTP clients send of themselves.
USUAL_HEADERS = {"host", "user-agent", "accept", "accept-encoding"}


class Document:
    def __init__(self, path):
        self.content = yaml.safe_load(pathlib.Path(path).read_text(encoding="utf-8"))
        resolver = jsonschema.RefResolver("", self.content)
        self._validator = lambda schema: jsonschema.Draft202012Validator(
            schema, resolver=resolver, format_checker=jsonschema.FormatChecker())

    def resolved(self, part):
        """`part`, or what it refers to."""
        if "$ref" not in part:
            return part
        found = self.content
        for name in part["$ref"].removeprefix("#/").split("/"):
            found = found[name]
        return found

    def validate(self, value, schema):
        self._validator(schema).validate(value)

    def operations(self):
        return {path: item["get"] for path, item in self.content["paths"].items()}

    def parameters(self, operation):
        """Of an operation, by name."""
        return {each["name"]: each for each in map(self.resolved, operation["parameters"])}

    def secrets(self, operation):
        """The names of the headers with credentials."""
        schemes = self.content["components"]["securitySchemes"]
        return [schemes[name]["name"] for option in operation["security"] for name in option]

    def response(self, operation, status):
        return self.resolved(operation["responses"].get(str(status), operation["responses"]["default"]))

    def example(self, operation, name):
        content = self.response(operation, 200)["content"]["application/json"]
        return self.resolved(content["examples"][name])["value"]


class OpenApiTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)

    def start(self, *command, **options):
        process = subprocess.Popen(command, stdout=subprocess.DEVNULL, **options)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)

    def wait_until(self, condition, what):
        deadline = time.monotonic() + 60
        while not condition():
            self.assertLess(time.monotonic(), deadline, f"in vain: {what}")
            time.sleep(0.02)


class ExampleTest(OpenApiTest):
    def test_examples_fit_their_schemas(self):
        count = 0
        for operation in DOCUMENT.operations().values():
            for parameter in DOCUMENT.parameters(operation).values():
                DOCUMENT.validate(parameter["example"], parameter["schema"])
            content = DOCUMENT.response(operation, 200)["content"]["application/json"]
            for example in content["examples"].values():
                DOCUMENT.validate(DOCUMENT.resolved(example)["value"], content["schema"])
                count += 1
        self.assertEqual(count, 3)

    def test_schemas_refuse_what_the_daemon_cannot_use(self):
        schemas = DOCUMENT.content["components"]["schemas"]
        for name, value in (
            ("Policy", {}), ("Policy", []), ("Policy", {"etag": 17}), ("Policy", {"etag": ""}),
            ("Policy", {"etag": "a\nb"}), ("Policy", {"etag": "x" * 1001}),
            ("Policy", {"etag": "a", "guard_config": {"capture": {"hosts": [1]}}}),
            ("AgentConfig", {"agent_slug": "a"}), ("AgentConfig", {"upload_api_key": "", "agent_slug": "a"}),
        ):
            with self.subTest(name=name, value=value), self.assertRaises(jsonschema.ValidationError):
                DOCUMENT.validate(value, schemas[name])


class ControlPlaneTest(OpenApiTest):
    def setUp(self):
        super().setUp()
        operations = DOCUMENT.operations()
        policy = next(DOCUMENT.example(operation, "policy") for operation in operations.values()
                      if operation["operationId"] == "pollPolicy")
        config = next(DOCUMENT.example(operation, "agentConfig") for operation in operations.values()
                      if operation["operationId"] == "lookUpDevice")
        (self.directory / "policy.json").write_text(json.dumps(policy))
        port_file = self.directory / "port"
        self.start(CONTROL_PLANE, "--policy", self.directory / "policy.json", "--port-file", port_file, "--hold", "1",
                   "--key", config["upload_api_key"], "--device", "device-token", "--tenant", "acme",
                   "--agent-slug", config["agent_slug"], "--agent-type", config["agent_type"],
                   "--api-url", config["api_url"])
        self.wait_until(port_file.exists, "the control plane")
        self.base = f"http://127.0.0.1:{port_file.read_text().strip()}"

    def ask(self, path, operation, values):
        """The status, headers and body of the answer to a request with these parameters and credentials."""
        parameters = DOCUMENT.parameters(operation)
        query = {name: value for name, value in values.items() if parameters.get(name, {}).get("in") == "query"}
        headers = {name: value for name, value in values.items() if name not in query}
        request = urllib.request.Request(f"{self.base}{path}?{urllib.parse.urlencode(query)}", headers=headers)
        try:
            with urllib.request.urlopen(request, timeout=30) as answer:
                return answer.status, answer.headers, answer.read()
        except urllib.error.HTTPError as error:
            with error:
                return error.code, error.headers, error.read()

    def test_it_answers_as_the_examples_say(self):
        tried = set()
        for path, operation in DOCUMENT.operations().items():
            for exchange in operation["x-exchanges"]:
                with self.subTest(path=path, exchange=exchange["summary"]):
                    known = {*DOCUMENT.parameters(operation), *DOCUMENT.secrets(operation)}
                    self.assertLessEqual(set(exchange["request"]), known)
                    status, headers, body = self.ask(path, operation, exchange["request"])
                    self.assertEqual(status, exchange["status"])
                    response = DOCUMENT.response(operation, status)
                    for name, header in response.get("headers", {}).items():
                        DOCUMENT.validate(headers[name], DOCUMENT.resolved(header)["schema"])
                    if "content" in response:
                        DOCUMENT.validate(json.loads(body), response["content"]["application/json"]["schema"])
                        self.assertEqual(json.loads(body), DOCUMENT.example(operation, exchange["example"]))
                    tried.add((operation["operationId"], status))
        self.assertEqual(tried, {("pollPolicy", 200), ("pollPolicy", 304), ("pollPolicy", 401),
                                 ("fetchEffectiveConfiguration", 200), ("fetchEffectiveConfiguration", 401),
                                 ("lookUpDevice", 200), ("lookUpDevice", 401)})


class DaemonTest(OpenApiTest):
    def setUp(self):
        super().setUp()
        self.requests = []
        test = self

        class Handler(http.server.BaseHTTPRequestHandler):
            """Answers with the document's examples, and never to an ETag."""

            def do_GET(self):
                path = urllib.parse.urlsplit(self.path).path
                test.requests.append((self.command, self.path, dict(self.headers.items())))
                if self.headers["If-None-Match"]:
                    return test.over.wait()
                operation = DOCUMENT.operations()[path]
                (example,) = DOCUMENT.response(operation, 200)["content"]["application/json"]["examples"]
                answer = dict(DOCUMENT.example(operation, example))
                if "api_url" in answer:
                    answer["api_url"] = test.base
                body = json.dumps(answer).encode()
                self.send_response(200)
                self.send_header("Content-Length", str(len(body)))
                self.end_headers()
                self.wfile.write(body)

            def log_message(self, *_):
                pass

        self.over = threading.Event()
        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        server.daemon_threads = True
        thread = threading.Thread(target=server.serve_forever)
        thread.start()
        self.addCleanup(server.server_close)
        self.addCleanup(thread.join)
        self.addCleanup(server.shutdown)
        self.addCleanup(self.over.set)
        self.base = f"http://127.0.0.1:{server.server_port}"

    def assert_fits(self, method, target, headers):
        url = urllib.parse.urlsplit(target)
        self.assertEqual(method, "GET")
        operation = DOCUMENT.operations()[url.path]
        parameters = DOCUMENT.parameters(operation)
        query = urllib.parse.parse_qs(url.query, strict_parsing=True)
        headers = {name.lower(): value for name, value in headers.items()}
        for name, parameter in parameters.items():
            values = query.pop(name, []) if parameter["in"] == "query" else [headers.pop(name.lower(), None)]
            values = [value for value in values if value is not None]
            self.assertIn(len(values), [1] if parameter.get("required") else [0, 1], name)
            for value in values:
                is_number = parameter["schema"]["type"] == "integer"
                DOCUMENT.validate(int(value) if is_number else value, parameter["schema"])
        self.assertEqual(query, {})
        for name in DOCUMENT.secrets(operation):
            self.assertIn(name.lower(), headers)
            del headers[name.lower()]
        self.assertLessEqual(set(headers), USUAL_HEADERS)
        return operation["operationId"]

    def test_it_sends_what_the_document_says_and_takes_its_examples(self):
        setup = self.directory / "private/tmp/dev.orvane.setup"
        setup.mkdir(parents=True)
        (self.directory / "home").mkdir()
        (self.directory / "etc").mkdir()
        (self.directory / "etc/machine-id").write_text("0123456789abcdef0123456789abcdef\n")
        (setup / "device-identity.json").write_text(
            json.dumps({"device_token": "device-token", "tenant_slug": "acme", "api_url": self.base}))
        environment = {**os.environ, "ORVANE_ROOT": str(self.directory)}
        environment.pop("ORVANE_API_KEY", None)
        self.start(DAEMON, env=environment, stderr=subprocess.DEVNULL)
        self.wait_until(lambda: any("If-None-Match" in headers for _, _, headers in self.requests), "a poll with an ETag")
        self.assertEqual([self.assert_fits(*request) for request in self.requests],
                         ["lookUpDevice", "pollPolicy", "fetchEffectiveConfiguration", "lookUpDevice", "pollPolicy"])
        self.assertIn("hardware_uuid=", self.requests[2][1])
        policy = DOCUMENT.example(DOCUMENT.operations()["/api/orvane/v1/connect/guard-config/"], "policy")
        self.assertEqual(json.loads((setup / "capture-policy.json").read_text())["intercept_hosts"],
                         policy["guard_config"]["capture"]["hosts"])


if __name__ == "__main__":
    DAEMON = os.path.abspath(sys.argv.pop())
    CONTROL_PLANE = os.path.abspath(sys.argv.pop())
    DOCUMENT = Document(sys.argv.pop())
    unittest.main()
