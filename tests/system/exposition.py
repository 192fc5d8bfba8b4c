"""A strict reader of the Prometheus text exposition format: any deviation is an error."""

import re

NAME = r"[a-zA-Z_:][a-zA-Z0-9_:]*"
LABEL = re.compile(r'([a-zA-Z_][a-zA-Z0-9_]*)="((?:[^"\\\n]|\\[\\"n])*)"')
SERIES = re.compile(rf"({NAME})(?:\{{(.*)\}})? (\S+)")


def _labels(text):
    labels, position = {}, 0
    while position < len(text):
        match = LABEL.match(text, position)
        if not match:
            raise ValueError(f"no label at {text[position:]!r}")
        name, value = match.groups()
        if name in labels:
            raise ValueError(f"label {name} twice")
        labels[name] = re.sub(r"\\(.)", lambda escape: {"n": "\n"}.get(escape[1], escape[1]), value)
        position = match.end()
        if position < len(text):
            if text[position] != ",":
                raise ValueError(f"no comma at {text[position:]!r}")
            position += 1
    return labels


def parse(data):
    """Families by name: {"help": text, "type": text, "series": [(labels, value), ...]}."""
    text = data.decode("utf-8")
    if not text.endswith("\n"):
        raise ValueError("the last line does not end")
    families, current = {}, None
    for line in text[:-1].split("\n"):
        comment = re.fullmatch(rf"# (HELP|TYPE) ({NAME}) (.+)", line)
        if comment:
            keyword, name, rest = comment.groups()
            family = families.setdefault(name, {"series": []})
            if keyword.lower() in family or family["series"]:
                raise ValueError(f"misplaced {line!r}")
            if keyword == "TYPE" and rest not in ("gauge", "counter", "untyped"):
                raise ValueError(f"type {rest!r}")
            family[keyword.lower()] = rest
            current = name
            continue
        series = SERIES.fullmatch(line)
        if not series:
            raise ValueError(f"neither comment nor series: {line!r}")
        name, labels, value = series.groups()
        if name != current or not {"help", "type"} <= families[name].keys():
            raise ValueError(f"{name} is outside of its family")
        labels = _labels(labels or "")
        if any(labels == earlier for earlier, _ in families[name]["series"]):
            raise ValueError(f"{line!r} twice")
        families[name]["series"].append((labels, float(value)))
    if any(not family["series"] for family in families.values()):
        raise ValueError("a family without a series")
    return families
