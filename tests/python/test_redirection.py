"""Streams in the place of the program's, which keep what is written."""

import gc
import os
import sys

import harness

import _sorrel


class Failing(object):

    def write(self, text):
        raise IOError('no more')

    def writelines(self, lines):
        raise KeyError(lines)


class RedirectionTest(harness.TestCase):

    def setUp(self):
        harness.TestCase.setUp(self)
        self.streams = sys.stdout, sys.stderr
        self.null = open(os.devnull, 'w')

    def tearDown(self):
        sys.stdout, sys.stderr = self.streams
        self.null.close()
        harness.TestCase.tearDown(self)

    def redirected(self, stream, limit=10000):
        sys.stdout = stream
        return _sorrel.redirect_output(limit)

    def test_nothing_is_kept_when_it_has_ended(self):
        take, end = self.redirected(self.null)
        print 'a',
        sys.stdout.writelines(['b\n', u'c'])
        sys.stderr.write('')
        sys.stdout.write(buffer('d'))
        end()
        self.assertTrue(sys.stdout is self.null)
        self.assertEqual(take(), ([], 0))

    def test_bytes_and_letters_are_told_apart(self):
        take, end = self.redirected(self.null)
        print 'a', u'b'
        texts, left_out = take()
        end()
        self.assertEqual(texts, [('stdout', text) for text in ('a', ' ', u'b', '\n')])
        self.assertEqual([type(text) for _, text in texts], [str, str, unicode, str])
        self.assertEqual(left_out, 0)

    def test_what_is_beyond_the_limit_is_counted(self):
        take, end = self.redirected(self.null, 5)
        sys.stdout.write('1234567')
        sys.stdout.write('89')
        taken = take()
        sys.stdout.write('again')
        again = take()
        end()
        self.assertEqual(taken, ([('stdout', '12345')], 4))
        self.assertEqual(again, ([('stdout', 'again')], 0))

    def test_what_could_not_be_written_is_not_there(self):
        take, end = self.redirected(Failing())
        self.assert_raises(IOError, 'no more', sys.stdout.write, 'a')
        self.assert_raises(KeyError, None, sys.stdout.writelines, ['a'])
        taken = take()
        end()
        self.assertEqual(taken, ([], 0))

    def test_lines_that_cannot_be_made_are_the_error_of_the_program(self):
        take, end = self.redirected(self.null)

        def lines():
            yield 'a\n'
            raise ValueError('no line')
        self.assert_raises(ValueError, 'no line', sys.stdout.writelines, lines())
        taken = take()
        end()
        self.assertEqual(taken, ([('stdout', 'a\n')], 0))

    def test_a_closed_file_is_one_still(self):
        stream = open(os.devnull, 'w')
        take, end = self.redirected(stream)
        stream.close()
        try:
            print 'a'
            said = None
        except ValueError, error:
            said = str(error)
        end()
        self.assertEqual(said, 'I/O operation on closed file')

    def test_a_with_statement_closes_it(self):
        stream = open(os.devnull, 'w')
        take, end = self.redirected(stream)
        with sys.stdout as entered:
            is_same = entered is sys.stdout
        end()
        self.assertTrue(is_same and stream.closed)

    def test_what_the_program_has_kept_only_writes_on(self):
        path = os.path.join(self.folder, 'out')
        stream = open(path, 'w')
        take, end = self.redirected(stream)
        write, kept = sys.stdout.write, sys.stdout
        end()
        write('a')
        kept.write('b')
        # A new one stands for the file, not for what the program had from the last.
        take, end = self.redirected(kept)
        sys.stdout.write('c')
        end()
        is_file = sys.stdout is stream
        stream.close()
        self.assertEqual((is_file, open(path).read()), (True, 'abc'))

    def test_no_stream_at_all(self):
        take, end = self.redirected(None)
        sys.stderr.write('')
        end()
        self.assertTrue(sys.stdout is None)

    def test_references_do_not_grow(self):
        if not hasattr(sys, 'gettotalrefcount'):
            self.skip('counts of references need a debug build')

        def turn():
            for stream in self.null, Failing():
                take, end = self.redirected(stream, 50)
                for function in (lambda: sys.stdout.write('x' * 60), lambda: sys.stdout.write(5),
                                 lambda: sys.stdout.writelines(5), lambda: sys.stdout.nothing,
                                 lambda: sys.stdout.writelines(['a', u'b'])):
                    try:
                        function()
                    except Exception:
                        sys.exc_clear()
                repr(sys.stdout), hash(sys.stdout), sys.stdout == stream, sys.stdout.__class__
                if stream is not self.null:
                    stream.its_own = sys.stdout
                take()
                end()
        counts = []
        for _ in range(4):
            for _ in range(50):
                turn()
            gc.collect()
            counts.append(sys.gettotalrefcount())
        growth = [after - before for before, after in zip(counts, counts[1:])]
        self.assertTrue(sorted(growth)[1] < 50, growth)
