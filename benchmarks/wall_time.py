"""Wall times of whole processes, by hyperfine."""

import json
import sys
import tempfile
from pathlib import Path

import bare_machine

TURNS = 10
RUNS_A_TURN = 40


def in_turns(run_hyperfine, lines, turns=TURNS, runs=RUNS_A_TURN):
    """Median wall times in seconds of the command lines, a list with an entry a turn for each. They take turns within
    one run of hyperfine, so that other work on the machine falls on each alike; every other turn goes backwards.

    run_hyperfine(COMMAND, FOLDER): runs the command where the programs are to run, with FOLDER writable there under
    the same name; returns the ended Run. The exit codes of the programs are not looked at: a query
    answers by its own.
    """
    order = [line for turn in range(turns) for line in (lines if turn % 2 == 0 else reversed(lines))]
    with tempfile.TemporaryDirectory(prefix="qzBench-") as scratch:
        times = Path(scratch, "times.json")
        done = run_hyperfine([bare_machine.locate("hyperfine"), "--shell=none", "--style=none", "--ignore-failure",
                              "--warmup=3", f"--runs={runs}", f"--export-json={times}", *order], scratch)
        if done.exit_code != 0:
            sys.exit(f"hyperfine failed:\n{done.output}{done.errors}")
        results = json.loads(times.read_text(encoding="utf-8"))["results"]
    return [[result["median"] for result in results if result["command"] == line] for line in lines]
