"""The program again from its start, with what was said at the prompt."""

import os

import sorrel_session

PROGRAM = '''\
import os, signal, sys
def f(n):
    total = n + 1
    return total

os.chdir('/')
os.environ['CHANGED'] = 'yes'
opened = open('/dev/null')
signal.signal(signal.SIGUSR1, signal.SIG_IGN)
print f(1), sys.argv[1:], os.environ.get('HERE')
'''
AGAIN = 'Running the program again.\n> prog.py(1)<module>()\n-> import os, signal, sys\n'


class TestCase(sorrel_session.TestCase):

    def persons_environment(self):
        temporary = os.path.join(self.folder, 'temporary')
        if not os.path.isdir(temporary):
            os.mkdir(temporary)
        return dict(sorrel_session.TestCase.persons_environment(self),
                    TMPDIR=temporary, HERE='there')

    def answers(self, text, commands, args=()):
        """What is seen after each of the commands."""
        out, err, self.status = self.debug(text, commands, args)
        self.assertEqual(err, '')
        self.assertEqual(os.listdir(os.path.join(self.folder, 'temporary')), [])
        return out.split(sorrel_session.PROMPT)[1:]


class KeptTest(TestCase):

    def test_what_was_said_is_kept(self):
        answers = self.answers(PROGRAM, [
            'break 3, n == 1', 'alias pn p n', 'c', 'display total', 'catch always KeyError',
            'restart', 'b', 'alias', 'catch', 'c', 'pn', 'n', 'run', 'c', 'c'], ['one', 'two'])
        self.assertEqual(answers[5], AGAIN)
        self.assertEqual(answers[6], 'Num Type         Disp Enb   Where\n'
                         '1   breakpoint   keep yes   at prog.py:3\n\tstop only if n == 1\n')
        self.assertEqual(answers[7], 'pn = p n\n')
        self.assert_in('Always at: KeyError\n', answers[8])
        shown = "display total: ** raised NameError: name 'total' is not defined **\n"
        self.assertEqual(answers[9], '> prog.py(3)f()\n-> total = n + 1\n' + shown)
        self.assertEqual(answers[10], '1\n')
        self.assert_in('-> return total\ndisplay total: 2  [old: ** raised ', answers[11])
        self.assertEqual(answers[12], AGAIN)
        self.assertEqual(answers[14], "2 ['one', 'two'] there\n"
                         'The program ended with exit status 0.\n')

    def test_breakpoints_of_every_kind_are_kept_with_their_commands(self):
        self.script('def g():\n    return 3\n', 'beside.py')
        text = PROGRAM + 'import beside\nbeside.g()\nexec "def made(): pass"\nmade()\n'
        answers = self.answers(text, [
            'b beside.py:1', 'b nowhere.f', 'logpoint f, at {n}', 'b f', 'commands', 'silent',
            'alias_', 'end', 'alias alias_ p n;; p n + 1', 'b 14', 'c', 'c', 'c', 'b made', 'run',
            'b', 'commands;; p 7;; end', 'c', 'q'])
        self.assertEqual(answers[-4], '''\
Num Type         Disp Enb   Where
1   breakpoint   keep yes   at beside.py:1
2   breakpoint   keep yes   pending nowhere.f
3   logpoint     keep yes   at prog.py:3
\tlogs at {n}
4   breakpoint   keep yes   at prog.py:3
\tsilent
\talias_
5   breakpoint   keep yes   at prog.py:14
''')
        self.assert_in('\n*** No breakpoint any more at <string>:1\n', answers[-5])
        self.assertEqual(answers[-2], 'at 1\n1\n2\n')

    def test_what_the_program_did_to_its_process_is_not(self):
        answers = self.answers(PROGRAM, [
            'tbreak 10', 'c', 'p opened.fileno() > 2', 'p opened.fileno()', 'run', 'n',
            "p os.getcwd() != '/'", "p os.environ.get('CHANGED')",
            "p os.environ.get('SORREL_RESTART')",
            'p signal.getsignal(signal.SIGUSR1) == signal.SIG_DFL', 'tbreak 10', 'c',
            'p opened.fileno()', 'c'])
        self.assertEqual(answers[2], 'True\n')
        self.assertEqual(answers[6:10], ['True\n', 'None\n', 'None\n', 'True\n'])
        # None of its files is open any more.
        self.assert_(int(answers[12]) <= int(answers[3]), (answers[12], answers[3]))

    def test_input_for_the_program_is_not_lost(self):
        answers = self.answers('print raw_input()\nprint raw_input()\n', [
            'n', 'first', 'run', 'n', 'second', 'c', 'third'])
        self.assertEqual(answers[1], 'Running the program again.\n> prog.py(1)<module>()\n'
                         '-> print raw_input()\n')
        self.assertEqual(''.join(answers[2:]), '''\
second
> prog.py(2)<module>()
-> print raw_input()
third
The program ended with exit status 0.
''')


class ScreenTest(sorrel_session.ScreenTestCase):

    def test_on_a_terminal(self):
        self.begin('import os, time\nchild = os.fork()\nx = 1\nif not child:\n    time.sleep(60)\n',
                   'n', 'n')
        seen = self.type('run')
        self.assert_in('Running the program again.\n', seen)
        self.assertEqual(self.type('processes').count('stopped'), 1)
        self.assertEqual(self.end('quit')[1], 0)
        self.assertEqual(os.listdir(self.temporary), [])
