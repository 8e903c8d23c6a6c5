"""Programs in an environment of their own: a copy of the interpreter, most of its library elsewhere."""

import os
import shutil
import sys

import _sorrel
import harness
import sorrel
import sorrel_session
import tmorvik26_vs2012_x64 as core

# What stands for the interpreter's own, as such environments have it.
_SITE = '''\
import sys
sys.real_prefix = %r
sys.path += %r
sys.path.append(%r)
'''


class EnvironmentTest(sorrel_session.TestCase):

    def setUp(self):
        harness.need_interpreter_alone(self)
        sorrel_session.TestCase.setUp(self)
        self.environment = os.path.join(self.folder, 'environment')
        version = 'python%d.%d' % sys.version_info[:2]
        self.library = os.path.join(self.environment, 'lib', version)
        packages = os.path.join(self.library, 'site-packages')
        binaries = os.path.join(self.environment, 'bin')
        for folder in packages, binaries:
            os.makedirs(folder)
        # sys.executable is the interpreter that the launcher stands for.
        python = os.path.join(binaries, 'python')
        shutil.copy(sys.executable, python)
        original = os.path.join(sys.prefix, 'lib', version)
        for name in 'os.py', 'lib-dynload':
            os.symlink(os.path.join(original, name), os.path.join(self.library, name))
        elsewhere = [original, os.path.join(original, 'lib-dynload')]
        self.script(_SITE % (sys.prefix, elsewhere, packages),
                    os.path.join(self.library, 'site.py'))
        for path in core.__file__, _sorrel.__file__, os.path.dirname(sorrel.__file__):
            path = os.path.abspath(path)
            os.symlink(path, os.path.join(packages, os.path.basename(path)))
        os.environ['MORVIK_PYTHON_EXE'] = python
        os.environ.pop('PYTHONPATH', None)

    def test_a_session(self):
        self.assert_session('''\
import sys, thread, time
begun = []

def work():
    begun.append(thread.get_ident())

thread.start_new_thread(work, ())
while not begun or begun[0] in sys._current_frames(): time.sleep(0.001)
print sys.prefix
''', '''
    > prog.py(1)<module>()
    -> import sys, thread, time
    (sorrel) break work
    Breakpoint 1 at prog.py:5
    (sorrel) continue
    [work]
    > prog.py(5)work()
    -> begun.append(thread.get_ident())
    (sorrel) threads
      1  MainThread  running  prog.py(8)<module>()
    * 2  work  stopped  prog.py(5)work()
    (sorrel) continue
    environment
    The program ended with exit status 0.
    ''')

    def test_what_belongs_to_the_library(self):
        path = self.script('''\
import os, threading
from sorrel.inspection import libraries
print os.__file__.startswith(%r)
for module in os, threading:
    print libraries.is_library(os.path.abspath(module.__file__)),
print libraries.is_library(os.path.abspath(__file__))
''' % self.library)
        self.assertEqual(self.call(path), ('True\nTrue True False\n', '', 0))
