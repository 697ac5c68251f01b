#!/usr/bin/python3 -BIWignore
"""Prints the same as script.c, using Python's cgi module."""

import cgi
import sys


def show(items, show_one):
    if items:
        for item in (items[0], items[len(items) // 2], items[-1]):
            print(show_one(item))


def entry(field):
    return f"{field.name}={field.value[:16]} ({len(field.value.encode('latin-1'))} bytes)"


def file(field):
    data = field.value
    end = data[-8:].hex()
    return f"{field.name}: {field.filename}, {field.type}, {len(data)} bytes, {end}"


sys.stdout.reconfigure(encoding="latin-1")  # type: ignore[attr-defined]
fields = cgi.FieldStorage(keep_blank_values=True, encoding="latin-1").list
files = [field for field in fields if getattr(field, "filename", None)]
entries = [field for field in fields if not getattr(field, "filename", None)]
print(f"Content-Type: text/plain\n\n{len(entries)} entries, {len(files)} files")
show(entries, entry)
show(files, file)
