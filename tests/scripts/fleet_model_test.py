"""The simulation of fleets: what devices do, in cases that can be worked out by hand."""

import importlib
import pathlib
import re
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "bench"))
model = importlib.import_module("fleet_model")


def course(**told):
    scene = model.Scene(**{"devices": 1000, "seconds": 600, "hold": 60, **told})
    return scene, model.simulate(scene)


def seconds_with(counts):
    return [second for second, count in enumerate(counts) if count > 0.001]


class FleetModelTest(unittest.TestCase):
    def test_after_an_outage_everybody_comes_at_the_next_minute_and_with_every_hold_again(self):
        _, found = course(outage=170)
        self.assertEqual(seconds_with(found.polls), list(range(180, 600, 60)))
        self.assertEqual(found.polls[180], 1000)
        self.assertEqual(found.handshakes[180], 1000)
        self.assertEqual(found.handshakes[240], 0, "a poll after a 304 stays on its connection")

    def test_jitter_spreads_the_holds_and_not_the_first_rush(self):
        _, found = course(outage=170, jitter=True)
        self.assertEqual(seconds_with(found.polls)[:2], [180, 228])
        self.assertEqual(found.polls[180], 1000)
        self.assertAlmostEqual(sum(found.polls[181:241]), 1000)
        self.assertAlmostEqual(found.polls[230], 1000 / 13)

    def test_what_is_cut_while_the_service_goes_on_is_back_in_the_same_second(self):
        scene, found = course(cut=True)
        self.assertEqual(found.handshakes[0], 1000)
        self.assertEqual(model.recovered(scene, found), 0)

    def test_what_is_refused_comes_back_after_a_minute_on_a_new_connection(self):
        _, found = course(cut=True, hold=300, refuse=0.25, refuse_until=1)
        self.assertEqual(found.refused[0], 250)
        self.assertEqual(seconds_with(found.polls)[:2], [0, 60])
        self.assertEqual(found.handshakes[60], 250)

    def test_refusals_that_take_their_time_are_spread(self):
        _, found = course(cut=True, hold=300, refuse=1, refuse_until=1, refuse_over=9)
        self.assertEqual(seconds_with(found.polls)[:11], [0, *range(60, 70)])
        self.assertAlmostEqual(found.polls[65], 100)

    def test_a_limit_refuses_what_is_beyond_it(self):
        _, found = course(cut=True, hold=300, limit=400)
        self.assertEqual([found.refused[0], found.refused[60], found.refused[120]], [600, 200, 0])

    def test_who_waits_thirty_seconds_for_a_connection_gives_up_for_a_minute(self):
        _, found = course(cut=True, hold=300, handshakes=20)
        self.assertEqual(sum(found.handshakes[:30]), 600)
        self.assertEqual(found.given_up[30], 400)
        self.assertEqual(seconds_with(found.handshakes)[30], 90)
        self.assertEqual(found.polls[90], 20)

    def test_instances_that_are_drained_lose_nobody_and_their_devices_connect_elsewhere(self):
        scene, found = course(drain=100)
        self.assertEqual(model.recovered(scene, found), 0)
        self.assertAlmostEqual(sum(found.handshakes), 1000)
        self.assertEqual(seconds_with(found.handshakes), list(range(100)))

    def test_no_device_is_lost_or_made(self):
        for told in ({"outage": 170, "handshakes": 15, "jitter": True}, {"outage": 170, "refuse": 0.5,
                     "refuse_until": 400}, {"drain": 50, "limit": 40}):
            _, found = course(**told, seconds=3000)
            self.assertAlmostEqual(found.held[-1], 1000, places=3, msg=str(told))

    def test_its_times_are_the_daemon_s(self):
        for pattern, value, name in (
            (r"double backOffSeconds = (\d+)\.0;", model.BACK_OFF, "daemon/policy_runner.cpp"),
            (r"seconds connectLimit\((\d+)\);", model.CONNECT_LIMIT, "platform/http/transfer.cpp"),
        ):
            source = (ROOT / "src" / name).read_text(encoding="utf-8")
            self.assertEqual(re.findall(pattern, source), [str(value)], name)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
