"""Programs that stop because they have said so, in the terminal and in clients."""

import os
import pty
import select

import public_case
from sorrel_session import PATIENCE, PROMPT

CTRL_D = '\x04'
LISTENING = '''\
import sorrel
sorrel.listen(('127.0.0.1', 0))
sorrel.wait_for_client()
'''


class TestCase(public_case.TestCase):

    def assert_session(self, text, *answers):
        """Pairs of what is typed at a prompt and what is written then, the first one by itself."""
        typed = ''.join([line + '\n' for line, _ in answers[1:]])
        out, err, status = self.run_to_end(text, typed)
        self.assertEqual((out.split(PROMPT), err, status),
                         ([answer for _, answer in answers], '', 0))


class TerminalTest(TestCase):

    def test_it_stops_at_the_next_line(self):
        for name in 'set_trace', 'breakpoint':
            self.assert_session('''\
import sorrel
def double(number):
    sorrel.%s()
    result = number * 2
    return result
print double(21)
''' % name, ('', '> prog.py(4)double()\n-> result = number * 2\n'),
                ('args', 'number = 21\n'),
                ('next', '> prog.py(5)double()\n-> return result\n'),
                ('print result', '42\n'),
                ('up', '> prog.py(6)<module>()\n-> print double(21)\n'),
                ('continue', '42\n'))

    def test_it_stops_again_and_again(self):
        self.assert_session('''\
import sorrel
for i in range(2):
    sorrel.set_trace()
    sorrel.breakpoint()
    print i
''', ('', '> prog.py(4)<module>()\n-> sorrel.breakpoint()\n'),
            ('continue', '> prog.py(5)<module>()\n-> print i\n'),
            ('continue', '0\n> prog.py(4)<module>()\n-> sorrel.breakpoint()\n'),
            ('next', '> prog.py(5)<module>()\n-> print i\n'),
            ('continue', '1\n'))

    def test_the_last_line_of_a_function(self):
        self.assert_session('''\
import sorrel
def work():
    value = 3
    sorrel.breakpoint()
work()
print 'over'
''', ('', '> prog.py(4)work()\n-> sorrel.breakpoint()\n'),
            ('print value', '3\n'),
            ('next', '> prog.py(6)<module>()\n-> print \'over\'\n'),
            ('continue', 'over\n'))

    def test_end_of_input_lets_the_program_run_until_it_stops_again(self):
        """Each time in a new terminal, for which there is no input any more."""
        out, err, status = self.run_to_end('''\
import sorrel, sys
for i in range(2):
    sorrel.set_trace()
    print sys.gettrace() is not None
''')
        stop = '> prog.py(4)<module>()\n-> print sys.gettrace() is not None\n' + PROMPT
        self.assertEqual((out, err, status), (
            (stop + '\nDetached: the program runs on.\nFalse\n') * 2, '', 0))

    def test_in_other_threads(self):
        self.assert_session('''\
import sorrel, thread, threading, time
def work(who):
    sorrel.breakpoint()
    print who
    done.append(who)
done = []
one = threading.Thread(target=work, args=('one',), name='worker')
one.start()
one.join()
thread.start_new_thread(work, ('two',))
while len(done) < 2:
    time.sleep(0.01)
print done
''', ('', '> prog.py(4)work()\n-> print who\n'),
            ('continue', 'one\n[work]\n> prog.py(4)work()\n-> print who\n'),
            ('continue', "two\n['one', 'two']\n"))

    def test_several_threads_at_once(self):
        out, err, status = self.run_to_end('''\
import sorrel, threading
def work(number):
    sorrel.breakpoint()
    lock.acquire()
    done.append(number)
    lock.release()
done, lock = [], threading.Lock()
threads = [threading.Thread(target=work, args=(number,)) for number in range(5)]
[one.start() for one in threads]
[one.join() for one in threads]
print sorted(done)
''', 'continue\n' * 5)
        self.assertEqual((out.count(PROMPT), out.count('-> lock.acquire()\n'), err, status),
                         (5, 5, '', 0))
        self.assert_in('[0, 1, 2, 3, 4]\n', out)

    def test_what_the_program_makes_of_its_streams(self):
        out, err, status = self.run_to_end('''\
import sorrel, sys, StringIO
sys.stdin = sys.stdout = StringIO.StringIO()
sorrel.set_trace()
sys.stdout = sys.__stdout__
''', 'continue\n')
        self.assertEqual((out, err, status), (
            '> prog.py(4)<module>()\n-> sys.stdout = sys.__stdout__\n' + PROMPT, '', 0))

    def test_without_streams_the_program_runs_on(self):
        for closed in 'stdin', 'stdout':
            out, err, status = self.run_to_end('''\
import sorrel, sys
sys.%s.close()
for turn in range(2):
    sorrel.set_trace()
    sys.stderr.write('%%d %%s\\n' %% (turn, sys.gettrace()))
''' % closed, 'continue\n')
            self.assertEqual((err, status), ('0 None\n1 None\n', 0))

    def test_breakpoints_and_uncaught_exceptions_stop_from_then_on(self):
        self.assert_session('''\
import sorrel
def work():
    print 'works'
    raise KeyError('x')
sorrel.set_trace()
try:
    work()
except KeyError:
    pass
try:
    print 'more'
finally:
    work()
''', ('', '> prog.py(6)<module>()\n-> try:\n'),
            ('break work', 'Breakpoint 1 at prog.py:3\n'),
            ('continue', '> prog.py(3)work()\n-> print \'works\'\n'),
            ('continue', 'works\nmore\n> prog.py(3)work()\n-> print \'works\'\n'),
            ('quit', ''))

    def test_a_program_that_is_run_in_the_terminal(self):
        path = self.script('''\
import sorrel
value = 1
sorrel.breakpoint()
sorrel.set_trace()
print value
''', 'other.py')
        out, err, status = self.run_to_end('''\
import sys
from sorrel import main
sys.exit(main.main(['terminal', '--', %r]))
''' % path, 'continue\n' * 3)
        self.assertEqual(out, '''\
> other.py(1)<module>()
-> import sorrel
(sorrel) > other.py(4)<module>()
-> sorrel.set_trace()
(sorrel) > other.py(5)<module>()
-> print value
(sorrel) 1
The program ended with exit status 0.
''')
        self.assertEqual((err, status), ('', 0))

    def test_after_a_fork(self):
        self.assert_session('''\
import os, sorrel
def work(who):
    sorrel.breakpoint()
    print who
    os.sys.stdout.flush()
work('parent')
if not os.fork():
    work('child')
    os._exit(0)
os.wait()
work('parent again')
''', ('', '> prog.py(4)work()\n-> print who\n'),
            ('continue', 'parent\n> prog.py(4)work()\n-> print who\n'),
            ('continue', 'child\n> prog.py(4)work()\n-> print who\n'),
            ('continue', 'parent again\n'))


class StartFilesTest(TestCase):

    def setUp(self):
        TestCase.setUp(self)
        self.script('print 6 * 7\nxyzzy\n', '.sorrelrc')

    def test_each_terminal_carries_them_out(self):
        out, err, status = self.run_to_end('''\
import sorrel
for i in range(2):
    sorrel.set_trace()
    print i
''')
        stop = '> prog.py(4)<module>()\n-> print i\n42\n*** ~/.sorrelrc:2: No such command: ' \
               'xyzzy\n' + PROMPT + '\nDetached: the program runs on.\n'
        self.assertEqual((out, err, status), (stop + '0\n' + stop + '1\n', '', 0))

    def test_a_folder_that_is_gone_has_none(self):
        out, err, status = self.run_to_end('''\
import os, sorrel
os.mkdir(os.path.join(os.path.dirname(__file__), 'gone'))
os.chdir(os.path.join(os.path.dirname(__file__), 'gone'))
os.rmdir(os.getcwd())
sorrel.set_trace()
print 'on'
''', 'continue\n')
        self.assert_in('-> print \'on\'\n42\n', out)
        self.assertEqual((err, status), ('', 0))

    def test_so_does_one_for_an_exception(self):
        out = self.run_to_end('''\
import sorrel
try:
    1 / 0
except ZeroDivisionError:
    sorrel.post_mortem()
''')[0]
        self.assert_in('-> 1 / 0\n42\n', out)


class ClientTest(TestCase):

    def test_it_stops_in_the_client(self):
        program = self.begin_listening(LISTENING + '''
def work(number):
    sorrel.breakpoint()
    result = number * 2  # next
    sorrel.breakpoint()
for number in range(2):
    work(number)
print 'over'
''')
        client = self.attach(program)
        for number in range(2):
            self.assertEqual(client.stopped(), 'breakpoint work:%d' % program.line('# next'))
            self.assertEqual(client.evaluate('number'), str(number))
            client.go()
            self.assertEqual(client.stopped(),
                             'breakpoint work:%d' % (program.line('# next') + 1))
            self.assertEqual(client.evaluate('result'), str(number * 2))
            client.go()
        self.assertEqual(program.ended(), ('over\n', 0))
        # What the first stop has loaded is the debugger's own.
        loaded = [message['body']['module']['path'] for message in client.read_all()
                  if message.get('event') == 'module']
        self.assertEqual([path for path in loaded if '/sorrel/' in path], [])

    def test_the_clients_breakpoints_count_there(self):
        program = self.begin_listening(LISTENING + '''
def work():
    sorrel.breakpoint()
    print 'here'  # here
work()
''')
        client = self.attach(program, '# here')
        stop = client.event('stopped')
        self.assertEqual((stop['reason'], len(stop['hitBreakpointIds'])), ('breakpoint', 1))
        client.thread = stop['threadId']
        self.assertEqual(client.step(), 'step <module>:%d' % (program.line('# here') + 1))
        client.go()
        self.assertEqual(program.ended(), ('here\n', 0))

    def test_what_is_evaluated_does_not_stop(self):
        program = self.begin_listening(LISTENING + '''
def work():
    sorrel.breakpoint()
    return 3
print work()
print 'over'
''')
        client = self.attach(program)
        client.stopped()
        self.assertEqual(client.evaluate('work()'), '3')
        client.go()
        self.assertEqual(program.ended(), ('3\nover\n', 0))

    def test_the_terminal_is_not_for_a_program_with_a_client(self):
        program = self.begin_listening(LISTENING + '''
try:
    sorrel.set_trace()
except sorrel.Error, error:
    print error
''')
        client = self.attach(program)
        self.assertEqual(program.ended(), (
            'a client debugs this program: sorrel.breakpoint() stops in it\n', 0))
        client.close()

    def read_to(self, terminal, text):
        seen = ''
        while not seen.endswith(text):
            self.assert_(select.select([terminal], [], [], PATIENCE)[0], seen)
            seen += os.read(terminal, 1)

    def test_clients_and_the_terminal_take_turns(self):
        master, slave = pty.openpty()
        program = self.begin_listening('''
import os, sorrel, sys
os.dup2(os.open(sys.argv[1], os.O_RDWR | os.O_NOCTTY), 0)
sorrel.listen(('127.0.0.1', 0))
sorrel.breakpoint()
print 'after the terminal'
sorrel.wait_for_client()
sorrel.breakpoint()
print 'after the client'
while sorrel.is_client_connected():
    pass
sorrel.breakpoint()
print 'over'
''', os.ttyname(slave))
        self.read_to(master, PROMPT)
        client = self.connect(program)
        client.ask('initialize', adapterID='x')
        self.assertEqual(client.refusal('attach'), 'somebody debugs this program already')
        client.close()
        os.write(master, CTRL_D)
        self.read_to(master, '(y or n) ')
        os.write(master, CTRL_D)
        program.wrote('after the terminal\n')
        client = self.attach(program)
        client.stopped()
        client.ask('disconnect')
        program.wrote('after the client\n')
        self.read_to(master, PROMPT)
        os.write(master, 'continue\n')
        self.assertEqual(program.ended()[0], 'after the terminal\nafter the client\nover\n')
        self.assertEqual(program.errors(), '')
        os.close(master)
        os.close(slave)

    def test_a_program_that_was_started_to_listen(self):
        program = self.serve('''
import sorrel
sorrel.breakpoint()
print 'over'  # next
''', '--wait')
        client = self.attach(program)
        self.assertEqual(client.stopped(), 'breakpoint <module>:%d' % program.line('# next'))
        client.go()
        self.assertEqual(program.ended(), ('over\n', 0))


class PostMortemTest(TestCase):

    FAILING = '''\
import sorrel, sys
def fail(key):
    return {}[key]
'''

    def test_what_is_being_handled(self):
        self.assert_session(self.FAILING + '''\
try:
    fail('x')
except KeyError:
    sorrel.post_mortem()
    print 'on', sys.exc_info()[0].__name__
''', ('', "--Post-mortem--\nKeyError: 'x'\n> prog.py(3)fail()\n-> return {}[key]\n"),
            ('print key', "'x'\n"),
            ('up', '> prog.py(5)<module>()\n-> fail(\'x\')\n'),
            ('next', "> prog.py(8)<module>()\n-> print 'on', sys.exc_info()[0].__name__\n"),
            ('continue', 'on KeyError\n'))

    def test_again_from_its_traceback_in_other_threads(self):
        stop = 'Exception: unknown: only its traceback was given\n> prog.py(3)fail()\n' \
               '-> return {}[key]\n'
        self.assert_session(self.FAILING + '''\
import threading
try:
    fail('x')
except KeyError:
    traceback = sys.exc_info()[2]
sys.exc_clear()
for _ in range(2):
    one = threading.Thread(target=sorrel.post_mortem, args=(traceback,), name='worker')
    one.start()
    one.join()
print 'over'
''', ('', '--Post-mortem--\n' + stop), ('continue', '[worker]\n--Post-mortem--\n' + stop),
            ('continue', 'over\n'))

    def test_the_last_one(self):
        self.assert_session(self.FAILING + '''\
try:
    fail('x')
except KeyError:
    sys.last_type, sys.last_value, sys.last_traceback = sys.exc_info()
sorrel.pm()
sorrel.pm()
''', ('', "--Post-mortem--\nKeyError: 'x'\n> prog.py(3)fail()\n-> return {}[key]\n"),
            ('continue', "--Post-mortem--\nKeyError: 'x'\n> prog.py(3)fail()\n-> return {}[key]\n"),
            ('continue', ''))

    def test_what_cannot_be_looked_at(self):
        self.assertEqual(self.refusals('''\
refused(sorrel.pm)
try:
    1 / 0
except ZeroDivisionError:
    refused(sorrel.post_mortem, 3)
    refused(sorrel.post_mortem, sys.exc_info())
sys.exc_clear()
sys.last_traceback = 3
refused(sorrel.pm)
''').split('<traceback object')[0], '''\
ValueError: there is no exception to look at
TypeError: a traceback is needed, not 3
TypeError: a traceback is needed, not (<type 'exceptions.ZeroDivisionError'>, ZeroDivisionError(\
'integer division or modulo by zero',), ''')

    def test_in_the_client(self):
        program = self.begin_listening(LISTENING + '''
def fail(key):
    return {}[key]  # here
try:
    fail('x')
except KeyError:
    sorrel.post_mortem()
print 'over'
''')
        client = self.attach(program)
        self.assertEqual(client.stopped(), 'exception fail:%d' % program.line('# here'))
        self.assertEqual(client.evaluate('key'), "'x'")
        self.assertEqual(client.ask('exceptionInfo', threadId=client.thread)['exceptionId'],
                         'KeyError')
        client.go('next')
        client.stopped()
        client.go()
        self.assertEqual(program.ended(), ('over\n', 0))


class ThreadOfCTest(TestCase):

    PROGRAM = '''\
import sorrel, sys, thread, time
# What the debugger does not put itself in front of.
start = thread.start_new_thread
def work():
    %s
    print 'works'  # here
    sys.stdout.flush()
    done.append(1)
def run():
    start(work, ())
    while not done:
        time.sleep(0.01)
done = []
'''

    def test_it_is_debugged_at_once(self):
        program = self.begin_listening(
            self.PROGRAM % 'print sorrel.debug_this_thread(), sorrel.debug_this_thread()'
            + LISTENING + 'run()\n')
        client = self.attach(program, '# here')
        self.assertEqual(client.stopped(), 'breakpoint work:%d' % program.line('# here'))
        client.go()
        self.assertEqual(program.ended(), ('True True\nworks\n', 0))

    def test_it_stops_where_it_says_so(self):
        program = self.begin_listening(
            self.PROGRAM % 'sorrel.breakpoint()' + LISTENING + 'run()\n')
        client = self.attach(program)
        self.assertEqual(client.stopped(), 'breakpoint work:%d' % program.line('# here'))
        client.go()
        self.assertEqual(program.ended(), ('works\n', 0))

    def test_where_nobody_debugs(self):
        self.assertEqual(self.refusals('''\
refused(sorrel.debug_this_thread)
sorrel.listen(('127.0.0.1', 0))
refused(sorrel.debug_this_thread)
'''), 'done: False\n' * 2)
