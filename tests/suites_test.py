"""tests/suites.py finds every failure in the output of GoogleTest and prints it once."""

import unittest
from pathlib import Path

import suites

HEAD = "[==========] Running {} tests from 1 test suite.\n[----------] {} tests from A\n"
PASSED = "[ RUN      ] A.passes\n[       OK ] A.passes (0 ms)\n"
FAILED = "[ RUN      ] A.fails\na_test.cpp:3: Failure\ninput 0x{}\n[  FAILED  ] A.fails (1 ms)\n"
SKIPPED = "[ RUN      ] A.skips\na_test.cpp:9: Skipped\nno room\n[  SKIPPED ] A.skips (0 ms)\n"
TAIL = "[==========] 2 tests from 1 test suite ran. (2 ms total)\n[  PASSED  ] 1 test.\n"


def outcome(*tests, status=0, program="one", tail=TAIL):
    return suites.outcome(Path(program), status, HEAD.format(2, 2) + "".join(tests) + tail)


class Outcome(unittest.TestCase):
    def test_passing_tests_have_no_failure(self):
        self.assertEqual({}, outcome(PASSED).failed)

    def test_failure_has_its_message(self):
        failed = outcome(PASSED, FAILED.format("1f"), status=1).failed
        self.assertEqual({"A.fails": "a_test.cpp:3: Failure\ninput 0x1f\n"}, failed)

    def test_skip_has_its_reason(self):
        done = outcome(PASSED, SKIPPED)
        self.assertEqual(({}, ["A.skips"]), (done.failed, list(done.skipped)))
        self.assertIn("no room", done.skipped["A.skips"])

    def test_crash_names_the_running_test(self):
        failed = outcome(PASSED, "[ RUN      ] A.crashes\nsome\n", status=-11, tail="").failed
        self.assertEqual(["A.crashes"], list(failed))
        self.assertIn("some\nThe program was killed by SIGSEGV in this test.", failed["A.crashes"])

    def test_early_exit_with_status_0_names_the_running_test(self):
        failed = outcome("[ RUN      ] A.exits\n", status=0, tail="").failed
        self.assertEqual({"A.exits": "The program ended with status 0 in this test.\n"}, failed)

    def test_copes_with_output_without_a_newline(self):
        done = outcome("[ RUN      ] A.prints\nhalf a line[       OK ] A.prints (0 ms)\n")
        self.assertEqual({}, done.failed)

    def test_running_no_test_is_a_failure(self):
        none = "[==========] Running 0 tests from 0 test suites.\n[  PASSED  ] 0 tests.\n"
        self.assertTrue(suites.outcome(Path("one"), 0, none).failed)
        self.assertTrue(suites.outcome(Path("one"), 0, "").failed)

    def test_nonzero_status_alone_is_a_failure(self):
        self.assertTrue(outcome(PASSED, status=23).failed)

    def test_keeps_sanitizer_output_after_the_tests(self):
        leak = outcome(PASSED, status=23, tail=TAIL + "ERROR: LeakSanitizer: 4 bytes\n")
        self.assertIn("LeakSanitizer", leak.failed["outside any test"])


class Report(unittest.TestCase):
    def test_prints_a_shared_failure_once(self):
        both = [
            outcome(FAILED.format("1f"), status=1),
            outcome(FAILED.format("2e"), status=1, program="two"),
        ]
        text = suites.report(both)
        self.assertEqual(1, text.count("a_test.cpp:3"))
        self.assertIn("A.fails fails in one:\na_test.cpp:3: Failure\ninput 0x1f\n", text)
        self.assertIn("A.fails also fails in two.\n", text)
        self.assertEqual(1, text.count(" --gtest_filter=A.fails\n"))

    def test_prints_failures_that_programs_do_not_share(self):
        failing = outcome(FAILED.format("1f"), status=1, program="two")
        self.assertIn("A.fails fails in two:\n", suites.report([outcome(PASSED), failing]))
        other = outcome(FAILED.format("1f").replace("input", "length"), status=1)
        self.assertIn(
            "A.fails fails in two with another message:\n", suites.report([other, failing])
        )


class Commands(unittest.TestCase):
    def test_add_one_test_per_suite(self):
        listed = (
            "Running main() from gtest_main.cc\nOne.\n  a\nTwo/Three.  # TypeParam = x.y\n  b\n"
        )
        self.assertEqual(["One", "Two/Three"], suites.SUITE.findall(listed))


if __name__ == "__main__":
    unittest.main()
