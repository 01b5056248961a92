"""The page of the local control plane in a real browser, with real daemons: `./test page`.

  page_test.py BUILD PICTURES    the programs' directory, and one for screenshots
"""

import http.client
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

from selenium import webdriver
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

SOURCE = pathlib.Path(__file__).resolve().parents[2]
PATIENCE = 30  # seconds
POLL = "/api/orvane/v1/connect/guard-config/?wait={wait}&agent_slug={name}"
INJECTION = "<img src=x onerror=document.title='injected'><script>document.title='injected'</script>"


def start_browser():
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    # Its own sandbox does not take root, and containers have little shared memory.
    for argument in ("headless=new", "no-sandbox", "disable-dev-shm-usage", "disable-gpu", "window-size=1100,1000"):
        options.add_argument(f"--{argument}")
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    service = webdriver.chrome.service.Service("/usr/bin/chromedriver")
    return webdriver.Chrome(service=service, options=options)


class PageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.browser = start_browser()
        cls.addClassCleanup(cls.browser.quit)

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.root = pathlib.Path(directory.name)
        self.policy = self.root / "policy.json"
        shutil.copy(SOURCE / "emulator/sample-policy.json", self.policy)
        port_file = self.root / "port"
        self.start("orvane-control-plane", "--policy", self.policy, "--port-file", port_file)
        self.wait_until(port_file.exists, "the control plane")
        self.port = int(port_file.read_text())
        # The page of the last test complained about the end of its control plane.
        self.browser.get("about:blank")
        self.browser.get_log("browser")
        self.browser.get(f"http://127.0.0.1:{self.port}/")
        self.wait_until(lambda: self.text("connection") == "Live", "the events")

    def start(self, program, *arguments, **options):
        process = subprocess.Popen([BUILD / program, *arguments], stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL, **options)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def start_daemon(self):
        setup = self.root / "private/tmp/dev.orvane.setup"
        setup.mkdir(parents=True, exist_ok=True)
        (self.root / "etc").mkdir(exist_ok=True)
        (self.root / "home").mkdir(exist_ok=True)
        (self.root / "etc/machine-id").write_text("0123456789abcdef0123456789abcdef\n")
        enrollment = {"api_url": f"http://127.0.0.1:{self.port}", "api_key": "local-key"}
        (setup / "enroll-config.json").write_text(json.dumps(enrollment))
        self.capture_file = setup / "capture-policy.json"
        return self.start("orvane-daemon-demo", env={**os.environ, "ORVANE_ROOT": str(self.root)})

    def poll(self, name, wait, tag='"demo-1"'):
        """A poll whose answer is not waited for."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port)
        self.addCleanup(connection.close)
        connection.request("GET", POLL.format(wait=wait, name=name),
                           headers={"X-Orv-Key": "local-key", "If-None-Match": tag})
        return connection

    def wait_until(self, condition, what):
        deadline = time.monotonic() + PATIENCE
        while not condition():
            self.assertLess(time.monotonic(), deadline, f"in vain: {what}")
            time.sleep(0.02)

    def element(self, identifier):
        return self.browser.find_element(By.ID, identifier)

    def text(self, identifier):
        return self.element(identifier).text

    def script(self, text, *arguments):
        return self.browser.execute_script(text, *arguments)

    def rows(self):
        """The text of each row that is shown, in one step: rows come and change meanwhile."""
        return self.script("""return Array.from(document.querySelectorAll("#rows tr:not([hidden])"),
                                                (row) => Array.from(row.cells, (cell) => cell.textContent).join(" | "))""")

    def row_says(self, *parts):
        rows = self.rows()
        return len(rows) == 1 and all(part in rows[0] for part in parts)

    def set_editor(self, text):
        self.script("""const editor = document.getElementById("editor");
                       editor.value = arguments[0];
                       editor.dispatchEvent(new Event("input"));""", text)

    def switch_on(self, fault):
        self.browser.find_element(By.CSS_SELECTOR, f'[data-fault="{fault}"]').click()
        self.wait_until(lambda: fault in self.text("active-faults"), fault)

    def switch_all_off(self):
        while buttons := self.browser.find_elements(By.CSS_SELECTOR, "#active-faults button"):
            buttons[0].click()
            count = len(buttons)
            self.wait_until(lambda: len(self.browser.find_elements(By.CSS_SELECTOR, "#active-faults button")) < count,
                            "the end of a fault")

    def put_policy(self, text):
        connection = http.client.HTTPConnection("127.0.0.1", self.port)
        connection.request("PUT", "/policy", body=text)
        self.assertEqual(connection.getresponse().status, 204)
        connection.close()

    def assert_no_complaints(self):
        """Of the browser: refused by the content security policy, mistakes in the page."""
        log = [entry["message"] for entry in self.browser.get_log("browser") if entry["level"] == "SEVERE"]
        # A publication that is refused is meant to be.
        self.assertEqual([message for message in log if " 400 (" not in message], [])


class PublishTest(PageTest):
    def test_a_policy_that_is_published_reaches_the_daemons_capture_file(self):
        self.start_daemon()
        self.wait_until(lambda: self.row_says("of 300 s", "304") or self.row_says("of 300 s", "live: demo-1"), "a hold")
        progress = self.browser.find_element(By.CSS_SELECTOR, "#rows progress")
        self.assertEqual(progress.get_attribute("max"), "300")
        text = self.element("editor").get_property("value")
        self.assertEqual(text, self.policy.read_text())
        self.set_editor(text.replace("chat.example.com", "new.example.com"))
        self.wait_until(lambda: "with the live ETag" in self.text("check"), "the warning")
        self.element("next-etag").click()
        self.wait_until(lambda: self.text("check") == "Valid JSON.", "the check")
        self.assertIn('+       "hosts": ["api.example.com", "new.example.com"]', self.text("diff"))
        self.assertIn('-       "hosts": ["api.example.com", "chat.example.com"]', self.text("diff"))
        self.assertEqual(json.loads(self.text("capture"))["intercept_hosts"], ["api.example.com", "new.example.com"])
        self.element("publish").click()
        self.wait_until(lambda: "new.example.com" in self.capture_file.read_text(), "the capture file")
        self.assertEqual(json.loads(self.capture_file.read_text()), json.loads(self.text("capture")))
        tag = self.text("live-etag")
        self.assertTrue(tag.startswith("page-"), tag)
        self.wait_until(lambda: self.row_says(f"live: {tag}", "of 300 s"), "the next hold")
        self.assertEqual(self.text("diff"), "Nothing.")
        self.browser.find_element(By.CSS_SELECTOR, "#rows button").click()
        self.wait_until(lambda: "guard-config" in self.text("exchanges") and "effective" in self.text("exchanges"),
                        "the timeline")
        self.take_pictures()
        self.assert_no_complaints()

    def take_pictures(self):
        # A fleet beside the daemon.
        for number, (city, wait) in enumerate((("oslo", 120), ("lima", 300), ("pune", 0), ("kyiv", 60))):
            self.poll(f"laptop-{city}-{number}", wait, '"demo-0"' if wait == 60 else f'"{self.text("live-etag")}"')
        self.wait_until(lambda: len(self.rows()) == 5, "the fleet")
        for scheme in ("light", "dark"):
            self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {
                "features": [{"name": "prefers-color-scheme", "value": scheme}]})
            self.script("window.scrollTo(0, 0)")
            self.browser.save_screenshot(str(PICTURES / f"page-{scheme}.png"))
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": []})

    def test_mistakes_are_named_and_cannot_be_published(self):
        publish = self.element("publish")
        for text, complaint in (("{", "JSON"), ("[]", "a policy is a JSON object"), ("", "JSON")):
            self.set_editor(text)
            self.wait_until(lambda: complaint in self.text("check") and not publish.is_enabled(), complaint)
        self.element("revert").click()
        self.wait_until(publish.is_enabled, "the live policy")
        self.set_editor('{"etag": "x", "guard_config": {}}')
        self.wait_until(lambda: "says nothing about capture" in self.text("capture"), "the preview")

    def test_what_is_being_edited_stays_when_another_policy_goes_live(self):
        self.set_editor('{"etag": "mine"}')
        self.put_policy('{"etag": "theirs"}')
        self.wait_until(lambda: self.text("live-etag") == "theirs", "the policy")
        self.assertEqual(self.element("editor").get_property("value"), '{"etag": "mine"}')
        self.assertIn('"theirs"', self.text("diff"))

    def test_a_large_number_survives_a_new_tag(self):
        self.set_editor('{"n": 12345678901234567890, "etag": "a.*b"}')
        self.element("next-etag").click()
        self.assertRegex(self.element("editor").get_property("value"), r'^\{"n": 12345678901234567890, "etag": "page-.*"\}$')


class FaultTest(PageTest):
    # What the row of the device says when its poll is struck.
    SAYS = {
        "unauthorized": "401", "forbidden": "403", "not-found": "404", "too-large-header": "431", "server-error": "500",
        "slow": "of 300 s", "never-answer": "of 300 s", "drop-mid-body": "200", "truncate": "200",
        "garbage": "no answer", "html-portal": "200", "redirect": "302", "instant-304": "304", "no-etag": "200",
        "long-etag": "200", "huge": "200", "goaway": "no answer",
        "outage": "no answer",
    }

    def test_each_fault_shows_in_the_row_of_the_device(self):
        kinds = self.script("""return Array.from(document.querySelectorAll("[data-fault]"),
                                                 (button) => button.dataset.fault)""")
        self.assertEqual(sorted(kinds), sorted(self.SAYS))
        for fault, outcome in self.SAYS.items():
            with self.subTest(fault=fault):
                self.switch_on(fault)
                daemon = self.start_daemon()
                self.wait_until(lambda: self.row_says(outcome, f"(fault: {fault})"), f"{fault}: {self.rows()}")
                daemon.kill()
                daemon.wait()
                self.switch_all_off()
        self.assert_no_complaints()

    def test_a_fault_strikes_a_hold_and_one_device_alone(self):
        for name in ("one", "other"):
            self.poll(name, 300)
        self.wait_until(lambda: len(self.rows()) == 2, "both devices")
        self.browser.find_element(By.XPATH, '//*[@id="rows"]//button[text()="one"]').click()
        self.element("fault-device").click()
        self.assertEqual(self.script('return document.activeElement.name + "=" + document.activeElement.value'), "device=one")
        self.switch_on("forbidden")
        self.wait_until(lambda: any("one |" in row and "403 (fault: forbidden)" in row for row in self.rows()), "the fault")
        self.assertTrue(any("other |" in row and "of 300 s" in row for row in self.rows()))
        self.wait_until(lambda: "403 (fault: forbidden)" in self.text("exchanges"), "the timeline")

    def test_a_mistake_is_said_in_words(self):
        self.script('document.querySelector("[name=percent]").value = "700"')
        self.browser.find_element(By.CSS_SELECTOR, '[data-fault="slow"]').click()
        self.wait_until(lambda: "a number from 1 to 100" in self.text("fault-message"), "the complaint")


class SafetyTest(PageTest):
    def test_what_devices_and_policies_say_does_not_run(self):
        name = INJECTION.replace("<", "%3C").replace(">", "%3E").replace(" ", "%20")
        self.poll(name, 300, INJECTION)
        self.put_policy(json.dumps({"etag": INJECTION, "guard_config": {"capture": {"hosts": [INJECTION]}}}))
        self.wait_until(lambda: self.text("live-etag") == INJECTION, "the policy")
        self.wait_until(lambda: any(INJECTION in row for row in self.rows()), "the device")
        self.browser.find_element(By.CSS_SELECTOR, "#rows button").click()
        self.wait_until(lambda: self.text("exchanges") != "", "the timeline")
        self.wait_until(lambda: INJECTION in self.text("capture"), "the preview")
        self.set_editor(json.dumps({"etag": "next", "x": INJECTION}))
        self.wait_until(lambda: INJECTION in self.text("diff"), "the difference")
        self.browser.find_element(By.CSS_SELECTOR, "[name=device]").send_keys(INJECTION)
        self.switch_on("slow")
        self.assertEqual(self.browser.title, "Control plane")
        self.assertEqual(self.browser.find_elements(By.CSS_SELECTOR, "img, main script"), [])
        # And should something of it get in: the browser would not run it.
        self.script("""document.body.insertAdjacentHTML("beforeend", arguments[0]);
                       const script = document.createElement("script");
                       script.textContent = "document.title = 'injected'";
                       document.body.append(script);""", INJECTION)
        time.sleep(0.2)
        self.assertEqual(self.browser.title, "Control plane")

    def test_a_page_from_elsewhere_cannot_change_anything(self):
        port_file = self.root / "port-2"
        self.start("orvane-control-plane", "--port-file", port_file)
        self.wait_until(port_file.exists, "another control plane")
        self.browser.get(f"http://127.0.0.1:{port_file.read_text().strip()}/")
        for method, mode in (("PUT", "cors"), ("POST", "no-cors")):
            self.browser.execute_async_script("""fetch(arguments[0], {method: arguments[1], mode: arguments[2], body: "{}"})
                                                   .catch(() => null).then(arguments[3]);""",
                                              f"http://127.0.0.1:{self.port}/policy", method, mode)
        self.browser.get(f"http://127.0.0.1:{self.port}/")
        self.wait_until(lambda: self.text("live-etag") == "demo-1", "the policy as it was")

    def test_it_says_when_the_connection_is_lost(self):
        control_plane = self.start("orvane-control-plane", "--port-file", self.root / "port-3")
        self.wait_until((self.root / "port-3").exists, "another control plane")
        self.browser.get(f"http://127.0.0.1:{(self.root / 'port-3').read_text().strip()}/")
        self.wait_until(lambda: self.text("connection") == "Live", "the events")
        control_plane.kill()
        self.wait_until(lambda: "Connection lost" in self.text("connection"), "the loss")


class FleetTest(PageTest):
    def test_two_hundred_devices_scroll_and_filter(self):
        for number in range(200):
            self.poll(f"laptop-{number:03}", 300)
        self.wait_until(lambda: len(self.rows()) == 200, "200 devices")
        self.assertEqual(self.text("count"), "200 devices")
        heights = self.script("""const scroll = document.querySelector(".scroll");
                                 scroll.scrollTop = 1e6;
                                 return [scroll.scrollTop, scroll.clientHeight, scroll.scrollHeight];""")
        self.assertGreater(heights[0], 1000)
        self.assertLess(heights[1], 500)
        self.element("filter").send_keys("laptop-19")
        self.wait_until(lambda: len(self.rows()) == 10, "ten of them")
        self.assertEqual(self.text("count"), "10 of 200 devices")
        self.put_policy('{"etag": "next"}')
        self.wait_until(lambda: all("200" in row for row in self.rows()), "the answers")
        self.assertEqual(len(self.rows()), 10)
        self.assert_no_complaints()


class AccessTest(PageTest):
    def test_it_fits_into_360_pixels(self):
        self.poll("a-device-with-a-name-that-is-rather-long-for-a-telephone", 300)
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                     {"width": 360, "height": 740, "deviceScaleFactor": 1, "mobile": True})
        self.addCleanup(self.browser.execute_cdp_cmd, "Emulation.clearDeviceMetricsOverride", {})
        self.wait_until(lambda: len(self.rows()) == 1, "the device")
        self.wait_until(lambda: self.element("fault-kinds").text != "", "the faults")
        self.assertLessEqual(self.script("return document.documentElement.scrollWidth"), 360)

    def test_the_keyboard_reaches_everything_in_order(self):
        self.poll("one", 300)
        self.wait_until(lambda: len(self.rows()) == 1, "the device")
        self.wait_until(lambda: self.element("fault-kinds").text != "", "the faults")
        self.script("document.activeElement.blur()")
        reached = []
        for _ in range(45):
            webdriver.ActionChains(self.browser).send_keys(Keys.TAB).perform()
            reached.append(self.script("""const at = document.activeElement;
                return at.id || at.name || at.dataset.fault || at.className || at.textContent"""))
            if reached[-1] == "outage":
                break
        wanted = ["skip", "filter", "scroll", "one", "editor", "publish", "next-etag", "diff", "capture",
                  "device", "percent", "seconds", "unauthorized", "outage"]
        self.assertEqual([name for name in reached if name in wanted], wanted)

    def test_a_screen_reader_hears_names_and_changes(self):
        self.poll("one", 300)
        self.wait_until(lambda: len(self.rows()) == 1, "the device")
        unnamed = self.script("""return Array.from(document.querySelectorAll("button, input, textarea, pre"))
            .filter((each) => !each.labels?.length && !each.ariaLabel && each.textContent.trim() === "")
            .map((each) => each.outerHTML)""")
        self.assertEqual(unnamed, [])
        self.assertRegex(self.browser.find_element(By.CSS_SELECTOR, "#rows progress").get_attribute("aria-label"),
                         r"^held \d+ of 300 seconds$")
        for identifier in ("connection", "check", "fault-message"):
            self.assertEqual(self.element(identifier).get_attribute("role"), "status")

    def test_colors_contrast_enough_in_light_and_dark(self):
        for scheme in ("light", "dark"):
            self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {
                "features": [{"name": "prefers-color-scheme", "value": scheme}]})
            for color in ("--text", "--soft", "--accent", "--good", "--bad"):
                for back in ("--back", "--raised"):
                    with self.subTest(scheme=scheme, color=color, back=back):
                        self.assertGreaterEqual(self.contrast(color, back), 4.5)
            self.assertGreaterEqual(self.contrast("--on-accent", "--accent"), 4.5)
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": []})

    def contrast(self, *names):
        """By the formula of WCAG 2."""
        lights = sorted(map(self.luminance, names))
        return (lights[1] + 0.05) / (lights[0] + 0.05)

    def luminance(self, name):
        color = self.script("return getComputedStyle(document.documentElement).getPropertyValue(arguments[0])", name)
        parts = (int(color.strip()[at:at + 2], 16) / 255 for at in (1, 3, 5))
        linear = (part / 12.92 if part <= 0.04045 else ((part + 0.055) / 1.055) ** 2.4 for part in parts)
        return sum(weight * part for weight, part in zip((0.2126, 0.7152, 0.0722), linear))


if __name__ == "__main__":
    PICTURES = pathlib.Path(sys.argv.pop())
    BUILD = pathlib.Path(sys.argv.pop()).resolve()
    PICTURES.mkdir(parents=True, exist_ok=True)
    unittest.main()
