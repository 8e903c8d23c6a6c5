"""The benchmark runs to its end, and what it writes can be relied on. No figure is judged."""

import json
import os
import subprocess
import tempfile

import harness

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
PROGRAMS = ["builtins", "callers", "calls", "lines", "pickling", "pystone", "raises"]
VARIANTS = ["bdb", "bdb_condition", "bdb_elsewhere", "core", "core_always_traced",
            "core_breakpoints_elsewhere",
            "core_breakpoints_nearby", "core_condition", "core_policy", "core_stepping_over",
            "core_unhandled", "counting", "launched", "untraced"]


def bench(*arguments):
    """(exit status, standard output, standard error)"""
    process = subprocess.Popen(
        [harness.launcher(), os.path.join(ROOT, "bench", "run.py")] + list(arguments),
        stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    out, err = process.communicate()
    return process.returncode, out, err


class Bench(harness.TestCase):

    def test_every_program_is_measured_under_every_variant(self):
        output = tempfile.NamedTemporaryFile()
        status, out, err = bench("--quick", "--rounds", "1", "--json", output.name)
        self.assertEqual(status, 0, err)
        figures = json.loads(output.read())
        self.assertEqual(sorted(figures), ["host", "programs", "rounds", "targets", "yardstick"])
        self.assertEqual(sorted(figures["host"]), ["flavour", "platform", "version"])
        self.assertEqual(figures["rounds"], 1)
        self.assertEqual(figures["yardstick"], "counting")
        self.assertEqual(sorted(figures["programs"]), PROGRAMS)
        for variant in VARIANTS:
            self.assert_in("\n%s " % variant, out)
        for program in figures["programs"].values():
            self.assertEqual(sorted(program), ["events", "times", "variants"])
            self.assertEqual(program["events"]["call"], program["events"]["return"])
            self.assertEqual(sorted(program["variants"]), VARIANTS)
            for variant in program["variants"].values():
                self.assertEqual(sorted(variant),
                                 ["quartiles", "ratio", "seconds", "untraced_ratio"])
                self.assertTrue(variant["seconds"] > 0)
                self.assertTrue(variant["ratio"] > 0)
                self.assertEqual(len(variant["quartiles"]), 2)
            self.assertEqual(program["variants"]["counting"]["ratio"], 1)
            self.assertEqual(program["variants"]["untraced"]["untraced_ratio"], 1)

    def test_the_programs_are_what_they_are_called(self):
        output = tempfile.NamedTemporaryFile()
        status, _, err = bench("--quick", "--rounds", "1", "--json", output.name)
        self.assertEqual(status, 0, err)
        programs = json.loads(output.read())["programs"]
        self.assertEqual(programs["lines"]["events"]["call"], 1)
        self.assertTrue(programs["lines"]["events"]["line"]
                         >= 8 * programs["lines"]["times"])
        calls = programs["calls"]["events"]
        self.assertTrue(calls["call"] * 3 > calls["line"])
        self.assertTrue(programs["raises"]["events"]["exception"]
                        >= programs["raises"]["times"])

    def test_check_fails_when_and_only_when_a_target_is_missed(self):
        output = tempfile.NamedTemporaryFile()
        status, out, _ = bench("--quick", "--rounds", "1", "--check", "--json", output.name)
        targets = json.loads(output.read())["targets"]
        self.assertTrue(targets)
        for target in targets:
            self.assertEqual(sorted(target),
                             ["against", "limit", "met", "program", "ratio", "variant"])
            self.assertEqual(target["met"], target["ratio"] <= target["limit"])
            self.assertEqual(out.count("\n%s: %s, %s against %s: " % (
                target["met"] and "met" or "missed", target["program"], target["variant"],
                target["against"])), 1)
        self.assertEqual(status, int(not all(target["met"] for target in targets)))

    def test_named_programs_alone_are_measured(self):
        status, out, err = bench("--quick", "--rounds", "1", "calls")
        self.assertEqual(status, 0, err)
        self.assert_in(" calls\n", out)
        self.assert_not_in(" lines", out)

    def test_an_unknown_program_and_no_rounds_are_refused(self):
        for arguments in (["nonsense"], ["--rounds", "0"]):
            status, out, err = bench(*arguments)
            self.assertEqual(status, 2)
            self.assertEqual(out, "")
            self.assert_in("error: ", err)
