"""Real ways to load code: what the program gets, what import_cb and the server hear."""

import os
import sys
import zipfile

import harness
from harness import core
from import_case import ImportTestCase


class ProgramTestCase(ImportTestCase):

    def files(self, **sources):
        """Writes modules; "a__b" stands for a/b."""
        for name in sorted(sources):
            path = name.replace("__", "/").replace("INIT", "__init__")
            folder = os.path.dirname(os.path.join(self.folder, path))
            if not os.path.isdir(folder):
                os.makedirs(folder)
            self.module(path, sources[name])

    def run_traced(self, source, *breakpoints):
        """Runs a program under trace, with a breakpoint at line 1 of each file named; its
        variables."""
        path = self.script(source)
        self.stops = []

        def line(frame, changed_bps):
            self.stops.append("%s:%d" % (self.short(core.get_frame_file(frame)), frame.f_lineno))
        self.start(line_cb=line, install_thread_hooks_cb=harness.trace_new_threads)
        for name in breakpoints:
            core.set_break(os.path.join(self.folder, name), 1, 1, 0, None, 0)
        code = compile(source, path, "exec")
        variables = {"__name__": "program", "__file__": path}
        try:
            exec code in variables
        finally:
            core.stop_trace()
        self.reported = [self.short(name) for name in core.get_new_imports()]
        self.assertEqual(self.reported.pop(0), "program.py")
        return variables

    def short(self, path):
        return os.path.relpath(path, self.folder)


class PackageTest(ProgramTestCase):

    def setUp(self):
        ProgramTestCase.setUp(self)
        self.files(pack__INIT="name = __name__\n",
                   pack__one="from pack.sub import deep\nvalue = deep.value + 1\n",
                   pack__sub__INIT="",
                   pack__sub__deep="value = 40\n")

    def test_package_with_its_modules(self):
        variables = self.run_traced("import pack.one\nvalue = pack.one.value\n",
                                    "pack/__init__.py", "pack/one.py", "pack/sub/deep.py")
        self.assertEqual(variables["value"], 41)
        self.assertEqual(self.reported, ["pack/__init__.py", "pack/one.py",
                                         "pack/sub/__init__.py", "pack/sub/deep.py"])
        self.assertEqual(self.told, ["pack.sub", "pack"])
        self.assertEqual(self.stops, ["pack/__init__.py:1", "pack/one.py:1", "pack/sub/deep.py:1"])

    def test_names_imported_from_a_package(self):
        variables = self.run_traced("from pack import one, sub\nfrom pack import name as n\n")
        self.assertEqual((variables["one"].value, variables["n"]), (41, "pack"))
        self.assertEqual(self.told, ["pack.sub", "pack", "pack"])

    def test_star_import(self):
        self.files(stars__INIT="__all__ = ['one', 'x']\nx = 5\n", stars__one="y = 6\n")
        variables = self.run_traced("from stars import *\n")
        self.assertEqual((variables["one"].y, variables["x"]), (6, 5))
        self.assertEqual(self.told, ["stars"])
        self.assertEqual(self.reported, ["stars/__init__.py", "stars/one.py"])

    def test_explicit_relative_imports(self):
        self.files(rel__INIT="from . import a\n",
                   rel__a="from .b import value\nfrom .sub.c import up\n",
                   rel__b="value = 'b'\n",
                   rel__sub__INIT="",
                   rel__sub__c="from ..b import value as up\nfrom .. import b\n")
        variables = self.run_traced("import rel\nvalues = rel.a.value, rel.a.up\n",
                                    "rel/a.py", "rel/b.py", "rel/sub/c.py")
        self.assertEqual(variables["values"], ("b", "b"))
        self.assertEqual(self.stops, ["rel/a.py:1", "rel/b.py:1", "rel/sub/c.py:1"])
        self.assertEqual(self.told, ["rel.b", "rel.b", "rel", "rel.sub.c", "rel", "rel"])

    def test_implicit_relative_import_finds_the_module_of_the_package(self):
        self.files(old__INIT="", old__colorsys="value = 'mine'\n", old__user="import colorsys\n")
        variables = self.run_traced("from old.user import colorsys\n")
        self.assertEqual(variables["colorsys"].value, "mine")
        self.assertEqual(self.told, ["old.colorsys", "old.user"])

    def test_absolute_import_finds_the_library(self):
        self.files(new__INIT="", new__colorsys="value = 'mine'\n",
                   new__user="from __future__ import absolute_import\nimport colorsys\n")
        variables = self.run_traced("from new.user import colorsys\n")
        self.assertEqual(hasattr(variables["colorsys"], "value"), False)
        self.assertEqual(self.told, ["__future__", "colorsys", "new.user"])


class OtherWaysTest(ProgramTestCase):

    def test_circular_imports(self):
        self.files(chicken="import egg\ndef f():\n    return egg.value\n",
                   egg="import chicken\nvalue = hasattr(chicken, 'f')\n")
        variables = self.run_traced("import chicken\nvalue = chicken.f()\n", "chicken.py", "egg.py")
        self.assertEqual(variables["value"], False)
        # The inner import finds the half-made module and is told of, too.
        self.assertEqual(self.told, ["chicken", "egg", "chicken"])
        self.assertEqual(self.reported, ["chicken.py", "egg.py"])
        self.assertEqual(self.stops, ["chicken.py:1", "egg.py:1"])

    def test_circular_import_that_fails_fails_as_alone(self):
        self.files(chicken="from egg import value\nother = 1\n",
                   egg="from chicken import other\nvalue = 1\n")
        variables = self.run_traced("""\
try:
    import chicken
except ImportError, error:
    text = str(error)
""")
        self.assertEqual(variables["text"], "cannot import name other")
        self.assertEqual(self.told, ["chicken"])

    def test_module_in_an_archive(self):
        archive = os.path.join(self.folder, "library.zip")
        output = zipfile.ZipFile(archive, "w")
        output.writestr("zipped.py", "x = 1\ndef f():\n    return x\n")
        output.writestr("zpack/__init__.py", "")
        output.writestr("zpack/one.py", "y = 2\n")
        output.close()
        sys.path.insert(0, archive)
        variables = self.run_traced(
            "import zipped, zpack.one\nvalue = zipped.f(), zpack.one.y\n",
            "library.zip/zipped.py", "library.zip/zpack/one.py")
        self.assertEqual(variables["value"], (1, 2))
        self.assertEqual(self.told[-2:], ["zipped", "zpack"])
        self.assertEqual([name for name in self.reported if name.startswith("library.zip")],
                         ["library.zip/zipped.py", "library.zip/zpack/__init__.py",
                          "library.zip/zpack/one.py"])
        self.assertEqual(self.stops, ["library.zip/zipped.py:1", "library.zip/zpack/one.py:1"])

    def test_reload_with_other_text(self):
        self.files(one="value = 1\n")
        variables = self.run_traced("""\
import one, os
first = one.value
output = open(one.__file__, "w")
output.write("value = 222\\n")
output.close()
again = reload(one)
""", "one.py")
        self.assertEqual((variables["first"], variables["one"].value), (1, 222))
        self.assert_is(variables["again"], variables["one"])
        self.assertEqual(self.reported, ["one.py", "one.py"])
        # reload() does not go through __import__.
        self.assertEqual(self.told, ["one", "os"])
        self.assertEqual(self.stops, ["one.py:1", "one.py:1"])

    def test_load_source(self):
        self.files(plugin="def f():\n    return __name__\nvalue = f()\n")
        variables = self.run_traced(
            "import imp\nplugin = imp.load_source('loaded', %r)\n"
            % os.path.join(self.folder, "plugin.py"), "plugin.py")
        self.assertEqual(variables["plugin"].value, "loaded")
        self.assertEqual(self.reported, ["plugin.py"])
        self.assertEqual(self.told, ["imp"])
        self.assertEqual(self.stops, ["plugin.py:1"])

    def test_find_and_load_module(self):
        self.files(plugin="value = 7\n")
        variables = self.run_traced(
            "import imp\nplugin = imp.load_module('plugin', *imp.find_module('plugin'))\n",
            "plugin.py")
        self.assertEqual(variables["plugin"].value, 7)
        self.assertEqual(self.reported, ["plugin.py"])
        self.assertEqual(self.stops, ["plugin.py:1"])

    def test_execfile(self):
        self.files(settings="value = 7\ndef f():\n    return value\n")
        variables = self.run_traced(
            "space = {}\nexecfile(%r, space)\nvalue = space['f']()\n"
            % os.path.join(self.folder, "settings.py"), "settings.py")
        self.assertEqual(variables["value"], 7)
        self.assertEqual((self.reported, self.told), (["settings.py"], []))
        self.assertEqual(self.stops, ["settings.py:1"])

    def test_dynamic_import_by_name(self):
        self.files(plug__INIT="", plug__a="n = 1\n", plug__b="n = 2\n")
        variables = self.run_traced("""\
total = 0
for name in "ab":
    total += __import__("plug." + name, fromlist=["n"]).n
""")
        self.assertEqual((variables["total"], self.told), (3, ["plug.a", "plug.b"]))

    def test_import_in_a_function_in_a_loop(self):
        self.files(late="count = 0\n")
        variables = self.run_traced("""\
def f():
    import late
    late.count += 1
    return late.count
counts = [f() for i in range(5)]
""", "late.py")
        self.assertEqual(variables["counts"], [1, 2, 3, 4, 5])
        self.assertEqual((self.told, self.reported), (["late"] * 5, ["late.py"]))
        self.assertEqual(self.stops, ["late.py:1"])

    def test_program_with_an_import_function_of_its_own(self):
        self.files(one="value = 1\n")
        variables = self.run_traced("""\
import __builtin__
names, real = [], __import__
def mine(name, *rest):
    names.append(name)
    return real(name, *rest)
__builtin__.__import__ = mine
try:
    import one
finally:
    __builtin__.__import__ = real
""", "one.py")
        self.assertEqual((variables["names"], variables["one"].value), (["one"], 1))
        self.assertEqual(self.told, ["__builtin__", "one"])
        self.assertEqual(self.stops, ["one.py:1"])

    def test_import_in_a_thread(self):
        self.files(one="value = 1\n")
        variables = self.run_traced("""\
import threading
found = []
def work():
    import one
    found.append(one.value)
line = threading.Thread(target=work)
line.start()
line.join()
""", "one.py")
        self.assertEqual(variables["found"], [1])
        self.assertEqual(self.told.count("one"), 1)
        self.assertEqual(self.stops, ["one.py:1"])

    def test_import_in_a_destructor(self):
        self.files(one="value = 1\n")
        self.run_traced("""\
class C(object):
    def __del__(self):
        import one
c = C()
del c
""", "one.py")
        self.assertEqual((self.told, self.stops), (["one"], ["one.py:1"]))


class LibraryTest(ProgramTestCase):
    """Libraries that import late, and from C."""

    def test_codec_that_is_looked_up(self):
        variables = self.run_traced("text = 'abc'.encode('hex'), u'\\u20ac'.encode('cp1252')\n")
        self.assertEqual(variables["text"], ("616263", "\x80"))
        self.assertEqual(set(["encodings.hex_codec", "encodings.cp1252"]).issubset(self.told), True)

    def test_parser_that_is_loaded_when_it_is_used(self):
        variables = self.run_traced("""\
from xml.dom import minidom
name = minidom.parseString("<a><b c='d'/></a>").documentElement.firstChild.getAttribute("c")
""")
        self.assertEqual(variables["name"], "d")
        self.assert_in("xml.dom", self.told)
        self.assert_in("xml.dom.expatbuilder", sys.modules)

    def test_names_that_load_their_module(self):
        variables = self.run_traced("""\
import email
message = email.message_from_string("To: a\\n\\nbody\\n")
text = email.MIMEText.MIMEText("x").get_content_type(), message["to"]
""")
        self.assertEqual(variables["text"], ("text/plain", "a"))
        self.assert_in("email.mime.text", sys.modules)

    def test_modules_that_c_code_imports(self):
        variables = self.run_traced("""\
import time, cPickle
year = time.strptime("2001", "%Y")[0]
copy = cPickle.loads("cfractions\\nFraction\\n(I1\\nI2\\ntR.")
""")
        self.assertEqual((variables["year"], str(variables["copy"])), (2001, "1/2"))
        self.assertEqual(set(["_strptime", "fractions"]).issubset(sys.modules), True)
        self.assert_in("_strptime", self.told)

    def test_libraries_that_try_modules_and_do_without(self):
        variables = self.run_traced("""\
import pickle, copy, tempfile, decimal, logging, optparse, json
value = json.loads(json.dumps({"a": [1, 2.5, None]}))["a"]
value.append(str(decimal.Decimal(1) / 8))
""")
        self.assertEqual(variables["value"], [1, 2.5, None, "0.125"])
