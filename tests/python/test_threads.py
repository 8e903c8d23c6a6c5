"""Programs of several threads: one at a time in the debug server, nobody stuck."""

import thread
import threading
import time

import harness
from harness import core


def step_from_the_start(frame, event, argument):
    """For threading.settrace(): traces a new thread and stops at its first line."""
    result = core.bootstrap_new_thread(frame, event, argument)
    core.step_into()
    return result


def step_new_threads(on):
    if on:
        threading.settrace(step_from_the_start)
    else:
        threading.settrace(None)


class OneAtATime(harness.Server):
    """Steps every thread through the program and notes whether two ever met in a callback."""

    def __init__(self):
        harness.Server.__init__(self)
        self.inside = 0
        self.met = 0
        self.by_thread = {}

    def stop(self, event, frame, result=""):
        self.inside += 1
        if self.inside != 1:
            self.met += 1
        if frame.f_code.co_filename == self.program:
            # Lets other threads come as far as they can.
            time.sleep(0.0001)
            self.by_thread.setdefault(threading.currentThread().getName(), []).append(
                "%s %s %d" % (event, frame.f_code.co_name, frame.f_lineno))
        core.step_into()
        self.inside -= 1


WORKERS = """\
import threading

def work(n):
    total = 0
    for i in range(n):
        total += i
    results.append(total)

threads = [threading.Thread(target=work, args=(i,)) for i in range(10)]
for each in threads:
    each.start()
for each in threads:
    each.join()
"""

# What fills freed memory of a thread state's size, if there is any.
HANDED_ON = """\
import threading

def numbers():
    yield 1
    yield 2

held = []
maker = threading.Thread(target=lambda: held.append(numbers()))
maker.start()
maker.join()
del maker
filling = [bytearray('\\xff' * size) for size in range(96, 256) for _ in range(20)]
result = list(held[0])
"""

SPINNING = """\
import threading

def spin():
    while not stopped:
        count[0] += 1

spinner = threading.Thread(target=spin)
spinner.start()
wait_for_spinner()
step_into()
while not stopped:
    pass
spinner.join()
"""


class SteppingThreadsTest(harness.CoreTestCase):

    def replace_server(self, server):
        server.quiet = self.quiet
        self.server = server
        return server

    def test_ten_threads_are_stepped_one_at_a_time(self):
        server = self.replace_server(OneAtATime())
        server.init(install_thread_hooks_cb=step_new_threads)
        results = []
        server.run(self.script(WORKERS), results=results)
        self.assertEqual(sorted(results), [0, 0, 1, 3, 6, 10, 15, 21, 28, 36])
        self.assertEqual(server.met, 0)
        workers = [stops for stops in server.by_thread.values() if stops[0] == "line work 4"]
        expected = []
        for n in range(10):
            expected.append(["line work 4"] + ["line work 5", "line work 6"] * n
                            + ["line work 5", "line work 7", "return work 7"])
        self.assertEqual(sorted(workers), sorted(expected))

    def test_a_generator_of_a_thread_that_has_ended_is_stepped_in_another(self):
        server = self.replace_server(OneAtATime())
        server.init()
        names = server.run(self.script(HANDED_ON))
        self.assertEqual(names["result"], [1, 2])
        self.assertEqual([stop for stop in server.by_thread["MainThread"] if "numbers" in stop],
                         ["line numbers 4", "return numbers 4", "line numbers 5",
                          "return numbers 5", "return numbers 5"])

    def test_threads_ids_lead_back_to_them(self):
        seen = []

        def note():
            mine = core.get_current_tstate_id()
            seen.append((mine, core.get_threads().count(mine),
                         core.get_thread_ident_for_tstate_id(mine) == thread.get_ident()))

        def second():
            note()
            nested = threading.Thread(target=note)
            nested.start()
            nested.join()
        server = self.server
        server.init(install_thread_hooks_cb=harness.trace_new_threads)
        core.start_trace()
        note()
        runner = threading.Thread(target=second)
        runner.start()
        runner.join()
        core.stop_trace()
        self.assertEqual([found for found in seen if found[1:] != (1, True)], [])
        self.assertEqual(len(set([identity for identity, known, same in seen])), 3)

    def test_thread_state_that_is_used_again_starts_clean(self):
        # Ended threads leave their records; a new thread may get the same thread state.
        server = self.server
        server.init(install_thread_hooks_cb=harness.trace_new_threads)
        core.start_trace()
        frames = []
        for _ in range(20):
            runner = threading.Thread(
                target=lambda: frames.append(core.get_threads().count(
                    core.get_current_tstate_id())))
            runner.start()
            runner.join()
        core.stop_trace()
        self.assertEqual(frames, [1] * 20)

    def test_failing_callback_leaves_the_other_threads_traced(self):
        class FailingOnce(OneAtATime):
            failed = None

            def stop(self, event, frame, result=""):
                OneAtATime.stop(self, event, frame, result)
                if (frame.f_code.co_name, self.failed) == ("work", None):
                    self.failed = threading.currentThread().getName()
                    raise ValueError("server's own")
        server = self.replace_server(FailingOnce())
        server.init(install_thread_hooks_cb=step_new_threads)
        results = []
        server.run(self.script(WORKERS), results=results)
        self.assertEqual(len(results), 10)
        workers = dict([(name, stops) for name, stops in server.by_thread.items()
                        if stops[0] == "line work 4"])
        self.assertEqual(workers.pop(server.failed), ["line work 4"])
        self.assertEqual([stops for stops in workers.values()
                          if stops[-1] != "return work 7"], [])
        self.assertEqual(len(workers), 9)
        if not self.quiet:
            self.assertEqual(server.stream.count("TRACER LINE STOPPED TRACER\n"), 1)

    def test_planted_exception_is_raised_in_its_own_thread_only(self):
        outcomes = []
        ready, go = threading.Event(), threading.Event()

        def other():
            ready.set()
            go.wait()
            outcomes.append("other")
        server = self.server
        server.init(install_thread_hooks_cb=harness.trace_new_threads)
        core.start_trace()
        runner = threading.Thread(target=other)
        runner.start()
        ready.wait()
        core.add_to_tstate_tracing(1)
        core.raise_exception(core.get_threads()[0], ValueError("planted"))
        go.set()
        runner.join()
        outcomes.append("main")
        try:
            core.add_to_tstate_tracing(-1)
            outcomes.append("not raised")
        except ValueError:
            outcomes.append("raised")
        core.stop_trace()
        self.assertEqual(outcomes, ["other", "main", "raised"])


class StoppedThreadTest(harness.CoreTestCase):
    """While one thread is stopped, another runs into the trace function."""

    def meet(self, at_stop, **init_changes):
        """Stops the main thread while a spinning one is traced too; what at_stop() said then."""
        self.count = [0]
        stopped = []

        def request(frame):
            stopped.append(at_stop())
            core.continue_run()
        self.server.requests = [request]
        init_changes.setdefault("install_thread_hooks_cb", harness.trace_new_threads)
        self.server.init(**init_changes)
        self.prepare()
        self.server.program = self.script(SPINNING)
        program = {"count": self.count, "stopped": stopped, "step_into": core.step_into,
                   "wait_for_spinner": lambda: harness.wait_until(lambda: self.count[0] > 10)}
        core.start_trace()
        execfile(self.server.program, program)
        core.stop_trace()
        self.assertEqual(len(self.server.stops), 1)
        return stopped[0]

    def prepare(self):
        pass

    def other_thread(self):
        mine = core.get_current_tstate_id()
        other, = [identity for identity in core.get_threads() if identity != mine]
        return other

    def wait_until_other_waits(self):
        """Until the spinning thread stands before the mutex that this one holds."""
        other = self.other_thread()
        return harness.wait_until(lambda: core.get_curr_frame(other) is not None)

    def progress(self):
        """Turns that the spinning thread makes from now on, once it had time for some."""
        before = self.count[0]
        harness.wait_until(lambda: self.count[0] > before + 100, 0.3)
        return self.count[0] - before

    def test_other_threads_queue_when_all_threads_are_debugged(self):
        def at_stop():
            self.wait_until_other_waits()
            return self.progress()
        self.assertEqual(self.meet(at_stop), 0)
        self.assert_logged("ignoring thread in c_dispatch\n", 0)

    def test_other_threads_pass_by_when_one_at_a_time_is_debugged(self):
        self.prepare = lambda: self.assertEqual(core.set_debug_all_threads(0), None)
        self.assertEqual(self.meet(self.progress) > 100, True)
        if not self.quiet:
            self.assertEqual(
                self.server.stream.count("ignoring thread in c_dispatch\n") > 100, True)

    def test_threads_pass_by_without_a_current_frame(self):
        self.prepare = lambda: core.set_debug_all_threads(0)

        def at_stop():
            self.progress()
            return core.get_curr_frame(self.other_thread())
        self.assertEqual(self.meet(at_stop), None)

    def test_thread_that_waits_already_goes_on_waiting_when_the_flag_changes(self):
        def at_stop():
            self.wait_until_other_waits()
            core.set_debug_all_threads(0)
            return self.progress()
        self.assertEqual(self.meet(at_stop), 0)

    def test_reset_debugs_all_threads_again(self):
        def prepare():
            core.set_debug_all_threads(0)
            core.reset()
        self.prepare = prepare

        def at_stop():
            self.wait_until_other_waits()
            return self.progress()
        self.assertEqual(self.meet(at_stop), 0)

    def test_thread_that_waits_shows_the_frame_in_which_it_waits(self):
        def at_stop():
            self.wait_until_other_waits()
            return core.get_curr_frame(self.other_thread()).f_code.co_name
        self.assertEqual(self.meet(at_stop), "spin")

    def test_thread_that_waits_does_not_hold_the_interpreter_lock(self):
        def at_stop():
            self.wait_until_other_waits()
            # A third thread, which is not traced, needs the lock to come anywhere.
            return harness.run_bare_thread(lambda: [n * n for n in range(1000)])
        self.assertEqual(self.meet(at_stop), True)

    def test_stop_trace_while_a_thread_waits_untraces_it(self):
        def at_stop():
            self.wait_until_other_waits()
            core.stop_trace()
            self.server.stream.clear()
        self.meet(at_stop)
        self.assert_logged("TRACER STOPPED WHILE WAITING FOR MUTEX\n", 1)
        if not self.quiet:
            self.assertEqual(len(self.server.stream.starting(
                "trace_dispatch called while not tracing; thread = ")), 1)

    def test_reset_while_a_thread_waits_untraces_it(self):
        def at_stop():
            self.wait_until_other_waits()
            core.reset()
            self.server.stream.clear()
        self.meet(at_stop)
        self.assert_logged("TRACER STOPPED WHILE WAITING FOR MUTEX\n", 1)

    def test_destroy_while_a_thread_waits_untraces_it(self):
        def at_stop():
            self.wait_until_other_waits()
            core.destroy()
        self.meet(at_stop)
        self.assert_logged("TRACER STOPPED WHILE WAITING FOR MUTEX\n", 1)

    def test_tracing_that_stops_and_starts_while_a_thread_waits_goes_on(self):
        def at_stop():
            self.wait_until_other_waits()
            core.stop_trace()
            core.start_trace()
        self.meet(at_stop)
        self.assert_logged("TRACER STOPPED WHILE WAITING FOR MUTEX\n", 0)

    def test_init_while_a_thread_waits_untraces_it(self):
        def at_stop():
            self.wait_until_other_waits()
            self.server.init(install_thread_hooks_cb=harness.trace_new_threads)
        self.meet(at_stop)
        if not self.quiet:
            self.assert_in("TRACER STOPPED WHILE WAITING FOR MUTEX\n",
                           self.server.stream.messages)

    def test_thread_that_the_policy_ignores_runs_on(self):
        main = thread.get_ident()
        self.prepare = lambda: core.set_debug_thread_cb(lambda ident: ident == main)
        self.assertEqual(self.meet(self.progress) > 100, True)

    def test_policy_is_asked_once_for_each_thread(self):
        asked = []

        def policy(ident):
            asked.append(ident)
            return 1
        self.prepare = lambda: core.set_debug_thread_cb(policy)
        self.meet(lambda: None)
        self.assertEqual(len(asked), 2)
        self.assertEqual(len(set(asked)), 2)

    def test_reset_by_another_thread_while_one_is_stopped(self):
        def at_stop():
            finished = harness.run_bare_thread(core.reset)
            # The spinning thread may be back already.
            return finished, core.get_threads().count(core.get_current_tstate_id())
        self.assertEqual(self.meet(at_stop), (True, 0))

    def test_tracing_goes_on_after_the_reset_of_a_stopped_thread(self):
        self.meet(lambda: core.reset())
        del self.server.stops[:]
        self.meet(lambda: None)


class ManyThreadsTest(harness.CoreTestCase):

    def test_tracing_that_is_turned_on_and_off_while_threads_run(self):
        stop = threading.Event()
        counts = [0] * 5

        def work(at):
            def step(n):
                return n + 1
            while not stop.isSet():
                counts[at] = step(counts[at])
        self.server.stream = None
        self.server.init(install_thread_hooks_cb=harness.trace_new_threads, idle_period=0.1)
        core.start_trace()
        threads = [threading.Thread(target=work, args=(at,)) for at in range(5)]
        for each in threads:
            each.start()
        for _ in range(30):
            core.stop_trace()
            time.sleep(0.005)
            core.start_trace()
            time.sleep(0.005)
            core.reset()
            core.start_trace()
        core.stop_trace()
        stop.set()
        for each in threads:
            each.join(30)
        self.assertEqual([each for each in threads if each.isAlive()], [])
        self.assertEqual(min(counts) > 0, True)

    def test_process_ends_while_traced_daemon_threads_run(self):
        source = """\
import sys, threading, time
import harness
from harness import core
server = harness.Server()
server.init(install_thread_hooks_cb=harness.trace_new_threads, debug_stream=None)
core.start_trace()
def spin():
    while True:
        [n for n in range(10)]
for _ in range(4):
    each = threading.Thread(target=spin)
    each.setDaemon(True)
    each.start()
time.sleep(0.05)
"""
        self.assertEqual(harness.run_host(self.script(source))[0], 0)

    def test_process_ends_while_a_thread_is_traced_to_its_end(self):
        source = """\
import harness
from harness import core
server = harness.Server()
server.init(debug_stream=None)
core.start_trace()
core.step_into()
x = 1
"""
        self.assertEqual(harness.run_host(self.script(source))[0], 0)


class QuietSteppingThreadsTest(SteppingThreadsTest):
    quiet = True


class QuietStoppedThreadTest(StoppedThreadTest):
    quiet = True
