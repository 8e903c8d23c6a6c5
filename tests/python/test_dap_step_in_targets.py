"""The calls of a line, and steps into one of them."""

import os

import dap_session

PROGRAM = '''\
import functools
def f(*values, **named):
    return values and values[0]  # f
def g(value):
    return value  # g
def h():
    return 3  # h
def wrapped(function):
    def wrapper(*values):
        return function(*values)  # wrapper
    return wrapper
@wrapped
def decorated(value):
    return value  # decorated
class Plain(object):
    def __init__(self, value=0):
        self.value = value  # init
    def method(self, value):
        return value  # method
    @property
    def shown(self):
        return g(1)
    def __enter__(self):
        return self
    def __exit__(self, *error):
        pass
class Classic:
    def __init__(self):
        self.deep = Plain()  # classic
def failing():
    raise ValueError('fails')  # failing
def main(x=1):
    %s
    return 0  # after
main()
'''


class TestCase(dap_session.TestCase):

    def begun(self, *lines, **arguments):
        """A client of a program that has stopped at the first of these lines of main()."""
        program = self.serve(PROGRAM % '\n    '.join(lines), '--wait')
        client = self.attach(program, lines[0], **arguments)
        self.assert_in('breakpoint main:', client.stopped())
        self.program = program
        self.break_at(client, program)
        return client

    def targets(self, client):
        frame = client.top()['id']
        return client.ask('stepInTargets', frameId=frame)['targets']

    def labels(self, client):
        return [target['label'] for target in self.targets(client)]

    def into(self, client, place):
        """Where a step into the call at this place among them comes to: "step", and the mark."""
        client.ask('stepIn', threadId=client.thread, targetId=self.targets(client)[place]['id'])
        return self.arrived(client)

    def arrived(self, client):
        where = client.stopped()
        text = open(self.program.path).readlines()[int(where.rpartition(':')[2]) - 1]
        return where.partition(' ')[0] + ' ' + (text.partition('# ')[2].strip() or text.strip())


class ListingTest(TestCase):

    def test_calls_come_in_the_order_in_which_they_are_made(self):
        self.assertEqual(self.labels(self.begun('f(g(x), h())')), ['g', 'h', 'f'])

    def test_they_are_named_as_they_are_written(self):
        client = self.begun(
            'Classic().deep.method(Plain(g(1)).method(2)) + [f][0](*[1], **{}) + (lambda: 1)()')
        self.assertEqual(self.labels(client), [
            'Classic', 'g', 'Plain', 'Plain(...).method', 'Classic(...).deep.method', '(...)[...]',
            '<lambda>'])

    def test_free_and_global_names_and_texts(self):
        client = self.begun('(lambda: x)', '"%s".join([str(main.x)]); functools.partial(f)')
        client.step()
        self.assertEqual(self.labels(client), ['str', "'%s'.join", 'functools.partial'])

    def test_what_the_compiler_calls_is_none(self):
        client = self.begun('with Plain() as one: f(one.shown + 1, *(g(y) for y in [1]))')
        self.assertEqual(self.labels(client), ['Plain', 'f'])
        self.assertEqual(self.labels(self.begun('class Inner(f() or object): pass')), ['f'])

    def test_only_those_that_are_still_to_come(self):
        client = self.begun('f(g(x), h())')
        client.step('stepIn')
        client.step('stepOut')
        self.assertEqual(self.labels(client), ['h', 'f'])

    def test_a_statement_may_be_on_several_lines(self):
        client = self.begun('f(g(x),', '  h(),', '  Plain())', 'g(2)')
        self.assertEqual(self.labels(client), ['g', 'h', 'Plain', 'f'])
        client.step()
        self.assertEqual(self.labels(client), ['h', 'Plain', 'f'])

    def test_the_next_statement_is_not_of_it(self):
        for lines in (['for one in f([],', '        []): g(one)', 'g(2)'],
                      ['try: f()', 'finally:', '  g(1)'], ['if f():', '  g(1)'],
                      ['with f(Plain()):', '  g(1)'], ['while f():', '  g(1)']):
            labels = self.labels(self.begun(*lines))
            self.assertEqual([label for label in labels if label != 'Plain'][:1], ['f'])
            self.assertEqual('g' in labels, lines[0].startswith('for'), lines)

    def test_a_statement_begins_behind_a_list_comprehension(self):
        client = self.begun(
            'x = [g(one) for one in [1, 2] for _ in [f(one)]]', 'while f(x):', '    g(2)',
            '    x = h()', '    break')
        while client.top()['line'] != self.program.line('while f(x)'):
            client.go('next')
            client.stopped()
        self.assertEqual(self.labels(client), ['f'])

    def test_there_are_none_at_an_exception(self):
        client = self.begun('f(failing(), g(1))')
        client.ask('setExceptionBreakpoints', filters=['raised'])
        client.go()
        client.stopped()
        self.assertEqual(self.targets(client), [])
        frames = client.ask('stackTrace', threadId=client.thread)['stackFrames']
        self.assertEqual(client.ask('stepInTargets', frameId=frames[1]['id'])['targets'], [])


class SteppingTest(TestCase):

    def test_each_call_of_a_line(self):
        for place, name in enumerate(['step g', 'step h', 'step f']):
            self.assertEqual(self.into(self.begun('f(g(x), h())'), place), name)

    def test_the_same_function_again(self):
        client = self.begun('f(f(5), f(f(7)))')
        self.assertEqual(self.into(client, 2), 'step f')
        self.assertEqual(client.variable('values')['value'], '(7,)')

    def test_through_a_decorator_classes_and_partial(self):
        client = self.begun('f(h(), decorated(1), Plain(), Classic(), functools.partial(g, 1)())')
        labels = self.labels(client)
        for name, place in (('decorated', 'wrapper'), ('Plain', 'init'), ('Classic', 'classic'),
                            ('functools.partial(...)', 'g')):
            client = self.begun(
                'f(h(), decorated(1), Plain(), Classic(), functools.partial(g, 1)())')
            self.assertEqual(self.into(client, labels.index(name)), 'step ' + place)

    def test_through_a_library(self):
        os.mkdir(os.path.join(self.folder, 'site-packages'))
        self.script('def each(function, *rest):\n    return function(1)\n', 'site-packages/lib.py')
        client = self.begun(
            'import sys; sys.path.insert(0, "%s/site-packages")' % self.folder, 'import lib',
            'f(lib.each(decorated), lib.each(g))')
        client.step()
        client.step()
        self.assertEqual(self.labels(client), ['lib.each', 'lib.each', 'f'])
        self.assertEqual(self.into(client, 1), 'step g')

    def test_c_code_is_stepped_over_with_what_it_calls(self):
        client = self.begun('f(sorted([1, 2], key=g), map(g, [1]), h())')
        self.assertEqual(self.into(client, 0), 'step after')

    def test_another_call_of_c_code_that_calls_back(self):
        client = self.begun('f(sorted([1, 2], key=g), map(g, [1]), h())')
        self.assertEqual(self.into(client, 2), 'step h')

    def test_one_that_is_not_reached(self):
        self.assertEqual(self.into(self.begun('f() and g(1)'), 1), 'step after')

    def test_one_behind_an_exception(self):
        client = self.begun('try: f(failing(), g(1))', 'except ValueError: pass')
        self.assertEqual(self.into(client, 1), 'step except ValueError: pass')

    def test_in_the_last_turn_of_a_loop_on_one_line(self):
        client = self.begun('for y in range(9): f(y); y == 7 and g(y)')
        self.assertEqual(self.into(client, 2), 'step g')
        self.assertEqual(client.variable('value')['value'], '7')

    def test_on_another_of_the_statements_lines(self):
        lines = ['f(g(x),', '  h(),', '  decorated(1))']
        for place, name in enumerate(['step g', 'step h', 'step wrapper', 'step f']):
            self.assertEqual(self.into(self.begun(*lines), place), name)

    def test_in_a_callers_frame(self):
        client = self.begun('f(g(x), h())')
        client.step('stepIn')
        outer = client.ask('stackTrace', threadId=client.thread)['stackFrames'][1]
        targets = client.ask('stepInTargets', frameId=outer['id'])['targets']
        self.assertEqual([target['label'] for target in targets], ['h', 'f'])
        client.ask('stepIn', threadId=client.thread, targetId=targets[1]['id'])
        self.assertEqual(self.arrived(client), 'step f')

    def test_a_breakpoint_on_the_way_stops(self):
        client = self.begun('f(g(x), h())')
        self.break_at(client, self.program, '# g')
        self.assertEqual(self.into(client, 2), 'breakpoint g')

    def test_one_that_is_not_due_does_not(self):
        client = self.begun('f(g(x), h())')
        client.ask('setBreakpoints', source={'path': self.program.path}, breakpoints=[
            {'line': self.program.line('# g'), 'hitCondition': '5'}])
        self.assertEqual(self.into(client, 2), 'step f')

    def test_a_target_of_an_earlier_stop(self):
        client = self.begun('f(g(x), h())')
        target = self.targets(client)[0]['id']
        client.step()
        self.assertEqual(client.refusal('stepIn', threadId=client.thread, targetId=target),
                         'the program has gone on since then')
        self.assertEqual(client.refusal('stepInTargets', frameId=77777),
                         'the program has gone on since then')
