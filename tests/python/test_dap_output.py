"""What a launched program writes, as the adapter reads it."""

import array
import fcntl
import os
import termios
import threading

import harness
from sorrel.adapter import process


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
        self.process = process.Process(self.started, lambda *told: self.told.append(told))

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
