"""What clients say when they launch or attach, beyond what the program is."""

import json
import os
import sys

import dap_session

PROGRAM = '''\
import os, sys
print os.getcwd(), sys.argv[1:], sys.flags.optimize
print [os.environ.get(name) for name in 'ONE', 'TWO', 'THREE', 'FOUR', 'FIVE']
'''


class AttributeTest(dap_session.TestCase):

    def setUp(self):
        dap_session.TestCase.setUp(self)
        self.adapter = self.opened(dap_session.Adapter())

    def ran(self, **arguments):
        """What the program has written by its end."""
        self.adapter.launch(**arguments)
        self.adapter.ask('configurationDone')
        self.adapter.event('terminated')
        return ''.join(message['body']['output'] for message in self.adapter.messages
                       if message.get('event') == 'output'
                       and message['body']['category'] == 'stdout')

    def warnings(self):
        return [message['body']['output'] for message in self.adapter.messages
                if message.get('event') == 'output'
                and message['body']['category'] == 'important']

    # What is not known.

    def test_unknown_attributes_are_told_of_once_with_what_there_is_instead(self):
        self.ran(program=self.script('print 1\n'), pythonPath='x', stoponEntry=True, django=True,
                 pyramid=True, processId=5, quite_another=1, type='sorrel', request='launch',
                 name='x', __sessionId='x', debugServer=1, flask=None)
        self.assertEqual(self.warnings(), [
            'launch: left out, since there is no such attribute: '
            'processId (it is for attach); pyramid (templates are found by themselves); '
            'pythonPath (use "python"); quite_another; stoponEntry (use "stopOnEntry")\n'])

    def test_nobody_is_warned_of_what_is_known(self):
        self.ran(program=self.script('print 1\n'), args=[], stopOnEntry=False, env={})
        self.assertEqual(self.warnings(), [])

    def test_unknown_attributes_when_attaching(self):
        program = self.serve('import time\ntime.sleep(60)\n')
        self.adapter.begin({'port': program.port, 'cwd': '/', 'localRoot': '/'})
        self.assertEqual(self.warnings(), [
            'attach: left out, since there is no such attribute: '
            'cwd (it is for launch); localRoot (use "pathMappings")\n'])
        self.adapter.ask('configurationDone')
        self.adapter.ask('disconnect')

    # Paths.

    def stop_at(self, local, **arguments):
        """The source of the stop at a breakpoint in what the client calls so."""
        self.adapter.launch(**arguments)
        self.adapter.ask('setBreakpoints', source={'path': local}, breakpoints=[{'line': 1}])
        self.adapter.ask('configurationDone')
        self.assertEqual(self.adapter.stopped(), 'breakpoint <module>:1')
        return self.adapter.top()['source']

    def test_relative_local_roots_are_in_the_folder_of_the_program(self):
        folder = os.path.realpath(self.folder)
        os.mkdir(os.path.join(folder, 'there'))
        path = self.script('print 1\n', 'there/prog.py')
        local = os.path.join(folder, 'here', 'prog.py')
        self.assertEqual(self.stop_at(
            local, program=path, cwd=folder,
            pathMappings=[{'localRoot': './here', 'remoteRoot': 'there'}])['path'], local)

    def test_relative_local_roots_are_in_the_folder_of_the_adapter(self):
        path = self.script('print 1\n', 'prog.py')
        local = os.path.join(os.getcwd(), 'here', 'prog.py')
        self.assertEqual(self.stop_at(local, program=path, pathMappings=[
            {'localRoot': 'here', 'remoteRoot': '.'}])['path'], local)

    def test_relative_local_roots_where_no_folder_is_known(self):
        path = self.script('print 1\n')
        self.adapter.ask('initialize', adapterID='morvik')
        self.assertEqual(
            self.adapter.refusal('launch', program=path, cwd='/', pathMappings=[
                {'localRoot': '.', 'remoteRoot': '/srv'}]),
            'pathMappings[0].localRoot is not a full path, and no folder is known that it begins '
            'at: .')

    # Where and what with.

    def test_a_program_begins_in_its_own_folder(self):
        path = self.script(PROGRAM)
        folder = os.path.realpath(self.folder)
        self.assertEqual(self.ran(program=path, args=['x']).splitlines()[0], "%s ['x'] 0" % folder)

    def test_a_program_begins_in_the_folder_that_is_named(self):
        self.script(PROGRAM, 'prog.py')
        os.mkdir(os.path.join(self.folder, 'other'))
        self.assertEqual(
            self.ran(program='../prog.py', cwd=self.folder + '/other').splitlines()[0],
            "%s [] 0" % os.path.realpath(self.folder + '/other'))

    def test_an_interpreter_with_options(self):
        self.assertEqual(
            self.ran(program=self.script(PROGRAM), python=[sys.executable, '-O'],
                     pythonArgs=['-O']).splitlines()[0][-4:], '[] 2')

    def test_wrong_words_for_an_interpreter(self):
        self.adapter.ask('initialize')
        path = self.script(PROGRAM)
        for python, why in (
                ([], 'python is empty'), (5, 'python is neither a string nor an array'),
                (['x', 5], 'python[1] is no string'),
                ([sys.executable, 'x'], 'pythonArgs: no options of the interpreter: x')):
            self.assertEqual(self.adapter.refusal('launch', program=path, python=python), why)

    def test_code_is_run(self):
        self.assertEqual(self.ran(code=['import sys', 'print __name__, sys.argv'], args=['-m']),
                         "__main__ ['-c', '-m']\n")

    def test_code_goes_with_nothing_else(self):
        self.adapter.ask('initialize')
        self.assertEqual(self.adapter.refusal('launch', code='print 1', module='x'),
                         'name either a program, a module or code')

    def test_code_can_be_debugged(self):
        self.adapter.launch(code='x = 1\nprint x\n', stopOnEntry=True)
        self.adapter.ask('configurationDone')
        self.assertEqual(self.adapter.stopped(), 'entry <module>:1')
        self.assertEqual(self.adapter.step(), 'step <module>:2')
        self.adapter.go()
        self.adapter.output('1\n')

    def test_what_a_program_writes_is_utf_8(self):
        text = '# -*- coding: utf-8 -*-\nimport sys\nprint u"\xc3\xa9"\n' \
            'sys.stderr.write(sys.stderr.encoding)\n'
        self.assertEqual(self.ran(program=self.script(text)), u'\xe9\n')

    def test_the_environment_says_which_encoding_there_is(self):
        for environment in {'PYTHONIOENCODING': 'ascii:replace'}, {'PYTHONIOENCODING': None}:
            adapter = self.adapter = self.opened(dap_session.Adapter())
            expected = environment['PYTHONIOENCODING'] or 'UTF-8'
            self.assertEqual(
                self.ran(program=self.script('import sys\nprint sys.stdout.encoding\n'),
                         env=environment), expected.partition(':')[0] + '\n')
            adapter.close()

    # Variables in a file.

    def test_variables_of_a_file_come_below_those_that_are_named(self):
        self.script('# remark\n\nONE=1\nexport TWO = "a \\"b\\"\\n" # two\n'
                    "THREE='x # y'\nFOUR=a b # four\r\nFIVE=\n", 'prog.env')
        written = self.ran(program=self.script(PROGRAM), envFile='prog.env', env={'ONE': 'own'})
        self.assertEqual(eval(written.splitlines()[1]),
                         ['own', 'a "b"\n', 'x # y', 'a b', ''])

    def test_a_file_of_variables_that_cannot_be_read(self):
        self.adapter.ask('initialize')
        path = os.path.join(self.folder, 'none')
        self.assertEqual(
            self.adapter.refusal('launch', program=self.script(PROGRAM), envFile=path),
            "can't read envFile '%s': No such file or directory" % path)
        path = self.script('ONE=1\ntwo three\n', 'wrong')
        self.assertEqual(
            self.adapter.refusal('launch', program=self.script(PROGRAM), envFile=path),
            "envFile '%s', line 2: not NAME=VALUE" % path)

    # What is said, in a file.

    def test_messages_are_logged_but_no_token(self):
        program = self.serve('import time\ntime.sleep(60)\n')
        path = os.path.join(self.folder, 'messages')
        self.adapter.begin({'port': program.port, 'token': program.token, 'logToFile': path})
        self.adapter.ask('configurationDone')
        self.adapter.ask('disconnect')
        self.assertEqual(self.adapter.event('output')['output'],
                         'messages are logged to %s\n' % path)
        logged = [line.split(' ', 2) for line in open(path)]
        messages = [json.loads(words[2]) for words in logged]
        self.assertEqual([(words[1], message.get('command'))
                          for words, message in zip(logged, messages)
                          if message['type'] != 'event'], [
            ('client', 'attach'), ('adapter', 'attach'), ('client', 'configurationDone'),
            ('adapter', 'configurationDone'), ('client', 'disconnect'), ('adapter', 'disconnect')])
        self.assertEqual(messages[0]['arguments']['token'], '...')
        self.assert_not_in(program.token, open(path).read())
        self.assertEqual(os.stat(path).st_mode & 0777, 0600)

    def test_messages_are_logged_to_a_new_file(self):
        self.adapter = self.opened(dap_session.Adapter())
        self.ran(program=self.script('print 1\n'), logToFile=True)
        said = self.adapter.event('output')['output']
        path = said[len('messages are logged to '):].rstrip('\n')
        try:
            self.assert_in('"terminated"', open(path).read())
        finally:
            os.remove(path)

    def test_a_log_that_cannot_be_written(self):
        self.adapter.ask('initialize')
        self.assertEqual(
            self.adapter.refusal('launch', program=self.script('print 1\n'), logToFile='/'),
            "can't write logToFile '/': Is a directory")
        self.assertEqual(
            self.adapter.refusal('launch', program=self.script('print 1\n'), logToFile=5),
            'logToFile is neither a string nor true or false')

    # Once more.

    def test_who_is_turned_away_may_attach_again(self):
        program = self.serve('import time\nwhile True:\n    time.sleep(0.01)\n')
        client = self.attach(program)
        self.adapter.ask('initialize')
        for _ in range(2):
            self.assertEqual(self.adapter.refusal('attach', port=program.port),
                             'another client is debugging this program')
        client.ask('disconnect')
        client.read_all()
        self.adapter.ask('attach', port=program.port)
        self.adapter.event('initialized')
        self.assertEqual(self.adapter.refusal('attach', port=program.port),
                         'one program at a time')
        self.adapter.ask('configurationDone')
        self.adapter.ask('disconnect')
