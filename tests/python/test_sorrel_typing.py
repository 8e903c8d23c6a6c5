"""What is typed at the prompt: commands and statements, several in a line, words of one's own."""

import os

import sorrel_session

ADD = '''\
def add(a, b):
    total = a + b
    return total

add(1, 2)
print 'done'
'''
NAMED = '''\
class Names(object):
    x = 7
    def append(self, value):
        return value
def q():
    return 'called'
p = h = Names()
c = [1]
print 'done'
'''


class TestCase(sorrel_session.TestCase):

    def answers(self, text, commands):
        """What is seen after each of the commands."""
        out, err, self.status = self.debug(text, commands)
        self.assertEqual(err, '')
        return out.split(sorrel_session.PROMPT)[1:]


class WordsTest(TestCase):

    def test_names_of_the_program_make_a_line_a_statement(self):
        answers = self.answers(NAMED, [
            'tbreak 9', 'c', 'p.x', 'p == h', 'h.x + 1', 'q()', 'c[0]', 'p = 3', 'p + 4', 'p',
            'p p',
            'p -p', 'p (p)', 'c += [2]', '!c', 'p is None', 'p,c', 'c'])
        self.assertEqual(answers[2:-1], [
            '7\n', 'True\n', '8\n', "'called'\n", '1\n', '', '7\n',
            '*** SyntaxError: unexpected EOF while parsing\n', '3\n', '-3\n', '3\n', '', '[1, 2]\n',
            'False\n', '(3, [1, 2])\n'])
        self.assertEqual(answers[-1], 'done\nThe program ended with exit status 0.\n')

    def test_without_such_names_they_are_commands(self):
        answers = self.answers('x = 5\nprint x\n', [
            'n', 'p(x)', 'p[x, 1]', 'p-x', "u'a'", 'r"b"', 'list((1,))', 'next(iter([3]))', 'p.x',
            'c.append(1)', 'q()'])
        self.assertEqual(answers[1:-1], [
            '5\n', '[5, 1]\n', '-5\n', "u'a'\n", "'b'\n", '[1]\n', '3\n',
            "*** NameError: name 'p' is not defined\n", "*** NameError: name 'c' is not defined\n"])
        self.assertEqual((answers[-1], self.status), ('', 0))

    def test_a_name_alone_where_the_command_needs_more(self):
        answers = self.answers('source = info = 5\ni = 6\nx = 1\n', [
            'info', 'n 2', 'source', 'info', 'i', 'jump', 'c'])
        self.assertEqual(answers[0], '*** Usage: info SUBJECT\n')
        self.assertEqual(answers[2:-1], ['5\n', '5\n', '6\n', '*** Usage: jump, j LINE\n'])

    def test_where_print_is_a_function(self):
        answers = self.answers('from __future__ import print_function\nx = 5\n', [
            "print('a', 1)", "print ('a', 1)", "p 'a'", 'c'])
        self.assertEqual(answers[:-1], ['a 1\n', "('a', 1)\n", "'a'\n"])

    def test_words_that_are_nothing(self):
        answers = self.answers('x = 5\nprint x\n', [
            'nxt', 'contineu 3', 'xyzzy', 'where am i', 'up there', 'return 5', 'x y', 'foo.bar',
            'foo + 1', 'None', 'del y', 'c'])
        self.assertEqual(answers[:-1], [
            '*** No such command: nxt. Did you mean next?\n',
            '*** No such command: contineu. Did you mean continue?\n',
            '*** No such command: xyzzy\n',
            '*** Usage: where, w, bt [full] [COUNT]\n',
            '*** Usage: up, u [COUNT]\n',
            '*** Usage: return, r\n',
            '*** No such command: x\n',
            "*** NameError: name 'foo' is not defined\n",
            "*** NameError: name 'foo' is not defined\n",
            '',
            "*** NameError: name 'y' is not defined\n"])


class SeveralTest(TestCase):

    def test_commands_in_one_line(self):
        self.assert_session(ADD, '''
    > prog.py(1)<module>()
    -> def add(a, b):
    (sorrel) p 1;; p ';;';; n;; p 2
    1
    ';;'
    > prog.py(5)<module>()
    -> add(1, 2)
    2
    (sorrel) 
    2
    (sorrel) c;; p 3
    done
    The program ended with exit status 0.
    ''')

    def test_nothing_between_commands_is_nothing(self):
        answers = self.answers(ADD, ['p 5', ';;', ';; p 1', 'p 2;;', 'p 3;; ;; p 4', '', '!', 'c'])
        self.assertEqual(answers[:-1], [
            '5\n', '', '1\n', '2\n', '3\n4\n', '4\n',
            '*** SyntaxError: unexpected EOF while parsing\n'])

    def test_statements_over_several_lines(self):
        answers = self.answers(ADD, [
            'n', 's', 'for i in range(2):', '    print i', '    i + 10', '', 'x = (1,', '2)', 'x',
            'if a == 1: b = 5', "!text = '''one", '', "two'''", 'text', 'def f(:', 'while True:',
            '  break', 'else:', '  b', '', 'def f():', '  return b', '', 'f()', 'c'])
        more = '... ... '
        self.assertEqual(''.join(answers[2:]), '... ... ... 0\n10\n1\n11\n' '... (1, 2)\n'
                         + more + "'one\\n\\ntwo'\n" '*** SyntaxError: invalid syntax\n'
                         + more * 2 + '' + more + '5\ndone\n'
                         'The program ended with exit status 0.\n')

    def test_the_end_of_input_amid_a_statement(self):
        answers = self.answers(ADD, ['for i in range(2):'])
        self.assertEqual(answers, ['... \n', '\nDetached: the program runs on.\ndone\n'])


class AliasesTest(TestCase):

    def test_words_stand_for_commands(self):
        answers = self.answers(ADD, [
            'alias', 'alias twice p %1 * 2', 'twice 21', 'alias all p (%*)', 'all 1, 2',
            'alias pn p 8;; n', 'pn', 'alias n n', 'n', 'alias show p', 'show 5', 'alias',
            'alias twice',
            'unalias twice', 'twice 3', 'unalias twice', 'alias twice', 'show = 3', 'show + 1',
            'c'])
        self.assertEqual(answers[:-1], [
            '', '', '42\n', '', '(1, 2)\n', '', '8\n> prog.py(5)<module>()\n-> add(1, 2)\n', '',
            "> prog.py(6)<module>()\n-> print 'done'\n", '', '5\n',
            'all = p (%*)\nn = n\npn = p 8;; n\nshow = p\ntwice = p %1 * 2\n', 'twice = p %1 * 2\n',
            '', '*** No such command: twice\n', '*** No alias twice\n', '*** No alias twice\n', '',
            '4\n'])


class InteractTest(TestCase):

    def test_python_over_copies_of_the_variables(self):
        answers = self.answers(ADD, [
            'n', 's', 'interact', 'a + b', 'a = 50', 'def f(): return a', '', 'f()', '1/0', 'c',
            'f('])
        answers = ''.join(answers[2:]).split('>>> ')
        self.assert_in('End of input leads back.', answers[0])
        self.assertEqual(answers[1:], [
            '3\n', '', '... ', '50\n',
            '*** ZeroDivisionError: integer division or modulo by zero\n',
            "*** NameError: name 'c' is not defined\n",
            '... \n\nDetached: the program runs on.\ndone\n'])


class FilesTest(TestCase):

    def test_the_commands_in_a_file_are_carried_out(self):
        self.script('''\
# a comment

b 3

tbreak nowhere
  # another one
c
alias total p total
for i in range(2):
    print i, a

nonsense 5
''', 'my commands')
        self.assert_session(ADD, '''
    > prog.py(1)<module>()
    -> def add(a, b):
    (sorrel) source my commands
    Breakpoint 1 at prog.py:3
    *** my commands:5: no function nowhere in prog.py
    > prog.py(3)add()
    -> return total
    0 1
    1 1
    *** my commands:12: No such command: nonsense
    (sorrel) total
    3
    (sorrel) source /no/such
    *** Cannot read /no/such: No such file or directory
    (sorrel) source
    *** Usage: source FILE | OBJECT
    (sorrel) # nothing
    (sorrel) c
    done
    The program ended with exit status 0.
    ''')

    def test_a_file_that_names_itself(self):
        self.script('p 1\nsource again\np 2\n', 'again')
        self.assertEqual(self.answers(ADD, ['source again', 'c'])[0], '''\
1
*** again:2: The commands in again are being carried out
2
''')


class StartFilesTest(TestCase):

    def persons_environment(self):
        return dict(os.environ, HOME=self.home)

    def setUp(self):
        TestCase.setUp(self)
        self.home = os.path.join(self.folder, 'home')
        os.mkdir(self.home)

    def begin(self):
        return self.debug(ADD, ['c'])[0].split(sorrel_session.PROMPT)[0]

    def test_they_are_carried_out_before_the_first_prompt(self):
        self.script("p 'home'\nalias one p 1\nbad word\n", 'home/.sorrelrc')
        os.chmod(self.script("one\np 'here'\nxyzzy\n", '.sorrelrc'), 0600)
        self.assertEqual(self.begin(), '''\
> prog.py(1)<module>()
-> def add(a, b):
'home'
*** ~/.sorrelrc:3: No such command: bad
1
'here'
*** .sorrelrc:3: No such command: xyzzy
''')

    def test_a_file_is_read_once(self):
        self.home = self.folder
        os.chmod(self.script('p 1\n', '.sorrelrc'), 0600)
        self.assertEqual(self.begin(), '> prog.py(1)<module>()\n-> def add(a, b):\n1\n')

    def test_what_others_may_write_is_not_read(self):
        os.chmod(self.script('p 1\n', '.sorrelrc'), 0620)
        refusal = '*** Not read, since others may write it: .sorrelrc\n'
        self.assert_in(refusal, self.begin())
        os.chmod(os.path.join(self.folder, '.sorrelrc'), 0600)
        os.chmod(self.folder, 0777)
        self.assert_in(refusal, self.begin())
        os.chmod(self.folder, 0700)
        self.assert_not_in(refusal, self.begin())
