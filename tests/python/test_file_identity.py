"""Which file code is in, and which names are one file: as get_frame_file() tells it and as
breakpoints find it."""

import os
import sys
import time
import traceback
import types

import breakpoint_case
import harness
from harness import core

FRAME = """\
import sys
frame = sys._getframe()
def work():
    return sys._getframe()
"""


class FrameFileTestCase(harness.TestCase):

    def frame(self, filename, **variables):
        """A frame of code compiled under a name, in a namespace with these variables."""
        exec compile(FRAME, filename, "exec") in variables
        return variables["frame"]

    def file_of(self, filename, **variables):
        return core.get_frame_file(self.frame(filename, **variables))

    def place(self, *names):
        return os.path.join(self.folder, *names)


class FrameFileTest(FrameFileTestCase):
    """get_frame_file() works before init()."""

    def test_full_name_is_its_own(self):
        path = self.script("", "a.py")
        self.assertEqual(self.file_of(path), path)

    def test_result_is_a_new_string_each_time(self):
        path = self.script("", "a.py")
        self.assertEqual(type(self.file_of(path)), str)

    def test_relative_name_is_taken_from_the_current_directory(self):
        self.script("", "a.py")
        os.chdir(self.folder)
        self.assertEqual(self.file_of("a.py"), self.place("a.py"))

    def test_name_of_a_missing_file_becomes_a_full_one_all_the_same(self):
        os.chdir(self.folder)
        self.assertEqual(self.file_of("missing.py"), self.place("missing.py"))
        self.assertEqual(self.file_of("no/such/folder.py"), self.place("no/such/folder.py"))

    def test_dots_and_doubled_slashes_are_removed(self):
        os.mkdir(self.place("sub"))
        path = self.script("", "a.py")
        os.chdir(self.place("sub"))
        for name in ("../a.py", "./../a.py", ".././a.py", "..//a.py", "../sub/../a.py",
                     self.folder + "//a.py", self.folder + "/./a.py",
                     self.folder + "/sub/../a.py", self.folder + "/sub/.././/a.py",
                     "/.." + path, "//" + path, "/./" + path):
            self.assertEqual((name, self.file_of(name)), (name, path))

    def test_dots_are_removed_from_names_of_missing_files_too(self):
        self.assertEqual(self.file_of("/no/such/../folder//./x.py"), "/no/folder/x.py")
        self.assertEqual(self.file_of("/../../x.py"), "/x.py")

    def test_names_that_only_look_like_dots_stay(self):
        for name in ("/x/.hidden", "/x/..hidden", "/x/...", "/x/a..", "/x/.a./b.py"):
            self.assertEqual(self.file_of(name), name)

    def test_symbolic_links_stay_as_they_are_spelled(self):
        path = self.script("", "a.py")
        os.mkdir(self.place("sub"))
        os.symlink(path, self.place("link.py"))
        os.symlink(self.folder, self.place("sub", "up"))
        for name in (self.place("link.py"), self.place("sub", "up", "a.py"),
                     self.place("sub", "up", "link.py")):
            self.assertEqual(self.file_of(name), name)

    def test_link_is_resolved_where_leaving_it_would_name_another_file(self):
        os.makedirs(self.place("real", "deep"))
        path = self.script("", "real/a.py")
        os.symlink(self.place("real", "deep"), self.place("deep"))
        # The system goes through the link first: this is not <folder>/a.py.
        self.assertEqual(self.file_of(self.place("deep", "..", "a.py")), path)
        self.script("", "a.py")
        self.assertEqual(self.file_of(self.place("deep", "..", ".", "a.py")), path)

    def test_dots_after_a_link_that_lead_to_the_same_file_leave_the_link(self):
        os.makedirs(self.place("real", "sub"))
        self.script("", "real/a.py")
        os.symlink(self.place("real"), self.place("link"))
        self.assertEqual(self.file_of(self.place("link", "sub", "..", "a.py")),
                         self.place("link", "a.py"))

    def test_dangling_and_circular_links_stay_as_they_are_spelled(self):
        os.symlink(self.place("nowhere"), self.place("dangling.py"))
        os.symlink(self.place("round.py"), self.place("circle.py"))
        os.symlink(self.place("circle.py"), self.place("round.py"))
        os.symlink(self.place("self"), self.place("self"))
        for name in (("dangling.py",), ("circle.py",), ("self", "a.py")):
            self.assertEqual(self.file_of(self.place(*name)), self.place(*name))
        self.assertEqual(self.file_of(self.place("self", "..", "a.py")), self.place("a.py"))

    def test_any_bytes_are_a_name(self):
        for name in ("caf\xc3\xa9.py", "\xff\xfe.py", "a b\t\n.py", "%s%n%d.py", "back\\slash.py",
                     "\xe9\xe8/x.py"):
            self.assertEqual(self.file_of(self.place(name)), self.place(name))

    def test_letter_case_stays(self):
        self.script("", "MiXed.Py")
        self.assertEqual(self.file_of(self.place("MiXed.Py")), self.place("MiXed.Py"))
        self.assertEqual(self.file_of(self.place("mixed.py")), self.place("mixed.py"))

    def test_names_in_angle_brackets_are_their_own(self):
        os.chdir(self.folder)
        for name in ("<string>", "<stdin>", "<anything at all>", "<a/../b>", "<>"):
            self.assertEqual(self.file_of(name), name)

    def test_names_with_one_angle_bracket_are_ordinary(self):
        os.chdir(self.folder)
        for name in ("<a", "a>", "<a>.py", ">a<"):
            self.assertEqual(self.file_of(name), self.place(name))

    def test_compiled_suffix_is_cut_to_that_of_the_source(self):
        for name, expected in (("a.pyc", "a.py"), ("a.pyo", "a.py"), ("a.PYC", "a.PY"),
                               ("a.pYo", "a.pY"), ("a.pyd", "a.pyd"), ("a.pyw", "a.pyw"),
                               ("apyc", "apyc"), ("pyc", "pyc"), (".pyc", ".py"),
                               ("a.pyc.pyc", "a.pyc.py"), ("a.pycc", "a.pycc")):
            self.assertEqual(self.file_of(self.place(name)), self.place(expected))

    def test_empty_name_is_the_current_directory(self):
        os.chdir(self.folder)
        self.assertEqual(self.file_of(""), self.folder)

    def test_name_of_32000_characters_is_one(self):
        for name in ("/" + "x" * 31999, "/" + "x" * 31998, "y" * 32000):
            self.assertEqual(self.file_of(name), name)

    def test_name_of_more_characters_is_too_long(self):
        self.assertEqual(self.file_of("/" + "x" * 32000), "<filename too long>")
        self.assertEqual(self.file_of("y" * 100000), "<filename too long>")

    def test_relative_name_without_room_for_the_current_directory_stays_relative(self):
        os.chdir(self.folder)
        room = 32000 - len(self.folder) - 1
        self.assertEqual(self.file_of("x" * room), self.place("x" * room))
        self.assertEqual(self.file_of("x" * (room + 1)), "x" * (room + 1))

    def test_name_stays_relative_where_the_current_directory_is_gone(self):
        os.mkdir(self.place("gone"))
        os.chdir(self.place("gone"))
        os.rmdir(self.place("gone"))
        self.assertEqual(self.file_of("a.py"), "a.py")
        self.assertEqual(self.file_of("/x/../a.py"), "/a.py")
        os.chdir(self.folder)
        # A failure is not remembered.
        self.assertEqual(self.file_of("a.py"), self.place("a.py"))

    def test_full_name_is_remembered_for_a_name(self):
        os.mkdir(self.place("sub"))
        os.chdir(self.folder)
        self.assertEqual(self.file_of("a.py"), self.place("a.py"))
        os.chdir(self.place("sub"))
        self.assertEqual(self.file_of("a.py"), self.place("a.py"))
        self.assertEqual(self.file_of("./a.py"), self.place("sub", "a.py"))

    def test_only_frames_are_taken(self):
        for argument in (None, 1, "frame", sys, self.frame("a.py").f_code):
            self.assert_raises(TypeError, None, core.get_frame_file, argument)
        self.assert_raises(TypeError, None, core.get_frame_file)


class ModuleFileTest(FrameFileTestCase):
    """Whether a frame's file is its code's or its module's."""

    def setUp(self):
        FrameFileTestCase.setUp(self)
        self.code_file = self.script("", "code.py")
        self.module_file = self.script("", "module.py")

    def test_code_without_a_module_file_is_in_its_own(self):
        self.assertEqual(self.file_of(self.code_file), self.code_file)
        self.assertEqual(self.file_of("/no/such.py"), "/no/such.py")

    def test_module_file_that_is_no_string_does_not_count(self):
        class Name(str):
            pass
        for value in (None, 1, unicode(self.module_file), Name(self.module_file)):
            self.assertEqual(self.file_of("/no/such.py", __file__=value), "/no/such.py")

    def test_string_is_in_no_module_file(self):
        self.assertEqual(self.file_of("<string>", __file__=self.module_file), "<string>")

    def test_names_that_differ_by_a_compiled_suffix_are_the_codes(self):
        # That of the code is the one on disk, as far as its own name goes.
        for module_file in ("/no/CODE.PY", "/no/code.pyc", "/no/code.pyo"):
            self.assertEqual(self.file_of("/no/code.py", __file__=module_file), "/no/code.py")

    def test_code_whose_file_cannot_be_read_is_in_the_module_file(self):
        for name in ("/no/such.py", ""):
            self.assertEqual(self.file_of(name, __file__=self.module_file), self.module_file)
            self.assertEqual(self.file_of(name, __file__=self.module_file + "c"),
                             self.module_file)

    def test_code_under_another_name_in_angle_brackets_is_in_the_module_file(self):
        for name in ("<stdin>", "<made up>"):
            self.assertEqual(self.file_of(name, __file__=self.module_file), self.module_file)
            self.assertEqual(self.file_of(name), name)

    def copy_times(self, *paths):
        for path in paths:
            os.utime(path, (1000000000, 1000000000))

    def other_code(self, text=""):
        os.mkdir(self.place("other"))
        return self.script(text, "other/code.py")

    def test_readable_code_file_counts_beside_a_source_file(self):
        other = self.other_code()
        self.copy_times(self.code_file, other)
        self.assertEqual(self.file_of(self.code_file, __file__=other), self.code_file)

    def test_compiled_module_file_counts_where_its_source_is_a_copy_of_the_codes(self):
        other = self.other_code()
        self.copy_times(self.code_file, other)
        for suffix in "coCO":
            self.assertEqual(self.file_of(self.code_file, __file__=other + suffix), other)

    def test_compiled_module_file_does_not_count_where_times_differ(self):
        other = self.other_code()
        self.copy_times(self.code_file, other)
        os.utime(other, (1000000000, 1000000001))
        self.assertEqual(self.file_of(self.code_file, __file__=other + "c"), self.code_file)

    def test_compiled_module_file_does_not_count_where_sizes_differ(self):
        other = self.other_code("x")
        self.copy_times(self.code_file, other)
        self.assertEqual(self.file_of(self.code_file, __file__=other + "c"), self.code_file)

    def test_compiled_module_file_does_not_count_without_its_source(self):
        other = self.other_code()
        os.remove(other)
        self.assertEqual(self.file_of(self.code_file, __file__=other + "c"), self.code_file)

    def test_compiled_module_file_does_not_count_under_another_base_name(self):
        self.copy_times(self.code_file, self.module_file)
        self.assertEqual(self.file_of(self.code_file, __file__=self.module_file + "c"),
                         self.code_file)

    def test_backslash_separates_a_base_name_too(self):
        other = self.script("", "odd\\code.py")
        self.copy_times(self.code_file, other)
        self.assertEqual(self.file_of(self.code_file, __file__=other + "c"), other)

    def test_module_file_that_is_too_long_is_none(self):
        name = "/" + "x" * 32000
        self.assertEqual(self.file_of("/no/such.py", __file__=name), "<filename too long>")
        self.assertEqual(self.file_of(self.code_file, __file__=name), self.code_file)
        self.assertEqual(self.file_of(self.code_file, __file__="/code.py" + "c" * 40000),
                         self.code_file)


class RegisteredFileTest(breakpoint_case.BreakpointTestCase):
    """A function keeps the file that it was in when it was first debugged."""

    def run_work(self, filename, variables):
        exec compile(FRAME, filename, "exec") in variables
        core.start_trace()
        core.continue_run()
        frame = variables["work"]()
        core.stop_trace()
        return frame

    def test_function_keeps_its_file_when_the_module_file_changes(self):
        path = self.write("a.py", "")
        variables = {"__file__": path}
        frame = self.run_work("/no/such.py", variables)
        variables["__file__"] = self.write("b.py", "")
        self.assertEqual(core.get_frame_file(frame), path)
        self.assertEqual(core.get_frame_file(variables["frame"]), variables["__file__"])

    def test_function_that_was_never_debugged_has_the_file_of_the_moment(self):
        variables = {"__file__": self.write("a.py", "")}
        exec compile(FRAME, "/no/such.py", "exec") in variables
        frame = variables["work"]()
        self.assertEqual(core.get_frame_file(frame), variables["__file__"])
        variables["__file__"] = self.write("b.py", "")
        self.assertEqual(core.get_frame_file(frame), variables["__file__"])

    def test_nested_function_has_the_file_of_the_outer_one(self):
        path = self.write("a.py", "")
        variables = {"__file__": path}
        exec compile("def outer():\n    import sys\n    def inner():\n"
                     "        return sys._getframe()\n    return inner\n",
                     "/no/such.py", "exec") in variables
        core.start_trace()
        core.continue_run()
        inner = variables["outer"]()
        core.stop_trace()
        # Called in a namespace with another file.
        moved = types.FunctionType(inner.func_code, {"__file__": "/another.py"}, "moved", None,
                                   inner.func_closure)
        self.assertEqual(core.get_frame_file(moved()), path)

    def test_code_of_a_string_is_never_registered(self):
        variables = {"__file__": self.write("a.py", "")}
        frame = self.run_work("<string>", variables)
        self.assertEqual(core.get_frame_file(frame), "<string>")

    def test_file_stays_while_the_core_is_reset(self):
        path = self.write("a.py", "")
        variables = {"__file__": path}
        frame = self.run_work("/no/such.py", variables)
        variables["__file__"] = "/another.py"
        core.reset()
        self.server.init()
        self.assertEqual(core.get_frame_file(frame), path)

    def test_many_functions_come_and_go(self):
        # What is collected meanwhile gives its memory to code in other files.
        paths = [self.write("file%d.py" % i, "") for i in range(7)]
        code = [compile(FRAME, path, "exec") for path in paths]
        wrong = []
        core.start_trace()
        core.continue_run()
        for i in range(12000):
            variables = {}
            exec compile("def work(): return sys._getframe()", paths[i % 7], "exec") in variables
            variables["sys"] = sys
            found = core.get_frame_file(variables["work"]())
            if found != paths[i % 7]:
                wrong.append((paths[i % 7], found))
        core.stop_trace()
        self.assertEqual(wrong, [])

    def test_dead_functions_are_given_up_in_time(self):
        if not hasattr(sys, "gettotalrefcount"):
            self.skip("the interpreter does not count its references")
        path = self.write("a.py", "")

        def total_after(count):
            core.start_trace()
            core.continue_run()
            for i in range(count):
                variables = {}
                exec compile("def work(): pass", path, "exec") in variables
                variables["work"]()
            core.stop_trace()
            core.get_new_imports()
            self.server.stream.clear()
            return sys.gettotalrefcount()
        totals = [total_after(6000) for _ in range(5)]
        # Up to 5000 calls' worth of code may be held at any moment, each of some 20 references.
        self.assertEqual(abs(totals[-1] - totals[0]) < 5000 * 30, True)

    def test_dying_code_may_look_so_much_up_that_other_code_dies(self):
        path = self.write("a.py", "")
        frame = self.frame_of(path)
        died = []

        class Constant(object):
            def __del__(self):
                died.append(True)
                if len(died) == 1:
                    look_up(6000)

        def look_up(count):
            for _ in range(count):
                core.get_frame_file(frame)
        core.start_trace()
        core.continue_run()
        for _ in range(20):
            variables = {}
            exec compile("def work(): pass", path, "exec") in variables
            self.with_constant(variables["work"], Constant())()
        core.stop_trace()
        del variables
        look_up(6000)
        self.assertEqual(len(died), 20)
        self.assertEqual(core.get_frame_file(frame), path)

    def frame_of(self, path):
        variables = {}
        exec compile(FRAME, path, "exec") in variables
        return variables["frame"]

    def with_constant(self, function, constant):
        """The function, with one more constant that nothing uses."""
        code = function.func_code
        return types.FunctionType(
            types.CodeType(code.co_argcount, code.co_nlocals, code.co_stacksize, code.co_flags,
                           code.co_code, code.co_consts + (constant,), code.co_names,
                           code.co_varnames, code.co_filename, code.co_name,
                           code.co_firstlineno, code.co_lnotab), function.func_globals)


class SpellingTest(breakpoint_case.BreakpointTestCase):
    """Breakpoints given by other names than the code goes by."""

    PROGRAM = "x = 1\ny = 2\nz = 3\n"

    def setUp(self):
        breakpoint_case.BreakpointTestCase.setUp(self)
        self.path = self.write("sub/program.py", self.PROGRAM)
        os.chdir(self.folder)
        os.symlink("sub/program.py", "link.py")
        os.symlink("sub", "folder")
        os.link(self.path, "hard.py")

    def stops_with(self, break_name, code_name):
        """Whether a breakpoint by one name stops code that goes by the other."""
        self.set_break(break_name, 2)
        del self.stops[:]
        self.run_code(compile(self.PROGRAM, code_name, "exec"))
        stopped = self.stops != []
        self.assertEqual(self.hits(break_name, 2), [int(stopped)])
        core.reset()
        return stopped

    def spellings(self):
        return ["sub/program.py", self.path, "./sub/program.py", "sub/../sub/./program.py",
                "sub//program.py", self.folder + "//sub/program.py", "link.py",
                self.folder + "/link.py", "folder/program.py", "folder/../link.py",
                "../" + os.path.basename(self.folder) + "/link.py", "hard.py",
                self.folder + "/sub/../hard.py"]

    def test_every_spelling_of_a_file_is_that_file(self):
        missed = []
        for break_name in self.spellings():
            for code_name in self.spellings():
                if not self.stops_with(break_name, code_name):
                    missed.append((break_name, code_name))
        self.assertEqual(missed, [])

    def test_spellings_of_one_file_may_have_breakpoints_side_by_side(self):
        for name in self.spellings():
            self.set_break(name, 2)
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:2"])
        self.assertEqual([self.hits(name, 2) for name in self.spellings()],
                         [[1]] * len(self.spellings()))

    def test_copy_is_another_file(self):
        copy = self.write("copy/program.py", self.PROGRAM)
        self.assertEqual(self.stops_with(copy, self.path), False)
        self.assertEqual(self.stops_with(self.path, copy), False)

    def test_names_that_differ_in_case_alone_are_different_files_where_both_exist(self):
        other = self.write("sub/PROGRAM.py", self.PROGRAM)
        self.assertEqual(self.stops_with(other, self.path), False)
        self.assertEqual(self.stops_with(self.path, other), False)
        self.assertEqual(self.stops_with(other, other), True)
        # Both at once.
        self.set_break(other, 2)
        self.set_break(self.path, 2)
        self.run_program(self.path)
        self.assertEqual((self.hits(other, 2), self.hits(self.path, 2)), ([0], [1]))
        self.run_program(other)
        self.assertEqual((self.hits(other, 2), self.hits(self.path, 2)), ([1], [1]))

    def test_names_that_differ_in_case_alone_are_one_file_where_either_is_missing(self):
        self.assertEqual(self.stops_with(self.folder + "/SUB/Program.PY", self.path), True)
        self.assertEqual(self.stops_with("/no/SUCH.py", "/no/such.py"), True)

    def test_names_that_differ_in_case_alone_are_one_file_where_one_links_to_the_other(self):
        os.symlink("program.py", "sub/PROGRAM.py")
        self.assertEqual(self.stops_with(self.folder + "/sub/PROGRAM.py", self.path), True)

    def test_missing_file_stops_code_of_the_same_name_only(self):
        self.assertEqual(self.stops_with("/no/such.py", "/no/such.py"), True)
        self.assertEqual(self.stops_with("/no/such.py", "/no/other.py"), False)
        self.assertEqual(self.stops_with("/no/../no/such.py", "/no/such.py"), False)

    def test_compiled_name_is_the_sources_where_both_exist(self):
        self.write("sub/program.pyc", "")
        self.assertEqual(self.stops_with(self.path + "c", self.path), True)
        self.assertEqual(self.stops_with("sub/program.pyc", self.path), True)
        self.assertEqual(self.stops_with("folder/program.pyc", self.path), True)

    def test_compiled_name_is_not_the_sources_where_it_does_not_exist(self):
        self.assertEqual(self.stops_with(self.path + "c", self.path), False)

    def test_optimised_name_is_never_the_sources(self):
        self.write("sub/program.pyo", "")
        self.assertEqual(self.stops_with(self.path + "o", self.path), False)

    def test_dangling_and_circular_links_are_no_file(self):
        os.symlink("nowhere.py", "dangling.py")
        os.symlink("circle.py", "circle.py")
        for name in ("dangling.py", "circle.py", "circle.py/program.py"):
            self.assertEqual(self.stops_with(self.folder + "/" + name, self.path), False)
            self.assertEqual(self.stops_with(self.path, self.folder + "/" + name), False)
            self.assertEqual(self.stops_with(self.folder + "/" + name,
                                             self.folder + "/" + name), True)

    def test_link_that_leads_away_again_is_still_known_as_the_file_it_was(self):
        self.set_break("link.py", 2)
        self.run_program(self.path)
        os.remove("link.py")
        os.symlink(self.write("other.py", self.PROGRAM), "link.py")
        self.run_program(self.path)
        self.assertEqual(self.hits("link.py", 2), [2])

    def test_file_that_took_the_place_of_another_is_not_taken_for_what_was_left_of_that(self):
        left = self.folder + "/left.py"
        os.link(self.path, left)
        # Known from now on.
        self.assertEqual(self.stops_with("sub/program.py", self.path), True)
        os.rename(self.write("new.py", self.PROGRAM), self.path)
        self.assertEqual(self.stops_with("sub/program.py", left), False)
        self.assertEqual(self.stops_with("sub/program.py", self.path), True)

    def test_names_of_any_bytes(self):
        for name in ("caf\xc3\xa9.py", "\xff\xfe.py", "a b\t.py", "%s%n.py", "back\\slash.py"):
            path = self.write(name, self.PROGRAM)
            self.assertEqual(self.stops_with(path, path), True)
            self.assertEqual(self.stops_with("./" + name, path), True)
            self.assertEqual(self.stops_with(self.path, path), False)

    def test_names_that_are_too_long_for_the_system(self):
        for length in (300, 5000, 31999, 32000):
            name = "/" + "x" * (length - 1)
            self.assertEqual((length, self.stops_with(name, name)), (length, True))
            self.assertEqual(self.stops_with(name, self.path), False)
            self.assertEqual(self.stops_with(self.path, name), False)

    def test_code_whose_name_is_too_long_for_the_core_has_the_name_that_says_so(self):
        name = "/" + "x" * 32000
        self.assertEqual(self.stops_with(name, name), False)
        self.assertEqual(self.stops_with("<filename too long>", name), True)

    def test_current_directory_that_is_gone(self):
        os.mkdir("gone")
        os.chdir("gone")
        os.rmdir(self.folder + "/gone")
        self.assertEqual(self.stops_with("program.py", "program.py"), True)
        self.assertEqual(self.stops_with("program.py", self.path), False)
        self.assertEqual(self.stops_with(self.path, self.path), True)
        os.chdir(self.folder)

    def test_relative_breakpoint_means_the_current_directory(self):
        os.chdir("sub")
        self.assertEqual(self.stops_with("program.py", self.path), True)

    def test_change_of_the_current_directory_while_the_program_runs(self):
        path = self.write("mover.py", "import os\nos.chdir('/')\ndef f():\n    x = 1\nf()\n")
        self.set_break("mover.py", 5)
        self.set_break(path, 4)
        self.run_code(compile(open(path).read(), "mover.py", "exec"))
        self.assertEqual(self.stops, ["mover.py:5", "mover.py:4"])

    def test_names_in_angle_brackets_are_one_only_with_themselves(self):
        self.write("<x>", self.PROGRAM)
        self.assertEqual(self.stops_with("<x>", "<x>"), True)
        self.assertEqual(self.stops_with("<x>", "<y>"), False)
        self.assertEqual(self.stops_with("<string>", "<string>"), True)

    def test_module_found_through_a_spelling_on_the_search_path(self):
        for entry in ("sub", "./sub/../folder", "", self.folder + "/folder"):
            name = "module%d" % len(entry)
            path = self.write("sub/%s.py" % name, self.PROGRAM)
            if not entry:
                os.chdir("sub")
            sys.path.insert(0, entry)
            self.set_break(path, 2)
            self.run_code(compile("import %s\n" % name, self.path, "exec"))
            self.assertEqual((entry, self.stops), (entry, [name + ".py:2"]))
            sys.path.remove(entry)
            del self.stops[:]


class LaterFileTest(breakpoint_case.BreakpointTestCase):

    def test_file_that_was_missing_is_found_after_three_seconds(self):
        program = self.write("program.py", "x = 1\ny = 2\n")
        late = os.path.join(self.folder, "late.py")
        os.chdir(self.folder)
        self.run_program(program)
        # Asked for while it was missing: it is not looked for again at once.
        self.set_break("late.py", 2)
        self.write("late.py", "x = 1\ny = 2\n")
        time.sleep(3.1)
        self.set_break("late.py", 2)
        self.run_program(late)
        self.assertEqual(self.hits("late.py", 2), [1, 1])


class LockedFolderTest(breakpoint_case.BreakpointTestCase):
    """Tried in a child process without rights, since the system refuses root nothing."""

    def without_rights(self, function):
        """What the function returned, as text, in a child without special rights."""
        reader, writer = os.pipe()
        child = os.fork()
        if child == 0:
            self.give_up_rights()
            try:
                os.write(writer, repr(function()))
            except Exception:
                traceback.print_exc()
            finally:
                os._exit(0)
        os.close(writer)
        text = os.fdopen(reader).read()
        status = os.waitpid(child, 0)[1]
        if status != 0:
            self.skip("this process cannot give up its rights")
        return text

    def give_up_rights(self):
        if os.getuid() == 0:
            nobody = 65534
            try:
                os.setgroups([])
                os.setgid(nobody)
                os.setuid(nobody)
            except OSError:
                os._exit(1)

    def tearDown(self):
        os.chmod(os.path.join(self.folder, "locked"), 0700)
        breakpoint_case.BreakpointTestCase.tearDown(self)

    def setUp(self):
        breakpoint_case.BreakpointTestCase.setUp(self)
        self.inside = self.write("locked/program.py", "x = 1\ny = 2\n")
        self.outside = self.write("program.py", "x = 1\ny = 2\n")
        os.symlink(self.inside, os.path.join(self.folder, "link.py"))
        os.chmod(os.path.join(self.folder, "locked"), 0)
        os.chmod(self.folder, 0755)

    def stopped(self, break_name, code_name):
        self.set_break(break_name, 2)
        self.run_code(compile("x = 1\ny = 2\n", code_name, "exec"))
        return self.stops

    def test_file_in_it_is_none_of_those_outside(self):
        self.assertEqual(self.without_rights(lambda: self.stopped(self.inside, self.outside)),
                         "[]")
        self.assertEqual(self.without_rights(lambda: self.stopped(self.outside, self.inside)),
                         "[]")

    def test_code_in_it_stops_at_its_own_name(self):
        self.assertEqual(self.without_rights(lambda: self.stopped(self.inside, self.inside)),
                         "['program.py:2']")

    def test_code_in_it_is_in_the_module_file(self):
        def file_of_code():
            variables = {"__file__": self.outside}
            exec compile(FRAME, self.inside, "exec") in variables
            return core.get_frame_file(variables["frame"])
        self.assertEqual(self.without_rights(file_of_code), repr(self.outside))

    def test_link_into_it_is_no_known_file(self):
        link = os.path.join(self.folder, "link.py")
        self.assertEqual(self.without_rights(lambda: self.stopped(link, self.inside)), "[]")
