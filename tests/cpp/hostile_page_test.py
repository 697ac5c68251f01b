"""Puts hostile text into a page and parses it with html5lib: it stays in place and adds nothing."""

import json
import os
import re
import subprocess
import unittest
from urllib.parse import unquote_to_bytes

import html5lib

TEXTS = [
    "Hello",
    "<script>alert(1)</script>",
    "</title></textarea></pre></script></b></p></body></html><script>alert(1)</script>",
    '" onfocus="alert(1)" autofocus x="',
    "' onfocus='alert(1)' autofocus x='",
    "x onfocus=alert(1) autofocus",
    "` onfocus=`alert(1)",
    "--><!--<script><svg/onload=alert(1)>",
    "<!--<script></script>",
    "<![CDATA[ <b> ]]>",
    "&lt;b&gt; &amp; &#60; &notit; &ampcopy; &",
    "javascript:alert(1)",
    '\\"; alert(1); //',
    "\\u003cscript>",
    "\n\n starts and ends with line ends \n\n",
    "\r\nSet-Cookie: a=b\r\n\r\n<script>",
    "\ta\rb\fc\vd\x01\x1b\x7f",
    "{{7*7}} ${7*7} <%= 7 %> <?php ?>",
    "a\u2028b\u2029c\u0085d\u00a0e\u202ef",
    "Grüße, 東京, 🦆",
    "100% of %41 + 1",
    "\ufeffx",
    "<x-y z>" * 200,
]


class Page(unittest.TestCase):
    def page(self, text):
        answer = subprocess.run(
            [os.environ["HOSTILE_PAGE"], text], stdout=subprocess.PIPE, check=True
        )
        header, body = answer.stdout.split(b"\r\n\r\n", 1)
        self.assertEqual(
            header.split(b"\r\n"),
            [
                b"Content-Type: text/html; charset=utf-8",
                b"Content-Length: %d" % len(body),
            ],
        )
        return html5lib.parse(body.decode(), namespaceHTMLElements=False)

    def expect(self, text, sent):
        page = self.page(sent)
        shown = re.sub(r"[\0-\x08\x0b\x0c\x0e-\x1f\x7f-\x9f]", "\ufffd", text)
        self.assertEqual(
            [element.tag for element in page.iter()],
            [
                "html",
                "head",
                "title",
                "body",
                "p",
                "b",
                "pre",
                "textarea",
                "input",
                "i",
                "u",
                "a",
                "script",
            ],
        )
        for name in ["title", "p", "b", "pre", "textarea"]:
            element = page.find(f".//{name}")
            self.assertEqual((element.text, element.attrib, element.tail), (shown, {}, None), name)
        attributes = {name: page.find(f".//{name}").attrib for name in ["body", "input", "u"]}
        self.assertEqual(
            attributes,
            {
                "body": {"class": shown},
                "input": {"value": shown},
                "u": {"title": shown},
            },
        )
        self.assertEqual(json.loads(page.find(".//script").text), text)
        self.assertEqual(json.loads(page.find(".//i").attrib["title"]), text)
        self.assertEqual(unquote_to_bytes(page.find(".//a").text[1:]), os.fsencode(sent))

    def test_hostile_text_stays_in_place_and_adds_nothing(self):
        for text in TEXTS:
            with self.subTest(text):
                self.expect(text, text)

    def test_invalid_utf_8_is_replaced(self):
        self.expect("caf\ufffd \ufffd<b>", b"caf\xe9 \xff<b>")


if __name__ == "__main__":
    unittest.main()
