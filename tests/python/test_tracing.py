"""Turning tracing on and off: frames, bottom frames, names, hooks, statistics."""

import functools
import os
import sys
import thread
import threading

import harness
from harness import core

STATISTICS = ("STOP TRACE AFTER ", " IMPORT HOOK CALLS WERE MADE\n",
              " UNIQUE IMPORTS WERE MADE\n")


def stack(frame):
    frames = []
    while frame is not None:
        frames.append(frame)
        frame = frame.f_back
    return frames


def user_trace(frame, event, argument):
    return user_trace


class StartTraceTest(harness.CoreTestCase):

    def setUp(self):
        harness.CoreTestCase.setUp(self)
        self.server.init()
        self.server.stream.clear()

    def tearDown(self):
        core.stop_trace()
        harness.CoreTestCase.tearDown(self)

    def test_start_returns_none_and_calls_the_hooks_callback_with_1(self):
        self.assertEqual(core.start_trace(), None)
        self.assertEqual(self.server.hooks, [1])
        self.assertEqual(type(self.server.hooks[0]), int)

    def test_start_installs_the_trace_in_the_calling_thread(self):
        core.start_trace()
        self.assert_is(sys.gettrace(), core.trace_dispatch)

    def test_start_hooks_every_frame_of_the_calling_thread(self):
        def inner():
            core.start_trace()
        inner()
        for frame in stack(sys._getframe()):
            self.assert_is(frame.f_trace, core.trace_dispatch)

    def test_start_replaces_a_trace_function_that_a_frame_has(self):
        sys._getframe().f_trace = user_trace
        core.start_trace()
        self.assert_is(sys._getframe().f_trace, core.trace_dispatch)

    def test_start_logs_each_frame_from_the_innermost(self):
        core.start_trace()
        messages = list(self.server.stream.messages)
        depth = len(stack(sys._getframe()))
        self.assertEqual(messages[0], "START TRACING\n")
        inserting = self.server.stream.starting("\tinserting into thread state ")
        self.assertEqual(len(inserting), depth)
        states = set([text.split(";")[0] for text in inserting])
        self.assertEqual(len(states), 1)
        frames = [int(text.split("frame = ")[1], 16) for text in inserting]
        self.assertEqual(frames, [id(frame) for frame in stack(sys._getframe())])

    def test_start_hooks_every_frame_of_other_threads(self):
        frames = []
        ready, leave = threading.Event(), threading.Event()

        def other():
            frames.extend(stack(sys._getframe()))
            ready.set()
            leave.wait()
        runner = threading.Thread(target=other)
        runner.start()
        ready.wait()
        core.start_trace()
        hooked = [frame.f_trace is core.trace_dispatch for frame in frames]
        leave.set()
        runner.join()
        self.assertEqual(len(hooked) >= 3, True)
        self.assertEqual(hooked, [True] * len(hooked))

    def test_frames_that_were_there_before_are_at_the_lines_they_are_at(self):
        def lines():
            return [frame.f_lineno for frame in stack(sys._getframe(2))]

        def inner():
            before = lines()
            core.start_trace()
            return before, lines()
        before, after = inner()
        self.assertEqual(after, before)
        self.assertEqual(before[0] > sys._getframe().f_code.co_firstlineno, True)

    def test_generators_that_were_there_before_are_at_the_line_they_are_at(self):
        def generate():
            yield [(yield None), sys._getframe().f_lineno]
        generators = [generate() for _ in range(3)]
        for generator in generators:
            generator.next()
        here = generators.pop().next()
        self.server.init(debug_stream=None)
        core.start_trace()
        # The code is known when the second one goes on.
        self.assertEqual([generator.next() for generator in generators], [here, here])

    def test_outermost_frame_is_the_bottom_frame(self):
        core.start_trace()
        frames = stack(sys._getframe())
        self.assertEqual([core.is_botframe(frame) for frame in frames],
                         [0] * (len(frames) - 1) + [1])

    def test_second_start_only_logs(self):
        core.start_trace()
        self.server.stream.clear()
        self.assertEqual(core.start_trace(), None)
        self.assertEqual(self.server.hooks, [1])
        self.assertEqual(self.server.stream.count("START TRACING\n"), 1)
        self.assertEqual(self.server.stream.starting("\tinserting"), [])

    def test_second_start_keeps_the_event_count(self):
        self.server.init(install_thread_hooks_cb=[].append)
        once = self.events_of("core.start_trace()\nx = 1\ny = 2\ncore.stop_trace()\n")
        twice = self.events_of("core.start_trace()\nx = 1\ncore.start_trace()\n"
                               "core.stop_trace()\n")
        self.assertEqual(twice, once)

    def test_event_count_is_of_calls_lines_and_returns(self):
        # A hooks callback in Python would have events of its own.
        self.server.init(install_thread_hooks_cb=[].append)
        nothing = self.events_of("core.start_trace()\ncore.stop_trace()\n")
        # The line of stop_trace(); 2.6 also reports the rest of the line before.
        self.assert_in(nothing, (1, 2))
        self.assertEqual(self.events_of("core.start_trace()\nx = 1\ncore.stop_trace()\n"),
                         nothing + 1)
        self.assertEqual(self.events_of("f = lambda: 1\ncore.start_trace()\nf()\n"
                                        "core.stop_trace()\n"), nothing + 4)

    def test_event_count_starts_anew_at_each_start(self):
        self.server.init(install_thread_hooks_cb=[].append)
        counts = []
        for _ in range(3):
            counts.append(self.events_of("core.start_trace()\ncore.stop_trace()\n"))
        self.assertEqual(counts, counts[:1] * 3)

    def events_of(self, source):
        self.server.stream.clear()
        exec compile(source, self.script(source), "exec") in {"core": core}
        message, = self.server.stream.starting("STOP TRACE AFTER ")
        count = message[len("STOP TRACE AFTER "):-len(" INSTRUCTIONS\n")]
        return int(count)

    def test_failing_hooks_callback_comes_out_of_start(self):
        def fail(on):
            raise ValueError("hooks %d" % on)
        self.server.init(install_thread_hooks_cb=fail)
        self.assert_raises(ValueError, "hooks 1", core.start_trace)
        # Tracing is on all the same.
        self.assert_is(sys.gettrace(), core.trace_dispatch)
        self.assert_raises(ValueError, "hooks 0", core.stop_trace)
        self.server.init()

    def test_thread_that_has_a_trace_function_follows_at_its_next_event(self):
        seen = []
        done = threading.Event()
        go = thread.allocate_lock()
        go.acquire()

        def other():
            sys.settrace(user_trace)
            body()

        def body():
            go.acquire()
            seen.append(sys.gettrace())
            done.set()

        def is_waiting():
            # In the trace function it would put that one back into the frame afterwards.
            frame = sys._current_frames().get(ident)
            return (frame is not None and frame.f_code is body.func_code
                    and frame.f_lineno == frame.f_code.co_firstlineno + 1)
        ident = thread.start_new_thread(other, ())
        self.assertEqual(harness.wait_until(is_waiting), True)
        core.start_trace()
        go.release()
        self.assertEqual(harness.wait_until(done.isSet), True)
        self.assert_is(seen[0], core.trace_dispatch)


class StopTraceTest(harness.CoreTestCase):

    def setUp(self):
        harness.CoreTestCase.setUp(self)
        self.server.init()

    def test_stop_returns_none_and_calls_the_hooks_callback_with_0(self):
        core.start_trace()
        self.assertEqual(core.stop_trace(), None)
        self.assertEqual(self.server.hooks, [1, 0])
        self.assertEqual(type(self.server.hooks[1]), int)

    def test_stop_takes_the_trace_out_of_thread_and_frames(self):
        core.start_trace()
        core.stop_trace()
        self.assertEqual(sys.gettrace(), None)
        for frame in stack(sys._getframe()):
            self.assertEqual(frame.f_trace, None)

    def test_stop_logs_the_statistics_and_then_each_frame(self):
        core.start_trace()
        self.server.stream.clear()
        core.stop_trace()
        messages = self.server.stream.messages
        start = [at for at, text in enumerate(messages) if text.startswith(STATISTICS[0])][0]
        self.assertEqual(messages[start].endswith(" INSTRUCTIONS\n"), True)
        self.assertEqual(messages[start + 1:start + 4],
                         ["0 IMPORT HOOK CALLS WERE MADE\n", "0 UNIQUE IMPORTS WERE MADE\n",
                          "in __tracer_stop_trace()\n"])
        removing = messages[start + 4:]
        self.assertEqual([text.split("0x")[0] for text in removing],
                         ["\tremoving from thread state; frame = "]
                         * len(stack(sys._getframe())))
        self.assertEqual([int(text.split("frame = ")[1], 16) for text in removing],
                         [id(frame) for frame in stack(sys._getframe())])

    def test_stop_with_an_argument_logs_the_statistics_and_raises(self):
        core.start_trace()
        self.server.stream.clear()
        self.assert_raises(TypeError, None, core.stop_trace, 1)
        trace = sys.gettrace()
        statistics = [text for text in list(self.server.stream.messages)
                      if text.startswith(STATISTICS[0]) or text.endswith(STATISTICS[1:])]
        core.stop_trace()
        self.assertEqual(len(statistics), 3)
        # It did not stop anything.
        self.assert_is(trace, core.trace_dispatch)
        self.assertEqual(self.server.hooks, [1, 0])

    def test_stop_without_start_does_all_its_steps(self):
        self.server.stream.clear()
        self.assertEqual(core.stop_trace(), None)
        self.assertEqual(self.server.hooks, [0])
        self.assertEqual(self.server.stream.messages, [
            "STOP TRACE AFTER 0 INSTRUCTIONS\n", "0 IMPORT HOOK CALLS WERE MADE\n",
            "0 UNIQUE IMPORTS WERE MADE\n", "in __tracer_stop_trace()\n"])

    def test_stop_twice_calls_the_hooks_callback_twice(self):
        core.start_trace()
        core.stop_trace()
        core.stop_trace()
        self.assertEqual(self.server.hooks, [1, 0, 0])

    def test_stop_leaves_trace_functions_of_frames_that_are_not_the_cores(self):
        core.start_trace()
        sys._getframe().f_trace = user_trace
        core.stop_trace()
        self.assert_is(sys._getframe().f_trace, user_trace)

    def test_stop_leaves_the_trace_function_of_an_ignored_thread(self):
        seen = []
        ready, go, done = threading.Event(), threading.Event(), threading.Event()

        def trace(frame, event, argument):
            if event == "line" and go.isSet():
                seen.append(frame.f_lineno)
            return trace

        def other():
            sys.settrace(trace)
            body()

        def body():
            ready.set()
            go.wait()
            late()
            done.set()

        def late():
            return sys.gettrace() is trace and seen.append("mine")
        main = thread.get_ident()
        core.set_debug_thread_cb(lambda ident: ident == main)
        core.start_trace()
        thread.start_new_thread(other, ())
        ready.wait()
        core.stop_trace()
        go.set()
        self.assertEqual(harness.wait_until(done.isSet), True)
        self.assert_in("mine", seen)
        self.assertEqual(len(seen) > 2, True)

    def test_failing_hooks_callback_comes_out_of_stop(self):
        def fail(on):
            if not on:
                raise KeyError("hooks")
        self.server.init(install_thread_hooks_cb=fail)
        core.start_trace()
        self.assert_raises(KeyError, "'hooks'", core.stop_trace)
        self.assertEqual(sys.gettrace(), None)

    def test_another_thread_is_untraced_at_its_next_event(self):
        seen = []
        ready, go, done = threading.Event(), threading.Event(), threading.Event()

        def other():
            ready.set()
            go.wait()
            seen.append(sys.gettrace())
            seen.append(sys._getframe().f_trace)
            done.set()
        self.server.init(install_thread_hooks_cb=harness.trace_new_threads)
        core.start_trace()
        runner = threading.Thread(target=other)
        runner.start()
        ident = []
        ready.wait()
        ident = runner.ident
        core.stop_trace()
        self.server.stream.clear()
        go.set()
        runner.join()
        self.assertEqual(seen, [None, None])
        self.assert_in("trace_dispatch called while not tracing; thread = %d\n" % ident,
                       self.server.stream.messages)
        self.assertEqual(
            self.server.stream.count("TRACER STOPPED WHILE WAITING FOR MUTEX\n"), 1)


class NewThreadTest(harness.CoreTestCase):

    def setUp(self):
        harness.CoreTestCase.setUp(self)
        self.server.init(install_thread_hooks_cb=harness.trace_new_threads)

    def run_thread(self, target):
        runner = threading.Thread(target=target)
        runner.start()
        runner.join()

    def test_thread_that_starts_while_tracing_is_traced(self):
        seen = []

        def body():
            seen.append(sys.gettrace())
            seen.append(sys._getframe().f_trace)
        core.start_trace()
        self.run_thread(body)
        core.stop_trace()
        self.assert_is(seen[0], core.trace_dispatch)
        self.assert_is(seen[1], core.trace_dispatch)

    def test_new_thread_has_a_record_until_it_says_that_it_exits(self):
        seen = []

        def body():
            mine = core.get_current_tstate_id()
            seen.append(core.get_threads().count(mine))
            core.add_to_tstate_tracing(1)
            core.thread_exiting()
            seen.append(core.get_threads().count(mine))
            core.add_to_tstate_tracing(-1)
        core.start_trace()
        self.run_thread(body)
        core.stop_trace()
        self.assertEqual(seen, [1, 0])

    def test_thread_exiting_returns_none_and_may_come_again(self):
        self.assertEqual(core.thread_exiting(), None)
        self.assertEqual(core.thread_exiting("any", "arguments"), None)

    def test_bootstrap_takes_the_arguments_of_a_trace_function_and_answers_like_one(self):
        core.start_trace()
        frame = sys._getframe()
        self.assert_is(core.bootstrap_new_thread(frame, "line", None), core.trace_dispatch)
        core.stop_trace()
        self.assert_raises(TypeError, "trace_dispatch() takes exactly 3 arguments (0 given)",
                           core.bootstrap_new_thread)

    def test_bootstrap_drops_the_step_request_of_an_earlier_thread(self):
        path = self.script("def f():\n    return 1\n")
        program = {}
        exec compile(open(path).read(), path, "exec") in program
        self.server.program = path
        core.start_trace()
        finished = harness.run_bare_thread(
            core.step_into, functools.partial(sys.settrace, core.bootstrap_new_thread),
            program["f"])
        core.stop_trace()
        self.assertEqual(finished, True)
        self.assertEqual(self.server.stops, [])

    def test_bootstrap_hooks_the_whole_stack(self):
        seen = []

        def outer():
            inner()
            seen.append(sys._getframe().f_trace)

        def inner():
            sys.settrace(core.bootstrap_new_thread)
            (lambda: None)()
        core.start_trace()
        self.assertEqual(harness.run_bare_thread(outer), True)
        core.stop_trace()
        self.assert_is(seen[0], core.trace_dispatch)


class ThreadNameTest(harness.CoreTestCase):
    """A name is that of the function right above the start-up code, and only at the start."""

    STARTER = """\
def __bootstrap(set_trace, function):
    set_trace()
    function()

def __start(set_trace, function):
    set_trace()
    function()

def own_function():
    report()
"""

    def setUp(self):
        harness.CoreTestCase.setUp(self)
        self.name = "not asked"

    def main_function(self):
        self.name = core.get_thread_name(core.get_current_tstate_id())

    def starter(self, path, function):
        variables = {"report": self.main_function}
        exec compile(self.STARTER, path, "exec") in variables
        return variables[function]

    def name_under(self, starter, function=None, **init_changes):
        """The name of a thread whose trace is installed as starter calls function."""
        self.server.init(**init_changes)
        core.start_trace()
        finished = harness.run_bare_thread(functools.partial(
            starter, functools.partial(sys.settrace, core.bootstrap_new_thread),
            function or self.main_function))
        core.stop_trace()
        self.assertEqual(finished, True)
        return self.name

    def name_in_file(self, file_name, function, **init_changes):
        return self.name_under(self.starter(self.script(self.STARTER, file_name), function),
                               **init_changes)

    def test_function_above_the_librarys_start_up_code_gives_the_name(self):
        self.assertEqual(self.name_in_file("threading.py", "__bootstrap"), "main_function")

    def test_other_functions_of_the_library_are_no_start_up_code(self):
        self.assertEqual(self.name_in_file("threading.py", "__start"), None)

    def test_other_files_have_no_start_up_code(self):
        self.assertEqual(self.name_in_file("starting.py", "__bootstrap"), None)

    def test_end_of_the_file_name_decides(self):
        self.assertEqual(self.name_in_file("mythreading.py", "__bootstrap"), "main_function")

    def test_file_name_is_compared_case_sensitively(self):
        self.assertEqual(self.name_in_file("Threading.py", "__bootstrap"), None)

    def test_file_name_shorter_than_the_librarys_is_no_start_up_code(self):
        self.assertEqual(self.name_under(self.starter("ding.py", "__bootstrap")), None)

    def test_function_above_the_debuggers_own_code_gives_the_name(self):
        internal = {os.path.join(self.folder, "debugger.py"): 1}
        self.assertEqual(
            self.name_in_file("debugger.py", "__start", internal_modules_map=internal),
            "main_function")

    def test_file_of_the_debugger_that_drops_the_record_as_it_is_looked_up(self):
        path = os.path.join(self.folder, "debugger.py")
        dropped = []

        class File(object):
            def __hash__(self):
                return hash(path)

            def __eq__(self, other):
                dropped.append(core.thread_exiting())
                return True
        self.name_in_file("debugger.py", "__start", internal_modules_map={File(): 1})
        self.assertEqual(len(dropped) > 0, True)

    def test_debuggers_own_function_gives_no_name(self):
        path = self.script(self.STARTER, "debugger.py")
        starter = self.starter(path, "__start")
        self.assertEqual(
            self.name_under(starter, starter.func_globals["own_function"],
                            internal_modules_map={path: 1}), None)

    def test_only_the_innermost_frame_is_asked(self):
        # Tracing begins one call too late.
        def function():
            sys.settrace(core.bootstrap_new_thread)
            self.main_function()
        starter = self.starter(self.script(self.STARTER, "threading.py"), "__bootstrap")
        self.server.init()
        core.start_trace()
        finished = harness.run_bare_thread(
            functools.partial(starter, lambda: None, function))
        core.stop_trace()
        self.assertEqual(finished, True)
        self.assertEqual(self.name, None)

    def test_thread_of_the_threading_module_has_no_name(self):
        # Its start-up code calls the main function through another function of its own.
        self.server.init(install_thread_hooks_cb=harness.trace_new_threads)
        core.start_trace()
        runner = threading.Thread(target=self.main_function)
        runner.start()
        runner.join()
        core.stop_trace()
        self.assertEqual(self.name, None)

    def test_thread_that_was_there_before_has_no_name(self):
        self.server.init()
        core.start_trace()
        self.main_function()
        core.stop_trace()
        self.assertEqual(self.name, None)
