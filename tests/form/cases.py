"""The hand-written cases: what a request sends, and what a script must get.

Each case names the rule that it comes from. They are in the modules *_cases.py, by subject.
model_test.py holds the model to them, tarn_form_test.py the command tarn-form.

In a multipart body "~" is CR LF and "@" is the line Content-Disposition: form-data; name="a".
"""

from typing import NamedTuple

import model
from model import Field, Form

DISPOSITION = 'Content-Disposition: form-data; name="a"\r\n'
MULTIPART = b"multipart/form-data; boundary=b"
URL_ENCODED = b"application/x-www-form-urlencoded"


class Request(NamedTuple):
    """CGI variables, None if unset, and the bytes on standard input."""

    method: bytes | None
    content_type: bytes | None
    content_length: bytes | None
    query_string: bytes | None
    body: bytes


class Case(NamedTuple):
    rule: str
    name: str
    request: Request
    form: Form


def octets(text: str) -> bytes:
    return text.encode("latin-1")


def multipart(text: str) -> bytes:
    return octets(text.replace("@", DISPOSITION).replace("~", "\r\n"))


def post(content_type: bytes | None, body: bytes) -> Request:
    return Request(b"POST", content_type, b"%d" % len(body), None, body)


def values(*data: bytes) -> list[Field]:
    """Fields that differ only in their values."""
    return [Field(b"a", None, None, each) for each in data]


def form(*fields: Field) -> Form:
    return Form(list(fields), model.WHOLE)


def refused(outcome: str, *fields: Field) -> Form:
    return Form(list(fields), outcome)


def all_cases() -> list[Case]:
    # Imported here because these modules import this one.
    import boundary_cases
    import disposition_cases
    import framing_cases
    import header_cases
    import request_cases
    import url_cases

    modules = (
        boundary_cases,
        framing_cases,
        header_cases,
        disposition_cases,
        url_cases,
        request_cases,
    )
    return [case for module in modules for case in module.cases()]


# ---- What a failure prints ----


def shortened(data: bytes | None, limit: int = 300) -> str:
    if data is None or len(data) <= limit:
        return repr(data)
    return f"{data[:limit - 60]!r}... {len(data)} bytes ...{data[-60:]!r}"


def fields_text(form: Form) -> str:
    lines = [
        f"      name {shortened(field.name)}, file name {shortened(field.filename)}, "
        f"type {shortened(field.content_type)}, value {shortened(field.data)}"
        for field in form.fields[:8]
    ]
    if len(form.fields) > 8:
        lines.append(f"      ... {len(form.fields)} fields in all")
    return "\n".join([f"{form.outcome}", *lines])


def report(case: Case, got: Form | str, where: str = "") -> str:
    """A text with the request, what was expected and what came instead."""
    names = ("REQUEST_METHOD", "CONTENT_TYPE", "CONTENT_LENGTH", "QUERY_STRING", "standard input")
    request = [
        f"    {name} {shortened(value, 1000)}"
        for name, value in zip(names, case.request)
        if value is not None
    ]
    return "\n".join(
        [
            f"{case.rule}: {case.name}{where}",
            *request,
            f"    expected {fields_text(case.form)}",
            f"    got {got if isinstance(got, str) else fields_text(got)}",
        ]
    )
