"""Runs a script without a server, for requests that servers and curl do not let through."""

import re
import resource
import subprocess


def run(path, variables, body=b"", largest_file=resource.RLIM_INFINITY):
    """Returns status, header lines and body of a script's answer, and what it wrote to its log.

    It may write files of `largest_file` bytes; beyond that, writing fails as on a full disk.
    """

    def limit():
        resource.setrlimit(resource.RLIMIT_FSIZE, (largest_file, resource.RLIM_INFINITY))

    # Python ignores the signal that comes with the limit, and hands that down.
    done = subprocess.run(
        [path],
        env=variables,
        input=body,
        capture_output=True,
        preexec_fn=limit,
        restore_signals=False,
        check=True,
        timeout=100,
    )
    head, page = re.split(b"\r?\n\r?\n", done.stdout, maxsplit=1)
    lines = head.decode().splitlines()
    status = 200
    if lines[0].startswith("Status: "):
        status = int(lines[0].split(" ")[1])
    return status, lines, page, done.stderr.decode()


def post(content_type, body):
    return {
        "REQUEST_METHOD": "POST",
        "SCRIPT_NAME": "/script",
        "CONTENT_TYPE": content_type,
        "CONTENT_LENGTH": str(len(body)),
    }
