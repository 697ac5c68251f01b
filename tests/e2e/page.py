"""Reads a page as a browser does, and strictly: an element that is not closed is a failure."""

import html.parser

VOID = {"input", "meta"}


class Page(html.parser.HTMLParser):
    """The elements of a page, in order, as (tag, attributes, text); all of them in `tags`."""

    def __init__(self, body):
        super().__init__()
        self.elements = []
        self.open = []
        assert body.startswith(b"<!DOCTYPE html>\n"), body[:40]
        self.feed(body.decode("utf-8", errors="replace"))
        self.close()
        assert not self.open, f"not closed: {self.open}"
        self.tags = {element["tag"] for element in self.elements}

    def handle_starttag(self, tag, attrs):
        names = [name for name, _ in attrs]
        assert len(names) == len(set(names)), f"an attribute twice in {tag}: {names}"
        element = {"tag": tag, "attributes": dict(attrs), "text": ""}
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
        raise AssertionError(f"a comment: {data}")

    def texts(self, tag):
        return [element["text"] for element in self.elements if element["tag"] == tag]

    def named(self, name):
        """The form control with this name."""
        (found,) = [e for e in self.elements if e["attributes"].get("name") == name]
        return found
