"""Exceptions of real programs, code of the standard library's among them."""

import threading
import unittest

import harness
from exception_case import (ALWAYS, NEVER, PRINTED, UNHANDLED, CatchInfo, ExceptionTestCase)
from harness import core

# The module that unittest's TestCase is in: one of its own, or one of a package.
UNITTEST = unittest.TestCase.__module__


class LibraryTest(ExceptionTestCase):
    """What the library raises and catches as it works is not reported as unhandled."""

    def setUp(self):
        ExceptionTestCase.setUp(self)
        # The library closes generators; only they know that theirs is no error.
        core.set_never_stop_excepts((GeneratorExit,))

    def assert_silent(self, source, **variables):
        self.assertEqual(self.run_program(source, UNHANDLED, **variables), [])
        self.assertEqual(self.ended_by, "")

    def assert_raised_and_caught(self, source, **variables):
        """The same where exceptions are known to be raised."""
        self.assert_silent(source, **variables)
        self.assertEqual(self.run_program(source, ALWAYS, **variables) != [], True)

    def test_regular_expressions(self):
        self.assert_raised_and_caught("""\
import re
re.purge()
for pattern in r"(a|b)*c", r"(?P<name>\\d+)\\s(?=x)[^a-z]{2,3}?", r"\\bword\\b|x(?!y)":
    re.compile(pattern).search("some word and a 12 x")
try:
    re.compile("(unbalanced")
except re.error:
    pass
""")

    def test_regular_expression_that_is_wrong_is_reported_where_it_is_raised(self):
        stops = self.run_program("import re\nre.compile('(unbalanced')\n", UNHANDLED)
        # The parser's own error is caught and raised anew.
        self.assertEqual([stop.split(":")[0] for stop in stops],
                         ["error in _compile", "error in compile", "error in <module>"])
        self.assertEqual(self.ended_by, "sre_constants.error: unbalanced parenthesis")

    def test_json(self):
        self.assert_raised_and_caught("""\
import json, json.decoder, json.scanner
assert json.loads('{"a": [1, 2.5, null, true, "x"]}')["a"][0] == 1
for text in "", "[1, 2", '{"a" 1}', "nothing", '"open':
    try:
        json.loads(text)
    except ValueError:
        pass
json.dumps({"a": [1, {"b": None}]}, indent=2)
""")

    def test_json_scanner_written_in_python(self):
        # It ends the decoding of an object by raising StopIteration.
        self.assert_raised_and_caught("""\
import json.decoder, json.scanner
decoder = json.decoder.JSONDecoder()
scan = getattr(json.scanner, "py_make_scanner", None)
if scan is not None:
    decoder.scan_once = scan(decoder)
for text in "", "[1, ", "nothing":
    try:
        decoder.decode(text)
    except ValueError:
        pass
""")

    def test_options_that_are_wrong_end_a_program(self):
        source = """\
import optparse
parser = optparse.OptionParser()
parser.add_option("-n", type="int")
parser.parse_args(["-n", "many"])
"""
        stops = self.run_program(source, UNHANDLED)
        self.assertEqual(stops[0].split(":")[0], "SystemExit in exit")
        self.assertEqual(stops[-1], "SystemExit in <module>:4")
        core.set_never_stop_excepts((SystemExit,))
        self.assertEqual(self.run_program(source, UNHANDLED), [])

    def test_options_that_are_wrong_and_a_program_that_goes_on(self):
        values = []
        self.assertEqual(self.run_program("""\
import optparse
parser = optparse.OptionParser()
parser.add_option("-n", type="int")
parser.add_option("--name", choices=["a", "b"], type="choice")
for arguments in ["-n", "many"], ["--name", "c"], ["--nowhere"], ["-n"]:
    try:
        parser.parse_args(arguments)
    except SystemExit:
        pass
options, rest = parser.parse_args(["-n", "7", "rest"])
values.append(options.n)
""", UNHANDLED, values=values), [])
        self.assertEqual(values, [7])

    def test_pickle_written_in_python(self):
        self.assert_raised_and_caught("""\
import pickle
text = pickle.dumps({"a": [1, (2, 3)], "b": ValueError("x")})
assert pickle.loads(text)["a"] == [1, (2, 3)]
""")

    def test_queues_and_files_and_configurations(self):
        self.assert_raised_and_caught("""\
import ConfigParser, Queue, os, StringIO
queue = Queue.Queue(1)
try:
    queue.get_nowait()
except Queue.Empty:
    queue.put(1)
try:
    queue.put_nowait(2)
except Queue.Full:
    pass
assert not os.path.exists("/no/such/file")
parser = ConfigParser.ConfigParser()
parser.readfp(StringIO.StringIO("[part]\\nname = value\\n"))
assert not parser.has_option("part", "other")
try:
    parser.get("part", "other")
except ConfigParser.NoOptionError:
    pass
""")

    def test_tokens_and_copies(self):
        self.assert_silent("""\
import StringIO, copy, shlex, tokenize
copy.deepcopy({"a": [1, 2, {"b": (3,)}]})
assert [token for token in shlex.shlex("one 'two' four")] == ["one", "'two'", "four"]
for token in tokenize.generate_tokens(StringIO.StringIO("x = 1\\nif x:\\n    y\\n").readline):
    pass
""")

    def test_import_of_a_module_that_may_be_missing(self):
        self.assert_raised_and_caught("""\
try:
    import no_module_of_that_name
except ImportError:
    no_module_of_that_name = None
""")


class UnittestTest(ExceptionTestCase):
    """A program of tests that fail."""

    SOURCE = """\
import unittest
class SomeTest(unittest.TestCase):
    def test_pass(self):
        pass
    def test_fail(self):
        self.assertEqual(1, 2)
    def test_error(self):
        {}["missing"]
suite = unittest.TestLoader().loadTestsFromTestCase(SomeTest)
result = unittest.TestResult()
suite.run(result)
counts.append((result.testsRun, len(result.failures), len(result.errors)))
"""

    def in_the_program(self, stops):
        names = []
        for stop, report in zip(stops, self.reports):
            if report[0].f_code.co_filename.endswith("program.py"):
                names.append(stop)
        return sorted(names)

    def run_tests(self, mode):
        counts = []
        stops = self.run_program(self.SOURCE, mode, counts=counts)
        self.assertEqual(counts, [(3, 1, 1)])
        return stops

    def test_failures_and_errors_are_caught(self):
        self.assertEqual(self.run_tests(UNHANDLED), [])

    def test_failures_stop_where_their_type_always_does(self):
        core.set_always_stop_excepts((AssertionError,))
        stops = self.run_tests(NEVER)
        self.assertEqual(self.in_the_program(stops), ["AssertionError in test_fail:6"])

    def test_errors_stop_where_their_type_always_does(self):
        core.set_always_stop_excepts((KeyError,))
        stops = self.run_tests(NEVER)
        self.assertEqual(self.in_the_program(stops), ["KeyError in test_error:8"])

    def test_framework_that_prints_is_where_they_stop(self):
        core.set_exc_catch_info_list(
            [CatchInfo("run", mod_name=UNITTEST, containing_class="TestCase")])
        stops = self.run_tests(PRINTED)
        self.assertEqual([stop.split(":")[0] for stop in stops],
                         ["KeyError in run", "AssertionError in run"])

    def test_test_methods_stop_as_they_are_left_where_their_caller_prints(self):
        core.set_exc_catch_info_list(
            [CatchInfo(name, mod_name="program", containing_class="SomeTest", parent=True)
             for name in ("test_pass", "test_fail", "test_error")])
        stops = self.run_tests(PRINTED)
        self.assertEqual(stops, ["KeyError in test_error:8", "AssertionError in test_fail:6"])


class ThreadTest(ExceptionTestCase):
    """Threads that die of an exception."""

    SOURCE = """\
import threading
def work():
    step(1)
def step(n):
    raise ValueError(n)
thread = threading.Thread(target=work)
thread.start()
thread.join()
finished.append(1)
"""

    def init(self, **changes):
        ExceptionTestCase.init(self, install_thread_hooks_cb=self.hooks, **changes)

    def hooks(self, on):
        harness.trace_new_threads(on)

    def program_stops(self, mode):
        """Stops in the program's own code."""
        self.finished = []
        stops = self.run_program(self.SOURCE, mode, finished=self.finished)
        return [stop for stop, report in zip(stops, self.reports)
                if report[0].f_code.co_filename.endswith("program.py")]

    def test_start_up_code_catches_everything(self):
        self.assertEqual(self.program_stops(UNHANDLED), [])

    def test_server_can_name_that_handler(self):
        codes = [value.func_code for name, value in vars(threading.Thread).items()
                 if "bootstrap" in name]
        core.set_ignored_exception_handlers(dict.fromkeys(codes))
        self.assertEqual(self.program_stops(UNHANDLED),
                         ["ValueError in step:5", "ValueError in work:3"])

    def test_other_threads_go_on(self):
        for mode in (NEVER, UNHANDLED, PRINTED, ALWAYS):
            self.program_stops(mode)
            self.assertEqual([stop for stop in self.stops if "<module>" in stop], [])
            self.assertEqual(self.finished, [1])


class GeneratorTest(ExceptionTestCase):
    """Generators that are closed before their end."""

    CLOSE = """\
def g():
    try:
        yield 1
        yield 2
    finally:
        closed.append(1)
generator = g()
generator.next()
generator.close()
"""
    ABANDON = CLOSE.replace("generator.close()", "del generator")
    LEAVE_A_LOOP = """\
def g():
    try:
        yield 1
        yield 2
    finally:
        closed.append(1)
for i in g():
    break
"""

    def test_their_exit_is_reported_in_the_generator_only(self):
        for source in (self.CLOSE, self.ABANDON, self.LEAVE_A_LOOP):
            for mode in (ALWAYS, UNHANDLED):
                closed = []
                self.assertEqual(self.run_program(source, mode, closed=closed),
                                 ["GeneratorExit in g:3"])
                self.assertEqual((closed, self.ended_by), ([1], ""))

    def test_server_never_stops_on_it_when_told_so(self):
        core.set_never_stop_excepts((GeneratorExit,))
        for source in (self.CLOSE, self.ABANDON, self.LEAVE_A_LOOP):
            closed = []
            self.assertEqual(self.run_program(source, UNHANDLED, closed=closed), [])
            self.assertEqual((closed, self.ended_by), ([1], ""))

    def test_generator_that_runs_to_its_end_raises_nothing(self):
        self.assertEqual(self.run_program("""\
def g():
    yield 1
    yield 2
assert list(g()) == [1, 2]
for i in g():
    pass
""", ALWAYS), [])

    def test_next_behind_the_end_is_unhandled_at_the_caller(self):
        self.assertEqual(self.run_program("""\
def g():
    yield 1
def f():
    generator = g()
    generator.next()
    generator.next()
try:
    f()
except StopIteration:
    pass
f()
""", UNHANDLED), ["StopIteration in f:6", "StopIteration in <module>:11"])
