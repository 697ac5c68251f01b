"""Serves the responses that the C++ tests write to Chromium. What it makes of them, status, headers
and elements, has to be what they mean.

In the environment: CPP_TESTS, the test program.
"""

import http.server
import tempfile
import threading
import unittest
import urllib.parse

import chromium
import html5lib
from selenium import webdriver

from read_back_test import answers

# Reads each path in turn, the pages among them as documents. A script of another site would be told
# less than this page, which the same server sends.
READ = """
const [requests, done] = arguments;
const hex = bytes => Array.from(bytes, byte => byte.toString(16).padStart(2, '0')).join('');
const tree = node => node.nodeType === Node.TEXT_NODE ? node.data
  : node.nodeType === Node.COMMENT_NODE ? ['!', node.data]
  : [node.localName, Array.from(node.attributes, one => [one.name, one.value]).sort(),
     Array.from(node.childNodes, tree)];
const page = path => new Promise((loaded, failed) => {
  const request = new XMLHttpRequest();
  request.open('GET', path);
  request.responseType = 'document';
  request.onload = () => loaded([request.response.characterSet, request.response.doctype !== null,
                                 tree(request.response.documentElement)]);
  request.onerror = failed;
  request.send();
});
const read = async ({method, path, isRedirect, isPage}) => {
  const answer = await fetch(path, {method, redirect: isRedirect ? 'manual' : 'error',
                                    cache: 'no-store', credentials: 'omit'});
  return {
    type: answer.type,
    status: answer.status,
    headers: [...answer.headers],
    body: hex(new Uint8Array(await answer.arrayBuffer())),
    page: isPage ? await page(path) : null,
  };
};
(async () => {
  const all = [];
  for (const request of requests) {
    all.push(await read(request).catch(problem => `${request.path}: ${problem}`));
  }
  return all;
})().then(done);
"""
# What fetch() keeps from scripts.
HIDDEN = {"set-cookie"}
REDIRECTS = (301, 302, 303, 307, 308)


class Answer:
    """A response, as a web server passes it on."""

    def __init__(self, written: bytes) -> None:
        head, _, self.body = written.partition(b"\r\n\r\n")
        lines = [line.decode("latin-1").partition(": ") for line in head.split(b"\r\n")]
        self.headers = [(name.lower(), value) for name, _, value in lines]
        self.status = int(dict(self.headers).get("status", "200")[:3])
        reason = dict(self.headers).get("status", "200 OK")
        self.headers = [pair for pair in self.headers if pair[0] != "status"]
        # A response to HEAD has the length of the body that it leaves out.
        length = int(dict(self.headers).get("content-length", "0"))
        self.method = "HEAD" if not self.body and length > 0 else "GET"
        sent = [f"HTTP/1.1 {reason}".encode()]
        sent += [line for line in head.split(b"\r\n") if not line.lower().startswith(b"status:")]
        self.sent = b"\r\n".join(sent) + b"\r\nConnection: close\r\n\r\n" + self.body

    def is_redirect(self) -> bool:
        return self.status in REDIRECTS and "location" in dict(self.headers)

    def is_page(self) -> bool:
        is_html = dict(self.headers).get("content-type", "").startswith("text/html")
        return self.body != b"" and is_html and not self.is_redirect()

    def seen_headers(self) -> list[list[str]]:
        """Those of one name are joined; the order of names has no meaning."""
        joined: dict[str, str] = {"connection": "close"}
        for name, value in self.headers:
            if name not in HIDDEN:
                joined[name] = f"{joined[name]}, {value}" if name in joined else value
        return sorted([name, value] for name, value in joined.items())


class Site:
    """Sends each answer under its number. Notes other paths: redirects lead there."""

    def __init__(self, sent: list[Answer]) -> None:
        site = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self) -> None:
                name = self.path.rpartition("/")[2]
                if self.path.startswith("/answers/"):
                    self.wfile.write(sent[int(name)].sent)
                else:
                    site.visited.append(self.path)
                    self.send_response(200)
                    self.send_header("Content-Type", "text/html; charset=utf-8")
                    self.end_headers()
                    self.wfile.write(b"<!DOCTYPE html><title>Tests</title>")
                self.close_connection = True

            do_HEAD = do_GET

            def log_message(self, *_: object) -> None:
                pass

        self.visited: list[str] = []
        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.address = f"http://127.0.0.1:{self.server.server_address[1]}"
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def close(self) -> None:
        self.server.shutdown()
        self.server.server_close()


def tree(node: object) -> object:
    """An element of html5lib, as the script above describes one of Chromium."""
    if node.nodeType == node.TEXT_NODE:  # type: ignore[attr-defined]
        return node.data  # type: ignore[attr-defined]
    if node.nodeType == node.COMMENT_NODE:  # type: ignore[attr-defined]
        return ["!", node.data]  # type: ignore[attr-defined]
    attributes = sorted([name, value] for name, value in node.attributes.items())  # type: ignore
    node.normalize()  # type: ignore[attr-defined]  # joins the pieces of a text
    return [node.localName, attributes, [tree(child) for child in node.childNodes]]  # type: ignore


def expected_tree(body: bytes) -> object:
    parser = html5lib.HTMLParser(html5lib.getTreeBuilder("dom"))
    return tree(parser.parse(body.decode()).documentElement)


class Answers(unittest.TestCase):
    answers: list[Answer]
    site: Site
    browser: webdriver.Chrome

    @classmethod
    def setUpClass(cls) -> None:
        cls.answers = [Answer(written) for written in sorted(set(answers())) if written]
        cls.site = Site(cls.answers)
        cls.addClassCleanup(cls.site.close)
        home = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        cls.addClassCleanup(home.cleanup)
        cls.browser = chromium.start(home.name)
        cls.addClassCleanup(cls.browser.quit)
        cls.browser.set_script_timeout(240)

    def read(self) -> list[dict[str, object] | str]:
        requests = [
            {
                "method": answer.method,
                "path": f"/answers/{number}",
                "isRedirect": answer.is_redirect(),
                "isPage": answer.is_page(),
            }
            for number, answer in enumerate(self.answers)
        ]
        self.browser.get(f"{self.site.address}/")
        read: list[dict[str, object] | str] = self.browser.execute_async_script(READ, requests)
        return read

    def check(self, answer: Answer, read: dict[str, object]) -> str:
        """Returns what kind of answer it is."""
        if answer.is_redirect():
            self.assertEqual("opaqueredirect", read["type"])
            return "redirect"
        self.assertEqual("basic", read["type"])
        self.assertEqual(answer.status, read["status"])
        self.assertEqual(answer.seen_headers(), read["headers"])
        self.assertEqual(answer.body.hex(), read["body"])
        if not answer.is_page():
            return "other"
        page = read["page"]
        assert isinstance(page, list)
        self.assertEqual("UTF-8", page[0])
        self.assertEqual(answer.body.startswith(b"<!DOCTYPE html>"), page[1])
        self.assertEqual(expected_tree(answer.body), page[2])
        return "page"

    def test_chromium_reads_what_was_meant(self) -> None:
        kinds = []
        for answer, read in zip(self.answers, self.read(), strict=True):
            with self.subTest(answer.sent[:300]):
                assert isinstance(read, dict), read
                kinds.append(self.check(answer, read))
        self.assertGreater(kinds.count("other"), 50)
        self.assertGreater(kinds.count("page"), 5)
        self.assertGreater(kinds.count("redirect"), 5)

    def test_chromium_follows_redirects_of_the_site(self) -> None:
        targets = []
        for number, answer in enumerate(self.answers):
            target = dict(answer.headers).get("location", "")
            if not answer.is_redirect() or not target.startswith("/"):
                continue
            with self.subTest(target):
                self.site.visited.clear()
                self.browser.get(f"{self.site.address}/answers/{number}")
                # Browsers remove "." from a path, and http.server joins slashes at its beginning.
                shown = target.replace("/./", "/")
                asked = "/" + urllib.parse.urldefrag(shown).url.lstrip("/")
                self.assertIn(asked, self.site.visited)
                self.assertEqual(self.site.address + shown, self.browser.current_url)
                targets.append(target)
        self.assertGreater(len(targets), 3)


if __name__ == "__main__":
    unittest.main()
