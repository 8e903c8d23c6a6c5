"""Texts that the interpreter's parser or compiler cannot take: refused, and nothing else happens."""

import _ast
import os
import re
import tempfile
import time

import dap_session
import harness
import sorrel_session
from sorrel.inspection import evaluation, nesting

# What begins and ends a level, around "x".
LEVELS = [
    ('(', ')'), ('[', ']'), ('{1: ', '}'), ('`[', ']`'), ('f(', ')'), ('f(a=', ')'), ('x[', ']'),
    ('x[a:', ']'), ('x[::', ']'), ('-', ''), ('~ +', ''), ('not ', ''), ('lambda: ', ''),
    ('(lambda x=', ': 0)'), ('a if b else ', ''), ('a ** ', ''),
    ('a ** -', ''), ('(yield ', ')'), ('[x for x in ', ']'), ('(x for x in ', ')'),
    ('[x for x in y if ', ']'), ('f(x for x in y if ', ')'), ('[x for x in y for x in ', ']'),
    ('(a and not b or ', ')'), ('(-a + ', ')'), ('(a < b is not ', ')'), ('("[(" + ', ')'),
    ('( # ((\n', ')'), ('(a, lambda x, y: a, not b, ', ')'), ('(1e-5 ** ', ')'), ('f.g(x)(', ')')]

# Whatever these are taken for, the process lives on and says nothing.
HOSTILE = [
    '+'.join(['1'] * 200000), '+'.join(['x'] * 20000), '-' * 100000 + '1', 'x' + '.y' * 100000,
    '[' * 100000, '[' * 1000 + ']' * 1000, '(' * 1000, '`[' * 1000, '{' * 100000,
    'a if b else ' * 10000 + 'c', 'not ' * 100000 + 'x', 'lambda: ' * 10000 + 'x',
    'x' + '()' * 30000, 'x' + '[0]' * 20000, '2 ** ' * 20000 + '1', 'lambda ' * 5000,
    '[' + 'a<b<c,' * 10000 + ']', 'x and ' * 10000 + 'x', '"' + '(' * 60000, "'''" + '[' * 60000,
    'x\\' * 30000, '\\\n' * 30000 + '(' * 2000, 'f(*' * 5000, '[x ' + 'for x in y ' * 5000 + ']',
    '[x ' + 'if x ' * 10000 + ']', '0x' * 30000, '1e-' * 20000, '1e-5**' * 10000 + '1',
    '\r(' * 2000, '# \r' + '(' * 2000, '(\f' * 2000, ')' * 60000, ':' * 60000, u'(\xe4' * 2000]
STATEMENTS = [
    'if a:\n b\n' + 'elif a:\n b\n' * 5000, 'if 1:\n' + ' for a in b: b\n' * 4000,
    'if 1:\n' + ' while a: b\n' * 5000, ''.join([' ' * n + 'if a:\n' for n in range(99)])
    + ' ' * 99 + 'x = ' + '(' * 90, '@f\n' * 2000 + 'def g(): pass', 'x = ' * 10000 + '1',
    'x' + '.y' * 100000 + ' = 1', 'print ' + '(' * 1000, 'a; ' * 20000, 'def f' + '(' * 2000]

REFUSED = re.compile('SyntaxError: nested too deeply$|TooMuch: (longer than|too many) ')


class ErrorsCase(harness.TestCase):
    """errors(): what the process has written to its standard error."""

    def setUp(self):
        harness.TestCase.setUp(self)
        self._errors = tempfile.TemporaryFile()
        self._stderr = os.dup(2)
        os.dup2(self._errors.fileno(), 2)

    def tearDown(self):
        os.dup2(self._stderr, 2)
        os.close(self._stderr)
        harness.TestCase.tearDown(self)

    def errors(self):
        size = os.lseek(2, 0, os.SEEK_CUR)
        os.lseek(2, 0, os.SEEK_SET)
        written = os.read(2, size)
        os.lseek(2, 0, os.SEEK_SET)
        return written


class Parser(ErrorsCase):

    def takes(self, text):
        """Whether the interpreter's own parser does."""
        try:
            compile(text, '', 'eval', _ast.PyCF_ONLY_AST)
        except (MemoryError, SyntaxError):
            self.assertEqual(self.errors(), 's_push: parser stack overflow\n')
            return False
        return True

    def is_passed(self, text):
        try:
            nesting.check(text, True)
        except SyntaxError, error:
            self.assertEqual(str(error), 'nested too deeply')
            return False
        return True

    def test_every_kind_of_nesting_is_refused_where_the_parser_fails(self):
        for begin, end in LEVELS:
            def text(count):
                return begin * count + 'x' + end * count
            most, too_many = 1, 1600
            while too_many - most > 1:
                middle = (most + too_many) // 2
                if self.is_passed(text(middle)):
                    most = middle
                else:
                    too_many = middle
            self.assert_(self.takes(text(most)), (begin, most))
            self.assert_(not self.takes(text(most + 1)), (begin, most))

    def test_what_is_only_long_is_not_refused(self):
        for text in (
                ', '.join(['-1', 'not x', 'lambda x, y=-2: -x', 'a if b else c', 'a ** -b'] * 300),
                ' or '.join(['not -a ** -b < ~c'] * 1000), '"' + '(' * 5000 + '"',
                "'''" + '[\n' * 5000 + "\\''''", '(' + '# ((((\n' * 2000 + ')',
                '[%s]' % ', '.join(['x[1:2:3].y(z)'] * 2000), '[%s]' % ', '.join(['f(a=-1)'] * 200),
                '-1 + ' * 999 + '1', r'"\"((((" ' * 500):
            self.assert_(self.is_passed(text), text[:40])
            self.assert_(self.takes(text), text[:40])

    def test_statements_begin_anew(self):
        nesting.check('x = a if b else lambda: -1\n' * 5000 + 'y = f(a)(b)(c).d; z\n' * 5000, False,
                      nesting.IN_FILE)

    def test_the_library_is_passed(self):
        folder = os.path.dirname(os.__file__)
        for name in ('os', 'decimal', 'pydoc', 'tarfile', 'inspect', 'difflib'):
            nesting.check(open(os.path.join(folder, name + '.py')).read(), False, nesting.IN_FILE)


class Evaluating(ErrorsCase):

    def test_hostile_texts(self):
        for texts, mode in ((HOSTILE, 'eval'), (HOSTILE + STATEMENTS, 'single')):
            for text in texts:
                begun = time.time()
                try:
                    evaluation.compiled(text, '<stdin>', mode)
                except (SyntaxError, TypeError):
                    pass
                self.assert_(time.time() - begun < 10, text[:40])
                self.assertEqual(self.errors(), '', text[:40])

    def test_an_expression_that_is_checked_is_not_computed(self):
        evaluation.check_expression('9 ** 9 ** 9 ** 9')

    def test_reasons(self):
        for text, reason in (
                ('(' * 1000, 'nested too deeply'), ('+1' * 5000, 'too many operators in one '
                 'expression'), ('x' * 70000, 'longer than 64 kB'),
                ('a < b < c,' * 5000, 'too many branches')):
            try:
                evaluation.compiled(text, '', 'eval')
                self.fail(reason)
            except SyntaxError, error:
                self.assertEqual(str(error), reason)


class InTheTerminal(sorrel_session.TestCase):

    def test_each_way_in(self):
        deep = '(' * 1000
        out, err, status = self.debug('x = 1\ny = 2\n', [
            'print ' + deep, 'x = ' + deep, 'p x' + '.y' * 100000, 'whatis ' + '-' * 100000 + '1',
            'break 2, ' + deep, 'break 2', 'condition 1 ' + '+'.join(['1'] * 200000),
            'raise ' + deep, 'catch always ' + deep, 'break ' + 'x.' * 50000 + 'x', 'continue',
            'print x + 1', 'continue'])
        self.assertEqual((err, status), ('', 0))
        self.assertEqual(out.count('*** SyntaxError: nested too deeply\n'), 4)
        self.assertEqual(out.count('*** TooMuch: longer than 64 kB\n'), 2)
        self.assert_in('*** the condition is no expression: nested too deeply\n', out)
        self.assert_in('*** the condition is no expression: longer than 64 kB\n', out)
        self.assert_in('(sorrel) 2\n', out)

    def test_a_file_that_the_compiler_cannot_take(self):
        self.script('x = ' + '[' * 1000 + ']' * 1000 + '\n', 'deep.py')
        self.script('x = (\n1' + '\n+1' * 100000 + ')\n', 'long.py')
        out, err, status = self.debug('x = 1\n', ['break deep.py:1', 'break long.py:2', 'continue'])
        self.assertEqual((err, status), ('', 0))
        self.assert_in('*** deep.py is no Python program: nested too deeply\n', out)
        # What cannot be found out is not refused.
        self.assert_in('Breakpoint 1 at long.py:2\n', out)


class ForEditors(dap_session.TestCase):

    def test_each_way_in(self):
        program = self.serve(
            'import time\nx = 1\nwhile x:\n    y = x  # here\n    time.sleep(0.01)\n')
        client = self.attach(program)
        line = program.line('# here')
        deep = '(' * 1000

        def set_breakpoint(**more):
            return client.ask('setBreakpoints', source={'path': program.path},
                              breakpoints=[dict({'line': line}, **more)])['breakpoints'][0]
        for condition, reason in ((deep, 'nested too deeply'),
                                  ('+'.join(['1'] * 200000), 'longer than 64 kB')):
            answer = set_breakpoint(condition=condition)
            self.assertEqual((answer['verified'], answer['message']),
                             (False, 'the condition is no expression: ' + reason))
        for condition in ('9' * 1000000, ' ' * 200000 + 'x', '=' * 200000):
            self.assert_in('Not a hit condition', set_breakpoint(hitCondition=condition)['message'])
        set_breakpoint(logMessage='{%s}' % deep)
        self.assertEqual(client.event('output')['output'], '<SyntaxError: nested too deeply>\n')
        set_breakpoint()
        client.stopped()
        frame = client.top()['id']
        for context in ('watch', 'hover', 'repl', 'clipboard'):
            for expression in (deep, 'x' + '.y' * 100000, 'x' + '.y' * 20000):
                self.assert_(REFUSED.match(client.refusal(
                    'evaluate', expression=expression, context=context, frameId=frame)))
        for value in (deep, '-' * 100000 + '1'):
            self.assert_(REFUSED.match(client.refusal(
                'setVariable', variablesReference=client.scope('Locals'), name='x', value=value)))
            self.assert_(REFUSED.match(client.refusal(
                'setExpression', expression='x', value=value, frameId=frame)))
        text = 'x.' + 'y.' * 50000
        self.assert_(REFUSED.match(client.refusal(
            'completions', text=text, column=len(text) + 1, frameId=frame)))
        text = 'x' * 500000 + ' '
        self.assert_(client.ask('completions', text=text, column=len(text) + 1, frameId=frame))
        self.assertEqual(client.evaluate('x + 1'), '2')
        client.evaluate('x = 0', 'repl')
        client.ask('setBreakpoints', source={'path': program.path}, breakpoints=[])
        client.go()
        self.assertEqual(program.ended()[1], 0)
        self.assertEqual(program.errors(), '')
