"""Expressions that wait for other threads, while these wait for the one that is stopped."""

import time

import dap_session

LOGGING = '''
import logging, os, threading, time
log = logging.getLogger('busy')
log.addHandler(logging.StreamHandler(open(os.devnull, 'w')))
log.setLevel(logging.INFO)
turns = {'a': 0, 'b': 0}
running = True
def work(name):
    while running:
        log.info('turn %s', turns[name])
        turns[name] += 1
        if turns[name] % 50 == 0:
            marked(name)
def marked(name):
    global mark
    mark = name  # marked
threads = [threading.Thread(target=work, args=(name,), name=name) for name in 'ab']
for thread_ in threads:
    thread_.start()
print 'ready'
for thread_ in threads:
    thread_.join()
print 'over'
'''

# Three threads: one waits for what the test evaluates, one holds the lock and does not give it
# back before it is told to, one turns round and round.
HELD = '''
import threading, time
lock = threading.Lock()
is_held, give_back = threading.Event(), threading.Event()
running = True
turns = came_back = 0
def holder():
    lock.acquire()
    is_held.set()
    give_back.wait()
    lock.release()
def turner():
    global turns
    while running:
        turns += 1  # turn
        time.sleep(0.001)
def waiter():
    global came_back
    while running:
        came_back += 1  # wait
        time.sleep(0.001)
for target in holder, turner, waiter:
    threading.Thread(target=target, name=target.__name__).start()
is_held.wait()
print 'ready'
'''


def soon(client, what, seconds=15):
    """Calls it, and sees that it does not take longer."""
    begun = time.time()
    found = what()
    if time.time() - begun > seconds:
        raise AssertionError('it took %.1f seconds' % (time.time() - begun))
    return found


class LoggingTest(dap_session.TestCase):

    def setUp(self):
        dap_session.TestCase.setUp(self)
        self.program = self.serve(LOGGING)
        self.program.wrote('ready')

    def test_what_is_evaluated_waits_for_no_lock_for_ever(self):
        client = self.attach(self.program, '# marked')
        for round in range(8):
            self.assertEqual(client.stopped(), 'breakpoint marked:%d'
                             % self.program.line('# marked'))
            # Each thread comes to the breakpoint at every 50th turn of its own, and only there.
            self.assertEqual(client.evaluate('turns[name] % 50'), '0')
            for _ in range(3):
                soon(client, lambda: client.evaluate('log.info("x")', 'repl'))
                soon(client, lambda: client.evaluate('log.info("x")', 'watch'))
            client.go()
        self.break_at(client, self.program)
        client.ask('disconnect')

    def test_no_stop_is_lost_meanwhile(self):
        client = self.attach(self.program, '# marked')
        seen = {'a': [], 'b': []}
        for round in range(20):
            client.stopped()
            name = client.evaluate('name').strip("'")
            seen[name].append(int(client.evaluate('turns[name]')))
            soon(client, lambda: client.evaluate('log.info("x")', 'repl'))
            client.go()
        self.break_at(client, self.program)
        client.ask('disconnect')
        for name, turns in seen.items():
            first = turns[0] if turns else 0
            self.assertEqual(turns, range(first, first + 50 * len(turns), 50), seen)

    def test_the_client_is_told_that_the_others_run(self):
        client = self.attach(self.program, '# marked')
        client.stopped()
        client.evaluate('''import time
time.sleep(1.5)''' .replace('\n', '; '), 'repl')
        names = dict((thread['id'], thread['name'])
                     for thread in client.ask('threads')['threads'])
        running = [message['body'] for message in client.messages
                   if message.get('event') == 'continued']
        waiting = [message['body'] for message in client.messages
                   if message.get('event') == 'stopped']
        others = sorted(id for id in names if id != client.thread)
        self.assertEqual(sorted(body['threadId'] for body in running), others)
        self.assertEqual(sorted(body['threadId'] for body in waiting), others)
        for body in running:
            self.assertEqual(body['allThreadsContinued'], False)
        for body in waiting:
            self.assertEqual((body['reason'], body['allThreadsStopped'],
                              body['preserveFocusHint']), ('pause', False, True))
        # And they do wait again.
        time.sleep(0.2)
        before = client.evaluate('dict(turns)')
        time.sleep(0.2)
        self.assertEqual(client.evaluate('dict(turns)'), before)
        client.ask('disconnect')

    def test_a_short_expression_keeps_the_others_where_they_are(self):
        client = self.attach(self.program, '# marked')
        client.stopped()
        time.sleep(0.2)
        before = client.evaluate('dict(turns)')
        for _ in range(30):
            self.assertEqual(client.evaluate('dict(turns)', 'repl'), before)
        self.assertEqual([message for message in client.messages
                          if message.get('event') in ('continued', 'stopped')], [])
        client.ask('disconnect')

    def test_conditions_and_messages_of_the_front_end_wait_for_no_lock_for_ever(self):
        client = self.connect(self.program)
        client.begin({})
        client.ask('setBreakpoints', source={'path': self.program.path}, breakpoints=[
            {'line': self.program.line('# marked'), 'logMessage': 'at {log.info("x")}'}])
        client.ask('configurationDone')
        for _ in range(40):
            event = soon(client, lambda: client.event('output'))
            self.assertEqual(event['output'], 'at None\n')
        client.ask('disconnect')


class HeldTest(dap_session.TestCase):

    def setUp(self):
        dap_session.TestCase.setUp(self)
        self.program = self.serve(HELD)
        self.program.wrote('ready')

    def stuck(self, expression='lock.acquire()', **arguments):
        """A client that has asked for what does not end, and the number of that request."""
        client = self.attach(self.program, '# wait', **arguments)
        client.stopped()
        frame = client.top()['id']
        number = client.request('evaluate', {'expression': expression, 'context': 'repl',
                                             'frameId': frame})
        self.frame = frame
        time.sleep(0.1)
        return client, number

    def names(self, client):
        return sorted(thread['name'] for thread in client.ask('threads')['threads'])

    def assert_lives(self, client):
        """The other threads run and stop; then the one that was left behind does."""
        self.break_at(client, self.program, '# turn')
        self.assertEqual(soon(client, client.stopped),
                         'breakpoint turner:%d' % self.program.line('# turn'))
        self.assert_in('waiter (busy)', self.names(client))
        came_back = client.evaluate('came_back')
        # First: where the others do not wait, it comes back at once.
        self.break_at(client, self.program, '# wait')
        client.evaluate('give_back.set()', 'repl')
        client.go()
        self.assertEqual(soon(client, client.stopped),
                         'breakpoint waiter:%d' % self.program.line('# wait'))
        self.assertEqual(client.evaluate('came_back - %s' % came_back), '1')
        self.assert_in('waiter', self.names(client))
        # What it waited for it has.
        self.assertEqual(client.evaluate('lock.locked()'), 'True')
        client.evaluate('globals().update(running=False)', 'repl')
        self.break_at(client, self.program)
        client.go()
        self.assertEqual(client.event('exited'), {'exitCode': 0})
        self.assertEqual(self.program.ended(), ('ready\n', 0))

    def test_cancelling_answers_at_once_and_continuing_frees_the_program(self):
        client, number = self.stuck()
        waiting = client.request('evaluate', {'expression': '1', 'frameId': self.frame})
        client.ask('cancel', requestId=number)
        self.assertEqual(soon(client, lambda: client.answer(number))['message'], 'cancelled')
        self.assert_in('the thread is busy', client.answer(waiting)['message'])
        self.assert_in('waiter (busy)', self.names(client))
        self.assert_in('the thread is busy',
                       client.refusal('evaluate', expression='1', frameId=self.frame))
        self.assert_in('the thread is busy', client.refusal('stackTrace', threadId=client.thread))
        self.assertEqual(client.go(), {'allThreadsContinued': True})
        self.assertEqual(client.refusal('evaluate', expression='1', frameId=self.frame),
                         'the program is running')
        self.assert_lives(client)

    def test_continuing_frees_the_program(self):
        client, number = self.stuck()
        self.assertEqual(soon(client, client.go), {'allThreadsContinued': True})
        self.assertEqual(client.answer(number)['message'], 'ended, since the program goes on')
        self.assert_lives(client)

    def test_a_step_frees_the_program(self):
        client, number = self.stuck()
        soon(client, lambda: client.go('next'))
        self.break_at(client, self.program)
        time.sleep(0.5)
        self.assertEqual([message for message in client.messages
                          if message.get('event') == 'stopped'
                          and message['body']['threadId'] == client.thread], [])
        stepped = client.thread
        client.messages[:] = []
        self.break_at(client, self.program, '# turn')
        client.stopped()
        client.evaluate('give_back.set()', 'repl')
        self.break_at(client, self.program)
        client.go()
        # The step is taken when the thread has come back.
        self.assertEqual(soon(client, client.stopped),
                         'step waiter:%d' % (self.program.line('# wait') + 1))
        self.assertEqual(client.thread, stepped)
        client.ask('disconnect')

    def test_the_time_limit_answers_though_the_thread_does_not(self):
        client = self.attach(self.program, '# wait', evaluationTimeout=0.5)
        client.stopped()
        self.frame = client.top()['id']
        self.assertEqual(
            soon(client, lambda: client.refusal('evaluate', expression='lock.acquire()',
                                                context='watch', frameId=self.frame)),
            'ended, since it took too long')
        client.go()
        self.assert_lives(client)

    def test_disconnecting_frees_the_program(self):
        client, number = self.stuck()
        soon(client, lambda: client.ask('disconnect'))
        client.read_all()
        self.assert_lives(soon(client, lambda: self.attach(self.program)))

    def test_a_client_that_vanishes_frees_the_program(self):
        client, number = self.stuck()
        client.close()
        self.assert_lives(soon(client, lambda: self.attach(self.program)))

    def test_a_client_that_stops_one_thread_alone_vanishes(self):
        client, number = self.stuck(stopAllThreads=False)
        client.close()
        self.assert_lives(soon(client, lambda: self.attach(self.program)))

    def test_one_thread_alone_that_is_busy_is_left_behind(self):
        client, number = self.stuck(stopAllThreads=False)
        soon(client, client.go)
        self.assert_lives(client)

    def test_python_code_that_waits_is_ended_and_the_thread_is_free(self):
        client, number = self.stuck('while lock.locked(): pass')
        soon(client, client.go)
        self.assertEqual(client.answer(number)['message'], 'ended, since the program goes on')
        # It goes on at once, and comes to the breakpoint again.
        self.assertEqual(soon(client, client.stopped),
                         'breakpoint waiter:%d' % self.program.line('# wait'))
        client.ask('disconnect')

    def test_terminating_ends_a_program_whose_thread_is_busy(self):
        client, number = self.stuck()
        soon(client, lambda: client.ask('terminate'))
        self.assertEqual(self.program.ended()[1], -15)

    def test_a_console_may_wait_for_a_thread_that_it_starts(self):
        client = self.attach(self.program, '# wait')
        client.stopped()
        self.assertEqual(soon(client, lambda: client.evaluate(
            '[t.start() or t.join() for t in [threading.Thread(target=sum, args=([],))]]', 'repl')),
            '[None]')
        client.ask('disconnect')
