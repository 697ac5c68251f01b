#!/usr/bin/env python3
"""guide.py finds the faults of a guide."""

import os
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

RUNNER = Path(__file__).with_name("guide.py")


class Guide(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def run_guide(self, *lines, name="guide.md", options=()):
        guide = self.folder / name
        guide.write_text("".join(line + "\n" for line in lines), encoding="utf-8")
        ran = subprocess.run(
            [sys.executable, "-B", RUNNER, *options, os.environ["INSTALLED"], guide],
            capture_output=True,
            text=True,
        )
        self.output = ran.stdout
        self.message = ran.stderr.strip().removeprefix(str(self.folder) + "/")
        return ran.returncode

    def passes(self, *lines):
        self.assertEqual(self.run_guide(*lines), 0, self.message)

    def fails(self, message, *lines, **options):
        self.assertEqual(self.run_guide(*lines, **options), 1)
        self.assertEqual(self.message, message)

    def test_commands_share_one_shell_and_folder_with_the_files_of_the_page(self):
        self.passes(
            "# A guide",
            "```text words",
            "one",
            "```",
            "```console",
            "$ ls",
            "words",
            "$ mkdir inside && cd inside && word=two",
            "```",
            "```",
            "$ false",
            "```",
            "```console",
            "$ cat ../words -; echo $word \\",
            ">   three",
            "one",
            "two three",
            "```",
        )

    def test_a_later_file_replaces_one_of_the_same_name(self):
        self.passes(
            *("```text words", "one", "```", "```console", "$ cat words", "one", "```"),
            *("```text words", "two", "```", "```console", "$ cat words", "two", "```"),
        )

    def test_ellipsis_matches_any_text_or_lines(self):
        self.passes(
            "```console",
            "$ seq 100 120",
            "…",
            "10…",
            "1…6",
            "…",
            "117",
            "…",
            "120",
            "…",
            "$ printf 'no end'",
            "no end",
            "```",
        )

    def test_ellipsis_within_a_line_does_not_match_a_newline(self):
        self.fails(
            "guide.md:2: the output is different", "```console", "$ printf 'a\\nb\\n'", "a…b", "```"
        )

    def test_different_output_is_shown_as_a_diff_of_the_page(self):
        self.fails(
            "guide.md:3: the output is different",
            *("One", "```console", "$ echo one; echo two >&2", "one", "three", "$ true", "```"),
        )
        self.assertIn("@@ -2,6 +2,6 @@\n", self.output)
        self.assertIn(" one\n-three\n+two\n $ true\n", self.output)

    def test_unexpected_output_is_a_difference(self):
        self.fails("guide.md:2: the output is different", "```console", "$ echo one", "```")

    def test_missing_output_is_a_difference(self):
        self.fails("guide.md:2: the output is different", "```console", "$ true", "one", "```")

    def test_a_command_that_fails_ends_the_guide(self):
        self.fails(
            "guide.md:3: ended with status 3",
            *("```console", "$ true", "$ (exit 3)", "$ echo more", "more", "```"),
        )

    def test_only_files_printed_by_the_page_exist(self):
        self.fails("guide.md:2: ended with status 1", "```console", "$ cat words", "```")
        self.assertIn("cat: words: No such file or directory", self.output)

    def test_a_command_that_ends_the_shell_fails(self):
        self.fails(
            "guide.md:3: ended the shell, or timed out",
            *("```console", "$ true", "$ exit 0", "$ echo more", "more", "```"),
        )

    def test_leftover_process_is_killed_and_fails(self):
        process = self.folder / "process"
        self.fails(
            "guide.md:3: still running: sleep",
            *("```console", f"$ sleep 1234 & echo $! >{process}", "```"),
            options=["--patience", "1"],
        )
        self.assertFalse(Path("/proc", process.read_text().strip()).exists())

    def test_a_broken_link_fails(self):
        (self.folder / "other.md").touch()
        self.passes("[other](other.md), [part](other.md#part), [far](https://example.org/)")
        self.passes("```", "[code](here)", "```")
        self.fails("guide.md:2: more.md does not exist", "", "[more](more.md)")

    def test_a_missing_manual_page_fails(self):
        self.passes("`Tarn_new(3)`")
        self.fails("guide.md:1: Tarn_old(3) is not a manual page", "`Tarn_old(3)`")

    def test_index_that_omits_a_guide_fails(self):
        (self.folder / "first.md").touch()
        (self.folder / "second.md").touch()
        self.fails(
            "README.md:1: the index has no link to second.md", "[one](first.md)", name="README.md"
        )

    def test_malformed_block_fails(self):
        self.fails("guide.md:2: this block does not end", "", "```console", "$ true")
        self.fails("guide.md:2: a fence must start at the margin", "-", "  ```", "  ```")
        self.fails('guide.md:2: a block of commands begins with "$ "', "```console", "true", "```")

    def test_printed_file_must_match_the_one_in_its_folder(self):
        (self.folder / "files").mkdir()
        (self.folder / "files/one.conf").write_text("first\nsecond\n")
        (self.folder / "files/two.sh").write_text("echo two\n")
        (self.folder / "files/program.py").touch()
        page = [
            *("<!-- files: files -->", "```text one.conf", "first", "second", "```"),
            *("```sh two.sh", "echo 2", "echo 2", "```", "```text other", "one", "```"),
            *("```console", "$ sh two.sh", "two", "```"),
        ]
        self.fails(
            "guide.md:6: the file is different; --update copies it to the page",
            *page,
            options=["--files-only"],
        )
        self.assertIn("-echo 2\n-echo 2\n+echo two\n", self.output)
        self.assertEqual(self.run_guide(*page, options=["--update"]), 0, self.message)
        page[6:8] = ["echo two"]
        self.assertEqual((self.folder / "guide.md").read_text().splitlines(), page)
        self.passes(*page)
        self.assertEqual(self.run_guide(*page, options=["--files-only"]), 0)

    def test_page_that_omits_a_file_of_its_folder_fails(self):
        (self.folder / "files").mkdir()
        self.fails(
            f"guide.md:1: {self.folder}/files has no configurations", "<!-- files: files -->"
        )
        (self.folder / "files/one.conf").touch()
        self.fails("guide.md:1: the page does not print one.conf", "<!-- files: files -->")
        self.fails("guide.md:1: nowhere is not a folder", "<!-- files: nowhere -->")
        self.fails(
            "guide.md:1: the page does not say which files it prints",
            "A page.",
            options=["--files-only"],
        )

    def test_update_writes_the_actual_output(self):
        page = ["```console", "$ echo one", "two", "$ seq 9", "1", "…", "```"]
        self.assertEqual(self.run_guide(*page, options=["--update"]), 0)
        page[2] = "one"
        self.assertEqual((self.folder / "guide.md").read_text().splitlines(), page)


if __name__ == "__main__":
    unittest.main()
