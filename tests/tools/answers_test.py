#!/usr/bin/env python3
"""What tarn-run shows of a script's output, and which faults it reports."""

import os
import signal
import subprocess
import unittest

from tool import TOOLS, ToolTest, is_running

TYPE = b"Content-Type: text/plain\n"


class AnswerTest(ToolTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.printing = cls.write_script("printing", "#!/bin/sh\ncat output\n")

    def answer_and_complaints(self, output, *options):
        """What tarn-run shows, and what it reports, for a script that prints `output`."""
        self.write_file("output", output)
        ran = self.run_tool(*options, self.printing)
        self.assertEqual(ran.status, 0)
        for line in ran.errors:
            self.assertTrue(line.startswith("tarn-run: "), line)
        return ran.output, [line.removeprefix("tarn-run: ") for line in ran.errors]

    def expect_shown(self, shown, output, *options):
        self.assertEqual(self.answer_and_complaints(output, *options), (shown, []))

    def expect_complaint(self, complaint, output, *options):
        """Expects a complaint about a response that is still shown."""
        shown, complaints = self.answer_and_complaints(output, *options)
        self.assertNotIn(b"HTTP/1.1 500", shown)
        self.assertEqual(complaints, [complaint])

    def expect_unusable(self, complaint, output):
        self.assertEqual(
            self.answer_and_complaints(output),
            (
                b"HTTP/1.1 500 Internal Server Error\n\n" + output,
                [complaint + "; a server would answer 500"],
            ),
        )


class Answer(AnswerTest):
    def test_status_defaults_to_200(self):
        self.expect_shown(b"HTTP/1.1 200 OK\n" + TYPE + b"\nhello", TYPE + b"\nhello")

    def test_status_header_sets_the_status(self):
        self.expect_shown(
            b"HTTP/1.1 404 Not Found\n" + TYPE + b"\n", b"Status: 404\n" + TYPE + b"\n"
        )
        self.expect_shown(
            b"HTTP/1.1 404 Nothing Here\n" + TYPE + b"\n", TYPE + b"status:404 Nothing Here\n\n"
        )
        self.expect_shown(b"HTTP/1.1 299\n" + TYPE + b"\n", b"Status: 299\n" + TYPE + b"\n")

    def test_first_of_two_status_headers_is_used(self):
        shown, _ = self.answer_and_complaints(b"Status: 404\nstatus: 410\n" + TYPE + b"\n")
        self.assertEqual(shown, b"HTTP/1.1 404 Not Found\n" + TYPE + b"\n")

    def test_location_defaults_to_302(self):
        self.expect_shown(b"HTTP/1.1 302 Found\nLocation: /a\n\n", b"Location: /a\n\n")
        self.expect_shown(
            b"HTTP/1.1 303 See Other\nLocation: /a\n\n", b"Location: /a\nStatus: 303\n\n"
        )

    def test_header_order_and_body_bytes_are_kept(self):
        body = bytes(range(256)) + b"\r\n\r\n\n"
        self.expect_shown(
            b"HTTP/1.1 200 OK\nX-B: 1\nContent-Type: a/b\nX-A: 2:3\n\n" + body,
            b"X-B:1\r\nContent-Type:  a/b \r\nX-A: 2:3\r\n\r\n" + body,
        )
        self.expect_shown(
            b"HTTP/1.1 200 OK\nContent-Type: a/b\nX: \xc3\xab\tb\n\n",
            b"Content-Type: a/b\nX: \xc3\xab\tb\n\r\n",
        )

    def test_body_option_prints_only_the_body(self):
        self.expect_shown(b"a\0b", b"Status: 404\n" + TYPE + b"\na\0b", "--body")

    def test_large_answer_works_when_the_script_ignores_a_large_body(self):
        script = self.write_script(
            "large",
            f'#!/bin/sh\nexec <&-\nprintf "{TYPE.decode()}\\n"\n' "head -c 10000000 /dev/zero",
        )
        ran = self.run_tool("--data-binary", "@-", script, input=bytes(10000000))
        self.assertEqual((ran.status, len(ran.body), ran.errors), (0, 10000000, []))

    def test_reader_may_close_the_pipe_early(self):
        script = self.write_script(
            "endless", f'#!/bin/sh\nprintf "{TYPE.decode()}\\n"\n' "head -c 10000000 /dev/zero"
        )
        with subprocess.Popen(
            [TOOLS / "tarn-run", script], stdout=subprocess.PIPE, stderr=subprocess.PIPE
        ) as process:
            process.stdout.close()
            self.assertEqual((process.wait(60), process.stderr.read()), (-signal.SIGPIPE, b""))


class AnswerShownByCurl(AnswerTest):
    def test_headers_are_shown_as_curl_receives_them(self):
        self.expect_shown(
            b"HTTP/1.1 404 Nothing\r\nX: y\r\n" + TYPE.replace(b"\n", b"\r\n") + b"\r\nbody",
            b"Status: 404 Nothing\nX: y\n" + TYPE + b"\nbody",
            "-i",
        )
        self.expect_shown(
            b"HTTP/1.1 200 OK\r\nContent-Length: 4\r\n" + TYPE.replace(b"\n", b"\r\n") + b"\r\n",
            b"Content-Length: 4\n" + TYPE + b"\n",
            "-i",
            "-I",
        )

    def test_body_and_headers_can_be_written_to_files(self):
        self.expect_shown(b"", TYPE + b"\nbody", "-o", "body", "-D", "head")
        self.assertEqual((self.folder / "body").read_bytes(), b"body")
        self.assertEqual(
            (self.folder / "head").read_bytes(),
            b"HTTP/1.1 200 OK\r\n" + TYPE.replace(b"\n", b"\r\n") + b"\r\n",
        )

    def test_write_out_format_works(self):
        self.expect_shown(
            b"body 201 text/plain 4",
            b"Status: 201\n" + TYPE + b"\nbody",
            "-w",
            " %{http_code} %{content_type} %{size_download}",
        )

    def test_verbose_shows_request_and_response(self):
        self.write_file("output", TYPE + b"\nbody")
        ran = self.run_tool("-v", "-d", "a", self.printing)
        self.assertEqual((ran.status, ran.output), (0, b"body"))
        for line in (
            "> POST /printing HTTP/1.1",
            "> Host: localhost",
            "< HTTP/1.1 200 OK",
            "< Content-Type: text/plain",
        ):
            self.assertIn(line, ran.errors)

    def test_cookies_are_saved_in_the_jar(self):
        for options in (["-i"], []):
            self.answer_and_complaints(b"Set-Cookie: a=1\n" + TYPE + b"\n", "-c", "jar", *options)
            self.assertRegex((self.folder / "jar").read_text(), "localhost\t.*\ta\t1\n")
            (self.folder / "jar").unlink()

    def test_wrong_length_or_encoding_does_not_break_the_output(self):
        for header in (
            b"Content-Length: 9\n",
            b"Content-Length: x\n",
            b"Content-Length: 1\n",
            b"Transfer-Encoding: chunked\n",
        ):
            for options in (["-o", "-"], []):
                shown, _ = self.answer_and_complaints(header + TYPE + b"\nbody", *options)
                self.assertTrue(shown.endswith(b"body"), header)

    def test_unusable_output_is_shown_as_500(self):
        self.write_file("output", b"hello")
        ran = self.run_tool("-i", self.printing)
        self.assertEqual(ran.output, b"HTTP/1.1 500 Internal Server Error\r\n\r\nhello")
        self.assertEqual(
            ran.errors,
            [
                "tarn-run: no header block: the output begins with 'hello';"
                " a server would answer 500"
            ],
        )

    def test_curl_failure_is_reported(self):
        self.write_file("output", TYPE + b"\nbody")
        ran = self.run_tool("-o", "none/file", self.printing)
        self.assertEqual((ran.status, ran.errors[-1]), (125, "tarn-run: curl failed (status 23)"))
        ran = self.run_tool(
            "-f", self.write_script("failing", '#!/bin/sh\necho "Status: 404\n"; exit 7')
        )
        self.assertEqual((ran.status, ran.errors[-1]), (7, "tarn-run: curl failed (status 22)"))

    def test_script_is_stopped_when_curl_gives_up(self):
        script = self.write_script("slow", "#!/bin/sh\necho $$ >slow-id\nexec sleep 1000\n")
        ran = self.run_tool("-m", "1", script)
        self.assertEqual(
            (ran.status, ran.errors[-1]),
            (125, "tarn-run: curl exited before the response (status 28); the script was stopped"),
        )
        self.assertFalse(is_running(int((self.folder / "slow-id").read_text())))


class UnusableOutput(AnswerTest):
    def test_empty_output(self):
        self.expect_unusable("the script printed nothing", b"")

    def test_missing_header_block(self):
        self.expect_unusable(
            "no header block: the output begins with '<p>hello'", b"<p>hello\n\nyou"
        )
        self.expect_unusable("no header block: the output begins with 'hello'", b"hello")
        self.expect_unusable(
            "no header block: the output begins with 'HTTP/1.1 200 OK'",
            b"HTTP/1.1 200 OK\n" + TYPE + b"\n",
        )
        self.expect_unusable("no header block: the output begins with an empty line", b"\nhello")
        self.expect_unusable("no header block: the output begins with an empty line", b"\r\nhello")
        self.expect_unusable(
            "no header block: the output begins with '" + "a" * 59 + "…'", b"a" * 99
        )
        self.expect_unusable(
            r"no header block: the output begins with '\xffë\x00'", b"\xff\xc3\xab\0"
        )

    def test_unterminated_header_block(self):
        self.expect_unusable("the header block does not end with an empty line", TYPE)
        self.expect_unusable("the header block does not end with an empty line", TYPE + b"X: y")

    def test_malformed_header(self):
        for line in (b"<html>", b"X", b"X y: z", b": z", b" folded", b"X : y", b"\xc3\xab: z"):
            text = repr(line.decode())
            self.expect_unusable(
                f'line 2 of the header block is not "NAME: VALUE": {text}',
                TYPE + line + b"\nY: z\n\nbody",
            )

    def test_control_character_in_a_header(self):
        for character in b"\0\1\x1b\r\x7f":
            line = b"X: a%cb" % character
            self.expect_unusable(
                "line 2 of the header block contains a control character: " f"{line.decode()!r}",
                TYPE + line + b"\r\n\r\nbody",
            )

    def test_invalid_status(self):
        for status in (b"", b"20", b"2000", b"OK", b"200OK", b"199", b"600", b"HTTP/1.1 200 OK"):
            self.expect_unusable(
                "Status must be a number from 200 to 599 and an optional reason: "
                f"{status.decode()!r}",
                b"Status: " + status + b"\n" + TYPE + b"\n",
            )


class Complaint(AnswerTest):
    def test_missing_content_type(self):
        self.expect_complaint("no Content-Type", b"X: y\n\nbody")
        self.expect_complaint("no Content-Type", b"Status: 404\n\n")
        self.expect_complaint("no Content-Type", b"Location: /a\n\nbody")
        self.expect_complaint("no Content-Type", b"X: y\n\nbody", "--body")
        self.expect_shown(b"HTTP/1.1 204 No Content\n\n", b"Status: 204\n\n")
        self.expect_shown(b"HTTP/1.1 200 OK\nX: y\n\n", b"X: y\n\n", "-I")

    def test_duplicate_header(self):
        for name, value in (
            ("Status", "200"),
            ("Location", "/a"),
            ("Content-Type", "a/b"),
            ("Content-Length", "4"),
        ):
            twice = f"{name}: {value}\n{name.lower()}: {value}\n".encode()
            type = b"" if name == "Content-Type" else TYPE
            self.expect_complaint(
                f"2 {name} headers: servers differ in which one they use",
                twice + type + b"\nbody",
            )
        self.expect_shown(
            b"HTTP/1.1 200 OK\nSet-Cookie: a=1\nSet-Cookie: b=2\n" + TYPE + b"\n",
            b"Set-Cookie: a=1\nSet-Cookie: b=2\n" + TYPE + b"\n",
        )

    def test_content_length_does_not_match_the_body(self):
        for length in ("3", "5", "x", ""):
            self.expect_complaint(
                f"Content-Length is '{length}', but the body has 4 bytes",
                f"Content-Length: {length}\n".encode() + TYPE + b"\nbody",
            )
        self.expect_shown(
            b"HTTP/1.1 200 OK\nContent-Length: 4\n" + TYPE + b"\nbody",
            b"Content-Length: 4\n" + TYPE + b"\nbody",
        )
        self.expect_shown(
            b"HTTP/1.1 200 OK\nContent-Length: 4\n" + TYPE + b"\n",
            b"Content-Length: 4\n" + TYPE + b"\n",
            "--head",
        )

    def test_body_where_none_is_allowed(self):
        self.assertEqual(
            self.answer_and_complaints(TYPE + b"\nbody", "-I"),
            (
                b"HTTP/1.1 200 OK\n" + TYPE + b"\n",
                ["a server would drop the body (4 bytes): a response to HEAD has none"],
            ),
        )
        for status, reason in ((204, b"No Content"), (304, b"Not Modified")):
            self.assertEqual(
                self.answer_and_complaints(b"Status: %d\n" % status + TYPE + b"\nbody"),
                (
                    b"HTTP/1.1 %d %s\n" % (status, reason) + TYPE + b"\n",
                    [
                        "a server would drop the body (4 bytes):"
                        f" a response with status {status} has none"
                    ],
                ),
            )


class End(AnswerTest):
    def run_lines(self, lines, *options):
        ran = self.run_tool(*options, self.write_script("script", "#!/bin/sh\n" + lines))
        return ran.status, ran.output, ran.errors

    def test_failure_is_reported_and_its_status_passed_on(self):
        answer = b"HTTP/1.1 200 OK\n" + TYPE + b"\n"
        self.assertEqual(
            self.run_lines(f'printf "{TYPE.decode()}\\n"; exit 3'),
            (3, answer, ["tarn-run: the script failed (status 3) after it had answered"]),
        )
        self.assertEqual(
            self.run_lines("echo oh no >&2; exit 9"),
            (
                9,
                b"HTTP/1.1 500 Internal Server Error\n\n",
                [
                    "oh no",
                    "tarn-run: the script printed nothing; a server would answer 500",
                    "tarn-run: the script failed (status 9)",
                ],
            ),
        )

    def test_signal_is_reported_as_128_plus_its_number(self):
        for number, name in ((11, "SIGSEGV"), (9, "SIGKILL")):
            status, _, errors = self.run_lines(f'printf "{TYPE.decode()}\\n"; kill -{number} $$')
            self.assertEqual(
                (status, errors), (128 + number, [f"tarn-run: killed by signal {number} ({name})"])
            )

    def test_late_output_of_a_child_process_is_reported(self):
        status, output, errors = self.run_lines(
            '(until grep -q "^State:.Z" "/proc/$$/status"; do sleep 0.1; done\n'
            "sleep 3; echo late) &\n"
            f'printf "{TYPE.decode()}\\n"'
        )
        self.assertEqual((status, output), (0, b"HTTP/1.1 200 OK\n" + TYPE + b"\nlate\n"))
        self.assertEqual(
            errors,
            [
                "tarn-run: a process that the script started keeps the output open;"
                " a server would wait for it too",
                r"tarn-run: output after the script exited: 'late\n'",
            ],
        )

    def test_child_process_with_closed_output_is_not_waited_for(self):
        status, _, errors = self.run_lines(
            f'printf "{TYPE.decode()}\\n"; sleep 1000 >&- 2>&- & echo $! >sleeping'
        )
        # The child process is still running.
        os.kill(int((self.folder / "sleeping").read_text()), signal.SIGKILL)
        self.assertEqual((status, errors), (0, []))


class Script(AnswerTest):
    def test_missing_script_is_reported(self):
        self.assertEqual(
            self.refusal_message("./none", status=127), "tarn-run: ./none: no such file"
        )
        self.assertEqual(self.refusal_message(".", status=127), "tarn-run: .: is a folder")

    def test_script_that_cannot_be_run_is_reported_with_the_reason(self):
        self.write_file("script", "#!/bin/sh\n").chmod(0o644)
        self.assertEqual(
            self.refusal_message("script", status=126),
            "tarn-run: script: not executable (use chmod +x)",
        )
        for content, reason in (
            (
                b"#!/bin/none\n",
                "the interpreter in its first line is missing or cannot be run: '#!/bin/none'",
            ),
            (
                b"#!/bin/sh\r\n",
                r"the interpreter in its first line is missing or cannot be run: '#!/bin/sh\r'",
            ),
            (
                b"hello\n",
                'not a program for this machine, and it does not start with "#!INTERPRETER"',
            ),
            (b"", 'not a program for this machine, and it does not start with "#!INTERPRETER"'),
        ):
            self.write_file("script", content).chmod(0o755)
            self.assertEqual(
                self.refusal_message("script", status=126), f"tarn-run: script: {reason}"
            )


if __name__ == "__main__":
    unittest.main()
