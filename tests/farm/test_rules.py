"""The rules for Prometheus, evaluated by promtool: each alert fires for its fault, and for nothing that is near it."""

import json
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

import qz
from rule_cases import BEGIN, CALM, CASES, END, LISTED, STEPS, TEXTFILE, node, series

RULES = qz.SOURCE / "farm/prometheus"
STEP = f"{60 // STEPS}s"
FILES = sorted(RULES.glob("*.yml"))
TEXT = (RULES / "qzgpuinfo.yml").read_text(encoding="utf-8")
ALERTS = sorted(set(re.findall(r"^ +- alert: (\w+)$", TEXT, re.MULTILINE)))
SCRAPE_SECONDS = 15  # that the rules expect
FIRING = 'ALERTS{alertstate="firing"'
# What has fired at any time.
EVER = f"count by (alertname, instance) (max without (gpu, file, vendor) (count_over_time({FIRING}}}[2h])) > bool 0)"



class RuleCase(unittest.TestCase):
    def setUp(self):
        if shutil.which("promtool") is None:
            self.skipTest("not on this machine: promtool")
        folder = tempfile.TemporaryDirectory(prefix="qzTest-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def promtool(self, *arguments):
        done = subprocess.run(["promtool", *arguments], cwd=self.folder, capture_output=True, text=True, timeout=300,
                              check=False)
        return done.returncode, done.stdout + done.stderr

    def evaluate(self, nodes, expected):
        """`nodes`: {series: values}; `expected`: (minute, expression, [(labels, value), ...])."""
        def samples(expression, found):
            name = expression if expression.startswith("qzgpuinfo:") else ""
            return [{"labels": series(name, **labels), "value": value} for labels, value in found]
        test = {"interval": STEP,
                "input_series": [{"series": name, "values": values} for name, values in nodes.items()],
                "promql_expr_test": [{"eval_time": f"{int(minute * 60)}s", "expr": expression, "exp_samples": samples(expression, found)}
                                     for minute, expression, found in expected]}
        path = self.folder / "test.yml"
        path.write_text(json.dumps({"rule_files": [str(path) for path in FILES], "tests": [test],
                                    "evaluation_interval": STEP}), encoding="utf-8")
        code, said = self.promtool("test", "rules", str(path))
        self.assertEqual(code, 0, said)


class Alerts(RuleCase):
    def test_each_fires_for_its_fault_and_for_nothing_else(self):
        """All cases in one farm, each with a model of its own that three healthy nodes have too."""
        nodes, expected, firing = {}, [], []
        for number, case in enumerate(CASES):
            for kind in case.kinds:
                name = f"{number}-{kind}"
                changes = {"bad": case.fault, "near": case.neighbour, "good": {}, "fine": {}, "third": {}}
                for instance, change in changes.items():
                    nodes.update(node(f"{instance}-{name}", END, kind, name, **change))
                ours = {"alertname": case.alert, "instance": f"bad-{name}"}
                firing.append(ours)
                own = "".join(f',{label}="{value}"' for label, value in case.labels.items())
                fired = f'count by (alertname, instance) ({FIRING},instance="bad-{name}"{own}}})'
                expected += [(BEGIN + 1, fired, []), (BEGIN + case.after, fired, [(ours, 1)]), (END, fired, [(ours, 1)])]
        for name, changes in CALM.items():
            for kind in ("Cuda", "AMD", "Other"):
                nodes.update(node(f"{name}-{kind}", END, kind, f"{name}-{kind}", **changes))
        self.evaluate(nodes, [*expected, (END, EVER, [(labels, 1) for labels in firing])])

    def test_every_alert_has_a_case(self):
        self.assertEqual(sorted({case.alert for case in CASES}), ALERTS)

    def test_few_nodes_and_scores_of_companions_that_measure(self):
        # Of a model on two nodes nobody knows what is usual.
        nodes = {**node("two-a", 20, model="Two"), **node("two-b", 20, model="Two", score_gps=[(50, 20)])}
        for instance, score in (("a", 100), ("b", 100), ("c", 80)):
            nodes.update(node(instance, 20, score_gps=None))
            nodes[series("qzgpuinfo_gpu_benchmark_score", job="node", instance=instance, gpu=0, kind="Cuda",
                         device=0)] = f"{score}+0x39"
        self.evaluate(nodes, [(19, EVER, [({"alertname": "QzGpuInfoSlow", "instance": "c"}, 1)]),
                              (19, "qzgpuinfo:model_score:nodes", [({"kind": "Cuda", "name": "Model"}, 3),
                                                                   ({"kind": "Cuda", "name": "Two"}, 2)])])


class Inventory(RuleCase):
    def test_counts(self):
        nodes = {**node("a", 20), **node("b", 20, gpu_usage_ratio_0=[(0.9, 20)]),
                 **node("c", 20, "AMD", "Radeon", gpu_figures_valid_1=[(0, 20)]),
                 **node("d", 20, "Other", "Else", qzgpuinfo_up=[(0, 20)], **{name: None for name in LISTED})}
        self.evaluate(nodes, [(15, expression, found) for expression, found in (
            ("qzgpuinfo:nodes:count", [({}, 4)]),
            ("qzgpuinfo:nodes_up:count", [({}, 3)]),
            ("qzgpuinfo:gpus_by_model:count",
             [({"kind": "Cuda", "name": "Model"}, 4), ({"kind": "AMD", "name": "Radeon"}, 2)]),
            ("qzgpuinfo:gpus_free:count",
             [({"kind": "Cuda", "name": "Model"}, 3), ({"kind": "AMD", "name": "Radeon"}, 1)]),
            ("qzgpuinfo:nodes_capable:count",
             [({"capability": "cuda"}, 2), ({"capability": "optix"}, 2), ({"capability": "amd_ray_tracing"}, 1)]))])

    def test_median_counts_each_node_once(self):
        nodes = {**node("a", 20), **node("b", 20, score_gps_1=None, score_gps_0=[(90, 20)]),
                 **node("c", 20, score_gps_1=None, score_gps_0=[(10, 20)])}
        self.evaluate(nodes, [(15, "qzgpuinfo:model_score:median", [({"kind": "Cuda", "name": "Model"}, 90)])])


class Text(RuleCase):
    """What the rules say."""

    def test_promtool_accepts_them(self):
        code, said = self.promtool("check", "rules", *map(str, FILES))
        self.assertEqual(code, 0, said)

    def test_each_alert_waits_for_two_scrapes_and_says_what_to_do(self):
        documentation = (qz.SOURCE / "docs/farm.md").read_text(encoding="utf-8")
        anchors = {re.sub(r"[^\w -]", "", title).lower().replace(" ", "-")
                   for title in re.findall(r"^#+ (.*)$", documentation, re.MULTILINE)}
        alerts = re.split(r"^ +- alert: ", TEXT, flags=re.MULTILINE)[1:]
        self.assertGreaterEqual(len(alerts), 10)
        for text in alerts:
            name = text.split("\n")[0]
            with self.subTest(name):
                count, unit = re.search(r"^ +for: (\d+)([sm])$", text, re.MULTILINE).groups()
                self.assertGreaterEqual(int(count) * {"s": 1, "m": 60}[unit], 2 * SCRAPE_SECONDS)
                if "annotations: *" in text:
                    continue
                for key in ("summary", "action"):
                    self.assertRegex(text, rf'\n +{key}: "[^"]{{20,}}"\n')
                page, anchor = re.search(r"documentation: (\S+)#(\S+)", text).groups()
                self.assertEqual((page, anchor in anchors), ("docs/farm.md", True), anchor)

    def test_no_alert_names_a_vendor(self):
        alerts = TEXT[TEXT.index("- name: qzgpuinfo-alerts"):]
        self.assertEqual(re.findall(r"(?i)cuda|nvidia|amd", alerts), [])
        self.assertIn(Path(TEXTFILE).name.replace(".", "[.]"), alerts)


if __name__ == "__main__":
    qz.main()
