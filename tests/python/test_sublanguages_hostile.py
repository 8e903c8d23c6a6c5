"""Sub-language hooks that misbehave: the program goes on, and nothing is left behind."""

import gc
import sys
import weakref

import harness
from harness import core
from sublanguage_case import Hook, SubLanguageTestCase

METHODS = ["_GetMarkerFrames", "_GetModulePaths", "_GetSubLanguageFrames", "_StopHere",
           "_TranslateFrame", "_GetStepOutFrame", "_Eval"]


class HostileTestCase(SubLanguageTestCase):

    # Every method comes up: breakpoints with conditions, steps of all kinds, exceptions.
    SOURCE = """\
x = run(page, 1)
try:
    run(part, None)
except TypeError:
    pass
y = run(page, x)
"""

    def setUp(self):
        SubLanguageTestCase.setUp(self)
        self.acted = 0

    def willing(self, **changes):
        """A hook that answers everything so that every method is called."""
        answers = {
            "StopHere": lambda frame, event, kind: kind == 1 or event == -1,
            "TranslateFrame": lambda frame, flag: ("page.lang", frame.f_lineno),
            "GetStepOutFrame": lambda frame: frame.f_back}
        answers.update(changes)
        return self.hook(**answers)

    def run_with(self, hook):
        """Runs the program with a hook, which is not referenced from here afterwards."""
        core.register_sub_language_hook(hook)
        del hook
        for line in (2, 3, 8):
            core.set_break("page.lang", line, 1, 0, "n > 0", 0)
        core.set_exception_mode(1)
        self.requests = ["step_into", "step_over", "step_over_line", self.step_out] * 10
        del self.stops[:]
        variables = self.run_program(self.SOURCE, "step_into")
        self.assertEqual((variables["x"], variables["y"]), (2, 3))
        self.init()

    def step_out(self, frame):
        try:
            core.step_out()
        except (Exception, SystemExit, KeyboardInterrupt):
            core.step_into()

    def misbehave(self, action):
        """Runs the program once for each method that does this before it answers as it should;
        all of them get their turn."""
        for name in METHODS:
            self.acted = 0
            self.run_with(self.misbehaving(name, action))
            self.assertEqual((name, self.acted > 0), (name, True))

    def misbehaving(self, name, action, answers_too=True):
        hook = self.willing()
        willing_answer = hook.answers[name]
        acting = []

        def act(*arguments):
            self.acted += 1
            # What it does may have it called again.
            if not acting:
                acting.append(1)
                try:
                    result = action()
                finally:
                    acting.pop()
                if not answers_too:
                    return result
            if callable(willing_answer):
                return willing_answer(*arguments)
            return willing_answer
        hook.answers[name] = act
        return hook


class AnswersTest(HostileTestCase):

    def answer(self, value):
        for name in METHODS:
            self.acted = 0
            self.run_with(self.misbehaving(name, lambda: value, answers_too=False))
            self.assertEqual((name, self.acted > 0), (name, True))

    def test_nothing(self):
        self.answer(None)

    def test_numbers_and_texts(self):
        for value in (0, 1, -1, 2 ** 70, 1.5, "", "text", u"\u20ac"):
            self.answer(value)

    def test_containers(self):
        for value in ((), [], {}, (1, 2), [1, 2], [()], [(1, 2)], [("", 1)], [None], ("a", 1)):
            self.answer(value)

    def test_objects_that_fail_at_everything(self):
        class Failing(object):
            def fail(self, *arguments):
                raise ValueError("fails")
            __hash__ = __cmp__ = __nonzero__ = __len__ = __getitem__ = __int__ = __str__ = fail
            __getattribute__ = __iter__ = fail
        self.answer(Failing())
        self.answer([Failing()])
        self.answer([(Failing(), Failing())])
        self.answer((Failing(), Failing()))

    def test_subclasses_that_lie_about_themselves(self):
        class List(list):
            def __len__(self):
                return 10 ** 6

            def __getitem__(self, index):
                raise ValueError("item")
        self.answer(List([self.code("run")]))
        self.answer(List([]))

        class Tuple(tuple):
            def __len__(self):
                return 10 ** 6
        self.answer(Tuple(("page.lang", 3)))
        self.answer([Tuple(("page.lang", 3))])

    def test_lists_that_change_while_they_are_read(self):
        codes = []

        class Changing(object):
            def __hash__(self):
                del codes[:]
                return 1
        for name in "_GetMarkerFrames", "_GetSubLanguageFrames":
            codes[:] = [Changing(), Changing(), self.code("run")] * 10
            self.run_with(self.misbehaving(name, lambda: codes, answers_too=False))
            self.assertEqual(codes, [])

    def test_paths_that_change_while_they_are_read(self):
        paths = []

        class Number(object):
            def __int__(self):
                del paths[:]
                return 0
        paths[:] = [("nowhere", Number()), ("", 0)] * 5
        self.run_with(self.misbehaving("_GetModulePaths", lambda: paths, answers_too=False))
        self.assertEqual(paths, [])

    def test_exceptions(self):
        for error in (ValueError("hook"), SystemExit(1), KeyboardInterrupt(), MemoryError(),
                      StopIteration(), GeneratorExit()):
            def fail():
                raise error
            self.misbehave(fail)

    def test_recursion_without_end(self):
        def recurse():
            return recurse()
        self.misbehave(recurse)


class ActionsTest(HostileTestCase):

    def test_reset(self):
        self.misbehave(core.reset)

    def test_destroy(self):
        self.misbehave(core.destroy)

    def test_stop_trace(self):
        self.misbehave(core.stop_trace)

    def test_stop_and_start_trace(self):
        def again():
            core.stop_trace()
            core.start_trace()
        self.misbehave(again)

    def test_end_of_the_threads_record(self):
        self.misbehave(core.thread_exiting)

    def test_start_of_the_threads_record(self):
        self.misbehave(lambda: core.bootstrap_new_thread(sys._getframe(), "line", None))

    def test_trace_function_taken_away(self):
        self.misbehave(lambda: sys.settrace(None))

    def test_events_let_in(self):
        def let_in():
            core.add_to_tstate_tracing(-1)
            x = 1
            core.add_to_tstate_tracing(1)
        self.misbehave(let_in)

    def test_mutex_given_away(self):
        def give_away():
            core.release_sorrel_mutex()
            core.acquire_sorrel_mutex()
        self.misbehave(give_away)

    def test_requests(self):
        for request in ("step_into", "step_over", "step_over_line", "continue_run", "stop"):
            self.misbehave(getattr(core, request))

    def test_breakpoints_cleared_and_set(self):
        def change():
            core.clear_all_breaks()
            core.set_break("page.lang", 3, 1, 1, "n", 0)
        self.misbehave(change)

    def test_changed_breakpoints_taken(self):
        self.misbehave(core.get_changed_bps_lists)

    def test_another_hook_registered(self):
        self.misbehave(lambda: core.register_sub_language_hook(self.willing()))

    def test_hooks_registered_without_end(self):
        def action():
            if self.acted < 1000:
                hook = self.misbehaving("_GetMarkerFrames", action)
                core.register_sub_language_hook(hook)
        self.run_with(self.misbehaving("_GetMarkerFrames", action))

    def test_imports(self):
        def action():
            core.set_import_cb(lambda module: None)
            __import__("colorsys")
            core.register_module(sys)
        self.misbehave(action)

    def test_questions_about_itself(self):
        def action():
            frame = sys._getframe()
            while frame is not None:
                core.sub_language_get_frame_category(self.mine, frame)
                frame = frame.f_back
            core.sub_language_get_active_hook(self.mine)
        self.misbehave(action)

    def test_collection_of_garbage(self):
        self.misbehave(gc.collect)


class LastReferenceTest(HostileTestCase):
    """The core's references are the only ones, and the hook has them dropped."""

    def test_init_in_every_method(self):
        for name in METHODS:
            self.hook_ended = []
            hook = self.misbehaving(name, self.forget_everything)
            self.reference = weakref.ref(hook)
            acted = self.acted
            core.register_sub_language_hook(hook)
            del hook
            for line in (2, 3, 8):
                core.set_break("page.lang", line, 1, 0, "n > 0", 0)
            self.requests = ["step_into", "step_over", "step_over_line", self.step_out] * 10
            variables = self.run_program(self.SOURCE, "step_into")
            self.assertEqual((variables["x"], variables["y"]), (2, 3))
            self.assertEqual(self.acted > acted, True)
            self.init()
            gc.collect()
            self.assert_is(self.reference(), None)

    def forget_everything(self):
        self.init()
        core.reset()
        gc.collect()
        core.start_trace()
        core.step_into()


class KeysTest(HostileTestCase):
    """Things beside code objects among the key code, which are compared with every frame's."""

    def with_key(self, name, action, equal):
        """Runs the program with something that has a code object's hash and does something when
        it is compared with one."""
        acted = []

        class Key(object):
            def __hash__(self):
                return hash(code)

            def __eq__(self, other):
                if acting:
                    acted.append(1)
                    action()
                return equal
        for function in "run", "page", "part":
            code = self.code(function)
            acting = []

            def answer(*arguments):
                acting.append(1)
                return [Key()]
            hook = self.willing()
            hook.answers[name] = answer
            self.run_with(hook)
        self.assertEqual(len(acted) > 0, True)

    def test_comparison_that_ends_the_threads_record(self):
        for name in "_GetMarkerFrames", "_GetSubLanguageFrames":
            for equal in (False, True):
                self.with_key(name, core.thread_exiting, equal)

    def test_comparison_that_forgets_the_hooks(self):
        for name in "_GetMarkerFrames", "_GetSubLanguageFrames":
            for equal in (False, True):
                self.with_key(name, self.init_and_go_on, equal)

    def init_and_go_on(self):
        self.init()
        core.start_trace()

    def test_hook_whose_hash_ends_the_threads_record(self):
        case = self

        class Hashing(Hook):
            acting = False

            def __hash__(self):
                if self.acting:
                    case.acted += 1
                    core.thread_exiting()
                return 1
        hook = Hashing()
        hook.answers = self.willing().answers
        start = len(self.server.stream.messages)

        def stop_here(frame, event, kind):
            hook.acting = event == 1
            return False
        hook.answers["_StopHere"] = stop_here
        core.register_sub_language_hook(hook)
        self.run_program(self.SOURCE, "step_into")
        self.assertEqual(self.acted > 0, True)
        messages = self.server.stream.messages[start:]
        self.assert_in("ERROR: UNEXPECTED thread_data == NULL (while still tracing)!\n", messages)

    def test_hook_whose_comparison_forgets_the_hooks(self):
        case = self

        class Comparing(Hook):
            def __hash__(self):
                return 1

            def __eq__(self, other):
                case.acted += 1
                case.init_and_go_on()
                return False
        for _ in range(3):
            for number in range(2):
                hook = Comparing()
                hook.answers = self.willing().answers
                core.register_sub_language_hook(hook)
            del hook
            variables = self.run_program(self.SOURCE, "step_into")
            self.assertEqual((variables["x"], variables["y"]), (2, 3))
            self.init()
        self.assertEqual(self.acted > 0, True)


class LeakTest(HostileTestCase):

    def assert_steady(self, *hooks):
        """Many runs of the program leave nothing behind."""
        if not hasattr(sys, "gettotalrefcount"):
            self.skip("a release build does not count references")
        # A stream would keep what is written.
        self.arguments, self.server.stream = [], None
        self.init()

        def runs(number):
            for _ in range(number):
                for make in hooks:
                    self.run_with(make())
                    del self.exceptions[:], self.stops[:], self.server.hooks[:]
            gc.collect()
            return sys.gettotalrefcount()
        before = runs(5)
        grown = runs(15) - before
        self.assertEqual((grown, grown < 20), (grown, True))

    def test_willing_hook(self):
        self.assert_steady(self.willing)

    def test_failing_hooks(self):
        def fail():
            raise ValueError("hook")
        self.assert_steady(*[lambda name=name: self.misbehaving(name, fail) for name in METHODS])

    def test_hooks_that_answer_nonsense(self):
        for value in (None, 42, (), [], [42], ("a",), [[]], ("page.lang", "3")):
            self.assert_steady(*[lambda name=name: self.misbehaving(name, lambda: value, False)
                                 for name in METHODS])

    def test_hooks_that_register_others(self):
        self.assert_steady(lambda: self.misbehaving(
            "_StopHere", lambda: core.register_sub_language_hook(self.willing())))

    def test_hooks_that_reset_the_core(self):
        self.assert_steady(*[lambda name=name: self.misbehaving(name, core.reset)
                             for name in METHODS])
