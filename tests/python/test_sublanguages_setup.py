"""Registering a sub-language hook, setting it up, and where it is active."""

import gc
import os
import sys
import thread
import weakref

import harness
from harness import core
from sublanguage_case import Hook, SubLanguageTestCase

SET_UP = ["_GetMarkerFrames", "_GetModulePaths", "_GetSubLanguageFrames"]

# Three calls; lines and returns besides.
CALLS = """\
def f():
    a = 1
    b = 2
f()
f()
"""


class RegistrationTest(SubLanguageTestCase):

    def test_registering_returns_none_and_checks_nothing(self):
        for hook in (None, 42, "text", [], Hook(), Hook):
            self.assert_is(core.register_sub_language_hook(hook), None)
        self.assertEqual(self.run_program(CALLS)["f"](), None)

    def test_nothing_is_asked_without_tracing(self):
        hook = self.register()
        self.engine["run"](self.page["page"], 1)
        self.assertEqual(hook.calls, [])

    def test_hook_is_asked_once_at_the_first_call_event(self):
        hook = self.register()
        self.run_program(CALLS)
        self.assertEqual([call[0] for call in hook.calls], SET_UP)
        self.assertEqual([call[1:] for call in hook.calls], [()] * 3)

    def test_line_events_do_not_ask(self):
        hook = self.hook()
        seen = []
        core.start_trace()
        core.continue_run()
        core.register_sub_language_hook(hook)
        x = 1
        y = 2
        seen.extend(hook.calls)
        (lambda: None)()
        core.stop_trace()
        self.assertEqual((seen, len(hook.calls)), ([], 3))

    def test_hooks_are_asked_in_the_order_they_were_registered_in(self):
        order = []
        for name in "ab":
            self.register(GetMarkerFrames=lambda name=name: order.append(name))
        self.run_program("(lambda: 1)()\n")
        self.assertEqual(order, ["a", "b", "a", "b"])

    def test_hook_registered_twice_is_asked_twice(self):
        hook = self.register()
        core.register_sub_language_hook(hook)
        self.run_program(CALLS)
        self.assertEqual([call[0] for call in hook.calls], SET_UP * 2)

    def test_init_forgets_the_hooks(self):
        hook = self.register()
        self.init()
        self.run_program(CALLS)
        self.assertEqual(hook.calls, [])

    def test_hook_that_is_registered_while_init_lets_go_of_another(self):
        kept = []

        class LastWords(Hook):
            def __del__(this):
                kept.append(self.register())
        core.register_sub_language_hook(LastWords())
        self.init()
        self.run_program(CALLS)
        self.assertEqual([call[0] for call in kept[0].calls], SET_UP)

    def test_init_forgets_hooks_that_are_set_up(self):
        hook = self.register()
        self.run_program()
        self.init()
        seen = []
        self.page["fetch"] = lambda value: seen.append(self.active_hook())
        self.page["part"] = lambda value: 0
        self.run_program()
        self.assertEqual(seen, [None])
        reference = weakref.ref(hook)
        del hook
        gc.collect()
        self.assert_is(reference(), None)

    def test_reset_keeps_the_hooks(self):
        pending = self.register(GetMarkerFrames=[])
        hook = self.register()
        self.run_program()
        core.reset()
        core.set_autoquit(0)
        seen = []
        self.page["fetch"] = lambda value: seen.append(self.active_hook()) or 1
        before = len(pending.calls)
        self.run_program()
        self.assertEqual(seen, [hook])
        self.assertEqual(len(pending.calls) > before, True)


class SessionsTest(SubLanguageTestCase):
    """A server that registers its hooks again for every session, which ends with reset()."""

    def assert_steady(self, prepare):
        if not hasattr(sys, "gettotalrefcount"):
            self.skip("counts of references need a debug build")
        counts = []
        for turn in range(60):
            prepare()
            self.run_program()
            core.reset()
            core.set_autoquit(0)
            self.server.stream.clear()
            del self.server.hooks[:]
            gc.collect()
            counts.append(sys.gettotalrefcount())
        grown = counts[-1] - counts[-31] - 30   # the counts themselves
        if grown >= 30:
            self.fail("references grow by %d in 30 sessions" % grown)

    def test_new_hooks_take_the_place_of_old_ones(self):
        self.assert_steady(lambda: self.register())

    def test_the_same_hook(self):
        hook = self.hook()

        def register():
            del hook.calls[:]
            core.register_sub_language_hook(hook)
        self.assert_steady(register)

    def test_the_same_hook_that_is_never_set_up(self):
        hook = self.hook(GetMarkerFrames=[])

        def register():
            del hook.calls[:]
            core.register_sub_language_hook(hook)
        self.assert_steady(register)

    def test_hook_that_is_replaced_in_part_stays(self):
        other = self.hook(GetMarkerFrames=[self.code("run"), self.code("fetch")])
        core.register_sub_language_hook(other)
        self.run_program()
        self.register()
        self.run_program()
        reference = weakref.ref(other)
        del other
        gc.collect()
        self.assert_is_not(reference(), None)


class PendingTest(SubLanguageTestCase):
    """A hook is retried at every call event until it has said everything."""

    def asked_for(self, name, answer):
        """How often a hook with this answer is asked for it during three call events."""
        hook = self.register(**{name[1:]: answer})
        self.run_program(CALLS)
        return len(hook.asked(name))

    def test_empty_list_is_asked_for_again_at_every_call_event(self):
        for name in SET_UP:
            self.assertEqual(self.asked_for(name, []), 3)
            self.init()

    def test_failure_is_asked_again_and_not_seen_by_the_program(self):
        for name in SET_UP:
            for error in (ValueError("hook"), KeyboardInterrupt(), SystemExit(1)):
                self.assertEqual(self.asked_for(name, error), 3)
                self.init()

    def test_what_is_no_list_counts_as_a_failure(self):
        for name in SET_UP:
            for answer in (None, 0, 42, (), (self.code("run"),), {"a": 1}, "text", iter([1])):
                self.assertEqual(self.asked_for(name, answer), 3)
                self.init()

    def test_what_cannot_be_a_key_counts_as_a_failure(self):
        for name in ("_GetMarkerFrames", "_GetSubLanguageFrames"):
            for answer in ([[]], [self.code("run"), {}]):
                self.assertEqual(self.asked_for(name, answer), 3)
                self.init()

    def test_hook_that_begins_anew_with_init_is_forgotten_like_any_other(self):
        for name in SET_UP:
            def begin_anew(answer=self.hook().answers[name]):
                self.init()
                later.append(self.register(GetMarkerFrames=[self.code("page")]))
                return answer
            later, seen = [], []
            first = self.register(**{name[1:]: begin_anew})
            self.page["fetch"] = lambda value: seen.append(self.active_hook()) or 1
            self.run_program(CALLS)
            self.run_program()
            self.assertEqual(len(first.asked(name)), 1)
            self.assertEqual([[call[0] for call in hook.calls[:3]] for hook in later], [SET_UP])
            self.assertEqual(seen, later)
            self.init()

    def test_hook_that_cannot_be_a_key_stays_pending(self):
        class Unhashable(Hook):
            __hash__ = None

        class Failing(Hook):
            def __hash__(self):
                raise ValueError("hash")
        for kind in (Unhashable, Failing):
            hook = kind(GetMarkerFrames=[self.code("run")], GetModulePaths=[("impl", 1)],
                        GetSubLanguageFrames=[self.code("page")])
            core.register_sub_language_hook(hook)
            self.run_program(CALLS)
            self.assertEqual([call[0] for call in hook.calls], SET_UP[:2] * 3)
            self.init()

    def test_hook_without_methods_stays_pending(self):
        other = self.register()
        core.register_sub_language_hook(object())
        core.register_sub_language_hook(None)
        self.run_program()
        self.assertEqual([call[0] for call in other.calls[:3]], SET_UP)

    def test_hook_of_an_old_style_class_or_a_module_will_do(self):
        class Old:
            def __init__(self, hook):
                for name in SET_UP:
                    setattr(self, name, getattr(hook, name))
        inner = self.hook()
        core.register_sub_language_hook(Old(inner))
        import imp
        module = imp.new_module("hook")
        second = self.hook()
        for name in SET_UP:
            setattr(module, name, getattr(second, name))
        core.register_sub_language_hook(module)
        self.run_program(CALLS)
        self.assertEqual([call[0] for call in inner.calls + second.calls], SET_UP * 2)

    def test_what_comes_after_the_missing_answer_is_not_asked_for(self):
        for number, name in enumerate(SET_UP):
            hook = self.register(**{name[1:]: []})
            self.run_program("x = 1\n")
            self.assertEqual([call[0] for call in hook.calls], SET_UP[:number + 1])
            self.init()

    def test_hook_is_set_up_as_soon_as_it_answers(self):
        keys = []
        hook = self.register(GetSubLanguageFrames=keys)
        self.run_program(CALLS)
        keys.append(self.code("page"))
        del hook.calls[:]
        self.run_program(CALLS)
        self.assertEqual([call[0] for call in hook.calls], SET_UP)

    def test_pending_hook_keeps_no_other_from_being_set_up(self):
        pending = self.register(GetMarkerFrames=[])
        hook = self.register()
        self.run_program(CALLS)
        self.assertEqual([call[0] for call in hook.calls], SET_UP)
        self.assertEqual(len(pending.calls), 3)

    def test_markers_of_a_pending_hook_activate_it(self):
        # They were entered before the next answer was found missing.
        hook = self.register(GetModulePaths=[])
        seen = []
        self.page["fetch"] = lambda value: seen.append(self.active_hook()) or 1
        self.run_program()
        self.assertEqual(seen, [hook])

    def test_hook_that_registers_another_while_it_is_asked(self):
        second = self.hook()

        def register_and_answer(answer):
            def method():
                if not second.calls:
                    core.register_sub_language_hook(second)
                return answer
            return method
        hook = self.register(GetModulePaths=register_and_answer([("impl", 1)]))
        self.run_program(CALLS)
        self.assertEqual([call[0] for call in hook.calls], SET_UP)
        self.assertEqual([call[0] for call in second.calls], SET_UP)


class ActivationTest(SubLanguageTestCase):

    def setUp(self):
        SubLanguageTestCase.setUp(self)
        self.seen = []
        self.page["fetch"] = self.look

    def look(self, value=None):
        self.seen.append(self.active_hook())
        return value

    def test_hook_is_active_while_its_marker_frame_runs(self):
        hook = self.register()
        self.run_program("look()\nx = run(page, 1)\nlook()\n", look=self.look)
        self.assertEqual(self.seen, [None, hook, None])

    def test_key_code_alone_activates_nothing(self):
        self.register()
        self.run_program("page(1)\n")
        self.assertEqual(self.seen, [None])

    def test_hook_is_inactive_once_an_exception_left_the_marker_frame(self):
        hook = self.register()
        self.page["part"] = lambda value: 1 / 0
        self.run_program("""\
try:
    run(page, 1)
except ZeroDivisionError:
    look()
""", look=self.look)
        self.assertEqual(self.seen, [hook, None])

    def test_only_the_outermost_marker_frame_activates(self):
        first = self.register()
        namespace = self.load("inner.py", "def inner(n):\n    look()\n    return n\n",
                              look=self.look)
        self.register(GetMarkerFrames=[namespace["inner"].func_code])
        self.page["part"] = namespace["inner"]
        self.run_program("run(page, 1)\nlook()\n", look=self.look)
        self.assertEqual(self.seen, [first, first, None])

    def test_leaving_an_inner_marker_frame_deactivates_nothing(self):
        hook = self.register()
        self.run_program("""\
def outer(n):
    run(page, n)
    look()
run(outer, 1)
look()
""", look=self.look)
        self.assertEqual(self.seen, [hook, hook, None])

    def test_recursion_through_the_marker(self):
        hook = self.register()
        self.run_program("""\
def again(n):
    look()
    if n:
        run(again, n - 1)
    look()
run(again, 3)
look()
""", look=self.look)
        self.assertEqual(self.seen, [hook] * 8 + [None])

    def test_another_hook_can_be_active_afterwards(self):
        first = self.register()
        namespace = self.load("second.py", "def second():\n    look()\n", look=self.look)
        second = self.register(GetMarkerFrames=[namespace["second"].func_code])
        self.run_program("run(page, 1)\nsecond()\nlook()\nrun(page, 1)\n", look=self.look,
                         second=namespace["second"])
        self.assertEqual(self.seen, [first, second, None, first])

    def test_marker_frame_that_yields_is_left_and_entered_again(self):
        namespace = self.load("gen.py", "def gen():\n    look()\n    yield 1\n    look()\n",
                              look=self.look)
        hook = self.register(GetMarkerFrames=[namespace["gen"].func_code])
        self.run_program("for item in gen():\n    look()\nlook()\n", look=self.look,
                         gen=namespace["gen"])
        self.assertEqual(self.seen, [hook, None, hook, None])

    def test_marker_frame_that_runs_already_activates_nothing(self):
        hook = self.hook()
        self.page["fetch"] = lambda value: core.register_sub_language_hook(hook) or value
        self.page["part"] = lambda value: self.look()
        self.run_program()
        self.assertEqual(self.seen, [None])

    def test_hook_is_active_in_its_own_thread_only(self):
        hook = self.register()
        done, ids = [], []

        def look_around(value):
            ids.append(core.get_current_tstate_id())
            self.seen.append([core.sub_language_get_active_hook(each) for each in ids])
            return value
        self.page["fetch"] = look_around

        def work():
            self.engine["run"](self.page["page"], 1)
            self.seen.append(core.sub_language_get_active_hook(core.get_current_tstate_id()))
            done.append(1)
        self.run_program("start()\nwait()\nlook()\n", look=self.look,
                         start=lambda: thread.start_new_thread(traced, (work,)),
                         wait=lambda: self.assertEqual(harness.wait_until(lambda: done), True))
        self.assertEqual(self.seen, [[hook], None, None])

    def test_unknown_thread_has_no_active_hook(self):
        self.register()
        self.page["fetch"] = lambda value: self.seen.append(
            core.sub_language_get_active_hook(self.mine + 8))
        self.page["part"] = lambda value: value
        self.run_program()
        self.assertEqual(self.seen, [None])
        self.assert_raises(TypeError, None, core.sub_language_get_active_hook, "text")

    def test_no_hook_is_active_before_one_was_registered(self):
        core.start_trace()
        self.look()
        core.stop_trace()
        self.assertEqual(self.seen, [None])

    def test_hook_and_frame_are_released_when_the_marker_frame_ends(self):
        hook = self.register()
        frames = []
        self.page["fetch"] = lambda value: frames.append(sys._getframe(2)) or value
        before = sys.getrefcount(hook)
        self.run_program()
        # The three dictionaries know it now, the thread does not any more.
        self.assertEqual(sys.getrefcount(hook) - before <= 4, True)
        during = sys.getrefcount(hook)
        for _ in range(10):
            self.run_program()
        self.assertEqual(sys.getrefcount(hook), during)
        self.assertEqual(frames[0].f_code, self.code("run"))
        del hook.calls[:]
        self.assertEqual(sys.getrefcount(frames[0]), 2)


def traced(work):
    core.bootstrap_new_thread(sys._getframe(), "call", None)
    work()
    sys.settrace(None)
    core.thread_exiting()


class CategoryTest(SubLanguageTestCase):

    def setUp(self):
        SubLanguageTestCase.setUp(self)
        self.seen = []

    def categories(self):
        """The categories of the frames from fetch() outward: fetch, page, run, the program."""
        self.engine["look"] = lambda: self.seen.append(
            [self.category(sys._getframe(depth)) for depth in (1, 2, 3, 4)])
        self.engine = self.load("impl/engine.py", self.ENGINE, look=self.engine["look"])
        self.page["fetch"] = self.engine["fetch"]
        self.hooks = [self.hook(**self.answers)]
        core.register_sub_language_hook(self.hooks[0])
        self.run_program()
        return self.seen.pop()

    ENGINE = """\
def run(page, *arguments):
    return page(*arguments)

def fetch(value):
    look()
    return value
"""
    answers = {}

    def paths(self, *pairs):
        self.answers = {"GetModulePaths": [(os.path.join(self.folder, path), category)
                                           for path, category in pairs]}
        return self.categories()

    def test_key_hidden_and_unknown_frames(self):
        self.assertEqual(self.categories(), [0, 1, 0, -1])

    def test_any_category_but_zero_hides(self):
        for category in (1, 2, -1, 1000, -2 ** 31, True):
            self.assertEqual(self.paths(("impl", category)), [0, 1, 0, -1])
            self.init()

    def test_category_zero_hides_nothing(self):
        self.assertEqual(self.paths(("impl", 0)), [-1, 1, -1, -1])

    def test_letter_case_of_a_path_does_not_count(self):
        self.assertEqual(self.paths(("IMPL", 1)), [0, 1, 0, -1])
        self.init()
        self.answers = {"GetModulePaths": [(os.path.join(self.folder, "impl").upper(), 1)]}
        self.assertEqual(self.categories(), [0, 1, 0, -1])

    def test_path_is_the_beginning_of_a_name_and_not_a_folder(self):
        self.assertEqual(self.paths(("im", 1)), [0, 1, 0, -1])

    def test_other_path_hides_nothing(self):
        self.assertEqual(self.paths(("impl/engine.py/more", 1), ("mpl", 1)), [-1, 1, -1, -1])

    def test_empty_path_is_every_files(self):
        self.answers = {"GetModulePaths": [("", 1)]}
        self.assertEqual(self.categories(), [0, 1, 0, 0])

    def test_first_path_that_fits_counts(self):
        self.assertEqual(self.paths(("impl/eng", 0), ("impl", 1)), [-1, 1, -1, -1])
        self.init()
        self.assertEqual(self.paths(("nowhere", 0), ("impl", 1), ("impl", 0)), [0, 1, 0, -1])

    def test_key_frame_is_one_wherever_its_file_lies(self):
        self.answers = {"GetModulePaths": [(self.folder, 1)]}
        self.assertEqual(self.categories(), [0, 1, 0, 0])

    def test_path_in_unicode_will_do(self):
        self.answers = {"GetModulePaths": [(unicode(os.path.join(self.folder, "impl")), 1)]}
        self.assertEqual(self.categories(), [0, 1, 0, -1])

    def test_pair_that_is_none_makes_the_frame_unknown(self):
        for bad in (42, None, (), ("impl",), ("impl", "1"), (42, 1), ("a\0b", 1), ["impl", 1],
                    ("impl", 2 ** 40)):
            self.answers = {"GetModulePaths": [bad, (os.path.join(self.folder, "impl"), 1)]}
            self.assertEqual(self.categories(), [-1, 1, -1, -1])
            self.init()

    def test_category_is_found_out_once(self):
        self.assertEqual(self.categories(), [0, 1, 0, -1])
        self.hooks[0].answers["_GetModulePaths"][:] = [("nowhere", 1)]
        self.run_program()
        self.assertEqual(self.seen.pop(), [0, 1, 0, -1])

    def test_category_stays_where_the_code_gets_another_name(self):
        # Compiled in a file that is not there: whose code it is goes by the module.
        code = compile("def f():\n    look()\n    return 1\n", "/no/such.py", "exec")
        categories, files = [], []

        def look():
            categories.append(self.category(sys._getframe(1)))
            files.append(os.path.relpath(core.get_frame_file(sys._getframe(1)), self.folder))
        inside = {"look": look, "__file__": os.path.join(self.folder, "impl/made.py")}
        exec code in inside

        def rename():
            inside["f"]()
            exec code in {"__file__": os.path.join(self.folder, "outside.py")}
            inside["f"]()
        self.register()
        self.run_program("run(rename)\n", rename=rename)
        self.assertEqual(files, ["impl/made.py", "outside.py"])
        self.assertEqual(categories, [0, 0])

    def test_init_forgets_the_categories(self):
        self.assertEqual(self.categories(), [0, 1, 0, -1])
        self.init()
        self.hooks[0].answers["_GetModulePaths"][:] = [("nowhere", 1)]
        core.register_sub_language_hook(self.hooks[0])
        self.run_program()
        self.assertEqual(self.seen.pop(), [-1, 1, -1, -1])

    def test_failure_is_not_kept(self):
        pairs = [42]
        self.answers = {"GetModulePaths": pairs}
        self.assertEqual(self.categories(), [-1, 1, -1, -1])
        pairs[:] = [(os.path.join(self.folder, "impl"), 1)]
        self.run_program()
        self.assertEqual(self.seen.pop(), [0, 1, 0, -1])

    def test_code_that_is_gone_hands_its_category_to_no_other(self):
        # Code objects made and dropped reuse each other's addresses.
        self.register()
        outside = self.folder + "/program.py"
        inside = self.folder + "/impl/made.py"
        wrong = []

        def make(path, expected):
            namespace = {"category": self.category, "frame": sys._getframe}
            exec compile("def f():\n    return category(frame())\n", path, "exec") in namespace
            if namespace["f"]() != expected:
                wrong.append(path)

        def many():
            for i in range(3000):
                make(inside, 0)
                make(outside, -1)
        self.run_program("run(many)\n", many=many)
        self.assertEqual(wrong, [])

    def test_frames_are_unknown_without_an_active_hook(self):
        self.register()
        self.page["fetch"] = lambda value: self.seen.append(self.category(sys._getframe(1)))
        self.page["part"] = lambda value: value
        self.run_program("page(1)\n")
        self.assertEqual(self.seen, [-1])

    def test_unknown_thread_and_what_is_no_frame_are_unknown(self):
        self.register()
        ask = core.sub_language_get_frame_category

        def look(value):
            self.seen.append([ask(self.mine + 8, sys._getframe(1)), ask(self.mine, None),
                              ask(self.mine, 42), ask(self.mine, self.code("page"))])
            return value
        self.page["fetch"] = look
        self.run_program()
        self.assertEqual(self.seen, [[-1] * 4])

    def test_what_is_no_thread_is_an_error(self):
        self.assert_raises(TypeError, None, core.sub_language_get_frame_category, "text",
                           sys._getframe())
        self.assert_raises(IndexError, None, core.sub_language_get_frame_category, self.mine)
        self.assert_raises(IndexError, None, core.sub_language_get_frame_category)

    def test_no_code_runs_once_an_argument_is_missing(self):
        asked = []

        class Id(object):
            def __int__(self):
                asked.append(1)
                return 0
        self.assert_raises(IndexError, None, core.sub_language_get_frame_category, Id())
        self.assertEqual(asked, [])

    def test_key_code_of_another_hook_is_key_code(self):
        other = self.hook(GetMarkerFrames=[self.code("part")],
                          GetSubLanguageFrames=[self.code("page")])
        core.register_sub_language_hook(other)
        self.answers = {"GetSubLanguageFrames": [self.code("part")]}
        self.assertEqual(self.categories(), [0, 1, 0, -1])


class RefreshTest(SubLanguageTestCase):
    """An import may bring new key code."""

    def setUp(self):
        SubLanguageTestCase.setUp(self)
        self.seen = []
        self.keys = [self.code("part")]

    def look(self, value):
        self.seen.append(self.category(sys._getframe(1)))
        return value

    def import_late(self, value):
        self.look_from_page()
        self.keys.append(self.code("page"))
        self.importing()
        self.look_from_page()
        return value

    def look_from_page(self):
        self.seen.append(self.category(sys._getframe(2)))

    def importing(self):
        import colorsys

    def categories(self, import_cb):
        """The category of page() before and after the import, while it becomes key code."""
        self.page["fetch"] = self.import_late
        self.registered = self.register(GetSubLanguageFrames=self.keys)
        self.import_cb = import_cb
        self.run_program("core.set_import_cb(case.import_cb)\nrun(page, 1)\n")
        return self.seen

    def test_key_code_is_asked_for_again_after_import_cb(self):
        self.assertEqual(self.categories(lambda module: None), [-1, 1])
        self.assertEqual(len(self.registered.asked("_GetSubLanguageFrames")), 2)

    def test_key_code_is_asked_for_again_after_a_failing_import_cb(self):
        def fails(module):
            raise ValueError("import_cb")
        self.importing = lambda: self.assert_raises(ValueError, "import_cb", map, __import__,
                                                    ["colorsys"])
        self.assertEqual(self.categories(fails), [-1, 1])

    def test_key_code_is_asked_for_again_when_a_module_is_registered(self):
        self.importing = lambda: core.register_module(sys)
        self.assertEqual(self.categories(lambda module: None), [-1, 1])

    def test_without_import_cb_key_code_is_not_asked_for_again(self):
        self.assertEqual(self.categories(None), [-1, -1])

    def test_outside_the_language_key_code_is_not_asked_for_again(self):
        hook = self.register()
        self.import_cb = lambda module: None
        self.run_program("core.set_import_cb(case.import_cb)\nimport colorsys\n")
        self.assertEqual(len(hook.asked("_GetSubLanguageFrames")), 1)

    def test_failure_to_name_key_code_is_not_seen_by_the_program(self):
        for answer in (ValueError("hook"), None, 42, [], [[]]):
            answers = iter([[self.code("page")], answer])

            def key_code():
                current = answers.next()
                if isinstance(current, Exception):
                    raise current
                return current
            self.registered = self.register(GetSubLanguageFrames=key_code)
            self.import_cb = lambda module: None
            self.page["fetch"] = lambda value: __import__("colorsys") and value
            variables = self.run_program(
                "core.set_import_cb(case.import_cb)\nx = run(page, 1)\n")
            self.assertEqual(variables["x"], 2)
            self.assertEqual(len(self.registered.asked("_GetSubLanguageFrames")), 2)
            self.init()

    def test_error_of_import_cb_stays_whatever_the_hook_raises(self):
        answers = iter([[self.code("page")], ValueError("hook")])

        def key_code():
            current = answers.next()
            if isinstance(current, Exception):
                raise current
            return current

        def fails(module):
            raise KeyError("import_cb")
        self.register(GetSubLanguageFrames=key_code)
        self.import_cb = fails
        self.page["fetch"] = lambda value: self.assert_raises(
            KeyError, "'import_cb'", map, __import__, ["colorsys"]) and value
        self.assertEqual(self.run_program(
            "core.set_import_cb(case.import_cb)\nx = run(page, 1)\n")["x"], 2)
