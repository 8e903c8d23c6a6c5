"""Where the prompt is when the program's streams lead elsewhere, and at a terminal that is named."""

import fcntl
import os
import pty
import select
import time

import harness
import sorrel_session
from sorrel_session import PATIENCE, PROMPT

PROGRAM = '''\
import sys
sys.stderr.write('an error\\n')
print 'read', repr(sys.stdin.readline())
x = 1
'''
NOTE = '''\
Commands are read from the standard input. With --tty /dev/tty the prompt is at the
terminal, and the standard input is the program's alone.
'''


class Redirected(sorrel_session.ScreenTestCase):

    def begin_by(self, shell, *commands, **how):
        return self.begin(PROGRAM, shell=shell, *commands, **how)

    def text(self, name):
        return open(os.path.join(self.folder, name)).read()

    def test_answers_come_to_the_terminal_where_the_output_goes_to_a_file(self):
        seen = self.begin_by('"$@" > out', 'n', 'p 6 * 7', '!print "by hand"')
        self.assertEqual(seen, [
            "n\n> prog.py(2)<module>()\n-> sys.stderr.write('an error\\n')\n(sorrel) ",
            'p 6 * 7\n42\n(sorrel) ', '!print "by hand"\n(sorrel) '])
        self.screen.type('c\n')
        self.screen.read_to('an error\r\n')
        self.screen.type('typed\n')
        self.assertEqual(self.screen.read_all(),
                         ('typed\nThe program ended with exit status 0.\n', 0))
        self.assertEqual(self.text('out'), "by hand\nread 'typed\\n'\n")

    def test_answers_come_to_the_terminal_where_the_output_goes_to_a_pipe(self):
        self.begin_by('"$@" | cat > out')
        self.screen.type('c\n')
        self.screen.read_to('an error\r\n')
        self.screen.type('typed\n')
        self.assertEqual(self.screen.read_all(),
                         ('typed\nThe program ended with exit status 0.\n', 0))
        self.assertEqual(self.text('out'), "read 'typed\\n'\n")

    def test_answers_are_at_the_terminal_where_the_errors_go_to_a_file(self):
        self.begin_by('"$@" 2> err')
        self.screen.type('c\ntyped\n')
        self.screen.read_to("read 'typed\\n'\r\n")
        self.assertEqual(self.screen.read_all(), ('The program ended with exit status 0.\n', 0))
        self.assert_in('an error\n', self.text('err'))

    def test_forked_processes_have_turns_where_the_output_goes_to_a_file(self):
        self.begin('''\
import os
pid = os.fork()
if pid == 0:
    print 'child'
    os._exit(0)
os.waitpid(pid, 0)
''', 'n', 'follow', shell='"$@" > out')
        self.screen.type('b 4\n')
        self.prompt()
        self.screen.type('c\n')
        self.screen.read_to("-> print 'child'\r\n" + PROMPT)
        self.assertEqual(self.end('c'), ('c\nThe program ended with exit status 0.\n', 0))

    def test_commands_are_read_from_a_file_and_said_to_be(self):
        self.script('n\nc\ndata\n', 'commands')
        self.script(PROGRAM, 'prog.py')
        self.screen = sorrel_session.Screen(self, 'prog.py', shell='"$@" < commands')
        self.assertEqual(self.screen.read_all(), (NOTE + '''\
> prog.py(1)<module>()
-> import sys
(sorrel) > prog.py(2)<module>()
-> sys.stderr.write('an error\\n')
(sorrel) an error
read 'data\\n'
The program ended with exit status 0.
''', 0))

    def test_commands_from_a_file_are_answered_where_the_output_goes(self):
        self.script('c\ndata\n', 'commands')
        self.script(PROGRAM, 'prog.py')
        self.screen = sorrel_session.Screen(self, 'prog.py', shell='"$@" < commands > out')
        self.assertEqual(self.screen.read_all(), ('an error\n', 0))
        self.assertEqual(self.clean(self.text('out')), '''\
> prog.py(1)<module>()
-> import sys
(sorrel) read 'data\\n'
The program ended with exit status 0.
''')

    def test_a_program_has_its_data_where_the_terminal_is_named(self):
        self.script('data\n', 'data')
        seen = self.begin_by('"$@" < data > out', 'n', options=['--tty', '/dev/tty'])
        self.assert_in('-> sys.stderr.write', seen[0])
        self.assertEqual(self.end('c'),
                         ('c\nan error\nThe program ended with exit status 0.\n', 0))
        self.assertEqual(self.text('out'), "read 'data\\n'\n")

    def test_a_terminal_whose_name_is_not_known(self):
        self.script('''\
import os, sys
def refuse(number):
    raise OSError(19, 'No such device')
os.ttyname = refuse
from sorrel import main
sys.exit(main.main(['terminal', 'prog.py']))
''', 'start.py')
        self.begin('x = 1\n', shell='"$1" start.py > out')
        self.assertEqual(self.type('p 6 * 7'), 'p 6 * 7\n42\n(sorrel) ')

    def test_a_program_that_stops_by_itself_has_the_prompt_at_the_terminal(self):
        self.begin("import sorrel\nsorrel.set_trace()\nprint 'on'\n", shell='"$1" prog.py > out')
        self.assertEqual(self.type('p 6 * 7'), 'p 6 * 7\n42\n(sorrel) ')
        self.assertEqual(self.end('c'), ('c\n', 0))
        self.assertEqual(self.text('out'), 'on\n')


class Window(object):
    """Another terminal, which nothing runs in."""

    def __init__(self, test):
        self._test = test
        self._open = list(pty.openpty())
        for number in self._open:
            fcntl.fcntl(number, fcntl.F_SETFD, fcntl.FD_CLOEXEC)
        self._master, slave = self._open
        self.name = os.ttyname(slave)

    def type(self, text):
        os.write(self._master, text)

    def read_to(self, text):
        seen = ''
        deadline = time.time() + PATIENCE
        while not seen.endswith(text):
            if not select.select([self._master], [], [], max(0, deadline - time.time()))[0]:
                self._test.fail('waited for %r, saw %r' % (text, seen))
            seen += os.read(self._master, 1)
        return self._test.clean(seen)

    def close(self):
        while self._open:
            os.close(self._open.pop())


class InAnotherWindow(sorrel_session.ScreenTestCase):

    def setUp(self):
        sorrel_session.ScreenTestCase.setUp(self)
        self.window = Window(self)

    def tearDown(self):
        self.window.close()
        sorrel_session.ScreenTestCase.tearDown(self)

    def open(self, text, **how):
        self.script(text, 'prog.py')
        self.screen = sorrel_session.Screen(
            self, 'prog.py', options=['--tty', self.window.name], **how)
        return self.window.read_to(PROMPT)

    def type_there(self, command):
        self.window.type(command + '\n')
        return self.window.read_to(PROMPT)

    def test_the_prompt_is_there_and_the_program_here(self):
        self.assertEqual(self.open(PROGRAM), '> prog.py(1)<module>()\n-> import sys\n(sorrel) ')
        self.assertEqual(self.type_there('p 6 * 7'), 'p 6 * 7\n42\n(sorrel) ')
        self.window.type('c\n')
        self.screen.type('typed\n')
        seen, status = self.screen.read_all()
        self.assertEqual(sorted(seen.splitlines()), ['an error', "read 'typed\\n'", 'typed'])
        self.assertEqual(status, 0)
        self.window.read_to('The program ended with exit status 0.\r\n')

    def test_lines_are_edited_there(self):
        try:
            import readline
        except ImportError:
            self.skip('edits lines, which takes a host with readline')
        self.open('x = 1\n')
        self.window.type('p 13\x02\x082\n')  # Left, backspace.
        self.window.read_to('\n23\r\n' + PROMPT)

    def test_ctrl_c_comes_from_the_programs_terminal(self):
        self.open('''\
print 'running'
while True:
    pass
''')
        self.screen.interrupt_prompt()
        self.window.read_to('\n--KeyboardInterrupt--\r\n' + PROMPT)
        self.window.type('c\n')
        self.screen.read_to('running\r\n')
        self.screen.interrupt()
        self.window.read_to('--Interrupted--\r\n')
        self.window.read_to(PROMPT)
        self.window.type('q\n')
        self.assertEqual(self.screen.read_all()[1], 0)

    def test_processes_have_turns_there(self):
        harness.need_interpreter_alone(self)
        self.script('y = 2\n', 'other.py')
        self.open('''\
import os, subprocess, sys
pid = os.fork()
if pid == 0:
    os._exit(0)
os.waitpid(pid, 0)
subprocess.call([sys.executable, 'other.py'])
''')
        self.type_there('b 4')
        self.type_there('b other.py:1')
        self.window.type('c\n')
        self.window.read_to('-> os._exit(0)\r\n' + PROMPT)
        self.window.type('c\n')
        self.window.read_to('-> y = 2\r\n' + PROMPT)
        self.window.type('c\n')
        self.window.read_to('The program ended with exit status 0.\r\n')
        self.assertEqual(self.screen.read_all(), ('', 0))

    def test_the_prompt_is_there_again_when_the_program_is_run_again(self):
        self.open('x = 1\n')
        self.assertEqual(self.type_there('run'), '''\
run
Running the program again.
> prog.py(1)<module>()
-> x = 1
(sorrel) ''')

    def test_the_end_of_the_window_lets_the_program_run_on(self):
        self.open("print 'on'\n")
        self.window.close()
        self.assertEqual(self.screen.read_all(), ('on\n', 0))


class WrongTerminals(sorrel_session.TestCase):

    def assert_refused(self, complaint, *words):
        self.script("print 'ran'\n", 'prog.py')
        for start in ['-m', 'sorrel.main', 'terminal'], ['-m', 'sorrel.__main__']:
            self.assertEqual(self.call(*start + list(words) + ['prog.py']),
                             ('', 'sorrel: %s\n' % complaint, 2))

    def test_what_cannot_be_opened(self):
        self.assert_refused('cannot open the terminal nowhere: No such file or directory',
                            '--tty', 'nowhere')

    def test_what_is_no_terminal(self):
        self.assert_refused('/dev/null is no terminal', '--tty', '/dev/null')
        self.assert_refused('data is no terminal', '--tty', self.clean(self.script('1', 'data')))
        self.assert_refused('cannot open the terminal .: Is a directory', '--tty', '.')

    def test_a_terminal_is_for_the_one_who_sits_there(self):
        self.assertEqual(
            self.call('-m', 'sorrel.__main__', '--listen', '0', '--tty', '/dev/tty', 'prog.py'),
            ('', 'sorrel: --tty and --listen do not go together\n', 2))
