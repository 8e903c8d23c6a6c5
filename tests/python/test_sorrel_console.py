"""Sessions on a pseudo-terminal: line editing and Ctrl-C."""

import time

import sorrel_session

PROMPT = sorrel_session.PROMPT
ASKED = 'Detach, and let the program run on by itself? (y or n) '


class Screens(sorrel_session.TestCase):

    screen = None

    def open(self, text):
        self.script(text, 'prog.py')
        self.screen = sorrel_session.Screen(self, 'prog.py')
        return self.screen

    def tearDown(self):
        if self.screen is not None:
            self.screen.close()
        sorrel_session.TestCase.tearDown(self)

    def need_readline(self):
        try:
            import readline
        except ImportError:
            self.skip('edits lines, which takes a host with readline')

    def test_a_session(self):
        screen = self.open("x = 1\nprint 'x is', x\n")
        self.assertEqual(screen.read_to(PROMPT), '''\
> prog.py(1)<module>()
-> x = 1
(sorrel) ''')
        screen.type('n\n')
        self.assertEqual(screen.read_to(PROMPT), '''\
n
> prog.py(2)<module>()
-> print 'x is', x
(sorrel) ''')
        screen.type('c\n')
        self.assertEqual(screen.read_all(), ('''\
c
x is 1
The program ended with exit status 0.
''', 0))

    def test_lines_are_edited(self):
        self.need_readline()
        screen = self.open('x = 1\n')
        screen.read_to(PROMPT)
        screen.type('p 13\x02\x082\n')  # Left, backspace.
        screen.read_to('\n23\r\n' + PROMPT)
        screen.type('\x10\n')  # The line before.
        screen.read_to('\n23\r\n' + PROMPT)
        screen.type('c\n')
        self.assertEqual(screen.read_all()[1], 0)

    def test_commands_and_names_are_completed(self):
        self.need_readline()
        screen = self.open('mileage = 41\nx = 2\n')
        screen.read_to(PROMPT)
        screen.type('n\n')
        screen.read_to(PROMPT)
        screen.type('wha\t mil\t + 1\n')
        screen.read_to("<type 'int'>\r\n" + PROMPT)
        screen.type('p mileage.rea\t\n')
        screen.read_to('\n41\r\n' + PROMPT)
        screen.type('c\n')
        self.assertEqual(screen.read_all()[1], 0)

    def test_the_programs_own_completer_comes_back(self):
        self.need_readline()
        screen = self.open('''\
import readline
def complete(text, state):
    return None
readline.set_completer(complete)
x = 1
print readline.get_completer() is complete
''')
        screen.read_to(PROMPT)
        for _ in range(4):
            screen.type('n\n')
            screen.read_to(PROMPT)
        screen.type('n\n')
        screen.read_to('True\r\n')
        screen.read_to(PROMPT)
        screen.type('c\n')
        self.assertEqual(screen.read_all()[1], 0)

    def test_the_program_reads_from_the_same_terminal(self):
        screen = self.open("name = raw_input('name? ')\nprint 'hello', name\n")
        screen.read_to(PROMPT)
        screen.type('c\n')
        screen.read_to('name? ')
        screen.type('Ada\n')
        self.assertEqual(screen.read_all(),
                         ('Ada\nhello Ada\nThe program ended with exit status 0.\n', 0))

    def test_a_program_that_replaces_its_files_keeps_them(self):
        screen = self.open('''\
import StringIO, sys
sys.stdin = StringIO.StringIO('from the program')
sys.stdout = StringIO.StringIO()
print raw_input()
text = sys.stdout.getvalue()
''')
        for _ in range(5):
            screen.read_to(PROMPT)
            screen.type('n\n')
        screen.read_to(PROMPT)
        screen.type('p text\n')
        screen.read_to("'from the program\\n'\r\n" + PROMPT)
        screen.type('c\n')
        self.assertEqual(screen.read_all()[1], 0)

    def test_end_of_input_asks_before_it_detaches(self):
        screen = self.open("x = 1\nprint 'on'\n")
        screen.read_to(PROMPT)
        screen.type('\x04')
        self.assertEqual(screen.read_to(ASKED), '\n' + ASKED)
        screen.type('n\n')
        self.assertEqual(screen.read_to(PROMPT), 'n\n' + PROMPT)
        screen.type('\x04')
        screen.read_to(ASKED)
        screen.type('yes\n')
        self.assertEqual(screen.read_all(), ('yes\nDetached: the program runs on.\non\n', 0))

    def test_end_of_input_twice_detaches(self):
        screen = self.open("x = 1\nprint 'on'\n")
        screen.read_to(PROMPT)
        screen.type('\x04')
        screen.read_to(ASKED)
        screen.type('\x04')
        self.assertEqual(screen.read_all(), ('\nDetached: the program runs on.\non\n', 0))

    def test_detaching_by_a_command(self):
        screen = self.open("x = 1\nprint 'on'\n")
        screen.read_to(PROMPT)
        screen.type('detach\n')
        self.assertEqual(screen.read_all(), ('detach\nDetached: the program runs on.\non\n', 0))

    def test_ctrl_c_at_the_prompt_gives_a_new_prompt(self):
        screen = self.open('x = 1\n')
        screen.read_to(PROMPT)
        screen.type('p nonsense')
        screen.read_to('p nonsense')
        screen.interrupt_prompt()
        screen.read_to('\n--KeyboardInterrupt--\r\n' + PROMPT)
        screen.type('p 6 * 7\n')
        screen.read_to('\n42\r\n' + PROMPT)
        screen.type('c\n')
        self.assertEqual(screen.read_all()[1], 0)

    def test_ctrl_c_ends_an_expression(self):
        screen = self.open('import sys, time\nx = 1\n')
        screen.read_to(PROMPT)
        screen.type('n\n')
        screen.read_to(PROMPT)
        # Short sleeps: a signal that comes just before a long one would have to wait for its end.
        screen.type("p sys.stdout.write('going on' + chr(10)), sys.stdout.flush(),"
                    " [time.sleep(0.01) for i in range(6000)]\n")
        screen.read_to('6000)]\r\ngoing on\r\n')
        screen.interrupt()
        screen.read_to('*** KeyboardInterrupt\r\n' + PROMPT)
        screen.type('c\n')
        self.assertEqual(screen.read_all()[1], 0)

    def test_ctrl_c_breaks_into_the_running_program(self):
        screen = self.open('''\
going, said = True, False
while going:
    if not said:
        print 'running'
        said = True
print 'over'
''')
        screen.read_to(PROMPT)
        screen.type('c\n')
        screen.read_to('running\r\n')
        screen.interrupt()
        screen.read_to('--Interrupted--\r\n> ')
        screen.read_to(PROMPT)
        # It may have been amid its print.
        for _ in range(2):
            screen.type('next\n')
            screen.read_to(PROMPT)
        screen.type('said = False\n')
        screen.read_to(PROMPT)
        screen.type('c\n')
        screen.read_to('running\r\n')
        screen.interrupt()
        screen.read_to('--Interrupted--\r\n> ')
        screen.read_to(PROMPT)
        screen.type('going = False\n')
        screen.read_to(PROMPT)
        screen.type('c\n')
        self.assertEqual(screen.read_all(),
                         ('c\nover\nThe program ended with exit status 0.\n', 0))

    def test_ctrl_c_while_stepping_over_a_call_stops_inside_it(self):
        screen = self.open('''\
def spin():
    print 'spinning'
    while not over:
        pass

over = False
spin()
''')
        for command in 'n', 'n', 'n':
            screen.read_to(PROMPT)
            screen.type(command + '\n')
        screen.read_to('spinning\r\n')
        screen.interrupt()
        screen.read_to('--Interrupted--\r\n')
        screen.read_to('spin()\r\n')
        screen.read_to(PROMPT)
        screen.type('!globals().update(over=True)\n')
        screen.read_to(PROMPT)
        screen.type('r\n')
        screen.read_to('--Return--\r\n')
        screen.read_to(PROMPT)
        screen.type('c\n')
        self.assertEqual(screen.read_all()[1], 0)

    def test_ctrl_c_twice_ends_what_a_program_traces_itself(self):
        screen = self.open('''\
import sys
def run():
    try:
        print 'running'
        while True:
            pass
    except KeyboardInterrupt:
        print 'interrupted'
sys.settrace(lambda *args: None)
run()
''')
        screen.read_to(PROMPT)
        screen.type('c\n')
        screen.read_to('running\r\n')
        screen.interrupt()
        screen.read_to('^C')
        # Two at once would be one.
        time.sleep(0.5)
        screen.interrupt()
        self.assertEqual(screen.read_all(),
                         ('^Cinterrupted\nThe program ended with exit status 0.\n', 0))

    def test_a_program_with_its_own_handler_keeps_it(self):
        screen = self.open('''\
import signal, time
handled = []
def handle(number, frame):
    handled.append(number)
signal.signal(signal.SIGINT, handle)
print 'running'
while not handled:
    time.sleep(0.01)
print signal.getsignal(signal.SIGINT) is handle
''')
        screen.read_to(PROMPT)
        screen.type('c\n')
        screen.read_to('running\r\n')
        screen.interrupt()
        self.assertEqual(screen.read_all(),
                         ('^CTrue\nThe program ended with exit status 0.\n', 0))

    def test_a_program_sees_the_interpreters_handler_and_can_set_it_again(self):
        screen = self.open('''\
import signal, time
print signal.getsignal(signal.SIGINT) is signal.default_int_handler
print signal.signal(signal.SIGINT, signal.SIG_IGN) is signal.default_int_handler
print signal.getsignal(signal.SIGINT) == signal.SIG_IGN, signal.getsignal, signal.signal
print signal.signal(signal.SIGINT, signal.default_int_handler) == signal.SIG_IGN
print 'running'
while True:
    time.sleep(0.01)
''')
        screen.read_to(PROMPT)
        screen.type('c\n')
        self.assertEqual(screen.read_to('running\r\n'), '''\
c
True
True
True <built-in function getsignal> <built-in function signal>
True
running
''')
        screen.interrupt()
        self.assert_in('--Interrupted--\n', screen.read_to(PROMPT))
        screen.type('q\n')
        self.assertEqual(screen.read_all()[1], 0)

    def test_ctrl_c_after_detaching_is_what_it_is_alone(self):
        screen = self.open('''\
import time
try:
    print 'ready'
    time.sleep(20)
except KeyboardInterrupt:
    print 'interrupted'
''')
        screen.read_to(PROMPT)
        screen.type('detach\n')
        screen.read_to('ready\r\n')
        screen.interrupt()
        self.assertEqual(screen.read_all(), ('^Cinterrupted\n', 0))
