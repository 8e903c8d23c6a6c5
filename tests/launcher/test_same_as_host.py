"""morvik-python behaves as the interpreter it stands for, but for where its heap lies.

Runs under morvik-python; the real interpreter is its sys.executable.
"""

import glob
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

LAUNCHER = os.readlink("/proc/self/exe")

SHOW_THREAD_STATES = r"""
import ctypes, sys, threading

current = ctypes.pythonapi.PyThreadState_Get
current.restype = ctypes.c_void_p
seen = []

def nested():
    seen.append(current())

def outer():
    seen.append(current())
    inner = [threading.Thread(target=nested) for _ in range(20)]
    for thread in inner:
        thread.start()
    for thread in inner:
        thread.join()

seen.append(current())
ballast = ["x" * size for size in range(0, 3000)]
threads = [threading.Thread(target=outer) for _ in range(5)]
for thread in threads:
    thread.start()
for thread in threads:
    thread.join()
assert len(seen) == 106, seen
high = [hex(address) for address in seen if address >= 2 ** 31]
assert not high, high
"""


def run(program, arguments, stdin=""):
    """(exit status, standard output, standard error without the debug build's last line)."""
    process = subprocess.Popen([program] + arguments, stdin=subprocess.PIPE,
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    out, err = process.communicate(stdin)
    return process.returncode, out, "".join(
        [line for line in err.splitlines(True) if not line.startswith("[")])


class SameAsHost(unittest.TestCase):

    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.environment = dict(os.environ)

    def tearDown(self):
        os.environ.clear()
        os.environ.update(self.environment)
        shutil.rmtree(self.folder)

    def same(self, arguments, stdin="", status=0):
        expected = run(sys.executable, arguments, stdin)
        self.assertEqual(run(LAUNCHER, arguments, stdin), expected)
        self.assertEqual(expected[0], status)
        return expected

    def script(self, text, name="program.py"):
        path = os.path.join(self.folder, name)
        source = open(path, "w")
        source.write(text)
        source.close()
        return path

    def test_executable_prefix_and_version_are_the_hosts(self):
        out = self.same(["-c", "import sys; print([sys.executable, sys.prefix, "
                               "sys.exec_prefix, sys.version, sys.path, sys.flags])"])[1]
        self.assertTrue(repr(sys.executable) in out)

    def test_command_with_arguments(self):
        self.same(["-c", "import sys; print(sys.argv)", "-x", "--y", ""])

    def test_module_with_arguments(self):
        self.script("import sys\nprint(__name__, sys.argv)\n")
        os.environ["PYTHONPATH"] = self.folder + ":" + os.environ.get("PYTHONPATH", "")
        self.same(["-m", "program", "-x"])

    def test_script_with_arguments(self):
        path = self.script("import sys\nprint(__name__, sys.argv, sys.path[0])\n")
        self.same([path, "a", "-b"])

    def test_program_from_standard_input(self):
        self.same(["-", "a"], "import sys\nprint(sys.argv)\n")
        self.same([], "print(6 * 7)\n")

    def test_program_reads_standard_input(self):
        self.same([self.script("import sys\nprint(sys.stdin.read())\n")], "line\n\0line")

    def test_exit_statuses(self):
        self.same(["-c", "import sys; sys.exit(7)"], status=7)
        self.same(["-c", "import sys; sys.exit('a reason')"], status=1)
        self.same(["-c", "1 / 0"], status=1)
        self.same(["-c", "import os; os._exit(9)"], status=9)
        self.same(["-c", "import os; os.kill(os.getpid(), 15)"], status=-15)
        self.same([os.path.join(self.folder, "missing.py")], status=2)
        self.same(["-Z"], status=2)

    def test_interpreter_options(self):
        show = "import sys; print(sys.flags, __debug__, sys.path, sys.warnoptions)"
        for options in ("-u", "-O", "-OO", "-E", "-s", "-S", "-B", "-3", "-Werror"):
            self.same([options, "-c", show])
        self.same(["-V"])
        self.same(["-h"])

    def test_unbuffered_output_keeps_its_order(self):
        path = self.script("import os, sys\nsys.stdout.write('1')\nos.write(1, '2')\n"
                           "sys.stdout.write('3')\n")
        self.assertEqual(self.same(["-u", path])[1], "123")

    def test_same_extension_modules_import(self):
        # Libraries that came along with the interpreter, which the launcher finds by itself.
        libraries = glob.glob(os.path.join(sys.prefix, "lib", "*-linux-*"))
        if sys.prefix != "/usr":
            os.environ["LD_LIBRARY_PATH"] = ":".join(libraries)
        names = ("_bisect _bsddb _bytesio _codecs_jp _collections _csv _ctypes _curses _elementtree "
                 "_functools _hashlib _heapq _hotshot _io _json _locale _lsprof _multiprocessing "
                 "_random _socket _sqlite3 _ssl _struct _weakref array audioop binascii bz2 cmath "
                 "cPickle crypt cStringIO datetime dbm fcntl future_builtins gdbm grp itertools "
                 "mmap math nis operator parser pyexpat readline resource select spwd strop "
                 "syslog termios time unicodedata zlib")
        out = self.same(["-c", "import sys\nfor name in sys.argv[1:]:\n"
                               "    try:\n        __import__(name)\n        print(name)\n"
                               "    except ImportError, e:\n        print(name, e)\n"]
                        + names.split())[1]
        for name in ("_socket", "_json", "_ctypes", "array", "time"):
            self.assertTrue("\n%s\n" % name in out, out)

    def test_every_thread_state_lies_below_two_gigabytes(self):
        self.assertEqual(run(LAUNCHER, ["-c", SHOW_THREAD_STATES]), (0, "", ""))


if __name__ == "__main__":
    unittest.main()
