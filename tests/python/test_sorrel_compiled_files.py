"""What the interpreter has compiled of source files: when it is taken, and what it says."""

import os
import py_compile
import subprocess
import time

import sorrel_session
from sorrel.inspection import file_code

MODULE = '''\
class Item(object):
    """A text."""

    def cost(self, count):
        total = count

        return [total for total in range(count)]

def f():
    assert True

    return 1
'''
FUNCTION = '''\
def function_%d(a, b):
    total = a + b
    for k in range(total):
        total += k * %d
    if total > 100:
        return total - 100
    return total
'''


class TestCase(sorrel_session.TestCase):

    def setUp(self):
        sorrel_session.TestCase.setUp(self)
        self.path = os.path.join(self.folder, 'module.py')

    def write(self, text, compiled=None):
        """The module with this text, and what is compiled of it or of another text."""
        self.script(text if compiled is None else compiled, 'module.py')
        os.utime(self.path, (1000000000, 1000000000))
        py_compile.compile(self.path)
        self.script(text, 'module.py')
        os.utime(self.path, (1000000000, 1000000000))

    def line_of_f(self):
        code = file_code.of_file(self.path).functions().get('f')
        return code and code.co_firstlineno


class CompiledFilesTest(TestCase):

    def test_lines_and_functions_are_those_of_the_text(self):
        self.write(MODULE)
        found, wanted = file_code.of_file(self.path), file_code.of_text(MODULE, self.path)
        self.assertEqual(sorted(found.functions()), sorted(wanted.functions()))
        for line in range(1, len(MODULE.splitlines()) + 3):
            self.assertEqual((line, found.next_line(line), found.class_at(line)),
                             (line, wanted.next_line(line), wanted.class_at(line)))

    def test_taken_in_place_of_the_text(self):
        self.write('x\n', '\ndef f(): pass\n')
        self.assertEqual(self.line_of_f(), 2)

    def test_not_taken_for_a_text_of_another_time(self):
        self.write('def f(): pass\n', '\ndef f(): pass\n')
        os.utime(self.path, (1000000001, 1000000001))
        self.assertEqual(self.line_of_f(), 1)

    def test_not_taken_from_another_interpreter_or_broken(self):
        for change in (lambda content: '\0' + content[1:], lambda content: content[:20],
                       lambda content: content[:8] + 'i\1\0\0\0', lambda content: '',
                       lambda content: content[:8] + '?'):
            self.write('def f(): pass\n', '\ndef f(): pass\n')
            content = open(self.path + 'c', 'rb').read()
            open(self.path + 'c', 'wb').write(change(content))
            file_code._known.clear()
            self.assertEqual(self.line_of_f(), 1)

    def test_large_module_takes_a_part_of_the_time_that_compiling_does(self):
        text = '\n'.join([FUNCTION % (number, number) for number in range(20000)])
        self.assertTrue(len(text) > 3 << 20, len(text))
        self.write(text)
        began = time.time()
        compile(text, self.path, 'exec')
        compiling = time.time() - began
        began = time.time()
        found = file_code.of_file(self.path)
        self.assertEqual(found.next_line(8), 9)
        self.assertEqual(found.functions()['function_19999'].co_firstlineno, 19999 * 8 + 1)
        taken = time.time() - began
        self.assertTrue(taken < compiling * 0.7, (taken, compiling))


class SessionsTest(TestCase):

    def test_optimised_program_goes_by_what_is_compiled_for_it(self):
        self.write(MODULE)
        self.script('import module\nmodule.f()\n', 'prog.py')
        process = self.popen(['-O', '-m', 'sorrel.main', 'terminal', '--', 'prog.py'],
                             stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        out, err, status = self.finish(process, 'b module.py:10\nc\nq\n')
        self.assert_in('Breakpoint 1 at module.py:12\n', out)
        self.assert_in('> module.py(12)f()\n', out)

    def test_large_program_that_runs_is_known_by_its_own_code(self):
        text = '# %s\n' % ('x' * 90) * 12000 + 'def f():\n\n    return 1\nf()\n'
        out, err, status = self.debug(text, ['b 12002', 'b f', 'b 1', 'c', 'q'])
        self.assertEqual(out.split(sorrel_session.PROMPT)[1:5], [
            'Breakpoint 1 at prog.py:12003\n', 'Breakpoint 2 at prog.py:12003\n',
            'Breakpoint 3 at prog.py:12001\n',
            '> prog.py(12003)f()\n-> return 1\n'])

    def test_text_that_the_program_executes_is_not_taken_for_it(self):
        out, err, status = self.debug('''\
def g():
    pass

exec compile('x = 1\\\\ny = 2\\\\n', __file__, 'exec') in globals()
''', ['tbreak 4', 'c', 's', 's', 'b 2', 'q'])
        self.assert_in('Breakpoint 2 at prog.py:2\n', out)
