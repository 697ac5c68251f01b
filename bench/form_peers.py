"""Other form readers, for comparison: what builds them, and a small program for each.

All do what process/form.c does, with the same arguments, and print the same.
"""

import os
import subprocess

import measure

FOLDER = os.path.join(measure.ROOT, "build/bench/peers")
BUSBOY = "busboy@1.6.0"

GO = r"""
package main

import (
  "bufio"
  "fmt"
  "io"
  "mime"
  "mime/multipart"
  "net/url"
  "os"
  "strconv"
  "strings"
)

var fields, names, values int64

func check(err error) {
  if err != nil {
    fmt.Fprintln(os.Stderr, err)
    os.Exit(1)
  }
}

func pairs(length int) {
  body := make([]byte, length)
  _, err := io.ReadFull(os.Stdin, body)
  check(err)
  all, err := url.ParseQuery(string(body))
  check(err)
  for name, texts := range all {
    for _, text := range texts {
      fields++
      names += int64(len(name))
      values += int64(len(text))
    }
  }
}

func value(part *multipart.Part, operation string) int64 {
  if operation == "skip" {
    count, err := io.Copy(io.Discard, part)
    check(err)
    return count
  }
  if operation == "write" {
    file, err := os.Create(os.Getenv("FOLDER") + "/saved")
    check(err)
    count, err := io.Copy(file, part)
    check(err)
    check(file.Close())
    return count
  }
  text, err := io.ReadAll(part)
  check(err)
  return int64(len(string(text)))
}

func parts(boundary string, length int, operation string) {
  source := bufio.NewReaderSize(io.LimitReader(os.Stdin, int64(length)), 128*1024)
  reader := multipart.NewReader(source, boundary)
  for {
    part, err := reader.NextRawPart()
    if err == io.EOF {
      return
    }
    check(err)
    fields++
    names += int64(len(part.FormName()))
    values += value(part, operation)
  }
}

func main() {
  times := 1
  if len(os.Args) > 2 {
    times, _ = strconv.Atoi(os.Args[2])
  }
  for ; times > 0; times-- {
    fields, names, values = 0, 0, 0
    length, err := strconv.Atoi(os.Getenv("CONTENT_LENGTH"))
    check(err)
    kind, parameters, err := mime.ParseMediaType(os.Getenv("CONTENT_TYPE"))
    check(err)
    if strings.HasPrefix(kind, "multipart/") {
      parts(parameters["boundary"], length, os.Args[1])
    } else {
      pairs(length)
    }
    os.Stdin.Seek(0, 0)
  }
  fmt.Printf("Content-Type: text/plain\n\n%d fields, names of %d and values of %d bytes\n",
    fields, names, values)
}
"""

JAVASCRIPT = r"""
const busboy = require("busboy");
const fs = require("fs");

const operation = process.argv[2];
let times = Number(process.argv[3] || 1);

function form() {
  let fields = 0, names = 0, values = 0, writing = 0, ended = false;
  function finish() {
    if (!ended || writing > 0) return;
    if (--times > 0) return form();
    console.log("Content-Type: text/plain\n\n" + fields + " fields, names of " + names +
                " and values of " + values + " bytes");
  }
  const all = {fields: Infinity, files: Infinity, parts: Infinity, fieldSize: Infinity};
  const reader = busboy({headers: {"content-type": process.env.CONTENT_TYPE}, limits: all});
  reader.on("field", (name, value) => {
    ++fields;
    names += Buffer.byteLength(name);
    values += Buffer.byteLength(value);
  });
  reader.on("file", (name, file) => {
    ++fields;
    names += Buffer.byteLength(name);
    file.on("data", (bytes) => { values += bytes.length; });
    if (operation == "write") {
      ++writing;
      file.pipe(fs.createWriteStream(process.env.FOLDER + "/saved")).on("close", () => {
        --writing;
        finish();
      });
    }
  });
  reader.on("close", () => { ended = true; finish(); });
  reader.on("error", (error) => { throw error; });
  const body = {fd: 0, autoClose: false, highWaterMark: 128 * 1024};
  if (times > 1 || process.argv[3]) body.start = 0;
  fs.createReadStream(null, body).pipe(reader);
}
form();
"""

PYTHON = r"""
import os
import sys
from werkzeug.formparser import FormDataParser
from werkzeug.http import parse_options_header

operation = sys.argv[1]
times = int(sys.argv[2]) if len(sys.argv) > 2 else 1


class Counter:
    size = 0

    def write(self, data):
        self.size += len(data)

    def seek(self, *place):
        pass

    def tell(self):
        return self.size


def stream(*arguments, **named):
    if operation == "write":
        return open(os.environ["FOLDER"] + "/saved", "wb")
    return Counter()


factory = None if operation == "text" else stream
while times > 0:
    times -= 1
    kind, options = parse_options_header(os.environ["CONTENT_TYPE"])
    body = open(0, "rb", closefd=False)
    chosen = {"stream_factory": factory} if factory else {}
    parser = FormDataParser(silent=False, **chosen)
    length = int(os.environ["CONTENT_LENGTH"])
    parser.max_form_parts = None
    _, form, files = parser.parse(body, kind, length, options)
    fields = names = values = 0
    for name, value in form.items(multi=True):
        fields += 1
        names += len(name.encode())
        values += len(value.encode())
    for name, file in files.items(multi=True):
        fields += 1
        names += len(name.encode())
        file.stream.seek(0, 2)
        values += file.stream.tell()
        file.stream.seek(0)
        if operation == "write":
            file.stream.close()
    if times:
        os.lseek(0, 0, 0)
print(f"Content-Type: text/plain\n\n{fields} fields, names of {names} and values of {values} bytes")
"""

PERL = r"""
use strict;
use warnings;
use CGI;

my ($operation, $times) = @ARGV;
@ARGV = ();
$times ||= 1;
$CGI::LIST_CONTEXT_WARN = 0;
my ($fields, $names, $values);
for (1 .. $times) {
  ($fields, $names, $values) = (0, 0, 0);
  CGI::initialize_globals();
  my $form = CGI->new;
  for my $name ($form->param) {
    my $file = $form->upload($name);
    for my $value (defined $file ? () : $form->multi_param($name)) {
      $fields++;
      $names += length $name;
      $values += length $value;
    }
    next unless defined $file;
    $fields++;
    $names += length $name;
    $values += -s $file;
    if ($operation eq 'write') {
      rename $form->tmpFileName($file), "$ENV{FOLDER}/saved" or die "saved: $!";
    }
  }
  sysseek STDIN, 0, 0 if $times > 1;
  seek STDIN, 0, 0 if $times > 1;
}
print "Content-Type: text/plain\n\n";
print "$fields fields, names of $names and values of $values bytes\n";
"""

PHP = r"""<?php
$fields = $names = $values = 0;
foreach ($_POST as $name => $value) {
  $fields++;
  $names += strlen($name);
  $values += strlen($value);
}
foreach ($_FILES as $name => $file) {
  if ($file['error'] != 0) exit(1);
  $fields++;
  $names += strlen($name);
  $values += $file['size'];
  if (basename(__FILE__) == 'write.php') {
    move_uploaded_file($file['tmp_name'], getenv('FOLDER') . '/saved');
  }
}
header('Content-Type: text/plain');
echo "$fields fields, names of $names and values of $values bytes\n";
fseek(fopen('php://stdin', 'r'), 0);
"""

PHP_SETTINGS = """
expose_php = Off
cgi.force_redirect = 0
max_input_vars = 10000000
max_multipart_body_parts = 10000000
post_max_size = 0
upload_max_filesize = 1G
memory_limit = -1
"""

PHP_HEADER = "Content-type: text/plain;charset=UTF-8\r\n\r\n"

# A post processor needs a connection, but only to find its content type. So this connects to itself
# and hands standard input to post processors while it answers that one request.
C = r"""
#define _GNU_SOURCE
#include <fcntl.h>
#include <microhttpd.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

static const char *operation = "text";
static long times = 1;
static int answered, file = -1;
static unsigned long long fields, names, values;
static char *text;
static size_t text_size, text_room;

static void check(int holds, const char *what) {
  if (holds) return;
  fprintf(stderr, "microhttpd: %s\n", what);
  exit(1);
}

static enum MHD_Result take(void *nothing, enum MHD_ValueKind kind, const char *key,
                            const char *filename, const char *type, const char *encoding,
                            const char *data, uint64_t offset, size_t size) {
  (void)nothing, (void)kind, (void)filename, (void)type, (void)encoding;
  if (offset == 0) {
    ++fields;
    names += strlen(key);
    text_size = 0;
  }
  values += size;
  if (strcmp(operation, "text") == 0) {
    if (text_size + size + 1 > text_room) {
      text_room = 2 * (text_size + size + 1);
      text = realloc(text, text_room);
      check(text != NULL, "out of memory");
    }
    memcpy(text + text_size, data, size);
    text_size += size;
    text[text_size] = 0;
  } else if (strcmp(operation, "write") == 0) {
    if (file < 0) {
      char path[4096];
      snprintf(path, sizeof path, "%s/saved", getenv("FOLDER"));
      file = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    }
    check(write(file, data, size) == (ssize_t)size, "write");
  }
  return MHD_YES;
}

static enum MHD_Result answer(void *nothing, struct MHD_Connection *connection, const char *url,
                              const char *method, const char *version, const char *upload,
                              size_t *upload_size, void **state) {
  static char block[128 * 1024];
  (void)nothing, (void)url, (void)method, (void)version, (void)upload, (void)state;
  *upload_size = 0;
  for (; times > 0; --times) {
    struct MHD_PostProcessor *reader = MHD_create_post_processor(connection, 64 * 1024, take, NULL);
    ssize_t count;
    check(reader != NULL, "no post processor");
    fields = names = values = 0;
    while ((count = read(0, block, sizeof block)) > 0)
      check(MHD_post_process(reader, block, (size_t)count) == MHD_YES, "refused");
    check(MHD_destroy_post_processor(reader) == MHD_YES, "not whole");
    if (times > 1) check(lseek(0, 0, SEEK_SET) == 0, "rewind");
    if (file >= 0) close(file);
    file = -1;
  }
  answered = 1;
  return MHD_NO;
}

int main(int argc, char **argv) {
  int ends[2];
  char request[1024];
  struct sockaddr address = {.sa_family = AF_UNIX};
  if (argc > 1) operation = argv[1];
  if (argc > 2) times = atol(argv[2]);
  struct MHD_Daemon *daemon =
      MHD_start_daemon(MHD_USE_NO_LISTEN_SOCKET, 0, NULL, NULL, answer, NULL, MHD_OPTION_END);
  check(daemon && socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0, "cannot start");
  snprintf(request, sizeof request, "POST / HTTP/1.1\r\nHost: a\r\nContent-Type: %s\r\n\r\n",
           getenv("CONTENT_TYPE"));
  check(write(ends[0], request, strlen(request)) > 0, "write");
  fcntl(ends[1], F_SETFL, O_NONBLOCK);
  check(MHD_add_connection(daemon, ends[1], &address, sizeof address) == MHD_YES, "connect");
  for (int i = 0; i < 100 && !answered; ++i) MHD_run(daemon);
  check(answered, "no answer");
  printf("Content-Type: text/plain\n\n%llu fields, names of %llu and values of %llu bytes\n",
         fields, names, values);
  fflush(stdout);
  _exit(0);
}
"""

SOURCES = {
    "form.go": GO,
    "form.js": JAVASCRIPT,
    "form.py": PYTHON,
    "form.pl": PERL,
    **{f"{operation}.php": PHP for operation in ("text", "skip", "write")},
    "form.c": C,
    "php.ini": PHP_SETTINGS,
}


def path(name):
    return os.path.join(FOLDER, name)


def run(*command):
    environment = os.environ | {"GOFLAGS": "", "GO111MODULE": "off", "GOCACHE": path("go-cache")}
    subprocess.run(command, cwd=FOLDER, check=True, env=environment, stdout=2)


def build():
    os.makedirs(FOLDER, exist_ok=True)
    for name, text in SOURCES.items():
        with open(path(name), "w", encoding="utf-8") as file:
            file.write(text.lstrip("\n"))
    run("go", "build", "-o", "go", "form.go")
    run("gcc", "-O2", "-o", "microhttpd", "form.c", "-lmicrohttpd")
    if not os.path.exists(path("node_modules/busboy")):
        run("npm", "install", "--ignore-scripts", "--no-audit", "--no-fund", "--save-exact", BUSBOY)


# How to call each one, without its arguments.
COMMANDS = {
    "Go": [path("go")],
    "libmicrohttpd": [path("microhttpd")],
    "busboy": ["/usr/bin/node", path("form.js")],
    "Werkzeug": ["/usr/bin/python3", "-BI", path("form.py")],
    "CGI.pm": ["/usr/bin/perl", path("form.pl")],
    "php-cgi": None,
}


def command(name, operation, times):
    if name == "php-cgi":
        return ["/usr/bin/php-cgi", *(["-T", str(times)] if times > 1 else [])]
    return [*COMMANDS[name], operation, str(times)]


def variables(operation):
    """What php-cgi needs besides arguments."""
    return {"SCRIPT_FILENAME": path(f"{operation}.php"), "PHPRC": FOLDER}


def answer(name, expected, times):
    """PHP writes the header itself, and the whole answer for each form."""
    if name != "php-cgi":
        return expected
    return (PHP_HEADER + expected.split("\n\n", 1)[1]) * times
