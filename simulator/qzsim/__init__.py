"""The simulated machine: lays the GPUs of a description file around a program and reports what it did to them."""

from .counters import Report
from .layout import DescriptionError, Layout, find_description, list_machines
from .sandbox import Run, Sandbox, SandboxError
from .simulation import Simulation

__all__ = ["DescriptionError", "Layout", "Report", "Run", "Sandbox", "SandboxError", "Simulation", "find_description",
           "list_machines"]
