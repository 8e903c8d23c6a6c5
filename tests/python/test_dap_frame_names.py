"""The names of frames in the forms that clients ask for."""

import os

import dap_session

FOLDER = os.path.join(os.path.dirname(os.path.dirname(os.path.dirname(
    os.path.abspath(__file__)))), 'examples', 'template_language')

PROGRAM = '''\
class Thing(object):
    def __repr__(self):
        return 'a thing'
class Broken(object):
    def __repr__(self):
        raise ValueError('broken')
def work(number, thing, (left, right), *rest, **named):
    del thing
    return lambda: number  # here
def outer(thing):
    return work(31, thing, (1, 2), 4, 5, six=6)
outer(Thing())
outer(Broken())
'''


class FrameNameTest(dap_session.TestCase):

    def setUp(self):
        dap_session.TestCase.setUp(self)
        self.program = self.serve(PROGRAM, '--wait')
        self.client = self.attach(self.program, '# here')
        self.client.stopped()

    def names(self, **format):
        return [frame['name'] for frame in self.client.ask(
            'stackTrace', threadId=self.client.thread, format=format)['stackFrames']]

    def assert_outer(self, name, **format):
        self.assertEqual(self.names(**format)[1], name)

    def test_plain_names(self):
        self.assertEqual(self.names(), ['work', 'outer', '<module>'])
        self.assertEqual(self.names(parameters=False, parameterValues=True),
                         ['work', 'outer', '<module>'])

    def test_modules_and_lines(self):
        self.assert_outer('__main__.outer', module=True)
        self.assert_outer('outer line 11', line=True)
        self.assert_outer('__main__.outer(thing=a thing) line 11', module=True, line=True,
                          parameters=True, parameterNames=True, parameterValues=True)

    def test_parameters(self):
        self.assert_outer('outer(thing)', parameters=True)
        self.assert_outer('outer(thing)', parameterNames=True)
        self.assert_outer('outer(Thing)', parameterTypes=True)
        self.assert_outer('outer(a thing)', parameterValues=True)
        self.assert_outer('outer(Thing thing=a thing)', parameterTypes=True, parameterNames=True,
                          parameterValues=True)
        self.assertEqual(self.names(parameters=True)[2], '<module>()')

    def test_all_kinds_of_parameters(self):
        self.assertEqual(self.names(parameters=True)[0],
                         'work(number, thing, .2, *rest, **named)')
        self.assertEqual(
            self.names(parameterNames=True, parameterValues=True, hex=True)[0],
            'work(number=0x1f, thing, .2=(0x1, 0x2), *rest=(0x4, 0x5), '
            "**named={'six': 0x6})")

    def test_a_value_that_cannot_be_shown(self):
        self.client.go()
        self.client.stopped()
        self.assert_outer('outer(<Broken object; its repr() raised ValueError: broken>)',
                          parameterValues=True)


class HiddenFrameTest(dap_session.TestCase):

    def test_all_frames_are_shown_where_that_is_asked_for(self):
        program = self.opened(dap_session.Program(
            os.path.join(FOLDER, 'bills.py'), ['--wait', '--hook', 'weft.debugging:Hook']))
        client = self.connect(program)
        client.begin({})
        client.ask('setBreakpoints', breakpoints=[{'line': 2}],
                   source={'path': os.path.join(FOLDER, 'templates', 'item.weft')})
        client.ask('configurationDone')
        client.stopped()

        def files(**format):
            return set([frame['source']['name'] for frame in client.ask(
                'stackTrace', threadId=client.thread, format=format)['stackFrames']])
        self.assertEqual(files(), set(['item.weft', 'bill.weft', 'bills.py']))
        self.assertEqual(files(includeAll=True) - files(), set(['runtime.py', 'loader.py']))
        self.assertEqual(files(includeAll=False), files())
