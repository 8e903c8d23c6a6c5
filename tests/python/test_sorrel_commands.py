"""Each command of the terminal front end."""

import sorrel_session

SUMS = '''\
def add(a, b=2, *rest, **named):
    total = a + b
    return total

def main():
    x = add(1)
    x += 1
    return x

main()
print 'done'
'''

LOOP = '''\
def count(n):
    seen = []
    for i in range(n):
        seen.append(i)
    return seen

count(3)
print 'done'
'''


class Stepping(sorrel_session.TestCase):

    def test_step_goes_into_calls_and_stops_at_returns(self):
        self.assert_session(SUMS, '''
    > prog.py(1)<module>()
    -> def add(a, b=2, *rest, **named):
    (sorrel) step
    > prog.py(5)<module>()
    -> def main():
    (sorrel) step
    > prog.py(10)<module>()
    -> main()
    (sorrel) step
    > prog.py(6)main()
    -> x = add(1)
    (sorrel) step
    > prog.py(2)add()
    -> total = a + b
    (sorrel) step
    > prog.py(3)add()
    -> return total
    (sorrel) step
    --Return--
    > prog.py(3)add()->3
    -> return total
    (sorrel) step
    > prog.py(7)main()
    -> x += 1
    (sorrel) step
    > prog.py(8)main()
    -> return x
    (sorrel) step
    --Return--
    > prog.py(8)main()->4
    -> return x
    (sorrel) step
    > prog.py(11)<module>()
    -> print 'done'
    (sorrel) step
    done
    --Return--
    > prog.py(11)<module>()->None
    -> print 'done'
    (sorrel) step
    The program ended with exit status 0.
    ''')

    def test_next_passes_over_calls(self):
        self.assert_session(SUMS, '''
    > prog.py(1)<module>()
    -> def add(a, b=2, *rest, **named):
    (sorrel) next
    > prog.py(5)<module>()
    -> def main():
    (sorrel) next
    > prog.py(10)<module>()
    -> main()
    (sorrel) next
    > prog.py(11)<module>()
    -> print 'done'
    (sorrel) next
    done
    --Return--
    > prog.py(11)<module>()->None
    -> print 'done'
    (sorrel) next
    The program ended with exit status 0.
    ''')

    def test_an_empty_line_repeats_the_last_command(self):
        self.assert_session(SUMS, '''
    > prog.py(1)<module>()
    -> def add(a, b=2, *rest, **named):
    (sorrel) n
    > prog.py(5)<module>()
    -> def main():
    (sorrel) 
    > prog.py(10)<module>()
    -> main()
    (sorrel) s
    > prog.py(6)main()
    -> x = add(1)
    (sorrel) 
    > prog.py(2)add()
    -> total = a + b
    (sorrel) p a
    1
    (sorrel) 
    1
    (sorrel) a = a + 1
    (sorrel) 
    (sorrel) p a
    3
    (sorrel) c
    done
    The program ended with exit status 0.
    ''')

    def test_return_runs_to_the_end_of_the_function(self):
        self.assert_session(SUMS, '''
    > prog.py(1)<module>()
    -> def add(a, b=2, *rest, **named):
    (sorrel) n
    > prog.py(5)<module>()
    -> def main():
    (sorrel) n
    > prog.py(10)<module>()
    -> main()
    (sorrel) s
    > prog.py(6)main()
    -> x = add(1)
    (sorrel) return
    --Return--
    > prog.py(8)main()->4
    -> return x
    (sorrel) r
    > prog.py(11)<module>()
    -> print 'done'
    (sorrel) r
    done
    --Return--
    > prog.py(11)<module>()->None
    -> print 'done'
    (sorrel) r
    The program ended with exit status 0.
    ''')

    def test_until_runs_a_loop_to_its_end_and_the_last_line_to_the_caller(self):
        self.assert_session(LOOP, '''
    > prog.py(1)<module>()
    -> def count(n):
    (sorrel) n
    > prog.py(7)<module>()
    -> count(3)
    (sorrel) s
    > prog.py(2)count()
    -> seen = []
    (sorrel) unt
    > prog.py(3)count()
    -> for i in range(n):
    (sorrel) until
    > prog.py(4)count()
    -> seen.append(i)
    (sorrel) until
    > prog.py(5)count()
    -> return seen
    (sorrel) p seen
    [0, 1, 2]
    (sorrel) until
    > prog.py(8)<module>()
    -> print 'done'
    (sorrel) c
    done
    The program ended with exit status 0.
    ''')

    def test_until_at_the_end_of_a_function_whose_last_line_is_a_loop(self):
        self.assert_session('''\
def each(n):
    for i in range(n):
        pass

each(2)
print 'done'
''', '''
    > prog.py(1)<module>()
    -> def each(n):
    (sorrel) n
    > prog.py(5)<module>()
    -> each(2)
    (sorrel) s
    > prog.py(2)each()
    -> for i in range(n):
    (sorrel) n
    > prog.py(3)each()
    -> pass
    (sorrel) until
    > prog.py(6)<module>()
    -> print 'done'
    (sorrel) c
    done
    The program ended with exit status 0.
    ''')

    def test_continue_by_all_its_names(self):
        for name in 'continue', 'cont', 'c':
            self.assertEqual(self.transcript(SUMS, [name]), '''\
> prog.py(1)<module>()
-> def add(a, b=2, *rest, **named):
(sorrel) %s
done
The program ended with exit status 0.
''' % name)
            self.assertEqual(self.status, 0)

    def test_next_stays_in_its_function_when_that_is_called_again(self):
        self.assert_session('''\
def down(n):
    if n:
        down(n - 1)
    return n

down(2)
''', '''
    > prog.py(1)<module>()
    -> def down(n):
    (sorrel) n
    > prog.py(6)<module>()
    -> down(2)
    (sorrel) s
    > prog.py(2)down()
    -> if n:
    (sorrel) n
    > prog.py(3)down()
    -> down(n - 1)
    (sorrel) n
    > prog.py(4)down()
    -> return n
    (sorrel) p n
    2
    (sorrel) c
    The program ended with exit status 0.
    ''')

    def test_return_in_recursion_leaves_one_call(self):
        self.assert_session('''\
def down(n):
    if n:
        down(n - 1)
    return n

down(2)
''', '''
    > prog.py(1)<module>()
    -> def down(n):
    (sorrel) n
    > prog.py(6)<module>()
    -> down(2)
    (sorrel) s
    > prog.py(2)down()
    -> if n:
    (sorrel) s
    > prog.py(3)down()
    -> down(n - 1)
    (sorrel) s
    > prog.py(2)down()
    -> if n:
    (sorrel) r
    --Return--
    > prog.py(4)down()->1
    -> return n
    (sorrel) r
    > prog.py(4)down()
    -> return n
    (sorrel) p n
    2
    (sorrel) r
    --Return--
    > prog.py(4)down()->2
    -> return n
    (sorrel) c
    The program ended with exit status 0.
    ''')

    def test_a_generator_stops_at_what_it_yields(self):
        self.assert_session('''\
def numbers():
    yield 1
    yield 2

for number in numbers():
    print number
''', '''
    > prog.py(1)<module>()
    -> def numbers():
    (sorrel) n
    > prog.py(5)<module>()
    -> for number in numbers():
    (sorrel) s
    > prog.py(2)numbers()
    -> yield 1
    (sorrel) n
    --Return--
    > prog.py(2)numbers()->1
    -> yield 1
    (sorrel) n
    > prog.py(6)<module>()
    -> print number
    (sorrel) n
    1
    > prog.py(5)<module>()
    -> for number in numbers():
    (sorrel) s
    > prog.py(3)numbers()
    -> yield 2
    (sorrel) r
    --Return--
    > prog.py(3)numbers()->2
    -> yield 2
    (sorrel) s
    > prog.py(6)<module>()
    -> print number
    (sorrel) c
    2
    The program ended with exit status 0.
    ''')

    def test_steps_follow_an_exception_out_of_the_program(self):
        out, err, status = self.debug('''\
def fail():
    raise ValueError('no')

fail()
''', ['n', 's', 's', 's', 's', 's', 's', 's'])
        self.assertEqual((out, status), ('''\
> prog.py(1)<module>()
-> def fail():
(sorrel) > prog.py(4)<module>()
-> fail()
(sorrel) > prog.py(2)fail()
-> raise ValueError('no')
(sorrel) ValueError: no
> prog.py(2)fail()
-> raise ValueError('no')
(sorrel) --Return--
> prog.py(2)fail()->None
-> raise ValueError('no')
(sorrel) ValueError: no
> prog.py(4)<module>()
-> fail()
(sorrel) --Return--
> prog.py(4)<module>()->None
-> fail()
(sorrel) The program ended with an uncaught ValueError.
''', 1))
        self.assertEqual(err, '''\
Traceback (most recent call last):
  File "prog.py", line 4, in <module>
    fail()
  File "prog.py", line 2, in fail
    raise ValueError('no')
ValueError: no
''')


NESTED = '''\
def inner(n):
    n += 1
    return n

def middle(n):
    for i in range(2):
        n = inner(n)
    n = inner(inner(n))
    return n

def outer():
    result = middle(0)
    return result

outer()
print 'done'
'''
INTO_INNER = ['n', 'n', 'n', 's', 's', 's', 's']


class OuterFrames(sorrel_session.TestCase):

    def last_stops(self, commands):
        """The transcript after inner has been reached."""
        seen = self.transcript(NESTED, INTO_INNER + commands)
        before = '''\
(sorrel) s
> prog.py(2)inner()
-> n += 1
'''
        self.assert_in(before, seen)
        return seen[seen.index(before) + len(before):]

    def test_next_counts_in_the_frame_shown(self):
        self.assertEqual(self.last_stops(['up', 'next', 'p n', 'c']), '''\
(sorrel) up
> prog.py(7)middle()
-> n = inner(n)
(sorrel) next
> prog.py(6)middle()
-> for i in range(2):
(sorrel) p n
1
(sorrel) c
done
The program ended with exit status 0.
''')

    def test_next_counts_two_frames_out(self):
        self.assertEqual(self.last_stops(['up 2', 'next', 'c']), '''\
(sorrel) up 2
> prog.py(12)outer()
-> result = middle(0)
(sorrel) next
> prog.py(13)outer()
-> return result
(sorrel) c
done
The program ended with exit status 0.
''')

    def test_until_counts_in_the_frame_shown(self):
        self.assertEqual(self.last_stops(['u', 'until', 'p n', 'c']), '''\
(sorrel) u
> prog.py(7)middle()
-> n = inner(n)
(sorrel) until
> prog.py(8)middle()
-> n = inner(inner(n))
(sorrel) p n
2
(sorrel) c
done
The program ended with exit status 0.
''')

    def test_return_leaves_the_frame_shown(self):
        self.assertEqual(self.last_stops(['u', 'return', 'c']), '''\
(sorrel) u
> prog.py(7)middle()
-> n = inner(n)
(sorrel) return
--Return--
> prog.py(9)middle()->4
-> return n
(sorrel) c
done
The program ended with exit status 0.
''')

    def test_return_leaves_the_outermost_frame(self):
        self.assertEqual(self.last_stops(['u 9', 'return', 'c']), '''\
(sorrel) u 9
> prog.py(15)<module>()
-> outer()
(sorrel) return
done
--Return--
> prog.py(16)<module>()->None
-> print 'done'
(sorrel) c
The program ended with exit status 0.
''')

    def test_step_goes_on_from_the_innermost_frame(self):
        self.assertEqual(self.last_stops(['u 2', 'step', 'c']), '''\
(sorrel) u 2
> prog.py(12)outer()
-> result = middle(0)
(sorrel) step
> prog.py(3)inner()
-> return n
(sorrel) c
done
The program ended with exit status 0.
''')

    def test_an_outer_frame_that_returns_at_once_shows_its_return(self):
        self.assert_session('''\
def inner():
    return 1

def outer():
    return inner() + inner()

outer()
''', '''
    > prog.py(1)<module>()
    -> def inner():
    (sorrel) n
    > prog.py(4)<module>()
    -> def outer():
    (sorrel) n
    > prog.py(7)<module>()
    -> outer()
    (sorrel) s
    > prog.py(5)outer()
    -> return inner() + inner()
    (sorrel) s
    > prog.py(2)inner()
    -> return 1
    (sorrel) u
    > prog.py(5)outer()
    -> return inner() + inner()
    (sorrel) n
    --Return--
    > prog.py(5)outer()->2
    -> return inner() + inner()
    (sorrel) c
    The program ended with exit status 0.
    ''')

    def test_an_exception_stops_when_it_gets_to_the_frame_shown(self):
        self.assert_session('''\
def inner():
    raise KeyError('x')

def outer():
    inner()

try:
    outer()
except KeyError:
    print 'caught'
''', '''
    > prog.py(1)<module>()
    -> def inner():
    (sorrel) n
    > prog.py(4)<module>()
    -> def outer():
    (sorrel) n
    > prog.py(7)<module>()
    -> try:
    (sorrel) n
    > prog.py(8)<module>()
    -> outer()
    (sorrel) s
    > prog.py(5)outer()
    -> inner()
    (sorrel) s
    > prog.py(2)inner()
    -> raise KeyError('x')
    (sorrel) u 2
    > prog.py(8)<module>()
    -> outer()
    (sorrel) n
    KeyError: 'x'
    > prog.py(8)<module>()
    -> outer()
    (sorrel) n
    > prog.py(9)<module>()
    -> except KeyError:
    (sorrel) c
    caught
    The program ended with exit status 0.
    ''')


class Looking(sorrel_session.TestCase):

    def test_where_up_and_down(self):
        self.assert_session(SUMS, '''
    > prog.py(1)<module>()
    -> def add(a, b=2, *rest, **named):
    (sorrel) n
    > prog.py(5)<module>()
    -> def main():
    (sorrel) n
    > prog.py(10)<module>()
    -> main()
    (sorrel) s
    > prog.py(6)main()
    -> x = add(1)
    (sorrel) s
    > prog.py(2)add()
    -> total = a + b
    (sorrel) where
      prog.py(10)<module>()
    -> main()
      prog.py(6)main()
    -> x = add(1)
    > prog.py(2)add()
    -> total = a + b
    (sorrel) down
    *** Newest frame
    (sorrel) up
    > prog.py(6)main()
    -> x = add(1)
    (sorrel) w
      prog.py(10)<module>()
    -> main()
    > prog.py(6)main()
    -> x = add(1)
      prog.py(2)add()
    -> total = a + b
    (sorrel) d
    > prog.py(2)add()
    -> total = a + b
    (sorrel) u 2
    > prog.py(10)<module>()
    -> main()
    (sorrel) u
    *** Oldest frame
    (sorrel) d 7
    > prog.py(2)add()
    -> total = a + b
    (sorrel) bt
      prog.py(10)<module>()
    -> main()
      prog.py(6)main()
    -> x = add(1)
    > prog.py(2)add()
    -> total = a + b
    (sorrel) c
    done
    The program ended with exit status 0.
    ''')

    def test_list_shows_the_lines_around_then_those_after(self):
        lines = ['x = %d' % number for number in range(1, 31)]
        seen = self.transcript('\n'.join(lines) + '\n', ['n'] * 9 + ['list', 'l', '', 'l', 'c'])

        def listed(first, last):
            return ''.join(['%3d  %s\tx = %d\n' % (number, number == 10 and '->' or '  ', number)
                            for number in range(first, last + 1)])
        self.assert_in('(sorrel) list\n' + listed(5, 15) + '(sorrel) l\n' + listed(16, 26)
                       + '(sorrel) \n' + listed(27, 30) + '[EOF]\n(sorrel) l\n[EOF]\n', seen)

    def test_list_of_named_lines(self):
        lines = ['x = %d' % number for number in range(1, 31)]

        def listed(first, last):
            return ''.join(['%3d  %s\tx = %d\n' % (number, number == 1 and '->' or '  ', number)
                            for number in range(first, last + 1)])
        seen = self.transcript('\n'.join(lines) + '\n',
                               ['l 20', 'l', 'l 3,5', 'l 3 5', 'l 4, 2', 'list 2', 'c'])
        self.assertEqual(seen, '''\
> prog.py(1)<module>()
-> x = 1
(sorrel) l 20
''' + listed(15, 25) + '(sorrel) l\n' + listed(26, 30) + '[EOF]\n(sorrel) l 3,5\n' + listed(3, 5)
                         + '(sorrel) l 3 5\n' + listed(3, 5) + '(sorrel) l 4, 2\n' + listed(4, 6)
                         + '(sorrel) list 2\n' + listed(1, 11) + '''\
(sorrel) c
The program ended with exit status 0.
''')

    def test_list_begins_anew_in_another_frame(self):
        seen = self.transcript(SUMS, ['n', 'n', 's', 'l', 'u', 'l', 'c'])
        self.assert_in('''\
(sorrel) u
> prog.py(10)<module>()
-> main()
(sorrel) l
  5    \tdef main():
''', seen)

    def test_args(self):
        self.assert_session('''\
def call(a, b=2, *rest, **named):
    del b
    return a

call(1, 3, 'x', y='z')
''', '''
    > prog.py(1)<module>()
    -> def call(a, b=2, *rest, **named):
    (sorrel) n
    > prog.py(5)<module>()
    -> call(1, 3, 'x', y='z')
    (sorrel) args
    (sorrel) s
    > prog.py(2)call()
    -> del b
    (sorrel) args
    a = 1
    b = 3
    rest = ('x',)
    named = {'y': 'z'}
    (sorrel) n
    > prog.py(3)call()
    -> return a
    (sorrel) a
    a = 1
    b: deleted
    rest = ('x',)
    named = {'y': 'z'}
    (sorrel) c
    The program ended with exit status 0.
    ''')

    def test_print_shows_the_representation(self):
        self.assert_session("text = 'a\\tb'\nx = 1\n", r'''
    > prog.py(1)<module>()
    -> text = 'a\tb'
    (sorrel) n
    > prog.py(2)<module>()
    -> x = 1
    (sorrel) p text
    'a\tb'
    (sorrel) print text, 1
    ('a\tb', 1)
    (sorrel) print (text)
    'a\tb'
    (sorrel) p None
    None
    (sorrel) p x
    *** NameError: name 'x' is not defined
    (sorrel) p 1 +
    *** SyntaxError: unexpected EOF while parsing
    (sorrel) p
    *** SyntaxError: unexpected EOF while parsing
    (sorrel) p 1/0
    *** ZeroDivisionError: integer division or modulo by zero
    (sorrel) p __import__('sys').exit(2)
    *** SystemExit: 2
    (sorrel) c
    The program ended with exit status 0.
    ''')

    def test_values_that_cannot_be_shown(self):
        self.assert_session('''\
class Odd(object):
    def __repr__(self):
        raise RuntimeError('no')

def f(odd):
    return odd

f(Odd())
''', '''
    > prog.py(1)<module>()
    -> class Odd(object):
    (sorrel) n
    > prog.py(5)<module>()
    -> def f(odd):
    (sorrel) n
    > prog.py(8)<module>()
    -> f(Odd())
    (sorrel) s
    > prog.py(6)f()
    -> return odd
    (sorrel) a
    *** RuntimeError: no
    (sorrel) odd
    *** RuntimeError: no
    (sorrel) n
    --Return--
    > prog.py(6)f()-><Odd that cannot be shown>
    -> return odd
    (sorrel) c
    The program ended with exit status 0.
    ''')

    def test_pretty_print_lays_out_over_lines(self):
        rows = ['a long entry in a list'] * 4
        shown = '[' + ',\n '.join([repr(row) for row in rows]) + ']\n'
        for name in 'pp', 'pretty-print':
            seen = self.transcript('rows = %r\nx = 1\n' % rows,
                                   ['n', name + ' rows', name + ' nothing', 'c'])
            self.assert_in("(sorrel) %s rows\n%s(sorrel) %s nothing\n"
                           "*** NameError: name 'nothing' is not defined\n" % (name, shown, name),
                           seen)

    def test_whatis(self):
        self.assert_session('''\
class Thing(object):
    def act(self): pass
def act(): pass
x = 1
''', '''
    > prog.py(1)<module>()
    -> class Thing(object):
    (sorrel) n
    > prog.py(3)<module>()
    -> def act(): pass
    (sorrel) n
    > prog.py(4)<module>()
    -> x = 1
    (sorrel) whatis act
    Function act
    (sorrel) whatis Thing().act
    Method act
    (sorrel) whatis Thing()
    <class '__main__.Thing'>
    (sorrel) whatis 'a'
    <type 'str'>
    (sorrel) whatis x
    *** NameError: name 'x' is not defined
    (sorrel) c
    The program ended with exit status 0.
    ''')

    def test_help_names_every_command(self):
        out = self.debug('x = 1\n', ['help', 'c'])[0]
        for name in ('args', 'continue', 'down', 'help', 'list', 'next', 'pp', 'print', 'quit',
                     'return', 'step', 'threads', 'until', 'up', 'whatis', 'where'):
            self.assertEqual(len([line for line in out.replace(sorrel_session.PROMPT, '\n')
                                  .splitlines() if line.startswith((name + ',', name + ' ',
                                                                    name + ':'))]), 1, name)

    def test_help_on_a_command(self):
        self.assert_session('x = 1\n', '''
    > prog.py(1)<module>()
    -> x = 1
    (sorrel) help list
    list, l [FIRST [LAST]]: show source lines, by default around this one, then those after.

    A LAST smaller than FIRST is a number of lines.
    (sorrel) h n
    next, n [COUNT]: run to the next line of this function, or to its return; so many times.

    A stop for another reason ends the count.
    (sorrel) ?q
    quit, q, exit: end the program at once, with exit status 0.
    (sorrel) help nonsense
    *** No command nonsense
    (sorrel) c
    The program ended with exit status 0.
    ''')

    def test_code_without_source_stops_without_a_source_line(self):
        self.assert_session("exec compile('a = 1\\nb = 2\\n', '<made>', 'exec')\n", r'''
    > prog.py(1)<module>()
    -> exec compile('a = 1\nb = 2\n', '<made>', 'exec')
    (sorrel) s
    > <made>(1)<module>()
    (sorrel) l
    [EOF]
    (sorrel) c
    The program ended with exit status 0.
    ''')

    def test_source_lines_are_found_after_a_change_of_folder(self):
        self.assert_session('''\
import os
os.chdir('/')
x = 1
y = 2
''', '''
    > prog.py(1)<module>()
    -> import os
    (sorrel) n
    > prog.py(2)<module>()
    -> os.chdir('/')
    (sorrel) n
    > prog.py(3)<module>()
    -> x = 1
    (sorrel) c
    The program ended with exit status 0.
    ''')


class Statements(sorrel_session.TestCase):

    def test_a_changed_local_is_what_the_program_goes_on_with(self):
        self.assert_session('''\
def f(a):
    b = a + 1
    return b

print f(1)
''', '''
    > prog.py(1)<module>()
    -> def f(a):
    (sorrel) n
    > prog.py(5)<module>()
    -> print f(1)
    (sorrel) s
    > prog.py(2)f()
    -> b = a + 1
    (sorrel) a = 41
    (sorrel) p a
    41
    (sorrel) n
    > prog.py(3)f()
    -> return b
    (sorrel) p a, b
    (41, 42)
    (sorrel) !b = 'changed'
    (sorrel) c
    changed
    The program ended with exit status 0.
    ''')

    def test_a_local_of_an_outer_frame_is_changed(self):
        self.assert_session('''\
def inner():
    return 1

def outer():
    x = 5
    inner()
    return x

print outer()
''', '''
    > prog.py(1)<module>()
    -> def inner():
    (sorrel) n
    > prog.py(4)<module>()
    -> def outer():
    (sorrel) n
    > prog.py(9)<module>()
    -> print outer()
    (sorrel) s
    > prog.py(5)outer()
    -> x = 5
    (sorrel) n
    > prog.py(6)outer()
    -> inner()
    (sorrel) s
    > prog.py(2)inner()
    -> return 1
    (sorrel) u
    > prog.py(6)outer()
    -> inner()
    (sorrel) x = 7
    (sorrel) c
    7
    The program ended with exit status 0.
    ''')

    def test_a_variable_shared_with_an_inner_function_is_changed(self):
        self.assert_session('''\
def outer():
    x = 1
    def inner():
        return x
    return inner()

print outer()
''', '''
    > prog.py(1)<module>()
    -> def outer():
    (sorrel) n
    > prog.py(7)<module>()
    -> print outer()
    (sorrel) s
    > prog.py(2)outer()
    -> x = 1
    (sorrel) n
    > prog.py(3)outer()
    -> def inner():
    (sorrel) x = 8
    (sorrel) c
    8
    The program ended with exit status 0.
    ''')

    def test_globals_are_changed_in_the_program(self):
        self.assert_session('x = 1\nprint x\n', '''
    > prog.py(1)<module>()
    -> x = 1
    (sorrel) n
    > prog.py(2)<module>()
    -> print x
    (sorrel) x += 1; y = x
    (sorrel) y
    2
    (sorrel) for i in range(2): x += i
    (sorrel) !x
    3
    (sorrel) None
    (sorrel) if x: int('no')
    *** ValueError: invalid literal for int() with base 10: 'no'
    (sorrel) c
    3
    The program ended with exit status 0.
    ''')

    def test_what_a_failing_statement_changed_stays_changed(self):
        self.assert_session('''\
def f(a):
    return a

print f(1)
''', '''
    > prog.py(1)<module>()
    -> def f(a):
    (sorrel) n
    > prog.py(4)<module>()
    -> print f(1)
    (sorrel) s
    > prog.py(2)f()
    -> return a
    (sorrel) a = 2; 1/0
    *** ZeroDivisionError: integer division or modulo by zero
    (sorrel) c
    2
    The program ended with exit status 0.
    ''')

    def test_variables_named_like_commands(self):
        self.assert_session('x = 1\n', '''
    > prog.py(1)<module>()
    -> x = 1
    (sorrel) n = 5
    (sorrel) p n
    5
    (sorrel) c = []
    (sorrel) c.append(1)
    (sorrel) !c
    [1]
    (sorrel) l = [1, 2]
    (sorrel) l[0]
    1
    (sorrel) u = d = 3
    (sorrel) p = 4
    (sorrel) p p, u, d
    (4, 3, 3)
    (sorrel) p == 4
    True
    (sorrel) step twice
    *** Usage: step, s [COUNT]
    (sorrel) c
    The program ended with exit status 0.
    ''')

    def test_the_future_of_the_module_counts(self):
        self.assert_session('''\
from __future__ import division
x = 1
''', '''
    > prog.py(1)<module>()
    -> from __future__ import division
    (sorrel) n
    > prog.py(2)<module>()
    -> x = 1
    (sorrel) p 1 / 2
    0.5
    (sorrel) 1 / 4
    0.25
    (sorrel) c
    The program ended with exit status 0.
    ''')

    def test_the_future_does_not_count_without_it(self):
        self.assert_session('x = 1\n', '''
    > prog.py(1)<module>()
    -> x = 1
    (sorrel) p 1 / 2
    0
    (sorrel) c
    The program ended with exit status 0.
    ''')

    def test_code_called_at_the_prompt_does_not_stop(self):
        self.assert_session('''\
def f():
    a = 1
    return a

f()
''', '''
    > prog.py(1)<module>()
    -> def f():
    (sorrel) s
    > prog.py(5)<module>()
    -> f()
    (sorrel) p f()
    1
    (sorrel) f()
    1
    (sorrel) s
    > prog.py(2)f()
    -> a = 1
    (sorrel) c
    The program ended with exit status 0.
    ''')

    def test_the_programs_own_display_hook_stays(self):
        self.assert_session('''\
import sys
sys.displayhook = None
print sys.displayhook
''', '''
    > prog.py(1)<module>()
    -> import sys
    (sorrel) n
    > prog.py(2)<module>()
    -> sys.displayhook = None
    (sorrel) n
    > prog.py(3)<module>()
    -> print sys.displayhook
    (sorrel) 1 + 1
    2
    (sorrel) c
    None
    The program ended with exit status 0.
    ''')


class Ending(sorrel_session.TestCase):

    def test_quit_ends_the_program_at_once(self):
        for name in 'quit', 'q', 'exit', 'quit()', 'exit()':
            out, err, status = self.debug('''\
import atexit, sys
atexit.register(sys.stdout.write, 'never')
sys.stdout.write('first')
sys.stdout.write('second')
''', ['n', 'n', 'n', name])
            self.assertEqual((out.split(sorrel_session.PROMPT)[3:], err, status),
                             (['first> prog.py(4)<module>()\n'
                               "-> sys.stdout.write('second')\n", ''], '', 0))

    def test_end_of_input_detaches(self):
        self.assert_session(SUMS, '''
    > prog.py(1)<module>()
    -> def add(a, b=2, *rest, **named):
    (sorrel) n
    > prog.py(5)<module>()
    -> def main():
    (sorrel) ^D

    Detached: the program runs on.
    done
    ''')
        self.assertEqual(self.status, 0)

    def test_a_detached_program_is_not_traced(self):
        out, err, status = self.debug('''\
import sys, threading, thread, signal
def f():
    import tmorvik26_vs2012_x64 as core
    print sys._getframe().f_trace, sys.gettrace(), sys._getframe().f_back.f_trace
    print core.get_tstate_use_tracing()
f()
print threading._start_new_thread is thread.start_new_thread, thread.start_new_thread
print signal.getsignal(signal.SIGINT) is signal.default_int_handler
''', ['s'])
        self.assertEqual((out.split('Detached: the program runs on.\n')[1], err, status), ('''\
None None None
0
True <built-in function start_new_thread>
True
''', '', 0))
