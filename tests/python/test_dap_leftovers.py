"""What a launched program and its processes leave behind when somebody is killed: nothing."""

import os
import select
import signal
import subprocess
import tempfile

import dap_session
from dap_session import Killed
from sorrel.protocol.launch_callers import Handshake

# Starts two others, each of which tells its number and runs on.
PROGRAM = '''
import os, subprocess, sys, time
def run(name):
    os.write(1, '%s %d,' % (name, os.getpid()))
    while True:
        time.sleep(0.01)
if 'other' in sys.argv:
    run('other')
if not os.fork():
    run('forked')
subprocess.Popen([sys.executable, sys.argv[0], 'other'])
run('program')
'''


class LeftoversTest(dap_session.TestCase):

    def setUp(self):
        dap_session.TestCase.setUp(self)
        self.temporary = os.path.join(self.folder, 'temporary')
        os.mkdir(self.temporary)
        before, tempfile.tempdir = tempfile.tempdir, self.temporary
        os.environ['TMPDIR'] = self.temporary
        self._tempdir = before
        self.opened(self)

    def close(self):
        del os.environ['TMPDIR']
        tempfile.tempdir = self._tempdir

    def launched(self):
        """All three run, and the two others listen; returns the numbers by names."""
        self.adapter = self.opened(dap_session.Adapter())
        self.adapter.launch(program=self.script(PROGRAM, 'prog.py'))
        self.adapter.ask('configurationDone')
        seen = ''
        while seen.count(',') < 3:
            event = self.adapter.event('output')
            seen += event['output'] if event['category'] == 'stdout' else ''
        pids = dict((name, int(pid)) for name, pid in [one.split() for one in seen.split(',')[:3]])
        for pid in pids.values():
            self.opened(Killed(pid))
        for _ in range(2):
            while self.adapter.event('thread')['threadId'] < 1 << 30:
                pass
        [folder] = os.listdir(self.temporary)
        self.assertEqual(sorted(os.listdir(os.path.join(self.temporary, folder))),
                         sorted(['handshake', str(pids['forked']), str(pids['other'])]))
        return pids

    def kill(self, *pids):
        for pid in pids:
            os.kill(pid, signal.SIGKILL)

    def assert_nothing_is_left(self):
        self.assertTrue(dap_session.harness.wait_until(
            lambda: not os.listdir(self.temporary), dap_session.PATIENCE),
            os.listdir(self.temporary))

    def test_the_adapter_is_killed(self):
        self.launched()
        self.kill(self.adapter.process.pid)
        self.assert_nothing_is_left()

    def test_the_program_is_killed_and_later_what_it_has_started(self):
        pids = self.launched()
        self.kill(pids['program'])
        self.assertEqual(self.adapter.event('exited'), {'exitCode': 137})
        self.kill(pids['forked'], pids['other'])
        self.adapter.event('terminated')
        self.assert_nothing_is_left()

    def test_all_are_killed_but_the_adapter(self):
        self.kill(*self.launched().values())
        self.adapter.event('terminated')
        self.assert_nothing_is_left()

    def test_all_are_killed(self):
        pids = self.launched()
        self.kill(self.adapter.process.pid, *pids.values())
        self.assert_nothing_is_left()

    def test_the_client_leaves(self):
        self.launched()
        self.adapter.process.stdin.close()
        self.assert_nothing_is_left()

    def test_the_adapter_is_killed_before_the_program_has_come(self):
        adapter = self.opened(dap_session.Adapter())
        adapter.ask('initialize', supportsRunInTerminalRequest=True)
        adapter.request('launch', {
            'program': self.script(PROGRAM), 'console': 'integratedTerminal'})
        asked = adapter._next(lambda message: message.get('command') == 'runInTerminal', 'request')
        self.kill(adapter.process.pid)
        adapter.process.wait()
        self.assertEqual(len(os.listdir(self.temporary)), 1)
        program = self.opened(dap_session.Ended(subprocess.Popen(
            asked['arguments']['args'], stdin=open(os.devnull), stderr=subprocess.PIPE)))
        self.assert_nothing_is_left()

    def test_the_adapter_is_killed_when_the_program_has_just_come(self):
        handshake = Handshake()
        program = self.opened(dap_session.Process(
            ['-m', 'sorrel.main', 'serve', '--handshake', handshake.path, '--',
             self.script(PROGRAM)]))
        connection = None
        while connection is None:
            connection = handshake.look(
                select.select(handshake.sockets(), [], [], dap_session.PATIENCE)[0])
        connection.close()
        self.assertEqual(program.ended(), ('', 0))
        self.assert_nothing_is_left()

    def test_a_process_that_has_become_another_program(self):
        """It listens anew, whatever is left of what it was."""
        path = self.script("""
import os, sys, time
def tell(name):
    os.write(1, '%s %d,' % (name, os.getpid()))
if len(sys.argv) > 1:
    tell('again')
    while True:
        time.sleep(0.01)
if os.fork():
    os.wait()
tell('forked')
while not os.path.exists(sys.argv[0] + '.again'):
    time.sleep(0.01)
os.execv(sys.executable, [sys.executable, sys.argv[0], 'again'])
""", 'prog.py')
        self.adapter = self.opened(dap_session.Adapter())
        self.adapter.launch(program=path)
        self.adapter.ask('configurationDone')
        for _ in 'forked', 'again':
            pid = int(self.adapter.output(',').split()[1][:-1])
            self.opened(Killed(pid))
            thread = self.adapter.event('thread')
            while thread['reason'] != 'started' or thread['threadId'] < 1 << 30:
                thread = self.adapter.event('thread')
            self.assert_in({'id': thread['threadId'], 'name': 'MainThread [%d]' % pid},
                           self.adapter.ask('threads')['threads'])
            open(path + '.again', 'w').close()
        self.kill(self.adapter.process.pid)
        self.assert_nothing_is_left()
