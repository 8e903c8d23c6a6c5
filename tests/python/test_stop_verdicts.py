"""The proof of the stops at unhandled exceptions sees false stops and missed ends."""

import os
import sys

import harness

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../exception_stops"))
import proof
import witness

PLACE = (1, 100, 9)
OUTER = (2, 200, 30)


class MadeUpRun(object):
    """What a witness might have written."""

    def __init__(self, *lines, **more):
        self.lines = list(lines)
        self.errors = more.get("errors", "")

    def of(self, *kinds):
        return [values for kind, values in self.lines if kind in kinds]


def stop(number, keys=(PLACE,), thread=1, cleanups=()):
    values = dict(raised(keys, thread), number=number, is_end=False)
    return [("stop", values),
            ("chain", {"number": number, "lines": ["here"], "cleanups": list(cleanups)})]


def raised(keys=(PLACE,), thread=1, type="KeyError"):
    return {"thread": thread, "keys": list(keys), "type": type, "where": "here",
            "texts": ["KeyError('x',)", "'x'"]}


class VerdictTest(harness.TestCase):

    def counts(self, *lines, **more):
        verdict = proof.Verdict(MadeUpRun(*lines, **more))
        return len(verdict.true), len(verdict.false), len(verdict.missed)

    def test_a_stop_is_true_where_its_exception_ends_the_thread(self):
        for kind in "program", "thread", "atexit", "printed":
            self.assertEqual(self.counts(*stop(1) + [(kind, raised([OUTER, PLACE]))]), (1, 0, 0))

    def test_a_stop_is_false_where_nothing_comes_of_it(self):
        self.assertEqual(self.counts(*stop(1)), (0, 1, 0))

    def test_a_stop_is_false_where_another_exception_ends_the_thread(self):
        self.assertEqual(self.counts(*stop(1) + [("thread", raised([OUTER]))]), (0, 1, 1))

    def test_a_stop_is_false_where_another_thread_ends(self):
        self.assertEqual(self.counts(*stop(1) + [("thread", raised(thread=2))]), (0, 1, 1))

    def test_of_two_stops_with_one_address_the_last_is_true(self):
        lines = stop(1) + stop(2) + [("thread", raised())]
        verdict = proof.Verdict(MadeUpRun(*lines))
        self.assertEqual([each["number"] for each in verdict.false], [1])

    def test_an_end_without_a_stop_is_missed(self):
        self.assertEqual(self.counts(("thread", raised())), (0, 0, 1))

    def test_an_orderly_end_is_not_missed(self):
        self.assertEqual(self.counts(("program", raised(type="SystemExit"))), (0, 0, 0))

    def test_a_stop_is_true_where_the_interpreter_prints_its_exception(self):
        for text in "KeyError('x',)", "'x'":
            errors = "before\nException KeyError: %s in <object x> ignored\nafter\n" % text
            self.assertEqual(self.counts(errors=errors, *stop(1)), (1, 0, 0))
        errors = "Exception ValueError: 'x' in <object x> ignored\n"
        self.assertEqual(self.counts(errors=errors, *stop(1)), (0, 1, 0))

    def test_an_exception_that_a_finally_clause_replaces_ends_with_that_one(self):
        first = stop(1, cleanups=[(7, 10, [(20, 40)])])
        for place, counts in (30, (2, 0, 0)), (50, (1, 1, 0)):
            second = stop(2, [OUTER], cleanups=[(7, place, [])])
            lines = first + second + [("thread", raised([OUTER]))]
            self.assertEqual(self.counts(*lines), counts)


class FinallyClausesTest(harness.TestCase):

    def test_clauses_around_a_place(self):
        def function():
            try:
                raise KeyError
            finally:
                print "over"
            raise ValueError
        code = function.func_code.co_code
        first = code.index(chr(witness.opcode.opmap["RAISE_VARARGS"]))
        (begin, end), = witness.finally_clauses(code, first)
        self.assertTrue(first < begin < end)
        self.assertEqual(ord(code[end]), witness.opcode.opmap["END_FINALLY"])
        self.assertEqual(witness.finally_clauses(code, end + 1), [])

    def test_handlers_are_no_such_clauses(self):
        def function():
            try:
                raise KeyError
            except ValueError:
                print "handled"
        code = function.func_code.co_code
        place = code.index(chr(witness.opcode.opmap["RAISE_VARARGS"]))
        self.assertEqual(witness.finally_clauses(code, place), [])
