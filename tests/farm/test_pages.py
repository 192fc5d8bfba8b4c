"""The pages that Prometheus serves: what they say of a simulated farm."""

import json
import re
import unittest

import qz
from prometheus_server import missing_programs
from qz import wait_until
from simulated_farm import Farm
from test_alerts import machine

NAME = 'NVIDIA <b>"&amp; %1'
MACHINES = {"busy": "farm-node", "both": "both-vendors", "odd.example": machine(name=json.dumps(NAME)), "gone": "both-vendors"}
FARM, NODE = "/consoles/qzgpuinfo.html", "/consoles/qzgpuinfo-node.html"


def rows(page):
    """The cells' texts of each row of a page's tables."""
    return [[re.sub(r"\s+", " ", re.sub(r"<[^>]*>", " ", cell)).strip() for cell in re.findall(r"<td.*?</td>", row, re.DOTALL)]
            for row in re.findall(r"<tr>(.*?)</tr>", page, re.DOTALL)]


class Pages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        missing = missing_programs()
        if missing:
            raise unittest.SkipTest("not on this machine: " + ", ".join(missing))
        cls.farm = Farm(MACHINES, factor=60, seconds=0.5)
        cls.addClassCleanup(cls.farm.close)
        for node in cls.farm.nodes.values():
            if node.name != "gone":
                node.start()
        cls.farm.start()
        wait_until(lambda: len(cls.farm.query("qzgpuinfo_gpus")) == 3 and
                   cls.farm.query("sum(qzgpuinfo:gpus_free:count)") and
                   cls.farm.firing() == {("QzGpuInfoNoCompanion", "gone")}, 120, "lists and one alert")

    def page(self, path, **parameters):
        text = self.farm.get(path, **parameters)
        self.assertTrue(text.startswith("<!doctype html><html"), text[:200])
        self.assertTrue(text.endswith("</html>\n"), text[-200:])
        self.assertNotIn("<script", text)
        self.assertNotRegex(text, r'(src|href)="(https?:)?//')
        for opened, closed in (("<table>", "</table>"), ("<tr>", "</tr>"), ("<td", "</td>"), ("<div", "</div>"), ("<a ", "</a>")):
            self.assertEqual(text.count(opened), text.count(closed), opened)
        return text

    def test_farm(self):
        text = self.page(FARM)
        counts = [re.sub(r"<[^>]*>", " ", div).split() for div in re.findall(r"<div>(.*?)</div>", text)]
        self.assertIn("3 of 4 nodes with a companion".split(), counts)
        gpus = int(self.farm.query("sum(qzgpuinfo_gpus)")[0][1])
        self.assertIn([str(gpus), "GPUs"], counts)
        self.assertIn("3 nodes with cuda".split(), counts)
        self.assertIn(["QzGpuInfoNoCompanion", "1", "critical"], rows(text))
        nodes = [row for row in rows(text) if len(row) == 7]
        self.assertEqual([row[:2] for row in nodes],
                         [["gone", "NoCompanion"], ["both", "ok"], ["busy", "ok"], ["odd.example", "ok"]])
        self.assertEqual(nodes[0][2:], ["-"] * 5)
        self.assertEqual((nodes[1][2:], nodes[2][2], nodes[2][5]), (["2", "30 %", "55 °C", "11 %", "-"], "8", "74 %"))
        self.assertIn('href="qzgpuinfo-node.html?job=node&amp;instance=busy"', text)

    def test_filter(self):
        def shown(text):
            return [row[0] for row in rows(self.page(FARM, filter=text)) if len(row) == 7]
        self.assertEqual(shown("b"), ["both", "busy"])
        self.assertEqual(shown("o.e"), [])
        self.assertEqual(shown("d.e"), ["odd.example"])
        # What has a meaning in a query is left out of it.
        self.assertEqual(shown('busy"} or vector(1) or {a="'), [])
        self.assertEqual(shown('"><script>'), [])

    def test_node(self):
        text = self.page(NODE, job="node", instance="both")
        self.assertIn("<h1>GPUs of both</h1>", text)
        self.assertIn('<p class="good">Nothing.</p>', text)
        gpus = [row for row in rows(text) if len(row) == 9]
        self.assertEqual(gpus, [
            ["0", "Cuda-0", "NVIDIA GeForce RTX 3060", "answers", "20 %", "50 °C", "2GiB", "12GiB", "-"],
            ["1", "AMD-0", "Radeon Pro W7900", "answers", "40 %", "55 °C", "4GiB", "44.99GiB", "-"]])
        graph = re.search(r'href="(/graph\?g0\.expr=qzgpuinfo_gpu_temperature[^"]*)"', text)[1]
        self.assertIn("instance%3D%22both%22", graph)
        self.assertIn("gpu%3D%220%22", graph)

    def test_node_without_companion_and_unknown_node(self):
        text = self.page(NODE, job="node", instance="gone")
        self.assertRegex(text, r"<li><a class=\"bad\" href=\"[^\"]*\">QzGpuInfoNoCompanion</a></li>")
        self.assertIn("no list", text)
        self.assertIn("unknown", self.page(NODE, job="node", instance='"} or vector(1) or {a="<b>'))

    def test_names_are_text(self):
        text = self.page(NODE, job="node", instance="odd.example")
        self.assertIn("NVIDIA &lt;b&gt;&#34;&amp;amp; %1", text)
        self.assertNotIn("<b>&quot;", text)
        self.assertEqual([row[3] for row in rows(text) if len(row) == 9], ["answers", "answers"])


if __name__ == "__main__":
    qz.main()
