"""Values of every kind that an entry point can be given, among them such as act when looked at."""

import array
import gc
import mmap
import socket
import sys
import thread
import threading
import types
import weakref

# Calls `world.act()`: does something to the core in the middle of whatever looked at a value.
world = None

NUMBERS = [0, 1, -1, 2, 3, 7, 12, 255, 256, 65535, 65536, 1 << 20, (1 << 31) - 1, 1 << 31,
           -(1 << 31), -(1 << 31) - 1, (1 << 32) - 1, 1 << 32, (1 << 63) - 1, 1 << 63, -(1 << 63),
           1 << 64, 10 ** 30, -10 ** 30, True, False, 0.0, -0.0, 0.5, 1.5, -1e300, 1e-320, 1e300,
           float("inf"), float("-inf"), float("nan"), 3L, -1L, 1j]
TEXTS = ["", "x", "\0", "a\0b", "x.py", "/", ".", "..", "//", "\xff\xfe", "caf\xe9", "%s%n%s", "\n",
         "x" * 300, "/" + "y" * 5000, "../" * 2000, "<string>", "<fuzz>", "utf-8", "no-such", "hex",
         "line", "call", "return", "exception", "sys", "os.path", "fuzz_module", "1", "None",
         u"", u"x", u"\xe9", u"\ud800", u"\udc00x", u"\U0001f600", u"a\0b", u"/tmp/\u20ac.py"]

_METHODS = ["__eq__", "__ne__", "__lt__", "__le__", "__gt__", "__ge__", "__cmp__", "__hash__",
            "__nonzero__", "__len__", "__int__", "__long__", "__float__", "__index__", "__str__",
            "__repr__", "__unicode__", "__call__", "__iter__", "__getitem__", "__contains__",
            "__coerce__", "next", "write", "flush", "fileno", "softspace", "f_lineno", "co_name",
            "module_name", "prints", "ignore", "parent", "_GetMarkerFrames", "_GetModulePaths",
            "_GetSubLanguageFrames", "_StopHere", "_TranslateFrame", "_GetStepOutFrame", "_Eval"]
# What a method answers by its kind, now and then; else anything.
_ANSWERS = {"__hash__": [0, 1, -1, 7, 1 << 40], "__nonzero__": [True, False, 1], "__len__": [0, 1],
            "__int__": [0, 1, 7, 1 << 40], "__long__": [0L, 5L], "__float__": [0.0, 1e300],
            "__index__": [0, 1], "__str__": ["x", ""], "__repr__": ["x"], "__unicode__": [u"x"],
            "fileno": [0, -1, 99], "__cmp__": [0, 1, -1], "__eq__": [True, False],
            "_GetMarkerFrames": [], "_TranslateFrame": [("x.py", 1), (), ("x.py",), (1, 2), None]}


def _method(name):
    def method(self, *arguments):
        answer = world.answer(name, _ANSWERS.get(name))
        # 2.6 never gives back what is no float there, which would count as a leak of the core's.
        if name == "__float__" and sys.version_info < (2, 7) and not isinstance(answer, float):
            return 0.0
        return answer
    method.__name__ = name
    return method


def _namespace(names):
    return dict((name, _method(name)) for name in names)


def _subclass(base):
    names = _METHODS
    if base in (int, long, float, str, unicode, tuple, list, dict):
        # They are what they are, and say something else.
        names = [name for name in _METHODS if name not in ("next",)]
    return type("Hostile_" + base.__name__, (base,), _namespace(names))


SUBCLASSES = dict((base, _subclass(base))
                  for base in (object, int, long, float, str, unicode, tuple, list, dict))
OldStyle = types.ClassType("OldStyle", (), _namespace(
    [name for name in _METHODS if name not in ("__cmp__", "__coerce__")]))


class Dying(object):
    """Not of the kind that the garbage collection looks after, so that its end is not put off."""

    __slots__ = ()

    def __del__(self):
        try:
            world.act()
        except BaseException:
            pass


class Asked(object):
    """Every attribute of it is asked for."""

    def __getattr__(self, name):
        if name.startswith("__"):
            raise AttributeError(name)
        return world.answer("__getattr__", None)


class OldAsked:
    def __getattr__(self, name):
        if name.startswith("__") and name not in _METHODS:
            raise AttributeError(name)
        return world.answer("__getattr__", None)


class Meta(type):
    """A class of it has a say in what its subclasses are."""

    def __subclasscheck__(cls, other):
        return world.answer("__subclasscheck__", [True, False, 5, "x"])

    def __instancecheck__(cls, other):
        return world.answer("__instancecheck__", [True, False])

    def __hash__(cls):
        return hash(world.answer("__hash__", [1, 2]) and 1)

    def __getattribute__(cls, name):
        if not name.startswith("__"):
            world.act()
        return type.__getattribute__(cls, name)


Strange = Meta("Strange", (Exception,), {})


class Failing(Exception):
    def __str__(self):
        return world.answer("__str__", ["x"])

    def __init__(self, *arguments):
        world.act()


class Listed(object):
    """What is put into the list of exceptions that are printed."""

    def __init__(self, rng, value):
        for name in ("co_name", "module_name", "prints", "ignore", "parent"):
            if rng.random() < 0.8:
                setattr(self, name, rng.choice(["work", "risky", "fuzz_program", 0, 1, None])
                        if rng.random() < 0.6 else value())

    def __getattribute__(self, name):
        if not name.startswith("__"):
            world.act()
        return object.__getattribute__(self, name)


class Hook(object):
    """A sub-language as it is meant, and now and then not."""

    def __init__(self, answers):
        self.answers = answers

    def _answer(self, name):
        world.act()
        answer = self.answers.get(name)
        return answer() if callable(answer) else answer

    def _GetMarkerFrames(self):
        return self._answer("marker")

    def _GetModulePaths(self):
        return self._answer("paths")

    def _GetSubLanguageFrames(self):
        return self._answer("keys")

    def _StopHere(self, frame, event, kind):
        return self._answer("stop")

    def _TranslateFrame(self, frame, *more):
        return self._answer("place")

    def _GetStepOutFrame(self, frame):
        return self._answer("out")

    def _Eval(self, *arguments):
        return self._answer("eval")


def _dead_frame():
    try:
        raise KeyError("dead")
    except KeyError:
        return sys.exc_info()[2].tb_frame


def _generator(argument=None):
    yield argument
    yield sys._getframe()


class Frames(object):
    """Frames of all kinds, made once."""

    def __init__(self):
        self.dead = _dead_frame()
        self.unborn = _generator().gi_frame
        self.suspended_owner = _generator()
        self.suspended_owner.next()
        self.suspended = self.suspended_owner.gi_frame
        over = _generator()
        over.next()
        self.inner = over.next()
        over.close()
        self.waiting = threading.Event()
        self.goes = threading.Event()
        thread.start_new_thread(self._wait, ())
        self.waiting.wait()
        self.others = [frame for ident, frame in sys._current_frames().items()
                       if ident != thread.get_ident()]

    def _wait(self):
        self.waiting.set()
        self.goes.wait()

    def some(self, rng):
        return rng.choice([self.dead, self.unborn, self.suspended, self.inner, sys._getframe(),
                           sys._getframe(1), self.others[0]])


class Values(object):
    """Makes values by the dice; keeps nothing of them but what `containers` holds."""

    def __init__(self, rng, frames, files, places, codes):
        self.rng = rng
        self.frames = frames
        self.files = files
        self.places = places
        self.codes = codes
        self.containers = []
        self.kinds = [self.number] * 3 + [self.text] * 3 + [
            self.container, self.cyclic, self.subclass, self.subclass, self.subclass, self.frame,
            self.frame, self.asked, self.kind, self.exception, self.thing, self.buffer, self.dying,
            self.nothing, self.code, self.file, self.tstate]

    def any(self, depth=0):
        return self.rng.choice(self.kinds)(depth)

    def nothing(self, depth=0):
        return None

    def number(self, depth=0):
        if self.rng.random() < 0.4:
            return self.rng.randint(-3, 30)
        return self.rng.choice(NUMBERS)

    def text(self, depth=0):
        return self.rng.choice(TEXTS + self.places)

    def tstate(self, depth=0):
        import tmorvik26_vs2012_x64 as core
        return core.get_current_tstate_id()

    def container(self, depth=0):
        size = self.rng.choice([0, 1, 2, 3, 8])
        items = [self.any(depth + 1) for _ in range(size)] if depth < 3 else []
        made = self.rng.choice([tuple, list, self.dictionary])(items)
        if not isinstance(made, tuple):
            self.containers.append(made)
        return made

    def dictionary(self, items):
        made = {}
        for item in items:
            try:
                made[item] = item
            except Exception:
                pass
        return made

    def cyclic(self, depth=0):
        made = []
        made.append((made, {1: made}) if self.rng.random() < 0.5 else made)
        made.append(Dying())
        self.containers.append(made)
        return self.rng.choice([made, made[0]])

    def subclass(self, depth=0):
        base = self.rng.choice([object, int, long, float, str, unicode, tuple, list, dict])
        kind = SUBCLASSES[base]
        if base in (tuple, list):
            made = kind([self.any(depth + 1)] if depth < 3 else ())
        elif base is dict:
            made = kind()
            dict.__setitem__(made, "x", self.number())
        elif base is object:
            made = self.rng.choice([kind, OldStyle])()
        elif base in (str, unicode):
            made = kind("x.py")
        else:
            made = kind(self.rng.randint(0, 20))
        if base in (list, dict):
            self.containers.append(made)
        return made

    def frame(self, depth=0):
        return self.frames.some(self.rng)

    def asked(self, depth=0):
        return self.rng.choice([Asked, OldAsked])()

    def kind(self, depth=0):
        return self.rng.choice([object, type, int, KeyError, Exception, BaseException, OldStyle,
                                Strange, Meta, Failing, ValueError, StopIteration, IndexError])

    def exception(self, depth=0):
        return self.rng.choice([KeyError("x"), ValueError(), Strange("x"), Failing("x"),
                                StopIteration(), UnicodeDecodeError("x", "x", 0, 1, "x")])

    def thing(self, depth=0):
        return self.rng.choice([
            sys, sys.modules, len, self.thing, Ellipsis, NotImplemented, slice(1), xrange(3),
            iter([1]), weakref.ref(self.frames), gc, types.ModuleType("fuzz_module"), min,
            property(), staticmethod(len), lambda *arguments: None])

    def module(self, depth=0):
        made = types.ModuleType("fuzz_module")
        made.__file__ = self.text() if self.rng.random() < 0.7 else self.any(depth + 1)
        return made

    def buffer(self, depth=0):
        return self.rng.choice([
            array.array("c", "x" * 20), bytearray(10), buffer("xyz"), array.array("i", [1, 2]),
            self.files.mapped])

    def dying(self, depth=0):
        return Dying()

    def code(self, depth=0):
        return self.rng.choice(self.codes)

    def file(self, depth=0):
        return self.rng.choice(self.files.all)

    # What some entry points are meant to be given.

    def hook(self, depth=0):
        def codes():
            return [self.code() for _ in range(self.rng.randint(0, 3))]

        def paths():
            return [(self.rng.choice(self.places + ["", "/"]), self.rng.choice([0, 1, 2, -1]))]
        answers = {"marker": codes, "paths": paths, "keys": codes, "place": ("fuzz.lang", 3),
                   "stop": self.rng.choice([0, 1]), "out": self.frame(), "eval": 1}
        for name in answers.keys():
            if self.rng.random() < 0.2:
                answers[name] = self.any(2)
        return Hook(answers)

    def catch_list(self, depth=0):
        made = [Listed(self.rng, self.any) for _ in range(self.rng.randint(0, 4))]
        self.containers.append(made)
        return made

    def kinds_of_exceptions(self, depth=0):
        return tuple([self.kind() for _ in range(self.rng.randint(0, 3))])

    def handlers(self, depth=0):
        made = {}
        for _ in range(self.rng.randint(0, 3)):
            made[self.rng.choice([self.code, self.frame])()] = 1
        if self.rng.random() < 0.3:
            made[SUBCLASSES[object]()] = 1
        self.containers.append(made)
        return made


class Files(object):
    """Files that never make anybody wait."""

    def __init__(self):
        closed = open("/dev/null")
        closed.close()
        self.pair = socket.socketpair()
        self.pair[0].send("x")
        self.mapped = mmap.mmap(-1, 64)
        self.read = open("/dev/null")
        self.write = open("/dev/null", "w")
        self.all = [self.read, self.write, closed, self.pair[1]]

    def waited_for(self, rng):
        return rng.choice([self.read, self.all[2]])

    def sockets(self, rng, value):
        return [value() if rng.random() < 0.3 else self.pair[1] for _ in range(rng.randint(0, 3))]
