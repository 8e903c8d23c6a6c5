"""The threads of a program, as an editor lists them."""

import dap_session


class ThreadsTest(dap_session.TestCase):

    def test_threads_stand_in_the_order_of_their_start(self):
        # Idents say nothing of that: those of threads that have ended are taken by new ones.
        program = self.serve('''
import threading
def run(name, begun, end):
    begun.set()
    end.wait()
def start(name):
    begun, end = threading.Event(), threading.Event()
    started = threading.Thread(target=run, name=name, args=(name, begun, end))
    started.start()
    begun.wait()
    return started, end
def leave(started, end):
    end.set()
    started.join()
first = [start('first %d' % number) for number in range(6)]
for number in 4, 1, 3:
    leave(*first.pop(number))
second = [start('second %d' % number) for number in range(3)]
print 'begun'  # begun
for one in first + second:
    leave(*one)
''', '--wait')
        client = self.attach(program, '# begun')
        client.stopped()
        names = [thread['name'] for thread in client.ask('threads')['threads']]
        self.assertEqual(names, ['MainThread', 'first 0', 'first 2', 'first 3',
                                 'second 0', 'second 1', 'second 2'])
        client.go()
        client.read_all()
