"""The exception policy's settings as the server makes and reads them."""

import gc
import weakref

import harness
from exception_case import CatchInfo, ExceptionTestCase
from harness import core

SETTERS = ("set_always_stop_excepts", "set_never_stop_excepts")
GETTERS = ("get_always_stop_excepts", "get_never_stop_excepts")


class Types(tuple):
    """A tuple that can be watched."""


class Holder(object):
    """Anything that can be watched."""


class BeforeInitTest(harness.TestCase):

    def test_settings_can_be_read(self):
        self.assertEqual(core.get_exception_mode(), 0)
        self.assertEqual(core.exiting_on_exception(), 0)
        for getter in GETTERS:
            self.assertEqual(getattr(core, getter)(), ())


class ModeTest(ExceptionTestCase):

    def test_any_int_is_kept(self):
        for mode in (0, 1, 2, 4, 5, 7, -1, 2 ** 31 - 1, -2 ** 31, True, 3L):
            self.assertEqual(core.set_exception_mode(mode), None)
            self.assertEqual(core.get_exception_mode(), mode)
            self.assertEqual(type(core.get_exception_mode()), int)

    def test_number_that_is_no_c_int_is_refused(self):
        core.set_exception_mode(2)
        for mode in (2 ** 31, -2 ** 31 - 1, 2 ** 70):
            self.assert_raises(OverflowError, None, core.set_exception_mode, mode)
        self.assertEqual(core.get_exception_mode(), 2)

    def test_wrong_arguments_are_refused(self):
        core.set_exception_mode(2)
        self.assert_raises(TypeError,
                           "tracer_set_exception_mode() takes exactly 1 argument (0 given)",
                           core.set_exception_mode)
        for mode in (None, "1", []):
            self.assert_raises(TypeError, None, core.set_exception_mode, mode)
        self.assertEqual(core.get_exception_mode(), 2)

    def test_reset_keeps_the_mode(self):
        core.set_exception_mode(5)
        core.reset()
        self.assertEqual(core.get_exception_mode(), 5)
        self.init(exception_mode=1)
        self.assertEqual(core.get_exception_mode(), 1)


class StopTypesTest(ExceptionTestCase):

    def test_none_are_set_at_first(self):
        for getter in GETTERS:
            self.assertEqual(getattr(core, getter)(), ())

    def test_stored_tuple_itself_is_returned(self):
        for setter, getter in zip(SETTERS, GETTERS):
            types = (KeyError, ValueError)
            self.assertEqual(getattr(core, setter)(types), None)
            self.assert_is(getattr(core, getter)(), types)

    def test_the_two_are_kept_apart(self):
        core.set_always_stop_excepts((KeyError,))
        core.set_never_stop_excepts((ValueError,))
        self.assertEqual(core.get_always_stop_excepts(), (KeyError,))
        self.assertEqual(core.get_never_stop_excepts(), (ValueError,))
        core.set_always_stop_excepts(())
        self.assertEqual(core.get_never_stop_excepts(), (ValueError,))

    def test_empty_tuple_means_none(self):
        for setter, getter in zip(SETTERS, GETTERS):
            getattr(core, setter)((KeyError,))
            empty = Types()
            self.assertEqual(getattr(core, setter)(empty), None)
            self.assertEqual(getattr(core, getter)(), ())
            self.assert_is_not(getattr(core, getter)(), empty)

    def test_subclass_of_tuple_is_one(self):
        for setter, getter in zip(SETTERS, GETTERS):
            types = Types([KeyError])
            getattr(core, setter)(types)
            self.assert_is(getattr(core, getter)(), types)

    def test_anything_else_is_refused_and_changes_nothing(self):
        for setter, getter in zip(SETTERS, GETTERS):
            getattr(core, setter)((KeyError,))
            for types in ([KeyError], KeyError, None, "KeyError", {}):
                error = self.assert_raises(TypeError, None, getattr(core, setter), types)
                self.assertEqual(str(error).startswith("%s() argument 1 must be tuple" % setter),
                                 True)
            self.assert_raises(TypeError, "%s() takes exactly 1 argument (0 given)" % setter,
                               getattr(core, setter))
            self.assert_raises(TypeError, "%s() takes exactly 0 arguments (1 given)" % getter,
                               getattr(core, getter), 1)
            self.assertEqual(getattr(core, getter)(), (KeyError,))

    def test_tuple_is_held_until_replaced(self):
        for setter in SETTERS:
            for replace in (lambda: getattr(core, setter)((KeyError,)),
                            lambda: getattr(core, setter)(()), core.reset):
                # A tuple takes no weak reference.
                held = Holder()
                reference = weakref.ref(held)
                getattr(core, setter)((KeyError, held))
                del held
                self.assert_is_not(reference(), None)
                replace()
                self.assert_is(reference(), None)

    def test_reset_forgets_them(self):
        for setter, getter in zip(SETTERS, GETTERS):
            getattr(core, setter)((KeyError,))
            core.reset()
            self.assertEqual(getattr(core, getter)(), ())

    def test_item_may_replace_the_tuple_as_it_is_released(self):
        for setter, getter in zip(SETTERS, GETTERS):
            class Vengeful(object):
                def __del__(self):
                    getattr(core, setter)((ValueError,))
            getattr(core, setter)((Vengeful(),))
            getattr(core, setter)((KeyError,))
            gc.collect()
            self.assertEqual(getattr(core, getter)(), (ValueError,))
            getattr(core, setter)(())


class IgnoredHandlersTest(ExceptionTestCase):

    SOURCE = """\
def f():
    raise ValueError(1)
def g():
    try:
        f()
    except ValueError:
        pass
"""

    def stops_with(self, handlers, after="g()\n"):
        core.set_exception_mode(2)
        variables = {}
        path = self.script(self.SOURCE)
        code = compile(self.SOURCE, path, "exec")
        exec code in variables
        if callable(handlers):
            handlers = handlers(variables["g"])
        self.assertEqual(core.set_ignored_exception_handlers(handlers), None)
        return self.run_program(after, None, g=variables["g"])

    def test_handler_counts_while_it_is_not_named(self):
        for handlers in ({}, None, {"g": 1}, {1: 2}):
            self.assertEqual(self.stops_with(handlers), [])

    def test_handlers_of_a_code_object_do_not_count(self):
        self.assertEqual(self.stops_with(lambda g: {g.func_code: None}),
                         ["ValueError in f:2", "ValueError in g:5"])

    def test_value_in_the_dictionary_is_not_read(self):
        for value in (0, False, "", object()):
            self.assertEqual(len(self.stops_with(lambda g: {g.func_code: value})), 2)

    def test_handlers_of_a_frame_do_not_count(self):
        source = """\
import sys
def h():
    try:
        case.named[sys._getframe()] = None
        [].pop()
    except IndexError:
        pass
core.set_ignored_exception_handlers(case.named)
h()
case.named = {}
h()
"""
        self.named = {}
        core.set_exception_mode(2)
        # Only the first call's frame was in the dictionary that the core has.
        self.assertEqual(self.run_program(source), ["IndexError in h:5"])
        self.named = {}

    def test_outer_handlers_count_all_the_same(self):
        after = "try:\n    g()\nexcept ValueError:\n    pass\n"
        self.assertEqual(self.stops_with(lambda g: {g.func_code: None}, after), [])

    def test_what_is_no_dictionary_names_nothing(self):
        for handlers in (None, 7, "g", object()):
            self.assertEqual(self.stops_with(handlers), [])
        for kind in (list, tuple, set):
            self.assertEqual(self.stops_with(lambda g: kind([g.func_code])), [])

    def test_subclass_of_dict_is_one(self):
        class Handlers(dict):
            def __contains__(self, key):
                raise RuntimeError("asked")
            __getitem__ = get = has_key = __contains__
        self.assertEqual(len(self.stops_with(lambda g: Handlers({g.func_code: None}))), 2)

    def test_later_changes_of_the_dictionary_count(self):
        self.named = {}
        after = "g()\ncase.named[g.func_code] = None\ng()\n"
        self.assertEqual(self.stops_with(lambda g: self.named, after),
                         ["ValueError in f:2", "ValueError in g:5"])

    def test_object_is_held_until_replaced_or_reset(self):
        for replace in (lambda: core.set_ignored_exception_handlers(None), core.reset):
            handlers = Holder()
            reference = weakref.ref(handlers)
            core.set_ignored_exception_handlers(handlers)
            del handlers
            self.assert_is_not(reference(), None)
            replace()
            self.assert_is(reference(), None)

    def test_wrong_arguments_are_refused(self):
        self.assert_raises(TypeError,
                           "set_ignored_exception_handlers() takes exactly 1 argument (0 given)",
                           core.set_ignored_exception_handlers)


class CatchInfoListTest(ExceptionTestCase):

    def test_only_a_list_is_taken(self):
        for wrong in ((), None, {}, CatchInfo("f")):
            error = self.assert_raises(TypeError, None, core.set_exc_catch_info_list, wrong)
            self.assertEqual(
                str(error).startswith("set_exc_catch_info_list() argument 1 must be list"), True)

    def test_nothing_is_returned(self):
        self.assertEqual(core.set_exc_catch_info_list([]), None)
        self.assertEqual(core.set_exc_catch_info_list([CatchInfo("f")]), None)
