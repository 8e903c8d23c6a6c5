# -*- coding: utf-8 -*-
"""What a program that was attached to writes, as a client sees it that has asked for that."""

import os
import subprocess

import attach_session
import dap_session

# How much may wait to be told.
LIMIT = 1024 * 1024

WRITING = '''\
import sys
print 'before'
def work():
    print 'one',
    print 'two', 3  # print
    print >>sys.stderr, 'error'  # after
    sys.stdout.writelines(line for line in ['a\\n', 'b\\n'])
    print 'last'  # last
work()
'''

LIKE_BEFORE = '''\
import os, sys
real = sys.__stdout__
print 'x'  # start
same = (isinstance(sys.stdout, file), sys.stdout.fileno(), sys.stdout.isatty(), sys.stdout.name,
        sys.stdout.mode, sys.stdout.closed, sys.stdout.encoding, sys.stdout.softspace,
        sys.stdout == real, real == sys.stdout, repr(sys.stdout) == repr(real),
        hash(sys.stdout) == hash(real), sys.stdout.flush())
assert same == (True, 1, False, '<stdout>', 'w', False, real.encoding, 0, True, True, True, True,
                None), same
print 'y',
assert sys.stdout.softspace == real.softspace == 1
sys.stdout.softspace = 0
assert real.softspace == 0
errors = []
for wrong in (lambda: sys.stdout.write(5), lambda: sys.stdout.writelines(5),
              lambda: sys.stdout.writelines([5]), lambda: sys.stdout.write(u'\\xe9'),
              lambda: sys.stdout.nothing, lambda: sys.stdout.write()):
    said = []
    for stream in sys.stdout, real:
        sys.stdout, kept = stream, sys.stdout
        try:
            wrong()
            said.append(None)
        except Exception, error:
            said.append((error.__class__, str(error)))
        sys.stdout = kept
    assert said[0] == said[1], said
print u'caf\\xe9', 'end'  # end
'''


class RedirectedTest(dap_session.TestCase):

    def redirected(self, text, *marks, **arguments):
        program = self.serve(text, '--wait')
        return program, self.attach(program, *marks, **dict(arguments, redirectOutput=True))

    def written(self, client):
        """By the end of the program: all of stdout, and of stderr."""
        bodies = [message['body'] for message in client.read_all()
                  if message.get('event') == 'output']
        return tuple([''.join(body['output'] for body in bodies if body['category'] == category)
                      for category in ('stdout', 'stderr', 'important')])

    def test_all_comes_to_the_client_and_to_the_streams(self):
        program, client = self.redirected(WRITING)
        self.assertEqual(self.written(client), (
            'before\none two 3\na\nb\nlast\n', 'error\n', ''))
        self.assertEqual(program.ended(), ('before\none two 3\na\nb\nlast\n', 0))
        self.assertEqual(program.errors(), 'error\n')

    def test_nothing_comes_unasked(self):
        program = self.serve(WRITING, '--wait')
        self.assertEqual(self.written(self.attach(program)), ('', '', ''))

    def test_it_comes_while_the_program_runs(self):
        program, client = self.redirected('print "here"\nraw_input()\n')
        self.assertEqual(client.output('here'), 'here\n')

    def test_what_was_written_comes_before_the_stop(self):
        _, client = self.redirected(WRITING, '# last')
        client.stopped()
        self.assertEqual(''.join(message['body']['output'] for message in client.messages
                                 if message.get('event') == 'output'),
                         'before\none two 3\nerror\na\nb\n')

    def test_steps_and_exceptions_do_not_come_by_what_tells_it(self):
        _, client = self.redirected(WRITING, '# print', justMyCode=False)
        client.ask('setExceptionBreakpoints', filters=['raised'])
        client.stopped()
        self.assertEqual([client.step('stepIn') for _ in range(2)], ['step work:6', 'step work:7'])
        self.assertEqual(client.step(), 'step work:8')
        self.assertEqual(client.step('stepIn'), 'step <module>:9')
        client.go()
        self.assertEqual(client.event('exited'), {'exitCode': 0})

    def test_the_streams_are_as_before(self):
        os.environ['PYTHONIOENCODING'] = 'utf-8'
        try:
            program, client = self.redirected(LIKE_BEFORE)
        finally:
            del os.environ['PYTHONIOENCODING']
        client.event('terminated')
        status = program.ended()[1]
        self.assertEqual((program.errors(), status), ('', 0))

    def test_they_are_put_back_when_the_client_leaves(self):
        program, client = self.redirected(
            'import sys\nkept = sys.stdout.write\nprint "here"\nraw_input()\n'
            'print sys.stdout is sys.__stdout__, sys.stderr is sys.__stderr__\n')
        client.output('here')
        client.ask('disconnect', terminateDebuggee=False)
        client.read_all()
        again = self.attach(program)
        program.process.stdin.write('\n')
        again.event('terminated')
        self.assertEqual(program.ended(), ('here\nTrue True\n', 0))

    def test_what_the_program_puts_in_their_place_stays(self):
        program, client = self.redirected(
            'import sys\n'
            'class Own(object):\n'
            '    def write(self, text):\n'
            '        sys.__stdout__.write(text.upper())\n'
            'sys.stdout = own = Own()\n'
            'sys.stderr.write("here\\n")\nraw_input()\nprint sys.stdout is own\n')
        self.assertEqual(client.event('output')['category'], 'stderr')
        client.ask('disconnect', terminateDebuggee=False)
        client.read_all()
        again = self.attach(program)
        program.process.stdin.write('\n')
        again.event('terminated')
        self.assertEqual(program.ended(), ('TRUE\n', 0))

    def test_a_forked_process_tells_nothing_of_it(self):
        program, client = self.redirected(
            'import os, sys\nprint "first"\npid = os.fork()\n'
            'print "child" if not pid else "parent", sys.stdout is sys.__stdout__\n'
            'if not pid:\n    os._exit(0)\nos.waitpid(pid, 0)\n', subProcess=False)
        self.assertEqual(self.written(client)[0], 'first\nparent False\n')
        self.assertEqual(sorted(program.ended()[0].splitlines()),
                         ['child True', 'first', 'parent False'])

    def test_letters_in_parts_and_wrong_ones(self):
        _, client = self.redirected(
            'import sys\nfor byte in "\\xc3\\xa9 \\xff|":\n    sys.stdout.write(byte)\n')
        self.assertEqual(self.written(client)[0], u'\xe9 \ufffd|')

    def test_too_much_is_left_out_and_told(self):
        _, client = self.redirected(
            'import os, sys\nos.dup2(os.open(os.devnull, os.O_WRONLY), 1)\n'
            'sys.stdout.write(%d * "x" + 1000 * "y")\n' % LIMIT)
        out, _, said = self.written(client)
        self.assertEqual((len(out), set(out)), (LIMIT, set('x')))
        self.assertEqual(said, 'sorrel: 1000 bytes that the program has written are left out here: '
                               'they are read too slowly\n')

    def test_many_threads(self):
        _, client = self.redirected(
            'import sys, threading\ndef work(name):\n    for _ in range(100):\n'
            '        sys.stdout.write(name * 9 + "\\n")\n'
            'threads = [threading.Thread(target=work, args=(name,)) for name in "abcd"]\n'
            'for thread in threads:\n    thread.start()\n'
            'for thread in threads:\n    thread.join()\n')
        self.assertEqual(sorted(self.written(client)[0].split()),
                         [9 * name for name in 'abcd' for _ in range(100)])


class LaunchedTest(dap_session.TestCase):

    def test_what_comes_by_pipes_comes_once(self):
        adapter = self.opened(dap_session.Adapter())
        adapter.launch(program=self.script('print "once"\n', 'prog.py'), redirectOutput=True)
        adapter.ask('configurationDone')
        adapter.event('terminated')
        adapter.request('disconnect', {})
        self.assertEqual([message['body']['output'] for message in adapter.messages
                          if message.get('event') == 'output'], ['once\n'])

    def test_what_goes_to_a_terminal_comes_to_the_client_too(self):
        adapter = self.opened(dap_session.Adapter())
        adapter.ask('initialize', supportsRunInTerminalRequest=True)
        number = adapter.request('launch', {
            'program': self.script('print "both"\n', 'prog.py'), 'redirectOutput': True,
            'console': 'integratedTerminal'})
        asked = adapter._next(lambda message: message.get('command') == 'runInTerminal', 'request')
        terminal = subprocess.Popen(asked['arguments']['args'], stdin=open(os.devnull),
                                    stdout=subprocess.PIPE, close_fds=True)
        self.opened(dap_session.Ended(terminal))
        adapter.send({'seq': 1000, 'type': 'response', 'request_seq': asked['seq'],
                      'command': 'runInTerminal', 'success': True})
        self.assertTrue(adapter.answer(number)['success'])
        adapter.ask('configurationDone')
        self.assertEqual(adapter.output('both'), 'both\n')
        self.assertEqual(terminal.stdout.read(), 'both\n')


class UnawareTest(attach_session.TestCase):

    def test_a_process_that_knew_nothing_is_told_of_until_the_client_leaves(self):
        program = self.run_unaware(
            'import os, sys, time\nprint "ready"\nsys.stdout.flush()\n'
            'while os.path.exists(sys.argv[1]):\n    print "more"\n    time.sleep(0.01)\n'
            'print sys.stdout is sys.__stdout__\n', self.flag)
        adapter = self.attach_to(program, redirectOutput=True)
        adapter.output('more')
        self.leave(adapter)
        os.remove(self.flag)
        self.assertTrue(program.ended()[0].endswith('more\nTrue\n'))
