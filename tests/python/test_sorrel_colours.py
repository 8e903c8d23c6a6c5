"""Colours: by a stand-in for Pygments, by the real one where there is one, and none."""

import imp
import os
import re
import subprocess
import thread

import harness
import sorrel_session
from sorrel.common import import_lock
from sorrel.terminal import colours
from sorrel_session import PROMPT

# What is part of a longer text is green, what is alone is blue. Something is imported late.
STAND_IN = {'__init__.py': '''\
import StringIO
def highlight(text, lexer, formatter):
    import pygments.late
    lines = text.split('\\n')
    assert isinstance(text, unicode) and lexer.is_lexer and formatter.is_formatter
    code = u'34' if len(lines) == 2 else u'32'
    return StringIO.StringIO(u'\\n'.join([line and u'\\x1b[%sm%s\\x1b[39m' % (code, line)
                                         for line in lines])).getvalue()
''', 'lexers.py': '''\
class PythonLexer(object):
    is_lexer = True
    def __init__(self, stripnl=True):
        assert not stripnl
''', 'formatters.py': '''\
class TerminalFormatter(object):
    is_formatter = True
    def __init__(self, bg):
        pass
''', 'late.py': ''}
PROGRAM = '''\
def f(n):
    return n

f(1)
'''
MARK = '\x1b[1m%s\x1b[22m'
LINE = '\x1b[32m%s\x1b[39m'
ALONE = LINE.replace('32', '34')
IN_COLOURS = 'TERM=ansi PYTHONPATH=site:"$PYTHONPATH" '


class Screens(sorrel_session.ScreenTestCase):

    def setUp(self):
        sorrel_session.ScreenTestCase.setUp(self)
        os.makedirs(os.path.join(self.folder, 'site', 'pygments'))
        for name, text in STAND_IN.items():
            self.script(text, os.path.join('site', 'pygments', name))

    def clean(self, text):
        # What readline tells the terminal, which is none of what is shown.
        return re.sub(r'\x1b\[\?2004[hl]\r?', '', sorrel_session.ScreenTestCase.clean(
            self, re.sub(r'\x1b\[\?2004[hl]\r?', '', text)))

    def begin_in_colours(self, text, *commands, **how):
        how.setdefault('shell', IN_COLOURS + '"$@"')
        return self.begin(text, *commands, **how)

    def at(self, place, line, how=ALONE):
        """What a stop looks like."""
        return '%s %s\n%s %s\n%s' % (MARK % '>', place, MARK % '->', how % line, PROMPT)


class InColours(Screens):

    def test_source_marks_and_errors(self):
        seen = self.begin_in_colours(PROGRAM, 'n', 's', 'l 2 4', 'll', 'source f', 'p nothing')
        self.assertEqual(seen, [
            'n\n' + self.at('prog.py(4)<module>()', 'f(1)'),
            's\n' + self.at('prog.py(2)f()', 'return n'),
            'l 2 4\n  2  ' + MARK % '->' + '\t' + LINE % '    return n' + '\n  3\n  4    \t'
            + LINE % 'f(1)' + '\n(sorrel) ',
            'll\n  1    \t' + LINE % 'def f(n):' + '\n  2  ' + MARK % '->' + '\t'
            + LINE % '    return n' + '\n(sorrel) ',
            'source f\n  1    \t' + LINE % 'def f(n):' + '\n  2    \t' + LINE % '    return n'
            + '\n(sorrel) ',
            "p nothing\n\x1b[31m***\x1b[39m NameError: name 'nothing' is not defined\n(sorrel) "])

    def test_a_long_file_is_coloured_line_by_line(self):
        seen = self.begin_in_colours('x = 1\n' + '#' * (300 * 1024) + '\n', 'l 1 1')
        self.assert_in(ALONE % 'x = 1', seen[0])

    def test_a_text_in_no_file_is_coloured_line_by_line(self):
        self.begin_in_colours('', shell=IN_COLOURS + '"$1" -m sorrel.__main__ -c "x = 1\n\ny = 2"')
        self.assert_in(ALONE % 'y = 2', self.type('l 1 3'))

    def test_what_the_program_finds_is_as_it_is_without(self):
        text = '''\
import sys
print sorted(name for name in sys.modules if not name.startswith('sorrel.terminal'))
import pygments, StringIO, late
print pygments.__file__, StringIO.__file__, late.pygments is pygments
print sorted(name for name in sys.modules if name.startswith('pygments'))
x = 1
'''
        for name in 'pygments', 'StringIO':
            self.script('', name + '.py')
        self.script('import pygments\n', 'late.py')
        shown = []
        for option in [], ['--no-color']:
            seen = self.begin_in_colours(text, 'b 6', 'modules', 'c', 'modules', options=option)
            self.assertEqual(ALONE % 'x = 1' in ''.join(seen), not option)
            shown.append(re.sub(r'\x1b\[\d+m', '', ''.join(seen)))
            self.screen.close()
            self.screen = None
            # What has been compiled is another file.
            for name in 'pygments', 'StringIO', 'late':
                if os.path.exists(os.path.join(self.folder, name + '.pyc')):
                    os.unlink(os.path.join(self.folder, name + '.pyc'))
        self.assertEqual(shown[0], shown[1])
        self.assert_in('\npygments.py StringIO.py True\n', shown[0])

    def test_a_program_that_stops_by_itself(self):
        self.begin_in_colours('import sys\nimport sorrel\nsorrel.set_trace()\nx = 1\n',
                              shell=IN_COLOURS + '"$1" prog.py')
        self.assert_in(LINE % 'x = 1', self.type('ll'))
        self.assertEqual(self.type('modules'), 'modules\n(sorrel) ')
        self.assertEqual(self.type("p 'pygments' in sys.modules"),
                         "p 'pygments' in sys.modules\nFalse\n(sorrel) ")

    def test_there_is_one_for_python_2_of_late(self):
        self.script(STAND_IN['lexers.py'] + """
class Python2Lexer(PythonLexer):
    pass
PythonLexer = None
""", os.path.join('site', 'pygments', 'lexers.py'))
        self.assert_in(LINE % 'f(1)', self.begin_in_colours(PROGRAM, 'll')[0])

    def test_a_pygments_that_does_not_work(self):
        self.script('raise SystemError\n', os.path.join('site', 'pygments', 'late.py'))
        self.assertEqual(self.begin_in_colours(PROGRAM, 'n')[0],
                         'n\n' + self.at('prog.py(4)<module>()', 'f(1)', '%s'))

    def test_processes_are_shown_alike(self):
        harness.need_interpreter_alone(self)
        self.script('y = 2\nz = 3\n', 'other.py')
        self.begin_in_colours('''\
import os, subprocess, sys
pid = os.fork()
if pid == 0:
    os._exit(0)
os.waitpid(pid, 0)
del os.environ['TERM']
subprocess.call([sys.executable, 'other.py'])
''', 'b 4', 'b other.py:1')
        self.assert_in(LINE % '    os._exit(0)', self.type('ll') + self.type('c') + self.type('ll'))
        self.assert_in(ALONE % 'y = 2', self.type('c'))

    def test_the_real_one(self):
        try:
            import pygments
        except ImportError:
            self.skip('there is no Pygments for this host')
        folder = os.path.dirname(os.path.dirname(os.path.abspath(pygments.__file__)))
        seen = self.begin_in_colours(
            PROGRAM, 'll', shell=IN_COLOURS.replace('site', folder) + '"$@"')
        plain = re.sub(r'\x1b\[[\d;]*m', '', seen[0])
        self.assertEqual(
            plain, 'll\n  1  ->\tdef f(n):\n  2    \t    return n\n  3\n  4    \tf(1)\n(sorrel) ')
        self.assert_(re.search(r'\x1b\[[\d;]+mdef\x1b', seen[0]), seen[0])


class WithoutColours(Screens):

    def assert_plain(self, shell, **how):
        self.assertEqual(self.begin(PROGRAM, 'll', 'p nothing', shell=shell, **how), [
            'll\n  1  ->\tdef f(n):\n  2    \t    return n\n  3\n  4    \tf(1)\n(sorrel) ',
            "p nothing\n*** NameError: name 'nothing' is not defined\n(sorrel) "])

    def test_a_dumb_terminal(self):
        self.assert_plain(IN_COLOURS + 'TERM=dumb "$@"')

    def test_a_terminal_of_no_known_kind(self):
        self.assert_plain(IN_COLOURS + 'TERM= "$@"')

    def test_who_wants_none(self):
        self.assert_plain(IN_COLOURS + 'NO_COLOR=1 "$@"')

    def test_who_says_that_he_wants_none(self):
        self.assert_plain(IN_COLOURS + '"$@"', options=['--no-color'])

    def test_nothing_is_coloured_in_a_pipe(self):
        self.script(PROGRAM, 'prog.py')
        process = self.start(
            'prog.py', stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
            env=dict(self.persons_environment(), TERM='ansi'))
        self.assertEqual(self.finish(process, 'p x\nq\n')[0].count('\x1b'), 0)

    def test_nothing_is_imported_for_it(self):
        text = "import sys\nfound = 'sorrel.terminal.highlighting' in sys.modules\nx = 1\n"
        self.begin(text, 'n', 'n', shell=IN_COLOURS + 'NO_COLOR=1 "$@"')
        self.assertEqual(self.type('p found'), 'p found\nFalse\n(sorrel) ')


class Parts(harness.TestCase):

    def test_who_wants_colours(self):
        self.assertEqual([colours.are_wanted(environment) for environment in (
            {'TERM': 'xterm'}, {'TERM': 'xterm', 'NO_COLOR': ''}, {'TERM': 'dumb'}, {},
            {'TERM': 'xterm', 'NO_COLOR': '0'})], [True, True, False, False, False])

    def test_nothing_waits_for_the_import_lock(self):
        held, done = thread.allocate_lock(), thread.allocate_lock()
        held.acquire()
        done.acquire()

        def hold():
            imp.acquire_lock()
            held.release()
            done.acquire()
            imp.release_lock()
        thread.start_new_thread(hold, ())
        held.acquire()
        try:
            self.assert_raises(import_lock.Locked, None, import_lock.call, int)
        finally:
            done.release()
        self.assert_(harness.wait_until(lambda: not imp.lock_held()))
        self.assertEqual(import_lock.call(int, '7'), 7)
        self.assert_(not imp.lock_held())
