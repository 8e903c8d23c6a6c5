"""Commands of a shell, in part with other words."""

import harness
from sorrel.processes import shell_commands


class ShellCommandsTest(harness.TestCase):

    def start(self, words, is_here):
        self.seen.append((words, is_here))
        return ('NEW', 2) if words[0] == 'python' and len(words) > 1 else None

    def rewritten(self, text):
        self.seen = []
        return shell_commands.rewritten(text, self.start)

    def assert_rewritten(self, *texts):
        for text, expected in zip(texts[::2], texts[1::2]):
            self.assertEqual(self.rewritten(text), expected)

    def test_single_commands(self):
        self.assert_rewritten(
            'python x.py', 'NEW',
            '  python x.py  ', '  NEW  ',
            'python x.py "$A" *.c', 'NEW "$A" *.c',
            "'python' \"x y.py\" b", 'NEW b',
            'A=1 B="2 3" python x.py', 'A=1 B="2 3" NEW',
            'python x.py >out 2>&1 <in', 'NEW >out 2>&1 <in',
            'exec python x.py', 'exec NEW',
            'python x.py # python x.py', 'NEW # python x.py',
            'pyth\\\non x.py', 'NEW')

    def test_several_commands(self):
        self.assert_rewritten(
            'python a.py; python b.py', 'NEW; NEW',
            'true && python a.py || python b.py & python c.py', 'true && NEW || NEW & NEW',
            'python a.py | python b.py', 'NEW | NEW',
            '(python a.py)', '(NEW)',
            'if python a.py; then python b.py; fi', 'if NEW; then NEW; fi',
            'echo python a.py; ! python b.py', 'echo python a.py; ! NEW',
            'python a.py\npython b.py\n', 'NEW\nNEW\n')

    def test_what_is_left_alone(self):
        for text in ('', ' ', ';;', 'python', 'python $X x.py', 'python 2>err x.py',
                     'python <in x.py', 'echo `python x.py`', 'echo $(python x.py)',
                     'cat <<E\npython x.py\nE', "python 'x.py", 'python x.py\\',
                     'PATH=/x python x.py', 'for python in x.py; do python x.py; done',
                     'case python in x) python x.py;; esac', "echo 'python x.py'",
                     'function python { x.py; }; python x.py', '$PYTHON x.py', '"python x.py"',
                     '~/python x.py'):
            self.assertEqual(self.rewritten(text), text)

    def test_what_is_known_of_a_command(self):
        self.rewritten('a "b c" d\\ e $F g; h --i="j k"; l $\'m\'')
        self.assertEqual([words for words, _ in self.seen],
                         [['a', 'b c', 'd e'], ['h', '--i=j k'], ['l']])

    def test_whether_the_shell_is_still_where_it_was(self):
        self.rewritten('a; cd /b && c; d')
        self.assertEqual([is_here for _, is_here in self.seen], [True, True, False, False])

    def test_words_are_quoted_where_they_have_to_be(self):
        for word, expected in (('a/b.py', 'a/b.py'), ('', "''"), ("it's", "'it'\\''s'"),
                               ('$A', "'$A'"), ('a\nb', "'a\nb'")):
            self.assertEqual(shell_commands.quoted(word), expected)
