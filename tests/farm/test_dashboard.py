"""The dashboard for Grafana: each of its queries, asked of a real Prometheus, has the simulated farm's values. Grafana
itself does not run here."""

import json
import re
import unittest

import qz
from prometheus_server import missing_programs
from qz import SOURCE, wait_until
from simulated_farm import Farm
from test_alerts import LOST, machine

DASHBOARD = json.loads((SOURCE / "farm/grafana/qzgpuinfo.json").read_text(encoding="utf-8"))
MACHINES = {"both": "both-vendors", "lost": machine(temperature=70), "gone": "both-vendors"}
VARIABLE = re.compile(r"\$\{?(\w+)\}?")
GIB = 2**30

# What each query has, by the panel's title: the values in order.
EXPECTED = {
    "Nodes with a companion": [[2], [3]],
    "GPUs": [[4]],
    "Free GPUs": [[0]],
    "Alerts": [[2]],
    "Nodes by capability": [[2, 2]],
    "GPUs by model": [[1, 1, 2]],
    "Load, mean of a node": [[0.1, 0.3]],
    "Temperature, hottest of a node": [[55, 70]],
    "Memory used, share of a node": [[6144 / 58356, 1 / 8]],
    "GPUs that do not answer": [[1]],
    "Load per GPU": [[0.1, 0.2, 0.4]],
    "Temperature per GPU": [[50, 55, 70]],
    "Memory used per GPU": [[GIB, 2 * GIB, 4 * GIB]],
    "Score per GPU": [None, None],
}


class Dashboard(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        missing = missing_programs()
        if missing:
            raise unittest.SkipTest("not on this machine: " + ", ".join(missing))
        cls.farm = Farm(MACHINES, factor=60, seconds=0.5)
        cls.addClassCleanup(cls.farm.close)
        for name in ("both", "lost"):
            cls.farm.nodes[name].start(faults=LOST if name == "lost" else [])
        cls.farm.start()
        cls.farm.nodes["lost"].measure()
        wait_until(lambda: cls.farm.firing() == {("QzGpuInfoNoCompanion", "gone"), ("QzGpuInfoGpuLost", "lost")}, 120,
                   "two alerts")

    def values(self, expression):
        names = {variable["name"] for variable in DASHBOARD["templating"]["list"]}
        self.assertLessEqual(set(VARIABLE.findall(expression)), names, expression)
        return sorted(value for _, value in self.farm.query(VARIABLE.sub(".*", expression)))

    def test_each_query(self):
        panels = DASHBOARD["panels"]
        self.assertEqual([panel["title"] for panel in panels], list(EXPECTED))
        for panel in panels:
            queries = [target["expr"] for target in panel["targets"]]
            expected = EXPECTED[panel["title"]]
            self.assertEqual(len(queries), len(expected))
            for query, values in zip(queries, expected):
                with self.subTest(query):
                    found = self.values(query)
                    if values is None:  # a score, which the file has
                        self.assertTrue(found and set(found) == {self.score()}, found)
                        continue
                    self.assertEqual(len(found), len(values), found)
                    for one, other in zip(found, values):
                        self.assertAlmostEqual(one, other, places=6)

    def score(self):
        text = (self.farm.nodes["lost"].textfiles / "qzgpuinfo-score.prom").read_text(encoding="utf-8")
        return float(re.search(r'gpu="0".* (\S+)$', text, re.MULTILINE)[1])

    def test_labels_that_the_legends_name(self):
        for panel in DASHBOARD["panels"]:
            for target in panel["targets"]:
                for label in re.findall(r"\{\{(\w+)\}\}", target["legendFormat"]):
                    for labels, _ in self.farm.query(VARIABLE.sub(".*", target["expr"])):
                        self.assertIn(label, labels, target["expr"])

    def test_variables_and_annotations(self):
        for variable in DASHBOARD["templating"]["list"]:
            if variable["type"] == "query":
                metric, label = re.fullmatch(r"label_values\((.*), (\w+)\)", variable["query"]).groups()
                self.assertEqual({labels[label] for labels, _ in self.farm.query(VARIABLE.sub(".*", metric))},
                                 {"node"} if label == "job" else set(MACHINES))
        annotation, = DASHBOARD["annotations"]["list"]
        self.assertEqual(len(self.values(annotation["expr"])), 2)

    def test_places(self):
        taken = set()
        for panel in DASHBOARD["panels"]:
            place = panel["gridPos"]
            cells = {(x, y) for x in range(place["x"], place["x"] + place["w"]) for y in range(place["y"], place["y"] + place["h"])}
            self.assertFalse(cells & taken, panel["title"])
            self.assertLessEqual(place["x"] + place["w"], 24)
            taken |= cells
        self.assertEqual(len({panel["id"] for panel in DASHBOARD["panels"]}), len(DASHBOARD["panels"]))


if __name__ == "__main__":
    qz.main()
