"""Holds tarn::JsonWriter against Python's parser: random values come back as they were, and what is
refused is exactly what would not be JSON."""

import json
import os
import random
import struct
import subprocess
import unittest
from typing import Any

from comma_locale import comma_locale

TEXTS = 4000
# Each part of a text. Bytes that are not UTF-8 come back as U+FFFD.
PIECES = [
    b"a",
    b"\0",
    b'"',
    b"\\",
    b"</script>",
    b"'&",
    b"\x7f",
    b"\n",
    "é€🦆\u2028".encode(),
    b"\xff",
]


def random_text(chance: random.Random) -> bytes:
    return b"".join(chance.choices(PIECES, k=chance.randrange(5)))


def random_double(chance: random.Random) -> float:
    while True:
        (number,) = struct.unpack("<d", chance.randbytes(8))
        if number - number == 0:
            return chance.choice((number, round(chance.uniform(-1000, 1000), 3)))


def read_back(text: bytes) -> str:
    return text.decode(errors="replace")


def random_value(chance: random.Random, commands: list[str], depth: int) -> Any:
    """Appends the commands that write a value; returns the value as a parser reads it."""
    kind = chance.choice("siudtfn[{[{" if depth < 6 else "siudtfn")
    if kind == "[":
        commands.append("[")
        items = [random_value(chance, commands, depth + 1) for _ in range(chance.randrange(4))]
        commands.append("]")
        return items
    if kind == "{":
        commands.append("{")
        members = []
        for _ in range(chance.randrange(4)):
            name = random_text(chance)
            commands.append("k" + name.hex())
            members.append((read_back(name), random_value(chance, commands, depth + 1)))
        commands.append("}")
        return dict(members)
    if kind == "s":
        text = random_text(chance)
        commands.append("s" + text.hex())
        return read_back(text)
    number: Any = {
        "i": chance.randrange(-(1 << 63), 1 << 63),
        "u": chance.randrange(1 << 64),
        "d": random_double(chance),
    }.get(kind)
    commands.append(kind + (repr(number) if number is not None else ""))
    return number if number is not None else {"t": True, "f": False, "n": None}[kind]


def is_json(commands: list[str]) -> bool:
    """Whether these commands write one value: by putting the tokens together, and parsing them."""
    text = ""
    for command in commands:
        kind = command[0]
        token = {"k": '"k"', "s": '"s"', "t": "true", "n": "null", "i": "1"}.get(kind, kind)
        # A comma goes between a value and what begins another one; a colon follows a key.
        if text and text[-1] not in "[{:" and kind not in "]}":
            text += ","
        text += token + (":" if kind == "k" else "")
    try:
        json.loads(text)
    except ValueError:
        return False
    return True


def written(texts: list[list[str]], variables: dict[str, str] | None = None) -> list[str]:
    lines = "".join("".join(f"{command}\n" for command in [*text, "."]) for text in texts)
    ran = subprocess.run(
        [os.environ["JSON"]],
        input=lines.encode(),
        env=variables or {},
        stdout=subprocess.PIPE,
        check=True,
    )
    answers = ran.stdout.decode().splitlines()
    assert len(answers) == len(texts), (len(answers), len(texts))
    return answers


class Json(unittest.TestCase):
    def test_random_values_are_read_back_as_they_were(self) -> None:
        chance = random.Random(16)
        values, texts = [], []
        for _ in range(TEXTS):
            commands: list[str] = []
            values.append(random_value(chance, commands, 0))
            texts.append(commands)
        for value, answer in zip(values, written(texts)):
            self.assertEqual(json.loads(answer), value, answer)
            self.assertNotRegex(answer, "[<>&'\x00-\x1f\x7f]")

    def test_every_sequence_of_calls_is_refused_or_json(self) -> None:
        tokens = ["{", "}", "[", "]", "k6b", "i1"]
        texts: list[list[str]] = [[]]
        for length in range(1, 7):
            texts += [
                [*text, token] for text in texts if len(text) == length - 1 for token in tokens
            ]
        self.assertEqual(len(texts), sum(6**length for length in range(7)))
        accepted = 0
        for commands, answer in zip(texts, written(texts)):
            refused = answer.startswith("refused: JSON: ")
            self.assertEqual(refused, not is_json(commands), (commands, answer))
            if not refused:
                accepted += 1
                json.loads(answer)
        self.assertGreater(accepted, 30)

    @unittest.skipIf(os.environ.get("C_LIBRARY") == "musl", "every locale of musl has a dot")
    def test_numbers_have_a_dot_in_every_locale(self) -> None:
        with comma_locale() as variables:
            self.assertEqual(written([["[", "d-1,5", "d1e300", "]"]], variables), ["[-1.5,1e+300]"])


if __name__ == "__main__":
    unittest.main()
