"""Steps and exceptions where only the user's own code counts, and where some is skipped."""

import os
import re
import subprocess

import sorrel_session

LIBRARY = '''\
import sys
def each(function, items):
    found = []
    for item in items:
        found.append(function(item))
    return found
def handled():
    try:
        raise KeyError('inside')
    except KeyError:
        return 1
def failing():
    raise ValueError('comes out')
def rests(*names):
    before()
    return sys._getframe().f_trace is None
def before():
    pass
'''
PROGRAM = '''\
import os, sys, threading
sys.path.insert(0, os.path.abspath('site-packages'))
import lib
def double(x):
    return 2 * x
def main():
    return 0
'''


class TestCase(sorrel_session.TestCase):

    def setUp(self):
        sorrel_session.TestCase.setUp(self)
        os.mkdir(os.path.join(self.folder, 'site-packages'))
        self.script(LIBRARY, 'site-packages/lib.py')

    def stops(self, lines, *commands, **how):
        """The places of all stops from the first line of main() on, which has these lines."""
        text = PROGRAM.replace('    return 0\n', ''.join('    %s\n' % line for line in lines))
        out = self.out(text + 'main()\n', ['break main', 'continue'] + list(commands), **how)
        return re.findall(r'^(?:\(sorrel\) )*> (\S+)', out, re.M)[2:]

    def out(self, text, commands, options=('--just-my-code',)):
        self.script(text, 'prog.py')
        process = self.popen(
            ['-m', 'sorrel.main', 'terminal'] + list(options) + ['--', 'prog.py'],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        out, err, self.status = self.finish(process, '\n'.join(commands) + '\n')
        self.assertEqual(err, '')
        return out


class SteppingTest(TestCase):

    def test_step_goes_through_a_library_to_the_own_code_that_it_calls(self):
        self.assertEqual(self.stops(['lib.each(double, [1, 2])', 'return 1'], *['step'] * 5), [
            'prog.py(5)double()', 'prog.py(5)double()->2', 'prog.py(5)double()',
            'prog.py(5)double()->4', 'prog.py(8)main()'])

    def test_step_goes_through_the_standard_library_and_through_c_code(self):
        self.assertEqual(self.stops([
            'threading.Thread(target=lambda: 0).run()', 'sorted([1], key=double)',
            'map(double, [1])', 'return 1'], *['step'] * 9), [
            'prog.py(7)<lambda>()', 'prog.py(7)<lambda>()->0', 'prog.py(8)main()',
            'prog.py(5)double()', 'prog.py(5)double()->2', 'prog.py(9)main()',
            'prog.py(5)double()', 'prog.py(5)double()->2', 'prog.py(10)main()'])

    def test_next_until_and_return_come_out_of_a_library_in_own_code(self):
        for command in 'next', 'until', 'return':
            self.assertEqual(self.stops(
                ['lib.each(double, [1])', 'return 1'], 'step', 'return', command), [
                'prog.py(5)double()', 'prog.py(5)double()->2', 'prog.py(8)main()'])

    def test_next_after_up_counts_in_own_code(self):
        self.assertEqual(self.stops(
            ['lib.each(double, [1, 2])', 'return 1'], 'step', 'up', 'up', 'next')[-1:],
            ['prog.py(8)main()'])

    def test_an_exception_that_leaves_own_code_for_a_library(self):
        self.assertEqual(self.stops([
            'try: lib.each(lambda n: n.missing, [1])', 'except AttributeError: pass', 'return 1'],
            'catch never', *['step'] * 4), [
            'prog.py(7)<lambda>()', 'prog.py(7)<lambda>()', 'prog.py(7)<lambda>()->None',
            'prog.py(7)main()'])

    def test_a_breakpoint_in_a_library_stops_which_is_stepped_through_then(self):
        stops = self.stops(
            ['lib.each(double, [1])', 'return 1'], 'break lib.each', 'step', 'step', 'step',
            'step', 'step', 'return', 'return', 'step')
        self.assertEqual(stops, [
            'site-packages/lib.py(3)each()', 'site-packages/lib.py(4)each()',
            'site-packages/lib.py(5)each()', 'prog.py(5)double()', 'prog.py(5)double()->2',
            'prog.py(8)main()', 'prog.py(8)main()->1', 'prog.py(9)<module>()->None'])

    def test_a_breakpoint_with_a_condition_in_a_library(self):
        stops = self.stops(['lib.each(double, range(9))', 'return 1'],
                           'break lib.py:5, item == 7', 'clear 1', 'next', 'print item', 'next')
        self.assertEqual(stops[0], 'site-packages/lib.py(5)each()')

    def test_a_logpoint_in_a_library_does_not_stop(self):
        self.assertEqual(self.stops(
            ['lib.each(abs, [1])', 'return 1'], 'logpoint lib.py:3, here', 'step'),
            ['prog.py(8)main()'])

    def test_a_thread_of_a_library_that_is_stepped_off_its_end(self):
        self.assertEqual(self.stops(
            ['thread = threading.Thread(target=double, args=[1])', 'thread.start()',
             'thread.join()', 'return 1'], 'break double', 'continue', 'next', 'next', 'clear 1')[
                 :2], ['prog.py(5)double()', 'prog.py(5)double()->2'])
        self.assertEqual(self.status, 0)

    def test_no_line_of_a_library_has_an_event_but_the_first(self):
        out = self.out(PROGRAM.replace('return 0', 'print lib.rests(*[1])') + 'main()\n', [
            'catch never', 'break main', 'continue', 'step', 'continue'])
        self.assert_in('%s\n' % (os.environ.get('MORVIK_ALWAYS_TRACE') != '1'), out)

    def test_without_the_option_library_code_is_stepped_into(self):
        self.assertEqual(self.stops(['lib.each(double, [1])', 'return 1'], 'step', options=()),
                         ['site-packages/lib.py(3)each()'])

    def test_a_new_start_has_it_too(self):
        out = self.out(PROGRAM.replace('return 0', 'lib.each(double, [1])') + 'main()\n', [
            'break main', 'run', 'continue', 'step', 'skip list'])
        self.assert_in('> prog.py(5)double()\n', out)
        self.assert_in('Code of libraries is passed by (--just-my-code).\n', out)


class CatchingTest(TestCase):

    def test_exceptions_within_a_library_are_of_no_concern(self):
        self.assertEqual(self.stops(['lib.handled()', 'return 1'], 'catch always', 'continue'), [])

    def test_one_that_comes_out_of_it_or_is_raised_in_own_code_is(self):
        self.assertEqual(self.stops([
            'try: lib.failing()', 'except ValueError: pass', 'try: double(None)',
            'except TypeError: pass'], 'catch always', 'continue', 'continue'), [
            'site-packages/lib.py(13)failing()', 'prog.py(5)double()'])

    def test_types_to_stop_at_always(self):
        self.assertEqual(self.stops(
            ['lib.handled()', 'return {}[1]'], 'catch always KeyError', 'continue', 'q'),
            ['prog.py(8)main()'])

    def test_without_the_option_all_count(self):
        self.assertEqual(self.stops(
            ['lib.handled()', 'return 1'], 'catch always', 'continue', 'q', options=()),
            ['site-packages/lib.py(9)handled()'])


class SkippingTest(TestCase):

    def test_files_and_modules_by_patterns(self):
        for pattern in '*/site-packages/*', 'lib', 'l?b', 'lib.py', 'site-packages/lib.py', \
                './site-packages/*':
            self.assertEqual(self.stops(
                ['lib.each(double, [1])', 'return 1'], 'skip ' + pattern, 'step', 'return', 'step',
                options=()), ['prog.py(5)double()', 'prog.py(5)double()->2', 'prog.py(8)main()'])
        for pattern in 'lib.*', 'other.py', '*/lib', 'ib.py':
            self.assertEqual(self.stops(
                ['lib.each(double, [1])', 'return 1'], 'skip ' + pattern, 'step', options=()),
                ['site-packages/lib.py(3)each()'])

    def test_the_file_of_the_function_that_is_shown(self):
        self.assertEqual(self.stops(
            ['lib.each(double, [1])', 'lib.handled()', 'return 1'], 'step', 'skip', 'return',
            'return', 'step', options=()), [
            'site-packages/lib.py(3)each()', 'site-packages/lib.py(6)each()->[2]',
            'prog.py(8)main()', 'prog.py(9)main()'])

    def test_own_code_is_skipped_beside_that_of_libraries(self):
        self.script('def call(function): return function(1)\n', 'util.py')
        self.assertEqual(self.stops(
            ['import util', 'util.call(double)', 'lib.each(double, [1])', 'return 1'],
            'skip util', 'next', 'step', 'return', 'step', 'step'), [
            'prog.py(8)main()', 'prog.py(5)double()', 'prog.py(5)double()->2',
            'prog.py(9)main()', 'prog.py(5)double()'])

    def test_exceptions_raised_there_stop_where_they_come_out(self):
        self.assertEqual(self.stops(
            ['lib.handled()', 'try: lib.failing()', 'except ValueError: pass'], 'skip lib',
            'catch always', 'continue', 'up', 'q', options=())[:1],
            ['site-packages/lib.py(13)failing()'])

    def test_the_list(self):
        out = self.out('pass\n', [
            'skip list', 'skip */django/*', 'skip django.*', 'skip', 'skip list', 'skip delete 1 9',
            'skip list', 'skip delete', 'skip list', 'skip a.b', 'skip delete x', 'q'], options=())
        self.assertEqual(out.split(sorrel_session.PROMPT)[1:-1], [
            'Nothing is skipped.\n', 'Skip 1: files */django/*\n', 'Skip 2: modules django.*\n',
            'Skip 3: files prog.py\n',
            'Skip 1: files */django/*\nSkip 2: modules django.*\nSkip 3: files prog.py\n',
            '*** No skip 9\n', 'Skip 2: modules django.*\nSkip 3: files prog.py\n', '',
            'Nothing is skipped.\n', 'Skip 4: modules a.b\n', '*** No skip x\n'])

    def test_code_that_is_in_no_file(self):
        out = self.out("exec 'def f():\\n    return 1'\nf()\n", ['n', 'break f', 'c', 'skip', 'q'])
        self.assert_in('*** This function is in no file\n', out)

    def test_a_path_with_signs_of_patterns(self):
        os.mkdir(os.path.join(self.folder, 'a[b]'))
        self.script('def f():\n    return 1\n', 'a[b]/inner.py')
        out = self.out('import sys\nsys.path.insert(0, "a[b]")\nimport inner\n' + 3 * 'inner.f()\n', [
            'break inner.f', 'continue', 'skip', 'clear 1', 'return', 'step', 'step', 'q'],
            options=())
        self.assert_in('> prog.py(6)<module>()\n', out.split(sorrel_session.PROMPT)[-2])

    def test_a_start_again_keeps_it(self):
        out = self.out(PROGRAM.replace('return 0', 'lib.each(double, [1])') + 'main()\n', [
            'skip other', 'skip lib', 'skip delete 1', 'break main', 'sticky', 'run', 'skip list',
            'c', 's', 'q'], options=())
        answers = out.split(sorrel_session.PROMPT)
        self.assert_in(': modules lib\n', answers[-4])
        self.assert_in('> prog.py(5)double()\n', answers[-2])
        # As each stop after "sticky".
        self.assert_in("  5  ->\t    return 2 * x\n", answers[-2])

    def test_a_start_file_may_have_it(self):
        self.script('skip lib\n', '.sorrelrc')
        self.assertEqual(self.stops(['lib.each(double, [1])', 'return 1'], 'step', options=()),
                         ['prog.py(5)double()'])

    def test_a_variable_of_that_name(self):
        out = self.out('skip = [1, 2]\npass\n', ['n', 'skip[1]', 'skip = 3', 'p skip', 'skip + 1'])
        self.assertEqual(out.split(sorrel_session.PROMPT)[2:6], ['2\n', '', '3\n', '4\n'])


class CommandLineTest(TestCase):

    def test_the_shorter_command_line(self):
        self.script('pass\n', 'prog.py')
        out, err, status = self.finish(self.popen(
            ['-m', 'sorrel.__main__', '--just-my-code', 'prog.py'], stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE), 'skip list\nq\n')
        self.assert_in('Code of libraries is passed by (--just-my-code).\n', out)
        self.assertEqual((err, status), ('', 0))

    def test_it_is_for_the_terminal(self):
        self.script('pass\n', 'prog.py')
        for arguments in (['sorrel.__main__', '--just-my-code', '--listen', '0', 'prog.py'],
                          ['sorrel.main', 'attach', '--just-my-code', '--handshake', 'x', '1']):
            self.assertEqual(self.call('-m', *arguments), (
                '', 'sorrel: --just-my-code is for the terminal: clients say so themselves\n', 2))
