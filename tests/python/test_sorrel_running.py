"""A program under the debugger runs and ends as it does alone."""

import os
import re
import subprocess

import sorrel_session


class Running(sorrel_session.TestCase):

    def alone(self, text, args=()):
        self.script(text, 'prog.py')
        return self.call_alone('prog.py', *args)

    def assert_same(self, text, args=()):
        """The program's output, errors and exit status are what they are without debugger."""
        alone = self.without_addresses(self.alone(text, args))
        for commands in ['catch never', 'c'], []:
            out, err, status = self.debug(text, commands, args)
            out = out.rsplit(sorrel_session.PROMPT, 1)[-1]
            out = re.sub(r'The program ended with .*\.\n\Z', '', out)
            out = re.sub(r'About to end the program: .*\n', '', out)
            out = out.replace('\nDetached: the program runs on.\n', '')
            self.assertEqual(self.without_addresses((out, err, status)), alone)
        return alone

    def without_addresses(self, result):
        return tuple([re.sub(r'0x[0-9a-f]+', '0x', str(part)) for part in result])


class Surroundings(Running):

    def test_arguments_path_and_main_module(self):
        self.assert_same('''\
"""What it is."""
import sys
print sorted(globals())
print __name__, __doc__, __file__, __package__, __builtins__
print sys.argv, sys.path
print sys.modules['__main__'].__dict__ is globals()
''', ['-x', '--', 'two words', ''])

    def test_a_program_in_another_folder(self):
        os.mkdir(os.path.join(self.folder, 'sub'))
        self.script("import sys, os\nprint sys.argv, sys.path[0], __file__, os.getcwd()\n",
                    os.path.join('sub', 'tool.py'))
        os.symlink(os.path.join('sub', 'tool.py'), os.path.join(self.folder, 'link.py'))
        for name in os.path.join('sub', 'tool.py'), 'link.py':
            alone = self.call_alone(name, 'a')
            process = self.start(name, ['a'], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                 stderr=subprocess.PIPE)
            out, err, status = self.finish(process, 'c\n')
            self.assertEqual(out, '''\
> %s(1)<module>()
-> import sys, os
(sorrel) %sThe program ended with exit status 0.
''' % (name, alone[0]))
            self.assertEqual((err, status), ('', 0))

    def test_a_module_beside_the_program_is_imported(self):
        self.script('value = 7\n', 'beside.py')
        self.assert_same('import beside\nprint beside.value\n')

    def test_classes_of_the_program_are_pickled(self):
        self.assert_same('''\
import pickle
class Thing(object):
    pass
print pickle.loads(pickle.dumps(Thing())).__class__
''')

    def test_the_future_of_the_server_is_not_the_programs(self):
        self.assert_same('print 1 / 2\n')
        self.assert_same('from __future__ import division\nprint 1 / 2\n')

    def test_globals_live_to_the_end(self):
        self.assert_same('''\
import atexit
word = 'still here'
def last():
    print word
atexit.register(last)
''')

    def test_odd_sources(self):
        self.assert_same('')
        self.assert_same('print 1')
        self.assert_same('if 1:\r\n    print 2\r\n')
        self.assert_same('\xef\xbb\xbfprint u"\xc3\xa9".encode("utf-8")\n')
        self.assert_same('# coding: latin-1\nprint repr(u"\xe9")\n')


class Ends(Running):

    def report(self, text):
        return self.debug(text, ['catch never', 'c'])[0].split(sorrel_session.PROMPT)[2]

    def test_the_end_of_the_program(self):
        self.assert_same("print 'done'\n")
        self.assertEqual(self.report('x = 1\n'), 'The program ended with exit status 0.\n')

    def test_exit_with_a_number(self):
        self.assertEqual(self.assert_same('import sys\nsys.exit(3)\n')[2], '3')
        self.assertEqual(self.report('import sys\nsys.exit(3)\n'),
                         'The program ended with exit status 3.\n')

    def test_exit_with_a_text(self):
        self.assertEqual(self.assert_same("import sys\nsys.exit('no way')\n"),
                         ('', 'no way\n', '1'))
        self.assertEqual(self.report("import sys\nsys.exit('no way')\n"),
                         'The program ended with exit status 1.\n')

    def test_exit_with_nothing(self):
        self.assertEqual(self.assert_same('raise SystemExit\n'), ('', '', '0'))
        self.assertEqual(self.report('raise SystemExit\n'),
                         'The program ended with exit status 0.\n')

    def test_an_uncaught_exception(self):
        text = "def f():\n    raise ValueError('no')\nf()\n"
        self.assertEqual(self.assert_same(text), ('', '''\
Traceback (most recent call last):
  File "prog.py", line 3, in <module>
    f()
  File "prog.py", line 2, in f
    raise ValueError('no')
ValueError: no
''', '1'))
        self.assertEqual(self.report(text), '''\
About to end the program: ValueError: no
The program ended with an uncaught ValueError.
''')

    def test_an_uncaught_exception_of_an_old_class(self):
        text = 'class Old:\n    pass\nraise Old()\n'
        self.assertEqual(self.assert_same(text)[2], '1')
        self.assert_in('\nThe program ended with an uncaught Old.\n', self.report(text))

    def test_a_program_that_cannot_be_compiled(self):
        for text in 'x = (\n', 'if 1:\n  x\n y\n', '# coding: nonsense\n', 's = "\xc3\xa9"\n':
            alone = self.alone(text)
            out, err, status = self.debug(text, ['c'])
            self.assertEqual((err, status), (alone[1], 1))
            self.assert_in(out, ['The program ended with an uncaught SyntaxError.\n',
                                 'The program ended with an uncaught IndentationError.\n'])

    def test_the_programs_own_excepthook(self):
        self.assert_same('''\
import sys
def hook(type, value, tb):
    print type, value, tb.tb_frame.f_code.co_name, tb.tb_next
sys.excepthook = hook
raise ValueError('no')
''')

    def test_an_excepthook_that_fails(self):
        self.assert_same('''\
import sys
sys.excepthook = lambda *args: 1/0
raise ValueError('no')
''')

    def test_an_excepthook_that_exits(self):
        self.assert_same('''\
import sys
sys.excepthook = lambda *args: sys.exit(4)
raise ValueError('no')
''')

    def test_exit_functions_run_before_the_report(self):
        self.assertEqual(self.report('''\
import atexit
def last():
    print 'last words'
atexit.register(last)
'''), 'last words\nThe program ended with exit status 0.\n')

    def test_exit_at_once(self):
        self.assertEqual(self.assert_same('import os\nos._exit(5)\n')[2], '5')

    def test_death_by_a_signal(self):
        self.assertEqual(self.assert_same(
            'import os, signal\nos.kill(os.getpid(), signal.SIGKILL)\n')[2], '-9')

    def test_stepping_off_the_end(self):
        out, err, status = self.debug('import sys\nsys.exit(3)\n', ['s', 's', 's', 's', 's'])
        self.assertEqual((err, status), ('', 3))
        self.assert_in('The program ended with exit status 3.\n', out)


class Input(Running):

    def test_the_program_reads_what_follows_the_command(self):
        text = "name = raw_input('name? ')\nprint 'hello', name\n"
        self.assertEqual(self.debug(text, ['n', 'Ada', 'p name', 'c']), ('''\
> prog.py(1)<module>()
-> name = raw_input('name? ')
(sorrel) name? > prog.py(2)<module>()
-> print 'hello', name
(sorrel) 'Ada'
(sorrel) hello Ada
The program ended with exit status 0.
''', '', 0))

    def test_commands_between_the_lines_of_a_loop_over_the_input(self):
        text = '''\
import sys
for line in sys.stdin:
    line = line.strip()
    print 'got', line
'''
        out, err, status = self.debug(text, ['n', 'n', 'one', 'p line', 'n', 'n', 'c', 'two'])
        self.assertEqual((out.split(sorrel_session.PROMPT)[2:], err, status), ([
            "> prog.py(3)<module>()\n-> line = line.strip()\n",
            "'one\\n'\n",
            "> prog.py(4)<module>()\n-> print 'got', line\n",
            "got one\n> prog.py(2)<module>()\n-> for line in sys.stdin:\n",
            'got two\nThe program ended with exit status 0.\n'], '', 0))

    def test_a_program_that_closes_its_input_is_detached_at_its_next_stop(self):
        out, err, status = self.debug("import sys\nsys.stdin.close()\nprint 'on'\n", ['n', 'n'])
        self.assertEqual((out.split(sorrel_session.PROMPT)[2:], err, status), ([
            "> prog.py(3)<module>()\n-> print 'on'\n",
            '\nDetached: the program runs on.\non\n'], '', 0))

    def test_all_the_input_is_the_programs_once_it_runs(self):
        self.assertEqual(self.debug('import sys\nprint sys.stdin.read()\n', ['c', 'one', 'two']),
                         ('''\
> prog.py(1)<module>()
-> import sys
(sorrel) one
two

The program ended with exit status 0.
''', '', 0))


class Output(Running):

    def test_a_program_that_replaces_its_files_is_debugged_all_the_same(self):
        text = '''\
import StringIO, sys
sys.stdout = StringIO.StringIO()
sys.stdin = StringIO.StringIO('for the program')
print 'unseen'
sys.__stdout__.write('%r %r' % (sys.stdout.getvalue(), raw_input()))
'''
        self.assertEqual(self.debug(text, ['n', 'n', 'n', 'n', 'p sys.stdout.getvalue()',
                                           'p sys.stdin.read()', 'sys.stdin.seek(0)', 'c']), ('''\
> prog.py(1)<module>()
-> import StringIO, sys
(sorrel) > prog.py(2)<module>()
-> sys.stdout = StringIO.StringIO()
(sorrel) > prog.py(3)<module>()
-> sys.stdin = StringIO.StringIO('for the program')
(sorrel) > prog.py(4)<module>()
-> print 'unseen'
(sorrel) > prog.py(5)<module>()
-> sys.__stdout__.write('%r %r' % (sys.stdout.getvalue(), raw_input()))
(sorrel) 'unseen\\n'
(sorrel) 'for the program'
(sorrel) (sorrel) 'unseen\\n' 'for the program'The program ended with exit status 0.
''', '', 0))

    def test_a_program_that_closes_its_output_is_detached(self):
        out, err, status = self.debug('''\
import sys
sys.stdout.close()
sys.stderr.write('on')
''', ['n', 'n', 'n'])
        self.assertEqual((out.count(sorrel_session.PROMPT), err, status), (2, 'on', 0))

    def test_nobody_reads_the_output_any_more(self):
        self.script("x = 1\nopen('mark', 'w').write('ran on')\n", 'prog.py')
        process = self.start('prog.py', stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE)
        process.stdout.close()
        process.stdin.write('n\nn\n')
        process.stdin.close()
        process.stderr.read()
        process.wait()
        self.assertEqual(open(os.path.join(self.folder, 'mark')).read(), 'ran on')


class Deep(Running):

    def test_endless_recursion(self):
        out, err, status = self.debug('''\
def deeper(n):
    return deeper(n + 1)
try:
    deeper(0)
except RuntimeError as error:
    print error
''', ['c'])
        self.assert_in('maximum recursion depth exceeded', out)
        self.assertEqual((err, status), ('', 0))

    def test_a_stop_just_below_the_recursion_limit(self):
        text = '''\
import sys
def deeper(n):
    if n:
        deeper(n - 1)
    else:
        core.step_into()
    x = n
import tmorvik26_vs2012_x64 as core
depth = 0
frame = sys._getframe()
while frame:
    depth += 1
    frame = frame.f_back
deeper(sys.getrecursionlimit() - depth - 10)
print sys.getrecursionlimit()
'''
        out, err, status = self.debug(text, ['c', 'p n', 'pp dict(a=range(3))', 'c'])
        self.assertEqual((out.split(sorrel_session.PROMPT)[1:], err, status), ([
            '> prog.py(7)deeper()\n-> x = n\n', '0\n', "{'a': [0, 1, 2]}\n",
            '1000\nThe program ended with exit status 0.\n'], '', 0))


class Forks(Running):

    def test_only_the_parent_asks(self):
        out, err, status = self.debug('''\
import os
pid = os.fork()
if not pid:
    status = 7
    os._exit(status)
print os.waitpid(pid, 0)[1] >> 8
''', ['n', 's', 's', 's', 'c'])
        self.assertEqual((out.split(sorrel_session.PROMPT)[2:], err, status), ([
            '> prog.py(3)<module>()\n-> if not pid:\n',
            '> prog.py(6)<module>()\n-> print os.waitpid(pid, 0)[1] >> 8\n',
            '7\n--Return--\n> prog.py(6)<module>()->None\n-> print os.waitpid(pid, 0)[1] >> 8\n',
            'The program ended with exit status 0.\n'], '', 0))

    def test_other_programs_are_started(self):
        self.assert_same('''\
import subprocess, sys
print subprocess.Popen(['echo', 'hello'], stdout=subprocess.PIPE).communicate()
''')


class CommandLine(sorrel_session.TestCase):

    def assert_refused(self, arguments, message):
        self.assertEqual(self.call('-m', 'sorrel.main', *arguments), ('', message, 2))

    def test_a_missing_program_file(self):
        self.assert_refused(['terminal', 'nothing.py'],
                            "sorrel: can't open program 'nothing.py': No such file or directory\n")

    def test_a_folder_without_a_program(self):
        self.assert_refused(['terminal', '--', '.'],
                            "sorrel: can't find '__main__.py' in '.'\n")

    def test_no_program(self):
        self.assert_refused(['terminal'], 'sorrel: needs a program\n')
        self.assert_refused(['terminal', '--'], 'sorrel: needs a program\n')

    def test_no_command(self):
        self.assert_refused([], 'sorrel: needs a command\n')

    def test_an_unknown_command(self):
        self.assert_refused(['edit', 'x.py'], 'sorrel: unknown command: edit\n')

    def test_unknown_options(self):
        self.assert_refused(['--fast'], 'sorrel: no such option: --fast\n')
        self.assert_refused(['terminal', '--fast', 'x.py'], 'sorrel: no such option: --fast\n')

    def test_a_refusal_is_written_only_where_somebody_waits_for_it(self):
        wrong = ['serve', '--handshake', 'words', '--no-token', 'x.py']
        message = 'sorrel: --token-file and --no-token go with --listen\n'
        self.assert_refused(wrong, message)
        self.assertEqual(os.listdir(self.folder), [])
        self.script('', 'words')
        self.assert_refused(wrong, message)
        self.assertEqual(sorted(os.listdir(self.folder)), ['refused', 'words'])

    def test_a_demo_that_there_is_not(self):
        self.assert_refused(['demo'], 'sorrel: needs a demo\n')
        self.assert_refused(['demo', 'x'], 'sorrel: unknown demo: x\n')
        self.assert_refused(['demo', 'bills', 'x'], 'sorrel: unexpected argument: x\n')

    def test_hooks_that_have_no_name(self):
        for hook in '', ':', 'weft', 'weft:', ':Hook':
            for command in ['terminal'], ['serve', '--listen', '0']:
                self.assert_refused(command + ['--hook', hook, 'x.py'],
                                    'sorrel: not MODULE:NAME: %s\n' % hook)
        self.assert_refused(['terminal', '--hook'], 'sorrel: --hook option requires an argument\n')

    def test_hooks_that_cannot_be_loaded(self):
        self.script('print "never"\n', 'prog.py')
        self.script('import sys\ndef broken():\n    raise ValueError("not today")\n', 'hooks.py')
        for hook, reason in [
                ('nothing:Hook', 'ImportError: No module named nothing'),
                ('hooks:Hook', "AttributeError: 'module' object has no attribute 'Hook'"),
                ('hooks:sys', "TypeError: 'module' object is not callable"),
                ('hooks:broken', 'ValueError: not today')]:
            self.assert_refused(['terminal', '--hook', hook, 'prog.py'],
                                "sorrel: can't load hook '%s': %s\n" % (hook, reason))

    def test_hooks_are_loaded_from_the_programs_folder_in_their_order(self):
        os.mkdir(os.path.join(self.folder, 'sub'))
        self.script('print "program"\n', os.path.join('sub', 'prog.py'))
        self.script("def first():\n    print 'first'\ndef second():\n    print 'second'\n",
                    os.path.join('sub', 'hooks.py'))
        hooks = ['--hook', 'hooks:first', '--hook', 'hooks:second']
        program = os.path.join('sub', 'prog.py')
        out, err, status = self.call('-m', 'sorrel.main', 'serve', '--listen', '0',
                                     *(hooks + [program]))
        self.assertEqual((out, status), ('first\nsecond\nprogram\n', 0))
        out, err, status = self.call('-m', 'sorrel.main', 'terminal', *(hooks + [program]))
        self.assertEqual((err, status), ('', 0))
        self.assertEqual(out.splitlines()[:2], ['first', 'second'])

    def test_help(self):
        out, err, status = self.call('-m', 'sorrel.main', '--help')
        self.assert_in('sorrel terminal [--module | --text] [--tty DEVICE] [--no-color] '
                       '[--no-templates]\n', out)
        self.assertEqual((err, status), ('', 0))

    def test_options_after_the_program_are_its_own(self):
        self.script('import sys\nprint sys.argv\n', 'prog.py')
        out, err, status = self.finish(
            self.popen(['-m', 'sorrel.main', 'terminal', 'prog.py', '--help'],
                       stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE),
            'c\n')
        self.assert_in("['prog.py', '--help']\n", out)
        self.assertEqual((err, status), ('', 0))
