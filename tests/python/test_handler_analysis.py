"""Whether an exception will be caught, told before it is: mode 2 stops where it will not."""

from exception_case import NEVER, UNHANDLED, ExceptionTestCase
from harness import core

# What the programs name in their clauses.
CLASSES = """\
import types
class Mine(ValueError):
    pass
class Other(Exception):
    pass
class OldBase:
    pass
class Old(OldBase):
    pass
class Holder(object):
    Error = Mine
class ClassicHolder:
    Error = Mine
holder = Holder()
classic_holder = ClassicHolder()
module = types.ModuleType("module")
module.Error = Mine
module.inner = types.ModuleType("inner")
module.inner.Error = OldBase
pair = (Other, Mine)
nested_pair = (Other, (OldBase, Mine))
class Manager(object):
    def __init__(self, swallow):
        self.swallow = swallow
    def __enter__(self):
        return self
    def __exit__(self, *exc_info):
        return self.swallow
def throw(exception):
    raise exception
"""


def indented(text, by=1):
    return "".join("    " * by + line + "\n" for line in text.splitlines())


class AnalysisTestCase(ExceptionTestCase):

    def will_be_caught(self, body, arguments="", call="f()", setup=""):
        """What the analysis says of the first exception in a function with this body."""
        self.stream.clear()
        self.run_program("%s%s\ndef f(%s):\n%s%s\n" % (CLASSES, setup, arguments, indented(body),
                                                    call), UNHANDLED)
        decided = self.decisions()
        self.assertEqual(decided != [], True)
        self.assert_in(decided[0], ("", "unhandled"))
        return decided[0] == ""

    def assert_caught(self, body, **more):
        if not self.will_be_caught(body, **more):
            self.fail("not seen to be caught: %s" % body)

    def assert_not_caught(self, body, **more):
        if self.will_be_caught(body, **more):
            self.fail("wrongly seen to be caught: %s" % body)

    def clause(self, clause, raised="Mine"):
        return "try:\n    raise %s\nexcept %s:\n    pass" % (raised, clause)


class ClauseTest(AnalysisTestCase):

    def test_bare_clause_catches(self):
        self.assert_caught("try:\n    raise Mine\nexcept:\n    pass")

    def test_no_clause_at_all(self):
        self.assert_not_caught("raise Mine")

    def test_classes_and_their_bases_catch(self):
        for clause in ("Mine", "ValueError", "Exception", "BaseException", "Mine, e"):
            self.assert_caught(self.clause(clause))
        for clause in ("KeyError", "Other", "OldBase", "object"):
            self.assert_not_caught(self.clause(clause))

    def test_old_style_classes_catch(self):
        for clause in ("Old", "OldBase", "(Mine, OldBase)"):
            self.assert_caught(self.clause(clause, "Old"))
            self.assert_caught(self.clause(clause, "Old()"))
        for clause in ("Mine", "Exception"):
            self.assert_not_caught(self.clause(clause, "Old"))

    def test_tuples_of_names_catch(self):
        for clause in ("(Mine, Other)", "(Other, Mine)", "(Other, OldBase, ValueError)",
                       "(Other, module.Error)", "(Other, pair)", "(Mine,)"):
            self.assert_caught(self.clause(clause))
        for clause in ("(Other, KeyError)", "()", "(Other,)"):
            self.assert_not_caught(self.clause(clause))

    def test_tuples_in_variables_catch(self):
        for clause in ("pair", "nested_pair"):
            self.assert_caught(self.clause(clause))
            self.assert_not_caught(self.clause(clause, "KeyError"))

    def test_attributes_of_modules_classes_and_instances_catch(self):
        for clause in ("module.Error", "Holder.Error", "ClassicHolder.Error", "holder.Error",
                       "classic_holder.Error"):
            self.assert_caught(self.clause(clause))
            self.assert_not_caught(self.clause(clause, "KeyError"))
        self.assert_caught(self.clause("module.inner.Error", "Old"))

    def test_names_of_every_kind_of_scope_catch(self):
        self.assert_caught("local = Mine\n" + self.clause("local"))
        self.assert_caught(self.clause("argument"), arguments="argument=Mine")
        self.assert_caught("local = module\n" + self.clause("local.Error"))
        self.assert_caught("global Mine\n" + self.clause("Mine"))
        self.assert_caught("exec ''\n" + self.clause("Mine"))       # by name, without locals
        self.assert_caught("exec ''\nlocal = Mine\n" + self.clause("local"))
        self.assert_caught(self.clause("KeyError", "KeyError"))
        self.assert_not_caught("KeyError = Other\n" + self.clause("KeyError", "{}[1]"))

    def test_names_of_a_module_and_of_a_class_body_catch(self):
        for source, caught in (
                ("try:\n    raise Mine\nexcept Mine:\n    pass\n", True),
                ("try:\n    raise Mine\nexcept Other:\n    pass\n", False),
                ("class C(object):\n    Local = Mine\n    try:\n        raise Mine\n"
                 "    except Local:\n        pass\n", True),
                ("class C(object):\n    Mine = Other\n    try:\n        throw(ValueError)\n"
                 "    except Mine:\n        pass\n", False)):
            self.stream.clear()
            self.run_program(CLASSES + source, UNHANDLED)
            self.assertEqual(self.decisions()[0] == "", caught)

    def test_clauses_are_tried_in_turn(self):
        text = "try:\n    raise Mine\n%s"
        for clauses, caught in ((("Other", "Mine"), 1), (("Other", "KeyError", ""), 1),
                                (("Other", "KeyError", "pair"), 1), (("Other", "KeyError"), 0),
                                (("Mine", "undefined"), 1), (("undefined", "Mine"), 1)):
            body = text % "".join("except %s:\n    pass\n" % clause for clause in clauses)
            self.assertEqual(self.will_be_caught(body), bool(caught))

    def test_name_that_is_not_defined_does_not_catch(self):
        self.assert_not_caught(self.clause("undefined"))
        self.assert_not_caught(self.clause("undefined.Error"))
        self.assert_not_caught(self.clause("module.undefined"))
        self.assert_not_caught("if 0:\n    local = 1\n" + self.clause("local"))

    def test_objects_that_are_no_classes_do_not_catch(self):
        for clause in ("None", "7", "'Mine'", "holder", "module", "pair[0]"):
            self.assert_not_caught(self.clause(clause))

    def test_expressions_that_must_be_evaluated_are_not_seen_to_catch(self):
        # They do catch: reading cannot tell.
        for clause in ("throw and Mine", "pair[1]", "(lambda: Mine)()", "(Mine, pair[0])",
                       "(Mine, throw.func_name)[:1]"):
            self.assert_not_caught(self.clause(clause))

    def test_variables_of_enclosing_functions_are_not_read(self):
        self.assert_not_caught("Local = Mine\ndef g():\n    return Local\n" + self.clause("Local"))
        self.assert_not_caught("""\
Local = Mine
def g():
    try:
        raise Mine
    except Local:
        pass
g()
""")

    def test_clauses_behind_one_that_cannot_be_read_are_not_seen(self):
        self.assert_not_caught(
            "try:\n    raise Mine\nexcept pair[0]:\n    pass\nexcept:\n    pass")
        self.assert_caught(
            "try:\n    raise Mine\nexcept Mine:\n    pass\nexcept pair[0]:\n    pass")

    def test_analysis_runs_no_code(self):
        setup = """\
ran = case.ran
def compute(self, name=None, owner=None):
    ran.append(1)
    return Mine
class Property(object):
    Error = property(compute)
class Meta(type):
    Error = property(compute)
    __getattr__ = compute
class OfMeta(object):
    __metaclass__ = Meta
class GetAttr(object):
    __getattr__ = compute
class GetAttribute(object):
    __getattribute__ = compute
class Classic:
    __getattr__ = compute
class Descriptor(object):
    __get__ = compute
class Described(object):
    Error = Descriptor()
class Module(types.ModuleType):
    Error = property(compute)
objects = [Property(), OfMeta, GetAttr(), GetAttribute(), Classic(), Described(), Described,
           Module("m")]
"""
        for i in range(8):
            self.ran = []
            seen = []
            # The clause itself, run by the program, does compute: the stop comes before.
            self.at_stop = lambda frame: seen.append(len(self.ran))
            self.assert_not_caught(self.clause("computed.Error"), arguments="computed",
                                   call="f(objects[%d])" % i, setup=setup)
            self.assertEqual(seen[:1], [0])

    def test_raising_attributes_are_not_asked_either(self):
        self.assert_not_caught(self.clause("computed.Error"), arguments="computed", setup="""\
class Computed(object):
    def __getattr__(self, name):
        raise SystemError(name)
""", call="f(Computed())")

    def test_type_of_a_with_statement_and_its_target(self):
        self.assert_not_caught("with Manager(False):\n    raise Mine")
        # It will swallow it, which is known only when it does.
        self.assert_not_caught("with Manager(True):\n    raise Mine")
        self.assert_caught(
            "with Manager(False):\n    try:\n        raise Mine\n    except Mine:\n        pass")
        self.assert_caught(
            "try:\n    with Manager(False):\n        raise Mine\nexcept Mine:\n    pass")

    def test_finally_does_not_catch(self):
        self.assert_not_caught("try:\n    raise Mine\nfinally:\n    pass")
        self.assert_not_caught("try:\n    raise Mine\nfinally:\n    return 1")
        self.assert_caught("try:\n    try:\n        raise Mine\n    finally:\n        pass\n"
                           "except Mine:\n    pass")

    def test_nested_blocks_are_all_looked_at(self):
        text = """\
try:
    try:
        for i in 1, 2:
            while 1:
                try:
                    raise Mine
                except %s:
                    pass
                break
    except %s:
        pass
except %s:
    pass
"""
        for clauses, caught in ((("Other", "KeyError", "Mine"), True),
                                (("Other", "Mine", "KeyError"), True),
                                (("Mine", "Other", "KeyError"), True),
                                (("Other", "KeyError", "OldBase"), False)):
            self.assertEqual(self.will_be_caught(text % clauses), caught)

    def test_try_statement_that_is_over_does_not_catch(self):
        self.assert_not_caught("try:\n    pass\nexcept:\n    pass\nraise Mine")
        self.assert_not_caught("try:\n    pass\nexcept:\n    pass\nelse:\n    raise Mine")

    def test_clause_does_not_catch_what_it_raises_itself(self):
        body = "try:\n    {}[1]\nexcept KeyError:\n    raise KeyError(2)\nexcept:\n    pass"
        self.run_program(CLASSES + "def f():\n%sf()\n" % indented(body), UNHANDLED)
        self.assertEqual(self.decisions()[0], "")
        self.assertEqual(self.decisions()[1], "unhandled")

    def test_callers_catch(self):
        for clause, caught in (("Mine", True), ("Other", False)):
            call = "def g():\n    f()\ntry:\n    g()\nexcept %s:\n    pass" % clause
            self.assertEqual(self.will_be_caught("raise Mine", call=call), caught)

    def test_long_code_is_read_too(self):
        # The jump over the first clause needs an extended argument.
        body = ("try:\n    raise Mine\nexcept Other:\n%sexcept %%s:\n    pass\n"
                % indented("x = 1\n" * 12000))
        self.assert_caught(body % "Mine")
        self.assert_not_caught(body % "KeyError")

    def test_name_with_a_large_number_is_read_too(self):
        # Its number needs an extended argument.
        body = ("if 0:\n%stry:\n    raise global_2\nexcept %%s:\n    pass\n"
                % indented("".join("g%d\n" % i for i in range(66000))))
        setup = "global_1 = KeyError\nglobal_2 = Mine\n"
        self.assert_caught(body % "global_2", setup=setup)
        self.assert_not_caught(body % "global_1", setup=setup)


class LoopTest(AnalysisTestCase):
    """Loops end on an exception of what they iterate over."""

    ITERATORS = """\
class Iterator(object):
    def __init__(self, error, items=1):
        self.error, self.items = error, items
    def __iter__(self):
        return self
    def next(self):
        if self.items:
            self.items -= 1
            return 1
        raise self.error
class Sequence(object):
    def __init__(self, error):
        self.error = error
    def __getitem__(self, index):
        if index:
            raise self.error
        return 1
class Stop(StopIteration):
    pass
class Index(IndexError):
    pass
"""

    def ends(self, body):
        return self.will_be_caught(body, setup=self.ITERATORS)

    def test_end_of_an_iterator_is_caught_by_its_loop(self):
        self.assertEqual(self.ends("for i in Iterator(StopIteration()):\n    pass"), True)
        self.assertEqual(self.ends("for i in Iterator(Stop()):\n    pass"), True)
        self.assertEqual(self.ends("[i for i in Iterator(StopIteration())]"), True)
        self.assertEqual(self.ends("tuple(i for i in Iterator(StopIteration()))"), True)

    def test_end_of_a_sequence_is_caught_by_its_loop(self):
        self.assertEqual(self.ends("for i in Sequence(IndexError()):\n    pass"), True)
        self.assertEqual(self.ends("for i in Sequence(Index()):\n    pass"), True)

    def test_other_exceptions_of_an_iterator_are_not(self):
        for error in ("KeyError()", "Mine()", "GeneratorExit()"):
            self.assertEqual(self.ends("for i in Iterator(%s):\n    pass" % error), False)

    def test_index_error_in_an_iterator_is_taken_for_its_end(self):
        # The loop does not catch that one, but sequences end so.
        self.assertEqual(self.ends("for i in Iterator(IndexError()):\n    pass"), True)

    def test_exception_in_the_body_is_not_caught(self):
        self.assertEqual(self.ends("for i in 1, 2:\n    raise StopIteration"), False)
        self.assertEqual(self.ends("for i in 1, 2:\n    [][1]"), False)
        self.assertEqual(self.ends("while 1:\n    raise StopIteration"), False)

    def test_end_that_a_call_waits_for_is_not_seen_to_be_caught(self):
        self.assertEqual(self.ends("list(Iterator(StopIteration()))"), False)
        self.assertEqual(self.ends("a, b = Iterator(StopIteration(), 2)"), False)

    def test_loop_of_a_caller_further_out_is_taken_for_the_end_too(self):
        self.assertEqual(self.ends("""\
def g():
    for i in Iterator(StopIteration()):
        pass
g()
"""), True)


CLAUSES = [[""], ["Mine"], ["ValueError"], ["Exception, e"], ["BaseException"], ["Other"],
           ["OldBase"], ["Old, e"], ["(Other, Mine)"], ["(OldBase, ValueError), e"], ["pair"],
           ["nested_pair"], ["module.Error"], ["holder.Error"], ["ClassicHolder.Error"],
           ["module.inner.Error"], ["local"], ["(Other, local, KeyError)"],
           ["Other", "Mine"], ["Other", "KeyError", ""], ["KeyError", "IndexError", "Old"],
           ["Other", "(KeyError, LookupError)"], ["()", "None", "pair"], ["StopIteration"],
           ["SystemExit", "KeyboardInterrupt"], ["StandardError", ""]]

RAISED = ["raise Mine", "raise Mine(1)", "raise ValueError, 'text'", "raise Old", "raise Old()",
          "raise OldBase()", "int('x')", "{}['missing']", "throw(Mine(1))",
          "throw(StopIteration)", "raise SystemExit(3)", "1 / 0", "undefined", "import no_module"]

# How a try statement stands in its function; %(raised)s and %(clauses)s to be filled in.
SETTINGS = {
    "alone": """\
try:
    %(raised)s
%(clauses)s
""",
    "in loops": """\
for i in 1, 2:
    while i:
        try:
            %(raised)s
%(clauses_2)s
        break
""",
    "around finally": """\
try:
    try:
        %(raised)s
    finally:
        x = 1
%(clauses)s
""",
    "in finally": """\
try:
    try:
        %(raised)s
%(clauses_1)s
finally:
    x = 1
""",
    "around another": """\
try:
    try:
        %(raised)s
    except (Other, UnicodeError):
        raise SystemError("unexpected")
%(clauses)s
""",
    "around with": """\
try:
    with Manager(False) as manager:
        %(raised)s
%(clauses)s
""",
    "in with": """\
with Manager(False):
    try:
        %(raised)s
%(clauses_1)s
""",
    "in a handler": """\
try:
    [].pop()
except IndexError:
    try:
        %(raised)s
%(clauses_1)s
""",
    "with else": """\
try:
    try:
        pass
    except:
        raise SystemError("unexpected")
    else:
        %(raised)s
%(clauses)s
""",
    "around a call": """\
def inner():
    %(raised)s
try:
    inner()
%(clauses)s
""",
    "around a generator": """\
def inner():
    yield 1
    %(raised)s
try:
    for i in inner():
        x = i
%(clauses)s
""",
}


class TruthTest(AnalysisTestCase):
    """What the analysis says of generated try statements is what happens."""

    # Stands around each function; its own clause is no one's.
    CALL = """\
def call(f):
    case.caught = None
    try:
        case.caught = f()
    except:
        case.caught = "not"
"""

    def function(self, setting, raised, clauses):
        text = "".join("except %s:\n    return '%s'\n" % (clause, clause and "typed" or "bare")
                       for clause in clauses)
        body = SETTINGS[setting] % {"raised": raised, "clauses": text,
                                    "clauses_1": indented(text), "clauses_2": indented(text, 2)}
        return "def f():\n    local = Mine\n" + indented(body)

    def functions(self):
        for setting in sorted(SETTINGS):
            for raised in RAISED:
                for clauses in CLAUSES:
                    yield setting, raised, clauses

    def run_all(self, mode, always=()):
        """(what was generated, how it was caught, whether there was a stop) of each function."""
        self.init(debug_stream=None)
        core.set_exception_mode(mode)
        variables = {"case": self}
        exec CLASSES + self.CALL in variables
        code = compile("for f in functions: call(f); case.note()\n", self.script(""), "exec")
        functions = []
        generated = list(self.functions())
        for case in generated:
            exec compile(self.function(*case), "generated", "exec") in variables
            functions.append(variables["f"])
        core.set_ignored_exception_handlers({variables["call"].func_code: None})
        core.set_always_stop_excepts(always)
        results = []

        def note():
            results.append((generated[len(results)], self.caught, self.stops[:]))
            del self.stops[:]
        self.note = note
        self.run_code(code, functions=functions, call=variables["call"])
        self.assertEqual(len(results), len(generated))
        return results

    def test_exceptions_that_are_caught_do_not_stop_and_others_do(self):
        count = {}
        for case, caught, stops in self.run_all(UNHANDLED):
            if (caught != "not") != (stops == []):
                self.fail("%r was caught: %s; stops: %r" % (case, caught, stops))
            count[caught] = count.get(caught, 0) + 1
        # All kinds of endings are among them; None is that of a loop that was ended.
        self.assertEqual(sorted(count), [None, "bare", "not", "typed"])
        self.assertEqual(min(count["bare"], count["not"], count["typed"]) > 200, True)

    def test_always_stop_types_stop_unless_a_clause_of_the_raising_frame_names_them(self):
        checked = 0
        for case, caught, stops in self.run_all(NEVER, always=(BaseException,)):
            setting, raised, clauses = case
            if raised.startswith("throw") or "call" in setting or "generator" in setting:
                continue    # raised in another frame
            if "Old" in raised:
                self.assertEqual(stops, [])
            elif (caught == "typed") != (stops == []):
                self.fail("%r was caught: %s; stops: %r" % (case, caught, stops))
            checked += 1
        self.assertEqual(checked > 2000, True)


class ManyFramesTest(AnalysisTestCase):

    def test_generators_are_frames_like_others(self):
        self.assert_caught("""\
def g():
    try:
        yield 1
    except Mine:
        yield 2
generator = g()
generator.next()
generator.throw(Mine)
""")
        self.assert_not_caught("""\
def g():
    try:
        yield 1
    except Other:
        yield 2
generator = g()
generator.next()
generator.throw(Mine)
""")

    def test_generator_that_is_closed_early_is_not_caught_by_itself(self):
        # close() itself takes the GeneratorExit.
        body = """\
def g():
    try:
        yield 1
    finally:
        pass
generator = g()
generator.next()
generator.close()
"""
        self.assert_not_caught(body)
        self.assertEqual(self.stops[:1], ["GeneratorExit in g:%d"
                                          % (len(CLASSES.splitlines()) + 5)])

    def test_callers_of_a_generator_catch(self):
        self.assert_caught("""\
def g():
    yield 1
    raise Mine
try:
    list(g())
except Mine:
    pass
""")

    def test_comparison_callbacks_and_other_calls_from_c_are_caught_by_their_callers(self):
        self.assert_caught("""\
def key(item):
    raise Mine
try:
    sorted([1, 2], key=key)
except Mine:
    pass
""")

    def test_exception_that_c_code_takes_is_not_seen_to_be_caught(self):
        self.assert_not_caught("""\
class Silent(object):
    @property
    def attribute(self):
        raise AttributeError("of the program's")
hasattr(Silent(), "attribute")
""")

    def test_destructors_exceptions_are_caught_by_nobody(self):
        self.assertEqual(self.run_program("""\
class Loud(object):
    def __del__(self):
        raise ValueError(1)
try:
    Loud()
finally:
    pass
""", UNHANDLED), ["ValueError in __del__:3"])
