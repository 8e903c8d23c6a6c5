"""Breakpoints in real programs: modules, packages, scripts, threads, everything that has lines."""

import imp
import os
import py_compile
import subprocess
import sys
import threading
import time
import zipfile

import breakpoint_case
import harness
from harness import core

MODULE = """\
def work(x):
    y = x + 1
    return y
loaded = True
"""


class ImportTest(breakpoint_case.BreakpointTestCase):

    def setUp(self):
        breakpoint_case.BreakpointTestCase.setUp(self)
        self.module = self.write("module.py", MODULE)

    def run_source(self, source, **variables):
        return self.run_program(self.write("program.py", source), **variables)

    def test_breakpoint_set_before_the_import(self):
        self.set_break(self.module, 2)
        self.set_break(self.module, 4)
        self.run_source("import module\nmodule.work(1)\n")
        self.assertEqual(self.stops, ["module.py:4", "module.py:2"])

    def test_breakpoint_set_after_the_import(self):
        self.run_source("import module\nready()\nmodule.work(1)\n",
                        ready=lambda: self.set_break(self.module, 2))
        self.assertEqual(self.stops, ["module.py:2"])

    def test_breakpoint_in_a_module_imported_before_tracing_began(self):
        module = imp.load_source("module", self.module)
        self.set_break(self.module, 2)
        self.run_source("work(1)\n", work=module.work)
        self.assertEqual(self.stops, ["module.py:2"])

    def test_breakpoint_set_at_a_stop_during_the_import(self):
        self.set_break(self.module, 1)
        self.at_stop = lambda frame: self.set_break(self.module, frame.f_lineno + 3)
        self.run_source("import module\n")
        self.assertEqual(self.stops, ["module.py:1", "module.py:4"])

    def test_breakpoint_set_by_the_module_itself_during_its_import(self):
        self.write("module.py", "import case\ncase.set_break(case.module, 3)\nx = 1\n")
        sys.modules["case"] = self
        self.run_source("import module\n")
        self.assertEqual(self.stops, ["module.py:3"])

    def test_breakpoint_in_a_module_that_a_module_imports(self):
        outer = self.write("outer.py", "x = 1\nimport module\ny = module.work(1)\n")
        for path, line in ((outer, 1), (outer, 3), (self.module, 2), (self.module, 4)):
            self.set_break(path, line)
        self.run_source("import outer\n")
        self.assertEqual(self.stops, ["outer.py:1", "module.py:4", "outer.py:3", "module.py:2"])

    def test_breakpoint_in_a_module_whose_import_fails(self):
        failing = self.write("failing.py", "x = 1\nraise ValueError\n")
        self.set_break(failing, 2)
        self.run_source("for i in range(2):\n    try:\n        import failing\n"
                        "    except ValueError:\n        pass\n")
        self.assertEqual(self.stops, ["failing.py:2"] * 2)

    def test_breakpoint_in_a_module_imported_in_a_function(self):
        self.set_break(self.module, 4)
        self.run_source("def f():\n    import module\nf()\nf()\n")
        self.assertEqual(self.stops, ["module.py:4"])

    def test_breakpoint_in_a_module_imported_again_after_it_was_forgotten(self):
        self.set_break(self.module, 4)
        self.run_source("import sys, module\ndel sys.modules['module']\nimport module\n")
        self.assertEqual(self.stops, ["module.py:4"] * 2)

    def test_breakpoint_in_a_reloaded_module(self):
        self.set_break(self.module, 2)
        self.set_break(self.module, 4)
        self.run_source("import module\nmodule.work(1)\nreload(module)\nmodule.work(1)\n")
        self.assertEqual(self.stops, ["module.py:4", "module.py:2"] * 2)

    def test_breakpoint_in_a_module_reloaded_with_other_text(self):
        self.set_break(self.module, 2)
        self.run_source("import module\nmodule.work(1)\nchange()\nreload(module)\n",
                        change=lambda: self.write("module.py", "x = 1\nother = 2\n"))
        self.assertEqual(self.stops, ["module.py:2"] * 2)

    def test_old_function_still_stops_after_its_module_was_reloaded(self):
        self.set_break(self.module, 2)
        self.run_source("import module\nold = module.work\nreload(module)\nold(1)\n")
        self.assertEqual(self.stops, ["module.py:2"])

    def test_breakpoint_set_after_a_reload(self):
        self.run_source("import module\nreload(module)\nready()\nmodule.work(1)\n",
                        ready=lambda: self.set_break(self.module, 2))
        self.assertEqual(self.stops, ["module.py:2"])

    def test_breakpoint_in_a_module_imported_by_another_import_function(self):
        self.set_break(self.module, 4)
        self.run_source("import imp\nimp.load_source('other_name', %r)\n" % self.module)
        self.assertEqual(self.stops, ["module.py:4"])

    def test_script_that_imports_itself_stops_in_both(self):
        source = "x = 1\nif __name__ == 'program':\n    import script\n"
        script = self.write("script.py", source)
        self.set_break(script, 1)
        self.run_program(script)
        self.assertEqual(self.stops, ["script.py:1"] * 2)


class PackageTest(breakpoint_case.BreakpointTestCase):

    def setUp(self):
        breakpoint_case.BreakpointTestCase.setUp(self)
        self.paths = {}
        for name in ("one/__init__.py", "one/util.py", "one/deep/__init__.py",
                     "one/deep/util.py", "two/__init__.py", "two/util.py", "util.py"):
            self.paths[name] = self.write(name, MODULE)

    def stops_at(self, name, source, line=4):
        """How often the program stops with a breakpoint in one file only."""
        self.set_break(self.paths[name], line)
        del self.stops[:]
        for module in list(sys.modules):
            if module.split(".")[0] in ("one", "two", "util"):
                del sys.modules[module]
        self.run_program(self.write("program.py", source))
        self.assertEqual(set(self.stops).issubset(
            set(["%s:%d" % (os.path.basename(name), line)])), True)
        core.clear_all_breaks()
        return len(self.stops)

    def test_init_file_of_a_package(self):
        self.assertEqual(self.stops_at("one/__init__.py", "import one\n"), 1)
        self.assertEqual(self.stops_at("one/__init__.py", "import one.deep.util\n"), 1)
        self.assertEqual(self.stops_at("one/__init__.py", "import two\n"), 0)
        self.assertEqual(self.stops_at("one/__init__.py", "import one\none.work(1)\n", 2), 1)

    def test_init_file_of_a_package_in_a_package(self):
        self.assertEqual(self.stops_at("one/deep/__init__.py", "import one.deep\n"), 1)
        self.assertEqual(self.stops_at("one/deep/__init__.py", "import one\n"), 0)

    def test_module_of_a_package(self):
        for source in ("import one.util", "from one import util", "from one.util import work",
                       "from one.util import *", "__import__('one.util')"):
            self.assertEqual((source, self.stops_at("one/util.py", source + "\n")), (source, 1))

    def test_only_the_file_meant_among_files_of_one_base_name(self):
        source = ("import util, one.util, one.deep.util, two.util\n"
                  "for m in (util, one.util, one.deep.util, two.util):\n    m.work(1)\n")
        for name in ("util.py", "one/util.py", "one/deep/util.py", "two/util.py"):
            self.assertEqual(self.stops_at(name, source), 1)
            self.assertEqual(self.stops_at(name, source, line=2), 1)

    def test_relative_imports(self):
        self.paths["one/user.py"] = self.write(
            "one/user.py", "from . import util\nfrom .deep import util\n"
                           "from .deep.util import work\nwork(1)\n")
        self.assertEqual(self.stops_at("one/util.py", "import one.user\n"), 1)
        self.assertEqual(self.stops_at("one/deep/util.py", "import one.user\n", 2), 1)
        self.paths["one/user.py"] = self.write("one/user.py", "import util\nutil.work(1)\n")
        self.assertEqual(self.stops_at("one/util.py", "import one.user\n", 2), 1)
        self.assertEqual(self.stops_at("util.py", "import one.user\n", 2), 0)


class CompiledTest(breakpoint_case.BreakpointTestCase):
    """Modules of which only compiled code is loaded."""

    def setUp(self):
        breakpoint_case.BreakpointTestCase.setUp(self)
        self.module = self.write("module.py", MODULE)

    def compile_to(self, name):
        compiled = os.path.join(self.folder, name)
        if not os.path.isdir(os.path.dirname(compiled)):
            os.makedirs(os.path.dirname(compiled))
        py_compile.compile(self.module, compiled, self.module, True)
        return compiled

    def load(self, path):
        self.run_program(self.write("program.py", "import imp\n"
                                    "imp.load_compiled('module', %r).work(1)\n" % path))

    def test_compiled_file_beside_its_source(self):
        for name in ("module.pyc", "module.pyo"):
            compiled = self.compile_to(name)
            self.set_break(self.module, 2)
            self.set_break(self.module, 4)
            del self.stops[:]
            self.load(compiled)
            self.assertEqual(self.stops, ["module.py:4", "module.py:2"])
            core.clear_all_breaks()

    def test_breakpoint_may_name_the_compiled_file_beside_its_source(self):
        compiled = self.compile_to("module.pyc")
        self.set_break(compiled, 2)
        self.load(compiled)
        self.assertEqual(self.stops, ["module.py:2"])

    def test_breakpoint_that_names_optimised_code_does_not_stop_in_its_source(self):
        compiled = self.compile_to("module.pyo")
        self.set_break(compiled, 2)
        self.load(compiled)
        self.assertEqual(self.stops, [])

    def test_compiled_file_alone(self):
        compiled = self.compile_to("module.pyc")
        os.remove(self.module)
        self.set_break(self.module, 2)
        self.load(compiled)
        self.assertEqual(self.stops, ["module.py:2"])

    def test_compiled_file_that_was_moved_with_its_source(self):
        compiled = self.compile_to("moved/module.pyc")
        os.remove(self.module)
        source = self.write("moved/module.py", MODULE)
        self.set_break(source, 2)
        self.load(compiled)
        self.assertEqual(self.stops, ["module.py:2"])

    def test_compiled_file_that_was_moved_alone(self):
        compiled = self.compile_to("moved/module.pyc")
        os.remove(self.module)
        self.set_break(compiled[:-1], 2)
        self.load(compiled)
        self.assertEqual(self.stops, ["module.py:2"])

    def test_compiled_file_of_a_copied_source_is_the_copys(self):
        # Both sources are there and are told to be copies by size and time of modification.
        compiled = self.compile_to("copied/module.pyc")
        copy = self.write("copied/module.py", MODULE)
        os.utime(self.module, (1000000000, 1000000000))
        os.utime(copy, (1000000000, 1000000000))
        self.set_break(copy, 2)
        self.set_break(self.module, 4)
        self.load(compiled)
        self.assertEqual(self.stops, ["module.py:2"])

    def test_compiled_file_beside_another_source_is_that_of_the_source_it_was_made_from(self):
        compiled = self.compile_to("copied/module.pyc")
        other = self.write("copied/module.py", MODULE)
        os.utime(self.module, (1000000000, 1000000000))
        os.utime(other, (1000000001, 1000000001))
        self.set_break(other, 2)
        self.set_break(self.module, 4)
        self.load(compiled)
        self.assertEqual(self.stops, ["module.py:4"])

    def test_module_in_an_archive(self):
        archive = os.path.join(self.folder, "archive.zip")
        output = zipfile.ZipFile(archive, "w")
        output.writestr("packed.py", MODULE)
        output.close()
        sys.path.insert(0, archive)
        self.set_break(archive + "/packed.py", 2)
        self.run_program(self.write("program.py", "import packed\npacked.work(1)\n"))
        self.assertEqual(self.stops, ["packed.py:2"])


class ScriptTest(harness.TestCase):
    """A script that is the interpreter's own program."""

    SCRIPT = """\
import os, sys
import tmorvik26_vs2012_x64 as core

def nothing(*arguments):
    pass

def line(frame, changed_bps):
    sys.stdout.write("%s %d\\n" % (frame.f_globals["__name__"], frame.f_lineno))

def work():
    return 1

core.init(0, 0, nothing, nothing, line, nothing, nothing, nothing, None, __import__, None, {})
name = os.path.join(os.getcwd(), "script.py")
core.set_break(name, 11, 1, 0, None, 0)
core.set_break(name, 19, 1, 0, None, 0)
core.start_trace()
core.continue_run()
work()
core.stop_trace()
"""

    def output_of(self, *arguments):
        self.script(self.SCRIPT, "script.py")
        environment = dict(os.environ, PYTHONDONTWRITEBYTECODE="1")
        process = subprocess.Popen((harness.launcher(),) + arguments, cwd=self.folder,
                                   stdout=subprocess.PIPE, env=environment)
        output = process.communicate()[0]
        self.assertEqual(process.returncode, 0)
        return output

    def test_script_under_a_relative_name(self):
        # Line 19 calls work().
        self.assertEqual(self.output_of("script.py"), "__main__ 19\n__main__ 11\n")

    def test_script_under_a_roundabout_name(self):
        name = os.path.join("..", os.path.basename(self.folder), ".", "script.py")
        self.assertEqual(self.output_of(name), "__main__ 19\n__main__ 11\n")

    def test_script_under_its_full_name(self):
        self.assertEqual(self.output_of(os.path.join(self.folder, "script.py")),
                         "__main__ 19\n__main__ 11\n")

    def test_script_run_as_a_module(self):
        self.assertEqual(self.output_of("-m", "script"), "__main__ 19\n__main__ 11\n")


class ExecutedTest(breakpoint_case.BreakpointTestCase):
    """Code that is in no module."""

    def test_breakpoint_in_a_file_run_by_execfile(self):
        path = self.write("executed.py", MODULE + "work(1)\n")
        self.set_break(path, 2)
        self.set_break(path, 4)
        self.run_program(self.write("program.py", "execfile(%r, {})\n" % path))
        self.assertEqual(self.stops, ["executed.py:4", "executed.py:2"])

    def test_breakpoint_in_a_file_run_by_execfile_in_the_namespace_of_a_module(self):
        path = self.write("executed.py", MODULE + "work(1)\n")
        program = self.write("program.py", "execfile(%r)\nx = 1\ny = 2\nz = 3\n" % path)
        self.set_break(path, 2)
        self.set_break(program, 4)
        self.run_program(program)
        self.assertEqual(self.stops, ["executed.py:2", "program.py:4"])

    def test_breakpoint_in_code_compiled_under_the_name_of_a_file(self):
        path = self.write("template.txt", "some\ntemplate\n")
        self.set_break(path, 2)
        self.run_program(self.write("program.py", "exec compile('a = 1\\nb = 2\\n', %r, 'exec')\n"
                                    % path))
        self.assertEqual(self.stops, ["template.txt:2"])

    def test_breakpoint_in_code_of_a_string(self):
        for name in ("<string>", "<anything at all>", "<>"):
            code = compile("def f(x):\n    return x\nf(1)\n", name, "exec")
            self.set_break(name, 2)
            del self.stops[:]
            self.run_code(code)
            self.assertEqual(self.stops, [name + ":2"])
            core.clear_all_breaks()

    def test_breakpoint_in_a_string_executed_by_a_module(self):
        path = self.write("program.py", "exec 'a = 1\\nb = 2\\n' in {}\n")
        self.set_break("<string>", 2)
        self.run_program(path)
        self.assertEqual(self.stops, ["<string>:2"])

    def test_code_under_another_name_in_angle_brackets_is_the_modules(self):
        path = self.write("program.py", "exec compile('a = 1\\nb = 2\\nc = 3\\n', '<made up>',"
                                        " 'exec')\n")
        self.set_break(path, 3)
        self.set_break("<made up>", 2)
        self.run_program(path)
        self.assertEqual(self.stops, ["<made up>:3"])

    def test_evaluated_expression_has_a_line(self):
        self.set_break("<string>", 1)
        self.run_program(self.write("program.py", "x = eval('1 + 1')\n"))
        self.assertEqual(self.stops, ["<string>:1"])

    def test_function_that_runs_in_another_modules_namespace(self):
        helper = self.write("helper.py", MODULE)
        program = self.write("program.py", "import types, helper\n"
                             "f = types.FunctionType(helper.work.func_code, globals())\nf(1)\n")
        self.set_break(helper, 2)
        self.run_program(program)
        self.assertEqual(self.stops, ["helper.py:2"])


CONSTRUCTS = {
    "nested functions": """\
def outer(a):
    def middle(b):
        def inner(c):
            return a + b + c
        return inner
    return middle
for i in range(3):
    outer(i)(i)(i)
""",
    "recursion": """\
def fib(n):
    if n < 2:
        return n
    return fib(n - 1) + fib(n - 2)
fib(6)
""",
    "lambdas": """\
f = (lambda x:
     x +
     1)
f(1)
map(f,
    range(3))
""",
    "generators": """\
def numbers(n):
    for i in range(n):
        got = yield i
        if got:
            yield got
    yield 'end'
list(numbers(3))
g = numbers(3)
g.next()
g.send(5)
g.next()
g.close()
try:
    g.next()
except StopIteration:
    pass
""",
    "class bodies": """\
class Old:
    x = 1
    def method(self):
        return self.x
class New(object):
    y = 2
    for z in range(2):
        w = z
    @property
    def value(self):
        return self.y
    class Inner(object):
        x = 1
        @staticmethod
        def make():
            return New()
Old().method()
New().value
New.Inner.make().value
""",
    "comprehensions": """\
a = [x
     for x in range(4)
     if x % 2]
b = sum(x
        for x in range(4)
        if x % 2)
def f(n):
    return [y for y in (z * 2 for z in range(n))]
f(3)
""",
    "exceptions": """\
def fail(x):
    try:
        try:
            if x:
                raise ValueError(x)
        except KeyError:
            x = 5
        else:
            x = 6
    finally:
        x = 7
    return x
for i in range(2):
    try:
        fail(i)
    except ValueError, error:
        error = None
""",
    "loops": """\
i = 0
while i < 5:
    i += 1
    if i == 2:
        continue
    if i == 4:
        break
else:
    i = 100
for j in range(3): pass
while i: i -= 1
""",
    "with statements": """\
from __future__ import with_statement
class Manager(object):
    def __enter__(self):
        return self
    def __exit__(self, *details):
        return True
with Manager() as m:
    x = 1
with Manager():
    raise ValueError
y = 2
""",
    "decorators and defaults": """\
def twice(f):
    def call(*args):
        return f(*args), f(*args)
    return call
@twice
@twice
def work(a,
         b=len(
             'xx')):
    return (a +
            b)
work(1)
""",
    "special methods": """\
class Thing(object):
    def __init__(self, x):
        self.x = x
    def __cmp__(self, other):
        return cmp(self.x,
                   other.x)
    def __getattr__(self, name):
        return name
    def __del__(self):
        self.x = None
things = sorted([Thing(3), Thing(1), Thing(2)])
things[0].anything
del things
""",
}


class ConstructsTest(breakpoint_case.BreakpointTestCase):
    """A breakpoint's hits are the line events that the interpreter tells any trace function."""

    def line_events(self, path):
        """How often each line of a program is reached, as sys.settrace() has it."""
        counts = {}

        def trace(frame, event, argument):
            if frame.f_code.co_filename == path and event == "line":
                counts[frame.f_lineno] = counts.get(frame.f_lineno, 0) + 1
            return trace
        code = compile(open(path).read(), path, "exec")
        variables = {"__name__": "program", "__file__": path}
        sys.settrace(trace)
        try:
            exec code in variables
        finally:
            sys.settrace(None)
        return counts

    def check(self, name):
        path = self.write("program.py", CONSTRUCTS[name])
        expected = self.line_events(path)
        self.assertEqual(len(expected) > 3, True)
        for line in range(1, CONSTRUCTS[name].count("\n") + 1):
            self.set_break(path, line)
        self.run_program(path)
        hits = dict([(item[0], item[6]) for item in core.get_file_breaks(path) if item[6]])
        self.assertEqual(hits, expected)
        self.assertEqual(len(self.stops), sum(expected.values()))

    def test_nested_functions(self):
        self.check("nested functions")

    def test_recursion(self):
        self.check("recursion")

    def test_lambdas(self):
        self.check("lambdas")

    def test_generators(self):
        self.check("generators")

    def test_class_bodies(self):
        self.check("class bodies")

    def test_comprehensions(self):
        self.check("comprehensions")

    def test_exceptions(self):
        self.check("exceptions")

    def test_loops(self):
        self.check("loops")

    def test_with_statements(self):
        self.check("with statements")

    def test_decorators_and_defaults(self):
        self.check("decorators and defaults")

    def test_special_methods(self):
        self.check("special methods")


class ThreadsTest(breakpoint_case.BreakpointTestCase):

    PROGRAM = """\
import threading
def work(number):
    for i in range(20):
        total[number] += i
total = [0] * 5
threads = [threading.Thread(target=work, args=(n,)) for n in range(5)]
for t in threads: t.start()
for t in threads: t.join()
"""

    def setUp(self):
        breakpoint_case.BreakpointTestCase.setUp(self)
        self.path = self.write("program.py", self.PROGRAM)

    def test_breakpoint_stops_every_thread(self):
        self.set_break(self.path, 4)
        stopped = []
        self.at_stop = lambda frame: stopped.append(frame.f_locals["number"])
        variables = self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:4"] * 100)
        self.assertEqual(self.hits(self.path, 4), [100])
        self.assertEqual(sorted(stopped), sorted(range(5) * 20))
        self.assertEqual(variables["total"], [190] * 5)

    def test_condition_is_evaluated_in_the_thread_that_hit(self):
        self.set_break(self.path, 4, cond="number == 3")
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:4"] * 20)
        self.assertEqual(self.hits(self.path, 4), [100])

    def test_temporary_breakpoint_stops_one_thread_only(self):
        self.set_break(self.path, 4, temporary=1)
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:4"])
        self.assertEqual(core.get_file_breaks(self.path), [])

    def test_ignore_count_is_shared_by_the_threads(self):
        self.set_break(self.path, 4, ignore=90)
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:4"] * 10)

    def test_temporary_breakpoint_whose_condition_switches_threads_fires_once(self):
        self.set_break(self.path, 4, temporary=1, cond="not sleep(0.001)")
        self.run_program(self.path, sleep=time.sleep)
        self.assertEqual(self.stops, ["program.py:4"])
        self.assertEqual(self.changed, [([1], [])])

    def test_breakpoint_set_while_threads_run(self):
        self.run_program(self.write("other.py", """\
import threading
go, set_up, done = threading.Event(), threading.Event(), threading.Event()
def work():
    go.wait()
    x = 1
    done.set()
t = threading.Thread(target=work)
t.start()
ready()
go.set()
done.wait()
t.join()
"""), ready=lambda: self.set_break(os.path.join(self.folder, "other.py"), 5))
        self.assertEqual(self.stops, ["other.py:5"])

    def test_only_one_thread_is_stopped_at_a_time(self):
        inside = []
        most = []
        lock = threading.Lock()

        def stopped(frame):
            lock.acquire()
            inside.append(1)
            most.append(len(inside))
            lock.release()
            lock.acquire()
            inside.pop()
            lock.release()
        self.set_break(self.path, 4)
        self.at_stop = stopped
        self.run_program(self.path)
        self.assertEqual(most, [1] * 100)
