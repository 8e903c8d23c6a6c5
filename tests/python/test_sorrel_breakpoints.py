"""Breakpoints in the terminal: where they can be set, when they stop, and what the commands say."""

import os

import sorrel_session

LOOP = '''\
def f(x):
    # only a comment

    y = x * 2
    return y

for i in range(5):
    f(i)
print 'done'
'''


class Setting(sorrel_session.TestCase):

    def test_a_line_stops_and_the_list_counts_hits(self):
        self.assert_session(LOOP, '''
    > prog.py(1)<module>()
    -> def f(x):
    (sorrel) break
    (sorrel) break 4
    Breakpoint 1 at prog.py:4
    (sorrel) b 9
    Breakpoint 2 at prog.py:9
    (sorrel) c
    > prog.py(4)f()
    -> y = x * 2
    (sorrel) c
    > prog.py(4)f()
    -> y = x * 2
    (sorrel) print x
    1
    (sorrel) break
    Num Type         Disp Enb   Where
    1   breakpoint   keep yes   at prog.py:4
    	breakpoint already hit 2 times
    2   breakpoint   keep yes   at prog.py:9
    (sorrel) delete 1
    Deleted breakpoint 1
    (sorrel) c
    > prog.py(9)<module>()
    -> print 'done'
    (sorrel) c
    done
    The program ended with exit status 0.
    ''')

    def test_a_line_without_code_is_moved_to_the_next_that_has_some(self):
        self.assert_session(LOOP, '''
    > prog.py(1)<module>()
    -> def f(x):
    (sorrel) break 2
    Breakpoint 1 at prog.py:4
    (sorrel) b prog.py:6
    Breakpoint 2 at prog.py:7
    (sorrel) c
    > prog.py(7)<module>()
    -> for i in range(5):
    (sorrel) c
    > prog.py(4)f()
    -> y = x * 2
    (sorrel) q
    ''')

    def test_what_cannot_be_set_is_refused_with_the_reason(self):
        self.script('x = (\n', 'broken.py')
        self.assert_session(LOOP + '\n# the end\n', '''
    > prog.py(1)<module>()
    -> def f(x):
    (sorrel) b 10
    *** no code from line 10 of prog.py on
    (sorrel) b 0
    *** lines are counted from 1
    (sorrel) b broken.py:1
    *** broken.py is no Python program: unexpected EOF while parsing (broken.py, line 1)
    (sorrel) b nothing
    *** no function nothing in prog.py
    (sorrel) b sys
    *** no function sys in prog.py
    (sorrel) b str.upper
    *** not a function in Python: method_descriptor
    (sorrel) b 4, x ==
    *** the condition is no expression: unexpected EOF while parsing (<condition>, line 1)
    (sorrel) tbreak prog.py: 99
    *** no code from line 99 of prog.py on
    (sorrel) b
    (sorrel) q
    ''')

    def test_a_function_by_its_name_before_it_is_defined_and_after(self):
        self.assert_session('''\
class Thing(object):

    def method(self):
        """Says nothing."""
        return 1

def f():
    return Thing().method()

f()
f()
''', '''
    > prog.py(1)<module>()
    -> class Thing(object):
    (sorrel) break f
    Breakpoint 1 at prog.py:8
    (sorrel) break Thing.method
    Breakpoint 2 at prog.py:5
    (sorrel) c
    > prog.py(8)f()
    -> return Thing().method()
    (sorrel) c
    > prog.py(5)method()
    -> return 1
    (sorrel) cl 1 2
    Deleted breakpoint 1
    Deleted breakpoint 2
    (sorrel) tbreak self.method
    Breakpoint 3 at prog.py:5
    (sorrel) c
    Deleted breakpoint 3
    > prog.py(5)method()
    -> return 1
    (sorrel) q
    ''')

    def test_another_file_before_and_after_it_is_imported(self):
        os.mkdir(os.path.join(self.folder, 'pack'))
        self.script('', os.path.join('pack', '__init__.py'))
        self.script('def g(x):\n    return x\n', os.path.join('pack', 'inside.py'))
        self.script('def h(x):\n    return x\n', 'beside.py')
        self.assert_session('''\
import beside
from pack import inside
beside.h(1)
inside.g(2)
''', '''
    > prog.py(1)<module>()
    -> import beside
    (sorrel) break beside:2
    Breakpoint 1 at beside.py:2
    (sorrel) break pack/inside.py:1
    Breakpoint 2 at pack/inside.py:1
    (sorrel) break beside.h, x == 7
    Breakpoint 3 at beside.py:2
    (sorrel) c
    > pack/inside.py(1)<module>()
    -> def g(x):
    (sorrel) c
    > beside.py(2)h()
    -> return x
    (sorrel) break inside.py:g
    Breakpoint 4 at pack/inside.py:2
    (sorrel) c
    > pack/inside.py(2)g()
    -> return x
    (sorrel) c
    The program ended with exit status 0.
    ''')

    def test_names_that_are_the_programs_stay_statements(self):
        self.assert_session('''\
b = [1]
cl = enable = ignore = catch = modules = 0
print b, cl, enable, ignore, catch, modules
''', '''
    > prog.py(1)<module>()
    -> b = [1]
    (sorrel) n
    > prog.py(2)<module>()
    -> cl = enable = ignore = catch = modules = 0
    (sorrel) b.append(2)
    (sorrel) b[0] = {1: 2}
    (sorrel) n
    > prog.py(3)<module>()
    -> print b, cl, enable, ignore, catch, modules
    (sorrel) cl = 1
    (sorrel) enable = 2
    (sorrel) ignore += 3
    (sorrel) catch = 4; modules = 5
    (sorrel) b
    (sorrel) !b
    [{1: 2}, 2]
    (sorrel) c
    [{1: 2}, 2] 1 2 3 4 5
    The program ended with exit status 0.
    ''')


    def test_a_line_of_code_that_the_module_has_made_up_is_not_the_files(self):
        self.assert_session('''\
made = compile('a = 1\\nb = 2\\nc = 3\\nd = 4', '<made>', 'exec')
exec made
e = 5
f = 6
''', '''
    > prog.py(1)<module>()
    -> made = compile('a = 1\\nb = 2\\nc = 3\\nd = 4', '<made>', 'exec')
    (sorrel) break 3
    Breakpoint 1 at prog.py:3
    (sorrel) c
    > prog.py(3)<module>()
    -> e = 5
    (sorrel) c
    The program ended with exit status 0.
    ''')


class Changing(sorrel_session.TestCase):

    def test_conditions(self):
        self.assert_session(LOOP, '''
    > prog.py(1)<module>()
    -> def f(x):
    (sorrel) b f, x == 1
    Breakpoint 1 at prog.py:4
    (sorrel) c
    > prog.py(4)f()
    -> y = x * 2
    (sorrel) p x
    1
    (sorrel) condition 1 x >
    *** the condition is no expression: unexpected EOF while parsing (<condition>, line 1)
    (sorrel) condition 1 x == 3
    (sorrel) b
    Num Type         Disp Enb   Where
    1   breakpoint   keep yes   at prog.py:4
    	stop only if x == 3
    	breakpoint already hit 2 times
    (sorrel) c
    > prog.py(4)f()
    -> y = x * 2
    (sorrel) p x
    3
    (sorrel) condition 1
    Breakpoint 1 is now unconditional.
    (sorrel) c
    > prog.py(4)f()
    -> y = x * 2
    (sorrel) p x
    4
    (sorrel) condition 2 x
    *** No breakpoint 2
    (sorrel) c
    done
    The program ended with exit status 0.
    ''')

    def test_a_condition_that_fails_stops_and_says_why(self):
        self.assert_session(LOOP, '''
    > prog.py(1)<module>()
    -> def f(x):
    (sorrel) b f, nowhere.x
    Breakpoint 1 at prog.py:4
    (sorrel) c
    Condition of breakpoint 1: NameError: name 'nowhere' is not defined
    > prog.py(4)f()
    -> y = x * 2
    (sorrel) q
    ''')

    def test_one_that_is_interrupted_does_so_too(self):
        self.assert_session('''\
def stop():
    raise KeyboardInterrupt
for i in range(2):
    i + 1
    i + 2
''', '''
    > prog.py(1)<module>()
    -> def stop():
    (sorrel) b 4, stop()
    Breakpoint 1 at prog.py:4
    (sorrel) b 5, stop()
    Breakpoint 2 at prog.py:5
    (sorrel) logpoint 5, {i}
    Logpoint 3 at prog.py:5
    (sorrel) c
    Condition of breakpoint 1: KeyboardInterrupt
    > prog.py(4)<module>()
    -> i + 1
    (sorrel) c
    0
    Condition of breakpoint 2: KeyboardInterrupt
    > prog.py(5)<module>()
    -> i + 2
    (sorrel) q
    ''')

    def test_ignoring(self):
        self.assert_session(LOOP, '''
    > prog.py(1)<module>()
    -> def f(x):
    (sorrel) b f
    Breakpoint 1 at prog.py:4
    (sorrel) ignore 1 3
    Will ignore next 3 crossings of breakpoint 1.
    (sorrel) b
    Num Type         Disp Enb   Where
    1   breakpoint   keep yes   at prog.py:4
    	ignore next 3 hits
    (sorrel) c
    > prog.py(4)f()
    -> y = x * 2
    (sorrel) p x
    3
    (sorrel) ignore 1 1
    Will ignore next 1 crossing of breakpoint 1.
    (sorrel) ignore 1
    Will stop next time breakpoint 1 is reached.
    (sorrel) ignore 1 many
    *** Not a count: many
    (sorrel) ignore 1 2147483648
    *** Not a count: 2147483648
    (sorrel) ignore 7 1
    *** No breakpoint 7
    (sorrel) c
    > prog.py(4)f()
    -> y = x * 2
    (sorrel) p x
    4
    (sorrel) q
    ''')

    def test_disabling_and_enabling(self):
        self.assert_session(LOOP, '''
    > prog.py(1)<module>()
    -> def f(x):
    (sorrel) b f
    Breakpoint 1 at prog.py:4
    (sorrel) b 8, i == 2
    Breakpoint 2 at prog.py:8
    (sorrel) disable 1 3
    *** No breakpoint 3
    (sorrel) c
    > prog.py(8)<module>()
    -> f(i)
    (sorrel) b
    Num Type         Disp Enb   Where
    1   breakpoint   keep no    at prog.py:4
    2   breakpoint   keep yes   at prog.py:8
    	stop only if i == 2
    	breakpoint already hit 3 times
    (sorrel) enable
    (sorrel) c
    > prog.py(4)f()
    -> y = x * 2
    (sorrel) disable
    (sorrel) c
    done
    The program ended with exit status 0.
    ''')

    def test_two_on_one_line_have_settings_of_their_own(self):
        self.assert_session(LOOP, '''
    > prog.py(1)<module>()
    -> def f(x):
    (sorrel) b 4, x == 1
    Breakpoint 1 at prog.py:4
    (sorrel) b 5, y == 6
    Breakpoint 2 at prog.py:5
    (sorrel) tbreak 4, x == 2
    Breakpoint 3 at prog.py:4
    (sorrel) c
    > prog.py(4)f()
    -> y = x * 2
    (sorrel) disable 1
    (sorrel) b
    Num Type         Disp Enb   Where
    1   breakpoint   keep no    at prog.py:4
    	stop only if x == 1
    	breakpoint already hit 2 times
    2   breakpoint   keep yes   at prog.py:5
    	stop only if y == 6
    	breakpoint already hit 1 time
    3   breakpoint   del  yes   at prog.py:4
    	stop only if x == 2
    	breakpoint already hit 2 times
    (sorrel) c
    Deleted breakpoint 3
    > prog.py(4)f()
    -> y = x * 2
    (sorrel) p x
    2
    (sorrel) enable 1
    (sorrel) condition 1
    Breakpoint 1 is now unconditional.
    (sorrel) c
    > prog.py(4)f()
    -> y = x * 2
    (sorrel) c
    > prog.py(5)f()
    -> return y
    (sorrel) b
    Num Type         Disp Enb   Where
    1   breakpoint   keep yes   at prog.py:4
    	breakpoint already hit 3 times
    2   breakpoint   keep yes   at prog.py:5
    	stop only if y == 6
    	breakpoint already hit 4 times
    (sorrel) q
    ''')

    def test_temporary_ones_stop_once(self):
        self.assert_session(LOOP, '''
    > prog.py(1)<module>()
    -> def f(x):
    (sorrel) tbreak f
    Breakpoint 1 at prog.py:4
    (sorrel) tbreak
    Num Type         Disp Enb   Where
    1   breakpoint   del  yes   at prog.py:4
    (sorrel) c
    Deleted breakpoint 1
    > prog.py(4)f()
    -> y = x * 2
    (sorrel) b
    (sorrel) c
    done
    The program ended with exit status 0.
    ''')

    def test_clearing(self):
        self.assert_session(LOOP, '''
    > prog.py(1)<module>()
    -> def f(x):
    (sorrel) b 4
    Breakpoint 1 at prog.py:4
    (sorrel) b 4, x
    Breakpoint 2 at prog.py:4
    (sorrel) b 9
    Breakpoint 3 at prog.py:9
    (sorrel) b 7
    Breakpoint 4 at prog.py:7
    (sorrel) clear prog.py:4
    Deleted breakpoint 1
    Deleted breakpoint 2
    (sorrel) clear prog.py:4
    *** There are no breakpoints at prog.py:4
    (sorrel) clear nowhere.py:4
    *** no file nowhere.py
    (sorrel) cl 1 3
    *** No breakpoint 1
    Deleted breakpoint 3
    (sorrel) b
    Num Type         Disp Enb   Where
    4   breakpoint   keep yes   at prog.py:7
    (sorrel) q
    ''')

    def test_clearing_all_asks_first(self):
        out, err, _ = self.debug(LOOP, [
            'b 4', 'b 9', 'clear', 'no', 'b', 'delete', 'yes', 'b', 'c'])
        self.assertEqual(err, '')
        self.assertEqual(out.split(sorrel_session.PROMPT)[3:], [
            'Clear all breaks? ', '''\
Num Type         Disp Enb   Where
1   breakpoint   keep yes   at prog.py:4
2   breakpoint   keep yes   at prog.py:9
''', 'Clear all breaks? Deleted breakpoint 1\nDeleted breakpoint 2\n', '',
            'done\nThe program ended with exit status 0.\n'])

    def test_on_the_way_to_an_outer_frame_breakpoints_stop(self):
        self.assert_session('''\
def a():
    b()
    n = 1
    n = 2

def b():
    c()
    d()

def c():
    x = 1

def d():
    x = 2

a()
''', '''
    > prog.py(1)<module>()
    -> def a():
    (sorrel) tbreak 11
    Breakpoint 1 at prog.py:11
    (sorrel) b 8
    Breakpoint 2 at prog.py:8
    (sorrel) b d
    Breakpoint 3 at prog.py:14
    (sorrel) b 8, x == 7
    Breakpoint 4 at prog.py:8
    (sorrel) c
    Deleted breakpoint 1
    > prog.py(11)c()
    -> x = 1
    (sorrel) up 2
    > prog.py(2)a()
    -> b()
    (sorrel) n
    Condition of breakpoint 4: NameError: name 'x' is not defined
    > prog.py(8)b()
    -> d()
    (sorrel) disable 2 4
    (sorrel) up
    > prog.py(2)a()
    -> b()
    (sorrel) n
    > prog.py(14)d()
    -> x = 2
    (sorrel) up 2
    > prog.py(2)a()
    -> b()
    (sorrel) n
    > prog.py(3)a()
    -> n = 1
    (sorrel) q
    ''')

    def test_a_step_over_a_call_stops_at_a_breakpoint_inside(self):
        self.assert_session(LOOP, '''
    > prog.py(1)<module>()
    -> def f(x):
    (sorrel) b 5
    Breakpoint 1 at prog.py:5
    (sorrel) tbreak 8
    Breakpoint 2 at prog.py:8
    (sorrel) c
    Deleted breakpoint 2
    > prog.py(8)<module>()
    -> f(i)
    (sorrel) n
    > prog.py(5)f()
    -> return y
    (sorrel) up
    > prog.py(8)<module>()
    -> f(i)
    (sorrel) n
    > prog.py(7)<module>()
    -> for i in range(5):
    (sorrel) q
    ''')
