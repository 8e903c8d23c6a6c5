"""Programs in an executable of somebody's own: a heap high up, and threads that C code makes."""

import os

import dap_session
import harness
import public_case
import sorrel_session
import tmorvik26_vs2012_x64 as core

EXECUTABLE = os.path.join(
    os.path.dirname(os.path.dirname(os.path.abspath(core.__file__))), 'bin', 'embedding')


def use_executable(test):
    if not os.path.exists(EXECUTABLE):
        test.skip('%s is built by ./morvik test alone, and without sanitizers' % EXECUTABLE)
    os.environ['MORVIK_PYTHON_EXE'] = EXECUTABLE


class TerminalTest(sorrel_session.TestCase):

    def setUp(self):
        sorrel_session.TestCase.setUp(self)
        use_executable(self)

    def test_a_script_of_its_own_is_run(self):
        path = self.script('import sys, embedder\nprint sys.argv[1:]\nsys.exit(3)\n')
        self.assertEqual(self.call(path, 'a', 'b'), ("['a', 'b']\n", '', 3))

    def test_a_session(self):
        self.assert_session('''\
def f(x):
    y = x + 1
    return y

print f(1)
''', '''
    > prog.py(1)<module>()
    -> def f(x):
    (sorrel) break f
    Breakpoint 1 at prog.py:2
    (sorrel) continue
    > prog.py(2)f()
    -> y = x + 1
    (sorrel) next
    > prog.py(3)f()
    -> return y
    (sorrel) p y
    2
    (sorrel) up
    > prog.py(5)<module>()
    -> print f(1)
    (sorrel) threads
    * 1  MainThread  stopped  prog.py(3)f()
    (sorrel) continue
    2
    The program ended with exit status 0.
    ''')

    def test_a_thread_that_c_code_makes_meanwhile_is_debugged(self):
        out, err, status = self.debug('''\
import embedder, time
seen = []

def work():
    while len(seen) < 2:
        time.sleep(0.001)
    seen.append(0)

embedder.run(work)
while len(seen) < 3:
    time.sleep(0.001)
embedder.join()
''', ['break 6', 'c', 'where', 'threads', 'clear 1', '!seen.append(1); seen.append(1)', 'n', 'n',
      'c'])
        self.assertEqual((err, status), ('', 0))
        answers = out.split(sorrel_session.PROMPT)
        self.assertEqual(answers[2:4], [
            '[work]\n> prog.py(6)work()\n-> time.sleep(0.001)\n',
            '> prog.py(6)work()\n-> time.sleep(0.001)\n'])
        self.assert_in('* 2  work  stopped  prog.py(6)work()\n', answers[4])
        self.assert_in('  1  MainThread  running  prog.py(1', answers[4])
        self.assertEqual(answers[7:9], [
            '> prog.py(5)work()\n-> while len(seen) < 2:\n',
            '> prog.py(7)work()\n-> seen.append(0)\n'])


class ClientTest(dap_session.TestCase):

    def setUp(self):
        dap_session.TestCase.setUp(self)
        use_executable(self)

    def look_at_work(self, client):
        """At the breakpoint of the loop in a function `work`; returns the thread's number."""
        self.assertEqual(client.stopped(), 'breakpoint work:5')
        named = dict((thread['name'], thread['id']) for thread in client.ask('threads')['threads'])
        self.assertEqual(sorted(named), ['MainThread', 'work'])
        self.assertEqual(client.evaluate('go_on'), 'True')
        self.assertEqual(client.step(), 'step work:4')
        self.assertEqual([frame['name'] for frame in client.ask(
            'stackTrace', threadId=named['MainThread'])['stackFrames']], ['<module>'])
        return named['work']

    WORK = '''\
import embedder, time
go_on = True
def work():
    while go_on:
        time.sleep(0.001)  # loop
embedder.run(work)
embedder.join()
print 'over'
'''

    def test_a_thread_of_c_codes_that_runs_already(self):
        program = self.serve(self.WORK.replace(
            'embedder.join', "import sys\nprint 'ready'\nsys.stdout.flush()\nembedder.join"))
        program.wrote('ready')
        client = self.attach(program, '# loop')
        self.look_at_work(client)
        client.evaluate('globals().update(go_on=False)', 'repl')
        client.go()
        self.assertEqual(program.ended(), ('ready\nover\n', 0))

    def test_a_thread_that_c_code_makes_while_the_main_one_waits_in_c(self):
        program = self.serve(self.WORK, '--wait')
        client = self.attach(program, '# loop')
        self.look_at_work(client)
        client.evaluate('globals().update(go_on=False)', 'repl')
        client.go()
        self.assertEqual(program.ended(), ('over\n', 0))

    def test_threads_that_come_and_go_between_calls(self):
        program = self.serve('''\
import embedder, time
calls = []
def work():
    for _ in range(300):
        time.sleep(0.001)  # loop
    calls.append(0)
    return go_on
go_on = True
for _ in range(3):
    embedder.poll(work)
embedder.join()
print len(calls) > 0
''', '--wait')
        client = self.attach(program, '# loop')
        for _ in range(3):
            self.assertEqual(client.stopped(), 'breakpoint work:5')
            self.break_at(client, program)
            self.assertEqual(client.step(), 'step work:4')
            self.break_at(client, program, '# loop')
            client.go()
        self.assertEqual(client.stopped(), 'breakpoint work:5')
        client.evaluate('globals().update(go_on=False)', 'repl')
        client.ask('disconnect')
        self.assertEqual(program.ended(), ('True\n', 0))
        self.assertEqual(program.errors(), '')


class PublicTest(public_case.TestCase):
    """The functions that a program calls, in threads that C code has made."""

    def setUp(self):
        public_case.TestCase.setUp(self)
        use_executable(self)

    CALLBACK = '''\
import embedder, sorrel, sys
said = []
def callback():
    said.append((sorrel.debug_this_thread(), sorrel.debug_this_thread()))
    %s
    said.append('here')  # here
'''

    def test_a_callback_in_the_terminal(self):
        for name in 'set_trace', 'breakpoint':
            out, err, status = self.run_to_end(self.CALLBACK % ('sorrel.%s()' % name) + '''\
for _ in range(2):
    embedder.run(callback)
    embedder.join()
print said
''', 'print said\ncontinue\n' * 2)
            self.assertEqual((err, status), ('', 0))
            answers = out.split(sorrel_session.PROMPT)
            self.assertEqual(answers[0].splitlines()[-2:], [
                '> prog.py(6)callback()', "-> said.append('here')  # here"])
            self.assertEqual(answers[1], '[(False, False)]\n')
            self.assertEqual(answers[3], "[(False, False), 'here', (True, True)]\n")
            self.assertEqual(answers[4], "[(False, False), 'here', (True, True), 'here']\n")

    def test_a_callback_with_a_client(self):
        program = self.begin_listening(self.CALLBACK % 'pass' + '''\
print sorrel.listen(('127.0.0.1', 0)) == sorrel.listen(('127.0.0.1', 0))
sorrel.wait_for_client()
for _ in range(2):
    embedder.run(callback)
    embedder.join()
sorrel.stop()
embedder.run(callback)
embedder.join()
print said
''')
        client = self.attach(program, '# here')
        for _ in range(2):
            self.assertEqual(client.stopped(), 'breakpoint callback:6')
            self.assertEqual(client.evaluate('said[-1]'), '(True, True)')
            client.go()
        self.assertEqual(program.ended(), (
            "True\n[(True, True), 'here', (True, True), 'here', (False, False), 'here']\n", 0))
        self.assertEqual(program.errors(), '')
