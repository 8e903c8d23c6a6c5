"""The adapter and interpreters: its own, and those that it starts programs and commands with."""

import os
import shutil
import subprocess
import sys

import attach_session
import dap_session
import harness
import installed_case
from installed_case import BUILT, SORREL, TOP

PROGRAM = '''\
import sys
def double(number):
    return number * 2  # here
print double(21), sys.executable
'''
# In place of a build: the one that there is, with what the command says of a new one.
BUILDING = '''
build() {
    say "building something"
    printf '[1/2] half\\n[2/2] all\\n' >&2
    mkdir -p "$(build_dir "$1" '')"
    ln -sfn %s "$(build_dir "$1" '')/lib"
    ln -sfn %s "$(build_dir "$1" '')/bin"
}
'''
# And one that fails.
FAILING = '''
build() {
    say "building something"
    echo "core.cpp:1:10: fatal error: Python.h: No such file or directory" >&2
    echo "ninja: build stopped: subcommand failed." >&2
    die "the build failed"
}
'''


class Adapter(dap_session.Peer):
    """One that is started in some way; its standard output is the protocol."""

    def __init__(self, command, **how):
        dap_session.Peer.__init__(self)
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        preexec_fn=os.setsid, close_fds=True, **how)

    _send = dap_session.Adapter._send.im_func
    _receive = dap_session.Adapter._receive.im_func
    launch = dap_session.Adapter.launch.im_func

    def close(self):
        dap_session.Ended(self.process).close()
        self.process.stdin.close()
        self.process.stdout.close()


def refusal_in_terminal(adapter, **arguments):
    """Why what begins in a terminal of the client's, which the adapter does not read, does not."""
    adapter.ask('initialize', supportsRunInTerminalRequest=True)
    number = adapter.request('launch', dict(arguments, console='integratedTerminal'))
    asked = adapter._next(lambda message: message.get('command') == 'runInTerminal', 'request')
    terminal = subprocess.Popen(
        asked['arguments']['args'], cwd=asked['arguments']['cwd'], stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT, stdin=open(os.devnull), close_fds=True)
    terminal.communicate()
    adapter.send({'seq': 1000, 'type': 'response', 'request_seq': asked['seq'],
                  'command': 'runInTerminal', 'success': True})
    return adapter.answer(number)['message']


class TestCase(installed_case.TestCase):
    """With another checkout, for which nothing is built, and a folder to install to."""

    def setUp(self):
        installed_case.TestCase.setUp(self)
        self.checkout = os.path.join(self.folder, 'checkout')
        os.mkdir(self.checkout)
        shutil.copy(os.path.join(TOP, 'morvik'), self.checkout)
        shutil.copytree(os.path.join(TOP, 'tools'), os.path.join(self.checkout, 'tools'))
        os.symlink(os.path.join(TOP, 'sorrel'), os.path.join(self.checkout, 'sorrel'))

    def start(self, **environment):
        return self.opened(Adapter(
            [os.path.join(self.checkout, 'morvik'), 'dap', '--python', sys.executable],
            env=dict(os.environ, **environment)))

    def built(self):
        """What has been built in the other checkout."""
        folder = os.path.join(self.checkout, 'build')
        return [name for name in os.listdir(folder) if name != 'hosts'] \
            if os.path.isdir(folder) else []

    def debugged(self, adapter, text=PROGRAM, **arguments):
        """The output of the program, which has stopped once."""
        path = self.script(text)
        adapter.launch(program=path, python=sys.executable, **arguments)
        adapter.ask('setBreakpoints', source={'path': path}, breakpoints=[{'line': 3}])
        adapter.ask('configurationDone')
        self.assertEqual(adapter.stopped(), 'breakpoint double:3')
        adapter.go()
        self.assertEqual(adapter.event('exited'), {'exitCode': 0})
        return ''.join(message['body']['output'] for message in adapter.messages
                       if message.get('event') == 'output'
                       and message['body']['category'] == 'stdout')


class BeginningTest(TestCase):

    def test_an_editor_is_told_why_there_is_no_adapter(self):
        for python, why in (
                ('/none/"python"', 'no such interpreter: /none/"python"'),
                ('/bin/cat', '/bin/cat is neither Python 2.6 nor 2.7')):
            adapter = self.opened(Adapter(
                [os.path.join(self.checkout, 'morvik'), 'dap', '--python', python],
                stderr=open(os.devnull, 'w')))
            self.assertEqual(adapter.refusal('initialize', adapterID='x'), why)
            self.assertEqual(adapter.process.wait(), 1)


class LaunchTest(TestCase):

    def test_with_what_is_installed_where_nothing_is_built(self):
        self.install()
        self.assertEqual(self.debugged(self.start()), '42 %s\n' % sys.executable)
        self.assertEqual(self.built(), [])

    def test_with_options_of_the_interpreter(self):
        self.install()
        tell = PROGRAM + 'print sys.flags[-8:], sys.warnoptions, sys.path[0], len(sys.argv)\n'
        options = ['-O', '-S', '-E', '-W', 'error']
        path = self.script(tell)
        alone = subprocess.Popen([sys.executable] + options + [path], stdout=subprocess.PIPE,
                                 stderr=subprocess.PIPE).communicate()[0]
        self.assertEqual(self.debugged(self.start(), tell, pythonArgs=options), alone)

    def test_neither_built_nor_installed(self):
        adapter = self.start()
        adapter.ask('initialize')
        why = adapter.refusal('launch', program=self.script(PROGRAM), python=sys.executable,
                              build=False)
        self.assertEqual(why, (
            'the program could not be started: Morvik is neither built for %(python)s '
            '(./morvik build --python %(python)s, or "build": true) nor installed there')
            % {'python': sys.executable})
        self.assertEqual(self.built(), [])

    def test_neither_built_nor_installed_in_a_terminal(self):
        self.assert_in('Morvik is neither built for', refusal_in_terminal(
            self.start(), program=self.script(PROGRAM), python=sys.executable, build=False))

    def test_no_such_interpreter(self):
        adapter = self.start()
        adapter.ask('initialize')
        for console in 'internalConsole', 'integratedTerminal':
            self.assertEqual(
                adapter.refusal('launch', program=self.script(PROGRAM), python='/none/python',
                                console=console), 'no such interpreter: /none/python')

    def test_an_interpreter_of_another_version(self):
        other = self.script('#!/bin/sh\nprintf "version 3.11;"\n', 'python3')
        no_python = self.script('#!/bin/sh\necho "usage: $0"\nexit 2\n', 'tool')
        for path in other, no_python:
            os.chmod(path, 0755)
        adapter = self.start(PATH=self.folder + os.pathsep + os.environ['PATH'])
        adapter.ask('initialize')
        program = self.script(PROGRAM)
        for name in other, 'python3':
            self.assertEqual(adapter.refusal('launch', program=program, python=name, build=True),
                             other + ' is Python 3.11; 2.6 or 2.7 is needed')
        self.assertEqual(adapter.refusal('attach', processId=os.getpid(), python=other),
                         other + ' is Python 3.11; 2.6 or 2.7 is needed')
        self.assertEqual(adapter.refusal('launch', program=program, python=no_python),
                         no_python + ' is no Python; 2.6 or 2.7 is needed')
        self.assertEqual(self.built(), [])

    def test_an_installed_adapter_and_an_interpreter_that_it_is_not_installed_for(self):
        self.install()
        adapter = self.opened(Adapter([sys.executable, '-m', 'sorrel.main', 'dap']))
        adapter.ask('initialize')
        path = self.script(PROGRAM)
        self.assert_in('No module named sorrel', adapter.refusal(
            'launch', program=path, env={'PYTHONPATH': None}))
        self.assertEqual(adapter.refusal('launch', program=path, build=True),
                         'one program at a time')

    def test_what_is_installed_builds_nothing(self):
        self.install()
        adapter = self.opened(Adapter([sys.executable, '-m', 'sorrel.main', 'dap']))
        adapter.ask('initialize')
        self.assertEqual(adapter.refusal('launch', program=self.script(PROGRAM), build=True),
                         'there is nothing here that could be built: Morvik is installed')


class TerminalTest(dap_session.TestCase):

    def test_what_cannot_be_run(self):
        for arguments, why in (
                ({'module': 'none_such'}, 'No module named none_such'),
                ({'program': self.script(PROGRAM), 'hooks': ['none_such:Hook']},
                 "can't load hook 'none_such:Hook': ImportError: No module named none_such"),
                ({'program': self.script(PROGRAM), 'pythonArgs': ['-i']}, 'no such option: -i')):
            adapter = self.opened(dap_session.Adapter())
            self.assertEqual(refusal_in_terminal(adapter, **arguments),
                             'the program could not be started: ' + why)


class BuildTest(TestCase):

    def setUp(self):
        TestCase.setUp(self)
        output = open(os.path.join(self.checkout, 'tools', 'build.sh'), 'a')
        output.write(BUILDING % (BUILT, os.path.join(os.path.dirname(BUILT), 'bin')))
        output.close()

    def test_it_is_built_when_that_is_asked_for(self):
        """And is what the next program is started with, unasked."""
        self.assertEqual(self.debugged(self.start(), build=True), '42 %s\n' % sys.executable)
        self.assertEqual(len(self.built()), 1)
        self.assertEqual(self.debugged(self.start()), '42 %s\n' % sys.executable)

    def test_it_is_built_for_an_interpreter_that_has_nothing_else(self):
        self.assertEqual(self.debugged(self.start()), '42 %s\n' % sys.executable)
        self.assertEqual(len(self.built()), 1)

    def test_what_is_missing_for_a_build_is_named_with_its_package(self):
        output = open(os.path.join(self.checkout, 'tools', 'describe_host.py'), 'r+')
        described = output.read()
        output.seek(0)
        output.write(described.replace('(path, "Python.h")', '(path, "None.h")'))
        output.truncate()
        output.close()
        adapter = self.start()
        adapter.ask('initialize')
        kind = hasattr(sys, 'gettotalrefcount') and 'dbg' or 'dev'
        self.assert_in(
            'has no Python.h (its development files are not installed; Debian has them in '
            'python%d.%d-%s)' % (sys.version_info[:2] + (kind,)), adapter.refusal(
                'launch', program=self.script(PROGRAM), python=sys.executable))
        self.assertEqual(self.built(), [])

    def test_the_client_hears_how_far_it_is(self):
        adapter = self.start()
        adapter.ask('initialize', supportsProgressReporting=True)
        number = adapter.request('launch', {'program': self.script(PROGRAM), 'build': True,
                                            'python': sys.executable})
        self.assertTrue(adapter.answer(number)['success'])
        begun, half, whole, end = [
            adapter.event(name) for name in (
                'progressStart', 'progressUpdate', 'progressUpdate', 'progressEnd')]
        self.assertEqual((begun['title'], begun['message'], begun['requestId']),
                         ('Morvik', 'building something', number))
        self.assertEqual([(event['percentage'], event['message']) for event in half, whole],
                         [(50, 'step 1 of 2'), (100, 'step 2 of 2')])
        self.assertEqual(set(event['progressId'] for event in (begun, half, whole, end)),
                         set([begun['progressId']]))
        adapter.ask('disconnect')

    def test_what_a_build_says_is_not_what_the_program_says(self):
        adapter = self.start()
        self.debugged(adapter, build=True)
        said = dict((category, ''.join(
            message['body']['output'] for message in adapter.messages
            if message.get('event') == 'output' and message['body']['category'] == category))
            for category in ('console', 'stderr'))
        self.assert_in('building something', said['console'])
        self.assert_not_in('building', said['stderr'])

    def test_why_it_could_not_be_built(self):
        output = open(os.path.join(self.checkout, 'tools', 'build.sh'), 'a')
        output.write(FAILING)
        output.close()
        adapter = self.start()
        adapter.ask('initialize')
        self.assertEqual(
            adapter.refusal('launch', program=self.script(PROGRAM), build=True),
            'the program could not be started: the build failed: '
            'core.cpp:1:10: fatal error: Python.h: No such file or directory')

    def test_nobody_hears_of_progress_who_does_not_want_to(self):
        adapter = self.start()
        self.debugged(adapter, build=True)
        self.assertEqual([message['event'] for message in adapter.messages
                          if message.get('event', '').startswith('progress')], [])


class AttachTest(TestCase):

    def setUp(self):
        TestCase.setUp(self)
        self.flag = self.script('', 'flag')

    def run_alone(self):
        """A program under the interpreter itself, which runs until its flag is gone."""
        path = self.script(attach_session.WORK, 'prog.py')
        process = subprocess.Popen([sys.executable, '-u', path, self.flag],
                                   stdout=subprocess.PIPE, close_fds=True)
        self.opened(dap_session.Ended(process))
        self.assertEqual(process.stdout.readline(), 'ready\n')
        return process

    def check_attached(self, adapter, process):
        adapter.begin({'processId': process.pid})
        adapter.ask('setBreakpoints', source={'path': os.path.join(self.folder, 'prog.py')},
                    breakpoints=[{'line': 4}])
        adapter.ask('configurationDone')
        self.assertEqual(adapter.stopped(), 'breakpoint step:4')
        adapter.ask('disconnect')
        os.unlink(self.flag)
        self.assertEqual(process.communicate()[0], 'over 1\n')

    def test_an_installed_one_to_a_process(self):
        self.install()
        self.check_attached(self.opened(Adapter([sys.executable, '-m', 'sorrel.main', 'dap'])),
                            self.run_alone())

    def test_to_a_process_with_what_is_installed_where_nothing_is_built(self):
        self.install()
        self.check_attached(self.start(), self.run_alone())
        self.assertEqual(self.built(), [])

    def test_to_a_process_for_which_nothing_is_there(self):
        process = self.run_alone()
        adapter = self.start()
        adapter.ask('initialize')
        self.assert_in('Morvik is neither built for %s' % os.path.realpath(sys.executable),
                       adapter.refusal('attach', processId=process.pid))
        self.assertEqual(process.poll(), None)

    def test_to_a_port_without_a_core(self):
        """The adapter has none in any case."""
        self.install()
        path = self.script(attach_session.WORK, 'prog.py')
        process = subprocess.Popen(
            [sys.executable, '-m', SORREL, '--listen', '0', path, self.flag],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, close_fds=True)
        self.opened(dap_session.Ended(process))
        port = int(process.stderr.readline().rpartition(':')[2])
        adapter = self.start(PYTHONPATH='')
        adapter.begin({'port': port})
        adapter.ask('configurationDone')
        adapter.ask('disconnect')


class LeavingTest(dap_session.TestCase):
    """Whoever has said goodbye need not close the connection as well."""

    def assert_ends(self, adapter):
        self.assertTrue(harness.wait_until(lambda: adapter.process.poll() is not None))
        self.assertEqual(adapter.process.poll(), 0)

    def test_without_a_program(self):
        for said in (), ('initialize',):
            adapter = self.opened(dap_session.Adapter())
            for command in said:
                adapter.ask(command)
            adapter.ask('disconnect')
            self.assert_ends(adapter)

    def test_with_a_program_that_ends_or_runs_on(self):
        path = self.script('import time\nprint "ready"\ntime.sleep(30)\n')
        for arguments, event in ({}, 'exited'), ({'terminateDebuggee': False}, None):
            adapter = self.opened(dap_session.Adapter())
            adapter.launch(program=path)
            adapter.ask('configurationDone')
            pid = adapter.event('process')['systemProcessId']
            adapter.ask('disconnect', **arguments)
            if event is not None:
                adapter.event(event)
                adapter.event('terminated')
            self.assert_ends(adapter)
            self.assertEqual(dap_session.is_alive(pid), event is None)
            if event is None:
                os.kill(pid, 9)

    def test_while_the_program_begins(self):
        adapter = self.opened(dap_session.Adapter())
        adapter.ask('initialize')
        number = adapter.request('launch', {'program': self.script('print 1\n')})
        adapter.ask('disconnect')
        self.assertFalse(adapter.answer(number)['success'])
        self.assert_ends(adapter)

    def test_one_that_listens(self):
        program = self.serve('import time\ntime.sleep(60)\n')
        adapter = self.opened(dap_session.Adapter())
        adapter.begin({'port': program.port})
        adapter.ask('configurationDone')
        adapter.ask('disconnect')
        self.assert_ends(adapter)
        self.assertEqual(program.process.poll(), None)
