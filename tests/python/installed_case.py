"""Tests of what is installed in a folder, with the interpreter alone in place of the launcher."""

import os
import re
import subprocess
import sys

import dap_session
import harness
from harness import core

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BUILT = os.path.dirname(os.path.abspath(core.__file__))
# 2.6 runs no packages.
SORREL = 'sorrel' if sys.version_info >= (2, 7) else 'sorrel.__main__'


def listing(folder):
    """The text of each file below a folder, by its name; None for a folder or a link."""
    found = {}
    for parent, folders, names in os.walk(folder):
        for name in folders + names:
            path = os.path.join(parent, name)
            is_file = os.path.isfile(path) and not os.path.islink(path)
            found[os.path.relpath(path, folder)] = open(path, 'rb').read() if is_file else None
    return found


class TestCase(dap_session.TestCase):

    def setUp(self):
        harness.need_interpreter_alone(self)
        dap_session.TestCase.setUp(self)
        self.site = os.path.join(self.folder, 'site')
        # Programs are in none of the two, and started from a third.
        os.mkdir(self.site)
        os.mkdir(os.path.join(self.folder, 'elsewhere'))
        os.chdir(os.path.join(self.folder, 'elsewhere'))
        os.environ['MORVIK_PYTHON_EXE'] = sys.executable
        os.environ['PYTHONPATH'] = self.site
        # As for people.
        os.environ.pop('PYTHONDONTWRITEBYTECODE', None)
        os.environ['HOME'] = self.folder

    def tearDown(self):
        os.chdir(TOP)
        dap_session.TestCase.tearDown(self)

    def run_host(self, *arguments, **how):
        """Runs the interpreter; (stdout, stderr, exit status). typed: what is typed."""
        typed = how.pop('typed', '')
        process = subprocess.Popen(
            (how.pop('exe', sys.executable),) + arguments, stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, **how)
        out, err = process.communicate(typed)
        # What a debug build says at its end.
        return out, re.sub(r'\[\d+ refs\]\n', '', err), process.returncode

    def tool(self, name, *arguments, **how):
        """Runs one of the scripts of the morvik command, which must do what it is for.

        Returns its one line of output.
        """
        out, err, status = self.run_tool(name, *arguments, **how)
        self.assertEqual((err, status), ('', 0))
        return out[:-1]

    def run_tool(self, name, *arguments, **how):
        return self.run_host('-E', '-B', os.path.join(TOP, 'tools', name), *arguments, **how)

    def install(self, folder=None, **how):
        return self.tool('install.py', 'install', self.site if folder is None else folder, BUILT,
                         **how)

    def uninstall(self, folder=None, **how):
        return self.tool('install.py', 'uninstall', self.site if folder is None else folder,
                         **how)

    def make_wheel(self):
        return self.tool('make_wheel.py', BUILT, os.path.join(self.folder, 'wheels'))
