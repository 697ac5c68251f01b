"""Prints a case that failed, short enough to read."""

from cases import Case
from model import Form


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
