"""Serves the examples until it is stopped, with an index: serve.py SERVER FOLDER [PORT].

The folder is that of the built examples. Tells the address on standard output.
"""

import ast
import html
import os
import re
import signal
import socket
import sys

from server import ROOT, SERVERS

INDEX = """<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>Tarn's examples</title>
<style>
{style}</style>
</head>
<body>
<main>
<h1>Tarn's examples</h1>
<p>Each is a CGI script in one file, in the folder examples.</p>
{items}</main>
</body>
</html>
"""


def style():
    """The style sheet of the examples, as page.h gives it to them."""
    with open(os.path.join(ROOT, "examples/page.h"), encoding="utf-8") as header:
        macro = re.search(r"^#define PAGE_STYLE\b(?:.*\\\n)+.*\n", header.read(), re.MULTILINE)[0]
    return "".join(ast.literal_eval(text) for text in re.findall(r'"(?:[^"\\]|\\.)*"', macro))


def sources():
    """The text of each example by its name."""
    folder = os.path.join(ROOT, "examples")
    found = {}
    for file in sorted(os.listdir(folder)):
        name, ending = os.path.splitext(file)
        if ending in (".c", ".cpp"):
            with open(os.path.join(folder, file), encoding="utf-8") as source:
                found[name] = source.read()
    return found


def item(name, source):
    """What an example does stands in its first comment, after its name."""
    about = re.match(rf"/\* {name}: (.*?)[.;:]\s", source, re.DOTALL)[1]
    about = html.escape(re.sub(r"\s*\n \* ", " ", about))
    about = about[0].upper() + about[1:]
    return f'<article><h2><a href="cgi-bin/{name}">{name}</a></h2><p>{about}.</p></article>\n'


def index(examples):
    """The list of the examples, a page."""
    items = "".join(item(*example) for example in examples.items())
    return INDEX.format(style=style(), items=items)


def check_port(port):
    """Ends with one line when nobody can listen there."""
    try:
        socket.create_server(("127.0.0.1", port)).close()
    except OSError as error:
        sys.exit(f"port {port}: {os.strerror(error.errno)}")


def main(server, folder, port="0"):
    check_port(int(port))
    examples = sources()
    settings = re.findall(r"\bTARN_[A-Z]+_(?:DIR|FILE)\b", "".join(examples.values()))
    variables = {name: f"data/{name.lower()}" for name in settings}
    scripts = {name: os.path.join(folder, name) for name in examples}
    with SERVERS[server](scripts, variables, port=int(port)) as running:
        running.make_folder("data")
        for name in variables:
            if name.endswith("_DIR"):
                running.make_folder(variables[name])
        with open(running.path("www/index.html"), "w", encoding="utf-8") as page:
            page.write(index(examples))
        print(running.address().removesuffix("/cgi-bin"), flush=True)
        signal.pause()


def stop(*_):
    sys.exit(0)


if __name__ == "__main__":
    signal.signal(signal.SIGINT, stop)
    signal.signal(signal.SIGTERM, stop)
    main(*sys.argv[1:])
