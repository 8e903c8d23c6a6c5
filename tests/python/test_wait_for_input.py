"""Waiting for the program's input and the debug connection, whichever comes first."""

import errno
import fcntl
import os
import pty
import random
import resource
import signal
import socket
import subprocess
import sys
import threading
import time
import tty

import harness
from harness import core

CANNOT_WAIT = -1
CONNECTION = 0
FILE = 1

EXAMPLE = os.path.join(os.path.dirname(os.path.abspath(__file__)), os.pardir, os.pardir,
                       "examples", "wait_both.py")


class WaitTest(harness.CoreTestCase):

    def setUp(self):
        harness.CoreTestCase.setUp(self)
        self.threads = []

    def tearDown(self):
        for thread in self.threads:
            thread.join()
        harness.CoreTestCase.tearDown(self)

    def later(self, function, *arguments):
        """Calls a function while the test waits."""
        timer = threading.Timer(0.15, function, arguments)
        self.threads.append(timer)
        timer.start()

    def pipe(self):
        """A file, and the descriptor whose writer feeds it."""
        reading, writing = os.pipe()
        return os.fdopen(reading), writing

    def terminal(self):
        """A file for the terminal's program, and the descriptor of who sits at it."""
        keyboard, descriptor = pty.openpty()
        return os.fdopen(descriptor), keyboard

    def wait_for_connection(self, file):
        """A wait that ends without input of the file."""
        one, other = socket.socketpair()
        other.send("x")
        self.assertEqual(core.WaitForInput(file, [one]), CONNECTION)


class FileInputTest(WaitTest):

    def test_input_that_is_there_is_one_byte_to_read(self):
        file, feed = self.pipe()
        os.write(feed, "hello\n")
        self.assertEqual(core.WaitForInput(file, []), FILE)
        self.assertEqual(file.readline(), "hello\n")

    def test_buffered_bytes_are_counted_without_waiting(self):
        file, feed = self.pipe()
        os.write(feed, "xhello")
        self.assertEqual(file.read(1), "x")
        self.assertEqual(core.WaitForInput(file, []), 5)
        self.assertEqual(file.read(2), "he")
        self.assertEqual(core.WaitForInput(file, []), 3)
        self.assertEqual(file.read(3), "llo")

    def test_input_seen_by_a_wait_is_counted_by_the_next(self):
        file, feed = self.pipe()
        os.write(feed, "hello\n")
        self.assertEqual(core.WaitForInput(file, []), FILE)
        self.assertEqual(core.WaitForInput(file, []), 6)
        self.assertEqual(file.readline(), "hello\n")

    def test_input_that_comes_ends_the_wait(self):
        file, feed = self.pipe()
        self.later(os.write, feed, "hello\n")
        self.assertEqual(core.WaitForInput(file, []), FILE)
        self.assertEqual(file.readline(), "hello\n")

    def test_without_sockets_the_wait_lasts_until_there_is_input(self):
        file, feed = self.pipe()
        typed = []

        def type_line():
            time.sleep(0.5)
            typed.append(time.time())
            os.write(feed, "x")
        self.later(type_line)
        self.assertEqual(core.WaitForInput(file, []), FILE)
        self.assertEqual(len(typed), 1)
        self.assertEqual(file.read(1), "x")

    def test_end_of_file_is_input(self):
        file, feed = self.pipe()
        self.later(os.close, feed)
        self.assertEqual(core.WaitForInput(file, []), FILE)
        self.assertEqual(core.WaitForInput(file, []), FILE)
        self.assertEqual(file.read(), "")

    def test_what_came_before_the_end_is_read_first(self):
        file, feed = self.pipe()
        os.write(feed, "last words")
        os.close(feed)
        self.assertEqual(core.WaitForInput(file, []), FILE)
        self.assertEqual(core.WaitForInput(file, []), 10)
        self.assertEqual(file.read(), "last words")
        self.assertEqual(core.WaitForInput(file, []), FILE)
        self.assertEqual(file.read(), "")

    def test_a_file_on_disk_always_has_input(self):
        file = open(self.script("text"))
        self.assertEqual(core.WaitForInput(file, []), FILE)
        self.assertEqual(core.WaitForInput(file, []), 4)
        self.assertEqual(file.read(), "text")
        self.assertEqual(core.WaitForInput(file, []), FILE)
        self.assertEqual(file.read(), "")

    def test_a_file_without_content_ends_the_wait(self):
        file = open(os.devnull)
        self.assertEqual(core.WaitForInput(file, []), FILE)
        self.assertEqual(file.read(), "")

    def test_a_file_that_cannot_be_read_does_not_hold_the_wait_up(self):
        reading, writing = os.pipe()
        self.assertEqual(core.WaitForInput(os.fdopen(writing, "w"), []), FILE)

    def test_a_file_that_does_not_block_is_waited_for_all_the_same(self):
        file, feed = self.pipe()
        fcntl.fcntl(file, fcntl.F_SETFL, os.O_NONBLOCK)
        self.later(os.write, feed, "hello\n")
        self.assertEqual(core.WaitForInput(file, []), FILE)
        self.assertEqual(file.readline(), "hello\n")

    def test_an_instance_of_a_subclass_is_a_file(self):
        class File(file):
            pass
        text = File(self.script("text"))
        self.assertEqual(core.WaitForInput(text, []), FILE)

    def test_what_is_no_file_cannot_be_waited_for_and_leaves_no_exception(self):
        file, feed = self.pipe()
        closed = open(os.devnull)
        closed.close()
        for wrong in ("<stdin>", None, 0, socket.socketpair()[0], harness.Stream(), closed):
            self.assertEqual(core.WaitForInput(wrong, []), CANNOT_WAIT)
            self.assertEqual(sys.exc_info(), (None, None, None))

    def test_other_threads_run_meanwhile(self):
        file, feed = self.pipe()
        counted = []

        def count():
            while len(counted) < 100000:
                counted.append(None)
            os.write(feed, "x")
        self.later(count)
        self.assertEqual(core.WaitForInput(file, []), FILE)
        self.assertEqual(len(counted), 100000)

    def test_a_high_descriptor_is_waited_for(self):
        limit = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
        resource.setrlimit(resource.RLIMIT_NOFILE, (2000, limit))
        reading, feed = os.pipe()
        os.dup2(reading, 1999)
        file = os.fdopen(1999)
        self.later(os.write, feed, "hello\n")
        self.assertEqual(core.WaitForInput(file, []), FILE)
        self.assertEqual(file.readline(), "hello\n")


class TerminalTest(WaitTest):

    def test_a_typed_line_ends_the_wait(self):
        file, keyboard = self.terminal()
        self.later(os.write, keyboard, "hello\n")
        self.assertEqual(core.WaitForInput(file, []), FILE)
        self.assertEqual(core.WaitForInput(file, []), 6)
        self.assertEqual(file.readline(), "hello\n")

    def test_an_unfinished_line_is_no_input(self):
        file, keyboard = self.terminal()
        os.write(keyboard, "hel")
        self.wait_for_connection(file)
        self.later(os.write, keyboard, "lo\n")
        self.assertEqual(core.WaitForInput(file, []), FILE)
        self.assertEqual(file.readline(), "hello\n")

    def test_single_characters_of_a_raw_terminal_are_input(self):
        file, keyboard = self.terminal()
        tty.setraw(file)
        self.later(os.write, keyboard, "h")
        self.assertEqual(core.WaitForInput(file, []), FILE)
        self.assertEqual(core.WaitForInput(file, []), 1)
        self.assertEqual(file.read(1), "h")

    def test_the_end_typed_by_the_user_is_read_once(self):
        file, keyboard = self.terminal()
        self.later(os.write, keyboard, "\x04")
        self.assertEqual(core.WaitForInput(file, []), FILE)
        self.assertEqual(core.WaitForInput(file, []), FILE)
        self.assertEqual(file.readline(), "")
        os.write(keyboard, "more\n")
        self.assertEqual(core.WaitForInput(file, []), FILE)
        self.assertEqual(file.readline(), "more\n")

    def test_a_terminal_that_hangs_up_ends_the_wait(self):
        file, keyboard = self.terminal()
        self.later(os.close, keyboard)
        self.assertEqual(core.WaitForInput(file, []), FILE)

    def test_lines_are_read_in_order(self):
        file, keyboard = self.terminal()
        os.write(keyboard, "one\n")
        self.assertEqual(core.WaitForInput(file, []), FILE)
        os.write(keyboard, "two\n")
        self.assertEqual(core.WaitForInput(file, []), 4)
        self.assertEqual(file.readline(), "one\n")
        self.assertEqual(core.WaitForInput(file, []), FILE)
        self.assertEqual(file.readline(), "two\n")


class SocketTest(WaitTest):

    def setUp(self):
        WaitTest.setUp(self)
        self.file, self.feed = self.pipe()

    def wait(self, *sockets):
        return core.WaitForInput(self.file, list(sockets))

    def test_a_message_ends_the_wait_and_stays_to_be_read(self):
        one, other = socket.socketpair()
        self.later(other.send, "message")
        self.assertEqual(self.wait(one), CONNECTION)
        self.assertEqual(self.wait(one), CONNECTION)
        self.assertEqual(one.recv(100), "message")

    def test_a_message_over_loopback(self):
        listener = socket.socket()
        listener.bind(("127.0.0.1", 0))
        listener.listen(1)
        client = socket.socket()
        self.later(client.connect, listener.getsockname())
        self.assertEqual(self.wait(listener), CONNECTION)
        connection, address = listener.accept()
        self.later(client.send, "message")
        self.assertEqual(self.wait(listener, connection), CONNECTION)
        self.assertEqual(connection.recv(100), "message")

    def test_a_connection_that_is_closed_at_the_other_end_can_be_read(self):
        one, other = socket.socketpair()
        self.later(other.close)
        self.assertEqual(self.wait(one), CONNECTION)
        self.assertEqual(one.recv(100), "")

    def test_any_of_several_sockets_ends_the_wait(self):
        pairs = [socket.socketpair() for i in range(5)]
        for one, other in pairs:
            other.send("x")
            self.assertEqual(self.wait(*[pair[0] for pair in pairs]), CONNECTION)
            one.recv(1)

    def test_the_file_goes_before_the_sockets(self):
        one, other = socket.socketpair()
        other.send("x")
        os.write(self.feed, "y")
        self.assertEqual(self.wait(one), FILE)
        self.assertEqual(self.file.read(1), "y")
        self.assertEqual(self.wait(one), CONNECTION)

    def test_sockets_are_looked_at_when_the_file_had_its_tenth_of_a_second(self):
        one, other = socket.socketpair()
        other.send("x")
        start = time.time()
        self.assertEqual(self.wait(one), CONNECTION)
        if not 0.095 < time.time() - start < 5:
            self.fail("took %r seconds" % (time.time() - start))

    def test_anything_with_fileno_is_a_socket(self):
        class Item(object):
            def fileno(self):
                return descriptor
        descriptor, writing = os.pipe()
        os.write(writing, "x")
        self.assertEqual(self.wait(Item()), CONNECTION)
        self.assertEqual(self.wait(os.fdopen(descriptor)), CONNECTION)

    def test_negative_descriptors_are_left_out(self):
        self.assertEqual(self.wait(Numbered(-1), Numbered(-77), socket_with_input()), CONNECTION)
        self.later(os.write, self.feed, "x")
        self.assertEqual(self.wait(Numbered(-1)), FILE)

    def test_a_socket_listed_often_counts_once(self):
        one, other = socket.socketpair()
        self.assertEqual(self.wait(*([one] * 100 + [socket_with_input()])), CONNECTION)

    def test_64_sockets_are_looked_at(self):
        quiet = [socket.socketpair() for i in range(63)]
        sockets = [pair[0] for pair in quiet] + [socket_with_input()]
        self.assertEqual(self.wait(*sockets), CONNECTION)

    def test_sockets_after_the_64th_are_not_looked_at(self):
        quiet = [socket.socketpair() for i in range(64)]
        sockets = [pair[0] for pair in quiet] + [socket_with_input()]
        self.later(os.write, self.feed, "x")
        self.assertEqual(self.wait(*sockets), FILE)
        self.file.read(1)
        quiet[63][1].send("x")
        self.assertEqual(self.wait(*sockets), CONNECTION)

    def test_high_descriptors_are_looked_at(self):
        limit = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
        resource.setrlimit(resource.RLIMIT_NOFILE, (2000, limit))
        one, other = socket.socketpair()
        for high in (1023, 1024, 1025, 1999):
            os.dup2(one.fileno(), high)
        for high in (1023, 1024, 1025, 1999):
            self.later(other.send, "x")
            self.assertEqual(self.wait(Numbered(high)), CONNECTION)
            one.recv(1)

    def test_a_bad_descriptor_ends_the_wait_with_failure(self):
        one, other = socket.socketpair()
        descriptor = os.dup(one.fileno())
        os.close(descriptor)
        self.assertEqual(self.wait(one, Numbered(descriptor)), CANNOT_WAIT)
        self.assertEqual(self.wait(Numbered(100000), one), CANNOT_WAIT)

    def test_a_descriptor_closed_during_the_wait_ends_it_with_failure(self):
        one, other = socket.socketpair()
        descriptor = os.dup(one.fileno())
        self.later(os.close, descriptor)
        self.assertEqual(self.wait(one, Numbered(descriptor)), CANNOT_WAIT)

    def test_input_of_the_file_goes_before_a_bad_descriptor(self):
        os.write(self.feed, "x")
        self.assertEqual(self.wait(Numbered(100000)), FILE)

    def test_a_closed_socket_raises_its_own_error(self):
        closed = socket.socket()
        closed.close()
        error = self.assert_raises(socket.error, None, self.wait, closed)
        self.assertEqual(error.errno, errno.EBADF)

    def test_an_item_without_fileno_is_an_error(self):
        one, other = socket.socketpair()
        error = self.assert_raises(AttributeError, None, self.wait, one, 5)
        self.assert_in("fileno", str(error))

    def test_an_error_of_fileno_is_passed_on(self):
        class Item(object):
            def fileno(self):
                raise KeyError("mine")
        self.assert_raises(KeyError, "'mine'", self.wait, Item())

    def test_a_descriptor_must_be_a_number_in_range(self):
        self.assert_raises(TypeError, "an integer is required", self.wait, Numbered("5"))
        self.assert_raises(TypeError, "an integer is required", self.wait, Numbered(None))
        self.assert_raises(OverflowError, None, self.wait, Numbered(2 ** 70))

    def test_a_list_that_shrinks_on_the_way_is_an_error(self):
        class Item(object):
            def fileno(self):
                del sockets[1:]
                return -1
        sockets = [Item(), Item(), Item()]
        self.assert_raises(IndexError, None, core.WaitForInput, self.file, sockets)

    def test_a_list_that_grows_on_the_way_is_taken_as_it_was(self):
        class Item(object):
            def fileno(self):
                sockets.extend([Item()] * 1000)
                return -1
        sockets = [Item(), socket_with_input()]
        self.assertEqual(core.WaitForInput(self.file, sockets), CONNECTION)

    def test_only_a_list_is_taken(self):
        self.assert_raises(TypeError, "argument 2 must be list, not tuple",
                           core.WaitForInput, self.file, ())
        self.assert_raises(TypeError, "function takes exactly 2 arguments (1 given)",
                           core.WaitForInput, self.file)

    def test_file_is_usable_after_an_error(self):
        self.assert_raises(AttributeError, None, self.wait, None)
        os.write(self.feed, "x")
        self.assertEqual(self.wait(), FILE)
        self.file.close()


class Numbered(object):

    def __init__(self, descriptor):
        self.descriptor = descriptor

    def fileno(self):
        return self.descriptor


def socket_with_input():
    one, other = socket.socketpair()
    other.send("x")
    # Closing the other end would be input too.
    socket_with_input.kept.append(other)
    return one


socket_with_input.kept = []


class InterruptedTest(WaitTest):

    def test_a_signal_does_not_end_the_wait_and_is_handled_after_it(self):
        calls = []
        signal.signal(signal.SIGALRM, lambda number, frame: calls.append(number))
        file, feed = self.pipe()
        signal.setitimer(signal.ITIMER_REAL, 0.02, 0.02)
        self.later(os.write, feed, "hello\n")
        answer = core.WaitForInput(file, [])
        signal.setitimer(signal.ITIMER_REAL, 0)
        self.assertEqual(answer, FILE)
        self.assertEqual(file.readline(), "hello\n")
        self.assert_in(signal.SIGALRM, calls)

    def test_a_signal_does_not_end_the_wait_for_a_socket(self):
        signal.signal(signal.SIGALRM, lambda number, frame: None)
        file, feed = self.pipe()
        one, other = socket.socketpair()
        signal.setitimer(signal.ITIMER_REAL, 0.02, 0.02)
        self.later(other.send, "x")
        answer = core.WaitForInput(file, [one])
        signal.setitimer(signal.ITIMER_REAL, 0)
        self.assertEqual(answer, CONNECTION)

    def test_a_file_in_a_wait_cannot_be_closed(self):
        file, feed = self.pipe()
        errors = []

        def close():
            try:
                file.close()
            except IOError as error:
                errors.append(str(error))
            os.write(feed, "x")
        self.later(close)
        self.assertEqual(core.WaitForInput(file, []), FILE)
        self.assertEqual([error.rstrip(".") for error in errors],
                         ["close() called during concurrent operation on the same file object"])
        self.assertEqual(file.read(1), "x")
        self.assertEqual(file.close(), None)

    def test_a_file_whose_descriptor_goes_during_the_wait_can_be_read_for_its_error(self):
        file, feed = self.pipe()
        self.later(os.close, file.fileno())
        self.assertEqual(core.WaitForInput(file, []), FILE)
        error = self.assert_raises(IOError, None, file.read)
        self.assertEqual(error.errno, errno.EBADF)

    def test_the_file_may_go_out_of_use_during_the_wait(self):
        file, feed = self.pipe()
        one, other = socket.socketpair()
        arguments = [file, [one]]
        del file

        def forget():
            del arguments[:]
            other.send("x")
        self.later(forget)
        self.assertEqual(core.WaitForInput(*arguments), CONNECTION)


class BetweenWaitsTest(WaitTest):
    """A wait that the connection ended leaves the file as if nobody had waited."""

    def setUp(self):
        WaitTest.setUp(self)
        self.file, self.feed = self.pipe()
        self.wait_for_connection(self.file)

    def test_what_was_typed_since_is_counted(self):
        os.write(self.feed, "hello\n")
        self.assertEqual(core.WaitForInput(self.file, []), 6)
        self.assertEqual(self.file.readline(), "hello\n")

    def test_what_is_typed_later_is_waited_for(self):
        self.later(os.write, self.feed, "hello\n")
        self.assertEqual(core.WaitForInput(self.file, []), FILE)
        self.assertEqual(core.WaitForInput(self.file, []), 6)
        self.assertEqual(self.file.readline(), "hello\n")

    def test_the_end_since_then_is_input(self):
        os.close(self.feed)
        self.assertEqual(core.WaitForInput(self.file, []), FILE)
        self.assertEqual(self.file.readline(), "")

    def test_the_program_reads_what_is_typed(self):
        os.write(self.feed, "one\ntwo\n")
        self.assertEqual(self.file.readline(), "one\n")
        self.assertEqual(self.file.readline(), "two\n")
        self.wait_for_connection(self.file)

    def test_the_program_waits_in_a_read_of_its_own(self):
        self.later(os.write, self.feed, "one\ntwo\n")
        self.assertEqual(self.file.readline(), "one\n")
        self.assertEqual(core.WaitForInput(self.file, []), 4)

    def test_the_program_reads_the_descriptor(self):
        os.write(self.feed, "hello\n")
        time.sleep(0.2)
        self.assertEqual(os.read(self.file.fileno(), 100), "hello\n")

    def test_the_file_can_be_closed(self):
        self.file.close()
        self.assertEqual(core.WaitForInput(self.file, []), CANNOT_WAIT)
        self.assert_raises(OSError, None, os.write, self.feed, "x")

    def test_another_file_can_be_waited_for(self):
        another, feed = self.pipe()
        self.later(os.write, feed, "hello\n")
        self.assertEqual(core.WaitForInput(another, []), FILE)
        self.assertEqual(another.readline(), "hello\n")
        os.write(self.feed, "still there\n")
        self.assertEqual(core.WaitForInput(self.file, []), FILE)
        self.assertEqual(self.file.readline(), "still there\n")

    def test_many_waits_for_the_connection_leave_one_input(self):
        for i in range(20):
            self.wait_for_connection(self.file)
        os.write(self.feed, "hello\n")
        self.assertEqual(core.WaitForInput(self.file, []), 6)
        self.assertEqual(self.file.readline(), "hello\n")
        self.wait_for_connection(self.file)


class SharedInputTest(WaitTest):
    """The program reads the file while the server waits for it."""

    def test_the_reading_program_gets_its_line_and_the_server_the_next(self):
        file, feed = self.pipe()
        lines = []

        def program():
            lines.append(file.readline())
        self.threads.append(threading.Thread(target=program))
        self.threads[-1].start()
        time.sleep(0.2)     # Reading by now.
        self.later(os.write, feed, "first ")
        one, other = socket.socketpair()
        threading.Timer(0.5, other.send, "x").start()
        self.assertEqual(core.WaitForInput(file, [one]), CONNECTION)
        one.recv(1)
        self.assertEqual(lines, [])
        self.later(os.write, feed, "line\nsecond line\n")
        answer = core.WaitForInput(file, [one])
        self.assert_in(answer, (FILE, len("second line\n")))
        self.threads[0].join()
        self.assertEqual(lines, ["first line\n"])
        self.assertEqual(file.readline(), "second line\n")

    def test_every_byte_is_read_once_and_in_order(self):
        file, feed = self.pipe()
        one, other = socket.socketpair()
        chance = random.Random(26)
        text = "".join([chr(chance.randrange(256)) for i in range(20000)])
        messages = []

        def type_text():
            at = 0
            while at < len(text):
                end = at + chance.randrange(1, 2000)
                os.write(feed, text[at:end])
                at = end
                if chance.random() < 0.3:
                    other.send("m")
                    messages.append("m")
                time.sleep(chance.choice((0, 0.001, 0.05)))
            os.close(feed)
        self.later(type_text)
        read = []
        received = []
        while True:
            answer = core.WaitForInput(file, [one])
            if answer == CONNECTION:
                received.append(one.recv(1))
                continue
            piece = file.read(answer)
            if not piece:
                break
            self.assertEqual(len(piece), answer)
            read.append(piece)
        self.assert_is("".join(read) == text, True)
        while len(received) < len(messages):
            received.append(one.recv(1))
        self.assertEqual(received, messages)


class ProcessTest(WaitTest):
    """What a wait leaves behind does not keep a process alive."""

    WAIT = ("import os, socket, sys, threading, time\n"
            "import tmorvik26_vs2012_x64 as core\n"
            "def wait(file):\n"
            "    one, other = socket.socketpair()\n"
            "    other.send('x')\n"
            "    return core.WaitForInput(file, [one])\n")

    def start(self, source):
        return subprocess.Popen([harness.launcher(), "-c", self.WAIT + source],
                                stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def outcome(self, source):
        """Output and status of a process whose standard input stays open."""
        process = self.start(source)
        output = process.stdout.read()
        return output, process.wait()

    def test_standard_input_waited_for(self):
        self.assertEqual(self.outcome("print(wait(sys.stdin))\n"
                                      "sys.exit(7)\n"), ("0\n", 7))

    def test_another_file_waited_for(self):
        self.assertEqual(self.outcome("reading, writing = os.pipe()\n"
                                      "file = os.fdopen(reading)\n"
                                      "print(wait(file))\n"
                                      "del file\n"
                                      "sys.exit(7)\n"), ("0\n", 7))

    def test_a_thread_is_still_waiting(self):
        self.assertEqual(
            self.outcome("thread = threading.Thread(target=core.WaitForInput,\n"
                         "                          args=(sys.stdin, []))\n"
                         "thread.setDaemon(True)\n"
                         "thread.start()\n"
                         "time.sleep(0.3)\n"
                         "sys.exit(7)\n"), ("", 7))

    def test_standard_input_closed_after_a_wait(self):
        self.assertEqual(self.outcome("print(wait(sys.stdin))\n"
                                      "sys.stdin.close()\n"
                                      "print(wait(sys.stdin))\n"), ("0\n-1\n", 0))

    def test_a_child_inherits_what_the_wait_left(self):
        process = self.start("print(wait(sys.stdin))\n"
                             "sys.stdout.flush()\n"
                             "os.system('read line; echo child $line')\n"
                             "print(raw_input())\n")
        self.assertEqual(process.stdout.readline(), "0\n")
        process.stdin.write("one\n")
        process.stdin.flush()
        self.assertEqual(process.stdout.readline(), "child one\n")
        process.stdin.write("two\n")
        process.stdin.flush()
        self.assertEqual(process.stdout.readline(), "two\n")
        self.assertEqual(process.wait(), 0)

    def test_the_example_watches_terminal_and_connection(self):
        process = subprocess.Popen([harness.launcher(), EXAMPLE], stdout=subprocess.PIPE)
        output = process.stdout.read()
        self.assertEqual(process.wait(), 0)
        self.assertEqual(output, "from the terminal: 'first line\\n'\n"
                                 "from the connection: 'where'\n"
                                 "from the connection: 'next'\n"
                                 "from the terminal: 'second line\\n'\n"
                                 "from the connection: 'continue'\n"
                                 "the connection is closed\n")


class DiagnosticsTest(WaitTest):

    def setUp(self):
        WaitTest.setUp(self)
        self.server.init()
        self.server.stream.clear()
        self.file, self.feed = self.pipe()

    def messages(self):
        """Without the address of the stream."""
        found = []
        for message in self.server.stream.messages:
            if message.startswith("Calling"):
                start, end = message.split("fp = 0x")
                message = start + "fp = ADDRESS" + end[end.index(","):]
            found.append(message)
        return found

    def test_a_wait_is_told_from_its_start(self):
        core.WaitForInput(self.file, [Numbered(-1), socket_with_input()])
        self.assertEqual(self.messages(), [
            "Entering WrapWaitForInput\n",
            "Current file buffer count = 0\n",
            "Calling WaitOnStdin(fp = ADDRESS, socket_list length = 2\n"])

    def test_buffered_input_is_told_by_its_count(self):
        os.write(self.feed, "xhello")
        self.file.read(1)
        core.WaitForInput(self.file, [])
        self.assertEqual(self.messages(), ["Entering WrapWaitForInput\n",
                                           "Current file buffer count = 5\n"])

    def test_only_the_entry_is_told_for_what_is_no_file(self):
        core.WaitForInput("file", [])
        self.assertEqual(self.messages(), ["Entering WrapWaitForInput\n"])

    def test_nothing_is_told_for_wrong_arguments(self):
        self.assert_raises(TypeError, None, core.WaitForInput, self.file, None)
        self.assertEqual(self.messages(), [])

    def test_the_call_is_told_before_the_sockets_are_asked(self):
        self.assert_raises(AttributeError, None, core.WaitForInput, self.file, [1, 2, 3])
        self.assertEqual(self.messages()[-1],
                         "Calling WaitOnStdin(fp = ADDRESS, socket_list length = 3\n")


class ReferencesTest(WaitTest):

    def test_waits_do_not_keep_references(self):
        if not hasattr(sys, "gettotalrefcount"):
            self.skip("the interpreter does not count references")
        file, feed = self.pipe()
        readable = socket_with_input()

        def wait():
            os.write(feed, "x")
            core.WaitForInput(file, [readable])
            core.WaitForInput(file, [])
            file.read(1)
            core.WaitForInput("file", [])
            try:
                core.WaitForInput(file, [readable, None])
            except AttributeError:
                sys.exc_clear()
        for i in range(10):
            wait()
        before = sys.gettotalrefcount()
        for i in range(200):
            wait()
        grown = sys.gettotalrefcount() - before
        if grown > 20:
            self.fail("%d references more" % grown)
