"""docs/performance.md: one section per measurement, replaced as a whole when it is measured again."""

import ast
import os
import platform
import re
import time
from pathlib import Path

HEADING = re.compile(r"^## (.*)$", re.MULTILINE)
HEAD = """# What it costs

`./dev bench` measures all of this and rewrites this page; `./dev bench NAME` does so for one section. Absolute figures
depend on the machine; compare the ratios, which are measured side by side in one run. If `./dev bench real-gpu` has run
on a machine with NVIDIA GPUs, its section is the last.
"""


def machine():
    """The machine in words."""
    cpu = re.search(r"^model name\s*: (.*)$", Path("/proc/cpuinfo").read_text(encoding="utf-8"), re.MULTILINE)
    memory = re.search(r"^MemTotal:\s+(\d+) kB$", Path("/proc/meminfo").read_text(encoding="utf-8"), re.MULTILINE)
    system = re.search(r'^PRETTY_NAME="?(.*?)"?$', Path("/etc/os-release").read_text(encoding="utf-8"), re.MULTILINE)
    release = re.match(r"\d+\.\d+", platform.release())
    return (f"{len(os.sched_getaffinity(0))} x {cpu[1].strip() if cpu else platform.machine()}, "
            f"{int(memory[1]) / 2**20:.0f} GiB, {system[1] if system else 'Linux'}, "
            f"Linux {release[0] if release else platform.release()}")


def load():
    """The machine's load; call it before a measurement begins."""
    return os.getloadavg()[0]


def title_and_method(script):
    """The first line of a measurement's description, and the rest up to its usage."""
    title, _, rest = ast.get_docstring(ast.parse(Path(script).read_text(encoding="utf-8"))).partition("\n")
    return title, rest.partition("usage:")[0].strip()


def cell(text):
    return text.replace("|", "\\|")


def section(script, rows, load_before):
    """The text of a measurement's section, from what it measured."""
    title, method = title_and_method(script)
    lines = [f"## {title}", "", method, "",
             f"`./dev bench {Path(script).name}`, {time.strftime('%Y-%m-%d')}, {machine()}, "
             f"load {load_before:.1f} when it began.", "",
             "| What | Measured | Limit | |", "|---|---|---|---|"]
    lines += ["| " + " | ".join(cell(row[key]) for key in ("what", "measured", "limit", "verdict")) + " |"
              for row in rows]
    return "\n".join(lines) + "\n"


def sections(text):
    """A page's sections by their titles, unchanged."""
    begins = [*HEADING.finditer(text)]
    ends = [match.start() for match in begins[1:]] + [len(text)]
    return {match[1]: text[match.start():end].rstrip("\n") + "\n" for match, end in zip(begins, ends)}


def with_sections(text, new, order):
    """The page with the new sections in the place of those of their titles. `order`: the titles that come first; sections
    with other titles follow them, unchanged."""
    found = sections(text)
    for one in new:
        found.update(sections(one))
    titles = [title for title in order if title in found] + [title for title in found if title not in order]
    return "\n".join([HEAD, *(found[title] for title in titles)])
