"""The host's own regression tests pass under the core exactly where they pass without it.

usage: morvik-python tests/regrtest/compare.py [--part K/N | NAME...]

Each file of NAMES runs twice, in processes of its own: alone, and traced, with breakpoints in
every module, the import hook in, stops at unhandled exceptions, and a debug server that goes on.
The outcomes of all their test methods are compared.  Status 77 says that the host has no tests.
"""

import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
TIME_LIMIT = 120
SKIPPED = 77

# The language's core and the parts of the library that lean on it most.  Left out are tests of the
# network, of what the machine is, and those that take longer than ten seconds in a debug build.
NAMES = """
    test_StringIO test_abc test_abstract_numbers test_array test_ast test_atexit test_augassign
    test_bdb test_binop test_bisect test_bool test_buffer test_builtin test_bytes test_call
    test_class test_cmath test_code test_codeccallbacks test_codeop test_coercion test_collections
    test_compare test_compile test_compiler test_complex test_complex_args test_contains
    test_contextlib test_copy test_copy_reg test_cprofile test_csv test_datetime test_decorators
    test_defaultdict test_deque test_descr test_descrtut test_dict test_dictcomps test_dictviews
    test_dis test_doctest test_doctest2 test_dummy_thread test_enumerate test_eof test_errno
    test_exception_variations test_exceptions test_extcall test_file test_fileio test_float
    test_fnmatch test_format test_fractions test_frozen test_funcattrs test_functools test_future
    test_future3 test_future4 test_future5 test_gc test_generators test_genexps test_getargs
    test_getargs2 test_glob test_global test_grammar test_hash test_hotshot test_imp
    test_import_magic test_importhooks test_importlib test_index test_inspect test_int
    test_int_literal test_isinstance test_iter test_iterlen test_list test_long test_longexp
    test_marshal test_math test_memoryio test_memoryview test_module test_modulefinder test_new
    test_opcodes test_operator test_optparse test_os test_parser test_pdb test_peepholer test_pep247
    test_pep352 test_pickletools test_pkg test_pkgimport test_pkgutil test_posixpath test_pow
    test_pprint test_print test_profile test_property test_py_compile test_queue test_random test_re
    test_repr test_richcmp test_scope test_set test_setcomps test_sets test_shelve test_slice
    test_softspace test_sort test_source_encoding test_str test_string test_strop test_strptime
    test_struct test_structmembers test_structseq test_sundry test_symtable test_syntax test_sys
    test_sys_setprofile test_sys_settrace test_tempfile test_textwrap test_thread test_threading
    test_threading_local test_traceback test_transformer test_tuple test_typechecks test_types
    test_unary test_undocumented_details test_unittest test_univnewlines test_unpack test_userdict
    test_userlist test_warnings test_weakset test_with test_xrange test_zipimport
    """.split()

# Without these modules, files cannot even be imported: a host may have been built so.
NEEDED = {"test_zipimport": "zlib"}

# Those that end with the trace function taken out, by calls of sys.settrace() of their own.  Others
# that make such calls import something after them, and so are traced again.
UNTRACED_AT_THE_END = ["test_bdb", "test_hotshot", "test_scope"]

# What may differ from one run to the next, and why.
UNPREDICTABLE = {
    "test.test_threading.ThreadTests.test_PyThreadState_SetAsyncExc":
        "an exception sent by another thread is lost if it arrives in the debug server's code",
}


def launcher():
    return os.environ.get("MORVIK_PYTHON_EXE") or os.readlink("/proc/self/exe")


def run(how, name):
    """Runs one file, one way; its outcomes, what it wrote, and how long it took."""
    folder = tempfile.mkdtemp()
    report = os.path.join(folder, "report")
    work = os.path.join(folder, "work")
    os.mkdir(work)
    environment = dict(os.environ)
    # Some tests are about the files that it would suppress.
    environment.pop("PYTHONDONTWRITEBYTECODE", None)
    output = tempfile.TemporaryFile()
    started = time.time()
    process = subprocess.Popen(
        [launcher(), os.path.join(HERE, "run_one.py"), how, name, report], cwd=work,
        env=environment, stdin=open(os.devnull), stdout=output, stderr=subprocess.STDOUT,
        preexec_fn=os.setsid)
    while process.poll() is None and time.time() - started < TIME_LIMIT:
        time.sleep(0.01)
    seconds = time.time() - started
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except OSError:
        pass    # nothing of it is left
    outcomes = read(report, process.wait())
    shutil.rmtree(folder, True)
    output.seek(0)
    return outcomes, output.read(), seconds


def read(report, status):
    """The outcomes; what ended without a report has one of its own."""
    try:
        outcomes = eval(open(report).read())
    except (IOError, SyntaxError):
        outcomes = {"": "no report"}
    if status != 0 and outcomes[""] in ("passed", "no report"):
        outcomes[""] = "ended with status %d" % status
    return outcomes


def compare(name):
    """Runs one file both ways and says how that went; whether it went as it should."""
    alone, _, seconds_alone = run("alone", name)
    traced, output, seconds_traced = run("traced", name)
    seen = traced.pop("seen", {})
    wrong, known = complaints(name, seen), []
    for each in sorted(set(alone) | set(traced), reverse=True):
        outcomes = alone.get(each), traced.get(each)
        if outcomes[0] == outcomes[1] or each == "" and known:
            continue
        difference = "%s: %s alone, %s under the core" % ((each or name,) + outcomes)
        if each in UNPREDICTABLE:
            known.append("%s: %s" % (difference, UNPREDICTABLE[each]))
        else:
            wrong.append(difference)
    print("%s  %s: %d passed alone, %d stops (%.1f s alone, %.1f s under the core)" % (
        wrong and "failed" or "passed", name, alone.values().count("passed"),
        seen.get("stops", 0), seconds_alone, seconds_traced))
    for line in wrong + known:
        print("    " + line)
    if wrong:
        print(output)
    sys.stdout.flush()
    return not wrong


def complaints(name, seen):
    """What the core should have done with a file and has not."""
    wrong = []
    for what in "imports", "stops in the test":
        if not seen.get(what):
            wrong.append("no %s were seen" % what)
    # All that is raised there is caught, if only by what runs the tests.
    if seen.get("exceptions"):
        wrong.append("%d exceptions were taken for unhandled" % seen["exceptions"])
    if seen.get("traced at the end") != (name not in UNTRACED_AT_THE_END):
        wrong.append("traced at the end: %s" % seen.get("traced at the end"))
    return wrong


def on_this_host(names):
    try:
        import test
    except ImportError:
        return []
    folder = os.path.dirname(test.__file__)
    return [name for name in names if os.path.exists(os.path.join(folder, name + ".py"))
            and (name not in NEEDED or has_module(NEEDED[name]))]


def has_module(name):
    try:
        __import__(name)
    except ImportError:
        return False
    return True


def chosen(arguments):
    if arguments[:1] != ["--part"]:
        return arguments or on_this_host(NAMES)
    part, parts = arguments[1].split("/")
    return on_this_host(NAMES)[int(part) - 1::int(parts)]


def main(arguments):
    names = chosen(arguments)
    if not names:
        print("skipped: this host comes without its regression tests")
        return SKIPPED
    for name, module in NEEDED.items():
        if not has_module(module):
            print("left out: %s, for want of %s" % (name, module))
    failed = [name for name in names if not compare(name)]
    print("%d of %d files pass under the core exactly where they pass alone"
          % (len(names) - len(failed), len(names)))
    return len(failed) != 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
