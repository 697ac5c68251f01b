"""What tests of the documents share: source trees with modified files, for the generators, and the
parts of an example."""

import os
import re
import shutil
from pathlib import Path


def changed_tree(folder, **changes):
    """Makes a source tree in a folder. Each keyword (`include`, `docs` and so on) names a part of
    it and has the files to replace there; everything else comes from the real source."""
    source = Path(os.environ["SOURCE"])
    for path in source.iterdir():
        if path.name not in (*changes, "build"):
            (Path(folder) / path.name).symlink_to(path)
    for name, files in changes.items():
        shutil.copytree(source / name, Path(folder) / name)
        for file, text in files.items():
            (Path(folder) / name / file).write_text(text)
    return Path(folder)


def program_and_transcript(source):
    """The code of a program in docs/examples, and the commands and output in the comment at its
    end, where a backslash keeps "*/" and "/*" apart."""
    code, mark, comment = source.read_text().partition("\n/* Output:\n")
    if not mark or not comment.endswith("*/\n"):
        raise SystemExit(f"{source} does not end with /* Output: ... */")
    shown = re.sub(r"(?<=\*)\\(?=\\*/)|(?<=/)\\(?=\\*\*)", "", comment.removesuffix("*/\n"))
    return code, shown
