"""A companion on a simulated machine and the live view of what it publishes, in one terminal."""

import argparse
import signal
import subprocess
import sys
import tempfile
from pathlib import Path
from typing import List, Optional, Sequence

from .cli import add_build_option
from .layout import DescriptionError
from .sandbox import SandboxError
from .simulation import Simulation

_ENDING = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT)


def main(arguments: Optional[Sequence[str]] = None) -> int:
    """Returns the view's exit code; 125 for a machine that cannot be simulated."""
    parser = argparse.ArgumentParser(prog="demo", description="Shows a simulated machine's GPUs until q or Ctrl-C.")
    add_build_option(parser)
    parser.add_argument("machine", nargs="?", default="demo", metavar="MACHINE",
                        help="a name of the simulator's list, or a description's path")
    options = parser.parse_args(arguments)
    asked: List[int] = []
    for number in _ENDING:
        if signal.getsignal(number) != signal.SIG_IGN:
            signal.signal(number, lambda which, _frame: asked.append(which))
    try:
        with tempfile.TemporaryDirectory(prefix="qzsim-demo-") as segment, \
                Simulation(options.machine, options.build, program=Path(options.build) / "qzGpuInfo",
                           shm=segment) as simulation:
            companion = simulation.start(stdout=subprocess.DEVNULL)
            code = _show(Path(options.build) / "qzGpuStatus", segment, asked)
            if companion.is_running:
                companion.stop()
            return code
    except (DescriptionError, SandboxError, ProcessLookupError, OSError) as error:
        print(f"demo: {error}", file=sys.stderr)
        return 125


def _show(program: Path, segment: str, asked: List[int]) -> int:
    """Runs the view in the foreground until it exits. The terminal's signals reach it directly."""
    with subprocess.Popen([str(program), "--watch", "--wait", "20", "--directory", segment]) as view:
        while view.poll() is None:
            try:
                view.wait(0.5)
            except subprocess.TimeoutExpired:
                if asked:
                    view.terminate()
        return view.returncode if view.returncode >= 0 else 128 - view.returncode
