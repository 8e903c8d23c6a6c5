"""What becomes of a launched program, and of what that has started, when its client goes."""

import os
import signal
import subprocess
import time

import dap_session
from dap_session import is_alive

# Starts a child that starts another, and one in a session of its own; all tell their numbers.
PROGRAM = '''
import os, signal, subprocess, sys, time
def note(text):
    out = open(sys.argv[1], 'a')
    out.write(text + '\\n')
    out.close()
def tidy_up(number, frame):
    note('tidy')
    sys.exit(9)
if 'tidy' in sys.argv:
    signal.signal(signal.SIGTERM, tidy_up)
if 'ignore' in sys.argv:
    signal.signal(signal.SIGTERM, signal.SIG_IGN)
subprocess.Popen(['/bin/sh', '-c', 'echo child $$ >> %s; sleep 60 & '
                  'echo grandchild $! >> %s; wait' % (sys.argv[1], sys.argv[1])])
apart = subprocess.Popen(['sleep', '60'], preexec_fn=os.setsid)
note('apart %d' % apart.pid)
while not 'grandchild' in open(sys.argv[1]).read():
    time.sleep(0.01)
if 'deep' in sys.argv:
    import ctypes
    note('program %d' % os.getpid())
    ctypes.PyDLL(None).sleep(60)  # Holds the interpreter.
note('program %d' % os.getpid())
while 'end' not in sys.argv:
    time.sleep(0.001)  # loop
'''


class FamilyTest(dap_session.TestCase):

    def setUp(self):
        dap_session.TestCase.setUp(self)
        self.adapter = self.opened(dap_session.Adapter())
        self.path = self.script(PROGRAM)
        self.note = os.path.join(self.folder, 'note')
        self.pids = {}
        self.opened(self)

    def close(self):
        for pid in self.pids.values():
            try:
                os.kill(pid, signal.SIGKILL)
            except OSError:
                pass

    def launched(self, *words, **arguments):
        """The program runs, and so does its family."""
        stops = arguments.pop('stops', False)
        self.adapter.launch(program=self.path, args=[self.note] + list(words), **arguments)
        if stops:
            line = 1 + PROGRAM.split('# loop')[0].count('\n')
            self.adapter.ask('setBreakpoints', source={'path': self.path},
                             breakpoints=[{'line': line}])
        self.adapter.ask('configurationDone')
        self.find_family()
        if stops:
            self.adapter.stopped()

    def find_family(self):
        def noted():
            return os.path.exists(self.note) and 'program' in open(self.note).read()
        self.assertTrue(dap_session.harness.wait_until(noted))
        for line in open(self.note):
            name, _, pid = line.partition(' ')
            if pid:
                self.pids[name] = int(pid)

    def alive(self):
        return sorted(name for name, pid in self.pids.items() if is_alive(pid))

    def assert_ends(self, seconds=30):
        """All end but who has left the family."""
        self.assertTrue(dap_session.harness.wait_until(
            lambda: self.alive() == ['apart'], seconds), self.alive())

    def assert_runs_on(self):
        time.sleep(6.5)
        self.assertEqual(self.alive(), ['apart', 'child', 'grandchild', 'program'])

    def leave(self):
        self.adapter.process.stdin.close()
        self.assertEqual(self.adapter.process.wait(), 0)

    def kill(self):
        self.adapter.process.kill()
        self.adapter.process.wait()

    # Gone without a word.

    def test_the_adapter_is_killed(self):
        self.launched()
        self.kill()
        self.assert_ends()

    def test_the_adapter_is_killed_while_the_program_is_stopped(self):
        self.launched('tidy', stops=True)
        self.kill()
        self.assert_ends()
        self.assert_in('tidy\n', open(self.note).read())

    def test_the_adapter_is_killed_with_all_of_its_group(self):
        self.launched()
        os.killpg(self.adapter.process.pid, signal.SIGKILL)
        self.assert_ends()

    def test_the_editor_is_gone(self):
        for stops in False, True:
            self.adapter = self.opened(dap_session.Adapter())
            self.launched('tidy', stops=stops)
            self.leave()
            self.assert_ends()
            self.assert_in('tidy\n', open(self.note).read())
            self.close()
            os.remove(self.note)

    def test_the_editor_is_gone_and_the_program_is_not_debugged(self):
        self.launched('tidy', noDebug=True)
        self.kill()
        self.assert_ends()
        self.assert_in('tidy\n', open(self.note).read())

    def test_a_program_that_ignores_it_is_killed(self):
        self.launched('ignore')
        self.leave()
        self.assert_ends()

    def test_a_program_deep_in_c_is_killed(self):
        self.launched('deep')
        self.kill()
        self.assert_ends()

    def test_a_program_that_has_closed_the_connection_is_ended(self):
        self.script(PROGRAM.replace('while not', 'os.closerange(3, 64)\nwhile not'))
        self.launched('tidy')
        time.sleep(1)
        self.leave()
        self.assert_ends()
        self.assert_in('tidy\n', open(self.note).read())

    # With a word.

    def test_terminating(self):
        for words, status in (((), 143), (('tidy',), 9), (('ignore',), 137)):
            self.adapter = self.opened(dap_session.Adapter())
            self.launched(*words)
            self.adapter.ask('terminate')
            self.assertEqual(self.adapter.event('exited'), {'exitCode': status})
            self.adapter.event('terminated')
            self.assert_ends()
            self.close()
            os.remove(self.note)

    def test_disconnecting(self):
        self.launched(stops=True)
        self.adapter.ask('disconnect')
        self.adapter.event('terminated')
        self.assert_ends()

    def test_disconnecting_from_a_program_that_may_run_on(self):
        self.launched(stops=True)
        self.adapter.ask('disconnect', terminateDebuggee=False)
        self.kill()
        self.assert_runs_on()

    def test_a_program_that_ends_by_itself_may_leave_something_behind(self):
        self.launched('end')
        self.assertEqual(self.adapter.event('exited'), {'exitCode': 0})
        self.adapter.event('terminated')
        self.leave()
        time.sleep(0.5)
        self.assertEqual(self.alive(), ['apart', 'child', 'grandchild'])

    # In a terminal.

    def in_terminal(self, starter, group):
        self.adapter.ask('initialize', supportsRunInTerminalRequest=True)
        number = self.adapter.request('launch', {
            'program': self.path, 'args': [self.note], 'console': 'integratedTerminal'})
        asked = self.adapter._next(
            lambda message: message.get('command') == 'runInTerminal'
            and message['type'] == 'request', 'request')
        process = subprocess.Popen(starter + asked['arguments']['args'], stdin=open(os.devnull),
                                   preexec_fn=group)
        self.adapter.send({'seq': 1000, 'type': 'response', 'request_seq': asked['seq'],
                           'command': 'runInTerminal', 'success': True,
                           'body': {'processId': process.pid}})
        self.assertTrue(self.adapter.answer(number)['success'])
        self.adapter.ask('configurationDone')
        self.find_family()
        return process

    def test_in_a_terminal(self):
        # The first of its group, as a shell makes it, and one among others without a terminal.
        for starter, group in ([], os.setpgrp), (['/bin/sh', '-c', '"$@"; exit', 'sh'], os.setsid):
            self.adapter = self.opened(dap_session.Adapter())
            process = self.in_terminal(starter, group)
            self.kill()
            process.wait()
            self.assert_ends()
            self.close()
            os.remove(self.note)
