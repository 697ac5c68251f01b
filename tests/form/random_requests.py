"""Random requests from a seed: pieces of forms in an order that no client sends."""

import random
from typing import Callable, Iterator

import model
from cases import DISPOSITION, MULTIPART, URL_ENCODED, Request, multipart, octets, post

# Pieces of a multipart body whose boundary is "bo". Two of them often make a third.
FRAMING = (
    "\r \n ~ ~ ~ - -- --bo ~--bo ~--bo ~--bo~ ~--bo~ ~--bo-- --bo~ --bo-- bo b o : ~~ @ @~ @~ @~x "
    "x Content-Type:a/b~ X:~"
).split(" ") + ['"', " ", "\t", "\0", "\xff"]
DISPOSITIONS = (
    'form-data form-data form-data; form-data; ; ; name name filename filename= name= name=" '
    'name="a" filename="f" filename* "a" " " " \\ \\" \\\\ \\\\" %22 %0a %0D % = = a b " '
).split(" ") + [" ", "\t", "\0", "\xff", "x=y", ": ", "'"]
QUOTED = [
    "a",
    "\\\\",
    '\\"',
    ";",
    " ",
    "=",
    ":",
    '"',
    "a",
    "\\",
    "%22",
    "%0A",
    "%",
    "\xff",
    '"; x="',
]
CONTENT_TYPES = (
    "multipart/form-data; multipart/form-data; multipart/form-data ; ; ; boundary boundary= "
    'boundary=bo boundary=bo boundary="bo" boundary*=bo " " \\ \\" = : b o x=y x="y" bo'
).split(" ") + [" ", "\t", "\xff", ",", "Boundary=bo", "charset=utf-8", '"b\\o"']
HEADERS = [
    "@",
    "@",
    "Content-Type: a/b~",
    "content-type: c/d~",
    "Content-Transfer-Encoding: 8bit~",
    "Content-Transfer-Encoding: base64~",
    "X-Other: 1~",
    " folded~",
    "no colon~",
    "X : 1~",
    ": 1~",
    "--b: 1~",
    "--bo",
    "X: \n~",
    "X: \r~",
    "~",
    "x",
]
URL_PIECES = "a = & % + 4 Z %4 %41 %00 b ; %26 && == \0 \xff %f".split(" ")
LENGTHS = [b"", b"0", b"-1", b"+1", b" 1", b"1 ", b"x", b"9" * 19, b"9" * 18, b"07", b"0x1"]
VALUE_ENDS = ["", "", "\r", "\n", "~", "~-", "~--", "~--b", "-", "--bo", "\0", "~ --bo", "\n--bo"]

BO = b"multipart/form-data; boundary=bo"


def some(random_: random.Random, pieces: list[str], most: int) -> str:
    return "".join(random_.choices(pieces, k=random_.randint(0, most)))


def framing(random_: random.Random) -> Request:
    start = random_.choice(["", "--bo~", "--bo~@~", "--bo~@~x", "~", "x~"])
    return post(BO, multipart(start + some(random_, FRAMING, 12)))


def nearly_whole(random_: random.Random) -> Request:
    """A form with hard values, often with a mistake in it."""
    pieces = [some(random_, ["x", "~", "\0"], 3) + random_.choice(["", "~"])]
    if random_.random() < 0.5:
        pieces = []
    for _ in range(random_.randint(0, 4)):
        pieces += ["--bo", random_.choice(["", "", " ", "\t "]), "~"]
        pieces += [random_.choice(["@", "@", "@Content-Type: a/b~", "X: y~@"]), "~"]
        pieces += [some(random_, FRAMING[:6] + ["x", "yz"], 6), random_.choice(VALUE_ENDS), "~"]
    pieces += ["--bo--", some(random_, FRAMING, 3)]
    for _ in range(random_.choice([0, 0, 1, 2])):
        at = random_.randrange(len(pieces))
        pieces[at] = random_.choice(["", pieces[at] * 2, some(random_, FRAMING, 2)])
    body = multipart("".join(pieces))
    if random_.random() < 0.2:
        body = body[: random_.randint(0, len(body))]
    return post(BO, body)


def parameters(random_: random.Random, names: list[str], pieces: list[str]) -> str:
    """Parameters, most of them well-formed."""
    text = ""
    for _ in range(random_.choice([1, 1, 2, 3])):
        text += random_.choice([";", "; ", " ;\t", ";;", "; "]) + random_.choice(names)
        text += random_.choice(["=", "=", " = ", "=\t"])
        quoted = '"' + some(random_, pieces, 6) + '"'
        text += random_.choice([quoted, quoted, quoted, "bo", some(random_, pieces, 3)])
        text += random_.choice(["", "", "", "", "", "", " ", "\t", "x"])
    return text


def disposition(random_: random.Random) -> Request:
    names = ["name", "name", "filename", "Name", "filename*", "x"]
    value = "form-data" + parameters(random_, names, QUOTED)
    if random_.random() < 0.5:
        value = random_.choice(["form-data; ", "form-data; name=", 'form-data; name="', ""])
        value += some(random_, DISPOSITIONS, 9)
    body = b"--b\r\nContent-Disposition: " + octets(value) + b"\r\n\r\nx\r\n--b--\r\n"
    return post(MULTIPART, body)


def content_type(random_: random.Random) -> Request:
    start = random_.choice(["multipart/form-data; ", "multipart/form-data; boundary=", ""])
    value = start + some(random_, CONTENT_TYPES, 7)
    if random_.random() < 0.5:
        names = ["boundary", "boundary", "Boundary", "boundary*", "x"]
        value = "multipart/form-data" + parameters(random_, names, ["b", "o", "bo", *QUOTED[:9]])
    try:
        boundary = model.boundary_of(octets(value))
    except model.Problem:
        boundary = b"bo"
    body = b"--%s\r\n%s\r\nx\r\n--%s--" % (boundary, octets(DISPOSITION), boundary)
    return post(octets(value), body)


def headers(random_: random.Random) -> Request:
    block = some(random_, HEADERS, 5) + random_.choice(["", "@"]) + some(random_, HEADERS, 2)
    return post(BO, multipart(f"--bo~@~x~--bo~{block}~y~--bo--"))


def url_encoded(random_: random.Random) -> Request:
    text = octets(some(random_, URL_PIECES, 12))
    if random_.random() < 0.5:
        return Request(b"GET", None, None, text.replace(b"\0", b"0"), b"")
    return post(URL_ENCODED, text)


def cut_or_long(random_: random.Random) -> Request:
    """A body that is shorter or longer than CONTENT_LENGTH, or a length that is no number."""
    request = random_.choice([framing, nearly_whole, url_encoded])(random_)
    size = len(request.body)
    lengths = [
        b"%d" % (size + more) for more in (-3, -2, -1, 1, 2, 100, 2**40) if size + more >= 0
    ]
    return request._replace(
        content_length=random_.choice(lengths + lengths + LENGTHS),
        method=random_.choice([b"POST", b"POST", b"PUT", b"GET", None]),
    )


def long_values(random_: random.Random) -> Request:
    """Values around the sizes of buffers, full of near delimiters."""
    text = "--bo~@~"
    for _ in range(random_.randint(1, 3)):
        size = random_.choice([4096, 8192, 16384, 32768, 65536]) + random_.randint(-90, 10)
        filler = random_.choice(["x", "~", "\r", "-", "~--", "~--b", "\n", "~--b\r"])
        text += (filler * size)[:size] + random_.choice(VALUE_ENDS)
        text += random_.choice(["~--bo~@~", "~--bo ~@~"])
    return post(
        BO, multipart(text + random_.choice(["~--bo--", "y~--bo--~", "~--bo", "~--box", ""]))
    )


KINDS: dict[str, Callable[[random.Random], Request]] = {
    "framing": framing,
    "nearly whole": nearly_whole,
    "disposition": disposition,
    "content type": content_type,
    "headers": headers,
    "URL-encoded": url_encoded,
    "cut or long": cut_or_long,
    "long values": long_values,
}


def random_requests(kind: str, count: int) -> Iterator[tuple[str, Request]]:
    """Always the same requests, each with a name that leads back to it."""
    for seed in range(count):
        yield f"seed {kind} {seed}", KINDS[kind](random.Random(f"{kind} {seed}"))
