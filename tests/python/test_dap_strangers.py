"""Who has not shown that it may debug the program: it learns nothing, and keeps nobody waiting."""

import resource
import socket
import time

import dap_session

PROGRAM = '''
import os, time
def times():
    used = os.times()
    return time.time(), used[0] + used[1]
gap = used = 0
last, last_used = times()
running = True
print 'ready'
while running:
    now, now_used = times()
    gap = max(gap, now - last)
    used = max(used, now_used - last_used)
    last, last_used = now, now_used
    time.sleep(0.001)  # loop
print 'over'
'''
# The program does nothing for a while when something holds the interpreter lock: what computes, in
# processor time, or what waits. A busy machine may have something else to do meanwhile.
MOST_USED = 0.5
LONGEST_GAP = 5.0
WRONG = 'the token is missing, or it is not the one that this program has told its user'
TAKEN = 'another client is debugging this program'


def header(length):
    return 'Content-Length: %d\r\n\r\n' % length


class StrangerTest(dap_session.TestCase):

    def setUp(self):
        dap_session.TestCase.setUp(self)
        self.program = self.serve(PROGRAM)
        self.program.wrote('ready')

    def stranger(self, token=None):
        return self.opened(dap_session.Client(self.program.port, token))

    def send(self, client, data):
        try:
            client.socket.sendall(data)
        except socket.error:
            pass  # It was hung up on in between.

    def assert_hung_up_on(self, client, before=5):
        begun = time.time()
        self.assertTrue(client.is_hung_up())
        self.assertTrue(time.time() - begun < before, time.time() - begun)

    def peak(self):
        """The most memory that the program has had so far, in kB."""
        for line in open('/proc/%d/status' % self.program.process.pid):
            if line.startswith('VmHWM'):
                return int(line.split()[1])

    def assert_never_held_up(self):
        client = self.attach(self.program, '# loop')
        client.stopped()
        gap, used = float(client.evaluate('gap')), float(client.evaluate('used'))
        self.assertTrue(used < MOST_USED and gap < LONGEST_GAP, (gap, used))
        client.ask('disconnect')
        client.read_all()

    # What is said.

    def test_who_speaks_another_protocol_is_hung_up_on_at_its_first_letter(self):
        for first in 'G', 'P', '\0', '\x16', 'Content-Type', 'X':
            stranger = self.stranger()
            self.send(stranger, first)
            self.assert_hung_up_on(stranger)

    def test_a_form_of_a_web_page_is_not_read(self):
        body = ''.join(header(len(message)) + message for message in (
            '{"seq": 1, "type": "request", "command": "initialize"}',
            '{"seq": 2, "type": "request", "command": "attach", "arguments": {"token": "%s"}}'
            % self.program.token))
        stranger = self.stranger()
        self.send(stranger, 'POST / HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: text/plain\r\n'
                  'Content-Length: %d\r\n\r\n%s' % (len(body), body))
        self.assert_hung_up_on(stranger)

    def test_only_little_is_read(self):
        for said in (header(100000), header(8193), header(8192) + '[' * 8192):
            stranger = self.stranger()
            self.send(stranger, said)
            self.assert_hung_up_on(stranger)
        # Nor is much of what is little.
        stranger = self.stranger()
        for _ in range(100):
            message = '{"type": "event", "event": "x"}'
            self.send(stranger, header(len(message)) + message)
        self.assert_hung_up_on(stranger)

    def test_nothing_hostile_stops_the_program(self):
        before = self.peak()
        for body in dap_session.hostile_bodies():
            for cut in len(body), 1024 * 1024, 8192:
                stranger = self.stranger()
                self.send(stranger, header(len(body[:cut])) + body[:cut])
                self.assert_hung_up_on(stranger, 30)
        self.assertTrue(self.peak() - before < 20000, self.peak() - before)
        self.assert_never_held_up()

    def test_nothing_hostile_of_a_client_stops_the_program(self):
        before = self.peak()
        for body in dap_session.hostile_bodies():
            for cut in len(body), 1024 * 1024:
                client = self.attach(self.program)
                self.send(client, header(len(body[:cut])) + body[:cut])
                client.read_all()
        self.assertTrue(self.peak() - before < 100000, self.peak() - before)
        self.assert_never_held_up()

    # The token.

    def test_wrong_tokens_are_answered_alike_and_late(self):
        right = self.program.token
        for token in (None, '', right[:-1], right + 'x', 'x' + right[1:], u'\xe9' * 32, 'x' * 5000):
            stranger = self.stranger(token)
            stranger.ask('initialize')
            begun = time.time()
            number = stranger.request('attach', {})
            # Nothing more is heard of what it says.
            stranger.request('attach', {'token': right})
            answer = stranger.answer(number)
            self.assertTrue(time.time() - begun > 0.9)
            self.assertEqual((answer['success'], answer['message']), (False, WRONG))
            self.assertTrue(stranger.is_hung_up())
        for token in 5, None, [], {}:
            stranger = self.stranger()
            stranger.ask('initialize')
            self.assertEqual(stranger.refusal('attach', token=token), WRONG)
        self.assert_never_held_up()

    def test_nobody_waits_for_those_who_guess(self):
        for _ in range(7):
            stranger = self.stranger('wrong')
            stranger.ask('initialize')
            stranger.request('attach', {})
        begun = time.time()
        client = self.attach(self.program, '# loop')
        client.stopped()
        self.assertTrue(time.time() - begun < 5)

    def test_nothing_of_the_program_is_told(self):
        stranger = self.stranger()
        told = stranger.ask('initialize')
        self.assertEqual(told, dap_session.announced())
        for command in ('threads', 'modules', 'loadedSources', 'stackTrace', 'terminate',
                        'configurationDone', 'evaluate', 'source'):
            self.assertEqual(stranger.refusal(command), 'attach comes first')
        stranger.ask('disconnect', terminateDebuggee=True)
        self.assertEqual(stranger.read_all(), [])
        self.assert_never_held_up()

    # The one place.

    def test_who_says_nothing_keeps_nobody_out(self):
        silent = [self.stranger() for _ in range(30)]
        for stranger in silent[::2]:
            stranger.request('initialize')
        begun = time.time()
        for _ in range(3):
            client = self.attach(self.program, '# loop')
            client.stopped()
            client.ask('disconnect')
            client.read_all()
        self.assertTrue(time.time() - begun < 20, time.time() - begun)

    def test_a_place_that_gets_free_is_waited_for(self):
        for _ in range(5):
            client = self.attach(self.program, '# loop')
            client.stopped()
            second = self.stranger(self.program.token)
            second.ask('initialize')
            number = second.request('attach', {})
            client.close()
            self.assertTrue(second.answer(number)['success'])
            second.close()

    def test_the_second_one_is_told_why_it_has_to_wait(self):
        client = self.attach(self.program, '# loop')
        client.stopped()
        second = self.stranger(self.program.token)
        second.ask('initialize')
        self.assertEqual(second.refusal('attach'), TAKEN)
        client.ask('disconnect')
        client.read_all()
        second.ask('attach')
        # Who has no token is not even told that.
        third = self.stranger()
        third.ask('initialize')
        self.assertEqual(third.refusal('attach'), WRONG)

    def test_who_never_begins_is_sent_away(self):
        program = self.serve(PROGRAM, patience=1.0, begin_patience=2.0)
        program.wrote('ready')
        for requests, least in ((), 0.8), (('initialize',), 0.8), (('initialize', 'attach'), 1.8):
            client = self.connect(program)
            for command in requests:
                client.ask(command)
            begun = time.time()
            client.read_all()
            self.assertTrue(least < time.time() - begun < 30)
        client = self.attach(program, '# loop')
        client.stopped()
        time.sleep(3)
        self.assertEqual(client.evaluate('1 + 1'), '2')


class CrowdedProgramTest(dap_session.TestCase):

    def test_connections_that_cannot_be_taken_do_not_keep_it_busy(self):
        program = self.serve('''
import os, time
held = []
try:
    while True:
        held.append(os.dup(1))
except OSError:
    pass
print 'ready'
while not os.path.exists(__file__ + '.end'):
    time.sleep(0.05)
before = sum(os.times()[:2])
time.sleep(2)
print sum(os.times()[:2]) - before < 0.5
for number in held:
    os.close(number)
while True:
    time.sleep(0.01)  # loop
''', limit=(resource.RLIMIT_NOFILE, (100, 100)))
        program.wrote('ready')
        client = self.connect(program)
        open(program.path + '.end', 'w').close()
        program.wrote('True')
        client.begin({})
        self.break_at(client, program, '# loop')
        client.ask('configurationDone')
        client.stopped()
