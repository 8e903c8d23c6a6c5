"""Sessions of the terminal front end over small programs, through pipes and pseudo-terminals."""

import os
import pty
import re
import select
import shutil
import signal
import subprocess
import time

import harness
from sorrel.processes import own_folders

PROMPT = '(sorrel) '
PATIENCE = 60


class TestCase(harness.TestCase):

    def start(self, program, args=(), **files):
        """Starts the terminal over a program in the test's folder."""
        return self.popen(['-m', 'sorrel.main', 'terminal', '--', program] + list(args), **files)

    def popen(self, arguments, **files):
        files.setdefault('env', self.persons_environment())
        return subprocess.Popen([harness.launcher()] + list(arguments), cwd=self.folder, **files)

    def persons_environment(self):
        """That of a person whose own files are in the test's folder."""
        return dict(os.environ, HOME=self.folder)

    def finish(self, process, text):
        """Feeds text to a process; returns (stdout, stderr, exit status)."""
        out, err = process.communicate(text)
        # What a debug build says at its end.
        err = re.sub(r'\[\d+ refs\]\n', '', err)
        return self.clean(out), self.clean(err), process.returncode

    def clean(self, text):
        return text.replace('\r\n', '\n').replace(self.folder + os.sep, '')

    def call(self, *arguments):
        """Runs the host to its end without input; returns (stdout, stderr, exit status)."""
        return self.finish(self.popen(arguments, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                      stderr=subprocess.PIPE), '')

    def call_alone(self, *arguments, **files):
        """The same for a program that does not know of the debugger; files: an `input`."""
        environment = dict(os.environ)
        own_folders.hide(environment)
        return self.finish(
            self.popen(arguments, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                       stderr=subprocess.PIPE, env=environment), files.get('input', ''))

    def debug(self, text, commands, args=()):
        """Debugs the text of a program with these commands; returns (stdout, stderr, status)."""
        self.script(text, 'prog.py')
        process = self.start('prog.py', args, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE)
        return self.finish(process, ''.join([command + '\n' for command in commands]))

    def transcript(self, text, commands, args=()):
        """What a person would have seen who typed the commands, down to the end of the output."""
        out, err, self.status = self.debug(text, commands, args)
        self.assertEqual(err, '')
        answers = out.split(PROMPT)
        seen = answers[0]
        for number, answer in enumerate(answers[1:]):
            typed = commands[number] if number < len(commands) else '^D'
            seen += PROMPT + typed + '\n' + answer
        return seen

    def assert_session(self, text, session):
        """Types what follows each prompt in the session, and sees just what is written there.

        The session is indented by four blanks; program lines are named by "prog.py(LINE)".
        """
        lines = session.splitlines()[1:-1]
        session = ''.join([line[4:] + '\n' for line in lines])
        commands = re.findall(r'^\(sorrel\) ?(.*)$', session, re.M)
        commands = [command for command in commands if command != '^D']
        seen = self.transcript(text, commands)
        if seen != session:
            self.fail('expected:\n%s\nseen:\n%s' % (session, seen))


class Screen(object):
    """A program of the terminal front end on a pseudo-terminal of its own."""

    def __init__(self, test, program, args=(), options=(), shell=None):
        """shell: what one does that gets the command for "$@"."""
        self._test = test
        # The launcher is named before the fork: after it there is only the exec.
        command = self.command(program, list(args), list(options))
        if shell is not None:
            command = ['/bin/sh', '-mc', shell, 'sh'] + command
        self._process, self._terminal = pty.fork()
        if self._process == 0:
            try:
                os.chdir(test.folder)
                os.environ['TERM'] = 'dumb'
                os.environ['HOME'] = test.folder
                os.execv(command[0], command)
            finally:
                os._exit(99)
        self._ended = False

    def command(self, program, args, options):
        return [harness.launcher(), '-m', 'sorrel.main', 'terminal'] + options + [
            '--', program] + args

    def type(self, text):
        os.write(self._terminal, text)

    def interrupt(self):
        self.type('\x03')

    def interrupt_prompt(self):
        """The same where it has just appeared: the interpreter notices no signal that comes between
        that and its waiting for what is typed."""
        self._wait_for_state('S')
        self.interrupt()

    def stop(self):
        """The program meets with nothing any more, until it is sent SIGCONT."""
        self.send(signal.SIGSTOP)
        self._wait_for_state('T')

    def _wait_for_state(self, state):
        deadline = time.time() + PATIENCE
        while open('/proc/%d/stat' % self._process).read().rpartition(')')[2].split()[0] != state \
                and time.time() < deadline:
            time.sleep(0.001)

    def send(self, number):
        """Sends the program a signal."""
        os.kill(self._process, number)

    def read_to(self, text):
        """Everything that appears up to and including this text."""
        seen = ''
        deadline = time.time() + PATIENCE
        while not seen.endswith(text):
            # One at a time: what comes after the text is for the next call.
            more = self._read(1, deadline)
            if not more:
                self._test.fail('waited for %r, saw %r' % (text, seen))
            seen += more
        return self._test.clean(seen)

    def _read(self, size, deadline):
        if not select.select([self._terminal], [], [], max(0, deadline - time.time()))[0]:
            return ''
        try:
            return os.read(self._terminal, size)
        except OSError:
            return ''  # How a pseudo-terminal says that nobody is left.

    def read_all(self):
        """Everything until the program has ended, and its exit status."""
        seen = ''
        deadline = time.time() + PATIENCE
        more = self._read(4096, deadline)
        while more:
            seen += more
            more = self._read(4096, deadline)
        if time.time() > deadline:
            self._test.fail('waited for the end, saw %r' % seen)
        status = os.waitpid(self._process, 0)[1]
        self._ended = True
        seen = re.sub(r'\[\d+ refs\]\r\n', '', seen)
        return self._test.clean(seen), os.WEXITSTATUS(status)

    def close(self):
        if not self._ended:
            os.kill(self._process, signal.SIGKILL)
            os.waitpid(self._process, 0)
        os.close(self._terminal)


class ScreenTestCase(TestCase):
    """What a person types at one Screen, `self.screen`, over the program in prog.py.

    self.temporary: its folder for temporary files.
    """

    def setUp(self):
        TestCase.setUp(self)
        self.screen = None
        self.temporary = os.path.join(self.folder, 'temporary')
        os.mkdir(self.temporary)
        self._place = os.environ.get('TMPDIR')
        os.environ['TMPDIR'] = self.temporary

    def tearDown(self):
        if self.screen is not None:
            self.screen.close()
        if self._place is None:
            del os.environ['TMPDIR']
        else:
            os.environ['TMPDIR'] = self._place
        # The last process to leave may be about to clear up there.
        self.assertTrue(harness.wait_until(self._has_no_temporary_files))
        TestCase.tearDown(self)

    def _has_no_temporary_files(self):
        shutil.rmtree(self.temporary, True)
        return not os.path.exists(self.temporary)

    def begin(self, text, *commands, **how):
        """What is seen after each of the commands. how: as a Screen has it."""
        self.script(text, 'prog.py')
        self.screen = Screen(self, 'prog.py', **how)
        self.prompt()
        return [self.type(command) for command in commands]

    def prompt(self):
        return self.screen.read_to(PROMPT)

    def type(self, command):
        self.screen.type(command + '\n')
        return self.prompt()

    def end(self, command):
        """All that is seen from the command on, and the exit status."""
        self.screen.type(command + '\n')
        return self.screen.read_all()

    def number(self, expression):
        return int(self.type('p ' + expression).split('\n')[1])

    def listed(self, count):
        """(mark, process id) of those that have stopped, once there are so many."""
        def found():
            lines = self.type('processes').split('\n')[1:-1]
            del stopped[:]
            stopped.extend(line.split('  ')[0].split(' ') if line.startswith('*')
                           else ['', line.split()[0]] for line in lines if 'stopped' in line)
            return len(stopped) == count
        stopped = []
        self.assertTrue(harness.wait_until(found))
        return stopped
