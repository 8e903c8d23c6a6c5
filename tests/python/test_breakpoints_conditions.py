"""Conditions that do things while they run: edit the breakpoints, reset the core, let other
threads run, collect garbage."""

import gc
import sys
import thread
import time

import breakpoint_case
from harness import core

LOOP = """\
def work(x):
    y = x + 1
    return y
for i in range(4):
    work(i)
done = True
"""


class ConditionTestCase(breakpoint_case.BreakpointTestCase):
    """The condition of a breakpoint at line 2 is a call of act(x)."""

    def setUp(self):
        breakpoint_case.BreakpointTestCase.setUp(self)
        self.path = self.write("program.py", LOOP)
        self.calls = []

    def run_with(self, act):
        """Runs the program, to its end."""
        def noted(x):
            self.calls.append(x)
            return act(x)
        variables = self.run_program(self.path, act=noted)
        self.assertEqual(variables["done"], True)

    def set_acting(self, **changes):
        return self.set_break(self.path, 2, cond="act(x)", **changes)

    def clear(self):
        core.clear_breaks(self.path, 2)


class FunctionsTest(ConditionTestCase):

    def test_functions_in_a_condition_see_local_and_global_variables(self):
        self.set_break(self.path, 3, cond="any(x == act(n) and y for n in [1, 7])")
        self.run_program(self.path, act=lambda x: x + 1)
        self.assertEqual(self.stops, ["program.py:3"])


class ClearingTest(ConditionTestCase):

    def clear_on_first(self, x):
        if x == 0:
            self.clear()
        return True

    def test_condition_that_clears_its_breakpoint_does_not_stop(self):
        self.set_acting()
        self.run_with(self.clear_on_first)
        self.assertEqual(self.calls, [0])
        self.assertEqual(self.stops, [])
        self.assertEqual(core.get_changed_bps_lists(), ([], []))

    def test_condition_that_clears_its_breakpoint_and_fails_stops(self):
        def clear_and_fail(x):
            self.clear()
            raise ValueError
        self.set_acting()
        self.run_with(clear_and_fail)
        self.assertEqual(self.calls, [0])
        self.assertEqual(self.stops, ["program.py:2"])
        self.assertEqual(core.get_changed_bps_lists(), ([], []))

    def test_condition_that_clears_its_temporary_breakpoint_reports_nothing(self):
        self.set_acting(temporary=1)
        self.run_with(self.clear_on_first)
        self.assertEqual(self.stops, [])
        self.assertEqual(core.get_changed_bps_lists(), ([], []))

    def test_breakpoints_that_a_condition_clears_do_not_stop(self):
        # The newest is asked first.
        for position in range(3):
            for i in range(3):
                if i == position:
                    self.set_acting()
                else:
                    self.set_break(self.path, 2, cond="x == 0")
            del self.stops[:]
            self.run_with(self.clear_on_first)
            # Those before it were asked before they were cleared, and stop.
            self.assertEqual(len(self.stops), int(position < 2))
            self.assertEqual(core.get_breaks(self.path, 2), [])

    def test_condition_that_clears_everything_ends_all_stops(self):
        def clear_all(x):
            core.clear_all_breaks()
            return True
        self.set_break(self.path, 3)
        self.set_break(self.path, 2)
        self.set_acting()
        self.run_with(clear_all)
        self.assertEqual(self.calls, [0])
        self.assertEqual(self.stops, [])
        self.assertEqual(core.get_file_breaks(self.path), [])

    def test_every_condition_may_clear_everything(self):
        def clear_all_and_set(x):
            core.clear_all_breaks()
            for _ in range(3):
                self.set_acting(temporary=x % 2)
            return True
        for _ in range(3):
            self.set_acting()
        self.run_with(clear_all_and_set)
        self.assertEqual(self.calls, [0, 1, 2, 3])
        self.assertEqual(len(core.get_breaks(self.path, 2)), 3)

    def test_condition_may_clear_breakpoints_of_other_lines(self):
        def clear_other(x):
            core.clear_breaks(self.path, 3)
        self.set_break(self.path, 3)
        self.set_acting()
        self.run_with(clear_other)
        self.assertEqual(self.stops, [])

    def test_condition_may_clear_changed_breakpoints(self):
        def clear_some(x):
            core.clear_breaks(self.path, 5)
            core.clear_breaks(self.path, 3)
        self.set_break(self.path, 5, cond="False")
        self.set_break(self.path, 3, cond="False")
        self.set_acting()
        self.run_with(clear_some)
        self.assertEqual([item[2] for item in core.get_changed_bps_lists()[1]], [3])


class ResettingTest(ConditionTestCase):

    def test_condition_that_resets_the_core_ends_tracing(self):
        def reset(x):
            core.reset()
            return True
        for _ in range(3):
            self.set_acting()
        self.run_with(reset)
        self.assertEqual(self.calls, [0])
        self.assertEqual(self.stops, [])
        self.assertEqual(core.get_file_breaks(self.path), [])
        self.assertEqual(self.set_break(self.path, 2), 1)

    def test_core_is_usable_after_a_reset_by_a_condition(self):
        def reset(x):
            core.reset()
            self.set_break(self.path, 3)
        self.set_acting()
        self.run_with(reset)
        self.run_with(None)
        self.assertEqual(self.stops, ["program.py:3"] * 4)
        self.assertEqual(core.get_breaks(self.path, 3), [(1, 1, 0, None, 0, 4)])

    def test_condition_that_resets_the_core_and_traces_again(self):
        def reset(x):
            core.reset()
            core.start_trace()
            core.continue_run()
            self.set_break(self.path, 2, temporary=1)
        for _ in range(3):
            self.set_acting()
        self.run_with(reset)
        self.assertEqual(self.calls, [0])
        self.assertEqual(self.stops, ["program.py:2"])

    def test_condition_that_stops_tracing(self):
        def stop_trace(x):
            core.stop_trace()
            return False
        self.set_break(self.path, 3)
        self.set_acting()
        self.run_with(stop_trace)
        self.assertEqual(self.calls, [0])
        self.assertEqual(self.stops, [])
        self.assertEqual(self.hits(self.path, 2), [1])

    def test_condition_that_initialises_the_core(self):
        def init(x):
            self.server.init()
            return True
        for _ in range(2):
            self.set_acting()
        self.run_with(init)
        self.assertEqual(self.calls, [0])
        self.assertEqual(core.get_file_breaks(self.path), [])
        self.assertEqual(self.set_break(self.path, 2), 1)


class EditingTest(ConditionTestCase):

    def test_breakpoints_that_a_condition_sets_are_met_at_the_next_hit(self):
        def set_another(x):
            if x == 0:
                self.set_break(self.path, 2, temporary=1)
        self.set_acting()
        self.run_with(set_another)
        self.assertEqual(self.stops, ["program.py:2"])
        self.assertEqual(self.hits(self.path, 2), [4])
        self.assertEqual(self.changed[0][0], [2])
        self.assertEqual(self.changed[0][1][0][-1], 2)

    def test_condition_may_set_many_breakpoints(self):
        def set_many(x):
            for line in range(1000):
                self.set_break(self.path, 1000 * (x + 1) + line)
        self.set_acting()
        self.run_with(set_many)
        self.assertEqual(len(core.get_file_breaks(self.path)), 4001)

    def test_changed_condition_counts_from_the_next_hit_on(self):
        def change(x):
            core.set_breaks_cond(self.path, 2, "x == 3")
            return False
        self.set_acting()
        self.run_with(change)
        self.assertEqual(self.calls, [0])
        self.assertEqual(self.stops, ["program.py:2"])
        self.assertEqual(core.get_breaks(self.path, 2), [(1, 1, 0, "x == 3", 0, 4)])

    def test_condition_that_removes_itself_still_decides_this_hit(self):
        def remove(x):
            core.set_breaks_cond(self.path, 2, None)
            return False
        self.set_acting()
        self.run_with(remove)
        self.assertEqual(self.stops, ["program.py:2"] * 3)

    def test_condition_may_give_itself_anew_again_and_again(self):
        def give_anew(x):
            for _ in range(100):
                core.set_breaks_cond(self.path, 2, "1" * 1000)
                core.set_breaks_cond(self.path, 2, "act(x)")
            return x == 1
        for _ in range(2):
            self.set_acting()
        self.run_with(give_anew)
        self.assertEqual(self.stops, ["program.py:2"])
        self.assertEqual(self.calls, [0, 0, 1, 1, 2, 2, 3, 3])

    def test_condition_that_disables_its_breakpoint_still_decides_this_hit(self):
        def disable(x):
            core.enable_breaks(self.path, 2, 0)
            return True
        self.set_acting()
        self.run_with(disable)
        self.assertEqual(self.stops, ["program.py:2"])
        self.assertEqual(self.hits(self.path, 2), [1])

    def test_condition_that_disables_the_breakpoints_behind_it_keeps_them_from_counting(self):
        def disable(x):
            core.enable_breaks(self.path, 2, 0)
        self.set_break(self.path, 2)
        self.set_acting()
        self.run_with(disable)
        self.assertEqual(self.stops, [])
        self.assertEqual(self.hits(self.path, 2), [1, 0])

    def test_ignore_count_that_a_condition_sets_is_used_at_once(self):
        def ignore(x):
            if x == 0:
                core.ignore_breaks(self.path, 2, 2)
            return True
        self.set_acting()
        self.run_with(ignore)
        self.assertEqual(self.stops, ["program.py:2"] * 2)

    def test_condition_may_list_breakpoints(self):
        def list_them(x):
            self.listed = core.get_breaks(self.path, 2), core.get_file_breaks(self.path)
        self.set_acting()
        self.run_with(list_them)
        self.assertEqual(self.listed, ([(1, 1, 0, "act(x)", 0, 4)],
                                       [(2, 1, 1, 0, "act(x)", 0, 4)]))

    def test_changes_that_a_condition_takes_are_not_reported_again(self):
        taken = []
        self.set_acting()
        self.run_with(lambda x: taken.append(core.get_changed_bps_lists()))
        self.assertEqual([lists[1][0][-1] for lists in taken], [1, 2, 3, 4])
        self.assertEqual(core.get_changed_bps_lists(), ([], []))

    def test_breakpoint_changes_again_when_its_condition_took_the_changes(self):
        def take(x):
            core.get_changed_bps_lists()
            return True
        self.set_acting(ignore=1, temporary=1)
        self.run_with(take)
        self.assertEqual(self.stops, ["program.py:2"])
        self.assertEqual(self.changed, [([1], [])])

    def test_condition_takes_the_report_of_a_temporary_breakpoint_that_just_fired(self):
        taken = []
        self.set_acting()
        self.set_break(self.path, 2, temporary=1)
        self.run_with(lambda x: taken.append(core.get_changed_bps_lists()))
        self.assertEqual(taken[0][0], [2])
        self.assertEqual(self.stops, ["program.py:2"])
        self.assertEqual(self.changed, [([], [])])

    def test_step_request_of_a_condition_takes_effect(self):
        self.set_acting()
        self.run_with(lambda x: core.step_into())
        self.assertEqual(self.stops[0], "program.py:3")

    def test_failing_edit_of_a_condition_stops(self):
        self.set_break(self.path, 2, cond="core.set_break(1)")
        self.run_with(None)
        self.assertEqual(self.stops, ["program.py:2"] * 4)


class Finalizer(object):
    """Edits the breakpoints when it dies, as part of a cycle that a collection finds."""

    def __init__(self, edit):
        self.edit = edit

    def __del__(self):
        self.edit()


def cycle(edit):
    # The finalizer itself is outside the cycle, which would keep it from being collected.
    ring = []
    ring.append(ring)
    ring.append(Finalizer(edit))


class CollectingTest(ConditionTestCase):

    def test_garbage_that_clears_the_breakpoint_while_its_condition_runs(self):
        def collect(x):
            cycle(self.clear)
            gc.collect()
            return True
        for _ in range(3):
            self.set_acting()
        self.run_with(collect)
        self.assertEqual(self.calls, [0])
        self.assertEqual(self.stops, [])

    def test_garbage_that_edits_breakpoints_whenever_a_collection_runs(self):
        def edit():
            core.clear_all_breaks()
            for line in (2, 3, 5):
                for _ in range(3):
                    self.set_break(self.path, line, cond="True")
        edit()
        path = self.write("litter.py", """\
for _ in range(300):
    litter()
    work(_)
""")
        variables = {}
        execfile(self.path, variables)
        old = gc.get_threshold()
        gc.set_threshold(1)
        try:
            self.run_program(path, litter=lambda: cycle(edit), work=variables["work"])
            listed = [core.get_file_breaks(self.path) for _ in range(100)
                      if not cycle(edit)]
            cycle(edit)
            core.get_changed_bps_lists()
        finally:
            gc.set_threshold(*old)
        gc.collect()
        self.assertEqual(len(core.get_file_breaks(self.path)), 9)
        self.assert_in("program.py:2", self.stops)
        self.assertEqual([len(item) for item in listed if len(item) > 9], [])


class DyingLocalTest(breakpoint_case.BreakpointTestCase):
    """Bringing a frame's locals up to date for a condition ends what only their dictionary kept."""

    def stops_where_dying_local(self, edit, **changes):
        path = self.write("dying.py", """\
def work():
    x = Finalizer(edit)
    locals()
    x = None
    y = 1
work()
""")
        self.set_break(path, 5, cond="1 / 0", **changes)
        self.run_program(path, Finalizer=Finalizer, edit=lambda: edit(path, 5))
        return self.stops, core.get_breaks(path, 5)

    def test_takes_the_condition_away(self):
        def take_away(path, line):
            core.set_breaks_cond(path, line, None)
        self.assertEqual(self.stops_where_dying_local(take_away),
                         (["dying.py:5"], [(1, 1, 0, None, 0, 1)]))

    def test_takes_the_condition_away_so_that_the_hit_is_ignored(self):
        def take_away(path, line):
            core.set_breaks_cond(path, line, None)
        self.assertEqual(self.stops_where_dying_local(take_away, ignore=1),
                         ([], [(1, 1, 0, None, 0, 1)]))

    def test_changes_the_condition(self):
        def change(path, line):
            core.set_breaks_cond(path, line, "y")
        # There is no y yet.
        self.assertEqual(self.stops_where_dying_local(change, ignore=1),
                         (["dying.py:5"], [(1, 1, 0, "y", 1, 1)]))

    def test_clears_the_breakpoint(self):
        self.assertEqual(self.stops_where_dying_local(core.clear_breaks), ([], []))


class SwitchingTest(ConditionTestCase):
    """Another thread that is not debugged runs while a condition sleeps."""

    def meanwhile(self, edit):
        """Conditions that let another thread make an edit and wait for it."""
        def act(x):
            ended = []

            def other():
                try:
                    edit()
                finally:
                    ended.append(True)
            thread.start_new_thread(other, ())
            while not ended:
                time.sleep(0.001)
            return True
        return act

    def test_other_thread_clears_the_breakpoint(self):
        for _ in range(3):
            self.set_acting()
        self.run_with(self.meanwhile(self.clear))
        self.assertEqual(self.calls, [0])
        self.assertEqual(self.stops, [])

    def test_other_thread_clears_everything_and_sets_anew(self):
        def replace():
            core.clear_all_breaks()
            self.set_acting()
        self.set_acting()
        self.run_with(self.meanwhile(replace))
        self.assertEqual(self.calls, [0, 1, 2, 3])
        self.assertEqual(self.stops, [])

    def test_other_thread_changes_the_condition(self):
        self.set_acting()
        self.run_with(self.meanwhile(
            lambda: core.set_breaks_cond(self.path, 2, "x == 3")))
        self.assertEqual(self.calls, [0])
        self.assertEqual(self.stops, ["program.py:2"] * 2)

    def test_other_thread_takes_the_changes(self):
        taken = []
        self.set_acting()
        self.run_with(self.meanwhile(lambda: taken.append(core.get_changed_bps_lists())))
        self.assertEqual([len(lists[1]) for lists in taken], [1] * 4)
        # The callback was given what was left of the hit: nothing.
        self.assertEqual(self.changed, [([], [])] * 4)

    def test_other_thread_resets_the_core(self):
        for _ in range(3):
            self.set_acting()
        self.run_with(self.meanwhile(core.reset))
        self.assertEqual(self.calls, [0])
        self.assertEqual(core.get_file_breaks(self.path), [])


class ReferencesTest(ConditionTestCase):

    def total(self):
        if not hasattr(sys, "gettotalrefcount"):
            self.skip("the interpreter does not count its references")
        gc.collect()
        return sys.gettotalrefcount()

    def test_conditions_leave_no_references(self):
        # One code object for all rounds: the core keeps those that it met for a while.
        code = compile(LOOP, self.path, "exec")

        def one_round():
            for cond in ("x == 1", "act(x)", "no_such_name", "", "x =",
                         "any(x == n for n in [1])"):
                self.set_break(self.path, 2, cond=cond)
                self.set_break(self.path, 3, cond=cond, temporary=1)
            self.run_code(code, act=lambda x: core.clear_breaks(self.path, 2))
            core.get_changed_bps_lists()
            core.get_new_imports()
            core.clear_all_breaks()
            del self.stops[:], self.changed[:]
            self.server.stream.clear()
        for _ in range(5):
            one_round()
        before = self.total()
        for _ in range(50):
            one_round()
        self.assertEqual(self.total() - before < 50, True)

    def test_edits_and_lists_leave_no_references(self):
        def one_round():
            for cond in (None, "", "x > 1"):
                self.set_break(self.path, 2, cond=cond)
            try:
                self.set_break(self.path, 2, cond=3)
            except MemoryError:
                pass
            try:
                core.set_breaks_cond(self.path, 2, 3)
            except TypeError:
                pass
            core.set_breaks_cond(self.path, 2, "y")
            core.get_breaks(self.path, 2)
            core.get_file_breaks(self.path)
            core.get_changed_bps_lists()
            core.clear_breaks(self.path, 2)
            core.clear_all_breaks()
            self.server.stream.clear()
        for _ in range(5):
            one_round()
        before = self.total()
        for _ in range(200):
            one_round()
        self.assertEqual(self.total() - before < 100, True)
