"""Where the program prints exceptions itself, as the server describes it, and the exception kept
for each frame."""

import gc
import sys
import types
import weakref

import harness
from exception_case import (ALWAYS, NEVER, PRINTED, CatchInfo, ExceptionTestCase)
from harness import core

FIND = "find_catch_info\n"
NO_LIST = "  null dict or not frame\n"
MATCH1 = "  match1\n"
MATCH2 = "  match2\n"
FAILURE = "  failure\n"
ASK = "frame_prints_exc"
NONE_FOUND = "catch_info == NULL\n"
NOT_READ = "get_prints_and_parent failed\n"

FUNCTIONS = """\
import sys
def f():
    return sys._getframe()
class New(object):
    def f(self):
        return sys._getframe()
    def other(self):
        return sys._getframe()
    static = staticmethod(lambda: sys._getframe())
class Derived(New):
    def other(self):
        return sys._getframe()
class Old:
    def f(self):
        return sys._getframe()
def make():
    class Local(object):
        def f(self):
            return sys._getframe()
    return Local()
"""


def printed(prints, parent):
    return "prints=%i, parent=%i\n" % (prints, parent)


class Recorder(object):
    """Answers for any attribute and remembers which were asked for."""

    def __init__(self, **answers):
        self.answers = answers
        self.asked = []

    def __getattr__(self, name):
        self.asked.append(name)
        answer = self.answers.get(name, "*")
        if isinstance(answer, Exception):
            raise answer
        if callable(answer):
            return answer()
        return answer


class QuestionTestCase(ExceptionTestCase):
    """Asks about frames by events of the test's own."""

    def setUp(self):
        ExceptionTestCase.setUp(self)
        core.set_exception_mode(PRINTED)
        core.start_trace()
        core.continue_run()
        core.add_to_tstate_tracing(1)
        self.functions = {"__name__": "functions"}
        exec FUNCTIONS in self.functions

    def tearDown(self):
        core.add_to_tstate_tracing(-1)
        core.stop_trace()
        ExceptionTestCase.tearDown(self)

    def ask(self, frame, *instances):
        """What is logged while an exception event asks about a frame."""
        if instances:
            core.set_exc_catch_info_list(list(instances))
        self.stream.clear()
        core.trace_dispatch(frame, "exception", (ValueError, "value"))
        messages = self.stream.messages[:]
        self.assertEqual(messages.count(FIND), 1)
        messages = messages[messages.index(FIND):]
        if "  frame prints\n" in messages:
            return messages[:messages.index("  frame prints\n") + 1]
        return messages[:messages.index("set_frame_exc_info\n")]

    def ask_f(self, *instances):
        return self.ask(self.functions["f"](), *instances)

    def assert_match(self, frame, **attributes):
        self.assertEqual(self.ask(frame, CatchInfo(frame.f_code.co_name, **attributes)),
                         [FIND, MATCH1, MATCH2, ASK, printed(1, 0), "  frame prints\n"])

    def assert_no_match(self, frame, *expected, **attributes):
        self.assertEqual(self.ask(frame, CatchInfo(frame.f_code.co_name, **attributes)),
                         [FIND] + list(expected) + [ASK, NONE_FOUND])


class ListTest(QuestionTestCase):

    def test_without_a_list_nothing_is_looked_up(self):
        self.assertEqual(self.ask_f(), [FIND, NO_LIST, ASK, NONE_FOUND])

    def test_empty_list_clears(self):
        self.ask_f(CatchInfo("f"))
        core.set_exc_catch_info_list([])
        self.assertEqual(self.ask_f(), [FIND, NO_LIST, ASK, NONE_FOUND])

    def test_function_that_is_not_described_is_not_found(self):
        self.assertEqual(
            self.ask_f(CatchInfo("g"), CatchInfo("F")),
            [FIND, "  null info_list; looking for f\n", ASK, NONE_FOUND])

    def test_described_function_is_found(self):
        self.assertEqual(self.ask_f(CatchInfo("g"), CatchInfo("f")),
                         [FIND, MATCH1, MATCH2, ASK, printed(1, 0), "  frame prints\n"])

    def test_module_level_code_has_a_name_too(self):
        scope = {"__name__": "m"}
        exec "import sys; frame = sys._getframe()" in scope
        self.assert_match(scope["frame"])

    def test_first_match_wins(self):
        self.assertEqual(
            self.ask_f(CatchInfo("f", prints=False), CatchInfo("f"))[-1], printed(0, 0))
        self.assertEqual(
            self.ask_f(CatchInfo("f"), CatchInfo("f", prints=False))[-1], "  frame prints\n")

    def test_instances_are_tried_in_the_order_of_the_list(self):
        instances = [CatchInfo("f", mod_name="other"), CatchInfo("f", containing_class="Other"),
                     CatchInfo("g"), CatchInfo("f", mod_name="functions")]
        self.assertEqual(self.ask_f(*instances),
                         [FIND, MATCH1, MATCH1, MATCH2, ASK, printed(1, 0), "  frame prints\n"])

    def test_no_instance_of_that_name_matches(self):
        self.assertEqual(
            self.ask_f(CatchInfo("f", mod_name="a"), CatchInfo("f", containing_class="B")),
            [FIND, MATCH1, ASK, NONE_FOUND])

    def test_later_list_replaces_the_earlier_one(self):
        self.ask_f(CatchInfo("f"))
        self.assertEqual(self.ask_f(CatchInfo("g"))[1], "  null info_list; looking for f\n")

    def test_later_changes_of_the_list_do_not_count(self):
        instances = [CatchInfo("g")]
        core.set_exc_catch_info_list(instances)
        instances.append(CatchInfo("f"))
        self.assertEqual(self.ask_f()[1], "  null info_list; looking for f\n")

    def test_later_change_of_co_name_does_not_count(self):
        info = CatchInfo("g")
        core.set_exc_catch_info_list([info])
        info.co_name = "f"
        self.assertEqual(self.ask_f()[1], "  null info_list; looking for f\n")

    def test_later_changes_of_the_other_attributes_count(self):
        info = CatchInfo("f", prints=False)
        self.assertEqual(self.ask_f(info)[-1], printed(0, 0))
        info.prints = True
        self.assertEqual(self.ask_f()[-1], "  frame prints\n")
        info.mod_name = "elsewhere"
        self.assertEqual(self.ask_f()[-1], NONE_FOUND)

    def test_name_that_replaces_the_list_as_it_is_compared_is_compared_to_the_end(self):
        lists = []

        class Name(object):
            def __hash__(self):
                return hash("f")

            def __eq__(self, other):
                if self.replaces:
                    core.set_exc_catch_info_list([])
                    lists.extend([[None], {None: None}] for _ in range(200))
                return False
        name = Name()
        name.replaces = False
        core.set_exc_catch_info_list([CatchInfo(name), CatchInfo("f")])
        name.replaces = True
        self.assertEqual(self.ask_f()[-1], "  frame prints\n")
        self.assertEqual(self.ask_f(), [FIND, NO_LIST, ASK, NONE_FOUND])

    def test_any_object_with_the_attributes_will_do(self):
        class Old:
            co_name, mod_name, containing_class, prints, parent = "f", "*", "*", 1, 0
        module = types.ModuleType("info")
        vars(module).update(CatchInfo("f").__dict__)
        for info in (Old, Old(), module, Recorder(co_name="f", parent=0)):
            self.assertEqual(self.ask_f(info)[-1], "  frame prints\n")

    def test_only_these_attributes_are_read(self):
        info = Recorder(co_name="f", parent=0)
        core.set_exc_catch_info_list([info])
        self.assertEqual(info.asked, ["co_name"])
        del info.asked[:]
        self.ask_f()
        self.assertEqual(info.asked, ["mod_name", "containing_class", "prints", "parent"])

    def test_co_name_that_cannot_be_read_is_an_error(self):
        self.assert_raises(AttributeError, None, core.set_exc_catch_info_list, [object()])
        self.assert_raises(LookupError, "co_name", core.set_exc_catch_info_list,
                           [Recorder(co_name=LookupError("co_name"))])
        self.assert_raises(TypeError, None, core.set_exc_catch_info_list, [CatchInfo([])])

    def test_instances_before_the_bad_one_stand(self):
        core.set_exc_catch_info_list([CatchInfo("old")])
        self.assert_raises(AttributeError, None, core.set_exc_catch_info_list,
                           [CatchInfo("f"), object(), CatchInfo("g")])
        self.assertEqual(self.ask_f()[-1], "  frame prints\n")
        for name in ("g", "old"):
            exec "import sys\ndef %s(): return sys._getframe()" % name in self.functions
            self.assertEqual(self.ask(self.functions[name]())[1],
                             "  null info_list; looking for %s\n" % name)

    def test_bad_first_instance_leaves_no_description(self):
        core.set_exc_catch_info_list([CatchInfo("f")])
        self.assert_raises(AttributeError, None, core.set_exc_catch_info_list, [object()])
        self.assertEqual(self.ask_f()[1], "  null info_list; looking for f\n")

    def test_co_name_of_another_type_is_kept_without_harm(self):
        self.assertEqual(
            self.ask_f(CatchInfo(None), CatchInfo(7), CatchInfo(("f",)), CatchInfo(u"f"))[-1],
            "  frame prints\n")

    def test_co_name_may_change_the_list_as_it_is_read(self):
        given = [CatchInfo("g"), None, CatchInfo("f")]

        def shorten():
            del given[1:]
            return "f"
        given[1] = Recorder(co_name=shorten, parent=0)
        core.set_exc_catch_info_list(given)
        self.assertEqual(self.ask_f()[-1], "  frame prints\n")

    def test_co_name_may_set_another_list_as_it_is_read(self):
        def set_another():
            core.set_exc_catch_info_list([CatchInfo("g")])
            gc.collect()
            return "f"
        core.set_exc_catch_info_list([Recorder(co_name=set_another), CatchInfo("h")])
        self.assertEqual(self.ask_f()[1], "  null info_list; looking for f\n")

    def test_reset_and_destroy_keep_the_list(self):
        core.set_exc_catch_info_list([CatchInfo("f")])
        for forget in (core.reset, core.destroy):
            forget()
            core.set_exception_mode(PRINTED)
            core.start_trace()
            self.assertEqual(self.ask_f()[-1], "  frame prints\n")

    def test_init_begins_without_a_list(self):
        core.set_exc_catch_info_list([CatchInfo("f")])
        self.init(exception_mode=PRINTED)
        core.start_trace()
        self.assertEqual(self.ask_f(), [FIND, NO_LIST, ASK, NONE_FOUND])

    def test_instances_are_held_until_the_list_is_replaced(self):
        info = CatchInfo("f")
        reference = weakref.ref(info)
        core.set_exc_catch_info_list([info])
        del info
        core.reset()
        self.assert_is_not(reference(), None)
        core.set_exc_catch_info_list([])
        self.assert_is(reference(), None)

    def test_instances_may_set_another_list_as_they_are_released(self):
        class Vengeful(CatchInfo):
            def __del__(self):
                core.set_exc_catch_info_list([CatchInfo("f")])
        core.set_exc_catch_info_list([Vengeful("g")])
        core.set_exc_catch_info_list([])
        self.assertEqual(self.ask_f()[-1], "  frame prints\n")


class ModuleTest(QuestionTestCase):

    def frame(self, **variables):
        scope = dict(variables)
        exec "import sys\ndef f(): return sys._getframe()" in scope
        return scope["f"]()

    def test_name_of_the_module_matches(self):
        self.assert_match(self.frame(__name__="a.b"), mod_name="a.b")
        self.assert_no_match(self.frame(__name__="a.b"), mod_name="a")
        self.assert_no_match(self.frame(__name__="a"), mod_name="a.b")
        self.assert_no_match(self.frame(__name__="a"), mod_name="")

    def test_star_matches_any_module(self):
        self.assert_match(self.frame(__name__="a"), mod_name="*")
        self.assert_match(self.frame(), mod_name="*")
        self.assert_match(self.frame(__name__=7), mod_name="*")

    def test_star_is_no_pattern(self):
        self.assert_no_match(self.frame(__name__="abc"), mod_name="a*")

    def test_module_without_a_name_does_not_match(self):
        self.assert_no_match(self.frame(), mod_name="a")

    def test_module_whose_name_is_no_string_does_not_match(self):
        for name in (None, 7, u"a", ["a"]):
            self.assert_no_match(self.frame(__name__=name), mod_name="a")

    def test_mod_name_that_is_no_string_does_not_match(self):
        for name in (None, 7, u"*", u"a", ["*"], object()):
            self.assert_no_match(self.frame(__name__="a"), mod_name=name)

    def test_search_goes_on_behind_it(self):
        self.assertEqual(self.ask(self.frame(__name__="a"), CatchInfo("f", mod_name=None),
                                  CatchInfo("f"))[-1], "  frame prints\n")

    def test_subclass_of_str_is_a_string(self):
        class Name(str):
            def __eq__(self, other):
                raise RuntimeError("compared")
            __ne__ = __cmp__ = __hash__ = __eq__
        self.assert_match(self.frame(__name__=Name("a")), mod_name=Name("a"))
        self.assert_match(self.frame(), mod_name=Name("*"))

    def test_names_are_compared_to_their_end(self):
        self.assert_no_match(self.frame(__name__="a\0b"), mod_name="a")
        self.assert_match(self.frame(__name__="a\0b"), mod_name="a\0b")

    def test_mod_name_that_cannot_be_read_ends_the_search(self):
        for error in (AttributeError("mod_name"), KeyError(1), RuntimeError(2)):
            self.assertEqual(
                self.ask(self.frame(), Recorder(co_name="f", mod_name=error), CatchInfo("f")),
                [FIND, FAILURE, ASK, NONE_FOUND])


class ContainingClassTest(QuestionTestCase):

    def test_class_of_a_method_matches_by_name(self):
        self.assert_match(self.functions["New"]().f(), containing_class="New")
        self.assert_match(self.functions["Old"]().f(), containing_class="Old")

    def test_other_class_does_not_match(self):
        for name in ("Old", "new", "object", ""):
            self.assert_no_match(self.functions["New"]().f(), MATCH1, containing_class=name)

    def test_star_matches_methods_and_functions(self):
        self.assert_match(self.functions["New"]().f(), containing_class="*")
        self.assert_match(self.functions["f"](), containing_class="*")

    def test_function_of_a_module_is_in_no_class(self):
        for name in ("New", "None", "", "NoneType"):
            self.assert_no_match(self.functions["f"](), MATCH1, containing_class=name)

    def test_search_goes_on_behind_it(self):
        self.assertEqual(self.ask_f(CatchInfo("f", containing_class="New"), CatchInfo("f"))[-1],
                         "  frame prints\n")

    def test_inherited_method_belongs_to_the_class_that_defines_it(self):
        frame = self.functions["Derived"]().f()
        self.assert_match(frame, containing_class="New")
        self.assert_no_match(frame, MATCH1, containing_class="Derived")
        self.assert_match(self.functions["Derived"]().other(), containing_class="Derived")

    def test_class_that_is_no_name_of_the_module_is_not_found(self):
        self.assert_no_match(self.functions["make"]().f(), MATCH1, containing_class="Local")
        local = self.functions["make"]()
        self.functions["Alias"] = type(local)
        self.assert_match(local.f(), containing_class="Local")
        self.assert_no_match(local.f(), MATCH1, containing_class="Alias")

    def test_own_name_of_the_class_counts(self):
        new, old = self.functions["New"], self.functions["Old"]
        new.__name__ = old.__name__ = "Renamed"
        self.assert_match(new().f(), containing_class="Renamed")
        self.assert_match(old().f(), containing_class="Renamed")

    def test_static_method_is_in_no_class(self):
        frame = self.functions["New"].static()
        self.assert_match(frame, containing_class="*")
        self.assert_no_match(frame, MATCH1, containing_class="New")

    def test_containing_class_that_is_no_string_ends_the_search(self):
        for name in (None, 7, u"*", self.functions["New"]):
            self.assertEqual(
                self.ask_f(CatchInfo("f", containing_class=name), CatchInfo("f")),
                [FIND, MATCH1, FAILURE, ASK, NONE_FOUND])

    def test_containing_class_that_cannot_be_read_ends_the_search(self):
        for error in (AttributeError("containing_class"), KeyError(1)):
            self.assertEqual(
                self.ask_f(Recorder(co_name="f", containing_class=error), CatchInfo("f")),
                [FIND, MATCH1, FAILURE, ASK, NONE_FOUND])

    def test_it_is_not_read_for_another_module(self):
        info = Recorder(co_name="f", mod_name="elsewhere", containing_class=KeyError(1))
        self.assertEqual(self.ask_f(info, CatchInfo("f"))[-1], "  frame prints\n")
        self.assert_not_in("containing_class", info.asked)


class PrintsTest(QuestionTestCase):

    def test_frame_prints_unless_its_caller_does(self):
        for prints in (0, 1):
            for parent in (0, 1):
                answer = self.ask_f(CatchInfo("f", prints=prints, parent=parent))
                self.assertEqual(answer[:5],
                                 [FIND, MATCH1, MATCH2, ASK, printed(prints, parent)])
                self.assertEqual(answer[5:], ["  frame prints\n"] * (prints and not parent))

    def test_attributes_are_taken_for_their_truth(self):
        for yes, no in ((7, 0), ("x", ""), ([0], []), (object(), None)):
            self.assert_in(printed(1, 0), self.ask_f(CatchInfo("f", prints=yes, parent=no)))
            self.assert_in(printed(0, 1), self.ask_f(CatchInfo("f", prints=no, parent=yes)))

    def test_attribute_that_cannot_be_read_means_no(self):
        for name in ("prints", "parent"):
            for error in (AttributeError(name), KeyError(1)):
                self.assertEqual(self.ask_f(Recorder(**{"co_name": "f", name: error})),
                                 [FIND, MATCH1, MATCH2, ASK, NOT_READ])

    def test_truth_that_cannot_be_told_means_no(self):
        class Undecided(object):
            def __nonzero__(self):
                raise ValueError("truth")
        for name in ("prints", "parent"):
            self.assertEqual(self.ask_f(CatchInfo("f", **{name: Undecided()})),
                             [FIND, MATCH1, MATCH2, ASK, NOT_READ])

    def test_parent_is_not_read_when_prints_fails(self):
        info = Recorder(co_name="f", prints=KeyError(1))
        self.ask_f(info)
        self.assert_not_in("parent", info.asked)


class RunningListChangeTest(QuestionTestCase):
    """Attributes whose code changes the list while it is searched."""

    def change_in(self, name, change):
        """What is logged when reading an attribute makes a change."""
        def answer():
            change()
            gc.collect()
            return "*"
        messages = self.ask_f(Recorder(**{"co_name": "f", "parent": 0, name: answer}),
                              CatchInfo("f", mod_name="elsewhere"))
        return [message for message in messages
                if message in (FIND, MATCH1, MATCH2, ASK, printed(1, 0), FAILURE, NONE_FOUND)]

    def test_search_goes_on_in_the_list_it_began_with(self):
        for name in ("mod_name", "containing_class", "prints"):
            for change in (lambda: core.set_exc_catch_info_list([]),
                           lambda: core.set_exc_catch_info_list([CatchInfo("g")]),
                           lambda: core.set_exc_catch_info_list([CatchInfo("f")] * 10),
                           core.reset):
                self.assertEqual(self.change_in(name, change),
                                 [FIND, MATCH1, MATCH2, ASK, printed(1, 0)])
                core.set_exception_mode(PRINTED)
                core.start_trace()

    def test_list_under_search_may_shrink_and_grow(self):
        # Nobody hands this list out, but the garbage collector knows it.
        first = Recorder(co_name="f", mod_name=lambda: change() or "elsewhere")
        second = CatchInfo("f")
        for change, found in ((lambda: lists[0].pop(), NONE_FOUND),
                              (lambda: lists[0].__delitem__(slice(None)), NONE_FOUND),
                              (lambda: lists[0].append(second), "  frame prints\n")):
            core.set_exc_catch_info_list([first, CatchInfo("f", mod_name="elsewhere")])
            lists = [item for item in gc.get_referrers(first)
                     if type(item) is list and len(item) == 2]
            self.assertEqual(len(lists), 1)
            self.assertEqual(self.ask_f()[-1], found)

    def test_value_that_is_no_list_is_a_failure(self):
        core.set_exc_catch_info_list([CatchInfo("f")])
        table, = [item for item in gc.get_objects()
                  if type(item) is dict and item.keys() == ["f"] and type(item["f"]) is list]
        table["f"] = (CatchInfo("f"),)
        self.assertEqual(self.ask_f(), [FIND, "  not list\n", FAILURE, ASK, NONE_FOUND])


class CallerPrintsTest(ExceptionTestCase):
    """Frames whose caller prints are asked for as an exception leaves them."""

    SOURCE = """\
def f():
    raise ValueError(1)
try:
    f()
except ValueError:
    pass
"""
    REPORT = ["ValueError in f:2"]

    def stops_with(self, *instances):
        core.set_exc_catch_info_list(list(instances))
        self.stream.clear()
        return self.run_program(self.SOURCE, PRINTED)

    def test_both_must_be_true(self):
        for prints in (0, 1):
            for parent in (0, 1):
                expected = []
                if prints:      # here, or as the frame is left
                    expected = self.REPORT
                self.assertEqual(
                    self.stops_with(CatchInfo("f", prints=prints, parent=parent)), expected)
                self.assertEqual(self.decisions()[0],
                                 ["", "frame prints"][prints and not parent])

    def test_question_is_logged_once_only_up_to_the_match(self):
        self.stops_with(CatchInfo("f", parent=True))
        messages = self.stream.among(FIND, MATCH1, MATCH2, ASK, NONE_FOUND, printed(1, 1))
        self.assertEqual(messages[:8], [FIND, MATCH1, MATCH2, ASK, printed(1, 1),
                                        FIND, MATCH1, MATCH2])

    def test_attribute_that_cannot_be_read_means_no(self):
        for name in ("mod_name", "containing_class", "prints", "parent"):
            self.assertEqual(self.stops_with(Recorder(**{"co_name": "f", name: KeyError(1)})), [])
            self.assertEqual(self.ended_by, "")
        self.assertEqual(self.stream.count(NOT_READ), 1)

    def test_program_sees_no_error_of_the_instances(self):
        out = []
        core.set_exc_catch_info_list([Recorder(co_name="f", prints=KeyError(1))])
        self.run_program("import sys\n" + self.SOURCE.replace(
            "pass", "out.append(sys.exc_info()[0])"), PRINTED, out=out)
        self.assertEqual(out, [ValueError])

    def test_real_programs_loop_that_prints(self):
        source = """\
import sys, traceback
def handle(n):
    return 10 / n
class Application(object):
    def run(self):
        for n in 1, 0, 5:
            try:
                handle(n)
            except Exception:
                traceback.print_exc(None, out)
Application().run()
"""
        class Out(object):
            text = ""

            def write(self, text):
                self.text += text
        out = Out()
        core.set_exc_catch_info_list(
            [CatchInfo("run", mod_name="program", containing_class="Application")])
        self.assertEqual(self.run_program(source, PRINTED, out=out),
                         ["ZeroDivisionError in run:8"])
        self.assertEqual(out.text.splitlines()[-1][:18], "ZeroDivisionError:")


class Local(object):
    """What a frame holds; gone when the frame is."""


class RecordedExceptionTest(QuestionTestCase):
    """The exception that is kept for a frame does not keep the frame."""

    def recorded(self, hold=False, deep=1):
        """A weak reference to an object that lives as long as a frame with a recorded exception;
        the frame as well if wanted."""
        def fail(n):
            local = Local()
            locals_.append(weakref.ref(local))
            try:
                if n > 1:
                    fail(n - 1)
                raise ValueError(1)
            except ValueError:
                if n == deep:
                    return sys._getframe(), sys.exc_info()
                raise
        locals_ = []
        frame, exc_info = fail(deep)
        core.trace_dispatch(frame, "exception", exc_info)
        # This frame lives as long as the other, whose caller it is.
        held = hold and [frame] or [None]
        del frame, exc_info
        return locals_[0], held.pop()

    def event(self, name="return"):
        """An event that prunes."""
        core.trace_dispatch(sys._getframe(), name, None)

    def test_recorded_exception_keeps_the_frame_for_the_time_being(self):
        core.set_exception_mode(NEVER)
        local, frame = self.recorded()
        self.assert_is_not(local(), None)

    def test_next_return_lets_go_of_it(self):
        core.set_exception_mode(NEVER)
        local, frame = self.recorded()
        self.event()
        self.assert_is(local(), None)

    def test_next_exception_lets_go_of_it(self):
        core.set_exception_mode(NEVER)
        local, frame = self.recorded()
        other, frame = self.recorded()
        self.assert_is(local(), None)
        self.assert_is_not(other(), None)

    def test_reset_lets_go_of_it(self):
        core.set_exception_mode(NEVER)
        local, frame = self.recorded()
        core.reset()
        self.assert_is(local(), None)

    def test_frame_that_is_left_lets_go_of_it(self):
        core.set_exception_mode(NEVER)
        local, frame = self.recorded(hold=True)
        core.trace_dispatch(frame, "return", None)
        del frame
        self.assert_is(local(), None)

    def test_frame_in_use_elsewhere_keeps_its_exception(self):
        core.set_exception_mode(NEVER)
        local, frame = self.recorded(hold=True)
        for i in range(5):
            self.event()
        self.assertEqual(len([item for item in gc.get_referrers(frame)
                              if type(item) is dict and frame in item]), 1)
        del frame
        self.event()
        self.assert_is(local(), None)

    def test_exception_from_callees_does_not_keep_the_frame(self):
        core.set_exception_mode(NEVER)
        for deep in (2, 3, 10, 100):
            local, frame = self.recorded(deep=deep)
            self.assert_is_not(local(), None)
            self.event()
            self.assert_is(local(), None)

    def test_longest_traceback_that_is_looked_through(self):
        core.set_exception_mode(NEVER)
        sys.setrecursionlimit(3000)
        local, frame = self.recorded(deep=1001)
        self.event()
        self.assert_is(local(), None)
        local, frame = self.recorded(deep=1002)
        for i in range(3):
            self.event()
        self.assert_is_not(local(), None)
        core.reset()
        self.assert_is(local(), None)

    def test_at_most_100_are_let_go_of_at_once(self):
        core.set_exception_mode(NEVER)
        recorded = [self.recorded(hold=True) for i in range(250)]
        locals_ = [local for local, frame in recorded]
        del recorded, frame
        alive = []
        for i in range(4):
            alive.append(len([local for local in locals_ if local() is not None]))
            self.event()
        self.assertEqual(alive, [250, 150, 50, 0])

    def test_later_exception_replaces_the_earlier_one(self):
        class Value(object):
            pass
        first, second = Value(), Value()
        references = weakref.ref(first), weakref.ref(second)
        frame = sys._getframe()
        core.trace_dispatch(frame, "exception", (ValueError, first, None))
        del first
        self.assert_is_not(references[0](), None)
        core.trace_dispatch(frame, "exception", (ValueError, second, None))
        del second
        self.assert_is(references[0](), None)
        self.assert_is_not(references[1](), None)
        core.trace_dispatch(frame, "return", None)
        self.assert_is(references[1](), None)

    def test_destructors_that_run_may_do_anything(self):
        core.set_exception_mode(NEVER)
        ran = []

        class Vengeful(object):
            def __init__(self, revenge):
                self.revenge = revenge

            def __del__(self):
                ran.append(1)
                self.revenge()

        def reset():
            core.reset()
            core.start_trace()
        for revenge in (reset, self.event, self.recorded, gc.collect,
                        lambda: core.set_exc_catch_info_list([])):
            for event in ("return", "exception"):
                del ran[:]
                frames = []
                for i in range(5):
                    local, frame = self.recorded(hold=True)
                    local().vengeful = Vengeful(revenge)
                    frames.append(frame)
                del frames[:], frame
                if event == "return":
                    self.event()
                else:
                    self.recorded()
                self.assertEqual(len(ran) > 0, True)
                core.reset()
                core.start_trace()
                self.assertEqual(len(ran), 5)


class RunningProgramTest(ExceptionTestCase):
    """Frames of running programs are gone when they are without the core."""

    def alive(self, source):
        """For each object that the program watches, whether it was alive when asked."""
        seen = []
        references = []

        class Watched(object):
            pass

        def watch():
            watched = Watched()
            references.append(weakref.ref(watched))
            return watched

        def ask():
            seen.append([reference() is not None for reference in references])
        for mode in (NEVER, ALWAYS, 2, PRINTED):
            del references[:], seen[:]
            # What the test itself keeps of a stop would keep all.
            self.init(exception_cb=lambda *arguments: None)
            self.run_program(source, mode, watch=watch, ask=ask)
            self.assertEqual(self.ended_by, "")
            yield seen[:]

    def test_frame_that_an_exception_left(self):
        for seen in self.alive("""\
def f():
    local = watch()
    raise ValueError(1)
def g():
    try:
        f()
    except ValueError:
        ask()
g()
ask()
"""):
            self.assertEqual(seen, [[True], [False]])

    def test_frame_that_returned_after_it_caught_one(self):
        for seen in self.alive("""\
def f():
    local = watch()
    try:
        raise ValueError(1)
    except ValueError:
        pass
f()
ask()
"""):
            self.assertEqual(seen, [[False]])

    def test_generator_that_caught_one_and_is_not_run_to_its_end(self):
        for seen in self.alive("""\
def g():
    local = watch()
    try:
        raise ValueError(1)
    except ValueError:
        yield 1
    yield 2
generator = g()
generator.next()
ask()
del generator
ask()
"""):
            self.assertEqual(seen, [[True], [False]])

    def test_frames_of_a_deep_recursion(self):
        for seen in self.alive("""\
def f(n):
    local = watch()
    if n:
        f(n - 1)
    raise ValueError(1)
def g():
    try:
        f(20)
    except ValueError:
        pass
g()
ask()
"""):
            self.assertEqual(seen, [[False] * 21])

    def test_frame_that_runs_on_untraced(self):
        # Its return is not seen: an entry is left behind, until the next exception.
        source = """\
def f():
    local = watch()
    try:
        raise ValueError(1)
    except ValueError:
        core.stop_trace()
def g():
    core.start_trace()
    try:
        raise KeyError(1)
    except KeyError:
        pass
f()
ask()
g()
ask()
"""
        for seen in self.alive(source):
            self.assertEqual(seen, [[True], [False]])
