"""The diagnostic output as a debug server's stream sees it."""

import sys
import weakref

import harness
from harness import Stream, core

PROGRAM = """\
def f(n):
    return n + 1
x = f(1)
try:
    raise KeyError("the program's")
except KeyError as error:
    text = str(error)
"""


class StreamTest(harness.CoreTestCase):

    def run_with(self, stream):
        """Runs a program with this stream and sees to it that the program is not disturbed."""
        self.server.requests = ["step_into"] * 100
        self.server.init(debug_stream=stream)
        variables = self.server.run(self.script(PROGRAM))
        self.assertEqual((variables["x"], variables["text"]), (2, "\"the program's\""))
        self.assertEqual(self.server.stops[0], "line <module> 1")
        self.assertEqual(self.server.stops[-1], "return <module> 7 -> None")
        self.assertEqual(sys.exc_info(), (None, None, None))

    def test_messages_are_plain_strings(self):
        stream = Stream()
        self.run_with(stream)
        self.assertEqual(set([type(message) for message in stream.messages]), set([str]))

    def test_file_of_the_system_is_a_stream(self):
        path = self.script("", "log")
        output = open(path, "w")
        self.run_with(output)
        self.assert_in("Stopping here because stop_frame == None\n", open(path).readlines())
        output.close()

    def test_output_is_flushed_at_once(self):
        path = self.script("", "log")
        self.server.init(debug_stream=open(path, "w"))
        self.assertEqual(open(path).readlines()[-1], "DONE WITH INIT MORVIK\n")

    def test_closed_file_is_ignored(self):
        output = open(self.script("", "log"), "w")
        output.close()
        self.run_with(output)

    def test_failing_write_is_ignored_and_flush_still_called(self):
        class Failing(Stream):
            def write(self, text):
                raise IOError("full")
        stream = Failing()
        self.run_with(stream)
        self.assertEqual(stream.flushes > 20, True)

    def test_failing_flush_is_ignored(self):
        class Failing(Stream):
            def flush(self):
                raise IOError("full")
        stream = Failing()
        self.run_with(stream)
        self.assertEqual(len(stream.messages) > 20, True)

    def test_exit_in_write_is_ignored(self):
        class Failing(Stream):
            def write(self, text):
                raise SystemExit(3)
        self.run_with(Failing())

    def test_object_that_cannot_be_written_to_is_ignored(self):
        for stream in (1, object(), "stream", []):
            del self.server.stops[:]
            self.run_with(stream)

    def test_stream_without_flush_is_written_to(self):
        class Writing(object):
            def __init__(self):
                self.messages = []

            def write(self, text):
                self.messages.append(text)
        stream = Writing()
        self.run_with(stream)
        self.assertEqual(len(stream.messages) > 20, True)

    def test_what_flush_returns_is_released(self):
        class Result(object):
            pass

        class Returning(Stream):
            def flush(self):
                result = Result()
                results.append(weakref.ref(result))
                return result
        results = []
        self.run_with(Returning())
        self.assertEqual([result for result in results if result() is not None], [])
        self.assertEqual(len(results) > 20, True)

    def test_code_of_the_stream_is_not_traced(self):
        path = self.script("""\
messages = []
class Program(object):
    def write(self, text):
        messages.append(text)
    def flush(self):
        pass
""")
        variables = {}
        execfile(path, variables)
        self.server.program = path
        self.server.requests = ["step_into"] * 100
        self.server.init(debug_stream=variables["Program"]())
        core.start_trace()
        core.step_into()
        x = 1
        core.stop_trace()
        self.assertEqual(self.server.stops, [])
        self.assert_in("Stopping here because stop_frame == None\n", variables["messages"])

    def test_stream_may_be_replaced_from_within_a_write(self):
        case = self
        last = Stream()

        class Replacing(Stream):
            def write(self, text):
                Stream.write(self, text)
                if len(self.messages) == 10:
                    case.server.init(debug_stream=last)
        first = Replacing()
        self.server.init(debug_stream=first)
        self.server.run(self.script(PROGRAM))
        self.assertEqual(first.messages[10:], ["STARTING MORVIK INIT\n"])
        self.assert_in("DONE WITH INIT MORVIK\n", last.messages)

    def test_stream_is_kept_over_reset_and_destroy(self):
        self.server.init()
        core.reset()
        core.destroy()
        self.server.stream.clear()
        core.reset()
        self.assertEqual(self.server.stream.messages[0], "RESET REACHED\n")


class ReentryTest(harness.CoreTestCase):
    """A thread whose tracing is raised twice is writing already."""

    def messages_at(self, tracing):
        self.server.init()
        self.server.stream.clear()
        core.add_to_tstate_tracing(tracing)
        core.stop_trace()
        core.add_to_tstate_tracing(-tracing)
        return len(self.server.stream.messages)

    def test_message_is_written_while_tracing_is_0_or_1(self):
        self.assertEqual(self.messages_at(0), 4)
        self.assertEqual(self.messages_at(1), 4)

    def test_message_is_dropped_while_tracing_is_2_or_more(self):
        self.assertEqual(self.messages_at(2), 0)
        self.assertEqual(self.messages_at(3), 0)

    def test_write_raises_tracing_and_lowers_it_again(self):
        seen = []

        class Looking(Stream):
            def write(self, text):
                seen.append(core.get_tstate_tracing())
        self.server.init(debug_stream=Looking())
        self.assertEqual(set(seen), set([1]))
        self.assertEqual(core.get_tstate_tracing(), 0)

    def test_messages_of_a_write_stop_at_the_second_level(self):
        class Nested(Stream):
            def write(self, text):
                Stream.write(self, text)
                core.stop_trace()
        stream = Nested()
        self.server.init(debug_stream=stream)
        stream.clear()
        core.stop_trace()
        # Each of the four messages brings four more, and those none.
        self.assertEqual(len(stream.messages), 20)

    def test_pending_exception_of_the_caller_survives(self):
        class Raising(Stream):
            def write(self, text):
                try:
                    raise ValueError("the stream's own")
                except ValueError:
                    pass
        self.server.init(debug_stream=Raising())
        self.assert_raises(TypeError, "tracer_stop_trace() takes exactly 0 arguments (1 given)",
                           core.stop_trace, 1)

    def test_error_of_a_write_does_not_meet_the_code_of_flush(self):
        seen = []

        class Failing(Stream):
            def write(self, text):
                raise ValueError("the stream's own")

            def flush(self):
                # A loop's end asks whether an error is pending.
                for each in (1, 2):
                    pass
                seen.append(each)
        self.server.init(debug_stream=Failing())
        self.assertEqual(set(seen), set([2]))
