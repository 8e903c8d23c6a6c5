"""The parts of the server for editors that need no program: messages, values, paths, limits."""

import collections
import json
import os
import socket
import sys
import thread
import threading
import time

import dap_session
import harness
from sorrel.inspection import child_values, stacks, time_limit, values
from sorrel.protocol import messages, schema, secrets
from sorrel.server.network import output_queue, polling, wakeup
from sorrel.server.shared import sources
from sorrel.server.stopped import hit_conditions


class ProtocolTest(harness.TestCase):

    MESSAGES = [{'type': 'event', 'event': 'x', 'body': {'text': u'\xe4\u20ac'}},
                {'type': 'request', 'seq': 1, 'command': 'y'}]

    def test_messages_cut_anywhere(self):
        data = ''.join(messages.encode(message) for message in self.MESSAGES)
        for cut in range(len(data) + 1):
            decoder = messages.Decoder()
            self.assertEqual(decoder.feed(data[:cut]) + decoder.feed(data[cut:]), self.MESSAGES)
            self.assert_(not decoder.is_amid_message())

    def test_being_amid_a_message(self):
        decoder = messages.Decoder()
        for letter in messages.encode(self.MESSAGES[0])[:-1]:
            self.assertEqual(decoder.feed(letter), [])
            self.assert_(decoder.is_amid_message())

    def test_limits(self):
        for limits in messages.FROM_STRANGER, messages.FROM_CLIENT:
            for data in ('Content-Length: %d\r\n\r\n' % (limits.size + 1),
                         'Content-Length: ' + '1' * messages.HEADER_LIMIT,
                         'Content-Length: 2\r\n' + 'X: y\r\n' * 8):
                self.assertRaises(messages.Broken, messages.Decoder(limits).feed, data + '\r\n')

    def test_limits_can_be_raised_between_two_messages(self):
        decoder = messages.Decoder(messages.FROM_STRANGER)
        large = {'type': 'event', 'event': 'x' * messages.FROM_STRANGER.size}
        decoder.add(messages.encode(self.MESSAGES[0]) + messages.encode(large))
        self.assertEqual(decoder.take(), self.MESSAGES[0])
        decoder.limits = messages.FROM_CLIENT
        self.assertEqual(decoder.take(), large)
        self.assertEqual(decoder.take(), None)

    def test_the_length_comes_first(self):
        body = json.dumps(self.MESSAGES[1])
        data = 'content-length:%d\r\nContent-Type: x\r\n\r\n%s' % (len(body), body)
        self.assertEqual(messages.Decoder().feed(data), [self.MESSAGES[1]])
        # What begins in another way is known by its first letter.
        for first in 'G', 'P', '\0', '\r', ' ', 'Co ', 'Content-T':
            self.assertRaises(messages.Broken, messages.Decoder().feed, first)
        decoder = messages.Decoder()
        for letter in 'cOnTeNt-LeNgTh:':
            self.assertEqual(decoder.feed(letter), [])
        # Twice is once too often.
        self.assertRaises(messages.Broken, messages.Decoder().feed,
                          'Content-Length: 2\r\nContent-Length: 2\r\n\r\n{}')

    def test_what_is_passed_on_gets_no_larger(self):
        for message in ({'type': 'event', 'x': u'\u4e2d\ud800"\\\n' * 10000},
                        {'type': 'event', 'x': [1, 1.5, None, True, {u'\xe9': ''}, 1 << 99] * 999}):
            body = json.dumps(message, ensure_ascii=False, separators=(',', ':')).encode('utf-8')
            received, = self.feed(body)
            passed_on = messages.encode_as_received(received)
            self.assertTrue(len(passed_on) <= len(body) + 50)
            self.assertEqual(messages.Decoder().feed(passed_on), [message])

    def feed(self, body, limits=messages.FROM_CLIENT):
        return messages.Decoder(limits).feed(
            'Content-Length: %d\r\n\r\n%s' % (len(body), body))

    def test_messages_as_large_as_any_client_may_need(self):
        lines = [{'line': number, 'condition': 'x == "%d"' % number} for number in range(5000)]
        code = ''.join('print "[%d]\\n"\n' % number for number in range(5000))
        for message in ({'type': 'request', 'seq': 1, 'command': 'setBreakpoints', 'arguments': {
                            'breakpoints': lines}},
                        {'type': 'request', 'seq': 1, 'command': 'evaluate', 'arguments': {
                            'expression': code + '1' * 100000 + '[' * 100000}}):
            self.assertEqual(self.feed(json.dumps(message)), [message])

    def test_numbers_have_an_end(self):
        self.assertEqual(self.feed('{"type": "event", "x": [%s, -1.5e300]}' % ('9' * 100)),
                         [{'type': 'event', 'x': [10 ** 100 - 1, -1.5e300]}])
        for number in '9' * 101, '-' + '9' * 101, '0.' + '9' * 101, '1e' + '0' * 101:
            self.assertRaises(messages.Broken, self.feed, '{"type": "event", "x": %s}' % number)

    def test_what_would_take_long_to_read_is_not_read(self):
        most = messages.FROM_CLIENT.size
        for body in dap_session.hostile_bodies():
            begun = os.times()[:2]
            self.assertRaises(messages.Broken, self.feed, body)
            self.assertRaises(messages.Broken, self.feed, body[:most])
            self.assert_(sum(os.times()[:2]) - sum(begun) < 5, body[:10])

    def test_depth(self):
        def message(depth, more=''):
            return '{"type": "event", "x": %s%s}' % ('[' * depth + ']' * depth, more)
        feed = self.feed
        self.assertEqual(len(feed(message(99))), 1)
        self.assertRaises(messages.Broken, feed, message(100))
        # What is in strings does not count.
        self.assertEqual(len(feed(message(1, r', "y": "%s\"[["' % ('[{' * 500)))), 1)
        self.assertEqual(len(feed(message(1, ', "y": [%s]' % ', '.join(['[]'] * 500)))), 1)


class WordsTest(harness.TestCase):

    def test_only_the_word_itself_is_the_same(self):
        word = secrets.new()
        self.assertEqual(len(word), secrets.SIZE)
        self.assertNotEqual(word, secrets.new())
        self.assertTrue(secrets.is_same(word, word))
        for said in ('', word[:-1], word + 'x', word + '\0', word[:-1] + ' ', 'x' + word[1:],
                     word.upper() + 'X', ' ' * len(word), '\xff' * 32):
            self.assertTrue(not secrets.is_same(said, word), said)

    def test_a_wrong_word_is_looked_at_to_its_end(self):
        def steps(said):
            counted = []

            def count(frame, event, argument):
                counted.append(event)
                return count
            sys.settrace(count)
            try:
                secrets.is_same(said, 'a' * 32)
            finally:
                sys.settrace(None)
            return len(counted)
        expected = steps('a' * 32)
        self.assertTrue(expected > 32)
        for said in 'b' * 32, 'a' * 31 + 'b', 'b' + 'a' * 31, '', 'a', 'a' * 31, 'b' * 1000:
            self.assertEqual(steps(said), expected)


class WakeupTest(harness.TestCase):

    def setUp(self):
        harness.TestCase.setUp(self)
        self.wakeup = wakeup.Wakeup()

    def is_awake(self):
        return bool(polling.wait([self.wakeup.descriptor.number], [], 0.05)[0])

    def test_waking_up_as_often_as_needed(self):
        for _ in range(3):
            self.assertTrue(not self.is_awake())
            for _ in range(1000):
                self.assertTrue(self.wakeup.wake())
            self.assertTrue(self.is_awake())
            for _ in range(1000):
                self.wakeup.clear()

    def test_clearing_ends_however_often_it_is_woken(self):
        ends = []

        def wake():
            while not ends:
                self.wakeup.wake()
        for _ in range(2):
            thread.start_new_thread(wake, ())
        for _ in range(100):
            self.wakeup.clear()
        ends.append(True)

    def test_nobody_else_can_wake_it(self):
        address = self.wakeup.descriptor.socket.getsockname()
        other = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        for _ in range(10):
            other.sendto('x', address)
        self.assertTrue(not self.is_awake())
        other.close()


class OutputQueueTest(harness.TestCase):

    def setUp(self):
        harness.TestCase.setUp(self)
        self.box = output_queue.OutputQueue()
        self.box.owner = -1  # No thread of the test.
        self.box.begin('session')

    def log(self, size, session='session'):
        self.box.put(session, {'type': 'event', 'event': 'output', 'body': {
            'category': 'console', 'output': u'x' * size}})

    def taken(self):
        return list(iter(self.box.take, None))

    def test_what_is_left_out_is_said_in_its_place(self):
        size = output_queue.LOG_LIMIT // 8
        for number in range(15):
            self.log(size)
            self.box.put('session', {'number': number})
        taken = self.taken()
        self.assertEqual([message['number'] for message in taken if 'number' in message],
                         range(15))
        logs = [message['body'] for message in taken if 'body' in message]
        self.assertEqual([log['category'] for log in logs], ['console'] * 8 + ['important'])
        self.assertEqual(logs[-1]['output'],
                         'sorrel: 7 log messages of %d letters left out here: they are read too '
                         'slowly\n' % (7 * size))
        self.log(1)
        self.assertEqual([message['body']['output'] for message in self.taken()], ['x'])

    def test_what_is_not_sent_yet_counts(self):
        self.box.unsent = output_queue.LOG_LIMIT
        self.log(1)
        self.assertEqual(self.taken(), [])
        self.box.unsent = 0
        self.assertEqual([message['body']['category'] for message in self.taken()], ['important'])
        self.assertTrue(self.box.is_empty())

    def test_a_thread_waits_a_moment_at_most(self):
        self.log(output_queue.LOG_LIMIT)
        begun = time.time()
        self.log(1)
        self.assertTrue(0.005 < time.time() - begun < 1)
        # Not even that when it is the network thread's own.
        self.box.owner = thread.get_ident()
        naps = []
        output_queue._sleep = naps.append
        self.log(1)
        self.assertEqual(naps, [])

    def test_messages_of_other_sessions_are_nobodys(self):
        self.log(output_queue.LOG_LIMIT)
        self.log(1)
        self.box.mark('session', len)
        self.box.begin('next')
        self.log(1)
        self.box.put('session', {})
        self.log(2, 'next')
        self.assertEqual([message['body']['output'] for message in self.taken()], ['xx'])

    def test_marks_keep_their_place(self):
        self.box.put('session', {1: 1})
        self.box.mark('session', len)
        self.box.put('session', {2: 2})
        self.assertEqual(self.taken(), [{1: 1}, len, {2: 2}])

    def test_many_threads_at_once(self):
        ended = []

        def work():
            for _ in range(200):
                self.log(1)
            ended.append(True)
        for _ in range(10):
            thread.start_new_thread(work, ())
        harness.wait_until(lambda: len(ended) == 10)
        self.assertEqual(len(self.taken()), 2000)
        self.assertEqual(self.box._waiting_log.total(), 0)


class ShapesTest(harness.TestCase):

    def refusal(self, command, arguments):
        return str(self.assert_raises(messages.Refused, None, schema.checked,
                                      {'command': command, 'arguments': arguments}))

    def test_what_is_null_is_missing(self):
        self.assertEqual(schema.checked({'command': 'evaluate', 'arguments': {
            'expression': u'x', 'context': None, 'other': None}}), {'expression': u'x'})
        self.assertEqual(schema.checked({'command': 'threads', 'arguments': None}), {})
        self.assertEqual(schema.checked({'command': 'unheard_of'}), {})

    def test_refusals_name_the_place(self):
        self.assertEqual(self.refusal('evaluate', []), 'arguments is no object')
        self.assertEqual(self.refusal('evaluate', {}), 'expression is missing')
        self.assertEqual(self.refusal('setBreakpoints', {'source': {'path': 5}}),
                         'source.path is no string')
        self.assertEqual(self.refusal('setBreakpoints', {
            'source': {}, 'breakpoints': [{'line': 1}, {'line': True}]}),
            'breakpoints[1].line is no whole number from 0 on')


class Endless(object):

    def __repr__(self):
        while True:
            pass


class Own(list):
    pass


class Shown(list):

    def __repr__(self):
        return 'shown'


class ValuesTest(harness.TestCase):

    def setUp(self):
        harness.TestCase.setUp(self)
        limit = time_limit.TimeLimit()
        self.calls = []

        def call(function, *arguments):
            self.calls.append(arguments)
            end = time.time() + 0.2
            thread.start_new_thread(self.expire, (limit, end))
            return limit.call(0.2, function, *arguments)
        self.shower = values.Shower(call)

    def expire(self, limit, end):
        time.sleep(max(0, end - time.time()))
        limit.expire()

    def test_containers(self):
        for value, shown in (
                ([1, (2,), {}], '[1, (2,), {}]'), (range(30), str(range(20))[:-1] + ', ...]'),
                ([range(9)], '[[0, 1, 2, 3, 4, ...]]'), ([[[[1]]]], '[[[...]]]'),
                (set([1]), 'set([1])'), (frozenset(), 'frozenset([])'),
                (collections.deque([1]), 'deque([1])'), (Own([1]), '[1]'), ((), '()')):
            self.assertEqual(self.shower.show(value), shown)
        self.assertEqual(self.calls, [])

    def test_own_texts(self):
        self.assertEqual(self.shower.show(Shown([1])), 'shown')
        # But not of what is long.
        self.assertEqual(self.shower.show(Shown(range(5000)))[:20], 'Shown([0, 1, 2, 3, 4')
        self.assertEqual(self.shower.show(collections.defaultdict(int, dict.fromkeys(range(5000))))
                         [:25], 'defaultdict({0: None, 1: ')

    def test_cycles(self):
        cycle = [1]
        cycle.append(cycle)
        self.assertEqual(self.shower.show(cycle), '[1, [1, [1, ...]]]')

    def test_strings_and_numbers_without_end(self):
        self.assertEqual(len(self.shower.show('x' * 100000)), 1003)
        self.assertEqual(self.shower.show(1 << 100000), '<long of 100001 bits>')

    def test_a_text_that_does_not_end_is_asked_for_once(self):
        for _ in range(3):
            self.assertEqual(self.shower.show(Endless()),
                             '<Endless object; its repr() does not end>')
        self.assertEqual(len(self.calls), 1)

    def test_an_ordered_dict_keeps_its_order(self):
        ordered_dict = getattr(collections, 'OrderedDict', None)
        if ordered_dict is None:
            self.skip('this host has none')
        table = ordered_dict((number, None) for number in range(50, 0, -1))
        self.assertEqual([key for key, _ in values.first_entries(table, 10, 3)], [40, 39, 38])
        table.__dict__.clear()
        self.assertEqual(len(values.first_entries(table, 0, 3)), 3)

    def test_parts_of_objects(self):
        class Slotted(object):
            __slots__ = 'a', 'b'
        slotted = Slotted()
        slotted.a = 1
        named = child_values.Object(slotted).named()
        self.assertEqual([(child.name, child.value) for child in named],
                         [('a', 1)])
        rest = child_values.Object(range(100)).items.rest(40)
        self.assertEqual((rest.name(), rest.count(), rest.get(0, 1)[0].name),
                         ('[40 to 99]', 60, '[40]'))


class TimeLimitTest(harness.TestCase):

    def setUp(self):
        harness.TestCase.setUp(self)
        self.limit = time_limit.TimeLimit()

    def expire_soon(self, times=1):
        def expire():
            for _ in range(times):
                time.sleep(0.1)
                self.limit.expire()
        thread.start_new_thread(expire, ())

    def test_what_ends_in_time_is_returned(self):
        self.assertEqual(self.limit.call(5, lambda x: x + 1, 1), 2)
        self.assertEqual(self.limit.deadline, None)

    def test_what_does_not_end_is_ended(self):
        def for_ever():
            while True:
                pass
        self.expire_soon()
        self.assertRaises(time_limit.Overtime, self.limit.call, 0.1, for_ever)

    def test_what_catches_everything_is_ended_again(self):
        caught = []

        def stubborn():
            while True:
                try:
                    while True:
                        pass
                except time_limit.Overtime:
                    if len(caught) == 2:
                        raise
                    caught.append(self.limit.deadline)
        self.expire_soon(3)
        self.assertRaises(time_limit.Overtime, self.limit.call, 0.1, stubborn)
        # There was a time set for the next attempt, each time.
        self.assertEqual([moment > 0 for moment in caught], [True, True])

    def test_nothing_is_left_for_what_comes_afterwards(self):
        for _ in range(20):
            self.limit.call(0.001, lambda: None)
            self.limit.expire()
            sum(range(1000))

    def test_it_goes_on_when_all_are_done_that_have_ended_it(self):
        has_left, still_there = threading.Event(), []

        def end_twice():
            time.sleep(0.1)
            self.limit.expire(end_again)

        def end_again(ident):
            self.limit.expire()
            has_left.wait(0.3)
            still_there.append(not has_left.isSet())

        def for_ever():
            while True:
                pass
        thread.start_new_thread(end_twice, ())
        self.assertRaises(time_limit.Overtime, self.limit.call, 5, for_ever)
        has_left.set()
        self.assertEqual(still_there, [True])

    def test_errors_pass(self):
        self.assertRaises(ZeroDivisionError, self.limit.call, 5, lambda: 1 / 0)


class SourcesTest(harness.TestCase):

    def setUp(self):
        harness.TestCase.setUp(self)
        self.sources = sources.Sources()

    def assert_mapped(self, local, remote):
        self.assertEqual(self.sources.to_program(local), remote)
        self.assertEqual(self.sources.to_client(remote), local)

    def test_paths_without_mappings(self):
        self.assert_mapped(u'/a/b.py', '/a/b.py')
        self.assert_mapped(u'/\xe4.py', '/\xc3\xa4.py')
        self.assertRaises(messages.Refused, self.sources.to_program, u'/a\0b')

    def test_mappings(self):
        self.sources.map_paths([{'localRoot': u'/home/me/shop/', 'remoteRoot': u'/srv/app'},
                                {'localRoot': u'/home/me', 'remoteRoot': u'/srv'}])
        self.assert_mapped(u'/home/me/shop/x/y.py', '/srv/app/x/y.py')
        self.assert_mapped(u'/home/me/other.py', '/srv/other.py')
        self.assert_mapped(u'/home/media/a.py', '/home/media/a.py')

    def test_the_innermost_folder_of_several_mappings_counts(self):
        self.sources.map_paths([{'localRoot': u'/', 'remoteRoot': u'/far'},
                                {'localRoot': u'/home/me//', 'remoteRoot': u'/far/srv/'},
                                {'localRoot': u'/home/./me/shop/', 'remoteRoot': u'/far/shop'}])
        self.assert_mapped(u'/etc/x.py', '/far/etc/x.py')
        self.assert_mapped(u'/home/me/x.py', '/far/srv/x.py')
        self.assert_mapped(u'/home/me/shop/x.py', '/far/shop/x.py')

    def test_the_root_of_all_can_be_mapped(self):
        self.sources.map_paths([{'localRoot': u'/mnt/other', 'remoteRoot': u'/'}])
        self.assert_mapped(u'/mnt/other/srv/x.py', '/srv/x.py')

    def test_relative_folders_are_in_the_one_that_the_program_was_started_in(self):
        start = os.getcwd()
        for root in u'.', u'./', u'':
            self.sources.map_paths([{'localRoot': u'/home/me', 'remoteRoot': root}])
            self.assert_mapped(u'/home/me/x/y.py', start + '/x/y.py')
        self.sources.map_paths([{'localRoot': u'C:\\me', 'remoteRoot': u'x/../y'}])
        self.assert_mapped(u'C:\\me\\z.py', start + '/y/z.py')

    def test_home_folders(self):
        home = os.environ.get('HOME')
        try:
            os.environ['HOME'] = '/home/program'
            self.sources.map_paths([{'localRoot': u'/home/me', 'remoteRoot': u'~/app'}])
            self.assert_mapped(u'/home/me/y.py', '/home/program/app/y.py')
            del os.environ['HOME']
            self.assert_raises(messages.Refused, '~: there is no home folder',
                               self.sources.map_paths, [{'localRoot': u'/', 'remoteRoot': u'~'}])
        finally:
            if home is not None:
                os.environ['HOME'] = home

    def test_folders_of_the_clients_are_no_relative_ones(self):
        self.assert_raises(
            messages.Refused, 'pathMappings[1].localRoot is not a full path: src',
            self.sources.map_paths, [{'localRoot': u'/a', 'remoteRoot': u'/b'},
                                     {'localRoot': u'src', 'remoteRoot': u'/b'}])

    def test_a_client_on_windows(self):
        self.sources.map_paths([{'localRoot': u'C:\\Work', 'remoteRoot': u'/srv'}])
        self.assert_mapped(u'C:\\Work\\x\\y.py', '/srv/x/y.py')
        self.assertEqual(self.sources.to_program(u'c:\\work\\X.py'), '/srv/X.py')
        self.assertEqual(self.sources.to_program(u'c:/work/X.py'), '/srv/X.py')

    def test_addresses(self):
        self.sources.use_uris()
        self.assert_mapped(u'file:///a%20b/c.py', '/a b/c.py')

    def test_files_that_only_the_program_can_read(self):
        described = self.sources.describe('<string>')
        self.assertEqual(described, {'name': '<string>', 'sourceReference': 1})
        self.assertEqual(self.sources.describe('<string>'), described)
        self.assert_raises(messages.Refused, 'its source is not known',
                           self.sources.content, {}, 1)
        path = self.script('x = 1\n')
        self.assertEqual(self.sources.content({'path': path.decode('ascii')}, 0),
                         ('x = 1\n', 'text/x-python'))
        self.assert_raises(messages.Refused, 'its source is not known',
                           self.sources.content, {}, 7)


class HitsTest(harness.TestCase):

    def test_conditions(self):
        for condition, due in (('3', [3]), ('>= 3', [3, 4, 5, 6]), ('>3', [4, 5, 6]),
                               ('== 3', [3]), ('= 3', [3]), ('<3', [1, 2]), ('<= 3', [1, 2, 3]),
                               ('%3', [3, 6]), ('% 0', [])):
            self.assertEqual(hit_conditions.refusal(condition), None)
            self.assertEqual([number for number in range(1, 7)
                              if hit_conditions.is_due(condition, number)], due)

    def test_what_is_no_condition(self):
        for text in ('', 'x', '3 4', '!3', '-1', '3.5', '>'):
            self.assert_in('use a number', hit_conditions.refusal(text))

    def test_what_other_debuggers_take_is_refused_with_what_to_use(self):
        for text, hint in (('@HIT@ == 5', '== 5'), ('@HIT@>5', '> 5'), (' @HIT@ % 5 == 0', '% 5')):
            self.assertEqual(hit_conditions.refusal(text),
                             'Not a hit condition: use %s.' % hint)


class LazyStackTest(harness.TestCase):

    def test_no_more_is_made_than_is_asked_for(self):
        made = []

        def entries():
            for number in range(10):
                made.append(number)
                yield number
        stack = stacks.LazyStack(entries(), 12)
        self.assertEqual((stack.page(2, 3), len(made), stack.most()), ([2, 3, 4], 5, 12))
        self.assertEqual((stack.page(0, 2), len(made)), ([0, 1], 5))
        self.assertEqual((stack.page(8, 0), stack.most()), ([8, 9], 10))
        self.assertEqual(stack.page(20, 5), [])
