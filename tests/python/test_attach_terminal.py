"""The terminal in programs that run already."""

import os
import pty
import select
import subprocess
import time

import attach_session
import dap_session
import harness
from attach_session import WORK
from sorrel_session import PROMPT

BEGINNING = ('Attached to process %d. It stops at the next line of Python code that it runs, Ctrl-D '
             'leaves it.\n')


class TestCase(attach_session.TestCase):

    options = []

    def setUp(self):
        attach_session.TestCase.setUp(self)
        self.persons_folder = self.here = os.path.join(self.folder, 'home')
        os.mkdir(self.persons_folder)

    def terminal(self, program, variables={}, **streams):
        """The process of a person who attaches to the program."""
        process = subprocess.Popen(
            [harness.launcher(), '-m', 'sorrel.main', 'attach'] + self.options + [
                str(program.pid)], cwd=self.here,
            env=dict(os.environ, HOME=self.persons_folder, **variables), **streams)
        self.opened(dap_session.Ended(process))
        return process

    def typed(self, program, *lines, **streams):
        """What a person sees who types these lines, and then Ctrl-D."""
        process = self.terminal(program, stdin=subprocess.PIPE, stdout=subprocess.PIPE, **streams)
        out = process.communicate(''.join([line + '\n' for line in lines]))[0]
        self.assertEqual(process.returncode, 0)
        return out


class AttachTest(TestCase):

    def test_again_and_again_while_it_works(self):
        program = self.run_unaware(WORK, self.flag)
        line = program.line('# work')
        for turn in range(3):
            out = self.typed(program, 'break %s:%d' % (program.path, line), 'c', 'args', 'where',
                             'turn + 1 - turn', 'clear')
            self.assertEqual(out[:len(BEGINNING % program.pid)], BEGINNING % program.pid)
            self.assert_in('\n> %s(%d)step()\n' % (program.path, line), out)
            self.assert_in(PROMPT + '1\n', out)
            self.assertEqual(out[-len('\nDetached: the program runs on.\n'):],
                             '\nDetached: the program runs on.\n')
        os.unlink(self.flag)
        self.assertEqual(program.ended(), ('ready\nover 1\n', 0))

    def test_characters_are_those_of_the_persons_terminal(self):
        program = self.run_unaware(WORK, self.flag)
        out = self.typed(program, 'p u"\xe9"', 'def f(): raise ValueError(u"\xe9")', '', 'p f()',
                         variables={'PYTHONIOENCODING': 'latin-1'})
        self.assert_in(PROMPT + "u'\\xe9'\n", out)
        self.assert_in('*** ValueError: \xe9\n', out)
        os.unlink(self.flag)
        self.assertEqual(program.ended(), ('ready\nover 1\n', 0))

    def test_quitting_leaves_the_program(self):
        program = self.run_unaware(WORK, self.flag)
        self.assert_in('Detached: the program runs on.', self.typed(program, 'quit'))
        os.unlink(self.flag)
        self.assertEqual(program.ended(), ('ready\nover 1\n', 0))

    def test_terminals_and_editors_take_turns(self):
        program = self.run_unaware(WORK, self.flag)
        self.typed(program, 'next')
        adapter = self.attach_to(program, '# work')
        adapter.stopped()
        process = self.terminal(program, stdin=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual(process.communicate()[1].splitlines()[0],
                         'sorrel: somebody debugs this program already')
        self.leave(adapter)
        self.assert_in(PROMPT, self.typed(program, 'next'))
        os.unlink(self.flag)
        self.assertEqual(program.ended(), ('ready\nover 1\n', 0))

    def test_the_end_of_the_program_is_told(self):
        program = self.run_unaware(WORK, self.flag)
        out = self.typed(program, 'import os; os.unlink(%r)' % self.flag, 'c')
        self.assertEqual(out[-len(PROMPT + 'The program ends.\n'):], PROMPT + 'The program ends.\n')
        self.assertEqual(program.ended(), ('ready\nover 1\n', 0))

    def test_who_is_killed_at_the_prompt_leaves_the_program(self):
        program = self.run_unaware(WORK, self.flag)
        process = self.terminal(program, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        seen = ''
        while PROMPT not in seen:
            seen += os.read(process.stdout.fileno(), 1000)
        process.kill()
        process.wait()
        os.unlink(self.flag)
        self.assertEqual(program.ended(), ('ready\nover 1\n', 0))


class StartFilesTest(TestCase):

    def test_those_of_the_person_are_carried_out(self):
        for name, line in ('home/.sorrelrc', 'print 2 * 3'), ('.sorrelrc', 'print "not read"'):
            self.script(line + '\nno_command\n', name)
        program = self.run_unaware(WORK, self.flag)
        out = self.typed(program, 'print 5')
        self.assert_in('6\n*** ~/.sorrelrc:2: No such command: no_command', out)
        self.assert_(PROMPT + 'not read' not in out, out)
        os.unlink(self.flag)
        program.ended()

    def test_one_that_others_may_write_is_not(self):
        self.here = os.path.join(self.persons_folder, 'here')
        os.mkdir(self.here)
        os.chmod(self.script('print "read"\n', 'home/here/.sorrelrc'), 0666)
        program = self.run_unaware(WORK, self.flag)
        out = self.typed(program, 'print 5')
        self.assert_in('*** Not read, since others may write it: %s/.sorrelrc\n' % self.here, out)
        self.assert_(PROMPT + 'read' not in out, out)
        os.unlink(self.flag)
        program.ended()


class OwnCodeTest(TestCase):

    options = ['--just-my-code']

    def test_steps_go_through_libraries(self):
        program = self.run_unaware('''
import os, sys, textwrap
print 'ready'
sys.stdout.flush()
def turn():
    textwrap.dedent('  a')  # dedent
    return 1
while os.path.exists(sys.argv[1]):
    turn()
''', self.flag)
        out = self.typed(program, 'break %s:%d' % (program.path, program.line('# dedent')),
                         'c', 'step', 'clear 1')
        self.assert_in('> %s(%d)turn()\n-> return 1\n' % (
            program.path, program.line('# dedent') + 1), out)
        os.unlink(self.flag)
        self.assertEqual(program.ended(), ('ready\n', 0))


class CtrlCTest(TestCase):

    def setUp(self):
        TestCase.setUp(self)
        self.master, slave = pty.openpty()
        self.program = self.run_unaware('''
import os, sys, time
print 'ready'
while os.path.exists(sys.argv[1]):
    time.sleep(0.01)
print 'over'
''', self.flag)
        os.environ['TERM'] = 'dumb'
        name = os.ttyname(slave)

        def take_terminal():
            os.setsid()
            os.close(os.open(name, os.O_RDWR))
        self.process = self.terminal(self.program, stdin=slave, stdout=slave, stderr=slave,
                                     preexec_fn=take_terminal)
        os.close(slave)
        self.seen = ''
        self.sees(PROMPT)

    def tearDown(self):
        os.close(self.master)
        TestCase.tearDown(self)

    def sees(self, text):
        """Waits until this is on the terminal; forgets what is before it."""
        end = time.time() + 60
        while text not in self.seen:
            if not select.select([self.master], [], [], max(0, end - time.time()))[0]:
                self.fail('no %r in %r' % (text, self.seen))
            self.seen += os.read(self.master, 1000)
        self.seen = self.seen.partition(text)[2]

    def types(self, line):
        os.write(self.master, line + '\n')

    def ctrl_c(self):
        """As it is typed: the terminal drops what it has not given to anybody yet."""
        time.sleep(0.3)
        os.write(self.master, '\x03')

    def need_editing(self):
        try:
            import readline
        except ImportError:
            self.skip('edits lines, which takes a host with readline')

    def test_breaks_into_the_program_again(self):
        self.types('c')
        self.ctrl_c()
        self.sees(PROMPT)
        self.types('print 1 + 1')
        self.sees('2\r\n' + PROMPT)
        self.types('quit')
        self.sees('Detached')
        self.assertEqual(self.process.wait(), 0)
        os.unlink(self.flag)
        self.assertEqual(self.program.ended(), ('ready\nover\n', 0))

    def test_ends_what_is_evaluated(self):
        self.types('while True: pass')
        self.ctrl_c()
        self.sees('--KeyboardInterrupt--')
        self.sees(PROMPT)
        self.types('quit')
        self.sees('Detached')
        os.unlink(self.flag)
        self.assertEqual(self.program.ended(), ('ready\nover\n', 0))

    def test_drops_a_line(self):
        os.write(self.master, 'quit')
        self.ctrl_c()
        self.sees('--KeyboardInterrupt--')
        self.sees(PROMPT)
        self.types('print 2 + 3')
        self.sees('5\r\n' + PROMPT)

    def test_words_are_completed_by_what_the_program_has(self):
        self.need_editing()
        os.write(self.master, 'print time.tzn\t\n')
        self.sees('print time.tzname')
        self.sees("')\r\n" + PROMPT)
        os.write(self.master, '  und\t\n')
        self.sees('  undisplay')
        self.types('class Slow(object): x = property(lambda self: list(iter(int, 1)))')
        self.types('')
        self.types('slow = Slow()')
        self.sees('slow = Slow()')
        self.sees(PROMPT)
        os.write(self.master, 'slow.x.y\t')
        self.sees('slow.x.y')
        self.ctrl_c()
        os.write(self.master, '\nprint 6 * 7\n')
        self.sees('42\r\n' + PROMPT)

    def test_lines_are_remembered_by_who_has_typed_them(self):
        self.need_editing()
        self.types('print 3 + 4')
        self.sees('7\r\n' + PROMPT)
        os.write(self.master, '\x10\n')  # Control-P: the line before.
        self.sees('7\r\n' + PROMPT)
        self.assertEqual(open(os.path.join(self.persons_folder, '.sorrel_history')).read(),
                         'print 3 + 4\n')
