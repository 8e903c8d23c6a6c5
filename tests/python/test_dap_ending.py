"""What still runs of a program that its client ends."""

import os
import signal
import subprocess

import dap_session
from dap_session import is_alive

PROGRAM = '''\
import os, signal, sys, threading, time
def note(text):
    out = open(os.path.join(os.path.dirname(sys.argv[0]), 'note'), 'a')
    out.write(text + '\\n')
    out.close()
def tidy_up(number, frame):
    note('tidy %%s' %% frame.f_lineno)
    sys.exit(9)
def stop(number, frame):
    global running
    running = False
note('begun')
%s
try:
    running = True
    while running:
        note('line')  # line
        time.sleep(0.001)
    note('over')
finally:
    note('finally')
'''
HANDLER = 'signal.signal(signal.SIGTERM, tidy_up)'
WORKER = '''\
signal.signal(signal.SIGTERM, tidy_up)
def work():
    while True:
        time.sleep(0.001)  # work
worker = threading.Thread(target=work)
worker.setDaemon(True)
worker.start()
'''


class EndingTest(dap_session.TestCase):

    def notes(self):
        try:
            return open(os.path.join(self.folder, 'note')).read().splitlines()
        except IOError:
            return []

    def stopped(self, text='', mark='# line', **arguments):
        """A client of the adapter's, whose program has stopped at the line with this mark."""
        adapter = self.opened(dap_session.Adapter())
        path = self.script(PROGRAM % text)
        adapter.launch(program=path, **arguments)
        adapter.ask('setBreakpoints', source={'path': path}, breakpoints=[
            {'line': number} for number, line in enumerate(open(path), 1) if mark in line])
        adapter.ask('configurationDone')
        adapter.stopped()
        return adapter

    def served(self, text, *marks):
        """A program that listens and has stopped at one of these lines, and its client."""
        program = self.serve(PROGRAM % text)
        client = self.attach(program, *marks)
        client.stopped()
        return program, client

    def test_nothing_runs_of_a_program_that_has_stopped_at_its_first_line(self):
        adapter = self.stopped(stopOnEntry=True)
        adapter.ask('terminate')
        adapter.ask('disconnect', terminateDebuggee=True)
        self.assertEqual(adapter.event('exited'), {'exitCode': 128 + signal.SIGTERM})
        adapter.event('terminated')
        self.assertEqual(self.notes(), [])

    def test_nothing_runs_of_a_program_without_a_handler(self):
        for request in 'terminate', 'disconnect':
            adapter = self.stopped()
            adapter.ask(request)
            adapter.event('terminated')
            self.assertEqual(self.notes(), ['begun'])
            os.remove(os.path.join(self.folder, 'note'))

    def test_nothing_runs_of_a_program_that_ignores_the_signal(self):
        adapter = self.stopped('signal.signal(signal.SIGTERM, signal.SIG_IGN)')
        adapter.ask('terminate')
        self.assertEqual(adapter.event('exited'), {'exitCode': 128 + signal.SIGKILL})
        self.assertEqual(self.notes(), ['begun'])

    def test_nothing_runs_of_a_program_whose_editor_is_killed(self):
        adapter = self.stopped()
        pid = int(adapter.evaluate('os.getpid()'))
        adapter.process.kill()
        self.assertTrue(dap_session.harness.wait_until(lambda: not is_alive(pid)))
        self.assertEqual(self.notes(), ['begun'])

    def test_a_handler_is_called_where_the_program_has_stopped(self):
        for _ in range(3):
            adapter = self.stopped(HANDLER)
            line = adapter.top()['line']
            adapter.ask('terminate')
            self.assertEqual(adapter.event('exited'), {'exitCode': 9})
            self.assertEqual(self.notes(), ['begun', 'tidy %d' % line, 'finally'])
            os.remove(os.path.join(self.folder, 'note'))

    def test_a_handler_is_called_when_the_editor_is_killed(self):
        adapter = self.stopped(HANDLER)
        line = adapter.top()['line']
        adapter.process.kill()
        self.assertTrue(dap_session.harness.wait_until(lambda: 'finally' in self.notes()))
        self.assertEqual(self.notes(), ['begun', 'tidy %d' % line, 'finally'])

    def test_a_program_whose_handler_returns_goes_on(self):
        program, client = self.served('signal.signal(signal.SIGTERM, stop)', '# line')
        client.ask('terminate')
        self.assertEqual(program.ended()[1], 0)
        self.assertEqual(self.notes()[-2:], ['over', 'finally'])

    def test_a_handler_may_be_debugged(self):
        program, client = self.served(HANDLER, '# line', "note('tidy")
        client.ask('terminate')
        self.assertEqual(client.stopped(), 'breakpoint tidy_up:%d' % program.line("note('tidy"))
        client.go()
        self.assertEqual(program.ended()[1], 9)

    def test_the_main_thread_has_its_signal_before_it_goes_on(self):
        """Another thread has stopped, for which it waits."""
        program, client = self.served(WORKER, '# work')
        last = []

        def rests():
            last.append(client.evaluate("open(sys.argv[0][:-7] + 'note').read()"))
            return last[-1:] == last[-2:-1]
        self.assertTrue(dap_session.harness.wait_until(rests))
        noted = self.notes()
        client.ask('terminate')
        self.assertEqual(program.ended()[1], 9)
        self.assertEqual(self.notes()[len(noted)].partition(' ')[0], 'tidy')

    def test_one_who_comes_again_leaves_the_program_running(self):
        program, client = self.served('', '# line')
        client.ask('disconnect', restart=True, terminateDebuggee=True)
        client = self.attach(program, '# line')
        client.stopped()
        adapter = self.opened(dap_session.Adapter())
        client.ask('disconnect', restart=True)
        adapter.begin({'port': program.port, 'token': program.token})
        adapter.ask('configurationDone')
        adapter.ask('disconnect', restart=True, terminateDebuggee=True)
        self.assertEqual(program.process.poll(), None)
        self.attach(program, '# line').stopped()

    def test_a_launched_program_ends_for_the_next_one(self):
        adapter = self.stopped()
        adapter.ask('disconnect', restart=True)
        adapter.event('terminated')
        self.assertEqual(self.notes(), ['begun'])
