"""Interpreters that are named by what sets up an environment and then becomes one."""

import os
import sys

import dap_session

PROGRAM = '''\
import os, sys
print sys.flags.optimize, [os.environ.get(name) for name in 'ONE', 'TWO', 'THREE']
'''
SCRIPT = '''\
#!/bin/sh
echo "a wrapper may say something"
export ONE="of the wrapper, was $ONE"
unset TWO
%s "$@"
'''


class WrapperTest(dap_session.TestCase):

    def setUp(self):
        dap_session.TestCase.setUp(self)
        self.adapter = self.opened(dap_session.Adapter())
        self.program = self.script(PROGRAM)

    def wrapper(self, end='exec ' + sys.executable):
        path = self.script(SCRIPT % end, 'wrapper')
        os.chmod(path, 0755)
        return path

    def ran(self, python, **more):
        """What the program has written by its end."""
        self.adapter.launch(program=self.program, python=python, **more)
        self.adapter.ask('configurationDone')
        self.adapter.event('terminated')
        return ''.join(message['body']['output'] for message in self.adapter.messages
                       if message.get('event') == 'output'
                       and message['body']['category'] == 'stdout')

    def test_the_environment_of_a_script_is_that_of_the_program(self):
        self.assertEqual(
            self.ran(self.wrapper(), env={'ONE': '1', 'TWO': '2', 'THREE': '3'}),
            "0 ['of the wrapper, was 1', None, '3']\n")

    def test_a_script_with_options_of_the_interpreter(self):
        self.assertEqual(self.ran([self.wrapper(), '-O']),
                         "1 ['of the wrapper, was ', None, None]\n")

    def test_a_command_that_becomes_the_interpreter(self):
        self.assertEqual(
            self.ran(['/usr/bin/env', '-u', 'TWO', 'ONE=1', sys.executable, '-O'],
                     env={'TWO': '2'}), "1 ['1', None, None]\n")

    def test_a_script_that_sets_the_home_of_the_interpreter(self):
        path = self.wrapper('PYTHONHOME=%s exec %s' % (sys.prefix, sys.executable))
        self.program = self.script('import os\nprint os.environ["PYTHONHOME"]\n')
        self.assertEqual(self.ran(path), sys.prefix + '\n')

    def test_a_relative_script_is_looked_for_where_the_program_begins(self):
        self.wrapper()
        self.assertEqual(self.ran('./wrapper', cwd=self.folder),
                         "0 ['of the wrapper, was ', None, None]\n")

    def test_in_a_terminal_of_the_clients(self):
        self.adapter.ask('initialize', supportsRunInTerminalRequest=True)
        self.adapter.request('launch', {
            'program': self.program, 'python': self.wrapper(), 'console': 'integratedTerminal',
            'env': {'TWO': '2'}})
        asked = self.adapter._next(
            lambda message: message.get('command') == 'runInTerminal', 'request')
        variables = asked['arguments']['env']
        self.assertEqual((variables['ONE'], variables['TWO']), ('of the wrapper, was ', None))

    def test_a_script_that_becomes_no_interpreter(self):
        self.adapter.ask('initialize')
        path = self.wrapper('exit 5; :')
        self.assertEqual(self.adapter.refusal('launch', program=self.program, python=path),
                         path + ' is no Python; 2.6 or 2.7 is needed')

    def test_what_follows_an_interpreter_is_not_run(self):
        self.adapter.ask('initialize')
        other = self.script('open(%r, "w")\n' % os.path.join(self.folder, 'trace'), 'other.py')
        self.assertEqual(
            self.adapter.refusal('launch', program=self.program, python=[sys.executable, other]),
            'pythonArgs: no options of the interpreter: ' + other)
        self.assertTrue(not os.path.exists(os.path.join(self.folder, 'trace')))
