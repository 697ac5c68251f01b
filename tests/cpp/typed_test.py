"""Holds tarn::real() and tarn::date() against Python: valid texts, random ones and near misses."""

import datetime
import os
import random
import re
import struct
import subprocess
import unittest

from comma_locale import comma_locale

TEXTS = 20000
# What HTML calls a valid floating-point number and a valid date string, before its value is known.
NUMBER = re.compile(r"-?([0-9]+|[0-9]*\.[0-9]+)([eE][-+]?[0-9]+)?")
DAY = re.compile(r"([0-9]{4,})-([0-9]{2})-([0-9]{2})")


def answers(texts: list[str], variables: dict[str, str] | None = None) -> list[list[str]]:
    done = subprocess.run(
        [os.environ["TYPED"]],
        input="".join(text + "\n" for text in texts),
        env=variables or {},
        encoding="ascii",
        stdout=subprocess.PIPE,
        check=True,
    )
    lines = done.stdout.splitlines()
    assert len(lines) == len(texts)
    return [line.split() for line in lines]


def expected_number(text: str) -> str:
    if not text:
        return "missing"
    if not NUMBER.fullmatch(text):
        return "malformed"
    number = float(text)
    if abs(number) == float("inf"):
        return "out_of_range"
    return struct.pack(">d", number).hex()


def expected_day(text: str) -> str:
    if not text:
        return "missing"
    match = DAY.fullmatch(text)
    if not match:
        return "malformed"
    year, month, day = map(int, match.groups())
    try:
        # The calendar repeats after 400 years.
        datetime.date(year % 400 + 400, month, day)
    except ValueError:
        return "malformed"
    if year == 0:
        return "malformed"
    return f"{year}/{month}/{day}" if year <= 9999 else "out_of_range"


class Typed(unittest.TestCase):
    def check(self, texts: list[str]) -> None:
        numbers = days = 0
        for text, (number, day) in zip(texts, answers(texts)):
            self.assertEqual(expected_number(text), number, text)
            self.assertEqual(expected_day(text), day, text)
            numbers += len(number) == 16
            days += "/" in day
        self.assertGreater(max(numbers, days), len(texts) // 20)

    def test_random_texts(self) -> None:
        chance = random.Random(5)
        self.check(
            [
                "".join(chance.choices("0123456789.-+eE x", k=chance.randrange(8)))
                for _ in range(TEXTS)
            ]
        )

    def test_numbers_of_all_sizes(self) -> None:
        chance = random.Random(6)
        texts = []
        for _ in range(TEXTS):
            (number,) = struct.unpack("<d", chance.randbytes(8))
            if number == number:
                texts.append(chance.choice((f"{number!r}", f"{number:.30e}", f"{number:.3f}")))
        self.check(texts)

    def test_numbers_between_two_doubles(self) -> None:
        chance = random.Random(7)
        texts = []
        while len(texts) < 2000:
            # Small numbers have the most digits.
            bits = chance.randrange(1 << chance.choice((3, 40, 53, 56, 60)))
            below, above = struct.unpack("<dd", struct.pack("<QQ", bits, bits + 1))
            digits = f"{below:.1100f}", f"{above:.1100f}"
            middle = sum(int(each.replace(".", "")) for each in digits) * 5
            whole = f"{middle:01110d}"
            text = f"{whole[:-1101]}.{whole[-1101:]}"
            texts += [
                text,
                text + "1",
                f"{text}{'0' * 900}1",
                f"{whole}e-1101",
                f"{middle - 1}e-1101",
            ]
        self.check(texts)

    def test_days_of_all_months(self) -> None:
        years = ["0000", "0001", "1900", "2000", "2023", "2024", "2100", "9999", "10000", "02024"]
        self.check(
            [
                f"{year}-{month:02}-{day:02}"
                for year in years
                for month in range(15)
                for day in range(34)
            ]
        )

    def test_locale_changes_nothing(self) -> None:
        with comma_locale() as variables:
            texts = ["1.5", "1,5", ".5e1"]
            found = [number for number, _ in answers(texts, variables)]
            self.assertEqual([expected_number(text) for text in texts], found)


if __name__ == "__main__":
    unittest.main()
