"""scripts/skips finds skipped tests, and test programs that ran no test."""

import importlib.machinery
import importlib.util
import pathlib
import unittest

SCRIPT = pathlib.Path(__file__).resolve().parent.parent / "scripts" / "skips"
LOADER = importlib.machinery.SourceFileLoader("skips", str(SCRIPT))
skips = importlib.util.module_from_spec(importlib.util.spec_from_loader("skips", LOADER))
LOADER.exec_module(skips)


def log(**outputs):
    """A log as CTest writes it."""
    blocks = [
        f"{number}/{len(outputs)} Testing: {name}\n{number}/{len(outputs)} Test: {name}\n"
        f'Command: "program"\nDirectory: /\n"{name}" start time: Nov 22 00:10 UTC\nOutput:\n'
        f"{'-' * 58}\n{output}<end of output>\nTest time =   0.01 sec\n{'-' * 58}\nTest Passed.\n"
        for number, (name, output) in enumerate(outputs.items(), 1)
    ]
    return "Start testing: Nov 22 00:10 UTC\n" + "\n".join(blocks)


class Skips(unittest.TestCase):
    def test_finds_skips_of_googletest_and_unittest(self):
        tests, reasons, idle = skips.skips_in(
            log(
                one="../../tests/a_test.cpp:12: Skipped\nno room\n[  SKIPPED ] A.B (0 ms)\n",
                two="test_a (m.C.test_a)\nSays what. ... skipped 'no mount'\n"
                'test_b (m.C.test_b) ... skipped "it\'s late"\ntest_c (m.C.test_c) ... ok\n\n'
                "Ran 3 tests in 0.1s\n\nOK (skipped=2)\n",
                three="[==========] 5 tests from 1 test suite ran. (7 ms total)\n",
            )
        )
        self.assertEqual(3, tests)
        self.assertEqual({"no room": 1, "no mount": 1, "it's late": 1}, reasons)
        self.assertEqual([], idle)

    def test_reports_programs_that_ran_no_test(self):
        nothing = "[==========] 0 tests from 0 test suites ran. (0 ms total)\n"
        outputs = {
            "program": nothing,
            "parts:1": nothing,
            "parts:2": nothing,
            "script": "\nRan 0 tests in 0.000s\n\nOK\n",
        }
        self.assertEqual(["program", "parts:1", "script"], skips.skips_in(log(**outputs))[2])

    def complaints(self, reasons, *lines, run="release", some=False):
        expected = skips.expectations(run, ["# a comment", "", *lines])
        return list(skips.complaints(reasons, expected, some))

    def test_accepts_expected_skips(self):
        lines = ("release,debug 2 no room", "other 0 no room", "release 0-3 no mount")
        self.assertEqual([], self.complaints({"no room": 2}, *lines))
        self.assertEqual([], self.complaints({"no room": 2, "no mount": 3}, *lines))
        self.assertEqual([], self.complaints({}, *lines, some=True))
        self.assertEqual([], self.complaints({}, *lines, run="sanitizers"))

    def test_reports_unexpected_skips(self):
        line = "release 2-3 no room"
        for times in (1, 4):
            self.assertEqual(
                [f"skipped {times} times, expected 2 to 3: no room"],
                self.complaints({"no room": times}, line),
            )
        self.assertEqual(
            ["skipped 1 times, not expected: no mount"],
            self.complaints({"no room": 2, "no mount": 1}, line),
        )
        self.assertEqual(
            ["skipped 4 times, expected 2 to 3: no room"],
            self.complaints({"no room": 4}, line, some=True),
        )


if __name__ == "__main__":
    unittest.main()
