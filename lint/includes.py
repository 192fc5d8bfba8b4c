#!/usr/bin/env python3
"""Rejects an include that rooms.txt does not allow.

usage: includes.py [ROOT [FILE...]]

The folders depend one way. Prints FILE:LINE: REASON for each include that breaks this, and ends with 1 if
there is one.
"""

import re
import sys
from pathlib import Path, PurePosixPath

ROOMS = (Path(__file__).resolve().parent.parent / "rooms.txt").read_text(encoding="utf-8").splitlines()
# Each folder, and the others that its files may include.
MAY_INCLUDE = {folder: others for folder, *others in map(str.split, ROOMS) if folder != "#"}
SOURCES = {".h", ".hpp", ".cpp", ".cc", ".c", ".in"}
INCLUDE = re.compile(r'^\s*#\s*include(?:_next)?\s*(["<])([^">]+)[">]')


def folder_of(path):
    """The innermost folder of MAY_INCLUDE that contains a path from the root, or None."""
    parents = [str(parent) for parent in PurePosixPath(path).parents]
    return next((parent for parent in parents if parent in MAY_INCLUDE), None)


def complaint(root, file, quote, target):
    """Why `file` (a path from the root) may not include `target`, or None."""
    if ".." in PurePosixPath(target).parts:
        return f'includes "{target}": includes are written from the root of the tree, without ".."'
    own = folder_of(file)
    if own is None:
        return None
    if quote == '"' and "/" not in target and (root / file).with_name(target).exists():
        return f'includes "{target}": includes are written from the root of the tree ("{own}/{target}")'
    other = folder_of(target)
    if other is None or other == own or other in MAY_INCLUDE[own] or not (root / target).exists():
        return None
    allowed = ", ".join(MAY_INCLUDE[own]) or "no other folder"
    return f'{own} includes {other} ("{target}"); it may include {allowed}'


def complaints(root, files):
    for file in files:
        text = (root / file).read_text(encoding="utf-8", errors="replace")
        for number, line in enumerate(text.splitlines(), 1):
            match = INCLUDE.match(line)
            reason = match and complaint(root, file, *match.groups())
            if reason:
                yield f"{file}:{number}: {reason}"


def sources(root):
    for folder in {name.split("/")[0] for name in MAY_INCLUDE}:
        for path in sorted((root / folder).rglob("*")):
            if path.suffix in SOURCES and path.is_file():
                yield str(path.relative_to(root))


def main():
    root = Path(sys.argv[1] if len(sys.argv) > 1 else ".").resolve()
    files = sys.argv[2:] or sorted(sources(root))
    if not files:
        sys.exit(f"includes.py: no source file in {root}")
    found = list(complaints(root, files))
    print("\n".join(found), end="\n" if found else "")
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
