"""Exceptions and the policy's settings leave no references behind."""

import gc
import sys

from exception_case import (ALWAYS, NEVER, PRINTED, UNHANDLED, CatchInfo, ExceptionTestCase)
from harness import core

PROGRAM = """\
import types
class Mine(ValueError):
    pass
class Old:
    pass
class Holder(object):
    Error = Mine
module = types.ModuleType("module")
module.Error = Mine
holder = Holder()
pair = (Old, Mine)
def generator():
    try:
        yield 1
    finally:
        pass
def f(n):
    local = Mine
    for kind in (Mine, Old, KeyError, Mine(1)):
        try:
            try:
                if n:
                    f(n - 1)
                raise kind
            except (LookupError, module.Missing if 0 else Old):
                pass
            except undefined_or_not:
                pass
            except local:
                for i in generator():
                    break
        except (holder.Error, pair):
            pass
undefined_or_not = OSError
f(2)
try:
    f(2) or [].pop()
except IndexError:
    pass
"""


class ReferencesTest(ExceptionTestCase):

    def setUp(self):
        ExceptionTestCase.setUp(self)
        if not hasattr(sys, "gettotalrefcount"):
            self.skip("counts of references need a debug build")
        self.code = self.compiled(PROGRAM)

    def exception(self, frame, exc_info, changed_bps):
        if self.at_stop is not None:
            self.at_stop(frame)

    def assert_steady(self, cycle, times=60):
        """Counts stay where they are once everything that is made once is made."""
        for _ in range(10):
            cycle()
        counts = []
        for _ in range(4):
            for _ in range(times // 4):
                cycle()
            self.stream.clear()
            del self.server.hooks[:]
            gc.collect()
            counts.append(sys.gettotalrefcount())
        growth = [after - before for before, after in zip(counts, counts[1:])]
        # Numbers and strings that happen to be about make a few; a leak makes one each cycle.
        if max(growth) >= times // 4:
            self.fail("references grow by %r in %d cycles" % (growth, times // 4))

    def run_here(self, mode):
        core.set_exception_mode(mode)
        core.start_trace()
        core.continue_run()
        exec self.code in {"__name__": "program"}
        core.stop_trace()
        # Each run of a module is remembered until it is asked for.
        core.get_new_imports()

    def test_exceptions_in_every_mode(self):
        for stream in (None, self.stream):
            self.init(debug_stream=stream)
            for mode in (NEVER, ALWAYS, UNHANDLED, PRINTED):
                self.assert_steady(lambda: self.run_here(mode))

    def test_settings_that_are_made_again_and_again(self):
        def cycle():
            core.set_always_stop_excepts((KeyError, ValueError))
            core.set_never_stop_excepts((OSError,))
            core.set_ignored_exception_handlers({self.code: 1})
            core.set_exc_catch_info_list([CatchInfo("f"), CatchInfo("g", parent=True)])
            for line in range(5, 50):
                core.ignore_exception_loc(self.code.co_filename, line, 1)
                core.ignore_exception_loc(self.code.co_filename, (line, line), 1)
            core.exception_loc_ignored(self.code.co_filename, 12)
            self.run_here(UNHANDLED)
            core.get_always_stop_excepts()
            core.get_never_stop_excepts()
            for line in range(5, 20):
                core.ignore_exception_loc(self.code.co_filename, line, 0)
            core.clear_exception_ignores()
            core.set_always_stop_excepts(())
            core.set_never_stop_excepts(())
        self.assert_steady(cycle)

    def test_frames_that_print_and_instances_that_lie(self):
        class Liar(CatchInfo):
            @property
            def prints(self):
                raise KeyError("prints")

            @prints.setter
            def prints(self, value):
                pass

        def cycle():
            core.set_exc_catch_info_list(
                [CatchInfo("f", mod_name=None), CatchInfo("f", mod_name="elsewhere"),
                 CatchInfo("f", containing_class="Holder"), Liar("f")])
            self.run_here(PRINTED)
            core.set_exc_catch_info_list([CatchInfo("f", containing_class=7)])
            self.run_here(PRINTED)
            core.set_exc_catch_info_list([CatchInfo("f", parent=True)])
            self.run_here(PRINTED)
            for wrong in ([object()], [CatchInfo([])]):
                try:
                    core.set_exc_catch_info_list(wrong)
                except (AttributeError, TypeError):
                    sys.exc_clear()
        self.assert_steady(cycle, times=40)

    def test_failing_callbacks(self):
        def fail(frame):
            raise RuntimeError("of the server")
        self.at_stop = fail

        def cycle():
            self.run_here(ALWAYS)
            core.set_exc_catch_info_list([CatchInfo("f", parent=True)])
            self.run_here(PRINTED)
        self.assert_steady(cycle)

    def test_refused_arguments(self):
        def cycle():
            for call, arguments in (
                    (core.ignore_exception_loc, ("a.py", "line", 1)),
                    (core.ignore_exception_loc, ("a.py", (1,), 1)),
                    (core.ignore_exception_loc, ("a.py", 2 ** 70, 1)),
                    (core.exception_loc_ignored, ("a.py", None)),
                    (core.set_always_stop_excepts, ([],)), (core.set_never_stop_excepts, (1,)),
                    (core.set_exc_catch_info_list, ((),)), (core.set_exception_mode, ("1",))):
                try:
                    call(*arguments)
                except (TypeError, IndexError, OverflowError):
                    sys.exc_clear()
            core.clear_exception_ignores()
        self.assert_steady(cycle)

    def test_recorded_exceptions_that_are_let_go_of(self):
        source = "def f():\n    try:\n        [].pop()\n    except IndexError:\n" \
                 "        core.stop_trace()\n"

        def cycle():
            variables = {"core": core}
            exec source in variables
            for i in range(3):
                core.start_trace()
                core.continue_run()
                variables["f"]()
            core.reset()
        self.assert_steady(cycle)
