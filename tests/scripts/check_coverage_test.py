"""What ci/check-coverage takes for a gap, line by line."""

import importlib.machinery
import importlib.util
import pathlib
import unittest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "ci/check-coverage"
LOADER = importlib.machinery.SourceFileLoader("check_coverage", str(SCRIPT))
checker = importlib.util.module_from_spec(importlib.util.spec_from_loader("check_coverage", LOADER))
LOADER.exec_module(checker)

MARK = "// artificial branch: defaulted"
RACE = "// branch of a race: another thread initializes it"


def condition(falls_through, jumps):
    """A condition that went on so often, and jumped so often."""
    return [{"count": falls_through, "fallthrough": True, "throw": False},
            {"count": jumps, "fallthrough": False, "throw": False}]


def call(count):
    """A call that may throw, and never did."""
    return [{"count": count, "fallthrough": True, "throw": False}, {"count": 0, "fallthrough": False, "throw": True}]


def switch(*counts):
    """A switch with these ways out; and with none of them taken, what cleans up after an exception."""
    return [{"count": each, "fallthrough": False, "throw": False} for each in counts]


class CheckCoverageTest(unittest.TestCase):
    def gaps(self, branches, source="", above="", count=1, below=()):
        """The gaps in a line of the report with these branches."""
        line = {"line_number": 2, "count": count, "branches": branches}
        return checker.gaps_of(line, [above, source, *below])[0]

    def gaps_of_switch(self, counts, *body):
        return self.gaps(switch(*counts), source="    switch (level) {", below=[*body, "    }", "    case outside:"])

    def test_what_was_taken_is_no_gap(self):
        self.assertEqual(self.gaps(condition(1, 2)), [])
        self.assertEqual(self.gaps(switch(1, 2, 3)), [])

    def test_what_was_not_taken_is_one(self):
        self.assertEqual(self.gaps(condition(0, 2)), ["1 of 2 branches not taken"])
        self.assertEqual(self.gaps(list(reversed(condition(0, 2)))), ["1 of 2 branches not taken"])
        self.assertEqual(self.gaps(condition(3, 2) + condition(2, 0)), ["1 of 2 branches not taken"])
        self.assertEqual(self.gaps(switch(1, 0, 0)), ["2 of 3 branches not taken"])
        self.assertEqual(self.gaps(condition(1, 1) + switch(1, 0, 1)), ["1 of 3 branches not taken"])

    def test_a_line_that_did_not_run_is_one(self):
        self.assertEqual(self.gaps([], count=0), ["not run"])
        self.assertEqual(self.gaps(condition(0, 0), count=0), ["not run"])

    def test_a_call_that_may_throw_is_none(self):
        self.assertEqual(self.gaps(call(3) + condition(1, 2)), [])
        self.assertEqual(self.gaps(call(3) + condition(3, 0)), ["1 of 2 branches not taken"])

    def test_what_cleans_up_after_exceptions_is_none(self):
        self.assertEqual(self.gaps(condition(1, 2) + condition(0, 0) + switch(0, 0, 0)), [])

    def test_an_artificial_branch_is_none(self):
        self.assertEqual(self.gaps(condition(1, 0), source="bool operator==() = default;  " + MARK), [])
        self.assertEqual(self.gaps(condition(1, 0), above="    " + MARK), [])
        self.assertEqual(self.gaps(condition(1, 2) + condition(1, 0), above=MARK), [])

    def test_one_branch_more_is_one(self):
        self.assertEqual(self.gaps(switch(1, 0, 0), above=MARK), ["1 of 2 branches not taken"])

    def test_the_mark_is_for_one_line(self):
        self.assertEqual(self.gaps(condition(1, 0), above="something;  " + MARK), ["1 of 2 branches not taken"])

    def test_a_mark_without_such_a_branch_is_one(self):
        self.assertEqual(self.gaps(switch(1, 2, 3), above=MARK), ["no artificial branch"])
        self.assertEqual(self.gaps([], above=MARK), ["no artificial branch"])

    def test_the_way_for_no_case_of_a_switch_is_none(self):
        cases = ["        case a:", "            return 1;", "        case b:", "            break;"]
        self.assertEqual(self.gaps_of_switch([1, 2, 0], *cases), [])
        self.assertEqual(self.gaps_of_switch([1, 2, 3], *cases), [])
        self.assertEqual(self.gaps_of_switch([1, 0, 0], *cases), ["1 of 2 branches not taken"])
        self.assertEqual(self.gaps_of_switch([1, 2, 0], "        case c:", *cases), [])

    def test_another_way_of_it_is_one(self):
        cases = ["        case a:", "            return 1;", "        case b:", "            break;"]
        self.assertEqual(self.gaps_of_switch([1, 0], *cases), ["1 of 2 branches not taken"])
        self.assertEqual(self.gaps_of_switch([1, 2, 0], *cases, "        default:", "            break;"),
                         ["1 of 3 branches not taken"])
        self.assertEqual(self.gaps_of_switch([1, 2, 3, 0], *cases), ["1 of 4 branches not taken"])

    def test_a_branch_of_a_race_may_be_taken_or_not(self):
        self.assertEqual(self.gaps(condition(5, 0), above=RACE), [])
        self.assertEqual(self.gaps(condition(5, 1), above=RACE), [])
        self.assertEqual(self.gaps(condition(5, 0)), ["1 of 2 branches not taken"])
        self.assertEqual(self.gaps([], above=RACE), ["no branch"])


if __name__ == "__main__":
    unittest.main()
