"""Modules that were loaded before tracing, that are registered, and that run (again)."""

import imp
import os
import py_compile
import sys
import types

import harness
from harness import core
from import_case import ImportTestCase

DETECTION = "MODULE RELOAD DETECTION: %s\n"
ADDED = "ADDED TO MODULE LIST\n"
NO_FILE = "NULL FILE NAME\n"
OTHER_CODE = "NON-BLANK/UNKNOWN CODE NAME: %s\n"


class ScanTest(ImportTestCase):
    """What start_trace() makes of the modules that are there."""

    def scan(self, **init_changes):
        self.server.init(**init_changes)
        try:
            core.start_trace()
        finally:
            core.add_to_tstate_tracing(1)
            self.scan_log = self.server.stream.starting("INITIAL MODULE SCAN")
            core.add_to_tstate_tracing(-1)
            core.stop_trace()

    def test_number_of_modules_is_logged_without_a_line_end(self):
        self.scan()
        self.assertEqual(self.scan_log, ["INITIAL MODULE SCAN: %i PREVIOUSLY LOADED MODULES"
                                         % len(sys.modules)])

    def assert_told_of_all(self):
        """Once for each name: some modules have two."""
        loaded = [module for module in sys.modules.values()
                  if isinstance(module, types.ModuleType)]
        self.assertEqual(sorted(map(id, self.told)), sorted(map(id, loaded)))

    def test_import_cb_is_told_of_every_module(self):
        self.scan(import_cb=self.told.append)
        self.assert_told_of_all()

    def test_what_is_no_module_is_counted_but_not_registered(self):
        class Module(types.ModuleType):
            pass
        subclassed = Module("subclassed")
        sys.modules.update({"text": "text", "none": None, "sub": subclassed})
        self.scan(import_cb=self.told.append)
        self.assertEqual(self.scan_log, ["INITIAL MODULE SCAN: %i PREVIOUSLY LOADED MODULES"
                                         % len(sys.modules)])
        self.assert_not_in("text", self.told)
        self.assert_not_in(None, self.told)
        self.assert_in(subclassed, self.told)

    def test_second_start_scans_again_only_after_a_stop(self):
        self.server.init()
        core.start_trace()
        core.start_trace()
        self.assertEqual(len(self.server.stream.starting("INITIAL MODULE SCAN")), 1)
        core.stop_trace()
        core.start_trace()
        self.assertEqual(len(self.server.stream.starting("INITIAL MODULE SCAN")), 2)

    def test_breakpoints_of_loaded_modules_are_bound(self):
        path = self.module("one", "def f():\n    return 1\n")
        import one
        self.server.program = path
        self.server.init()
        core.set_break(path, 2, 1, 0, None, 0)
        core.start_trace()
        core.continue_run()
        one.f()
        core.stop_trace()
        self.assertEqual(self.server.stops, ["line f 2"])

    def test_functions_of_loaded_modules_keep_the_file_they_had(self):
        path = self.module("one", "import sys\ndef f():\n    return sys._getframe()\n")
        import one
        one.f.func_code = types.CodeType(*[
            {"co_filename": "/gone/one.py"}.get(name, getattr(one.f.func_code, name))
            for name in ("co_argcount", "co_nlocals", "co_stacksize", "co_flags", "co_code",
                         "co_consts", "co_names", "co_varnames", "co_filename", "co_name",
                         "co_firstlineno", "co_lnotab", "co_freevars", "co_cellvars")])
        self.scan()
        # Not looked up any more: the file's name is known from the scan.
        one.__file__ = "/elsewhere/one.py"
        self.assertEqual(core.get_frame_file(one.f()), path)

    def test_failing_import_cb_comes_out_of_start_once_every_module_is_scanned(self):
        errors = []

        def callback(module):
            self.told.append(module)
            errors.append(ValueError(len(errors)))
            raise errors[-1]
        error = self.assert_raises(ValueError, "0", self.scan, import_cb=callback)
        self.assert_is(error, errors[0])
        self.assert_told_of_all()

    def test_tracing_is_on_after_import_cb_failed(self):
        def callback(module):
            raise ValueError
        self.server.init(import_cb=callback)
        self.assert_raises(ValueError, None, core.start_trace)
        self.assert_is(sys.gettrace(), core.trace_dispatch)
        self.assertEqual(self.server.hooks, [1])

    def test_import_cb_that_stops_tracing_during_the_scan(self):
        def callback(module):
            if not self.told:
                self.told.append(module)
                core.stop_trace()
        self.server.init(import_cb=callback)
        core.start_trace()
        self.assertEqual(self.server.hooks, [0, 1])
        # The scan's end turned the trace on once more: the next event takes it away.
        x = 1
        self.assert_is(sys.gettrace(), None)

    def test_modules_that_import_cb_loads_do_not_upset_the_scan(self):
        self.module("late")

        def callback(module):
            self.told.append(module.__name__)
            __import__("late")
            sys.modules.pop("wave", None)
        import wave
        self.scan(import_cb=callback)
        self.assert_in("late", sys.modules)
        self.assert_not_in("late", self.told)

    def test_modules_are_those_that_values_gives(self):
        one = imp.new_module("one")
        real = sys.modules

        class Modules(object):
            def values(self):
                return [one, 42]
        for modules, count, told in ((Modules(), ["INITIAL MODULE SCAN: 2 PREVIOUSLY LOADED "
                                                  "MODULES"], ["one"]),
                                     (42, [], [])):
            self.server.init(import_cb=self.tell)
            del self.told[:]
            self.server.stream.clear()
            sys.modules = modules
            try:
                core.start_trace()
            finally:
                sys.modules = real
            core.stop_trace()
            self.assertEqual(self.server.stream.starting("INITIAL MODULE SCAN"), count)
            self.assertEqual(self.told, told)


class MainScriptTest(ImportTestCase):

    def stops_with_argv(self, path, *argv):
        """Stops at line 1 of a script that is run with this sys.argv (none at all: no argv)."""
        self.server.program = path
        self.server.init()
        core.set_break(path, 1, 1, 0, None, 0)
        if argv:
            sys.argv = argv[0]
        else:
            del sys.argv
        core.start_trace()
        core.continue_run()
        exec compile(open(path).read(), path, "exec") in {}
        core.stop_trace()
        return self.server.stops

    def test_any_argv_is_taken(self):
        path = self.script("x = 1\n")
        for argv in ([path, "-x"], [], (path,), ["-c"], [""], [42], [None], None, 42, ["x" * 40000],
                     ["\0"]):
            del self.server.stops[:]
            self.assertEqual(self.stops_with_argv(path, argv), ["line <module> 1"])
        del self.server.stops[:]
        self.assertEqual(self.stops_with_argv(path), ["line <module> 1"])

    def test_script_named_by_argv_is_known_before_it_runs(self):
        # Known, it answers for another name of the same file even after that file is gone.
        path = self.script("x = 1\n")
        link = os.path.join(self.folder, "link.py")
        os.symlink(path, link)
        self.server.program = path
        self.server.init()
        core.set_break(link, 1, 1, 0, None, 0)
        sys.argv = [path]
        core.start_trace()
        core.continue_run()
        os.unlink(link)
        exec compile(open(path).read(), path, "exec") in {}
        core.stop_trace()
        self.assertEqual(self.server.stops, ["line <module> 1"])


class RegisterModuleTest(ImportTestCase):

    def setUp(self):
        ImportTestCase.setUp(self)
        self.server.init()

    def module_object(self, **attributes):
        module = imp.new_module("made")
        module.__dict__.update(attributes)
        return module

    def test_answer_is_the_modules_full_file_name(self):
        path = self.module("one")
        import one
        self.assertEqual(core.register_module(one), path)

    def test_compiled_file_is_its_source(self):
        path = self.module("one")
        for suffix in ("c", "o", ""):
            self.assertEqual(core.register_module(self.module_object(__file__=path + suffix)), path)

    def test_relative_name_is_made_full(self):
        self.module("one")
        os.chdir(self.folder)
        self.assertEqual(core.register_module(self.module_object(__file__="one.py")),
                         os.path.join(self.folder, "one.py"))

    def test_module_without_a_file_has_none(self):
        for module in (sys, self.module_object(), self.module_object(__file__=None),
                       self.module_object(__file__=42), self.module_object(__file__="<made>"),
                       self.module_object(__file__="x" * 32001)):
            self.assertEqual(core.register_module(module), None)

    def test_what_is_no_module_has_none(self):
        for value in (None, 42, "text", {"__file__": "/where/ever.py"}):
            self.assertEqual(core.register_module(value), None)

    def test_import_cb_is_told_with_and_without_tracing(self):
        values = [self.module_object(), sys, 42, None]
        core.set_import_cb(self.told.append)
        for value in values:
            core.register_module(value)
        self.assertEqual(self.told, values)
        core.start_trace()
        del self.told[:]
        for value in values:
            core.register_module(value)
        self.assertEqual(self.told, values)

    def test_failing_import_cb_comes_out_once_the_module_is_registered(self):
        path = self.module("one", "def f():\n    return 1\n")
        module = self.module_object(__file__=path)
        execfile(path, module.__dict__)

        def callback(value):
            raise ValueError("import_cb")
        core.set_break(path, 2, 1, 0, None, 0)
        core.start_trace()
        core.continue_run()
        core.set_import_cb(callback)
        self.assert_raises(ValueError, "import_cb", core.register_module, module)
        self.server.program = path
        module.f()
        self.assertEqual(self.server.stops, ["line f 2"])

    def test_code_of_a_module_that_was_made_by_hand_is_found_by_its_breakpoints(self):
        path = self.module("one", "def f():\n    return 1\n")
        self.server.program = path
        module = self.module_object(__file__=path)
        exec compile(open(path).read(), "/gone/one.py", "exec") in module.__dict__
        core.set_break(path, 2, 1, 0, None, 0)
        self.assertEqual(core.register_module(module), path)
        core.start_trace()
        core.continue_run()
        seen = []
        self.server.stop = lambda event, frame, result="": seen.append(
            (frame.f_code.co_name, core.get_frame_file(frame)))
        module.f()
        core.stop_trace()
        self.assertEqual(seen, [("f", path)])

    def test_registering_is_not_reported_as_a_new_import(self):
        path = self.module("one")
        core.start_trace()
        core.register_module(self.module_object(__file__=path))
        self.assertEqual(core.get_new_imports(), [])


class NewImportsTest(ImportTestCase):

    def setUp(self):
        ImportTestCase.setUp(self)
        self.start()

    def detection_log(self):
        messages = []
        core.add_to_tstate_tracing(1)
        for message in self.server.stream.messages:
            if (message.startswith(("MODULE RELOAD", "NON-BLANK"))
                    or message in (ADDED, NO_FILE, "PSEUDO FILE NAME\n")):
                messages.append(message)
        core.add_to_tstate_tracing(-1)
        return messages

    def test_import_is_reported_by_the_full_path(self):
        path = self.module("one")
        import one
        self.assertEqual(self.detection_log(), [DETECTION % path, ADDED])
        self.assertEqual(core.get_new_imports(), [path])

    def test_each_call_empties_the_list(self):
        self.module("one")
        import one
        first = core.get_new_imports()
        second = core.get_new_imports()
        self.assertEqual((len(first), second), (1, []))
        reload(one)
        self.assertEqual((len(first), second), (1, []))
        self.assertEqual(core.get_new_imports(), first)

    def test_every_run_of_the_module_is_reported_again(self):
        path = self.module("one")
        import one
        reload(one)
        reload(one)
        del sys.modules["one"]
        import one
        self.assertEqual(core.get_new_imports(), [path] * 4)

    def test_import_of_a_loaded_module_is_not_reported(self):
        self.module("one")
        import one
        core.get_new_imports()
        import one
        self.assertEqual(core.get_new_imports(), [])

    def test_order_is_that_in_which_the_modules_start(self):
        paths = [self.module("outer", "import inner\n"), self.module("inner")]
        import outer
        self.assertEqual(core.get_new_imports(), paths)

    def test_module_that_fails_is_reported(self):
        path = self.module("one", "1 / 0\n")
        self.assert_raises(ZeroDivisionError, None, __import__, "one")
        self.assertEqual(core.get_new_imports(), [path])

    def test_compiled_module_is_reported_by_its_source(self):
        path = self.module("one")
        py_compile.compile(path)
        os.utime(path, None)
        core.get_new_imports()
        import one
        os.unlink(path)
        self.assertEqual(core.get_new_imports(), [path])

    def test_module_that_exists_compiled_only_is_reported_by_the_name_of_its_source(self):
        path = self.module("one")
        py_compile.compile(path)
        os.unlink(path)
        core.get_new_imports()
        import one
        self.assertEqual(core.get_new_imports(), [path])

    def test_nothing_is_reported_without_tracing(self):
        self.module("one")
        core.stop_trace()
        import one
        self.assertEqual(core.get_new_imports(), [])

    def test_code_of_a_string_is_not_reported(self):
        exec "x = 1" in {}
        eval("1 + 1", {})
        self.assertEqual(self.detection_log(), [DETECTION % "(NULL)", NO_FILE] * 2)
        self.assertEqual(core.get_new_imports(), [])

    def test_code_of_a_string_in_a_modules_namespace_is_not_reported(self):
        self.module("one")
        import one
        core.get_new_imports()
        self.server.stream.clear()
        exec "x = 1" in one.__dict__
        self.assertEqual(self.detection_log(), [DETECTION % "(NULL)", NO_FILE])
        self.assertEqual(core.get_new_imports(), [])

    def test_other_names_in_angle_brackets_are_not_reported(self):
        exec compile("x = 1", "<stdin>", "exec") in {}
        self.assertEqual(self.detection_log(), [DETECTION % "(NULL)", NO_FILE])
        self.assertEqual(core.get_new_imports(), [])

    def test_code_in_a_namespace_of_its_own_is_no_module(self):
        path = self.script("x = 1\n")
        exec compile("x = 1\n", path, "exec") in {}, {}
        self.assertEqual(self.detection_log(), [])
        self.assertEqual(core.get_new_imports(), [])

    def test_functions_and_class_bodies_are_no_modules(self):
        path = self.module("one", "def f():\n    return 1\nclass C(object):\n    x = f()\nf()\n")
        import one
        self.assertEqual(self.detection_log(), [DETECTION % path, ADDED])

    def test_functions_code_that_runs_as_a_module_is_not_reported(self):
        path = self.module("one", "def f():\n    return 1\n")
        import one
        self.server.stream.clear()
        core.get_new_imports()
        # Without the flags that give a function variables of its own.
        code = one.f.func_code
        code = types.CodeType(0, 0, code.co_stacksize, 0, code.co_code, code.co_consts, (), (),
                              path, "f", 1, "")
        exec code in {}
        self.assertEqual(self.detection_log(), [DETECTION % path, OTHER_CODE % "f"])
        self.assertEqual(core.get_new_imports(), [])

    def test_code_without_a_name_is_module_code(self):
        path = self.script("x = 1\n")
        code = compile("x = 1\n", path, "exec")
        code = types.CodeType(0, 0, code.co_stacksize, code.co_flags, code.co_code,
                              code.co_consts, code.co_names, (), path, "?", 1, code.co_lnotab)
        exec code in {}
        self.assertEqual(self.detection_log(), [DETECTION % path, ADDED])
        self.assertEqual(core.get_new_imports(), [path])

    def test_script_that_is_executed_is_reported(self):
        path = self.script("x = 1\n")
        execfile(path, {})
        execfile(path, {"__name__": "other", "__file__": path})
        self.assertEqual(core.get_new_imports(), [path] * 2)

    def test_init_and_reset_start_a_new_list(self):
        self.module("one")
        for operation in (self.server.init, core.reset):
            core.start_trace()
            sys.modules.pop("one", None)
            import one
            operation()
            self.assertEqual(core.get_new_imports(), [])

    def test_arguments_are_ignored(self):
        self.assertEqual(core.get_new_imports(1, 2), [])
