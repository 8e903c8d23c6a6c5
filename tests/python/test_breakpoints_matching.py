"""Where breakpoints stop a program, and what counts there: hits, ignore counts, temporary ones,
changed lists."""

import sys

import breakpoint_case
from harness import core

LOOP = """\
def work(x):
    y = x + 1
    return y
for i in range(4):
    work(i)
"""


class HitsTest(breakpoint_case.BreakpointTestCase):

    def setUp(self):
        breakpoint_case.BreakpointTestCase.setUp(self)
        self.path = self.write("program.py", LOOP)

    def test_breakpoint_stops_each_time_its_line_is_reached(self):
        self.set_break(self.path, 2)
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:2"] * 4)
        self.assertEqual(self.hits(self.path, 2), [4])

    def test_nothing_stops_without_breakpoints(self):
        self.run_program(self.path)
        self.assertEqual(self.stops, [])

    def test_several_breakpoints_stop_in_the_order_of_execution(self):
        self.set_break(self.path, 3)
        self.set_break(self.path, 2)
        self.set_break(self.path, 5)
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:5", "program.py:2", "program.py:3"] * 4)

    def test_breakpoint_on_a_line_that_is_not_run_neither_stops_nor_counts(self):
        for line in (0, -1, 6, 1000):
            self.set_break(self.path, line)
        self.run_program(self.path)
        self.assertEqual(self.stops, [])
        self.assertEqual([item[6] for item in core.get_file_breaks(self.path)], [0] * 4)

    def test_breakpoint_at_the_same_line_of_another_file_does_not_stop(self):
        other = self.write("other.py", LOOP)
        self.set_break(other, 2)
        self.run_program(self.path)
        self.assertEqual(self.stops, [])
        self.assertEqual(self.hits(other, 2), [0])

    def test_all_breakpoints_of_a_place_are_counted_and_stop_once(self):
        for _ in range(3):
            self.set_break(self.path, 2)
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:2"] * 4)
        self.assertEqual(self.hits(self.path, 2), [4, 4, 4])

    def test_disabled_breakpoint_neither_stops_nor_counts(self):
        self.set_break(self.path, 2, enabled=0, ignore=2)
        self.run_program(self.path)
        self.assertEqual(self.stops, [])
        self.assertEqual(core.get_breaks(self.path, 2), [(1, 0, 0, None, 2, 0)])
        self.assertEqual(core.get_changed_bps_lists(), ([], []))

    def test_disabled_breakpoint_beside_an_enabled_one_does_not_count(self):
        self.set_break(self.path, 2)
        self.set_break(self.path, 2, enabled=0)
        self.set_break(self.path, 2)
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:2"] * 4)
        self.assertEqual(self.hits(self.path, 2), [4, 0, 4])

    def test_breakpoint_can_be_disabled_and_enabled_at_a_stop(self):
        self.set_break(self.path, 2)
        self.set_break(self.path, 5)

        def toggle(frame):
            if frame.f_lineno == 5:
                core.enable_breaks(self.path, 2, frame.f_globals["i"] % 2)
        self.at_stop = toggle
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:5", "program.py:5", "program.py:2"] * 2)

    def test_breakpoint_can_be_cleared_at_its_stop(self):
        self.set_break(self.path, 2)
        self.at_stop = lambda frame: core.clear_breaks(self.path, 2)
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:2"])

    def test_breakpoint_can_be_set_at_a_stop_for_a_line_ahead(self):
        self.set_break(self.path, 2, temporary=1)
        self.at_stop = lambda frame: self.set_break(self.path, 3, temporary=1)
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:2"] + ["program.py:3"] * 4)

    def test_all_breakpoints_can_be_cleared_at_a_stop(self):
        self.set_break(self.path, 2)
        self.set_break(self.path, 3)
        self.at_stop = lambda frame: core.clear_all_breaks()
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:2"])

    def test_breakpoints_outlive_an_end_of_tracing(self):
        self.set_break(self.path, 2)
        self.run_program(self.path)
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:2"] * 8)
        self.assertEqual(self.hits(self.path, 2), [8])

    def test_line_that_jumps_back_to_itself_counts_each_time(self):
        path = self.write("loop.py", "x = [i for i in range(3)]\n")
        self.set_break(path, 1)
        self.run_program(path)
        self.assertEqual(self.hits(path, 1), [4])
        self.assertEqual(self.stops, ["loop.py:1"] * 4)

    def test_exceptions_under_way_are_the_same_after_a_breakpoint(self):
        path = self.write("handler.py", """\
import sys
def note():
    seen.append(sys.exc_info()[:2])
def fail():
    try:
        try:
            raise KeyError("first")
        except KeyError:
            note()
            raise ValueError("second")
    finally:
        note()
try:
    fail()
except ValueError:
    note()
note()
""")
        undebugged = {"seen": []}
        execfile(path, undebugged)
        for line in range(1, 18):
            self.set_break(path, line, cond="no_such_name")
        seen = []
        self.run_program(path, seen=seen)
        self.assertEqual(repr(seen), repr(undebugged["seen"]))
        for line in (3, 8, 9, 12, 15):
            self.assert_in("handler.py:%d" % line, self.stops)


class StepTest(breakpoint_case.BreakpointTestCase):
    """However a thread came to stop, its breakpoints count."""

    def setUp(self):
        breakpoint_case.BreakpointTestCase.setUp(self)
        self.path = self.write("program.py", LOOP)

    def step(self, function):
        self.set_break(self.path, 5, temporary=1)
        self.at_stop = lambda frame: function()
        self.run_program(self.path)

    def test_step_onto_a_breakpoint_stops_once_and_counts_once(self):
        self.set_break(self.path, 2)
        self.set_break(self.path, 3, temporary=1)

        def step_once(frame):
            if len(self.stops) < 4:
                core.step_into()
        self.at_stop = step_once
        self.set_break(self.path, 5, temporary=1)
        self.run_program(self.path)
        self.assertEqual(self.stops[:4], ["program.py:5", "program.py:2", "program.py:3",
                                          "return program.py:3"])
        self.assertEqual(self.hits(self.path, 2), [4])

    def test_step_uses_an_ignore_count_up(self):
        self.set_break(self.path, 2, ignore=1)
        self.set_break(self.path, 5, temporary=1)

        def step_once(frame):
            if len(self.stops) == 1:
                core.step_into()
            else:
                core.stop_trace()
        self.at_stop = step_once
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:5", "program.py:2"])
        self.assertEqual(core.get_breaks(self.path, 2), [(1, 1, 0, None, 0, 1)])

    def test_step_onto_a_temporary_breakpoint_deletes_it(self):
        id = self.set_break(self.path, 2, temporary=1)
        self.step(core.step_into)
        self.assertEqual(self.stops[:2], ["program.py:5", "program.py:2"])
        self.assertEqual(self.changed[1], ([id], []))
        self.assertEqual(core.get_file_breaks(self.path), [])

    def test_step_over_a_call_does_not_pass_over_its_breakpoints(self):
        self.set_break(self.path, 3)
        self.step(core.step_over)
        self.assertEqual(self.stops[:3], ["program.py:5", "program.py:3", "return program.py:3"])

    def test_stop_of_a_step_at_a_return_counts_its_line_again(self):
        self.set_break(self.path, 3)
        self.set_break(self.path, 2, temporary=1)
        counts = []

        def step_over(frame):
            counts.append(self.hits(self.path, 3)[0])
            if len(self.stops) < 3:
                core.step_over()
            else:
                core.stop_trace()
        self.at_stop = step_over
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:2", "program.py:3", "return program.py:3"])
        self.assertEqual(counts, [0, 1, 2])

    def test_stop_of_step_out_at_a_return_counts_nothing(self):
        self.set_break(self.path, 3)
        counts = []

        def step_out(frame):
            counts.append(self.hits(self.path, 3)[0])
            if len(self.stops) < 2:
                core.step_out()
            else:
                core.stop_trace()
        self.at_stop = step_out
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:3", "return program.py:3"])
        self.assertEqual(counts, [1, 1])

    def test_return_does_not_stop_at_a_breakpoint_of_its_line(self):
        self.set_break(self.path, 3)
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:3"] * 4)


class ConditionTest(breakpoint_case.BreakpointTestCase):

    def setUp(self):
        breakpoint_case.BreakpointTestCase.setUp(self)
        self.path = self.write("program.py", LOOP)

    def stops_with(self, cond, **variables):
        """How often a breakpoint with this condition stops in four hits."""
        self.set_break(self.path, 2, cond=cond)
        del self.stops[:]
        self.run_program(self.path, **variables)
        self.assertEqual(self.hits(self.path, 2), [4])
        core.clear_all_breaks()
        return len(self.stops)

    def test_true_condition_stops_and_a_false_one_does_not(self):
        self.assertEqual(self.stops_with("True"), 4)
        self.assertEqual(self.stops_with("False"), 0)
        self.assertEqual(self.stops_with("x == 2"), 1)
        self.assertEqual(self.stops_with("x % 2"), 2)

    def test_any_object_is_true_or_false(self):
        for cond in ("1", "'0'", "[0]", "object()", "-1", "x or True"):
            self.assertEqual(self.stops_with(cond), 4)
        for cond in ("0", "''", "[]", "None", "{}", "0.0", "x and None"):
            self.assertEqual(self.stops_with(cond), 0)

    def test_condition_sees_locals_globals_and_builtins(self):
        self.assertEqual(self.stops_with("x == 1 and i == 1 and len([x]) == 1"), 1)
        self.assertEqual(self.stops_with("x < limit", limit=3), 3)
        self.assertEqual(self.stops_with("'y' in locals()"), 0)

    def test_condition_of_a_line_of_the_module_sees_its_variables(self):
        self.set_break(self.path, 5, cond="i == 2")
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:5"])

    def test_condition_that_raises_stops(self):
        for cond in ("no_such_name", "1 / 0", "x.y", "fail()"):
            self.assertEqual(self.stops_with(cond), 4)

    def test_condition_that_does_not_compile_stops(self):
        for cond in ("", " ", "x >", "x = 1", "print x", "(", "\0", " x", "\n", "yield",
                     "'\xe9"):
            self.assertEqual((cond, self.stops_with(cond)), (cond, 4))

    def test_condition_may_end_in_blanks_or_a_newline(self):
        for cond in ("x == 2 ", "x == 2\n", "x == 2 # two"):
            self.assertEqual((cond, self.stops_with(cond)), (cond, 1))

    def test_condition_whose_result_has_no_truth_stops(self):
        class Truthless(object):
            def __nonzero__(self):
                raise ValueError("neither")
        self.assertEqual(self.stops_with("value", value=Truthless()), 4)

    def test_error_of_a_condition_is_not_visible_to_the_program(self):
        path = self.write("quiet.py", """\
import sys
def work():
    seen.append(sys.exc_info())
    x = 1
    seen.append(sys.exc_info())
work()
seen.append(sys.exc_info())
""")
        for line in (3, 4, 5, 7):
            self.set_break(path, line, cond="no_such_name")
        seen = []
        sys.exc_clear()
        self.run_program(path, seen=seen)
        self.assertEqual(len(self.stops), 4)
        self.assertEqual(seen, [(None, None, None)] * 3)

    def test_condition_that_cannot_be_evaluated_uses_nothing_up(self):
        for cond in ("no_such_name", ""):
            self.set_break(self.path, 2, temporary=1, cond=cond, ignore=2)
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:2"] * 4)
        self.assertEqual(core.get_breaks(self.path, 2),
                         [(2, 1, 1, "", 2, 4), (1, 1, 1, "no_such_name", 2, 4)])

    def test_hit_with_a_false_condition_is_counted_and_not_ignored(self):
        self.set_break(self.path, 2, cond="x > 1", ignore=1)
        self.set_break(self.path, 5, cond="i == 1")
        counts = []
        self.at_stop = lambda frame: counts.extend(core.get_breaks(self.path, 2))
        self.run_program(self.path)
        # At the first stop x has only been 0.
        self.assertEqual(counts[0], (1, 1, 0, "x > 1", 1, 1))
        self.assertEqual(self.stops, ["program.py:5", "program.py:2"])
        self.assertEqual(core.get_breaks(self.path, 2), [(1, 1, 0, "x > 1", 0, 4)])

    def test_one_condition_does_not_decide_for_another(self):
        self.set_break(self.path, 2, cond="x == 1")
        self.set_break(self.path, 2, cond="x == 2")
        self.set_break(self.path, 2, cond="False")
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:2"] * 2)
        self.assertEqual(self.hits(self.path, 2), [4, 4, 4])

    def test_locals_that_a_condition_sets_are_not_written_back(self):
        path = self.write("locals.py", """\
def work(x):
    y = 1
    z = 2
    return x, y, z
result = work(0)
""")
        self.set_break(path, 3, cond="[x for x in (7, 8)] and [y for y in (9,)] and 0")
        variables = self.run_program(path)
        self.assertEqual(variables["result"], (0, 1, 2))

    def test_what_a_condition_does_to_objects_stays(self):
        seen = []
        self.set_break(self.path, 2, cond="seen.append(x)")
        self.run_program(self.path, seen=seen)
        self.assertEqual(seen, [0, 1, 2, 3])
        self.assertEqual(self.stops, [])

    def test_code_that_a_condition_calls_is_not_debugged(self):
        self.set_break(self.path, 2)
        self.set_break(self.path, 5, cond="work(10) == 11")
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:5", "program.py:2"] * 4)
        self.assertEqual(self.hits(self.path, 2), [4])

    def test_condition_can_be_changed_at_a_stop(self):
        self.set_break(self.path, 2, cond="x == 0")
        self.at_stop = lambda frame: core.set_breaks_cond(self.path, 2, "x == 3")
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:2"] * 2)

    def test_condition_can_be_removed_at_a_stop(self):
        self.set_break(self.path, 2, cond="x == 1")
        self.at_stop = lambda frame: core.set_breaks_cond(self.path, 2, None)
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:2"] * 3)

    def test_condition_runs_once_for_each_hit(self):
        calls = []
        self.set_break(self.path, 2, cond="calls.append(x) or True")
        self.run_program(self.path, calls=calls)
        self.assertEqual(calls, [0, 1, 2, 3])


class IgnoreTest(breakpoint_case.BreakpointTestCase):

    def setUp(self):
        breakpoint_case.BreakpointTestCase.setUp(self)
        self.path = self.write("program.py", LOOP)

    def test_ignore_count_of_2_passes_two_hits_over(self):
        self.set_break(self.path, 2, ignore=2)
        self.set_break(self.path, 5)
        counts = []
        self.at_stop = lambda frame: counts.append(core.get_breaks(self.path, 2)[0][4:])
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:5"] * 3
                         + ["program.py:2", "program.py:5", "program.py:2"])
        self.assertEqual(counts, [(2, 0), (1, 1), (0, 2), (0, 3), (0, 3), (0, 4)])

    def test_ignore_count_above_the_hits_never_stops(self):
        self.set_break(self.path, 2, ignore=100)
        self.run_program(self.path)
        self.assertEqual(self.stops, [])
        self.assertEqual(core.get_breaks(self.path, 2), [(1, 1, 0, None, 96, 4)])

    def test_negative_ignore_count_ignores_nothing(self):
        self.set_break(self.path, 2, ignore=-1)
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:2"] * 4)
        self.assertEqual(core.get_breaks(self.path, 2), [(1, 1, 0, None, -1, 4)])

    def test_only_true_conditions_use_the_ignore_count_up(self):
        self.set_break(self.path, 2, cond="x % 2", ignore=1)
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:2"])
        self.assertEqual(core.get_breaks(self.path, 2), [(1, 1, 0, "x % 2", 0, 4)])

    def test_ignore_count_can_be_set_at_a_stop(self):
        self.set_break(self.path, 2)
        self.at_stop = lambda frame: core.ignore_breaks(self.path, 2, 2)
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:2"] * 2)

    def test_each_breakpoint_of_a_place_has_its_own_ignore_count(self):
        self.set_break(self.path, 2, ignore=3)
        self.set_break(self.path, 2, ignore=1)
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:2"] * 3)
        self.assertEqual(core.get_breaks(self.path, 2),
                         [(2, 1, 0, None, 0, 4), (1, 1, 0, None, 0, 4)])


class TemporaryTest(breakpoint_case.BreakpointTestCase):

    def setUp(self):
        breakpoint_case.BreakpointTestCase.setUp(self)
        self.path = self.write("program.py", LOOP)

    def test_temporary_breakpoint_stops_once_and_is_gone(self):
        self.set_break(self.path, 2, temporary=1)
        listed = []
        self.at_stop = lambda frame: listed.extend(core.get_breaks(self.path, 2))
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:2"])
        self.assertEqual(listed, [])
        self.assertEqual(core.get_file_breaks(self.path), [])

    def test_temporary_breakpoint_that_fired_is_reported_by_its_id_alone(self):
        id = self.set_break(self.path, 2, temporary=1)
        later = []
        self.at_stop = lambda frame: later.append(core.get_changed_bps_lists())
        self.run_program(self.path)
        self.assertEqual(self.changed, [([id], [])])
        self.assertEqual(later, [([], [])])
        self.assertEqual(core.get_changed_bps_lists(), ([], []))

    def test_temporary_breakpoint_stays_while_it_is_ignored(self):
        self.set_break(self.path, 2, temporary=1, ignore=2)
        self.set_break(self.path, 5, cond="i == 2")
        self.at_stop = lambda frame: self.listed.append(core.get_breaks(self.path, 2))
        self.listed = []
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:5", "program.py:2"])
        self.assertEqual(self.listed, [[(1, 1, 1, None, 0, 2)], []])

    def test_temporary_breakpoint_stays_while_its_condition_is_false(self):
        self.set_break(self.path, 2, temporary=1, cond="x >= 2")
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:2"])
        self.assertEqual(core.get_file_breaks(self.path), [])

    def test_temporary_breakpoint_that_never_stops_stays(self):
        self.set_break(self.path, 2, temporary=1, cond="x > 100")
        self.run_program(self.path)
        self.assertEqual(core.get_breaks(self.path, 2), [(1, 1, 1, "x > 100", 0, 4)])

    def test_temporary_breakpoint_fires_once_though_it_was_on_the_changed_list(self):
        # Its first hits are counted and not yet reported when it fires.
        id = self.set_break(self.path, 2, temporary=1, cond="x >= 2")
        later = []
        self.at_stop = lambda frame: later.append(
            (core.get_breaks(self.path, 2), core.get_changed_bps_lists()))
        self.run_program(self.path)
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:2"])
        self.assertEqual(self.changed, [([id], [])])
        self.assertEqual(later, [([], ([], []))])
        self.assertEqual(core.get_changed_bps_lists(), ([], []))

    def test_fired_breakpoint_among_others_that_changed(self):
        lasting = self.set_break(self.path, 2, cond="x < 0")
        temporary = self.set_break(self.path, 2, temporary=1, ignore=1)
        self.run_program(self.path)
        self.assertEqual(self.changed, [
            ([temporary], [(self.path, 2, lasting, 1, 0, "x < 0", 0, 2)])])

    def test_several_temporary_breakpoints_of_a_place_fire_together(self):
        ids = [self.set_break(self.path, 2, temporary=1) for _ in range(3)]
        self.run_program(self.path)
        self.assertEqual(self.stops, ["program.py:2"])
        self.assertEqual(sorted(self.changed[0][0]), ids)
        self.assertEqual(self.changed[0][1], [])
        self.assertEqual(core.get_breaks(self.path, 2), [])

    def test_temporary_breakpoints_at_any_place_of_the_line_list_fire(self):
        for position in range(3):
            ids = [self.set_break(self.path, 2, temporary=int(i == position), cond="x == 0")
                   for i in range(3)]
            del self.changed[:]
            self.run_program(self.path)
            self.assertEqual(self.changed[0][0], [ids[position]])
            left = [item[0] for item in core.get_breaks(self.path, 2)]
            del ids[position]
            self.assertEqual(left, ids[::-1])
            core.clear_all_breaks()

    def test_temporary_breakpoint_can_be_set_again_when_it_fired(self):
        self.set_break(self.path, 2, temporary=1)
        self.at_stop = lambda frame: self.set_break(self.path, 2, temporary=1)
        self.run_program(self.path)
        self.assertEqual(self.changed, [([1], []), ([2], []), ([3], []), ([4], [])])


class ChangedListsTest(breakpoint_case.BreakpointTestCase):

    def setUp(self):
        breakpoint_case.BreakpointTestCase.setUp(self)
        self.path = self.write("program.py", LOOP)

    def changed_ids(self):
        return [item[2] for item in core.get_changed_bps_lists()[1]]

    def test_changed_breakpoint_is_a_tuple_of_eight(self):
        self.set_break(self.path, 2, cond="False", ignore=3)
        self.set_break(self.path, 2, ignore=9)
        self.run_program(self.path)
        self.assertEqual(core.get_changed_bps_lists(),
                         ([], [(self.path, 2, 1, 1, 0, "False", 3, 4),
                               (self.path, 2, 2, 1, 0, None, 5, 4)]))

    def test_callback_is_given_the_changes_since_the_last_stop(self):
        self.set_break(self.path, 2, cond="False")
        self.set_break(self.path, 5, cond="i in (1, 3)")
        self.run_program(self.path)
        self.assertEqual([sorted([item[2:3] + item[-1:] for item in changed[1]])
                          for changed in self.changed],
                         [[(1, 1), (2, 2)], [(1, 3), (2, 4)]])

    def test_callback_finds_the_lists_taken(self):
        self.set_break(self.path, 2)
        later = []
        self.at_stop = lambda frame: later.append(core.get_changed_bps_lists())
        self.run_program(self.path)
        self.assertEqual(later, [([], [])] * 4)

    def test_taking_the_lists_empties_them(self):
        self.set_break(self.path, 2, cond="False")
        self.run_program(self.path)
        self.assertEqual(len(core.get_changed_bps_lists()[1]), 1)
        self.assertEqual(core.get_changed_bps_lists(), ([], []))

    def test_latest_newcomer_comes_first_and_changing_again_keeps_a_place(self):
        self.set_break(self.path, 3, cond="False")
        self.set_break(self.path, 2, cond="False")
        self.set_break(self.path, 5, cond="False")
        self.run_program(self.path)
        # Line 5 was first and came again and again.
        self.assertEqual(self.changed_ids(), [1, 2, 3])

    def test_breakpoints_of_one_line_change_newest_first(self):
        for _ in range(3):
            self.set_break(self.path, 2, cond="False")
        self.run_program(self.path)
        self.assertEqual(self.changed_ids(), [1, 2, 3])

    def test_cleared_breakpoints_are_not_reported(self):
        for line in (2, 3, 5):
            self.set_break(self.path, line, cond="False")
        self.run_program(self.path)
        core.clear_breaks(self.path, 2)
        self.assertEqual(self.changed_ids(), [2, 3])
        self.run_program(self.path)
        core.clear_all_breaks()
        self.assertEqual(core.get_changed_bps_lists(), ([], []))

    def test_changes_are_reported_as_they_stand_when_the_lists_are_taken(self):
        self.set_break(self.path, 2, cond="False")
        self.run_program(self.path)
        core.enable_breaks(self.path, 2, 0)
        core.ignore_breaks(self.path, 2, 8)
        core.set_breaks_cond(self.path, 2, None)
        self.assertEqual(core.get_changed_bps_lists(),
                         ([], [(self.path, 2, 1, 0, 0, None, 8, 4)]))

    def test_reset_forgets_the_changes(self):
        self.set_break(self.path, 2, cond="False")
        self.run_program(self.path)
        core.reset()
        self.assertEqual(core.get_changed_bps_lists(), ([], []))

    def test_listing_changes_nothing(self):
        self.set_break(self.path, 2, cond="False")
        self.run_program(self.path)
        core.get_breaks(self.path, 2)
        core.get_file_breaks(self.path)
        self.assertEqual(self.changed_ids(), [1])
