#!/usr/bin/env python3
"""The help, the manual page and the completion of a tool list the same options."""

import fnmatch
import os
import re
import subprocess
import unittest
from pathlib import Path

from tool import TOOLS, ToolTest

PAGES = [TOOLS / f"tarn-{name}.1" for name in ("run", "record", "form", "serve")]
SOURCE = Path(__file__).parents[2]


def output_of(*command, **options):
    return subprocess.run(command, capture_output=True, text=True, check=True, **options).stdout


def options(help):
    return set(re.findall(r"(?<![\w-])--?[a-zA-Z][a-z-]*", help))


class Pages(ToolTest):
    def test_help_fits_a_terminal(self):
        for tool in ("tarn-run", "tarn-form", "tarn-serve"):
            help = output_of(TOOLS / tool, "--help", env={"COLUMNS": "300"})
            self.assertEqual([line for line in help.splitlines() if len(line) > 80], [])
            self.assertEqual(output_of(TOOLS / tool, "-h"), help)

    def test_version_matches_the_library(self):
        version = os.environ["VERSION"]
        for tool in ("tarn-run", "tarn-form", "tarn-serve"):
            for option in ("-V", "--version"):
                self.assertEqual(output_of(TOOLS / tool, option), f"{tool} {version}\n")
        for page in PAGES:
            self.assertIn(f"\n.Os Tarn {version}\n", page.read_text())
        self.assertIn(f"\ntarn-run/{version}\n", PAGES[0].read_text())

    def test_mandoc_reports_nothing(self):
        for page in PAGES:
            lint = subprocess.run(
                [os.environ["MANDOC"], "-Tlint", "-Wstyle", page],
                capture_output=True,
                text=True,
                check=False,
            ).stdout
            self.assertEqual(
                [line for line in lint.splitlines() if "referenced manual not found" not in line],
                [],
            )

    def test_manual_page_has_every_option_of_the_help_and_others_of_curl(self):
        told = self.options_of_page(PAGES[0])
        self.assertEqual(self.documented_options() - told, set())
        self.assertEqual(told - self.documented_options() - self.options_of_curl(), set())

    def test_manual_page_and_completion_of_tarn_form_have_every_option_of_its_help(self):
        found = {"--no-data", "--save", "-h", "--help", "-V", "--version"}
        self.assertEqual(self.documented_options("tarn-form"), found)
        self.assertEqual(self.options_of_page(PAGES[2]), found)
        self.assertEqual(set(self.completions("", tool="tarn-form")), found)
        self.assertEqual(self.completions("--s", tool="tarn-form"), ["--save"])
        (self.folder / "elsewhere").mkdir()
        before = str(self.folder / "else")
        self.assertEqual(self.completions("--save", before, tool="tarn-form"), [before + "where"])

    def test_manual_page_of_tarn_form_has_every_code_and_every_member(self):
        page = PAGES[2].read_text()
        told = re.findall(r"^\.It Li (\w+)$", page, re.MULTILINE)
        header = (SOURCE / "include/tarn_form.h").read_text()
        codes = re.findall(r'^#define TARN_FORM_\w+ \d+u .*\("(\w+)"', header, re.MULTILINE)
        self.assertGreater(len(codes), 10)
        members = ["name", "filename", "content_type", "size", "data", "saved"]
        self.assertEqual(told, [*members, *sorted(codes)])

    def test_manual_page_and_completion_of_tarn_serve_have_every_option_of_its_help(self):
        found = self.documented_options("tarn-serve")
        self.assertGreater(len(found), 18)
        self.assertEqual(self.options_of_page(PAGES[3]), found)
        self.assertEqual(set(self.completions("", tool="tarn-serve")), found)
        self.assertEqual(self.completions("--q", tool="tarn-serve"), ["--queue"])
        self.assertEqual(self.completions("--listen", "u", tool="tarn-serve"), ["unix:"])
        self.assertEqual(self.completions("--status", "t", tool="tarn-serve"), ["tcp:"])
        self.assertEqual(self.completions("--access-log-format", "j", tool="tarn-serve"), ["json"])
        self.assertEqual(self.completions("--queue", "", tool="tarn-serve"), [])
        self.assertIn("true", self.completions("--queue", "8", "--", "tru", tool="tarn-serve"))
        self.assertIn("true", self.completions("--confine", "tru", tool="tarn-serve"))
        before = str(self.folder)[:-1]
        self.assertIn(str(self.folder), self.completions("--read", before, tool="tarn-serve"))
        self.assertIn(str(self.folder), self.completions("true", before, tool="tarn-serve"))

    def test_help_of_tarn_serve_has_every_option_that_the_library_accepts(self):
        # Ask the program about every word of the source that could be an option.
        sources = "".join(path.read_text() for path in (SOURCE / "serve").glob("*.cpp"))
        words = set(re.findall(r'"([a-z]+(?:-[a-z]+)*)"', sources))
        accepted = set()
        for word in sorted(words):
            ran = subprocess.run(
                [TOOLS / "tarn-serve", f"--{word}="], capture_output=True, text=True, check=False
            )
            self.assertEqual((ran.returncode, ran.stdout), (2, ""), word)
            if "is not an option" not in ran.stderr:
                accepted.add(f"--{word}")
        others = {"-h", "--help", "-V", "--version"}
        self.assertEqual(accepted, self.documented_options("tarn-serve") - others)

    def test_help_and_manual_page_of_tarn_serve_have_the_same_defaults(self):
        help = output_of(TOOLS / "tarn-serve", "--help")
        told = dict(re.findall(r"^  --(\S+) .*(?:\n {20}.*)*?\(([^)\n]*)\)$", help, re.MULTILINE))
        self.assertGreater(len(told), 14)
        items = re.split(r"(?m)^\.It Fl ", PAGES[3].read_text())
        items = {re.match(r"-(\S+)", item)[1]: item for item in items if item[0] == "-"}
        found = {}
        for name, item in items.items():
            if default := re.search(r"(?m)^Default: (.*)\.$", item):
                found[name] = default[1]
        self.assertEqual(found, told)

    def test_manual_page_of_tarn_serve_has_every_message_of_the_log(self):
        others = {"failure.cpp", "listener.cpp", "program.cpp"}  # their texts are parts of messages
        found = set()
        for path in (SOURCE / "serve").glob("*.cpp"):
            names = "log" if path.name in others else "log|refuse|fail|snprintf"
            calls = rf'\b(?:{names})\([^"();]*"([^"]*)"'
            for text in re.findall(calls, path.read_text()):
                text = re.sub(r"%\w+", "%", text)
                if re.search(r"[a-z] [a-z]|% [a-z]|^%: %|'%'", text):
                    found.add(text)
        self.assertGreater(len(found), 30)
        part = re.search(r"(?s)\.Sh DIAGNOSTICS\n(.*?)\n\.Sh", PAGES[3].read_text())[1]
        items = re.findall(r"(?m)^\.It (.*)$", part)
        told = [re.sub(r"\b[A-Z]+\b", "%", item) for item in items]
        self.assertEqual(sorted(told), sorted(found))

    @staticmethod
    def options_of_page(page):
        told = re.findall(r"^\.It (Fl .*)", page.read_text(), re.MULTILINE)
        return {"-" + name for line in told for name in re.findall(r"Fl (\S+)", line)}

    def test_completion_offers_all_supported_options(self):
        page = PAGES[0].read_text()
        refused = re.search(r"named after the script:\n(.*?)\nwhere\n", page, re.DOTALL)[1]
        patterns = {"-" + name for name in re.findall(r"^\.Fl (\S+)", refused, re.MULTILINE)}
        self.assertEqual(len(patterns), 23)
        found = {name: fnmatch.filter(self.options_of_curl(), name) for name in patterns}
        self.assertEqual([name for name, options in found.items() if not options], [])
        refused = {option for options in found.values() for option in options}
        for option in refused:
            self.assertIn(f"{option} is not supported", self.refusal_message(option, "a", "dump"))
        letters = {"-K", "-L", "-:", "-Z", "-O", "-x", "-U", "-p"}
        self.assertEqual(
            set(self.completions("-")),
            self.documented_options() | self.options_of_curl() - refused - letters,
        )

    @staticmethod
    def options_of_curl():
        help = output_of(os.environ["CURL"], "--help", "all")
        found = {
            name
            for line in re.findall(r"^ +(-.*)", help, re.MULTILINE)
            for name in re.match(r"(-\S)?(?:, )?(--[\w.-]+)", line).groups()
            if name
        }
        assert len(found) > 200
        return found

    def documented_options(self, tool="tarn-run"):
        help = output_of(TOOLS / tool, "--help")
        found = {
            name
            for line in re.findall(r"^  (-.*?)(?:   |$)", help, re.MULTILINE)
            for name in options(line)
        }
        self.assertGreater(len(found), 4 if tool == "tarn-form" else 18)
        return found

    def test_manual_page_names_every_variable_a_script_receives(self):
        self.write_file("upload", "a")
        given = self.request_received(
            "-F",
            "f=@upload",
            "-b",
            "a=b",
            "--https",
            "--path-info",
            "/a",
            env={**os.environ, "LD_LIBRARY_PATH": "/a"},
        )
        page = PAGES[0].read_text()
        for name in given.environment:
            told = re.search(rf"^\.(It )?Ev {name.decode()}( \.)?$", page, re.MULTILINE)
            self.assertTrue(told, name)

    def test_example_commands_run(self):
        self.write_file("dawn.jpg", "a")
        for name in ("upload", "greet"):
            self.write_script(name, "#!/bin/sh\nprintf 'Content-Type: text/plain\\n\\n'\n")
        examples = re.search(r"\.Sh EXAMPLES\n(.*?)\n\.Sh", PAGES[0].read_text(), re.DOTALL)[1]
        commands = re.findall(r"^tarn-run .*", examples, re.MULTILINE)
        self.assertEqual(len(commands), 8)
        for command in commands:
            if "--exec" not in command and "--show" not in command:
                shown = output_of(
                    "sh", "-ec", command, cwd=self.folder, env={"PATH": f"{TOOLS}:/usr/bin:/bin"}
                )
                self.assertTrue(
                    "--body" in command or shown.startswith("HTTP/1.1 200 OK\n"), command
                )

    def test_example_commands_of_tarn_form_run(self):
        self.write_file("dawn.jpg", "bytes")
        examples = re.search(r"\.Sh EXAMPLES\n(.*?)\n\.Sh", PAGES[2].read_text(), re.DOTALL)[1]
        blocks = re.findall(r"^\.Bd .*\n((?:.*\n)*?)\.Ed", examples, re.MULTILINE)
        shown = [
            output_of("sh", "-ec", block, cwd=self.folder, env={"PATH": f"{TOOLS}:/usr/bin:/bin"})
            for block in blocks
            if not block.startswith("#!")
        ]
        self.assertEqual((len(blocks), len(shown)), (4, 3))
        for output in shown:
            self.assertTrue(output.endswith('{"end": true}\n'), output)
        self.assertEqual((self.folder / "received/dawn.jpg").read_text(), "bytes")

    def completions(self, *words, tool="tarn-run"):
        """What bash suggests after these words of a command line."""
        function = "_" + tool.replace("-", "_")
        source = f'. {TOOLS}/completions/{tool}; complete -p {tool} >&2; COMP_WORDS=({tool} "$@")\n'
        source += f'COMP_CWORD=$#; {function}; printf "%s\\n" "${{COMPREPLY[@]}}"'
        ran = subprocess.run(
            ["bash", "-c", source, "bash", *words], capture_output=True, text=True, check=False
        )
        default = "-o default " if tool == "tarn-run" else ""
        self.assertRegex(ran.stderr, rf"^complete .*{default}-F {function} {tool}\n$")
        return ran.stdout.split()

    def test_completion_finishes_partial_words(self):
        self.assertEqual(
            self.completions("--data"),
            ["--data", "--data-ascii", "--data-binary", "--data-raw", "--data-urlencode"],
        )
        self.assertEqual(self.completions("-d", "a", "--rec"), ["--record"])
        self.assertEqual(self.completions("-X", "P"), ["PATCH", "POST", "PUT"])
        self.assertEqual(self.completions("--exec", "g"), ["gdb"])
        self.assertEqual(self.completions("--chdir", str(self.dump)[:-1]), [])
        self.assertIn(str(self.folder), self.completions("--chdir", str(self.folder)[:-1]))

    def test_completion_falls_back_to_file_names(self):
        for words in (["a"], [""], ["-d", "-"], ["-F", "a", "=", "@", ""], ["--record", ""]):
            self.assertEqual(self.completions(*words), [])


if __name__ == "__main__":
    unittest.main()
