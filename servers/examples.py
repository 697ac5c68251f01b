"""Serves the examples, with an index, until stopped.

Usage, from the root of the source: python3 -m servers.examples SERVER FOLDER [PORT]

FOLDER has the built examples. Prints the address.
"""

import ast
import html
import os
import re
import signal
import socket
import sys
from pathlib import Path

from servers import SERVERS, todo

EXAMPLES = Path(__file__).resolve().parents[1] / "examples"
USER, PASSWORD = "Ada", "Lovelace 1843"

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
<p>Each is a script in one file, in the folder examples. It runs under CGI and FastCGI.</p>
{items}</main>
</body>
</html>
"""


def style() -> str:
    """The style sheet of the examples, as page.h defines it."""
    header = (EXAMPLES / "page.h").read_text(encoding="utf-8")
    macro = re.search(r"^#define PAGE_STYLE\b(?:.*\\\n)+.*\n", header, re.MULTILINE)
    assert macro, "examples/page.h does not define PAGE_STYLE"
    return "".join(ast.literal_eval(text) for text in re.findall(r'"(?:[^"\\]|\\.)*"', macro[0]))


def sources(folder: str) -> dict[str, str]:
    """The text of each example in a folder by its name. Without libsodium, todo is not built."""
    files = sorted(path for path in EXAMPLES.iterdir() if path.suffix in (".c", ".cpp"))
    built = [path for path in files if path.stem != "todo" or Path(folder, "todo").exists()]
    return {path.stem: path.read_text(encoding="utf-8") for path in built}


def item(name: str, source: str) -> str:
    """A link to an example, with the text after the name in its first comment."""
    comment = re.match(rf"/\* {name}: (.*?)[.;:]\s", source, re.DOTALL)
    assert comment, f"{name} does not begin with a comment about it"
    about = html.escape(re.sub(r"\s*\n \* ", " ", comment[1]))
    about = about[0].upper() + about[1:]
    return f'<article><h2><a href="cgi-bin/{name}">{name}</a></h2><p>{about}.</p></article>\n'


def index(examples: dict[str, str]) -> str:
    """The page that lists the examples."""
    items = "".join(item(*example) for example in examples.items())
    return INDEX.format(style=style(), items=items)


def check_port(port: int) -> None:
    """Exits with a message of one line if the port cannot be opened."""
    try:
        socket.create_server(("127.0.0.1", port)).close()
    except OSError as error:
        sys.exit(f"port {port}: {os.strerror(error.errno or 0)}")


def serve(server: str, folder: str, port: int = 0) -> None:
    """Serves the examples in a folder with the server of this name."""
    check_port(port)
    examples = sources(folder)
    settings = re.findall(r"\bTARN_[A-Z]+_(?:DIR|FILE)\b", "".join(examples.values()))
    variables = {name: f"data/{name.lower()}" for name in settings}
    scripts = {name: os.path.join(folder, name) for name in examples}
    with SERVERS[server](scripts, variables, port=port) as running:
        running.make_folder("data")
        for name, path in variables.items():
            if name.endswith("_DIR"):
                running.make_folder(path)
        if "todo" in examples:
            lists = Path(running.path(variables["TARN_TODO_DIR"]))
            todo.make_lists(lists, running.folder, [USER], PASSWORD)
        Path(running.path("www/index.html")).write_text(index(examples), encoding="utf-8")
        print(running.address().removesuffix("/cgi-bin"), flush=True)
        signal.pause()


def stop(*_: object) -> None:
    """Ends the program, and with it the server."""
    sys.exit(0)


if __name__ == "__main__":
    signal.signal(signal.SIGINT, stop)
    signal.signal(signal.SIGTERM, stop)
    serve(sys.argv[1], sys.argv[2], int(sys.argv[3]) if len(sys.argv) > 3 else 0)
