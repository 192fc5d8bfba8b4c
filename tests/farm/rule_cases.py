"""What the tests of the rules feed to promtool: nodes with one fault, and beside each its nearest healthy neighbour.

A series' values are parts (value, minutes): a number, STALE (a scrape that no longer had the series, and none after it)
or None (no sample)."""

STALE = "stale"
STEPS = 2  # samples a minute
BEGIN, END = 15, 50  # minutes: when faults begin, and when all is over
VENDORS = {"Cuda": "NVIDIA", "AMD": "AMD", "Other": "AMD"}
TEXTFILE = "/var/lib/prometheus/node-exporter/qzgpuinfo.prom"


def notation(parts):
    """The parts in promtool's words."""
    words = []
    for value, minutes in parts:
        count = int(minutes * STEPS)
        if value == STALE:
            words += ["stale", f"_x{count - 1}"]
        elif value is None:
            words.append(f"_x{count}")
        elif isinstance(value, tuple):  # (first, step)
            words.append(f"{value[0]}+{value[1]}x{count - 1}")
        else:
            words.append(f"{value}+0x{count - 1}")
    return " ".join(words)


def series(metric, /, **labels):
    return metric + "{" + ",".join(f'{label}="{value}"' for label, value in sorted(labels.items())) + "}"


def node(instance, minutes, kind="Cuda", model="Model", **changes):
    """The series of a healthy node with two GPUs. `changes`: other parts for the series of a name, or for the GPU of
    that number alone (NAME_0); without a prefix."""
    place = {"job": "node", "instance": instance}
    values = {}

    def add(metric, value, key=None, /, **labels):
        short = metric.replace("qzgpuinfo_", "")
        parts = next((changes[one] for one in (key, short) if one in changes), [(value, minutes)])
        if parts:
            values[series(metric, **place, **labels)] = notation(parts)

    add("up", 1)
    add("node_textfile_mtime_seconds", (1000, 30), "mtime", file=TEXTFILE)
    add("qzgpuinfo_build_info", 1, version="1.0")
    for name, value in (("up", 1), ("writer_attached", 1), ("measuring", 0), ("gpus", 2)):
        add("qzgpuinfo_" + name, value, "qzgpuinfo_up" if name == "up" else None)
    for vendor in ("NVIDIA", "AMD"):
        for name in ("gpus_installed", "gpus_listed"):
            add("qzgpuinfo_" + name, 2 if vendor == VENDORS[kind] else 0, f"{name}_{vendor}", vendor=vendor)
    for gpu in range(2):
        labels = {"gpu": gpu, "kind": kind, "device": gpu}
        for name, value in (("figures_valid", 1), ("opencl_matched", 1), ("optix_capable", int(kind == "Cuda")),
                            ("amd_ray_tracing", int(kind == "AMD")), ("usage_ratio", 0.05), ("temperature_celsius", 60)):
            add("qzgpuinfo_gpu_" + name, value, f"gpu_{name}_{gpu}", **labels)
        add("qzgpuinfo_gpu_info", 1, f"gpu_info_{gpu}", name=model, **labels)
        add("qzgpuinfo_score_gps", 100, f"score_gps_{gpu}", name=model, **labels)
    return values


LISTED = ("gpu_figures_valid", "gpu_opencl_matched", "gpu_optix_capable", "gpu_amd_ray_tracing", "gpu_usage_ratio",
          "gpu_temperature_celsius", "gpu_info", "gpus")


def without_list(*times, **changes):
    """Changes that take the list away: `times` are minutes with it, without it, with it... `gpus` is 2 while there."""
    def parts(value):
        return [(value if i % 2 == 0 else STALE, minutes) for i, minutes in enumerate(times)]
    values = {"gpu_figures_valid": 1, "gpu_opencl_matched": 1, "gpu_optix_capable": 1, "gpu_amd_ray_tracing": 0,
              "gpu_usage_ratio": 0.05, "gpu_temperature_celsius": 60, "gpu_info": 1, "gpus": 2}
    return {**{name: parts(value) for name, value in values.items()}, **changes}


class Case:
    """An alert, the fault that makes it fire (at minute BEGIN + `after` it does, two scrapes after the fault it does not
    yet), and the nearest healthy neighbour's changes. `labels`: of the alert itself."""

    def __init__(self, alert, after, fault, neighbour, labels=None, kinds=("Cuda", "AMD", "Other")):
        self.alert, self.after, self.fault, self.neighbour = alert, after, fault, neighbour
        self.labels, self.kinds = labels or {}, kinds


def turns(before, then):
    """A value until the fault begins, and another one from then on."""
    return [(before, BEGIN), (then, END - BEGIN)]


def passes(value, during, minutes):
    """Another value for some minutes."""
    return [(value, BEGIN), (during, minutes), (value, END - BEGIN - minutes)]


GONE = without_list(BEGIN, END - BEGIN)
WRITTEN = ((1000, 30), BEGIN)
# A node's file that is gone: every series but those of node_exporter itself.
FILE_GONE = {**GONE, "mtime": [WRITTEN, (STALE, END - BEGIN)], "score_gps": turns(100, STALE), **{
    name: turns(value, STALE) for name, value in (
        ("qzgpuinfo_up", 1), ("writer_attached", 1), ("measuring", 0), ("build_info", 1), ("gpus_installed_NVIDIA", 2),
        ("gpus_listed_NVIDIA", 2), ("gpus_installed_AMD", 0), ("gpus_listed_AMD", 0))}}
CASES = [
    Case("QzGpuInfoNoCompanion", 7, {**GONE, "qzgpuinfo_up": turns(1, 0), "writer_attached": turns(1, 0)},
         # As while a node starts.
         {"qzgpuinfo_up": passes(1, 0, 4), "writer_attached": passes(1, 0, 4)}),
    Case("QzGpuInfoCompanionHangs", 7, {**GONE, "qzgpuinfo_up": turns(1, 0)},
         {"qzgpuinfo_up": passes(1, 0, 25), "measuring": passes(0, 1, 25)}),
    Case("QzGpuInfoCompanionHangs", 32, {**GONE, "qzgpuinfo_up": turns(1, 0), "measuring": turns(0, 1)},
         # Measuring, and its list is there all the time.
         {"measuring": turns(0, 1)}, labels={"measuring": "yes"}),
    Case("QzGpuInfoGpuLost", 4, {"gpu_figures_valid_1": turns(1, 0), "gpu_temperature_celsius_1": turns(60, STALE)},
         # A cycle without an answer, as seen by one scrape.
         {"gpu_figures_valid_1": passes(1, 0, 0.5)}),
    Case("QzGpuInfoFewerGpus", 12, {"gpus": turns(2, 1)}, {"gpus": [(1, BEGIN), (2, END - BEGIN)]}),
    Case("QzGpuInfoNotListed", 7, {"gpus_installed_NVIDIA": turns(2, 3), "gpus_listed_NVIDIA": [(2, END)]},
         {"gpus_installed_NVIDIA": turns(2, 3), "gpus_listed_NVIDIA": turns(2, 3)}, kinds=("Cuda",)),
    Case("QzGpuInfoNotListed", 7, {"gpus_installed_AMD": turns(2, 3), "gpus_listed_AMD": [(2, END)]},
         {"gpus_installed_AMD": turns(2, 3), "gpus_listed_AMD": turns(2, 3)}, kinds=("AMD",)),
    Case("QzGpuInfoTooHot", 7, {"gpu_temperature_celsius_0": turns(60, 88)}, {"gpu_temperature_celsius_0": turns(60, 87)},
         kinds=("Cuda",)),
    Case("QzGpuInfoTooHot", 7, {"gpu_temperature_celsius_0": turns(60, 98)}, {"gpu_temperature_celsius_0": turns(60, 97)},
         kinds=("AMD",)),
    Case("QzGpuInfoTooHot", 7, {"gpu_temperature_celsius_0": turns(60, 91)}, {"gpu_temperature_celsius_0": turns(60, 90)},
         kinds=("Other",)),
    Case("QzGpuInfoSlow", 7, {"score_gps_1": turns(100, 84)}, {"score_gps_1": turns(100, 85)}),
    Case("QzGpuInfoFileOld", 7, {"mtime": [WRITTEN, (9000, END - BEGIN)]},
         # Written late, every four and a half minutes: what is looked back on and what is waited for add up.
         {"mtime": [WRITTEN] + [(9000 + 270 * i, 4.5) for i in range(7)] + [((20000, 30), 3.5)]}),
    # The neighbour is down as a whole.
    Case("QzGpuInfoFileOld", 5, FILE_GONE, {**FILE_GONE, "up": turns(1, 0)}),
    Case("QzGpuInfoCapabilityLost", 12, {"gpu_optix_capable": turns(1, 0)},
         # One of its two GPUs still has it.
         {"gpu_optix_capable_0": turns(1, 0)}, kinds=("Cuda",)),
    Case("QzGpuInfoCapabilityLost", 12, {"gpu_amd_ray_tracing": turns(1, 0)}, {"gpu_amd_ray_tracing_0": turns(1, 0)},
         kinds=("AMD",)),
]


def restarting(minutes, **changes):
    """A node whose companion is away for some minutes."""
    return without_list(BEGIN, minutes, END - BEGIN - minutes, qzgpuinfo_up=passes(1, 0, minutes), **changes)


# What happens on a healthy farm day by day, and fires nothing.
CALM = {
    # A card whose driver offers no figures.
    "mute": {"gpu_figures_valid_1": [(0, END)], "gpu_temperature_celsius_1": None, "gpu_usage_ratio_1": None},
    "restart": restarting(2, writer_attached=passes(1, 0, 0.5)),
    "measures-first": restarting(10, measuring=passes(0, 1, 10)),
    "upgrade": restarting(1, writer_attached=passes(1, 0, 0.5), build_info=turns(1, STALE)),
    # Twelve minutes without the node; then the file of before, no companion, one that starts.
    "reboot": without_list(
        BEGIN, 16, END - BEGIN - 16,
        qzgpuinfo_up=[(1, BEGIN), (STALE, 12), (0, 4), (1, END - BEGIN - 16)],
        measuring=[(0, BEGIN), (STALE, 12), (0, END - BEGIN - 12)],
        writer_attached=[(1, BEGIN), (STALE, 12), (0, 3), (1, END - BEGIN - 15)],
        mtime=[WRITTEN, (STALE, 12), (2800, 1), ((9000, 30), END - BEGIN - 13)],
        up=passes(1, 0, 12), score_gps=passes(100, STALE, 12)),
}
