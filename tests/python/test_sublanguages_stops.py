"""Stops in a sub-language: what the hook is asked, stepping, breakpoints, exceptions."""

import os
import sys

import harness
from harness import core
from sublanguage_case import SubLanguageTestCase

CALL, LINE, RETURN, EXCEPTION = 0, 1, 2, -1
FREE, INTO, OVER, OUT = -1, 0, 1, 2


class QuestionsTest(SubLanguageTestCase):

    def questions(self, source="run(part, 1)\n", answer=False, first_request="continue_run",
                  **answers):
        """What _StopHere is asked while a program runs: (function, line, event, step kind)."""
        self.asking = self.register(**answers)
        self.asking.note_places(answer)
        self.run_program(source, first_request)
        return self.asking.places

    def test_call_line_and_return_events_are_asked_about(self):
        # The stop test asks with the step kind; the matcher, as if to step over. Where a line
        # does not stop, it is matched a second time.
        self.assertEqual(self.questions(), [
            ("part", 7, CALL, FREE), ("part", 7, CALL, OVER),
            ("part", 8, LINE, FREE), ("part", 8, LINE, OVER), ("part", 8, LINE, OVER),
            ("part", 9, LINE, FREE), ("part", 9, LINE, OVER), ("part", 9, LINE, OVER),
            ("part", 9, RETURN, FREE), ("part", 9, RETURN, OVER)])

    def test_exception_events_are_asked_about(self):
        places = self.questions("""\
try:
    run(part, None)
except TypeError:
    pass
""")
        self.assertEqual([place for place in places if place[2] == EXCEPTION],
                         [("part", 8, EXCEPTION, FREE), ("part", 8, EXCEPTION, OVER)])
        self.assertEqual(places[-2:], [("part", 8, RETURN, FREE), ("part", 8, RETURN, OVER)])

    def test_frames_other_than_key_frames_are_not_asked_about(self):
        places = self.questions("run(page, 1)\nx = 1\n")
        self.assertEqual(set([place[0] for place in places]), set(["page", "part"]))

    def test_nothing_is_asked_where_no_hook_is_active(self):
        self.assertEqual(self.questions("part(1)\n"), [])

    def test_arguments_are_the_frame_and_two_numbers(self):
        self.questions()
        frame, event, kind = self.asking.asked("_StopHere")[0]
        self.assert_is(frame.f_code, self.code("part"))
        self.assertEqual((type(event), type(kind)), (int, int))

    def test_question_that_is_answered_by_a_stop_is_not_repeated(self):
        self.requests = ["continue_run"] * 10
        self.assertEqual(self.questions(answer=True), [
            ("part", 7, CALL, FREE), ("part", 8, LINE, FREE), ("part", 9, LINE, FREE),
            ("part", 9, RETURN, FREE)])
        self.assertEqual(self.stops, ["part 7", "part 8", "part 9", "return part 9"])

    def test_hook_that_owns_the_key_code_is_asked_though_another_is_active(self):
        other = self.hook(GetMarkerFrames=[self.code("prepare")])
        other.note_places()
        core.register_sub_language_hook(other)
        active = self.hook(GetSubLanguageFrames=[self.code("page")])
        active.note_places()
        core.register_sub_language_hook(active)
        other.answers["_GetSubLanguageFrames"] = [self.code("part")]
        self.run_program("run(part, 1)\n")
        # The matcher knows the active hook only.
        self.assertEqual(set([place[3] for place in other.places]), set([FREE]))
        self.assertEqual(set([place[3] for place in active.places]), set([OVER]))

    def test_nothing_is_asked_once_tracing_is_off(self):
        def stop_tracing(frame, event, kind):
            core.stop_trace()
            return False
        places = self.questions(answer=stop_tracing)
        self.assertEqual(set([place[:3] for place in places]), set([("part", 7, CALL)]))


class StepKindTest(SubLanguageTestCase):
    """The step kind says what the thread was asked to do."""

    def stop_tests(self, *requests, **later):
        """(function, event, kind) of each question of the stop test after these requests, made at
        the first line of page()."""
        hook = self.register(GetStepOutFrame=lambda frame: frame.f_back)
        questions, self.place = [], None

        def stop_here(frame, event, kind):
            # The first question at each place is the stop test's.
            place = (frame, frame.f_lasti, event)
            if place != self.place:
                questions.append((frame.f_code.co_name, event, kind))
            self.place = place
            return frame.f_lineno == 2 and event == LINE and not self.stops

        def make_requests(frame):
            del questions[:]
            for request in requests:
                getattr(core, request)()
        hook.answers["_StopHere"] = stop_here
        self.requests = [make_requests] + [later.get("later", "continue_run")] * 30
        self.run_program()
        self.assertEqual(self.stops[0], "page 2")
        return questions

    def kinds(self, questions):
        return set([question[2] for question in questions])

    def test_continue_is_minus_1(self):
        self.assertEqual(self.kinds(self.stop_tests("continue_run")), set([FREE]))

    def test_step_into_is_0(self):
        self.assertEqual(self.stop_tests("step_into")[0], ("page", LINE, INTO))

    def test_stop_is_0(self):
        self.assertEqual(self.stop_tests("stop")[0], ("page", LINE, INTO))

    def test_step_over_from_key_code_is_1(self):
        self.assertEqual(self.stop_tests("step_over")[0], ("page", LINE, OVER))

    def test_step_over_a_line_of_key_code_is_1(self):
        self.assertEqual(self.stop_tests("step_over_line")[0], ("page", LINE, OVER))

    def test_step_over_is_1_in_the_key_code_that_is_called_too(self):
        self.assert_in(("part", CALL, OVER), self.stop_tests("step_over", later="step_over"))

    def test_step_over_from_plain_code_is_minus_1(self):
        hook = self.register()
        hook.note_places()
        self.requests = ["step_over"] * 9
        self.run_program("x = 1\nrun(part, 1)\n", "step_into")
        self.assertEqual(hook.places[0], ("part", 7, CALL, FREE))

    def test_step_out_is_2(self):
        questions = self.stop_tests("step_out")
        self.assertEqual(self.kinds(questions), set([OUT]))
        self.assert_in(("part", RETURN, OUT), questions)

    def test_stop_after_a_step_out_is_2_still(self):
        # It leaves the frame that the step out waits for.
        self.assertEqual(self.stop_tests("step_out", "stop")[0], ("page", LINE, OUT))


class SteppingTest(SubLanguageTestCase):

    def steps(self, requests, source="x = 1\nrun(page, 1)\ny = 2\n",
              first_request="step_into", **answers):
        self.registered = self.register(**answers)
        self.requests = requests
        self.run_program(source, first_request)
        return self.stops

    def test_step_into_goes_through_hidden_frames(self):
        self.assertEqual(self.steps(["step_into"] * 30), [
            "<module> 1", "<module> 2",
            "page 2", "page 3", "page 4", "part 8", "part 9", "return part 9",
            "page 5", "return page 5",
            "<module> 3", "return <module> 3"])

    def test_without_the_hook_hidden_frames_are_stepped_into(self):
        self.requests = ["step_into"] * 30
        self.run_program("x = 1\nrun(page, 1)\ny = 2\n", "step_into")
        self.assert_in("prepare 6", self.stops)
        self.assert_in("fetch 10", self.stops)

    def test_step_over_in_key_code_stays_in_its_frame(self):
        self.assertEqual(self.steps(["step_into", "step_into"] + ["step_over"] * 30), [
            "<module> 1", "<module> 2", "page 2", "page 3", "page 4", "page 5", "return page 5",
            "<module> 3", "return <module> 3"])

    def test_step_over_in_the_program_goes_over_the_language(self):
        self.assertEqual(self.steps(["step_over"] * 9), [
            "<module> 1", "<module> 2", "<module> 3", "return <module> 3"])

    def test_hook_that_says_yes_stops_where_stepping_would_not(self):
        hook = self.register()
        hook.note_places(lambda frame, event, kind: event == LINE and frame.f_lineno == 9)
        self.requests = ["continue_run"] * 9
        self.run_program()
        self.assertEqual(self.stops, ["part 9"])

    def test_hook_may_stop_at_a_call_event(self):
        hook = self.register()
        hook.note_places(lambda frame, event, kind: event == CALL)
        self.requests = ["continue_run"] * 9
        self.run_program()
        self.assertEqual(self.stops, ["page 1", "part 7"])

    def test_hook_may_stop_at_a_return_event(self):
        hook = self.register()
        hook.note_places(lambda frame, event, kind: event == RETURN)
        self.requests = ["continue_run"] * 9
        self.run_program()
        self.assertEqual(self.stops, ["return part 9", "return page 5"])

    def test_failing_line_callback_at_a_call_event_ends_tracing(self):
        def fails(frame):
            raise ValueError("server")
        hook = self.register()
        hook.note_places(lambda frame, event, kind: event == CALL)
        self.requests = [fails]
        self.assertEqual(self.run_program()["x"], 2)
        self.assertEqual(self.stops, ["page 1"])
        self.assertEqual(self.server.stream.count("TRACER CALL STOPPED TRACER\n"), 1)

    def test_hook_that_says_no_leaves_a_key_frame_to_stepping(self):
        self.steps(["step_into"] * 30)
        self.assertEqual(self.registered.asked("_StopHere")[0][1:], (CALL, INTO))
        self.assert_in("page 3", self.stops)

    def test_key_frame_of_a_hidden_file_stops_only_where_the_hook_says(self):
        steps = self.steps(["step_into"] * 30, GetModulePaths=[(self.folder + "/impl", 1),
                                                               (self.folder + "/page", 1)])
        self.assertEqual(steps, ["<module> 1", "<module> 2", "<module> 3", "return <module> 3"])

    def test_frame_whose_category_cannot_be_found_out_does_not_stop(self):
        steps = self.steps(["step_into"] * 30, GetModulePaths=[42])
        self.assertEqual(steps, ["<module> 1", "<module> 2", "<module> 3", "return <module> 3"])

    def test_plain_function_called_from_the_language_is_stepped_into(self):
        self.page["fetch"] = self.load("plain.py", "def plain(n):\n    return n\n")["plain"]
        self.assertEqual(self.steps(["step_into"] * 6)[3:6], ["page 3", "plain 2",
                                                              "return plain 2"])

    def test_stepping_is_as_ever_outside_the_marker_frame(self):
        self.assertEqual(self.steps(["step_into"] * 30, "part(1)\n"), [
            "<module> 1", "part 8", "part 9", "return part 9", "return <module> 1"])


class StepOutTest(SubLanguageTestCase):

    def out_of_part(self, target):
        """The stops after a step out of part(), whose hook names this as the frame to stop in."""
        hook = self.register(GetStepOutFrame=target)
        hook.note_places(lambda frame, event, kind: event == LINE and frame.f_lineno == 8)
        self.requests = ["step_out", "continue_run"]
        self.run_program()
        self.assertEqual([call[0].f_code for call in hook.asked("_GetStepOutFrame")],
                         [self.code("part")])
        return self.stops[1:]

    def test_stops_in_the_frame_that_the_hook_names(self):
        self.assertEqual(self.out_of_part(lambda frame: frame.f_back), ["page 5"])

    def test_frame_further_out_may_be_named(self):
        self.assertEqual(self.out_of_part(lambda frame: frame.f_back.f_back.f_back),
                         ["<module> 2"])

    def test_return_of_a_key_frame_does_not_stop_by_itself(self):
        self.assert_not_in("return part 9", self.out_of_part(lambda frame: frame.f_back))

    def test_none_stops_at_the_next_place(self):
        self.assertEqual(self.out_of_part(None), ["part 9"])

    def test_anything_else_is_a_frame_that_was_left(self):
        for target in (42, "text", (1,), object()):
            self.stops = []
            self.assertEqual(self.out_of_part(lambda frame: target), ["part 9"])
            self.init()

    def test_failure_comes_out_of_step_out_and_changes_nothing(self):
        hook = self.register(GetStepOutFrame=ValueError("hook"))
        hook.note_places(lambda frame, event, kind: event == LINE and frame.f_lineno == 8)

        def step_out(frame):
            core.step_over()
            self.assert_raises(ValueError, "hook", core.step_out)
        self.requests = [step_out, "continue_run"]
        self.run_program()
        self.assertEqual(self.stops, ["part 8", "part 9"])

    def test_without_a_hook_the_caller_is_stopped_in(self):
        hook = self.register(GetStepOutFrame=ValueError("hook"))
        self.requests = ["step_into", "step_out"]
        self.run_program("def f():\n    return 1\nx = f()\ny = 2\n", "step_into")
        self.assertEqual(hook.asked("_GetStepOutFrame"), [])


class BreakpointTestCase(SubLanguageTestCase):

    def stops_with(self, translation=None, here=True, **answers):
        """Stops of a free run with a hook that maps each line n of key code to 100 + n."""
        def stop_here(frame, event, kind):
            return here and kind == OVER and event == LINE

        def translate(frame, flag):
            self.flags.append(flag)
            return ("page.lang", 100 + frame.f_lineno)
        self.flags = []
        self.registered = self.register(StopHere=stop_here,
                                        TranslateFrame=translation or translate, **answers)
        self.requests = ["continue_run"] * 20
        self.run_program()
        return self.stops


class BreakpointsTest(BreakpointTestCase):

    def setUp(self):
        BreakpointTestCase.setUp(self)
        self.page_path = os.path.join(self.folder, "page.py")

    def test_breakpoint_in_a_file_of_the_language(self):
        core.set_break("page.lang", 103, 1, 0, None, 0)
        self.assertEqual(self.stops_with(), ["page 3"])
        self.assertEqual(set(self.flags), set([0]))

    def test_breakpoints_of_several_lines(self):
        for line in (102, 105, 108):
            core.set_break("page.lang", line, 1, 0, None, 0)
        self.assertEqual(self.stops_with(), ["page 2", "part 8", "page 5"])

    def test_files_name_is_compared_exactly(self):
        for name in ("PAGE.lang", "./page.lang", "page.lan", "/page.lang",
                     os.path.join(self.folder, "page.lang")):
            core.set_break(name, 103, 1, 0, None, 0)
        self.assertEqual(self.stops_with(), [])

    def test_python_line_of_a_key_frame_is_no_place(self):
        core.set_break(self.page_path, 3, 1, 0, None, 0)
        self.assertEqual(self.stops_with(), [])

    def test_python_line_is_one_while_no_hook_is_active(self):
        core.set_break(self.page_path, 8, 1, 0, None, 0)
        self.register()
        self.requests = ["continue_run"]
        self.run_program("part(1)\n")
        self.assertEqual(self.stops, ["part 8"])

    def test_breakpoint_in_a_hidden_frame_stops(self):
        core.set_break(os.path.join(self.folder, "impl/engine.py"), 6, 1, 0, None, 0)
        self.assertEqual(self.stops_with(), ["prepare 6"])

    def test_breakpoint_in_plain_code_stops_as_ever(self):
        path = self.script("")
        core.set_break(path, 2, 1, 0, None, 0)
        self.assertEqual(self.stops_with(), ["<module> 2"])

    def test_where_the_hook_would_not_stop_there_is_no_place(self):
        core.set_break("page.lang", 103, 1, 0, None, 0)
        self.assertEqual(self.stops_with(here=False), [])
        self.assertEqual(self.registered.asked("_TranslateFrame"), [])

    def test_place_that_is_no_pair_of_name_and_line_is_none(self):
        core.set_break("page.lang", 103, 1, 0, None, 0)
        for place in (None, 42, "text", (), ("page.lang",), ("page.lang", "103"), (103, 103),
                      ["page.lang", 103], ("page\0lang", 103), ("page.lang", None),
                      ("page.lang", 2 ** 40)):
            self.assertEqual(self.stops_with(lambda frame, flag: place), [])
            self.init()
            core.set_break("page.lang", 103, 1, 0, None, 0)

    def test_place_may_have_more_to_it(self):
        core.set_break("page.lang", 103, 1, 0, None, 0)
        self.assertEqual(self.stops_with(
            lambda frame, flag: ("page.lang", 100 + frame.f_lineno, "column", 7)), ["page 3"])

    def test_failure_to_translate_is_not_seen_by_the_program(self):
        core.set_break("page.lang", 103, 1, 0, None, 0)

        def translate(frame, flag):
            raise ValueError("hook")
        self.assertEqual(self.stops_with(translate), [])

    def test_name_that_the_hook_keeps_nowhere_is_used_safely(self):
        core.set_break("page.lang" * 50, 103, 1, 0, "True", 0)
        self.assertEqual(self.stops_with(
            lambda frame, flag: ("".join(["page.lang"] * 50), 100 + frame.f_lineno)), ["page 3"])

    def test_hook_is_asked_where_no_breakpoint_is_set_at_all(self):
        self.stops_with()
        self.assertEqual(len(self.flags) > 0, True)

    def test_disabled_breakpoint_does_not_stop(self):
        core.set_break("page.lang", 103, 0, 0, None, 0)
        self.assertEqual(self.stops_with(), [])
        self.assertEqual(core.get_breaks("page.lang", 103)[0][5], 0)

    def test_temporary_breakpoint_stops_once(self):
        core.set_break("page.lang", 103, 1, 1, None, 0)
        self.assertEqual(self.stops_with(), ["page 3"])
        self.assertEqual(core.get_breaks("page.lang", 103), [])

    def test_stop_counts_once(self):
        core.set_break("page.lang", 103, 1, 0, None, 0)
        self.stops_with()
        self.assertEqual(core.get_breaks("page.lang", 103)[0][5], 1)

    def test_pass_that_does_not_stop_counts_twice(self):
        # The stop test and the line event each ask the matcher.
        core.set_break("page.lang", 103, 1, 0, "0", 0)
        self.assertEqual(self.stops_with(Eval=False), [])
        self.assertEqual(core.get_breaks("page.lang", 103)[0][5], 2)

    def test_ignore_count_is_used_up_twice_as_fast(self):
        core.set_break("page.lang", 103, 1, 0, None, 1)
        self.assertEqual(self.stops_with(), ["page 3"])
        self.assertEqual(core.get_breaks("page.lang", 103)[0][4:], (0, 2))

    def test_stop_that_the_hook_asks_for_is_not_counted(self):
        core.set_break("page.lang", 103, 1, 0, None, 0)
        hook = self.register(StopHere=lambda frame, event, kind: (
            event == LINE and frame.f_lineno == 3), TranslateFrame=("page.lang", 103))
        self.requests = ["continue_run"]
        self.run_program()
        self.assertEqual(self.stops, ["page 3"])
        self.assertEqual(core.get_breaks("page.lang", 103)[0][5], 0)
        self.assertEqual(hook.asked("_TranslateFrame"), [])

    def test_ordinary_step_at_a_breakpoint_counts_it(self):
        core.set_break("page.lang", 103, 1, 0, "0", 0)
        self.register(StopHere=lambda frame, event, kind: kind == OVER and event == LINE,
                      TranslateFrame=lambda frame, flag: ("page.lang", 100 + frame.f_lineno),
                      Eval=False)
        self.requests = ["step_into"] * 3 + ["continue_run"] * 9
        self.run_program(first_request="step_into")
        self.assertEqual(self.stops[:3], ["<module> 1", "page 2", "page 3"])
        self.assertEqual(core.get_breaks("page.lang", 103)[0][5], 2)


class ConditionsTest(BreakpointTestCase):
    """Conditions are the language's own."""

    def stops_on(self, answer, **breakpoint):
        core.set_break("page.lang", 103, 1, breakpoint.get("temporary", 0), "n is big",
                       breakpoint.get("ignore", 0))
        return self.stops_with(Eval=answer)

    def test_condition_is_evaluated_by_the_hook(self):
        self.assertEqual(self.stops_on(True), ["page 3"])
        condition, frame = self.registered.asked("_Eval")[0]
        self.assertEqual((condition, type(condition)), ("n is big", str))
        self.assert_is(frame.f_code, self.code("page"))

    def test_condition_that_fails_does_not_stop(self):
        for answer in (False, None, 0, "", []):
            self.assertEqual(self.stops_on(answer), [])
            self.init()

    def test_condition_that_holds_stops(self):
        for answer in (1, "text", [0]):
            self.stops = []
            self.assertEqual(self.stops_on(answer), ["page 3"])
            self.init()

    def test_condition_that_cannot_be_evaluated_stops(self):
        for error in (ValueError("hook"), SystemExit(1)):
            self.stops = []
            self.assertEqual(self.stops_on(error, ignore=3, temporary=1), ["page 3"])
            self.assertEqual(core.get_breaks("page.lang", 103)[0][2:], (1, "n is big", 3, 1))
            self.init()

    def test_answer_that_has_no_truth_stops(self):
        class Unclear(object):
            def __nonzero__(self):
                raise ValueError("unclear")
        self.assertEqual(self.stops_on(Unclear()), ["page 3"])

    def test_local_variables_of_the_frame_are_up_to_date(self):
        seen = []

        def evaluate(text, frame):
            seen.append(dict(frame.f_locals))
            return True
        self.stops_on(evaluate)
        self.assertEqual(seen, [{"n": 1, "a": 1}])


class ExceptionsTest(SubLanguageTestCase):

    def exceptions_in(self, source, mode=1, **answers):
        """The exceptions reported while a program runs."""
        self.registered = self.register(**answers)
        core.set_exception_mode(mode)
        self.run_program(source)
        return self.exceptions

    IN_KEY_CODE = "try:\n    run(part, None)\nexcept TypeError:\n    pass\n"
    IN_HIDDEN_CODE = "try:\n    run(None)\nexcept TypeError:\n    pass\n"

    def test_hook_that_says_no_hides_an_exception_of_key_code(self):
        # It does so while it is active: the program's own frame is no concern of it.
        self.assertEqual(self.exceptions_in(self.IN_KEY_CODE, StopHere=False),
                         ["TypeError in <module>"])
        self.assertEqual(self.registered.asked("_TranslateFrame"), [])

    def test_exception_of_key_code_is_reported_in_every_frame_it_passes(self):
        self.assertEqual(
            self.exceptions_in(self.IN_KEY_CODE,
                               StopHere=lambda frame, event, kind: event == EXCEPTION),
            ["TypeError in part", "TypeError in run", "TypeError in <module>"])
        for arguments in self.registered.asked("_TranslateFrame"):
            self.assert_is(arguments[0].f_code, self.code("part"))
            self.assertEqual(arguments[1], 1)

    def test_exception_of_hidden_code_is_not_reported_while_the_hook_is_active(self):
        self.assertEqual(self.exceptions_in(self.IN_HIDDEN_CODE), ["TypeError in <module>"])

    def test_exception_of_plain_code_is_reported_as_ever(self):
        self.assertEqual(self.exceptions_in("try:\n    1 / 0\nexcept ZeroDivisionError:\n    pass\n"),
                         ["ZeroDivisionError in <module>"])

    def test_exception_of_plain_code_in_the_language_is_reported_as_ever(self):
        self.page["fetch"] = self.load("plain.py", "def plain(n):\n    return 1 / 0\n")["plain"]
        self.assertEqual(
            self.exceptions_in("try:\n    run(page, 1)\nexcept ZeroDivisionError:\n    pass\n"),
            ["ZeroDivisionError in plain", "ZeroDivisionError in page", "ZeroDivisionError in run",
             "ZeroDivisionError in <module>"])

    def ignored(self, translation, name, line):
        core.ignore_exception_loc(name, line, 1)
        return "TypeError in part" not in self.exceptions_in(
            self.IN_KEY_CODE, StopHere=lambda frame, event, kind: event == EXCEPTION,
            TranslateFrame=translation)

    def test_ignored_locations_are_the_languages(self):
        path = self.script("", "page.lang")
        self.assertEqual(self.ignored((path, 44), path, 44), True)

    def test_ignored_location_at_another_line_of_the_language(self):
        path = self.script("", "page.lang")
        self.assertEqual(self.ignored((path, 45), path, 44), False)

    def test_python_location_of_key_code_is_not_asked_for(self):
        self.assertEqual(self.ignored(("page.lang", 44), os.path.join(self.folder, "page.py"), 8),
                         False)

    def test_without_a_translation_the_python_location_counts(self):
        for translation in (ValueError("hook"), None, 42, (), ("page.lang",), (42, 44)):
            self.exceptions = []
            self.assertEqual(
                self.ignored(translation, os.path.join(self.folder, "page.py"), 8), True)
            self.init()

    def test_translation_may_have_more_to_it(self):
        path = self.script("", "page.lang")
        self.assertEqual(self.ignored((path, 44, "column"), path, 44), True)

    def test_failing_hook_hides_the_exception(self):
        def stop_here(frame, event, kind):
            if event == EXCEPTION:
                raise ValueError("hook")
            return False
        self.exceptions_in(self.IN_KEY_CODE, StopHere=stop_here)
        self.assertEqual(self.exceptions, ["TypeError in <module>"])

    def test_program_sees_its_own_exception(self):
        self.registered = self.register(StopHere=ValueError("hook"))
        core.set_exception_mode(1)
        variables = self.run_program("""\
import sys
try:
    run(part, None)
except TypeError, error:
    text = str(error)
""")
        self.assertEqual(variables["text"],
                         "unsupported operand type(s) for +: 'NoneType' and 'int'")
