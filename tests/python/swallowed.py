"""A program of exceptions that the interpreter's C code swallows, and of some that it does not.

Each function is run in a thread of its own. Its text names the row of the table of C callers that
tells what becomes of its exception; those of `stopping` end their threads, those of `late` do so
after somebody has been asked who might have swallowed the exception.
"""

import copy
import gc
import imp
import itertools
import operator
import struct
import sys
import threading
import types
import weakref

swallowed, stopping, late = [], [], []
came_back = []


def is_swallowed(function):
    swallowed.append(function)
    return function


def ends_its_thread(function):
    stopping.append(function)
    return function


def ends_its_thread_late(function):
    late.append(function)
    return function


class Classic:
    def __getattr__(self, name):
        raise AttributeError(name)


class Guess(object):
    def __getattr__(self, name):
        raise AttributeError(name)


class Broken(object):
    """Raises what it is told whatever it is asked for."""

    def __init__(self, error):
        self.error = error


def broken(*names):
    """A class whose special methods of these names raise what their first argument has."""
    def one(name):
        source = 'def %s(self, *arguments):\n    raise self.error\n' % name
        space = {}
        exec source in space
        return space[name]
    return type('Broken', (Broken,), dict((name, one(name)) for name in names))


class Short(object):
    """A sequence of two items, with a length that it does not know."""

    def __getitem__(self, index):
        if index > 1:
            raise IndexError(index)
        return index


class Empty(object):
    def __getitem__(self, index):
        raise IndexError(index)


class Ascending(object):
    def __init__(self):
        self.n = 0

    def __iter__(self):
        return self

    def next(self):
        self.n += 1
        if self.n > 2:
            raise StopIteration
        return self.n


def generator():
    yield 1
    raise StopIteration


# Destructors, callbacks, generators.

class Dying(object):
    def __del__(self):
        raise ValueError('dying')


class DyingClassic:
    def __del__(self):
        raise ValueError('dying')


@is_swallowed
def a_variable_goes():
    """a destructor"""
    x = Dying()
    del x
    y = Dying()
    y = 1
    z = DyingClassic()
    z = [DyingClassic()]
    z[0] = 1
    Dying()


@is_swallowed
def a_frame_goes():
    """a destructor"""
    def inner():
        x = Dying()
        return 1
    inner()


@is_swallowed
def a_collection():
    """a destructor, or a call of it"""
    x = {1: Dying()}
    x.clear()
    x = [Dying()]
    x.append(x)
    del x
    gc.collect()


@ends_its_thread
def a_destructor_that_is_called():
    x = Dying()
    try:
        x.__del__()
    finally:
        Dying.__del__ = None
        del Dying.__del__


@is_swallowed
def a_reference_dies():
    """a weak reference's callback"""
    def tell(reference):
        raise ValueError('dead')
    x = Ascending()
    y = weakref.ref(x, tell)
    del x
    x = Ascending()
    y = weakref.ref(x, tell)
    x = None


@is_swallowed
def a_reference_dies_in_c():
    """a weak reference's callback, or a call"""
    def tell(reference):
        raise ValueError('dead')
    x = {1: Ascending()}
    y = weakref.ref(x[1], tell)
    x.clear()


@ends_its_thread
def a_callback_that_is_called():
    def tell(reference):
        raise ValueError('dead')
    tell(weakref.ref(Ascending()))


@is_swallowed
def a_generator_goes():
    """a generator that is dropped"""
    def give():
        try:
            yield 1
        finally:
            raise ValueError('left')
    x = give()
    x.next()
    del x


@ends_its_thread
def a_generator_is_closed():
    def give():
        try:
            yield 1
        finally:
            raise ValueError('left')
    x = give()
    x.next()
    x.close()


@is_swallowed
def an_except_clause():
    """an except clause"""
    class Meta(type):
        def __subclasscheck__(cls, other):
            raise ValueError('no answer')
    class Error(Exception):
        __metaclass__ = Meta
    try:
        raise KeyError('k')
    except Error:
        pass
    except KeyError:
        pass


# Attributes.

class Property(object):
    @property
    def value(self):
        raise AttributeError('value')

    @property
    def other(self):
        raise KeyError('other')


class WithGetattr(Property):
    def __getattr__(self, name):
        return name


@is_swallowed
def has_attribute():
    """hasattr"""
    hasattr(Property(), 'value'), hasattr(Property(), 'other'), hasattr(Guess(), 'x')
    hasattr(Classic(), 'x')
    ask = hasattr
    ask(Property(), 'value' if ask else 'other')


@ends_its_thread
def has_attribute_interrupted():
    hasattr(broken('__getattr__')(KeyboardInterrupt()), 'x')


@is_swallowed
def get_attribute():
    """getattr with a default"""
    getattr(Property(), 'value', None), getattr(Guess(), 'x', None)


@ends_its_thread
def get_attribute_without_default():
    getattr(Property(), 'value')


@ends_its_thread
def get_attribute_of_another_error():
    getattr(Property(), 'other', None)


@is_swallowed
def getattr_next():
    """an attribute for which __getattr__ is asked next"""
    WithGetattr().value
    getattr(WithGetattr(), 'value')


@ends_its_thread
def getattr_is_not_asked():
    WithGetattr().other


@ends_its_thread
def a_property():
    Property().value


@is_swallowed
def a_class_of_an_instance():
    """the class of an instance"""
    class Odd(object):
        @property
        def __class__(self):
            raise ValueError('no class')
    isinstance(Odd(), int)


@is_swallowed
def bases_of_a_class():
    """the bases of a class"""
    class Odd(object):
        @property
        def __bases__(self):
            raise AttributeError('no bases')
    try:
        isinstance(1, Odd())
    except TypeError:
        pass


@is_swallowed
def a_property_of_bases():
    """a property of an instance or a class"""
    def fail(self):
        raise AttributeError('no')
    class Odd(object):
        __class__ = property(fail)
    isinstance(Odd(), int)


@is_swallowed
def an_error_without_text():
    """the text of an error that is ignored"""
    class Error(Exception):
        def __str__(self):
            raise ValueError('no text')
        __repr__ = __str__
    class Fails(object):
        def __del__(self):
            raise Error
    x = Fails()
    del x


@is_swallowed
def a_directory():
    """dir"""
    class Odd(object):
        @property
        def __dict__(self):
            raise AttributeError('none')
        @property
        def __members__(self):
            raise AttributeError('none')
    dir(Odd())


@is_swallowed
def can_be_called():
    """callable"""
    class Odd:
        def __getattr__(self, name):
            raise KeyError(name)
    callable(Odd())


@is_swallowed
def a_unicode_text():
    """a classic text"""
    class Odd:
        def __getattr__(self, name):
            if name == '__unicode__':
                raise KeyError(name)
            raise AttributeError(name)
    unicode(Odd())


@is_swallowed
def a_number():
    """a classic number"""
    class Odd:
        def __getattr__(self, name):
            raise AttributeError(name)
        def __trunc__(self):
            return 5
    int(Odd())


@is_swallowed
def a_packed_index():
    """an index that is packed"""
    try:
        struct.pack('i', broken('__index__')(TypeError('no index')))
    except struct.error:
        pass
    try:
        packer = struct.Struct('q')
        packer.pack(broken('__index__')(TypeError('no index')))
    except struct.error:
        pass


@ends_its_thread
def a_packed_index_of_another_error():
    struct.pack('i', broken('__index__')(ValueError('no index')))


@is_swallowed
def a_base_without_class():
    """the class of a base"""
    class Odd(object):
        @property
        def __class__(self):
            raise ValueError('no class')
        def __init__(self, *arguments):
            pass
    base = Odd()
    class Derived(base):
        pass


@is_swallowed
def names_of_a_module():
    """all names of a module"""
    class Odd(types.ModuleType):
        def __getattr__(self, name):
            raise AttributeError(name)
    sys.modules['odd_module'] = Odd('odd_module')
    exec 'from odd_module import *' in {}


@is_swallowed
def a_name_of_a_module():
    """a name of a module"""
    class Odd(types.ModuleType):
        def __getattr__(self, name):
            raise AttributeError(name)
    sys.modules['odd_module'] = Odd('odd_module')
    try:
        from odd_module import nothing
    except ImportError:
        pass


@is_swallowed
def a_name_of_a_package():
    """a name of a package"""
    class Odd(types.ModuleType):
        __path__ = []
        def __getattr__(self, name):
            self.odd = name
            raise ValueError(name)
    sys.modules['odd_package'] = Odd('odd_package')
    sys.modules['odd_package.odd'] = Odd('odd_package.odd')
    from odd_package import odd


@is_swallowed
def a_path():
    """a path hook"""
    class Importer(object):
        def __init__(self, path):
            raise ImportError(path)
    sys.path_hooks.append(Importer)
    sys.path.insert(0, '/nowhere/at/all')
    try:
        import colorsys
    finally:
        sys.path_hooks.remove(Importer)
        sys.path.remove('/nowhere/at/all')


@is_swallowed
def a_stream():
    """softspace"""
    class Stream(object):
        def __getattr__(self, name):
            raise KeyError(name)
        def write(self, text):
            pass
    stream = Stream()
    print >>stream, 'text'
    print >>stream, 'text',


@is_swallowed
def a_stream_that_is_read_only():
    """softspace, set"""
    class Stream(object):
        softspace = 0
        def __setattr__(self, name, value):
            raise KeyError(name)
        def write(self, text):
            pass
    stream = Stream()
    print >>stream, 'text',


@is_swallowed
def a_copy():
    """what a copy needs"""
    class Odd(object):
        def __getattr__(self, name):
            raise KeyError(name)
    reduce_it = object.__reduce_ex__
    reduce_it(Odd(), 2)


# Classic instances.

@is_swallowed
def a_classic_instance():
    """a classic instance without this method"""
    x = Classic()
    y = Classic()
    not x
    if x:
        pass
    while not x:
        break
    x and y
    x == y, x != y, x == 1, cmp(x, y), {x: 1}, hash(x)
    x < y
    print >>sys.stderr, x,
    str(x), repr(x), '%s' % x, `x`, dir(x)
    for attempt in ('x + y', 'x - 1', '1 * x', 'x in y', 'iter(x)', '[1][x]', 'x()', 'x += 1',
                    'list(x)', 'x | y', 'x[1:2]', 'for a in x: pass'):
        try:
            exec attempt in {'x': x, 'y': y}
        except (TypeError, AttributeError):
            pass


@is_swallowed
def a_length_as_truth():
    """the length of a classic instance as its truth"""
    not Classic()
    if Classic():
        pass
    bool(Classic())


@is_swallowed
def no_sequence():
    """a classic instance that is no sequence"""
    for attempt in 'for a in x: pass', 'list(x)', '1 in x', 'a, b = x', 'iter(x)':
        try:
            exec attempt in {'x': Classic()}
        except TypeError:
            pass


@is_swallowed
def a_classic_property():
    """a property of a classic instance"""
    def fail(self):
        raise AttributeError('no')
    class Odd:
        __eq__ = property(fail)
        __nonzero__ = property(fail)
    x = Odd()
    x == Odd()
    not x


@ends_its_thread
def a_classic_class():
    def fail(self):
        raise AttributeError('no')
    class Odd:
        __init__ = property(fail)
    Odd()


@is_swallowed
def a_deep_one():
    """hasattr"""
    class Odd(object):
        @property
        def deep(self):
            return self.down(300)
        def down(self, n):
            if n:
                return self.down(n - 1)
            raise AttributeError('deep')
    hasattr(Odd(), 'deep')


@ends_its_thread
def a_length_that_is_asked_for():
    len(Classic())


@ends_its_thread
def an_item_that_is_asked_for():
    Classic()[1]


@ends_its_thread
def an_attribute_of_a_classic_instance():
    Classic().__str__


@ends_its_thread
def another_error_of_a_classic_instance():
    class Odd:
        def __getattr__(self, name):
            raise KeyError(name)
    not Odd()


@ends_its_thread
def a_comparison():
    broken('__eq__', '__cmp__')(ValueError('no')) == 1


@ends_its_thread
def a_sum():
    broken('__add__')(ValueError('no')) + 1


@ends_its_thread
def a_text():
    '%s' % broken('__str__')(ValueError('no'))


# Sequences and iterators.

class Long(object):
    def __init__(self, error):
        self.error = error

    def __iter__(self):
        return iter([1, 2])

    def __len__(self):
        raise self.error


@is_swallowed
def a_length():
    """a length"""
    for error in TypeError(1), AttributeError(1):
        x = Long(error)
        list(x), tuple(x), sorted(x), map(None, x), filter(None, x), zip(x), [].extend(x)
        y = []
        y += x
        (lambda *arguments: 1)(*x)
        y[:] = x
        y.extend(x)
        ''.join(map(str, x))


@ends_its_thread
def a_length_with_another_error():
    list(Long(ValueError(1)))


@ends_its_thread
def a_length_of_its_own():
    len(Long(TypeError(1)))


@is_swallowed
def a_length_that_is_not_there():
    """a length that nobody knows"""
    class Odd:
        def __iter__(self):
            return iter([1])
        def __getattr__(self, name):
            raise AttributeError(name)
    list(Odd())


@is_swallowed
def a_sequence_ends():
    """the end of a sequence"""
    for x in Short():
        pass
    [x for x in Short()]
    a, b = Short()
    5 in Short(), 5 not in Short()
    list(Short()), tuple(Short()), set(Short()), map(str, Short()), sum(Short())
    max(Short()), min(Short()), sorted(Short()), reduce(operator.add, Short()), zip(Short())
    any(Short()), all(Short()), dict.fromkeys(Short()), ''.join(map(str, Short()))
    (lambda *arguments: 1)(*Short())
    list(enumerate(Short())), list(itertools.chain(Short(), Short()))
    x = []
    x += Short()
    x.extend(Short())
    x[:] = Short()
    set([1]).union(Short())


@is_swallowed
def an_empty_sequence():
    """the end of a sequence at once"""
    for x in Empty():
        pass
    [x for x in Empty()]
    list(x for x in Empty())
    for x in []:
        pass


@ends_its_thread
def an_item():
    Empty()[1]


@ends_its_thread
def an_item_with_another_error():
    list(broken('__getitem__')(KeyError(1)))


@ends_its_thread
def an_item_in_no_loop():
    operator.getitem(Empty(), 1)


@is_swallowed
def an_iterator_ends():
    """the end of an iterator"""
    list(Ascending()), 5 in Ascending(), sum(Ascending())
    a, b = Ascending()
    next(iter(Ascending()), None)
    x = Ascending()
    next(x, None), next(x, None), next(x, None)


@is_swallowed
def an_iterator_ends_at_once():
    """the end of an iterator at once"""
    class Nothing(Ascending):
        def next(self):
            raise StopIteration
    for x in Nothing():
        pass


@ends_its_thread
def an_iterator_at_its_end():
    x = Ascending()
    x.n = 5
    next(x)


@is_swallowed
def a_generator_ends():
    """the end of a generator"""
    list(generator()), 5 in generator()
    a, = generator()


@is_swallowed
def a_generator_ends_at_once():
    """the end of a generator at once"""
    def nothing():
        raise StopIteration
        yield 1
    for x in nothing():
        pass


@is_swallowed
def next_with_a_default():
    """next with a default"""
    next(Ascending(), None)
    x = Ascending()
    x.n = 3
    next(x, None)


@is_swallowed
def the_end_of_a_closed_generator():
    """the end of a generator that is closed"""
    def give():
        try:
            yield 1
        except GeneratorExit:
            raise StopIteration
    x = give()
    x.next()
    x.close()


# Dictionaries and sets.

@is_swallowed
def other_namespaces():
    """a name of other namespaces"""
    class Space(dict):
        def __missing__(self, key):
            raise KeyError(key)
    class Mapping(object):
        def __getitem__(self, key):
            raise KeyError(key)
        def __setitem__(self, key, value):
            pass
    exec 'len' in {}, Space()
    exec 'len' in {}, Mapping()


@ends_its_thread
def a_key_that_is_missing():
    class Space(dict):
        def __missing__(self, key):
            raise KeyError(key)
    Space()['x']


class Key(object):
    def __hash__(self):
        return 1

    def __eq__(self, other):
        raise ValueError('no answer')


@is_swallowed
def dictionaries_are_compared():
    """keys of dictionaries that are compared"""
    x, y = {Key(): 1}, {Key(): 1}
    x == y


@ends_its_thread
def a_key_is_looked_up():
    {Key(): 1}[Key()]


@is_swallowed
def a_set_in_a_set():
    """a set in a set"""
    class Odd(set):
        def __hash__(self):
            raise TypeError('no hash')
    x = set([frozenset([1])])
    Odd([1]) in x
    x.discard(Odd([1]))


# What is called cannot be read from the code, or is not in the table.

unread = [list, hasattr, operator.attrgetter('x'), map]


@is_swallowed
def somebody_asks():
    """a question"""
    unread[1](Guess(), 'x')
    unread[1](Classic(), 'x')


@is_swallowed
def somebody_looks_for_items():
    """an item"""
    unread[0](Short())


@is_swallowed
def somebody_asks_for_a_length():
    """a length, somewhere"""
    unread[0](Long(TypeError(1)))


@is_swallowed
def somebody_iterates():
    """an end, somewhere"""
    unread[0](Ascending())


@is_swallowed
def somebody_runs_a_generator():
    """the end of a generator, somewhere"""
    unread[0](generator())


@ends_its_thread_late
def somebody_wants_to_know():
    unread[2](Guess())


@ends_its_thread
def somebody_calls():
    unread[3](lambda x: 1 / x, [0])


# Others.

@ends_its_thread
def a_function_of_c_that_passes():
    map(lambda x: 1 / x, [0])


@ends_its_thread
def a_sorted_list():
    sorted([1, 2], key=lambda x: 1 / 0)


@ends_its_thread
def a_call_that_is_not_plain():
    [lambda: 1 / 0][0]()


@ends_its_thread
def a_loop_of_another_error():
    for x in broken('__getitem__')(ValueError(1)):
        pass


@ends_its_thread
def an_empty_iterator_that_fails():
    class Odd(object):
        def __iter__(self):
            raise IndexError('at once')
    for x in Odd():
        pass


def run(function):
    # A release host's switches of threads shall not matter.
    function()
    came_back.append(function)


def main():
    for function in swallowed + stopping + late:
        thread = threading.Thread(target=run, args=(function,), name=function.__name__)
        thread.start()
        thread.join()


if __name__ == '__main__':
    main()
