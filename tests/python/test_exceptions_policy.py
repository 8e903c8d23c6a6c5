"""Which exception events stop: the exception modes and the order of the policy's tests."""

import sys

import harness
from exception_case import (ALWAYS, ASKED, DECISIONS, NEVER, PRINTED, PRINTED_TOO, UNHANDLED,
                            CatchInfo, ExceptionTestCase)
from harness import core

EVERY_MODE = (NEVER, ALWAYS, UNHANDLED, 3, PRINTED, PRINTED_TOO, 6, 7, -1, 2 ** 31 - 1)

CAUGHT = """\
def f():
    raise ValueError(1)
def g():
    f()
try:
    g()
except ValueError:
    pass
"""
CAUGHT_EVENTS = ["ValueError in f:2", "ValueError in g:4", "ValueError in <module>:6"]

UNCAUGHT = """\
def f():
    raise ValueError(1)
def g():
    f()
g()
"""
UNCAUGHT_EVENTS = ["ValueError in f:2", "ValueError in g:4", "ValueError in <module>:5"]

AT_THE_BOTTOM = """\
x = 1
raise ValueError(1)
"""


class ModeTest(ExceptionTestCase):

    def test_never_stop_passes_what_is_caught(self):
        self.assertEqual(self.run_program(CAUGHT, NEVER), [])
        self.assertEqual(self.decisions(), ["", "", ""])

    def test_never_stop_still_stops_where_the_program_ends(self):
        self.assertEqual(self.run_program(UNCAUGHT, NEVER), UNCAUGHT_EVENTS[2:])
        self.assertEqual(self.decisions(), ["", "", "leaving bottom frame"])
        self.assertEqual(self.ended_by, "ValueError: 1")

    def test_always_stop_stops_in_every_frame_on_the_way(self):
        self.assertEqual(self.run_program(CAUGHT, ALWAYS), CAUGHT_EVENTS)
        self.assertEqual(self.run_program(UNCAUGHT, ALWAYS), UNCAUGHT_EVENTS)

    def test_always_stop_asks_nothing_else(self):
        self.run_program(UNCAUGHT, ALWAYS)
        self.assertEqual(self.decisions(), ["", "", ""])
        self.assert_not_in("find_catch_info\n", self.stream.messages)
        self.assertEqual(self.stream.starting("Returning opcode of "), [])

    def test_unhandled_stop_passes_what_is_caught(self):
        self.assertEqual(self.run_program(CAUGHT, UNHANDLED), [])
        self.assertEqual(self.decisions(), ["", "", ""])

    def test_unhandled_stop_stops_where_it_was_raised_and_in_every_caller(self):
        self.assertEqual(self.run_program(UNCAUGHT, UNHANDLED), UNCAUGHT_EVENTS)
        self.assertEqual(self.decisions(), ["unhandled", "unhandled", "leaving bottom frame"])

    def test_unhandled_stop_takes_a_clause_of_another_type_for_none(self):
        source = CAUGHT.replace("except ValueError", "except KeyError")
        self.assertEqual(self.run_program(source, UNHANDLED), CAUGHT_EVENTS)
        self.assertEqual(self.decisions(), ["unhandled"] * 3)

    def test_printed_modes_stop_where_the_frame_prints_only(self):
        for mode in (PRINTED, PRINTED_TOO):
            self.stream.clear()
            core.set_exc_catch_info_list([CatchInfo("g")])
            self.assertEqual(self.run_program(CAUGHT, mode), CAUGHT_EVENTS[1:2])
            self.assertEqual(self.decisions(), ["", "frame prints", ""])

    def test_printed_modes_pass_what_is_not_caught(self):
        for mode in (PRINTED, PRINTED_TOO):
            self.assertEqual(self.run_program(UNCAUGHT, mode), UNCAUGHT_EVENTS[2:])

    def test_other_modes_know_no_printing_frames(self):
        core.set_exc_catch_info_list([CatchInfo("g")])
        for mode in (NEVER, UNHANDLED, 3, 6, -1):
            self.assertEqual(self.run_program(CAUGHT, mode), [])
        self.assert_not_in("find_catch_info\n", self.stream.messages)

    def test_any_other_number_behaves_as_never_stop(self):
        for mode in (3, 6, 7, -1, -2, 100, 2 ** 31 - 1, -2 ** 31):
            self.assertEqual(self.run_program(CAUGHT, mode), [])
            self.assertEqual(self.run_program(UNCAUGHT, mode), UNCAUGHT_EVENTS[2:])

    def test_type_lists_apply_in_any_other_mode(self):
        core.set_always_stop_excepts((ValueError,))
        for mode in (NEVER, UNHANDLED, 3, PRINTED, PRINTED_TOO, 6, -1):
            self.assertEqual(self.run_program(CAUGHT, mode), CAUGHT_EVENTS[:2])
        core.set_never_stop_excepts((ValueError,))
        for mode in (NEVER, UNHANDLED, 3, PRINTED, PRINTED_TOO, 6, -1):
            self.assertEqual(self.run_program(UNCAUGHT, mode), [])

    def test_mode_given_to_init_is_in_force(self):
        self.init(exception_mode=UNHANDLED)
        self.assertEqual(core.get_exception_mode(), UNHANDLED)
        self.assertEqual(self.run_program(UNCAUGHT), UNCAUGHT_EVENTS)

    def test_program_may_change_the_mode(self):
        self.assertEqual(
            self.run_program("core.set_exception_mode(1)\n" + CAUGHT, NEVER),
            ["ValueError in f:3", "ValueError in g:5", "ValueError in <module>:7"])

    def test_callback_may_change_the_mode(self):
        self.at_stop = lambda frame: core.set_exception_mode(NEVER)
        self.assertEqual(self.run_program(CAUGHT, ALWAYS), CAUGHT_EVENTS[:1])


class OrderTest(ExceptionTestCase):
    """Of the tests that would each decide, the first one does."""

    def test_always_mode_comes_before_the_never_stop_types(self):
        core.set_never_stop_excepts((ValueError,))
        self.assertEqual(self.run_program(UNCAUGHT, ALWAYS), UNCAUGHT_EVENTS)
        self.assertEqual(self.decisions(), ["", "", ""])

    def test_always_mode_comes_before_the_bottom_frame(self):
        exiting = []
        self.at_stop = lambda frame: exiting.append(core.exiting_on_exception())
        self.run_program(UNCAUGHT, ALWAYS)
        self.assertEqual(exiting, [0, 0, 0])

    def test_never_stop_types_come_before_the_bottom_frame(self):
        core.set_never_stop_excepts((ValueError,))
        for mode in EVERY_MODE:
            if mode != ALWAYS:
                self.stream.clear()
                self.assertEqual(self.run_program(AT_THE_BOTTOM, mode), [])
                self.assertEqual(self.decisions(), ["never stop"])
                self.assertEqual(self.ended_by, "ValueError: 1")

    def test_never_stop_types_come_before_the_always_stop_types(self):
        core.set_always_stop_excepts((ValueError,))
        core.set_never_stop_excepts((ValueError,))
        self.assertEqual(self.run_program(CAUGHT, NEVER), [])
        self.assertEqual(self.decisions(), ["never stop"] * 3)

    def test_never_stop_types_come_before_what_is_not_caught(self):
        core.set_never_stop_excepts((ValueError,))
        self.assertEqual(self.run_program(UNCAUGHT, UNHANDLED), [])
        self.assertEqual(self.decisions(), ["never stop"] * 3)

    def test_never_stop_types_come_before_frames_that_print(self):
        core.set_exc_catch_info_list([CatchInfo("f"), CatchInfo("g")])
        core.set_never_stop_excepts((ValueError,))
        self.assertEqual(self.run_program(CAUGHT, PRINTED), [])
        self.assertEqual(self.decisions(), ["never stop"] * 3)

    def test_bottom_frame_comes_before_the_always_stop_types(self):
        core.set_always_stop_excepts((ValueError,))
        self.run_program(AT_THE_BOTTOM, NEVER)
        self.assertEqual(self.decisions(), ["leaving bottom frame"])

    def test_always_stop_types_come_before_what_is_not_caught(self):
        core.set_always_stop_excepts((ValueError,))
        self.run_program(UNCAUGHT, UNHANDLED)
        self.assertEqual(self.decisions(), ["always stop"] * 2 + ["leaving bottom frame"])

    def test_always_stop_types_come_before_frames_that_print(self):
        core.set_always_stop_excepts((ValueError,))
        core.set_exc_catch_info_list([CatchInfo("f"), CatchInfo("g")])
        self.run_program(UNCAUGHT, PRINTED)
        self.assertEqual(self.decisions(), ["always stop"] * 2 + ["leaving bottom frame"])

    def test_always_stop_type_that_is_caught_here_leaves_it_to_the_later_tests(self):
        source = """\
def f():
    try:
        raise ValueError(1)
    except ValueError:
        pass
f()
"""
        core.set_always_stop_excepts((ValueError,))
        core.set_exc_catch_info_list([CatchInfo("f")])
        self.assertEqual(self.run_program(source, UNHANDLED), [])
        self.assertEqual(self.run_program(source, PRINTED), ["ValueError in f:3"])
        self.assertEqual(self.decisions(), ["", "frame prints"])


class StopTypesTest(ExceptionTestCase):

    def caught_in_f(self, clause, raised="ValueError(1)"):
        """The decision about an exception that f raises inside a try statement."""
        self.stream.clear()
        self.run_program("""\
class Mine(ValueError):
    pass
class Classic:
    pass
def f():
    try:
        raise %s
    %s
        pass
f()
""" % (raised, clause), NEVER)
        return self.decisions()[0]

    def test_always_stop_types_stop_unless_this_frame_names_the_exception(self):
        core.set_always_stop_excepts((ValueError,))
        for clause in ("except ValueError:", "except ValueError, error:", "except Exception:",
                       "except (KeyError, ValueError):",
                       "except KeyError:\n        pass\n    except StandardError:"):
            self.assertEqual(self.caught_in_f(clause), "")

    def test_bare_except_does_not_name_the_exception(self):
        core.set_always_stop_excepts((ValueError,))
        self.assertEqual(self.caught_in_f("except:"), "always stop")
        self.assertEqual(self.caught_in_f("except KeyError:\n        pass\n    except:"),
                         "always stop")

    def test_clause_of_another_type_does_not_name_the_exception(self):
        core.set_always_stop_excepts((ValueError,))
        self.assertEqual(self.caught_in_f("except KeyError:"), "always stop")
        self.assertEqual(self.caught_in_f("finally:"), "always stop")

    def test_clause_of_a_caller_does_not_count(self):
        core.set_always_stop_excepts((ValueError,))
        self.run_program(CAUGHT, NEVER)
        self.assertEqual(self.decisions(), ["always stop", "always stop", ""])

    def test_clause_of_an_ignored_handler_does_not_count(self):
        core.set_always_stop_excepts((ValueError,))
        source = """\
def f():
    try:
        raise ValueError(1)
    except ValueError:
        pass
core.set_ignored_exception_handlers({f.func_code: None})
f()
"""
        self.assertEqual(self.run_program(source, NEVER), ["ValueError in f:3"])

    def test_types_match_their_subclasses(self):
        core.set_always_stop_excepts((ValueError,))
        self.assertEqual(self.caught_in_f("finally:", "Mine"), "always stop")
        core.set_never_stop_excepts((StandardError,))
        self.assertEqual(self.caught_in_f("finally:", "Mine"), "never stop")

    def test_types_do_not_match_their_bases(self):
        core.set_always_stop_excepts((UnicodeError, UnicodeDecodeError))
        core.set_never_stop_excepts((UnicodeError,))
        self.assertEqual(self.caught_in_f("finally:"), "")

    def test_any_item_of_a_tuple_matches(self):
        core.set_always_stop_excepts((KeyError, OSError, ValueError))
        self.assertEqual(self.caught_in_f("finally:"), "always stop")

    def test_tuples_may_be_nested(self):
        core.set_always_stop_excepts((KeyError, (OSError, (ValueError,))))
        self.assertEqual(self.caught_in_f("finally:"), "always stop")

    def test_items_that_are_no_types_match_nothing(self):
        core.set_never_stop_excepts((None, "ValueError", 7, object()))
        self.assertEqual(self.caught_in_f("finally:"), "")

    def test_old_style_classes_match(self):
        source = """\
class Classic:
    pass
class Derived(Classic):
    pass
core.set_always_stop_excepts((Classic,))
def f():
    raise Derived()
try:
    f()
except Derived:
    pass
"""
        self.assertEqual(self.run_program(source, NEVER), ["Derived in f:7"])

    def test_types_may_change_while_the_program_runs(self):
        source = """\
def f():
    {}["missing"]
def attempt():
    try:
        f()
    except KeyError:
        pass
attempt()
core.set_always_stop_excepts((LookupError,))
attempt()
core.set_always_stop_excepts(())
attempt()
"""
        self.assertEqual(self.run_program(source, NEVER), ["KeyError in f:2"])

    def test_types_may_change_as_they_are_asked(self):
        asked = []

        class Asked(type):
            def __subclasscheck__(cls, subclass):
                asked.append(cls)
                set_types(())
                return False
        for set_types in core.set_never_stop_excepts, core.set_always_stop_excepts:
            del asked[:]
            set_types(tuple([Asked("Type", (Exception,), {}) for _ in range(50)]))
            self.assertEqual(self.run_program(CAUGHT, NEVER), [])
            self.assertEqual(len(asked), 50)


class BottomFrameTest(ExceptionTestCase):

    def exiting(self, source, mode=NEVER):
        """exiting_on_exception() at each stop."""
        answers = []
        self.at_stop = lambda frame: answers.append(core.exiting_on_exception())
        self.run_program(source, mode)
        return answers

    def test_every_mode_stops_where_an_exception_leaves_it(self):
        for mode in EVERY_MODE:
            self.assertEqual(self.run_program(AT_THE_BOTTOM, mode), ["ValueError in <module>:2"])

    def test_server_knows_that_the_program_is_about_to_end(self):
        self.assertEqual(self.exiting(UNCAUGHT, UNHANDLED), [0, 0, 1])
        self.assertEqual(self.exiting(AT_THE_BOTTOM, NEVER), [1])

    def test_server_is_not_told_so_with_autoquit_off(self):
        core.set_autoquit(0)
        self.assertEqual(self.exiting(AT_THE_BOTTOM), [0])
        core.set_autoquit(1)
        self.assertEqual(self.exiting(AT_THE_BOTTOM), [1])

    def test_autoquit_may_come_back_before_the_question(self):
        core.set_autoquit(0)
        answers = []

        def ask(frame):
            answers.append(core.exiting_on_exception())
            core.set_autoquit(1)
            answers.append(core.exiting_on_exception())
        self.at_stop = ask
        self.run_program(AT_THE_BOTTOM, NEVER)
        self.assertEqual(answers, [0, 1])

    def test_log_that_drops_the_record_of_the_thread(self):
        dropped = []

        class Stream(harness.Stream):
            def write(self, text):
                if text == "  leaving bottom frame\n":
                    dropped.append(core.thread_exiting())
        self.init(debug_stream=Stream())
        self.assertEqual(self.run_program(AT_THE_BOTTOM, NEVER), ["ValueError in <module>:2"])
        self.assertEqual(len(dropped), 1)

    def test_only_the_thread_itself_is_exiting(self):
        threads = []

        def ask(frame):
            def other():
                threads.append(core.exiting_on_exception())
            self.assertEqual(harness.run_bare_thread(other), True)
            threads.append(core.exiting_on_exception())
        self.at_stop = ask
        self.run_program(AT_THE_BOTTOM, NEVER)
        self.assertEqual(threads, [0, 1])
        self.assertEqual(core.exiting_on_exception(), 0)

    def test_exception_inside_a_try_statement_does_not_leave_it(self):
        for clause in ("except ValueError", "except KeyError", "finally"):
            self.run_program("try:\n    raise ValueError(1)\n%s:\n    pass\n" % clause, NEVER)
            self.assertEqual(self.decisions()[-1], "")

    def test_exception_inside_a_loop_does_not_leave_it(self):
        # A loop is a block as well, and blocks are all that is asked for.
        self.assertEqual(self.run_program("for i in 1, 2:\n    raise ValueError(1)\n", NEVER), [])
        self.assertEqual(self.decisions(), [""])
        self.assertEqual(self.ended_by, "ValueError: 1")
        self.assertEqual(
            self.run_program("for i in 1, 2:\n    raise ValueError(1)\n", UNHANDLED),
            ["ValueError in <module>:2"])

    def test_exception_of_a_handler_leaves_it(self):
        source = "try:\n    raise ValueError(1)\nexcept ValueError:\n    {}[1]\n"
        self.assertEqual(self.run_program(source, NEVER), ["KeyError in <module>:4"])

    def test_function_without_a_try_block_is_no_bottom_frame(self):
        self.run_program("def f():\n    raise ValueError(1)\ntry:\n    f()\nfinally:\n    pass\n",
                         NEVER)
        self.assertEqual(self.decisions(), ["", ""])

    def test_bottom_frame_is_the_outermost_one_when_tracing_begins(self):
        # Here it is one of those that run the test, far below the program.
        self.server.program = self.script(AT_THE_BOTTOM)
        core.continue_run()
        self.assert_raises(ValueError, None, self.server.run, self.server.program)
        self.assert_not_in("leaving bottom frame", self.decisions())

    def test_system_exit_is_an_exception_like_any_other(self):
        self.assertEqual(self.run_program("import sys\nsys.exit(3)\n", NEVER),
                         ["SystemExit in <module>:2"])
        core.set_never_stop_excepts((SystemExit,))
        self.assertEqual(self.run_program("import sys\nsys.exit(3)\n", NEVER), [])


class EventTest(ExceptionTestCase):
    """What happens to an exception event around the policy."""

    def test_every_event_is_logged(self):
        self.run_program(CAUGHT, NEVER)
        self.assertEqual(self.stream.among("---EXCEPTION---\n", ASKED, "  dispatched=TRUE\n",
                                           "set_frame_exc_info\n"),
                         ["---EXCEPTION---\n", ASKED, "set_frame_exc_info\n"] * 3)

    def test_every_stop_is_logged(self):
        self.run_program(CAUGHT, ALWAYS)
        self.assertEqual(self.stream.among("---EXCEPTION---\n", ASKED, "  dispatched=TRUE\n",
                                           "set_frame_exc_info\n"),
                         ["---EXCEPTION---\n", ASKED, "  dispatched=TRUE\n",
                          "set_frame_exc_info\n"] * 3)

    def test_callback_gets_the_frame_of_the_event_and_the_exception(self):
        self.run_program(CAUGHT, ALWAYS)
        for frame, exc_info, changed_bps in self.reports:
            self.assertEqual((type(exc_info), len(exc_info)), (tuple, 3))
            self.assert_is(exc_info[0], ValueError)
            self.assertEqual(str(exc_info[1]), "1")
            # The event comes when the frame is in the traceback, its callers are not.
            self.assert_is(exc_info[2].tb_frame, frame)
            self.assertEqual(changed_bps, ([], []))

    def test_callback_gets_the_breakpoints_that_changed(self):
        path = self.script(CAUGHT)
        core.set_break(path, 2, 1, 0, None, 100)
        self.run_code(compile(CAUGHT, path, "exec"), ALWAYS)
        self.assertEqual([[len(part) for part in report[2]] for report in self.reports],
                         [[0, 1], [0, 0], [0, 0]])

    def stepping(self, never=()):
        """Stops of a program that is stepped into at the line that raises."""
        def line_cb(frame, changed_bps):
            core.step_into()
        self.init(line_cb=line_cb)
        core.set_never_stop_excepts(never)
        self.at_stop = self.run_on
        path = self.script(CAUGHT)
        core.set_break(path, 2, 1, 0, None, 0)
        return self.run_code(compile(CAUGHT, path, "exec"), NEVER)

    def test_step_into_stops_at_the_next_exception_event(self):
        self.assertEqual(self.stepping(), CAUGHT_EVENTS[:1])
        self.assert_in("Stopping here because stop_frame == None\n", self.stream.messages)

    def test_step_request_comes_before_the_policy(self):
        self.assertEqual(self.stepping(never=(ValueError,)), CAUGHT_EVENTS[:1])
        self.assertEqual(
            self.stream.among("  dispatched=TRUE\n", "---EXCEPTION---\n", "  never stop\n"),
            ["---EXCEPTION---\n", "  dispatched=TRUE\n"] +
            ["---EXCEPTION---\n", "  never stop\n"] * 2)

    def test_step_over_stops_at_an_exception_in_that_frame_only(self):
        def line_cb(frame, changed_bps):
            core.step_over()
        self.init(line_cb=line_cb)
        self.at_stop = self.run_on
        path = self.script(CAUGHT)
        core.set_break(path, 4, 1, 0, None, 0)
        self.assertEqual(self.run_code(compile(CAUGHT, path, "exec"), NEVER), CAUGHT_EVENTS[1:2])
        self.assert_in("Stopping here because stop_frame == current frame\n",
                       self.stream.messages)

    def test_exception_while_import_cb_runs_does_not_stop_a_step(self):
        def import_cb(*arguments):
            core.step_into()
            try:
                {}["missing"]
            except KeyError:
                pass
            core.continue_run()
        self.init(import_cb=import_cb)
        self.run_program("import this_module_is_not_there\n".replace(
            "this_module_is_not_there", "colorsys"), NEVER)
        self.assertEqual(self.stops, [])

    def test_failing_callback_ends_tracing_of_the_thread(self):
        def fail(frame):
            raise RuntimeError("of the server")
        self.at_stop = fail
        source = CAUGHT + "try:\n    g()\nexcept ValueError:\n    done = 1\n"
        variables = {}
        self.run_program(source, ALWAYS, out=variables)
        self.assertEqual(self.stops, CAUGHT_EVENTS[:1])
        self.assertEqual(self.stream.among("  failure\n", "TRACER EXC STOPPED TRACER\n"),
                         ["  failure\n", "TRACER EXC STOPPED TRACER\n"])
        self.assertEqual(self.ended_by, "")

    def test_failing_callback_is_not_seen_by_the_program(self):
        def fail(frame):
            raise RuntimeError("of the server")
        self.at_stop = fail
        out = []
        self.run_program("""\
import sys
def f():
    raise ValueError("mine")
try:
    f()
except Exception:
    out.append(sys.exc_info()[:2])
""", ALWAYS, out=out)
        self.assertEqual([(out[0][0], str(out[0][1]))], [(ValueError, "mine")])

    def test_exception_is_not_recorded_when_the_report_failed(self):
        def fail(frame):
            raise RuntimeError("of the server")
        self.at_stop = fail
        self.run_program(CAUGHT, ALWAYS)
        self.assert_not_in("set_frame_exc_info\n", self.stream.messages)

    def test_program_is_handling_the_same_exceptions_as_without_the_core(self):
        source = """\
import sys
out = []
def f():
    try:
        raise KeyError("inner")
    except KeyError:
        out.append(str(sys.exc_info()[1]))
        try:
            [].pop()
        except IndexError:
            out.append(str(sys.exc_info()[1]))
        out.append(sys.exc_info()[0])
        raise
try:
    f()
except LookupError:
    out.append(str(sys.exc_info()[1]))
    tb = sys.exc_info()[2]
    while tb is not None:
        out.append(tb.tb_lineno)
        tb = tb.tb_next
result.extend(out)
"""
        plain = []
        exec compile(source, "plain", "exec") in {"result": plain}
        for mode in (NEVER, ALWAYS, UNHANDLED, PRINTED):
            debugged = []
            self.run_program(source, mode, result=debugged)
            self.assertEqual(debugged, plain)

    def test_callback_may_raise_another_exception_in_the_program(self):
        def raise_other(frame):
            self.at_stop = None
            core.raise_exception(core.get_current_tstate_id(), LookupError("other"))
        self.at_stop = raise_other
        out = []
        self.run_program("""\
def f():
    raise ValueError(1)
try:
    f()
except LookupError, error:
    out.append(str(error))
""", ALWAYS, out=out)
        self.assertEqual(out, ["other"])

    def test_thread_policy_0_reports_no_exception(self):
        core.set_debug_thread_cb(lambda ident: 0)
        self.assertEqual(self.run_program(UNCAUGHT, ALWAYS), [])


class EventOfTheServersOwnTest(ExceptionTestCase):
    """Exception events as the trace function's Python twin is given them."""

    def setUp(self):
        ExceptionTestCase.setUp(self)
        core.set_exception_mode(ALWAYS)
        core.start_trace()
        core.continue_run()
        # Only the calls below are events.
        core.add_to_tstate_tracing(1)
        self.stream.clear()

    def tearDown(self):
        core.add_to_tstate_tracing(-1)
        core.stop_trace()
        ExceptionTestCase.tearDown(self)

    def messages(self, frame, argument):
        self.stream.clear()
        self.assert_is(core.trace_dispatch(frame, "exception", argument), core.trace_dispatch)
        return self.stream.among("---EXCEPTION---\n", "  exit 0\n", ASKED, "  failure\n",
                                 "  dispatched=TRUE\n", "set_frame_exc_info\n")

    def test_object_that_is_no_frame_is_passed_over(self):
        for frame in (None, 1, "frame", [], self):
            self.assertEqual(self.messages(frame, (ValueError, 1, None)),
                             ["---EXCEPTION---\n", "  exit 0\n"])
        self.assertEqual(self.stops, [])

    def test_argument_that_is_no_filled_tuple_is_passed_over(self):
        for argument in (None, (), [ValueError, 1, None], ValueError, "exception"):
            self.assertEqual(self.messages(sys._getframe(), argument),
                             ["---EXCEPTION---\n", "  exit 0\n"])
        self.assertEqual(self.stops, [])

    def test_exception_without_a_traceback_is_not_reported(self):
        for argument in ((ValueError,), (ValueError, 1)):
            self.assertEqual(
                self.messages(sys._getframe(), argument),
                ["---EXCEPTION---\n", ASKED, "  dispatched=TRUE\n", "set_frame_exc_info\n"])
        self.assertEqual(self.stops, [])

    def test_exception_with_traceback_none_is_one_of_the_frame_itself(self):
        frame = sys._getframe()
        self.messages(frame, (ValueError, 1, None))
        self.assertEqual(len(self.stops), 1)
        self.assert_is(self.reports[0][0], frame)
        core.ignore_exception_loc(core.get_frame_file(frame), frame.f_lineno + 1, 1)
        self.messages(frame, (ValueError, 1, None))
        self.assertEqual(len(self.stops), 1)

    def test_traceback_that_is_none_of_the_kind_is_not_reported(self):
        for traceback in (1, "traceback", object()):
            self.messages(sys._getframe(), (ValueError, 1, traceback))
        self.assertEqual(self.stops, [])

    def test_longer_tuple_is_passed_on_as_it_is(self):
        argument = (ValueError, 1, None, "more")
        self.messages(sys._getframe(), argument)
        self.assert_is(self.reports[0][1], argument)

    def test_type_may_be_anything(self):
        core.set_exception_mode(UNHANDLED)
        core.set_never_stop_excepts((ValueError,))
        core.set_always_stop_excepts((KeyError,))
        frame = sys._getframe()
        callers = {}
        while frame is not None:
            callers[frame.f_code] = None
            frame = frame.f_back
        for kind in (None, 7, "string exception", object(), []):
            for handlers, decided in (({}, []), (callers, ["  unhandled\n"])):
                core.set_ignored_exception_handlers(handlers)
                self.stream.clear()
                core.trace_dispatch(sys._getframe(), "exception", (kind, 1))
                # Below the test is code that catches everything.
                self.assertEqual(self.stream.among(ASKED, *DECISIONS), [ASKED] + decided)


class LeavingFrameTest(ExceptionTestCase):
    """An exception leaves a frame."""

    def test_frame_whose_caller_prints_stops_as_it_is_left(self):
        for mode in (PRINTED, PRINTED_TOO):
            core.set_exc_catch_info_list([CatchInfo("f", parent=True)])
            self.assertEqual(self.run_program(CAUGHT, mode), CAUGHT_EVENTS[:1])
            self.assertEqual(self.decisions(), [""] * 3)
            self.stream.clear()

    def test_report_has_the_exception_last_seen_in_the_frame(self):
        core.set_exc_catch_info_list([CatchInfo("f", parent=True)])
        self.run_program("""\
def f():
    try:
        raise KeyError("first")
    finally:
        [].pop()
try:
    f()
except IndexError:
    pass
""", PRINTED)
        self.assertEqual(self.stops, ["IndexError in f:5"])
        frame, exc_info, changed_bps = self.reports[0]
        self.assert_is(exc_info[2].tb_frame, frame)
        self.assertEqual(changed_bps, ([], []))

    def test_other_modes_do_not_stop_as_a_frame_is_left(self):
        core.set_exc_catch_info_list([CatchInfo("f", parent=True)])
        for mode in (NEVER, UNHANDLED, 3, 6):
            self.assertEqual(self.run_program(CAUGHT, mode), [])
        self.assertEqual(self.run_program(CAUGHT, ALWAYS), CAUGHT_EVENTS)

    def test_frame_that_prints_itself_does_not_stop_as_it_is_left(self):
        core.set_exc_catch_info_list([CatchInfo("g", parent=False)])
        self.assertEqual(self.run_program(CAUGHT, PRINTED), CAUGHT_EVENTS[1:2])

    def test_frame_whose_caller_does_not_print_does_not_stop(self):
        core.set_exc_catch_info_list([CatchInfo("f", prints=False, parent=True)])
        self.assertEqual(self.run_program(CAUGHT, PRINTED), [])

    def test_frame_that_returns_does_not_stop(self):
        core.set_exc_catch_info_list([CatchInfo("f", parent=True)])
        self.assertEqual(self.run_program("""\
def f():
    try:
        raise ValueError(1)
    except ValueError:
        return None
f()
""", PRINTED), [])

    def leave_while_tracing_begins(self, f):
        core.set_exc_catch_info_list([CatchInfo("f", parent=True)])
        core.set_exception_mode(PRINTED)
        try:
            f()
        except ValueError:
            pass
        finally:
            core.stop_trace()
        (frame, exc_info, changed_bps), = self.reports
        self.assertEqual(frame.f_code.co_name, "f")
        return frame, exc_info

    def test_exception_that_came_before_tracing_is_the_one_that_is_handled(self):
        def f():
            try:
                raise ValueError("early")
            except ValueError:
                core.start_trace()
                core.continue_run()
                raise
        frame, exc_info = self.leave_while_tracing_begins(f)
        self.assert_is(exc_info[0], ValueError)
        self.assertEqual(str(exc_info[1]), "early")
        self.assert_is(exc_info[2].tb_frame, frame)

    def test_exception_that_nobody_knows_is_none(self):
        self.init(exception_cb=lambda *arguments: self.reports.append(arguments))

        def f():
            try:
                raise ValueError("early")
            finally:
                # Nothing is being handled here.
                core.start_trace()
                core.continue_run()
        frame, exc_info = self.leave_while_tracing_begins(f)
        self.assertEqual(exc_info, (None, None, None))

    def test_ignored_location_is_not_reported_as_the_frame_is_left(self):
        core.set_exc_catch_info_list([CatchInfo("f", parent=True)])
        path = self.script(CAUGHT)
        core.ignore_exception_loc(path, 2, 1)
        self.assertEqual(self.run_code(compile(CAUGHT, path, "exec"), PRINTED), [])

    def test_never_stop_types_do_not_count_as_the_frame_is_left(self):
        core.set_exc_catch_info_list([CatchInfo("f", parent=True)])
        core.set_never_stop_excepts((ValueError,))
        self.assertEqual(self.run_program(CAUGHT, PRINTED), CAUGHT_EVENTS[:1])

    def test_failing_callback_ends_tracing_of_the_thread(self):
        def fail(frame):
            raise RuntimeError("of the server")
        self.at_stop = fail
        core.set_exc_catch_info_list([CatchInfo("f", parent=True)])
        out = []
        self.run_program(CAUGHT + "g()\n", PRINTED, out=out)
        self.assertEqual(self.stops, CAUGHT_EVENTS[:1])
        self.assert_in("TRACER RETURN STOPPED TRACER\n", self.stream.messages)
        self.assertEqual(self.ended_by, "ValueError: 1")

    def test_frame_that_was_stepped_to_stops_again_as_it_is_left(self):
        returned = []

        def line_cb(frame, changed_bps):
            core.step_out()

        def return_cb(frame, value, changed_bps):
            returned.append((frame.f_code.co_name, value))
            core.continue_run()
        self.init(line_cb=line_cb, return_cb=return_cb)
        core.set_exc_catch_info_list([CatchInfo("f", parent=True)])
        path = self.script(CAUGHT)
        core.set_break(path, 2, 1, 0, None, 0)
        self.assertEqual(self.run_code(compile(CAUGHT, path, "exec"), PRINTED), CAUGHT_EVENTS[:1])
        self.assertEqual(returned, [("f", None)])


class LastFrameTest(ExceptionTestCase):
    """An exception leaves a thread's bottom frame."""

    def test_quit_cb_is_called_once(self):
        self.run_program(AT_THE_BOTTOM, NEVER)
        self.assertEqual(self.server.quit_calls, 1)

    def test_quit_cb_is_not_called_with_autoquit_off(self):
        core.set_autoquit(0)
        self.run_program(AT_THE_BOTTOM, NEVER)
        self.assertEqual(self.server.quit_calls, 0)

    def test_quit_cb_is_not_called_for_other_frames(self):
        at_stops = []
        self.at_stop = lambda frame: at_stops.append(self.server.quit_calls)
        self.run_program(UNCAUGHT, ALWAYS)
        self.assertEqual(at_stops, [0, 0, 0])
        self.assertEqual(self.server.quit_calls, 1)

    def test_quit_cb_comes_after_the_report(self):
        self.at_stop = lambda frame: seen.append("exception_cb")
        seen = []

        def quit_cb():
            seen.append("quit_cb")
        self.init(quit_cb=quit_cb)
        core.set_exc_catch_info_list([CatchInfo("<module>", parent=True)])
        core.set_never_stop_excepts((ValueError,))
        self.run_program(AT_THE_BOTTOM, PRINTED)
        self.assertEqual(seen, ["exception_cb", "quit_cb"])

    def test_quit_cb_comes_even_when_the_report_failed(self):
        def fail(frame):
            raise RuntimeError("of the server")
        self.at_stop = fail
        core.set_exc_catch_info_list([CatchInfo("<module>", parent=True)])
        core.set_never_stop_excepts((ValueError,))
        self.run_program(AT_THE_BOTTOM, PRINTED)
        self.assertEqual(self.server.quit_calls, 1)
        self.assert_in("TRACER RETURN STOPPED TRACER\n", self.stream.messages)

    def test_failing_quit_cb_is_ignored(self):
        def quit_cb():
            raise RuntimeError("of the server")
        self.init(quit_cb=quit_cb)
        self.run_program(AT_THE_BOTTOM, NEVER)
        self.assertEqual(self.ended_by, "ValueError: 1")
        self.assertEqual(self.stream.among("TRACER RETURN STOPPED TRACER\n"), [])

    def test_thread_policy_is_asked_again_afterwards(self):
        asked = []

        def policy(ident):
            asked.append(ident)
            return 1
        core.set_debug_thread_cb(policy)
        # In the thread whose bottom frame is gone sys.excepthook runs yet.
        previous, sys.excepthook = sys.excepthook, lambda *exc_info: None
        try:
            self.run_program(CAUGHT, NEVER)
            self.assertEqual(len(asked), 1)
            self.run_program(AT_THE_BOTTOM, NEVER)
        finally:
            sys.excepthook = previous
        self.assertEqual(len(asked), 3)
        self.assertEqual(asked[1], asked[2])

    def test_next_frame_of_the_thread_is_its_bottom_frame(self):
        # sys.excepthook runs in the thread after its bottom frame is gone.
        called = []

        def hook(*exc_info):
            called.append(core.exiting_on_exception())
            {}["missing"]
        previous, sys.excepthook = sys.excepthook, hook
        try:
            self.assertEqual(
                self.run_program(AT_THE_BOTTOM, NEVER),
                ["ValueError in <module>:2", "KeyError in hook:%d"
                 % (hook.func_code.co_firstlineno + 2)])
        finally:
            sys.excepthook = previous
        self.assertEqual(called, [1])
        self.assertEqual(self.decisions(), ["leaving bottom frame"] * 2)
        self.assertEqual(self.server.quit_calls, 2)
