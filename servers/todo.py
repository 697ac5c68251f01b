"""What the example todo needs: keys, and users with passwords."""

import ctypes
import os
from collections.abc import Iterable
from pathlib import Path


def password_hash(password: str) -> str:
    """The hash of libsodium at its lowest cost."""
    sodium = ctypes.CDLL("libsodium.so.23")
    assert sodium.sodium_init() >= 0
    made = ctypes.create_string_buffer(sodium.crypto_pwhash_strbytes())
    data = password.encode()
    cost = sodium.crypto_pwhash_opslimit_min()
    memory = sodium.crypto_pwhash_memlimit_min()
    size = ctypes.c_ulonglong
    assert sodium.crypto_pwhash_str(made, data, size(len(data)), size(cost), memory) == 0
    return made.value.decode()


def write(path: Path, text: str) -> None:
    """Writes a file for the owner of its folder, who is the user that runs the script."""
    path.write_text(text, encoding="ascii")
    path.chmod(0o600)
    owner = path.parent.stat()
    os.chown(path, owner.st_uid, owner.st_gid)


def make_lists(
    folder: Path, server: str | os.PathLike[str], users: Iterable[str], password: str
) -> None:
    """Makes the folder of the lists, for the owner of the server's folder, with keys and users."""
    folder.mkdir(exist_ok=True)
    owner = os.stat(server)
    os.chown(folder, owner.st_uid, owner.st_gid)
    write(folder / "keys", os.urandom(32).hex())
    write(folder / "users", "".join(f"{name} {password_hash(password)}\n" for name in users))
