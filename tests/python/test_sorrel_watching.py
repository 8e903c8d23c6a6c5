"""Watchpoints: where the program stops for them, what it says then, and how long they last."""

import os
import subprocess

import sorrel_session

LEDGER = '''\
class Account(object):
    def __init__(self):
        self.total = 5
        self.rows = []

    def add(self, n):
        self.total += n
        self.rows.append(n)
        return self.total

def work(n):
    account = Account()
    i = 0
    while i < n:
        account.add(2)
        i += 1
    return i

work(2)
print 'done'
'''
# How a session begins that goes to its loop.
IN_WORK = '''
    > prog.py(1)<module>()
    -> class Account(object):
    (sorrel) tbreak 14
    Breakpoint 1 at prog.py:14
    (sorrel) continue
    Deleted breakpoint 1
    > prog.py(14)work()
    -> while i < n:
'''
COUNTER = '''\
count = 0

def bump():
    global count
    count += 1

def later():
    global late
    late = 'here'

bump()
later()
bump()
count = 2
bump()
print 'done'
'''
THREADS = '''\
import threading

class Box(object):
    value = 0

box = Box()

def fill():
    box.value = 1
    box.value = 2

def work():
    mine = 0
    thread = threading.Thread(target=fill, name='filler')
    thread.start()
    thread.join()
    mine += 1
    return mine

work()
'''


class TestCase(sorrel_session.TestCase):

    def answers(self, text, commands):
        """What is seen at first, and after each of the commands."""
        out, err, self.status = self.debug(text, commands)
        self.assertEqual(err, '')
        return out.split(sorrel_session.PROMPT)


class StopsTest(TestCase):

    def test_attribute_that_another_function_changes(self):
        self.assert_session(LEDGER, IN_WORK + '''\
    (sorrel) watch account.total
    Watchpoint 2: account.total
    (sorrel) continue
    Watchpoint 2: account.total
    Old value = 5
    New value = 7
    > prog.py(8)add()
    -> self.rows.append(n)
    (sorrel) delete 2
    Deleted watchpoint 2
    (sorrel) continue
    done
    The program ended with exit status 0.
    ''')

    def test_contents_of_an_object_that_stays_the_same(self):
        answers = self.answers(LEDGER, ['tbreak 14', 'c', 'watch account.rows', 'c', 'c', 'c'])
        self.assertEqual(answers[4:6], [
            'Watchpoint 2: account.rows\nOld value = []\nNew value = [2]\n'
            '> prog.py(9)add()\n-> return self.total\n',
            'Watchpoint 2: account.rows\nOld value = [2]\nNew value = [2, 2]\n'
            '> prog.py(9)add()\n-> return self.total\n'])

    def test_variable_of_a_function_lasts_until_that_is_left(self):
        self.assert_session(LEDGER, IN_WORK + '''\
    (sorrel) watch i
    Watchpoint 2: i
    (sorrel) continue
    Watchpoint 2: i
    Old value = 0
    New value = 1
    > prog.py(14)work()
    -> while i < n:
    (sorrel) continue
    Watchpoint 2: i
    Old value = 1
    New value = 2
    > prog.py(14)work()
    -> while i < n:
    (sorrel) continue
    Deleted watchpoint 2: its function is left
    --Return--
    > prog.py(17)work()->2
    -> return i
    (sorrel) info watchpoints
    No watchpoints.
    (sorrel) continue
    done
    The program ended with exit status 0.
    ''')

    def test_function_of_the_variable_is_left_by_an_exception(self):
        answers = self.answers('''\
def f():
    i = 1
    [][i]

try:
    f()
except IndexError:
    print 'caught'
''', ['tbreak f', 'c', 'n', 'watch i', 'c', 'c'])
        self.assertEqual(
            answers[5], 'Deleted watchpoint 2: its function is left\n'
            '--Return--\n> prog.py(3)f()->None\n-> [][i]\n')

    def test_change_in_the_last_line_of_a_function(self):
        answers = self.answers('''\
def f(n):
    n += 1
    n += 1

f(1)
''', ['tbreak f', 'c', 'watch n', 'c', 'c', 'c'])
        self.assertEqual(answers[5], '''\
Watchpoint 2: n
Old value = 2
New value = 3
Deleted watchpoint 2: its function is left
--Return--
> prog.py(3)f()->None
-> n += 1
''')

    def test_other_calls_of_the_function_have_variables_of_their_own(self):
        answers = self.answers('''\
def f(depth):
    seen = depth
    if depth:
        f(depth - 1)
    seen += 10
    return seen

f(2)
''', ['tbreak 3', 'c', 'watch seen', 'c', 'p depth'])
        self.assertEqual(answers[4].splitlines()[:3], [
            'Watchpoint 2: seen', 'Old value = 2', 'New value = 12'])
        self.assertEqual(answers[5], '2\n')

    def test_variable_that_is_made_a_list_is_watched_in_all_code_from_then_on(self):
        answers = self.answers('''\
def fill(rows):
    rows.append(1)
    rows.append(2)

def f():
    rows = None
    rows = []
    fill(rows)

f()
''', ['tbreak 7', 'c', 'watch rows', 'c', 'c', 'c'])
        self.assertEqual([answer.splitlines()[1:4] for answer in answers[4:7]], [
            ['Old value = None', 'New value = []', '> prog.py(8)f()'],
            ['Old value = []', 'New value = [1]', '> prog.py(3)fill()'],
            ['Old value = [1]', 'New value = [1, 2]', '--Return--']])

    def test_variable_of_a_generator_outlasts_its_yields(self):
        answers = self.answers('''\
def count():
    n = 0
    while n < 2:
        yield n
        n += 1

for i in count():
    pass
print 'done'
''', ['tbreak 3', 'c', 'watch n', 'c', 'c', 'c', 'c'])
        self.assertEqual([answer.splitlines()[0] for answer in answers[4:7]], [
            'Watchpoint 2: n', 'Watchpoint 2: n', 'Deleted watchpoint 2: its function is left'])

    def test_global_variable_that_functions_change_and_one_that_comes_into_being(self):
        self.assert_session(COUNTER, '''
    > prog.py(1)<module>()
    -> count = 0
    (sorrel) next
    > prog.py(3)<module>()
    -> def bump():
    (sorrel) watch count
    Watchpoint 1: count
    (sorrel) watch late
    Watchpoint 2: late
    (sorrel) continue
    Watchpoint 1: count
    Old value = 0
    New value = 1
    --Return--
    > prog.py(5)bump()->None
    -> count += 1
    (sorrel) continue
    Watchpoint 2: late
    Old value = <not there: NameError: name 'late' is not defined>
    New value = 'here'
    --Return--
    > prog.py(9)later()->None
    -> late = 'here'
    (sorrel) continue
    Watchpoint 1: count
    Old value = 1
    New value = 2
    --Return--
    > prog.py(5)bump()->None
    -> count += 1
    (sorrel) continue
    Watchpoint 1: count
    Old value = 2
    New value = 3
    --Return--
    > prog.py(5)bump()->None
    -> count += 1
    (sorrel) continue
    done
    The program ended with exit status 0.
    ''')

    def test_other_threads_change_it_too(self):
        answers = self.answers(THREADS, ['tbreak 14', 'c', 'watch box.value', 'watch mine', 'c',
                                         'c', 'c', 'c'])
        # Whichever thread comes to a line first stops.
        self.assert_in('Watchpoint 2: box.value\nOld value = 0\nNew value = 1\n', answers[5])
        self.assert_in('Watchpoint 2: box.value\nOld value = 1\nNew value = 2\n', answers[6])
        self.assert_in('Watchpoint 3: mine\nOld value = 0\nNew value = 1\n', answers[7])

    def test_library_code_changes_it(self):
        answers = self.answers('''\
import UserList
rows = UserList.UserList()
rows.append(1)
print 'done'
''', ['n', 'n', 'watch rows', 'c'])
        self.assertEqual(answers[4].splitlines()[:3], [
            'Watchpoint 1: rows', 'Old value = []', 'New value = [1]'])

    def test_functions_in_the_expression_see_the_variables(self):
        answers = self.answers('''\
def f(rows, low):
    rows.append(3)
    rows.append(1)
    rows.append(4)

f([], 2)
''', ['tbreak 2', 'c', 'watch [row for row in rows if row > low]',
        'watch sum(row for row in rows if row > low)', 'c', 'c'])
        self.assertEqual(answers[5].splitlines()[1::2], [
            'Old value = []', 'Watchpoint 3: sum(row for row in rows if row > low)',
            'New value = 3', '-> rows.append(1)'])
        self.assert_in('New value = [3, 4]\n', answers[6])

    def test_private_names_are_those_of_the_class(self):
        answers = self.answers('''\
class Box(object):
    def fill(self):
        self.__n = 1
        self.__n = 2

Box().fill()
''', ['tbreak 4', 'c', 'watch self.__n', 'condition 2 self.__n == 2', 'c'])
        self.assertEqual(answers[5].splitlines()[:3], [
            'Watchpoint 2: self.__n', 'Old value = 1', 'New value = 2'])

    def test_failures_that_differ_are_changes(self):
        answers = self.answers('''\
class Box(object):
    pass

box = Box()
box.inner = Box()
box.inner.n = 1
del box
print 'done'
''', ['tbreak 5', 'c', 'watch box.inner.n', 'c', 'c', 'c'])
        self.assertEqual([answer.splitlines()[2] for answer in answers[4:7]], [
            "New value = <not there: AttributeError: 'Box' object has no attribute 'n'>",
            'New value = 1', "New value = <not there: NameError: name 'box' is not defined>"])

    def test_stack_that_is_nearly_used_up_is_no_change(self):
        answers = self.answers('''\
class Box(object):
    def __repr__(self):
        return self.text(20)
    def text(self, depth):
        return self.text(depth - 1) if depth else 'box'

def down():
    down()

box = Box()
try:
    down()
except RuntimeError:
    print 'deep'
''', ['tbreak 12', 'c', 'watch box', 'c'])
        self.assertEqual(answers[4], 'deep\nThe program ended with exit status 0.\n')

    def test_several_change_in_one_line(self):
        answers = self.answers('a = b = 0\na = b = 1\nprint a\n',
                               ['n', 'watch a', 'watch b', 'c', 'c'])
        self.assertEqual(answers[4], '''\
Watchpoint 1: a
Old value = 0
New value = 1
Watchpoint 2: b
Old value = 0
New value = 1
> prog.py(3)<module>()
-> print a
''')

    def test_what_is_typed_changes_nothing_that_counts(self):
        answers = self.answers('a = 0\nb = 0\na = 8\nprint a\n',
                               ['n', 'watch a', 'a = 7', 'c', 'c'])
        self.assertEqual(answers[4].splitlines()[:3], [
            'Watchpoint 1: a', 'Old value = 7', 'New value = 8'])

    def test_long_values_differ_where_they_are_not_shown(self):
        answers = self.answers('a = range(9999)\na.append(5)\nprint len(a)\n',
                               ['n', 'watch a', 'c', 'c'])
        self.assertEqual(answers[3].splitlines()[0], 'Watchpoint 1: a')
        self.assertTrue(len(answers[3]) < 3000, len(answers[3]))


class OtherStopsTest(TestCase):

    def test_steps_go_on_as_without_it(self):
        commands = ['tbreak 14', 'c', 'next', 'next', 'step', 'step', 'return', 'next', 'until',
                    'return', 'next']
        answers = self.answers(LEDGER, commands[:2] + ['watch n'] + commands[2:])
        self.assertEqual([answer.replace('Deleted watchpoint 2: its function is left\n', '')
                          for answer in answers[:3] + answers[4:]],
                         self.answers(LEDGER, commands))

    def test_breakpoint_is_counted_where_the_watched_value_changes(self):
        answers = self.answers(LEDGER, ['b 14', 'c', 'watch i', 'c', 'info b'])
        self.assertEqual(answers[4].splitlines()[0], 'Watchpoint 2: i')
        self.assertTrue('breakpoint already hit 2 times' in answers[5], answers[5])

    def test_count_of_steps_ends_there(self):
        answers = self.answers(LEDGER, ['tbreak 14', 'c', 'watch i', 'next 9'])
        self.assertEqual(answers[4].splitlines()[0], 'Watchpoint 2: i')

    def test_exception_tells_of_what_changed_right_before(self):
        answers = self.answers('''\
def f():
    globals().update(a=1) or [][1]

a = 0
f()
''', ['tbreak 5', 'c', 'watch a', 'c', 'quit'])
        self.assertEqual(answers[4].splitlines()[:4], [
            'Watchpoint 2: a', 'Old value = 0', 'New value = 1', '--Unhandled exception--'])


class SettingsTest(TestCase):

    def test_condition_and_counts(self):
        answers = self.answers('''\
n = 0
while n < 9:
    n += 1
print 'done'
''', ['n', 'watch n', 'condition 1 n % 2', 'ignore 1 1', 'c', 'condition 1 n.x', 'c',
      'condition 1', 'c'])
        self.assertEqual(answers[4], 'Will ignore next 1 crossing of watchpoint 1.\n')
        self.assertEqual(answers[5].splitlines()[:3], [
            'Watchpoint 1: n', 'Old value = 2', 'New value = 3'])
        self.assertEqual(answers[7].splitlines()[:2], [
            "Condition of watchpoint 1: AttributeError: 'int' object has no attribute 'x'",
            'Watchpoint 1: n'])
        self.assertEqual(answers[8], 'Watchpoint 1 is now unconditional.\n')

    def test_listed_disabled_and_deleted_like_breakpoints(self):
        self.assert_session(COUNTER, '''
    > prog.py(1)<module>()
    -> count = 0
    (sorrel) break 5
    Breakpoint 1 at prog.py:5
    (sorrel) watch count
    Watchpoint 2: count
    (sorrel) condition 2 count > 1
    (sorrel) disable 1
    (sorrel) continue
    Watchpoint 2: count
    Old value = 1
    New value = 2
    --Return--
    > prog.py(5)bump()->None
    -> count += 1
    (sorrel) break
    Num Type         Disp Enb   Where
    1   breakpoint   keep no    at prog.py:5
    2   watchpoint   keep yes   count
    \tstop only if count > 1
    \tbreakpoint already hit 3 times
    (sorrel) disable 2
    (sorrel) info watchpoints
    Num Type         Disp Enb   Where
    2   watchpoint   keep no    count
    \tstop only if count > 1
    \tbreakpoint already hit 3 times
    (sorrel) delete 2
    Deleted watchpoint 2
    (sorrel) delete 2
    *** No breakpoint 2
    (sorrel) continue
    done
    The program ended with exit status 0.
    ''')

    def test_commands_are_carried_out(self):
        answers = self.answers(COUNTER, ['next', 'watch count', 'commands', 'silent',
                                         'p count * 100', 'continue', 'end', 'continue'])
        self.assertEqual(
            answers[-1], '100\n200\n300\ndone\nThe program ended with exit status 0.\n')

    def test_wrong_expressions_are_refused_and_take_no_number(self):
        answers = self.answers(COUNTER, ['watch', 'watch 1 +', 'watch a = 1', 'watch count'])
        self.assertEqual(answers[1], '*** What is to be watched? watch EXPRESSION\n')
        self.assertEqual(answers[2], '*** not an expression: unexpected EOF while '
                                     'parsing (<stdin>, line 1)\n')
        self.assertEqual(answers[4], 'Watchpoint 1: count\n')

    def test_function_that_returns_has_no_variables_to_watch(self):
        answers = self.answers(LEDGER, ['tbreak 17', 'c', 'r', 'watch i'])
        self.assertEqual(answers[4], '*** This function is left already: its variables do not '
                                     'change any more\n')

    def test_nothing_is_watched_when_the_program_has_ended(self):
        self.script('def f():\n    n = 1\n    [][n]\nf()\n', 'prog.py')
        process = self.popen(
            ['-m', 'sorrel.main', 'terminal', '--post-mortem', '--', 'prog.py'],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        out, err, status = self.finish(process, 'catch never\nc\nwatch n\nq\n')
        self.assert_in('*** The program has ended\n', out)

    def test_program_that_is_let_go_runs_on(self):
        answers = self.answers(COUNTER, ['n', 'watch count', 'c', 'detach'])
        self.assertEqual(answers[4], 'Detached: the program runs on.\ndone\n')

    def test_saved_are_those_that_outlast_functions(self):
        answers = self.answers(LEDGER, [
            'tbreak 14', 'c', 'watch i', 'watch Account.x', 'ignore 3 2', 'save breakpoints kept'])
        self.assertEqual(answers[6], '*** Watchpoint 2 is left out: it lasts as long as its '
                                     'function\nSaved to kept\n')
        self.assertEqual(open(os.path.join(self.folder, 'kept')).read(),
                         'watch Account.x\nignore $bpnum 2\n')

    def test_kept_when_the_program_runs_again(self):
        answers = self.answers(COUNTER, ['next', 'watch count', 'condition 1 count == 2', 'run',
                                         'info watchpoints', 'c'])
        self.assertTrue('watchpoint   keep yes   count\n\tstop only if count == 2' in answers[5],
                        answers[5])
        self.assertEqual(answers[6].splitlines()[:3], [
            'Watchpoint 1: count', 'Old value = 1', 'New value = 2'])


class ForksTest(sorrel_session.ScreenTestCase):

    def test_forked_process_watches_what_its_parent_did(self):
        self.begin('''\
import os
a = 0
pid = os.fork()
if not pid:
    a = 1
    os._exit(0)
os.waitpid(pid, 0)
''', 'next', 'watch a')
        self.type('condition 1 a')
        seen = self.type('continue')
        self.assert_in('Old value = 0\nNew value = 1\n', seen)
        self.assert_in(', prog.py]', seen)
        self.screen.type('quit\n')
