"""Places whose exceptions are not reported: those the user ignores, the regular-expression
parser's probe, and what a sub-language's hook says of its frames."""

import os
import weakref

from exception_case import (ALWAYS, NEVER, PRINTED, UNHANDLED, CatchInfo, ExceptionTestCase)
from harness import core

CAUGHT = """\
def f():
    raise ValueError(1)
def g():
    f()
try:
    g()
except ValueError:
    pass
"""


class Line(int):
    """A line object that can be watched."""


class TableTest(ExceptionTestCase):
    """The locations as the server edits and asks for them."""

    def setUp(self):
        ExceptionTestCase.setUp(self)
        self.path = self.script("", "a.py")
        self.other = self.script("", "b.py")
        self.third = self.script("", "c.py")

    def ignore(self, line, path=None):
        self.assertEqual(core.ignore_exception_loc(path or self.path, line, 1), None)

    def forget(self, line, path=None):
        self.assertEqual(core.ignore_exception_loc(path or self.path, line, 0), None)

    def ignored(self, line, path=None):
        return core.exception_loc_ignored(path or self.path, line)

    def test_nothing_is_ignored_at_first(self):
        self.assertEqual(self.ignored(1), 0)

    def test_ignored_location_is_found(self):
        self.ignore(3)
        self.assertEqual(self.ignored(3), 1)
        self.assertEqual(type(self.ignored(3)), int)
        self.assertEqual([self.ignored(2), self.ignored(4), self.ignored(3, self.other)],
                         [0, 0, 0])

    def test_removed_location_is_not_found(self):
        self.ignore(3)
        self.forget(3)
        self.assertEqual(self.ignored(3), 0)

    def test_any_number_but_0_adds(self):
        core.ignore_exception_loc(self.path, 3, -7)
        self.assertEqual(self.ignored(3), 1)

    def test_adding_twice_keeps_one(self):
        self.ignore(3)
        self.ignore(3)
        self.forget(3)
        self.assertEqual(self.ignored(3), 0)

    def test_adding_by_another_name_of_the_file_keeps_the_first(self):
        self.ignore(3)
        alias = os.path.join(self.folder, ".", "a.py")
        self.ignore(3, alias)
        self.forget(3, alias)
        self.assertEqual(self.ignored(3), 1)
        self.forget(3)
        self.assertEqual(self.ignored(3), 0)

    def test_location_is_found_by_any_name_of_its_file(self):
        self.ignore(3)
        link = os.path.join(self.folder, "link.py")
        os.symlink(self.path, link)
        folder = os.path.join(self.folder, "folder")
        os.symlink(self.folder, folder)
        os.chdir(self.folder)
        for name in ("a.py", "./a.py", link, os.path.join(folder, "a.py"),
                     os.path.join(self.folder, "folder", "..", "a.py"),
                     self.folder + "//a.py"):
            self.assertEqual(self.ignored(3, name), 1)

    def test_source_and_compiled_file_are_the_same(self):
        self.ignore(3)
        compiled = self.script("", "a.pyc")
        self.assertEqual(self.ignored(3, compiled), 1)

    def test_location_is_removed_by_its_own_name_only(self):
        self.ignore(3)
        os.chdir(self.folder)
        for name in ("a.py", os.path.join(self.folder, ".", "a.py"), self.path.upper()):
            self.forget(3, name)
            self.assertEqual(self.ignored(3), 1)

    def test_names_of_no_file_are_compared_as_text(self):
        self.ignore(3, "<template>")
        self.ignore(4, "/no/such/file.py")
        self.assertEqual(self.ignored(3, "<template>"), 1)
        self.assertEqual(self.ignored(4, "/no/such/file.py"), 1)
        self.assertEqual(self.ignored(4, "/no/such/./file.py"), 0)

    def test_removing_what_is_not_there_does_nothing(self):
        self.forget(3)
        self.ignore(3)
        self.forget(3, self.other)
        self.forget(4)
        self.assertEqual(self.ignored(3), 1)

    def test_files_with_the_same_line_stand_side_by_side(self):
        paths = [self.path, self.other, self.third]
        for gone in paths:
            core.clear_exception_ignores()
            for path in paths:
                self.ignore(7, path)
            self.forget(7, gone)
            for path in paths:
                self.assertEqual(self.ignored(7, path), int(path != gone))
        self.forget(7, self.path)
        self.forget(7, self.other)
        self.assertEqual([self.ignored(7, path) for path in paths], [0, 0, 0])
        self.ignore(7, self.other)
        self.assertEqual([self.ignored(7, path) for path in paths], [0, 1, 0])

    def test_tuple_stands_for_the_sum_of_its_first_two_items(self):
        self.ignore((10, 2))
        for line in (12, (10, 2), (11, 1), (2, 10), (14, -2), (12, 0, "more"), 12L, 12.5):
            self.assertEqual(self.ignored(line), 1)
        for line in (10, 2, (10, 1)):
            self.assertEqual(self.ignored(line), 0)

    def test_tuples_of_one_sum_are_one_location(self):
        self.ignore((10, 2))
        self.ignore((11, 1))
        self.forget(12)
        self.assertEqual([self.ignored((10, 2)), self.ignored((11, 1))], [0, 0])

    def test_sums_wrap_at_32_bits(self):
        largest = 2 ** 31 - 1
        self.ignore((largest, largest))
        self.assertEqual(self.ignored(-2), 1)
        self.ignore((-largest - 1, -1))
        self.assertEqual(self.ignored(largest), 1)

    def test_lines_may_be_zero_and_negative(self):
        for line in (0, -1, -2 ** 31):
            self.ignore(line)
            self.assertEqual(self.ignored(line), 1)

    def test_many_lines_are_kept_apart(self):
        for line in range(0, 1000, 2):
            self.ignore(line)
        self.assertEqual([self.ignored(line) for line in range(1000)], [1, 0] * 500)
        for line in range(0, 1000, 4):
            self.forget(line)
        self.assertEqual([self.ignored(line) for line in range(1000)], [0, 0, 1, 0] * 250)

    def test_clearing_forgets_all(self):
        for path in (self.path, self.other):
            for line in range(20):
                self.ignore(line, path)
        self.assertEqual(core.clear_exception_ignores(), None)
        for path in (self.path, self.other):
            for line in range(20):
                self.assertEqual(self.ignored(line, path), 0)
        core.clear_exception_ignores()

    def test_reset_and_destroy_and_init_forget_all(self):
        for forget in (core.reset, core.destroy, self.init):
            self.ignore(3)
            forget()
            self.assertEqual(self.ignored(3), 0)

    def test_line_object_is_kept_as_long_as_the_location(self):
        for forget in (lambda: self.forget(3), core.clear_exception_ignores, core.reset):
            line = Line(3)
            reference = weakref.ref(line)
            self.ignore(line)
            del line
            self.assert_is_not(reference(), None)
            forget()
            self.assert_is(reference(), None)

    def test_line_object_of_a_known_location_is_not_kept(self):
        self.ignore(3)
        line = Line(3)
        reference = weakref.ref(line)
        self.ignore(line)
        self.ignored(line)
        del line
        self.assert_is(reference(), None)

    def test_file_name_is_copied(self):
        name = "".join([self.folder, "/", "none.py"])
        self.ignore(3, name)
        del name
        self.assertEqual(self.ignored(3, self.folder + "/none.py"), 1)

    def test_line_object_may_change_the_table_as_it_is_released(self):
        case = self

        class Vengeful(int):
            def __del__(self):
                case.ignore(1000 + self)
                case.forget(5)
        for i in range(10):
            self.ignore(Vengeful(i))
        core.clear_exception_ignores()
        self.ignore(Vengeful(20))
        self.forget(20)
        self.assertEqual(self.ignored(20), 0)
        self.assertEqual(self.ignored(1020), 1)

    def test_line_that_is_no_number_is_refused(self):
        for line in (None, "12", [], (1, None), (None, 1), ("1", "2"), object()):
            self.assert_raises(TypeError, None, core.ignore_exception_loc, self.path, line, 1)
            self.assert_raises(TypeError, None, core.exception_loc_ignored, self.path, line)
            self.assert_raises(TypeError, None, core.ignore_exception_loc, self.path, line, 0)

    def test_tuple_of_less_than_two_items_is_refused(self):
        for line in ((), (12,)):
            self.assert_raises(IndexError, None, core.ignore_exception_loc, self.path, line, 1)
            self.assert_raises(IndexError, None, core.exception_loc_ignored, self.path, line)

    def test_number_that_is_no_c_long_is_refused(self):
        for line in (2 ** 70, (2 ** 70, 1), (1, -2 ** 70)):
            self.assert_raises(OverflowError, None, core.ignore_exception_loc, self.path, line, 1)
            self.assert_raises(OverflowError, None, core.exception_loc_ignored, self.path, line)

    def test_error_of_a_line_object_is_raised(self):
        class Line(object):
            def __int__(self):
                raise KeyError("line")
        self.assert_raises(KeyError, None, core.ignore_exception_loc, self.path, Line(), 1)
        self.assert_raises(KeyError, None, core.exception_loc_ignored, self.path, Line())

    def test_wrong_arguments_name_the_function(self):
        for call, message in (
                (lambda: core.ignore_exception_loc(self.path, 1),
                 "tracer_ignore_exception_loc() takes exactly 3 arguments (2 given)"),
                (lambda: core.exception_loc_ignored(self.path),
                 "tracer_exception_loc_ignored() takes exactly 2 arguments (1 given)")):
            self.assert_raises(TypeError, message, call)
        self.assert_raises(TypeError, None, core.ignore_exception_loc, None, 1, 1)
        self.assert_raises(TypeError, None, core.ignore_exception_loc, self.path, 1, "yes")
        self.assert_raises(TypeError, None, core.exception_loc_ignored, 7, 1)


class QuietLocationTest(ExceptionTestCase):
    """What an ignored location does to a running program."""

    def run_ignoring(self, line, source=CAUGHT, mode=ALWAYS):
        path = self.script(source)
        core.clear_exception_ignores()
        core.ignore_exception_loc(path, line, 1)
        return self.run_code(compile(source, path, "exec"), mode)

    def test_exception_raised_there_is_reported_in_no_frame(self):
        self.assertEqual(self.run_ignoring(2), [])
        self.assertEqual(self.stream.count("  dispatched=TRUE\n"), 3)

    def test_line_of_a_caller_is_not_where_it_was_raised(self):
        for line in (1, 3, 4, 6):
            self.assertEqual(len(self.run_ignoring(line)), 3)

    def test_it_is_quiet_in_every_mode(self):
        core.set_exc_catch_info_list([CatchInfo("f"), CatchInfo("g", parent=True)])
        core.set_always_stop_excepts((ValueError,))
        for mode in (NEVER, ALWAYS, UNHANDLED, 3, PRINTED, 5, -1):
            self.stream.clear()
            self.assertEqual(self.run_ignoring(2, mode=mode), [])
            self.assertEqual(self.stream.count("  dispatched=TRUE\n") > 0, True)

    def test_exception_that_ends_the_program_is_quiet_too(self):
        self.assertEqual(self.run_ignoring(1, "raise ValueError(1)\n", NEVER), [])
        self.assertEqual(self.ended_by, "ValueError: 1")
        self.assertEqual(self.decisions(), ["leaving bottom frame"])

    def test_quiet_exception_is_recorded_all_the_same(self):
        self.run_ignoring(2)
        self.assertEqual(self.stream.count("set_frame_exc_info\n"), 3)

    def test_step_does_not_stop_there_either(self):
        def line_cb(frame, changed_bps):
            lines.append(frame.f_lineno)
            core.step_into()

        def return_cb(frame, value, changed_bps):
            core.step_into()
        lines = []
        self.init(line_cb=line_cb, return_cb=return_cb)
        path = self.script(CAUGHT)
        core.set_break(path, 2, 1, 0, None, 0)
        core.ignore_exception_loc(path, 2, 1)
        self.assertEqual(self.run_code(compile(CAUGHT, path, "exec"), NEVER), [])
        self.assertEqual(lines[:2], [2, 7])

    def test_line_of_a_frame_that_was_entered_untraced_is_the_one_that_it_is_at(self):
        program = self.compiled(
            "def f():\n"
            "    x = 1\n"
            "    core.add_to_tstate_tracing(-1) or 1 / 0\n"
            "core.add_to_tstate_tracing(1); f()\n")
        self.assertEqual(self.run_code(program, ALWAYS),
                         ["ZeroDivisionError in f:3", "ZeroDivisionError in <module>:4"])
        core.ignore_exception_loc(program.co_filename, 3, 1)
        self.assertEqual(self.run_code(program, ALWAYS), [])

    def test_location_may_be_ignored_while_stopped_there(self):
        def ignore(frame):
            core.ignore_exception_loc(core.get_frame_file(frame), frame.f_lineno, 1)
        self.at_stop = ignore
        self.assertEqual(self.run_program(CAUGHT + CAUGHT, ALWAYS),
                         ["ValueError in f:2", "ValueError in f:10", "ValueError in g:12",
                          "ValueError in <module>:14"][:2])

    def test_location_counts_again_once_it_is_removed(self):
        path = self.script(CAUGHT)
        core.ignore_exception_loc(path, 2, 1)
        core.ignore_exception_loc(path, 2, 0)
        self.assertEqual(len(self.run_code(compile(CAUGHT, path, "exec"), ALWAYS)), 3)

    def test_callers_go_by_the_line_where_the_raising_frame_is_now(self):
        source = """\
def f():
    try:
        raise ValueError(1)
    finally:
        x = 1
try:
    f()
except ValueError:
    pass
"""
        self.assertEqual(self.run_ignoring(3, source), ["ValueError in <module>:7"])
        self.assertEqual(self.run_ignoring(5, source), ["ValueError in f:3"])

    def test_exception_of_a_c_function_was_raised_by_its_caller(self):
        source = "def f():\n    return int('x')\ntry:\n    f()\nexcept ValueError:\n    pass\n"
        self.assertEqual(self.run_ignoring(2, source), [])

    def test_server_may_name_the_file_otherwise_than_the_code(self):
        path = self.script(CAUGHT)
        os.chdir(self.folder)
        core.ignore_exception_loc("program.py", 2, 1)
        self.assertEqual(self.run_code(compile(CAUGHT, path, "exec"), ALWAYS), [])

    def test_code_of_no_file_has_locations_too(self):
        core.ignore_exception_loc("<made up>", 2, 1)
        code = compile(CAUGHT, "<made up>", "exec")
        self.assertEqual(self.run_code(code, ALWAYS), [])
        core.clear_exception_ignores()
        self.assertEqual(len(self.run_code(code, ALWAYS)), 3)


class ProbeTest(ExceptionTestCase):
    """The regular-expression parser raises and catches exceptions at one place as it works."""

    def probe(self, name, line, mode=ALWAYS):
        source = "try:" + "\n" * (line - 1) + "    raise IndexError(1)\nexcept IndexError: pass\n"
        path = self.script(source, name)
        return len(self.run_code(compile(source, path, "exec"), mode))

    def test_its_place_is_quiet(self):
        self.assertEqual(self.probe("sre_parse.py", 139), 0)
        self.assertEqual(self.stream.count("  dispatched=TRUE\n"), 1)

    def test_other_lines_of_its_file_are_not(self):
        for line in (1, 138, 140, 278):
            self.assertEqual(self.probe("sre_parse.py", line), 1)

    def test_end_of_the_file_name_decides(self):
        self.assertEqual(self.probe("my_sre_parse.py", 139), 0)

    def test_other_files_are_not_quiet(self):
        for name in ("sre_parse.pyw", "sre_parse.py.txt", "SRE_PARSE.PY", "parse.py", "a.py"):
            self.assertEqual(self.probe(name, 139), 1)

    def test_its_place_is_quiet_for_callers(self):
        path = self.script("def f():" + "\n" * 138 + "    raise IndexError(1)\n", "sre_parse.py")
        variables = {}
        execfile(path, variables)
        self.assertEqual(self.run_program("""\
try:
    f()
except IndexError:
    pass
""", ALWAYS, f=variables["f"]), [])


class Hook(object):
    """A sub-language whose key code is one function and whose other code lies in one folder."""

    def __init__(self, marker, key, folder):
        self.marker = marker
        self.key = key
        self.folder = folder
        self.asked = []
        self.stop = 1
        self.translation = ("page.tpl", 77)

    def _GetMarkerFrames(self):
        return [self.marker]

    def _GetModulePaths(self):
        return [(self.folder, 1)]

    def _GetSubLanguageFrames(self):
        return [self.key]

    def _StopHere(self, frame, event, step_kind):
        if event != -1:
            return 0
        self.asked.append(("_StopHere", frame.f_code.co_name, event, step_kind))
        if isinstance(self.stop, Exception):
            raise self.stop
        return self.stop

    def _TranslateFrame(self, frame, flag):
        self.asked.append(("_TranslateFrame", frame.f_code.co_name, flag))
        if isinstance(self.translation, Exception):
            raise self.translation
        return self.translation


class SubLanguageTest(ExceptionTestCase):
    """Exceptions in frames of a sub-language's implementation."""

    SOURCE = """\
def render():
    try:
        element()
    except ValueError:
        pass
def element():
    raise ValueError(1)
"""
    ELEMENT = ["ValueError in element:7", "ValueError in render:3"]

    def render(self, mode=ALWAYS, implementation="/no/such/folder", **attributes):
        """The stops while the language renders an element that fails."""
        path = self.script(self.SOURCE, "language.py")
        variables = {}
        execfile(path, variables)
        self.hook = Hook(variables["render"].func_code, variables["element"].func_code,
                         implementation)
        for name in attributes:
            setattr(self.hook, name, attributes[name])
        core.reset()
        core.register_sub_language_hook(self.hook)
        for location in self.ignored:
            core.ignore_exception_loc(*location)
        return self.run_program("render()\n", mode, render=variables["render"])

    def setUp(self):
        ExceptionTestCase.setUp(self)
        self.ignored = []

    def test_hook_decides_about_an_exception_in_a_key_frame(self):
        self.assertEqual(self.render(), self.ELEMENT)
        self.assertEqual(self.hook.asked,
                         [("_StopHere", "element", -1, -1), ("_StopHere", "element", -1, -1),
                          ("_TranslateFrame", "element", 1)] +
                         [("_StopHere", "element", -1, -1), ("_TranslateFrame", "element", 1)])

    def test_key_frame_where_the_hook_does_not_stop_is_quiet(self):
        for stop in (0, None, "", []):
            self.assertEqual(self.render(stop=stop), [])
            self.assert_not_in(("_TranslateFrame", "element", 1), self.hook.asked)

    def test_failing_hook_means_no_stop(self):
        self.assertEqual(self.render(stop=KeyError("hook")), [])

    def test_translated_location_can_be_ignored(self):
        self.ignored = [("page.tpl", 77, 1)]
        self.assertEqual(self.render(), [])

    def test_own_location_of_a_translated_frame_does_not_count(self):
        self.ignored = [(os.path.join(self.folder, "language.py"), 7, 1)]
        self.assertEqual(self.render(), self.ELEMENT)

    def test_translated_line_may_be_a_tuple(self):
        self.ignored = [("page.tpl", 77, 1)]
        self.assertEqual(self.render(translation=("page.tpl", (70, 7))), [])

    def test_translated_line_that_is_no_number_is_ignored_nowhere(self):
        for line in (None, "77", object()):
            self.ignored = [("page.tpl", 77, 1)]
            self.assertEqual(self.render(translation=("page.tpl", line)), self.ELEMENT)
            self.assertEqual(self.ended_by, "")

    def test_frame_that_is_not_translated_goes_by_its_own_location(self):
        for translation in (KeyError("hook"), None, (), "page.tpl", ("page.tpl",), (7, 7)):
            self.ignored = []
            self.assertEqual(self.render(translation=translation), self.ELEMENT)
            self.ignored = [(os.path.join(self.folder, "language.py"), 7, 1)]
            self.assertEqual(self.render(translation=translation), [])

    def test_translated_probe_of_the_parser_is_quiet(self):
        self.assertEqual(self.render(translation=("my/sre_parse.py", 139)), [])

    def test_hidden_frame_is_quiet(self):
        source = self.SOURCE.replace("def element():\n    raise ValueError(1)",
                                     "def element():\n    helper()\ndef helper():\n"
                                     "    raise ValueError(1)")
        path = self.script(source, "language.py")
        variables = {}
        execfile(path, variables)
        hook = Hook(variables["render"].func_code, variables["element"].func_code, self.folder)
        core.register_sub_language_hook(hook)
        self.assertEqual(
            self.run_program("render()\n", ALWAYS, render=variables["render"]), [])
        self.assertEqual(self.stream.count("  dispatched=TRUE\n"), 3)

    def test_other_frames_are_not_the_hooks(self):
        self.render()
        source = "try:\n    raise KeyError(1)\nexcept KeyError:\n    pass\n"
        self.assertEqual(self.run_program(source, ALWAYS), ["KeyError in <module>:2"])

    def test_program_does_not_see_an_error_of_the_hook(self):
        self.render(stop=KeyError("hook"))
        self.assertEqual(self.ended_by, "")
