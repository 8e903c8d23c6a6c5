"""Code that the client's rules say is the user's own, or is not."""

import os

import dap_session

LIBRARY = '''\
def each(function, items):
    return [function(item) for item in items]
def handled():
    try:
        raise KeyError('inside')
    except KeyError:
        pass
'''
PROGRAM = '''\
import os, sys
sys.path.insert(0, os.path.dirname(os.path.abspath(sys.argv[0])) + '/site-packages')
import lib
import pack.inner
def double(number):
    return 2 * number  # double
def broken(number):
    raise ValueError(number)
def main():
    lib.each(double, [1])  # here
    pack.inner.each(double, [1])  # second
    lib.handled()
    pack.inner.handled()
    for module in lib, pack.inner:
        try:
            module.each(broken, [1])
        except ValueError:
            pass
main()
'''


class RulesTest(dap_session.TestCase):

    def setUp(self):
        dap_session.TestCase.setUp(self)
        for folder in 'site-packages', 'pack':
            os.mkdir(os.path.join(self.folder, folder))
        self.script(LIBRARY, 'site-packages/lib.py')
        self.script(LIBRARY, 'pack/inner.py')
        self.script('', 'pack/__init__.py')

    def begun(self, *rules, **arguments):
        """A client of a program that has stopped at its first breakpoint, which is gone."""
        program = self.serve(PROGRAM, '--wait')
        client = self.attach(program, '# here', rules=list(rules), **arguments)
        self.assertEqual(client.stopped(), 'breakpoint main:10')
        self.break_at(client, program)
        return client

    def stops(self, *rules, **arguments):
        """The functions that steps into calls stop in, from the first line on to the third."""
        client = self.begun(*rules, **arguments)
        found = []
        while client.top()['line'] < 12 or client.top()['name'] != 'main':
            found.append(client.step('stepIn').split(' ')[1].split(':')[0])
        return [name for name, before in zip(found, [None] + found) if name != before]

    # Steps.

    def test_without_rules_the_folder_decides(self):
        self.assertEqual(self.stops(), ['double', 'main', 'each', 'double', 'each', 'main'])

    def test_a_library_that_is_included_is_stepped_into(self):
        for rule in {'module': 'lib'}, {'path': '**/site-packages/lib.py'}, {'path': 'l?b.py'}:
            self.assertEqual(self.stops(dict(rule, include=True)), [
                'each', 'double', 'each', 'main', 'each', 'double', 'each', 'main'])

    def test_own_code_that_is_excluded_is_stepped_through(self):
        for rule in {'module': 'pack'}, {'path': '*/pack/*'}, {'path': 'pack'}, \
                {'path': self.folder + '/**/pack/**'}, {'path': '**/pack/**/inner.py'}:
            self.assertEqual(self.stops(dict(rule, include=False)),
                             ['double', 'main', 'double', 'main'])

    def test_names_have_to_be_whole(self):
        for rule in {'module': 'pac'}, {'module': 'inner'}, {'path': 'nner.py'}, \
                {'path': self.folder + '/inner.py'}, {'path': '/pack'}:
            self.assertEqual(self.stops(dict(rule, include=False))[2:3], ['each'])

    def test_excluded_code_is_passed_by_without_just_my_code(self):
        self.assertEqual(
            self.stops({'module': 'lib', 'include': False}, justMyCode=False),
            ['double', 'main', 'each', 'double', 'each', 'main'])

    def test_the_first_rule_that_matches_decides(self):
        inner = {'module': 'pack.inner', 'include': True}
        pack = {'module': 'pack', 'include': False}
        self.assertEqual(self.stops(inner, pack)[2:3], ['each'])
        self.assertEqual(self.stops(pack, inner)[2:3], ['double'])

    def test_patterns_of_paths_are_mapped(self):
        self.assertEqual(
            self.stops({'path': '/here/pack/**', 'include': False},
                       pathMappings=[{'localRoot': '/here', 'remoteRoot': self.folder}])[2:3],
            ['double'])

    def test_the_next_client_has_rules_of_its_own(self):
        program = self.serve(PROGRAM + 'while True:\n    main()\n', '--wait')
        client = self.attach(program, '# second',
                             rules=[{'module': 'pack', 'include': False}])
        client.stopped()
        self.assertEqual(client.step('stepIn'), 'step double:6')
        client.ask('disconnect')
        client.read_all()
        client = self.attach(program, '# second')
        client.stopped()
        self.assertEqual(client.step('stepIn'), 'step each:2')

    # Exceptions.

    def raised(self, name, *rules, **arguments):
        """The functions in which the program stops at exceptions."""
        client = self.begun(*rules, **arguments)
        client.ask('setExceptionBreakpoints', filters=[name])
        client.go()
        found = []
        while self.is_stopped(client):
            found.append(client.top()['moduleId'])
            client.go()
        return found

    def is_stopped(self, client):
        """Waits for the next stop, or the program's end."""
        while not client.has('terminated'):
            if client.has('stopped'):
                client.thread = client.event('stopped')['threadId']
                return True
        return False

    def test_raised_exceptions(self):
        lib, pack = {'module': 'lib', 'include': True}, {'module': 'pack', 'include': False}
        every = {'module': '*', 'include': True}
        self.assertEqual(self.raised('raised'), ['pack.inner', '__main__', '__main__'])
        self.assertEqual(self.raised('raised', pack), ['__main__', '__main__'])
        self.assertEqual(self.raised('raised', lib, pack), ['lib', '__main__', '__main__'])
        self.assertEqual(self.raised('raised', pack, every, justMyCode=False),
                         ['lib', '__main__', '__main__'])

    def test_user_unhandled_exceptions(self):
        lib, pack = {'path': 'lib.py', 'include': True}, {'path': 'pack', 'include': False}
        self.assertEqual(self.raised('userUnhandled'), ['__main__'])
        self.assertEqual(self.raised('userUnhandled', lib), [])
        self.assertEqual(self.raised('userUnhandled', pack), ['__main__', '__main__'])

    # Frames.

    def hints(self, *rules, **arguments):
        client = self.begun(*rules, **arguments)
        self.assertEqual(client.step('stepIn'), 'step double:6')
        frame = client.ask('stackTrace', threadId=client.thread)['stackFrames'][1]
        return frame.get('presentationHint'), frame['source'].get('presentationHint')

    def test_frames_of_excluded_code_are_shown_subtly(self):
        excluded = {'module': 'lib', 'include': False}
        self.assertEqual(self.hints(excluded), ('subtle', 'deemphasize'))
        self.assertEqual(self.hints(excluded, justMyCode=False), ('subtle', 'deemphasize'))

    def test_modules_are_those_of_the_user_by_rules(self):
        client = self.begun(
            {'module': 'lib', 'include': True}, {'module': 'pack', 'include': False})
        own = dict((module['id'], module['isUserCode'])
                   for module in client.ask('modules')['modules'])
        self.assertEqual([own[name] for name in 'lib', 'pack', 'pack.inner', '__main__', 'os'],
                         [True, False, False, True, False])

    # Bad rules.

    def test_bad_rules_are_refused(self):
        adapter = self.opened(dap_session.Adapter())
        adapter.ask('initialize')
        path = self.script('print 1\n')
        program = self.serve('import time\ntime.sleep(60)\n')
        client = self.connect(program)
        client.ask('initialize')
        for rules, why in (
                (5, 'rules is no array'), ([5], 'rules[0] is no object'),
                ([{'include': True}], 'rules[0] has neither a path nor a module'),
                ([{'path': 'x', 'module': 'x', 'include': True}],
                 'rules[0] has both a path and a module'),
                ([{'path': 'x', 'include': True}, {'path': 'x'}], 'rules[1].include is missing'),
                ([{'path': 'x', 'include': 1}], 'rules[0].include is neither true nor false'),
                ([{'module': 1, 'include': True}], 'rules[0].module is no string'),
                ([{'module': '', 'include': True}], 'rules[0].module is empty'),
                ([{'path': '[z-a]', 'include': True}], 'rules[0].path is no pattern of names'),
                ([{'path': 'x\0', 'include': True}], 'rules[0].path is no pattern of names')):
            self.assertEqual(adapter.refusal('launch', program=path, rules=rules), why)
            self.assertEqual(client.refusal('attach', rules=rules), why)
        client.ask('attach', rules=[])
        adapter.ask('launch', program=path, rules=[{'module': 'x', 'include': True}])
