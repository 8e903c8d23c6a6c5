"""Nothing grows: cycles of what a debug server does leave no references behind."""

import functools
import gc
import sys
import threading

import harness
from harness import core

PROGRAM = """\
def inner(n):
    return n + 1

def outer():
    try:
        raise ValueError(inner(1))
    except ValueError as error:
        return str(error)

r = outer()
"""


class ReferencesTest(harness.CoreTestCase):

    def setUp(self):
        harness.CoreTestCase.setUp(self)
        if not hasattr(sys, "gettotalrefcount"):
            self.skip("counts of references need a debug build")
        path = self.script(PROGRAM)
        self.code = compile(PROGRAM, path, "exec")
        self.server.program = path
        self.server.stream = None

    def repeatable_init(self, **changes):
        """init() with the same objects each time: others it would keep, each once, for good."""
        return functools.partial(core.init, *self.server.init_arguments(**changes))

    def assert_steady(self, cycle, times=200):
        """Counts stay where they are once everything that is made once is made."""
        for _ in range(20):
            cycle()
        counts = []
        for _ in range(4):
            for _ in range(times // 4):
                cycle()
            del self.server.stops[:]
            del self.server.changed_bps[:]
            del self.server.hooks[:]
            del self.server.exceptions[:]
            gc.collect()
            counts.append(sys.gettotalrefcount())
        growth = [after - before for before, after in zip(counts, counts[1:])]
        # Numbers and strings that happen to be about make a few, a thread that is not quite over
        # makes more for once; a leak makes one each cycle.
        if sorted(growth)[1] >= times // 4:
            self.fail("references grow by %r in %d cycles" % (growth, times // 4))

    def debug_once(self, *requests):
        self.server.requests = list(requests)
        core.start_trace()
        core.step_into()
        exec self.code in {}
        core.stop_trace()
        # Each run of a module is remembered until it is asked for.
        core.get_new_imports()

    def test_init_start_step_stop_reset(self):
        init = self.repeatable_init()

        def cycle():
            init()
            self.debug_once(*["step_into", "step_over", "step_into", "step_out",
                              ("step_over_line_range", 1, 20), "step_over_line", "stop"] * 3)
            core.reset()
        self.assert_steady(cycle)

    def test_start_and_stop_alone(self):
        self.server.init()

        def cycle():
            core.start_trace()
            core.stop_trace()
        self.assert_steady(cycle)

    def test_destroy(self):
        init = self.repeatable_init()

        def cycle():
            init()
            self.debug_once("step_into", "continue_run")
            core.destroy()
        self.assert_steady(cycle)

    def test_diagnostic_output(self):
        class Stream(object):
            def write(self, text):
                pass

            def flush(self):
                return text

        text = "returned by flush"
        self.server.stream = Stream()

        init = self.repeatable_init()

        def cycle():
            init()
            self.debug_once(*["step_into"] * 20)
        self.assert_steady(cycle)

    def test_failing_callbacks(self):
        def fail(frame):
            raise ValueError(frame.f_lineno)
        self.server.init()

        def cycle():
            self.debug_once("step_into", "step_into", fail)
            core.reset()
            # Stopped as inner() returns.
            self.debug_once(*["step_into"] * 7 + [fail])
            core.reset()
        self.assert_steady(cycle)

    def test_failing_hooks_callback(self):
        def fail(on):
            raise ValueError(on)
        self.server.init(install_thread_hooks_cb=fail)

        def cycle():
            for function in (core.start_trace, core.stop_trace, core.reset):
                try:
                    function()
                except ValueError:
                    pass
        self.assert_steady(cycle)

    def test_refused_arguments(self):
        self.server.init()

        def refused(name, *arguments):
            try:
                getattr(core, name)(*arguments)
            except (TypeError, IndexError):
                return
            self.fail(name)

        def cycle():
            arguments = self.server.init_arguments()
            for at in range(2, 9):
                refused("init", *(arguments[:at] + [0] + arguments[at + 1:]))
            for name in ("init", "get_curr_frame", "get_thread_name", "is_botframe",
                         "set_debug_thread_cb", "raise_exception", "trace_dispatch",
                         "step_over_line_range", "locals_to_fast", "get_frame_file"):
                refused(name)
            refused("stop_trace", 1)
            refused("get_thread_name", "x")
        self.assert_steady(cycle)

    def test_planted_exceptions(self):
        def plant(frame):
            core.raise_exception(0, ValueError("first"))
            core.raise_exception(0, None)
            core.raise_exception(0, ValueError("second"))
            core.step_into()

        init = self.repeatable_init()

        def cycle():
            init()
            # Stopped in inner(), which is called in outer()'s try block.
            self.debug_once(*["step_into"] * 6 + [plant] + ["step_into"] * 20)
            core.raise_exception(0, ValueError("dropped"))
            core.reset()
        self.assert_steady(cycle)

    def test_thread_policy(self):
        answers = [0, 1, 2, None, ValueError("policy")]

        init = self.repeatable_init()

        def cycle():
            init()
            for answer in answers:
                def policy(ident):
                    if isinstance(answer, Exception):
                        raise answer
                    return answer
                core.set_debug_thread_cb(policy)
                self.debug_once("step_into", "step_into")
            core.set_debug_thread_cb(None)
            core.reset()
        self.assert_steady(cycle, 100)

    def test_idle_and_quit_callbacks(self):
        init = self.repeatable_init(idle_period=1.0)

        def cycle():
            # init() forgets when the idle callback was last called.
            init()
            self.debug_once(*["step_into"] * 20)
            core.start_trace()
            harness.run_bare_thread(
                functools.partial(sys.settrace, core.bootstrap_new_thread), lambda: None,
                functools.partial(sys.settrace, None), core.thread_exiting)
            core.stop_trace()
        self.assert_steady(cycle, 100)
        self.assertEqual(self.server.idle_calls >= 100, True)
        self.assertEqual(self.server.quit_calls >= 100, True)

    def test_threads_that_come_and_go(self):
        def body():
            inner = lambda n: n + 1
            inner(1)
            core.thread_exiting()

        init = self.repeatable_init(install_thread_hooks_cb=harness.trace_new_threads)

        def cycle():
            init()
            core.start_trace()
            threads = [threading.Thread(target=body) for _ in range(3)]
            for each in threads:
                each.start()
            for each in threads:
                each.join()
            core.stop_trace()
            core.reset()
        self.assert_steady(cycle, 100)

    def test_inspection(self):
        self.server.init()

        def look(frame):
            mine = core.get_current_tstate_id()
            core.get_threads()
            core.get_curr_frame(mine)
            core.get_thread_name(mine)
            core.get_thread_ident_for_tstate_id(mine)
            core.is_botframe(frame)
            core.is_internal_frame(frame)
            core.get_frame_file(frame)
            core.locals_to_fast(frame)
            core.trace_dispatch(frame, "line", None)
            core.trace_dispatch(frame, "x", None)
            core.step_into()

        def cycle():
            self.debug_once(*[look] * 10)
        self.assert_steady(cycle)
