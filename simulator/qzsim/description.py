"""Machine descriptions: where they are, and what qzsim-describe says of one."""

import json
import subprocess
from dataclasses import dataclass
from pathlib import Path
from typing import List, Optional, Sequence, Tuple

MACHINES = Path(__file__).resolve().parent.parent / "machines"


class DescriptionError(Exception):
    """A description that cannot be used; the text is one line that names the file and the line."""


@dataclass(frozen=True)
class Library:
    link: str
    file: str
    form: str
    omit: Tuple[str, ...]


@dataclass(frozen=True)
class SysfsFile:
    path: str
    kind: str
    content: bytes


@dataclass(frozen=True)
class Card:
    name: str
    address: str
    device: str
    hwmon: Tuple[str, ...]
    connectors: Tuple[str, ...]
    files: Tuple[SysfsFile, ...]


@dataclass(frozen=True)
class Machine:
    path: Path
    summary: str
    processes: Tuple[str, ...]
    os_release: Optional[bytes]
    fast_random: bool
    pocl: bool
    libraries: Tuple[Library, ...]
    drm_entries: Tuple[str, ...]
    cards: Tuple[Card, ...]


def list_machines() -> List[Path]:
    """The descriptions that come with the simulator, by name."""
    return sorted(MACHINES.glob("*.machine"))


def find_description(machine: str) -> Path:
    """The description of that name, or the file of that path."""
    named = MACHINES / (machine + ".machine")
    if "/" not in machine and named.is_file():
        return named
    if Path(machine).is_file():
        return Path(machine).resolve()
    known = ", ".join(path.stem for path in list_machines())
    raise DescriptionError(f"{machine}: neither a file nor one of the machines {known}")


def _card(facts: dict) -> Card:
    files = tuple(SysfsFile(file["path"], file["kind"], file["bytes"].encode("latin-1")) for file in facts["files"])
    return Card(facts["name"], facts["address"], facts["device"], tuple(facts["hwmon"]),
                tuple(facts["connectors"]), files)


def describe(build: Path, path: Path, faults: Sequence[str] = ()) -> Machine:
    """What the description says; `build` is the CMake build folder that holds the simulator."""
    tool = build / "simulator" / "qzsim-describe"
    try:
        answer = subprocess.run([str(tool), str(path), *faults], capture_output=True, check=False)
    except OSError as error:
        raise DescriptionError(f"{tool}: {error.strerror}; build the simulator first") from error
    if answer.returncode != 0:
        raise DescriptionError(answer.stderr.decode("utf-8", "replace").strip())
    facts = json.loads(answer.stdout)
    libraries = tuple(Library(entry["link"], entry["file"], entry["form"], tuple(entry["omit"]))
                      for entry in facts["libraries"])
    os_release = facts["os_release"]
    return Machine(path=path, summary=facts["summary"], processes=tuple(facts["processes"]),
                   os_release=None if os_release is None else os_release.encode("latin-1"),
                   fast_random=facts["fast_random"], pocl=facts["pocl"], libraries=libraries,
                   drm_entries=tuple(facts["drm_entries"]),
                   cards=tuple(_card(card) for card in facts["cards"]))
