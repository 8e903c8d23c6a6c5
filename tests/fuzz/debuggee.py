"""Runs as long as the fuzzer, whatever becomes of its variables; counts in the file it is given."""

import os
import sys
import thread
import time


def count(path, sleep=time.sleep, parent=os.getppid, end=os._exit):
    number = 0
    started_by = parent()
    while True:
        if parent() != started_by:
            end(0)  # The fuzzer was killed.
        number += 1
        output = open(path, 'w')
        output.write(str(number))
        output.close()
        sleep(0.01)


class Thing(object):
    kind = 'thing'

    def __init__(self, number):
        self.number = number
        self.items = [number, {'a': number}, u'\xe9']


def work(number):
    thing = Thing(number)
    items = [number, thing]  # work
    try:
        raise KeyError(number)  # raised
    except KeyError:
        pass
    return len(items)


def forever(work=work, sleep=time.sleep, every=Exception):
    while True:
        try:
            work(7)
        except every:
            pass
        sleep(0.002)


# Threads get in each other's way as often as they can.
sys.setcheckinterval(1)
if sys.argv[1:]:
    thread.start_new_thread(count, (sys.argv[1],))
    forever()
# Without a place to count in it is over soon.
for each in range(3):
    work(each)
