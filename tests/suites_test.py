"""tests/suites.py sees every failure in what GoogleTest prints, and prints it once."""

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
    def test_of_tests_that_pass_has_no_failure(self):
        self.assertEqual({}, outcome(PASSED).failed)

    def test_has_the_message_of_a_failure(self):
        failed = outcome(PASSED, FAILED.format("1f"), status=1).failed
        self.assertEqual({"A.fails": "a_test.cpp:3: Failure\ninput 0x1f\n"}, failed)

    def test_has_the_reason_of_a_skip(self):
        done = outcome(PASSED, SKIPPED)
        self.assertEqual(({}, ["A.skips"]), (done.failed, list(done.skipped)))
        self.assertIn("no room", done.skipped["A.skips"])

    def test_names_the_test_in_which_the_program_crashed(self):
        failed = outcome(PASSED, "[ RUN      ] A.crashes\nsome\n", status=-11, tail="").failed
        self.assertEqual(["A.crashes"], list(failed))
        self.assertIn("some\nThe program was killed by SIGSEGV in this test.", failed["A.crashes"])

    def test_names_the_test_that_ends_the_program_without_an_error(self):
        failed = outcome("[ RUN      ] A.exits\n", status=0, tail="").failed
        self.assertEqual({"A.exits": "The program ended with status 0 in this test.\n"}, failed)

    def test_is_not_confused_by_output_without_a_line_end(self):
        done = outcome("[ RUN      ] A.prints\nhalf a line[       OK ] A.prints (0 ms)\n")
        self.assertEqual({}, done.failed)

    def test_without_any_test_is_a_failure(self):
        none = "[==========] Running 0 tests from 0 test suites.\n[  PASSED  ] 0 tests.\n"
        self.assertTrue(suites.outcome(Path("one"), 0, none).failed)
        self.assertTrue(suites.outcome(Path("one"), 0, "").failed)

    def test_with_a_status_alone_is_a_failure(self):
        self.assertTrue(outcome(PASSED, status=23).failed)

    def test_has_what_a_sanitizer_prints_after_the_tests(self):
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

    def test_prints_what_fails_in_one_program_alone_or_in_another_way(self):
        failing = outcome(FAILED.format("1f"), status=1, program="two")
        self.assertIn("A.fails fails in two:\n", suites.report([outcome(PASSED), failing]))
        other = outcome(FAILED.format("1f").replace("input", "length"), status=1)
        self.assertIn(
            "A.fails fails in two with another message:\n", suites.report([other, failing])
        )


class Commands(unittest.TestCase):
    def test_have_a_test_for_each_suite(self):
        listed = (
            "Running main() from gtest_main.cc\nOne.\n  a\nTwo/Three.  # TypeParam = x.y\n  b\n"
        )
        self.assertEqual(["One", "Two/Three"], suites.SUITE.findall(listed))


if __name__ == "__main__":
    unittest.main()
