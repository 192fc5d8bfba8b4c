"""What the stand-ins counted, decoded from the file that they share with the launcher (lib/Counters.h)."""

import json
import struct
from pathlib import Path
from typing import Dict, List

_SLOTS = 2048
_EVENTS = 65536
_HEADER = struct.Struct("<8sII")
_SLOT = struct.Struct("<q120s")


class Report:
    """The counters of one run. A file that is missing or was never written reads as nothing counted."""

    def __init__(self, path: Path) -> None:
        self._values: Dict[str, int] = {}
        self.events: List[str] = []
        self.event_count = 0
        try:
            image = path.read_bytes()
        except OSError:
            return
        if len(image) < _HEADER.size or image[:7] != b"QZSIM 1":
            return
        _, slots, self.event_count = _HEADER.unpack_from(image)
        names = []
        for index in range(min(slots, _SLOTS)):
            value, name = _SLOT.unpack_from(image, _HEADER.size + index * _SLOT.size)
            names.append(name.split(b"\0", 1)[0].decode("utf-8", "replace"))
            self._values[names[-1]] = self._values.get(names[-1], 0) + value
        count = min(self.event_count, _EVENTS)
        events = struct.unpack_from(f"<{count}H", image, _HEADER.size + _SLOTS * _SLOT.size)
        self.events = [names[event] for event in events if event < len(names)]

    def _group(self, prefix: str) -> Dict[str, int]:
        return {name[len(prefix):]: value for name, value in self._values.items() if name.startswith(prefix)}

    @property
    def calls(self) -> Dict[str, int]:
        """Calls by entry point, and by entry point and device as "nvmlDeviceGetTemperature#0"."""
        return self._group("call:")

    @property
    def live(self) -> Dict[str, int]:
        """Objects that were created and not released, by kind; "nvml" counts nvmlInit_v2 without nvmlShutdown."""
        return {kind: count for kind, count in self._group("live:").items() if count != 0}

    @property
    def misuse(self) -> Dict[str, int]:
        """Calls that may crash a real driver: released or foreign handles, no initialisation."""
        return self._group("misuse:")

    @property
    def notes(self) -> Dict[str, int]:
        """Arguments worth checking: kernel names, work sizes, buffer sizes."""
        return self._group("note:")

    @property
    def opens(self) -> Dict[str, int]:
        """Openings of files below /sys/class/drm."""
        return self._group("open:")

    @property
    def loads(self) -> Dict[str, int]:
        return self._group("load:")

    @property
    def unloads(self) -> Dict[str, int]:
        """Unloading of the libraries, by dlclose or at process exit; `closes` has only dlclose."""
        return self._group("unload:")

    @property
    def closes(self) -> Dict[str, int]:
        return self._group("close:")

    def as_json(self) -> str:
        facts = {name: getattr(self, name) for name in
                 ("calls", "live", "misuse", "notes", "opens", "loads", "unloads", "closes", "events")}
        facts["event_count"] = self.event_count
        return json.dumps(facts, indent=1, sort_keys=True)
