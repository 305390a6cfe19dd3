"""bench/plot and bench/measure, with figures that are made up.

usage: test_documents.py PROJECT_FOLDER
"""

import json
import pathlib
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree

PROJECT = pathlib.Path()
SVG = "{http://www.w3.org/2000/svg}"


def cell(work, contender, rate, **others):
    in_flight = int(work.split("-")[1]) if "-" in work else 1
    return {"work": work, "title": f"the work {work}", "inFlight": in_flight, "contender": contender,
            "contenderTitle": f"Client {contender}", "failure": "", "note": "", "requests": 1000, "failed": 0,
            "finished": 900, "perSecond": rate, "megabytesPerSecond": rate / 3, "medianMs": 2.0, "p99Ms": 8.0,
            "cpuSeconds": 0.5, "cpuSecondsPerThousand": 1000 / rate, "voluntarySwitches": 70,
            "involuntarySwitches": 7, "switchesPerThousand": 85.5, "peakKilobytes": 20480, "threads": 12, **others}


def figures():
    return {
        "machine": {"processor": "Pro <1> & more", "processors": 2, "memoryMegabytes": 1024, "kernel": "Linux 0",
                    "distribution": "Some", "versions": {"nginx": "1.2"}},
        "settings": {"seconds": 3, "repetitions": 1, "downloadBytes": 1000},
        "bareLoop": "curl-multi",
        "cells": [
            cell("h1-10", "pool", 100.0), cell("h1-10", "curl-multi", 400.0),
            cell("h1-1000", "pool", 10000.0, note="A limit."), cell("h1-1000", "curl-multi", 20000.0),
            cell("h2-10", "pool", 50.0, failure="was broken"), cell("h2-10", "curl-multi", 200.0, failed=3),
            cell("held-5", "pool", 5.0), cell("held-5", "curl-multi", 5.0),
            cell("download", "pool", 0.25), cell("download", "curl-multi", 1.0, p99Ms=None),
        ],
        "budgets": [{"figure": "a budget", "unit": "ms", "bound": "at most", "allowed": 50.0, "measured": 25.0,
                     "partOfAllowed": 0.5}],
    }


class Documents(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with tempfile.TemporaryDirectory() as folder:
            docs = pathlib.Path(folder) / "docs"
            docs.mkdir()
            page = (PROJECT / "docs/performance.md").read_text(encoding="utf-8")
            (docs / "performance.md").write_text(page, encoding="utf-8")
            measured = pathlib.Path(folder) / "figures.json"
            measured.write_text(json.dumps(figures()), encoding="utf-8")
            command = [PROJECT / "bench/measure", "--from", measured, "--docs", docs]
            subprocess.run(command, check=True)
            cls.once = (docs / "performance.md").read_text(encoding="utf-8")
            subprocess.run(command, check=True)
            cls.twice = (docs / "performance.md").read_text(encoding="utf-8")
            cls.kept = json.loads((docs / "performance.json").read_text(encoding="utf-8"))
            cls.picture = xml.etree.ElementTree.parse(docs / "performance.svg").getroot()

    def curves(self, contender):
        return [[tuple(map(float, point.split(","))) for point in line.get("points").split()]
                for line in self.picture.iter(SVG + "polyline") if line.get("class") == contender]

    def words(self):
        return ["".join(text.itertext()) for text in self.picture.iter(SVG + "text")]

    def test_picture_has_a_curve_for_each_client_and_figure(self):
        # Rate, CPU time and latency over HTTP/1.1; of HTTP/2 the pool's failed.
        self.assertEqual(len(self.curves("pool")), 3)
        self.assertEqual(len(self.curves("curl-multi")), 6)

    def test_more_is_higher_and_further_right(self):
        pool, bare = self.curves("pool")[0], self.curves("curl-multi")[0]
        self.assertLess(pool[0][0], pool[1][0])
        self.assertGreater(pool[0][1], pool[1][1])
        # At the same number in flight the one with the higher rate is above.
        self.assertEqual(pool[0][0], bare[0][0])
        self.assertGreater(pool[0][1], bare[0][1])

    def test_scale_is_logarithmic(self):
        # 100, 10,000, 400 and 20,000 a second on one scale.
        pool, bare = self.curves("pool")[0], self.curves("curl-multi")[0]
        decade = (pool[0][1] - pool[1][1]) / 2
        self.assertAlmostEqual((pool[0][1] - bare[0][1]) / decade, 0.602, delta=0.01)

    def test_points_tell_their_figures(self):
        told = [title.text for title in self.picture.iter(SVG + "title")]
        self.assertIn("Client pool, 1,000 in flight: 10,000/s", told)
        self.assertIn("Client curl-multi, 10 in flight: 2.5 s", told)

    def test_bars_are_in_proportion(self):
        bars = {bar.get("class"): float(bar.get("width")) for bar in self.picture.iter(SVG + "rect")
                if bar.get("height") == "20" and float(bar.get("x")) < 300}
        self.assertAlmostEqual(bars["pool"] * 4, bars["curl-multi"], delta=0.5)

    def test_picture_names_axes_units_clients_and_machine(self):
        words = self.words()
        for expected in ("requests in flight", "requests finished per second", "CPU seconds per 1,000 requests",
                         "latency in ms, 99 of 100 requests", "Download to a file: MB per second", "Client pool"):
            self.assertIn(expected, words)
        self.assertTrue(any("Pro <1> & more" in text for text in words))

    def test_tables_have_the_figures_and_their_ratios(self):
        self.assertIn("| Client pool | 100 (0.250) | 10,000 (0.500) |", self.once)
        self.assertIn("| Client curl-multi | 400 (1.00) | 20,000 (1.00) |", self.once)
        self.assertIn("| Client pool | 10.0 (4.00) | 0.100 (2.00) |", self.once)
        self.assertIn("| a budget | 25.0 ms | at most 50 | 0.500 |", self.once)
        self.assertIn("bench_compare --works h1-10,h1-1000\n", self.once)

    def test_what_failed_is_said_and_not_made_up(self):
        self.assertIn("| Client pool | – |", self.once)
        self.assertIn("- Client pool, the work h2-10: not measured: was broken", self.once)
        self.assertIn("- Client curl-multi, the work h2-10: 3 of 1,000 requests failed.", self.once)
        self.assertIn("- A limit.", self.once)

    def test_measuring_again_replaces_the_tables(self):
        self.assertEqual(self.once, self.twice)
        self.assertEqual(self.kept, figures())


class Page(unittest.TestCase):
    def test_page_is_made_of_the_kept_figures(self):
        with tempfile.TemporaryDirectory() as folder:
            docs = pathlib.Path(folder)
            page = (PROJECT / "docs/performance.md").read_text(encoding="utf-8")
            (docs / "performance.md").write_text(page, encoding="utf-8")
            subprocess.run([PROJECT / "bench/measure", "--from", PROJECT / "docs/performance.json", "--docs", docs],
                           check=True)
            self.assertEqual((docs / "performance.md").read_text(encoding="utf-8"), page)
            self.assertEqual((docs / "performance.svg").read_text(encoding="utf-8"),
                             (PROJECT / "docs/performance.svg").read_text(encoding="utf-8"))


if __name__ == "__main__":
    PROJECT = pathlib.Path(sys.argv.pop(1)).resolve()
    unittest.main()
