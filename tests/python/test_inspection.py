"""Looking at threads and frames, and adjusting a thread's state."""

import functools
import sys
import thread

import harness
from harness import core

CALL = """\
def f(n):
    m = n + 1
    return m

x = f(1)
y = 2
"""


class ThreadsTest(harness.CoreTestCase):

    def setUp(self):
        harness.CoreTestCase.setUp(self)
        self.server.init()
        self.mine = core.get_current_tstate_id()

    def tearDown(self):
        core.stop_trace()
        harness.CoreTestCase.tearDown(self)

    def test_threads_are_listed_once_tracing_met_them(self):
        self.assertEqual(core.get_threads(), [])
        core.start_trace()
        self.assertEqual(core.get_threads(), [self.mine])

    def test_each_call_makes_a_new_list(self):
        core.start_trace()
        core.get_threads().append("changed")
        self.assertEqual(core.get_threads(), [self.mine])

    def test_thread_stays_listed_after_tracing_stops(self):
        core.start_trace()
        core.stop_trace()
        self.assertEqual(core.get_threads(), [self.mine])
        self.assertEqual(core.get_tracing(), 1)

    def test_tracing_is_told_by_the_threads_known(self):
        self.assertEqual(core.get_tracing(), 0)
        core.start_trace()
        self.assertEqual(core.get_tracing(), 1)
        core.reset()
        self.assertEqual(core.get_tracing(), 0)

    def test_answers_to_yes_or_no_are_numbers(self):
        for answer in (core.get_tracing(), core.is_botframe(sys._getframe()),
                       core.is_internal_frame(sys._getframe())):
            self.assert_is(type(answer), int)

    def test_thread_id_is_a_signed_number_of_32_bits(self):
        self.assert_is(type(self.mine), int)
        self.assertEqual(-2 ** 31 <= self.mine < 2 ** 31, True)
        self.assertEqual(core.get_current_tstate_id(), self.mine)

    def test_thread_ident_belongs_to_the_id(self):
        core.start_trace()
        self.assertEqual(core.get_thread_ident_for_tstate_id(self.mine), thread.get_ident())

    def test_unknown_thread_has_no_ident_and_no_name(self):
        core.start_trace()
        for identity in (0, -1, self.mine + 8, 2 ** 31 - 1, -2 ** 31):
            self.assertEqual(core.get_thread_ident_for_tstate_id(identity), None)
            self.assertEqual(core.get_thread_name(identity), None)

    def test_unknown_thread_has_no_current_frame(self):
        core.start_trace()
        for identity in (0, -1, self.mine + 8, 2 ** 31 - 1, -2 ** 31):
            self.assert_raises(IndexError,
                               "get_curr_frame called for unknown or terminated thread",
                               core.get_curr_frame, identity)

    def test_id_is_read_by_its_low_32_bits(self):
        core.start_trace()
        self.assertEqual(core.get_thread_ident_for_tstate_id(self.mine + 2 ** 32),
                         thread.get_ident())

    def test_what_is_no_number_is_no_id(self):
        core.start_trace()
        self.assert_raises(TypeError, "an integer is required", core.get_thread_name, "name")
        self.assert_raises(TypeError, "an integer is required",
                           core.get_thread_ident_for_tstate_id, None)
        self.assert_raises(IndexError, "get_curr_frame called for unknown or terminated thread",
                           core.get_curr_frame, "frame")

    def test_running_thread_has_no_current_frame(self):
        # The event of this line is over when the call is made.
        core.start_trace()
        self.assertEqual(core.get_curr_frame(self.mine), None)

    def test_frame_of_another_thread_is_no_bottom_frame_of_this_one(self):
        frames = []

        def bottom():
            frames.append(sys._getframe())
            frames.append(core.is_botframe(frames[0]))
        core.start_trace()
        finished = harness.run_bare_thread(
            functools.partial(sys.settrace, core.bootstrap_new_thread), bottom)
        self.assertEqual(finished, True)
        self.assertEqual(frames[1], 1)
        self.assertEqual(core.is_botframe(frames[0]), 0)

    def test_unknown_bottom_frame_is_none(self):
        # Makes a record without looking at any frame.
        core.step_into()
        self.assertEqual(core.is_botframe(None), 1)
        self.assertEqual(core.is_botframe(sys._getframe()), 0)


class ThreadStateTest(harness.CoreTestCase):
    """The interpreter's own fields of a thread."""

    def test_tracing_is_counted_up_and_down(self):
        before = core.get_tstate_tracing()
        self.assertEqual(core.add_to_tstate_tracing(1), None)
        self.assertEqual(core.get_tstate_tracing(), before + 1)
        self.assertEqual(core.add_to_tstate_tracing(-1), None)
        self.assertEqual(core.get_tstate_tracing(), before)

    def test_tracing_may_be_changed_by_more_than_one(self):
        core.add_to_tstate_tracing(5)
        self.assertEqual(core.get_tstate_tracing(), 5)
        core.add_to_tstate_tracing(-5)
        self.assertEqual(core.get_tstate_tracing(), 0)

    def test_tracing_beyond_its_range_goes_on_at_the_other_end(self):
        largest = 2 ** 31 - 1
        core.add_to_tstate_tracing(largest)
        core.add_to_tstate_tracing(1)
        self.assertEqual(core.get_tstate_tracing(), -largest - 1)
        core.add_to_tstate_tracing(-1)
        self.assertEqual(core.get_tstate_tracing(), largest)
        core.add_to_tstate_tracing(-largest)
        self.assertEqual(core.get_tstate_tracing(), 0)

    def test_raised_tracing_hides_events(self):
        self.server.init()
        core.start_trace()
        core.add_to_tstate_tracing(1)
        self.server.stream.clear()
        x = 1
        count = len(self.server.stream.messages)
        core.add_to_tstate_tracing(-1)
        core.stop_trace()
        self.assertEqual(count, 0)

    def test_use_tracing_is_stored_as_given(self):
        self.assertEqual(core.get_tstate_use_tracing(), 0)
        self.assertEqual(core.set_tstate_use_tracing(1), None)
        self.assertEqual(core.get_tstate_use_tracing(), 1)
        core.set_tstate_use_tracing(7)
        self.assertEqual(core.get_tstate_use_tracing(), 7)
        core.set_tstate_use_tracing(0)
        self.assertEqual(core.get_tstate_use_tracing(), 0)

    def test_a_stopped_threads_tracing_is_raised_and_its_use_is_off(self):
        seen = []

        def look(frame):
            seen.append((core.get_tstate_tracing(), core.get_tstate_use_tracing()))
        self.debug(CALL, look)
        self.assertEqual(seen, [(1, 0)])


class FramesTest(harness.CoreTestCase):

    def test_changed_local_variables_are_put_back_into_the_frame(self):
        def change(frame):
            frame.f_locals["m"] = 41
            self.assertEqual(core.locals_to_fast(frame), None)
            core.continue_run()
        self.server.requests = ["step_over", "step_into", "step_over", change]
        self.server.init()
        variables = self.server.run(self.script(CALL))
        self.assertEqual(self.server.stops[-1], "line f 3")
        self.assertEqual(variables["x"], 41)

    def test_change_that_is_not_put_back_is_lost(self):
        def change(frame):
            frame.f_locals["m"] = 41
            core.continue_run()
        self.server.requests = ["step_over", "step_into", "step_over", change]
        self.server.init()
        self.assertEqual(self.server.run(self.script(CALL))["x"], 2)

    def test_local_variable_that_was_taken_out_keeps_its_value(self):
        def change(frame):
            del frame.f_locals["m"]
            core.locals_to_fast(frame)
            core.continue_run()
        self.server.requests = ["step_over", "step_into", "step_over", change]
        self.server.init()
        self.assertEqual(self.server.run(self.script(CALL))["x"], 2)

    def test_file_of_a_frame_is_its_full_path(self):
        files = []

        def look(frame):
            files.append(core.get_frame_file(frame))
        path = self.script(CALL)
        self.server.requests = [look]
        self.server.init()
        self.server.run(path)
        self.assertEqual(files, [path])
        self.assert_is(type(files[0]), str)

    def test_frame_is_internal_when_the_map_has_its_file(self):
        answers = []
        path = self.script(CALL)

        def look(frame):
            answers.append(core.is_internal_frame(frame))
        for internal_modules_map in ({path: 1}, {path: None}, {"/other.py": 1}, {}):
            self.server.requests = [look]
            self.server.init(internal_modules_map=internal_modules_map)
            self.server.run(path)
        self.assertEqual(answers, [1, 1, 0, 0])

    def test_map_may_change_after_init(self):
        answers = []
        path = self.script(CALL)
        internal_modules_map = {}

        def look(frame):
            internal_modules_map[path] = 1
            answers.append(core.is_internal_frame(frame))
        self.server.requests = [look]
        self.server.init(internal_modules_map=internal_modules_map)
        self.server.run(path)
        self.assertEqual(answers, [1])

    def test_file_with_an_empty_name_is_not_internal(self):
        answers = []
        variables = {"look": lambda: answers.append(core.is_internal_frame(sys._getframe(1)))}
        self.server.init(internal_modules_map={"": 1})
        exec compile("look()\n", "", "exec") in variables
        self.assertEqual(answers, [0])


class MutexTest(harness.CoreTestCase):

    def setUp(self):
        harness.CoreTestCase.setUp(self)
        self.server.init()

    def test_acquire_and_release(self):
        for _ in range(3):
            self.assertEqual(core.acquire_sorrel_mutex(), 1)
            self.assertEqual(core.release_sorrel_mutex(), None)

    def test_holder_that_acquires_again_is_refused_and_does_not_wait(self):
        core.acquire_sorrel_mutex()
        self.assertEqual(core.acquire_sorrel_mutex(), 0)
        core.release_sorrel_mutex()
        self.assertEqual(core.acquire_sorrel_mutex(), 1)
        core.release_sorrel_mutex()

    def test_release_without_acquire_does_nothing(self):
        self.assertEqual(core.release_sorrel_mutex(), None)
        self.assertEqual(core.acquire_sorrel_mutex(), 1)
        core.release_sorrel_mutex()

    def test_release_by_another_thread_does_nothing(self):
        core.acquire_sorrel_mutex()
        self.assertEqual(harness.run_bare_thread(core.release_sorrel_mutex), True)
        self.assertEqual(core.acquire_sorrel_mutex(), 0)
        core.release_sorrel_mutex()

    def test_another_thread_waits_for_the_holder(self):
        order = []
        core.acquire_sorrel_mutex()

        def other():
            order.append("waits")
            order.append(core.acquire_sorrel_mutex())
            core.release_sorrel_mutex()
            order.append("done")
        thread.start_new_thread(other, ())
        harness.wait_until(lambda: order)
        self.assertEqual(harness.wait_until(lambda: len(order) > 1, 0.2), False)
        core.release_sorrel_mutex()
        self.assertEqual(harness.wait_until(lambda: len(order) == 3), True)
        self.assertEqual(order, ["waits", 1, "done"])

    def test_events_of_the_holder_are_dropped(self):
        core.start_trace()
        core.acquire_sorrel_mutex()
        self.server.stream.clear()
        x = 1
        core.release_sorrel_mutex()
        core.stop_trace()
        self.assertEqual(self.server.stream.messages[:2], ["recursive c_dispatch\n"] * 2)

    def test_stopped_thread_holds_the_mutex(self):
        answers = []
        self.debug(CALL, lambda frame: answers.append(core.acquire_sorrel_mutex()))
        self.assertEqual(answers, [0])

    def test_stopped_thread_may_give_the_mutex_away_for_good(self):
        def give_away(frame):
            core.release_sorrel_mutex()
            core.step_over()
        self.assertEqual(self.debug(CALL, give_away, "step_over"),
                         ["line <module> 1", "line <module> 5", "line <module> 6"])
