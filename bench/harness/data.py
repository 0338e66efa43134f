"""The files and folders that the workloads run over, the same in every run: all from one seed."""

import gzip
import os
import random
import shutil
import tempfile
from pathlib import Path

SEED = 20240229
LETTERS = bytes(range(ord("a"), ord("z") + 1))
TO_LETTER = bytes(LETTERS[i % 26] for i in range(256))
BLOCK_LINES = 8192  # a file is this many lines, again and again


def line_block(length, eol):
    """BLOCK_LINES lines of `length` bytes each, the end-of-line sequence included."""
    letters = length - len(eol)
    text = random.Random(SEED + length).randbytes(BLOCK_LINES * letters).translate(TO_LETTER)
    return b"".join(text[i:i + letters] + eol for i in range(0, len(text), letters))


class Store:
    """A folder that holds what was made, under names that tell what it is."""

    def __init__(self, parent):
        self.folder = Path(tempfile.mkdtemp(prefix="kvfile-bench-", dir=parent))

    def remove(self):
        shutil.rmtree(self.folder, ignore_errors=True)

    def output(self):
        """A file to write to."""
        return self.folder / "written"

    def _make(self, name, write):
        path = self.folder / name
        if not path.exists():
            unfinished = path.with_suffix(".unfinished")
            write(unfinished)
            unfinished.rename(path)
        return path

    def lines(self, count, length, eol, compressed=False):
        def write(path):
            block = line_block(length, eol)
            full, rest = divmod(count, BLOCK_LINES)
            with gzip.open(path, "wb", 6) if compressed else open(path, "wb") as file:
                for _ in range(full):
                    file.write(block)
                file.write(block[:rest * length])
                file.flush()
                os.fsync(file.fileno())  # or it is written out while others are timed
        return self._make(f"lines-{count}-{length}-{len(eol)}{'-gz' if compressed else ''}", write)

    def random_bytes(self, size):
        return self._make(f"bytes-{size}", lambda path: path.write_bytes(
            random.Random(SEED).randbytes(size)))

    def decimal_text(self, count):
        """`count` values of one to three digits, 1024 to a line, as printing writes them."""
        def write(path):
            values = random.Random(SEED).randbytes(count)
            with open(path, "w") as file:
                for at in range(0, count, 1024):
                    file.write("".join(f"{value} " for value in values[at:at + 1024]) + "\n")
        return self._make(f"decimal-{count}", write)

    def directory(self, count):
        def write(path):
            path.mkdir()
            for i in range(count):
                (path / f"entry-{i:07d}.txt").touch()
        return self._make(f"folder-{count}", write)

    def text(self, name, text):
        return self._make(name, lambda path: path.write_text(text))

    def drop(self, path):
        """Removes a large file or folder that no later workload needs."""
        if path.is_dir():
            shutil.rmtree(path)
        else:
            path.unlink(missing_ok=True)
