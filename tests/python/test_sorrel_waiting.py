"""Expressions at the prompt that wait for other threads, while these wait for the prompt."""

import sorrel_session

LOGGING = '''\
import logging, os, threading
log = logging.getLogger('busy')
log.addHandler(logging.StreamHandler(open(os.devnull, 'w')))
log.setLevel(logging.INFO)
turns = {'a': 0, 'b': 0}

def work(name):
    while turns[name] < 300:
        log.info('turn %s', turns[name])
        turns[name] += 1
        if turns[name] % 50 == 0:
            marked(name)

def marked(name):
    return name

threads = [threading.Thread(target=work, args=(name,), name=name) for name in 'ab']
for thread in threads:
    thread.start()
for thread in threads:
    thread.join()
print 'done'
'''

HELD = '''\
import sys, threading, time
lock = threading.Lock()
is_held = threading.Event()
seconds = float(sys.argv[1])

def holder():
    lock.acquire()
    is_held.set()
    end = time.time() + seconds
    while time.time() < end:
        time.sleep(0.01)
    lock.release()

def worker():
    is_held.wait()
    stop_here = 1
    print 'goes on'

threads = [threading.Thread(target=target, name=target.__name__) for target in holder, worker]
for thread in threads:
    thread.start()
while threads[1].isAlive():
    time.sleep(0.01)
'''


class WaitingTest(sorrel_session.TestCase):

    def test_what_is_evaluated_waits_for_no_lock_for_ever(self):
        out, err, status = self.debug(
            LOGGING, ['b marked', 'c'] + ['log.info("x")', 'p turns[name] % 50', 'c'] * 12)
        self.assertEqual((err, status), ('', 0))
        answers = out.split(sorrel_session.PROMPT)[2:]
        # Each thread comes to the breakpoint as often as it is there, and nothing more is said.
        self.assertEqual([answer.count('-> return name\n') for answer in answers],
                         [1, 0, 0] * 12 + [0])
        self.assertEqual(answers[1:36:3], [''] * 12)
        self.assertEqual(answers[2:36:3], ['0\n'] * 12)
        self.assertEqual(answers[36], 'done\nThe program ended with exit status 0.\n')

    def test_the_others_wait_again_when_it_is_done(self):
        out, err, status = self.debug(
            LOGGING, ['b marked', 'c', '__import__("time").sleep(1)', 'before = dict(turns)',
                      '__import__("time").sleep(0.1)', 'p before == turns', 'q'])
        self.assertEqual(out.split(sorrel_session.PROMPT)[6], 'True\n')

    def test_a_lock_of_a_thread_that_waits_for_the_prompt(self):
        out, err, status = self.debug(
            HELD, ['b 17', 'c', 'lock.acquire()', 'lock.release()', 'c'], ['0.5'])
        self.assertEqual((err, status), ('', 0))
        self.assertEqual(out.split(sorrel_session.PROMPT)[3:], [
            'True\n', '', 'goes on\nThe program ended with exit status 0.\n'])

    def test_ctrl_c_ends_what_another_thread_than_the_main_one_evaluates(self):
        self.script(HELD, 'prog.py')
        screen = sorrel_session.Screen(self, 'prog.py', ['0'])
        try:
            screen.read_to(sorrel_session.PROMPT)
            for command in 'b 17', 'c':
                screen.type(command + '\n')
                screen.read_to(sorrel_session.PROMPT)
            for _ in range(3):
                screen.type('exec "print 3 * \\"on \\"\\nwhile True: pass"\n')
                screen.read_to('on on on')
                # Until the others are let run, the main thread has no ear for it.
                screen.interrupt()
                self.assert_in('--KeyboardInterrupt--\n', screen.read_to(sorrel_session.PROMPT))
            screen.type('p stop_here + 5\n')
            self.assert_in('6\n', screen.read_to(sorrel_session.PROMPT))
            screen.type('c\n')
            self.assert_in('goes on\n', screen.read_all()[0])
        finally:
            screen.close()
