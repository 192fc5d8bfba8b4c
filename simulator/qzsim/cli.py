"""The command line of simulate."""

import argparse
import contextlib
import os
import shlex
import signal
import sys
from pathlib import Path
from typing import List, Optional, Sequence, Union

from .layout import DescriptionError, list_machines, summary
from .sandbox import SandboxError
from .simulation import SimulatedRun, Simulation

_PASSED_ON = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT)
_ROOT = Path(__file__).resolve().parent.parent.parent

_EPILOG = """Without MACHINE the machines are listed. A fault is a line of a description's [faults] section, such as
"nvmlDeviceGetTemperature = fail 15 from 3"; see docs/simulator.md."""


def add_build_option(parser: argparse.ArgumentParser) -> None:
    parser.add_argument("--build", type=Path, default=_ROOT / "build/release", metavar="DIR",
                        help="the build folder that holds the programs and the stand-ins (build/release)")


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(prog="simulate", epilog=_EPILOG,
                                     description="Runs qzGpuInfo on a machine with simulated GPUs.")
    add_build_option(parser)
    parser.add_argument("--program", default="qzGpuInfo", metavar="PROGRAM",
                        help="run this instead of qzGpuInfo: a path, or a name in the build folder or PATH")
    parser.add_argument("--fault", action="append", default=[], metavar="FAULT", help="one more thing that goes wrong")
    parser.add_argument("--report", type=Path, metavar="FILE", help="write what the stand-ins counted, as JSON")
    parser.add_argument("--shm", metavar="DIR", help='host folder to be /dev/shm; or "none", "read-only", a size')
    parser.add_argument("--share-pids", action="store_true", help="show the program the host's processes")
    parser.add_argument("--no-proc", action="store_true", help="give the program no /proc")
    parser.add_argument("--cycle-start", type=int, default=0, metavar="N", help='what "cycle" figures count from')
    parser.add_argument("--wrap", type=shlex.split, default=[], metavar="COMMAND",
                        help='put a command before the program, such as "strace -f"')
    parser.add_argument("machine", nargs="?", metavar="MACHINE", help="a name of the list, or a description's path")
    parser.add_argument("arguments", nargs=argparse.REMAINDER, metavar="ARGUMENTS", help="for the program")
    return parser


def _list(build: Path) -> None:
    paths = list_machines()
    width = max(len(path.stem) for path in paths)
    for path in paths:
        print(f"{path.stem:{width}}  {summary(build, path)}", flush=True)


def _shm(text: Optional[str]) -> Union[str, int, None]:
    return int(text) if text is not None and text.isdigit() else text


def main(arguments: Optional[Sequence[str]] = None) -> int:
    """Returns the program's exit code; 2 for a wrong command line, 125 for a machine that cannot be simulated."""
    options = _parser().parse_args(arguments)
    try:
        if options.machine is None:
            _list(options.build)
            return 0
        return _run(options)
    except BrokenPipeError:
        # The reader has exited. What the interpreter still flushes at exit is discarded.
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 128 + signal.SIGPIPE
    except (DescriptionError, SandboxError) as error:
        print(f"simulate: {error}", file=sys.stderr)
        return 125


def _run(options: argparse.Namespace) -> int:
    run: Optional[SimulatedRun] = None
    is_starting = False
    early: List[int] = []

    def pass_on(number: int, _frame: object) -> None:
        if is_starting:
            early.append(number)
            return
        if run is None:
            # Leaves the block below, which removes what exists of the machine.
            raise SystemExit(128 + number)
        with contextlib.suppress(ProcessLookupError):
            run.send(number)
    for number in _PASSED_ON:
        if signal.getsignal(number) != signal.SIG_IGN:
            signal.signal(number, pass_on)
    with Simulation(options.machine, options.build, program=options.program, faults=options.fault,
                    shm=_shm(options.shm), share_pids=options.share_pids, no_proc=options.no_proc, wrap=options.wrap,
                    cycle_start=options.cycle_start) as simulation:
        is_starting = True
        run = simulation.start(*options.arguments, stdout=None, stderr=None)
        is_starting = False
        for number in early:
            pass_on(number, None)
        code = run.wait(timeout=None)
        if options.report is not None:
            options.report.write_text(run.report.as_json() + "\n")
        return code or 0
