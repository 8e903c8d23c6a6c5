# coding: utf-8
"""Characters beyond ASCII: in source, in what is typed, in what is shown."""

import subprocess

import harness
import sorrel_session
from sorrel.common import errors, source_encoding, terminal_encoding
from sorrel_session import PROMPT

LATIN = '''\
# coding: latin-1
name = u'h\xe9'
other = 'h\xe9'
def bad(x):
    raise ValueError(u'\xe9t\xe9')
x = 1
'''


class Stream(object):

    def __init__(self, encoding, is_terminal):
        self.encoding = encoding
        self.isatty = lambda: is_terminal


class Terminals(harness.TestCase):

    def encoding(self, name, is_terminal=True):
        stream = Stream(name, is_terminal)
        return terminal_encoding.TerminalEncoding(stream, stream)

    def test_what_is_shown(self):
        for name, expected in ('utf-8', 'é€'), ('latin-1', '\xe9\\u20ac'), \
                ('ascii', '\\xe9\\u20ac'), ('no such encoding', '\\xe9\\u20ac'):
            self.assertEqual(self.encoding(name).shown('é€'), expected)
            self.assertEqual(self.encoding(name).shown(u'é€'), expected)

    def test_what_is_no_text_is_shown(self):
        self.assertEqual(self.encoding('utf-8').shown('a\xe9\nb'), 'a�\nb')
        self.assertEqual(self.encoding('latin-1').shown('a\xe9\nb'), 'a\xe9\nb')
        self.assertEqual(self.encoding('ascii').shown('a\xe9\nb'), 'a\\ufffd\nb')

    def test_what_is_typed(self):
        self.assertEqual(self.encoding('utf-8').typed('é'), 'é')
        self.assertEqual(self.encoding('latin-1').typed('é'), 'Ã©')
        self.assertEqual(self.encoding('latin-1').typed('\xe9'), 'é')
        self.assertEqual(self.encoding('ascii').typed('\xe9'), '\xe9')

    def test_pipes(self):
        self.assertEqual(self.encoding('latin-1', False).typed('é'), 'é')
        self.assertEqual(self.encoding('latin-1', False).typed('\xe9'), 'é')
        self.assertEqual(self.encoding('ascii', False).shown('é\xe9'), 'é\xe9')
        self.assertEqual(self.encoding('ascii', False).shown(u'é'), '\\xe9')


class Sources(harness.TestCase):

    def assert_line(self, expected, *lines):
        def written(number):
            return lines[number - 1] if number <= len(lines) else ''
        self.assertEqual(source_encoding.line(written, len(lines)), expected)

    def test_the_encoding_is_named_in_the_first_two_lines(self):
        self.assert_line('# coding: latin-1 é', '# coding: latin-1 \xe9')
        self.assert_line('é', '# -*- coding: latin-1 -*-', '\xe9')
        self.assert_line('é', '#!/usr/bin/python', '# vim:fileencoding=latin-1', '\xe9')
        self.assert_line('и', '# coding=koi8-r', '\xc9')
        self.assert_line('\xe9', '', '', '# coding: latin-1', '\xe9')

    def test_no_encoding_or_none_that_is_known(self):
        for head in '', '# coding: nonsense', '# coding: hex', '# coding: zlib':
            self.assert_line('\xe9', head, '\xe9')

    def test_utf_8_and_its_mark(self):
        self.assert_line('é', '\xef\xbb\xbf\xc3\xa9')
        self.assert_line('é', '\xef\xbb\xbf# coding: latin-1', '\xc3\xa9')

    def test_what_is_not_in_the_encoding_is_replaced(self):
        self.assert_line('a�', '# coding: utf-8', 'a\xe9')


class ErrorTexts(harness.TestCase):

    def test_unicode_messages(self):
        self.assertEqual(errors.error_text(ValueError, ValueError(u'é\\')), 'ValueError: é\\')
        self.assertEqual(errors.whole_text(KeyError, KeyError(u'é')), "KeyError: u'\\xe9'")
        self.assertEqual(errors.error_text(ValueError, ValueError('a\\b')), 'ValueError: a\\b')


class Prompts(sorrel_session.TestCase):

    def session(self, locale, text, *commands):
        self.script(text, 'prog.py')
        process = self.start(
            'prog.py', stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
            env=dict(self.persons_environment(), LC_ALL=locale))
        out, err, status = self.finish(process, '\n'.join(commands) + '\n')
        self.assertEqual((err, status), ('', 0))
        return out.split(PROMPT)[1:-1]

    def test_source_is_shown_in_the_locales_encoding(self):
        self.assertEqual(self.session(
            'C.UTF-8', LATIN, 'n', 'l 2 3', 'n', 'n', 'source bad', 'q')[1:], [
            "  2    \tname = u'hé'\n  3  ->\tother = 'hé'\n",
            "> prog.py(4)<module>()\n-> def bad(x):\n", '> prog.py(6)<module>()\n-> x = 1\n',
            "  4    \tdef bad(x):\n  5    \t    raise ValueError(u'été')\n"])

    def test_unicode_that_is_typed_is_what_it_looks_like(self):
        for locale in 'C', 'C.UTF-8':
            self.assertEqual(self.session(
                locale, LATIN, 'b 6', 'c', "p name == u'hé'", "u'é'", "y = u'é'", 'p y', "p 'é'",
                "p [u'é' for i in 'a' if u'é']", 'condition 1 name == u"hé"', 'interact', "u'é'",
                'q')[2:7], ['True\n', "u'\\xe9'\n", '', "u'\\xe9'\n", "'\\xc3\\xa9'\n"])

    def test_conditions_and_displays(self):
        shown = self.session('C.UTF-8', '''\
# coding: utf-8
for name in u'a', u'é':
    x = 1
''', "b 3, name == u'é'", 'c', 'p name', "display name + u'é'", 'q')
        self.assertEqual(shown[2:], ["u'\\xe9'\n", "display name + u'é': u'\\xe9\\xe9'\n"])

    def test_messages_of_unicode(self):
        self.assertEqual(self.session('C.UTF-8', LATIN, 'b 6', 'c', "p bad(1)", '!1é', 'q')[2:], [
            '*** ValueError: été\n', '*** SyntaxError: invalid syntax\n'])


class Screens(sorrel_session.ScreenTestCase):

    def test_a_terminal_without_the_characters(self):
        seen = self.begin(LATIN, 'b 6', 'c', 'l 2 3', 'p bad(1)', shell='LC_ALL=C "$@"')
        self.assertEqual(seen[2:], [
            "l 2 3\n  2    \tname = u'h\\xe9'\n  3    \tother = 'h\\xe9'\n(sorrel) ",
            'p bad(1)\n*** ValueError: \\xe9t\\xe9\n(sorrel) '])

    def test_a_terminal_of_another_encoding(self):
        seen = self.begin(LATIN, 'n', shell='PYTHONIOENCODING=latin-1 "$@"')
        self.assertEqual(seen[0], "n\n> prog.py(3)<module>()\n-> other = 'h\xe9'\n(sorrel) ")
