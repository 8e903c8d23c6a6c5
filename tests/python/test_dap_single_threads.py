"""One thread that goes on while the others wait."""

import dap_session

PROGRAM = '''\
import sys, threading
counted, lock = [0], threading.Lock()
over, ready = threading.Event(), threading.Event()
def count():
    while not over.isSet():
        counted[0] += 1
        ready.set()
def wait_for(number):
    while counted[0] < number:
        pass
def holds():
    lock.acquire()
    ready.set()
    while not over.isSet() and not may_go:
        pass
    lock.release()
may_go = []
def spin(times):
    for turn in xrange(times):
        pass
def main():
    ready.wait()
    first = 1  # here
    spin(2000)
    second = 1  # second
    %s
    third = 1  # third
    over.set()
thread = threading.Thread(target=%s)
thread.start()
try:
    main()
finally:
    over.set()
thread.join()
print 'over'
'''
ENDING = '''\
import threading
def end():
    ready.wait()
    over.append(1)  # ends
def work():
    ready.set()
    while not over:
        pass
    for turn in xrange(100):
        pass
over, ready = [], threading.Event()
first, second = [end, work][::1 if %s else -1]
threading.Thread(target=second).start()
first()
'''
# The thread that has stopped goes on only when it is known that the others do, too.
LEAVING = '''\
import time
from sorrel.service import gate
def end(self, hold, end=gate.Gate.end, until=time.time() + 60):
    while hold.others != gate.ALL_GO and time.time() < until:
        time.sleep(0.001)
    end(self, hold)
gate.Gate.end = end
'''


class SingleThreadsTest(dap_session.TestCase):

    def begun(self, line='pass', target='count', **arguments):
        program = self.program = self.serve(PROGRAM % (line, target), '--wait')
        client = self.attach(program, '# here', **arguments)
        self.assert_in('breakpoint main:', client.stopped())
        return client

    def go(self, client, command, **more):
        return client.ask(command, threadId=client.thread, **more)

    def ends(self, client):
        """The program runs to its end."""
        self.break_at(client, self.program)
        self.go(client, 'continue')
        client.event('terminated')

    def at(self, mark):
        return 'main:%d' % self.program.line(mark)

    def moved(self, client, **more):
        """How far the other thread has come in each of some steps."""
        for _ in range(3):
            self.go(client, 'next')
            client.stopped()
        moves = []
        for _ in range(5):
            before = client.evaluate('counted[0]')
            self.go(client, 'next', **more)
            client.stopped()
            moves.append(int(client.evaluate('counted[0]')) - int(before))
        return moves

    def test_others_wait_during_steps_of_one_thread(self):
        client = self.begun('for turn in range(9): spin(100000)')
        # The line that it was in the midst of may still be run.
        self.assertTrue(max(self.moved(client, singleThread=True)) < 2)
        self.ends(client)

    def test_others_wait_during_steps(self):
        client = self.begun('for turn in range(9): spin(100000)')
        # On a busy machine a step may take long.
        self.assertTrue(min(self.moved(client)) < 2)
        self.ends(client)

    def test_they_run_where_the_client_says_so(self):
        client = self.begun('wait_for(counted[0] + 1000)', steppingResumesAllThreads=True)
        for _ in range(4):
            self.go(client, 'next')
            client.stopped()
        self.assertEqual(client.top()['line'], self.program.line('# third'))
        self.ends(client)

    def test_a_step_that_waits_for_another_thread_comes_to_its_end(self):
        for line, target in (('wait_for(counted[0] + 1000)', 'count'),
                             ('may_go.append(1); lock.acquire()', 'holds')):
            client = self.begun(line, target)
            for mark in '# here', '# second', '# third':
                while client.top()['line'] < self.program.line(mark):
                    self.go(client, 'next')
                    client.stopped()
            self.ends(client)

    def test_continue_of_one_thread(self):
        client = self.begun()
        self.break_at(client, self.program, '# third')
        before = client.evaluate('counted[0]')
        self.assertEqual(self.go(client, 'continue', singleThread=True),
                         {'allThreadsContinued': False})
        self.assertEqual(client.stopped(), 'breakpoint ' + self.at('# third'))
        self.assertTrue(int(client.evaluate('counted[0]')) - int(before) < 2)
        self.assertEqual(self.go(client, 'continue'), {'allThreadsContinued': True})
        client.event('terminated')

    def test_another_request_lets_the_others_go(self):
        client = self.begun('wait_for(counted[0] + 1000)')
        self.break_at(client, self.program, '# third')
        self.go(client, 'continue', singleThread=True)
        other = [thread['id'] for thread in client.ask('threads')['threads']
                 if thread['id'] != client.thread]
        self.assertEqual(client.ask('continue', threadId=other[0]), {'allThreadsContinued': True})
        self.assertEqual(client.stopped(), 'breakpoint ' + self.at('# third'))
        self.ends(client)

    def test_so_does_one_that_comes_before_the_thread_has_gone(self):
        client = self.begun('wait_for(counted[0] + 1000)')
        self.break_at(client, self.program, '# third')
        client.evaluate(LEAVING, 'repl')
        self.go(client, 'continue', singleThread=True)
        self.assertEqual(self.go(client, 'continue'), {'allThreadsContinued': True})
        self.assertEqual(client.stopped(), 'breakpoint ' + self.at('# third'))
        self.ends(client)

    def test_only_one_that_has_stopped_goes_on_alone(self):
        client = self.begun()
        other = [thread['id'] for thread in client.ask('threads')['threads']
                 if thread['id'] != client.thread]
        self.assertEqual(client.refusal('continue', threadId=other[0], singleThread=True),
                         'the thread has not stopped by itself')
        self.ends(client)

    def test_pause_of_the_thread_that_goes_on_alone(self):
        client = self.begun('wait_for(counted[0] + 1000)')
        self.break_at(client, self.program)
        self.go(client, 'continue', singleThread=True)
        client.ask('pause', threadId=client.thread)
        self.assert_in('pause ', client.stopped())
        self.ends(client)

    def test_pause_where_that_waits_for_another(self):
        client = self.begun('print "waits"; lock.acquire()', 'holds')
        self.break_at(client, self.program)
        self.go(client, 'continue', singleThread=True)
        self.program.wrote('waits')
        thread = client.thread
        client.ask('pause', threadId=thread)
        self.assert_in('pause ', client.stopped())
        self.assertTrue(client.thread != thread)
        client.evaluate('__import__("__main__").may_go.append(1)', 'repl')
        self.ends(client)

    def test_the_others_go_on_when_the_thread_has_ended(self):
        for is_main in False, True:
            program = self.serve(ENDING % is_main, '--wait')
            client = self.attach(program, '# ends')
            client.stopped()
            self.go(client, 'continue', singleThread=True)
            client.event('terminated')

    def test_no_thread_is_held_when_the_client_has_gone(self):
        for how in 'disconnect', 'close':
            client = self.begun('wait_for(counted[0] + 1000)')
            self.break_at(client, self.program)
            self.go(client, 'continue', singleThread=True)
            if how == 'disconnect':
                client.ask('disconnect')
            client.close()
            self.program.wrote('over\n')

    def test_terminate_ends_it(self):
        client = self.begun('import signal; wait_for(counted[0] + 1000)')
        self.break_at(client, self.program)
        self.go(client, 'continue', singleThread=True)
        client.ask('terminate')
        client.read_all()
        self.assertTrue(self.program.ended()[1] != 0)
