#!/usr/bin/env python3
"""The model of the form reader, held to cases that were worked out by hand.

The cases and the rules that they come from are in the modules *_cases.py.
"""

import unittest

import model
from cases import MULTIPART, all_cases, multipart, values, report


class Model(unittest.TestCase):
    def test_gives_what_was_worked_out_by_hand(self):
        cases = all_cases()
        failures = []
        for case in cases:
            got = model.read_form(*case.request)
            if got != case.form:
                failures.append(report(case, got))
        self.assertGreater(len(cases), 400)
        self.assertEqual(0, len(failures), "\n\n".join(["", *failures[:20]]))

    def test_every_case_has_its_own_name_under_its_rule(self):
        names = [(case.rule, case.name) for case in all_cases()]
        twice = {name for name in names if names.count(name) > 1}
        self.assertFalse(twice)

    def test_every_problem_but_those_of_reading_has_a_case(self):
        reached = {case.form.outcome for case in all_cases()}
        codes = {
            value for name, value in vars(model).items() if name.isupper() and value == name.lower()
        }
        self.assertEqual(len(codes), 12)
        self.assertEqual(codes - reached, {model.READ_ERROR, model.TIMED_OUT})

    def test_form_cut_at_any_byte_gives_only_whole_fields(self):
        """A field is whole when the line of the delimiter after it is well-formed."""
        body = multipart("pre~--b~@~x~--b \t~@Content-Type: a/b~~~--b~@~~y~--b--~end")
        whole = values(b"x") + [values(b"")[0]._replace(content_type=b"a/b")] + values(b"\r\ny")
        ends = [
            body.index(mark) + len(mark)
            for mark in (b"--b \t\r\n", b"\r\n\r\n\r\n--b\r\n", b"--b--")
        ]
        for size in range(len(body) + 1):
            is_whole = size >= ends[2]
            fields = whole[: sum(size >= end for end in ends)]
            with self.subTest(size=size):
                got = model.read_form(b"POST", MULTIPART, b"%d" % size, None, body)
                self.assertEqual(got, (fields, model.WHOLE if is_whole else model.CUT_SHORT))
                # The same bytes, but more were promised.
                got = model.read_form(b"POST", MULTIPART, b"%d" % len(body), None, body[:size])
                is_whole = size == len(body)
                self.assertEqual(got, (fields, model.WHOLE if is_whole else model.CUT_SHORT))

    def test_url_encoded_form_cut_at_any_byte_gives_only_whole_fields(self):
        body = b"a=1&&a=%41&a=3"
        whole = values(b"1", b"A", b"3")
        ends = [4, 11, 14]
        for size in range(len(body) + 1):
            with self.subTest(size=size):
                got = model.read_form(
                    b"POST", b"application/x-www-form-urlencoded", b"14", None, body[:size]
                )
                fields = whole[: sum(size >= end for end in ends)]
                outcome = model.WHOLE if size == len(body) else model.CUT_SHORT
                self.assertEqual(got, (fields, outcome))


if __name__ == "__main__":
    unittest.main()
