"""Runs bench_compare with tiny settings and asks whether its figures can be true.

usage: test_compare.py BENCH_COMPARE
"""

import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

PROGRAM = ""
DOWNLOAD_BYTES = 1_000_003
CONTENDERS = ["pool", "curl-multi", "soup", "qt", "curl", "aria2c"]
IN_PROCESS = ["pool", "curl-multi", "soup", "qt"]


def compare(*options):
    with tempfile.TemporaryDirectory() as folder:
        file = pathlib.Path(folder) / "figures.json"
        done = subprocess.run([PROGRAM, "--json", file, *options], capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise AssertionError(done.stdout + done.stderr)
        return json.loads(file.read_text(encoding="utf-8")), done.stdout


def of_every_cell(check):
    def test(self):
        for (work, contender), cell in self.cells.items():
            with self.subTest(work=work, contender=contender):
                check(self, work, contender, cell)
    return test


class Comparison(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.figures, cls.tables = compare("--works", "h1-4,h2-1,held-2,download", "--seconds", "0.3",
                                          "--download-bytes", str(DOWNLOAD_BYTES))
        cls.cells = {(cell["work"], cell["contender"]): cell for cell in cls.figures["cells"]}

    def test_has_every_work_of_every_contender(self):
        self.assertEqual(len(self.figures["cells"]), 4 * len(CONTENDERS))
        self.assertEqual(set(self.cells), {(work, contender) for work in ("h1-4", "h2-1", "held-2", "download")
                                           for contender in CONTENDERS})

    @of_every_cell
    def test_server_saw_exactly_the_requests_that_were_counted(self, work, contender, cell):
        self.assertEqual(cell["failure"], "")
        self.assertEqual(cell["abandoned"], 0)
        self.assertEqual(cell["seenByServer"], cell["requests"])

    @of_every_cell
    def test_all_answers_were_good(self, work, contender, cell):
        self.assertEqual(cell["failed"], 0)
        self.assertGreater(cell["finished"], 0)
        self.assertLessEqual(cell["finished"], cell["requests"])

    @of_every_cell
    def test_bytes_are_those_of_the_finished_bodies(self, work, contender, cell):
        each = DOWNLOAD_BYTES if work == "download" else len("Hello, pool!")
        self.assertEqual(cell["bytes"], cell["finished"] * each)

    @of_every_cell
    def test_warm_up_is_not_measured(self, work, contender, cell):
        if work != "download" and contender in IN_PROCESS:
            self.assertGreaterEqual(cell["requests"] - cell["finished"], cell["inFlight"])

    @of_every_cell
    def test_figures_are_plausible(self, work, contender, cell):
        self.assertGreater(cell["seconds"], 0)
        self.assertAlmostEqual(cell["perSecond"] * cell["seconds"], cell["finished"], delta=0.01)
        self.assertGreaterEqual(cell["cpuSeconds"], 0)
        self.assertGreater(cell["voluntarySwitches"] + cell["involuntarySwitches"], 0)
        self.assertGreater(cell["peakKilobytes"], 1000)
        self.assertGreaterEqual(cell["threads"], 1)
        if contender in IN_PROCESS:
            self.assertGreaterEqual(cell["seconds"], 0.3 if work != "download" else 0)

    @of_every_cell
    def test_latencies_are_ordered_and_fit_the_rate(self, work, contender, cell):
        if contender == "aria2c":
            self.assertIsNone(cell["medianMs"])
            return
        self.assertGreater(cell["medianMs"], 0)
        self.assertLessEqual(cell["medianMs"], cell["p99Ms"])
        if work == "held-2":
            # The server takes its time.
            self.assertGreaterEqual(cell["medianMs"], 450)

    def test_threads_are_those_of_the_client(self):
        self.assertGreater(self.cells[("h1-4", "pool")]["threads"], 1)
        self.assertEqual(self.cells[("h1-4", "curl-multi")]["threads"], 1)

    def test_tables_name_everybody_and_the_limits(self):
        for contender in {cell["contenderTitle"] for cell in self.figures["cells"]}:
            self.assertEqual(self.tables.count(f"\n  {contender} "), 4)
        self.assertIn("* Qt opens at most 6", compare("--works", "h1-7", "--contenders", "qt", "--seconds", "0.1")[1])


class Budgets(unittest.TestCase):
    def test_every_row_is_measured(self):
        figures, tables = compare("--budgets", "--seconds", "0.2", "--download-bytes", str(DOWNLOAD_BYTES))
        self.assertEqual(len(figures["budgets"]), 12)
        for row in figures["budgets"]:
            with self.subTest(row=row["figure"]):
                self.assertIsNotNone(row["measured"])
                self.assertGreaterEqual(row["measured"], 0)
                self.assertIn(row["figure"], tables)
        measured = {row["figure"]: row["measured"] for row in figures["budgets"]}
        self.assertEqual(measured["tasks finished with 1,000 in flight"],
                         next(cell["perSecond"] for cell in figures["cells"]
                              if (cell["work"], cell["contender"]) == ("h1-1000", "pool")))


class Refusals(unittest.TestCase):
    def test_what_is_not_known_is_refused(self):
        for options in (["--works", "h3-1"], ["--works", "h1-0"], ["--contenders", "nobody"], ["--seconds", "soon"],
                        ["--repetitions", "0"], ["--nonsense"], ["--json"], ["--json", "/nowhere/figures.json"]):
            with self.subTest(options=options):
                done = subprocess.run([PROGRAM, *options], capture_output=True, text=True, timeout=60, check=False)
                self.assertEqual(done.returncode, 1)
                self.assertIn("bench_compare: ", done.stderr)
                self.assertEqual(done.stdout, "")


if __name__ == "__main__":
    PROGRAM = sys.argv.pop(1)
    unittest.main()
