"""What ci/check-coverage takes for a gap, line by line."""

import importlib.machinery
import importlib.util
import pathlib
import unittest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "ci/check-coverage"
LOADER = importlib.machinery.SourceFileLoader("check_coverage", str(SCRIPT))
checker = importlib.util.module_from_spec(importlib.util.spec_from_loader("check_coverage", LOADER))
LOADER.exec_module(checker)

LEVELS = checker.enumerations_in(["""
enum class Level : int {
    low,       // a comment, with a comma
    middle,    ///< {braces}
    high = 7,
};
"""])
SWITCH = """
    switch (level) {
        case Level::low:
        case Level::middle:
            return "{ case Level::high:";
        case Level::high: {
            break;
        }
    }
"""


class CheckCoverageTest(unittest.TestCase):
    def gaps(self, source, counts, throws=(), count=1):
        """The gaps in the first line of `source`, whose branches were taken so often."""
        text = source.strip("\n").splitlines()
        branches = [{"count": each, "throw": i in throws} for i, each in enumerate(counts)]
        line = {"line_number": 1, "count": count, "branches": branches}
        return checker.gaps_of(line, checker.conditions_reached(line, text, LEVELS), text[0].strip())

    def test_what_was_taken_is_no_gap(self):
        self.assertEqual(self.gaps("if (a) {", [1, 2]), [])
        self.assertEqual(self.gaps(SWITCH.replace("case Level::high", "default"), [1, 2]), [])

    def test_what_was_not_taken_is_one(self):
        self.assertEqual(self.gaps("if (a) {", [0, 2]), ["1 of 2 branches not taken"])
        self.assertEqual(self.gaps("if (a && b) {", [3, 2, 2, 0]), ["1 of 2 branches not taken"])

    def test_a_line_that_did_not_run_is_one(self):
        self.assertEqual(self.gaps("call();", [], count=0), ["not run"])
        self.assertEqual(self.gaps("each([](int i) {", [], count=0), [])

    def test_a_call_that_may_throw_is_none(self):
        self.assertEqual(self.gaps("if (call()) {", [3, 0, 1, 2], throws=[1]), [])

    def test_what_the_compiler_adds_is_none(self):
        self.assertEqual(self.gaps("static const int one = call();", [1, 0]), [])
        self.assertEqual(self.gaps("if (a) {", [0, 0, 1, 1]), [])

    def test_no_further_value_is_none(self):
        for counts in [1, 2, 0], [0, 1, 2], [1, 0, 2]:
            self.assertEqual(self.gaps(SWITCH, counts), [])
        self.assertEqual(self.gaps(SWITCH, [4, 0, 1, 2, 0], throws=[1]), [])

    def test_a_case_that_was_not_taken_is_one(self):
        self.assertEqual(self.gaps(SWITCH, [1, 0, 0]), ["2 of 3 branches not taken"])
        # One of the two cases leads where no value would lead.
        self.assertEqual(self.gaps(SWITCH, [1, 0]), ["1 of 2 branches not taken"])

    def test_a_switch_that_does_not_name_every_value_may_have_further_ones(self):
        gap = ["1 of 3 branches not taken"]
        self.assertEqual(self.gaps(SWITCH.replace("        case Level::middle:\n", ""), [1, 2, 0]), gap)
        self.assertEqual(self.gaps(SWITCH.replace("case Level::high", "default"), [1, 2, 0]), gap)
        self.assertEqual(self.gaps(SWITCH.replace("case Level::high", "case 7"), [1, 2, 0]), gap)
        self.assertEqual(self.gaps(SWITCH.replace("Level", "Unknown"), [1, 2, 0]), gap)
        self.assertEqual(self.gaps(SWITCH.replace("case Level::high", "case Unknown::high"), [1, 2, 0]), gap)
        self.assertEqual(self.gaps("switch (digit) {\ncase 1:\ncase 2:\nbreak;\ncase 3:\nbreak;\n}",
                                   [1, 2, 0]), gap)

    def test_a_default_is_a_way_like_any_other(self):
        self.assertEqual(self.gaps(SWITCH.replace("case Level::low", "default: break; case Level::low"),
                                   [1, 2, 0]), ["1 of 3 branches not taken"])

    def test_an_inner_switch_names_no_value_for_the_outer_one(self):
        source = """
            switch (level) {
                case Level::low:
                case Level::middle: {
                    switch (other) { case Level::high: break; }
                }
            }
        """
        self.assertEqual(self.gaps(source, [1, 2, 0]), ["1 of 3 branches not taken"])

    def test_a_name_that_two_enumerations_have_tells_nothing(self):
        self.assertEqual(checker.enumerations_in(["enum class A { a };", "enum class A { b };",
                                                  "enum class B { x = 1, y };"]), {"B": {"x", "y"}})


if __name__ == "__main__":
    unittest.main()
