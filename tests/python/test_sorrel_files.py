"""Names of what is no file to be read: they are refused with the reason, and nobody waits."""

import os
import sys
import time

import dap_session
import harness
import sorrel_session
from sorrel.common import errors, file_lines, text_files
from sorrel.inspection import code_lines, nesting

# Runs lines of files that are none, in a function each.
PROGRAM = '''import sys
def run(path):
    code = compile('def f(x):\\n    return x + 1\\n', path, 'exec')
    names = {}
    exec code in names
    return names['f']
for path in sys.argv[1:]:
    f = run(path)
    f(1)  # call
'''


def sparse(path, size):
    output = open(path, 'w')
    output.truncate(size)
    output.close()
    return path


class Odd(object):
    """The names of files of every kind in a folder."""

    def __init__(self, folder):
        self.pipe = os.path.join(folder, 'pipe.py')
        os.mkfifo(self.pipe)
        self.large = sparse(os.path.join(folder, 'large.py'), 3 << 30)
        self.loop = os.path.join(folder, 'loop.py')
        os.symlink('loop.py', self.loop)
        self.folder = os.path.join(folder, 'folder.py')
        os.mkdir(self.folder)
        self.reasons = [
            ('/dev/zero', 'not a regular file'), (self.pipe, 'not a regular file'),
            (self.folder, 'Is a directory'), (self.large, 'larger than 10 MB'),
            (self.loop, 'Too many levels of symbolic links'),
            (os.path.join(folder, 'n' * 5000), 'File name too long'),
            (os.path.join(folder, 'a\nb\xff.py'), 'No such file or directory')]


class Reading(harness.TestCase):

    def refusal(self, path):
        return str(self.assert_raises(text_files.Unreadable, None, text_files.text, path))

    def test_reasons(self):
        for path, reason in Odd(self.folder).reasons + [
                ('a\0b', 'no file can have this name'), ('', 'No such file or directory'),
                ('/proc/self/mem', 'Input/output error')]:
            self.assertEqual((path, self.refusal(path)), (path, reason))
            self.assertEqual(file_lines.line(path, 1), '')
        self.assert_(not text_files.is_file('a\0b'))

    def test_lines_of_every_system(self):
        self.assertEqual(text_files.text(self.script('a\r\nb\rc\n\xff')), 'a\nb\nc\n\xff')

    def test_nothing_may_be_read(self):
        path = self.script('x = 1\n')
        os.chmod(path, 0)
        user = os.geteuid()
        if not user:
            os.chmod(self.folder, 0777)
            os.seteuid(65534)
        try:
            self.assertEqual(self.refusal(path), 'Permission denied')
        finally:
            os.seteuid(user)

    def test_files_that_tell_of_no_size(self):
        self.assert_in('Name:', text_files.text('/proc/self/status'))
        text_files.LIMIT = 100
        self.assertEqual(self.refusal('/proc/self/status'), 'larger than 10 MB')

    def test_a_file_that_grows_while_it_is_read(self):
        path = self.script('x' * 50)
        text_files.LIMIT = 100
        read = os.read

        def growing(file, size):
            output = open(path, 'a')
            output.write('x' * 50)
            output.close()
            return read(file, min(size, 10))
        os.read = growing
        try:
            self.assertEqual(self.refusal(path), 'larger than 10 MB')
        finally:
            os.read = read

    def test_lines_are_read_again_when_the_file_has_changed(self):
        path = self.script('one\n')
        self.assertEqual(file_lines.line(path, 1), 'one\n')
        self.script('other\n')
        self.assertEqual(file_lines.line(path, 1), 'other\n')
        os.remove(path)
        self.assertEqual(file_lines.line(path, 1), '')

    def test_a_long_line_is_cut(self):
        self.assertEqual(len(file_lines.line(self.script('x' * 5000), 1)), 1004)

    def test_a_traceback_of_code_that_names_no_file(self):
        odd = Odd(self.folder)
        for path in '/dev/zero', odd.pipe:
            namespace = {}
            exec compile('def f():\n    raise KeyError(1)\n', path, 'exec') in namespace
            try:
                namespace['f']()
            except KeyError:
                self.assert_in('  File "%s", line 2, in f\nKeyError: 1\n' % path,
                               errors.formatted(*sys.exc_info()))

    def test_encodings(self):
        # Nothing but the lines counts.
        for name in 'utf-8', 'koi8-r', 'no_such_encoding':
            self.assertEqual(code_lines.of_code(code_lines.compiled(
                '# coding: %s\nx = u"\xff"\n\ny = 2\n' % name, 'x.py')), [2, 4])
        self.assertRaises(
            nesting.TooMuch, code_lines.compiled, '# coding: big5\nx = "\xa5\\"\n', '')
        try:
            code_lines.compiled('# coding: koi8-r\nx = = 2\n', 'x.py')
        except SyntaxError, error:
            self.assert_is(type(error), SyntaxError)


class InTheTerminal(sorrel_session.TestCase):

    def test_breakpoints(self):
        odd = Odd(self.folder)
        out, err, status = self.debug('x = 1\n', [
            'break %s:1' % path for path, _ in odd.reasons if '\n' not in path] + [
            'break a\0b:1', 'break %s:f' % odd.pipe, 'list 1 99999999999999999999', 'continue'])
        self.assertEqual((err, status), ('', 0))
        for path, reason in odd.reasons:
            if '\n' not in path:
                self.assert_in('*** cannot read %s: %s\n' % (self.clean(path), reason), out)
        self.assert_in('*** cannot read a\0b: no file can have this name\n', out)
        self.assert_in('  1  ->\tx = 1\n[EOF]\n', out)

    def test_stops_in_code_that_names_no_file(self):
        odd = Odd(self.folder)
        for path in '/dev/zero', odd.pipe, odd.large, odd.folder:
            out, err, status = self.debug(PROGRAM, [
                'break 9', 'continue', 'step', 'step', 'list', 'where', 'up', 'continue'], [path])
            self.assertEqual((err, status), ('', 0))
            self.assert_in('> %s(2)f()\n(sorrel) --Return--' % self.clean(path), out)
            self.assert_in('(sorrel) [EOF]\n', out)
            self.assert_in('  prog.py(9)<module>()\n-> f(1)  # call\n', out)


class ForEditors(dap_session.TestCase):

    def test_breakpoints_and_sources(self):
        odd = Odd(self.folder)
        program = self.serve('import time\nwhile True:\n    time.sleep(0.01)  # here\n')
        client = self.attach(program)
        for path, reason in odd.reasons[:-1]:
            answer = client.ask('setBreakpoints', source={'path': path}, breakpoints=[
                {'line': 1}, {'line': 2}])['breakpoints']
            for breakpoint in answer:
                self.assertEqual((breakpoint['verified'], breakpoint['message']),
                                 (False, 'cannot read %s: %s' % (path, reason)))
            self.assertEqual(client.refusal('source', source={'path': path}, sourceReference=0),
                             'its source cannot be read: %s' % reason)
        self.assertEqual(client.refusal('source', sourceReference=0, source={
            'path': odd.reasons[-1][0].decode('latin-1')}), 'its source is not known')
        self.assertEqual(client.refusal('setBreakpoints', source={'path': 'a\0b'}),
                         'no file can have this name')
        client.ask('setFunctionBreakpoints', breakpoints=[
            {'name': '~root.x'}, {'name': '/dev/zero'}, {'name': odd.pipe[:-3] + '.x'}])
        self.assert_(self.break_at(client, program, '# here')[0]['verified'])
        client.stopped()

    def test_stops_in_code_that_names_no_file(self):
        odd = Odd(self.folder)
        paths = ['/dev/zero', odd.pipe, odd.folder]
        program = self.opened(dap_session.Program(
            self.script(PROGRAM.replace('x + 1', 'x + None'), 'prog.py'), ['--wait'], paths))
        client = self.connect(program)
        client.begin({})
        client.ask('setExceptionBreakpoints', filters=['raised'])
        client.ask('configurationDone')
        # In the listing of its bytecode.
        self.assertEqual(client.stopped().split(':')[0], 'exception f')
        self.assert_in('File "/dev/zero", line 2, in f\n', client.ask(
            'exceptionInfo', threadId=client.thread)['details']['stackTrace'])
        shown = client.top()['source']
        content = client.ask('source', source=shown, sourceReference=shown['sourceReference'])
        self.assert_in('# Bytecode of f, since its source is not found: /dev/zero, line 1\n',
                       content['content'])
        self.assertEqual(client.evaluate('x'), '1')

    def test_a_breakpoint_while_a_thread_has_stopped_in_an_import(self):
        self.script('x = 1  # inside\n', 'imported.py')
        other = self.script('# coding: iso8859_5\nx = 1\n', 'other.py')
        program = self.serve('import imported\n', '--wait')
        client = self.connect(program)
        client.begin({})
        client.ask('setBreakpoints', breakpoints=[{'line': 1}],
                   source={'path': os.path.join(self.folder, 'imported.py')})
        client.ask('configurationDone')
        self.assertEqual(client.stopped(), 'breakpoint <module>:1')
        begun = time.time()
        answer = client.ask('setBreakpoints', source={'path': other}, breakpoints=[{'line': 1}])
        self.assertEqual(answer['breakpoints'][0]['line'], 2)
        client.ask('setFunctionBreakpoints', breakpoints=[{'name': '~nobody.x'}])
        self.assert_(time.time() - begun < 30)
        client.go()
        self.assertEqual(program.ended()[1], 0)
