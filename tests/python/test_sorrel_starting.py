"""Every way in which the interpreter takes a program, under the debugger."""

import imp
import marshal
import os
import re
import signal
import subprocess
import sys
import zipfile

import harness
import sorrel
import sorrel_session
import tmorvik26_vs2012_x64 as core

START = os.path.join(os.path.dirname(os.path.abspath(sorrel.__file__)), 'start.py')
NATIVE = os.path.dirname(os.path.abspath(core.__file__))
# All that a program can see of how it was started.
TELL = '''\
"""What it is."""
import inspect, os, signal, sys, traceback
print sorted(globals().items())
print sys.argv, sys.path, sys.flags, sys.warnoptions, os.environ.get('PYTHONPATH')
print sys.modules['__main__'].__dict__ is globals(), sys._getframe().f_code.co_flags
print [frame[1:] for frame in inspect.stack() if 'runpy' not in frame[1]]
print [frame for frame in traceback.extract_stack() if 'runpy' not in frame[0]]
print [signal.getsignal(number) for number in range(1, 32)]
print sys.exc_info(), compile('1/2', '', 'eval').co_flags
'''


class StartingTest(sorrel_session.TestCase):

    def start_by_file(self, *words, **files):
        """As ./morvik run does; returns (stdout, stderr, exit status)."""
        environment = dict(os.environ)
        sorrel_session.own_folders.hide(environment)
        process = self.popen([START, NATIVE, 'debug'] + list(words), stdin=subprocess.PIPE,
                             stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=environment)
        return self.finish(process, files.get('input', 'c\n'))

    def start_by_module(self, *words, **files):
        """As python -m sorrel does where it is found by PYTHONPATH."""
        process = self.popen(['-m', 'sorrel.__main__'] + list(words), stdin=subprocess.PIPE,
                             stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        return self.finish(process, files.get('input', 'c\n'))

    def assert_same(self, *words):
        """The program sees what it sees without the debugger, which is returned."""
        alone = self.call_alone(*words)
        for start in self.start_by_file, self.start_by_module:
            out, err, status = start(*words)
            out = out.split(sorrel_session.PROMPT, 1)[-1]
            out = re.sub(r'The program ended with .*\.\n\Z', '', out)
            self.assertEqual(_comparable(out, err, status), _comparable(*alone))
        return alone


def _comparable(*result):
    found = [re.sub(r'0x[0-9a-f]+', '0x', str(part)) for part in result]
    # The first run of a new interpreter is what compiles its modules.
    return [re.sub(r'(/python2\.\d/\w+\.py)[co]', r'\1', part) for part in found]


class ProgramTest(StartingTest):

    def setUp(self):
        StartingTest.setUp(self)
        self.script(TELL, 'prog.py')

    def package(self, name='pack'):
        os.mkdir(os.path.join(self.folder, name))
        self.script('', os.path.join(name, '__init__.py'))
        for module in 'tell.py', '__main__.py':
            self.script(TELL, os.path.join(name, module))

    def test_a_script(self):
        self.assert_same('prog.py', 'a', '-O')

    def test_the_stack_of_a_script(self):
        self.script('''\
import sys
def deeper(depth):
    try:
        return deeper(depth + 1)
    except RuntimeError:
        return depth
print deeper(0), sys._getframe().f_back
''', 'deep.py')
        self.assert_same('deep.py')

    def test_a_script_in_a_package(self):
        self.package()
        self.assert_same(os.path.join('pack', 'tell.py'))

    def test_a_module(self):
        self.assert_same('-m', 'prog', '-m', 'x')
        self.package()
        self.assert_same('-mpack.tell', 'a')
        if sys.version_info >= (2, 7):  # 2.6 runs no packages.
            self.assert_same('-m', 'pack', '--', 'a')

    def test_text(self):
        self.assert_same('-c', TELL, '-c', 'x')
        self.assert_same('-cprint __name__')
        self.assertEqual(self.assert_same('-c', 'import sys; sys.exit(3)')[2], 3)

    def test_a_folder(self):
        self.package()
        self.assert_same('pack', 'a')

    def test_an_archive(self):
        path = os.path.join(self.folder, 'pack.zip')
        archive = zipfile.ZipFile(path, 'w')
        archive.writestr('__main__.py', TELL)
        archive.close()
        self.assert_same('pack.zip', 'a')

    def test_a_compiled_file(self):
        os.mkdir(os.path.join(self.folder, 'sub'))
        for name in 'prog.pyc', os.path.join('sub', 'prog.dat'):
            compiled = open(os.path.join(self.folder, name), 'wb')
            compiled.write(imp.get_magic() + '\0\0\0\0')
            marshal.dump(compile(TELL, 'prog.py', 'exec'), compiled)
            compiled.close()
            self.assert_same(name, 'a')

    def test_a_file_that_another_interpreter_has_compiled(self):
        for text in 'x = 1\n', '\0\0\0\0\0\0\0\0', imp.get_magic() + '\0\0\0\0', \
                imp.get_magic() + '\0\0\0\0i\1\0\0\0':
            self.script(text, 'old.pyc')
            self.assertEqual(self.start_by_file('old.pyc'), (
                '', "sorrel: 'old.pyc' was not compiled by this version of the interpreter\n", 2))

    def test_the_standard_input_at_a_terminal(self):
        self.script('import sys\nx = 6\nprint [x * 7, sys.argv, sys.stdin.read()]\n', 'prog.py')
        screen = sorrel_session.Screen(
            self, '', shell='"$1" -m sorrel.__main__ - a < prog.py')
        try:
            self.assertEqual(screen.read_to(sorrel_session.PROMPT), '''\
> <stdin>(1)<module>()
-> import sys
(sorrel) ''')
            screen.type('run\n')
            self.assert_in('*** Only a program ', screen.read_to('(sorrel) '))
            screen.type('n\nn\np x\nc\n')
            self.assert_in("[42, ['-', 'a'], '']\n", screen.read_all()[0])
        finally:
            screen.close()

    def test_the_standard_input_without_a_terminal(self):
        process = self.popen(['-c', 'import os; os.setsid(); os.execvp(%r, %r)' % (
            harness.launcher(), [harness.launcher(), START, NATIVE, 'debug', '-'])],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual(self.finish(process, 'print 1\n'), (
            '', 'sorrel: the program is in the standard input, and there is no terminal to ask '
            'at\n', 2))

    def test_the_standard_input_for_clients(self):
        alone = self.call_alone('-', 'a', input=TELL)
        out, err, status = self.start_by_file(
            '--listen', 'unix:' + os.path.join(self.folder, 'socket'), '-', 'a', input=TELL)
        self.assertEqual(_comparable(out, status), _comparable(alone[0], alone[2]))

    def test_what_clients_debug_sees_the_same(self):
        self.package()
        for words in ['prog.py', 'a'], ['-m', 'pack.tell'], ['-c', TELL], ['pack']:
            alone = self.call_alone(*words)
            for start in self.start_by_file, self.start_by_module:
                out, err, status = start(
                    '--listen', 'unix:' + os.path.join(self.folder, 'socket'), *words)
                self.assertEqual(_comparable(out, status), _comparable(alone[0], alone[2]))

    def test_what_there_is_not(self):
        self.assertEqual(self.start_by_file('none.py'), (
            '', "sorrel: can't open program 'none.py': No such file or directory\n", 2))
        self.assertEqual(self.start_by_file('-m', 'none'), (
            '', 'sorrel: No module named none\n', 2))
        self.assertEqual(self.start_by_file(), ('', 'sorrel: needs a program\n', 2))
        self.assertEqual(self.start_by_file('-c'), (
            '', 'sorrel: -c option requires an argument\n', 2))

    def test_text_has_breakpoints_in_functions_that_are_made(self):
        out = self.start_by_file('-c', 'def f(n):\n    return n\nf(1)\n',
                                 input='b 2\nb f\nn\nb f\nc\nq\n')[0]
        self.assertEqual(out.split(sorrel_session.PROMPT)[1:], [
            '*** cannot read <string>: No such file or directory\n',
            '*** no function f in <string>\n',
            '> <string>(3)<module>()\n-> f(1)\n', 'Breakpoint 1 at <string>:2\n',
            '> <string>(2)f()\n-> return n\n', ''])

    def test_text_that_cannot_be_compiled(self):
        alone = self.call_alone('-c', 'x = (')
        out, err, status = self.start_by_file('-c', 'x = (')
        self.assertEqual((err, status), alone[1:])


class InterpretersOptionsTest(StartingTest):

    def setUp(self):
        StartingTest.setUp(self)
        self.script(TELL, 'prog.py')

    def test_each_counts(self):
        for options in ['-OO', '-uR'], ['-S', '-E', '-s'], ['-B', '-Wignore', '-Qnew', '-tt'], \
                ['-W', 'error::UserWarning', '-Q', 'warn', '-bb', '-O'], ['-3']:
            self.assert_same(*(options + ['prog.py', '-x']))

    def test_together_with_other_words(self):
        self.assert_same('-Om', 'prog', 'a')
        self.assert_same('-OOcprint __debug__')
        out, err, status = self.start_by_file('-O', '--listen', 'unix:' + os.path.join(
            self.folder, 'socket'), '-c', 'print __debug__')
        self.assertEqual((out, status), ('False\n', 0))

    def test_those_that_the_interpreter_was_given_stay(self):
        out, err, status = self.finish(self.popen(
            ['-S', '-Wignore', '-m', 'sorrel.__main__', '-O', '-c',
             'import sys; print sys.flags.no_site, sys.flags.optimize, sys.warnoptions'],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE), 'c\n')
        self.assert_in("1 1 ['ignore']\n", out)
        self.assertEqual((err, status), ('', 0))

    def test_the_future_of_a_division(self):
        text = "print 1 / 2, eval(compile('1 / 2', '', 'eval'))\n"
        self.script(text, 'divide.py')
        self.assert_same('-Qnew', 'divide.py')

    def test_output_is_not_held_back(self):
        text = "import os, sys\nsys.stdout.write('written')\nos.kill(os.getpid(), 9)\n"
        self.assertEqual(self.start_by_file('-u', '-c', text), (
            '> <string>(1)<module>()\n-> import os, sys\n(sorrel) written', '', -signal.SIGKILL))

    def test_those_that_there_are_not(self):
        for option in '-i', '-Z', '--fast':
            self.assertEqual(self.start_by_file(option, 'prog.py'), (
                '', 'sorrel: no such option: %s\n' % option, 2))
        self.assertEqual(self.start_by_file('--pid', '1', '-O'), (
            '', 'sorrel: --pid goes with nothing but --just-my-code\n', 2))


class ShadowTest(StartingTest):

    def assert_own(self, names, *words):
        """The program, which prints the files of these modules, has them from its own folder."""
        out, err, status = self.assert_same(*words)
        found = [os.path.basename(os.path.splitext(line)[0]) for line in out.splitlines()]
        self.assertEqual([name for name in found if name != '__init__'], list(names))

    def own_modules(self, names, folder=''):
        """Makes some, and returns the text of a program that prints their files."""
        for name in names:
            self.script('', os.path.join(folder, name + '.py'))
        return 'for name in %r: print __import__(name).__file__\n' % (names,)

    def test_the_programs_modules_come_before_the_interpreters(self):
        os.environ['PYTHONDONTWRITEBYTECODE'] = '1'
        names = 'copy', 'random', 'tempfile', 'collections', 'cmd', 'pprint', 'json', 'dis'
        os.mkdir(os.path.join(self.folder, 'sub'))
        text = self.own_modules(names, 'sub')
        for name in 'prog.py', '__main__.py':
            self.script(text, os.path.join('sub', name))
        self.assert_own(names, os.path.join('sub', 'prog.py'))
        self.assert_own(names, 'sub')
        archive = zipfile.ZipFile(os.path.join(self.folder, 'sub.zip'), 'w')
        for name in names + ('__main__',):
            archive.write(os.path.join(self.folder, 'sub', name + '.py'), name + '.py')
        archive.close()
        self.assert_own(names, 'sub.zip')
        self.own_modules(names)
        self.script(text, 'prog.py')
        self.assert_own(names, '-m', 'prog')
        self.assert_own(names, '-c', text)
        self.script('print __file__\n', 'json.py')
        self.assert_own(['json'], '-m', 'json')

    def test_a_package_has_its_own_modules(self):
        os.mkdir(os.path.join(self.folder, 'json'))
        self.script('', os.path.join('json', '__init__.py'))
        self.script("name = 'mine'\n", os.path.join('json', 'decoder.py'))
        self.script('import json.decoder\nprint json.decoder.name, dir(json)\n', 'prog.py')
        self.assert_same('prog.py')

    def test_a_program_among_the_interpreters_modules_has_the_same_as_the_server(self):
        os.symlink(os.path.join(os.path.dirname(os.__file__), 'pprint.py'),
                   os.path.join(self.folder, 'pprint.py'))
        self.script("import pprint, gc\nprint len([one for one in gc.get_objects() if "
                    "getattr(one, '__name__', '') == 'PrettyPrinter'])\n", 'prog.py')
        self.assert_same('prog.py')

    def test_the_debugger_goes_on_with_its_own(self):
        self.own_modules(('pprint', 'repr', 'rlcompleter', 'inspect', 'json', 'threading'))
        self.script('import pprint\nx = [1]\ndef f(y):\n    return x\nf(2)\n', 'prog.py')
        out, err, status = self.start_by_file(
            'prog.py', input='b f\nc\npp x\na\nw\nthreads\nr\nc\n')
        self.assertEqual((err, status), ('', 0))
        self.assert_in('(sorrel) [1]\n(sorrel) y = 2\n', out)
        self.assert_in('--Return--\n', out)

    def test_the_checkouts_folders_are_not_the_programs(self):
        os.environ['PYTHONDONTWRITEBYTECODE'] = '1'
        checkout = os.path.dirname(os.path.dirname(START))
        names = [name for name in sorted(os.listdir(checkout)) if name.isalnum()
                 and name != 'sorrel' and os.path.isdir(os.path.join(checkout, name))]
        for name in names:
            os.mkdir(os.path.join(self.folder, name))
            self.script('', os.path.join(self.folder, name, '__init__.py'))
        self.script('for name in %r: print __import__(name).__file__\n' % names, 'prog.py')
        self.assert_same('prog.py')
        self.assert_same('-m', 'prog')

    def test_neither_are_they_those_of_what_the_program_starts(self):
        self.script('''\
import subprocess, sys
print subprocess.Popen([sys.executable, '-c', 'import sys; print sys.path'],
                       stdout=subprocess.PIPE).communicate()
''', 'prog.py')
        self.assert_same('prog.py')


class StatusTest(StartingTest):

    def test_it_is_the_systems(self):
        for argument in '300', '-1', 'True', '2 ** 40 + 5', '3L', '2 ** 64', "'text'", '(1, 2)':
            text = 'import sys; sys.exit(%s)' % argument
            out, err, status = self.start_by_file('-c', text)
            self.assertEqual((err, status), self.call_alone('-c', text)[1:])
            self.assert_in('The program ended with exit status %d.\n' % status, out)

    def test_other_ends(self):
        self.assert_same('-c', 'import os; os._exit(301)')
        self.assert_same('-c', 'import os; os.kill(os.getpid(), 15)')
        self.assert_same('-c', 'import os; os.abort()')
