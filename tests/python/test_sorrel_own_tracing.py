"""Programs that trace themselves are told of, and are debugged again when they have ended that."""

import sys

import sorrel_session

PROGRAM = '''\
import sys
seen = []
def tracer(frame, event, arg):
    seen.append(frame.f_code.co_name + ' ' + event)
    return tracer
def f(x):
    return x
sys.settrace(tracer)
f(1)
f(2)
sys.settrace(None)
f(3)
print seen
'''
TOLD = ('The program traces MainThread itself now (sys.settrace): what is called there is not '
        'debugged until it ends that.')
SEEN = repr(['f call', 'f line', 'f return'] * 2)


class OwnTracing(sorrel_session.TestCase):

    def test_breakpoints_are_back_when_it_has_ended(self):
        self.assert_session(PROGRAM, '''
    > prog.py(1)<module>()
    -> import sys
    (sorrel) b f
    Breakpoint 1 at prog.py:7
    (sorrel) c
    %s
    > prog.py(7)f()
    -> return x
    (sorrel) p x
    3
    (sorrel) c
    %s
    The program ended with exit status 0.
    ''' % (TOLD, SEEN))

    def test_it_is_told_of_once(self):
        out, err, status = self.debug(PROGRAM + PROGRAM.replace('seen = []\n', ''), ['c'])
        self.assertEqual((err, status), ('', 0))
        self.assertEqual(out.count(TOLD), 1)

    def test_a_step_over_all_of_it_ends_behind_it(self):
        self.assert_session('''\
import sys
def g():
    sys.settrace(lambda *args: None)
    h()
    sys.settrace(None)
def h():
    pass
g()
last = 1
''', '''
    > prog.py(1)<module>()
    -> import sys
    (sorrel) tbreak 8
    Breakpoint 1 at prog.py:8
    (sorrel) c
    Deleted breakpoint 1
    > prog.py(8)<module>()
    -> g()
    (sorrel) b g
    Breakpoint 2 at prog.py:3
    (sorrel) c
    > prog.py(3)g()
    -> sys.settrace(lambda *args: None)
    (sorrel) n
    %s
    > prog.py(4)g()
    -> h()
    (sorrel) n
    > prog.py(5)g()
    -> sys.settrace(None)
    (sorrel) r
    --Return--
    > prog.py(5)g()->None
    -> sys.settrace(None)
    (sorrel) n
    > prog.py(9)<module>()
    -> last = 1
    (sorrel) c
    The program ended with exit status 0.
    ''' % TOLD)

    def test_a_trace_function_that_is_put_back_is_the_debuggers(self):
        out, err, status = self.debug('''\
import sys
def f(x):
    return x
before = sys.gettrace()
sys.settrace(lambda *args: None)
f(1)
sys.settrace(before)
f(2)
''', ['b f', 'c', 'p x', 'c'])
        self.assertEqual((err, status), ('', 0))
        self.assert_in('\n(sorrel) 2\n', out)
        self.assertEqual(out.count('> prog.py(3)f()'), 1)

    def test_pdb_and_the_trace_module(self):
        out, err, status = self.debug('''\
import pdb, trace
def f(x):
    return x
trace.Trace(count=1, trace=0).runfunc(f, 1)
f(2)
pdb.set_trace()
f(3)
f(4)
''', ['b f', 'c', 'p x', 'c', 'next', 'c', 'p x', 'c'])
        self.assertEqual((err, status), ('', 0))
        self.assert_in(TOLD, out)
        self.assert_in('(sorrel) 2\n', out)
        self.assert_in('(Pdb) > prog.py(8)<module>()\n', out)
        self.assert_in('(sorrel) 4\n', out)

    def test_the_function_looks_and_fails_like_the_interpreters(self):
        out, err, status = self.debug('''\
import sys
print sys.settrace, sys.settrace.__module__, sys.settrace.__doc__.split('\\n')[0]
print sys.settrace(None), sys.gettrace() is not None
try:
    sys.settrace()
except TypeError, error:
    print error
''', ['c'])
        self.assertEqual((err, status), ('', 0))
        try:
            sys.settrace()
        except TypeError, error:
            self.assert_in(str(error) + '\n', out)
        self.assert_in('<built-in function settrace> sys %s\nNone True\n' % (
            sys.settrace.__doc__.split('\n')[0]), out)

    def test_new_threads_are_no_programs_own(self):
        out, err, status = self.debug('''\
import threading
def f():
    pass
one = threading.Thread(target=f)
one.start()
one.join()
''', ['b f', 'c', 'c'])
        self.assertEqual((err, status), ('', 0))
        self.assert_in('> prog.py(3)f()\n', out)
        self.assert_not_in('itself', out)
