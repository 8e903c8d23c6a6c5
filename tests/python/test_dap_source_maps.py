"""Lines of a client's file that the program runs as lines of another one."""

import os

import dap_session

CELL = '''\
# made for the cell
import sys
def cell(number):
    number += 1
    return number
# the end
def other():
    return 7
'''
PROGRAM = '''\
import sys
space = {}
execfile(sys.path[0] + '/cell.py', space)
space['cell'](1)
space['cell'](2)
space['other']()
'''
BOOK = 'memory:book.ipynb#c1'


class SourceMapTest(dap_session.TestCase):

    def setUp(self):
        dap_session.TestCase.setUp(self)
        self.script(CELL, 'cell.py')
        self.cell = os.path.join(os.path.realpath(self.folder), 'cell.py')
        self.program = self.serve(PROGRAM, '--wait')
        self.client = self.connect(self.program)
        self.client.begin({})

    def range(self, line, end, runtime_line, path=None):
        return {'line': line, 'endLine': end, 'runtimeLine': runtime_line,
                'runtimeSource': {'path': path or self.cell}}

    def map(self, *ranges, **source):
        return self.client.ask('setPydevdSourceMap', source={'path': source.get('path', BOOK)},
                               pydevdSourceMaps=list(ranges))

    def refusal(self, *ranges, **source):
        return self.client.refusal(
            'setPydevdSourceMap', source={'path': source.get('path', BOOK)},
            pydevdSourceMaps=list(ranges))

    def break_in_book(self, *lines, **more):
        return self.client.ask('setBreakpoints', source={'path': BOOK}, breakpoints=[
            dict(more, line=line) for line in lines])['breakpoints']

    def assert_in_book(self, source):
        self.assertEqual(source, {'name': BOOK, 'path': BOOK})

    def test_breakpoints_and_stacks_are_in_the_clients_lines(self):
        self.map(self.range(101, 103, 3))
        found, = self.break_in_book(102)
        self.assertEqual(found['line'], 102)
        self.assert_in_book(found['source'])
        self.client.ask('configurationDone')
        self.assertEqual(self.client.stopped(), 'breakpoint cell:102')
        self.assert_in_book(self.client.top()['source'])
        self.assertEqual(self.client.step(), 'step cell:103')
        targets = self.client.ask('gotoTargets', source={'path': BOOK}, line=102)['targets']
        self.assertEqual([target['line'] for target in targets], [102])

    def test_another_name_of_the_programs_file_will_do(self):
        link = self.cell.replace('cell.py', 'link.py')
        os.symlink(self.cell, link)
        self.map(self.range(101, 103, 3, link))
        self.break_in_book(102)
        self.client.ask('configurationDone')
        self.assertEqual(self.client.stopped(), 'breakpoint cell:102')
        self.assert_in_book(self.client.top()['source'])

    def test_lines_that_are_not_mapped_are_the_programs(self):
        self.map(self.range(101, 103, 3))
        self.client.ask('setBreakpoints', source={'path': self.cell}, breakpoints=[{'line': 8}])
        self.client.ask('configurationDone')
        self.assertEqual(self.client.stopped(), 'breakpoint other:8')
        self.assertEqual(self.client.top()['source'], {'name': 'cell.py', 'path': self.cell})

    def test_log_messages_tell_the_clients_lines(self):
        self.map(self.range(101, 103, 3))
        self.break_in_book(102, logMessage='at {number}')
        self.client.ask('configurationDone')
        body = self.client.event('output')
        self.assertEqual((body['output'], body['line']), ('at 1\n', 102))
        self.assert_in_book(body['source'])

    def test_breakpoints_follow_what_is_said_anew(self):
        before, = self.break_in_book(5)
        self.assertEqual(before['verified'], False)
        self.map(self.range(5, 5, 4))
        self.assertEqual(self.client.event('breakpoint')['breakpoint']['id'], before['id'])
        self.client.ask('configurationDone')
        self.assertEqual(self.client.stopped(), 'breakpoint cell:5')
        self.map(self.range(5, 5, 8))
        self.client.go()
        self.assertEqual(self.client.stopped(), 'breakpoint other:5')

    def test_what_is_taken_back_is_the_programs_again(self):
        self.map(self.range(101, 103, 3))
        self.client.ask('setBreakpoints', source={'path': self.cell}, breakpoints=[{'line': 4}])
        self.client.ask('configurationDone')
        self.assertEqual(self.client.stopped(), 'breakpoint cell:102')
        self.map()
        self.assertEqual(self.client.top()['line'], 4)

    def test_what_makes_no_sense_is_refused_and_changes_nothing(self):
        self.map(self.range(101, 103, 3))
        self.assertEqual(self.refusal(self.range(5, 4, 1)), 'line 5 is after endLine 4')
        self.assertEqual(self.refusal(self.range(0, 4, 1)), 'lines are counted from 1')
        self.assertEqual(self.refusal(self.range(1, 4, 1), self.range(4, 5, 6)),
                         'lines 1 to 4 and 4 to 5 are of both')
        self.assertEqual(
            self.refusal(self.range(1, 4, 1), self.range(5, 6, 4)),
            'lines of %s are mapped twice, from line 1 and from line 4 on' % self.cell)
        self.assertEqual(
            self.refusal(self.range(1, 1, 5), path='other.ipynb'),
            'lines of %s are mapped twice, from line 3 and from line 5 on' % self.cell)
        self.assertEqual(self.break_in_book(102)[0]['line'], 102)
