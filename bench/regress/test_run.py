"""What bench/regress/run says to which counts."""

import importlib.machinery
import importlib.util
import pathlib
import sys
import unittest

sys.dont_write_bytecode = True
FILE = str(pathlib.Path(__file__).with_name("run"))
LOADER = importlib.machinery.SourceFileLoader("run", FILE)
run = importlib.util.module_from_spec(importlib.util.spec_from_loader("run", LOADER))
LOADER.exec_module(run)

BASELINE = {"build": "GNU 12", "instructions": {"poll_tick": 1000, "snapshot": 2000}}


class Verdicts(unittest.TestCase):
    def compare(self, poll_tick, snapshot=2000, build="GNU 12"):
        lines, passes = run.compare({"poll_tick": poll_tick, "snapshot": snapshot}, build, BASELINE)
        return "\n".join(lines), passes

    def test_up_to_ten_percent_more_pass(self):
        for instructions in (1000, 1090, 1100):
            text, passes = self.compare(instructions)
            self.assertTrue(passes, text)
            self.assertNotIn("grew", text)

    def test_more_fails_and_names_the_work(self):
        text, passes = self.compare(1101)
        self.assertFalse(passes)
        self.assertRegex(text, r"poll_tick +1,101 +\+10\.10%  grew by more than 10 %")
        self.assertNotRegex(text, r"snapshot.*grew")

    def test_one_that_grew_is_not_made_up_for_by_another(self):
        _, passes = self.compare(1200, snapshot=100)
        self.assertFalse(passes)

    def test_much_less_passes_with_a_note(self):
        text, passes = self.compare(899)
        self.assertTrue(passes)
        self.assertIn("bench/regress/run --update", text)
        self.assertNotIn("--update", self.compare(901)[0])

    def test_another_build_fails_and_says_how_to_record(self):
        text, passes = self.compare(1000, build="GNU 13")
        self.assertFalse(passes)
        self.assertIn("bench/regress/run --update", text)

    def test_works_that_one_side_does_not_know_fail(self):
        for counts in ({"poll_tick": 1000}, {"poll_tick": 1000, "snapshot": 2000, "new": 1}):
            _, passes = run.compare(counts, "GNU 12", BASELINE)
            self.assertFalse(passes)

    def test_reads_the_dumps_of_works_only(self):
        dump = "part: 1\ndesc: Trigger: Client Request: {}\nevents: Ir\ntotals: 42\n"
        self.assertEqual(run.read_dump(dump.format("poll_tick")), ("poll_tick", 42))
        self.assertIsNone(run.read_dump("part: 2\ndesc: Trigger: Program termination\ntotals: 0\n"))


if __name__ == "__main__":
    unittest.main()
