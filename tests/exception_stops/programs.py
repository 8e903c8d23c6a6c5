"""The programs, none of which was written for this, and what they are run with.

A line of a list has a program's file, or -m and a module, and its arguments; < and a text that it
reads.  Each runs in an empty folder that gets a few files to work on: lib/, modules of the host's
library, text, and page.xml.
"""

import os
import shlex
import shutil
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
TOP = os.path.dirname(os.path.dirname(HERE))
REGRTEST = os.path.join(TOP, "tests/regrtest")
RUN_TESTS = os.path.join(HERE, "run_tests.py")
BROUGHT = os.path.join(TOP, ".deps/programs")
PACKAGES = os.path.join(BROUGHT, "usr/lib/python2.7/dist-packages")
EXAMPLES = os.path.join(BROUGHT, "usr/share/doc/python2.7/examples")
GYP = os.path.join(BROUGHT, "node-gyp/gyp")

LIBRARY = "bisect", "calendar", "Queue", "sched", "textwrap", "UserDict", "StringIO", "smtpd"
TEXT = """\
From somebody Mon Jan  5 10:00:00 2009
Subject: the first
the quick brown fox jumps over the lazy dog
"""
PAGE = """\
<?xml version="1.0"?>
<rss><channel><title>News</title><link>here</link><item><title>One</title><link>a</link>
<description>first</description></item></channel></rss>
"""

# For every run of the tests.
A_FEW = ["Demo/metaclasses", "Demo/newmetaclasses", "Demo/scripts/fact.py", "Demo/threads/sync.py",
         "pygettext.py lib", "setup.py -q bdist_egg", "undefined.html", "-f ninja", "broken.gyp",
         "test_contextlib", "test_weakset", "test_iter"]

DEMOS = """
    Demo/cgi/cgi1.py
    Demo/cgi/cgi2.py
    Demo/cgi/cgi3.py
    Demo/classes/Complex.py
    Demo/classes/Dates.py
    Demo/classes/Dbm.py test.dbm < 'x'\\n'y'\\n
    Demo/classes/Range.py
    Demo/classes/Rev.py
    Demo/classes/Vec.py
    Demo/classes/bitvec.py
    Demo/comparisons/regextest.py text lib/sched.py
    Demo/comparisons/sortingtest.py < 3\\n1\\n2\\n
    Demo/comparisons/systemtest.py
    Demo/curses/life.py
    Demo/curses/ncurses.py
    Demo/md5test/md5driver.py
    Demo/md5test/md5driver.py -x
    Demo/metaclasses/Eiffel.py
    Demo/metaclasses/Enum.py
    Demo/metaclasses/Meta.py
    Demo/metaclasses/Simple.py
    Demo/metaclasses/Synch.py
    Demo/metaclasses/Trace.py
    Demo/newmetaclasses/Eiffel.py
    Demo/newmetaclasses/Enum.py
    Demo/parser/example.py
    Demo/parser/simple.py
    Demo/parser/test_parser.py lib/sched.py lib/Queue.py
    Demo/parser/test_unparse.py
    Demo/parser/unparse.py lib/calendar.py
    Demo/pdist/makechangelog.py
    Demo/pysvr/pysvr.py x
    Demo/rpc/T.py
    Demo/rpc/xdr.py
    Demo/scripts/beer.py 20
    Demo/scripts/eqfix.py lib
    Demo/scripts/fact.py 1234567890
    Demo/scripts/fact.py < 60\\n91\\n
    Demo/scripts/fact.py nonsense
    Demo/scripts/find-uname.py greek.*alpha
    Demo/scripts/from.py
    Demo/scripts/lpwatch.py
    Demo/scripts/makedir.py a/b/c
    Demo/scripts/mboxconvert.py text
    Demo/scripts/morse.py -o /dev/null sos
    Demo/scripts/morse.py < sos\\n
    Demo/scripts/pp.py -e 1+1
    Demo/scripts/pp.py -n -e 'print LINE' text
    Demo/scripts/primes.py 2 500
    Demo/scripts/queens.py -n 6
    Demo/scripts/unbirthday.py < 10\\n9\\n1980\\n
    Demo/scripts/unbirthday.py < nonsense\\n
    Demo/scripts/update.py < text:1:'new'\\n
    Demo/sockets/echosvr.py nonsense
    Demo/sockets/unixclient.py
    Demo/threads/Coroutine.py
    Demo/threads/fcmp.py
    Demo/threads/find.py -w 3 lib
    Demo/threads/squasher.py
    Demo/threads/sync.py
    Demo/tkinter/guido/hello.py
    Demo/turtle/tdemo_clock.py
    Demo/xml/elem_count.py page.xml
    Demo/xml/elem_count.py text
    Demo/xml/roundtrip.py page.xml
    Demo/xml/rss2html.py page.xml
    Demo/zlib/minigzip.py text
    Demo/zlib/zlibdemo.py
    Demo/zlib/zlibdemo.py text
    """

TOOLS = """
    Tools/bgen/bgen/scantools.py
    Tools/ccbench/ccbench.py --throughput -n 2
    Tools/compiler/astgen.py
    Tools/compiler/compile.py lib/bisect.py lib/sched.py
    Tools/compiler/demo.py lib/calendar.py
    Tools/compiler/dumppyc.py lib/bisect.py
    Tools/compiler/stacktest.py lib/bisect.py
    Tools/faqwiz/faqw.py
    Tools/framer/example.py
    Tools/freeze/freeze.py lib/bisect.py
    Tools/i18n/msgfmt.py text
    Tools/i18n/pygettext.py lib
    Tools/i18n/pygettext.py -a -D -o - lib/calendar.py
    Tools/i18n/pygettext.py nosuch.py
    Tools/pybench/pybench.py -n 1 -w 200 -t Exceptions
    Tools/pybench/pybench.py -n 1 -w 200 -t Lookups
    Tools/pybench/pybench.py -n 1 -w 200
    Tools/scripts/analyze_dxp.py
    Tools/scripts/byext.py lib
    Tools/scripts/byteyears.py lib text
    Tools/scripts/checkappend.py lib
    Tools/scripts/checkpyc.py
    Tools/scripts/classfix.py lib
    Tools/scripts/cleanfuture.py -r lib
    Tools/scripts/combinerefs.py text
    Tools/scripts/copytime.py text page.xml
    Tools/scripts/crlf.py text
    Tools/scripts/cvsfiles.py lib
    Tools/scripts/db2pickle.py text
    Tools/scripts/diff.py -u text page.xml
    Tools/scripts/diff.py -m text page.xml
    Tools/scripts/dutree.py < 1\\tlib\\n
    Tools/scripts/eptags.py lib/sched.py
    Tools/scripts/finddiv.py lib
    Tools/scripts/findlinksto.py text lib
    Tools/scripts/findnocoding.py lib
    Tools/scripts/fixcid.py text
    Tools/scripts/fixdiv.py text
    Tools/scripts/fixheader.py text
    Tools/scripts/fixnotice.py text
    Tools/scripts/fixps.py lib/sched.py
    Tools/scripts/gprof2html.py text
    Tools/scripts/h2py.py text
    Tools/scripts/hotshotmain.py lib/bisect.py
    Tools/scripts/ifdef.py -DX text
    Tools/scripts/lfcr.py text
    Tools/scripts/linktree.py lib tree
    Tools/scripts/lll.py lib
    Tools/scripts/logmerge.py < text\\n
    Tools/scripts/mailerdaemon.py lib
    Tools/scripts/md5sum.py text lib/sched.py
    Tools/scripts/md5sum.py nosuch
    Tools/scripts/methfix.py lib
    Tools/scripts/mkreal.py text
    Tools/scripts/ndiff.py text page.xml
    Tools/scripts/nm2def.py
    Tools/scripts/objgraph.py text
    Tools/scripts/parseentities.py < '<!ENTITY'\\n
    Tools/scripts/patchcheck.py
    Tools/scripts/pathfix.py -i /usr/bin/python lib
    Tools/scripts/pdeps.py lib/sched.py lib/calendar.py
    Tools/scripts/pickle2db.py text
    Tools/scripts/pindent.py -c lib/sched.py
    Tools/scripts/pindent.py -e < x\\n
    Tools/scripts/ptags.py lib/sched.py
    Tools/scripts/pysource.py lib
    Tools/scripts/redemo.py
    Tools/scripts/reindent-rst.py text
    Tools/scripts/reindent.py -r lib
    Tools/scripts/rgrep.py fox text
    Tools/scripts/suff.py text page.xml
    Tools/scripts/svneol.py
    Tools/scripts/texcheck.py text
    Tools/scripts/texi2html.py text out
    Tools/scripts/treesync.py lib tree
    Tools/scripts/untabify.py lib/sched.py
    Tools/scripts/which.py sh
    Tools/ssl/get-remote-certificate.py
    Tools/unicode/gencodec.py lib out
    Tools/unicode/listcodecs.py
    Tools/unicode/makeunicodedata.py
    Tools/unicode/mkstringprep.py
    Tools/versioncheck/pyversioncheck.py
    Tools/webchecker/webchecker.py -x page.xml
    Tools/webchecker/websucker.py page.xml
    """

MODULES = """
    -m base64 -t
    -m calendar 2009
    -m compileall lib
    -m cProfile lib/bisect.py
    -m difflib
    -m dis lib/bisect.py
    -m doctest lib/textwrap.py
    -m encodings.rot_13 < text
    -m formatter text
    -m htmllib text
    -m inspect
    -m json.tool page.xml
    -m json.tool < {"a":[1,2]}
    -m mimetypes text.html
    -m modulefinder lib/calendar.py
    -m optparse
    -m pickletools text
    -m platform
    -m profile lib/bisect.py
    -m pyclbr
    -m pydoc calendar
    -m pydoc threading
    -m quopri text
    -m random
    -m rlcompleter
    -m sgmllib page.xml
    -m shlex text
    -m site
    -m symtable
    -m tabnanny lib
    -m test.pystone 2000
    -m test.test_exceptions
    -m this
    -m timeit -n 100 pass
    -m timeit -n 100 1/0
    -m tokenize lib/sched.py
    -m trace --count lib/bisect.py
    -m unittest
    -m unittest test.test_contextlib
    -m uu text
    -m webbrowser
    -m xml.sax.xmlreader
    -m xmllib page.xml
    -m zipfile -c out.zip text lib
    -m zipfile -l text
    """


CONVERTER = """
    {samples}/to3.py lib/sched.py lib/Queue.py lib/bisect.py
    {samples}/to3.py -f all -f idioms -f buffer -p lib/textwrap.py
    {samples}/to3.py text
    {samples}/to3.py -l
    {samples}/to3.py -w lib/calendar.py lib/sched.py nosuch.py
    """

PROJECT = """
    {samples}/project/setup.py -q build
    {samples}/project/setup.py -q bdist_egg
    {samples}/project/setup.py -q sdist
    {samples}/project/setup.py test
    {samples}/project/setup.py develop --install-dir . -q
    {samples}/project/setup.py egg_info
    {samples}/project/setup.py --help-commands
    {samples}/project/setup.py nosuch
    """

PACKAGED = """
    {samples}/render.py {samples}/templates people.html
    {samples}/render.py {samples}/templates people.html undefined.html
    {samples}/render.py {samples}/templates type_error.html
    {samples}/render.py {samples}/templates syntax.html
    {samples}/render.py {samples}/templates nosuch.html
    -m easy_install --help
    -m jinja2.lexer
    """

GYPS = """
    {gyp}/gyp_main.py --depth=. -f make sample.gyp
    {gyp}/gyp_main.py --depth=. -f ninja sample.gyp
    {gyp}/gyp_main.py --depth=. -f cmake sample.gyp
    {gyp}/gyp_main.py --depth=. -f gypd sample.gyp
    {gyp}/gyp_main.py --depth=. -f eclipse sample.gyp
    {gyp}/gyp_main.py --depth=. -f msvs -G msvs_version=2015 sample.gyp
    {gyp}/gyp_main.py --depth=. -f xcode sample.gyp
    {gyp}/gyp_main.py --depth=. -f dump_dependency_json sample.gyp
    {gyp}/gyp_main.py --depth=. -f make broken.gyp
    {gyp}/gyp_main.py --depth=. -f make unreadable.gyp
    {gyp}/gyp_main.py --depth=. -f nosuch sample.gyp
    {gyp}/gyp_main.py --depth=. -f make nosuch.gyp
    {gyp}/tools/pretty_gyp.py sample.gyp
    {gyp}/tools/graphviz.py
    {gyp}/pylib/gyp/common_test.py
    {gyp}/pylib/gyp/easy_xml_test.py
    {gyp}/pylib/gyp/input_test.py
    {gyp}/pylib/gyp/generator/msvs_test.py
    {gyp}/pylib/gyp/generator/ninja_test.py
    {gyp}/pylib/gyp/generator/xcode_test.py
    {gyp}/pylib/gyp/MSVSSettings_test.py
    """


# They run tests that fail, and see to it that they did.
OF_RUNNERS = ("test_doctest", "test_unittest")

UNKNOWABLE = {
    # The interpreter makes the exception from its class once it has a handler for it, which fails:
    # what the handlers see is another one, or it is raised in a frame that has left its handler.
    # And the witness's own excepthook hides that it is the interpreter's that wants a text.
    "test_exceptions": (("BadException", "test_capi1"), ("BadException", "test_capi2"),
                        ("RuntimeError", "__init__"), ("Exception", "__str__")),
    # Somebody in C who is not known has asked for an item, and does with any error.
    "test_getargs2": (("ValueError", "__getitem__"),),
}


class Program(object):
    """name: what the report calls it. words: its file and arguments.

    "{work}" in them is the folder it runs in, "{samples}" has what was written to be worked on.
    """

    time_limit = 120
    # What ends it: "stops", or, where unittest runs it, each test for itself: "tests".
    how = "stops"
    # The (type, function) of stops that turn out to be false and of which nobody could know it.
    unknowable = ()

    def __init__(self, name, words, text=""):
        self.name = name
        self.text = text
        self._words = words

    def prepare(self, work):
        """Sees to what the program finds in its folder; its file and arguments."""
        os.mkdir(os.path.join(work, "lib"))
        for name in LIBRARY:
            shutil.copy(os.path.join(os.path.dirname(os.__file__), name + ".py"),
                        os.path.join(work, "lib"))
        shutil.copytree(os.path.join(HERE, "samples"), os.path.join(work, "samples"))
        for name, text in ("text", TEXT), ("page.xml", PAGE):
            write(os.path.join(work, name), text)
        words = [word.replace("{work}", work).replace("{gyp}", GYP) for word in self._words]
        return [word.replace("{samples}", work + "/samples") for word in words]

    def working_folder(self, work):
        return work

    def environment(self, work):
        changed = dict(os.environ)
        changed["HOME"] = work
        changed["TERM"] = "dumb"
        changed.pop("DISPLAY", None)
        changed.pop("PYTHONDONTWRITEBYTECODE", None)
        return changed


class Packaged(Program):
    """One that uses packages of Debian's, for 2.7 alone."""

    def environment(self, work):
        changed = Program.environment(self, work)
        changed["PYTHONPATH"] = os.pathsep.join([changed["PYTHONPATH"], PACKAGES])
        return changed


class Native(Program):
    """One that looks at a program in C."""

    def environment(self, work):
        changed = Program.environment(self, work)
        changed["PYTHONPATH"] = os.pathsep.join([changed["PYTHONPATH"], GYP + "/pylib"])
        return changed

    def working_folder(self, work):
        return os.path.join(work, "samples/native")


class RegressionTest(Program):
    """A file of the host's own, in which each test is a program of its own."""

    def __init__(self, name, words):
        Program.__init__(self, name, words)
        self.how = name in OF_RUNNERS and "stops" or "tests"
        self.unknowable = UNKNOWABLE.get(name, ())


class Project(Packaged):
    """One that is run in its own folder."""

    def working_folder(self, work):
        return os.path.join(work, "samples/project")


def write(path, text):
    stream = open(path, "w")
    stream.write(text)
    stream.close()


def listed(lines, make=Program):
    found = []
    for line in lines.strip().splitlines():
        command, _, text = line.strip().partition(" < ")
        words = shlex.split(command)
        if words[0] != "-m" and not words[0].startswith("{"):
            words[0] = os.path.join(EXAMPLES, words[0])
            if not os.path.exists(words[0]):
                continue
        found.append(make(line.strip(), words, text.decode("string_escape")))
    return found


def packages():
    """Those of Debian's are for 2.7 alone."""
    if sys.version_info < (2, 7) or not os.path.exists(PACKAGES):
        return []
    return listed(PROJECT, Project) + listed(PACKAGED, Packaged)


def gyp():
    return os.path.exists(GYP) and listed(GYPS, Native) or []


def regression_tests():
    sys.path.insert(0, REGRTEST)
    import compare
    return [RegressionTest(name, [RUN_TESTS, name, "{work}/outcomes"])
            for name in compare.on_this_host(compare.NAMES)]


GROUPS = {
    "demos": lambda: listed(DEMOS),
    "tools": lambda: listed(TOOLS),
    "modules": lambda: listed(MODULES),
    "2to3": lambda: listed(CONVERTER),
    "packages": packages,
    "gyp": gyp,
    "regrtest": regression_tests,
}


def chosen(names):
    """By group, the programs of the groups and those with the names; without names, all."""
    found = {}
    for group in GROUPS:
        found[group] = [program for program in GROUPS[group]() if not names or group in names
                        or [name for name in names if name in program.name]]
    return found
