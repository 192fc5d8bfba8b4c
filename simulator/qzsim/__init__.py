"""The simulated machine: lays the GPUs of a description file around a program and reports what it did to them."""

from .counters import Report
from .description import DescriptionError, Machine, describe, find_description, list_machines
from .simulation import Simulation, SimulationError

__all__ = ["DescriptionError", "Machine", "Report", "Simulation", "SimulationError", "describe",
           "find_description", "list_machines"]
