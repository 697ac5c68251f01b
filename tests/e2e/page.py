"""Parses a page strictly: it fails if it is invalid, or inaccessible on a phone or with a screen
reader."""

import html.parser
import os
import re
import subprocess

import html5lib

VOID = {"img", "input", "meta"}
CONTROLS = {"input", "textarea", "select", "progress"}
REFERENCES = {"for", "aria-describedby", "aria-labelledby"}


class Page(html.parser.HTMLParser):
    """The elements of a page, in order, as (tag, attributes, text); all of them in `tags`."""

    def __init__(self, body):
        super().__init__()
        self.elements = []
        self.open = []
        text = body.decode("utf-8", errors="replace")
        assert text.startswith("<!DOCTYPE html>\n"), text[:40]
        if os.environ.get("VALIDATE") != "OFF":
            check_valid(text)
        self.feed(text)
        self.close()
        assert not self.open, f"not closed: {self.open}"
        self.tags = {element["tag"] for element in self.elements}
        self._check_accessible()

    def handle_starttag(self, tag, attrs):
        names = [name for name, _ in attrs]
        assert len(names) == len(set(names)), f"an attribute twice in {tag}: {names}"
        labelled = any(element["tag"] == "label" for element in self.open)
        element = {"tag": tag, "attributes": dict(attrs), "text": "", "labelled": labelled}
        self.elements.append(element)
        if tag not in VOID:
            self.open.append(element)

    def handle_endtag(self, tag):
        assert self.open and self.open[-1]["tag"] == tag, f"{tag} is closed, {self.open} are open"
        self.open.pop()

    def handle_data(self, data):
        for element in self.open:
            element["text"] += data

    def handle_comment(self, data):
        raise AssertionError(f"the page has a comment: {data}")

    def texts(self, tag, **attributes):
        """The texts of the elements that have this tag and these attributes."""
        return [element["text"] for element in self._all(tag, **attributes)]

    def named(self, name):
        """The form control with this name."""
        (found,) = [e for e in self.elements if e["attributes"].get("name") == name]
        return found

    def described(self, name):
        """The error beside the form control with this name; None if its value is accepted."""
        attributes = self.named(name)["attributes"]
        identifier = attributes.get("aria-describedby")
        assert (identifier is not None) == (attributes.get("aria-invalid") == "true"), attributes
        return identifier and [
            e["text"] for e in self.elements if e["attributes"].get("id") == identifier
        ]

    def _all(self, tag, **attributes):
        return [
            element
            for element in self.elements
            if element["tag"] == tag and attributes.items() <= element["attributes"].items()
        ]

    def _check_accessible(self):
        assert self._all("html", lang="en"), "no language"
        assert self._all("meta", name="viewport"), "not made for a phone"
        for tag in ("title", "main", "h1"):
            (text,) = self.texts(tag)
            assert text.strip(), f"an empty {tag}"
        identifiers = {element["attributes"].get("id") for element in self.elements}
        fors = {label["attributes"].get("for") for label in self._all("label")}
        for element in self.elements:
            attributes = element["attributes"]
            for name in REFERENCES & attributes.keys():
                assert attributes[name] in identifiers, f"{name} of {attributes[name]}"
            shown = element["tag"] in CONTROLS and attributes.get("type") != "hidden"
            if shown and not element["labelled"]:
                assert attributes.get("id", "") in fors, f"no label: {element}"
            if element["tag"] == "svg":
                assert attributes["role"] == "img" and attributes["aria-label"], attributes
            if element["tag"] == "img":
                assert attributes["alt"], attributes


def check_valid(text):
    """html5lib checks the structure of a page, tidy its elements and attributes."""
    parser = html5lib.HTMLParser()
    parser.parse(text)
    # A carriage return can only be written as a number, which html5lib reports; ignore that error.
    errors = [error for error in parser.errors if error[2] != {"charAsInt": 13}]
    assert not errors, errors
    command = ["tidy", "-q", "-e", "-utf8"]
    known = re.sub(r'(<(?:style|script)) nonce="[0-9a-f]*"', r"\1", text)  # unknown to tidy
    tidy = subprocess.run(command, input=known.encode(), capture_output=True, check=False)
    assert (tidy.returncode, tidy.stderr) == (0, b""), tidy.stderr.decode()
