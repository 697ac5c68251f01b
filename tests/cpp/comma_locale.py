"""A locale whose decimal point is a comma."""

import contextlib
import subprocess
import tempfile
from collections.abc import Iterator
from pathlib import Path


@contextlib.contextmanager
def comma_locale() -> Iterator[dict[str, str]]:
    """The variables that choose it, as long as the with statement lasts."""
    with tempfile.TemporaryDirectory() as folder:
        plain = Path("/usr/lib/locale/C.utf8/LC_NUMERIC").read_bytes()
        place = plain.index(b".\0")
        Path(folder, "comma").mkdir()
        numeric = plain[:place] + b"," + plain[place + 1 :]
        Path(folder, "comma/LC_NUMERIC").write_bytes(numeric)
        variables = {"LOCPATH": folder, "LC_NUMERIC": "comma"}
        shown = subprocess.run(
            ["/usr/bin/printf", "%.1f", "1,5"],
            env=variables,
            stdout=subprocess.PIPE,
            check=True,
        )
        assert shown.stdout == b"1,5", shown.stdout
        yield variables
