"""page.py refuses pages that are invalid or inaccessible."""

import unittest

from page import Page

GOOD = """<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width">
<title>Good</title>
</head>
<body>
<main>
<h1>Good</h1>
<form method="post">
<p><label>Name <input name="name"></label></p>
<p><label for="age">Age</label>
<input id="age" name="age" aria-invalid="true" aria-describedby="wrong">
<strong id="wrong">No number.</strong></p>
</form>
<svg role="img" aria-label="A bar"><rect width="1" height="1"/></svg>
</main>
</body>
</html>
"""

WRONG = {
    "no doctype": ("<!DOCTYPE html>\n", ""),
    "no language": (' lang="en"', ""),
    "no title": ("<title>Good</title>\n", ""),
    "empty title": ("<title>Good</title>", "<title> </title>"),
    "no viewport": ('<meta name="viewport" content="width=device-width">\n', ""),
    "no main": ("<main>", "<div>", "</main>", "</div>"),
    "no heading": ("<h1>Good</h1>\n", ""),
    "two headings": ("<h1>Good</h1>", "<h1>Good</h1><h1>Good</h1>"),
    "control without a label": ('<label>Name <input name="name"></label>', '<input name="name">'),
    "label for another control": ('for="age"', 'for="wrong"'),
    "description that is not there": ('aria-describedby="wrong"', 'aria-describedby="right"'),
    "chart without words": (' aria-label="A bar"', ""),
    "element not closed": ("</strong>", ""),
    "elements crossed": ("</strong></p>", "</p></strong>"),
    "element that does not exist": ("<strong id", "<loud id", "</strong>", "</loud>"),
    "attribute that does not exist": ("<form", '<form colour="red"'),
    "attribute twice": ('name="name"', 'name="name" name="name"'),
    "identifier twice": ("<h1>", '<h1 id="age">'),
    "block within a line": ("No number.", "<p>No number.</p>"),
    "cell without a table": ("No number.", "<td>No number.</td>"),
    "sign that is not escaped": ("No number.", "a < b"),
    "reference that does not exist": ("No number.", "&nosuch;"),
    "control character": ("No number.", "&#1;"),
    "control character beside a carriage return": ("No number.", "&#13;&#1;"),
    "comment": ("No number.", "<!-- no number -->"),
}


class Pages(unittest.TestCase):
    def test_good_page_is_parsed(self):
        page = Page(GOOD.encode())
        self.assertEqual(["Good"], page.texts("h1"))
        self.assertEqual(["No number."], page.described("age"))
        self.assertIsNone(page.described("name"))

    def test_carriage_return_is_kept(self):
        page = Page(GOOD.replace("No number.", "No&#13;\nnumber.").encode())
        self.assertEqual(["No\r\nnumber."], page.described("age"))

    def test_bad_pages_are_refused(self):
        for name, changes in WRONG.items():
            text = GOOD
            for old, new in zip(changes[::2], changes[1::2]):
                self.assertIn(old, text)
                text = text.replace(old, new)
            with self.subTest(name), self.assertRaises((AssertionError, KeyError, ValueError)):
                Page(text.encode())


if __name__ == "__main__":
    unittest.main()
