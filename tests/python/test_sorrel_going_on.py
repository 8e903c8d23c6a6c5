"""Commands by which the program goes on: several steps at once, up to a line, from another one."""

import sorrel_session

LOOP = '''\
def count(n):
    seen = []
    for i in range(n):
        seen.append(i)
        n += 1
    return seen

count(3)
print 'done'
'''
JUMPS = '''\
def f(n):
    total = 0
    for i in range(n):
        total += i
    squares = [k * k for k in range(n)]
    with open('/dev/null') as nothing:
        total += 100
    try:
        total += 1000
    finally:
        total += 1
    return total

print f(3)
'''


class TestCase(sorrel_session.TestCase):

    def answers(self, text, commands):
        """What is seen after each of the commands."""
        out, err, self.status = self.debug(text, commands)
        self.assertEqual(err, '')
        return out.split(sorrel_session.PROMPT)[1:]


class CountsTest(TestCase):

    def test_several_steps_at_once(self):
        self.assert_session(LOOP, '''
    > prog.py(1)<module>()
    -> def count(n):
    (sorrel) step 3
    > prog.py(3)count()
    -> for i in range(n):
    (sorrel) next 4
    > prog.py(4)count()
    -> seen.append(i)
    (sorrel) p i
    1
    (sorrel) n 7
    --Return--
    > prog.py(6)count()->[0, 1, 2]
    -> return seen
    (sorrel) n 2
    done
    --Return--
    > prog.py(9)<module>()->None
    -> print 'done'
    (sorrel) s 5
    The program ended with exit status 0.
    ''')

    def test_a_stop_for_another_reason_ends_the_count(self):
        answers = self.answers(LOOP, [
            'break 5, i == 1', 'tbreak 2', 'n 5', 'n 20', 'p i', 'n', 'c'])
        self.assertEqual(answers[2:-1], [
            'Deleted breakpoint 2\n> prog.py(2)count()\n-> seen = []\n',
            '> prog.py(5)count()\n-> n += 1\n', '1\n',
            '> prog.py(3)count()\n-> for i in range(n):\n'])

    def test_an_exception_ends_the_count(self):
        out, err, status = self.debug("x = 1\ny = 2\nint('a')\nx = 3\n", ['n 9', 'n'])
        self.assert_in("(sorrel) ValueError: invalid literal for int() with base 10: 'a'\n"
                       "> prog.py(3)<module>()\n", out)

    def test_an_empty_line_takes_as_many_again(self):
        answers = self.answers(LOOP, ['s 2', 'n 2', '', 'c'])
        self.assertEqual(answers[1:3], ['> prog.py(4)count()\n-> seen.append(i)\n',
                                        '> prog.py(3)count()\n-> for i in range(n):\n'])


class UntilTest(TestCase):

    def test_until_a_line(self):
        answers = self.answers(LOOP, ['s 2', 'until 5', 'p i', 'unt 6', 'until 6', 'until 3', 'c'])
        self.assertEqual(answers[1:-1], [
            '> prog.py(5)count()\n-> n += 1\n', '0\n', '> prog.py(6)count()\n-> return seen\n',
            '*** Not after line 6: 6\n', '*** Not after line 6: 3\n'])

    def test_until_a_line_that_does_not_come(self):
        for line in '90', '9' * 20:
            answers = self.answers(LOOP, ['s 2', 'until ' + line, 'c'])
            self.assertEqual(answers[1], "> prog.py(9)<module>()\n-> print 'done'\n")


class JumpTest(TestCase):

    def test_forward_and_back(self):
        answers = self.answers(JUMPS, [
            'n', 's', 'n', 'jump 5', 'until', 'p total', 'jump 2', 'n', 'until 5', 'p total',
            'j 12',
            'n', 'c'])
        self.assertEqual(answers[3:-1], [
            '> prog.py(5)f()\n-> squares = [k * k for k in range(n)]\n',
            "> prog.py(6)f()\n-> with open('/dev/null') as nothing:\n", '0\n',
            '> prog.py(2)f()\n-> total = 0\n', '> prog.py(3)f()\n-> for i in range(n):\n',
            '> prog.py(5)f()\n-> squares = [k * k for k in range(n)]\n', '3\n',
            '> prog.py(12)f()\n-> return total\n',
            '--Return--\n> prog.py(12)f()->3\n-> return total\n'])
        self.assertEqual(answers[-1], '3\nThe program ended with exit status 0.\n')

    def test_out_of_a_loop_at_a_breakpoint(self):
        answers = self.answers(JUMPS, ['break 4', 'c', 'jump 12', 'c'])
        self.assertEqual(answers[2:], ['> prog.py(12)f()\n-> return total\n',
                                       '0\nThe program ended with exit status 0.\n'])

    def test_from_the_head_of_a_loop_that_runs(self):
        answers = self.answers(JUMPS, ['tbreak 4', 'c', 'n', 'jump 11', 'jump 12', 'c'])
        self.assert_in('*** Cannot jump: ', answers[3])
        self.assertEqual(answers[4:], ['> prog.py(12)f()\n-> return total\n',
                                       '0\nThe program ended with exit status 0.\n'])

    def test_where_it_cannot_be(self):
        answers = self.answers(JUMPS, [
            'n', 's', 'jump 4', 'jump 7', 'jump 11', 'jump 40', 'jump 14',
            'jump 99999999999999999999',
            'jump', 'jump x', 'u', 'jump 2', 'd', 'r', 'jump 2', 'c'])
        refusals = answers[2:9]
        for refusal in refusals[:6]:
            self.assert_in('*** Cannot jump: ', refusal)
            self.assertEqual(refusal.count('\n'), 1)
        self.assertEqual(refusals[6], '*** Usage: jump, j LINE\n')
        self.assertEqual(answers[9], '*** Usage: jump, j LINE\n')
        self.assertEqual(
            answers[11],
                '*** Can only jump in the innermost frame of the thread that has stopped\n')
        self.assertEqual(
            answers[14], '*** Can only jump from a line, not from a return or an exception\n')

    def test_not_amid_a_comprehension(self):
        answers = self.answers(JUMPS, ['tbreak 5', 'c', 'n', 'jump 2', 'c'])
        self.assertEqual(answers[2], '> prog.py(5)f()\n-> squares = [k * k for k in range(n)]\n')
        self.assertEqual(answers[3], '*** Can only jump from the beginning of a line\n')
