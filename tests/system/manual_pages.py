"""The manual's pages, as their sources say and as `man` shows them."""

import gzip
import os
import re
import subprocess
from pathlib import Path

FOLDER = Path(os.environ["QZGPUINFO_BUILD"], "packaging", "man")
PAGES = ("qzGpuInfo.1", "qzGpuStatus.1", "qzGpuDoctor.1", "qzGpuInfo_v2.5")


def source(page):
    return (FOLDER / page).read_text(encoding="utf-8")


def installed(prefix, page):
    """The source of a page that was installed under a prefix."""
    return gzip.decompress((prefix / f"share/man/man{page[-1]}/{page}.gz").read_bytes()).decode("utf-8")


def shown(page):
    """The page as plain text, not broken into lines or hyphenated where a terminal would."""
    done = subprocess.run(["man", "--no-hyphenation", "--no-justification", "-E", "UTF-8", "-l",
                           FOLDER / page],
                          env={**os.environ, "MANWIDTH": "1000", "MANPAGER": "cat", "LC_ALL": "C.UTF-8"},
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True, timeout=60, check=True)
    return re.sub(r".\x08", "", done.stdout)


def section(page, name):
    """The lines of one section, as shown."""
    text = re.search(rf"^{name}\n(.*?)(?=^\S|\Z)", shown(page), re.MULTILINE | re.DOTALL)
    return [line.strip() for line in text[1].splitlines() if line.strip()] if text else []


def plain(text):
    """A line of a source without roff's escapes."""
    return text.replace(r"\(dq", '"').replace(r"\(aq", "'").replace(r"\-", "-").replace(r"\e", "\\")


def examples(text):
    """The commands in a page's source."""
    return [plain(line) for line in re.findall(r"^\.Dl (.*)$", text, re.MULTILINE)]


def literal(text, first):
    """The literal block that begins with the given line."""
    blocks = re.findall(r"^\.Bd -literal[^\n]*\n(.*?)^\.Ed$", text, re.MULTILINE | re.DOTALL)
    return next(plain(block) for block in blocks if block.startswith(first))
