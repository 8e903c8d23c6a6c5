"""The end of a program in the terminal: its exit functions, and what an exception has left."""

import signal
import subprocess

import sorrel_session

DYING = '''\
import atexit, sys
def withdraw(amount):
    kept = [amount]
    return {}[amount]
def main():
    where = 'main'
    withdraw(5)
def bye():
    print 'bye'
atexit.register(bye)
main()
'''
AT_EXIT = '''\
import atexit, sys
def first():
    print 'first'
def failing(name):
    {}[name]
atexit.register(first)
atexit.register(failing, 'k')
sys.exit(3)
'''


class TestCase(sorrel_session.TestCase):

    def answers(self, program, *commands):
        """What follows each command; leaves err and status."""
        self.script(program, 'prog.py')
        process = self.popen(['-m', 'sorrel.main', 'terminal', '--post-mortem', '--', 'prog.py'],
                             stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        out, self.err, self.status = self.finish(
            process, ''.join([command + '\n' for command in commands]))
        return out.split(sorrel_session.PROMPT)[1:]


class PostMortem(TestCase):

    def test_what_has_ended_the_program_can_be_looked_at(self):
        answers = self.answers(
            DYING, 'catch never', 'c', 'p kept', 'up', 'p where', 'where', 'kept = 1', 'list 6 6',
            'sys.exc_info()[1] is __exception__[1]', 'p __exception__[1]', 'c')
        self.assertEqual(answers[1].split('\n', 1)[1], '''\
--Post-mortem: the program has ended--
KeyError: 5
> prog.py(4)withdraw()
-> return {}[amount]
''')
        self.assertEqual(answers[2], '[5]\n')
        self.assertEqual(answers[4], "'main'\n")
        self.assertEqual(answers[5], '''\
  prog.py(11)<module>()
-> main()
> prog.py(7)main()
-> withdraw(5)
  prog.py(4)withdraw()
-> return {}[amount]
''')
        self.assertEqual(answers[7], "  6    \t    where = 'main'\n")
        self.assertEqual(answers[8], 'True\n')
        self.assertEqual(answers[9], 'KeyError(5,)\n')
        self.assertEqual(answers[10], 'bye\nThe program ended with an uncaught KeyError.\n')
        self.assert_in('in withdraw\n    return {}[amount]\nKeyError: 5\n', self.err)
        self.assertEqual(self.status, 1)

    def test_steps_are_the_end_but_breakpoints_in_exit_functions_stop(self):
        for command in 'n', 's', 'r', 'unt':
            answers = self.answers(DYING, 'catch never', 'c', 'raise 5', 'b 9', command, 'c')
            self.assertEqual(answers[2], '*** The program has ended\n')
            self.assertEqual(answers[4], "> prog.py(9)bye()\n-> print 'bye'\n")
            self.assertEqual(answers[5], 'bye\nThe program ended with an uncaught KeyError.\n')

    def test_code_that_is_evaluated_stops_nowhere(self):
        answers = self.answers(DYING, 'catch never', 'c', 'b 9', 'bye()', 'withdraw(6)', 'c', 'c')
        self.assertEqual(answers[3], 'bye\n')
        self.assertEqual(answers[4], '*** KeyError: 6\n')
        self.assertEqual(answers[5], "> prog.py(9)bye()\n-> print 'bye'\n")

    def test_quitting_has_the_status_that_there_would_have_been(self):
        answers = self.answers(DYING, 'catch never', 'c', 'q')
        self.assertEqual((answers[2], self.status), ('', 1))

    def test_end_of_input_is_the_end(self):
        answers = self.answers(DYING, 'catch never', 'c')
        self.assertEqual(answers[2], '\nbye\n')
        self.assertEqual(self.status, 1)

    def test_a_program_that_was_let_go_stops_all_the_same(self):
        answers = self.answers(DYING)
        self.assert_in('Detached', answers[0])
        self.assert_in('--Post-mortem: the program has ended--\nKeyError: 5\n', answers[0])
        self.assertEqual((answers[1], self.status), ('\nbye\n', 1))

    def test_an_exception_that_was_a_stop_is_no_other_one(self):
        answers = self.answers(DYING, 'c', 'c')
        self.assert_in('--Unhandled exception--', answers[0])
        self.assert_not_in('Post-mortem', answers[1])
        # The same where that was the last of the debugger.
        answers = self.answers(DYING, 'c')
        self.assert_not_in('Post-mortem', answers[1])
        # And at a step.
        answers = self.answers(DYING, 'catch never', 'b 4', 'c', 's', 'c')
        self.assert_in('KeyError: 5\n> prog.py(4)withdraw()', answers[3])
        self.assert_not_in('Post-mortem', answers[4])

    def test_other_ends_are_no_stop(self):
        for program, status in (('pass\n', 0), ('raise SystemExit(4)\n', 4), ('x = = 1\n', 1),
                                ('import os\nif not os.fork(): {}[1]\nos.wait()\n', 0)):
            self.answers(program, 'catch never', 'c', 'c')
            self.assertEqual(self.status, status)
            self.assert_not_in('Post-mortem', self.err)

    def test_without_the_option_the_program_ends(self):
        out, _, status = self.debug(DYING, ['catch never', 'c'])
        self.assert_not_in('Post-mortem', out)
        self.assertEqual(status, 1)

    def test_other_threads_wait_meanwhile(self):
        answers = self.answers('''\
import threading, time
turns = 0
def work():
    global turns
    while not is_over:
        turns += 1
        time.sleep(0.001)
is_over = False
threading.Thread(target=work, name='worker').start()
while turns < 2:
    time.sleep(0.001)
{}[1]
''', 'catch never', 'c', 'before = turns', 'time.sleep(0.1); turns - before < 3', 'threads',
                               'thread 2', 'p is_over', 'thread', 'is_over = True', 'c')
        self.assertEqual(answers[3], 'True\n')
        self.assert_in('* 1  MainThread  stopped  prog.py(12)<module>()\n', answers[4])
        self.assert_in('2  worker  running', answers[4])
        self.assertEqual(answers[6], 'False\n')
        self.assertEqual(answers[9], 'The program ended with an uncaught KeyError.\n')

    def test_ctrl_c_ends_what_is_evaluated_there(self):
        self.script(DYING, 'prog.py')
        process = self.popen(
            ['-u', '-m', 'sorrel.main', 'terminal', '--post-mortem', '--', 'prog.py'],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        process.stdin.write("catch never\nc\nimport os\nwhile True: written = os.write(1, '#')\n"
                            "p kept\nc\n")
        process.stdin.flush()
        while process.stdout.read(1) != '#':
            pass
        process.send_signal(signal.SIGINT)
        out, _, status = self.finish(process, '')
        self.assert_in('*** KeyboardInterrupt\n', out)
        self.assert_in('[5]\n', out)
        self.assertEqual(status, 1)


class ExitFunctions(TestCase):

    def test_an_exception_in_an_exit_function_stops(self):
        for mode in 'unhandled', 'printed':
            answers = self.answers(AT_EXIT, 'catch ' + mode, 'c', 'p name', 'up', 'c')
            self.assertEqual(answers[1], '''\
--Unhandled exception--
KeyError: 'k'
> prog.py(5)failing()
-> {}[name]
''')
            self.assertEqual(answers[2], "'k'\n")
            self.assertEqual(answers[4], 'first\nThe program ended with exit status 3.\n')
            self.assertEqual(self.status, 3)

    def test_the_modes_without_it_do_not_stop(self):
        for command in 'catch never', 'catch never KeyError':
            answers = self.answers(AT_EXIT, command, 'c')
            self.assertEqual(answers[1], 'first\nThe program ended with exit status 3.\n')

    def test_one_that_exits_does_not_stop(self):
        answers = self.answers('''\
import atexit, sys
atexit.register(sys.exit, 4)
''', 'c')
        self.assertEqual(len(answers), 1)
