"""What a launched program writes, as the adapter reads it."""

import array
import errno
import fcntl
import os
import termios
import threading

import dap_session
import harness
from sorrel.adapter import marked_stream, process
from sorrel.protocol import output_marks, secrets
from sorrel.server import output_marks as written_marks

WORD = secrets.new()


class Started(object):
    """In the place of a subprocess.Popen: both of its streams are the test's."""

    def __init__(self):
        self.streams = {}
        for name in 'stdout', 'stderr':
            reading, self.streams[name] = os.pipe()
            setattr(self, name, os.fdopen(reading))

    def write(self, name, text):
        os.write(self.streams[name], text)

    def wait_until_read(self, name):
        unread = array.array('i', [1])
        while unread[0]:
            fcntl.ioctl(self.streams[name], termios.FIONREAD, unread, True)

    def close(self):
        for name, number in self.streams.items():
            os.close(number)
            getattr(self, name).close()


class OutputTest(harness.TestCase):

    def setUp(self):
        harness.TestCase.setUp(self)
        self.patience = process._REST_OF_LINE
        self.started = Started()
        self.told = []
        self.process = process.Process(self.started, lambda *told: self.told.append(told), WORD)

    def tearDown(self):
        process._REST_OF_LINE = self.patience
        self.started.close()
        harness.TestCase.tearDown(self)

    def test_the_rest_of_a_line_is_waited_for(self):
        process._REST_OF_LINE = 60

        def write_rest():
            self.started.wait_until_read('stdout')
            self.started.write('stdout', 'line\n')
        self.started.write('stdout', 'a ')
        writer = threading.Thread(target=write_rest)
        writer.start()
        self.process.read()
        writer.join()
        self.assertEqual(self.told, [('stdout', 'a line\n')])

    def test_what_ends_no_line_is_told_in_the_end(self):
        self.started.write('stdout', 'password: ')
        self.process.read()
        self.assertEqual(self.told, [('stdout', 'password: ')])

    def test_what_is_printed_comes_before_the_error_that_ends_it(self):
        for turn in range(20):
            self.started.write('stderr', 'error\n')
            self.started.write('stdout', 'printed\n')
            self.process.read()
        self.assertEqual(self.told, 20 * [('stdout', 'printed\n'), ('stderr', 'error\n')])

    def test_a_letter_in_two_parts_is_one(self):
        self.started.write('stdout', '\xc3')
        self.process.read()
        self.started.write('stdout', '\xa9\n')
        self.process.read()
        self.assertEqual(self.told, [('stdout', u'\xe9\n')])

    # Marks.

    def test_what_follows_a_mark_waits_for_its_message(self):
        self.started.write('stdout', 'before\n' + output_marks.mark(WORD, 1) + 'after\n')
        self.process.read()
        self.assertEqual(self.told, [('stdout', 'before\n')])
        self.process.read_up_to(1, ['stdout'])
        self.told.append('message')
        self.process.read_past(1)
        self.assertEqual(self.told, [('stdout', 'before\n'), 'message', ('stdout', 'after\n')])

    def test_a_message_that_comes_first_waits_for_what_is_before_its_mark(self):
        for name in 'stdout', 'stderr':
            self.started.write(name, name + '\n' + output_marks.mark(WORD, 1) + 'more\n')
        self.process.read_up_to(1, ['stdout', 'stderr'])
        self.assertEqual(self.told, [('stdout', 'stdout\n'), ('stderr', 'stderr\n')])

    def test_a_mark_in_parts_is_not_shown(self):
        size, marked_stream._READ_AT_ONCE = marked_stream._READ_AT_ONCE, 7
        try:
            self.started.write('stdout', 'a\n' + output_marks.mark(WORD, 1) + 'b\n')
            self.process.read_up_to(1, ['stdout'])
            self.process.read_past(1)
        finally:
            marked_stream._READ_AT_ONCE = size
        self.assertEqual(self.told, [('stdout', 'a\n'), ('stdout', 'b\n')])

    def test_what_only_looks_like_the_beginning_of_a_mark_is_told(self):
        for written in '\0', 'a\n\0' + WORD[:5], '\0' + WORD + 'z\n':
            self.started.write('stdout', written)
            self.process.read()
            self.assertEqual(''.join(text for _, text in self.told), written)
            del self.told[:]

    def test_marks_whose_messages_were_left_out_hold_nothing_up(self):
        self.started.write('stdout', ''.join(
            '%d\n' % number + output_marks.mark(WORD, number) for number in range(1, 4)) + 'end\n')
        self.process.read_up_to(3, ['stdout'])
        self.assertEqual(''.join(text for _, text in self.told), '1\n2\n3\n')
        self.process.read_past(3)
        self.assertEqual(''.join(text for _, text in self.told), '1\n2\n3\nend\n')

    def test_what_waits_for_a_message_is_told_when_none_can_come(self):
        self.started.write('stdout', output_marks.mark(WORD, 1) + 'end\n')
        self.process.read()
        self.process.read_past_all()
        self.assertEqual(self.told, [('stdout', 'end\n')])

    def test_a_message_that_does_not_come_is_waited_for_only_so_long(self):
        patience, marked_stream._MESSAGE_PATIENCE = marked_stream._MESSAGE_PATIENCE, -1.0
        try:
            self.started.write('stdout', output_marks.mark(WORD, 1) + 'end\n')
            self.process.read()
        finally:
            marked_stream._MESSAGE_PATIENCE = patience
        self.assertEqual(self.told, [('stdout', 'end\n')])


class WrittenMarksTest(harness.TestCase):
    """As the program's server writes them."""

    def setUp(self):
        harness.TestCase.setUp(self)
        self.reading, self.writing = os.pipe()
        self.streams = written_marks._STREAMS
        written_marks._STREAMS = ((self.writing, 'stdout'),)
        self.marks = written_marks.OutputMarks(WORD)

    def tearDown(self):
        written_marks._STREAMS = self.streams
        os.close(self.reading)
        os.close(self.writing)
        harness.TestCase.tearDown(self)

    def fill(self):
        flags = fcntl.fcntl(self.writing, fcntl.F_GETFL)
        fcntl.fcntl(self.writing, fcntl.F_SETFL, flags | os.O_NONBLOCK)
        try:
            while True:
                os.write(self.writing, 'x')
        except OSError as error:
            self.assertEqual(error.errno, errno.EAGAIN)
        fcntl.fcntl(self.writing, fcntl.F_SETFL, flags)

    def test_a_pipe_has_the_marks_that_are_told(self):
        self.assertEqual(self.marks.write(), [1, ['stdout']])
        self.assertEqual(self.marks.write(), [2, ['stdout']])
        self.assertEqual(os.read(self.reading, 1000),
                         output_marks.mark(WORD, 1) + output_marks.mark(WORD, 2))

    def test_a_full_pipe_is_not_waited_for(self):
        self.fill()
        self.assertEqual(self.marks.write(), None)

    def test_a_forked_process_writes_none(self):
        child = os.fork()
        if not child:
            os._exit(0 if self.marks.write() is None else 1)
        self.assertEqual(os.waitpid(child, 0)[1], 0)


class OrderTest(dap_session.TestCase):
    """Log messages among what the program writes."""

    def told(self, text, **arguments):
        """What the client is told: categories and lines, in their order."""
        adapter = self.opened(dap_session.Adapter())
        path = self.script(text, 'prog.py')
        adapter.launch(program=path, **arguments)
        adapter.ask('setBreakpoints', source={'path': path}, breakpoints=[
            {'line': number, 'logMessage': 'log {number}'}
            for number, line in enumerate(text.splitlines(), 1) if '# log' in line])
        adapter.ask('configurationDone')
        adapter.event('terminated')
        outputs = [message['body'] for message in adapter.messages
                   if message.get('event') == 'output']
        return [(body['category'], line) for body in outputs
                for line in body['output'].splitlines(True)
                if not line.endswith(' refs]\n')]

    def test_log_messages_come_between_what_is_printed_before_and_after(self):
        told = self.told('for number in range(500):\n'
                         '    print number\n'
                         '    number += 0  # log\n')
        expected = []
        for number in range(500):
            expected += [('stdout', '%d\n' % number), ('console', 'log %d\n' % number)]
        self.assertEqual(told, expected)

    def test_what_goes_to_standard_error_is_ordered_with_log_messages_too(self):
        told = self.told('import sys\n'
                         'for number in range(100):\n'
                         '    sys.stderr.write("error %d\\n" % number)\n'
                         '    number += 0  # log\n'
                         '    print number\n'
                         '    number += 0  # log\n')
        expected = []
        for number in range(100):
            expected += [('stderr', 'error %d\n' % number), ('console', 'log %d\n' % number),
                         ('stdout', '%d\n' % number), ('console', 'log %d\n' % number)]
        self.assertEqual(told, expected)

    def test_a_log_message_divides_a_line_that_is_not_finished(self):
        told = self.told('import sys\n'
                         'number = 1\n'
                         'sys.stdout.write("a")\n'
                         'number = 2  # log\n'
                         'sys.stdout.write("b\\n")\n')
        self.assertEqual(told, [('stdout', 'a'), ('console', 'log 1\n'), ('stdout', 'b\n')])

    def test_options_of_the_interpreter_change_no_order(self):
        told = self.told('number = 1\n'
                         'print "before"\n'
                         'number = 2  # log\n'
                         'print "after"\n', pythonArgs=['-O'])
        self.assertEqual(told, [('stdout', 'before\n'), ('console', 'log 1\n'),
                                ('stdout', 'after\n')])

    def test_nothing_is_written_to_what_the_program_has_put_in_the_place_of_its_streams(self):
        told = self.told('import os\n'
                         'number = 1\n'
                         'kept = os.dup(1), os.dup(2)\n'
                         'reading, writing = os.pipe()\n'
                         'os.dup2(writing, 1)\n'
                         'os.close(2)\n'
                         'number = 2  # log\n'
                         'os.write(1, "piped")\n'
                         'os.dup2(kept[0], 1)\n'
                         'os.dup2(kept[1], 2)\n'
                         'number = 3  # log\n'
                         'print os.read(reading, 1000)\n')
        self.assertEqual(told, [('console', 'log 1\n'), ('console', 'log 2\n'),
                                ('stdout', 'piped\n')])

    def test_what_a_child_writes_to_the_same_pipe_is_all_told(self):
        told = self.told('import os, subprocess\n'
                         'child = subprocess.Popen(["sh", "-c", "for n in 1 2 3 4 5 6 7 8 9; do '
                         'printf \'child\\\\n\'; done"])\n'
                         'for number in range(20):\n'
                         '    number += 0  # log\n'
                         'child.wait()\n'
                         'pid = os.fork()\n'
                         'if not pid:\n'
                         '    number = "in fork"  # log\n'
                         '    os.write(1, "forked\\n")\n'
                         '    os._exit(0)\n'
                         'os.waitpid(pid, 0)\n'
                         'print "end"\n')
        written = [line for category, line in told if category == 'stdout']
        self.assertEqual(written, 9 * ['child\n'] + ['forked\n', 'end\n'])
        logged = [line for category, line in told if category == 'console']
        self.assertEqual(logged[:20], ['log %d\n' % number for number in range(20)])
