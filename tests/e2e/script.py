"""Runs a script without a server, for requests that servers or curl would refuse."""

import re
import resource
import subprocess


def run(path, variables, body=b"", largest_file=resource.RLIM_INFINITY):
    """Returns the status, header lines and body of a script's answer, and its log.

    The script can write files of `largest_file` bytes; beyond that, writes fail as on a full disk.
    """

    def limit():
        resource.setrlimit(resource.RLIMIT_FSIZE, (largest_file, resource.RLIM_INFINITY))

    # Python ignores SIGXFSZ, and the script inherits that.
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
        "HTTP_SEC_FETCH_SITE": "same-origin",
        "CONTENT_TYPE": content_type,
        "CONTENT_LENGTH": str(len(body)),
    }
