# -*- coding: utf-8 -*-
"""What is typed in an editor's console, and what watches and breakpoints evaluate."""

import dap_session

PROGRAM = '''
import os

class Shop(object):
    def __init__(self):
        self.n = 2
        self.__private = 'own'

    def sell(self, xs):
        total = 0
        return total  # sell

    @staticmethod
    def static():
        pass

    @property
    def size(self):
        asked.append(self)

class Old:
    def __init__(self):
        self.n = 1

    def sell(self):
        pass

def fail(number):
    raise ValueError('no %d' % number)

asked = []
old = Old()
shop = Shop()
done = shop.sell([1, 2, 3])  # call
'''


class TestCase(dap_session.TestCase):

    def stopped_at(self, mark, **breakpoint):
        """A client at a line of the program."""
        self.program = self.serve(PROGRAM, '--wait')
        client = self.connect(self.program)
        client.begin({})
        client.ask('setBreakpoints', source={'path': self.program.path}, breakpoints=[
            dict(breakpoint, line=self.program.line(mark))])
        client.ask('configurationDone')
        return client

    def console(self, mark='# sell'):
        client = self.stopped_at(mark)
        client.stopped()
        return client


class ConsoleTest(TestCase):

    def typed(self, client, text):
        return client.evaluate(text, 'repl')

    def refused(self, client, text):
        return client.refusal(
            'evaluate', expression=text, context='repl', frameId=client.top()['id'])

    def test_all_statements_run_and_the_value_at_the_end_is_shown(self):
        for mark in '# sell', '# call':
            client = self.console(mark)
            for text, result in (
                    ('x1 = 1\nx2 = 2', ''), ('x1, x2', '(1, 2)'), ('_', '(1, 2)'),
                    ('x1 = 5\nx1 + x2', '7'), ('_ * 2', '14'), ('x1\nx2 = 6', ''), ('_', '14'),
                    ('for i in range(3):\n    x1 += i\nx1', '8'),
                    ('def f(n):\n    return n and n * f(n - 1) or 1\n\nf(4)', '24'),
                    ('if x1:\n    x2 = 0\nelse:\n    x2 = 1\n\nx3 = x2\nx3', '0'),
                    ('from __future__ import division\nhalf = 1 / 2\nhalf, 1 / 2', '(0.5, 0.5)'),
                    ('x1 = 1; x2 = 2\n\n\n# that is all\n', ''), ('# nothing', ''), ('', ''),
                    ('global shop; shop = 8', ''), ('globals()["shop"]', '8'),
                    ('for i in 1, 2: i', '2'), ('x1\nNone', ''),
                    ('x1 = 3\r\nx1', '3'), ('    x1 = 4\n    if x1:\n        x1 += 1\n    x1', '5'),
                    (u'x1 = u"\xe9"\nx1, "\xe9"', u"(u'\xe9', '\\xc3\\xa9')"), ('x1 = 5', ''),
                    ('  """a\n  b"""', "'a\\nb'"), (' x1', '5')):
                self.assertEqual((text, self.typed(client, text)), (text, result))

    def test_nothing_runs_of_what_cannot_be_compiled(self):
        client = self.console()
        for text in 'total = 5\ntotal = = 6', 'total = 5\nreturn', 'total = 5\n  total = 6':
            self.assert_in('Error: ', self.refused(client, text))
        self.assertEqual(self.typed(client, 'total'), '0')

    def test_what_runs_before_a_mistake_stays(self):
        client = self.console()
        self.refused(client, 'total = 5\n1 / 0\ntotal = 6')
        self.assertEqual(self.typed(client, 'total'), '5')

    def test_functions_see_the_variables_of_the_frame(self):
        client = self.console()
        for context in 'repl', 'watch', 'hover', 'variables', 'clipboard', None:
            self.assertEqual(client.evaluate('sum(self.n for z in xs)', context), '6')
            self.assertEqual(client.evaluate('(lambda: len(xs) + total)()', context), '3')
        self.assertEqual(self.typed(client, 'ys = [1]\nsum(self.n * y for y in ys)'), '2')
        self.assertEqual(client.ask(
            'setVariable', variablesReference=client.scope(), name='total',
            value='sum(self.n for z in xs)')['value'], '6')
        self.assertEqual(client.ask(
            'setExpression', expression='total', value='sum(z * self.n for z in xs)',
            frameId=client.top()['id'])['value'], '12')

    def test_private_names_are_those_of_the_method(self):
        client = self.console()
        for context in 'repl', 'watch', 'hover':
            self.assertEqual(client.evaluate('self.__private', context), "'own'")
        self.typed(client, 'before = self.__private\nself.__private = before * 2')
        self.assertEqual(client.evaluate('self._Shop__private'), "'ownown'")
        client.ask('setExpression', expression='self.__private', value='[self.__private]',
                   frameId=client.top()['id'])
        self.assertEqual(client.evaluate('self.__private'), "['ownown']")

    def test_what_is_raised_is_shown_with_its_traceback(self):
        client = self.console()
        self.assertEqual(self.refused(client, 'total = 1\nfail(total)'), '''\
Traceback (most recent call last):
  File "<stdin>", line 2, in <module>
  File "%s", line %d, in fail
    raise ValueError('no %%d' %% number)
ValueError: no 1''' % (self.program.path, self.program.line('raise ValueError')))
        self.assertEqual(self.refused(client, 'x = [1 / n for n in (lambda: xs)()]\n1 / 0'), '''\
Traceback (most recent call last):
  File "<stdin>", line 2, in <module>
ZeroDivisionError: integer division or modulo by zero''')
        # In a statement that has become a function, too.
        self.assertEqual(self.refused(client, 'map(lambda z: total / 0, xs)'), '''\
Traceback (most recent call last):
  File "<stdin>", line 1, in <module>
  File "<stdin>", line 1, in <lambda>
ZeroDivisionError: integer division or modulo by zero''')
        self.assertEqual(self.refused(client, 'x = 1\nx = = 2'), '''\
  File "<stdin>", line 2
    x = = 2
        ^
SyntaxError: invalid syntax''')
        self.assertEqual(client.refusal(
            'evaluate', expression='fail(1)', context='watch', frameId=client.top()['id']),
            'ValueError: no 1')

    def test_a_recursion_without_end_is_shown_in_short(self):
        client = self.console()
        said = self.refused(client, 'def endless():\n    endless()\nendless()')
        self.assert_in('more ...\n', said)
        self.assertEqual(len(said.split('\n')), 43)


class BreakpointTest(TestCase):

    def outputs(self, client):
        """The categories and texts of what was written up to now."""
        client.ask('threads')
        return [(message['body']['category'], message['body']['output'])
                for message in client.messages if message.get('event') == 'output']

    def test_conditions_and_log_messages_mean_what_the_method_would(self):
        client = self.stopped_at('# sell', condition='sum(self.n for z in xs) == 6 and '
                                                     'self.__private == "own"')
        client.stopped()
        self.assertEqual(self.outputs(client), [])
        client = self.stopped_at('# sell', logMessage='{sum(self.n for z in xs)} {self.__private}')
        self.assertEqual(client.event('output')['output'], '6 own\n')

    def loop(self, **breakpoint):
        """A client of a loop with such a breakpoint in it and another one behind it."""
        program = self.serve('for n in range(3):\n    pass\nend = 1\n', '--wait')
        client = self.connect(program)
        client.begin({})
        client.ask('setBreakpoints', source={'path': program.path},
                   breakpoints=[dict(breakpoint, line=2), {'line': 3}])
        client.ask('configurationDone')
        return client

    def test_a_condition_that_fails_is_told_with_each_stop_and_once_in_the_console(self):
        client = self.loop(condition='nothing > 1')
        error = "NameError: name 'nothing' is not defined"
        for _ in range(3):
            stop = client.event('stopped')
            self.assertEqual((stop['description'], stop['text']),
                             ('Paused on breakpoint: its condition fails', error))
            client.ask('continue', threadId=1)
        self.assert_not_in('text', client.event('stopped'))
        self.assertEqual(self.outputs(client), [
            ('important', 'sorrel: the condition of a breakpoint fails: %s\n' % error)])

    def test_a_log_message_that_fails_is_told_once(self):
        client = self.loop(logMessage='at {nothing}')
        client.stopped()
        error = "NameError: name 'nothing' is not defined"
        logged = 'console', 'at <%s>\n' % error
        self.assertEqual(self.outputs(client), [
            logged, ('important', 'sorrel: the log message of a breakpoint fails: %s\n' % error),
            logged, logged])

    def test_a_failing_condition_of_a_log_message_is_told_once(self):
        client = self.loop(logMessage='at {n}', condition='1 / 0')
        client.stopped()
        self.assertEqual(self.outputs(client), [
            ('important', 'sorrel: the condition of a breakpoint fails: '
                          'ZeroDivisionError: integer division or modulo by zero\n')]
            + [('console', 'at %d\n' % number) for number in range(3)])


class CompletionTest(TestCase):

    def types(self, client, text):
        targets = client.ask('completions', text=text, column=len(text) + 1,
                             frameId=client.top()['id'])['targets']
        return dict((target['label'], target['type']) for target in targets)

    def test_what_could_follow_has_a_type(self):
        client = self.console()
        names = {}
        for begun in 'se', 'whi', 'o', 'Sh', 'fail', 'len', 'shop', 'Val':
            names.update(self.types(client, begun))
        for name, type in (
                ('self', 'variable'), ('while', 'keyword'), ('os', 'module'), ('Shop', 'class'),
                ('fail', 'function'), ('len', 'function'), ('ValueError', 'class')):
            self.assertEqual((name, names[name]), (name, type))
        for path, name, type in (
                ('self', 'n', 'field'), ('self', 'sell', 'method'), ('self', 'size', 'property'),
                ('self', 'static', 'method'), ('os', 'path', 'module'), ('os', 'fork', 'function'),
                ('os', 'sep', 'field'), ('xs', 'append', 'method'), ('Shop', 'sell', 'method'),
                ('old', 'sell', 'method'), ('Old', 'sell', 'method'), ('old', 'n', 'field')):
            self.assertEqual((name, self.types(client, path + '.')[name]), (name, type))

    def test_nothing_of_the_program_runs_for_a_type(self):
        client = self.console()
        self.types(client, 'self.')
        self.assertEqual(client.evaluate('asked'), '[]')
