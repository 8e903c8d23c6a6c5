"""A busy service: hundreds of threads that come and go, round after round.

usage: service.py THREADS

Each round runs THREADS jobs, each in a thread of its own, and prints one line: the number of the
round, the sum of what the jobs have answered, the threads left, and on a debug host the references
there are.  The sum depends on the number of the round alone (modulo SEEDS), whoever watches.  It
ends after the round in which a line comes in.
"""

import gc
import hashlib
import os
import Queue
import select
import signal
import socket
import sys
import threading
import time
import traceback

SEEDS = 20
PATIENCE = 120


def spin(seed, turns=50):
    value = seed
    for turn in xrange(turns):
        value = (value * 31 + turn) % 1000003  # line
    return value


class Account(object):
    """What many threads change under one lock."""

    def __init__(self):
        self.lock = threading.RLock()
        self.balance = 0

    def deposit(self, amount):
        with self.lock:
            self.balance += amount
            with self.lock:
                return amount  # locked


class Held(threading.local):
    value = 0


class Finalised(object):
    """Its end runs code, wherever that happens to be."""

    count = 0

    def __init__(self, value):
        self.value = value
        self.itself = self

    def __del__(self):
        Finalised.count += spin(self.value, 2) * 0


account = Account()
held = Held()
condition = threading.Condition()
reload_lock = threading.Lock()


def lock_job(seed):
    return sum(account.deposit(spin(seed + i, 5)) for i in range(10))


def condition_job(seed):
    with condition:
        condition.notify()
        condition.wait(0.001 * (seed % 3))
    return spin(seed)


def queue_job(seed):
    queue = Queue.Queue(2)

    def produce():
        for i in range(10):
            queue.put(spin(seed + i, 3))
        queue.put(None)
    producer = threading.Thread(target=produce)
    producer.start()
    total = sum(iter(queue.get, None))
    producer.join()
    return total


def socket_job(seed):
    near, far = socket.socketpair()

    def echo():
        while True:
            data = far.recv(100)
            if not data:
                break
            far.sendall(hashlib.md5(data).hexdigest())
        far.close()
    peer = threading.Thread(target=echo)
    peer.start()
    near.sendall(str(seed))
    answer = ''
    while len(answer) < 32:
        answer += near.recv(100)
    near.shutdown(socket.SHUT_WR)
    peer.join()
    near.close()
    return int(answer[:6], 16)


def fork_job(seed):
    while True:
        reading, writing = os.pipe()
        child = os.fork()
        if child == 0:
            # No lock of the parent's is taken here: its owner may not be in this process.
            os.write(writing, str(spin(seed)))
            os._exit(seed % 7)
        os.close(writing)
        # 2.6 by itself, as it clears up in a child, waits for locks of threads that are not there.
        may_hang = sys.version_info < (2, 7)
        answer = None
        if select.select([reading], [], [], 3 if may_hang else None)[0]:
            answer = os.read(reading, 100)
        else:
            os.kill(child, signal.SIGKILL)
        os.close(reading)
        status = os.waitpid(child, 0)[1]
        if answer is not None:
            return int(answer) + os.WEXITSTATUS(status)


def reload_job(seed):
    import colorsys
    with reload_lock:
        fresh = reload(colorsys)
    return int(fresh.rgb_to_hsv(seed % 5 / 5.0, 0.5, 0.25)[0] * 1000)


def exception_job(seed):
    total = 0
    for i in range(10):
        try:
            try:
                raise KeyError(seed + i)
            finally:
                total += 1
        except LookupError, error:
            total += error.args[0]  # caught
    return total


def recursion_job(seed):
    def down(depth):
        return depth and 1 + down(depth - 1)
    return down(50 + seed % 50)


def local_job(seed):
    held.value += seed
    held.objects = [Finalised(seed)]
    generator = (held.value + i for i in range(5))
    return sum(generator)


def wait_job(seed):
    reading, writing = os.pipe()
    select.select([reading], [], [], 0.001 * (seed % 20))
    time.sleep(0.001 * (seed % 5))
    os.close(reading)
    os.close(writing)
    return spin(seed)


JOBS = (lock_job, condition_job, queue_job, socket_job, exception_job, recursion_job, local_job,
        wait_job, lock_job, exception_job, condition_job, wait_job)


def job_for(number, seed):
    if number % 50 == 7:
        return fork_job
    if number % 60 == 13:
        return reload_job
    return JOBS[(number + seed) % len(JOBS)]


def run_round(number, threads):
    seed = number % SEEDS
    answers = []

    def work(job, argument):
        answers.append(job(argument))
    started = []
    for i in range(threads):
        thread = threading.Thread(target=work, args=(job_for(i, seed), seed * 1000 + i))
        thread.start()
        started.append(thread)
    for thread in started:
        thread.join(PATIENCE)
        if thread.isAlive():
            tell_lost(thread)
    return len(answers), sum(answers)


def tell_lost(thread):
    print 'lost:', thread
    for ident, frame in sys._current_frames().items():
        print 'thread', ident
        traceback.print_stack(frame, file=sys.stdout)
    sys.stdout.flush()
    os._exit(3)


def references():
    gc.collect()
    return sys.gettotalrefcount() if hasattr(sys, 'gettotalrefcount') else 0


def main():
    threads = int(sys.argv[1])
    number = 0
    while not select.select([sys.stdin], [], [], 0)[0]:
        answered, total = run_round(number, threads)
        print 'round %d: %d answers, sum %d, %d threads left, %d references' % (
            number, answered, total, threading.activeCount() - 1, references())
        sys.stdout.flush()
        number += 1
    print 'over'


if __name__ == '__main__':
    main()
