"""A source tree for the generators of documents in which some files are changed."""

import os
import shutil
from pathlib import Path

SOURCE = Path(os.environ["SOURCE"])


def changed_tree(folder, **changes):
    """Makes the tree in a folder: what the keywords name (`include`, `docs` and so on) holds these
    files; everything else is the source's."""
    for path in SOURCE.iterdir():
        if path.name not in (*changes, "build"):
            (Path(folder) / path.name).symlink_to(path)
    for name, files in changes.items():
        shutil.copytree(SOURCE / name, Path(folder) / name)
        for file, text in files.items():
            (Path(folder) / name / file).write_text(text)
    return Path(folder)
