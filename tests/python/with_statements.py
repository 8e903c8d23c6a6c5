"""A program of with statements that swallow exceptions, and of some that do not.

Each function is run in a thread of its own. Those of `stopping` end their threads; those of `late`
do so too, but only after somebody has been asked who might have swallowed the exception.
"""

from __future__ import with_statement

import contextlib
import tempfile
import thread
import threading

swallowed, stopping, late = [], [], []
# It raises the exception a second time.
twice = ['raised_again']
came_back = []


class Swallow(object):
    def __enter__(self):
        return self

    def __exit__(self, *error):
        return True


class Classic:
    def __enter__(self):
        pass

    def __exit__(self, kind, value, traceback):
        return 1


class Nothing(object):
    def __enter__(self):
        pass

    def __exit__(self, kind, value, traceback):
        self.seen = kind
        if kind is not None:
            self.seen = value
        return False


class Only(object):
    """Swallows exceptions of some types alone."""

    def __init__(self, *kinds):
        self.kinds = kinds

    def __enter__(self):
        pass

    def __exit__(self, kind, value, traceback):
        if kind is None:
            raise AssertionError('not raised')
        if not issubclass(kind, self.kinds):
            return False
        self.value = value
        if self.kinds is None:
            return True
        return True


class ByName(Nothing):
    def __exit__(self, kind, value, traceback):
        return kind is KeyError


class ByValue(Nothing):
    def __exit__(self, kind, value, traceback):
        return value is not None and isinstance(value, LookupError)


class InTuple(Nothing):
    def __exit__(self, kind, value, traceback):
        if kind in (ValueError, KeyError):
            return True


class Again(Nothing):
    def __exit__(self, kind, value, traceback):
        raise value


class Other(Nothing):
    def __exit__(self, kind, value, traceback):
        raise RuntimeError('other')


class Asks(Nothing):
    def __init__(self, answer):
        self.answer = answer

    def look(self):
        return self.answer

    def __exit__(self, kind, value, traceback):
        return self.look()


class Delegate(object):
    def __init__(self, other):
        self.other = other

    def __enter__(self):
        return self.other.__enter__()

    def __exit__(self, *error):
        return self.other.__exit__(*error)


@contextlib.contextmanager
def ignoring(*kinds):
    try:
        yield
    except kinds:
        pass


@contextlib.contextmanager
def rolling_back():
    try:
        yield
    except:
        came_back.append('rolled back')
        del came_back[-1]
        raise


@contextlib.contextmanager
def raising_its_value():
    try:
        yield
    except Exception, error:
        raise error


@contextlib.contextmanager
def finishing():
    try:
        yield
    finally:
        x = [1]
        while x:
            x.pop()


@contextlib.contextmanager
def bare():
    yield


@contextlib.contextmanager
def around(other):
    with other:
        yield


@contextlib.contextmanager
def returning():
    try:
        yield
    finally:
        return


@contextlib.contextmanager
def translating():
    try:
        yield
    except KeyError:
        raise RuntimeError('translated')


@contextlib.contextmanager
def choosing(answer):
    try:
        yield
    except KeyError, error:
        if error.args[0] == answer:
            return
        raise


class Closing(object):
    def close(self):
        return 1


def uses(manager, kind=KeyError):
    def run():
        with manager():
            raise kind('raised')
    return run


def named(functions, **managers):
    for name in sorted(managers):
        function = uses(*managers[name])
        function.__name__ = name
        functions.append(function)


def lock():
    return thread.allocate_lock()


class Nested(object):
    """A statement with several managers, as an old one has it."""

    def __new__(cls, *managers):
        return lambda: contextlib.nested(*managers)


named(
    swallowed,
    a_class=(Swallow,), a_classic_class=(Classic,), one_type=(lambda: Only(KeyError),),
    a_base=(lambda: Only(ValueError, LookupError),), by_name=(ByName,), by_value=(ByValue,),
    in_tuple=(InTuple,), a_delegate=(lambda: Delegate(Swallow()),),
    an_answer_of_others=(lambda: Asks(True),), a_generator=(lambda: ignoring(KeyError),),
    a_generator_for_a_base=(lambda: ignoring(ValueError, LookupError),),
    around_another=(lambda: around(Swallow()),), around_a_generator=(
        lambda: around(ignoring(KeyError)),),
    a_return_at_the_end=(returning,), a_choice=(lambda: choosing('raised'),),
    nested_inside=(lambda: contextlib.nested(Swallow(), Nothing()),),
    nested_outside=(lambda: contextlib.nested(Nothing(), ignoring(KeyError), finishing()),))
named(
    stopping,
    no_answer=(Nothing,), other_type=(lambda: Only(KeyError), ValueError),
    other_name=(ByName, IndexError), other_value=(ByValue, ValueError),
    not_in_tuple=(InTuple, IndexError), raised_again=(Again,), a_lock=(lock,),
    a_condition=(threading.Condition,), a_reentrant_lock=(threading.RLock,),
    a_semaphore=(threading.Semaphore,), a_file=(lambda: open(__file__.replace('.pyc', '.py')),),
    a_temporary_file=(tempfile.NamedTemporaryFile,),
    something_to_close=(lambda: contextlib.closing(Closing()),),
    a_delegate_of_nothing=(lambda: Delegate(Nothing()),),
    a_generator_of_other_types=(lambda: ignoring(KeyError), ValueError),
    a_generator_that_raises_again=(rolling_back,), raising_the_value=(raising_its_value,),
    a_generator_that_finishes=(finishing,), a_bare_generator=(bare,),
    around_nothing=(lambda: around(Nothing()),),
    other_choice=(lambda: choosing('raised'), ValueError),
    nested_nothing=(lambda: contextlib.nested(Nothing(), finishing()),),
    an_interrupt=(lambda: ignoring(Exception), KeyboardInterrupt))
named(
    late,
    no_answer_of_others=(lambda: Asks(False),), no_choice=(lambda: choosing('other'),))


# Blocks of other kinds.

def inside():
    """The inner one lets it go."""
    with Swallow():
        with Nothing():
            for i in range(3):
                try:
                    raise KeyError('raised')
                finally:
                    i = 2


def in_a_caller():
    def inner():
        with Nothing():
            uses(Nothing)()
    with ignoring(KeyError):
        inner()


def left_by_return():
    def inner():
        try:
            raise KeyError('raised')
        finally:
            return
    inner()


def left_by_break():
    while True:
        try:
            raise KeyError('raised')
        finally:
            break


def in_a_closure():
    class Error(Exception):
        pass

    def inner():
        try:
            raise Error
        except Error:
            pass
    inner()


def named_by_a_call():
    def kinds():
        return KeyError
    try:
        raise KeyError('raised')
    except kinds():
        pass


def already_left():
    with Swallow():
        pass
    raise KeyError('raised')


def in_its_own_exit():
    class Fails(Nothing):
        def __exit__(self, kind, value, traceback):
            raise IndexError('in exit')
    with Fails():
        pass


def after_a_finally():
    def inner():
        try:
            raise KeyError('raised')
        finally:
            for i in range(3):
                if i:
                    break
            else:
                return
    inner()


def not_in_a_closure():
    class Error(Exception):
        pass

    def inner():
        try:
            raise KeyError('raised')
        except Error:
            pass
    inner()


swallowed += [inside, in_a_caller, left_by_return, left_by_break, in_a_closure, named_by_a_call]
stopping += [already_left, in_its_own_exit, not_in_a_closure]
late += [after_a_finally]


def run(function):
    function()
    came_back.append(function)


def main():
    for function in swallowed + stopping + late:
        thread = threading.Thread(target=run, args=(function,), name=function.__name__)
        thread.start()
        thread.join()


if __name__ == '__main__':
    main()
