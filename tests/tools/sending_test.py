#!/usr/bin/env python3
"""tarn-run passes a script the same request as a server does for curl."""

import os
import re
import shutil
import unittest

from tool import ToolTest, parse_dump


VERSION = os.environ["VERSION"]
BOUNDARY = rb"-{24}\w{16,40}"

# Variables that always differ.
OF_THE_SERVER = {
    b"DOCUMENT_ROOT",
    b"HTTP_HOST",
    b"HTTP_USER_AGENT",
    b"REMOTE_PORT",
    b"SCRIPT_FILENAME",
    b"SERVER_NAME",
    b"SERVER_PORT",
    b"SERVER_SOFTWARE",
}


class LikeCurl(ToolTest):
    """Passes the same options to curl, with lighttpd as the server, and to tarn-run."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.serve(dump=cls.dump)
        for name, content in (
            ("lines", b"a\r\nb\n\nc=&\xff+%d\r"),
            ("empty", b""),
            ("x.html", b"<p>"),
            ("zero", b"a\0\r\n"),
            ("x.png", b"\x89PNG\r\n\x1a\n\0"),
            ("notes.txt", b"two\nlines\n"),
            ('q"u,o;t\\e', b"q"),
            ("per%20cent + plus.pdf", b"%PDF"),
            ("Zoë \xff", b"z"),
        ):
            cls.write_file(name, content)
        cls.addClassCleanup(os.chdir, os.getcwd())
        os.chdir(cls.folder)

    def request_under_lighttpd(self, path, *options):
        """The request as a script under lighttpd receives it, without the folder in its address."""
        plain = ("-H", "Sec-Fetch-Site:")  # as curl sends it by itself
        request = parse_dump(self.server.curl("/dump" + path, *plain, *options).body)
        for name in (b"REQUEST_URI", b"SCRIPT_NAME"):
            request.environment[name] = request.environment[name].removeprefix(b"/cgi-bin")
        return request

    def assert_same_request(self, *options):
        sent = self.without_boundary(self.request_under_lighttpd("", *options))
        given = self.without_boundary(self.request_received(*options))
        self.assertEqual(given.body, sent.body, options)
        # lighttpd sets no PATH, sets a length even without a body, and sets the length twice.
        left_out = {b"PATH", b"REMOTE_HOST", b"REDIRECT_STATUS", b"HTTP_CONTENT_LENGTH"}
        if not given.body:
            left_out.add(b"CONTENT_LENGTH")
        names = given.environment.keys() - left_out
        self.assertEqual(names, sent.environment.keys() - left_out, options)
        for name in names - OF_THE_SERVER:
            self.assertEqual(given.environment[name], sent.environment[name], (name, options))

    @staticmethod
    def without_boundary(request):
        type = request.environment.get(b"CONTENT_TYPE", b"")
        if b"boundary=" not in type:
            return request
        request.environment[b"CONTENT_TYPE"] = re.sub(BOUNDARY, b"B", type)
        return request._replace(body=re.sub(BOUNDARY, b"B", request.body))

    def test_other_common_curl_options(self):
        self.assert_same_request("-A", "Mozilla/5.0", "-e", "http://example.org/")
        self.assert_same_request("-u", "ada:secret word")
        self.assert_same_request("--json", '{"a": [1, 2]}')
        self.assert_same_request("--json", "@lines")
        self.assert_same_request("-T", "zero")
        self.assert_same_request("--form-string", "a=@lines;type=x", "--form-string", "b=<")
        self.assert_same_request("--data-ascii", "a=1", "--data-ascii", "@lines")
        self.assert_same_request("--url-query", "a=b c", "--url-query", "n@lines", "-d", "x")
        self.assert_same_request("--compressed")
        self.assert_same_request("-0")

    def test_several_files_in_one_part(self):
        self.assert_same_request("-F", "f=@lines,x.png;type=a/b,empty")

    def test_combined_short_options(self):
        self.assert_same_request("-XPUT", "-da=1", "-Gdb=2")
        self.assert_same_request("-sSd", "a=1")

    def test_cookies_from_a_jar(self):
        jar = "localhost\tFALSE\t{}\tFALSE\t0\t{}\t{}\n"
        self.write_file(
            "jar",
            jar.format("/", "a", "1")
            + jar.format("/other", "b", "2")
            + jar.format("/", "c", "%2B").replace("localhost", "example.org"),
        )
        self.assertEqual(self.request_received("-b", "jar").environment[b"HTTP_COOKIE"], b"a=1")

    def test_a_long_body(self):
        self.write_file("long", bytes(range(256)) * 8000)
        self.assert_same_request("--data-binary", "@long")
        self.assert_same_request("-F", "f=@long", "-F", "g=@long")

    def test_no_options(self):
        self.assert_same_request()

    def test_raw_data(self):
        self.assert_same_request("-d", "a=1")
        self.assert_same_request("-d", "a=1&b=%20+ ", "--data", "c", "-d", "", "-d", "d=@")
        self.assert_same_request("-d", "")

    def test_data_from_files(self):
        self.assert_same_request("-d", "@lines", "--data", "@empty")
        self.assert_same_request(
            "--data-binary", "@lines", "--data-binary", "a=@lines", "--data-binary", "@zero"
        )
        self.assert_same_request("--data-raw", "@lines", "-d", "b")

    def test_url_encoded_data(self):
        every = "".join(map(chr, range(1, 128)))
        options = ["--data-urlencode", f"={every}", "--data-urlencode", f"n={every}"]
        for data in (
            "a b",
            "=a=b",
            "n=a=b@c",
            "n n=x",
            "@lines",
            "n@lines",
            "n@m=lines",
            "n=",
            "=",
            "",
            "Zoë",
            "n=Zoë",
            b"n=\xff\xfe",
            "n@zero",
        ):
            options += ["--data-urlencode", data]
        self.assert_same_request(*options)

    def test_a_query(self):
        self.assert_same_request("-G", "-d", "a=1", "--data-urlencode", "b= &", "-d", "@lines")
        self.assert_same_request("-G")

    def test_fields_in_a_multipart_body(self):
        options = ["-F", "a=1", "--form", "b=2", "-F", "a=3"]
        for part in (
            "a=v",
            "a=",
            "=v",
            "a=b=c",
            'a"b\\c=v',
            "a\nb\rc\td=v",
            "Zoë=ë",
            b"a=\xff",
            "a= b ",
            'a="@b"',
            'a="b;c";type=text/x',
            r'a="q;\"r\\s\t"',
            'a="open',
            r'a="open\"',
            "a=b,c",
            "a=b;type=text/x; charset=utf-8",
            "a='b'",
            "a=b;type=text/plain",
            "a=v;filename=x.png",
            "a=v;filename=x.txt",
            "a=v;filename=f;type=a/b",
            "a=v;type=a/b;filename=f",
            "a=v; type=a/b ; filename=f g ",
            "a=<lines",
            "a=<notes.txt",
            "a=<x.html;type=text/x",
            'a=<"q\\"u,o;t\\\\e"',
            "a=<zero",
            'a=""',
        ):
            options += ["-F", part]
        self.assert_same_request(*options)

    def test_uploaded_files(self):
        options = ["-F", "a=1"]
        for part in (
            "f=@lines",
            "f=@zero",
            "f=@empty",
            "f=@x.html",
            "f=@x.png",
            "f=@notes.txt",
            f"f=@{self.folder}/x.png",
            r'f=@"q\"u,o;t\\e"',
            "f=@per%20cent + plus.pdf",
            "f=@lines;type=text/plain",
            "f=@lines;filename=d.png",
            r'f=@lines;type=a/b;filename="a\"b\\c/d;,"',
            "f=@lines; filename= a b.txt ",
            "f=@lines;filename=Zoë %22+%.html",
            "f=@lines;type=text/x; charset=utf-8;filename=x",
            "f=@lines;filename=",
            b"f=@Zo\xc3\xab \xc3\xbf",
        ):
            options += ["-F", part]
        self.assert_same_request(*options)

    def test_custom_content_type(self):
        self.assert_same_request("-d", "{}", "-H", "Content-Type: application/json")
        self.assert_same_request("-d", "a", "-H", "content-type:")
        self.assert_same_request("-F", "a=1", "-H", "Content-Type: multipart/form-data")
        self.assert_same_request(
            "-F", "a=1", "-H", "Content-Type: multipart/form-data; charset=utf-8"
        )

    def test_cookies(self):
        self.assert_same_request("-b", "a=1; b=2")
        self.assert_same_request("--cookie", "a=1", "-H", "Cookie: b=2")
        self.assert_same_request("-b", "a=1", "-b", "b=2; c=3")

    def test_methods(self):
        self.assert_same_request("-X", "PUT", "-d", "a")
        self.assert_same_request("-X", "DELETE")

    def test_headers(self):
        self.assert_same_request("-H", "X-One: 1", "-H", "x-two:  a  b ", "-H", "X-One: 2")
        self.assert_same_request("-H", "Accept:")
        self.assert_same_request(
            "-H", "Referer: http://example.org/?a=b", "--header", "Accept: text/css"
        )
        self.assert_same_request("-H", "User-Agent: mine")

    def test_a_path_after_the_script(self):
        for path in ("/", "/a", "/a b/%41é"):
            sent = self.request_under_lighttpd(self.quoted(path)).environment
            given = self.request_received("--path-info", path).environment
            for name in (b"PATH_INFO", b"REQUEST_URI", b"SCRIPT_NAME", b"QUERY_STRING"):
                self.assertEqual(given[name], sent[name])

    @staticmethod
    def quoted(path):
        return path.replace("%", "%25").replace(" ", "%20").replace("é", "%C3%A9")


class Environment(ToolTest):
    def test_has_only_the_request_and_two_paths(self):
        variables = {**os.environ, "HOME": "/", "LD_LIBRARY_PATH": "/a:/b", "PATH": "/usr/bin"}
        self.assertEqual(
            self.request_received(env=variables).environment,
            {
                b"PATH": b"/usr/bin",
                b"LD_LIBRARY_PATH": b"/a:/b",
                b"GATEWAY_INTERFACE": b"CGI/1.1",
                b"SERVER_SOFTWARE": f"tarn-run/{VERSION}".encode(),
                b"SERVER_PROTOCOL": b"HTTP/1.1",
                b"SERVER_NAME": b"localhost",
                b"SERVER_ADDR": b"127.0.0.1",
                b"SERVER_PORT": b"80",
                b"REQUEST_SCHEME": b"http",
                b"REMOTE_ADDR": b"127.0.0.1",
                b"REMOTE_HOST": b"localhost",
                b"REMOTE_PORT": b"49152",
                b"DOCUMENT_ROOT": bytes(self.folder),
                b"SCRIPT_FILENAME": bytes(self.dump),
                b"SCRIPT_NAME": b"/dump",
                b"REQUEST_METHOD": b"GET",
                b"REQUEST_URI": b"/dump",
                b"QUERY_STRING": b"",
                b"HTTP_HOST": b"localhost",
                b"HTTP_USER_AGENT": f"tarn-run/{VERSION}".encode(),
                b"HTTP_ACCEPT": b"*/*",
            },
        )

    def test_path_has_a_default(self):
        self.assertEqual(
            self.request_received(env={}).environment[b"PATH"], b"/usr/local/bin:/usr/bin:/bin"
        )

    def test_https_option_sets_the_variables_of_https(self):
        given = self.request_received("--https").environment
        self.assertEqual(
            [given[name] for name in (b"HTTPS", b"SERVER_PORT", b"REQUEST_SCHEME")],
            [b"on", b"443", b"https"],
        )

    def test_env_option_overrides_variables(self):
        given = self.request_received(
            "--env",
            "SERVER_PORT=8080",
            "--env",
            "REMOTE_USER=ada",
            "--env",
            "HTTP_HOST=",
            "--env",
            b"X=a=b\xff",
        ).environment
        self.assertEqual(
            [given[name] for name in (b"SERVER_PORT", b"REMOTE_USER", b"HTTP_HOST", b"X")],
            [b"8080", b"ada", b"", b"a=b\xff"],
        )

    def test_server_name_comes_from_the_host_header(self):
        given = self.request_received("-H", "Host: example.org:8080").environment
        self.assertEqual(given[b"SERVER_NAME"], b"example.org")
        self.assertEqual(given[b"HTTP_HOST"], b"example.org:8080")
        self.assertEqual(
            self.request_received("-H", "Host:").environment[b"SERVER_NAME"], b"localhost"
        )

    def test_content_length_can_be_overridden(self):
        for length in ("99", "1", "-1", "many", "9" * 40):
            given = self.request_received("-d", "abc", "-H", f"content-length: {length}")
            self.assertEqual(
                (given.environment[b"CONTENT_LENGTH"], given.body), (length.encode(), b"abc")
            )
        given = self.request_received("-d", "abc", "-H", "Content-Length:")
        self.assertNotIn(b"CONTENT_LENGTH", given.environment)
        self.assertEqual(given.body, b"abc")

    def test_chunked_body_gets_its_length(self):
        for body in (b"", b"a" * 100, bytes(range(256)) * 4000):
            given = self.request_received("-T", "-", "-X", "POST", input=body)
            self.assertEqual(given.body, body)
            self.assertEqual(given.environment[b"CONTENT_LENGTH"], b"%d" % len(body))
            self.assertNotIn(b"HTTP_TRANSFER_ENCODING", given.environment)

    def test_expect_header_is_not_passed_on(self):
        body = bytes(2000000)
        for options in ([], ["-H", "Expect: 100-continue"]):
            given = self.request_received("--data-binary", "@-", *options, input=body)
            self.assertEqual(given.body, body)
            self.assertNotIn(b"HTTP_EXPECT", given.environment)

    def test_protocol_version_is_passed_on(self):
        self.assertEqual(self.request_received("-0").environment[b"SERVER_PROTOCOL"], b"HTTP/1.0")

    def test_path_info_has_the_name_of_the_uploaded_file(self):
        self.write_file("sent.txt", "a")
        given = self.request_received("-T", "sent.txt", "--path-info", "/a b/").environment
        self.assertEqual(
            (given[b"PATH_INFO"], given[b"REQUEST_METHOD"]), (b"/a b/sent.txt", b"PUT")
        )

    def test_method_can_be_chosen(self):
        self.run_tool("-I", "--record", "head", self.dump)
        self.assertIn(b"\0REQUEST_METHOD=HEAD\0", (self.folder / "head").read_bytes())
        given = self.request_received("-X", "GET", "-d", "a=1")
        self.assertEqual((given.environment[b"REQUEST_METHOD"], given.body), (b"GET", b"a=1"))

    def test_empty_header_gets_a_variable(self):
        self.assertEqual(self.request_received("-H", "X-Empty;").environment[b"HTTP_X_EMPTY"], b"")

    def test_cookies_are_joined_by_semicolons_and_other_headers_by_commas(self):
        given = self.request_received(
            "-b", "a=1", "-b", "b=2; c=3", "-H", "X: 1", "-H", "x: 2"
        ).environment
        self.assertEqual((given[b"HTTP_COOKIE"], given[b"HTTP_X"]), (b"a=1;b=2; c=3", b"1, 2"))
        given = self.request_received(
            "-H", "Cookie: a=1", "-H", "Cookie: b=2", "-b", "c=3"
        ).environment
        self.assertEqual(given[b"HTTP_COOKIE"], b"a=1; b=2")

    def test_query_can_be_combined_with_data(self):
        given = self.request_received("--query", "q=%20", "-d", "a=1")
        self.assertEqual((given.environment[b"QUERY_STRING"], given.body), (b"q=%20", b"a=1"))
        self.assertEqual(given.environment[b"REQUEST_URI"], b"/dump?q=%20")
        given = self.request_received("--query", "q=1", "-G", "-d", "a=1")
        self.assertEqual(given.environment[b"QUERY_STRING"], b"q=1&a=1")

    def test_path_translated_is_below_the_scripts_folder(self):
        given = self.request_received("--path-info", "/a/b").environment
        self.assertEqual(given[b"PATH_TRANSLATED"], bytes(self.folder / "a/b"))

    def test_proxy_header_is_dropped(self):
        ran = self.run_tool("-H", "Proxy: evil", self.dump)
        self.assertNotIn(b"HTTP_PROXY", ran.output)
        self.assertEqual(
            ran.errors, ["tarn-run: the Proxy header is not passed to the script: servers drop it"]
        )


class Input(ToolTest):
    def test_at_dash_reads_data_from_standard_input(self):
        self.assertEqual(self.request_received("-d", "@-", input=b"a\nb").body, b"ab")
        self.assertEqual(self.request_received("--data-binary", "@-", input=b"a\nb").body, b"a\nb")
        self.assertIn(b"\r\n\r\na\nb\r\n", self.request_received("-F", "f=@-", input=b"a\nb").body)

    def test_script_does_not_inherit_standard_input(self):
        self.assertEqual(self.request_received(input=b"secret").body, b"")

    def test_boundary_depends_only_on_the_parts(self):
        types = [
            self.request_received("-F", part).environment[b"CONTENT_TYPE"]
            for part in ("a=1", "a=1", "a=2")
        ]
        self.assertEqual(types[0], types[1])
        self.assertNotEqual(types[0], types[2])

    def test_file_type_comes_from_the_sent_name_or_the_path(self):
        (self.folder / "folder.png").mkdir()
        none = "application/octet-stream"
        for path, more, type in (
            ("a.html", "", "text/html"),
            ("a.JPG", "", "image/jpeg"),
            ("a.txt", "", "text/plain"),
            ("a", "", none),
            ("a.tar.gz", "", none),
            ("folder.png/a", "", none),
            ("a.txt", ";filename=b.png", "image/png"),
            ("a", ";filename=b.pdf", "application/pdf"),
            ("a.txt", ";filename=b", "text/plain"),
            ("a.txt", ";filename=b.png;type=x/y", "x/y"),
        ):
            self.write_file(path, "x")
            self.assertIn(
                f"Content-Type: {type}\r\n".encode(),
                self.request_received("-F", f"f=@{path}{more}").body,
                path + more,
            )

    def test_large_body(self):
        data = bytes(range(256)) * 40000
        self.assertEqual(self.request_received("--data-binary", "@-", input=data).body, data)


class Arguments(ToolTest):
    def test_arguments_after_two_dashes_go_to_the_script(self):
        script = self.write_script(
            "script",
            """
            #!/bin/sh
            printf 'Content-Type: text/plain\\n\\n'
            printf '<%s>' "$@"
        """,
        )
        for words in (
            (script, "a b", "--", "-d", "--", ""),
            ("--", script, "a b", "-d", "--", ""),
            ("-d", "x", script, "a b", "-b", "a=b", "--", "-d", "--", ""),
        ):
            ran = self.run_tool(*words)
            self.assertEqual((ran.body, ran.errors), (b"<a b><-d><--><>", []), words)

    def test_options_may_follow_the_script(self):
        ran = self.run_tool("-d", "a=1", "./dump", "-d", "b=2", "--path-info", "/x")
        given = parse_dump(ran.body)
        self.assertEqual((given.environment[b"PATH_INFO"], given.body), (b"/x", b"a=1&b=2"))

    def test_value_that_begins_with_a_dash_follows_an_equals_sign(self):
        self.assertEqual(self.request_received("--data=-x").body, b"-x")

    def test_script_is_not_looked_up_on_the_path(self):
        self.assertEqual(
            parse_dump(self.run_tool("dump").body).environment[b"SCRIPT_FILENAME"], bytes(self.dump)
        )
        self.refusal_message("ls", status=127)

    def test_script_runs_in_its_folder(self):
        (self.folder / "inner").mkdir()
        script = self.write_script(
            "inner/script", "#!/bin/sh\nprintf 'Content-Type: a/b\\n\\n'; pwd -P"
        )
        self.assertEqual(
            self.run_tool("inner/script").body.decode(), f"{script.parent.resolve()}\n"
        )


class Mistakes(ToolTest):
    def test_usage_errors_exit_with_125_and_the_reason(self):
        self.write_file("bad", "tarn-record 2\n")
        for options, reason in (
            ([], "no script given"),
            (["-d", "a", "--"], "no script given"),
            (["--nothing", "dump"], "unknown option --nothing"),
            (["dump", "--nothing"], "unknown option --nothing"),
            (["--dat", "a", "dump"], "unknown option --dat"),
            (["-sJ?", "dump"], "unknown option -?"),
            (["--=a", "dump"], "unknown option --"),
            (["-d"], "--data needs an argument"),
            (["dump", "--query"], "--query needs an argument"),
            (["--https=on", "dump"], "--https does not take an argument"),
            (["--get=a", "dump"], "--get does not take an argument"),
            (["-F", "a", "dump"], "Illegally formatted input field"),
            (["-F", "a=@none", "dump"], "curl: (26) "),
            (["-F", "a=b", "-d", "c", "dump"], "only select one HTTP request"),
            (["-G", "-d", "a b", "dump"], "curl: (3) "),
            (["-O", "dump"], "--remote-name is not supported"),
            (["-L", "dump"], "--location is not supported"),
            (["--url", "http://localhost/", "dump"], "--url is not supported"),
            (["-:", "dump"], "--next is not supported"),
            (["-K", "dump", "dump"], "--config is not supported"),
            (["-i", "--body", "dump"], "--body cannot be combined with"),
            (["-H", "nothing", "dump"], "nothing: expected NAME: VALUE"),
            (["-H", ": a", "dump"], ": a: expected NAME: VALUE"),
            (["--env", "A", "dump"], "A: expected NAME=VALUE"),
            (["--env", "=A", "dump"], "=A: expected NAME=VALUE"),
            (["--path-info", "a", "dump"], 'a: must start with "/"'),
            (["--timeout", "0", "dump"], "--timeout 0: must be a number of seconds"),
            (["--timeout", "nan", "dump"], "--timeout nan: must be a number of seconds"),
            (["--memory", "1T", "dump"], "--memory 1T: must be a size"),
            (["--repeat", "0", "dump"], "--repeat 0: must be a whole number, 1 or greater"),
            (["--cut", "-1", "dump"], "--cut -1: must be a whole number, 0 or greater"),
            (["--cut", "9" * 5000, "dump"], "must be a whole number, 0 or greater"),
            (["--cut", "4", "-d", "abc", "dump"], "--cut 4: the body has only 3 bytes"),
            (["--chdir", "none", "dump"], "--chdir none: no such folder"),
            (["--exec", "", "dump"], "--exec: the command is empty"),
            (["--secrets", "dump"], "--secrets can only be used with --show"),
            (["--show", "bad", "dump"], "--show prints a record"),
            (["--show", "bad", "-d", "a"], "--show prints a record"),
            (["--show", "bad"], "bad: not a recorded request"),
            (["--show", "none"], "none: No such file or directory"),
            (["--exec", "a 'b", "dump"], "a 'b: No closing quotation"),
            (["--replay", "none", "dump"], "none: No such file or directory"),
            (["--replay", "bad", "dump"], "bad: not a recorded request"),
            (["--record", "none/a", "dump"], "none/a: No such file or directory"),
            (["--record", ".", "dump"], "--record .: "),
        ):
            self.assertIn(reason, self.refusal_message(*options), options)
        self.assertEqual([path.name for path in self.folder.glob(".*")], [])

    def test_options_without_effect_are_refused(self):
        options = [
            "--retry 2",
            "--retry-all-errors",
            "--retry-connrefused",
            "--retry-delay 1",
            "--retry-max-time 1",
            "--ntlm",
            "--digest",
            "--negotiate",
            "--anyauth",
            "--http2",
            "--http2-prior-knowledge",
            "--haproxy-protocol",
            "-x a",
            "--proxy=a",
            "--proxy-user a",
            "-U a",
            "--proxy-header a",
            "--proxy1.0 a",
            "-p",
            "--preproxy a",
            "--socks4 a",
            "--socks5-hostname a",
            "--noproxy a",
            "--unix-socket a",
            "--abstract-unix-socket a",
            "--connect-to a:1:b:2",
            "--resolve a:1:b",
            "--interface a",
            "--local-port 9",
        ]
        for option in options:
            words = [*option.split(), "-u", "a:b", "dump"]
            self.assertIn(
                " is not supported: tarn-run receives one request on its own socket",
                self.refusal_message(*words),
                option,
            )

    def test_zero_byte_in_the_path_is_reported(self):
        ran = self.run_tool("--request-target", "/dump/a%00b", "dump")
        self.assertEqual(ran.status, 125)
        self.assertIn("variables cannot contain a zero byte", ran.errors[-1])

    def test_invalid_characters_in_a_query_are_encoded_and_reported(self):
        ran = self.run_tool("--query", 'a b#\x7f"%<é', "dump")
        self.assertEqual(parse_dump(ran.body).environment[b"QUERY_STRING"], b'a%20b%23%7F"%<%C3%A9')
        self.assertEqual(ran.errors, ["tarn-run: --query: sent as 'a%20b%23%7F\"%<%C3%A9'"])

    def test_curl_warns_about_an_unknown_part_option(self):
        ran = self.run_tool("-F", "a=b;c", "dump")
        self.assertIn(b"\r\n\r\nb\r\n", ran.output)
        self.assertEqual((ran.status, ran.errors), (0, ["Warning: skip unknown form field: c"]))

    def test_mismatched_boundary_is_reported(self):
        ran = self.run_tool(
            "-F", "a=b", "-H", "Content-Type: multipart/form-data; boundary=QQ", "dump"
        )
        self.assertEqual(
            (ran.status, ran.errors),
            (0, ["tarn-run: the body does not contain the boundary of its Content-Type, 'QQ'"]),
        )
        self.assertEqual(
            self.request_received(
                "-H", 'Content-Type: multipart/form-data; boundary="QQ"', "--data-binary", "--QQ--"
            ).body,
            b"--QQ--",
        )

    def test_missing_curl_is_reported(self):
        (self.folder / "empty").mkdir()
        environment = {"PATH": str(self.folder / "empty")}
        ran = self.run_tool("dump", env=environment)
        self.assertEqual(
            (ran.status, ran.errors),
            (125, ["tarn-run: curl is not installed; tarn-run needs it to send the request"]),
        )
        self.write_file("record", b"tarn-record 1\nPATH=/usr/bin:/bin\0\0a")
        self.assertEqual(self.request_received("--replay", "record", env=environment).body, b"a")


class Curl(ToolTest):
    def test_ignores_curlrc_and_proxy_settings(self):
        self.write_file(".curlrc", "user-agent = mine\n")
        home = {
            **os.environ,
            "HOME": str(self.folder),
            "CURL_HOME": str(self.folder),
            "http_proxy": "http://127.0.0.1:1",
            "ALL_PROXY": "http://127.0.0.1:1",
        }
        given = self.request_received(env=home).environment
        self.assertEqual(given[b"HTTP_USER_AGENT"], f"tarn-run/{VERSION}".encode())

    def test_curl_failure_before_the_request_is_reported(self):
        ran = self.run_tool("-F", "a=@none", self.dump)
        self.assertEqual((ran.status, ran.output), (125, b""))
        self.assertEqual(
            ran.errors[-1], "tarn-run: curl failed without sending a request (status 26)"
        )

    def test_unexpected_curl_help_is_reported(self):
        self.write_script("curl", "#!/bin/sh\necho nothing\n")
        ran = self.run_tool("-d", "a", self.dump, env={"PATH": str(self.folder)})
        self.assertEqual(
            (ran.status, ran.errors),
            (125, ['tarn-run: "curl --help all" did not list any options']),
        )

    def test_other_clients_are_not_answered(self):
        """A client that finds the socket before curl does gets no answer."""
        real = shutil.which("curl")
        (self.folder / "bin").mkdir()
        self.write_script(
            "bin/curl",
            f"""
            #!/bin/sh
            case $* in *--help*) exec {real} "$@" ;; esac
            for word; do
              if [ "$last" = --abstract-unix-socket ]; then name=$word; fi
              last=$word
            done
            {real} -s --abstract-unix-socket "$name" -d stranger http://localhost/ >stranger 2>&1
            exec {real} "$@"
        """,
        )
        path = {**os.environ, "PATH": f'{self.folder}/bin:{os.environ["PATH"]}'}
        self.assertEqual(self.request_received("-d", "a", env=path).body, b"a")


if __name__ == "__main__":
    unittest.main()
