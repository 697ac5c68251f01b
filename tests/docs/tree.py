"""Makes source trees with modified files, for the generators of documents."""

import os
import shutil
from pathlib import Path

SOURCE = Path(os.environ["SOURCE"])


def changed_tree(folder, **changes):
    """Makes a source tree in a folder. Each keyword (`include`, `docs` and so on) names a part of
    it and has the files to replace there; everything else comes from the real source."""
    for path in SOURCE.iterdir():
        if path.name not in (*changes, "build"):
            (Path(folder) / path.name).symlink_to(path)
    for name, files in changes.items():
        shutil.copytree(SOURCE / name, Path(folder) / name)
        for file, text in files.items():
            (Path(folder) / name / file).write_text(text)
    return Path(folder)
