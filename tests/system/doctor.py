"""qzGpuDoctor on simulated machines, and what it says there."""

import json

import simulated
from simulated import BUILD, SimulatedCase

DOCTOR = BUILD / "qzGpuDoctor"
PROBLEMS = ("warning", "failure")


class Examined:
    """One report in its JSON form."""

    def __init__(self, exit_code, output):
        self.exit_code = exit_code
        self.report = json.loads(output)
        self.findings = self.report["findings"]

    def of(self, check):
        return [finding for finding in self.findings if finding["check"] == check]

    def problems(self):
        """Each check that found a problem, with its gravest verdict."""
        found = {}
        for finding in self.findings:
            if finding["verdict"] in PROBLEMS:
                found[finding["check"]] = max(found.get(finding["check"], ""), finding["verdict"],
                                              key=("", *PROBLEMS).index)
        return found

    def facts(self, check):
        return " | ".join(finding["fact"] for finding in self.of(check))


class DoctorCase(SimulatedCase):
    def doctor(self, machine, *arguments, faults=(), described=False, timeout=60, **settings):
        """The ended run of the doctor on a machine (its name, or with `described` its text)."""
        lay_out = self.described if described else self.simulation
        return lay_out(machine, faults, program=DOCTOR, **settings).run(*arguments, timeout=timeout)

    def examined(self, machine, *arguments, **settings):
        run = self.doctor(machine, "--json", *arguments, **settings)
        self.assertEqual(run.errors, "")
        return Examined(run.exit_code, run.output)


main = simulated.main
