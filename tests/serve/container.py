"""Runs a program as a container does: python3 container.py [OPTION]... PROGRAM [ARGUMENT]...

The program is the only file of a root folder that nobody can write to. It is process 1, an ordinary
user without capabilities who cannot get any. As from a container runtime it has /proc and the usual
devices, and only with an option a /tmp, of a limited size.

Start this in a mount and a process namespace of its own; NAMESPACES is the command for that.
"""

import argparse
import ctypes
import os
import signal
import socket
import subprocess
import sys
import tempfile
from pathlib import Path

# Whatever ends the test ends the container.
NAMESPACES = (
    *("setpriv", "--pdeathsig=KILL"),
    *("unshare", "--mount", "--pid", "--fork", "--kill-child=KILL"),
)
# The root folder is mounted over this one, where only the container sees it.
ROOT = os.path.dirname(os.path.abspath(__file__))
USER = 65532
PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
DEVICES = ("null", "zero", "full", "random", "urandom", "tty")

MS_RDONLY, MS_NOSUID, MS_NODEV, MS_NOEXEC, MS_REMOUNT, MS_BIND = 1, 2, 4, 8, 32, 4096
MNT_DETACH = 2
PR_SET_PDEATHSIG, PR_CAPBSET_DROP, PR_SET_NO_NEW_PRIVS = 1, 24, 38


def command(*options: str) -> tuple[str, ...]:
    """What to put before a program and its arguments, to run it in a container."""
    return (*NAMESPACES, sys.executable, "-B", os.path.abspath(__file__), *options)


def is_allowed() -> bool:
    """Whether this user may make containers here."""
    with tempfile.TemporaryDirectory() as folder:
        mount = (*NAMESPACES, "mount", "-t", "tmpfs", "tarn-test", folder)
        return os.getuid() == 0 and subprocess.run(mount, capture_output=True).returncode == 0


def connects(host: str, port: int) -> bool:
    """Whether somebody listens there. A probe of Kubernetes with tcpSocket finds out the same."""
    try:
        socket.create_connection((host, port)).close()
        return True
    except (ConnectionRefusedError, ConnectionResetError):  # the latter while it stops listening
        return False


def call(name: str, *arguments: bytes | int | None) -> None:
    library = ctypes.CDLL(None, use_errno=True)
    if getattr(library, name)(*arguments) != 0:
        error = ctypes.get_errno()
        raise OSError(error, f"{name}{arguments}: {os.strerror(error)}")


def mount(source: str, target: str, kind: str = "", flags: int = 0, options: str = "") -> None:
    texts = (os.fsencode(text) for text in (source, target, kind))
    call("mount", *texts, ctypes.c_ulong(flags), os.fsencode(options))  # type: ignore[arg-type]


def make_root(root: str, program: str, proc: bool, devices: bool, tmp: str) -> None:
    content = Path(program).read_bytes()
    mount("tarn-root", root, "tmpfs", MS_NODEV, "mode=755")
    copy = Path(root, os.path.basename(program))
    copy.write_bytes(content)
    copy.chmod(0o755)
    folders = {"proc": proc, "dev": devices, "tmp": bool(tmp)}
    for folder in (name for name, wanted in folders.items() if wanted):
        os.mkdir(f"{root}/{folder}")
    if proc:
        mount("proc", f"{root}/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC)
    for device in DEVICES if devices else ():
        os.close(os.open(f"{root}/dev/{device}", os.O_CREAT))
        mount(f"/dev/{device}", f"{root}/dev/{device}", flags=MS_BIND)
    if tmp:
        mount("tarn-tmp", f"{root}/tmp", "tmpfs", MS_NOSUID | MS_NODEV, f"size={tmp},mode=1777")
    mount("", root, flags=MS_REMOUNT | MS_RDONLY | MS_NODEV)


def enter(root: str) -> None:
    """Makes the folder the root, and leaves nothing of the old one."""
    os.chdir(root)
    call("pivot_root", b".", b".")
    call("umount2", b".", MNT_DETACH)
    os.chdir("/")


def drop_rights(user: int) -> None:
    number = 0
    while ctypes.CDLL(None).prctl(PR_CAPBSET_DROP, number, 0, 0, 0) == 0:
        number += 1
    os.setgroups([])
    os.setresgid(user, user, user)
    os.setresuid(user, user, user)
    call("prctl", PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0)
    # With another user, the process has lost what --kill-child set.
    call("prctl", PR_SET_PDEATHSIG, signal.SIGKILL, 0, 0, 0)


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tmp", default="", metavar="SIZE", help="a /tmp of this size")
    parser.add_argument("--no-proc", action="store_true")
    parser.add_argument("--no-devices", action="store_true")
    parser.add_argument("--user", type=int, default=USER)
    parser.add_argument("--name", default="container", help="HOSTNAME in its environment")
    parser.add_argument("program")
    parser.add_argument("arguments", nargs=argparse.REMAINDER)
    chosen = parser.parse_args()
    make_root(ROOT, chosen.program, not chosen.no_proc, not chosen.no_devices, chosen.tmp)
    enter(ROOT)
    drop_rights(chosen.user)
    name = f"/{os.path.basename(chosen.program)}"
    os.execve(name, [name, *chosen.arguments], {"PATH": PATH, "HOSTNAME": chosen.name})


if __name__ == "__main__":
    main()
