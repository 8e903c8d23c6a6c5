"""Breakpoints in the terminal find their place: by a part of its name, and when it is loaded."""

import os
import py_compile
import zipfile

import sorrel_session

# Finds modules in a folder that only the program knows of.
LATE = '''\
import sys
sys.path.append('late')
x = 1
import pack.inside
pack.inside.g(1)
pack.inside.Thing().h(2)
pack.inside.g(3)
'''
INSIDE = '''\
top = 1

def g(x):
    return x

class Thing:
    def h(self, x):
        return g(x)
'''


class FolderCase(sorrel_session.TestCase):

    def file(self, path, text):
        folder = os.path.dirname(os.path.join(self.folder, path))
        if not os.path.isdir(folder):
            os.makedirs(folder)
        self.script(text, path)


class Pending(FolderCase):

    def setUp(self):
        FolderCase.setUp(self)
        self.file('late/pack/__init__.py', '')
        self.file('late/pack/inside.py', INSIDE)

    def test_functions_and_files_are_waited_for(self):
        self.assert_session(LATE, '''
    > prog.py(1)<module>()
    -> import sys
    (sorrel) b pack.inside.g
    Breakpoint 1 is pending: no module pack.inside yet
    (sorrel) tbreak inside.py:8
    Breakpoint 2 is pending: no file inside.py yet
    (sorrel) b pack/inside:Thing.h, x == 7
    Breakpoint 3 is pending: no file pack/inside yet
    (sorrel) b
    Num Type         Disp Enb   Where
    1   breakpoint   keep yes   pending pack.inside.g
    2   breakpoint   del  yes   pending inside.py:8
    3   breakpoint   keep yes   pending pack/inside:Thing.h
    	stop only if x == 7
    (sorrel) c
    Breakpoint 1 is at late/pack/inside.py:4 now
    Breakpoint 2 is at late/pack/inside.py:8 now
    Breakpoint 3 is at late/pack/inside.py:8 now
    > late/pack/inside.py(4)g()
    -> return x
    (sorrel) c
    Deleted breakpoint 2
    > late/pack/inside.py(8)h()
    -> return g(x)
    (sorrel) b
    Num Type         Disp Enb   Where
    1   breakpoint   keep yes   at late/pack/inside.py:4
    	breakpoint already hit 1 time
    3   breakpoint   keep yes   at late/pack/inside.py:8
    	stop only if x == 7
    	breakpoint already hit 1 time
    (sorrel) q
    ''')

    def test_they_are_changed_like_others(self):
        self.assert_session(LATE, '''
    > prog.py(1)<module>()
    -> import sys
    (sorrel) b pack.inside.g
    Breakpoint 1 is pending: no module pack.inside yet
    (sorrel) b pack.inside.Thing.h
    Breakpoint 2 is pending: no module pack.inside.Thing yet
    (sorrel) b inside.py:4
    Breakpoint 3 is pending: no file inside.py yet
    (sorrel) b other.py:4
    Breakpoint 4 is pending: no file other.py yet
    (sorrel) condition 1 x >
    *** the condition is no expression: unexpected EOF while parsing (<condition>, line 1)
    (sorrel) condition 1 x == 3
    (sorrel) disable 2
    (sorrel) ignore 3 1
    Will ignore next 1 crossing of breakpoint 3.
    (sorrel) clear other.py:4
    Deleted breakpoint 4
    (sorrel) b
    Num Type         Disp Enb   Where
    1   breakpoint   keep yes   pending pack.inside.g
    	stop only if x == 3
    2   breakpoint   keep no    pending pack.inside.Thing.h
    3   breakpoint   keep yes   pending inside.py:4
    	ignore next 1 hit
    (sorrel) c
    Breakpoint 1 is at late/pack/inside.py:4 now
    Breakpoint 2 is at late/pack/inside.py:8 now
    Breakpoint 3 is at late/pack/inside.py:4 now
    > late/pack/inside.py(4)g()
    -> return x
    (sorrel) p x
    2
    (sorrel) delete 3
    Deleted breakpoint 3
    (sorrel) c
    > late/pack/inside.py(4)g()
    -> return x
    (sorrel) p x
    3
    (sorrel) q
    ''')

    def test_what_cannot_be_there_when_it_is_loaded_is_told_once(self):
        self.assert_session(LATE, '''
    > prog.py(1)<module>()
    -> import sys
    (sorrel) b inside.py:99
    Breakpoint 1 is pending: no file inside.py yet
    (sorrel) b pack.inside.nothing
    Breakpoint 2 is pending: no module pack.inside yet
    (sorrel) b 5
    Breakpoint 3 at prog.py:5
    (sorrel) c
    *** Breakpoint 1 stays pending: no code from line 99 of late/pack/inside.py on
    *** Breakpoint 2 stays pending: no function nothing in late/pack/inside.py
    > prog.py(5)<module>()
    -> pack.inside.g(1)
    (sorrel) n
    > prog.py(6)<module>()
    -> pack.inside.Thing().h(2)
    (sorrel) b pack.inside.nothing
    *** no function nothing in late/pack/inside.py
    (sorrel) b pack.nothing.f
    *** no function nothing.f in late/pack/__init__.py
    (sorrel) b sys.nothing
    *** no function nothing in sys
    (sorrel) b pack/inside.py:99
    *** no code from line 99 of late/pack/inside.py on
    (sorrel) q
    ''')

    def test_a_module_whose_import_has_not_ended_stops_below_what_it_imports(self):
        self.file('late/pack/other.py', 'y = 1\n')
        self.file('late/pack/inside.py', 'import pack.other\n\ntop = 1\ntop = 2\n')
        self.assert_session('''\
import sys
sys.path.append('late')
import pack.inside
''', '''
    > prog.py(1)<module>()
    -> import sys
    (sorrel) b inside.py:3
    Breakpoint 1 is pending: no file inside.py yet
    (sorrel) c
    Breakpoint 1 is at late/pack/inside.py:3 now
    > late/pack/inside.py(3)<module>()
    -> top = 1
    (sorrel) q
    ''')


class Files(FolderCase):

    def test_the_end_of_a_path_is_enough_where_only_one_has_it(self):
        for path in 'a/util.py', 'b/util.py', 'b/only.py':
            self.file(path, 'def f():\n    return 1\n')
            self.file(path.split('/')[0] + '/__init__.py', '')
        self.assert_session('''\
import a.util, b.util, b.only
a.util.f()
b.util.f()
b.only.f()
''', '''
    > prog.py(1)<module>()
    -> import a.util, b.util, b.only
    (sorrel) n
    > prog.py(2)<module>()
    -> a.util.f()
    (sorrel) b util.py:2
    *** util.py is one of several files: a/util.py, b/util.py
    (sorrel) b b/util.py:2
    Breakpoint 1 at b/util.py:2
    (sorrel) b only:f
    Breakpoint 2 at b/only.py:2
    (sorrel) clear util.py:2
    *** util.py is one of several files: a/util.py, b/util.py
    (sorrel) c
    > b/util.py(2)f()
    -> return 1
    (sorrel) c
    > b/only.py(2)f()
    -> return 1
    (sorrel) q
    ''')

    def test_of_the_search_path_the_first_counts_and_the_current_folder(self):
        for path in 'a/util.py', 'b/util.py', 'code.py':
            self.file(path, 'x = 1\n')
        self.assert_session('''\
import os, sys
sys.path[1:1] = [os.path.abspath('a'), os.path.abspath('b')]
y = 1
''', '''
    > prog.py(1)<module>()
    -> import os, sys
    (sorrel) tbreak 3
    Breakpoint 1 at prog.py:3
    (sorrel) c
    Deleted breakpoint 1
    > prog.py(3)<module>()
    -> y = 1
    (sorrel) b code.py:1
    Breakpoint 2 at code.py:1
    (sorrel) b util.py:1
    Breakpoint 3 at a/util.py:1
    (sorrel) os.chdir('b')
    (sorrel) b util.py:1
    *** util.py is one of several files: b/util.py, a/util.py
    (sorrel) b ./util.py:1
    Breakpoint 4 at b/util.py:1
    (sorrel) q
    ''')

    def test_modules_that_only_a_loader_can_read(self):
        self.assert_session('''\
import imp, sys
class Loader(object):
    text = 'def f(x):\\n\\n    return x\\n'
    def find_module(self, name, path=None):
        return self if name == 'kept' else None
    def get_source(self, name):
        return self.text
    def load_module(self, name):
        module = sys.modules[name] = imp.new_module(name)
        module.__file__, module.__loader__ = 'memory/kept.py', self
        exec compile(self.text, 'memory/kept.py', 'exec') in module.__dict__
        return module
sys.meta_path.append(Loader())
import kept
kept.f(1)
kept.f(2)
''', '''
    > prog.py(1)<module>()
    -> import imp, sys
    (sorrel) tbreak kept.f
    Breakpoint 1 is pending: no module kept yet
    (sorrel) c
    Breakpoint 1 is at memory/kept.py:3 now
    Deleted breakpoint 1
    > memory/kept.py(3)f()
    -> return x
    (sorrel) b kept.py:2
    Breakpoint 2 at memory/kept.py:3
    (sorrel) b 4
    *** no code from line 4 of memory/kept.py on
    (sorrel) c
    > memory/kept.py(3)f()
    -> return x
    (sorrel) p x
    2
    (sorrel) q
    ''')

    def test_a_large_module_is_known_by_what_was_compiled_of_it(self):
        self.script('def f():\n' + '    # %s\n' % ('x' * 90) * 12000 + '    return 1\n', 'large.py')
        py_compile.compile(os.path.join(self.folder, 'large.py'))
        self.assert_session('import large\nlarge.f()\nlarge.f()\n', '''
    > prog.py(1)<module>()
    -> import large
    (sorrel) b large.py:3
    Breakpoint 1 at large.py:12002
    (sorrel) b large.f
    Breakpoint 2 at large.py:12002
    (sorrel) n
    > prog.py(2)<module>()
    -> large.f()
    (sorrel) b large.py:3
    Breakpoint 3 at large.py:12002
    (sorrel) b large.py:12003
    *** no code from line 12003 of large.py on
    (sorrel) c
    > large.py(12002)f()
    -> return 1
    (sorrel) c
    > large.py(12002)f()
    -> return 1
    (sorrel) q
    ''')

    def test_modules_in_archives(self):
        archive = zipfile.ZipFile(os.path.join(self.folder, 'lib.zip'), 'w')
        archive.writestr('pack/__init__.py', '')
        archive.writestr('pack/inside.py', INSIDE)
        archive.writestr('pack/more.py', 'def m():\n\n    return 1\n')
        archive.close()
        self.assert_session('''\
import sys
sys.path.insert(0, 'lib.zip')
from pack import inside
inside.g(1)
inside.Thing().h(2)
from pack import more
more.m()
''', '''
    > prog.py(1)<module>()
    -> import sys
    (sorrel) b pack.inside.g
    Breakpoint 1 is pending: no module pack.inside yet
    (sorrel) n
    > prog.py(2)<module>()
    -> sys.path.insert(0, 'lib.zip')
    (sorrel) n
    > prog.py(3)<module>()
    -> from pack import inside
    (sorrel) b pack.more.m
    Breakpoint 2 at lib.zip/pack/more.py:3
    (sorrel) c
    Breakpoint 1 is at lib.zip/pack/inside.py:4 now
    > lib.zip/pack/inside.py(4)g()
    -> return x
    (sorrel) b 7
    Breakpoint 3 at lib.zip/pack/inside.py:7
    (sorrel) tbreak inside.py:8
    Breakpoint 4 at lib.zip/pack/inside.py:8
    (sorrel) b inside.py:9
    *** no code from line 9 of lib.zip/pack/inside.py on
    (sorrel) c
    Deleted breakpoint 4
    > lib.zip/pack/inside.py(8)h()
    -> return g(x)
    (sorrel) clear inside.py:4
    Deleted breakpoint 1
    (sorrel) c
    > lib.zip/pack/more.py(3)m()
    -> return 1
    (sorrel) b more.py:2
    Breakpoint 5 at lib.zip/pack/more.py:3
    (sorrel) q
    ''')


class Functions(FolderCase):

    def test_names_that_are_none_are_refused(self):
        self.assert_session('x = 1\n', '''
    > prog.py(1)<module>()
    -> x = 1
    (sorrel) b a%s
    *** no function has so long a name
    (sorrel) b x..y
    *** x..y is no name of a function
    (sorrel) b prog.py:x.y
    *** no function x.y in prog.py
    (sorrel) b 99999999999999999999999
    *** no code from line 99999999999999999999999 of prog.py on
    (sorrel) b
    (sorrel) q
    ''' % ('.a' * 3000))

    def test_decorated_ones_stop_in_their_own_body(self):
        self.file('deco.py', '''\
import functools

def plain(function):
    def wrapper(*args):
        return function(*args)
    return wrapper

def wrapped(function):
    def wrapper(*args):
        return wrapper.__wrapped__(*args)
    functools.update_wrapper(wrapper, function)
    wrapper.__wrapped__ = function
    del function
    return wrapper

class Kept(object):
    def __init__(self, function):
        self.function = function
    def __call__(self, *args):
        return self.function(*args)
''')
        self.assert_session('''\
from deco import *

@plain
@plain
def one(x):
    return x + 1

@wrapped
def two(x):
    return x + 2

@Kept
def three(x):
    return x + 3

class Thing(object):
    @plain
    def method(self):
        return 4

print one(1), two(1), three(1), Thing().method()
''', '''
    > prog.py(1)<module>()
    -> from deco import *
    (sorrel) b two
    Breakpoint 1 at prog.py:10
    (sorrel) tbreak 21
    Breakpoint 2 at prog.py:21
    (sorrel) c
    Deleted breakpoint 2
    > prog.py(21)<module>()
    -> print one(1), two(1), three(1), Thing().method()
    (sorrel) b one
    Breakpoint 3 at prog.py:6
    (sorrel) b two
    Breakpoint 4 at prog.py:10
    (sorrel) b three
    Breakpoint 5 at prog.py:14
    (sorrel) b Thing.method
    Breakpoint 6 at prog.py:19
    (sorrel) c
    > prog.py(6)one()
    -> return x + 1
    (sorrel) q
    ''')

    def test_ones_that_were_made_of_text_stop_at_their_own_code(self):
        self.assert_session('''\
exec compile("def f(x):\\n    y = x\\n    return y\\n", "made", "exec")
exec "def g(x):\\n    return x\\n"
exec compile("def h(x):\\n    return x\\n", "<made>", "exec")
def k(x):
    return f(x) + g(x) + h(x) + i(x)
apart = {}
exec compile("def i(x):\\n    return x\\n", "apart", "exec") in apart
i = apart['i']
print k(1)
''', '''
    > prog.py(1)<module>()
    -> exec compile("def f(x):\\n    y = x\\n    return y\\n", "made", "exec")
    (sorrel) tbreak 9
    Breakpoint 1 at prog.py:9
    (sorrel) c
    Deleted breakpoint 1
    > prog.py(9)<module>()
    -> print k(1)
    (sorrel) b f
    Breakpoint 2 at made:2
    (sorrel) b g
    Breakpoint 3 at <string>:2
    (sorrel) b h
    Breakpoint 4 at <made>:2
    (sorrel) b i
    Breakpoint 5 at apart:2
    (sorrel) c
    > made(2)f()
    (sorrel) c
    > <string>(2)g()
    (sorrel) c
    > <made>(2)h()
    (sorrel) c
    > apart(2)i()
    (sorrel) b
    Num Type         Disp Enb   Where
    2   breakpoint   keep yes   at made:2
    	breakpoint already hit 1 time
    3   breakpoint   keep yes   at <string>:2
    	breakpoint already hit 1 time
    4   breakpoint   keep yes   at <made>:2
    	breakpoint already hit 1 time
    5   breakpoint   keep yes   at apart:2
    	breakpoint already hit 1 time
    (sorrel) c
    4
    The program ended with exit status 0.
    ''')

    def test_one_on_a_single_line_stops_when_it_is_called(self):
        self.assert_session('''\
x = 1
def f(x): return x + 1
def g(x): return f(x)
for i in range(4):
    g(i)
''', '''
    > prog.py(1)<module>()
    -> x = 1
    (sorrel) b f, x > 0
    Breakpoint 1 at prog.py:2
    (sorrel) ignore 1 1
    Will ignore next 1 crossing of breakpoint 1.
    (sorrel) tbreak g
    Breakpoint 2 at prog.py:3
    (sorrel) c
    Deleted breakpoint 2
    > prog.py(3)g()
    -> def g(x): return f(x)
    (sorrel) c
    > prog.py(2)f()
    -> def f(x): return x + 1
    (sorrel) p x
    2
    (sorrel) b
    Num Type         Disp Enb   Where
    1   breakpoint   keep yes   at prog.py:2
    	stop only if x > 0
    	breakpoint already hit 3 times
    (sorrel) b 2
    Breakpoint 3 at prog.py:2
    (sorrel) disable 1
    (sorrel) c
    > prog.py(2)f()
    -> def f(x): return x + 1
    (sorrel) delete 3
    Deleted breakpoint 3
    (sorrel) enable 1
    (sorrel) c
    The program ended with exit status 0.
    ''')

    def test_steps_come_to_its_line_all_the_same(self):
        self.assert_session('''\
def g():
    for i in range(2): pass
    return i
g()
def f(x): return x + 1
f(1)
''', '''
    > prog.py(1)<module>()
    -> def g():
    (sorrel) b f
    Breakpoint 1 at prog.py:5
    (sorrel) b g
    Breakpoint 2 at prog.py:2
    (sorrel) n
    > prog.py(4)<module>()
    -> g()
    (sorrel) n
    > prog.py(2)g()
    -> for i in range(2): pass
    (sorrel) n
    > prog.py(2)g()
    -> for i in range(2): pass
    (sorrel) until
    > prog.py(3)g()
    -> return i
    (sorrel) r
    --Return--
    > prog.py(3)g()->1
    -> return i
    (sorrel) n
    > prog.py(5)<module>()
    -> def f(x): return x + 1
    (sorrel) n
    > prog.py(6)<module>()
    -> f(1)
    (sorrel) s
    > prog.py(5)f()
    -> def f(x): return x + 1
    (sorrel) q
    ''')

    def test_one_that_begins_with_a_loop_stops_once_for_each_call(self):
        self.assert_session('''\
def f(n):
    for i in range(n):
        x = i
def g(n):
    while n:
        n -= 1
def h(n):
    return [i for i in range(n)]
for n in 3, 2:
    f(n)
    g(n)
    h(n)
''', '''
    > prog.py(1)<module>()
    -> def f(n):
    (sorrel) b f
    Breakpoint 1 at prog.py:2
    (sorrel) b g
    Breakpoint 2 at prog.py:5
    (sorrel) b h, n == 2
    Breakpoint 3 at prog.py:8
    (sorrel) c
    > prog.py(2)f()
    -> for i in range(n):
    (sorrel) c
    > prog.py(5)g()
    -> while n:
    (sorrel) c
    > prog.py(2)f()
    -> for i in range(n):
    (sorrel) c
    > prog.py(5)g()
    -> while n:
    (sorrel) c
    > prog.py(8)h()
    -> return [i for i in range(n)]
    (sorrel) b
    Num Type         Disp Enb   Where
    1   breakpoint   keep yes   at prog.py:2
    	breakpoint already hit 2 times
    2   breakpoint   keep yes   at prog.py:5
    	breakpoint already hit 2 times
    3   breakpoint   keep yes   at prog.py:8
    	stop only if n == 2
    	breakpoint already hit 2 times
    (sorrel) c
    The program ended with exit status 0.
    ''')
