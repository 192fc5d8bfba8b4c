"""The simulated machine: lays the GPUs of a description file around a program and reports what it did to them."""

from .counters import Report
from .description import DescriptionError, Machine, describe, find_description, list_machines
from .sandbox import Run, Sandbox, SandboxError
from .simulation import Simulation

__all__ = ["DescriptionError", "Machine", "Report", "Run", "Sandbox", "SandboxError", "Simulation", "describe",
           "find_description", "list_machines"]
