#!/usr/bin/env python3
"""Requests recorded by tarn-run or under a server are replayed exactly."""

import contextlib
import os
import resource
import shutil
import signal
import socket
import stat
import subprocess
import sys
import threading
import time
import unittest

from tool import TOOLS, ToolTest, parse_dump

EVERY_BYTE = bytes(range(256))


class Record(ToolTest):
    def request_and_record(self, *options, **more):
        record = self.folder / "record"
        record.unlink(missing_ok=True)
        return self.request_received("--record", str(record), *options, **more), record

    def test_record_has_the_documented_format(self):
        self.request_and_record("--data-binary", "@-", input=b"\0\0\n")
        lines = (self.folder / "record").read_bytes()
        self.assertTrue(lines.startswith(b"tarn-record 1\nPATH="))
        self.assertTrue(lines.endswith(b"=application/x-www-form-urlencoded\0\0\0\0\n"), lines)

    def test_any_bytes_are_replayed_exactly(self):
        for body in (EVERY_BYTE, b"", b"\0", b"\0\0A=1\0", b"tarn-record 1\n", EVERY_BYTE * 10000):
            given, record = self.request_and_record(
                "--data-binary", "@-", "--env", b"X=\x01=\xff\n", "-H", "X.Y: z", input=body
            )
            self.assertEqual(given.body, body)
            again = self.request_received(
                "--replay", str(record), env={"PATH": os.environ["PATH"], "A": "b"}
            )
            self.assertEqual(again, given)
            self.assertEqual(list(again.environment), list(given.environment))

    def test_record_is_private_and_replaces_an_older_record(self):
        for before in (None, b"tarn-record 1\n", b"tarn-record 1\nA=b\0\0"):
            record = self.folder / "record"
            record.unlink(missing_ok=True)
            if before is not None:
                record.write_bytes(before)
                record.chmod(0o644)
            given = self.request_received("--record", "record")
            self.assertEqual(stat.S_IMODE(record.lstat().st_mode), 0o600)
            self.assertEqual(self.request_received("--replay", "record"), given)
        self.assertEqual(list(self.folder.glob(".tarn-run-*")), [])

    def test_record_is_private_on_a_file_system_without_links(self):
        without_links = """import errno, os, runpy, sys

def link(source, target):
    raise OSError(errno.EPERM, os.strerror(errno.EPERM), source, None, target)

os.link = link
sys.argv = sys.argv[1:]
runpy.run_path(sys.argv[0], run_name="__main__")
"""
        record = self.folder / "record"
        for taken in (False, True):
            record.unlink(missing_ok=True)
            if taken:
                record.write_bytes(b"mine")
            ran = subprocess.run(
                [sys.executable, "-c", without_links, TOOLS / "tarn-run", "--record", "record"]
                + ["-d", "a=b", self.dump],
                cwd=self.folder,
                stdin=subprocess.DEVNULL,
                capture_output=True,
                umask=0o022,
                timeout=60,
                check=False,
            )
            self.assertEqual(ran.returncode, 125 if taken else 0, ran.stderr)
            self.assertEqual(list(self.folder.glob(".tarn-run-*")), [])
            if taken:
                self.assertEqual(record.read_bytes(), b"mine")
            else:
                self.assertEqual(stat.S_IMODE(record.lstat().st_mode), 0o600)
                self.assertEqual(self.request_received("--replay", "record").body, b"a=b")

    def test_record_does_not_replace_other_files(self):
        target = self.write_file("target", b"tarn-record 1\nA=b\0\0")
        record = self.folder / "record"
        for make, reason in (
            (lambda: record.write_text("kept"), "it is not a recorded request"),
            (record.touch, "it is not a recorded request"),
            (lambda: record.write_text("tarn-record 2\n"), "it is not a recorded request"),
            (lambda: record.symlink_to(target), "it is a symbolic link"),
            (lambda: record.symlink_to("none"), "it is a symbolic link"),
            (lambda: os.mkfifo(record), "it is not a recorded request"),
            (record.mkdir, "it is not a recorded request"),
            (lambda: bind_socket(record), "No such device or address"),
        ):
            make()
            before = record.lstat()
            self.assertEqual(
                self.refusal_message("--record", "record", "dump"),
                f"tarn-run: --record record: not replaced: {reason}",
            )
            after = record.lstat()
            self.assertEqual(
                (after.st_ino, after.st_size, after.st_mode),
                (before.st_ino, before.st_size, before.st_mode),
            )
            record.rmdir() if record.is_dir() else record.unlink()
        self.assertEqual(target.read_bytes(), b"tarn-record 1\nA=b\0\0")
        self.assertEqual(list(self.folder.glob(".tarn-run-*")), [])

    def test_record_does_not_replace_a_device(self):
        for device in ("/dev/null", "/dev/full", "/dev/zero", "/dev/tty"):
            self.assertIn(
                f"--record {device}: not replaced: ",
                self.refusal_message("--record", device, "dump"),
            )
            self.assertTrue(stat.S_ISCHR(os.lstat(device).st_mode))

    def test_truncated_body_is_replayed_truncated(self):
        given, _ = self.request_and_record("-d", "abcdef", "--cut", "4")
        self.assertEqual((given.environment[b"CONTENT_LENGTH"], given.body), (b"6", b"abcd"))
        self.assertEqual(self.request_received("--replay", "record"), given)
        self.assertEqual(self.request_received("--replay", "record", "--cut", "0").body, b"")

    def test_failed_write_leaves_no_file(self):
        before = sorted(self.folder.iterdir())
        ran = self.run_tool(
            "--record",
            "large",
            "--data-binary",
            "@-",
            "dump",
            input=bytes(10000),
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (10100, 10100)),
        )
        self.assertEqual((ran.status, ran.output), (125, b""))
        self.assertEqual(ran.errors, ["tarn-run: --record large: File too large"])
        self.assertEqual(sorted(self.folder.iterdir()), before)

    def test_record_can_be_written_by_a_shell(self):
        shell = "{ echo 'tarn-record 1'; env -0; printf '\\0'; cat; } >by-shell"
        subprocess.run(
            ["sh", "-c", shell],
            input=b"a\0b",
            check=True,
            cwd=self.folder,
            env={"PATH": "/usr/bin:/bin", "X": "y z", "REQUEST_METHOD": "POST"},
        )
        given = self.request_received("--replay", "by-shell")
        self.assertEqual((given.environment[b"X"], given.body), (b"y z", b"a\0b"))

    def test_duplicate_variable_replays_the_first_value(self):
        self.write_file("twice", b"tarn-record 1\nA=1\0A=2\0\0")
        self.assertEqual(self.request_received("--replay", "twice").environment, {b"A": b"1"})

    def test_replay_refuses_options_that_change_the_request(self):
        self.request_and_record()
        for options in (
            ["-d", "a"],
            ["-F", "a=b"],
            ["-G"],
            ["-b", "a=b"],
            ["-X", "PUT"],
            ["-I"],
            ["-H", "A: b"],
            ["--query", "a"],
            ["--path-info", "/"],
            ["--https"],
            ["--record", "other"],
        ):
            self.assertIn(
                "cannot be used with --replay: the record is the whole request",
                self.refusal_message("--replay", "record", *options, "dump"),
            )
        given = self.request_received("--replay", "record", "--env", "A=b")
        self.assertEqual(given.environment[b"A"], b"b")

    def test_truncated_or_invalid_record_is_refused(self):
        for content in (
            b"",
            b"tarn-record 1\n",
            b"tarn-record 1\nA=b\0",
            b"A=b\0\0",
            b"tarn-record 1\nA\0\0",
            b"tarn-record 2\nA=b\0\0",
        ):
            self.write_file("bad", content)
            self.assertIn(
                "bad: not a recorded request", self.refusal_message("--replay", "bad", "dump")
            )


class Shown(ToolTest):
    def text_of_record(self, content, *options):
        self.write_file("record", b"tarn-record 1\n" + content)
        ran = self.run_tool("--show", "record", *options)
        self.assertEqual((ran.status, ran.errors), (0, []))
        return ran.output.decode()

    def test_record_is_shown_as_text(self):
        self.assertEqual(
            self.text_of_record(b"A=1\0REQUEST_METHOD=POST\0\0a=1&b=2"),
            "A=1\nREQUEST_METHOD=POST\n\na=1&b=2\n",
        )
        self.assertEqual(self.text_of_record(b"A=\0\0"), "A=\n\n")
        self.assertEqual(self.text_of_record(b"A=\0\0a\n"), "A=\n\na\n")

    def test_secrets_are_hidden_by_default(self):
        record = (
            b'HTTP_COOKIE=session=s3cret; theme="a;b"; s3cret;=s3cret\0'
            b"HTTP_AUTHORIZATION=Basic s3cret\0HTTP_PROXY_AUTHORIZATION=s3cret\0"
            b'REDIRECT_HTTP_AUTHORIZATION=Digest s3cret="s3cret"\0'
            b"REDIRECT_HTTP_COOKIE=session=s3cret; a=s3cret\0HTTP_HOST=h\0\0a=b"
        )
        shown = self.text_of_record(record)
        self.assertEqual(
            shown,
            "HTTP_COOKIE=session=***; theme=***;***;***;=***\n"
            "HTTP_AUTHORIZATION=Basic ***\nHTTP_PROXY_AUTHORIZATION=***\n"
            "REDIRECT_HTTP_AUTHORIZATION=Digest ***\n"
            "REDIRECT_HTTP_COOKIE=session=***; a=***\nHTTP_HOST=h\n\na=b\n",
        )
        self.assertEqual(
            self.text_of_record(record, "--secrets"),
            record.replace(b"\0\0", b"\n\0").replace(b"\0", b"\n").decode() + "\n",
        )

    def test_terminal_control_characters_are_escaped(self):
        shown = self.text_of_record(
            b"A=\x1b[2J\n\xff\xc2\x9b\0\0" + EVERY_BYTE + "Zoë\u202e".encode()
        )
        self.assertTrue(shown.startswith("A=\\x1b[2J\\x0a\\xff\\u{9b}\n\n\\x00\\x01"), shown)
        self.assertTrue(shown.endswith("\\xffZoë\\u{202e}\n"), shown)
        self.assertIn("\\x08\t\n\\x0b", shown)
        self.assertTrue(all(letter.isprintable() or letter in "\t\n" for letter in shown))

    def test_large_record_is_read_from_standard_input(self):
        ran = self.run_tool("--show", "-", input=b"tarn-record 1\nA=\0\0" + "ë".encode() * 1500001)
        self.assertEqual(ran.output.decode(), "A=\n\n" + "ë" * 1500001 + "\n")

    def test_devices_folders_and_programs_are_refused(self):
        for path in ("/dev/zero", "/dev/null", ".", "dump"):
            self.refusal_message("--show", path)


def bind_socket(path):
    with socket.socket(socket.AF_UNIX) as made:
        made.bind(str(path))


PROGRAM = r"""
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

extern char **environ;

static void crash(const char *text) {
  *(volatile char *)0 = *text;
}

int main(int count, char **arguments) {
  char body[64];
  size_t length = fread(body, 1, sizeof body - 1, stdin);
  FILE *file = fopen("seen", "w");
  for (char **variable = environ; *variable; ++variable) fprintf(file, "%s%c", *variable, 0);
  fprintf(file, "%c%.*s", 0, (int)length, body);
  for (int index = 1; index < count; ++index) fprintf(file, "<%s>", arguments[index]);
  fclose(file);
  printf("Content-Type: text/plain\r\n\r\nhello");
  if (length && body[0] == '!') crash(body);
  if (length && body[0] == '?') printf("%c", *(char *)malloc(1));
  return 0;
}
"""


class Exec(ToolTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        source = cls.write_file("program.c", PROGRAM)
        subprocess.run([os.environ["CC"], "-g", source, "-o", cls.folder / "program"], check=True)

    def program_input(self):
        """What the program received; its arguments follow the body."""
        return parse_dump((self.folder / "seen").read_bytes())

    def test_command_gets_the_script_as_arguments_and_the_body_as_input(self):
        shell = "sh -c 'exec \"$@\" more' name"
        ran = self.run_tool("-d", "a=1", "--exec", shell, "./program", "x")
        self.assertEqual((ran.status, ran.body, ran.errors), (0, b"hello", []))
        self.assertEqual(self.program_input().body, b"a=1<x><more>")
        self.assertEqual(self.program_input().environment[b"CONTENT_LENGTH"], b"3")

    def test_command_is_found_on_the_path_of_tarn_run(self):
        self.write_file("record", b"tarn-record 1\nPATH=/nowhere\0\0a")
        ran = self.run_tool("--replay", "record", "--exec", "env", "./program")
        self.assertEqual((ran.status, ran.errors, self.program_input().body), (0, [], b"a"))

    def test_relative_command_starts_from_the_current_folder(self):
        (self.folder / "elsewhere").mkdir()
        self.write_script("wrapper", '#!/bin/sh\necho wrapped >&2\nexec "$@"\n')
        shutil.copy(self.folder / "program", self.folder / "elsewhere")
        ran = self.run_tool("--exec", "./wrapper", "elsewhere/program")
        self.assertEqual((ran.status, ran.body, ran.errors), (0, b"hello", ["wrapped"]))

    def test_status_of_the_command_is_returned(self):
        ran = self.run_tool("--exec", "false", "./program")
        self.assertEqual(ran.status, 1)

    def test_missing_command_is_reported(self):
        self.assertEqual(
            self.refusal_message("--exec", "no-such-command", "./program", status=127),
            "tarn-run: --exec no-such-command: command not found",
        )

    @unittest.skipUnless(shutil.which("gdb"), "gdb is not installed")
    def test_gdb_runs_the_script_with_exactly_the_request(self):
        self.run_tool("-d", 'a=$x "1"', "--record", "record", "./program", "x y", "$z")
        direct = self.program_input()
        for gdb in ("gdb", "gdb --args"):
            (self.folder / "seen").unlink()
            ran = self.run_tool(
                "--replay",
                "record",
                "--exec",
                f"{gdb} -q -batch -ex run",
                "./program",
                "x y",
                "$z",
                env={**os.environ, "TERM": "dumb"},
            )
            self.assertEqual(ran.status, 0)
            self.assertIn(b"Content-Type: text/plain", ran.output)
            self.assertEqual(self.program_input(), direct)
        self.assertEqual(direct.body, b'a=$x "1"<x y><$z>')

    @unittest.skipUnless(shutil.which("gdb"), "gdb is not installed")
    def test_gdb_stops_at_a_crash_and_reads_commands_from_standard_input(self):
        ran = self.run_tool(
            "-d", "!", "--exec", "gdb -q", "./program", input=b"run\nbacktrace\nkill\n"
        )
        self.assertIn(b"crash (text=", ran.output)
        self.assertIn(b" in main (", ran.output)

    @unittest.skipUnless(shutil.which("valgrind"), "Valgrind is not installed")
    def test_valgrind_detects_an_error_triggered_by_the_body(self):
        valgrind = "valgrind -q --error-exitcode=9"
        self.assertEqual(self.run_tool("-d", "a", "--exec", valgrind, "./program").status, 0)
        ran = self.run_tool("-d", "?", "--exec", valgrind, "./program")
        self.assertEqual(ran.status, 9)
        self.assertIn("uninitialised", "\n".join(ran.errors))


class UnderAServer(ToolTest):
    """tarn-record installed in place of a script, under lighttpd."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.records = cls.folder / "records"
        cls.write_recording_script("recorded", cls.records, "dump")
        cls.write_recording_script("unrecorded", cls.folder / "none", "dump")
        cls.write_recording_script("lost", cls.records, "none")
        cls.write_script("failing", "#!/bin/sh\nprintf 'Status: 418\\r\\n\\r\\n'; cat; exit 3\n")
        cls.write_recording_script("failing-recorded", cls.records, cls.folder / "failing")
        cls.serve(
            **{
                name: cls.folder / name
                for name in ("dump", "recorded", "unrecorded", "lost", "failing-recorded")
            }
        )

    @classmethod
    def write_recording_script(cls, name, folder, script):
        cls.write_script(name, f"#!{TOOLS}/tarn-record {folder}\n{script}\n")

    def setUp(self):
        self.records.mkdir()
        self.addCleanup(shutil.rmtree, self.records)

    def only_record(self):
        found = list(self.records.iterdir())
        self.assertEqual(len(found), 1)
        return found[0]

    def test_script_answers_the_same_with_and_without_recording(self):
        plain = self.send_request("dump")
        given = self.send_request("recorded")
        self.assertEqual(given.body, plain.body)
        self.assertEqual(self.comparable_variables(given), self.comparable_variables(plain))

    def test_request_is_recorded_exactly(self):
        given = self.send_request("recorded")
        again = self.request_received("--replay", str(self.only_record()))
        self.assertEqual(again, given)
        self.assertEqual(list(again.environment), list(given.environment))
        self.assertEqual(again.environment[b"CONTENT_LENGTH"], b"%d" % len(again.body))

    def test_large_body_is_recorded(self):
        self.write_file("sent", EVERY_BYTE * 20000)
        given = self.send_request("recorded")
        self.assertEqual(given.body, EVERY_BYTE * 20000)
        self.assertEqual(self.request_received("--replay", str(self.only_record())), given)

    def send_request(self, name):
        if not (self.folder / "sent").exists():
            self.write_file("sent", EVERY_BYTE)
        self.addCleanup((self.folder / "sent").unlink, missing_ok=True)
        answer = self.server.curl(
            f"/{name}?a=%00",
            "--data-binary",
            f"@{self.folder}/sent",
            "-b",
            "a=b",
            "-H",
            b"X-Odd: \xff;'\"$",
        )
        return parse_dump(answer.body)

    @staticmethod
    def comparable_variables(request):
        return {
            name: value
            for name, value in request.environment.items()
            if name not in (b"REMOTE_PORT", b"SCRIPT_NAME", b"SCRIPT_FILENAME", b"REQUEST_URI")
        }

    def test_record_is_private_and_named_by_time(self):
        self.send_request("recorded")
        self.assertEqual(stat.S_IMODE(self.only_record().stat().st_mode), 0o600)
        self.assertRegex(self.only_record().name, r"^\d{8}-\d{6}\.\d{6}-\w{8}$")

    def test_query_without_a_body_is_recorded(self):
        given = parse_dump(self.server.curl("/recorded?a=1").body)
        self.assertEqual(given.environment[b"QUERY_STRING"], b"a=1")
        self.assertEqual(self.request_received("--replay", str(self.only_record())), given)

    def test_concurrent_requests_are_all_recorded(self):
        def ask(number):
            self.server.curl(f"/recorded?{number}")

        threads = [threading.Thread(target=ask, args=(number,)) for number in range(8)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        queries = {
            parse_dump(path.read_bytes().partition(b"\n")[2]).environment[b"QUERY_STRING"]
            for path in self.records.iterdir()
        }
        self.assertEqual(queries, {b"%d" % number for number in range(8)})

    def test_status_and_output_of_the_script_are_passed_on(self):
        answer = self.server.curl("/failing-recorded", "-d", "a\tb")
        self.assertEqual((answer.status, answer.body), (418, b"a\tb"))
        ran = self.run_directly("failing-recorded", {"CONTENT_LENGTH": "2"}, b"xyz")
        self.assertEqual((ran.returncode, ran.stdout), (3, b"Status: 418\r\n\r\nxy"))

    def test_script_runs_even_if_recording_fails(self):
        self.assertEqual(self.send_request("unrecorded").body, EVERY_BYTE)
        self.assertIn("tarn-record: not recorded: ", self.server.log())
        self.assertFalse((self.folder / "none").exists())

    def test_script_runs_even_if_the_log_cannot_be_written(self):
        plain = self.run_directly("dump", {"CONTENT_LENGTH": "2"}, b"ab").stdout
        for errors in ("2>&-", "2>/dev/full", ">&- 2>/dev/full", "<&-"):
            ran = subprocess.run(
                [
                    "env",
                    "-i",
                    "CONTENT_LENGTH=2",
                    "sh",
                    "-c",
                    f"unset PWD OLDPWD; exec ./unrecorded {errors}",
                ],
                input=b"ab",
                capture_output=True,
                timeout=60,
                check=False,
                cwd=self.folder,
            )
            body = b"" if errors == "<&-" else b"ab"
            if ">&- " not in errors:
                self.assertEqual(ran.stdout, plain.removesuffix(b"ab") + body, errors)
            self.assertNotIn(b"Traceback", ran.stderr)

    def test_zero_byte_in_the_script_name_is_reported(self):
        self.write_recording_script("named-none", self.records, "a\0b")
        ran = self.run_directly("named-none", {}, b"")
        self.assertEqual(
            (ran.returncode, ran.stdout, ran.stderr),
            (127, b"", b"tarn-record: the path of the script contains a zero byte\n"),
        )

    def test_signal_while_reading_the_body_prints_no_traceback(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            with subprocess.Popen(
                [self.folder / "recorded"],
                env={"CONTENT_LENGTH": "9"},
                stdin=subprocess.PIPE,
                stdout=subprocess.PIPE,
                stderr=subprocess.PIPE,
                preexec_fn=lambda number=number: signal.signal(number, signal.SIG_DFL),
            ) as process:
                while "memfd:body" not in self.open_files(process):
                    time.sleep(0.01)
                process.send_signal(number)
                output, errors = process.communicate(timeout=60)
            self.assertEqual((process.returncode, output, errors), (-number, b"", b""))

    @staticmethod
    def open_files(process):
        folder, paths = f"/proc/{process.pid}/fd", []
        for name in os.listdir(folder):
            with contextlib.suppress(FileNotFoundError):  # it was closed in the meantime
                paths.append(os.readlink(f"{folder}/{name}"))
        return " ".join(paths)

    def test_failed_recording_leaves_no_partial_record(self):
        limited = {"CONTENT_LENGTH": "3", "LONG": "x" * 5000}
        ran = self.run_directly(
            "recorded",
            limited,
            b"abc",
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (4000, 4000)),
        )
        self.assertTrue(ran.stdout.endswith(b"\0\0abc"))
        self.assertIn(b"tarn-record: not recorded: File too large", ran.stderr)
        self.assertEqual(list(self.records.iterdir()), [])

    def test_missing_script_is_reported(self):
        self.server.curl("/lost")
        self.server.wait_for_scripts()
        self.assertIn("none: No such file or directory", self.server.log())
        self.assertEqual(self.run_directly("lost", {}, b"").returncode, 127)

    def run_directly(self, name, environment, body, **options):
        return subprocess.run(
            [self.folder / name],
            env=environment,
            input=body,
            timeout=60,
            capture_output=True,
            check=False,
            **options,
        )

    def test_script_reads_the_whole_body_despite_a_wrong_or_missing_length(self):
        for length, body in (
            ("9", b"abc"),
            ("0", b"abc"),
            ("-1", b"abc"),
            ("x", b"abc"),
            ("9" * 5000, b"abc"),
            ("", b""),
        ):
            ran = self.run_directly("recorded", {"CONTENT_LENGTH": length}, body)
            self.assertEqual(
                (ran.stderr, parse_dump(ran.stdout.partition(b"\r\n\r\n")[2]).body), (b"", body)
            )

    def test_duplicate_variable_reaches_the_script_with_its_first_value(self):
        start = """if True:
            import ctypes, sys
            words = lambda *words: (ctypes.c_char_p * (len(words) + 1))(*words)
            path = sys.argv[1].encode()
            ctypes.CDLL(None).execve(path, words(path), words(b'A=1', b'A=2'))"""
        ran = subprocess.run(
            [sys.executable, "-c", start, self.folder / "recorded"],
            stdin=subprocess.DEVNULL,
            capture_output=True,
            check=True,
        )
        self.assertEqual(parse_dump(ran.stdout.partition(b"\r\n\r\n")[2]).environment, {b"A": b"1"})
        self.assertIn(b"\nA=1\0A=2\0", self.only_record().read_bytes())

    def test_ignored_signals_are_the_same_with_and_without_recording(self):
        self.write_script("signals", "#!/bin/sh\ngrep ^SigIgn: /proc/self/status\n")
        self.write_recording_script("signals-recorded", self.records, "signals")
        plain, given = (
            self.run_directly(name, {}, b"") for name in ("signals", "signals-recorded")
        )
        self.assertEqual(given.stdout, plain.stdout)


if __name__ == "__main__":
    unittest.main()
