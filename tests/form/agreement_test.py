#!/usr/bin/env python3
"""The models of the form reader in Python and in C++ agree.

FORM_MODEL is the command that runs model_program.cpp.
"""

import itertools
import os
import shlex
import subprocess
import unittest

import model
from cases import MULTIPART, URL_ENCODED, Case, Request, all_cases, post, report
from model import Field, Form
from random_requests import KINDS, random_requests

FORMS_OF_A_KIND = 5000
FRAMING = [b"\r", b"\n", b"--", b"b", b":", b'Content-Disposition: form-data; name="a"\r\n', b"x"]


def text_of(printed: str) -> bytes | None:
    return None if printed == "none" else bytes.fromhex(printed.removeprefix("."))


def forms_of(lines: list[str]) -> list[Form]:
    forms = []
    fields: list[Field] = []
    for line in lines:
        words = line.split()
        if words[0] == "outcome":
            forms.append(Form(fields, words[1]))
            fields = []
        else:
            name, filename, content_type, data = map(text_of, words)
            fields.append(Field(name or b"", filename, content_type, data or b""))
    return forms


class Agreement(unittest.TestCase):
    def agrees(self, named: list[tuple[str, Request]]) -> None:
        """Compares the models over bodies, which are taken as long as they are."""
        records = []
        for _, request in named:
            for text in (request.content_type or b"", request.body):
                records += [b"%d\n" % len(text), text]
        ran = subprocess.run(
            shlex.split(os.environ["FORM_MODEL"]),
            input=b"".join(records),
            capture_output=True,
            check=True,
            timeout=300,
        )
        forms = forms_of(ran.stdout.decode().splitlines())
        self.assertEqual(len(named), len(forms))
        failures = []
        for (name, request), got in zip(named, forms):
            expected = model.read_form(
                b"POST", request.content_type, b"%d" % len(request.body), None, request.body
            )
            if got != expected:
                case = Case("the C++ model differs from the one in Python", name, request, expected)
                failures.append(report(case, got))
        self.assertEqual(0, len(failures), "\n\n".join(["", *failures[:10]]))

    def test_over_cases_worked_out_by_hand(self):
        self.agrees([(case.name, case.request) for case in all_cases()])

    def test_over_random_forms(self):
        for kind in KINDS:
            count = FORMS_OF_A_KIND // 20 if kind == "long values" else FORMS_OF_A_KIND
            with self.subTest(kind=kind):
                self.agrees(list(random_requests(kind, count)))

    def test_over_every_short_sequence_of_framing_pieces(self):
        sequences = [
            b"".join(pieces)
            for start in (
                b"",
                b"--b\r\n",
                b'--b\r\nContent-Disposition: form-data; name="a"\r\n\r\n',
            )
            for size in range(5)
            for pieces in itertools.product(FRAMING, repeat=size)
        ]
        self.agrees([("every sequence", post(MULTIPART, body)) for body in sequences])

    def test_over_every_short_url_encoded_text(self):
        texts = (
            "".join(t).encode() for n in range(6) for t in itertools.product("a&=%+4Z", repeat=n)
        )
        self.agrees([("every text", post(URL_ENCODED, text)) for text in texts])

    def test_a_random_form_of_each_outcome_was_among_them(self):
        """The random forms reach every outcome that a body can have."""
        outcomes = set()
        for kind in KINDS:
            for _, request in random_requests(kind, 1000):
                outcomes.add(model.read_form(*request).outcome)
        reached = {model.WHOLE, model.NO_BOUNDARY, model.TWO_BOUNDARIES, model.CUT_SHORT}
        reached |= {model.MALFORMED, model.MALFORMED_HEADER, model.PART_WITHOUT_NAME}
        reached |= {model.UNSUPPORTED_TYPE, model.BAD_LENGTH}
        self.assertEqual(reached, outcomes)


if __name__ == "__main__":
    unittest.main()
